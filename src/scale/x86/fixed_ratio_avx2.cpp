// AVX2 step of the half-linear kernel for 8-bit planes (261 / 263, the mip-map level): 32 output
// bytes from 64 bytes of each of the two lines.  vpmaddubsw against ones adds the byte pairs
// (2j, 2j + 1) into 16-bit lanes, exactly; the box is then (pair_a + pair_b + 2) >> 2 as in the
// scalar routine.  Head and tail are the scalar range routine.
#include <immintrin.h>

#include "scale/fixed_ratio_kernels.h"

namespace framedsp {

using namespace fixed_detail;

namespace {

inline __m256i ld(const uint8_t *p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p)); }

void half_linear_plane_avx2(const uint8_t *a, const uint8_t *b, uint8_t *dst, size_t n) {
  const size_t head = head_bytes(dst, 1, n);
  half_linear_range_c<kFixedPlane>(a, b, dst, 0, head);
  const __m256i ones = _mm256_set1_epi8(1);
  const __m256i two = _mm256_set1_epi16(2);
  size_t p = head;
  for (; p + 32 <= n; p += 32) {
    const uint8_t *sa = a + 2 * p, *sb = b + 2 * p;
    const __m256i lo = _mm256_srli_epi16(
        _mm256_add_epi16(_mm256_add_epi16(_mm256_maddubs_epi16(ld(sa), ones),
                                          _mm256_maddubs_epi16(ld(sb), ones)), two), 2);
    const __m256i hi = _mm256_srli_epi16(
        _mm256_add_epi16(_mm256_add_epi16(_mm256_maddubs_epi16(ld(sa + 32), ones),
                                          _mm256_maddubs_epi16(ld(sb + 32), ones)), two), 2);
    // packus works per 128-bit lane: restore the order of the four 8-byte quarters.
    const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi16(lo, hi), _MM_SHUFFLE(3, 1, 2, 0));
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + p), packed);
  }
  half_linear_range_c<kFixedPlane>(a, b, dst, p, n);
}

}  // namespace

void fixed_ratio_init_avx2(FixedRatioTable *table) {
  table->ratio[kRatioHalfLinear][kFixedPlane] = &half_linear_plane_avx2;
}

}  // namespace framedsp
