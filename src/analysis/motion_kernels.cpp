#include "analysis/motion_kernels.h"

#include <cstdlib>
#include <cstring>

#include "analysis/motion_ring.h"

#include "platform/cpu.h"

namespace framedsp {

uint32_t sad_c(const uint8_t *a, ptrdiff_t a_stride, const uint8_t *b, ptrdiff_t b_stride,
               uint32_t w, uint32_t h) {
  uint32_t sum = 0;
  for (uint32_t y = 0; y < h; ++y, a += a_stride, b += b_stride) {
    for (uint32_t x = 0; x < w; ++x) sum += static_cast<uint32_t>(a[x] > b[x] ? a[x] - b[x] : b[x] - a[x]);
  }
  return sum;
}

uint32_t sad16_c(const uint8_t *a, const uint8_t *b, ptrdiff_t b_stride) { return sad_c(a, 16, b, b_stride, 16, 16); }

uint32_t sad_avg_c(const uint8_t *a, ptrdiff_t a_stride, const uint8_t *b, ptrdiff_t b_stride,
                   const uint8_t *c, ptrdiff_t c_stride, uint32_t w, uint32_t h) {
  uint32_t sum = 0;
  for (uint32_t y = 0; y < h; ++y, a += a_stride, b += b_stride, c += c_stride) {
    for (uint32_t x = 0; x < w; ++x) {
      const int m = (b[x] + c[x] + 1) >> 1;
      sum += static_cast<uint32_t>(a[x] > m ? a[x] - m : m - a[x]);
    }
  }
  return sum;
}

void avg_line_c(const uint8_t *a, const uint8_t *b, uint8_t *out, size_t n) {
  for (size_t i = 0; i < n; ++i) out[i] = static_cast<uint8_t>((a[i] + b[i] + 1) >> 1);
}

uint32_t sad_q_c(const uint8_t *a, ptrdiff_t a_stride, const uint8_t *f, ptrdiff_t f_stride,
                 uint32_t w, uint32_t h, uint32_t fx, uint32_t fy) {
  const uint32_t w00 = (4 - fx) * (4 - fy), w10 = fx * (4 - fy), w01 = (4 - fx) * fy, w11 = fx * fy;
  uint32_t sum = 0;
  for (uint32_t y = 0; y < h; ++y, a += a_stride, f += f_stride) {
    const uint8_t *g = fy ? f + f_stride : f;  // line y + 1, read only with weight
    for (uint32_t x = 0; x < w; ++x) {
      const uint32_t x1 = fx ? x + 1 : x;
      const int q = static_cast<int>((w00 * f[x] + w10 * f[x1] + w01 * g[x] + w11 * g[x1] + 8) >> 4);
      const int d = a[x] - q;
      sum += static_cast<uint32_t>(d < 0 ? -d : d);
    }
  }
  return sum;
}

void sad_q4_c(const uint8_t *a, ptrdiff_t a_stride, const uint8_t *f, ptrdiff_t f_stride,
              uint32_t w, uint32_t h, uint32_t fx, uint32_t fy, uint32_t sx, uint32_t sy,
              uint32_t out[4]) {
  out[0] = sad_q_c(a, a_stride, f, f_stride, sx, sy, fx, fy);
  out[1] = sx < w ? sad_q_c(a + sx, a_stride, f + sx, f_stride, w - sx, sy, fx, fy) : 0;
  a += static_cast<ptrdiff_t>(sy) * a_stride;
  f += static_cast<ptrdiff_t>(sy) * f_stride;
  out[2] = sy < h ? sad_q_c(a, a_stride, f, f_stride, sx, h - sy, fx, fy) : 0;
  out[3] = sx < w && sy < h ? sad_q_c(a + sx, a_stride, f + sx, f_stride, w - sx, h - sy, fx, fy) : 0;
}

void sad_avg4_c(const uint8_t *a, ptrdiff_t a_stride, const uint8_t *b, ptrdiff_t b_stride, const uint8_t *c,
                ptrdiff_t c_stride, uint32_t w, uint32_t h, uint32_t sx, uint32_t sy, uint32_t out[4]) {
  out[0] = out[1] = out[2] = out[3] = 0;
  for (uint32_t y = 0; y < h; ++y, a += a_stride, b += b_stride, c += c_stride) {
    for (uint32_t x = 0; x < w; ++x) {
      const int m = (b[x] + c[x] + 1) >> 1;
      out[(y >= sy ? 2 : 0) + (x >= sx ? 1 : 0)] += static_cast<uint32_t>(a[x] > m ? a[x] - m : m - a[x]);
    }
  }
}

void ring_pair(const uint8_t *const q[4], const ptrdiff_t qs[4], uint32_t mode, int i, const uint8_t **b,
               ptrdiff_t *bs, const uint8_t **c, ptrdiff_t *cs) {
  struct Sample {
    const uint8_t *p;
    ptrdiff_t s;
  };
  const Sample nw{q[0], qs[0]}, ne{q[0] + 1, qs[0]}, sw{q[0] + qs[0], qs[0]}, se{q[0] + qs[0] + 1, qs[0]};
  const Sample n{q[1], qs[1]}, s{q[1] + qs[1], qs[1]}, w{q[2], qs[2]}, e{q[2] + 1, qs[2]}, centre{q[3], qs[3]};
  const Sample sample[8] = {nw, n, ne, w, e, sw, s, se};
  const Sample side[8][2] = {{w, n}, {centre, n}, {e, n}, {centre, w}, {centre, e}, {w, s}, {centre, s}, {e, s}};
  Sample first = sample[i], second = sample[i];
  if (mode == 2 && (i == 0 || i == 2 || i == 5 || i == 7)) {
    first = centre;
  } else if (mode != 0) {
    first = side[i][0];
    second = side[i][1];
  }
  *b = first.p, *bs = first.s, *c = second.p, *cs = second.s;
}

void sad_ring_c(const uint8_t *a, ptrdiff_t a_stride, const uint8_t *const q[4], const ptrdiff_t qs[4], uint32_t mode,
                uint32_t w, uint32_t h, uint32_t sx, uint32_t sy, uint32_t out[9][4]) {
  for (int i = 0; i < 8; ++i) {
    const uint8_t *b, *c;
    ptrdiff_t bs, cs;
    ring_pair(q, qs, mode, i, &b, &bs, &c, &cs);
    sad_avg4_c(a, a_stride, b, bs, c, cs, w, h, sx, sy, out[i]);
  }
  out[8][0] = out[8][1] = out[8][2] = out[8][3] = 0;
  if (mode == 0) sad_avg4_c(a, a_stride, q[3], qs[3], q[3], qs[3], w, h, sx, sy, out[8]);
}

void ring_refine_c(const RingPlanes &planes, const RingBlock *b, uint32_t n, RingBest *out) {
  for (uint32_t j = 0; j < n; ++j) {
    refine_rings<1>([](auto... args) { sad_ring_c(args...); }, ring_detail::ring_winner_c, planes, b + j, out + j);
  }
}

namespace {
uint8_t six_tap(int p0, int p1, int p2, int p3, int p4, int p5) {
  const int v = (p0 - 5 * p1 + 20 * p2 + 20 * p3 - 5 * p4 + p5 + 16) >> 5;  // -2550..10710 before the shift
  return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
}
// Sample (0, 0) of half-pixel plane `kind` at picture sample f.
int sub_sample(const uint8_t *f, ptrdiff_t fs, uint32_t kind) {
  if (kind == 0) return f[0];
  if (kind == 1) return six_tap(f[-2], f[-1], f[0], f[1], f[2], f[3]);
  const uint32_t across = kind == 3 ? 1 : 0;
  int r[6];
  for (int t = 0; t < 6; ++t) r[t] = sub_sample(f + (t - 2) * fs, fs, across);
  return six_tap(r[0], r[1], r[2], r[3], r[4], r[5]);
}
}  // namespace

void sad_sub16_c(const uint8_t *a, ptrdiff_t a_stride, const uint8_t *const f[2], ptrdiff_t fs, uint32_t kinds,
                 uint32_t h, uint32_t sx, uint32_t sy, uint32_t out[4]) {
  out[0] = out[1] = out[2] = out[3] = 0;
  for (uint32_t y = 0; y < h; ++y, a += a_stride) {
    const ptrdiff_t line = static_cast<ptrdiff_t>(y) * fs;
    for (uint32_t x = 0; x < 16; ++x) {
      const int m = (sub_sample(f[0] + line + x, fs, kinds & 3) + sub_sample(f[1] + line + x, fs, kinds >> 2) + 1) >> 1;
      out[(y >= sy ? 2 : 0) + (x >= sx ? 1 : 0)] += static_cast<uint32_t>(a[x] > m ? a[x] - m : m - a[x]);
    }
  }
}

void half_h_c(const uint8_t *p, uint8_t *out, size_t n) {
  for (size_t i = 0; i < n; ++i, ++p) out[i] = six_tap(p[-2], p[-1], p[0], p[1], p[2], p[3]);
}

void half_v_c(const uint8_t *const r[6], uint8_t *out, size_t n) {
  for (size_t i = 0; i < n; ++i) out[i] = six_tap(r[0][i], r[1][i], r[2][i], r[3][i], r[4][i], r[5][i]);
}

void activity4_c(const uint8_t *a, ptrdiff_t stride, uint32_t w, uint32_t h, uint32_t sx, uint32_t sy,
                 uint32_t out[4]) {
  out[0] = out[1] = out[2] = out[3] = 0;
  for (uint32_t y = 0; y < h; ++y, a += stride) {
    for (uint32_t x = 0; x < w; ++x) {
      const int dh = a[x] - a[x + 1], dv = a[x] - a[x + stride];
      out[(y >= sy ? 2 : 0) + (x >= sx ? 1 : 0)] += static_cast<uint32_t>((dh < 0 ? -dh : dh) + (dv < 0 ? -dv : dv));
    }
  }
}

void activity8_c(const uint8_t *a, ptrdiff_t stride, uint32_t w, uint32_t h, uint32_t sy, uint32_t *top,
                 uint32_t *bottom) {
  for (uint32_t i = 0; i < (w + 7) / 8; ++i) top[i] = bottom[i] = 0;
  for (uint32_t y = 0; y < h; ++y, a += stride) {
    uint32_t *out = y < sy ? top : bottom;
    for (uint32_t x = 0; x < w; ++x) {
      const int dh = a[x] - a[x + 1], dv = a[x] - a[x + stride];
      out[x / 8] += static_cast<uint32_t>((dh < 0 ? -dh : dh) + (dv < 0 ? -dv : dv));
    }
  }
}

void consistency_c(uint8_t *e, const uint8_t *other, uint32_t n, const ConsistencyRow &r) {
  for (uint32_t j = 0; j < n; ++j, e += 8) {
    int16_t v[4], o[2];
    std::memcpy(v, e, sizeof v);
    const int32_t cx = j + 1 == n ? r.last : r.cx + static_cast<int32_t>(j) * r.step;
    const uint32_t tx = static_cast<uint32_t>((cx + v[0]) >> 2);
    const uint32_t ty = static_cast<uint32_t>((r.cy + v[1]) >> 2);
    if (tx >= r.width || ty >= r.height) continue;
    std::memcpy(o, other + 8 * (size_t{(ty * r.per_row) >> 20} * r.cols + ((tx * r.per_col) >> 20)), sizeof o);
    if (std::abs(v[0] + o[0]) > r.limit || std::abs(v[1] + o[1]) > r.limit) {
      const uint16_t flags = static_cast<uint16_t>(static_cast<uint16_t>(v[3]) | r.flag);
      std::memcpy(e + 6, &flags, sizeof flags);
    }
  }
}

void motion_kernels_init(MotionKernels *table, uint32_t cpu_flags) {
  table->sad = sad_c;
  table->sad16 = sad16_c;
  table->sad_avg = sad_avg_c;
  table->avg_line = avg_line_c;
  table->sad_q = sad_q_c;
  table->sad_q4 = sad_q4_c;
  table->sad_avg4 = sad_avg4_c;
  table->sad_ring = sad_ring_c;
  table->ring_refine = ring_refine_c;
  table->sad_sub16 = sad_sub16_c;
  table->half_h = half_h_c;
  table->half_v = half_v_c;
  table->activity4 = activity4_c;
  table->activity8 = activity8_c;
  table->consistency = consistency_c;
#if defined(FRAMEDSP_HAVE_X86)
  if (cpu_flags & kCpuSSE2) motion_kernels_init_sse2(table);
  if (cpu_flags & kCpuAVX2) motion_kernels_init_avx2(table);
#else
  (void)cpu_flags;
#endif
}

}  // namespace framedsp
