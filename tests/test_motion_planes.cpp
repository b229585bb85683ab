// The half-pixel planes made in pieces, as refinement asks for them, or through a window, and
// patches of them made from the picture alone, equal the planes made at once; the ring kernel's
// centre sums are the centre's plain SAD.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "analysis/motion_search.h"
#include "platform/cpu.h"
#include "test_util.h"

namespace {

// Sample (x, y) of a whole plane, coordinates clamped to it.
uint8_t clamped(const framedsp::MotionPlane &p, int32_t x, int32_t y) {
  return p.data[std::min(std::max(y, 0), p.height - 1) * p.stride + std::min(std::max(x, 0), p.width - 1)];
}

TEST(MotionPlanes, PiecesWindowsAndPatchesEqualOnePassAndRingCentreIsPlainSad) {
  std::mt19937 rng(framedsp_test::test_seed());
  for (uint32_t mask : {0u, static_cast<uint32_t>(framedsp::kCpuSSE2), ~0u}) {
    framedsp::MotionKernels k;
    framedsp::motion_kernels_init(&k, framedsp::cpu_flags() & mask);
    for (int round = 0; round < 6; ++round) {
      const int32_t w = 1 + rng() % 90, h = 1 + rng() % 40;
      std::vector<uint8_t> pic(static_cast<size_t>(w * h)), whole(framedsp::HalfPlanes::bytes(w, h));
      for (uint8_t &v : pic) v = static_cast<uint8_t>(rng());
      const framedsp::MotionPlane p{pic.data(), w, w, h};
      framedsp::HalfPlanes a, b, c;
      framedsp::make_half_planes(k, p, whole.data(), &a);
      // Made in pieces, whole or through a window: every line equals the one-pass planes' while
      // it is in the window (the last `window` lines made, runs repeated past its end).
      const int32_t window = framedsp::HalfPlanes::window(h, 8 + static_cast<int32_t>(rng() % 8)), run = 5;
      std::vector<uint8_t> pieces(whole.size(), 0xA5), slots(framedsp::HalfPlanes::bytes(w, h, window, run));
      framedsp::HalfPlaneMaker maker(k, p, pieces.data(), &b), windowed(k, p, slots.data(), &c, window, run);
      for (int32_t line = -1; line < h + 2; line += static_cast<int32_t>(rng() % 5)) {
        maker.through(line);
        windowed.through(line);
        const int32_t last = std::min(line, h - 1), from = window ? std::max(0, last - window + 4) : 0;
        for (int i = 1; i < 4; ++i) {
          for (int32_t y = from; y <= last; ++y) {
            const uint8_t *in = c.p[i].data + (y & c.mask) * c.p[i].stride;
            ASSERT_EQ(std::memcmp(a.p[i].data + y * a.p[i].stride, in, w), 0) << i << " " << y << " of " << w << "x" << h;
            if (window && (y & c.mask) < run) {
              ASSERT_EQ(std::memcmp(in, in + window * c.p[i].stride, w), 0);
            }
          }
        }
      }
      maker.through(h);
      for (int i = 1; i < 4; ++i) {
        for (int32_t y = 0; y < h; ++y) {
          ASSERT_EQ(std::memcmp(a.p[i].data + y * a.p[i].stride, b.p[i].data + y * b.p[i].stride, w), 0)
              << "plane " << i << " line " << y << " of " << w << "x" << h;
        }
      }
      // Patches made from the picture alone, inside, across and beyond the edges.
      for (int t = 0; t < 12; ++t) {
        const int i = 1 + static_cast<int>(rng() % 3);
        const int32_t pw = 1 + rng() % 64, ph = 1 + rng() % 64;
        const int32_t x = static_cast<int32_t>(rng() % (w + 2 * pw)) - pw, y = static_cast<int32_t>(rng() % (h + 2 * ph)) - ph;
        alignas(16) uint8_t out[framedsp::kSubPatchBytes];
        ptrdiff_t stride = 0;
        framedsp::half_patch(k, p, i, x, y, pw, ph, out, &stride);
        for (int32_t yy = 0; yy < ph; ++yy) {
          for (int32_t xx = 0; xx < pw; ++xx) {
            ASSERT_EQ(out[yy * stride + xx], clamped(a.p[i], x + xx, y + yy)) << i << " at " << x << "," << y;
          }
        }
      }
    }
    std::vector<uint8_t> src(64 * 40), tgt(64 * 40);
    for (uint8_t &v : src) v = static_cast<uint8_t>(rng());
    for (uint8_t &v : tgt) v = static_cast<uint8_t>(rng());
    const uint8_t *q[4] = {&tgt[0], &tgt[1], &tgt[64], &tgt[65 + 64]};
    const ptrdiff_t qs[4] = {64, 64, 64, 64};
    for (uint32_t bw : {16u, 11u}) {
      uint32_t sums[9][4], plain[4];
      k.sad_ring(src.data(), 64, q, qs, 0, bw, 16, 8, 8, sums);
      framedsp::sad_avg4_c(src.data(), 64, q[3], 64, q[3], 64, bw, 16, 8, 8, plain);
      EXPECT_EQ(std::memcmp(sums[8], plain, sizeof plain), 0) << bw;
      k.sad_ring(src.data(), 64, q, qs, 1, bw, 16, 8, 8, sums);
      EXPECT_EQ(sums[8][0] | sums[8][1] | sums[8][2] | sums[8][3], 0u);
    }
  }
}

}  // namespace
