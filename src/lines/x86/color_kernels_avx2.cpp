// AVX2 colour-matrix kernels: the shared step on 32-byte vectors (eight pairs).  Compiled with
// -mavx2; entered only when cpu_flags() has AVX2.
#include <immintrin.h>

#include "lines/color_kernels.h"
#include "lines/x86/color_step_x86.h"

namespace framedsp {

namespace {

struct ColorVecAvx2 {
  using Reg = __m256i;
  static Reg loadu(const uint8_t *p) {
    return _mm256_loadu_si256(reinterpret_cast<const Reg *>(p));
  }
  static void storeu(uint8_t *p, Reg v) { _mm256_storeu_si256(reinterpret_cast<Reg *>(p), v); }
  static Reg set1_epi16(short x) { return _mm256_set1_epi16(x); }
  static Reg set1_epi32(int x) { return _mm256_set1_epi32(x); }
  static Reg and_si(Reg a, Reg b) { return _mm256_and_si256(a, b); }
  template <int kShift>
  static Reg srli_epi16(Reg v) { return _mm256_srli_epi16(v, kShift); }
  template <int kShift>
  static Reg srai_epi32(Reg v) { return _mm256_srai_epi32(v, kShift); }
  static Reg madd_epi16(Reg a, Reg b) { return _mm256_madd_epi16(a, b); }
  static Reg add_epi32(Reg a, Reg b) { return _mm256_add_epi32(a, b); }
  static Reg add_epi16(Reg a, Reg b) { return _mm256_add_epi16(a, b); }
  static Reg packs_epi32(Reg a, Reg b) { return _mm256_packs_epi32(a, b); }
  static Reg packus_epi16(Reg a, Reg b) { return _mm256_packus_epi16(a, b); }
  static Reg unpacklo_epi16(Reg a, Reg b) { return _mm256_unpacklo_epi16(a, b); }
  static Reg unpackhi_epi16(Reg a, Reg b) { return _mm256_unpackhi_epi16(a, b); }
};

}  // namespace

void color_init_avx2(ColorKernelTable *table) { color_detail::color_fill_x86<ColorVecAvx2>(table); }

}  // namespace framedsp
