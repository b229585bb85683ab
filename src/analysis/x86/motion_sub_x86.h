// sad_sub16 on x86 (see motion_kernels.h), written once for SSE2 and AVX2 like motion_sad_x86.h: the
// unnamed namespace keeps each ISA's copy in its includer's object file.  Each source makes one
// 16-sample line of its plane at a time in registers (with AVX2 two lines, one a lane), straight
// from the picture; plane 2 and 3 keep the lines their filter spans and step them down.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "analysis/motion_kernels.h"
#include "analysis/x86/motion_sad_x86.h"

namespace framedsp {
namespace motion_x86 {
namespace {

// The six-tap filter on 16 samples (taps as in six_store).  With AVX2 the SSSE3 pmaddubsw weighs
// tap pairs; otherwise 16-bit products.
#if defined(__AVX2__)
inline __m128i taps16(__m128i p01, __m128i p23, __m128i p45) {
  const __m128i w01 = _mm_set1_epi16(static_cast<short>(0xFB01)), w23 = _mm_set1_epi16(static_cast<short>(0x1414));
  const __m128i w45 = _mm_set1_epi16(static_cast<short>(0x01FB));
  const __m128i v = _mm_add_epi16(_mm_add_epi16(_mm_maddubs_epi16(p01, w01), _mm_maddubs_epi16(p23, w23)),
                                  _mm_maddubs_epi16(p45, w45));
  return _mm_mulhrs_epi16(v, _mm_set1_epi16(1 << 10));
}
// Along a line the loads at p - 2, p, p + 2 hold the tap pairs of the even outputs, those one
// further of the odd ones.
inline __m128i across16(const uint8_t *p) {
  const __m128i order = _mm_setr_epi8(0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15);
  const __m128i even = taps16(load16(p - 2), load16(p), load16(p + 2));
  const __m128i odd = taps16(load16(p - 1), load16(p + 1), load16(p + 3));
  return _mm_shuffle_epi8(_mm_packus_epi16(even, odd), order);
}
inline __m128i down16(const __m128i l[6]) {
  const __m128i lo = taps16(_mm_unpacklo_epi8(l[0], l[1]), _mm_unpacklo_epi8(l[2], l[3]), _mm_unpacklo_epi8(l[4], l[5]));
  const __m128i hi = taps16(_mm_unpackhi_epi8(l[0], l[1]), _mm_unpackhi_epi8(l[2], l[3]), _mm_unpackhi_epi8(l[4], l[5]));
  return _mm_packus_epi16(lo, hi);
}
#else
inline __m128i taps16(const __m128i v[6], bool high) {
  const __m128i z = _mm_setzero_si128();
  __m128i w[6];
  for (int i = 0; i < 6; ++i) w[i] = high ? _mm_unpackhi_epi8(v[i], z) : _mm_unpacklo_epi8(v[i], z);
  const __m128i outer = _mm_add_epi16(w[0], w[5]), mid = _mm_add_epi16(w[1], w[4]), inner = _mm_add_epi16(w[2], w[3]);
  const __m128i s = _mm_add_epi16(_mm_sub_epi16(outer, _mm_mullo_epi16(mid, _mm_set1_epi16(5))),
                                  _mm_mullo_epi16(inner, _mm_set1_epi16(20)));
  return _mm_srai_epi16(_mm_add_epi16(s, _mm_set1_epi16(16)), 5);
}
inline __m128i down16(const __m128i l[6]) { return _mm_packus_epi16(taps16(l, false), taps16(l, true)); }
inline __m128i across16(const uint8_t *p) {
  const __m128i v[6] = {load16(p - 2), load16(p - 1), load16(p), load16(p + 1), load16(p + 2), load16(p + 3)};
  return down16(v);
}
#endif

// The lines of one source, from line 0 on: next() gives 16 samples and steps down.
template <int Kind>
struct SubLines {
  const uint8_t *p;
  ptrdiff_t s;
  __m128i l[6];
  static __m128i line(const uint8_t *q) { return Kind == 3 ? across16(q) : load16(q); }
  SubLines(const uint8_t *f, ptrdiff_t fs) : p(f), s(fs) {
    if (Kind < 2) return;
    for (int i = 1; i < 6; ++i) l[i] = line(f + (i - 3) * fs);
    p = f + 3 * fs;
  }
  __m128i next() {
    if (Kind < 2) {
      const __m128i v = Kind == 1 ? across16(p) : load16(p);
      p += s;
      return v;
    }
    for (int i = 0; i < 5; ++i) l[i] = l[i + 1];
    l[5] = line(p);
    p += s;
    return down16(l);
  }
};

template <int K0, int K1>
void sub16_lines(const uint8_t *a, ptrdiff_t as, const uint8_t *const f[2], ptrdiff_t fs, uint32_t h, uint32_t sy,
                 uint32_t out[4]) {
  SubLines<K0> b(f[0], fs);
  SubLines<K1> c(f[1], fs);
  const uint32_t top = sy < h ? sy : h;
  for (int part = 0; part < 2; ++part) {
    __m128i acc = _mm_setzero_si128();
    for (uint32_t y = part ? top : 0, end = part ? h : top; y < end; ++y, a += as) {
      acc = _mm_add_epi64(acc, _mm_sad_epu8(load16(a), _mm_avg_epu8(b.next(), c.next())));
    }
    halves(acc, out + 2 * part);
  }
}

#if defined(__AVX2__)
// Two lines a register: line j in the lower lane, j + 1 in the upper.
inline __m256i taps32(__m256i p01, __m256i p23, __m256i p45) {
  const __m256i w01 = _mm256_set1_epi16(static_cast<short>(0xFB01));
  const __m256i w23 = _mm256_set1_epi16(static_cast<short>(0x1414)), w45 = _mm256_set1_epi16(static_cast<short>(0x01FB));
  const __m256i v = _mm256_add_epi16(
      _mm256_add_epi16(_mm256_maddubs_epi16(p01, w01), _mm256_maddubs_epi16(p23, w23)), _mm256_maddubs_epi16(p45, w45));
  return _mm256_mulhrs_epi16(v, _mm256_set1_epi16(1 << 10));
}
inline __m256i across32(const uint8_t *p, ptrdiff_t s) {
  const __m256i order = _mm256_setr_epi8(0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15,  //
                                         0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15);
  // Two loads span columns -2 .. 18; the views between them are shifted out of the pair (loads
  // are the scarcer resource here).  tail holds columns 14 .. 18, so no column past 18 is read.
  const __m256i l = lines2(p - 2, s), r = lines2(p + 3, s), tail = _mm256_srli_si256(r, 11);
  const __m256i even = taps32(l, _mm256_alignr_epi8(tail, l, 2), _mm256_alignr_epi8(tail, l, 4));
  const __m256i odd = taps32(_mm256_alignr_epi8(tail, l, 1), _mm256_alignr_epi8(tail, l, 3), r);
  return _mm256_shuffle_epi8(_mm256_packus_epi16(even, odd), order);
}
// The upper lane of a and the lower of b.
inline __m256i straddle(__m256i a, __m256i b) { return _mm256_permute2x128_si256(a, b, 0x21); }

// The lines of one source two at a time, from lines 0 and 1 on.  Planes 2 and 3 keep the window
// of seven lines as pairs (i - 2, i - 1), i = 0..5: the odd-started pairs are made (loaded or
// filtered across), the even-started ones joined from their neighbours, so that no line beyond
// h + 2 is read.  The window is held as the byte interleaves of pairs 0 and 1, 2 and 3, 4 and 5
// (low and high 8 columns), the taps' operands: two steps down, the first two are the last two.
template <int Kind>
struct SubPairs {
  const uint8_t *p;
  ptrdiff_t s;
  __m256i lo[3], hi[3], odd;  // odd: pair 3 before a step, the one the next straddles from
  static __m256i pair(const uint8_t *q, ptrdiff_t s) { return Kind == 3 ? across32(q, s) : lines2(q, s); }
  void push(int i, __m256i a, __m256i b) { lo[i] = _mm256_unpacklo_epi8(a, b), hi[i] = _mm256_unpackhi_epi8(a, b); }
  SubPairs(const uint8_t *f, ptrdiff_t fs) : p(f), s(fs) {
    if (Kind < 2) return;
    const __m256i w1 = pair(f - fs, fs);
    odd = pair(f + fs, fs);
    const __m128i first = SubLines<Kind>::line(f - 2 * fs);
    push(0, _mm256_inserti128_si256(_mm256_castsi128_si256(first), _mm256_castsi256_si128(w1), 1), w1);
    push(1, straddle(w1, odd), odd);
    p = f + 3 * fs;
  }
  __m256i next() {
    if (Kind < 2) {
      const __m256i v = Kind == 1 ? across32(p, s) : lines2(p, s);
      p += 2 * s;
      return v;
    }
    const __m256i w5 = pair(p, s);
    push(2, straddle(odd, w5), w5);
    odd = w5;
    p += 2 * s;
    const __m256i v = _mm256_packus_epi16(taps32(lo[0], lo[1], lo[2]), taps32(hi[0], hi[1], hi[2]));
    lo[0] = lo[1], hi[0] = hi[1], lo[1] = lo[2], hi[1] = hi[2];
    return v;
  }
  // The line after the last pair, alone: the lower lanes of the window's first two interleaves
  // are its lines -2 .. 1.
  __m128i last() const {
    if (Kind < 2) return Kind == 1 ? across16(p) : load16(p);
    const __m128i l2 = _mm256_extracti128_si256(odd, 1), l3 = SubLines<Kind>::line(p);
    return _mm_packus_epi16(
        taps16(_mm256_castsi256_si128(lo[0]), _mm256_castsi256_si128(lo[1]), _mm_unpacklo_epi8(l2, l3)),
        taps16(_mm256_castsi256_si128(hi[0]), _mm256_castsi256_si128(hi[1]), _mm_unpackhi_epi8(l2, l3)));
  }
};

// Pairs of lines; a pair across the split after sy lines gives each part its own lane, and an odd
// last line is made alone.
template <int K0, int K1>
void sub16_pairs(const uint8_t *a, ptrdiff_t as, const uint8_t *const f[2], ptrdiff_t fs, uint32_t h, uint32_t sy,
                 uint32_t out[4]) {
  SubPairs<K0> b(f[0], fs);
  SubPairs<K1> c(f[1], fs);
  const uint32_t top = sy < h ? sy : h, pairs = h / 2;
  __m256i acc[2] = {_mm256_setzero_si256(), _mm256_setzero_si256()};
  auto sad = [&] {
    const __m256i d = _mm256_sad_epu8(lines2(a, as), _mm256_avg_epu8(b.next(), c.next()));
    a += 2 * as;
    return d;
  };
  uint32_t i = 0;
  for (; i < top / 2; ++i) acc[0] = _mm256_add_epi64(acc[0], sad());
  if (top % 2 && top < h) {
    const __m256i d = sad();
    acc[0] = _mm256_add_epi64(acc[0], _mm256_blend_epi32(d, _mm256_setzero_si256(), 0xF0));
    acc[1] = _mm256_add_epi64(acc[1], _mm256_blend_epi32(d, _mm256_setzero_si256(), 0x0F));
    ++i;
  }
  for (; i < pairs; ++i) acc[1] = _mm256_add_epi64(acc[1], sad());
  __m128i sum[2];
  for (int part = 0; part < 2; ++part) {
    sum[part] = _mm_add_epi64(_mm256_castsi256_si128(acc[part]), _mm256_extracti128_si256(acc[part], 1));
  }
  if (h % 2) sum[top < h] = _mm_add_epi64(sum[top < h], _mm_sad_epu8(load16(a), _mm_avg_epu8(b.last(), c.last())));
  halves(sum[0], out);
  halves(sum[1], out + 2);
}
#endif

// Planes made two lines at a time pay off once one source is filtered.
template <int K0, int K1>
void sub16(const uint8_t *a, ptrdiff_t as, const uint8_t *const f[2], ptrdiff_t fs, uint32_t h, uint32_t sy,
           uint32_t out[4]) {
#if defined(__AVX2__)
  if constexpr (K1 > 0) {
    sub16_pairs<K0, K1>(a, as, f, fs, h, sy, out);
    return;
  }
#endif
  sub16_lines<K0, K1>(a, as, f, fs, h, sy, out);
}

// The average is symmetric: the sources are taken in the order of their kinds.
void sad_sub16_x86(const uint8_t *a, ptrdiff_t as, const uint8_t *const f[2], ptrdiff_t fs, uint32_t kinds, uint32_t h,
                   uint32_t sx, uint32_t sy, uint32_t out[4]) {
  uint32_t k0 = kinds & 3, k1 = (kinds >> 2) & 3;
  const uint8_t *g[2] = {f[0], f[1]};
  if (k0 > k1) {
    const uint32_t t = k0;
    k0 = k1, k1 = t;
    g[0] = f[1], g[1] = f[0];
  }
  using Fn = void (*)(const uint8_t *, ptrdiff_t, const uint8_t *const[2], ptrdiff_t, uint32_t, uint32_t, uint32_t *);
  static constexpr Fn kPairs[10] = {sub16<0, 0>, sub16<0, 1>, sub16<0, 2>, sub16<0, 3>, sub16<1, 1>,
                                    sub16<1, 2>, sub16<1, 3>, sub16<2, 2>, sub16<2, 3>, sub16<3, 3>};
  static constexpr int kFirst[4] = {0, 4, 7, 9};  // index of (k0, k0)
  kPairs[kFirst[k0] + k1 - k0](a, as, g, fs, h, sy, out);
  if (sx == 16) join_columns(out);
}

}  // namespace
}  // namespace motion_x86
}  // namespace framedsp
