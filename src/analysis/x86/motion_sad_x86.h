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
  if (x < w && w >= 8) {
    // The last 1..7 samples: the 8 that end the line, those already summed masked off (byte j
    // of the load is column w - 8 + j, summed before when j < 8 - (w - x)).
    const __m128i keep = _mm_cmpgt_epi8(_mm_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 0, 0, 0, 0, 0, 0, 0, 0),
                                         _mm_set1_epi8(static_cast<char>(7 - (w - x))));
    acc = _mm_add_epi64(acc, _mm_sad_epu8(_mm_and_si128(load8(a + w - 8), keep), _mm_and_si128(b.at8(w - 8), keep)));
    x = w;
  }
  uint32_t sum = hsum(acc);
  for (; x < w; ++x) {
    const int d = a[x] - b.at(x);
    sum += static_cast<uint32_t>(d < 0 ? -d : d);
  }
  return sum;
}

// Blocks 8 wide: two lines a vector; 16 wide: a line a vector; otherwise by lines.
template <class B>
inline uint32_t sad_block(const uint8_t *a, ptrdiff_t as, B b, uint32_t w, uint32_t h) {
  uint32_t y = 0;
  __m128i acc = _mm_setzero_si128();
  if (w == 8) {
    for (; y + 2 <= h; y += 2, a += 2 * as, b.next(2)) {
      acc = _mm_add_epi64(acc, _mm_sad_epu8(pair8(a, as), b.pair(0)));
    }
  }
  if (w > 8 && w < 16) {
    // A line a vector: its first 8 samples and the 8 that end it, their overlap (byte j of the
    // second half, column w - 8 + j, when j < 16 - w) masked off.
    const __m128i keep = _mm_cmpgt_epi8(_mm_setr_epi8(127, 127, 127, 127, 127, 127, 127, 127, 0, 1, 2, 3, 4, 5, 6, 7),
                                        _mm_set1_epi8(static_cast<char>(15 - w)));
    for (; y < h; ++y, a += as, b.next(1)) {
      const __m128i av = _mm_unpacklo_epi64(load8(a), load8(a + w - 8));
      const __m128i bv = _mm_unpacklo_epi64(b.at8(0), b.at8(w - 8));
      acc = _mm_add_epi64(acc, _mm_sad_epu8(_mm_and_si128(av, keep), _mm_and_si128(bv, keep)));
    }
  }
  if (w == 16) {  // a line a vector, two chains of sums
    __m128i odd = _mm_setzero_si128();
    for (; y + 2 <= h; y += 2, a += 2 * as) {
      acc = _mm_add_epi64(acc, _mm_sad_epu8(load16(a), b.at16(0)));
      b.next(1);
      odd = _mm_add_epi64(odd, _mm_sad_epu8(load16(a + as), b.at16(0)));
      b.next(1);
    }
    acc = _mm_add_epi64(acc, odd);
  }
  uint32_t sum = hsum(acc);
  for (; y < h; ++y, a += as, b.next(1)) sum += sad_line(a, b, w);
  return sum;
}

// 16 x 16 blocks (the default search blocks): every line's sum independent, added as a tree, so
// the result (which the search ranks at once) waits on few additions.
#if defined(__AVX2__)
inline __m256i lines2(const uint8_t *p, ptrdiff_t s) {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(load16(p)), load16(p + s), 1);
}
inline uint32_t sum_tree(__m256i d[8]) {
  for (int n = 4; n > 0; n /= 2) {
    for (int i = 0; i < n; ++i) d[i] = _mm256_add_epi64(d[i], d[i + n]);
  }
  return hsum(_mm_add_epi64(_mm256_castsi256_si128(d[0]), _mm256_extracti128_si256(d[0], 1)));
}
inline uint32_t sad16x16(const uint8_t *a, ptrdiff_t as, const uint8_t *b, ptrdiff_t bs) {
  __m256i d[8];
  for (int i = 0; i < 8; ++i) d[i] = _mm256_sad_epu8(lines2(a + 2 * i * as, as), lines2(b + 2 * i * bs, bs));
  return sum_tree(d);
}
// A packed block: each aligned 32 bytes are two of its lines, as lines2 pairs them.
uint32_t sad16_x86(const uint8_t *a, const uint8_t *b, ptrdiff_t bs) {
  __m256i d[8];
  for (int i = 0; i < 8; ++i) {
    const __m256i pair = _mm256_load_si256(reinterpret_cast<const __m256i *>(a + 32 * i));
    d[i] = _mm256_sad_epu8(pair, lines2(b + 2 * i * bs, bs));
  }
  return sum_tree(d);
}
#else
inline uint32_t sad16x16(const uint8_t *a, ptrdiff_t as, const uint8_t *b, ptrdiff_t bs) {
  __m128i d[16];
  for (int i = 0; i < 16; ++i) d[i] = _mm_sad_epu8(load16(a + i * as), load16(b + i * bs));
  for (int n = 8; n > 0; n /= 2) {
    for (int i = 0; i < n; ++i) d[i] = _mm_add_epi64(d[i], d[i + n]);
  }
  return hsum(d[0]);
}
uint32_t sad16_x86(const uint8_t *a, const uint8_t *b, ptrdiff_t bs) {
  __m128i d[16];
  for (int i = 0; i < 16; ++i) {
    d[i] = _mm_sad_epu8(_mm_load_si128(reinterpret_cast<const __m128i *>(a + 16 * i)), load16(b + i * bs));
  }
  for (int n = 8; n > 0; n /= 2) {
    for (int i = 0; i < n; ++i) d[i] = _mm_add_epi64(d[i], d[i + n]);
  }
  return hsum(d[0]);
}
#endif

__attribute__((noinline)) uint32_t sad_any(const uint8_t *a, ptrdiff_t as, const uint8_t *b, ptrdiff_t bs, uint32_t w,
                                           uint32_t h) {
  return sad_block(a, as, One{b, bs}, w, h);
}
// The 16 x 16 path apart, so that it saves no registers for the others.
uint32_t sad_x86(const uint8_t *a, ptrdiff_t as, const uint8_t *b, ptrdiff_t bs, uint32_t w, uint32_t h) {
  if (w == 16 && h == 16) return sad16x16(a, as, b, bs);
  return sad_any(a, as, b, bs, w, h);
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

// Quadrant sums of a 16-wide block split after 8 columns: each psadbw lane sums 8 columns of a
// line, so the halves never mix.  acc[0] collects the lines above sy, acc[1] the others.
#if defined(__AVX2__)
// Words p[x] | p[x + dx] << 8 for x = 0..15: the sample pairs pmaddubsw weighs.
inline __m256i pairs16(const uint8_t *p, ptrdiff_t dx) {
  return _mm256_or_si256(_mm256_cvtepu8_epi16(load16(p)), _mm256_slli_epi16(_mm256_cvtepu8_epi16(load16(p + dx)), 8));
}

// Weights are at most 16 and samples 255: pmaddubsw sums stay below 2^12, no saturation.
inline void sad_q4_16(const uint8_t *a, ptrdiff_t as, const uint8_t *f, ptrdiff_t fs, uint32_t h, uint32_t fx,
                      uint32_t fy, uint32_t sy, uint32_t out[4]) {
  const ptrdiff_t dx = fx ? 1 : 0;
  const __m256i wt = _mm256_set1_epi16(static_cast<short>(((4 - fx) * (4 - fy)) | ((fx * (4 - fy)) << 8)));
  const __m256i wb = _mm256_set1_epi16(static_cast<short>(((4 - fx) * fy) | ((fx * fy) << 8)));
  const __m256i round = _mm256_set1_epi16(8);
  __m256i upper = fy ? pairs16(f, dx) : _mm256_setzero_si256();
  auto line = [&](uint32_t y) {
    const uint8_t *p = f + static_cast<ptrdiff_t>(y) * fs;
    __m256i v;
    if (fy) {
      const __m256i lower = pairs16(p + fs, dx);
      v = _mm256_add_epi16(_mm256_maddubs_epi16(upper, wt), _mm256_maddubs_epi16(lower, wb));
      upper = lower;
    } else {
      v = _mm256_maddubs_epi16(pairs16(p, dx), wt);
    }
    return _mm256_srli_epi16(_mm256_add_epi16(v, round), 4);
  };
  __m256i acc[2] = {_mm256_setzero_si256(), _mm256_setzero_si256()};
  uint32_t y = 0;
  while (y < h) {
    const bool two = y + 1 < h && (y + 1 != sy);
    const __m256i v0 = line(y);
    const __m256i v1 = two ? line(y + 1) : _mm256_setzero_si256();
    const __m128i a0 = load16(a + static_cast<ptrdiff_t>(y) * as);
    const __m128i a1 = two ? load16(a + static_cast<ptrdiff_t>(y + 1) * as) : _mm_setzero_si128();
    const __m256i av = _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_unpacklo_epi64(a0, a1)),
                                               _mm_unpackhi_epi64(a0, a1), 1);
    // packus keeps lanes: [v0 0..7, v1 0..7 | v0 8..15, v1 8..15], the order of av.
    const __m256i d = _mm256_sad_epu8(_mm256_packus_epi16(v0, v1), av);
    acc[y >= sy] = _mm256_add_epi64(acc[y >= sy], d);
    y += two ? 2 : 1;
  }
  for (int part = 0; part < 2; ++part) {
    const __m128i lo = _mm256_castsi256_si128(acc[part]), hi = _mm256_extracti128_si256(acc[part], 1);
    out[2 * part] = hsum(lo);
    out[2 * part + 1] = hsum(hi);
  }
}
#else
inline void sad_q4_16(const uint8_t *a, ptrdiff_t as, const uint8_t *f, ptrdiff_t fs, uint32_t h, uint32_t fx,
                      uint32_t fy, uint32_t sy, uint32_t out[4]) {
  const Bilinear q(fx, fy);
  __m128i prev[2] = {q.line(f), q.line(f + 8)}, acc[2] = {_mm_setzero_si128(), _mm_setzero_si128()};
  for (uint32_t y = 0; y < h; ++y, a += as, f += fs) {
    const __m128i n0 = q.line(f + fs), n1 = q.line(f + fs + 8);
    const __m128i v = _mm_packus_epi16(q.vertical(prev[0], n0), q.vertical(prev[1], n1));
    prev[0] = n0;
    prev[1] = n1;
    acc[y >= sy] = _mm_add_epi64(acc[y >= sy], _mm_sad_epu8(load16(a), v));
  }
  for (int part = 0; part < 2; ++part) {
    out[2 * part] = static_cast<uint32_t>(_mm_cvtsi128_si32(acc[part]));
    out[2 * part + 1] = static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_srli_si128(acc[part], 8)));
  }
}
#endif

// n lines of a 16-wide block: psadbw gives each line's two halves.  One register accumulates
// (an accumulator picked by index would live in memory).
template <class B>
inline __m128i sad_lines16(const uint8_t *&a, ptrdiff_t as, B &b, uint32_t n) {
  __m128i acc = _mm_setzero_si128();
  for (uint32_t y = 0; y < n; ++y, a += as, b.next(1)) acc = _mm_add_epi64(acc, _mm_sad_epu8(load16(a), b.at16(0)));
  return acc;
}
inline void halves(__m128i acc, uint32_t out[2]) {
  out[0] = static_cast<uint32_t>(_mm_cvtsi128_si32(acc));
  out[1] = static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_srli_si128(acc, 8)));
}
// The quadrant sums of a 16-wide block split after 8 columns and sy lines.
template <class B>
inline void sad4_lines16(const uint8_t *a, ptrdiff_t as, B b, uint32_t h, uint32_t sy, uint32_t out[4]) {
  const uint32_t top = sy < h ? sy : h;
  halves(sad_lines16(a, as, b, top), out);
  halves(sad_lines16(a, as, b, h - top), out + 2);
}
inline void sad4_16(const uint8_t *a, ptrdiff_t as, const uint8_t *f, ptrdiff_t fs, uint32_t h, uint32_t sy,
                    uint32_t out[4]) {
  sad4_lines16(a, as, One{f, fs}, h, sy, out);
}

// A 16-wide block not split by columns: the halves' sums joined.
inline void join_columns(uint32_t out[4]) {
  out[0] += out[1];
  out[2] += out[3];
  out[1] = out[3] = 0;
}

void sad_q4_x86(const uint8_t *a, ptrdiff_t as, const uint8_t *f, ptrdiff_t fs, uint32_t w, uint32_t h, uint32_t fx,
                uint32_t fy, uint32_t sx, uint32_t sy, uint32_t out[4]) {
  if (w == 16 && (sx == 8 || sx == 16)) {
    if ((fx | fy) == 0) {
      sad4_16(a, as, f, fs, h, sy, out);
    } else {
      sad_q4_16(a, as, f, fs, h, fx, fy, sy, out);
    }
    if (sx == 16) join_columns(out);
    return;
  }
  out[0] = sad_q_x86(a, as, f, fs, sx, sy, fx, fy);
  out[1] = sx < w ? sad_q_x86(a + sx, as, f + sx, fs, w - sx, sy, fx, fy) : 0;
  a += static_cast<ptrdiff_t>(sy) * as;
  f += static_cast<ptrdiff_t>(sy) * fs;
  out[2] = sy < h ? sad_q_x86(a, as, f, fs, sx, h - sy, fx, fy) : 0;
  out[3] = sx < w && sy < h ? sad_q_x86(a + sx, as, f + sx, fs, w - sx, h - sy, fx, fy) : 0;
}

// sad_avg4: 16-wide blocks split after 8 (or 16) columns take psadbw's halves; the rest four
// sad_avg sums.  With c = b the average is b itself and is skipped.
void sad_avg4_x86(const uint8_t *a, ptrdiff_t as, const uint8_t *b, ptrdiff_t bs, const uint8_t *c, ptrdiff_t cs,
                  uint32_t w, uint32_t h, uint32_t sx, uint32_t sy, uint32_t out[4]) {
  const bool same = b == c && bs == cs;
  if (w == 16 && (sx == 8 || sx == 16)) {
    if (same) {
      sad4_lines16(a, as, One{b, bs}, h, sy, out);
    } else {
      sad4_lines16(a, as, Avg{b, bs, c, cs}, h, sy, out);
    }
    if (sx == 16) join_columns(out);
    return;
  }
  auto part = [&](uint32_t x, uint32_t y, uint32_t pw, uint32_t ph) -> uint32_t {
    if (pw == 0 || ph == 0) return 0;
    const ptrdiff_t ya = static_cast<ptrdiff_t>(y);
    if (same) return sad_any(a + ya * as + x, as, b + ya * bs + x, bs, pw, ph);
    return sad_avg_x86(a + ya * as + x, as, b + ya * bs + x, bs, c + ya * cs + x, cs, pw, ph);
  };
  out[0] = part(0, 0, sx, sy);
  out[1] = part(sx, 0, w - sx, sy);
  out[2] = part(0, sy, sx, h - sy);
  out[3] = part(sx, sy, w - sx, h - sy);
}

// sad_ring on lines [y, end) of a 16-wide block: each line loads its nine samples once (the
// lower samples of a line are the upper ones of the next), eight sums in registers.
template <int Mode>
inline void ring_lines16(const uint8_t *a, ptrdiff_t as, const uint8_t *const q[4], const ptrdiff_t qs[4], uint32_t y,
                         uint32_t end, uint32_t out[9][4], int part) {
  const ptrdiff_t ks = qs[0], vs = qs[1], hs = qs[2], cs = qs[3], line = static_cast<ptrdiff_t>(y);
  const uint8_t *k = q[0] + line * ks, *v = q[1] + line * vs, *hz = q[2] + line * hs, *c = q[3] + line * cs;
  a += static_cast<ptrdiff_t>(y) * as;
  __m128i nw = load16(k), ne = load16(k + 1), n = load16(v);
  __m128i acc[4], own = _mm_setzero_si128();
  for (__m128i &x : acc) x = _mm_setzero_si128();
  for (; y < end; ++y, a += as, k += ks, v += vs, hz += hs, c += cs) {
    const __m128i sw = load16(k + ks), se = load16(k + ks + 1), s = load16(v + vs), av = load16(a);
    __m128i cand[8];
    if (Mode == 0) {
      cand[0] = nw, cand[1] = n, cand[2] = ne, cand[3] = load16(hz), cand[4] = load16(hz + 1);
      cand[5] = sw, cand[6] = s, cand[7] = se;
      own = _mm_add_epi64(own, _mm_sad_epu8(av, load16(c)));
    } else {
      const __m128i w = load16(hz), e = load16(hz + 1), centre = load16(c);
      cand[1] = _mm_avg_epu8(centre, n), cand[3] = _mm_avg_epu8(centre, w);
      cand[4] = _mm_avg_epu8(centre, e), cand[6] = _mm_avg_epu8(centre, s);
      if (Mode == 1) {
        cand[0] = _mm_avg_epu8(w, n), cand[2] = _mm_avg_epu8(e, n), cand[5] = _mm_avg_epu8(w, s), cand[7] = _mm_avg_epu8(e, s);
      } else {
        cand[0] = _mm_avg_epu8(centre, nw), cand[2] = _mm_avg_epu8(centre, ne);
        cand[5] = _mm_avg_epu8(centre, sw), cand[7] = _mm_avg_epu8(centre, se);
      }
    }
    // Two candidates a register: a line's psadbw halves are below 2^12, so the second one's
    // shifted into the upper 32 bits of each half never meets the first.
    for (int i = 0; i < 4; ++i) {
      const __m128i pair = _mm_or_si128(_mm_sad_epu8(av, cand[2 * i]), _mm_slli_epi64(_mm_sad_epu8(av, cand[2 * i + 1]), 32));
      acc[i] = _mm_add_epi64(acc[i], pair);
    }
    nw = sw, ne = se, n = s;
  }
  for (int i = 0; i < 4; ++i) {
    halves(acc[i], out[2 * i] + 2 * part);
    halves(_mm_srli_epi64(acc[i], 32), out[2 * i + 1] + 2 * part);
  }
  halves(own, out[8] + 2 * part);
}

#if defined(__AVX2__)
// The ring of a 16-wide block with two candidates a vector (the first in the lower lane, the
// second in the upper) against the block's line in both lanes: as many psadbw as with two lines a
// vector, but fewer inserts and no shifts, and a line's (SW, SE) pair is the next line's (NW, NE).
// One pass over the block, the lines above sy and the others summed apart.
inline __m256i both_lanes(const uint8_t *p) { return _mm256_broadcastsi128_si256(load16(p)); }
inline __m256i lanes(const uint8_t *lo, const uint8_t *hi) {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(load16(lo)), load16(hi), 1);
}
// Sums of the lines above sy (top) and of the others (bottom), per half: each 64-bit lane's lower
// 32 bits hold one (below 2^17).  Gives {top left, top right, bottom left, bottom right} in each
// 128-bit lane, or with `join` the halves added: {top, 0, bottom, 0}.
inline __m256i quads(__m256i top, __m256i bottom, bool join) {
  __m256i v = _mm256_castps_si256(
      _mm256_shuffle_ps(_mm256_castsi256_ps(top), _mm256_castsi256_ps(bottom), _MM_SHUFFLE(2, 0, 2, 0)));
  if (join) v = _mm256_and_si256(_mm256_add_epi32(v, _mm256_srli_epi64(v, 32)), _mm256_set1_epi64x(0xFFFFFFFF));
  return v;
}
inline void store_lanes(__m256i v, uint32_t *first, uint32_t *second) {
  _mm_storeu_si128(reinterpret_cast<__m128i *>(first), _mm256_castsi256_si128(v));
  _mm_storeu_si128(reinterpret_cast<__m128i *>(second), _mm256_extracti128_si256(v, 1));
}

template <int Mode>
inline void ring16(const uint8_t *a, ptrdiff_t as, const uint8_t *const q[4], const ptrdiff_t qs[4], uint32_t h,
                   uint32_t sy, bool join, uint32_t out[9][4]) {
  const ptrdiff_t ks = qs[0], vs = qs[1], hs = qs[2], cs = qs[3];
  const uint8_t *k = q[0], *v = q[1], *hz = q[2], *c = q[3];
  // Per part: pairs (NW, NE), (N, S), (W, E), (SW, SE) and C alone (mode 0).
  struct Sums {
    __m256i pair[4] = {_mm256_setzero_si256(), _mm256_setzero_si256(), _mm256_setzero_si256(), _mm256_setzero_si256()};
    __m128i own = _mm_setzero_si128();
  } top, bottom;
  __m256i upper = Mode == 1 ? _mm256_setzero_si256() : lanes(k, k + 1);
  uint32_t y = 0;
  auto lines = [&](uint32_t end, Sums &s) {
    __m256i acc0 = s.pair[0], acc1 = s.pair[1], acc2 = s.pair[2], acc3 = s.pair[3];
    __m128i own = s.own;
    for (; y < end; ++y, a += as, k += ks, v += vs, hz += hs, c += cs) {
      const __m256i av = both_lanes(a), we = lanes(hz, hz + 1);
      __m256i corners_n, ns, sides, corners_s;
      if (Mode == 0) {
        corners_n = upper, corners_s = lanes(k + ks, k + ks + 1), ns = lanes(v, v + vs), sides = we;
        upper = corners_s;
        own = _mm_add_epi64(own, _mm_sad_epu8(_mm256_castsi256_si128(av), load16(c)));
      } else {
        const __m256i centre = both_lanes(c), n = both_lanes(v), s = both_lanes(v + vs);
        ns = _mm256_avg_epu8(centre, _mm256_blend_epi32(n, s, 0xF0));
        sides = _mm256_avg_epu8(centre, we);
        if (Mode == 1) {
          corners_n = _mm256_avg_epu8(we, n), corners_s = _mm256_avg_epu8(we, s);
        } else {
          const __m256i lower = lanes(k + ks, k + ks + 1);
          corners_n = _mm256_avg_epu8(centre, upper), corners_s = _mm256_avg_epu8(centre, lower);
          upper = lower;
        }
      }
      acc0 = _mm256_add_epi64(acc0, _mm256_sad_epu8(av, corners_n));
      acc1 = _mm256_add_epi64(acc1, _mm256_sad_epu8(av, ns));
      acc2 = _mm256_add_epi64(acc2, _mm256_sad_epu8(av, sides));
      acc3 = _mm256_add_epi64(acc3, _mm256_sad_epu8(av, corners_s));
    }
    s.pair[0] = acc0, s.pair[1] = acc1, s.pair[2] = acc2, s.pair[3] = acc3, s.own = own;
  };
  lines(sy < h ? sy : h, top);
  lines(h, bottom);
  store_lanes(quads(top.pair[0], bottom.pair[0], join), out[0], out[2]);
  store_lanes(quads(top.pair[1], bottom.pair[1], join), out[1], out[6]);
  store_lanes(quads(top.pair[2], bottom.pair[2], join), out[3], out[4]);
  store_lanes(quads(top.pair[3], bottom.pair[3], join), out[5], out[7]);
  const __m256i centre = quads(_mm256_castsi128_si256(top.own), _mm256_castsi128_si256(bottom.own), join);
  _mm_storeu_si128(reinterpret_cast<__m128i *>(out[8]), _mm256_castsi256_si128(centre));
}
#else
template <int Mode>
inline void ring16(const uint8_t *a, ptrdiff_t as, const uint8_t *const q[4], const ptrdiff_t qs[4], uint32_t h, uint32_t sy,
                   bool join, uint32_t out[9][4]) {
  const uint32_t top = sy < h ? sy : h;
  ring_lines16<Mode>(a, as, q, qs, 0, top, out, 0);
  ring_lines16<Mode>(a, as, q, qs, top, h, out, 1);
  if (join) {
    for (int i = 0; i < 9; ++i) join_columns(out[i]);
  }
}
#endif

void sad_ring_x86(const uint8_t *a, ptrdiff_t as, const uint8_t *const q[4], const ptrdiff_t qs[4], uint32_t mode,
                  uint32_t w, uint32_t h, uint32_t sx, uint32_t sy, uint32_t out[9][4]) {
  if (w != 16 || (sx != 8 && sx != 16)) {
    for (int i = 0; i < 8; ++i) {
      const uint8_t *b, *c;
      ptrdiff_t bs, cs;
      ring_pair(q, qs, mode, i, &b, &bs, &c, &cs);
      sad_avg4_x86(a, as, b, bs, c, cs, w, h, sx, sy, out[i]);
    }
    out[8][0] = out[8][1] = out[8][2] = out[8][3] = 0;
    if (mode == 0) sad_avg4_x86(a, as, q[3], qs[3], q[3], qs[3], w, h, sx, sy, out[8]);
    return;
  }
  const bool join = sx == 16;
  if (mode == 0) {
    ring16<0>(a, as, q, qs, h, sy, join, out);
  } else if (mode == 1) {
    ring16<1>(a, as, q, qs, h, sy, join, out);
  } else {
    ring16<2>(a, as, q, qs, h, sy, join, out);
  }
}

// The six-tap half-pixel filter: (p0 + p5) - 5 (p1 + p4) + 20 (p2 + p3) lies in -2550..10710, so
// 16-bit lanes are exact; packus clamps to 0..255.  With AVX2 pmaddubsw weighs the sample pairs
// (p0, p1), (p2, p3), (p4, p5) (each pair sum within -1275..10200, no saturation).
#if defined(__AVX2__)
using Wide = __m256i;
constexpr size_t kWide = 32;
inline Wide wload(const uint8_t *p) { return load32(p); }
inline Wide six_half(Wide p0, Wide p1, Wide p2, Wide p3, Wide p4, Wide p5, bool high) {
  const Wide w01 = _mm256_set1_epi16(static_cast<short>(0xFB01)), w23 = _mm256_set1_epi16(static_cast<short>(0x1414));
  const Wide w45 = _mm256_set1_epi16(static_cast<short>(0x01FB));
  const Wide a = high ? _mm256_unpackhi_epi8(p0, p1) : _mm256_unpacklo_epi8(p0, p1);
  const Wide b = high ? _mm256_unpackhi_epi8(p2, p3) : _mm256_unpacklo_epi8(p2, p3);
  const Wide c = high ? _mm256_unpackhi_epi8(p4, p5) : _mm256_unpacklo_epi8(p4, p5);
  const Wide v = _mm256_add_epi16(_mm256_add_epi16(_mm256_maddubs_epi16(a, w01), _mm256_maddubs_epi16(b, w23)),
                                  _mm256_maddubs_epi16(c, w45));
  // (v * 2^10 + 2^14) >> 15 = (v + 16) >> 5, rounding and shift in one step.
  return _mm256_mulhrs_epi16(v, _mm256_set1_epi16(1 << 10));
}
// Unpack and pack work within 128-bit lanes, so the order survives.
inline void six_store(const Wide v[6], uint8_t *out) {
  _mm256_storeu_si256(reinterpret_cast<__m256i *>(out),
                      _mm256_packus_epi16(six_half(v[0], v[1], v[2], v[3], v[4], v[5], false),
                                          six_half(v[0], v[1], v[2], v[3], v[4], v[5], true)));
}
#else
using Wide = __m128i;
constexpr size_t kWide = 16;
inline Wide wload(const uint8_t *p) { return load16(p); }
inline Wide six(Wide p0, Wide p1, Wide p2, Wide p3, Wide p4, Wide p5) {
  const Wide outer = _mm_add_epi16(p0, p5), mid = _mm_add_epi16(p1, p4), inner = _mm_add_epi16(p2, p3);
  const Wide v = _mm_add_epi16(_mm_sub_epi16(outer, _mm_mullo_epi16(mid, _mm_set1_epi16(5))),
                               _mm_mullo_epi16(inner, _mm_set1_epi16(20)));
  return _mm_srai_epi16(_mm_add_epi16(v, _mm_set1_epi16(16)), 5);
}
inline Wide lo16(Wide v) { return _mm_unpacklo_epi8(v, _mm_setzero_si128()); }
inline Wide hi16(Wide v) { return _mm_unpackhi_epi8(v, _mm_setzero_si128()); }
inline void six_store(const Wide v[6], uint8_t *out) {
  _mm_storeu_si128(reinterpret_cast<__m128i *>(out),
                   _mm_packus_epi16(six(lo16(v[0]), lo16(v[1]), lo16(v[2]), lo16(v[3]), lo16(v[4]), lo16(v[5])),
                                    six(hi16(v[0]), hi16(v[1]), hi16(v[2]), hi16(v[3]), hi16(v[4]), hi16(v[5]))));
}
#endif

#if defined(__AVX2__)
// Along a line the tap pairs are adjacent bytes, so plain loads feed pmaddubsw without unpacking:
// 16-bit lane k of the loads at p - 2, p, p + 2 weighs the taps of output 2k, those at p - 1,
// p + 1, p + 3 the taps of output 2k + 1.  Pack and one shuffle interleave the two halves.
inline Wide six_pairs(const uint8_t *p) {
  const Wide w01 = _mm256_set1_epi16(static_cast<short>(0xFB01)), w23 = _mm256_set1_epi16(static_cast<short>(0x1414));
  const Wide w45 = _mm256_set1_epi16(static_cast<short>(0x01FB));
  const Wide v = _mm256_add_epi16(_mm256_add_epi16(_mm256_maddubs_epi16(wload(p - 2), w01),
                                                   _mm256_maddubs_epi16(wload(p), w23)),
                                  _mm256_maddubs_epi16(wload(p + 2), w45));
  return _mm256_mulhrs_epi16(v, _mm256_set1_epi16(1 << 10));
}
void half_h_x86(const uint8_t *p, uint8_t *out, size_t n) {
  const Wide order = _mm256_setr_epi8(0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15, 0, 8, 1, 9, 2, 10, 3,
                                      11, 4, 12, 5, 13, 6, 14, 7, 15);
  size_t i = 0;
  for (; i + kWide <= n; i += kWide) {
    const Wide v = _mm256_packus_epi16(six_pairs(p + i), six_pairs(p + i + 1));
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(out + i), _mm256_shuffle_epi8(v, order));
  }
  if (i < n) half_h_c(p + i, out + i, n - i);
}
#else
void half_h_x86(const uint8_t *p, uint8_t *out, size_t n) {
  size_t i = 0;
  for (; i + kWide <= n; i += kWide) {
    const Wide v[6] = {wload(p + i - 2), wload(p + i - 1), wload(p + i), wload(p + i + 1), wload(p + i + 2),
                       wload(p + i + 3)};
    six_store(v, out + i);
  }
  if (i < n) half_h_c(p + i, out + i, n - i);
}
#endif

void half_v_x86(const uint8_t *const r[6], uint8_t *out, size_t n) {
  size_t i = 0;
  for (; i + kWide <= n; i += kWide) {
    const Wide v[6] = {wload(r[0] + i), wload(r[1] + i), wload(r[2] + i), wload(r[3] + i), wload(r[4] + i),
                       wload(r[5] + i)};
    six_store(v, out + i);
  }
  if (i < n) {
    const uint8_t *rest[6] = {r[0] + i, r[1] + i, r[2] + i, r[3] + i, r[4] + i, r[5] + i};
    half_v_c(rest, out + i, n - i);
  }
}

inline void fill_table(MotionKernels *table) {
  table->sad = sad_x86;
  table->sad16 = sad16_x86;
  table->sad_avg = sad_avg_x86;
  table->avg_line = avg_line_x86;
  table->sad_q = sad_q_x86;
  table->sad_q4 = sad_q4_x86;
  table->sad_avg4 = sad_avg4_x86;
  table->sad_ring = sad_ring_x86;
  table->half_h = half_h_x86;
  table->half_v = half_v_x86;
}

}  // namespace
}  // namespace motion_x86
}  // namespace framedsp
