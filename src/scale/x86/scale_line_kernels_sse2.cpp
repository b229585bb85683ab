// SSE2 scaler line kernels: the line blender's 16-byte middle.  Compiled with -msse2; entered
// when cpu_flags() has SSE2 (the x86-64 baseline).
//
// Each byte pair (a, b) is widened to 16 bits and interleaved, so one madd gives
// a * weight_a + b * weight_b in 32 bits (both weights fit int16: 0..16384); + 8192, >> 14, and
// two packs bring the result back to bytes.  The result lies in 0..255 by construction, so the
// saturating packs never clip: the same values as the scalar formula.
#include <emmintrin.h>

#include <cstring>

#include "scale/scale_line_kernels.h"

namespace framedsp {
namespace {

inline __m128i blend_half(__m128i a16, __m128i b16, __m128i weights, __m128i round) {
  const __m128i lo = _mm_madd_epi16(_mm_unpacklo_epi16(a16, b16), weights);
  const __m128i hi = _mm_madd_epi16(_mm_unpackhi_epi16(a16, b16), weights);
  return _mm_packs_epi32(_mm_srai_epi32(_mm_add_epi32(lo, round), 14),
                         _mm_srai_epi32(_mm_add_epi32(hi, round), 14));
}

}  // namespace

void scale_blend_sse2(const uint8_t *a, const uint8_t *b, uint8_t *dst, uint32_t weight_b,
                      uint32_t weight_a, size_t bytes) {
  if (weight_a == 0) {
    std::memmove(dst, b, bytes);
    return;
  }
  size_t i = 0;
  // Head: single bytes until dst sits on a 16-byte boundary (only when a middle follows).
  if (bytes >= 16) {
    const size_t misalign = reinterpret_cast<uintptr_t>(dst) & 15u;
    const size_t head = misalign ? 16 - misalign : 0;
    for (; i < head; ++i) dst[i] = scale_blend_byte(a[i], b[i], weight_a, weight_b);
  }
  const __m128i weights = _mm_set1_epi32(static_cast<int>((weight_b << 16) | weight_a));
  const __m128i round = _mm_set1_epi32(8192);
  const __m128i zero = _mm_setzero_si128();
  for (; i + 16 <= bytes; i += 16) {
    const __m128i va = _mm_loadu_si128(reinterpret_cast<const __m128i *>(a + i));
    const __m128i vb = _mm_loadu_si128(reinterpret_cast<const __m128i *>(b + i));
    const __m128i lo = blend_half(_mm_unpacklo_epi8(va, zero), _mm_unpacklo_epi8(vb, zero), weights, round);
    const __m128i hi = blend_half(_mm_unpackhi_epi8(va, zero), _mm_unpackhi_epi8(vb, zero), weights, round);
    _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + i), _mm_packus_epi16(lo, hi));
  }
  for (; i < bytes; ++i) dst[i] = scale_blend_byte(a[i], b[i], weight_a, weight_b);
}

namespace {

inline __m128i pixel_pair(const uint8_t *a, const uint8_t *b, uint32_t f, __m128i zero, __m128i round) {
  int32_t va, vb;
  std::memcpy(&va, a, 4);
  std::memcpy(&vb, b, 4);
  const __m128i x = _mm_unpacklo_epi16(_mm_unpacklo_epi8(_mm_cvtsi32_si128(va), zero),
                                       _mm_unpacklo_epi8(_mm_cvtsi32_si128(vb), zero));
  const __m128i w = _mm_set1_epi32(static_cast<int>((f << 16) | (16384u - f)));
  return _mm_srai_epi32(_mm_add_epi32(_mm_madd_epi16(x, w), round), 14);
}

// Prepared linear resampler of the 4-byte pixel classes: two pixels a step, each component
// a * (16384 - f) + b * f + 8192 >> 14 from one madd (the same integers as the scalar formula).
void planned_linear4_sse2(const uint8_t *src, uint8_t *dst, const ScaleLinePlan *line) {
  const ScalePlanEntry *plan = line->entries;
  const size_t entries = line->count;
  const __m128i zero = _mm_setzero_si128();
  const __m128i round = _mm_set1_epi32(8192);
  size_t j = 0;
  for (; j + 2 <= entries; j += 2) {
    const __m128i r0 = pixel_pair(src + plan[j].a, src + plan[j].b, plan[j].f, zero, round);
    const __m128i r1 = pixel_pair(src + plan[j + 1].a, src + plan[j + 1].b, plan[j + 1].f, zero, round);
    _mm_storel_epi64(reinterpret_cast<__m128i *>(dst + 4 * j), _mm_packus_epi16(_mm_packs_epi32(r0, r1), zero));
  }
  if (j < entries) {
    const ScaleLinePlan rest{plan + j, entries - j, 4, nullptr, 0};
    scale_planned_linear4_c(src, dst + 4 * j, &rest);
  }
}

}  // namespace

void scale_lines_init_sse2(ScaleLineTable *table) {
  table->blend = scale_blend_sse2;
  table->planned_linear[3] = planned_linear4_sse2;
  table->planned_linear[5] = planned_linear4_sse2;
}

}  // namespace framedsp
