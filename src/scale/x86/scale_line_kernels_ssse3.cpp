// SSSE3 scaler line kernels: prepared resamplers of every 8-bit class working on the blocks of a
// ScaleLinePlan (16 output bytes a block), and a line blender.  Compiled with -mssse3; entered
// when cpu_flags() has SSSE3.
//
// Gather: each half of a block reads one 16-byte window; pshufb with the block's indices picks
// the samples (the indices of the other half have bit 7 set and give zero), and an OR joins the
// halves.  Arithmetic, exact in 16 bits: with d = b - a (-255..255) and f2 = 2f,
//   pmulhrsw(d, f2) = (d * 2f + 16384) >> 15 = (d * f + 8192) >> 14,
// so a + pmulhrsw(d, f2) = ((b - a) * f + a * 16384 + 8192) >> 14, the scalar formula; the value
// lies in 0..255, so the final unsigned pack never clips.  Blocks that do not fit their windows
// and the bytes after the last whole block take the scalar byte routine.
#include <tmmintrin.h>

#include <cstring>

#include "scale/scale_line_kernels.h"

namespace framedsp {
namespace {

inline __m128i load16(const void *p) { return _mm_loadu_si128(static_cast<const __m128i *>(p)); }

inline __m128i gather(const uint8_t *src, const ScaleLineBlock &blk, __m128i index, __m128i flip) {
  const __m128i w0 = load16(src + blk.base[0]);
  const __m128i w1 = load16(src + blk.base[1]);
  return _mm_or_si128(_mm_shuffle_epi8(w0, index), _mm_shuffle_epi8(w1, _mm_xor_si128(index, flip)));
}

// a + ((b - a) * f + 8192) >> 14 per byte, f2 = 2f in two registers of eight words.
inline __m128i lerp_bytes(__m128i a, __m128i b, __m128i f2_lo, __m128i f2_hi) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i a_lo = _mm_unpacklo_epi8(a, zero), a_hi = _mm_unpackhi_epi8(a, zero);
  const __m128i d_lo = _mm_sub_epi16(_mm_unpacklo_epi8(b, zero), a_lo);
  const __m128i d_hi = _mm_sub_epi16(_mm_unpackhi_epi8(b, zero), a_hi);
  return _mm_packus_epi16(_mm_add_epi16(a_lo, _mm_mulhrs_epi16(d_lo, f2_lo)),
                          _mm_add_epi16(a_hi, _mm_mulhrs_epi16(d_hi, f2_hi)));
}

template <bool kLinear>
void planned_blocks_ssse3(const uint8_t *src, uint8_t *dst, const ScaleLinePlan *plan) {
  const size_t total = plan->count * plan->unit;
  if (!plan->blocks) {
    scale_planned_bytes_c(src, dst, plan, 0, total, kLinear);
    return;
  }
  const __m128i flip = _mm_set1_epi8(static_cast<char>(0x80));
  for (size_t k = 0; k < plan->block_count; ++k) {
    const ScaleLineBlock &blk = plan->blocks[k];
    uint8_t *d = dst + 16 * k;
    if (!blk.fits) {
      scale_planned_bytes_c(src, dst, plan, 16 * k, 16 * k + 16, kLinear);
      continue;
    }
    const __m128i a = gather(src, blk, load16(blk.index_a), flip);
    if (!kLinear) {
      _mm_storeu_si128(reinterpret_cast<__m128i *>(d), a);
      continue;
    }
    const __m128i b = gather(src, blk, load16(blk.index_b), flip);
    _mm_storeu_si128(reinterpret_cast<__m128i *>(d), lerp_bytes(a, b, load16(blk.f2), load16(blk.f2 + 8)));
  }
  scale_planned_bytes_c(src, dst, plan, 16 * plan->block_count, total, kLinear);
}

// Blender for weights that sum to 16384 (the frame kernels' case): a + ((b - a) * wb + 8192) >> 14
// equals (a * wa + b * wb + 8192) >> 14 when wa = 16384 - wb; 2 * wb <= 32766 when wa > 0.
// Other weight pairs take the SSE2 blender.
void blend_ssse3(const uint8_t *a, const uint8_t *b, uint8_t *dst, uint32_t weight_b, uint32_t weight_a,
                 size_t bytes) {
  if (weight_a == 0 || weight_a + weight_b != kScaleOne) {
    scale_blend_sse2(a, b, dst, weight_b, weight_a, bytes);
    return;
  }
  size_t i = 0;
  if (bytes >= 16) {
    const size_t misalign = reinterpret_cast<uintptr_t>(dst) & 15u;
    const size_t head = misalign ? 16 - misalign : 0;
    for (; i < head; ++i) dst[i] = scale_blend_byte(a[i], b[i], weight_a, weight_b);
  }
  const __m128i f2 = _mm_set1_epi16(static_cast<short>(2 * weight_b));
  for (; i + 16 <= bytes; i += 16) {
    _mm_store_si128(reinterpret_cast<__m128i *>(dst + i), lerp_bytes(load16(a + i), load16(b + i), f2, f2));
  }
  for (; i < bytes; ++i) dst[i] = scale_blend_byte(a[i], b[i], weight_a, weight_b);
}

// Prepared nearest resampler of the 4-byte pixel classes: four pixels gathered into one register
// and stored with one 16-byte store.
void planned_nearest4_ssse3(const uint8_t *src, uint8_t *dst, const ScaleLinePlan *line) {
  const ScalePlanEntry *plan = line->entries;
  const size_t n = line->count;
  size_t j = 0;
  for (; j + 4 <= n; j += 4) {
    int32_t p0, p1, p2, p3;
    std::memcpy(&p0, src + plan[j].a, 4);
    std::memcpy(&p1, src + plan[j + 1].a, 4);
    std::memcpy(&p2, src + plan[j + 2].a, 4);
    std::memcpy(&p3, src + plan[j + 3].a, 4);
    const __m128i v = _mm_unpacklo_epi64(_mm_unpacklo_epi32(_mm_cvtsi32_si128(p0), _mm_cvtsi32_si128(p1)),
                                         _mm_unpacklo_epi32(_mm_cvtsi32_si128(p2), _mm_cvtsi32_si128(p3)));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + 4 * j), v);
  }
  for (; j < n; ++j) std::memcpy(dst + 4 * j, src + plan[j].a, 4);
}

}  // namespace

void scale_lines_init_ssse3(ScaleLineTable *table) {
  table->blend = blend_ssse3;
  for (int c = 0; c <= 6; ++c) {
    table->planned_nearest[c] = planned_blocks_ssse3<false>;
    table->planned_linear[c] = planned_blocks_ssse3<true>;
    table->nearest_uses_blocks[c] = table->linear_uses_blocks[c] = true;
  }
  table->planned_nearest[3] = table->planned_nearest[5] = planned_nearest4_ssse3;
  table->nearest_uses_blocks[3] = table->nearest_uses_blocks[5] = false;
}

}  // namespace framedsp
