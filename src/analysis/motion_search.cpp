#include "analysis/motion_search.h"

#include <algorithm>
#include <cstring>

namespace framedsp {
namespace {

int32_t clamp(int32_t v, int32_t lo, int32_t hi) { return v < lo ? lo : (v > hi ? hi : v); }

bool inside(const MotionPlane &p, int32_t x, int32_t y, int32_t w, int32_t h) {
  return x >= 0 && y >= 0 && x + w <= p.width && y + h <= p.height;
}

const uint8_t *at(const MotionPlane &p, int32_t x, int32_t y) { return p.data + y * p.stride + x; }

// n bytes from src to dst: 16-byte pieces, the last one overlapping; shorter runs in two
// overlapping pieces or byte by byte (no call for the short runs of block edges).
inline void copy_run(uint8_t *dst, const uint8_t *src, int32_t n) {
  if (n >= 16) {
    int32_t i = 0;
    for (; i + 16 <= n; i += 16) std::memcpy(dst + i, src + i, 16);
    if (i < n) std::memcpy(dst + n - 16, src + n - 16, 16);
  } else if (n >= 8) {
    std::memcpy(dst, src, 8), std::memcpy(dst + n - 8, src + n - 8, 8);
  } else if (n >= 4) {
    std::memcpy(dst, src, 4), std::memcpy(dst + n - 4, src + n - 4, 4);
  } else {
    if (n > 0) dst[0] = src[0];
    if (n > 1) dst[1] = src[1];
    if (n > 2) dst[2] = src[2];
  }
}

// n (>= 0) copies of v at dst, pieced as copy_run.
inline void fill_run(uint8_t *dst, uint8_t v, int32_t n) {
  const uint64_t same = v * uint64_t{0x0101010101010101};
  if (n >= 8) {
    int32_t i = 0;
    for (; i + 8 <= n; i += 8) std::memcpy(dst + i, &same, 8);
    if (i < n) std::memcpy(dst + n - 8, &same, 8);
  } else if (n >= 4) {
    std::memcpy(dst, &same, 4), std::memcpy(dst + n - 4, &same, 4);
  } else {
    if (n > 0) dst[0] = v;
    if (n > 1) dst[1] = v;
    if (n > 2) dst[2] = v;
  }
}

// The w x h samples from (x, y) of a plane into out, lines `stride` apart: lines and columns
// clamped to the plane (edges repeated).  The columns clamp alike on every line.
void clamped_block(const MotionPlane &p, int32_t x, int32_t y, int32_t w, int32_t h, uint8_t *out, ptrdiff_t stride) {
  const int32_t lead = clamp(-x, 0, w), tail = clamp(p.width - x, lead, w);
  for (int32_t j = 0; j < h; ++j, out += stride) {
    const uint8_t *row = at(p, 0, clamp(y + j, 0, p.height - 1));
    if (lead == 0 && tail == w) {
      copy_run(out, row + x, w);
      continue;
    }
    fill_run(out, row[0], lead);
    copy_run(out + lead, row + x + lead, tail - lead);
    fill_run(out + tail, row[p.width - 1], w - tail);
  }
}

}  // namespace

void fetch_clamped(const MotionPlane &p, int32_t x, int32_t y, int32_t w, int32_t h, uint8_t *out) {
  clamped_block(p, x, y, w, h, out, kFetchStride);
}

BlockGrid make_grid(int32_t width, int32_t height, int32_t bw, int32_t bh) {
  BlockGrid g;
  g.bw = bw;
  g.bh = bh;
  g.cols = (width + bw - 1) / bw;
  g.rows = (height + bh - 1) / bh;
  return g;
}

uint32_t block_sad_edge(const MotionKernels &k, const MotionBlock &block, const MotionPlane &target,
                        int32_t dx, int32_t dy) {
  const int32_t x = block.x + dx, y = block.y + dy;
  const uint32_t w = static_cast<uint32_t>(block.w), h = static_cast<uint32_t>(block.h);
  alignas(16) uint8_t fetched[kFetchStride * kSadMaxSide];
  fetch_clamped(target, x, y, block.w, block.h, fetched);
  return k.sad(block.a, block.a_stride, fetched, kFetchStride, w, h);
}

uint32_t block_sad_q(const MotionKernels &k, const MotionBlock &block, const MotionPlane &target,
                     int32_t qx, int32_t qy) {
  if (((qx | qy) & 3) == 0) return block_sad(k, block, target, qx >> 2, qy >> 2);
  const int32_t x = block.x + (qx >> 2), y = block.y + (qy >> 2);
  const uint32_t w = static_cast<uint32_t>(block.w), h = static_cast<uint32_t>(block.h);
  const uint32_t fx = static_cast<uint32_t>(qx & 3), fy = static_cast<uint32_t>(qy & 3);
  if (inside(target, x, y, block.w + 1, block.h + 1)) {
    return k.sad_q(block.a, block.a_stride, at(target, x, y), target.stride, w, h, fx, fy);
  }
  alignas(16) uint8_t fetched[kFetchStride * (kSadMaxSide + 1)];
  fetch_clamped(target, x, y, block.w + 1, block.h + 1, fetched);
  return k.sad_q(block.a, block.a_stride, fetched, kFetchStride, w, h, fx, fy);
}

void block_sad_q4(const MotionKernels &k, const MotionBlock &block, const MotionPlane &target,
                  int32_t qx, int32_t qy, uint32_t sx, uint32_t sy, uint32_t out[4]) {
  const int32_t x = block.x + (qx >> 2), y = block.y + (qy >> 2);
  const uint32_t w = static_cast<uint32_t>(block.w), h = static_cast<uint32_t>(block.h);
  const uint32_t fx = static_cast<uint32_t>(qx & 3), fy = static_cast<uint32_t>(qy & 3);
  const int32_t more = (fx | fy) ? 1 : 0;  // a blend reads a column and a line more
  if (inside(target, x, y, block.w + more, block.h + more)) {
    return k.sad_q4(block.a, block.a_stride, at(target, x, y), target.stride, w, h, fx, fy, sx, sy, out);
  }
  alignas(16) uint8_t fetched[kFetchStride * (kSadMaxSide + 1)];
  fetch_clamped(target, x, y, block.w + more, block.h + more, fetched);
  k.sad_q4(block.a, block.a_stride, fetched, kFetchStride, w, h, fx, fy, sx, sy, out);
}

namespace {

ptrdiff_t plane_stride(int32_t width) { return (static_cast<ptrdiff_t>(width) + 31) & ~ptrdiff_t{31}; }

// One line of `picture` with two samples of its edge repeated before it and three after it.
void padded_line(const MotionPlane &picture, int32_t y, uint8_t *out) {
  const uint8_t *row = at(picture, 0, y);
  const int32_t w = picture.width;
  out[0] = out[1] = row[0];
  std::memcpy(out + 2, row, static_cast<size_t>(w));
  out[w + 2] = out[w + 3] = out[w + 4] = row[w - 1];
}

}  // namespace

int32_t HalfPlanes::window(int32_t height, int32_t span) {
  int32_t slots = 1;
  while (slots < span) slots *= 2;
  return slots < height ? slots : 0;
}

size_t HalfPlanes::bytes(int32_t width, int32_t height, int32_t window, int32_t run) {
  const size_t lines = window ? static_cast<size_t>(window + run) : static_cast<size_t>(height);
  return 3 * static_cast<size_t>(plane_stride(width)) * lines + plane_stride(width + 5);
}

HalfPlaneMaker::HalfPlaneMaker(const MotionKernels &k, const MotionPlane &picture, uint8_t *memory, HalfPlanes *out,
                               int32_t window, int32_t run)
    : k_(k), out_(out), window_(window), run_(window ? run : 0) {
  out->p[0] = picture;
  out->mask = window ? window - 1 : -1;
  if (!memory) return;  // no sub-pixel planes wanted
  const ptrdiff_t stride = plane_stride(picture.width);
  const size_t plane = static_cast<size_t>(stride) * static_cast<size_t>(window ? window + run_ : picture.height);
  for (int i = 1; i < 4; ++i) out->p[i] = MotionPlane{memory + (i - 1) * plane, stride, picture.width, picture.height};
  line_ = memory + 3 * plane;
}

uint8_t *HalfPlaneMaker::slot(int i, int32_t y) const {
  return const_cast<uint8_t *>(out_->p[i].data) + (y & out_->mask) * out_->p[i].stride;
}

void HalfPlaneMaker::keep(int i, int32_t y) const {
  const int32_t s = y & out_->mask;
  if (s < run_) std::memcpy(slot(i, y) + window_ * out_->p[i].stride, slot(i, y), static_cast<size_t>(out_->p[i].width));
}

void HalfPlaneMaker::through(int32_t line) {
  const MotionPlane &picture = out_->p[0];
  const int32_t last = std::min(line, picture.height - 1), height = picture.height;
  const size_t width = static_cast<size_t>(picture.width);
  // Line y of p[3] filters lines y - 2 .. y + 3 of p[1]: it follows three lines behind, while
  // they are still in the cache.
  auto both = [&](int32_t y) {
    const uint8_t *r[6];
    for (int32_t i = 0; i < 6; ++i) r[i] = slot(1, clamp(y - 2 + i, 0, height - 1));
    k_.half_v(r, slot(3, y), width);
    keep(3, y);
  };
  for (; across_ <= std::min(last + 3, height - 1); ++across_) {
    const int32_t y = across_;
    padded_line(picture, y, line_);
    k_.half_h(line_ + 2, slot(1, y), width);
    keep(1, y);
    const uint8_t *r[6];
    for (int32_t i = 0; i < 6; ++i) r[i] = at(picture, 0, clamp(y - 2 + i, 0, height - 1));
    k_.half_v(r, slot(2, y), width);
    keep(2, y);
    for (; both_ <= std::min(y - 3, last); ++both_) both(both_);
  }
  for (; both_ <= last; ++both_) both(both_);
}

void make_half_planes(const MotionKernels &k, const MotionPlane &picture, uint8_t *memory, HalfPlanes *out) {
  HalfPlaneMaker(k, picture, memory, out).through(picture.height - 1);
}

namespace {

// The filters take whole steps of their widest kernels (kSubPatchBytes has room for the samples
// past the end that this computes and does not use).
size_t whole_steps(int32_t n) { return static_cast<size_t>((n + kSubStep - 1) & ~(kSubStep - 1)); }

// Lines [y, y + n) of half plane `plane` at columns [x, x + w), all inside the plane, into out
// (kSubPatchBytes) with stride s (>= w + 5; the columns beyond w are scratch).  The picture lines the
// filters read are laid one after another s apart, so that one kernel call filters all of them.
void half_core(const MotionKernels &k, const MotionPlane &pic, int plane, int32_t x, int32_t y, int32_t w, int32_t n,
               ptrdiff_t s, uint8_t *out) {
  alignas(16) uint8_t lines[kSubPatchBytes], across[kSubPatchBytes];
  const uint8_t *r[6];
  const size_t count = whole_steps(static_cast<int32_t>((n - 1) * s + w));
  if (plane == 2) {
    clamped_block(pic, x, y - 2, w, n + 5, lines, s);
    for (int i = 0; i < 6; ++i) r[i] = lines + i * s;
    k.half_v(r, out, count);
    return;
  }
  // Planes 1 and 3 filter across picture lines: two samples before each column and three after.
  const int32_t m = plane == 1 ? n : n + 5, first = plane == 1 ? y : y - 2;
  clamped_block(pic, x - 2, first, w + 5, m, lines, s);
  if (plane == 1) {
    k.half_h(lines + 2, out, count);
    return;
  }
  k.half_h(lines + 2, across, whole_steps(static_cast<int32_t>((m - 1) * s + w)));
  for (int i = 0; i < 6; ++i) r[i] = across + i * s;
  k.half_v(r, out, count);
}

}  // namespace

void half_patch(const MotionKernels &k, const MotionPlane &picture, int plane, int32_t x, int32_t y, int32_t w,
                int32_t h, uint8_t *out, ptrdiff_t *stride) {
  // The part of the patch inside the plane (at least one sample of it, its nearest edge).
  const int32_t x0 = clamp(x, 0, picture.width - 1), x1 = clamp(x + w - 1, 0, picture.width - 1) + 1;
  const int32_t y0 = clamp(y, 0, picture.height - 1), y1 = clamp(y + h - 1, 0, picture.height - 1) + 1;
  const ptrdiff_t s = (x1 - x0 + 5 + 7) & ~7;
  if (x0 == x && y0 == y && x1 == x + w && y1 == y + h) {
    half_core(k, picture, plane, x, y, w, h, s, out);
    *stride = s;
    return;
  }
  alignas(16) uint8_t core[kSubPatchBytes];
  half_core(k, picture, plane, x0, y0, x1 - x0, y1 - y0, s, core);
  const MotionPlane inside{core, s, x1 - x0, y1 - y0};
  clamped_block(inside, x - x0, y - y0, w, h, out, kSubStride);
  *stride = kSubStride;
}

SubSource sub_source(const MotionBlock &block, int32_t qx, int32_t qy) {
  // Positions on the grid of half pixels (2x + 1 lies halfway between x and x + 1).
  const int32_t fx = qx & 3, fy = qy & 3, hx = 2 * block.x + (qx >> 1), hy = 2 * block.y + (qy >> 1);
  int32_t x0 = hx, y0 = hy, x1 = hx + (qx & 1), y1 = hy + (qy & 1);
  if ((fx & 1) && (fy & 1)) {  // diagonal quarters: the half-pixel samples on the nearest line and column
    x0 = 2 * block.x + 2 * (qx >> 2) + 1;
    y0 = 2 * block.y + 2 * (qy >> 2) + (fy == 3 ? 2 : 0);
    x1 = 2 * block.x + 2 * (qx >> 2) + (fx == 3 ? 2 : 0);
    y1 = 2 * block.y + 2 * (qy >> 2) + 1;
  }
  return SubSource{{((y0 & 1) << 1) | (x0 & 1), ((y1 & 1) << 1) | (x1 & 1)}, {x0 >> 1, x1 >> 1}, {y0 >> 1, y1 >> 1}};
}

namespace {

// Every picture sample the w x h samples of both sources derive from lies inside the picture.
bool sub_reads_inside(const MotionPlane &pic, const SubSource &src, int32_t w, int32_t h) {
  for (int i = 0; i < 2; ++i) {
    const bool across = src.plane[i] & 1, down = src.plane[i] & 2;  // two samples before, three after
    if (!inside(pic, src.x[i] - (across ? 2 : 0), src.y[i] - (down ? 2 : 0), w + (across ? 5 : 0), h + (down ? 5 : 0))) {
      return false;
    }
  }
  return true;
}

}  // namespace

void block_sad_sub4_run(const MotionKernels &k, const MotionBlock &run, int32_t blocks, int32_t bw,
                        const MotionPlane &target, int32_t qx, int32_t qy, uint32_t sx, uint32_t sy,
                        uint32_t (*out)[4]) {
  const SubSource src = sub_source(run, qx, qy);
  if (bw == 16 && run.w == 16 * blocks && (sx == 8 || sx == 16) && sub_reads_inside(target, src, run.w, run.h)) {
    const uint8_t *f[2] = {at(target, src.x[0], src.y[0]), at(target, src.x[1], src.y[1])};
    const uint32_t kinds = static_cast<uint32_t>(src.plane[0] | (src.plane[1] << 2)), h = static_cast<uint32_t>(run.h);
    for (int32_t b = 0; b < blocks; ++b, f[0] += 16, f[1] += 16) {
      k.sad_sub16(run.a + 16 * b, run.a_stride, f, target.stride, kinds, h, sx, sy, out[b]);
    }
    return;
  }
  alignas(16) uint8_t made[2][kSubPatchBytes];
  const uint8_t *p[2];
  ptrdiff_t ps[2];
  for (int i = 0; i < 2; ++i) {
    if (i == 1 && src.plane[1] == src.plane[0] && src.x[1] == src.x[0] && src.y[1] == src.y[0]) {
      p[1] = p[0], ps[1] = ps[0];
    } else if (src.plane[i] != 0) {
      half_patch(k, target, src.plane[i], src.x[i], src.y[i], run.w, run.h, made[i], &ps[i]);
      p[i] = made[i];
    } else if (inside(target, src.x[i], src.y[i], run.w, run.h)) {
      p[i] = at(target, src.x[i], src.y[i]), ps[i] = target.stride;
    } else {
      fetch_clamped(target, src.x[i], src.y[i], run.w, run.h, made[i]);
      p[i] = made[i], ps[i] = kFetchStride;
    }
  }
  const uint32_t h = static_cast<uint32_t>(run.h);
  for (int32_t b = 0; b < blocks; ++b) {
    const int32_t x = b * bw, w = std::min(bw, run.w - x);
    k.sad_avg4(run.a + x, run.a_stride, p[0] + x, ps[0], p[1] + x, ps[1], static_cast<uint32_t>(w), h, sx, sy, out[b]);
  }
}

MotionVec TemporalSource::at(int32_t x, int32_t y) const {
  const int32_t col = clamp(x, 0, width - 1) / grid.bw, row = clamp(y, 0, height - 1) / grid.bh;
  DSP_MOTION_VECTOR e;
  std::memcpy(&e, entries + sizeof e * static_cast<size_t>(row * grid.cols + col), sizeof e);
  return MotionVec{e.sX, e.sY};
}

namespace {

inline int16_t min16(int16_t a, int16_t b) { return a < b ? a : b; }
inline int16_t max16(int16_t a, int16_t b) { return a < b ? b : a; }
inline int16_t med3(int16_t a, int16_t b, int16_t c) { return max16(min16(a, b), min16(max16(a, b), c)); }

}  // namespace

int32_t median_value(int32_t *values, int32_t n) {
  // A value held by more than half of them is the median: in a field that is most often so (the
  // picture's motion), and one pass of comparisons shows it.
  const int32_t guess = values[n / 2];
  int32_t same = 0;
  for (int32_t i = 0; i < n; ++i) same += values[i] == guess ? 1 : 0;
  if (same > n / 2) return guess;
  constexpr int32_t kBins = 1024;
  int32_t lo = values[0], hi = values[0];
  for (int32_t i = 1; i < n; ++i) {
    lo = std::min(lo, values[i]);
    hi = std::max(hi, values[i]);
  }
  if (static_cast<int64_t>(hi) - lo >= kBins) {
    std::nth_element(values, values + n / 2, values + n);
    return values[n / 2];
  }
  // Four counts a value, taken in turn: runs of equal values (most of a field) then make four
  // chains of increments instead of one.
  const int32_t bins = hi - lo + 1;
  int32_t count[4][kBins];
  for (auto &c : count) std::fill(c, c + bins, 0);
  int32_t i = 0;
  for (; i + 4 <= n; i += 4) {
    ++count[0][values[i] - lo];
    ++count[1][values[i + 1] - lo];
    ++count[2][values[i + 2] - lo];
    ++count[3][values[i + 3] - lo];
  }
  for (; i < n; ++i) ++count[0][values[i] - lo];
  // The first value with more than n / 2 values at or below it.
  int32_t v = 0;
  for (int32_t below = 0;; ++v) {
    below += count[0][v] + count[1][v] + count[2][v] + count[3][v];
    if (below > n / 2) return lo + v;
  }
}

void median_chunk(const MotionVec *field, const BlockGrid &g, int32_t row, int32_t c0, MedianChunk *out) {
  // Lanes in steps of 16; those beyond the grid repeat its last column.
  const int32_t lanes = (std::min(kMedianChunk, g.cols - c0) + 15) & ~15;
  int16_t line[2][3][kMedianChunk + 2];
  // Entry i holds column c0 + i - 1: the first may lie left of the grid, the last few right of it.
  const int32_t end = std::min(lanes + 2, g.cols - c0 + 1);
  for (int32_t dy = 0; dy < 3; ++dy) {
    const MotionVec *f = field + clamp(row + dy - 1, 0, g.rows - 1) * g.cols;
    const MotionVec &first = f[std::max(c0 - 1, 0)], &last = f[g.cols - 1];
    line[0][dy][0] = static_cast<int16_t>(first.x);
    line[1][dy][0] = static_cast<int16_t>(first.y);
    for (int32_t i = 1; i < end; ++i) {
      line[0][dy][i] = static_cast<int16_t>(f[c0 + i - 1].x);
      line[1][dy][i] = static_cast<int16_t>(f[c0 + i - 1].y);
    }
    for (int32_t i = end; i < lanes + 2; ++i) {
      line[0][dy][i] = static_cast<int16_t>(last.x);
      line[1][dy][i] = static_cast<int16_t>(last.y);
    }
  }
  for (int c = 0; c < 2; ++c) {
    int16_t lo[kMedianChunk + 2], mid[kMedianChunk + 2], hi[kMedianChunk + 2];
    const int16_t *__restrict up = line[c][0], *__restrict at = line[c][1], *__restrict down = line[c][2];
    for (int32_t i = 0; i < lanes + 2; ++i) {
      const int16_t a = min16(up[i], at[i]), b = max16(up[i], at[i]);
      lo[i] = min16(a, down[i]);
      hi[i] = max16(b, down[i]);
      mid[i] = max16(a, min16(b, down[i]));
    }
    int16_t *__restrict v = out->v[c];
    for (int32_t i = 0; i < lanes; ++i) {
      const int16_t most_lo = max16(max16(lo[i], lo[i + 1]), lo[i + 2]);
      const int16_t least_hi = min16(min16(hi[i], hi[i + 1]), hi[i + 2]);
      v[i] = med3(most_lo, med3(mid[i], mid[i + 1], mid[i + 2]), least_hi);
    }
  }
}

}  // namespace framedsp
