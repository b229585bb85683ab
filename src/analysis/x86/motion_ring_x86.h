// ring_refine on x86 (see motion_kernels.h), written once for SSE2 and AVX2 like motion_sad_x86.h:
// the unnamed namespace keeps each ISA's copy in its includer's object file.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "analysis/motion_kernels.h"
#include "analysis/motion_ring.h"
#include "analysis/x86/motion_sad_x86.h"

namespace framedsp {
namespace motion_x86 {
namespace {

#if defined(__AVX2__)
// ring_winner_c with the eight candidates' keys in one vector: lane 0 holds candidates 0, 1, 3, 5
// (NW, N, W, SW), lane 1 candidates 2, 6, 4, 7 (NE, S, E, SE).  A match stays below 2^18 (a SAD
// is at most 255 n, recip round(2^26 / n)) and a ring's lengths lie within 2 steps of its
// centre's, so a key of match, length from the centre's less 4 and order fits 32 bits.
inline int ring_winner_x86(const uint32_t sum[9][4], uint32_t recip, int32_t cx, int32_t cy, int32_t step, uint32_t own,
                           uint32_t *match) {
  auto quad = [&](int i, int j) {
    return lanes(reinterpret_cast<const uint8_t *>(sum[i]), reinterpret_cast<const uint8_t *>(sum[j]));
  };
  const __m256i total =
      _mm256_hadd_epi32(_mm256_hadd_epi32(quad(0, 2), quad(1, 6)), _mm256_hadd_epi32(quad(3, 4), quad(5, 7)));
  const __m256i r = _mm256_set1_epi64x(recip), half = _mm256_set1_epi64x(1 << 15);
  const __m256i even = _mm256_srli_epi64(_mm256_add_epi64(_mm256_mul_epu32(total, r), half), 16);
  const __m256i odd = _mm256_srli_epi64(_mm256_add_epi64(_mm256_mul_epu32(_mm256_srli_epi64(total, 32), r), half), 16);
  const __m256i m = _mm256_or_si256(even, _mm256_slli_epi64(odd, 32));
  __m256i dx = _mm256_setr_epi32(-1, 0, -1, -1, 1, 0, 1, 1), dy = _mm256_setr_epi32(-1, -1, 0, 1, -1, 1, 0, 1);
  if (step == 2) dx = _mm256_add_epi32(dx, dx), dy = _mm256_add_epi32(dy, dy);
  const __m256i len = _mm256_add_epi32(_mm256_abs_epi32(_mm256_add_epi32(_mm256_set1_epi32(cx), dx)),
                                       _mm256_abs_epi32(_mm256_add_epi32(_mm256_set1_epi32(cy), dy)));
  const int32_t centre = (cx < 0 ? -cx : cx) + (cy < 0 ? -cy : cy);
  const __m256i longer = _mm256_sub_epi32(len, _mm256_set1_epi32(centre - 4));  // 0..8
  __m256i key = _mm256_or_si256(_mm256_or_si256(_mm256_slli_epi32(m, 8), _mm256_slli_epi32(longer, 4)),
                                _mm256_setr_epi32(1, 2, 4, 6, 3, 7, 5, 8));
  key = _mm256_min_epu32(key, _mm256_permute2x128_si256(key, key, 1));
  key = _mm256_min_epu32(key, _mm256_shuffle_epi32(key, _MM_SHUFFLE(1, 0, 3, 2)));
  key = _mm256_min_epu32(key, _mm256_shuffle_epi32(key, _MM_SHUFFLE(2, 3, 0, 1)));
  const uint32_t ring = static_cast<uint32_t>(_mm_cvtsi128_si32(_mm256_castsi256_si128(key)));
  const uint32_t held = (own << 8) | (4u << 4);
  const uint32_t top = ring < held ? ring : held;
  *match = top >> 8;
  return static_cast<int>(top & 15) - 1;
}
#else
inline int ring_winner_x86(const uint32_t sum[9][4], uint32_t recip, int32_t cx, int32_t cy, int32_t step, uint32_t own,
                           uint32_t *match) {
  return ring_detail::ring_winner_c(sum, recip, cx, cy, step, own, match);
}
#endif

void ring_refine_x86(const RingPlanes &planes, const RingBlock *b, uint32_t n, RingBest *out) {
  // sad_ring_x86 with the 16-wide dispatch where the rings are made, so that the half-pixel
  // ring's mode is known there.
  auto ring = [](const uint8_t *a, ptrdiff_t as, const uint8_t *const q[4], const ptrdiff_t qs[4], uint32_t mode,
                 uint32_t w, uint32_t h, uint32_t sx, uint32_t sy, uint32_t sums[9][4]) {
    if (w != 16 || (sx != 8 && sx != 16)) return sad_ring_x86(a, as, q, qs, mode, w, h, sx, sy, sums);
    if (mode == 0) return ring16<0>(a, as, q, qs, h, sy, sx == 16, sums);
    if (mode == 1) return ring16<1>(a, as, q, qs, h, sy, sx == 16, sums);
    ring16<2>(a, as, q, qs, h, sy, sx == 16, sums);
  };
  if (n == 2) return refine_rings<2>(ring, ring_winner_x86, planes, b, out);
  for (uint32_t j = 0; j < n; ++j) refine_rings<1>(ring, ring_winner_x86, planes, b + j, out + j);
}

}  // namespace
}  // namespace motion_x86
}  // namespace framedsp
