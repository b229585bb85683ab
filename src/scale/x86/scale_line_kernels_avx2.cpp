// AVX2 scaler line kernels: the prepared resamplers of the 8-bit classes, two plan blocks (32
// output bytes) a step, the line blender, and the nearest resampler of the 4-byte pixel classes,
// eight pixels a step.  Compiled with -mavx2; entered when cpu_flags() has AVX2.
//
// Blocks k and k + 1 go to the two 128-bit lanes: each window register holds block k's window
// in the low lane and block k + 1's in the high lane, and vpshufb works lane by lane, so the
// indices of the two blocks apply unchanged.  The arithmetic is the SSSE3 kernel's
// (a + pmulhrsw(b - a, 2f), exact in 16 bits), so the bytes are the scalar formula's.  A pair with
// a block that does not fit its windows, an odd last block and the bytes after the last whole
// block take the SSSE3 / scalar routines.
#include <immintrin.h>

#include <cstring>

#include "scale/scale_line_kernels.h"

namespace framedsp {
namespace {

inline __m128i load16(const void *p) { return _mm_loadu_si128(static_cast<const __m128i *>(p)); }
inline __m256i load2x16(const void *lo, const void *hi) {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(load16(lo)), load16(hi), 1);
}

inline __m256i gather2(const uint8_t *src, const ScaleLineBlock &b0, const ScaleLineBlock &b1,
                       __m256i index, __m256i flip) {
  const __m256i w0 = load2x16(src + b0.base[0], src + b1.base[0]);
  const __m256i w1 = load2x16(src + b0.base[1], src + b1.base[1]);
  return _mm256_or_si256(_mm256_shuffle_epi8(w0, index), _mm256_shuffle_epi8(w1, _mm256_xor_si256(index, flip)));
}

inline __m256i lerp_bytes(__m256i a, __m256i b, __m256i f2_lo, __m256i f2_hi) {
  const __m256i zero = _mm256_setzero_si256();
  const __m256i a_lo = _mm256_unpacklo_epi8(a, zero), a_hi = _mm256_unpackhi_epi8(a, zero);
  const __m256i d_lo = _mm256_sub_epi16(_mm256_unpacklo_epi8(b, zero), a_lo);
  const __m256i d_hi = _mm256_sub_epi16(_mm256_unpackhi_epi8(b, zero), a_hi);
  return _mm256_packus_epi16(_mm256_add_epi16(a_lo, _mm256_mulhrs_epi16(d_lo, f2_lo)),
                             _mm256_add_epi16(a_hi, _mm256_mulhrs_epi16(d_hi, f2_hi)));
}

// The eight words of f2 a block holds for its bytes 0..7 and 8..15, in the order the lane-wise
// unpacks of lerp_bytes produce: the low unpack takes bytes 0..7 of each lane, the high 8..15.
inline void block_weights(const ScaleLineBlock &b0, const ScaleLineBlock &b1, __m256i *lo, __m256i *hi) {
  *lo = load2x16(b0.f2, b1.f2);
  *hi = load2x16(b0.f2 + 8, b1.f2 + 8);
}

template <bool kLinear>
void planned_blocks_avx2(const uint8_t *src, uint8_t *dst, const ScaleLinePlan *plan) {
  const size_t total = plan->count * plan->unit;
  if (!plan->blocks) {
    scale_planned_bytes_c(src, dst, plan, 0, total, kLinear);
    return;
  }
  const __m256i flip = _mm256_set1_epi8(static_cast<char>(0x80));
  const size_t pairs = plan->block_count / 2;
  for (size_t p = 0; p < pairs; ++p) {
    const ScaleLineBlock &b0 = plan->blocks[2 * p];
    const ScaleLineBlock &b1 = plan->blocks[2 * p + 1];
    uint8_t *d = dst + 32 * p;
    if (!(b0.fits & b1.fits)) {
      scale_planned_bytes_c(src, dst, plan, 32 * p, 32 * p + 32, kLinear);
      continue;
    }
    const __m256i a = gather2(src, b0, b1, load2x16(b0.index_a, b1.index_a), flip);
    if (!kLinear) {
      _mm256_storeu_si256(reinterpret_cast<__m256i *>(d), a);
      continue;
    }
    const __m256i b = gather2(src, b0, b1, load2x16(b0.index_b, b1.index_b), flip);
    __m256i f2_lo, f2_hi;
    block_weights(b0, b1, &f2_lo, &f2_hi);
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(d), lerp_bytes(a, b, f2_lo, f2_hi));
  }
  scale_planned_bytes_c(src, dst, plan, 32 * pairs, total, kLinear);
}

// Line blender for weights that sum to 16384, 32 bytes a step (the SSSE3 blender's arithmetic);
// other weight pairs take the SSE2 blender.
void blend_avx2(const uint8_t *a, const uint8_t *b, uint8_t *dst, uint32_t weight_b, uint32_t weight_a,
                size_t bytes) {
  if (weight_a == 0 || weight_a + weight_b != kScaleOne) {
    scale_blend_sse2(a, b, dst, weight_b, weight_a, bytes);
    return;
  }
  size_t i = 0;
  const __m256i f2 = _mm256_set1_epi16(static_cast<short>(2 * weight_b));
  for (; i + 32 <= bytes; i += 32) {
    const __m256i va = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(a + i));
    const __m256i vb = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(b + i));
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + i), lerp_bytes(va, vb, f2, f2));
  }
  for (; i < bytes; ++i) dst[i] = scale_blend_byte(a[i], b[i], weight_a, weight_b);
}

// a + pmulhrsw(b - a, f2) on 16-bit values 0..255 (exact, as in lerp_bytes), without packing.
inline __m256i lerp_words(__m256i a, __m256i b, __m256i f2) {
  return _mm256_add_epi16(a, _mm256_mulhrs_epi16(_mm256_sub_epi16(b, a), f2));
}

// Both lines resampled with the same windows, indices and weights, then blended; the horizontal
// results stay in 16-bit lanes (their exact byte values) until the one final pack.
void planned_linear_pair_avx2(const uint8_t *src_a, const uint8_t *src_b, uint8_t *dst, const ScaleLinePlan *plan,
                              uint32_t weight_b) {
  const size_t total = plan->count * plan->unit;
  if (!plan->blocks) {
    scale_planned_pair_bytes_c(src_a, src_b, dst, plan, weight_b, 0, total);
    return;
  }
  const __m256i flip = _mm256_set1_epi8(static_cast<char>(0x80));
  const __m256i zero = _mm256_setzero_si256();
  const __m256i fv = _mm256_set1_epi16(static_cast<short>(2 * weight_b));
  const size_t pairs = plan->block_count / 2;
  for (size_t p = 0; p < pairs; ++p) {
    const ScaleLineBlock &b0 = plan->blocks[2 * p];
    const ScaleLineBlock &b1 = plan->blocks[2 * p + 1];
    if (!(b0.fits & b1.fits)) {
      scale_planned_pair_bytes_c(src_a, src_b, dst, plan, weight_b, 32 * p, 32 * p + 32);
      continue;
    }
    const __m256i ia = load2x16(b0.index_a, b1.index_a);
    const __m256i ib = load2x16(b0.index_b, b1.index_b);
    const __m256i ia_flip = _mm256_xor_si256(ia, flip), ib_flip = _mm256_xor_si256(ib, flip);
    __m256i f2_lo, f2_hi;
    block_weights(b0, b1, &f2_lo, &f2_hi);
    __m256i lo[2], hi[2];
    const uint8_t *lines[2] = {src_a, src_b};
    for (int l = 0; l < 2; ++l) {
      const __m256i w0 = load2x16(lines[l] + b0.base[0], lines[l] + b1.base[0]);
      const __m256i w1 = load2x16(lines[l] + b0.base[1], lines[l] + b1.base[1]);
      const __m256i a = _mm256_or_si256(_mm256_shuffle_epi8(w0, ia), _mm256_shuffle_epi8(w1, ia_flip));
      const __m256i b = _mm256_or_si256(_mm256_shuffle_epi8(w0, ib), _mm256_shuffle_epi8(w1, ib_flip));
      lo[l] = lerp_words(_mm256_unpacklo_epi8(a, zero), _mm256_unpacklo_epi8(b, zero), f2_lo);
      hi[l] = lerp_words(_mm256_unpackhi_epi8(a, zero), _mm256_unpackhi_epi8(b, zero), f2_hi);
    }
    const __m256i out = _mm256_packus_epi16(lerp_words(lo[0], lo[1], fv), lerp_words(hi[0], hi[1], fv));
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + 32 * p), out);
  }
  scale_planned_pair_bytes_c(src_a, src_b, dst, plan, weight_b, 32 * pairs, total);
}

// Nearest for 4-byte pixels without a plan: positions follow acc += step (acc = j * step, 64-bit,
// as the scalar resampler computes them).  Output pixels up to the last one whose index needs no
// clamp go eight a step, each index acc >> 14; the rest repeat the last source pixel.
void nearest4_avx2(const uint8_t *src, uint8_t *dst, uint32_t step, size_t src_bytes, size_t dst_bytes) {
  const size_t src_count = src_bytes / 4, dst_count = dst_bytes / 4;
  if (src_count == 0 || dst_count == 0) return;
  const uint64_t last = src_count - 1;
  // Outputs j < unclamped have (j * step) >> 14 <= last.
  size_t unclamped = dst_count;
  if (step != 0) {
    const uint64_t limit = (((last + 1) << kScaleFractionBits) - 1) / step + 1;
    if (limit < unclamped) unclamped = static_cast<size_t>(limit);
  }
  uint64_t acc = 0;
  size_t j = 0;
  auto pixel = [&]() {
    int32_t v;
    std::memcpy(&v, src + 4 * (acc >> kScaleFractionBits), 4);
    acc += step;
    return _mm_cvtsi32_si128(v);
  };
  for (; j + 8 <= unclamped; j += 8) {
    const __m128i p0 = pixel(), p1 = pixel(), p2 = pixel(), p3 = pixel();
    const __m128i p4 = pixel(), p5 = pixel(), p6 = pixel(), p7 = pixel();
    const __m128i lo = _mm_unpacklo_epi64(_mm_unpacklo_epi32(p0, p1), _mm_unpacklo_epi32(p2, p3));
    const __m128i hi = _mm_unpacklo_epi64(_mm_unpacklo_epi32(p4, p5), _mm_unpacklo_epi32(p6, p7));
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + 4 * j),
                        _mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1));
  }
  for (; j < unclamped; ++j, acc += step) std::memcpy(dst + 4 * j, src + 4 * (acc >> kScaleFractionBits), 4);
  for (; j < dst_count; ++j) std::memcpy(dst + 4 * j, src + 4 * last, 4);
}

}  // namespace

void scale_lines_init_avx2(ScaleLineTable *table) {
  table->blend = blend_avx2;
  for (int c = 0; c <= 6; ++c) {
    table->planned_nearest[c] = planned_blocks_avx2<false>;
    table->planned_linear[c] = planned_blocks_avx2<true>;
    table->nearest_uses_blocks[c] = table->linear_uses_blocks[c] = true;
    table->planned_linear_pair[c] = planned_linear_pair_avx2;
  }
  // 4-byte pixels take nearest samples straight from the step: no plan to build or read.
  table->planned_nearest[3] = table->planned_nearest[5] = nullptr;
  table->nearest[3] = table->nearest[5] = nearest4_avx2;
}

}  // namespace framedsp
