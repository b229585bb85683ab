// SSE2 vector traits: 16-byte vectors for the x86 step templates (compare_step_x86.h,
// color_step_x86.h).  Included only by files compiled with -msse2.
//
// The struct sits in an unnamed namespace on purpose: every includer gets its own copy, compiled
// with that file's ISA flags, and the step templates instantiated on it stay in the includer's
// object file.  With external linkage the linker could merge the inline members of two files
// built with different flags and hand one file's copy to the other.
#pragma once

#include <emmintrin.h>

#include <cstdint>

namespace framedsp {
namespace {

struct VecSse2 {
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
}  // namespace framedsp
