// Weight rows of the resampling engine.  Kernel values are evaluated in double precision with
// +, -, *, / only (sine included: a polynomial here, not the C library's), which IEEE 754 rounds
// the same way everywhere when the file is built without contraction; they are rounded once to
// Q14 and every later step is integer.
#include <cmath>
#include <cstdlib>

#include "resample/resample.h"

namespace framedsp {
namespace {

constexpr double kPi = 3.14159265358979323846;

// sin(pi * x), x any finite value: reduced exactly to |y| <= 1/2, then the Taylor series of
// sin(pi y) to the 19th power (error below 1e-15 there).
double sin_pi(double x) {
  double y = x - 2.0 * std::floor(x * 0.5 + 0.5);  // [-1, 1)
  if (y > 0.5) y = 1.0 - y;
  if (y < -0.5) y = -1.0 - y;
  const double z = kPi * y, z2 = z * z;
  double term = z, sum = z;
  for (int n = 1; n <= 9; ++n) {
    term = -term * z2 / double((2 * n) * (2 * n + 1));
    sum += term;
  }
  return sum;
}

double lanczos3(double x) {
  const double a = std::fabs(x);
  if (a < 1e-12) return 1.0;
  if (a >= 3.0) return 0.0;
  return 3.0 * sin_pi(a) * sin_pi(a / 3.0) / (kPi * kPi * a * a);
}

double cubic(double x, double b, double c) {
  const double a = std::fabs(x);
  if (a < 1.0) return ((12 - 9 * b - 6 * c) * a * a * a + (-18 + 12 * b + 6 * c) * a * a + (6 - 2 * b)) / 6.0;
  if (a < 2.0) {
    return ((-b - 6 * c) * a * a * a + (6 * b + 30 * c) * a * a + (-12 * b - 48 * c) * a + (8 * b + 24 * c)) / 6.0;
  }
  return 0.0;
}

double tent(double x) {
  const double a = std::fabs(x);
  return a < 1.0 ? 1.0 - a : 0.0;
}

int32_t round_half_away(double v) { return static_cast<int32_t>(v < 0 ? -std::floor(-v + 0.5) : std::floor(v + 0.5)); }

// Adds the residue of a row to its largest tap (the first of equals), so it sums to `total`.
void fix_residue(int32_t *w, int taps, int64_t total) {
  int64_t sum = 0;
  int big = 0;
  for (int k = 0; k < taps; ++k) {
    sum += w[k];
    if (w[k] > w[big]) big = k;
  }
  w[big] += static_cast<int32_t>(total - sum);
}

}  // namespace

int resample_weights(uint32_t kernel, int32_t b_q14, int32_t c_q14, int phase_bits, int64_t pos, uint32_t widen_q16,
                     int32_t *first, int32_t *w) {
  if (phase_bits < 0 || phase_bits > kResampleMaxPhaseBits) return 0;
  // Round to the phase grid (halves up): q = floor(pos / 2^(32 - b) + 1/2).
  const int shift = 32 - phase_bits;
  const int64_t q = (pos + (int64_t{1} << (shift - 1))) >> shift;
  const int64_t whole = q >> phase_bits;
  const int64_t phase = q & ((int64_t{1} << phase_bits) - 1);
  const double frac = double(phase) / double(int64_t{1} << phase_bits);
  if (kernel == kResampleNearest) {
    *first = static_cast<int32_t>(whole + (2 * phase >= (int64_t{1} << phase_bits) ? 1 : 0));
    w[0] = kResampleOne;
    return 1;
  }
  if (kernel == kResampleLinear && widen_q16 <= 65536u) {
    // The tent's two values 1 - frac and frac are exact in double and sum to exactly 1, so the
    // rounding below gives these integers; computed directly, as rows of 14-bit phases are not
    // cached.
    *first = static_cast<int32_t>(whole);
    w[1] = static_cast<int32_t>(phase << (kResampleWeightBits - phase_bits));
    w[0] = kResampleOne - w[1];
    return 2;
  }
  double radius;
  switch (kernel) {
    case kResampleLinear: radius = 1; break;
    case kResampleCubic: radius = 2; break;
    case kResampleLanczos3: radius = 3; break;
    default: return 0;
  }
  const double widen = widen_q16 > 65536u ? double(widen_q16) / 65536.0 : 1.0;
  const int taps = 2 * static_cast<int>(std::ceil(radius * widen));
  if (taps > kResampleMaxTaps) return 0;
  *first = static_cast<int32_t>(whole - taps / 2 + 1);
  const double b = double(b_q14) / kResampleOne, c = double(c_q14) / kResampleOne;
  double v[kResampleMaxTaps];
  double sum = 0;
  for (int k = 0; k < taps; ++k) {
    const double x = (double(k - taps / 2 + 1) - frac) / widen;
    v[k] = kernel == kResampleLinear ? tent(x) : kernel == kResampleCubic ? cubic(x, b, c) : lanczos3(x);
    sum += v[k];
  }
  for (int k = 0; k < taps; ++k) w[k] = round_half_away(v[k] * kResampleOne / sum);
  fix_residue(w, taps, kResampleOne);
  return taps;
}

// Convolves a row with a low-pass row (any sum s != 0, odd length n): the result has taps + n - 1
// taps starting (n - 1) / 2 earlier, each (sum of products) / s rounded half away from zero, then
// the residue fixed so the row sums to 16384 again.
int resample_convolve(int32_t *w, int taps, int32_t *first, const int16_t *lowpass, int n) {
  if (n <= 0 || taps + n - 1 > kResampleMaxTaps) return 0;
  int64_t s = 0;
  for (int m = 0; m < n; ++m) s += lowpass[m];
  if (s <= 0) return 0;
  int64_t out[kResampleMaxTaps] = {};
  for (int k = 0; k < taps; ++k) {
    for (int m = 0; m < n; ++m) out[k + m] += int64_t{w[k]} * lowpass[m];
  }
  const int total = taps + n - 1;
  for (int k = 0; k < total; ++k) {
    const int64_t a = std::llabs(out[k]);
    const int64_t r = (2 * a + s) / (2 * s);
    w[k] = static_cast<int32_t>(out[k] < 0 ? -r : r);
  }
  fix_residue(w, total, kResampleOne);
  *first -= (n - 1) / 2;
  return total;
}

}  // namespace framedsp
