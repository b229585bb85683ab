// SSE2 colour-matrix kernels: the shared step on 16-byte vectors (four pairs).  Compiled with
// -msse2; entered when cpu_flags() has SSE2 (the x86-64 baseline).
#include <emmintrin.h>

#include "lines/color_kernels.h"
#include "lines/x86/color_step_x86.h"

namespace framedsp {

namespace {

struct ColorVecSse2 {
  using Reg = __m128i;
  static Reg loadu(const uint8_t *p) { return _mm_loadu_si128(reinterpret_cast<const Reg *>(p)); }
  static void storeu(uint8_t *p, Reg v) { _mm_storeu_si128(reinterpret_cast<Reg *>(p), v); }
  static Reg set1_epi16(short x) { return _mm_set1_epi16(x); }
  static Reg set1_epi32(int x) { return _mm_set1_epi32(x); }
  static Reg and_si(Reg a, Reg b) { return _mm_and_si128(a, b); }
  template <int kShift>
  static Reg srli_epi16(Reg v) { return _mm_srli_epi16(v, kShift); }
  template <int kShift>
  static Reg srai_epi32(Reg v) { return _mm_srai_epi32(v, kShift); }
  static Reg madd_epi16(Reg a, Reg b) { return _mm_madd_epi16(a, b); }
  static Reg add_epi32(Reg a, Reg b) { return _mm_add_epi32(a, b); }
  static Reg add_epi16(Reg a, Reg b) { return _mm_add_epi16(a, b); }
  static Reg packs_epi32(Reg a, Reg b) { return _mm_packs_epi32(a, b); }
  static Reg packus_epi16(Reg a, Reg b) { return _mm_packus_epi16(a, b); }
  static Reg unpacklo_epi16(Reg a, Reg b) { return _mm_unpacklo_epi16(a, b); }
  static Reg unpackhi_epi16(Reg a, Reg b) { return _mm_unpackhi_epi16(a, b); }
};

}  // namespace

void color_init_sse2(ColorKernelTable *table) { color_detail::color_fill_x86<ColorVecSse2>(table); }

}  // namespace framedsp
