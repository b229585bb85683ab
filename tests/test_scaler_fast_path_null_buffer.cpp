// Regression: a scaler record with a null input or output buffer that otherwise looks eligible
// for a fixed-ratio fast path (eScalerPath 1 or 2) reached the fast path before the buffers were
// checked, which stepped a null pointer to the second plane and would read or write through it.
// Such a record is refused with E_INVALIDARG and nothing is touched.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "framedsp/framedsp.h"
#include "test_util.h"

namespace {

constexpr size_t kGuard = 64;

struct Side {
  std::vector<uint8_t> bytes;  // guard, image, guard
  DSP_IMAGE image{};
};

// A progressive frame, width x height, whole-image region; `plane` bytes per pixel of the second
// plane (0: none).
Side make_side(uint32_t format, uint32_t bpp, uint32_t plane, uint32_t width, uint32_t height,
               std::mt19937 &rng) {
  Side s;
  DSP_IMAGE &d = s.image;
  d.ePixelFormat = format;
  d.Buffer.eBufferType = DSP_BUFFER_TYPE_FRAME;
  d.eInterlace = DSP_INTERLACE_PROGRESSIVE;
  d.ulWidth = width;
  d.ulHeight = height;
  d.ulPrimaryStrideBytes = width * bpp;
  d.ulSecondaryStrideBytes = plane ? width * plane : 0;
  d.Buffer.Region = DSP_REGION{{0, 0}, width, height};
  const size_t size = size_t{height} * (d.ulPrimaryStrideBytes + d.ulSecondaryStrideBytes);
  s.bytes.resize(size + 2 * kGuard + 16);
  framedsp_test::fill_random(s.bytes.data(), s.bytes.size(), rng);
  // 16-byte aligned image start (the HD-width path wants an aligned output).
  uint8_t *start = s.bytes.data() + kGuard;
  start += (16 - reinterpret_cast<uintptr_t>(start) % 16) % 16;
  d.Buffer.pBuffer = start;
  d.Buffer.ulBytes = static_cast<uint32_t>(size);
  return s;
}

// path, format (0 one plane, 28 two planes), which buffer is null (0 input, 1 output)
using Param = std::tuple<uint32_t, uint32_t, int>;

class ScalerFastPathNullBuffer : public ::testing::TestWithParam<Param> {};

TEST_P(ScalerFastPathNullBuffer, IsRefusedWithoutTouchingAnything) {
  const uint32_t path = std::get<0>(GetParam());
  const uint32_t format = std::get<1>(GetParam());
  const bool null_out = std::get<2>(GetParam()) == 1;
  const uint32_t bpp = format == 0 ? 4 : 2;
  const uint32_t plane = format == 28 ? 1 : 0;
  std::mt19937 rng(framedsp_test::test_seed());
  // Integer ratio: a half (64 -> 32 pixels, 8 -> 4 lines).  HD width: 1440 -> 1920, 4 lines.
  const uint32_t wi = path == 1 ? 64 : 1440, wo = path == 1 ? 32 : 1920;
  const uint32_t hi = path == 1 ? 8 : 4, ho = 4;
  Side in = make_side(format, bpp, plane, wi, hi, rng);
  Side out = make_side(format, bpp, plane, wo, ho, rng);
  const std::vector<uint8_t> in_before = in.bytes, out_before = out.bytes;

  DSP_SCALER_PARAMS p{};
  p.eScalerPath = path;
  p.eFilter = DSP_SCALER_FILTER_NEAREST;
  p.Buffer.In = in.image;
  p.Buffer.Out = out.image;
  (null_out ? p.Buffer.Out : p.Buffer.In).Buffer.pBuffer = nullptr;

  // The same record with both buffers is taken by the fast path and succeeds.
  DSP_SCALER_PARAMS whole = p;
  whole.Buffer.In.Buffer.pBuffer = in.image.Buffer.pBuffer;
  whole.Buffer.Out.Buffer.pBuffer = out.image.Buffer.pBuffer;
  Side probe = make_side(format, bpp, plane, wo, ho, rng);
  whole.Buffer.Out.Buffer.pBuffer = probe.image.Buffer.pBuffer;
  const std::vector<uint8_t> probe_before = probe.bytes;
  ASSERT_EQ(DspScaler(&whole), DSP_S_OK);
  ASSERT_NE(probe.bytes, probe_before) << "the record with both buffers wrote nothing";

  EXPECT_EQ(DspScaler(&p), DSP_E_INVALIDARG);
  EXPECT_TRUE(in.bytes == in_before) << "the input (or its guard bytes) changed";
  EXPECT_TRUE(out.bytes == out_before) << "the output (or its guard bytes) changed";
}

INSTANTIATE_TEST_SUITE_P(All, ScalerFastPathNullBuffer,
                         ::testing::Combine(::testing::Values(1u, 2u), ::testing::Values(0u, 28u),
                                            ::testing::Values(0, 1)),
                         [](const ::testing::TestParamInfo<Param> &info) {
                           return std::string(std::get<0>(info.param) == 1 ? "integer_ratio" : "hd_width") +
                                  (std::get<1>(info.param) == 0 ? "_bgra" : "_uyvy_key") +
                                  (std::get<2>(info.param) == 1 ? "_null_output" : "_null_input");
                         });

}  // namespace
