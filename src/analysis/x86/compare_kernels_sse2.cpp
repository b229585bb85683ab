// SSE2 kernels of the comparison table: the shared step on 16-byte vectors.  Compiled with
// -msse2; entered when cpu_flags() has SSE2 (the x86-64 baseline).
#include <emmintrin.h>

#include "analysis/compare_kernels.h"
#include "analysis/x86/compare_step_x86.h"

namespace framedsp {

namespace {

struct CompareVecSse2 {
  using Reg = __m128i;
  static Reg loadu(const uint8_t *p) { return _mm_loadu_si128(reinterpret_cast<const Reg *>(p)); }
  static void storeu(uint8_t *p, Reg v) { _mm_storeu_si128(reinterpret_cast<Reg *>(p), v); }
  static void store32(uint32_t *p, Reg v) { _mm_store_si128(reinterpret_cast<Reg *>(p), v); }
  static Reg setzero() { return _mm_setzero_si128(); }
  static Reg set1_epi8(char x) { return _mm_set1_epi8(x); }
  static Reg set1_epi16(short x) { return _mm_set1_epi16(x); }
  static Reg set1_epi32(int x) { return _mm_set1_epi32(x); }
  static Reg subs_epu8(Reg a, Reg b) { return _mm_subs_epu8(a, b); }
  static Reg adds_epu8(Reg a, Reg b) { return _mm_adds_epu8(a, b); }
  static Reg or_si(Reg a, Reg b) { return _mm_or_si128(a, b); }
  static Reg and_si(Reg a, Reg b) { return _mm_and_si128(a, b); }
  template <int kShift>
  static Reg srli_epi16(Reg v) { return _mm_srli_epi16(v, kShift); }
  static Reg madd_epi16(Reg a, Reg b) { return _mm_madd_epi16(a, b); }
  static Reg add_epi32(Reg a, Reg b) { return _mm_add_epi32(a, b); }
};

}  // namespace

void compare_init_sse2(CompareKernelTable *table) {
  compare_detail::compare_fill_x86<CompareVecSse2>(table);
}

}  // namespace framedsp
