// The half-pixel planes made in pieces, as refinement asks for them, equal the planes made at once;
// the ring kernel's centre sums are the centre's plain SAD.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "analysis/motion_search.h"
#include "platform/cpu.h"
#include "test_util.h"

namespace {

TEST(MotionPlanes, PiecesEqualOnePassAndRingCentreIsPlainSad) {
  std::mt19937 rng(framedsp_test::test_seed());
  for (uint32_t mask : {0u, static_cast<uint32_t>(framedsp::kCpuSSE2), ~0u}) {
    framedsp::MotionKernels k;
    framedsp::motion_kernels_init(&k, framedsp::cpu_flags() & mask);
    for (int round = 0; round < 6; ++round) {
      const int32_t w = 1 + rng() % 90, h = 1 + rng() % 40;
      std::vector<uint8_t> pic(static_cast<size_t>(w * h)), whole(framedsp::HalfPlanes::bytes(w, h));
      for (uint8_t &v : pic) v = static_cast<uint8_t>(rng());
      std::vector<uint8_t> pieces(whole.size(), 0xA5);
      const framedsp::MotionPlane p{pic.data(), w, w, h};
      framedsp::HalfPlanes a, b;
      framedsp::make_half_planes(k, p, whole.data(), &a);
      framedsp::HalfPlaneMaker maker(k, p, pieces.data(), &b);
      for (int32_t line = -1; line < h + 2; line += static_cast<int32_t>(rng() % 5)) maker.through(line);
      maker.through(h);
      for (int i = 1; i < 4; ++i) {
        for (int32_t y = 0; y < h; ++y) {
          ASSERT_EQ(std::memcmp(a.p[i].data + y * a.p[i].stride, b.p[i].data + y * b.p[i].stride, w), 0)
              << "plane " << i << " line " << y << " of " << w << "x" << h;
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
