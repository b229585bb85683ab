// SSE2 line kernels of the resampling engine: the vertical passes (8- and 16-bit) and the
// horizontal pass of the 8-bit classes over the plan's gather blocks, the samples fetched one by
// one (SSE2 has no byte shuffle).  Compiled with -msse2.
//
// Arithmetic: a pair of taps is one pmaddwd of interleaved 16-bit samples with (w0, w1); sums of
// products of |w| <= 32767 and samples 0..255 stay far inside int32, so the sums are the scalar
// ones.  8-bit: srai 14 gives -765..765, packs_epi32 keeps it, packus_epi16 clamps to 0..255.
// 16-bit: samples x ^ 0x8000 are x - 32768 as int16; since a row sums to 16384,
// sum w x = sum w (x - 32768) + 2^29, and 2^29 is a multiple of 2^14, so
// srai(sum w (x - 32768) + 8192, 14) = ((sum w x + 8192) >> 14) - 32768; packs_epi32 clamps that to
// -32768..32767, which ^ 0x8000 maps to the scalar clamp 0..65535.  The plan keeps the positive
// weights of a row below 32768, so |sum w (x - 32768)| < 2^31.
#include <emmintrin.h>

#include "resample/resample_lines.h"

namespace framedsp {
namespace {

inline __m128i load16(const void *p) { return _mm_loadu_si128(static_cast<const __m128i *>(p)); }

inline __m128i pair_weights(const int16_t *w, int t, int taps) {
  const uint32_t lo = static_cast<uint16_t>(w[t]);
  const uint32_t hi = t + 1 < taps ? static_cast<uint16_t>(w[t + 1]) : 0u;
  return _mm_set1_epi32(static_cast<int>(lo | (hi << 16)));
}

void vert16_sse2(const uint8_t *const *lines, const int16_t *w, int taps, uint8_t *dst, size_t bytes) {
  __m128i wp[kResampleMaxTaps / 2];
  for (int t = 0; t < taps; t += 2) wp[t / 2] = pair_weights(w, t, taps);
  const __m128i bias = _mm_set1_epi16(static_cast<short>(0x8000)), round = _mm_set1_epi32(8192);
  const size_t n = bytes / 2;
  size_t x = 0;
  for (; x + 8 <= n; x += 8) {
    __m128i a0 = round, a1 = round;
    for (int t = 0; t < taps; t += 2) {
      const __m128i p = _mm_xor_si128(load16(lines[t] + 2 * x), bias);
      const __m128i q = t + 1 < taps ? _mm_xor_si128(load16(lines[t + 1] + 2 * x), bias) : _mm_setzero_si128();
      a0 = _mm_add_epi32(a0, _mm_madd_epi16(_mm_unpacklo_epi16(p, q), wp[t / 2]));
      a1 = _mm_add_epi32(a1, _mm_madd_epi16(_mm_unpackhi_epi16(p, q), wp[t / 2]));
    }
    const __m128i r = _mm_packs_epi32(_mm_srai_epi32(a0, 14), _mm_srai_epi32(a1, 14));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + 2 * x), _mm_xor_si128(r, bias));
  }
  resample_vert16_range_c(lines, w, taps, dst, x, n);
}

// One block of 8 output bytes: the samples of each pair fetched by index into two words registers.
inline __m128i block_sse2(const uint8_t *src, const ResampleHPair *pb, int pairs) {
  const __m128i round = _mm_set1_epi32(8192);
  __m128i lo = round, hi = round;
  for (int q = 0; q < pairs; ++q) {
    const uint8_t *s = src + pb[q].base;
    const uint8_t *i = pb[q].idx;
    const __m128i sl = _mm_setr_epi16(s[i[0]], s[i[1]], s[i[2]], s[i[3]], s[i[4]], s[i[5]], s[i[6]], s[i[7]]);
    const __m128i sh = _mm_setr_epi16(s[i[8]], s[i[9]], s[i[10]], s[i[11]], s[i[12]], s[i[13]], s[i[14]], s[i[15]]);
    lo = _mm_add_epi32(lo, _mm_madd_epi16(sl, load16(pb[q].w)));
    hi = _mm_add_epi32(hi, _mm_madd_epi16(sh, load16(pb[q].w + 8)));
  }
  const __m128i words = _mm_packs_epi32(_mm_srai_epi32(lo, 14), _mm_srai_epi32(hi, 14));
  return _mm_packus_epi16(words, words);
}

void horz8_sse2(const uint8_t *src, uint8_t *dst, const ResampleHorzPlan *p) {
  if (!p->pairs) {
    resample_horz_bytes_c(src, dst, p, 0, p->dst_bytes);
    return;
  }
  for (size_t b = 0; b < p->blocks; ++b) {
    if (!p->fits[b]) {
      resample_horz_bytes_c(src, dst, p, 8 * b, 8 * b + 8);
      continue;
    }
    _mm_storel_epi64(reinterpret_cast<__m128i *>(dst + 8 * b), block_sse2(src, p->pairs + b * p->pair_count, p->pair_count));
  }
  resample_horz_bytes_c(src, dst, p, 8 * p->blocks, p->dst_bytes);
}

}  // namespace

void resample_vert8_sse2(const uint8_t *const *lines, const int16_t *w, int taps, uint8_t *dst, size_t bytes) {
  __m128i wp[kResampleMaxTaps / 2];
  for (int t = 0; t < taps; t += 2) wp[t / 2] = pair_weights(w, t, taps);
  const __m128i zero = _mm_setzero_si128(), round = _mm_set1_epi32(8192);
  size_t x = 0;
  for (; x + 16 <= bytes; x += 16) {
    __m128i a0 = round, a1 = round, a2 = round, a3 = round;
    for (int t = 0; t < taps; t += 2) {
      const __m128i p = load16(lines[t] + x);
      const __m128i q = t + 1 < taps ? load16(lines[t + 1] + x) : zero;
      const __m128i lo = _mm_unpacklo_epi8(p, q), hi = _mm_unpackhi_epi8(p, q);
      a0 = _mm_add_epi32(a0, _mm_madd_epi16(_mm_unpacklo_epi8(lo, zero), wp[t / 2]));
      a1 = _mm_add_epi32(a1, _mm_madd_epi16(_mm_unpackhi_epi8(lo, zero), wp[t / 2]));
      a2 = _mm_add_epi32(a2, _mm_madd_epi16(_mm_unpacklo_epi8(hi, zero), wp[t / 2]));
      a3 = _mm_add_epi32(a3, _mm_madd_epi16(_mm_unpackhi_epi8(hi, zero), wp[t / 2]));
    }
    const __m128i l = _mm_packs_epi32(_mm_srai_epi32(a0, 14), _mm_srai_epi32(a1, 14));
    const __m128i h = _mm_packs_epi32(_mm_srai_epi32(a2, 14), _mm_srai_epi32(a3, 14));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + x), _mm_packus_epi16(l, h));
  }
  resample_vert8_range_c(lines, w, taps, dst, x, bytes);
}

void resample_lines_init_sse2(ResampleLineTable *t) {
  t->vert8 = resample_vert8_sse2;
  t->vert16 = vert16_sse2;
  for (int c = 0; c <= 6; ++c) {
    t->horz[c] = horz8_sse2;
    t->horz_uses_blocks[c] = true;
  }
}

}  // namespace framedsp
