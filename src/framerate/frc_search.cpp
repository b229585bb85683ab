// Block matching for the converter: the quarter-pixel match cost, the refinement of bad blocks,
// and the converter's own estimation when the caller gives no field (a coarse-to-fine block
// search over 2x2-averaged pyramids, then quarter-pixel refinement, both directions).
#include <algorithm>
#include <cstring>

#include "frame/status.h"
#include "frame/work_memory.h"
#include "framerate/frc_internal.h"

namespace framedsp {
namespace {

constexpr int kMaxLevels = 5;
constexpr uint32_t kSceneThreshold = 400;  // cost per 64 pixels above which a block is bad
constexpr int kRefineRange = 8;            // whole pixels around the best candidate
constexpr int32_t kSmoothness = 4;         // cost per level pixel away from the prediction

struct Image {
  const uint8_t *p;
  int w, h;
  ptrdiff_t stride;
};

uint16_t cost64(uint32_t sad, int n) { return static_cast<uint16_t>(std::min<uint64_t>(uint64_t(sad) * 64 / n, 65535)); }

// Whole-pixel SAD of the w x h block at (x, y) of `a` against `b` at (x + vx, y + vy), edges repeated.
// Rows [y, y + h) and columns [x, x + w) of b with its edges repeated, into `dst` (rows 48 apart).
constexpr int kEdgeStride = 48;
void edge_block(const uint8_t *b, int width, int height, ptrdiff_t stride, int x, int y, int w, int h, uint8_t *dst) {
  for (int r = 0; r < h; ++r) {
    const uint8_t *line = b + clamp_i(y + r, 0, height - 1) * stride;
    for (int c = 0; c < w; ++c) dst[r * kEdgeStride + c] = line[clamp_i(x + c, 0, width - 1)];
  }
}

// Whole-pixel SAD of the w x h block at (x, y) of `a` against `b` at (x + vx, y + vy), edges repeated.
uint32_t block_sad(const Image &a, const Image &b, int x, int y, int w, int h, int vx, int vy, const FrcKernels &k) {
  const int bx = x + vx, by = y + vy;
  if (bx >= 0 && by >= 0 && bx + w <= b.w && by + h <= b.h)
    return k.sad(a.p + y * a.stride + x, a.stride, b.p + by * b.stride + bx, b.stride, w, h);
  alignas(16) uint8_t block[(32 + 1) * kEdgeStride];
  edge_block(b.p, b.w, b.h, b.stride, bx, by, w, h, block);
  return k.sad(a.p + y * a.stride + x, a.stride, block, kEdgeStride, w, h);
}

// Best whole-pixel vector of one block: the candidates, then a full window when the best one
// matches worse than `threshold` per pixel, otherwise a one-pixel diamond walk within the window.
Vec search_block(const Image &a, const Image &b, int x, int y, int w, int h, const Vec *cand, int n, Vec pred,
                 int range_x, int range_y, uint32_t threshold, bool around_zero, const FrcKernels &k,
                 uint32_t *sad_out) {
  const int pixels = w * h;
  auto cost = [&](Vec v) {
    return block_sad(a, b, x, y, w, h, v.x, v.y, k) * 64 / uint32_t(pixels) +
           uint32_t(kSmoothness * (std::abs(v.x - pred.x) + std::abs(v.y - pred.y)));
  };
  Vec best = cand[0];
  uint32_t best_cost = UINT32_MAX;
  for (int i = 0; i < n; ++i) {
    const uint32_t c = cost(cand[i]);
    if (c < best_cost) best_cost = c, best = cand[i];
  }
  const Vec centre = best;
  auto in_window = [&](Vec v) { return std::abs(v.x - centre.x) <= range_x && std::abs(v.y - centre.y) <= range_y; };
  if (best_cost > threshold * 64) {
    for (int pass = 0; pass < (around_zero ? 2 : 1); ++pass) {
      const Vec o = pass ? Vec{0, 0} : centre;
      for (int dy = -range_y; dy <= range_y; ++dy)
        for (int dx = -range_x; dx <= range_x; ++dx) {
          const Vec v{o.x + dx, o.y + dy};
          const uint32_t c = cost(v);
          if (c < best_cost) best_cost = c, best = v;
        }
    }
  } else {
    static const Vec kDiamond[4] = {{1, 0}, {-1, 0}, {0, 1}, {0, -1}};
    for (bool moved = true; moved;) {
      moved = false;
      const Vec from = best;
      for (const Vec d : kDiamond) {
        const Vec v{from.x + d.x, from.y + d.y};
        if (!in_window(v)) continue;
        const uint32_t c = cost(v);
        if (c < best_cost) best_cost = c, best = v, moved = true;
      }
    }
  }
  *sad_out = block_sad(a, b, x, y, w, h, best.x, best.y, k);
  return best;
}

// Half- then quarter-pixel steps around a quarter-pixel vector.
Vec refine_qpel(const Image &a, const Image &b, int x, int y, int w, int h, Vec v, const FrcKernels &k,
                uint32_t *sad_out) {
  uint32_t best = qpel_sad(a.p, b.p, b.w, b.h, b.stride, x, y, w, h, v.x, v.y, k);
  for (int step = 2; step >= 1; --step) {
    const Vec from = v;
    for (int dy = -step; dy <= step; dy += step)
      for (int dx = -step; dx <= step; dx += step) {
        if (!dx && !dy) continue;
        const uint32_t s = qpel_sad(a.p, b.p, b.w, b.h, b.stride, x, y, w, h, from.x + dx, from.y + dy, k);
        if (s < best) best = s, v = {from.x + dx, from.y + dy};
      }
  }
  *sad_out = best;
  return v;
}

void half_image(const Image &src, uint8_t *dst, int w, int h) {
  for (int y = 0; y < h; ++y) {
    const uint8_t *l0 = src.p + 2 * y * src.stride, *l1 = l0 + src.stride;
    for (int x = 0; x < w; ++x)
      dst[y * w + x] = uint8_t((l0[2 * x] + l0[2 * x + 1] + l1[2 * x] + l1[2 * x + 1] + 2) >> 2);
  }
}

struct Direction {
  const Image *from, *to;  // pyramids, level 0 first
};

// One direction of the estimation into `entries` (cols x rows final blocks).
bool estimate_direction(const Direction &d, int levels, const EstimateSettings &s, int cols, int rows,
                        DSP_MOTION_VECTOR *entries, const FrcKernels &k) {
  size_t most = 0;
  for (int lv = 0; lv < levels; ++lv)
    most = std::max(most, size_t((d.from[lv].w + s.level_block_w[lv] - 1) / s.level_block_w[lv]) *
                              ((d.from[lv].h + s.level_block_h[lv] - 1) / s.level_block_h[lv]));
  WorkBlock work;
  if (!work.allocate(2 * most * sizeof(Vec) + 16)) return false;
  Vec *parent = reinterpret_cast<Vec *>(work.aligned()), *current = parent + most;
  int pcols = 0, prows = 0, pbw = 1, pbh = 1;
  for (int lv = levels - 1; lv >= 0; --lv) {
    const Image &a = d.from[lv], &b = d.to[lv];
    const int bw = int(s.level_block_w[lv]), bh = int(s.level_block_h[lv]);
    const int lc = (a.w + bw - 1) / bw, lr = (a.h + bh - 1) / bh;
    for (int r = 0; r < lr; ++r)
      for (int c = 0; c < lc; ++c) {
        const int x = c * bw, y = r * bh, w = std::min(bw, a.w - x), h = std::min(bh, a.h - y);
        Vec cand[7] = {{0, 0}};
        int n = 1;
        Vec pred{0, 0};
        if (lv < levels - 1) {
          const int pc = clamp_i((x + w / 2) / 2 / pbw, 0, pcols - 1), pr = clamp_i((y + h / 2) / 2 / pbh, 0, prows - 1);
          auto pv = [&](int cc, int rr) {
            const Vec v = parent[clamp_i(rr, 0, prows - 1) * pcols + clamp_i(cc, 0, pcols - 1)];
            return Vec{2 * v.x, 2 * v.y};
          };
          pred = pv(pc, pr);
          cand[n++] = pred, cand[n++] = pv(pc - 1, pr), cand[n++] = pv(pc + 1, pr);
          cand[n++] = pv(pc, pr - 1), cand[n++] = pv(pc, pr + 1);
        }
        if (c > 0) cand[n++] = current[r * lc + c - 1];
        uint32_t sad;
        current[r * lc + c] = search_block(a, b, x, y, w, h, cand, n, pred, int(s.range_x[lv]), int(s.range_y[lv]),
                                           s.threshold[lv], lv == levels - 1, k, &sad);
      }
    std::swap(parent, current);
    pcols = lc, prows = lr, pbw = bw, pbh = bh;
  }
  // Final blocks: the cheapest of the 3x3 level-0 vectors around each, then quarter pixels.
  const Image &a = d.from[0], &b = d.to[0];
  for (int r = 0; r < rows; ++r)
    for (int c = 0; c < cols; ++c) {
      const int x = c * int(s.block_w), y = r * int(s.block_h);
      const int w = std::min(int(s.block_w), a.w - x), h = std::min(int(s.block_h), a.h - y);
      const int pc = (x + w / 2) / pbw, pr = (y + h / 2) / pbh;
      Vec best{0, 0};
      uint32_t best_sad = UINT32_MAX;
      for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) {
          const Vec v = parent[clamp_i(pr + dy, 0, prows - 1) * pcols + clamp_i(pc + dx, 0, pcols - 1)];
          const uint32_t sad = block_sad(a, b, x, y, w, h, v.x, v.y, k);
          if (sad < best_sad) best_sad = sad, best = v;
        }
      uint32_t sad;
      const Vec q = refine_qpel(a, b, x, y, w, h, {best.x * 4, best.y * 4}, k, &sad);
      DSP_MOTION_VECTOR &e = entries[r * cols + c];
      e.sX = int16_t(clamp_i(q.x, -32768, 32767));
      e.sY = int16_t(clamp_i(q.y, -32768, 32767));
      e.usCost = cost64(sad, w * h);
      e.usFlags = e.usCost > kSceneThreshold ? DSP_MV_BAD : 0;
      const int bx = x + floor_div(q.x, 4), by = y + floor_div(q.y, 4);
      if (bx < 0 || by < 0 || bx + w + 1 > b.w || by + h + 1 > b.h) e.usFlags |= DSP_MV_OUTSIDE;
    }
  return true;
}

}  // namespace

uint32_t qpel_sad(const uint8_t *a, const uint8_t *b, int width, int height, ptrdiff_t stride, int x0, int y0, int w,
                  int h, int vx, int vy, const FrcKernels &k) {
  const int ix = floor_div(vx, 4), iy = floor_div(vy, 4), fx = vx - 4 * ix, fy = vy - 4 * iy;
  const int bx = x0 + ix, by = y0 + iy;
  const bool inside = bx >= 0 && by >= 0 && bx + w + 1 <= width && by + h + 1 <= height;
  if (inside) {
    const uint8_t *pa = a + y0 * stride + x0, *pb = b + by * stride + bx;
    return !fx && !fy ? k.sad(pa, stride, pb, stride, w, h) : k.qsad(pa, stride, pb, stride, w, h, fx, fy);
  }
  alignas(16) uint8_t block[(32 + 1) * kEdgeStride];
  edge_block(b, width, height, stride, bx, by, w + 1, h + 1, block);
  const uint8_t *pa = a + y0 * stride + x0;
  return !fx && !fy ? k.sad(pa, stride, block, kEdgeStride, w, h) : k.qsad(pa, stride, block, kEdgeStride, w, h, fx, fy);
}

void refine_field(const uint8_t *a, const uint8_t *b, int width, int height, ptrdiff_t stride, const FieldView &field,
                  uint32_t threshold, DSP_MOTION_VECTOR *fwd, DSP_MOTION_VECTOR *bwd, const FrcKernels &k) {
  for (int dir = 0; dir < (bwd ? 2 : 1); ++dir) {
    const Image from{dir ? b : a, width, height, stride}, to{dir ? a : b, width, height, stride};
    const DSP_MOTION_VECTOR *orig = dir ? field.bwd : field.fwd;
    DSP_MOTION_VECTOR *out = dir ? bwd : fwd;
    for (int r = 0; r < field.rows; ++r)
      for (int c = 0; c < field.cols; ++c) {
        const DSP_MOTION_VECTOR &e = orig[r * field.cols + c];
        if (e.usCost <= threshold) continue;
        const int x = c * field.bw, y = r * field.bh;
        const int w = std::min(field.bw, width - x), h = std::min(field.bh, height - y);
        auto whole = [&](int cc, int rr) {
          const DSP_MOTION_VECTOR &m = orig[clamp_i(rr, 0, field.rows - 1) * field.cols + clamp_i(cc, 0, field.cols - 1)];
          return Vec{floor_div(m.sX + 2, 4), floor_div(m.sY + 2, 4)};
        };
        const Vec cand[6] = {whole(c, r), whole(c - 1, r), whole(c + 1, r), whole(c, r - 1), whole(c, r + 1), {0, 0}};
        uint32_t sad;
        const Vec v = search_block(from, to, x, y, w, h, cand, 6, cand[0], kRefineRange, kRefineRange, 0, false, k, &sad);
        const Vec q = refine_qpel(from, to, x, y, w, h, {v.x * 4, v.y * 4}, k, &sad);
        DSP_MOTION_VECTOR &o = out[r * field.cols + c];
        o.sX = int16_t(clamp_i(q.x, -32768, 32767));
        o.sY = int16_t(clamp_i(q.y, -32768, 32767));
        o.usCost = cost64(sad, w * h);
        o.usFlags = uint16_t((o.usFlags & ~DSP_MV_BAD) | DSP_MV_REFINED);
      }
  }
}

size_t estimated_field_bytes(int width, int height, const EstimateSettings &s) {
  return DSP_VECTOR_FIELD_BYTES(uint32_t(width), uint32_t(height), s.block_w, s.block_h);
}

int32_t estimate_field(const uint8_t *a, const uint8_t *b, int width, int height, ptrdiff_t stride,
                       const EstimateSettings &s, void *field, const FrcKernels &k) {
  int levels = int(std::min<uint32_t>(s.levels, kMaxLevels));
  while (levels > 1 && ((width >> (levels - 1)) < 16 || (height >> (levels - 1)) < 16)) --levels;
  size_t bytes = 0;
  for (int lv = 1; lv < levels; ++lv) bytes += 2 * size_t(width >> lv) * size_t(height >> lv);
  WorkBlock pyramids;
  if (bytes && !pyramids.allocate(bytes)) return kOutOfMemory;
  Image pa[kMaxLevels], pb[kMaxLevels];
  pa[0] = {a, width, height, stride};
  pb[0] = {b, width, height, stride};
  uint8_t *next = static_cast<uint8_t *>(pyramids.data());
  for (int lv = 1; lv < levels; ++lv) {
    const int w = width >> lv, h = height >> lv;
    for (Image *p : {pa, pb}) {
      half_image(p[lv - 1], next, w, h);
      p[lv] = {next, w, h, w};
      next += size_t(w) * h;
    }
  }
  const int cols = (width + int(s.block_w) - 1) / int(s.block_w), rows = (height + int(s.block_h) - 1) / int(s.block_h);
  auto *hd = static_cast<DSP_VECTOR_FIELD *>(field);
  auto *fwd = reinterpret_cast<DSP_MOTION_VECTOR *>(static_cast<uint8_t *>(field) + DSP_VECTOR_FIELD_HEADER_BYTES);
  DSP_MOTION_VECTOR *bwd = fwd + size_t(cols) * rows;
  if (!estimate_direction({pa, pb}, levels, s, cols, rows, fwd, k) ||
      !estimate_direction({pb, pa}, levels, s, cols, rows, bwd, k))
    return kOutOfMemory;
  uint32_t bad[2] = {0, 0};
  for (int dir = 0; dir < 2; ++dir) {
    DSP_MOTION_VECTOR *e = dir ? bwd : fwd;
    const DSP_MOTION_VECTOR *other = dir ? fwd : bwd;
    for (int r = 0; r < rows; ++r)
      for (int c = 0; c < cols; ++c) {
        DSP_MOTION_VECTOR &m = e[r * cols + c];
        const int cx = c * int(s.block_w) + int(s.block_w) / 2 + floor_div(m.sX, 4);
        const int cy = r * int(s.block_h) + int(s.block_h) / 2 + floor_div(m.sY, 4);
        const DSP_MOTION_VECTOR &o = other[clamp_i(cy / int(s.block_h), 0, rows - 1) * cols +
                                           clamp_i(cx / int(s.block_w), 0, cols - 1)];
        if (std::abs(o.sX + m.sX) > 4 || std::abs(o.sY + m.sY) > 4) m.usFlags |= DSP_MV_INCONSISTENT;
        bad[dir] += (m.usFlags & DSP_MV_BAD) != 0;
      }
  }
  *hd = DSP_VECTOR_FIELD{uint32_t(estimated_field_bytes(width, height, s)), uint32_t(width), uint32_t(height),
                         s.block_w, s.block_h, uint32_t(cols), uint32_t(rows),
                         DSP_VECTOR_FIELD_FORWARD | DSP_VECTOR_FIELD_BACKWARD, bad[0], bad[1], kSceneThreshold, 0};
  return kOk;
}

}  // namespace framedsp
