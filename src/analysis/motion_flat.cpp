// The flatness of the final blocks that nest in level 0's search blocks (mark_flat): each final
// block's own detail from one activity kernel call a search block, or a strip of them.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "analysis/motion_search.h"

namespace framedsp {
namespace {

// Columns the strip activity kernel takes at once: a multiple of 8 and 16, the widths of search
// blocks that hold 8-wide final blocks.
constexpr int32_t kStrip = 1024;

// The flat bytes of n search blocks of row sr from column c0, each with a right and a lower
// neighbour inside the picture, when the final blocks are 8 wide: one strip of activity sums.
void mark_flat_strip(const MotionKernels &k, const FinalStage &f, int32_t sr, int32_t c0, int32_t n, int32_t nx,
                     int32_t ny) {
  const BlockGrid &g = f.grid, &sg = f.search_grid;
  uint32_t top[kStrip / 8], bottom[kStrip / 8];
  const uint8_t *a = f.a.data + static_cast<ptrdiff_t>(sr) * sg.bh * f.a.stride + c0 * sg.bw;
  k.activity8(a, f.a.stride, static_cast<uint32_t>(n * sg.bw), static_cast<uint32_t>(sg.bh),
              static_cast<uint32_t>(g.bh), top, bottom);
  // Every block is whole: parts of 8 x g.bh above and 8 x (sg.bh - g.bh) below.
  const uint32_t upper = kFlatActivity * 2 * static_cast<uint32_t>(8 * g.bh);
  const uint32_t lower = kFlatActivity * 2 * static_cast<uint32_t>(8 * (sg.bh - g.bh));
  const uint32_t parts = (nx > 1 ? 3u : 1u) * (ny > 1 ? 5u : 1u);
  uint8_t *out = f.flat + static_cast<size_t>(sr) * sg.cols + c0;
  for (int32_t j = 0; j < n; ++j) {
    const uint32_t *t = top + j * nx, *b = bottom + j * nx;
    uint32_t bits = (t[0] < upper ? 1u : 0u) | (b[0] < lower ? 4u : 0u);
    if (nx > 1) bits |= (t[1] < upper ? 2u : 0u) | (b[1] < lower ? 8u : 0u);
    bits &= parts;
    out[j] = static_cast<uint8_t>(bits | (bits == parts ? kAllFlat : 0u));
  }
}

// The flat bytes of the search blocks whose final blocks nest in them.  Blocks with a right and a
// lower neighbour inside the picture (all but the last column and row) take the parts' activity in
// one pass, with 8-wide final blocks a strip of blocks at a time.
void mark_flat(const MotionKernels &k, const FinalStage &f, int32_t nx, int32_t ny) {
  const BlockGrid &g = f.grid, &sg = f.search_grid;
  const int32_t per_strip = kStrip / sg.bw;
  for (int32_t sr = 0; sr < sg.rows; ++sr) {
    int32_t sc = 0;
    if (g.bw == 8 && sr + 1 < sg.rows) {
      for (; sc + 1 < sg.cols; sc += per_strip) mark_flat_strip(k, f, sr, sc, std::min(per_strip, sg.cols - 1 - sc), nx, ny);
      sc = sg.cols - 1;
    }
    for (; sc < sg.cols; ++sc) {
      const MotionBlock sb = make_block(f.a, sg, sc, sr);
      const uint32_t sx = static_cast<uint32_t>(std::min(g.bw, sb.w)), sy = static_cast<uint32_t>(std::min(g.bh, sb.h));
      uint32_t act[4];
      const uint8_t *a = sb.a;
      ptrdiff_t stride = sb.a_stride;
      alignas(16) uint8_t edged[kFetchStride * (kSadMaxSide + 1)];
      if (sc + 1 == sg.cols || sr + 1 == sg.rows) {
        // A column and a line more, those beyond the picture repeating its edge: the differences
        // across them are 0, as flat() leaves them out.
        if (sb.w == 16) {  // whole blocks: plain line copies, the edge line or column again
          const int32_t below = sr + 1 < sg.rows ? sb.h : sb.h - 1, right = sc + 1 < sg.cols ? 16 : 15;
          for (int32_t j = 0; j <= sb.h; ++j) {
            const uint8_t *line = sb.a + std::min(j, below) * sb.a_stride;
            std::memcpy(edged + j * kFetchStride, line, 16);
            edged[j * kFetchStride + 16] = line[right];
          }
        } else {
          fetch_clamped(f.a, sb.x, sb.y, sb.w + 1, sb.h + 1, edged);
        }
        a = edged, stride = kFetchStride;
      }
      k.activity4(a, stride, static_cast<uint32_t>(sb.w), static_cast<uint32_t>(sb.h), sx, sy, act);
      const int32_t pw[2] = {static_cast<int32_t>(sx), sb.w - static_cast<int32_t>(sx)};
      const int32_t ph[2] = {static_cast<int32_t>(sy), sb.h - static_cast<int32_t>(sy)};
      uint32_t bits = 0, parts = 0;
      for (int q = 0; q < 4; ++q) {
        const int32_t qc = q & 1, qr = q >> 1;
        if (qc >= nx || qr >= ny || pw[qc] <= 0 || ph[qr] <= 0) continue;
        // The part's sample pairs as flat() counts them (none across the picture's edge).
        const int32_t x = sb.x + (qc ? pw[0] : 0), y = sb.y + (qr ? ph[0] : 0);
        const int32_t wh = x + pw[qc] < f.a.width ? pw[qc] : pw[qc] - 1;
        const int32_t hv = y + ph[qr] < f.a.height ? ph[qr] : ph[qr] - 1;
        const bool is_flat = act[q] < kFlatActivity * static_cast<uint32_t>(wh * ph[qr] + pw[qc] * hv);
        bits |= is_flat ? 1u << q : 0u;
        parts |= 1u << q;
      }
      f.flat[sr * sg.cols + sc] = static_cast<uint8_t>(bits | (bits == parts ? kAllFlat : 0u));
    }
  }
}

}  // namespace

bool mark_flat(const MotionKernels &k, const FinalStage &f) {
  const int32_t nx = nesting(f.search_grid.bw, f.grid.bw), ny = nesting(f.search_grid.bh, f.grid.bh);
  if (nx && ny) mark_flat(k, f, nx, ny);
  return nx && ny;
}

}  // namespace framedsp
