// consistency (see motion_kernels.h) with AVX2: eight entries a step, the other field's entries
// gathered.  Included by the AVX2 kernel file alone.
#pragma once

#include <immintrin.h>

#include <cstdint>

#include "analysis/motion_kernels.h"

namespace framedsp {
namespace motion_x86 {
namespace {

void consistency_avx2(uint8_t *e, const uint8_t *other, uint32_t n, const ConsistencyRow &r) {
  const __m256i step = _mm256_set1_epi32(r.step), cy = _mm256_set1_epi32(r.cy), none = _mm256_set1_epi32(-1);
  const __m256i width = _mm256_set1_epi32(static_cast<int32_t>(r.width));
  const __m256i height = _mm256_set1_epi32(static_cast<int32_t>(r.height));
  const __m256i per_col = _mm256_set1_epi32(static_cast<int32_t>(r.per_col));
  const __m256i per_row = _mm256_set1_epi32(static_cast<int32_t>(r.per_row));
  const __m256i cols = _mm256_set1_epi32(static_cast<int32_t>(r.cols)), limit = _mm256_set1_epi32(r.limit);
  // The entries' x, y words in order; a lane's mask to both words of its entry.
  const __m256i pick = _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7);
  const __m256i first = _mm256_setr_epi32(0, 0, 1, 1, 2, 2, 3, 3), second = _mm256_setr_epi32(4, 4, 5, 5, 6, 6, 7, 7);
  const __m256i flag = _mm256_set1_epi64x(static_cast<int64_t>(r.flag) << 48);
  const __m256i lane = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7), eight = _mm256_set1_epi32(8);
  const __m256i last = _mm256_set1_epi32(r.last), last_lane = _mm256_set1_epi32(static_cast<int32_t>(n) - 1);
  __m256i cx = _mm256_add_epi32(_mm256_set1_epi32(r.cx), _mm256_mullo_epi32(lane, step)), at_lane = lane;
  const __m256i step8 = _mm256_slli_epi32(step, 3);
  uint32_t j = 0;
  for (; j + 8 <= n; j += 8, e += 64, cx = _mm256_add_epi32(cx, step8), at_lane = _mm256_add_epi32(at_lane, eight)) {
    __m256i lo = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(e));
    __m256i hi = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(e + 32));
    const __m256i xy = _mm256_permute2x128_si256(_mm256_permutevar8x32_epi32(lo, pick),
                                                 _mm256_permutevar8x32_epi32(hi, pick), 0x20);
    const __m256i x = _mm256_srai_epi32(_mm256_slli_epi32(xy, 16), 16), y = _mm256_srai_epi32(xy, 16);
    const __m256i centre = _mm256_blendv_epi8(cx, last, _mm256_cmpeq_epi32(at_lane, last_lane));
    const __m256i tx = _mm256_srai_epi32(_mm256_add_epi32(centre, x), 2), ty = _mm256_srai_epi32(_mm256_add_epi32(cy, y), 2);
    const __m256i inside = _mm256_and_si256(
        _mm256_and_si256(_mm256_cmpgt_epi32(width, tx), _mm256_cmpgt_epi32(tx, none)),
        _mm256_and_si256(_mm256_cmpgt_epi32(height, ty), _mm256_cmpgt_epi32(ty, none)));
    const __m256i row = _mm256_srli_epi32(_mm256_mullo_epi32(ty, per_row), 20);
    const __m256i col = _mm256_srli_epi32(_mm256_mullo_epi32(tx, per_col), 20);
    const __m256i at = _mm256_and_si256(_mm256_add_epi32(_mm256_mullo_epi32(row, cols), col), inside);
    const __m256i o = _mm256_i32gather_epi32(reinterpret_cast<const int *>(other), at, 8);
    const __m256i sx = _mm256_add_epi32(x, _mm256_srai_epi32(_mm256_slli_epi32(o, 16), 16));
    const __m256i sy = _mm256_add_epi32(y, _mm256_srai_epi32(o, 16));
    const __m256i apart = _mm256_or_si256(_mm256_cmpgt_epi32(_mm256_abs_epi32(sx), limit),
                                          _mm256_cmpgt_epi32(_mm256_abs_epi32(sy), limit));
    const __m256i mark = _mm256_and_si256(apart, inside);
    lo = _mm256_or_si256(lo, _mm256_and_si256(_mm256_permutevar8x32_epi32(mark, first), flag));
    hi = _mm256_or_si256(hi, _mm256_and_si256(_mm256_permutevar8x32_epi32(mark, second), flag));
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(e), lo);
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(e + 32), hi);
  }
  if (j < n) {
    ConsistencyRow rest = r;
    rest.cx = r.cx + static_cast<int32_t>(j) * r.step;
    consistency_c(e, other, n - j, rest);
  }
}

}  // namespace
}  // namespace motion_x86
}  // namespace framedsp
