#include <immintrin.h>

#include "framerate/x86/frc_step_x86.h"

namespace framedsp {
namespace {

inline __m256i pair256(const int16_t *c, int t) {
  return _mm256_set1_epi32(int32_t(uint16_t(c[t])) | int32_t(uint32_t(uint16_t(c[t + 1])) << 16));
}

// Two lines of eight outputs in the two lanes.
template <int kShift>
inline __m256i fir6_2x8(const __m256i x[6], __m256i c01, __m256i c23, __m256i c45, __m256i round) {
  __m256i lo = _mm256_madd_epi16(_mm256_unpacklo_epi16(x[0], x[1]), c01);
  __m256i hi = _mm256_madd_epi16(_mm256_unpackhi_epi16(x[0], x[1]), c01);
  lo = _mm256_add_epi32(lo, _mm256_madd_epi16(_mm256_unpacklo_epi16(x[2], x[3]), c23));
  hi = _mm256_add_epi32(hi, _mm256_madd_epi16(_mm256_unpackhi_epi16(x[2], x[3]), c23));
  lo = _mm256_add_epi32(lo, _mm256_madd_epi16(_mm256_unpacklo_epi16(x[4], x[5]), c45));
  hi = _mm256_add_epi32(hi, _mm256_madd_epi16(_mm256_unpackhi_epi16(x[4], x[5]), c45));
  lo = _mm256_srai_epi32(_mm256_add_epi32(lo, round), kShift);
  hi = _mm256_srai_epi32(_mm256_add_epi32(hi, round), kShift);
  return _mm256_packs_epi32(lo, hi);
}

// Lane 0 holds line y, lane 1 line y + 1 (eight 16-bit samples each).
inline __m256i lanes_epi16(const uint8_t *p0, const uint8_t *p1) {
  const __m128i a = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(p0)), _mm_setzero_si128());
  const __m128i b = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(p1)), _mm_setzero_si128());
  return _mm256_inserti128_si256(_mm256_castsi128_si256(a), b, 1);
}

void mc_tile_avx2(const uint8_t *src, ptrdiff_t stride, int w, int h, int step, const int16_t *hrow,
                  const int16_t *vrow, int16_t *dst) {
  alignas(32) int16_t mid[kMcPatch + 1][kMcMaxTile];
  const __m256i h01 = pair256(hrow, 0), h23 = pair256(hrow, 2), h45 = pair256(hrow, 4);
  const __m256i v01 = pair256(vrow, 0), v23 = pair256(vrow, 2), v45 = pair256(vrow, 4);
  const __m256i r8 = _mm256_set1_epi32(128), r14 = _mm256_set1_epi32(8192);
  const int lines = h + kMcTaps - 1;
  for (int y = 0; y < lines; y += 2) {
    const uint8_t *s0 = src + y * stride, *s1 = y + 1 < lines ? s0 + stride : s0;
    for (int x = 0; x < w; x += 8) {
      __m256i t[6];
      for (int k = 0; k < 6; ++k) t[k] = lanes_epi16(s0 + x + k * step, s1 + x + k * step);
      const __m256i r = fir6_2x8<8>(t, h01, h23, h45, r8);
      _mm_store_si128(reinterpret_cast<__m128i *>(&mid[y][x]), _mm256_castsi256_si128(r));
      _mm_store_si128(reinterpret_cast<__m128i *>(&mid[y + 1][x]), _mm256_extracti128_si256(r, 1));
    }
  }
  for (int y = 0; y < h; y += 2) {
    const int y1 = y + 1 < h ? y + 1 : y;
    for (int x = 0; x < w; x += 8) {
      __m256i t[6];
      for (int k = 0; k < 6; ++k)
        t[k] = _mm256_inserti128_si256(
            _mm256_castsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i *>(&mid[y + k][x]))),
            _mm_load_si128(reinterpret_cast<const __m128i *>(&mid[y1 + k][x])), 1);
      const __m256i r = fir6_2x8<14>(t, v01, v23, v45, r14);
      _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + y * kMcMaxTile + x), _mm256_castsi256_si128(r));
      if (y1 != y)
        _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + y1 * kMcMaxTile + x), _mm256_extracti128_si256(r, 1));
    }
  }
}

void mc_blend_avx2(const int16_t *a, const int16_t *b, int n, int wa, int wb, uint8_t *out) {
  const __m256i w = _mm256_set1_epi32(int32_t(uint16_t(wa)) | int32_t(uint32_t(uint16_t(wb)) << 16));
  const __m256i round = _mm256_set1_epi32(1 << 19);
  int i = 0;
  for (; i + 16 <= n; i += 16) {
    const __m256i va = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(a + i));
    const __m256i vb = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(b + i));
    const __m256i lo = _mm256_srai_epi32(_mm256_add_epi32(_mm256_madd_epi16(_mm256_unpacklo_epi16(va, vb), w), round), 20);
    const __m256i hi = _mm256_srai_epi32(_mm256_add_epi32(_mm256_madd_epi16(_mm256_unpackhi_epi16(va, vb), w), round), 20);
    const __m256i px = _mm256_packus_epi16(_mm256_packs_epi32(lo, hi), _mm256_setzero_si256());
    const __m256i ordered = _mm256_permute4x64_epi64(px, 0x08);  // lanes' low halves together
    _mm_storeu_si128(reinterpret_cast<__m128i *>(out + i), _mm256_castsi256_si128(ordered));
  }
  if (i < n) mc_blend_sse2_body(a + i, b + i, n - i, wa, wb, out + i);
}

}  // namespace

void frc_init_avx2(FrcKernels *k) {
  k->tile = mc_tile_avx2;
  k->blend = mc_blend_avx2;
}

}  // namespace framedsp
