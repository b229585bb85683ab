// SSSE3 horizontal pass of the resampling engine for the 8-bit classes: each gather pair of a
// block is one 16-byte load and one pshufb, then the SSE2 kernel's pmaddwd arithmetic (exact, see
// resample_lines_sse2.cpp).  Two blocks a step, one 16-byte store.  Compiled with -mssse3.
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

}  // namespace

void resample_lines_init_ssse3(ResampleLineTable *t) {
  for (int c = 0; c <= 6; ++c) {
    t->horz[c] = horz8_ssse3;
    t->horz_uses_blocks[c] = true;
  }
}

}  // namespace framedsp
