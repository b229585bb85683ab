// SSE2 steps of the comparison kernels.  Compiled with -msse2; entered when cpu_flags() has SSE2
// (the x86-64 baseline).
#include <emmintrin.h>

#include "analysis/compare_kernels.h"

namespace framedsp {

namespace {

using namespace compare_detail;

// V vectors of 16 bytes per step: one when the channel period divides 4; three for the
// three-byte layout, so that every step starts on phase 0.
template <class L, int V>
struct CompareStepSse2 {
  static constexpr size_t kBytes = 16 * V;
  static constexpr size_t kLanes = 16 / 4 * V;
  static constexpr bool kMerge = single_channel<L>();
  static constexpr bool kSplitLo = pair_splits<L>(kBytes, 0);
  static constexpr bool kSplitHi = pair_splits<L>(kBytes, 1);

  // Per 32-bit lane, bytes p..p+3: q02 = sq(p) + sq(p+2), q0 = sq(p), q13 = sq(p+1) + sq(p+3),
  // q1 = sq(p+1).  A single-channel layout keeps q02 + q13 in q02 (4 squares a step).
  struct Acc {
    __m128i q02[V], q0[V], q13[V], q1[V];
    Acc() {
      for (int k = 0; k < V; ++k) q02[k] = q0[k] = q13[k] = q1[k] = _mm_setzero_si128();
    }
  };

  static inline void run(const uint8_t *a, const uint8_t *b, uint8_t *out, Acc &acc) {
    const __m128i mid = _mm_set1_epi8(-128);  // 0x80
    const __m128i low_bytes = _mm_set1_epi16(0x00FF);
    const __m128i low_word = _mm_set1_epi32(0x0000FFFF);
    for (int k = 0; k < V; ++k) {
      const __m128i va = _mm_loadu_si128(reinterpret_cast<const __m128i *>(a + 16 * k));
      const __m128i vb = _mm_loadu_si128(reinterpret_cast<const __m128i *>(b + 16 * k));
      // pos = max(a - b, 0), neg = max(b - a, 0); one of them is 0.  128 + pos saturates at 255
      // and 128 - neg at 0, which is a - b + 128 clamped.  Plain stores: streaming ones measured
      // no faster on 1080p frames.
      const __m128i pos = _mm_subs_epu8(va, vb);
      const __m128i neg = _mm_subs_epu8(vb, va);
      _mm_storeu_si128(reinterpret_cast<__m128i *>(out + 16 * k),
                       _mm_subs_epu8(_mm_adds_epu8(pos, mid), neg));
      // |a - b| in 0..255 as 16-bit lanes: squares <= 65025, madd lanes <= 130050.
      const __m128i ad = _mm_or_si128(pos, neg);
      const __m128i lo = _mm_and_si128(ad, low_bytes);  // bytes p, p + 2
      const __m128i hi = _mm_srli_epi16(ad, 8);          // bytes p + 1, p + 3
      const __m128i q02 = _mm_madd_epi16(lo, lo);
      const __m128i q13 = _mm_madd_epi16(hi, hi);
      if (kMerge) {
        acc.q02[k] = _mm_add_epi32(acc.q02[k], _mm_add_epi32(q02, q13));
        continue;
      }
      acc.q02[k] = _mm_add_epi32(acc.q02[k], q02);
      acc.q13[k] = _mm_add_epi32(acc.q13[k], q13);
      if (kSplitLo) {
        const __m128i part = _mm_and_si128(lo, low_word);  // the pair's first byte only
        acc.q0[k] = _mm_add_epi32(acc.q0[k], _mm_madd_epi16(part, lo));
      }
      if (kSplitHi) {
        const __m128i part = _mm_and_si128(hi, low_word);  // the pair's first byte only
        acc.q1[k] = _mm_add_epi32(acc.q1[k], _mm_madd_epi16(part, hi));
      }
    }
  }

  static void flush(const Acc &acc, uint64_t sums[4]) {
    alignas(16) uint32_t q02[kLanes], q0[kLanes], q13[kLanes], q1[kLanes];
    for (int k = 0; k < V; ++k) {
      _mm_store_si128(reinterpret_cast<__m128i *>(q02 + 4 * k), acc.q02[k]);
      _mm_store_si128(reinterpret_cast<__m128i *>(q0 + 4 * k), acc.q0[k]);
      _mm_store_si128(reinterpret_cast<__m128i *>(q13 + 4 * k), acc.q13[k]);
      _mm_store_si128(reinterpret_cast<__m128i *>(q1 + 4 * k), acc.q1[k]);
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

}  // namespace

void compare_uyvy_sse2(const uint8_t *a, const uint8_t *b, uint8_t *out, uint32_t lines,
                       size_t bytes_per_line, size_t stride, double *results) {
  compare_run<CompareStepSse2<UyvyLayout, 1>, UyvyLayout>(a, b, out, lines, bytes_per_line,
                                                             stride, results);
}

void compare_yuyv_sse2(const uint8_t *a, const uint8_t *b, uint8_t *out, uint32_t lines,
                       size_t bytes_per_line, size_t stride, double *results) {
  compare_run<CompareStepSse2<YuyvLayout, 1>, YuyvLayout>(a, b, out, lines, bytes_per_line,
                                                             stride, results);
}

void compare_bgr24_sse2(const uint8_t *a, const uint8_t *b, uint8_t *out, uint32_t lines,
                        size_t bytes_per_line, size_t stride, double *results) {
  compare_run<CompareStepSse2<Bgr24Layout, 3>, Bgr24Layout>(a, b, out, lines, bytes_per_line,
                                                               stride, results);
}

void compare_bgra32_sse2(const uint8_t *a, const uint8_t *b, uint8_t *out, uint32_t lines,
                         size_t bytes_per_line, size_t stride, double *results) {
  compare_run<CompareStepSse2<Bgra32Layout, 1>, Bgra32Layout>(a, b, out, lines,
                                                                 bytes_per_line, stride, results);
}

void compare_key8_sse2(const uint8_t *a, const uint8_t *b, uint8_t *out, uint32_t lines,
                       size_t bytes_per_line, size_t stride, double *results) {
  compare_run<CompareStepSse2<Key8Layout, 1>, Key8Layout>(a, b, out, lines, bytes_per_line,
                                                             stride, results);
}

void compare_init_sse2(CompareKernelTable *table) {
  table->kernel[kCompareUyvy] = compare_uyvy_sse2;
  table->kernel[kCompareYuyv] = compare_yuyv_sse2;
  table->kernel[kCompareBgr24] = compare_bgr24_sse2;
  table->kernel[kCompareBgra32] = compare_bgra32_sse2;
  table->kernel[kCompareKey8] = compare_key8_sse2;
}

}  // namespace framedsp
