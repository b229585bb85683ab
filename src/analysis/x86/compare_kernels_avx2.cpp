// AVX2 steps of the comparison kernels.  Compiled with -mavx2; entered only when cpu_flags() has
// AVX2.
#include <immintrin.h>

#include "analysis/compare_kernels.h"

namespace framedsp {

namespace {

using namespace compare_detail;

// V vectors of 32 bytes per step: one when the channel period divides 4; three for the
// three-byte layout, so that every step starts on phase 0.
template <class L, int V>
struct CompareStepAvx2 {
  static constexpr size_t kBytes = 32 * V;
  static constexpr size_t kLanes = 32 / 4 * V;
  static constexpr bool kMerge = single_channel<L>();
  static constexpr bool kSplitLo = pair_splits<L>(kBytes, 0);
  static constexpr bool kSplitHi = pair_splits<L>(kBytes, 1);

  // Per 32-bit lane, bytes p..p+3: q02 = sq(p) + sq(p+2), q0 = sq(p), q13 = sq(p+1) + sq(p+3),
  // q1 = sq(p+1).  A single-channel layout keeps q02 + q13 in q02 (4 squares a step).
  struct Acc {
    __m256i q02[V], q0[V], q13[V], q1[V];
    Acc() {
      for (int k = 0; k < V; ++k) q02[k] = q0[k] = q13[k] = q1[k] = _mm256_setzero_si256();
    }
  };

  static inline void run(const uint8_t *a, const uint8_t *b, uint8_t *out, Acc &acc) {
    const __m256i mid = _mm256_set1_epi8(-128);  // 0x80
    const __m256i low_bytes = _mm256_set1_epi16(0x00FF);
    const __m256i low_word = _mm256_set1_epi32(0x0000FFFF);
    for (int k = 0; k < V; ++k) {
      const __m256i va = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(a + 32 * k));
      const __m256i vb = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(b + 32 * k));
      // pos = max(a - b, 0), neg = max(b - a, 0); one of them is 0.  128 + pos saturates at 255
      // and 128 - neg at 0, which is a - b + 128 clamped.  Plain stores: streaming ones measured
      // no faster on 1080p frames.
      const __m256i pos = _mm256_subs_epu8(va, vb);
      const __m256i neg = _mm256_subs_epu8(vb, va);
      _mm256_storeu_si256(reinterpret_cast<__m256i *>(out + 32 * k),
                       _mm256_subs_epu8(_mm256_adds_epu8(pos, mid), neg));
      // |a - b| in 0..255 as 16-bit lanes: squares <= 65025, madd lanes <= 130050.
      const __m256i ad = _mm256_or_si256(pos, neg);
      const __m256i lo = _mm256_and_si256(ad, low_bytes);  // bytes p, p + 2
      const __m256i hi = _mm256_srli_epi16(ad, 8);          // bytes p + 1, p + 3
      const __m256i q02 = _mm256_madd_epi16(lo, lo);
      const __m256i q13 = _mm256_madd_epi16(hi, hi);
      if (kMerge) {
        acc.q02[k] = _mm256_add_epi32(acc.q02[k], _mm256_add_epi32(q02, q13));
        continue;
      }
      acc.q02[k] = _mm256_add_epi32(acc.q02[k], q02);
      acc.q13[k] = _mm256_add_epi32(acc.q13[k], q13);
      if (kSplitLo) {
        const __m256i part = _mm256_and_si256(lo, low_word);  // the pair's first byte only
        acc.q0[k] = _mm256_add_epi32(acc.q0[k], _mm256_madd_epi16(part, lo));
      }
      if (kSplitHi) {
        const __m256i part = _mm256_and_si256(hi, low_word);  // the pair's first byte only
        acc.q1[k] = _mm256_add_epi32(acc.q1[k], _mm256_madd_epi16(part, hi));
      }
    }
  }

  static void flush(const Acc &acc, uint64_t sums[4]) {
    alignas(32) uint32_t q02[kLanes], q0[kLanes], q13[kLanes], q1[kLanes];
    for (int k = 0; k < V; ++k) {
      _mm256_store_si256(reinterpret_cast<__m256i *>(q02 + 8 * k), acc.q02[k]);
      _mm256_store_si256(reinterpret_cast<__m256i *>(q0 + 8 * k), acc.q0[k]);
      _mm256_store_si256(reinterpret_cast<__m256i *>(q13 + 8 * k), acc.q13[k]);
      _mm256_store_si256(reinterpret_cast<__m256i *>(q1 + 8 * k), acc.q1[k]);
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

void compare_uyvy_avx2(const uint8_t *a, const uint8_t *b, uint8_t *out, uint32_t lines,
                       size_t bytes_per_line, size_t stride, double *results) {
  compare_run<CompareStepAvx2<UyvyLayout, 1>, UyvyLayout>(a, b, out, lines, bytes_per_line,
                                                             stride, results);
}

void compare_yuyv_avx2(const uint8_t *a, const uint8_t *b, uint8_t *out, uint32_t lines,
                       size_t bytes_per_line, size_t stride, double *results) {
  compare_run<CompareStepAvx2<YuyvLayout, 1>, YuyvLayout>(a, b, out, lines, bytes_per_line,
                                                             stride, results);
}

void compare_bgr24_avx2(const uint8_t *a, const uint8_t *b, uint8_t *out, uint32_t lines,
                        size_t bytes_per_line, size_t stride, double *results) {
  compare_run<CompareStepAvx2<Bgr24Layout, 3>, Bgr24Layout>(a, b, out, lines, bytes_per_line,
                                                               stride, results);
}

void compare_bgra32_avx2(const uint8_t *a, const uint8_t *b, uint8_t *out, uint32_t lines,
                         size_t bytes_per_line, size_t stride, double *results) {
  compare_run<CompareStepAvx2<Bgra32Layout, 1>, Bgra32Layout>(a, b, out, lines,
                                                                 bytes_per_line, stride, results);
}

void compare_key8_avx2(const uint8_t *a, const uint8_t *b, uint8_t *out, uint32_t lines,
                       size_t bytes_per_line, size_t stride, double *results) {
  compare_run<CompareStepAvx2<Key8Layout, 1>, Key8Layout>(a, b, out, lines, bytes_per_line,
                                                             stride, results);
}

void compare_init_avx2(CompareKernelTable *table) {
  table->kernel[kCompareUyvy] = compare_uyvy_avx2;
  table->kernel[kCompareYuyv] = compare_yuyv_avx2;
  table->kernel[kCompareBgr24] = compare_bgr24_avx2;
  table->kernel[kCompareBgra32] = compare_bgra32_avx2;
  table->kernel[kCompareKey8] = compare_key8_avx2;
}

}  // namespace framedsp
