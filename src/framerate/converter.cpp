#include "framerate/converter.h"

#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

#include "analysis/motion_settings.h"
#include "framerate/frc_convert.h"
#include "platform/trace.h"

namespace framedsp {

static_assert(sizeof(DSP_FRAME_RATE_CONVERTER_PARAMS) == 48 * 4,
              "the creation record is forty-eight 32-bit words");

namespace {

constexpr long double kQ14One = 16384.0L;
constexpr long double kTwoTo32 = 4294967296.0L;

std::atomic<bool> g_fail_next_allocation{false};

constexpr const char *kCreate = "DspCreateFrameRateConverter";

// Words 11..39 of the creation record are the block-search settings, in SearchSettings' order.
static_assert(offsetof(DSP_FRAME_RATE_CONVERTER_PARAMS, ulLevelRangeY) + 5 * 4 -
                      offsetof(DSP_FRAME_RATE_CONVERTER_PARAMS, ulLevels) ==
                  sizeof(SearchSettings),
              "words 11..39");

// trunc(16384 * numerator / denominator) in extended precision (16384 * x is exact there).
// Quotients a 32-bit unsigned word cannot hold saturate instead of being converted, since an
// out-of-range float-to-integer conversion is undefined: NaN (from NaN rates, 0/0 or inf/inf)
// and quotients of 0 or less give 0; quotients of 2^32 or more, +inf included, give 0xFFFFFFFF.
// Division by zero is resolved by hand with the IEEE sign rule (+x/+0 = +inf, +x/-0 = -inf).
uint32_t q14_ratio(float numerator, float denominator) {
  const long double n = static_cast<long double>(numerator) * kQ14One;
  const long double d = static_cast<long double>(denominator);
  if (std::isnan(n) || std::isnan(d)) return 0;
  if (d == 0) {
    if (n == 0) return 0;
    return std::signbit(n) == std::signbit(d) ? UINT32_MAX : 0;
  }
  const long double q = n / d;
  if (!(q > 0)) return 0;
  if (q >= kTwoTo32) return UINT32_MAX;
  return static_cast<uint32_t>(q);  // in (0, 2^32): converts by truncation toward zero
}

}  // namespace

FrameRateConverter::~FrameRateConverter() = default;

DspFrameRateConverter::DspFrameRateConverter() {
  // Entered once the base part holds an identity, so an injected throw here proves that a failed
  // construction frees the memory and unwinds the base.
  worker_entry("DspCreateFrameRateConverter");
}

DspFrameRateConverter::~DspFrameRateConverter() = default;

HRESULT DspFrameRateConverter::Initialise(const DSP_FRAME_RATE_CONVERTER_PARAMS &params) {
  if (params.ulBaseCount == 0) {
    refuse(kCreate, "base count is 0");
    return kInvalidArg;
  }
  if (params.bDeriveCount && params.ulDerivedCount == 0) {
    refuse(kCreate, "derive-count flag %u is set and the derived count is 0", params.bDeriveCount);
    return kInvalidArg;
  }

  settings_ = params;
  DSP_FRAME_RATE_CONVERTER_PARAMS &s = settings_;
  SearchSettings search;
  std::memcpy(&search, &params.ulLevels, sizeof search);
  const bool search_ok = search_settings_apply(&search, params.lWidth, params.lHeight, kCreate);
  std::memcpy(&s.ulLevels, &search, sizeof search);

  ulRateRatioABQ14 = q14_ratio(params.fRateA, params.fRateB);
  ulRateRatioBAQ14 = q14_ratio(params.fRateB, params.fRateA);
  if (params.bDeriveCount) {
    // 32-bit unsigned product, wrapping as it may: the truncated Q14 ratio is the contract
    // (576 frames at 60 -> 50 derive 479, not 480).
    s.ulDerivedCount = static_cast<uint32_t>(s.ulBaseCount * ulRateRatioBAQ14) >> 14;
  }

  return search_ok ? kOk : kInvalidArg;
}

HRESULT DspFrameRateConverter::Convert(DSP_FRAME_RATE_CONVERT_PARAMS *params) {
  return frame_rate_convert(settings_, params);
}

HRESULT create_frame_rate_converter(const DSP_FRAME_RATE_CONVERTER_PARAMS *params,
                                    DSP_HANDLE *handle_out) {
  DspFrameRateConverter *converter =
      g_fail_next_allocation.exchange(false, std::memory_order_relaxed)
          ? nullptr
          : new (std::nothrow) DspFrameRateConverter();
  if (!converter) return kOutOfMemory;
  const HRESULT status = converter->Initialise(*params);
  if (status != kOk) {
    converter->release();  // the creation reference: destroys the object
    return status;
  }
  *handle_out = converter->handle();
  return kOk;
}

void frame_rate_converter_fail_next_allocation() {
  g_fail_next_allocation.store(true, std::memory_order_relaxed);
}

}  // namespace framedsp
