// The FIR filter of the FIR tests written out per sample from the byte layouts: the tests'
// independent model of the kernels (test_fir_kernels.cpp) and of DspFilter (test_filter.cpp).
#pragma once

#include <algorithm>
#include <cstdint>

#include "filter/fir_tables.h"

namespace fir_formula {

// Distance to the next sample of the same component for byte p of a line of layout class `cls`,
// restated from the layouts; 0: the byte is copied.
inline int distance(int cls, size_t p) {
  switch (cls) {
    case 0: return p % 2 ? 2 : 4;
    case 1: return p % 4 < 2 ? 4 : 0;
    case 2: return p % 2 ? 4 : 2;
    case 3: case 5: return 4;
    case 4: return 3;
    case 6: return 1;
    case 7: return p % 2 ? 0 : (p % 4 == 0 ? 8 : 4);
    case 8: return p % 2 ? 0 : (p % 4 == 0 ? 4 : 8);
    case 9: return p % 2 ? 0 : 6;
    case 10: return p % 2 ? 0 : 8;
    default: return p % 2 ? 0 : 2;
  }
}

inline uint8_t rounded(int64_t acc) { return uint8_t(std::min<int64_t>(255, std::max<int64_t>(0, (acc + 256) >> 9))); }

// A line of n bytes of class `cls` through `taps` coefficients: a tap past either end reads the
// centre sample, and the last byte is never a right-hand tap.
inline void horizontal(const framedsp::FirTap *c, int taps, int cls, const uint8_t *src, size_t n, uint8_t *out) {
  const int half = (taps - 1) / 2;
  for (size_t p = 0; p < n; ++p) {
    const int d = distance(cls, p);
    int64_t acc = int64_t{c[half].lane[0]} * src[p];
    for (int k = 1; k <= half && d; ++k) {
      const long l = long(p) - k * d, r = long(p) + k * d;
      acc += int64_t{c[half - k].lane[0]} * ((l >= 0 ? src[l] : src[p]) + (r <= long(n) - 2 ? src[r] : src[p]));
    }
    out[p] = d ? rounded(acc) : src[p];
  }
}

// Byte p of row r of h rows (row(y) points at row y), taps s rows apart.  Whole-pixel taps keep
// the pair inside the rows (a pair that would leave repeats the last pair in range); fractional
// ones (`clamp`) clamp each tap to rows 0 .. h - s.
template <class Row>
uint8_t vertical(const framedsp::FirTap *c, int taps, const Row &row, int h, int r, size_t p, int s, bool clamp) {
  const int half = (taps - 1) / 2, last = std::max(h - s, 0);
  int64_t acc = int64_t{c[half].lane[0]} * row(r)[p];
  for (int k = 1, u = r, d = r; k <= half; ++k) {
    if (clamp) {
      u = std::max(r - k * s, 0);
      d = std::min(r + k * s, last);
    } else {
      u = r >= k * s ? r - k * s : u;
      d = r + k * s <= h - k * s - 1 ? r + k * s : d;
    }
    acc += int64_t{c[half - k].lane[0]} * (row(u)[p] + row(d)[p]);
  }
  return rounded(acc);
}

}  // namespace fir_formula
