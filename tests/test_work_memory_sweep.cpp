// Work memory on every path of the exports that allocate (copy, filter, scaler): the counting hook
// shows every block released after success, after refusals and settings errors, after an
// exception from the worker, and after an injected failure of the k-th allocation for every k up
// to the number of allocations the call makes, with the status the operation defines for it.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/trace.h"
#include "platform/work_memory.h"
#include "framedsp/framedsp.h"
#include "test_util.h"

namespace {

uint64_t outstanding() {
  const framedsp::WorkMemoryStats s = framedsp::work_memory_stats();
  return s.allocations - s.releases;
}
uint64_t allocations() { return framedsp::work_memory_stats().allocations; }

struct Images {
  std::vector<uint8_t> in, out;
  DSP_BUFFER buffer{};
};

// A 32 x 20 region of a 40 x 24 image in `format` (bytes per pixel `bpp`, plane bytes `plane`).
Images make(uint32_t format, uint32_t bpp, uint32_t plane, uint32_t in_colour, uint32_t out_colour,
            uint32_t out_type = DSP_BUFFER_TYPE_FRAME) {
  Images im;
  std::mt19937 rng(framedsp_test::test_seed());
  for (DSP_IMAGE *d : {&im.buffer.In, &im.buffer.Out}) {
    d->ePixelFormat = format;
    d->Buffer.eBufferType = DSP_BUFFER_TYPE_FRAME;
    d->eInterlace = DSP_INTERLACE_PROGRESSIVE;
    d->ulWidth = 40;
    d->ulHeight = 24;
    d->ulPrimaryStrideBytes = 40 * bpp + 8;
    d->ulSecondaryStrideBytes = plane ? 40 * plane + 4 : 0;
    d->Buffer.Region = DSP_REGION{{2, 2}, 32, 20};
  }
  im.buffer.In.eColorSpace = in_colour;
  im.buffer.Out.eColorSpace = out_colour;
  if (out_type != DSP_BUFFER_TYPE_FRAME) {
    im.buffer.Out.Buffer.eBufferType = out_type;
    im.buffer.Out.Buffer.Region.ulHeight = 10;
  }
  const size_t bytes = 24 * (size_t{im.buffer.In.ulPrimaryStrideBytes} + im.buffer.In.ulSecondaryStrideBytes);
  im.in.resize(bytes);
  im.out.resize(bytes);
  framedsp_test::fill_random(im.in.data(), bytes, rng);
  im.buffer.In.Buffer.pBuffer = im.in.data();
  im.buffer.Out.Buffer.pBuffer = im.out.data();
  im.buffer.In.Buffer.ulBytes = im.buffer.Out.Buffer.ulBytes = static_cast<uint32_t>(bytes);
  return im;
}

struct Case {
  const char *name;
  uint32_t format, bpp, plane, in_colour, out_colour, out_type;
  int op;  // 0 copy, 1 FIR, 2 FIR into a temporary frame, 3 box, 4 box temporary, 5 FIR off (copy),
          // 6 linear scale, 7 staged nearest scale
  uint64_t expected_allocations;  // the blocks one call takes, counted by hand
  DSP_HRESULT failure;            // the status of an injected failure (all k)
};

const DSP_FIR_SETTINGS kFir{5, 50, 0, 7, 30};
const DSP_FIR_SETTINGS kFirOff{5, 100, 0, 7, 100};
const DSP_BOX_SETTINGS kBox{4, 0, 3};

bool is_scale(const Case &c) { return c.op == 6 || c.op == 7; }

// The scaler reads a 24 x 16 input region into the 32 x 20 output region: both axes scaled up.
DSP_HRESULT run_scaler(const Case &c, const DSP_BUFFER &buffer) {
  DSP_SCALER_PARAMS p{};
  p.eScalerPath = DSP_SCALER_PATH_GENERAL;
  p.eFilter = c.op == 6 ? DSP_SCALER_FILTER_LINEAR : DSP_SCALER_FILTER_NEAREST;
  p.Buffer = buffer;
  p.Buffer.In.Buffer.Region.ulWidth = 24;
  p.Buffer.In.Buffer.Region.ulHeight = 16;
  p.ulOptions = c.op == 7 ? DSP_SCALER_OPTION_STAGED : 0;
  return DspScaler(&p);
}

DSP_HRESULT run(const Case &c, const DSP_BUFFER &buffer) {
  if (c.op == 0) return DspBufferSmartCopy(&buffer);
  if (is_scale(c)) return run_scaler(c, buffer);
  DSP_FILTER_PARAMS p{};
  p.Buffer = buffer;
  const bool box = c.op == 3 || c.op == 4;
  p.eFilterType = box ? DSP_FILTER_TYPE_BOX : DSP_FILTER_TYPE_FIR;
  p.pSettings = box ? static_cast<const void *>(&kBox)
                    : static_cast<const void *>(c.op == 5 ? &kFirOff : &kFir);
  p.ulOptions = (c.op == 2 || c.op == 4) ? DSP_FILTER_OPTION_TEMP_FRAME : 0;
  return DspFilter(&p);
}

class WorkMemorySweep : public ::testing::TestWithParam<Case> {
 protected:
  void TearDown() override {
    framedsp::work_memory_fail_at(0);
    framedsp::set_worker_hook(nullptr);
  }
};

TEST_P(WorkMemorySweep, EveryAllocationFailureReleasesEverything) {
  const Case &c = GetParam();
  Images im = make(c.format, c.bpp, c.plane, c.in_colour, c.out_colour, c.out_type);
  const uint64_t base = outstanding();
  const uint64_t before = allocations();
  ASSERT_EQ(run(c, im.buffer), DSP_S_OK);
  const uint64_t made = allocations() - before;
  EXPECT_EQ(outstanding(), base) << "success path";
  EXPECT_EQ(made, c.expected_allocations);

  for (uint64_t k = 1; k <= made; ++k) {
    framedsp::work_memory_fail_at(k);
    const uint64_t at = allocations();
    EXPECT_EQ(run(c, im.buffer), c.failure) << "failure at allocation " << k;
    EXPECT_EQ(allocations() - at, k - 1) << "allocations before the failing one, k = " << k;
    EXPECT_EQ(outstanding(), base) << "blocks left after failure " << k;
  }
  // One past the last allocation: the injection is never reached and the call succeeds.
  framedsp::work_memory_fail_at(made + 1);
  EXPECT_EQ(run(c, im.buffer), DSP_S_OK);
  framedsp::work_memory_fail_at(0);
  EXPECT_EQ(outstanding(), base);
}

TEST_P(WorkMemorySweep, ExceptionFromTheWorkerReleasesEverything) {
  const Case &c = GetParam();
  Images im = make(c.format, c.bpp, c.plane, c.in_colour, c.out_colour, c.out_type);
  const uint64_t base = outstanding();
  framedsp::set_worker_hook([](const char *) { throw std::runtime_error("injected"); });
  EXPECT_EQ(run(c, im.buffer), DSP_E_UNEXPECTED);
  framedsp::set_worker_hook(nullptr);
  EXPECT_EQ(outstanding(), base);
}

// Refused records and settings errors take no work memory at all.
TEST_P(WorkMemorySweep, RefusalsAndSettingsErrorsTakeNothing) {
  const Case &c = GetParam();
  Images im = make(c.format, c.bpp, c.plane, c.in_colour, c.out_colour, c.out_type);
  const uint64_t before = allocations();
  DSP_BUFFER refused = im.buffer;
  refused.Out.ePixelFormat = c.format == 0 ? 1 : 0;  // output format differs: refused
  const std::vector<uint8_t> out_before = im.out;
  // The scaler has no quiet refusal: the record error is its status.
  EXPECT_EQ(run(c, refused), is_scale(c) ? DSP_E_INVALIDARG : DSP_S_OK);
  EXPECT_EQ(im.out, out_before);
  if (is_scale(c)) {
    DSP_SCALER_PARAMS p{};
    p.Buffer = im.buffer;
    p.eFilter = 3;  // not a filter
    EXPECT_EQ(DspScaler(&p), DSP_E_INVALIDARG);
    p.eFilter = DSP_SCALER_FILTER_LINEAR;
    p.Buffer.In.Buffer.Region.ulWidth = 40;  // past the input image
    EXPECT_EQ(DspScaler(&p), DSP_E_INVALIDARG);
    p.Buffer.In.Buffer.Region.ulWidth = 24;
    p.Buffer.Out.Buffer.Region.ulHeight = 23;  // past the room below the output origin
    EXPECT_EQ(DspScaler(&p), DSP_E_INVALIDARG);
    EXPECT_EQ(im.out, out_before);
  } else if (c.op != 0) {
    DSP_FILTER_PARAMS p{};
    p.Buffer = im.buffer;
    const DSP_FIR_SETTINGS bad_taps{17, 50, 0, 5, 50};
    p.eFilterType = DSP_FILTER_TYPE_FIR;
    p.pSettings = &bad_taps;
    EXPECT_EQ(DspFilter(&p), DSP_E_INVALIDARG);
    const DSP_BOX_SETTINGS bad_box{257, 0, 3};
    p.eFilterType = DSP_FILTER_TYPE_BOX;
    p.pSettings = &bad_box;
    EXPECT_EQ(DspFilter(&p), DSP_E_INVALIDARG);
    p.pSettings = nullptr;
    EXPECT_EQ(DspFilter(&p), DSP_E_INVALIDARG);
    p.eFilterType = 3;
    p.pSettings = &kBox;
    EXPECT_EQ(DspFilter(&p), DSP_E_INVALIDARG);
    EXPECT_EQ(im.out, out_before);
  }
  EXPECT_EQ(allocations(), before);
}

void PrintTo(const Case &c, std::ostream *os) { *os << c.name; }

// Blocks per call, counted from the passes: a FIR plane with both directions on takes two work
// lines, a box plane its column sums (and one output line when it cannot write the destination
// line directly), the temporary frame one block more,
// and the converting copy one work line (the plane of a two-plane format is never converted).
const Case kCases[] = {
    // The converting copy takes one work line; its failure is a failed pass (E_FAIL).
    {"copy_uyvy_601_to_709", 21, 2, 0, 2, 1, DSP_BUFFER_TYPE_FRAME, 0, 1, DSP_E_FAIL},
    // Two-plane: the picture converts (one line), the key plane is moved as it is.
    {"copy_yuyv_key_709_to_601", 30, 2, 1, 1, 2, DSP_BUFFER_TYPE_FRAME, 0, 1, DSP_E_FAIL},
    {"copy_plain_takes_nothing", 0, 4, 0, 0, 0, DSP_BUFFER_TYPE_FRAME, 0, 0, DSP_S_OK},
    // A filter with both directions off is the copy, converting colours: E_FAIL as well.
    {"fir_off_is_a_converting_copy", 25, 2, 0, 2, 1, DSP_BUFFER_TYPE_FRAME, 5, 1, DSP_E_FAIL},
    {"fir_bgra", 0, 4, 0, 0, 0, DSP_BUFFER_TYPE_FRAME, 1, 2, DSP_E_OUTOFMEMORY},
    {"fir_uyvy_key", 28, 2, 1, 0, 0, DSP_BUFFER_TYPE_FRAME, 1, 4, DSP_E_OUTOFMEMORY},
    {"fir_temp_bgra", 0, 4, 0, 0, 0, DSP_BUFFER_TYPE_FRAME, 2, 3, DSP_E_OUTOFMEMORY},
    {"fir_temp_uyvy_to_field", 21, 2, 0, 0, 0, DSP_BUFFER_TYPE_FIELD_B, 2, 3, DSP_E_OUTOFMEMORY},
    // The box writes its horizontal pass straight into the destination line when the output
    // region takes the whole filtered line (as here): column sums only.
    {"box_bgr", 1, 3, 0, 0, 0, DSP_BUFFER_TYPE_FRAME, 3, 1, DSP_E_OUTOFMEMORY},
    {"box_temp_key", 261, 1, 0, 0, 0, DSP_BUFFER_TYPE_FRAME, 4, 2, DSP_E_OUTOFMEMORY},
    // A scale takes one block for the whole call, carved into the resampled lines, the tables
    // and the horizontal position plan.
    {"scale_linear_bgra", 0, 4, 0, 0, 0, DSP_BUFFER_TYPE_FRAME, 6, 1, DSP_E_OUTOFMEMORY},
    {"scale_linear_uyvy_601_to_709", 21, 2, 0, 2, 1, DSP_BUFFER_TYPE_FRAME, 6, 1, DSP_E_OUTOFMEMORY},
    // Staged: the private image first, then the kernel's block (the plan alone for nearest).
    // (Nearest on 4:2:2 reads a position plan at every instruction-set level; nearest on 4-byte
    // pixels takes no work memory where AVX2 resamples straight from the step.)
    {"scale_staged_nearest_uyvy", 21, 2, 0, 0, 0, DSP_BUFFER_TYPE_FRAME, 7, 2, DSP_E_OUTOFMEMORY},
    // Two planes, one kernel call each: the 4:2:2 picture, then the key plane.
    {"scale_linear_uyvy_key", 28, 2, 1, 0, 0, DSP_BUFFER_TYPE_FRAME, 6, 2, DSP_E_OUTOFMEMORY},
};

INSTANTIATE_TEST_SUITE_P(All, WorkMemorySweep, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<Case> &info) {
                           return std::string(info.param.name);
                         });

}  // namespace
