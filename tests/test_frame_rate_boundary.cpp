// DspFrameRateConvert at an object's boundary: a textured band moving kMove pixels right over a
// still background (most of the picture), with a field of 32 x 32 blocks.  At phase 1/2 the band
// shows moved by kMove / 2; the background it has uncovered (seen in B only) and the background it
// is about to cover (seen in A only) come from their one side, so those strips show the true
// picture (all of it beyond the 7 x 7 windows' reach of their edges).  Without occlusion handling
// they blend the band into the background, and so do they where the fields' forward/backward check
// flagged nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "framedsp/framedsp.h"
#include "framerate/converter.h"
#include "platform/cpu.h"
#include "platform/handle.h"

namespace {

constexpr int kW = 192, kH = 32, kBlock = 32, kX0 = 32, kX1 = 64, kMove = 16;  // the band [kX0, kX1) in A
constexpr int kPlane = kW * kH;

struct Boundary : ::testing::Test {
  void SetUp() override {
    std::mt19937 rng(17);
    std::vector<uint8_t> bg(kPlane), obj(kPlane);
    for (int i = 0; i < kPlane; ++i) bg[size_t(i)] = uint8_t(rng() % 200), obj[size_t(i)] = uint8_t(60 + rng() % 196);
    auto scene = [&](std::vector<uint8_t> &f, int shift) {  // the band moved by `shift`; plane 2 a copy
      f.resize(2 * kPlane);
      for (int i = 0; i < kPlane; ++i) {
        const int x = i % kW;
        f[size_t(i)] = f[size_t(i + kPlane)] = x >= kX0 + shift && x < kX1 + shift ? obj[size_t(i - shift)] : bg[size_t(i)];
      }
    };
    scene(a, 0), scene(b, kMove), scene(truth, kMove / 2);
    const int cols = kW / kBlock, rows = kH / kBlock;
    field.resize(DSP_VECTOR_FIELD_BYTES(kW, kH, kBlock, kBlock));
    const DSP_VECTOR_FIELD hd = {uint32_t(field.size()), kW, kH, kBlock, kBlock, uint32_t(cols), uint32_t(rows),
                                 DSP_VECTOR_FIELD_FORWARD | DSP_VECTOR_FIELD_BACKWARD, 0, 0, 400, 0};
    std::memcpy(field.data(), &hd, sizeof hd);
    auto *e = reinterpret_cast<DSP_MOTION_VECTOR *>(field.data() + sizeof hd);
    for (int i = 0; i < cols * rows; ++i) {  // the band's columns of blocks move, in quarter pixels
      const int16_t vx = i % cols == 1 ? 4 * kMove : 0;
      e[i] = {vx, 0, 0, 0}, e[i + cols * rows] = {int16_t(-vx), 0, 0, 0};
    }
    e[1].usFlags = DSP_MV_INCONSISTENT;  // the forward/backward check: its centre lands on a still block
    DSP_FRAME_RATE_CONVERTER_PARAMS cp;
    std::memset(&cp, 0, sizeof cp);
    cp.ulBaseCount = 1, cp.lWidth = kW, cp.lHeight = kH, cp.ulLevels = 2;
    ASSERT_EQ(DspCreateFrameRateConverter(&cp, &handle), DSP_S_OK);
  }
  void TearDown() override {
    auto *conv = framedsp::acquire_handle<framedsp::DspFrameRateConverter>(handle);  // held, then created
    conv->release();
    conv->release();
  }
  // Output (both planes, plane 2 plain) at phase 1/2 made in `bands` calls.
  std::vector<uint8_t> convert(uint8_t flags, uint32_t bands = 1) {
    std::vector<uint8_t> out(2 * kPlane, 0);
    DSP_FRAME_RATE_CONVERT_PARAMS p;
    std::memset(&p, 0, sizeof p);
    DSP_IMAGE *frames[3] = {&p.FrameA, &p.FrameB, &p.FrameOut};
    uint8_t *data[3] = {a.data(), b.data(), out.data()};
    for (int i = 0; i < 3; ++i) {
      frames[i]->Buffer.pBuffer = data[i];
      frames[i]->Buffer.ulBytes = 2 * kPlane;
      frames[i]->ulWidth = kW, frames[i]->ulHeight = kH, frames[i]->ulPrimaryStrideBytes = kW;
    }
    p.pVectorField = field.data(), p.ulVectorFieldBytes = uint32_t(field.size());
    p.ulPhaseQ14 = 8192;
    p.bConvertFlags = uint8_t(DSP_CONVERT_PLAIN_PLANE2 | flags);
    p.ulSliceCount = bands;
    for (uint32_t k = 1; k <= bands; ++k) {
      p.ulSliceNumber = k;
      EXPECT_EQ(DspFrameRateConvert(handle, &p, 0), DSP_S_OK);
    }
    return out;
  }
  std::vector<uint8_t> a, b, truth, field;
  DSP_HANDLE handle = nullptr;
};

// Pixels of the uncovered strip [kX0, kX0 + kMove / 2) and the covered one [kX1 + kMove / 2,
// kX1 + kMove), counted from the strip's nearer end, from 1; 0 outside them.
int in_strip(int x) {
  const int s = x < kX0 + kMove / 2 ? kX0 : kX1 + kMove / 2;
  return x >= s && x < s + kMove / 2 ? std::min(x - s, s + kMove / 2 - 1 - x) + 1 : 0;
}

TEST_F(Boundary, CoveredAndUncoveredPixelsComeFromOneSide) {
  const std::vector<uint8_t> on = convert(0), off = convert(DSP_CONVERT_NO_OCCLUSION);
  int strip = 0, exact_on = 0, exact_off = 0, wrong = 0;
  for (int i = 0; i < kPlane; ++i) {
    const int x = i % kW, depth = in_strip(x);
    const bool ok_on = on[size_t(i)] == truth[size_t(i)], ok_off = off[size_t(i)] == truth[size_t(i)];
    if (depth) {
      ++strip, exact_on += ok_on, exact_off += ok_off;
      if (depth > 3) {
        EXPECT_TRUE(ok_on) << "x " << x << " y " << i / kW;  // beyond the windows' reach
      }
    } else if (!in_strip(x - 1) && !in_strip(x + 1)) {  // away from the strips both are exact
      wrong += !ok_on + !ok_off;
    }
  }
  EXPECT_EQ(wrong, 0);
  EXPECT_GT(exact_on, strip / 2);      // from one side: the background itself
  EXPECT_LT(exact_off, strip / 4);     // both sides: the band blended in
  // Where the forward/backward check found no contradiction nothing is looked for.
  reinterpret_cast<DSP_MOTION_VECTOR *>(field.data() + sizeof(DSP_VECTOR_FIELD))[1].usFlags = 0;
  EXPECT_EQ(convert(0), off);
}

TEST_F(Boundary, PlaneTwoBandsAndIsasFollowOneChoice) {
  const std::vector<uint8_t> one = convert(0);
  EXPECT_EQ(std::memcmp(one.data(), one.data() + kPlane, kPlane), 0);  // plane 2 takes plane 1's sides
  EXPECT_EQ(convert(0, 3), one);
  EXPECT_EQ(convert(0, kH), one);
  framedsp::set_cpu_mask(0);
  const std::vector<uint8_t> scalar = convert(0, 2);
  framedsp::set_cpu_mask(~0u);
  EXPECT_EQ(scalar, one);
}

}  // namespace
