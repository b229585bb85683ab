// SSSE3 kernels of the resampling engine for the 8-bit classes.  Horizontal: each gather pair of
// a block is one 16-byte load and one pshufb, then the SSE2 kernel's pmaddwd arithmetic (exact, see
// resample_lines_sse2.cpp), two blocks a step, one 16-byte store; rows of one or two taps take the
// two-tap blocks instead.  Vertical: two-tap rows in 16-bit arithmetic.  Compiled with -mssse3.
#include <tmmintrin.h>

#include "resample/resample_lines.h"

namespace framedsp {
namespace {

inline __m128i load16(const void *p) { return _mm_loadu_si128(static_cast<const __m128i *>(p)); }

// The eight results of one block as words.
inline __m128i block_words(const uint8_t *src, const ResampleHPair *pb, int pairs) {
  const __m128i zero = _mm_setzero_si128(), round = _mm_set1_epi32(8192);
  __m128i lo = round, hi = round;
  for (int q = 0; q < pairs; ++q) {
    const __m128i s = _mm_shuffle_epi8(load16(src + pb[q].base), load16(pb[q].idx));
    lo = _mm_add_epi32(lo, _mm_madd_epi16(_mm_unpacklo_epi8(s, zero), load16(pb[q].w)));
    hi = _mm_add_epi32(hi, _mm_madd_epi16(_mm_unpackhi_epi8(s, zero), load16(pb[q].w + 8)));
  }
  return _mm_packs_epi32(_mm_srai_epi32(lo, 14), _mm_srai_epi32(hi, 14));
}

void horz8_ssse3(const uint8_t *src, uint8_t *dst, const ResampleHorzPlan *p) {
  if (!p->pairs) {
    resample_horz_bytes_c(src, dst, p, 0, p->dst_bytes);
    return;
  }
  const int n = p->pair_count;
  size_t b = 0;
  for (; b + 2 <= p->blocks; b += 2) {
    if (!(p->fits[b] & p->fits[b + 1])) {
      resample_horz_bytes_c(src, dst, p, 8 * b, 8 * b + 16);
      continue;
    }
    const __m128i w0 = block_words(src, p->pairs + b * n, n);
    const __m128i w1 = block_words(src, p->pairs + (b + 1) * n, n);
    _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + 8 * b), _mm_packus_epi16(w0, w1));
  }
  resample_horz_bytes_c(src, dst, p, 8 * b, p->dst_bytes);
}

// Eight results of half h of a two-tap block as words: p + pmulhrsw(q - p, 2f) (see
// resample_lines.h).
inline __m128i two_tap_words(const uint8_t *src, const ResampleHTwoTap &e, int h) {
  const __m128i s = _mm_shuffle_epi8(load16(src + e.base[h]), load16(e.idx[h]));
  const __m128i d = _mm_maddubs_epi16(s, _mm_set1_epi16(0x01FF));  // bytes (-1, +1): q - p
  const __m128i p = _mm_and_si128(s, _mm_set1_epi16(0x00FF));
  return _mm_add_epi16(p, _mm_mulhrs_epi16(d, load16(e.f2[h])));
}

void horz_two_tap_ssse3(const uint8_t *src, uint8_t *dst, const ResampleHorzPlan *p) {
  const ResampleHTwoTap *t = p->two_tap;
  if (!t) {
    resample_horz_bytes_c(src, dst, p, 0, p->dst_bytes);
    return;
  }
  for (size_t b = 0; b < p->two_tap_blocks; ++b) {
    if (!t[b].fits) {
      resample_horz_bytes_c(src, dst, p, 16 * b, 16 * b + 16);
      continue;
    }
    const __m128i v = _mm_packus_epi16(two_tap_words(src, t[b], 0), two_tap_words(src, t[b], 1));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + 16 * b), v);
  }
  resample_horz_bytes_c(src, dst, p, 16 * p->two_tap_blocks, p->dst_bytes);
}

// One-tap rows: the p bytes of a block's halves (words 0x00pp of the pair shuffle, packed).
void horz_one_tap_ssse3(const uint8_t *src, uint8_t *dst, const ResampleHorzPlan *p) {
  const ResampleHTwoTap *t = p->two_tap;
  if (!t) {
    resample_horz_bytes_c(src, dst, p, 0, p->dst_bytes);
    return;
  }
  const __m128i low = _mm_set1_epi16(0x00FF);
  for (size_t b = 0; b < p->two_tap_blocks; ++b) {
    if (!t[b].fits) {
      resample_horz_bytes_c(src, dst, p, 16 * b, 16 * b + 16);
      continue;
    }
    const __m128i h0 = _mm_and_si128(_mm_shuffle_epi8(load16(src + t[b].base[0]), load16(t[b].idx[0])), low);
    const __m128i h1 = _mm_and_si128(_mm_shuffle_epi8(load16(src + t[b].base[1]), load16(t[b].idx[1])), low);
    _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + 16 * b), _mm_packus_epi16(h0, h1));
  }
  resample_horz_bytes_c(src, dst, p, 16 * p->two_tap_blocks, p->dst_bytes);
}

// Two-tap rows (w0 + w1 = 16384): p + pmulhrsw(q - p, 2f), the arithmetic of the two-tap blocks,
// 16 bytes a step; other rows take the SSE2 kernel.
void vert8_ssse3(const uint8_t *const *lines, const int16_t *w, int taps, uint8_t *dst, size_t bytes) {
  if (taps != 2 || int32_t{w[0]} + w[1] != kResampleOne) {
    resample_vert8_sse2(lines, w, taps, dst, bytes);
    return;
  }
  const bool swap = w[1] > kResampleOne - 1;
  const uint8_t *a = lines[swap ? 1 : 0], *b = lines[swap ? 0 : 1];
  const __m128i f2 = _mm_set1_epi16(static_cast<short>(2 * (swap ? w[0] : w[1])));
  const __m128i zero = _mm_setzero_si128();
  size_t x = 0;
  for (; x + 16 <= bytes; x += 16) {
    const __m128i pa = load16(a + x), pb = load16(b + x);
    const __m128i lo = _mm_unpacklo_epi8(pa, zero), hi = _mm_unpackhi_epi8(pa, zero);
    const __m128i dl = _mm_sub_epi16(_mm_unpacklo_epi8(pb, zero), lo);
    const __m128i dh = _mm_sub_epi16(_mm_unpackhi_epi8(pb, zero), hi);
    const __m128i r = _mm_packus_epi16(_mm_add_epi16(lo, _mm_mulhrs_epi16(dl, f2)),
                                       _mm_add_epi16(hi, _mm_mulhrs_epi16(dh, f2)));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + x), r);
  }
  resample_vert8_range_c(lines, w, taps, dst, x, bytes);
}

}  // namespace

void resample_lines_init_ssse3(ResampleLineTable *t) {
  for (int c = 0; c <= 6; ++c) {
    t->horz[c] = horz8_ssse3;
    t->horz_uses_blocks[c] = true;
    t->horz_two_tap[c] = horz_two_tap_ssse3;
    t->horz_one_tap[c] = horz_one_tap_ssse3;
  }
  t->vert8 = vert8_ssse3;
}

}  // namespace framedsp
