// The SIMD step of the comparison kernels, written once for every x86 vector width.  Each ISA file
// includes its vector traits (platform/x86/vec_<isa>.h) and calls compare_fill_x86 from its init
// function; the traits provide at least:
//
//   struct Vec {
//     using Reg = <vector type>;                      // sizeof(Reg) bytes a vector
//     static Reg loadu(const uint8_t *p);             // unaligned load
//     static void storeu(uint8_t *p, Reg v);          // unaligned store
//     static void store32(uint32_t *p, Reg v);        // aligned store of the 32-bit lanes
//     static Reg setzero();
//     static Reg set1_epi8(char x), set1_epi16(short x), set1_epi32(int x);
//     static Reg subs_epu8(Reg a, Reg b), adds_epu8(Reg a, Reg b);
//     static Reg or_si(Reg a, Reg b), and_si(Reg a, Reg b);
//     template <int kShift> static Reg srli_epi16(Reg v);
//     static Reg madd_epi16(Reg a, Reg b), add_epi32(Reg a, Reg b);
//   };
//
// Like compare_kernels.h, everything here sits in an unnamed namespace and each includer passes
// its own file-local traits, so every instantiation is built with the includer's ISA flags and
// stays in its object file: the linker can never hand an AVX2 copy to the SSE2 kernels.
#pragma once

#include <cstddef>
#include <cstdint>

#include "analysis/compare_kernels.h"

namespace framedsp {
namespace compare_detail {
namespace {

// V vectors per step: one when the channel period divides 4; three for the three-byte layout, so
// that every step starts on phase 0.
template <class Vec, class L, int V>
struct CompareStepX86 {
  using Reg = typename Vec::Reg;
  static constexpr size_t kWidth = sizeof(Reg);
  static constexpr size_t kBytes = kWidth * V;
  static constexpr size_t kLanes = kWidth / 4 * V;
  static constexpr bool kMerge = single_channel<L>();
  static constexpr bool kSplitLo = pair_splits<L>(kBytes, 0);
  static constexpr bool kSplitHi = pair_splits<L>(kBytes, 1);

  // Per 32-bit lane, bytes p..p+3: q02 = sq(p) + sq(p+2), q0 = sq(p), q13 = sq(p+1) + sq(p+3),
  // q1 = sq(p+1).  A single-channel layout keeps q02 + q13 in q02 (4 squares a step).
  struct Acc {
    Reg q02[V], q0[V], q13[V], q1[V];
    Acc() {
      for (int k = 0; k < V; ++k) q02[k] = q0[k] = q13[k] = q1[k] = Vec::setzero();
    }
  };

  static inline void run(const uint8_t *a, const uint8_t *b, uint8_t *out, Acc &acc) {
    const Reg mid = Vec::set1_epi8(-128);  // 0x80
    const Reg low_bytes = Vec::set1_epi16(0x00FF);
    const Reg low_word = Vec::set1_epi32(0x0000FFFF);
    for (int k = 0; k < V; ++k) {
      const Reg va = Vec::loadu(a + kWidth * k);
      const Reg vb = Vec::loadu(b + kWidth * k);
      // pos = max(a - b, 0), neg = max(b - a, 0); one of them is 0.  128 + pos saturates at 255
      // and 128 - neg at 0, which is a - b + 128 clamped.  Plain stores: streaming ones measured
      // no faster on 1080p frames.
      const Reg pos = Vec::subs_epu8(va, vb);
      const Reg neg = Vec::subs_epu8(vb, va);
      Vec::storeu(out + kWidth * k, Vec::subs_epu8(Vec::adds_epu8(pos, mid), neg));
      // |a - b| in 0..255 as 16-bit lanes: squares <= 65025, madd lanes <= 130050.
      const Reg ad = Vec::or_si(pos, neg);
      const Reg lo = Vec::and_si(ad, low_bytes);       // bytes p, p + 2
      const Reg hi = Vec::template srli_epi16<8>(ad);  // bytes p + 1, p + 3
      const Reg q02 = Vec::madd_epi16(lo, lo);
      const Reg q13 = Vec::madd_epi16(hi, hi);
      if (kMerge) {
        acc.q02[k] = Vec::add_epi32(acc.q02[k], Vec::add_epi32(q02, q13));
        continue;
      }
      acc.q02[k] = Vec::add_epi32(acc.q02[k], q02);
      acc.q13[k] = Vec::add_epi32(acc.q13[k], q13);
      if (kSplitLo) {
        const Reg part = Vec::and_si(lo, low_word);  // the pair's first byte only
        acc.q0[k] = Vec::add_epi32(acc.q0[k], Vec::madd_epi16(part, lo));
      }
      if (kSplitHi) {
        const Reg part = Vec::and_si(hi, low_word);  // the pair's first byte only
        acc.q1[k] = Vec::add_epi32(acc.q1[k], Vec::madd_epi16(part, hi));
      }
    }
  }

  static void flush(const Acc &acc, uint64_t sums[4]) {
    alignas(kWidth) uint32_t q02[kLanes], q0[kLanes], q13[kLanes], q1[kLanes];
    for (int k = 0; k < V; ++k) {
      Vec::store32(q02 + kWidth / 4 * k, acc.q02[k]);
      Vec::store32(q0 + kWidth / 4 * k, acc.q0[k]);
      Vec::store32(q13 + kWidth / 4 * k, acc.q13[k]);
      Vec::store32(q1 + kWidth / 4 * k, acc.q1[k]);
    }
    if (kMerge) {
      uint64_t total = 0;
      for (size_t m = 0; m < kLanes; ++m) total += q02[m];
      sums[L::kChannel[0]] += total;
      return;
    }
    add_lanes<L, kSplitLo, kSplitHi>(q02, q0, q13, q1, kLanes, sums);
  }
};

// One kernel of the table: layout L in steps of V vectors.
template <class Vec, class L, int V>
void compare_kernel_x86(const uint8_t *a, const uint8_t *b, uint8_t *out, uint32_t lines,
                        size_t bytes_per_line, size_t stride, double *results) {
  compare_run<CompareStepX86<Vec, L, V>, L>(a, b, out, lines, bytes_per_line, stride, results);
}

// Overrides every table entry with the kernels built on `Vec`.
template <class Vec>
void compare_fill_x86(CompareKernelTable *table) {
  table->kernel[kCompareUyvy] = compare_kernel_x86<Vec, UyvyLayout, 1>;
  table->kernel[kCompareYuyv] = compare_kernel_x86<Vec, YuyvLayout, 1>;
  table->kernel[kCompareBgr24] = compare_kernel_x86<Vec, Bgr24Layout, 3>;
  table->kernel[kCompareBgra32] = compare_kernel_x86<Vec, Bgra32Layout, 1>;
  table->kernel[kCompareKey8] = compare_kernel_x86<Vec, Key8Layout, 1>;
}

}  // namespace
}  // namespace compare_detail
}  // namespace framedsp
