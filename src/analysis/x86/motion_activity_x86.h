// activity4 and activity8 on x86 (see motion_kernels.h), written once for SSE2 and AVX2 like motion_sad_x86.h:
// the unnamed namespace keeps each ISA's copy in its includer's object file.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "analysis/motion_kernels.h"
#include "analysis/x86/motion_sad_x86.h"

namespace framedsp {
namespace motion_x86 {
namespace {

// Lines [0, n) of a 16-wide block: psadbw against the line shifted by a sample and against the
// next line, each lane summing 8 columns (so the halves never mix).  `line` carries the block's
// current line from one call to the next.
#if defined(__AVX2__)
inline __m256i two16(__m128i lo, __m128i hi) { return _mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1); }
inline __m128i activity_lines16(const uint8_t *&a, ptrdiff_t s, __m128i &line, uint32_t n) {
  __m256i acc = _mm256_setzero_si256();
  uint32_t y = 0;
  for (; y + 2 <= n; y += 2, a += 2 * s) {
    const __m128i l1 = load16(a + s), l2 = load16(a + 2 * s);
    const __m256i here = two16(line, l1), right = two16(load16(a + 1), load16(a + s + 1)), below = two16(l1, l2);
    acc = _mm256_add_epi64(acc, _mm256_add_epi64(_mm256_sad_epu8(here, right), _mm256_sad_epu8(here, below)));
    line = l2;
  }
  __m128i sum = _mm_add_epi64(_mm256_castsi256_si128(acc), _mm256_extracti128_si256(acc, 1));
  if (y < n) {
    const __m128i l1 = load16(a + s);
    sum = _mm_add_epi64(sum, _mm_add_epi64(_mm_sad_epu8(line, load16(a + 1)), _mm_sad_epu8(line, l1)));
    line = l1;
    a += s;
  }
  return sum;
}
#else
inline __m128i activity_lines16(const uint8_t *&a, ptrdiff_t s, __m128i &line, uint32_t n) {
  __m128i acc = _mm_setzero_si128();
  for (uint32_t y = 0; y < n; ++y, a += s) {
    const __m128i below = load16(a + s);
    acc = _mm_add_epi64(acc, _mm_add_epi64(_mm_sad_epu8(line, load16(a + 1)), _mm_sad_epu8(line, below)));
    line = below;
  }
  return acc;
}
#endif

// 16-wide blocks split after 8 or 16 columns take psadbw's halves; the rest two sad_q4 passes.
void activity4_x86(const uint8_t *a, ptrdiff_t s, uint32_t w, uint32_t h, uint32_t sx, uint32_t sy,
                   uint32_t out[4]) {
  if (w == 16 && (sx == 8 || sx == 16)) {
    const uint32_t top = sy < h ? sy : h;
    __m128i line = load16(a);
    halves(activity_lines16(a, s, line, top), out);
    halves(activity_lines16(a, s, line, h - top), out + 2);
    if (sx == 16) join_columns(out);
    return;
  }
  uint32_t across[4], down[4];
  sad_q4_x86(a, s, a + 1, s, w, h, 0, 0, sx, sy, across);
  sad_q4_x86(a, s, a + s, s, w, h, 0, 0, sx, sy, down);
  for (int q = 0; q < 4; ++q) out[q] = across[q] + down[q];
}

// activity8: 32 columns (AVX2) or 16 a step, each step down the strip with its sums in a register
// (psadbw's lanes are the 8-column groups), then the last columns by the scalar kernel.
template <class V, class Load, class Sad, class Add>
inline V activity_slab(const uint8_t *&p, ptrdiff_t s, uint32_t n, V acc, Load load, Sad sad, Add add) {
  V line = load(p);
  for (uint32_t y = 0; y < n; ++y, p += s) {
    const V below = load(p + s);
    acc = add(acc, add(sad(line, load(p + 1)), sad(line, below)));
    line = below;
  }
  return acc;
}

#if defined(__AVX2__)
// 64 columns down n lines: two slabs side by side, so that their sums run in parallel.
inline void activity_slab64(const uint8_t *&p, ptrdiff_t s, uint32_t n, uint32_t *out) {
  __m256i acc0 = _mm256_setzero_si256(), acc1 = _mm256_setzero_si256();
  __m256i line0 = load32(p), line1 = load32(p + 32);
  for (uint32_t y = 0; y < n; ++y, p += s) {
    const __m256i below0 = load32(p + s), below1 = load32(p + s + 32);
    acc0 = _mm256_add_epi64(acc0, _mm256_add_epi64(_mm256_sad_epu8(line0, load32(p + 1)), _mm256_sad_epu8(line0, below0)));
    acc1 = _mm256_add_epi64(acc1, _mm256_add_epi64(_mm256_sad_epu8(line1, load32(p + 33)), _mm256_sad_epu8(line1, below1)));
    line0 = below0, line1 = below1;
  }
  // Each 64-bit lane holds one 8-column group's sum: pack the eight into 32-bit words in order.
  const __m256i both = _mm256_permutevar8x32_epi32(_mm256_castps_si256(_mm256_shuffle_ps(
                                                       _mm256_castsi256_ps(acc0), _mm256_castsi256_ps(acc1), 0x88)),
                                                   _mm256_setr_epi32(0, 1, 4, 5, 2, 3, 6, 7));
  _mm256_storeu_si256(reinterpret_cast<__m256i *>(out), both);
}
#endif

void activity8_x86(const uint8_t *a, ptrdiff_t s, uint32_t w, uint32_t h, uint32_t sy, uint32_t *top,
                   uint32_t *bottom) {
  uint32_t x = 0;
  const uint32_t upper = sy < h ? sy : h;
#if defined(__AVX2__)
  for (; x + 64 <= w; x += 64) {
    const uint8_t *p = a + x;
    activity_slab64(p, s, upper, top + x / 8);
    activity_slab64(p, s, h - upper, bottom + x / 8);
  }
  auto load_w = [](const uint8_t *p) { return load32(p); };
  auto sad_w = [](__m256i u, __m256i v) { return _mm256_sad_epu8(u, v); };
  auto add_w = [](__m256i u, __m256i v) { return _mm256_add_epi64(u, v); };
  for (; x + 32 <= w; x += 32) {
    const uint8_t *p = a + x;
    alignas(32) uint64_t t[4], b[4];
    _mm256_store_si256(reinterpret_cast<__m256i *>(t),
                       activity_slab(p, s, upper, _mm256_setzero_si256(), load_w, sad_w, add_w));
    _mm256_store_si256(reinterpret_cast<__m256i *>(b),
                       activity_slab(p, s, h - upper, _mm256_setzero_si256(), load_w, sad_w, add_w));
    for (int i = 0; i < 4; ++i) top[x / 8 + i] = static_cast<uint32_t>(t[i]), bottom[x / 8 + i] = static_cast<uint32_t>(b[i]);
  }
#endif
  auto load_n = [](const uint8_t *p) { return load16(p); };
  auto sad_n = [](__m128i u, __m128i v) { return _mm_sad_epu8(u, v); };
  auto add_n = [](__m128i u, __m128i v) { return _mm_add_epi64(u, v); };
  for (; x + 16 <= w; x += 16) {
    const uint8_t *p = a + x;
    halves(activity_slab(p, s, upper, _mm_setzero_si128(), load_n, sad_n, add_n), top + x / 8);
    halves(activity_slab(p, s, h - upper, _mm_setzero_si128(), load_n, sad_n, add_n), bottom + x / 8);
  }
  if (x < w) activity8_c(a + x, s, w - x, h, sy, top + x / 8, bottom + x / 8);
}

}  // namespace
}  // namespace motion_x86
}  // namespace framedsp
