// The frame-rate converter through the exports: creation-record defaults and bounds, the Q14 rate
// ratios and the derived count, handle checks of the three handle exports, and the exception
// guard (E_UNEXPECTED with reference counts and memory intact).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/trace.h"
#include "platform/handle.h"
#include "framedsp/framedsp.h"
#include "framerate/converter.h"
#include "test_os.h"

namespace {

using framedsp::DspFrameRateConverter;
using framedsp::HandleObject;

const DSP_HANDLE kUntouched = reinterpret_cast<DSP_HANDLE>(uintptr_t{0x5EA1ED00});

// The smallest record that passes: a base count and a picture large enough for the default
// ranges; every optional word 0.
DSP_FRAME_RATE_CONVERTER_PARAMS minimal_record() {
  DSP_FRAME_RATE_CONVERTER_PARAMS p;
  std::memset(&p, 0, sizeof p);
  p.ulBaseCount = 1;
  p.lWidth = 720;
  p.lHeight = 576;
  return p;
}

DSP_HRESULT create(const DSP_FRAME_RATE_CONVERTER_PARAMS &p, DSP_HANDLE *h) {
  return DspCreateFrameRateConverter(&p, h);
}

// Creation status of a record; a created converter is destroyed again at once.
DSP_HRESULT create_status(const DSP_FRAME_RATE_CONVERTER_PARAMS &p);

// Gives up the creation reference, which no export does, so that tests leave nothing behind.
void destroy(DSP_HANDLE h) {
  DspFrameRateConverter *c = framedsp::acquire_handle<DspFrameRateConverter>(h);
  ASSERT_NE(c, nullptr);
  c->release();
  EXPECT_EQ(c->release(), 0);
}

DSP_HRESULT create_status(const DSP_FRAME_RATE_CONVERTER_PARAMS &p) {
  const int64_t live = framedsp::live_handle_objects();
  DSP_HANDLE h = kUntouched;
  const DSP_HRESULT hr = create(p, &h);
  if (hr == DSP_S_OK) {
    EXPECT_NE(h, kUntouched);
    destroy(h);
  } else {
    EXPECT_EQ(h, kUntouched) << "a failed creation must leave the handle variable alone";
  }
  EXPECT_EQ(framedsp::live_handle_objects(), live);
  return hr;
}

// References held on a live converter, read by acquiring it (and releasing again).
int32_t references_of(DSP_HANDLE h) {
  DspFrameRateConverter *c = framedsp::acquire_handle<DspFrameRateConverter>(h);
  if (!c) return -1;
  const int32_t held = c->references() - 1;
  c->release();
  return held;
}

// A converter created from `p` for the scope of a test.
class Converter {
 public:
  explicit Converter(const DSP_FRAME_RATE_CONVERTER_PARAMS &p = minimal_record()) {
    status_ = create(p, &handle_);
  }
  ~Converter() {
    if (status_ == DSP_S_OK) destroy(handle_);
  }
  DSP_HRESULT status() const { return status_; }
  DSP_HANDLE handle() const { return handle_; }
  // Copies out what the object holds (the acquired reference is released again).
  DSP_FRAME_RATE_CONVERTER_PARAMS settings() const {
    DspFrameRateConverter *c = framedsp::acquire_handle<DspFrameRateConverter>(handle_);
    DSP_FRAME_RATE_CONVERTER_PARAMS s;
    std::memset(&s, 0, sizeof s);
    if (c) {
      s = c->settings();
      c->release();
    }
    return s;
  }
  uint32_t ratio_ba() const {
    return with([](DspFrameRateConverter *c) { return c->rate_ratio_ba_q14(); });
  }
  uint32_t ratio_ab() const {
    return with([](DspFrameRateConverter *c) { return c->rate_ratio_ab_q14(); });
  }

 private:
  template <class F>
  uint32_t with(F f) const {
    DspFrameRateConverter *c = framedsp::acquire_handle<DspFrameRateConverter>(handle_);
    if (!c) return 0xDEADBEEFu;
    const uint32_t v = f(c);
    c->release();
    return v;
  }
  DSP_HANDLE handle_ = kUntouched;
  DSP_HRESULT status_ = DSP_E_FAIL;
};

// trunc(16384 * num / den) for positive finite floats, exactly, from their integer mantissas.
uint32_t exact_q14(float num, float den) {
  int en = 0, ed = 0;
  const uint64_t mn = static_cast<uint64_t>(std::ldexp(std::frexp(num, &en), 24));
  const uint64_t md = static_cast<uint64_t>(std::ldexp(std::frexp(den, &ed), 24));
  const int shift = 14 + en - ed;  // num / den = (mn / md) * 2^(en - ed)
  unsigned __int128 q;
  if (shift >= 0) {
    q = (static_cast<unsigned __int128>(mn) << shift) / md;
  } else {
    q = mn / (static_cast<unsigned __int128>(md) << -shift);
  }
  return q >= (static_cast<unsigned __int128>(1) << 32) ? 0xFFFFFFFFu : static_cast<uint32_t>(q);
}

TEST(Converter, AllOptionalWordsZeroTakeTheDefaults) {
  DSP_FRAME_RATE_CONVERTER_PARAMS p = minimal_record();
  p.ulReserved2 = 0x22;  // carried words are copied unchecked
  p.eConvertMode = 0x1010;
  p.ulReserved17 = 17;
  p.ulReserved40[6] = 46;
  p.bReserved47[0] = 0xA7;
  Converter c(p);
  ASSERT_EQ(c.status(), DSP_S_OK);
  ASSERT_NE(c.handle(), nullptr);

  DSP_FRAME_RATE_CONVERTER_PARAMS expected = p;
  expected.ulBlockA = expected.ulBlockB = 16;
  for (int i = 0; i < 5; ++i) {
    expected.ulLevelThreshold[i] = 8;
    expected.ulLevelBlockA[i] = expected.ulLevelBlockB[i] = 16;
    expected.ulLevelRangeX[i] = expected.ulLevelRangeY[i] = 1;
  }
  const DSP_FRAME_RATE_CONVERTER_PARAMS got = c.settings();
  EXPECT_EQ(std::memcmp(&got, &expected, sizeof got), 0);
  EXPECT_EQ(got.ulLevels, 0u);
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(got.ulLevelThreshold[i], 8u) << i;
    EXPECT_EQ(got.ulLevelBlockA[i], 16u) << i;
    EXPECT_EQ(got.ulLevelRangeY[i], 1u) << i;
  }
  EXPECT_EQ(references_of(c.handle()), 1);
}

TEST(Converter, GivenWordsAreKept) {
  DSP_FRAME_RATE_CONVERTER_PARAMS p = minimal_record();
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
  ASSERT_EQ(c.status(), DSP_S_OK);
  const DSP_FRAME_RATE_CONVERTER_PARAMS got = c.settings();
  EXPECT_EQ(std::memcmp(&got, &p, sizeof got), 0);
}

TEST(Converter, LevelCountAtMostFive) {
  DSP_FRAME_RATE_CONVERTER_PARAMS p = minimal_record();
  p.ulLevels = 6;
  EXPECT_EQ(create_status(p), DSP_E_INVALIDARG);
  p.ulLevels = 0xFFFFFFFFu;
  EXPECT_EQ(create_status(p), DSP_E_INVALIDARG);
  p.ulLevels = 5;
  EXPECT_EQ(create_status(p), DSP_S_OK);
}

TEST(Converter, RangesAreBoundedByAQuarterOfThePicture) {
  for (int level = 0; level < 5; ++level) {
    DSP_FRAME_RATE_CONVERTER_PARAMS p = minimal_record();
    p.ulLevels = 1;  // every level is checked whatever the count says
    p.ulLevelRangeX[level] = 5;
    p.lWidth = 19;  // 19 / 4 = 4
    EXPECT_EQ(create_status(p), DSP_E_INVALIDARG) << level;
    p.lWidth = 20;
    EXPECT_EQ(create_status(p), DSP_S_OK) << level;

    p = minimal_record();
    p.ulLevelRangeY[level] = 5;
    p.lHeight = 19;
    EXPECT_EQ(create_status(p), DSP_E_INVALIDARG) << level;
    p.lHeight = 20;
    EXPECT_EQ(create_status(p), DSP_S_OK) << level;
  }
}

// The quarter is a signed division rounding toward zero, compared unsigned: -3 / 4 = 0 bounds
// every range to 0 (the default 1 fails), while -4 / 4 = -1 reads as 0xFFFFFFFF.
TEST(Converter, NegativeExtentsDivideTowardZeroAndCompareUnsigned) {
  DSP_FRAME_RATE_CONVERTER_PARAMS p = minimal_record();
  p.lWidth = -3;
  EXPECT_EQ(create_status(p), DSP_E_INVALIDARG);
  p.lWidth = 3;
  EXPECT_EQ(create_status(p), DSP_E_INVALIDARG);
  p.lWidth = -4;
  for (int i = 0; i < 5; ++i) p.ulLevelRangeX[i] = 0xFFFFFFFFu;
  EXPECT_EQ(create_status(p), DSP_S_OK);
  p = minimal_record();
  p.lHeight = std::numeric_limits<int32_t>::min();  // / 4 = -2^29: huge unsigned
  p.ulLevelRangeY[2] = 0xE0000000u;
  EXPECT_EQ(create_status(p), DSP_S_OK);
  p.ulLevelRangeY[2] = 0xE0000001u;
  EXPECT_EQ(create_status(p), DSP_E_INVALIDARG);
}

TEST(Converter, BlockSizesFrom8To32) {
  struct Case {
    uint32_t value;
    DSP_HRESULT status;
  };
  const Case cases[] = {{7, DSP_E_INVALIDARG}, {8, DSP_S_OK}, {32, DSP_S_OK},
                        {33, DSP_E_INVALIDARG}, {0xFFFFFFFFu, DSP_E_INVALIDARG}};
  for (const Case &k : cases) {
    DSP_FRAME_RATE_CONVERTER_PARAMS p = minimal_record();
    p.ulBlockA = k.value;
    EXPECT_EQ(create_status(p), k.status) << "ulBlockA " << k.value;
    p = minimal_record();
    p.ulBlockB = k.value;
    EXPECT_EQ(create_status(p), k.status) << "ulBlockB " << k.value;
    for (int level = 0; level < 5; ++level) {
      p = minimal_record();
      p.ulLevels = 1;
      p.ulLevelBlockA[level] = k.value;
      EXPECT_EQ(create_status(p), k.status) << "ulLevelBlockA[" << level << "] " << k.value;
      p = minimal_record();
      p.ulLevels = 1;
      p.ulLevelBlockB[level] = k.value;
      EXPECT_EQ(create_status(p), k.status) << "ulLevelBlockB[" << level << "] " << k.value;
    }
  }
}

TEST(Converter, ThresholdsAtMost255) {
  for (int level = 0; level < 5; ++level) {
    DSP_FRAME_RATE_CONVERTER_PARAMS p = minimal_record();
    p.ulLevels = 1;
    p.ulLevelThreshold[level] = 256;
    EXPECT_EQ(create_status(p), DSP_E_INVALIDARG) << level;
    p.ulLevelThreshold[level] = 255;
    EXPECT_EQ(create_status(p), DSP_S_OK) << level;
  }
}

TEST(Converter, BaseAndDerivedCounts) {
  DSP_FRAME_RATE_CONVERTER_PARAMS p = minimal_record();
  p.ulBaseCount = 0;
  EXPECT_EQ(create_status(p), DSP_E_INVALIDARG);

  p = minimal_record();
  p.fRateA = 60;
  p.fRateB = 50;
  p.bDeriveCount = 1;
  p.ulDerivedCount = 0;
  EXPECT_EQ(create_status(p), DSP_E_INVALIDARG);
  p.bDeriveCount = 0;  // without the flag a derived count of 0 is fine
  EXPECT_EQ(create_status(p), DSP_S_OK);

  // The flag is the third byte of word 47.
  p.ulDerivedCount = 0;
  unsigned char raw[sizeof p];
  std::memcpy(raw, &p, sizeof p);
  raw[47 * 4 + 2] = 0x80;
  std::memcpy(&p, raw, sizeof p);
  EXPECT_EQ(create_status(p), DSP_E_INVALIDARG);
}

TEST(Converter, DerivedCountUsesTheTruncatedRatio) {
  DSP_FRAME_RATE_CONVERTER_PARAMS p = minimal_record();
  p.ulBaseCount = 576;
  p.ulDerivedCount = 1;
  p.fRateA = 60;
  p.fRateB = 50;
  p.bDeriveCount = 1;
  Converter c(p);
  ASSERT_EQ(c.status(), DSP_S_OK);
  EXPECT_EQ(c.ratio_ba(), 13653u);             // 819200 / 60 = 13653.33
  EXPECT_EQ(c.ratio_ab(), 19660u);             // 983040 / 50 = 19660.8
  EXPECT_EQ(c.settings().ulDerivedCount, 479u);  // 576 * 13653 = 7864128; >> 14 = 479.98
  EXPECT_EQ(c.settings().ulBaseCount, 576u);

  p.bDeriveCount = 0;  // without the flag the count is kept
  p.ulDerivedCount = 1234;
  Converter kept(p);
  ASSERT_EQ(kept.status(), DSP_S_OK);
  EXPECT_EQ(kept.settings().ulDerivedCount, 1234u);
  EXPECT_EQ(kept.ratio_ba(), 13653u);
}

TEST(Converter, RatiosMatchExactRationalTruncation) {
  const float rates[] = {1.0f,   10.0f,  23.976f, 24.0f,  25.0f,   29.97f,
                         30.0f,  50.0f,  59.94f,  60.0f,  0.001f,  120.0f};
  for (float a : rates) {
    for (float b : rates) {
      DSP_FRAME_RATE_CONVERTER_PARAMS p = minimal_record();
      p.ulBaseCount = 4000000000u;  // the product wraps in 32 bits
      p.ulDerivedCount = 7;
      p.fRateA = a;
      p.fRateB = b;
      p.bDeriveCount = 1;
      Converter c(p);
      ASSERT_EQ(c.status(), DSP_S_OK) << a << " " << b;
      const uint32_t ba = exact_q14(b, a);
      EXPECT_EQ(c.ratio_ba(), ba) << a << " -> " << b;
      EXPECT_EQ(c.ratio_ab(), exact_q14(a, b)) << a << " -> " << b;
      const uint64_t product = uint64_t{4000000000u} * ba;
      const uint32_t derived = static_cast<uint32_t>(product & 0xFFFFFFFFu) >> 14;
      EXPECT_EQ(c.settings().ulDerivedCount, derived) << a << " -> " << b;
    }
  }
}

// Quotients outside 0..2^32-1 saturate (see q14_ratio): 0 for NaN and for quotients of 0 or
// less, 0xFFFFFFFF for 2^32 and more, including division of a positive rate by +0.
TEST(Converter, RatiosOutOfRangeSaturate) {
  const float inf = std::numeric_limits<float>::infinity();
  const float nan = std::numeric_limits<float>::quiet_NaN();
  struct Case {
    float a, b;
    uint32_t ba, ab;
  };
  const Case cases[] = {
      {0.0f, 50.0f, 0xFFFFFFFFu, 0u},  {50.0f, 0.0f, 0u, 0xFFFFFFFFu},
      {0.0f, 0.0f, 0u, 0u},            {nan, 25.0f, 0u, 0u},
      {-25.0f, 50.0f, 0u, 0u},         {25.0f, -0.0f, 0u, 0u},
      {-25.0f, -0.0f, 0u, 0xFFFFFFFFu}, {1.0f, 1e6f, 0xFFFFFFFFu, 0u},
      {1.0f, 262144.0f, 0xFFFFFFFFu, 0u}, {1.0f, 262143.99f, exact_q14(262143.99f, 1.0f), 0u},
      {inf, 25.0f, 0u, 0xFFFFFFFFu},   {inf, inf, 0u, 0u},
  };
  for (const Case &k : cases) {
    DSP_FRAME_RATE_CONVERTER_PARAMS p = minimal_record();
    p.ulBaseCount = 3;
    p.ulDerivedCount = 1;
    p.fRateA = k.a;
    p.fRateB = k.b;
    p.bDeriveCount = 1;
    Converter c(p);
    ASSERT_EQ(c.status(), DSP_S_OK) << k.a << " " << k.b;
    EXPECT_EQ(c.ratio_ba(), k.ba) << k.a << " -> " << k.b;
    EXPECT_EQ(c.ratio_ab(), k.ab) << k.a << " -> " << k.b;
    EXPECT_EQ(c.settings().ulDerivedCount, static_cast<uint32_t>(3u * k.ba) >> 14);
  }
}

TEST(Converter, NullPointers) {
  const int64_t live = framedsp::live_handle_objects();
  DSP_FRAME_RATE_CONVERTER_PARAMS p = minimal_record();
  DSP_HANDLE h = kUntouched;
  EXPECT_EQ(DspCreateFrameRateConverter(nullptr, &h), DSP_E_POINTER);
  EXPECT_EQ(DspCreateFrameRateConverter(&p, nullptr), DSP_E_POINTER);
  EXPECT_EQ(DspCreateFrameRateConverter(nullptr, nullptr), DSP_E_POINTER);
  EXPECT_EQ(h, kUntouched);
  EXPECT_EQ(framedsp::live_handle_objects(), live);

  // The record is checked before the handle in the two exports that check it.
  Converter c;
  ASSERT_EQ(c.status(), DSP_S_OK);
  EXPECT_EQ(DspCreateMotionVectors(c.handle(), nullptr), DSP_E_POINTER);
  EXPECT_EQ(DspCreateMipMaps(c.handle(), nullptr), DSP_E_POINTER);
  EXPECT_EQ(DspCreateMotionVectors(nullptr, nullptr), DSP_E_POINTER);
  EXPECT_EQ(DspCreateMipMaps(nullptr, nullptr), DSP_E_POINTER);
  // DspFrameRateConvert looks at the handle only.
  EXPECT_EQ(DspFrameRateConvert(nullptr, nullptr, 0), DSP_E_HANDLE);
  EXPECT_EQ(references_of(c.handle()), 1);
}

TEST(Converter, AllocationFailure) {
  const int64_t live = framedsp::live_handle_objects();
  DSP_FRAME_RATE_CONVERTER_PARAMS p = minimal_record();
  DSP_HANDLE h = kUntouched;
  framedsp::frame_rate_converter_fail_next_allocation();
  EXPECT_EQ(create(p, &h), DSP_E_OUTOFMEMORY);
  EXPECT_EQ(h, kUntouched);
  EXPECT_EQ(framedsp::live_handle_objects(), live);
  EXPECT_EQ(create_status(p), DSP_S_OK);  // one failure only
}

// A handle class that is not a converter.
class OtherObject : public HandleObject {};

// Each handle export's status for handle h, with a valid (zeroed) record.
struct HandleExportResults {
  DSP_HRESULT convert, vectors, mipmaps;
};
HandleExportResults call_handle_exports(DSP_HANDLE h) {
  DSP_FRAME_RATE_CONVERT_PARAMS convert;
  std::memset(&convert, 0, sizeof convert);
  DSP_MIPMAP_PARAMS mipmaps;
  std::memset(&mipmaps, 0, sizeof mipmaps);
  DSP_MOTION_VECTORS_PARAMS vectors;
  std::memset(&vectors, 0, sizeof vectors);
  return HandleExportResults{DspFrameRateConvert(h, &convert, 0),
                             DspCreateMotionVectors(h, &vectors), DspCreateMipMaps(h, &mipmaps)};
}

void expect_bad_handle(DSP_HANDLE h, const std::string &what) {
  const HandleExportResults r = call_handle_exports(h);
  EXPECT_EQ(r.convert, DSP_E_HANDLE) << what;
  EXPECT_EQ(r.vectors, DSP_E_HANDLE) << what;
  EXPECT_EQ(r.mipmaps, DSP_E_HANDLE) << what;
  EXPECT_EQ(DspFrameRateConvert(h, nullptr, 0xFFFFFFFFu), DSP_E_HANDLE) << what;
}

TEST(Converter, BadHandlesGiveEHandle) {
  expect_bad_handle(nullptr, "0");
  expect_bad_handle(reinterpret_cast<DSP_HANDLE>(uintptr_t{0xFFFFFFFFu}), "0xFFFFFFFF");
  expect_bad_handle(reinterpret_cast<DSP_HANDLE>(~uintptr_t{0}), "all ones");

  expect_bad_handle(framedsp_test::unmapped_address(), "unmapped page");

  std::unique_ptr<uint64_t[]> block(new uint64_t[32]());
  expect_bad_handle(block.get(), "unrelated block");

  Converter live;
  ASSERT_EQ(live.status(), DSP_S_OK);
  expect_bad_handle(static_cast<char *>(live.handle()) + 4, "inside a live converter");
  EXPECT_EQ(references_of(live.handle()), 1);
}

TEST(Converter, StaleHandleGivesEHandle) {
  DSP_HANDLE h = kUntouched;
  ASSERT_EQ(create(minimal_record(), &h), DSP_S_OK);
  DspFrameRateConverter *c = framedsp::acquire_handle<DspFrameRateConverter>(h);
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(c->release(), 1);
  EXPECT_EQ(c->release(), 0);  // the creation reference: destroyed
  expect_bad_handle(h, "stale");
}

TEST(Converter, HandleOfAnotherClassGivesEHandle) {
  auto *other = new OtherObject();
  ASSERT_NE(HandleObject::lookup(other->handle()), nullptr);  // a live handle object...
  expect_bad_handle(other->handle(), "another handle class");  // ...but not a converter
  EXPECT_EQ(other->references(), 1);
  EXPECT_EQ(other->release(), 0);
}

TEST(Converter, LiveHandleReachesTheOperations) {
  Converter c;
  ASSERT_EQ(c.status(), DSP_S_OK);
  const HandleExportResults r = call_handle_exports(c.handle());
  // Zeroed records name no frames and no pyramids.
  EXPECT_EQ(r.convert, DSP_E_INVALIDARG);
  EXPECT_EQ(r.vectors, DSP_E_INVALIDARG);
  // Past the handle check the pyramid reads its record: a zeroed one has no level list.
  EXPECT_EQ(r.mipmaps, DSP_E_POINTER);
  EXPECT_EQ(references_of(c.handle()), 1) << "each call drops the reference it took";
}

// Worker hook that throws for every worker, recording which one it was.
std::vector<std::string> g_workers_seen;
void throwing_hook(const char *worker) {
  g_workers_seen.emplace_back(worker ? worker : "");
  throw std::runtime_error("injected");
}

class HookScope {
 public:
  explicit HookScope(framedsp::WorkerHook hook) {
    g_workers_seen.clear();
    framedsp::set_worker_hook(hook);
  }
  ~HookScope() { framedsp::set_worker_hook(nullptr); }
};

TEST(Converter, ThrowingOperationGivesEUnexpectedAndKeepsTheCount) {
  Converter c;
  ASSERT_EQ(c.status(), DSP_S_OK);
  {
    HookScope hook(throwing_hook);
    DSP_FRAME_RATE_CONVERT_PARAMS convert;
    std::memset(&convert, 0, sizeof convert);
    EXPECT_EQ(DspFrameRateConvert(c.handle(), &convert, 0), DSP_E_UNEXPECTED);
    ASSERT_EQ(g_workers_seen.size(), 1u);
    EXPECT_EQ(g_workers_seen[0], "DspFrameRateConvert");
    EXPECT_EQ(references_of(c.handle()), 1);

    const HandleExportResults r = call_handle_exports(c.handle());
    EXPECT_EQ(r.convert, DSP_E_UNEXPECTED);
    EXPECT_EQ(r.vectors, DSP_E_UNEXPECTED);
    EXPECT_EQ(r.mipmaps, DSP_E_UNEXPECTED);
    EXPECT_EQ(references_of(c.handle()), 1);
  }
  EXPECT_EQ(call_handle_exports(c.handle()).convert, DSP_E_INVALIDARG);
}

TEST(Converter, ThrowDuringCreationGivesEUnexpectedAndFreesTheObject) {
  const int64_t live = framedsp::live_handle_objects();
  DSP_FRAME_RATE_CONVERTER_PARAMS p = minimal_record();
  DSP_HANDLE h = kUntouched;
  {
    HookScope hook(throwing_hook);
    EXPECT_EQ(create(p, &h), DSP_E_UNEXPECTED);
    ASSERT_EQ(g_workers_seen.size(), 1u);
    EXPECT_EQ(g_workers_seen[0], "DspCreateFrameRateConverter");
  }
  EXPECT_EQ(h, kUntouched);
  EXPECT_EQ(framedsp::live_handle_objects(), live) << "the base part must be unwound too";
  EXPECT_EQ(create_status(p), DSP_S_OK);
}

TEST(Converter, FailedInitialisationDestroysTheObject) {
  const int64_t live = framedsp::live_handle_objects();
  DSP_FRAME_RATE_CONVERTER_PARAMS p = minimal_record();
  p.ulBlockA = 7;
  DSP_HANDLE h = kUntouched;
  EXPECT_EQ(create(p, &h), DSP_E_INVALIDARG);
  EXPECT_EQ(h, kUntouched);
  EXPECT_EQ(framedsp::live_handle_objects(), live);
}

TEST(Converter, IdentitiesOfConvertersDiffer) {
  Converter a, b;
  ASSERT_EQ(a.status(), DSP_S_OK);
  ASSERT_EQ(b.status(), DSP_S_OK);
  ASSERT_NE(a.handle(), b.handle());
  DspFrameRateConverter *ca = framedsp::acquire_handle<DspFrameRateConverter>(a.handle());
  DspFrameRateConverter *cb = framedsp::acquire_handle<DspFrameRateConverter>(b.handle());
  ASSERT_TRUE(ca && cb);
  EXPECT_NE(ca->id(), 0u);
  EXPECT_NE(cb->id(), 0u);
  EXPECT_NE(ca->id(), cb->id());
  ca->release();
  cb->release();
}

}  // namespace
