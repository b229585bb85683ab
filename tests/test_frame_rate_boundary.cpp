// DspFrameRateConvert at an object's boundary: a band moving 4 pixels right over a still
// background, with a field of 16 x 16 blocks whose boundary cuts through tiles.  At phase 1/2
// every pixel more than one pixel away from the 2-pixel covered and uncovered strips is the exact
// shifted picture; without occlusion handling the block vectors are mixed across the boundary.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "framedsp/framedsp.h"
#include "framerate/converter.h"
#include "platform/handle.h"

namespace {

constexpr int kW = 64, kH = 32, kBlock = 16, kX0 = 20, kX1 = 40;  // the band [kX0, kX1) in A

TEST(FrameRateBoundary, PixelsFollowTheirOwnSide) {
  std::mt19937 rng(17);
  std::vector<uint8_t> bg(kW * kH), obj(kW * kH), a(kW * kH), b(kW * kH), truth(kW * kH), out(kW * kH);
  for (size_t i = 0; i < bg.size(); ++i) bg[i] = uint8_t(rng() % 200), obj[i] = uint8_t(60 + rng() % 196);
  auto scene = [&](std::vector<uint8_t> &f, int shift) {  // the band moved by `shift`, over bg
    for (int y = 0; y < kH; ++y)
      for (int x = 0; x < kW; ++x) {
        const bool in = x >= kX0 + shift && x < kX1 + shift;
        f[size_t(y * kW + x)] = in ? obj[size_t(y * kW + x - shift)] : bg[size_t(y * kW + x)];
      }
  };
  scene(a, 0), scene(b, 4), scene(truth, 2);

  const int cols = kW / kBlock, rows = kH / kBlock;
  std::vector<uint8_t> field(DSP_VECTOR_FIELD_BYTES(kW, kH, kBlock, kBlock));
  const DSP_VECTOR_FIELD hd = {uint32_t(field.size()), kW, kH, kBlock, kBlock, uint32_t(cols), uint32_t(rows),
                               DSP_VECTOR_FIELD_FORWARD | DSP_VECTOR_FIELD_BACKWARD, 0, 0, 400, 0};
  std::memcpy(field.data(), &hd, sizeof hd);
  auto *e = reinterpret_cast<DSP_MOTION_VECTOR *>(field.data() + sizeof hd);
  for (int i = 0; i < cols * rows; ++i) {
    const int16_t vx = (i % cols == 1 || i % cols == 2) ? 16 : 0;  // the band's columns: 4 pixels
    e[i] = {vx, 0, 0, 0}, e[i + cols * rows] = {int16_t(-vx), 0, 0, 0};
  }

  DSP_FRAME_RATE_CONVERTER_PARAMS cp;
  std::memset(&cp, 0, sizeof cp);
  cp.ulBaseCount = 1, cp.lWidth = kW, cp.lHeight = kH, cp.ulLevels = 2;
  DSP_HANDLE h = nullptr;
  ASSERT_EQ(DspCreateFrameRateConverter(&cp, &h), DSP_S_OK);
  DSP_FRAME_RATE_CONVERT_PARAMS p;
  std::memset(&p, 0, sizeof p);
  DSP_IMAGE *frames[3] = {&p.FrameA, &p.FrameB, &p.FrameOut};
  uint8_t *data[3] = {a.data(), b.data(), out.data()};
  for (int i = 0; i < 3; ++i) {
    frames[i]->Buffer.pBuffer = data[i];
    frames[i]->Buffer.ulBytes = kW * kH;
    frames[i]->ulWidth = kW, frames[i]->ulHeight = kH, frames[i]->ulPrimaryStrideBytes = kW;
  }
  p.pVectorField = field.data(), p.ulVectorFieldBytes = uint32_t(field.size());
  p.ulPhaseQ14 = 8192;
  int wrong[2] = {0, 0};  // pixels off the truth, with and without occlusion handling
  for (int pass = 0; pass < 2; ++pass) {
    p.bConvertFlags = uint8_t(DSP_CONVERT_LUMA_ONLY | (pass ? DSP_CONVERT_NO_OCCLUSION : 0));
    ASSERT_EQ(DspFrameRateConvert(h, &p, 0), DSP_S_OK);
    for (int i = 0; i < kW * kH; ++i) {  // not the strips nor pixels whose 3 x 3 reaches them
      const int x = i % kW;
      if ((x < kX0 - 1 || x >= kX0 + 3) && (x < kX1 + 1 || x >= kX1 + 5))
        wrong[pass] += out[size_t(i)] != truth[size_t(i)];
    }
  }
  EXPECT_EQ(wrong[0], 0);
  EXPECT_GT(wrong[1], kH);  // mixed vectors smear the boundary
  auto *conv = framedsp::acquire_handle<framedsp::DspFrameRateConverter>(h);  // held, then created
  conv->release();
  conv->release();
}

}  // namespace
