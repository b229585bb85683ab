// AVX2 line kernels of the resampling engine: the vertical passes 32 bytes a step, and the
// horizontal passes of the 8-bit classes four gather blocks a step (two blocks in the two 128-bit
// lanes of each register: vpshufb works lane by lane, so the blocks' indices apply unchanged).
// The arithmetic is the SSE2 kernels' (exact; see resample_lines_sse2.cpp), or for rows of at most
// two taps the 16-bit form of ResampleHTwoTap.  Compiled with -mavx2.
#include <immintrin.h>

#include "resample/resample_lines.h"

namespace framedsp {
namespace {

inline __m128i load16(const void *p) { return _mm_loadu_si128(static_cast<const __m128i *>(p)); }
inline __m256i load32(const void *p) { return _mm256_loadu_si256(static_cast<const __m256i *>(p)); }
inline __m256i load2x16(const void *lo, const void *hi) {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(load16(lo)), load16(hi), 1);
}

inline __m256i pair_weights(const int16_t *w, int t, int taps) {
  const uint32_t lo = static_cast<uint16_t>(w[t]);
  const uint32_t hi = t + 1 < taps ? static_cast<uint16_t>(w[t + 1]) : 0u;
  return _mm256_set1_epi32(static_cast<int>(lo | (hi << 16)));
}

// Rows of two taps with w0 + w1 = 16384: p + pmulhrsw(q - p, 2f) in 16-bit lanes (exact; see
// ResampleHTwoTap), 32 bytes a step.
// Rows of two non-negative multiples of 128 below 16384 (what 1/128-pixel phases and coarser give
// a linear row): u = a * (w0 / 128) + b * (w1 / 128) is pmaddubsw of interleaved bytes, at most
// 255 * 128, and (u * 128 + 8192) >> 14 = (u + 64) >> 7 = pmulhrsw(u, 256).
void vert8_two_tap_q7(const uint8_t *const *lines, const int16_t *w, uint8_t *dst, size_t bytes) {
  const __m256i wq = _mm256_set1_epi16(static_cast<short>((w[0] >> 7) | ((w[1] >> 7) << 8)));
  const __m256i k256 = _mm256_set1_epi16(256);
  const uint8_t *a = lines[0], *b = lines[1];
  size_t x = 0;
  for (; x + 32 <= bytes; x += 32) {
    const __m256i pa = load32(a + x), pb = load32(b + x);
    const __m256i lo = _mm256_maddubs_epi16(_mm256_unpacklo_epi8(pa, pb), wq);
    const __m256i hi = _mm256_maddubs_epi16(_mm256_unpackhi_epi8(pa, pb), wq);
    const __m256i r = _mm256_packus_epi16(_mm256_mulhrs_epi16(lo, k256), _mm256_mulhrs_epi16(hi, k256));
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + x), r);
  }
  resample_vert8_range_c(lines, w, 2, dst, x, bytes);
}

void vert8_two_tap(const uint8_t *const *lines, const int16_t *w, uint8_t *dst, size_t bytes) {
  if (((w[0] | w[1]) & 127) == 0 && w[0] >= 0 && w[1] >= 0 && w[0] < kResampleOne && w[1] < kResampleOne) {
    vert8_two_tap_q7(lines, w, dst, bytes);
    return;
  }
  const bool swap = w[1] > kResampleOne - 1;
  const uint8_t *a = lines[swap ? 1 : 0], *b = lines[swap ? 0 : 1];
  const __m256i f2 = _mm256_set1_epi16(static_cast<short>(2 * (swap ? w[0] : w[1])));
  const __m256i zero = _mm256_setzero_si256();
  size_t x = 0;
  for (; x + 32 <= bytes; x += 32) {
    const __m256i pa = load32(a + x), pb = load32(b + x);
    const __m256i lo = _mm256_unpacklo_epi8(pa, zero), hi = _mm256_unpackhi_epi8(pa, zero);
    const __m256i dl = _mm256_sub_epi16(_mm256_unpacklo_epi8(pb, zero), lo);
    const __m256i dh = _mm256_sub_epi16(_mm256_unpackhi_epi8(pb, zero), hi);
    const __m256i r = _mm256_packus_epi16(_mm256_add_epi16(lo, _mm256_mulhrs_epi16(dl, f2)),
                                          _mm256_add_epi16(hi, _mm256_mulhrs_epi16(dh, f2)));
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + x), r);
  }
  resample_vert8_range_c(lines, w, 2, dst, x, bytes);
}

void vert8_avx2(const uint8_t *const *lines, const int16_t *w, int taps, uint8_t *dst, size_t bytes) {
  if (taps == 2 && int32_t{w[0]} + w[1] == kResampleOne) {
    vert8_two_tap(lines, w, dst, bytes);
    return;
  }
  __m256i wp[kResampleMaxTaps / 2];
  for (int t = 0; t < taps; t += 2) wp[t / 2] = pair_weights(w, t, taps);
  const __m256i zero = _mm256_setzero_si256(), round = _mm256_set1_epi32(8192);
  size_t x = 0;
  for (; x + 32 <= bytes; x += 32) {
    __m256i a0 = round, a1 = round, a2 = round, a3 = round;
    for (int t = 0; t < taps; t += 2) {
      const __m256i p = load32(lines[t] + x);
      const __m256i q = t + 1 < taps ? load32(lines[t + 1] + x) : zero;
      const __m256i lo = _mm256_unpacklo_epi8(p, q), hi = _mm256_unpackhi_epi8(p, q);
      a0 = _mm256_add_epi32(a0, _mm256_madd_epi16(_mm256_unpacklo_epi8(lo, zero), wp[t / 2]));
      a1 = _mm256_add_epi32(a1, _mm256_madd_epi16(_mm256_unpackhi_epi8(lo, zero), wp[t / 2]));
      a2 = _mm256_add_epi32(a2, _mm256_madd_epi16(_mm256_unpacklo_epi8(hi, zero), wp[t / 2]));
      a3 = _mm256_add_epi32(a3, _mm256_madd_epi16(_mm256_unpackhi_epi8(hi, zero), wp[t / 2]));
    }
    // Lane-wise packs undo the lane-wise unpacks: the bytes come out in order.
    const __m256i l = _mm256_packs_epi32(_mm256_srai_epi32(a0, 14), _mm256_srai_epi32(a1, 14));
    const __m256i h = _mm256_packs_epi32(_mm256_srai_epi32(a2, 14), _mm256_srai_epi32(a3, 14));
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + x), _mm256_packus_epi16(l, h));
  }
  resample_vert8_range_c(lines, w, taps, dst, x, bytes);
}

void vert16_avx2(const uint8_t *const *lines, const int16_t *w, int taps, uint8_t *dst, size_t bytes) {
  __m256i wp[kResampleMaxTaps / 2];
  for (int t = 0; t < taps; t += 2) wp[t / 2] = pair_weights(w, t, taps);
  const __m256i bias = _mm256_set1_epi16(static_cast<short>(0x8000)), round = _mm256_set1_epi32(8192);
  const size_t n = bytes / 2;
  size_t x = 0;
  for (; x + 16 <= n; x += 16) {
    __m256i a0 = round, a1 = round;
    for (int t = 0; t < taps; t += 2) {
      const __m256i p = _mm256_xor_si256(load32(lines[t] + 2 * x), bias);
      const __m256i q = t + 1 < taps ? _mm256_xor_si256(load32(lines[t + 1] + 2 * x), bias) : _mm256_setzero_si256();
      a0 = _mm256_add_epi32(a0, _mm256_madd_epi16(_mm256_unpacklo_epi16(p, q), wp[t / 2]));
      a1 = _mm256_add_epi32(a1, _mm256_madd_epi16(_mm256_unpackhi_epi16(p, q), wp[t / 2]));
    }
    const __m256i r = _mm256_packs_epi32(_mm256_srai_epi32(a0, 14), _mm256_srai_epi32(a1, 14));
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + 2 * x), _mm256_xor_si256(r, bias));
  }
  resample_vert16_range_c(lines, w, taps, dst, x, n);
}

// Blocks a (low lane) and b (high lane): eight words each, a's in the low lane.
inline __m256i two_blocks(const uint8_t *src, const ResampleHPair *pa, const ResampleHPair *pb, int pairs) {
  const __m256i zero = _mm256_setzero_si256(), round = _mm256_set1_epi32(8192);
  __m256i lo = round, hi = round;
  for (int q = 0; q < pairs; ++q) {
    const __m256i win = load2x16(src + pa[q].base, src + pb[q].base);
    const __m256i s = _mm256_shuffle_epi8(win, load2x16(pa[q].idx, pb[q].idx));
    lo = _mm256_add_epi32(lo, _mm256_madd_epi16(_mm256_unpacklo_epi8(s, zero), load2x16(pa[q].w, pb[q].w)));
    hi = _mm256_add_epi32(hi, _mm256_madd_epi16(_mm256_unpackhi_epi8(s, zero), load2x16(pa[q].w + 8, pb[q].w + 8)));
  }
  return _mm256_packs_epi32(_mm256_srai_epi32(lo, 14), _mm256_srai_epi32(hi, 14));
}

void horz8_avx2(const uint8_t *src, uint8_t *dst, const ResampleHorzPlan *p) {
  if (!p->pairs) {
    resample_horz_bytes_c(src, dst, p, 0, p->dst_bytes);
    return;
  }
  const int n = p->pair_count;
  const ResampleHPair *pairs = p->pairs;
  size_t b = 0;
  for (; b + 4 <= p->blocks; b += 4) {
    if (!(p->fits[b] & p->fits[b + 1] & p->fits[b + 2] & p->fits[b + 3])) {
      resample_horz_bytes_c(src, dst, p, 8 * b, 8 * b + 32);
      continue;
    }
    // [A | B] and [C | D] words; packus gives [A C | B D], the permute [A B C D].
    const __m256i ab = two_blocks(src, pairs + b * n, pairs + (b + 1) * n, n);
    const __m256i cd = two_blocks(src, pairs + (b + 2) * n, pairs + (b + 3) * n, n);
    const __m256i bytes = _mm256_permute4x64_epi64(_mm256_packus_epi16(ab, cd), 0xD8);
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + 8 * b), bytes);
  }
  resample_horz_bytes_c(src, dst, p, 8 * b, p->dst_bytes);
}

// A two-tap block as sixteen words, half 0 in the low lane: p + pmulhrsw(q - p, 2f).
inline __m256i two_tap_words(const uint8_t *src, const ResampleHTwoTap &e) {
  const __m256i win = load2x16(src + e.base[0], src + e.base[1]);
  const __m256i s = _mm256_shuffle_epi8(win, load32(e.idx));
  const __m256i d = _mm256_maddubs_epi16(s, _mm256_set1_epi16(0x01FF));  // bytes (-1, +1): q - p
  const __m256i p = _mm256_and_si256(s, _mm256_set1_epi16(0x00FF));
  return _mm256_add_epi16(p, _mm256_mulhrs_epi16(d, load32(e.f2)));
}

// The blocks of a one- or two-tap plan, two at a time, then one; blocks whose window does not fit
// and the tail take the scalar rows.
template <__m256i (*Words)(const uint8_t *, const ResampleHTwoTap &)>
void horz_blocks_avx2(const uint8_t *src, uint8_t *dst, const ResampleHorzPlan *p) {
  const ResampleHTwoTap *t = p->two_tap;
  if (!t) {
    resample_horz_bytes_c(src, dst, p, 0, p->dst_bytes);
    return;
  }
  const size_t n = p->two_tap_blocks;
  size_t b = 0;
  for (; b + 2 <= n; b += 2) {
    if (!(t[b].fits & t[b + 1].fits)) {
      resample_horz_bytes_c(src, dst, p, 16 * b, 16 * b + 32);
      continue;
    }
    // Words [A0 | A1] and [B0 | B1]; packus gives [A0 B0 | A1 B1], the permute [A0 A1 B0 B1].
    const __m256i v = _mm256_packus_epi16(Words(src, t[b]), Words(src, t[b + 1]));
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + 16 * b), _mm256_permute4x64_epi64(v, 0xD8));
  }
  if (b < n && t[b].fits) {
    const __m256i v = _mm256_packus_epi16(Words(src, t[b]), _mm256_setzero_si256());
    _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + 16 * b),
                     _mm256_castsi256_si128(_mm256_permute4x64_epi64(v, 0xD8)));
    ++b;
  }
  resample_horz_bytes_c(src, dst, p, 16 * b, p->dst_bytes);
}

void horz_two_tap_avx2(const uint8_t *src, uint8_t *dst, const ResampleHorzPlan *p) {
  horz_blocks_avx2<two_tap_words>(src, dst, p);
}

// Two lines through the two-tap blocks, each result clamped to 0..255 as its byte would be, then
// the vertical two-tap form on the words: the bytes of horz_two_tap_avx2 and vert8_avx2.
void horz_pair_avx2(const uint8_t *src0, const uint8_t *src1, uint8_t *dst, const ResampleHorzPlan *p,
                    const int16_t *w) {
  const ResampleHTwoTap *t = p->two_tap;
  if (!t || int32_t{w[0]} + w[1] != kResampleOne) {
    resample_horz_pair_bytes_c(src0, src1, dst, p, w, 0, p->dst_bytes);
    return;
  }
  const bool swap = w[1] > kResampleOne - 1;
  const uint8_t *a = swap ? src1 : src0, *b = swap ? src0 : src1;
  const __m256i f2 = _mm256_set1_epi16(static_cast<short>(2 * (swap ? w[0] : w[1])));
  const __m256i zero = _mm256_setzero_si256(), max = _mm256_set1_epi16(255);
  auto blend = [&](const ResampleHTwoTap &e) {
    const __m256i pa = _mm256_min_epi16(_mm256_max_epi16(two_tap_words(a, e), zero), max);
    const __m256i pb = _mm256_min_epi16(_mm256_max_epi16(two_tap_words(b, e), zero), max);
    return _mm256_add_epi16(pa, _mm256_mulhrs_epi16(_mm256_sub_epi16(pb, pa), f2));
  };
  const size_t n = p->two_tap_blocks;
  size_t k = 0;
  for (; k + 2 <= n; k += 2) {
    if (!(t[k].fits & t[k + 1].fits)) {
      resample_horz_pair_bytes_c(src0, src1, dst, p, w, 16 * k, 16 * k + 32);
      continue;
    }
    const __m256i v = _mm256_packus_epi16(blend(t[k]), blend(t[k + 1]));
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + 16 * k), _mm256_permute4x64_epi64(v, 0xD8));
  }
  resample_horz_pair_bytes_c(src0, src1, dst, p, w, 16 * k, p->dst_bytes);
}

// One-tap rows: p of each output byte, as sixteen words (half 0 in the low lane).
inline __m256i one_tap_words(const uint8_t *src, const ResampleHTwoTap &e) {
  const __m256i s = _mm256_shuffle_epi8(load2x16(src + e.base[0], src + e.base[1]), load32(e.idx));
  return _mm256_and_si256(s, _mm256_set1_epi16(0x00FF));
}

void horz_one_tap_avx2(const uint8_t *src, uint8_t *dst, const ResampleHorzPlan *p) {
  horz_blocks_avx2<one_tap_words>(src, dst, p);
}

}  // namespace

void resample_lines_init_avx2(ResampleLineTable *t) {
  t->vert8 = vert8_avx2;
  t->vert16 = vert16_avx2;
  for (int c = 0; c <= 6; ++c) {
    t->horz[c] = horz8_avx2;
    t->horz_uses_blocks[c] = true;
    t->horz_two_tap[c] = horz_two_tap_avx2;
    t->horz_one_tap[c] = horz_one_tap_avx2;
    t->horz_pair[c] = horz_pair_avx2;
  }
}

}  // namespace framedsp
