// Every operation that takes a buffer record, from one table: N threads each producing one band of
// a call leave exactly the bytes of the whole call, and each band alone writes only its own bytes
// of it (run under ThreadSanitizer by `make tsan`); work memory is released after success, after
// each injected allocation failure (with the operation's status, the output untouched when the
// first one fails), after an exception from the worker, and refusals take none; a region whose
// left edge lies far past the end of its line touches nothing outside the output region.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "frame/guard.h"
#include "framedsp/framedsp.h"
#include "platform/trace.h"
#include "platform/work_memory.h"
#include "test_util.h"

namespace {

using framedsp_test::Pic;

const DSP_FIR_SETTINGS kFir{7, 45, 0, 5, 60}, kFirOff{5, 100, 0, 7, 100};
const DSP_BOX_SETTINGS kBox{5, 0, 4};

DSP_HRESULT filter(const DSP_BUFFER &b, uint32_t type, const void *settings, uint32_t options) {
  const DSP_FILTER_PARAMS p = framedsp_test::filter_params(type, settings, b, options);
  return DspFilter(&p);
}

DSP_HRESULT subpixel(const DSP_BUFFER &b, uint32_t type, const void *settings, uint32_t options) {
  DSP_SUBPIXEL_FILTER_PARAMS p{};
  p.eFilterType = type;
  p.pSettings = settings;
  p.Buffer.In = framedsp_test::fractional(b.In);
  p.Buffer.Out = framedsp_test::fractional(b.Out);
  p.Buffer.ulFlags = b.ulFlags;
  p.ulOptions = options;
  return DspSubPixelFilter(&p);
}

// The scaler reads three quarters of the input region's width and (`both`) lines: the axes scale up.
DSP_HRESULT scale(const DSP_BUFFER &b, uint32_t filter, uint32_t options, bool both = true) {
  DSP_SCALER_PARAMS p{};
  p.eFilter = filter;
  p.Buffer = b;
  p.Buffer.In.Buffer.Region.ulWidth = b.In.Buffer.Region.ulWidth / 4 * 3;
  if (both) p.Buffer.In.Buffer.Region.ulHeight = b.In.Buffer.Region.ulHeight / 4 * 3;
  p.ulOptions = options;
  if (options & DSP_SCALER_OPTION_FILTERED) p.eFilterType = DSP_FILTER_TYPE_FIR, p.pSettings = &kFir;
  return DspScaler(&p);
}

// The integer-ratio fast path: the output region half the input's width and half its height
// (the general path where the record is not eligible).
DSP_HRESULT scale_half(const DSP_BUFFER &b) {
  DSP_SCALER_PARAMS p{};
  p.eScalerPath = DSP_SCALER_PATH_INTEGER_RATIO;
  p.eFilter = DSP_SCALER_FILTER_LINEAR;
  p.Buffer = b;
  p.Buffer.Out.Buffer.Region.ulWidth = b.In.Buffer.Region.ulWidth / 2;
  p.Buffer.Out.Buffer.Region.ulHeight = b.Out.Buffer.Region.ulHeight / 2;
  return DspScaler(&p);
}

// The panorama (mode 1) or its inverse (mode 2) between the scaler's regions.
DSP_HRESULT panorama(const DSP_BUFFER &b, uint32_t mode, uint32_t filter, uint32_t options) {
  DSP_NONUNIFORM_SCALER_PARAMS p{};
  p.eStretchMode = mode, p.eFilter = filter, p.ulCentreWidthQ14 = 3277, p.ulCentreScaleQ14 = 13926;
  p.Buffer = b;
  p.Buffer.In.Buffer.Region.ulWidth = b.In.Buffer.Region.ulWidth / 4 * 3;
  p.ulOptions = options;
  if (options & DSP_SCALER_OPTION_FILTERED) p.eFilterType = DSP_FILTER_TYPE_FIR, p.pSettings = &kFir;
  return DspNonUniformScaler(&p);
}

struct Operation {
  const char *name;
  DSP_HRESULT (*call)(const DSP_BUFFER &);
  bool bands;  // the record has band fields
};

const uint32_t kFirT = DSP_FILTER_TYPE_FIR, kBoxT = DSP_FILTER_TYPE_BOX, kTemp = DSP_FILTER_OPTION_TEMP_FRAME;
const Operation kOperations[] = {
    {"copy", [](const DSP_BUFFER &b) { return DspBufferSmartCopy(&b); }, true},
    {"fir", [](const DSP_BUFFER &b) { return filter(b, kFirT, &kFir, 0); }, true},
    {"fir_temp", [](const DSP_BUFFER &b) { return filter(b, kFirT, &kFir, kTemp); }, true},
    {"fir_off", [](const DSP_BUFFER &b) { return filter(b, kFirT, &kFirOff, 0); }, true},
    {"box", [](const DSP_BUFFER &b) { return filter(b, kBoxT, &kBox, 0); }, true},
    {"box_temp", [](const DSP_BUFFER &b) { return filter(b, kBoxT, &kBox, kTemp); }, true},
    {"subpixel_fir_temp", [](const DSP_BUFFER &b) { return subpixel(b, kFirT, &kFir, kTemp); }, false},
    {"subpixel_box", [](const DSP_BUFFER &b) { return subpixel(b, kBoxT, &kBox, 0); }, false},
    {"scale_linear", [](const DSP_BUFFER &b) { return scale(b, DSP_SCALER_FILTER_LINEAR, 0); }, true},
    {"scale_nearest_staged", [](const DSP_BUFFER &b) { return scale(b, DSP_SCALER_FILTER_NEAREST, DSP_SCALER_OPTION_STAGED); }, true},
    {"scale_filtered", [](const DSP_BUFFER &b) { return scale(b, DSP_SCALER_FILTER_LINEAR, DSP_SCALER_OPTION_FILTERED); }, true},
    {"scale_half_fast_path", scale_half, true},
    {"scale_filtered_staged",
     [](const DSP_BUFFER &b) { return scale(b, 0, DSP_SCALER_OPTION_FILTERED | DSP_SCALER_OPTION_STAGED); }, true},
    {"scale_widths_only", [](const DSP_BUFFER &b) { return scale(b, DSP_SCALER_FILTER_LINEAR, 0, false); }, true},
    {"panorama_linear", [](const DSP_BUFFER &b) { return panorama(b, 1, 1, 0); }, true},
    {"panorama_inverse_cubic_filtered_staged",
     [](const DSP_BUFFER &b) { return panorama(b, 2, 2, DSP_SCALER_OPTION_FILTERED | DSP_SCALER_OPTION_STAGED); },
     true},
};
enum { kCopy, kFirOp, kFirTemp, kFirOffOp, kBoxOp, kBoxTemp, kSubFir, kSubBox, kScaleLinear, kScaleStaged,
       kScaleFiltered, kScaleHalf, kScaleFilteredStaged, kScaleWidths, kPanorama, kPanoramaInverse, kOps };
bool is_scaler(int op) { return op >= kScaleLinear; }

// ---- bands ------------------------------------------------------------------------------------

// Region heights keep the filter's field factor; the output's is a multiple of every band count
// used, in even bands when fields are taken apart.
struct Geometry {
  const char *name;
  uint32_t format, in_type, in_il, in_up, out_type, out_il, out_up, flags, in_h, out_h, in_colour, out_colour;
};
const Geometry kGeometries[] = {
    {"progressive_bgra", 0, 2, 2, 0, 2, 2, 0, 0, 96, 96, 0, 0},
    {"interleaved_uyvy", 21, 2, 1, 0, 2, 1, 0, 0, 96, 96, 2, 1},
    {"interleaved_field_b_only", 25, 2, 0, 0, 2, 1, 0, DSP_BUFFER_PROCESS_FIELDB, 96, 96, 0, 0},
    {"separate_fields_bgr", 1, 2, 3, 0, 2, 2, 1, 0, 96, 96, 0, 0},
    {"bottom_up_key_plane", 28, 2, 2, 1, 2, 2, 0, 0, 96, 96, 1, 2},
    {"frame_to_field_b", 0, 2, 0, 0, 1, 2, 0, DSP_BUFFER_IN_FIELD2_DOMINANCE, 192, 96, 0, 0},
    {"field_a_to_frame_shift", 25, 0, 2, 0, 2, 0, 1, DSP_BUFFER_OUT_FIELD2_DOMINANCE, 48, 96, 0, 0},
    {"key_field_to_field", 261, 1, 2, 1, 0, 2, 0, 0, 96, 96, 0, 0},
};

DSP_IMAGE side(const Pic &p, uint32_t type, uint32_t il, uint32_t colour, uint32_t h) {
  return p.image(4, 3, 40, h, type, il, colour);
}

using BandParam = std::tuple<int, int, uint32_t>;  // operation, geometry, threads
class OperationBands : public ::testing::TestWithParam<BandParam> {};

TEST_P(OperationBands, ThreadsGiveTheBytesOfOneCall) {
  const Operation &op = kOperations[std::get<0>(GetParam())];
  const Geometry &g = kGeometries[std::get<1>(GetParam())];
  const uint32_t threads = std::get<2>(GetParam());
  std::mt19937 rng(framedsp_test::test_seed() + uint32_t(std::get<1>(GetParam())) * 101 + threads);
  for (int iteration = 0; iteration < 4; ++iteration) {
    Pic in(g.format, 48, g.in_h + 8, g.in_up, 12), whole(g.format, 48, g.out_h + 8, g.out_up, 12);
    in.randomise(rng);
    whole.randomise(rng);
    const Pic untouched(whole), banded(whole);
    auto record = [&](const Pic &out, uint32_t count, uint32_t n) {
      DSP_BUFFER b = framedsp_test::buffer_of(side(in, g.in_type, g.in_il, g.in_colour, g.in_h),
                                              side(out, g.out_type, g.out_il, g.out_colour, g.out_h), g.flags);
      b.ulSliceCount = count;
      b.ulSliceNumber = n;
      return b;
    };
    ASSERT_EQ(op.call(record(whole, 0, 0)), DSP_S_OK);
    ASSERT_NE(whole.bytes(), untouched.bytes()) << "the whole call wrote nothing";
    if (iteration == 0 && threads == 3) {
      // One band at a time: only bytes of the whole call, none written by two bands, all of them.
      std::vector<uint32_t> owner(whole.size(), 0);
      for (uint32_t n = 1; n <= threads; ++n) {
        const Pic alone(untouched);
        ASSERT_EQ(op.call(record(alone, threads, n)), DSP_S_OK) << "band " << n;
        for (size_t i = 0; i < whole.size(); ++i) {
          if (alone.data()[i] == untouched.data()[i]) continue;
          ASSERT_EQ(owner[i], 0u) << "byte " << i << " written by bands " << owner[i] << " and " << n;
          ASSERT_EQ(alone.data()[i], whole.data()[i]) << "band " << n << " byte " << i;
          owner[i] = n;
        }
      }
      for (size_t i = 0; i < whole.size(); ++i) {
        if (whole.data()[i] != untouched.data()[i]) { ASSERT_NE(owner[i], 0u) << "byte " << i << " in no band"; }
      }
    }
    std::atomic<uint32_t> ready{0};
    std::vector<DSP_HRESULT> status(threads, DSP_E_UNEXPECTED);
    std::vector<std::thread> pool;
    for (uint32_t n = 1; n <= threads; ++n) {
      pool.emplace_back([&, n] {
        const DSP_BUFFER band = record(banded, threads, n);
        ready.fetch_add(1);
        while (ready.load() < threads) std::this_thread::yield();  // start together
        status[n - 1] = op.call(band);
      });
    }
    for (std::thread &t : pool) t.join();
    for (uint32_t n = 0; n < threads; ++n) EXPECT_EQ(status[n], DSP_S_OK) << "band " << n + 1;
    ASSERT_TRUE(framedsp_test::same_bytes(whole, banded)) << "iteration " << iteration;
  }
}

// Every banded operation with every geometry it takes: the scaler takes interlace 0 only with a
// field selection.
std::vector<BandParam> band_cases() {
  std::vector<BandParam> cases;
  for (int o = 0; o < kOps; ++o) {
    for (int gi = 0; gi < int(sizeof kGeometries / sizeof kGeometries[0]); ++gi) {
      const Geometry &g = kGeometries[gi];
      const bool selects = g.flags & (DSP_BUFFER_PROCESS_FIELDA | DSP_BUFFER_PROCESS_FIELDB);
      if (!kOperations[o].bands || o == kFirOffOp || (is_scaler(o) && !selects && (g.in_il == 0 || g.out_il == 0))) continue;
      for (uint32_t threads : {2u, 3u, 8u}) cases.emplace_back(o, gi, threads);
    }
  }
  return cases;
}

INSTANTIATE_TEST_SUITE_P(All, OperationBands, ::testing::ValuesIn(band_cases()), [](const auto &info) {
  return std::string(kOperations[std::get<0>(info.param)].name) + "_" + kGeometries[std::get<1>(info.param)].name +
         "_t" + std::to_string(std::get<2>(info.param));
});

// ---- work memory -------------------------------------------------------------------------------

uint64_t outstanding() {
  const framedsp::WorkMemoryStats s = framedsp::work_memory_stats();
  return s.allocations - s.releases;
}
uint64_t allocations() { return framedsp::work_memory_stats().allocations; }

struct MemoryCase {
  const char *name;
  int op;
  uint32_t format, in_colour, out_colour, out_type;
  uint64_t blocks;         // the blocks one call takes, counted from its passes
  DSP_HRESULT failure;     // the status of an injected failure
};

// A FIR plane with both directions on takes two work lines, a box plane its column sums (and an
// output line when it cannot write the destination line directly), the temporary frame one block
// more, the converting copy one work line (E_FAIL when refused: a failed pass; the key plane is
// never converted), a scale one block carved into its lines, tables and plan (scaling widths only
// too), staged scaling its private image first, filtered scaling its private image, the scale's block
// and two filter lines.
const MemoryCase kMemoryCases[] = {
    {"copy_uyvy_601_to_709", kCopy, 21, 2, 1, 2, 1, DSP_E_FAIL},
    {"copy_yuyv_key_709_to_601", kCopy, 30, 1, 2, 2, 1, DSP_E_FAIL},
    {"copy_plain_takes_nothing", kCopy, 0, 0, 0, 2, 0, DSP_S_OK},
    {"fir_off_is_a_converting_copy", kFirOffOp, 25, 2, 1, 2, 1, DSP_E_FAIL},
    {"fir_bgra", kFirOp, 0, 0, 0, 2, 2, DSP_E_OUTOFMEMORY},
    {"fir_uyvy_key", kFirOp, 28, 0, 0, 2, 4, DSP_E_OUTOFMEMORY},
    {"fir_temp_bgra", kFirTemp, 0, 0, 0, 2, 3, DSP_E_OUTOFMEMORY},
    {"fir_temp_uyvy_to_field", kFirTemp, 21, 0, 0, 1, 3, DSP_E_OUTOFMEMORY},
    {"box_bgr", kBoxOp, 1, 0, 0, 2, 1, DSP_E_OUTOFMEMORY},
    {"box_temp_key", kBoxTemp, 261, 0, 0, 2, 2, DSP_E_OUTOFMEMORY},
    {"subpixel_fir_temp_uyvy", kSubFir, 21, 0, 0, 2, 3, DSP_E_OUTOFMEMORY},
    {"subpixel_box_bgra", kSubBox, 0, 0, 0, 2, 1, DSP_E_OUTOFMEMORY},
    {"scale_linear_bgra", kScaleLinear, 0, 0, 0, 2, 1, DSP_E_OUTOFMEMORY},
    {"scale_linear_uyvy_601_to_709", kScaleLinear, 21, 2, 1, 2, 1, DSP_E_OUTOFMEMORY},
    // (Nearest on 4:2:2 reads a position plan at every instruction-set level.)
    {"scale_staged_nearest_uyvy", kScaleStaged, 21, 0, 0, 2, 2, DSP_E_OUTOFMEMORY},
    {"scale_linear_uyvy_key", kScaleLinear, 28, 0, 0, 2, 2, DSP_E_OUTOFMEMORY},
    {"scale_filtered_uyvy", kScaleFiltered, 21, 0, 0, 2, 4, DSP_E_OUTOFMEMORY},
    {"scale_filtered_staged_uyvy", kScaleFilteredStaged, 21, 0, 0, 2, 5, DSP_E_OUTOFMEMORY},
    {"scale_widths_only_uyvy", kScaleWidths, 21, 0, 0, 2, 1, DSP_E_OUTOFMEMORY},
    // (The panorama: its column table, its row table and the engine's plan; staged adds a picture.)
    {"panorama_uyvy", kPanorama, 21, 0, 0, 2, 3, DSP_E_OUTOFMEMORY},
    {"panorama_inverse_staged_bgra_to_field", kPanoramaInverse, 0, 0, 0, 1, 4, DSP_E_OUTOFMEMORY},
};

class OperationWorkMemory : public ::testing::TestWithParam<MemoryCase> {
 protected:
  void TearDown() override {
    framedsp::work_memory_fail_at(0);
    framedsp::set_worker_hook(nullptr);
  }
};

// A 32 x 20 region of 40 x 24 pictures (a field output: 10 lines).
struct Pair {
  Pic in, out;
  DSP_BUFFER buffer;
  explicit Pair(const MemoryCase &c) : in(c.format, 40, 24), out(c.format, 40, 24) {
    std::mt19937 rng(framedsp_test::test_seed());
    in.randomise(rng);
    out.randomise(rng);
    buffer = framedsp_test::buffer_of(in.image(2, 2, 32, 20, 2, 2, c.in_colour),
                                      out.image(2, 2, 32, c.out_type == 2 ? 20 : 10, c.out_type, 2, c.out_colour));
  }
};

TEST_P(OperationWorkMemory, EveryAllocationFailureReleasesEverything) {
  const MemoryCase &c = GetParam();
  const Operation &op = kOperations[c.op];
  Pair im(c);
  const Pic before(im.out);
  const uint64_t base = outstanding(), at = allocations();
  ASSERT_EQ(op.call(im.buffer), DSP_S_OK);
  EXPECT_EQ(allocations() - at, c.blocks);
  EXPECT_EQ(outstanding(), base) << "success path";
  for (uint64_t k = 1; k <= c.blocks + 1; ++k) {
    const Pic fresh(before);
    DSP_BUFFER b = im.buffer;
    b.Out.Buffer.pBuffer = fresh.data();
    framedsp::work_memory_fail_at(k);
    const uint64_t from = allocations();
    EXPECT_EQ(op.call(b), k > c.blocks ? DSP_S_OK : c.failure) << "failure at allocation " << k;
    framedsp::work_memory_fail_at(0);
    EXPECT_EQ(allocations() - from, k > c.blocks ? c.blocks : k - 1) << "allocations up to the failing one, k = " << k;
    EXPECT_EQ(outstanding(), base) << "blocks left after failure " << k;
    if (k == 1 && c.blocks) { EXPECT_TRUE(framedsp_test::same_bytes(before, fresh)) << "written although the first block failed"; }
  }
  framedsp::set_worker_hook([](const char *) { throw std::runtime_error("injected"); });
  EXPECT_EQ(op.call(im.buffer), DSP_E_UNEXPECTED);
  framedsp::set_worker_hook(nullptr);
  EXPECT_EQ(outstanding(), base) << "after an exception";
}

// Refused records and settings errors take no work memory and write nothing.
TEST_P(OperationWorkMemory, RefusalsTakeNothing) {
  const MemoryCase &c = GetParam();
  Pair im(c);
  const Pic before(im.out);
  const uint64_t at = allocations();
  DSP_BUFFER refused = im.buffer;
  refused.Out.ePixelFormat = c.format == 0 ? 1 : 0;  // output format differs
  // The scaler has no quiet refusal: the record error is its status (its other refusals take no
  // work memory either: test_scaler.cpp).
  EXPECT_EQ(kOperations[c.op].call(refused), is_scaler(c.op) ? DSP_E_INVALIDARG : DSP_S_OK);
  if (!is_scaler(c.op) && c.op != kCopy) {
    const DSP_FIR_SETTINGS bad_taps{17, 50, 0, 5, 50};
    const DSP_BOX_SETTINGS bad_box{257, 0, 3};
    EXPECT_EQ(filter(im.buffer, kFirT, &bad_taps, 0), DSP_E_INVALIDARG);
    EXPECT_EQ(filter(im.buffer, kBoxT, &bad_box, 0), DSP_E_INVALIDARG);
    EXPECT_EQ(filter(im.buffer, kBoxT, nullptr, 0), DSP_E_INVALIDARG);
    EXPECT_EQ(subpixel(im.buffer, kFirT, &bad_taps, kTemp), DSP_E_INVALIDARG);
    EXPECT_EQ(filter(im.buffer, 3, &kBox, 0), DSP_E_INVALIDARG);
  }
  EXPECT_TRUE(framedsp_test::same_bytes(before, im.out));
  EXPECT_EQ(allocations(), at);
}

INSTANTIATE_TEST_SUITE_P(All, OperationWorkMemory, ::testing::ValuesIn(kMemoryCases), [](const auto &info) { return std::string(info.param.name); });

// ---- a region far past the end of its line ---------------------------------------------------

// ptOffset.x around 1.3e9 on a line of 58 pixels: the region has no columns, but its start in
// bytes overflowed a 32-bit int before the columns were clipped.  Whatever the status, nothing
// outside the output region changes (with the offset on the output: nothing at all).
using FarParam = std::tuple<int, uint32_t, bool>;  // operation, format, far side is the input
class RegionPastLineEnd : public ::testing::TestWithParam<FarParam> {};

TEST_P(RegionPastLineEnd, TouchesNothingOutside) {
  const Operation &op = kOperations[std::get<0>(GetParam())];
  const uint32_t format = std::get<1>(GetParam());
  const bool far_input = std::get<2>(GetParam());
  std::mt19937 rng(framedsp_test::test_seed());
  Pic in(format, 58, 58, false, 2), out(format, 58, 58, false, 2);
  in.randomise(rng);
  out.randomise(rng);
  const Pic in_before(in), out_before(out);
  DSP_BUFFER b = framedsp_test::buffer_of(in.image(), out.image());
  (far_input ? b.In : b.Out).Buffer.Region.ptOffset.x = 1309845504;
  const DSP_HRESULT status = op.call(b);
  EXPECT_TRUE(status == DSP_S_OK || status == DSP_E_INVALIDARG || status == DSP_E_FAIL) << std::hex << status;
  EXPECT_TRUE(framedsp_test::same_bytes(in_before, in));
  ASSERT_TRUE(out.mem->intact()) << out.mem->damage();
  const size_t region = far_input ? 58 * framedsp_test::main_bytes(format) : 0;
  for (size_t i = 0; i < out.size(); ++i) {
    if (i % out.stride >= region) { ASSERT_EQ(out.data()[i], out_before.data()[i]) << "byte " << i << " outside the region"; }
  }
}

INSTANTIATE_TEST_SUITE_P(All, RegionPastLineEnd,
                         ::testing::Combine(::testing::Values(kCopy, kFirOp, kFirTemp, kBoxOp, kSubFir, kScaleLinear),
                                            ::testing::Values(24u, 21u, 0u), ::testing::Bool()),
                         [](const auto &info) {
                           return std::string(kOperations[std::get<0>(info.param)].name) + "_format" +
                                  std::to_string(std::get<1>(info.param)) + (std::get<2>(info.param) ? "_input" : "_output");
                         });

}  // namespace
