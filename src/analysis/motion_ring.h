// ring_refine (see motion_kernels.h) written once over an ISA's sad_ring: each ISA's table entry
// instantiates it with its own ring sums, so that a block's two rings take one call through the
// table and the sums' dispatch folds into it.  The unnamed namespace keeps every instantiation in
// the includer's object file (compiled for its ISA).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "analysis/motion_kernels.h"

namespace framedsp {
namespace {
namespace ring_detail {

inline int32_t iabs(int32_t v) { return v < 0 ? -v : v; }

// The ring's candidates in sad_ring's order: offsets in steps.
constexpr int8_t kDx[8] = {-1, 0, 1, -1, 1, -1, 0, 1};
constexpr int8_t kDy[8] = {-1, -1, -1, 0, 0, 1, 1, 1};

// Half-pixel position (x, y) of the planes, and its plane's stride.
inline const uint8_t *at(const RingPlanes &planes, int32_t x, int32_t y, ptrdiff_t *s) {
  const int i = ((y & 1) << 1) | (x & 1);
  *s = planes.stride[i];
  return planes.data[i] + ((y >> 1) & planes.mask[i]) * planes.stride[i] + (x >> 1);
}

inline uint32_t match_of(uint32_t recip, const uint32_t sum[4]) {
  // A SAD stays below 2^20 and recip <= 2^26: the product needs 64 bits.
  return static_cast<uint32_t>((uint64_t{sum[0] + sum[1] + sum[2] + sum[3]} * recip + (1u << 15)) >> 16);
}

// The winner of a ring of `step` around (cx, cy), whose own match is `own`: lower match, then
// shorter vector (L1), then the earlier candidate, the centre first; -1 when the centre holds.
// One key a candidate and no branches (a ring's ranking is unpredictable): lengths stay below
// 2^17, orders below 2^4.
inline int ring_winner_c(const uint32_t sum[9][4], uint32_t recip, int32_t cx, int32_t cy, int32_t step, uint32_t own,
                       uint32_t *match) {
  auto key = [](uint64_t m, int32_t x, int32_t y, uint32_t order) {
    return (m << 21) | (static_cast<uint64_t>(iabs(x) + iabs(y)) << 4) | order;
  };
  uint64_t top = key(own, cx, cy, 0);
  for (int i = 0; i < 8; ++i) {
    const uint64_t kv =
        key(match_of(recip, sum[i]), cx + kDx[i] * step, cy + kDy[i] * step, static_cast<uint32_t>(i + 1));
    top = kv < top ? kv : top;
  }
  *match = static_cast<uint32_t>(top >> 21);
  return static_cast<int>(top & 15) - 1;
}

}  // namespace ring_detail

// `Ring` calls the ISA's sad_ring with its arguments, `Winner` ranks as ring_winner does.  Each
// step runs over all N blocks before the next: a block's quarter-pixel ring waits on the ranking
// of its half-pixel one, which thus runs beside the other blocks' sums.
template <int N, class Ring, class Winner>
inline void refine_rings(const Ring &ring, const Winner &ring_winner, const RingPlanes &planes, const RingBlock *blocks,
                         RingBest *out) {
  using namespace ring_detail;
  // Each ring's sums apart, so that the best is copied once (whole lines of sums, as written).
  uint32_t half[N][9][4], quarter[N][9][4];
  for (int j = 0; j < N; ++j) {
    // Half pixels around the whole-pixel vector: the samples around its position (X, Y) lie in
    // plane 3 at (X - 1, Y - 1), plane 2 at (X, Y - 1), plane 1 at (X - 1, Y), plane 0 at (X, Y).
    const RingBlock &b = blocks[j];
    const int32_t px = b.x + (b.vx >> 2), py = b.y + (b.vy >> 2);
    const ptrdiff_t qs[4] = {planes.stride[3], planes.stride[2], planes.stride[1], planes.stride[0]};
    const uint8_t *const q[4] = {planes.data[3] + ((py - 1) & planes.mask[3]) * qs[0] + (px - 1),
                                 planes.data[2] + ((py - 1) & planes.mask[2]) * qs[1] + px,
                                 planes.data[1] + (py & planes.mask[1]) * qs[2] + (px - 1),
                                 planes.data[0] + (py & planes.mask[0]) * qs[3] + px};
    ring(b.a, b.a_stride, q, qs, 0u, b.w, b.h, b.sx, b.sy, half[j]);
  }
  // The best of each half-pixel ring and where the quarter-pixel ring around it reads: the
  // centre on the grid of half pixels, q[i] the upper-left, upper, left and centre samples;
  // corners from the samples beside them when the centre's coordinates are both whole or both half.
  int32_t cx[N], cy[N];
  uint32_t match[N], mode[N];
  const uint32_t *best[N];
  const uint8_t *q[N][4];
  ptrdiff_t qs[N][4];
  for (int j = 0; j < N; ++j) {
    const RingBlock &b = blocks[j];
    uint32_t won_match;
    const int won = ring_winner(half[j], b.recip, b.vx, b.vy, 2, match[j] = match_of(b.recip, half[j][8]), &won_match);
    cx[j] = b.vx, cy[j] = b.vy, best[j] = half[j][8];
    if (won >= 0) cx[j] += 2 * kDx[won], cy[j] += 2 * kDy[won], match[j] = won_match, best[j] = half[j][won];
    const int32_t hx = 2 * b.x + (cx[j] >> 1), hy = 2 * b.y + (cy[j] >> 1);
    q[j][0] = at(planes, hx - 1, hy - 1, &qs[j][0]), q[j][1] = at(planes, hx, hy - 1, &qs[j][1]);
    q[j][2] = at(planes, hx - 1, hy, &qs[j][2]), q[j][3] = at(planes, hx, hy, &qs[j][3]);
    mode[j] = ((hx ^ hy) & 1) ? 2u : 1u;
  }
  for (int j = 0; j < N; ++j) {
    const RingBlock &b = blocks[j];
    ring(b.a, b.a_stride, q[j], qs[j], mode[j], b.w, b.h, b.sx, b.sy, quarter[j]);
  }
  for (int j = 0; j < N; ++j) {
    uint32_t won_match;
    const int won = ring_winner(quarter[j], blocks[j].recip, cx[j], cy[j], 1, match[j], &won_match);
    if (won >= 0) cx[j] += kDx[won], cy[j] += kDy[won], best[j] = quarter[j][won];
    out[j].vx = cx[j], out[j].vy = cy[j];
    std::memcpy(out[j].sum, best[j], sizeof out[j].sum);
  }
}

}  // namespace
}  // namespace framedsp
