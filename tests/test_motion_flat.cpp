// mark_flat's bytes against the rule they stand for: a final block is flat when its differences
// to the right and lower neighbours within the picture stay below kFlatActivity a pair (every
// ISA, nestings 1 and 2, partial blocks at the picture's edges).
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <vector>

#include "analysis/motion_search.h"
#include "motion_util.h"
#include "test_util.h"

namespace {

bool flat_block(const std::vector<uint8_t> &pic, int32_t width, int32_t height, const framedsp::MotionBlock &b) {
  uint32_t activity = 0, pairs = 0;
  for (int32_t y = b.y; y < b.y + b.h; ++y) {
    for (int32_t x = b.x; x < b.x + b.w; ++x) {
      const int32_t v = pic[y * width + x];
      if (x + 1 < width) activity += static_cast<uint32_t>(std::abs(v - pic[y * width + x + 1])), ++pairs;
      if (y + 1 < height) activity += static_cast<uint32_t>(std::abs(v - pic[(y + 1) * width + x])), ++pairs;
    }
  }
  return activity < framedsp::kFlatActivity * pairs;
}

TEST(MotionFlat, FlatBytesFollowTheRuleAtEverySizeAndEdge) {
  const motion_test::KernelsPerIsa isa;
  std::mt19937 rng(framedsp_test::test_seed());
  const int32_t sizes[][4] = {{16, 16, 8, 8}, {16, 16, 16, 8}, {8, 8, 8, 8}, {32, 32, 16, 16}, {12, 10, 6, 5}};
  for (int round = 0; round < 60; ++round) {
    // Sizes of whole search blocks as well: their last column and row end at the picture's edge.
    const int32_t *s = sizes[round % 5], whole = round / 5 % 2;
    const int32_t width = whole ? s[0] * (1 + rng() % 9) : 1 + rng() % 150;
    const int32_t height = whole ? s[1] * (1 + rng() % 7) : 1 + rng() % 70;
    // Patches of noise 0..1, 0..5 (near the threshold) or 0..255: flat and detailed blocks side by side.
    std::vector<uint8_t> pic(static_cast<size_t>(width * height));
    const uint32_t amp[3] = {2, 6, 256}, pick = rng();
    for (int32_t y = 0; y < height; ++y) {
      for (int32_t x = 0; x < width; ++x) {
        pic[y * width + x] = static_cast<uint8_t>(rng() % amp[(pick >> ((x / 7 + y / 5) % 30)) % 3]);
      }
    }
    framedsp::FinalStage f;
    f.a = framedsp::MotionPlane{pic.data(), width, width, height};
    f.search_grid = framedsp::make_grid(width, height, s[0], s[1]);
    f.grid = framedsp::make_grid(width, height, s[2], s[3]);
    const int32_t nx = s[0] / s[2], ny = s[1] / s[3];
    for (const framedsp::MotionKernels *k : {&isa.scalar, &isa.simd[0], &isa.simd[1]}) {
      std::vector<uint8_t> flat(static_cast<size_t>(f.search_grid.count()), 0xEE);
      f.flat = flat.data();
      ASSERT_TRUE(framedsp::mark_flat(*k, f));
      for (int32_t i = 0; i < f.search_grid.count(); ++i) {
        uint32_t want = 0, parts = 0;
        for (int q = 0; q < 4; ++q) {
          const int32_t col = (i % f.search_grid.cols) * nx + (q & 1), row = (i / f.search_grid.cols) * ny + (q >> 1);
          if ((q & 1) >= nx || (q >> 1) >= ny || col >= f.grid.cols || row >= f.grid.rows) continue;
          parts |= 1u << q;
          want |= flat_block(pic, width, height, framedsp::make_block(f.a, f.grid, col, row)) ? 1u << q : 0u;
        }
        ASSERT_EQ(flat[i], want | (want == parts ? framedsp::kAllFlat : 0u))
            << "block " << i << " of " << width << "x" << height << " in " << s[0] << "x" << s[1] << ", round " << round;
      }
    }
  }
}

}  // namespace
