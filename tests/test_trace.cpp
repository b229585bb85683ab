// Rejection diagnostics: every refusal of the copy, the filter and the comparison prints its one
// line when tracing is on, the status is the same with tracing on and off, and nothing is printed
// with tracing off or for an accepted record.  (The converter's are in test_converter.cpp.)
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "frame/trace.h"
#include "framedsp/framedsp.h"
#include "test_util.h"

namespace {

using framedsp::set_trace_override;

// A small UYVY frame pair the copy and the filter accept: 8x4, progressive, separate memory.
struct Images {
  std::vector<uint8_t> in = std::vector<uint8_t>(16 * 4, 0x40);
  std::vector<uint8_t> out = std::vector<uint8_t>(16 * 4 + 32, 0x5A);
  DSP_BUFFER buffer{};

  Images() {
    DSP_IMAGE &i = buffer.In;
    i.Buffer.pBuffer = in.data();
    i.Buffer.ulBytes = static_cast<uint32_t>(in.size());
    i.Buffer.eBufferType = DSP_BUFFER_TYPE_FRAME;
    i.Buffer.Region.ulWidth = 8;
    i.Buffer.Region.ulHeight = 4;
    i.ulWidth = 8;
    i.ulHeight = 4;
    i.ePixelFormat = DSP_PIXEL_FORMAT_UYVY;
    i.eInterlace = DSP_INTERLACE_PROGRESSIVE;
    i.ulPrimaryStrideBytes = 16;
    buffer.Out = i;
    buffer.Out.Buffer.pBuffer = out.data();
  }
  // The output memory is untouched (0x5A everywhere) after a refusal.
  bool out_untouched() const {
    for (uint8_t b : out) {
      if (b != 0x5A) return false;
    }
    return true;
  }
};

struct TraceCase {
  const char *name;
  // Makes the call on fresh records and returns its status; sets *untouched when it can tell that
  // the caller's output memory was left alone.
  std::function<DSP_HRESULT(bool *untouched)> call;
  DSP_HRESULT status;
  std::string line;  // expected stderr, "" when nothing is to be printed
};

std::ostream &operator<<(std::ostream &os, const TraceCase &c) { return os << c.name; }

using Edit = std::function<void(DSP_BUFFER &)>;

std::function<DSP_HRESULT(bool *)> copy_with(Edit edit) {
  return [edit](bool *untouched) {
    Images images;
    edit(images.buffer);
    const DSP_HRESULT hr = DspBufferSmartCopy(&images.buffer);
    *untouched = images.out_untouched();
    return hr;
  };
}

std::function<DSP_HRESULT(bool *)> box_filter_with(Edit edit, uint32_t horz = 3, uint32_t vert = 3) {
  return [edit, horz, vert](bool *untouched) {
    Images images;
    edit(images.buffer);
    DSP_BOX_SETTINGS box{};
    box.ulHorzSize = horz;
    box.ulVertSize = vert;
    DSP_FILTER_PARAMS p{};
    p.eFilterType = DSP_FILTER_TYPE_BOX;
    p.pSettings = &box;
    p.Buffer = images.buffer;
    const DSP_HRESULT hr = DspFilter(&p);
    *untouched = images.out_untouched();
    return hr;
  };
}

std::function<DSP_HRESULT(bool *)> fir_filter_with(DSP_FIR_SETTINGS fir, uint32_t type = DSP_FILTER_TYPE_FIR,
                                                   bool null_settings = false) {
  return [fir, type, null_settings](bool *untouched) {
    Images images;
    DSP_FILTER_PARAMS p{};
    p.eFilterType = type;
    p.pSettings = null_settings ? nullptr : &fir;
    p.Buffer = images.buffer;
    const DSP_HRESULT hr = DspFilter(&p);
    *untouched = images.out_untouched();
    return hr;
  };
}

// The fractional filter on the same images, its regions the whole-pixel ones as doubles.
std::function<DSP_HRESULT(bool *)> subpixel_filter_with(uint32_t type, const void *settings) {
  return [type, settings](bool *untouched) {
    Images images;
    DSP_SUBPIXEL_FILTER_PARAMS p{};
    p.eFilterType = type;
    p.pSettings = settings;
    p.Buffer.In = framedsp_test::fractional(images.buffer.In);
    p.Buffer.Out = framedsp_test::fractional(images.buffer.Out);
    const DSP_HRESULT hr = DspSubPixelFilter(&p);
    *untouched = images.out_untouched();
    return hr;
  };
}

DSP_FIR_SETTINGS fir(uint32_t ht, uint32_t hc, uint32_t vt, uint32_t vc) {
  DSP_FIR_SETTINGS s{};
  s.ulHorzTaps = ht;
  s.ulHorzCutoff = hc;
  s.ulVertTaps = vt;
  s.ulVertCutoff = vc;
  return s;
}

std::function<DSP_HRESULT(bool *)> compare_format(uint32_t format) {
  return [format](bool *untouched) {
    std::vector<uint8_t> a(64, 1), b(64, 2), out(64, 0x5A);
    DSP_COMPARE_PARAMS p{};
    p.BufferA.pBuffer = a.data();
    p.BufferB.pBuffer = b.data();
    p.BufferOut.pBuffer = out.data();
    p.ulWidth = 8;
    p.ulHeight = 4;
    p.ulPrimaryStrideBytes = 16;
    p.ePixelFormat = format;
    const DSP_HRESULT hr = DspCompare(&p);
    *untouched = true;
    for (uint8_t v : out) *untouched = *untouched && v == 0x5A;
    return hr;
  };
}

// Runs a case with tracing forced on or off and returns what it wrote to stderr.
std::string run(const TraceCase &c, int mode, DSP_HRESULT *status, bool *untouched) {
  set_trace_override(mode);
  ::testing::internal::CaptureStderr();
  *status = c.call(untouched);
  std::string text = ::testing::internal::GetCapturedStderr();
  set_trace_override(-1);
  return text;
}

class TraceTest : public ::testing::TestWithParam<TraceCase> {};

TEST_P(TraceTest, OneLineWithTracingOn) {
  const TraceCase &c = GetParam();
  DSP_HRESULT hr = 0;
  bool untouched = false;
  const std::string text = run(c, 1, &hr, &untouched);
  EXPECT_EQ(hr, c.status);
  EXPECT_EQ(text, c.line.empty() ? std::string() : c.line + "\n");
  if (!c.line.empty()) {
    EXPECT_TRUE(untouched) << "a refused call wrote to the caller's output";
  }
}

TEST_P(TraceTest, NothingWithTracingOff) {
  const TraceCase &c = GetParam();
  DSP_HRESULT hr = 0;
  bool untouched = false;
  const std::string text = run(c, 0, &hr, &untouched);
  EXPECT_EQ(hr, c.status);
  EXPECT_EQ(text, "");
}

const std::string kCopy = "DspBufferSmartCopy: refused: ";
const std::string kFilter = "DspFilter: refused: ";
const std::string kWide = " (4:2:2 formats need even widths)";

void formats(DSP_BUFFER &b, uint32_t in, uint32_t out) {
  b.In.ePixelFormat = in;
  b.Out.ePixelFormat = out;
}

INSTANTIATE_TEST_SUITE_P(
    SmartCopy, TraceTest,
    ::testing::Values(
        TraceCase{"accepted", copy_with([](DSP_BUFFER &) {}), DSP_S_OK, ""},
        TraceCase{"odd_width_full_chroma_accepted",
                  copy_with([](DSP_BUFFER &b) {
                    formats(b, DSP_PIXEL_FORMAT_BGR24, DSP_PIXEL_FORMAT_BGR24);
                    b.In.ulWidth = b.In.Buffer.Region.ulWidth = 5;
                  }),
                  DSP_S_OK, ""},
        TraceCase{"input_format", copy_with([](DSP_BUFFER &b) { formats(b, 27, 27); }), DSP_S_OK,
                  kCopy + "input format 27 is not one this operation takes (0, 1, 5, 21..25, 28, 30, "
                          "31, 129, 261, 262)"},
        TraceCase{"unknown_format", copy_with([](DSP_BUFFER &b) { formats(b, 4000000000u, 4000000000u); }),
                  DSP_S_OK,
                  kCopy + "input format 4000000000 is not one this operation takes (0, 1, 5, 21..25, "
                          "28, 30, 31, 129, 261, 262)"},
        TraceCase{"output_format", copy_with([](DSP_BUFFER &b) { formats(b, 21, 25); }), DSP_S_OK,
                  kCopy + "output format 25 differs from input format 21 (no format conversion)"},
        TraceCase{"interleaved_into_progressive",
                  copy_with([](DSP_BUFFER &b) { b.In.eInterlace = DSP_INTERLACE_INTERLEAVED; }), DSP_S_OK,
                  kCopy + "input frame has interleaved fields (interlace 0) and the output frame is "
                          "progressive (interlace 2); that pair is not taken"},
        TraceCase{"input_width", copy_with([](DSP_BUFFER &b) { b.In.ulWidth = 7; }), DSP_S_OK,
                  kCopy + "input width 7 is odd for format 21" + kWide},
        TraceCase{"input_region_width", copy_with([](DSP_BUFFER &b) { b.In.Buffer.Region.ulWidth = 3; }),
                  DSP_S_OK, kCopy + "input region width 3 is odd for format 21" + kWide},
        TraceCase{"output_width", copy_with([](DSP_BUFFER &b) { b.Out.ulWidth = 9; }), DSP_S_OK,
                  kCopy + "output width 9 is odd for format 21" + kWide},
        TraceCase{"output_region_width", copy_with([](DSP_BUFFER &b) { b.Out.Buffer.Region.ulWidth = 1; }),
                  DSP_S_OK, kCopy + "output region width 1 is odd for format 21" + kWide},
        TraceCase{"first_odd_width_named",
                  copy_with([](DSP_BUFFER &b) {
                    b.In.Buffer.Region.ulWidth = 5;
                    b.Out.ulWidth = 7;
                  }),
                  DSP_S_OK, kCopy + "input region width 5 is odd for format 21" + kWide},
        TraceCase{"key_format_odd_width",
                  copy_with([](DSP_BUFFER &b) {
                    formats(b, DSP_PIXEL_FORMAT_KEY8, DSP_PIXEL_FORMAT_KEY8);
                    b.Out.ulWidth = 15;
                  }),
                  DSP_S_OK,
                  kCopy + "output width 15 is odd for format 261 (only formats 0, 1, 5 and 27 take odd "
                          "widths)"}),
    [](const auto &info) { return std::string(info.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Filter, TraceTest,
    ::testing::Values(
        TraceCase{"accepted", box_filter_with([](DSP_BUFFER &) {}), DSP_S_OK, ""},
        TraceCase{"input_format", box_filter_with([](DSP_BUFFER &b) { formats(b, 263, 263); }), DSP_S_OK,
                  kFilter + "input format 263 is not one this operation takes (0, 1, 5, 21..25, 28, "
                            "30, 31, 129, 261, 262)"},
        TraceCase{"output_format", box_filter_with([](DSP_BUFFER &b) { formats(b, 0, 1); }), DSP_S_OK,
                  kFilter + "output format 1 differs from input format 0 (no format conversion)"},
        TraceCase{"interleaved_into_progressive",
                  box_filter_with([](DSP_BUFFER &b) { b.In.eInterlace = DSP_INTERLACE_INTERLEAVED; }),
                  DSP_S_OK,
                  kFilter + "input frame has interleaved fields (interlace 0) and the output frame is "
                            "progressive (interlace 2); that pair is not taken"},
        TraceCase{"region_widths", box_filter_with([](DSP_BUFFER &b) { b.Out.Buffer.Region.ulWidth = 6; }),
                  DSP_S_OK,
                  kFilter + "input region width 8 differs from output region width 6 (the filter does "
                            "not scale)"},
        TraceCase{"region_heights", box_filter_with([](DSP_BUFFER &b) { b.Out.Buffer.Region.ulHeight = 3; }),
                  DSP_S_OK,
                  kFilter + "input region height 4 does not match output region height 3 (they must be "
                            "equal)"},
        TraceCase{"frame_into_field",
                  box_filter_with([](DSP_BUFFER &b) { b.Out.Buffer.eBufferType = DSP_BUFFER_TYPE_FIELD_A; }),
                  DSP_S_OK,
                  kFilter + "input region height 4 does not match output region height 4 (a frame into "
                            "a field needs twice the field's lines)"},
        TraceCase{"field_into_frame",
                  box_filter_with([](DSP_BUFFER &b) {
                    b.In.Buffer.eBufferType = DSP_BUFFER_TYPE_FIELD_B;
                    b.In.Buffer.Region.ulHeight = 3;
                  }),
                  DSP_S_OK,
                  kFilter + "input region height 3 does not match output region height 4 (a field into "
                            "a frame needs half the frame's lines)"},
        TraceCase{"odd_width", box_filter_with([](DSP_BUFFER &b) { b.In.ulWidth = 721; }), DSP_S_OK,
                  kFilter + "input width 721 is odd for format 21" + kWide},
        TraceCase{"odd_output_region_width",
                  box_filter_with([](DSP_BUFFER &b) {
                    b.In.Buffer.Region.ulWidth = 7;
                    b.Out.Buffer.Region.ulWidth = 7;
                  }),
                  DSP_S_OK, kFilter + "input region width 7 is odd for format 21" + kWide},
        TraceCase{"filter_type", fir_filter_with(fir(3, 50, 3, 50), 3), DSP_E_INVALIDARG,
                  kFilter + "filter type 3 is neither 1 (FIR) nor 2 (box)"},
        TraceCase{"fir_without_settings", fir_filter_with(fir(3, 50, 3, 50), DSP_FILTER_TYPE_FIR, true),
                  DSP_E_INVALIDARG, kFilter + "FIR filter without settings (pSettings is null)"},
        TraceCase{"box_without_settings", fir_filter_with(fir(3, 50, 3, 50), DSP_FILTER_TYPE_BOX, true),
                  DSP_E_INVALIDARG, kFilter + "box filter without settings (pSettings is null)"},
        TraceCase{"fir_horizontal_cutoff", fir_filter_with(fir(3, 101, 3, 50)), DSP_E_INVALIDARG,
                  kFilter + "FIR horizontal cut-off 101 is above 100 (100 turns the direction off)"},
        TraceCase{"fir_vertical_cutoff", fir_filter_with(fir(3, 50, 3, 4000000000u)), DSP_E_INVALIDARG,
                  kFilter + "FIR vertical cut-off 4000000000 is above 100 (100 turns the direction off)"},
        TraceCase{"fir_horizontal_taps", fir_filter_with(fir(2, 50, 3, 50)), DSP_E_INVALIDARG,
                  kFilter + "FIR horizontal taps 2 are outside 3..15"},
        TraceCase{"fir_vertical_taps", fir_filter_with(fir(3, 100, 16, 50)), DSP_E_INVALIDARG,
                  kFilter + "FIR vertical taps 16 are outside 3..15"},
        TraceCase{"fir_taps_of_an_off_direction_accepted", fir_filter_with(fir(99, 100, 3, 50)), DSP_S_OK,
                  ""},
        TraceCase{"box_horizontal_size", box_filter_with([](DSP_BUFFER &) {}, 257, 3), DSP_E_INVALIDARG,
                  kFilter + "box horizontal size 257 is above 256"},
        TraceCase{"box_vertical_size", box_filter_with([](DSP_BUFFER &) {}, 256, 1000), DSP_E_INVALIDARG,
                  kFilter + "box vertical size 1000 is above 256"}),
    [](const auto &info) { return std::string(info.param.name); });

// The fractional filter's settings are checked by the same rules and traced under its own name.
const DSP_FIR_SETTINGS kFirBadCutoff{3, 120, 0, 3, 50};
const DSP_FIR_SETTINGS kFirBadTaps{3, 100, 0, 17, 50};
const DSP_BOX_SETTINGS kBoxTooWide{300, 0, 3};
const DSP_BOX_SETTINGS kBoxFine{3, 0, 3};
const std::string kSubPixel = "DspSubPixelFilter: refused: ";

INSTANTIATE_TEST_SUITE_P(
    SubPixelFilter, TraceTest,
    ::testing::Values(
        TraceCase{"box_accepted", subpixel_filter_with(DSP_FILTER_TYPE_BOX, &kBoxFine), DSP_S_OK, ""},
        TraceCase{"filter_type", subpixel_filter_with(9, &kBoxFine), DSP_E_INVALIDARG,
                  kSubPixel + "filter type 9 is neither 1 (FIR) nor 2 (box)"},
        TraceCase{"fir_without_settings", subpixel_filter_with(DSP_FILTER_TYPE_FIR, nullptr), DSP_E_INVALIDARG,
                  kSubPixel + "FIR filter without settings (pSettings is null)"},
        TraceCase{"fir_cutoff", subpixel_filter_with(DSP_FILTER_TYPE_FIR, &kFirBadCutoff), DSP_E_INVALIDARG,
                  kSubPixel + "FIR horizontal cut-off 120 is above 100 (100 turns the direction off)"},
        TraceCase{"fir_taps", subpixel_filter_with(DSP_FILTER_TYPE_FIR, &kFirBadTaps), DSP_E_INVALIDARG,
                  kSubPixel + "FIR vertical taps 17 are outside 3..15"},
        TraceCase{"box_size", subpixel_filter_with(DSP_FILTER_TYPE_BOX, &kBoxTooWide), DSP_E_INVALIDARG,
                  kSubPixel + "box horizontal size 300 is above 256"}),
    [](const auto &info) { return std::string(info.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Compare, TraceTest,
    ::testing::Values(
        TraceCase{"accepted", compare_format(DSP_PIXEL_FORMAT_YUYV), DSP_S_OK, ""},
        TraceCase{"format_22", compare_format(22), DSP_S_OK,
                  "DspCompare: refused: pixel format 22 is not one the comparison takes (0, 1, 5, 21, "
                  "25, 28, 30, 261)"},
        TraceCase{"format_262", compare_format(262), DSP_S_OK,
                  "DspCompare: refused: pixel format 262 is not one the comparison takes (0, 1, 5, 21, "
                  "25, 28, 30, 261)"}),
    [](const auto &info) { return std::string(info.param.name); });

}  // namespace
