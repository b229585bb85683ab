// The panorama's column positions.  Mode 1 evaluates the centre term g u exactly (one rounding to
// Q32 positions) and the edge term in Q30; mode 2 inverts f by bisection over Q30 values of u,
// comparing f(u) with the column's exact t.
#include "scale/panorama_map.h"

#include <algorithm>
#include <climits>

#include "scale/resample_driver.h"

namespace framedsp {
namespace {

constexpr int64_t kQ30 = int64_t{1} << 30;
constexpr int64_t kQ14 = 16384;
constexpr int64_t kQ32 = int64_t{1} << 32;

// s = (n / d - c) / (1 - c) in Q30 (0 inside the centre band) and its square and cube.
struct Edge {
  int64_t s2, s3;
};

Edge edge_terms(int64_t c, int64_t n, int64_t d) {
  const int64_t a = n * kQ14 - c * d;  // n <= d <= 2^30: below 2^44
  if (a <= 0) return Edge{0, 0};
  const int64_t e = (kQ14 - c) * d;
  int64_t s = 0;
  if (a < (int64_t{1} << 32)) {
    s = ((a << 30) + e / 2) / e;
  } else {
    mul_div(a, uint64_t(kQ30), uint64_t(e), &s);
  }
  const int64_t s2 = (s * s + kQ30 / 2) >> 30;
  return Edge{s2, (s2 * s + kQ30 / 2) >> 30};
}

// -(g - 1) s^3 in Q30, g = 16384 / r; |(r - 16384) s^3| < 2^47.
int64_t edge_f(int64_t r, const Edge &e) {
  const int64_t a = (r - kQ14) * e.s3;
  return a >= 0 ? (a + r / 2) / r : -((-a + r / 2) / r);
}

// f'(u) = g - 3 (g - 1) s^2 / (1 - c) in Q16, at least 1 (the folding check keeps it positive).
int64_t slope_q16(int64_t c, int64_t r, const Edge &e) {
  int64_t v = 0;
  mul_div(kQ30 * (kQ14 - c) - 3 * (kQ14 - r) * e.s2, 1, uint64_t(r * (kQ14 - c)), &v);
  return std::max<int64_t>(v, 1);
}

uint32_t clamp_widen(int64_t w) { return uint32_t(std::min<int64_t>(std::max<int64_t>(w, 0), INT32_MAX)); }

// Source columns per output column in Q16: f' wi / wo (mode 1), wi / (wo f') (mode 2).
uint32_t mode1_widen(int64_t slope, int64_t wi, int64_t wo) {
  int64_t w = 0;
  mul_div(slope, uint64_t(wi), uint64_t(wo), &w);
  return clamp_widen(w);
}

uint32_t mode2_widen(int64_t slope, int64_t wi, int64_t wo) {
  int64_t w = 0;
  mul_div(int64_t{1} << 32, uint64_t(wi), uint64_t(wo) * uint64_t(slope), &w);
  return clamp_widen(w);
}

bool settings_ok(uint32_t mode, uint32_t c, uint32_t r, uint32_t wi, uint32_t wo) {
  return wi != 0 && wo != 0 && wi <= kPanoramaMaxWidth && wo <= kPanoramaMaxWidth && c < kQ14 && r != 0 &&
         r <= kPanoramaMaxScaleQ14 && !panorama_folds(c, r) && (mode == 1 || mode == 2);
}

// f(u) in Q30 of u in Q30, 0 <= u <= 2^30: the rationals of edge_terms and of mode 1's centre
// term with d = 2^30 reduced, so that each is one 64-bit division rounded the same way.
int64_t f_q30(int64_t c, int64_t r, int64_t u) {
  const int64_t centre = (u * kQ14 + r / 2) / r, a = u * kQ14 - c * kQ30;
  if (a <= 0) return centre;
  const int64_t s = (a + (kQ14 - c) / 2) / (kQ14 - c);
  const int64_t s2 = (s * s + kQ30 / 2) >> 30;
  return centre + edge_f(r, Edge{s2, (s2 * s + kQ30 / 2) >> 30});
}

// The u in [0, 2^30) with f(u) wo <= n 2^30 < f(u + 1) wo (t = n / wo compared exactly; f is
// monotone up to its rounding, so where the edge slope is nearly 0 this is one of neighbouring
// crossings), searched from `guess`: a bracket grown by fours from 8 either way, then
// bisection.  f(0) = 0 and f(2^30) = 2^30 bound it.
int64_t invert(int64_t c, int64_t r, int64_t n, int64_t wo, int64_t guess) {
  auto below = [&](int64_t u) { return f_q30(c, r, u) * wo <= n * kQ30; };
  int64_t lo = std::min(std::max<int64_t>(guess, 0), kQ30), hi = lo, step = 8;
  if (below(lo)) {
    do {
      lo = hi;
      hi = std::min(lo + step, kQ30);
      step *= 4;
    } while (hi < kQ30 && below(hi));
  } else {
    do {
      hi = lo;
      lo = std::max<int64_t>(hi - step, 0);
      step *= 4;
    } while (lo > 0 && !below(lo));
  }
  while (hi - lo > 1) {
    const int64_t mid = lo + (hi - lo) / 2;
    (below(mid) ? lo : hi) = mid;
  }
  return lo;
}

// Mode 2, the right half (u >= 0) from the middle outwards, each guess extrapolated from the
// three before it (the centre band's inverse u = r t for the first ones); the left half mirrored.
void inverse_columns(int64_t c, int64_t r, int64_t wi, int64_t wo, int64_t *pos, uint32_t *widen) {
  int64_t u1 = 0, u2 = 0, u3 = 0;
  for (int64_t j = wo / 2, k = 0; j < wo; ++j, ++k) {
    const int64_t n = 2 * j + 1 - wo;
    const int64_t guess = k < 3 ? n * (kQ30 / kQ14) * r / wo : 3 * u1 - 3 * u2 + u3;
    const int64_t u = invert(c, r, n, wo, guess);
    u3 = u2, u2 = u1, u1 = u;
    pos[j] = (u + kQ30) * 2 * wi - kQ32 / 2;
    pos[wo - 1 - j] = (wi - 1) * kQ32 - pos[j];
    if (widen) widen[j] = widen[wo - 1 - j] = mode2_widen(slope_q16(c, r, edge_terms(c, u, kQ30)), wi, wo);
  }
}

}  // namespace

bool panorama_columns(uint32_t mode, uint32_t centre_q14, uint32_t scale_q14, uint32_t wi, uint32_t wo,
                      int64_t *pos, uint32_t *widen) {
  if (!settings_ok(mode, centre_q14, scale_q14, wi, wo)) return false;
  const int64_t c = centre_q14, r = scale_q14, w_in = wi, w_out = wo;
  if (mode == 2) {
    inverse_columns(c, r, w_in, w_out, pos, widen);
    return true;
  }
  for (int64_t j = 0; j < w_out; ++j) {
    // (f(u) + 1) wi / 2 - 1/2 in Q32 at u = m / wo: the centre term g u wi / 2 exact, the edge
    // term in Q30.
    const int64_t m = 2 * j + 1 - w_out, n = m < 0 ? -m : m;
    const Edge e = edge_terms(c, n, w_out);
    int64_t centre = 0;
    if (!mul_div(m * (int64_t{1} << 31), uint64_t(w_in) << 14, uint64_t(w_out * r), &centre)) return false;
    const int64_t edge = edge_f(r, e);
    pos[j] = w_in * (kQ32 / 2) + centre + 2 * w_in * (m < 0 ? -edge : edge) - kQ32 / 2;
    if (widen) widen[j] = mode1_widen(slope_q16(c, r, e), w_in, w_out);
  }
  return true;
}
uint32_t panorama_max_widen_q16(uint32_t mode, uint32_t centre_q14, uint32_t scale_q14, uint32_t wi, uint32_t wo) {
  if (!settings_ok(mode, centre_q14, scale_q14, wi, wo)) return 0;
  // f' is g over the band and moves monotonically to gE at the edges: its extremes are there.
  const int64_t middle = slope_q16(centre_q14, scale_q14, Edge{0, 0});
  const int64_t edge = slope_q16(centre_q14, scale_q14, Edge{kQ30, kQ30});
  if (mode == 1) return mode1_widen(std::max(middle, edge), wi, wo);
  return mode2_widen(std::min(middle, edge), wi, wo);
}

}  // namespace framedsp
