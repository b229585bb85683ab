#include "framerate/converter.h"

#include <atomic>
#include <cmath>
#include <cstdint>
#include <new>

#include "frame/guard.h"
#include "frame/trace.h"
#include "framerate/frc_convert.h"

namespace framedsp {

static_assert(sizeof(DSP_FRAME_RATE_CONVERTER_PARAMS) == 48 * 4,
              "the creation record is forty-eight 32-bit words");

namespace {

constexpr uint32_t kLevelCount = 5;
constexpr uint32_t kDefaultBlock = 16;
constexpr uint32_t kDefaultRange = 1;
constexpr uint32_t kDefaultThreshold = 8;
constexpr uint32_t kMinBlock = 8;
constexpr uint32_t kMaxBlock = 32;
constexpr uint32_t kMaxThreshold = 255;
constexpr long double kQ14One = 16384.0L;
constexpr long double kTwoTo32 = 4294967296.0L;

std::atomic<bool> g_fail_next_allocation{false};

uint32_t or_default(uint32_t value, uint32_t fallback) { return value ? value : fallback; }

bool block_in_range(uint32_t block) { return block >= kMinBlock && block <= kMaxBlock; }

constexpr const char *kCreate = "DspCreateFrameRateConverter";

bool block_passes(const char *what, uint32_t block) {
  if (block_in_range(block)) return true;
  return refuse(kCreate, "%s %u is outside %u..%u", what, block, kMinBlock, kMaxBlock);
}

bool level_block_passes(const char *what, uint32_t level, uint32_t block) {
  if (block_in_range(block)) return true;
  return refuse(kCreate, "level %u %s %u is outside %u..%u", level, what, block, kMinBlock, kMaxBlock);
}

// Range bound of one axis: the extent divided by 4 as signed integers (toward zero), then
// compared as unsigned, so a negative extent bounds nothing.
uint32_t range_bound(int32_t extent) { return static_cast<uint32_t>(extent / 4); }

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
  // Each default is judged on the caller's word, for all five levels whatever ulLevels says.
  s.ulBlockA = or_default(params.ulBlockA, kDefaultBlock);
  s.ulBlockB = or_default(params.ulBlockB, kDefaultBlock);
  for (uint32_t i = 0; i < kLevelCount; ++i) {
    s.ulLevelBlockA[i] = or_default(params.ulLevelBlockA[i], kDefaultBlock);
    s.ulLevelBlockB[i] = or_default(params.ulLevelBlockB[i], kDefaultBlock);
    s.ulLevelRangeX[i] = or_default(params.ulLevelRangeX[i], kDefaultRange);
    s.ulLevelRangeY[i] = or_default(params.ulLevelRangeY[i], kDefaultRange);
    s.ulLevelThreshold[i] = or_default(params.ulLevelThreshold[i], kDefaultThreshold);
  }

  ulRateRatioABQ14 = q14_ratio(params.fRateA, params.fRateB);
  ulRateRatioBAQ14 = q14_ratio(params.fRateB, params.fRateA);
  if (params.bDeriveCount) {
    // 32-bit unsigned product, wrapping as it may: the truncated Q14 ratio is the contract
    // (576 frames at 60 -> 50 derive 479, not 480).
    s.ulDerivedCount = static_cast<uint32_t>(s.ulBaseCount * ulRateRatioBAQ14) >> 14;
  }

  if (s.ulLevels > kLevelCount) {
    refuse(kCreate, "level count %u is above %u", s.ulLevels, kLevelCount);
    return kInvalidArg;
  }
  if (!block_passes("block A", s.ulBlockA) || !block_passes("block B", s.ulBlockB)) return kInvalidArg;
  const uint32_t max_range_x = range_bound(s.lWidth);
  const uint32_t max_range_y = range_bound(s.lHeight);
  for (uint32_t i = 0; i < kLevelCount; ++i) {
    if (!level_block_passes("block A", i, s.ulLevelBlockA[i]) ||
        !level_block_passes("block B", i, s.ulLevelBlockB[i])) {
      return kInvalidArg;
    }
    if (s.ulLevelRangeX[i] > max_range_x) {
      refuse(kCreate, "level %u search range x %u is above width %d / 4 = %u", i, s.ulLevelRangeX[i],
             s.lWidth, max_range_x);
      return kInvalidArg;
    }
    if (s.ulLevelRangeY[i] > max_range_y) {
      refuse(kCreate, "level %u search range y %u is above height %d / 4 = %u", i, s.ulLevelRangeY[i],
             s.lHeight, max_range_y);
      return kInvalidArg;
    }
    if (s.ulLevelThreshold[i] > kMaxThreshold) {
      refuse(kCreate, "level %u threshold %u is above %u", i, s.ulLevelThreshold[i], kMaxThreshold);
      return kInvalidArg;
    }
  }
  return kOk;
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
