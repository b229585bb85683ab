// The x86 motion kernels, written once: 16-byte steps always, 32-byte steps where the includer is
// compiled with AVX2.  Each ISA file includes this header and fills the table from its own copy;
// the unnamed namespace keeps every instantiation in the includer's object file, so the linker can
// never hand an AVX2 copy to the SSE2 table.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "analysis/motion_kernels.h"

namespace framedsp {
namespace motion_x86 {
namespace {

inline __m128i load8(const uint8_t *p) { return _mm_loadl_epi64(reinterpret_cast<const __m128i *>(p)); }
inline __m128i load16(const uint8_t *p) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p)); }
inline __m128i pair8(const uint8_t *p, ptrdiff_t stride) {
  return _mm_unpacklo_epi64(load8(p), load8(p + stride));
}
#if defined(__AVX2__)
inline __m256i load32(const uint8_t *p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p)); }
inline __m256i two16(const uint8_t *p, ptrdiff_t stride) {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(load16(p)), load16(p + stride), 1);
}
#endif

// The B side of a kernel, one line at a time: one plane (sad) or the rounded-up average of two
// (sad_avg).  `next()` steps to the following line.
struct One {
  const uint8_t *b;
  ptrdiff_t bs;
  __m128i at8(uint32_t x) const { return load8(b + x); }
  __m128i at16(uint32_t x) const { return load16(b + x); }
  __m128i pair(uint32_t x) const { return pair8(b + x, bs); }
  int at(uint32_t x) const { return b[x]; }
#if defined(__AVX2__)
  __m256i at32(uint32_t x) const { return load32(b + x); }
  __m256i two(uint32_t x) const { return two16(b + x, bs); }
#endif
  void next(int lines) { b += lines * bs; }
};
struct Avg {
  const uint8_t *b;
  ptrdiff_t bs;
  const uint8_t *c;
  ptrdiff_t cs;
  __m128i at8(uint32_t x) const { return _mm_avg_epu8(load8(b + x), load8(c + x)); }
  __m128i at16(uint32_t x) const { return _mm_avg_epu8(load16(b + x), load16(c + x)); }
  __m128i pair(uint32_t x) const { return _mm_avg_epu8(pair8(b + x, bs), pair8(c + x, cs)); }
  int at(uint32_t x) const { return (b[x] + c[x] + 1) >> 1; }
#if defined(__AVX2__)
  __m256i at32(uint32_t x) const { return _mm256_avg_epu8(load32(b + x), load32(c + x)); }
  __m256i two(uint32_t x) const { return _mm256_avg_epu8(two16(b + x, bs), two16(c + x, cs)); }
#endif
  void next(int lines) {
    b += lines * bs;
    c += lines * cs;
  }
};

// SAD lanes are 64-bit and every lane sum stays far below 2^32 (64 x 64 x 255).
inline uint32_t hsum(__m128i acc) {
  return static_cast<uint32_t>(_mm_cvtsi128_si32(acc) + _mm_cvtsi128_si32(_mm_srli_si128(acc, 8)));
}

// One line of any width: 32-byte steps (AVX2), 16, 8, then single samples.
template <class B>
inline uint32_t sad_line(const uint8_t *a, const B &b, uint32_t w) {
  uint32_t x = 0;
  __m128i acc = _mm_setzero_si128();
#if defined(__AVX2__)
  if (w >= 32) {
    __m256i wide = _mm256_setzero_si256();
    for (; x + 32 <= w; x += 32) wide = _mm256_add_epi64(wide, _mm256_sad_epu8(load32(a + x), b.at32(x)));
    acc = _mm_add_epi64(_mm256_castsi256_si128(wide), _mm256_extracti128_si256(wide, 1));
  }
#endif
  for (; x + 16 <= w; x += 16) acc = _mm_add_epi64(acc, _mm_sad_epu8(load16(a + x), b.at16(x)));
  if (x + 8 <= w) {
    acc = _mm_add_epi64(acc, _mm_sad_epu8(load8(a + x), b.at8(x)));
    x += 8;
  }
  uint32_t sum = hsum(acc);
  for (; x < w; ++x) {
    const int d = a[x] - b.at(x);
    sum += static_cast<uint32_t>(d < 0 ? -d : d);
  }
  return sum;
}

// Blocks 8 wide: two lines a vector; 16 wide with AVX2: two lines a vector; otherwise by lines.
template <class B>
inline uint32_t sad_block(const uint8_t *a, ptrdiff_t as, B b, uint32_t w, uint32_t h) {
  uint32_t y = 0;
  __m128i acc = _mm_setzero_si128();
  if (w == 8) {
    for (; y + 2 <= h; y += 2, a += 2 * as, b.next(2)) {
      acc = _mm_add_epi64(acc, _mm_sad_epu8(pair8(a, as), b.pair(0)));
    }
  }
#if defined(__AVX2__)
  if (w == 16) {
    __m256i wide = _mm256_setzero_si256();
    for (; y + 2 <= h; y += 2, a += 2 * as, b.next(2)) {
      wide = _mm256_add_epi64(wide, _mm256_sad_epu8(two16(a, as), b.two(0)));
    }
    acc = _mm_add_epi64(acc, _mm_add_epi64(_mm256_castsi256_si128(wide), _mm256_extracti128_si256(wide, 1)));
  }
#endif
  uint32_t sum = hsum(acc);
  for (; y < h; ++y, a += as, b.next(1)) sum += sad_line(a, b, w);
  return sum;
}

uint32_t sad_x86(const uint8_t *a, ptrdiff_t as, const uint8_t *b, ptrdiff_t bs, uint32_t w, uint32_t h) {
  return sad_block(a, as, One{b, bs}, w, h);
}

uint32_t sad_avg_x86(const uint8_t *a, ptrdiff_t as, const uint8_t *b, ptrdiff_t bs, const uint8_t *c,
                     ptrdiff_t cs, uint32_t w, uint32_t h) {
  return sad_block(a, as, Avg{b, bs, c, cs}, w, h);
}

void avg_line_x86(const uint8_t *a, const uint8_t *b, uint8_t *out, size_t n) {
  size_t i = 0;
#if defined(__AVX2__)
  for (; i + 32 <= n; i += 32) {
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(out + i), _mm256_avg_epu8(load32(a + i), load32(b + i)));
  }
#endif
  for (; i + 16 <= n; i += 16) {
    _mm_storeu_si128(reinterpret_cast<__m128i *>(out + i), _mm_avg_epu8(load16(a + i), load16(b + i)));
  }
  for (; i < n; ++i) out[i] = static_cast<uint8_t>((a[i] + b[i] + 1) >> 1);
}

// Bilinear quarter-pixel samples on the fly (see sad_q in motion_kernels.h).  Every product and
// sum stays below 16 * 255 + 8, so 16-bit lanes are exact.  Each line's horizontal blend serves
// two output lines.
struct Bilinear {
  __m128i wx0, wx1, wy0, wy1, round;
  Bilinear(uint32_t fx, uint32_t fy)
      : wx0(_mm_set1_epi16(static_cast<short>(4 - fx))), wx1(_mm_set1_epi16(static_cast<short>(fx))),
        wy0(_mm_set1_epi16(static_cast<short>(4 - fy))), wy1(_mm_set1_epi16(static_cast<short>(fy))),
        round(_mm_set1_epi16(8)) {}
  // (4 - fx) p[x] + fx p[x + 1] for 8 samples.
  __m128i line(const uint8_t *p) const {
    const __m128i z = _mm_setzero_si128();
    return _mm_add_epi16(_mm_mullo_epi16(_mm_unpacklo_epi8(load8(p), z), wx0),
                         _mm_mullo_epi16(_mm_unpacklo_epi8(load8(p + 1), z), wx1));
  }
  __m128i vertical(__m128i upper, __m128i lower) const {
    const __m128i v = _mm_add_epi16(_mm_mullo_epi16(upper, wy0), _mm_mullo_epi16(lower, wy1));
    return _mm_srli_epi16(_mm_add_epi16(v, round), 4);
  }
};

#if defined(__AVX2__)
// Blocks a multiple of 16 wide: 16 samples a vector, differences summed in 16-bit lanes.
inline uint32_t sad_q_wide(const uint8_t *a, ptrdiff_t as, const uint8_t *f, ptrdiff_t fs, uint32_t w,
                           uint32_t h, uint32_t fx, uint32_t fy) {
  const __m256i wx0 = _mm256_set1_epi16(static_cast<short>(4 - fx)), wx1 = _mm256_set1_epi16(static_cast<short>(fx));
  const __m256i wy0 = _mm256_set1_epi16(static_cast<short>(4 - fy)), wy1 = _mm256_set1_epi16(static_cast<short>(fy));
  const __m256i round = _mm256_set1_epi16(8), ones = _mm256_set1_epi16(1);
  auto line = [&](const uint8_t *p) {
    return _mm256_add_epi16(_mm256_mullo_epi16(_mm256_cvtepu8_epi16(load16(p)), wx0),
                            _mm256_mullo_epi16(_mm256_cvtepu8_epi16(load16(p + 1)), wx1));
  };
  __m256i prev[4], acc = _mm256_setzero_si256();
  const uint32_t chunks = w / 16;
  for (uint32_t c = 0; c < chunks; ++c) prev[c] = line(f + 16 * c);
  for (uint32_t y = 0; y < h; ++y, a += as, f += fs) {
    for (uint32_t c = 0; c < chunks; ++c) {
      const __m256i next = line(f + fs + 16 * c);
      __m256i v = _mm256_add_epi16(_mm256_mullo_epi16(prev[c], wy0), _mm256_mullo_epi16(next, wy1));
      v = _mm256_srli_epi16(_mm256_add_epi16(v, round), 4);
      prev[c] = next;
      const __m256i d = _mm256_abs_epi16(_mm256_sub_epi16(_mm256_cvtepu8_epi16(load16(a + 16 * c)), v));
      acc = _mm256_add_epi32(acc, _mm256_madd_epi16(d, ones));
    }
  }
  const __m128i s = _mm_add_epi32(_mm256_castsi256_si128(acc), _mm256_extracti128_si256(acc, 1));
  const __m128i t = _mm_add_epi32(s, _mm_srli_si128(s, 8));
  return static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_add_epi32(t, _mm_srli_si128(t, 4))));
}
#endif

uint32_t sad_q_x86(const uint8_t *a, ptrdiff_t as, const uint8_t *f, ptrdiff_t fs, uint32_t w, uint32_t h,
                   uint32_t fx, uint32_t fy) {
  if ((fx | fy) == 0) return sad_block(a, as, One{f, fs}, w, h);
#if defined(__AVX2__)
  if (w % 16 == 0) return sad_q_wide(a, as, f, fs, w, h, fx, fy);
#endif
  const Bilinear q(fx, fy);
  const uint32_t chunks = w / 8;  // w <= 64
  __m128i prev[8];
  for (uint32_t c = 0; c < chunks; ++c) prev[c] = q.line(f + 8 * c);
  const uint32_t w00 = (4 - fx) * (4 - fy), w10 = fx * (4 - fy), w01 = (4 - fx) * fy, w11 = fx * fy;
  __m128i acc = _mm_setzero_si128();
  uint32_t sum = 0;
  for (uint32_t y = 0; y < h; ++y, a += as, f += fs) {
    const uint8_t *g = f + fs;
    uint32_t c = 0;
    for (; c + 2 <= chunks; c += 2) {
      const __m128i n0 = q.line(g + 8 * c), n1 = q.line(g + 8 * c + 8);
      const __m128i v = _mm_packus_epi16(q.vertical(prev[c], n0), q.vertical(prev[c + 1], n1));
      prev[c] = n0;
      prev[c + 1] = n1;
      acc = _mm_add_epi64(acc, _mm_sad_epu8(load16(a + 8 * c), v));
    }
    if (c < chunks) {
      const __m128i n0 = q.line(g + 8 * c);
      const __m128i v = _mm_packus_epi16(q.vertical(prev[c], n0), _mm_setzero_si128());
      prev[c] = n0;
      acc = _mm_add_epi64(acc, _mm_sad_epu8(load8(a + 8 * c), v));
    }
    for (uint32_t x = 8 * chunks; x < w; ++x) {
      const int s = static_cast<int>((w00 * f[x] + w10 * f[x + 1] + w01 * g[x] + w11 * g[x + 1] + 8) >> 4);
      const int d = a[x] - s;
      sum += static_cast<uint32_t>(d < 0 ? -d : d);
    }
  }
  return sum + hsum(acc);
}

inline void fill_table(MotionKernels *table) {
  table->sad = sad_x86;
  table->sad_avg = sad_avg_x86;
  table->avg_line = avg_line_x86;
  table->sad_q = sad_q_x86;
}

}  // namespace
}  // namespace motion_x86
}  // namespace framedsp
