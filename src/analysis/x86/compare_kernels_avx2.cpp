// AVX2 kernels of the comparison table: the shared step on 32-byte vectors.  Compiled with
// -mavx2; entered only when cpu_flags() has AVX2.
#include <immintrin.h>

#include "analysis/compare_kernels.h"
#include "analysis/x86/compare_step_x86.h"

namespace framedsp {

namespace {

struct CompareVecAvx2 {
  using Reg = __m256i;
  static Reg loadu(const uint8_t *p) {
    return _mm256_loadu_si256(reinterpret_cast<const Reg *>(p));
  }
  static void storeu(uint8_t *p, Reg v) { _mm256_storeu_si256(reinterpret_cast<Reg *>(p), v); }
  static void store32(uint32_t *p, Reg v) { _mm256_store_si256(reinterpret_cast<Reg *>(p), v); }
  static Reg setzero() { return _mm256_setzero_si256(); }
  static Reg set1_epi8(char x) { return _mm256_set1_epi8(x); }
  static Reg set1_epi16(short x) { return _mm256_set1_epi16(x); }
  static Reg set1_epi32(int x) { return _mm256_set1_epi32(x); }
  static Reg subs_epu8(Reg a, Reg b) { return _mm256_subs_epu8(a, b); }
  static Reg adds_epu8(Reg a, Reg b) { return _mm256_adds_epu8(a, b); }
  static Reg or_si(Reg a, Reg b) { return _mm256_or_si256(a, b); }
  static Reg and_si(Reg a, Reg b) { return _mm256_and_si256(a, b); }
  template <int kShift>
  static Reg srli_epi16(Reg v) { return _mm256_srli_epi16(v, kShift); }
  static Reg madd_epi16(Reg a, Reg b) { return _mm256_madd_epi16(a, b); }
  static Reg add_epi32(Reg a, Reg b) { return _mm256_add_epi32(a, b); }
};

}  // namespace

void compare_init_avx2(CompareKernelTable *table) {
  compare_detail::compare_fill_x86<CompareVecAvx2>(table);
}

}  // namespace framedsp
