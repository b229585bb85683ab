// AVX2 steps of the FIR kernels and the table override (installed over the SSE2 one when the CPU
// has AVX2).  Same 16-byte steps and drivers as the SSE2 file: the sixteen samples of a step are
// widened to one 256-bit register of int16, so each pair of terms takes two madds instead of four.
#include <immintrin.h>

#include "filter/fir_kernels.h"
#include "filter/x86/fir_masks_x86.h"

namespace framedsp {

using namespace fir_detail;

namespace {

inline __m128i loadu(const uint8_t *p) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p)); }
inline __m256i widen(__m128i v) { return _mm256_cvtepu8_epi16(v); }
inline __m256i widen_at(const uint8_t *p) { return widen(loadu(p)); }

// Interleaved tap pairs: pair i holds taps for terms 2i and 2i + 1 (term 0 the centre sample,
// term k the pair sum x_-k + x_+k), an odd term count padded with a zero tap.  Terms are 0..510
// and taps int16, so _mm256_madd_epi16 gives exact int32 sums of two products.
template <int kTaps>
struct FirPairs {
  static constexpr int kHalf = (kTaps - 1) / 2;
  static constexpr int kTerms = kHalf + 1;
  static constexpr int kCount = (kTerms + 1) / 2;
  __m256i c[kCount];
  explicit FirPairs(const FirTap *coef) {
    for (int i = 0; i < kCount; ++i) {
      const __m128i a = _mm_load_si128(reinterpret_cast<const __m128i *>(coef[kHalf - 2 * i].lane));
      const __m128i b =
          2 * i + 1 < kTerms
              ? _mm_load_si128(reinterpret_cast<const __m128i *>(coef[kHalf - 2 * i - 1].lane))
              : _mm_setzero_si128();
      c[i] = _mm256_broadcastsi128_si256(_mm_unpacklo_epi16(a, b));
    }
  }
};

// Sixteen samples as int16 in one register.  unpacklo/hi work within 128-bit lanes, so lo holds
// samples 0..3 | 8..11 and hi samples 4..7 | 12..15; packs_epi32(lo, hi) restores 0..7 | 8..15.
struct Acc16 {
  __m256i lo = _mm256_set1_epi32(kFirRound), hi = _mm256_set1_epi32(kFirRound);
  void add(__m256i t, __m256i u, __m256i c) {
    lo = _mm256_add_epi32(lo, _mm256_madd_epi16(_mm256_unpacklo_epi16(t, u), c));
    hi = _mm256_add_epi32(hi, _mm256_madd_epi16(_mm256_unpackhi_epi16(t, u), c));
  }
  // int16 results of the sixteen samples, saturated (signed) from int32.
  __m256i words() const {
    return _mm256_packs_epi32(_mm256_srai_epi32(lo, kFirShift), _mm256_srai_epi32(hi, kFirShift));
  }
  // Bytes, signed then unsigned saturation: the same clamp to 0..255 as the scalar code.
  __m128i bytes() const {
    const __m256i w = words();
    return _mm_packus_epi16(_mm256_castsi256_si128(w), _mm256_extracti128_si256(w, 1));
  }
};

template <int kTaps, class Term>
inline void sum_terms(const FirPairs<kTaps> &pairs, Acc16 *acc, Term term) {
  using P = FirPairs<kTaps>;
  for (int i = 0; i < P::kCount; ++i) {
    const __m256i u = 2 * i + 1 < P::kTerms ? term(2 * i + 1) : _mm256_setzero_si256();
    acc->add(term(2 * i), u, pairs.c[i]);
  }
}

template <int kClass, int kTaps>
struct FirHStepAvx2 {
  static void run(const uint8_t *s, uint8_t *d, size_t pos, const FirTap *coef) {
    constexpr int kDa = kDist[kClass][0];
    constexpr int kDb = second_distance(kClass);
    const FirPairs<kTaps> pairs(coef);
    const unsigned phase = static_cast<unsigned>(pos % kPeriod[kClass]);
    const FirMasks &m = FirClassMasks<kClass>::kMasks;
    const __m128i x = loadu(s);
    const __m128i sel = loadu(m.sel[phase]);
    Acc16 acc;
    sum_terms(pairs, &acc, [&](int k) {
      if (k == 0) return widen(x);
      if (kDb == kDa) return _mm256_add_epi16(widen_at(s - k * kDa), widen_at(s + k * kDa));
      const __m128i l = _mm_blendv_epi8(loadu(s - k * kDa), loadu(s - k * kDb), sel);
      const __m128i r = _mm_blendv_epi8(loadu(s + k * kDa), loadu(s + k * kDb), sel);
      return _mm256_add_epi16(widen(l), widen(r));
    });
    __m128i out = acc.bytes();
    if (kClass == 1 || kClass >= 7) out = _mm_blendv_epi8(out, x, loadu(m.pass[phase]));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(d), out);
  }
};

template <int kTaps, bool kLanes>
struct FirVStepAvx2 {
  static void run(const FirRows<kTaps> &rows, uint8_t *dst, size_t pos, const FirTap *coef) {
    using P = FirPairs<kTaps>;
    constexpr int kHalf = P::kHalf;
    const P pairs(coef);
    if (kLanes) {
      // The first byte of each 16-bit lane is the sample; the lane is stored as 16 bits 0..255.
      const __m128i low = _mm_set1_epi16(0x00FF);
      const auto term = [&](int k) {
        if (k == 0) return _mm_and_si128(loadu(rows.rp[kHalf] + pos), low);
        return _mm_add_epi16(_mm_and_si128(loadu(rows.rp[kHalf - k] + pos), low),
                             _mm_and_si128(loadu(rows.rp[kHalf + k] + pos), low));
      };
      __m128i a0 = _mm_set1_epi32(kFirRound), a1 = a0;
      for (int i = 0; i < P::kCount; ++i) {
        const __m128i u = 2 * i + 1 < P::kTerms ? term(2 * i + 1) : _mm_setzero_si128();
        const __m128i t = term(2 * i);
        const __m128i c = _mm256_castsi256_si128(pairs.c[i]);
        a0 = _mm_add_epi32(a0, _mm_madd_epi16(_mm_unpacklo_epi16(t, u), c));
        a1 = _mm_add_epi32(a1, _mm_madd_epi16(_mm_unpackhi_epi16(t, u), c));
      }
      __m128i v = _mm_packs_epi32(_mm_srai_epi32(a0, kFirShift), _mm_srai_epi32(a1, kFirShift));
      v = _mm_min_epi16(_mm_max_epi16(v, _mm_setzero_si128()), _mm_set1_epi16(255));
      _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + pos), v);
      return;
    }
    Acc16 acc;
    sum_terms(pairs, &acc, [&](int k) {
      if (k == 0) return widen_at(rows.rp[kHalf] + pos);
      return _mm256_add_epi16(widen_at(rows.rp[kHalf - k] + pos), widen_at(rows.rp[kHalf + k] + pos));
    });
    _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + pos), acc.bytes());
  }
};

}  // namespace

void fir_init_avx2(FirKernelTable *table) {
  fir_fill<FirHStepAvx2>(table, std::make_index_sequence<kFirHorzEntries>{});
  fir_fill_v<FirVStepAvx2>(table, std::make_index_sequence<kFirTableCount>{});
}

void fir_sub_init_avx2(FirSubKernelTable *table) {
  fir_fill_sv<FirVStepAvx2>(table, std::make_index_sequence<kFirTableCount>{});
}

}  // namespace framedsp
