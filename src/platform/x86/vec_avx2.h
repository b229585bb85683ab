// AVX2 vector traits: 32-byte vectors for the x86 step templates (compare_step_x86.h,
// color_step_x86.h).  Included only by files compiled with -mavx2.
//
// The struct sits in an unnamed namespace on purpose: every includer gets its own copy, compiled
// with that file's ISA flags, and the step templates instantiated on it stay in the includer's
// object file.  With external linkage the linker could merge the inline members of two files
// built with different flags and hand one file's copy to the other.
#pragma once

#include <immintrin.h>

#include <cstdint>

namespace framedsp {
namespace {

struct VecAvx2 {
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
}  // namespace framedsp
