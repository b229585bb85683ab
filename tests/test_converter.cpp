// The frame-rate converter through the exports: the creation record (defaults, bounds and the
// refusal each bound traces), the Q14 rate ratios and the derived count, handle checks of the
// three handle exports (each bad handle named in the trace).
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "platform/handle.h"
#include "framedsp/framedsp.h"
#include "framerate/converter.h"
#include "test_os.h"
#include "test_util.h"

namespace {

using framedsp::DspFrameRateConverter;
using framedsp::HandleObject;
using framedsp_test::converter_references;
using framedsp_test::destroy_converter;
using framedsp_test::traced;
using Record = DSP_FRAME_RATE_CONVERTER_PARAMS;

const DSP_HANDLE kUntouched = reinterpret_cast<DSP_HANDLE>(uintptr_t{0x5EA1ED00});

// The smallest record that passes: a base count and a picture large enough for the default
// ranges; every optional word 0.
Record minimal_record() {
  Record p;
  std::memset(&p, 0, sizeof p);
  p.ulBaseCount = 1;
  p.lWidth = 720;
  p.lHeight = 576;
  return p;
}

// Creation status of a record, with tracing on and off; a created converter is destroyed again,
// a refused one leaves the handle variable and the live-object count alone.  *trace gets the text.
DSP_HRESULT create_status(const Record &p, std::string *trace = nullptr) {
  const int64_t live = framedsp::live_handle_objects();
  DSP_HRESULT hr = DSP_E_FAIL;
  for (int on = 1; on >= 0; --on) {
    DSP_HANDLE h = kUntouched;
    const std::string text = traced(on, [&] { hr = DspCreateFrameRateConverter(&p, &h); });
    if (on && trace) *trace = text;
    if (!on) { EXPECT_EQ(text, ""); }
    if (hr == DSP_S_OK) {
      EXPECT_NE(h, kUntouched);
      destroy_converter(h);
    } else {
      EXPECT_EQ(h, kUntouched) << "a failed creation must leave the handle variable alone";
    }
    EXPECT_EQ(framedsp::live_handle_objects(), live);
  }
  return hr;
}

// A converter created from `p` for the scope of a test.
struct Converter {
  DSP_HANDLE handle = kUntouched;
  DSP_HRESULT status;
  explicit Converter(const Record &p = minimal_record()) : status(DspCreateFrameRateConverter(&p, &handle)) {}
  ~Converter() {
    if (status == DSP_S_OK) destroy_converter(handle);
  }
  // The object itself, alive while the test holds its creation reference.
  DspFrameRateConverter *get() const { return dynamic_cast<DspFrameRateConverter *>(HandleObject::lookup(handle)); }
};

// trunc(16384 * num / den) for positive finite floats, exactly, from their integer mantissas.
uint32_t exact_q14(float num, float den) {
  int en = 0, ed = 0;
  const uint64_t mn = static_cast<uint64_t>(std::ldexp(std::frexp(num, &en), 24));
  const uint64_t md = static_cast<uint64_t>(std::ldexp(std::frexp(den, &ed), 24));
  const int shift = 14 + en - ed;  // num / den = (mn / md) * 2^(en - ed)
  unsigned __int128 q = shift >= 0 ? (static_cast<unsigned __int128>(mn) << shift) / md
                                   : mn / (static_cast<unsigned __int128>(md) << -shift);
  return q >= (static_cast<unsigned __int128>(1) << 32) ? 0xFFFFFFFFu : static_cast<uint32_t>(q);
}

TEST(Converter, OptionalWordsZeroTakeTheDefaultsAndGivenWordsAreKept) {
  Record p = minimal_record();
  p.ulReserved2 = 0x22;  // carried words are copied unchecked
  p.ulDerivedCount = 1234;  // kept: the derive flag is off
  p.fRateA = 60;
  p.fRateB = 50;
  p.eConvertMode = 0x1010;
  p.ulReserved17 = 17;
  p.ulReserved40[6] = 46;
  p.bReserved47[0] = 0xA7;
  Record expected = p;
  expected.ulBlockA = expected.ulBlockB = 16;
  for (int i = 0; i < 5; ++i) {
    expected.ulLevelThreshold[i] = 8;
    expected.ulLevelBlockA[i] = expected.ulLevelBlockB[i] = 16;
    expected.ulLevelRangeX[i] = expected.ulLevelRangeY[i] = 1;
  }
  {
    Converter c(p);
    ASSERT_EQ(c.status, DSP_S_OK);
    const Record got = c.get()->settings();
    EXPECT_EQ(std::memcmp(&got, &expected, sizeof got), 0);
    EXPECT_EQ(converter_references(c.handle), 1);
  }
  p.ulLevels = 5;
  p.ulBlockA = 8;
  p.ulBlockB = 32;
  for (uint32_t i = 0; i < 5; ++i) {
    p.ulLevelThreshold[i] = 251 + i;
    p.ulLevelBlockA[i] = 8 + i;
    p.ulLevelBlockB[i] = 32 - i;
    p.ulLevelRangeX[i] = 180 - i;  // 720 / 4
    p.ulLevelRangeY[i] = 144 - i;  // 576 / 4
  }
  Converter c(p);
  ASSERT_EQ(c.status, DSP_S_OK);
  const Record got = c.get()->settings();
  EXPECT_EQ(std::memcmp(&got, &p, sizeof got), 0);
}

// Each bound of the record, on its last accepted and first refused value, with the line a refusal
// traces ("" when the case is accepted or not traced here).
struct Bound {
  const char *name;
  std::function<void(Record &)> edit;
  DSP_HRESULT status;
  std::string trace;
};

std::vector<Bound> bounds() {
  std::vector<Bound> v = {
      {"base_count", [](Record &p) { p.ulBaseCount = 0; }, DSP_E_INVALIDARG, "base count is 0"},
      {"derived_count", [](Record &p) { p.bDeriveCount = 1, p.ulDerivedCount = 0; }, DSP_E_INVALIDARG,
       "derive-count flag 1 is set and the derived count is 0"},
      {"derived_count_without_flag", [](Record &p) { p.fRateA = 60, p.fRateB = 50; }, DSP_S_OK, ""},
      // The flag is the third byte of word 47.
      {"derive_flag_byte", [](Record &p) { reinterpret_cast<unsigned char *>(&p)[47 * 4 + 2] = 0x80; },
       DSP_E_INVALIDARG, ""},
      {"levels", [](Record &p) { p.ulLevels = 6; }, DSP_E_INVALIDARG, "level count 6 is above 5"},
      {"levels_all_ones", [](Record &p) { p.ulLevels = 0xFFFFFFFFu; }, DSP_E_INVALIDARG, ""},
      {"levels_five", [](Record &p) { p.ulLevels = 5; }, DSP_S_OK, ""},
      {"block_a", [](Record &p) { p.ulBlockA = 7; }, DSP_E_INVALIDARG, "block A 7 is outside 8..32"},
      {"block_b", [](Record &p) { p.ulBlockB = 33; }, DSP_E_INVALIDARG, "block B 33 is outside 8..32"},
      {"blocks_8_and_32", [](Record &p) { p.ulBlockA = 8, p.ulBlockB = 32; }, DSP_S_OK, ""},
      {"block_all_ones", [](Record &p) { p.ulBlockB = 0xFFFFFFFFu; }, DSP_E_INVALIDARG, ""},
      {"level_block_a", [](Record &p) { p.ulLevelBlockA[2] = 40; }, DSP_E_INVALIDARG,
       "level 2 block A 40 is outside 8..32"},
      {"level_block_b", [](Record &p) { p.ulLevelBlockB[4] = 4; }, DSP_E_INVALIDARG,
       "level 4 block B 4 is outside 8..32"},
      {"range_x", [](Record &p) { p.ulLevelRangeX[0] = 181; }, DSP_E_INVALIDARG,
       "level 0 search range x 181 is above width 720 / 4 = 180"},
      {"range_x_small_width", [](Record &p) { p.lWidth = 3; }, DSP_E_INVALIDARG,
       "level 0 search range x 1 is above width 3 / 4 = 0"},
      {"range_y", [](Record &p) { p.ulLevelRangeY[3] = 145; }, DSP_E_INVALIDARG,
       "level 3 search range y 145 is above height 576 / 4 = 144"},
      {"threshold", [](Record &p) { p.ulLevelThreshold[1] = 256; }, DSP_E_INVALIDARG,
       "level 1 threshold 256 is above 255"},
      // The quarter is a signed division toward zero, compared unsigned: -3 / 4 = 0 bounds every
      // range to 0 (the default 1 fails), -4 / 4 = -1 reads as 0xFFFFFFFF.
      {"negative_width", [](Record &p) { p.lWidth = -3; }, DSP_E_INVALIDARG, ""},
      {"negative_width_quarter_all_ones",
       [](Record &p) {
         p.lWidth = -4;
         for (uint32_t &r : p.ulLevelRangeX) r = 0xFFFFFFFFu;
       },
       DSP_S_OK, ""},
      {"int_min_height", [](Record &p) { p.lHeight = std::numeric_limits<int32_t>::min(), p.ulLevelRangeY[2] = 0xE0000000u; },
       DSP_S_OK, ""},
      {"int_min_height_past", [](Record &p) { p.lHeight = std::numeric_limits<int32_t>::min(), p.ulLevelRangeY[2] = 0xE0000001u; },
       DSP_E_INVALIDARG, ""},
  };
  // Every level is checked whatever the level count says.
  for (int l = 0; l < 5; ++l) {
    v.push_back({"range_x_19", [l](Record &p) { p.ulLevelRangeX[l] = 5, p.lWidth = 19; }, DSP_E_INVALIDARG, ""});
    v.push_back({"range_x_20", [l](Record &p) { p.ulLevelRangeX[l] = 5, p.lWidth = 20; }, DSP_S_OK, ""});
    v.push_back({"range_y_19", [l](Record &p) { p.ulLevelRangeY[l] = 5, p.lHeight = 19; }, DSP_E_INVALIDARG, ""});
    v.push_back({"range_y_20", [l](Record &p) { p.ulLevelRangeY[l] = 5, p.lHeight = 20; }, DSP_S_OK, ""});
    v.push_back({"threshold_256", [l](Record &p) { p.ulLevels = 1, p.ulLevelThreshold[l] = 256; }, DSP_E_INVALIDARG, ""});
    v.push_back({"threshold_255", [l](Record &p) { p.ulLevels = 1, p.ulLevelThreshold[l] = 255; }, DSP_S_OK, ""});
    for (uint32_t b : {7u, 8u, 32u, 33u}) {
      const DSP_HRESULT st = b == 7 || b == 33 ? DSP_E_INVALIDARG : DSP_S_OK;
      v.push_back({"level_block_a", [l, b](Record &p) { p.ulLevels = 1, p.ulLevelBlockA[l] = b; }, st, ""});
      v.push_back({"level_block_b", [l, b](Record &p) { p.ulLevels = 1, p.ulLevelBlockB[l] = b; }, st, ""});
    }
  }
  return v;
}

TEST(Converter, RecordBoundsAndTheirTraces) {
  for (const Bound &b : bounds()) {
    Record p = minimal_record();
    b.edit(p);
    std::string text;
    EXPECT_EQ(create_status(p, &text), b.status) << b.name;
    if (b.status == DSP_S_OK) { EXPECT_EQ(text, "") << b.name; }
    if (!b.trace.empty()) { EXPECT_EQ(text, "DspCreateFrameRateConverter: refused: " + b.trace + "\n"); }
  }
}

// Exact rational truncation for ordinary rates; quotients outside 0..2^32-1 saturate: 0 for NaN
// and for quotients of 0 or less, 0xFFFFFFFF for 2^32 and more (a positive rate over +0 too).
TEST(Converter, RatiosTruncateExactlyAndSaturate) {
  const float rates[] = {1.0f, 10.0f, 23.976f, 24.0f, 25.0f, 29.97f, 30.0f, 50.0f, 59.94f, 60.0f, 0.001f, 120.0f};
  struct Case {
    float a, b;
    uint32_t ba, ab;
  };
  std::vector<Case> cases;
  for (float a : rates) {
    for (float b : rates) cases.push_back({a, b, exact_q14(b, a), exact_q14(a, b)});
  }
  const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
  const uint32_t kMax = 0xFFFFFFFFu;
  cases.insert(cases.end(), {{0.0f, 50.0f, kMax, 0u}, {50.0f, 0.0f, 0u, kMax}, {0.0f, 0.0f, 0u, 0u},
                             {nan, 25.0f, 0u, 0u}, {-25.0f, 50.0f, 0u, 0u}, {25.0f, -0.0f, 0u, 0u},
                             {-25.0f, -0.0f, 0u, kMax}, {1.0f, 1e6f, kMax, 0u}, {1.0f, 262144.0f, kMax, 0u},
                             {1.0f, 262143.99f, exact_q14(262143.99f, 1.0f), 0u}, {inf, 25.0f, 0u, kMax},
                             {inf, inf, 0u, 0u}});
  for (const Case &k : cases) {
    Record p = minimal_record();
    p.ulBaseCount = 4000000000u;  // the product wraps in 32 bits
    p.ulDerivedCount = 7;
    p.fRateA = k.a;
    p.fRateB = k.b;
    p.bDeriveCount = 1;
    Converter c(p);
    ASSERT_EQ(c.status, DSP_S_OK) << k.a << " " << k.b;
    EXPECT_EQ(c.get()->rate_ratio_ba_q14(), k.ba) << k.a << " -> " << k.b;
    EXPECT_EQ(c.get()->rate_ratio_ab_q14(), k.ab) << k.a << " -> " << k.b;
    EXPECT_EQ(c.get()->settings().ulDerivedCount, static_cast<uint32_t>(uint64_t{4000000000u} * k.ba) >> 14);
  }
}

TEST(Converter, AllocationFailure) {
  const int64_t live = framedsp::live_handle_objects();
  Record p = minimal_record();
  DSP_HANDLE h = kUntouched;
  framedsp::frame_rate_converter_fail_next_allocation();
  EXPECT_EQ(DspCreateFrameRateConverter(&p, &h), DSP_E_OUTOFMEMORY);
  EXPECT_EQ(h, kUntouched);
  EXPECT_EQ(framedsp::live_handle_objects(), live);
  EXPECT_EQ(create_status(p), DSP_S_OK);  // one failure only
}

// ---- handles ---------------------------------------------------------------------------------

class OtherObject : public HandleObject {};

const char *const kHandleExports[] = {"DspFrameRateConvert", "DspCreateMotionVectors", "DspCreateMipMaps"};

DSP_HRESULT call_handle_export(int which, DSP_HANDLE h) {
  DSP_FRAME_RATE_CONVERT_PARAMS convert;
  std::memset(&convert, 0, sizeof convert);
  DSP_MIPMAP_PARAMS mipmaps;
  std::memset(&mipmaps, 0, sizeof mipmaps);
  DSP_MOTION_VECTORS_PARAMS vectors;
  std::memset(&vectors, 0, sizeof vectors);
  if (which == 0) return DspFrameRateConvert(h, &convert, 0);
  return which == 1 ? DspCreateMotionVectors(h, &vectors) : DspCreateMipMaps(h, &mipmaps);
}

std::string hex(const void *p) {
  char text[32];
  std::snprintf(text, sizeof text, "0x%llX", static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(p)));
  return text;
}

// Each export refuses each bad handle with E_HANDLE, names it in its trace line, and keeps no
// reference of a live object it refuses.
TEST(ConverterHandles, BadHandlesAreRefusedAndNamed) {
  auto *other = new OtherObject;
  std::unique_ptr<uint64_t[]> block(new uint64_t[32]());
  Converter live;
  DSP_HANDLE stale = kUntouched;  // released last: nothing above takes its memory
  Record p = minimal_record();
  ASSERT_EQ(DspCreateFrameRateConverter(&p, &stale), DSP_S_OK);
  destroy_converter(stale);
  void *gone = framedsp_test::unmapped_address();
  ASSERT_NE(gone, nullptr);
  const std::string dead = " is not a live object (released, or never a handle)";
  const struct {
    DSP_HANDLE handle;
    std::string line;  // "" when not compared
  } cases[] = {
      {nullptr, "handle is null"},
      {reinterpret_cast<DSP_HANDLE>(~uintptr_t{0}), "handle " + hex(reinterpret_cast<void *>(~uintptr_t{0})) +
                                                        " is the invalid-handle value"},
      {reinterpret_cast<DSP_HANDLE>(uintptr_t{0xFFFFFFFFu}), "handle 0xFFFFFFFF is the invalid-handle value"},
      {gone, "handle " + hex(gone) + dead},
      {stale, "handle " + hex(stale) + dead},
      {other->handle(), "handle " + hex(other->handle()) + " names an object that is not a frame-rate converter"},
      {block.get(), ""},
      {static_cast<char *>(live.handle) + 4, ""},
  };
  for (int which = 0; which < 3; ++which) {
    for (const auto &c : cases) {
      DSP_HRESULT hr = DSP_S_OK;
      const std::string text = traced(1, [&] { hr = call_handle_export(which, c.handle); });
      EXPECT_EQ(hr, DSP_E_HANDLE) << kHandleExports[which] << " " << hex(c.handle);
      if (!c.line.empty()) { EXPECT_EQ(text, std::string(kHandleExports[which]) + ": refused: " + c.line + "\n"); }
      EXPECT_EQ(call_handle_export(which, c.handle), DSP_E_HANDLE);  // tracing off: same status
    }
  }
  EXPECT_EQ(DspFrameRateConvert(other->handle(), nullptr, 0xFFFFFFFFu), DSP_E_HANDLE);
  EXPECT_EQ(other->references(), 1) << "a refused handle kept a reference";
  EXPECT_EQ(other->release(), 0);
  EXPECT_EQ(converter_references(live.handle), 1);
}

}  // namespace
