// Level 0 of the motion search: each final block picks among the search blocks' vectors around
// it (the split stage), refines to half and quarter pixels, and gets its cost and flags.
#include <algorithm>
#include <cstdint>

#include "analysis/motion_search.h"

namespace framedsp {
namespace {

int32_t iabs(int32_t v) { return v < 0 ? -v : v; }

// Mean absolute difference to the right and lower neighbours below this: a flat block.
constexpr uint32_t kFlatActivity = 2;
// Vectors of the two directions further apart than this (quarter pixels, x or y) disagree.
constexpr int32_t kConsistency = 4;
// The split stage weighs a neighbour's vector only when it is further than this from the block's
// own (quarter pixels, x or y).
constexpr int32_t kSplitApart = 2;

struct Best {
  MotionVec v;
  uint64_t cost = 0;
  uint32_t match = 0;
  bool set = false;
};

class FinalEval {
 public:
  FinalEval(const MotionKernels &k, const FinalStage &f, const MotionBlock &block, MotionVec m,
            uint32_t lambda)
      : k_(k), f_(f), block_(block), m_(m), lambda_(lambda) {}

  // Evaluates v once (repeats are skipped); returns its cost, or UINT64_MAX outside the reach.
  uint64_t consider(const MotionVec &v, bool quarter) {
    if (iabs(v.x) > 4 * f_.reach_x || iabs(v.y) > 4 * f_.reach_y) return UINT64_MAX;
    for (int i = 0; i < seen_; ++i) {
      if (seen_vec_[i] == v) return seen_cost_[i];
    }
    const uint32_t sad = quarter ? block_sad_q(k_, block_, f_.b, v.x, v.y)
                                 : block_sad(k_, block_, f_.b, v.x >> 2, v.y >> 2);
    const uint32_t match = cost16_of_sad(block_, sad);
    const uint64_t cost =
        match + uint64_t{4} * lambda_ * static_cast<uint32_t>(iabs(v.x - m_.x) + iabs(v.y - m_.y));
    if (seen_ < kSeen) {
      seen_vec_[seen_] = v;
      seen_cost_[seen_++] = cost;
    }
    if (!best_.set || better(cost, v, best_.cost, best_.v)) best_ = Best{v, cost, match, true};
    return cost;
  }

  // Sub-pixel step around the current best: the two horizontal and the two vertical neighbours at
  // `step` quarter pixels, then the diagonal that combines the better side of each when both
  // improved on the centre.
  void cross(int32_t step) {
    const MotionVec c = best_.v;
    const uint64_t centre = best_.cost;
    const uint64_t l = consider(MotionVec{c.x - step, c.y}, true), r = consider(MotionVec{c.x + step, c.y}, true);
    const uint64_t u = consider(MotionVec{c.x, c.y - step}, true), d = consider(MotionVec{c.x, c.y + step}, true);
    const int32_t sx = std::min(l, r) < centre ? (l <= r ? -step : step) : 0;
    const int32_t sy = std::min(u, d) < centre ? (u <= d ? -step : step) : 0;
    if (sx && sy) consider(MotionVec{c.x + sx, c.y + sy}, true);
  }

  const Best &best() const { return best_; }

 private:
  const MotionKernels &k_;
  const FinalStage &f_;
  const MotionBlock &block_;
  MotionVec m_;
  uint32_t lambda_;
  Best best_;
  static constexpr int kSeen = 24;
  MotionVec seen_vec_[kSeen];
  uint64_t seen_cost_[kSeen] = {};
  int seen_ = 0;
};

// True when the block's own detail is below kFlatActivity per sample pair: differences to the
// right and lower neighbours, within the picture.
bool flat(const MotionKernels &k, const MotionPlane &src, const MotionBlock &b) {
  const int32_t wh = b.x + b.w < src.width ? b.w : b.w - 1;
  const int32_t hv = b.y + b.h < src.height ? b.h : b.h - 1;
  uint32_t activity = 0, pairs = 0;
  if (wh > 0) {
    activity += k.sad(b.a, b.a_stride, b.a + 1, b.a_stride, static_cast<uint32_t>(wh), static_cast<uint32_t>(b.h));
    pairs += static_cast<uint32_t>(wh * b.h);
  }
  if (hv > 0) {
    activity += k.sad(b.a, b.a_stride, b.a + b.a_stride, b.a_stride, static_cast<uint32_t>(b.w), static_cast<uint32_t>(hv));
    pairs += static_cast<uint32_t>(b.w * hv);
  }
  return activity < kFlatActivity * pairs;
}

// The matched block reaches outside the target: its first sample column left of 0 or its last
// (rounded up for a fractional position) right of the last column; rows alike.
bool outside(const FinalStage &f, const MotionBlock &b, const MotionVec &v) {
  const int32_t qx = 4 * b.x + v.x, qy = 4 * b.y + v.y;
  return (qx >> 2) < 0 || (qy >> 2) < 0 || ((qx + 3) >> 2) + b.w > f.b.width ||
         ((qy + 3) >> 2) + b.h > f.b.height;
}

}  // namespace

void final_stage(const MotionKernels &k, const FinalStage &f, MotionVec *vec, uint16_t *cost,
                 uint16_t *flags) {
  const BlockGrid &g = f.grid, &sg = f.search_grid;
  // Half- then quarter-pixel refinement of the search blocks' vectors.
  const MotionVec *search = f.search;
  if (f.subpel) {
    for (int32_t row = 0; row < sg.rows; ++row) {
      for (int32_t col = 0; col < sg.cols; ++col) {
        const MotionBlock block = make_block(f.a, sg, col, row);
        const MotionVec own = f.search[row * sg.cols + col];
        // Pure match: a smoothness term here would pull towards the whole-pixel vectors.
        FinalEval eval(k, f, block, own, 0);
        eval.consider(own, false);
        eval.cross(2);
        eval.cross(1);
        f.refined[row * sg.cols + col] = eval.best().v;
      }
    }
    // Then each block weighs its refined vector against its neighbours' with the smoothness term
    // (median of the refined 3x3), which settles blocks whose texture leaves the match open
    // along one direction.
    for (int32_t row = 0; row < sg.rows; ++row) {
      for (int32_t col = 0; col < sg.cols; ++col) {
        const MotionVec own = f.refined[row * sg.cols + col];
        bool alone = true;  // every neighbour agrees: nothing to weigh
        for (int32_t dy = -1; dy <= 1; ++dy) {
          for (int32_t dx = -1; dx <= 1; ++dx) {
            const int32_t r = row + dy, c = col + dx;
            if (r >= 0 && r < sg.rows && c >= 0 && c < sg.cols) alone = alone && f.refined[r * sg.cols + c] == own;
          }
        }
        if (alone) {
          f.settled[row * sg.cols + col] = own;
          continue;
        }
        const MotionBlock block = make_block(f.a, sg, col, row);
        FinalEval eval(k, f, block, median9(f.refined, sg, col, row), f.lambda);
        eval.consider(own, true);
        for (int32_t dy = -1; dy <= 1; ++dy) {
          for (int32_t dx = -1; dx <= 1; ++dx) {
            const int32_t r = row + dy, c = col + dx;
            if (r >= 0 && r < sg.rows && c >= 0 && c < sg.cols) eval.consider(f.refined[r * sg.cols + c], true);
          }
        }
        f.settled[row * sg.cols + col] = eval.best().v;
      }
    }
    search = f.settled;
  }
  // The split stage: each final block takes the best of the search vectors around it.
  for (int32_t row = 0; row < g.rows; ++row) {
    for (int32_t col = 0; col < g.cols; ++col) {
      const MotionBlock block = make_block(f.a, g, col, row);
      const int32_t sc = std::min((block.x + block.w / 2) / sg.bw, sg.cols - 1);
      const int32_t sr = std::min((block.y + block.h / 2) / sg.bh, sg.rows - 1);
      const MotionVec own = search[sr * sg.cols + sc];
      FinalEval eval(k, f, block, own, f.lambda);
      eval.consider(own, f.subpel);
      for (int32_t dy = -1; f.split && dy <= 1; ++dy) {
        for (int32_t dx = -1; dx <= 1; ++dx) {
          const int32_t r = sr + dy, c = sc + dx;
          if ((dx || dy) && r >= 0 && r < sg.rows && c >= 0 && c < sg.cols) {
            // Within half a pixel of the block's own vector a neighbour's is no other motion.
            const MotionVec &v = search[r * sg.cols + c];
            if (std::max(iabs(v.x - own.x), iabs(v.y - own.y)) > kSplitApart) eval.consider(v, f.subpel);
          }
        }
      }
      const Best &best = eval.best();
      const size_t i = static_cast<size_t>(row) * g.cols + col;
      vec[i] = best.v;
      const uint32_t c64 = (best.match + 8) >> 4;
      cost[i] = static_cast<uint16_t>(std::min<uint32_t>(c64, 0xFFFF));
      uint16_t fl = 0;
      if (c64 > f.scene_threshold) fl |= DSP_MV_BAD;
      if (outside(f, block, best.v)) fl |= DSP_MV_OUTSIDE;
      if (flat(k, f.a, block)) fl |= DSP_MV_FLAT;
      if (f.exhaustive && f.exhaustive[sr * sg.cols + sc]) fl |= DSP_MV_REFINED;
      flags[i] = fl;
    }
  }
}

void mark_inconsistent(const BlockGrid &g, int32_t width, int32_t height, const MotionVec *vec,
                       const MotionVec *other, uint16_t *flags) {
  for (int32_t row = 0; row < g.rows; ++row) {
    for (int32_t col = 0; col < g.cols; ++col) {
      const size_t i = static_cast<size_t>(row) * g.cols + col;
      const int32_t cx = col * g.bw + std::min(g.bw, width - col * g.bw) / 2;
      const int32_t cy = row * g.bh + std::min(g.bh, height - row * g.bh) / 2;
      // The destination of the block's centre, rounded to the nearest pixel.
      const int32_t tx = (4 * cx + vec[i].x + 2) >> 2, ty = (4 * cy + vec[i].y + 2) >> 2;
      if (tx < 0 || ty < 0 || tx >= width || ty >= height) continue;
      const MotionVec &o = other[(ty / g.bh) * g.cols + tx / g.bw];
      if (iabs(vec[i].x + o.x) > kConsistency || iabs(vec[i].y + o.y) > kConsistency) {
        flags[i] |= DSP_MV_INCONSISTENT;
      }
    }
  }
}

}  // namespace framedsp
