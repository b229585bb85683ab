// A conversion without a field follows the field a host would make itself with DspCreateMipMaps
// (linear, levels halved) and DspCreateMotionVectors under the converter's search settings; a
// picture too small to search is blended.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "framedsp/framedsp.h"
#include "framerate/converter.h"

namespace {

constexpr uint32_t kW = 192, kH = 128, kLevels = 3;

DSP_IMAGE plane(uint8_t *p, uint32_t w, uint32_t h) {
  DSP_IMAGE im;
  std::memset(&im, 0, sizeof im);
  im.Buffer.pBuffer = p;
  im.Buffer.ulBytes = w * h;
  im.Buffer.eBufferType = DSP_BUFFER_TYPE_FRAME;
  im.Buffer.Region.ulWidth = im.ulWidth = w;
  im.Buffer.Region.ulHeight = im.ulHeight = h;
  im.ePixelFormat = DSP_PIXEL_FORMAT_MIPMAP;
  im.eInterlace = DSP_INTERLACE_PROGRESSIVE;
  im.ulPrimaryStrideBytes = w;
  return im;
}

DSP_FRAME_RATE_CONVERT_PARAMS record(uint8_t *a, uint8_t *b, uint8_t *out, uint32_t w, uint32_t h, uint32_t phase) {
  DSP_FRAME_RATE_CONVERT_PARAMS p;
  std::memset(&p, 0, sizeof p);
  p.FrameA = plane(a, w, h), p.FrameB = plane(b, w, h), p.FrameOut = plane(out, w, h);
  p.ulPhaseQ14 = phase;
  p.bConvertFlags = DSP_CONVERT_LUMA_ONLY;
  return p;
}

TEST(FrameRateOwnField, FollowsTheFieldOfTheMotionVectorOperation) {
  DSP_FRAME_RATE_CONVERTER_PARAMS c;
  std::memset(&c, 0, sizeof c);
  c.ulBaseCount = 1, c.lWidth = 4096, c.lHeight = 4096, c.ulLevels = kLevels, c.ulBlockA = c.ulBlockB = 8;
  for (int k = 0; k < 5; ++k) c.ulLevelRangeX[k] = c.ulLevelRangeY[k] = 2;  // as applied for this size
  DSP_HANDLE h = nullptr;
  ASSERT_EQ(DspCreateFrameRateConverter(&c, &h), DSP_S_OK);

  std::mt19937 rng(17);
  std::vector<uint8_t> big((kW + 16) * (kH + 16)), frame[2] = {std::vector<uint8_t>(kW * kH), std::vector<uint8_t>(kW * kH)};
  for (uint8_t &v : big) v = uint8_t(rng());
  for (size_t step : {size_t(1), size_t(kW + 16), size_t(1), size_t(kW + 16)})  // soften along rows and columns
    for (size_t i = step; i + step < big.size(); ++i) big[i] = uint8_t((big[i - step] + 2 * big[i] + big[i + step]) / 4);
  for (uint32_t y = 0; y < kH; ++y)
    for (uint32_t x = 0; x < kW; ++x) {
      frame[0][y * kW + x] = big[(y + 8) * (kW + 16) + x + 8];
      // B: A's left half moved by (7, 6), its right half by (-7, 6): beyond level 0's window
      frame[1][y * kW + x] = big[(y + 2) * (kW + 16) + x + (x < kW / 2 ? 1 : 15)];
    }
  std::vector<uint8_t> levels[2];
  DSP_MIPMAP_LEVELS lists[2];
  for (int s = 0; s < 2; ++s) {
    levels[s].resize(kW * kH);
    std::memset(&lists[s], 0, sizeof lists[s]);
    lists[s].ulCount = kLevels;
    for (uint32_t k = 0; k < kLevels; ++k)
      lists[s].Levels[k] = plane(k ? levels[s].data() + (k - 1) * kW * kH / 4 : frame[s].data(), kW >> k, kH >> k);
    DSP_MIPMAP_PARAMS m;
    std::memset(&m, 0, sizeof m);
    m.Base = lists[s].Levels[0], m.pLevels = &lists[s], m.eFilter = DSP_SCALER_FILTER_LINEAR;
    ASSERT_EQ(DspCreateMipMaps(h, &m), DSP_S_OK);
  }
  std::vector<uint8_t> field(DSP_VECTOR_FIELD_BYTES(kW, kH, 8u, 8u));
  DSP_MOTION_VECTORS_PARAMS mv;
  std::memset(&mv, 0, sizeof mv);
  mv.pLevelsA = &lists[0], mv.pLevelsB = &lists[1];
  mv.pVectorField = field.data(), mv.ulVectorFieldBytes = uint32_t(field.size());
  std::memcpy(&mv.ulLevels, &c.ulLevels, offsetof(DSP_MOTION_VECTORS_PARAMS, ulReserved) - offsetof(DSP_MOTION_VECTORS_PARAMS, ulLevels));
  ASSERT_EQ(DspCreateMotionVectors(h, &mv), DSP_S_OK);
  const auto *fwd = reinterpret_cast<const DSP_MOTION_VECTOR *>(field.data() + DSP_VECTOR_FIELD_HEADER_BYTES);
  int found = 0;
  for (int i = 0; i < 96; ++i) found += fwd[i].sX == (i % 24 < 12 ? 28 : -28) && fwd[i].sY == 24;
  EXPECT_GE(found, 72) << "the field sees the pan: " << fwd[30].sX << "," << fwd[30].sY;

  for (uint32_t phase : {3000u, 8192u, 13000u}) {
    std::vector<uint8_t> own(kW * kH), given(kW * kH);
    DSP_FRAME_RATE_CONVERT_PARAMS p = record(frame[0].data(), frame[1].data(), own.data(), kW, kH, phase);
    ASSERT_EQ(DspFrameRateConvert(h, &p, 0), DSP_S_OK);
    p.FrameOut.Buffer.pBuffer = given.data();
    p.pVectorField = field.data(), p.ulVectorFieldBytes = uint32_t(field.size());
    ASSERT_EQ(DspFrameRateConvert(h, &p, 0), DSP_S_OK);
    EXPECT_TRUE(own == given) << "phase " << phase;
  }

  uint8_t a[9], b[9], out[9];  // 3 x 3: no search window fits, so the pair is blended
  for (int i = 0; i < 9; ++i) a[i] = uint8_t(20 * i), b[i] = uint8_t(250 - 7 * i);
  DSP_FRAME_RATE_CONVERT_PARAMS p = record(a, b, out, 3, 3, 5000);
  ASSERT_EQ(DspFrameRateConvert(h, &p, 0), DSP_S_OK);
  for (int i = 0; i < 9; ++i) EXPECT_EQ(out[i], (11384 * a[i] + 5000 * b[i] + 8192) >> 14) << i;
  auto *conv = framedsp::acquire_handle<framedsp::DspFrameRateConverter>(h);  // held, then the creation
  conv->release();                                                            // reference too
  conv->release();
}

}  // namespace
