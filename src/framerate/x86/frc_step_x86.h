// SSE2 bodies of the conversion kernels, shared by the SSE2 and AVX2 files (each compiles its own
// copy with its own flags: the unnamed namespace keeps them apart).
#pragma once

#include <emmintrin.h>

#include <cstdlib>

#include "framerate/frc_kernels.h"

namespace framedsp {
namespace {

inline __m128i load8_epi16(const uint8_t *p) {
  return _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(p)), _mm_setzero_si128());
}

// Eight outputs of sum c_t x_t over six 16-bit rows x0..x5, coefficient pairs in c01, c23, c45;
// rounded by `round` and shifted right by kShift, packed to 16 bits.
template <int kShift>
inline __m128i fir6_8(const __m128i x[6], __m128i c01, __m128i c23, __m128i c45, __m128i round) {
  __m128i lo = _mm_madd_epi16(_mm_unpacklo_epi16(x[0], x[1]), c01);
  __m128i hi = _mm_madd_epi16(_mm_unpackhi_epi16(x[0], x[1]), c01);
  lo = _mm_add_epi32(lo, _mm_madd_epi16(_mm_unpacklo_epi16(x[2], x[3]), c23));
  hi = _mm_add_epi32(hi, _mm_madd_epi16(_mm_unpackhi_epi16(x[2], x[3]), c23));
  lo = _mm_add_epi32(lo, _mm_madd_epi16(_mm_unpacklo_epi16(x[4], x[5]), c45));
  hi = _mm_add_epi32(hi, _mm_madd_epi16(_mm_unpackhi_epi16(x[4], x[5]), c45));
  lo = _mm_srai_epi32(_mm_add_epi32(lo, round), kShift);
  hi = _mm_srai_epi32(_mm_add_epi32(hi, round), kShift);
  return _mm_packs_epi32(lo, hi);
}

inline __m128i pair(const int16_t *c, int t) {
  return _mm_set1_epi32(int32_t(uint16_t(c[t])) | int32_t(uint32_t(uint16_t(c[t + 1])) << 16));
}

// Reads mc_read_width(w, step) bytes a row; computes whole groups of eight columns and writes
// them (dst and the middle rows are 32 wide), the caller uses the first w.
inline void mc_tile_sse2_body(const uint8_t *src, ptrdiff_t stride, int w, int h, int step, const int16_t *hrow,
                              const int16_t *vrow, int16_t *dst) {
  alignas(16) int16_t mid[kMcPatch][kMcMaxTile];
  const __m128i h01 = pair(hrow, 0), h23 = pair(hrow, 2), h45 = pair(hrow, 4);
  const __m128i v01 = pair(vrow, 0), v23 = pair(vrow, 2), v45 = pair(vrow, 4);
  const __m128i r8 = _mm_set1_epi32(128), r14 = _mm_set1_epi32(8192);
  for (int y = 0; y < h + kMcTaps - 1; ++y) {
    const uint8_t *s = src + y * stride;
    for (int x = 0; x < w; x += 8) {
      __m128i t[6];
      for (int k = 0; k < 6; ++k) t[k] = load8_epi16(s + x + k * step);
      _mm_store_si128(reinterpret_cast<__m128i *>(&mid[y][x]), fir6_8<8>(t, h01, h23, h45, r8));
    }
  }
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; x += 8) {
      __m128i t[6];
      for (int k = 0; k < 6; ++k) t[k] = _mm_load_si128(reinterpret_cast<const __m128i *>(&mid[y + k][x]));
      _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + y * kMcMaxTile + x), fir6_8<14>(t, v01, v23, v45, r14));
    }
  }
}

inline void mc_blend_sse2_body(const int16_t *a, const int16_t *b, int n, int wa, int wb, uint8_t *out) {
  const __m128i w = _mm_set1_epi32(int32_t(uint16_t(wa)) | int32_t(uint32_t(uint16_t(wb)) << 16));
  const __m128i round = _mm_set1_epi32(1 << 19);
  int i = 0;
  for (; i + 8 <= n; i += 8) {
    const __m128i va = _mm_loadu_si128(reinterpret_cast<const __m128i *>(a + i));
    const __m128i vb = _mm_loadu_si128(reinterpret_cast<const __m128i *>(b + i));
    const __m128i lo = _mm_srai_epi32(_mm_add_epi32(_mm_madd_epi16(_mm_unpacklo_epi16(va, vb), w), round), 20);
    const __m128i hi = _mm_srai_epi32(_mm_add_epi32(_mm_madd_epi16(_mm_unpackhi_epi16(va, vb), w), round), 20);
    const __m128i px = _mm_packus_epi16(_mm_packs_epi32(lo, hi), _mm_setzero_si128());
    _mm_storel_epi64(reinterpret_cast<__m128i *>(out + i), px);
  }
  if (i < n) mc_blend_c(a + i, b + i, n - i, wa, wb, out + i);
}

}  // namespace
}  // namespace framedsp
