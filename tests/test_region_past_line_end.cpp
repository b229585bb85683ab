// Regression: a region whose left edge lies far past the end of its line (ptOffset.x around
// 1.3e9 on a line of 87 pixels) has no columns, but its start in bytes, pixels times bytes per
// pixel, overflowed a 32-bit int before the columns were clipped.  The start is now clipped to
// the line's end together with the width.  Every operation that takes such a record must finish
// without touching a byte outside its output region (here: none, the region is empty on that
// side or its source has no columns), whatever status it returns.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "framedsp/framedsp.h"
#include "test_util.h"

namespace {

constexpr size_t kGuard = 64;
constexpr int32_t kFarOffset = 1309845504;  // 2 * kFarOffset overflows int32

struct Side {
  std::vector<uint8_t> bytes;
  DSP_IMAGE image{};
};

Side make_side(uint32_t format, uint32_t bpp, uint32_t width, uint32_t height, std::mt19937 &rng) {
  Side s;
  DSP_IMAGE &d = s.image;
  d.ePixelFormat = format;
  d.Buffer.eBufferType = DSP_BUFFER_TYPE_FRAME;
  d.eInterlace = DSP_INTERLACE_PROGRESSIVE;
  d.ulWidth = width;
  d.ulHeight = height;
  d.ulPrimaryStrideBytes = width * bpp + 2;
  d.Buffer.Region = DSP_REGION{{0, 0}, width, height};
  const size_t size = size_t{height} * d.ulPrimaryStrideBytes;
  s.bytes.resize(size + 2 * kGuard);
  framedsp_test::fill_random(s.bytes.data(), s.bytes.size(), rng);
  d.Buffer.pBuffer = s.bytes.data() + kGuard;
  d.Buffer.ulBytes = static_cast<uint32_t>(size);
  return s;
}

enum class Op { kCopy, kFir, kFirTemp, kBox, kSubPixelFir, kScaler };
const char *name(Op op) {
  switch (op) {
    case Op::kCopy: return "copy";
    case Op::kFir: return "fir";
    case Op::kFirTemp: return "fir_temp";
    case Op::kBox: return "box";
    case Op::kSubPixelFir: return "subpixel_fir";
    case Op::kScaler: return "scaler";
  }
  return "?";
}

struct Case {
  Op op;
  uint32_t format;
  uint32_t bpp;
  bool far_input;  // the far offset on the input (else on the output)
};

class RegionPastLineEnd : public ::testing::TestWithParam<Case> {};

TEST_P(RegionPastLineEnd, FinishesWithoutTouchingAnythingOutside) {
  const Case c = GetParam();
  std::mt19937 rng(framedsp_test::test_seed());
  Side in = make_side(c.format, c.bpp, 58, 58, rng);
  Side out = make_side(c.format, c.bpp, 58, 58, rng);
  (c.far_input ? in : out).image.Buffer.Region.ptOffset.x = kFarOffset;
  const std::vector<uint8_t> in_before = in.bytes, out_before = out.bytes;

  DSP_BUFFER buffer{};
  buffer.In = in.image;
  buffer.Out = out.image;
  DSP_FIR_SETTINGS fir{5, 50, 0, 5, 50};
  DSP_BOX_SETTINGS box{3, 0, 3};
  DSP_HRESULT status = DSP_S_OK;
  switch (c.op) {
    case Op::kCopy:
      status = DspBufferSmartCopy(&buffer);
      break;
    case Op::kFir:
    case Op::kFirTemp:
    case Op::kBox: {
      DSP_FILTER_PARAMS p{};
      p.eFilterType = c.op == Op::kBox ? DSP_FILTER_TYPE_BOX : DSP_FILTER_TYPE_FIR;
      p.pSettings = c.op == Op::kBox ? static_cast<const void *>(&box) : static_cast<const void *>(&fir);
      p.Buffer = buffer;
      p.ulOptions = c.op == Op::kFirTemp ? DSP_FILTER_OPTION_TEMP_FRAME : 0;
      status = DspFilter(&p);
      break;
    }
    case Op::kSubPixelFir: {
      DSP_SUBPIXEL_FILTER_PARAMS p;
      std::memset(&p, 0, sizeof p);
      p.eFilterType = DSP_FILTER_TYPE_FIR;
      p.pSettings = &fir;
      p.Buffer.In = framedsp_test::fractional(buffer.In);
      p.Buffer.Out = framedsp_test::fractional(buffer.Out);
      p.ulOptions = DSP_FILTER_OPTION_TEMP_FRAME;
      status = DspSubPixelFilter(&p);
      break;
    }
    case Op::kScaler: {
      DSP_SCALER_PARAMS p{};
      p.eFilter = DSP_SCALER_FILTER_LINEAR;
      p.Buffer = buffer;
      status = DspScaler(&p);
      break;
    }
  }
  EXPECT_TRUE(status == DSP_S_OK || status == DSP_E_INVALIDARG || status == DSP_E_FAIL) << std::hex << status;
  EXPECT_EQ(in.bytes, in_before) << "the input changed";
  // Only the output region's bytes may change.  With the far offset on the output that region
  // has no columns, so nothing may change; with it on the input, the source has no columns and an
  // operation may still fill the output region (through its temporary frame), but nothing else.
  const size_t stride = out.image.ulPrimaryStrideBytes;
  const size_t region_bytes = c.far_input ? size_t{58} * c.bpp : 0;
  for (size_t i = 0; i < out.bytes.size(); ++i) {
    const bool inside = i >= kGuard && i < kGuard + 58 * stride && (i - kGuard) % stride < region_bytes;
    if (!inside) {
      ASSERT_EQ(out.bytes[i], out_before[i]) << "byte " << i << " outside the output region changed";
    }
  }
}

std::vector<Case> cases() {
  std::vector<Case> v;
  for (Op op : {Op::kCopy, Op::kFir, Op::kFirTemp, Op::kBox, Op::kSubPixelFir, Op::kScaler}) {
    for (uint32_t format : {24u, 21u, 0u}) {
      const uint32_t bpp = format == 0 ? 4 : 2;
      for (bool far_input : {true, false}) v.push_back({op, format, bpp, far_input});
    }
  }
  return v;
}

INSTANTIATE_TEST_SUITE_P(All, RegionPastLineEnd, ::testing::ValuesIn(cases()),
                         [](const ::testing::TestParamInfo<Case> &info) {
                           return std::string(name(info.param.op)) + "_format" +
                                  std::to_string(info.param.format) +
                                  (info.param.far_input ? "_input" : "_output");
                         });

}  // namespace
