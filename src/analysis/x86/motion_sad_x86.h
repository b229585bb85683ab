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

// Bilinear quarter-pixel samples on the fly (see sad_q in motion_kernels.h): 8 samples as 16-bit
// lanes.  Every product and sum stays below 16 * 255 + 8, so 16-bit lanes are exact.
struct Bilinear {
  __m128i wx0, wx1, wy0, wy1, round;
  Bilinear(uint32_t fx, uint32_t fy)
      : wx0(_mm_set1_epi16(static_cast<short>(4 - fx))), wx1(_mm_set1_epi16(static_cast<short>(fx))),
        wy0(_mm_set1_epi16(static_cast<short>(4 - fy))), wy1(_mm_set1_epi16(static_cast<short>(fy))),
        round(_mm_set1_epi16(8)) {}
  __m128i line(const uint8_t *p) const {
    const __m128i z = _mm_setzero_si128();
    return _mm_add_epi16(_mm_mullo_epi16(_mm_unpacklo_epi8(load8(p), z), wx0),
                         _mm_mullo_epi16(_mm_unpacklo_epi8(load8(p + 1), z), wx1));
  }
  __m128i at(const uint8_t *p, ptrdiff_t fs) const {
    const __m128i v = _mm_add_epi16(_mm_mullo_epi16(line(p), wy0), _mm_mullo_epi16(line(p + fs), wy1));
    return _mm_srli_epi16(_mm_add_epi16(v, round), 4);
  }
};

uint32_t sad_q_x86(const uint8_t *a, ptrdiff_t as, const uint8_t *f, ptrdiff_t fs, uint32_t w, uint32_t h,
                   uint32_t fx, uint32_t fy) {
  if ((fx | fy) == 0) return sad_block(a, as, One{f, fs}, w, h);
  const Bilinear q(fx, fy);
  __m128i acc = _mm_setzero_si128();
  uint32_t y = 0, sum = 0;
  if (w == 8) {
    for (; y + 2 <= h; y += 2, a += 2 * as, f += 2 * fs) {
      acc = _mm_add_epi64(acc, _mm_sad_epu8(pair8(a, as), _mm_packus_epi16(q.at(f, fs), q.at(f + fs, fs))));
    }
  }
  const uint32_t w00 = (4 - fx) * (4 - fy), w10 = fx * (4 - fy), w01 = (4 - fx) * fy, w11 = fx * fy;
  for (; y < h; ++y, a += as, f += fs) {
    uint32_t x = 0;
    for (; x + 16 <= w; x += 16) {
      const __m128i v = _mm_packus_epi16(q.at(f + x, fs), q.at(f + x + 8, fs));
      acc = _mm_add_epi64(acc, _mm_sad_epu8(load16(a + x), v));
    }
    if (x + 8 <= w) {
      const __m128i v = _mm_packus_epi16(q.at(f + x, fs), _mm_setzero_si128());
      acc = _mm_add_epi64(acc, _mm_sad_epu8(load8(a + x), v));
      x += 8;
    }
    const uint8_t *g = f + fs;
    for (; x < w; ++x) {
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
