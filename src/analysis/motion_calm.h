// The calm flags of the split stage and settling: which blocks of a field have no neighbour
// moving otherwise.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "analysis/motion_search.h"

namespace framedsp {

// The calm flags of a chunk of kCalmChunk columns from c0 of a field, row after row from the top:
// calm[c - c0] 1 when no vector of the 3x3 around the block (within the grid) is more than
// `limit` from its own in x or y (entries beyond the grid left alone; whole words of 8 written).
// Vectors lie within the reach (16 bits).  Each line of the field is converted once for its
// three rows; every step runs over the whole chunk, which the compiler takes 8 or 16 at a time.
constexpr int32_t kCalmChunk = 64;
class CalmChunk {
 public:
  CalmChunk(const MotionVec *field, const BlockGrid &g, int32_t c0, int32_t limit);
  void row(int32_t r, uint8_t calm[kCalmChunk]);  // rows in order: each line loaded once

 private:
  static constexpr int32_t kWords = 2 * (kCalmChunk + 2);
  int16_t *line(int32_t r) { return v_[(r + 3) % 3]; }
  void load(int32_t r);
  const MotionVec *field_;
  const BlockGrid &g_;
  int32_t c0_, n_, lanes_, limit_;
  int32_t next_ = -3;  // the next line to load
  int16_t v_[3][kWords];
};

inline CalmChunk::CalmChunk(const MotionVec *field, const BlockGrid &g, int32_t c0, int32_t limit)
    : field_(field), g_(g), c0_(c0), n_(std::min(kCalmChunk, g.cols - c0)), lanes_((n_ + 7) & ~7), limit_(limit) {}

// Line r (clamped to the grid): its vectors from column c0 - 1 on (x and y in turn), the edge
// columns repeated (a repeated vector is the block's own or a neighbour's).
inline void CalmChunk::load(int32_t r) {
  const MotionVec *f = field_ + static_cast<ptrdiff_t>(std::min(std::max(r, 0), g_.rows - 1)) * g_.cols + c0_;
  int16_t *l = line(r);
  for (int32_t j = 0; j < n_; ++j) {
    l[2 * j + 2] = static_cast<int16_t>(f[j].x);
    l[2 * j + 3] = static_cast<int16_t>(f[j].y);
  }
  const MotionVec &first = c0_ > 0 ? f[-1] : f[0];
  l[0] = static_cast<int16_t>(first.x), l[1] = static_cast<int16_t>(first.y);
  const MotionVec &last = c0_ + n_ < g_.cols ? f[n_] : f[n_ - 1];
  for (int32_t j = n_ + 1; j < lanes_ + 2; ++j) l[2 * j] = static_cast<int16_t>(last.x), l[2 * j + 1] = static_cast<int16_t>(last.y);
}

inline void CalmChunk::row(int32_t r, uint8_t calm[kCalmChunk]) {
  if (next_ != r + 1) next_ = r - 1;  // not the row after the last: all three lines afresh
  for (; next_ <= r + 1; ++next_) load(next_);
  // The least and greatest of the three lines, then of three neighbouring columns: a column's
  // largest minus the block's own (0..65528) is exact in 16 unsigned bits, and so is the own
  // minus the smallest.
  const int16_t *up = line(r - 1), *at = line(r), *down = line(r + 1);
  int16_t lo[kWords], hi[kWords];
  for (int32_t k = 0; k < 2 * (lanes_ + 2); ++k) {
    const int16_t u = up[k], m = at[k], d = down[k];
    const int16_t l01 = u < m ? u : m, h01 = u > m ? u : m;
    lo[k] = l01 < d ? l01 : d;
    hi[k] = h01 > d ? h01 : d;
  }
  const uint16_t lim = static_cast<uint16_t>(limit_);
  uint8_t near[2 * kCalmChunk];
  const int16_t *o = at + 2;
  for (int32_t k = 0; k < 2 * lanes_; ++k) {
    const int16_t l01 = lo[k] < lo[k + 2] ? lo[k] : lo[k + 2], h01 = hi[k] > hi[k + 2] ? hi[k] : hi[k + 2];
    const int16_t least = l01 < lo[k + 4] ? l01 : lo[k + 4], most = h01 > hi[k + 4] ? h01 : hi[k + 4];
    const uint16_t above = static_cast<uint16_t>(most - o[k]), below = static_cast<uint16_t>(o[k] - least);
    near[k] = static_cast<uint8_t>((above <= lim) & (below <= lim));
  }
  for (int32_t j = 0; j < lanes_; ++j) calm[j] = near[2 * j] & near[2 * j + 1];
}

}  // namespace framedsp
