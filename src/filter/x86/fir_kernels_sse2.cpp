// SSE2 steps of the FIR kernels and the table override.  The edge routines and drivers are the
// scalar ones of fir_kernels.h, instantiated here on these steps.
#include <emmintrin.h>

#include "filter/fir_kernels.h"
#include "filter/x86/fir_masks_x86.h"

namespace framedsp {

using namespace fir_detail;

namespace {

inline __m128i loadu(const uint8_t *p) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p)); }
inline __m128i blend(__m128i a, __m128i b, __m128i m) {
  return _mm_or_si128(_mm_andnot_si128(m, a), _mm_and_si128(m, b));
}
inline __m128i coef_reg(const FirTap &t) { return _mm_load_si128(reinterpret_cast<const __m128i *>(t.lane)); }

// Terms of one output sample: term 0 is the centre sample x0 (times the centre tap), term k the
// pair sum x_-k + x_+k (times tap kHalf - k).  Every term is 0..510 and every tap an int16, so
// _mm_madd_epi16 on two interleaved terms against the interleaved taps gives the exact int32 sum
// of two products.  An odd term count pads its last pair with a zero tap.
template <int kTaps>
struct FirPairs {
  static constexpr int kHalf = (kTaps - 1) / 2;
  static constexpr int kTerms = kHalf + 1;
  static constexpr int kCount = (kTerms + 1) / 2;
  __m128i c[kCount];
  explicit FirPairs(const FirTap *coef) {
    for (int i = 0; i < kCount; ++i) {
      const __m128i a = coef_reg(coef[kHalf - 2 * i]);
      const __m128i b = 2 * i + 1 < kTerms ? coef_reg(coef[kHalf - 2 * i - 1]) : _mm_setzero_si128();
      c[i] = _mm_unpacklo_epi16(a, b);
    }
  }
};

// Adds the products of two terms (eight int16 lanes each) to the int32 sums of lanes 0..3 and 4..7.
inline void mac_pair(__m128i t0, __m128i t1, __m128i c, __m128i *lo, __m128i *hi) {
  *lo = _mm_add_epi32(*lo, _mm_madd_epi16(_mm_unpacklo_epi16(t0, t1), c));
  *hi = _mm_add_epi32(*hi, _mm_madd_epi16(_mm_unpackhi_epi16(t0, t1), c));
}

inline __m128i shift(__m128i acc) { return _mm_srai_epi32(acc, kFirShift); }

// Sixteen bytes: four int32 accumulators seeded with the rounding term, packed with signed then
// unsigned saturation (the same clamp to 0..255 as the scalar code: every value outside it
// saturates to the same end).
struct Acc16 {
  __m128i a0, a1, a2, a3;
  Acc16() : a0(_mm_set1_epi32(kFirRound)), a1(a0), a2(a0), a3(a0) {}
  // Terms t and u of the sixteen bytes, as int16 halves (bytes 0..7, 8..15).
  void add(__m128i t_lo, __m128i t_hi, __m128i u_lo, __m128i u_hi, __m128i c) {
    mac_pair(t_lo, u_lo, c, &a0, &a1);
    mac_pair(t_hi, u_hi, c, &a2, &a3);
  }
  __m128i pack() const {
    return _mm_packus_epi16(_mm_packs_epi32(shift(a0), shift(a1)),
                            _mm_packs_epi32(shift(a2), shift(a3)));
  }
};

// Runs the terms of one step in pairs.  term(k, &lo, &hi) yields term k as two int16 halves.
template <int kTaps, class Term>
inline void sum_terms(const FirPairs<kTaps> &pairs, Acc16 *acc, Term term) {
  using P = FirPairs<kTaps>;
  const __m128i zero = _mm_setzero_si128();
  for (int i = 0; i < P::kCount; ++i) {
    __m128i t_lo, t_hi, u_lo = zero, u_hi = zero;
    term(2 * i, &t_lo, &t_hi);
    if (2 * i + 1 < P::kTerms) term(2 * i + 1, &u_lo, &u_hi);
    acc->add(t_lo, t_hi, u_lo, u_hi, pairs.c[i]);
  }
}

template <int kClass, int kTaps>
struct FirHStepSse2 {
  static void run(const uint8_t *s, uint8_t *d, size_t pos, const FirTap *coef) {
    constexpr int kDa = kDist[kClass][0];
    constexpr int kDb = second_distance(kClass);
    const FirPairs<kTaps> pairs(coef);
    const unsigned phase = static_cast<unsigned>(pos % kPeriod[kClass]);
    const FirMasks &m = FirClassMasks<kClass>::kMasks;
    const __m128i zero = _mm_setzero_si128();
    const __m128i x = loadu(s);
    const __m128i sel = loadu(m.sel[phase]);
    Acc16 acc;
    sum_terms(pairs, &acc, [&](int k, __m128i *lo, __m128i *hi) {
      if (k == 0) {
        *lo = _mm_unpacklo_epi8(x, zero);
        *hi = _mm_unpackhi_epi8(x, zero);
        return;
      }
      __m128i l = loadu(s - k * kDa);
      __m128i r = loadu(s + k * kDa);
      if (kDb != kDa) {
        l = blend(l, loadu(s - k * kDb), sel);
        r = blend(r, loadu(s + k * kDb), sel);
      }
      *lo = _mm_add_epi16(_mm_unpacklo_epi8(l, zero), _mm_unpacklo_epi8(r, zero));
      *hi = _mm_add_epi16(_mm_unpackhi_epi8(l, zero), _mm_unpackhi_epi8(r, zero));
    });
    __m128i out = acc.pack();
    if (kClass == 1 || kClass >= 7) out = blend(out, x, loadu(m.pass[phase]));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(d), out);
  }
};

template <int kTaps, bool kLanes>
struct FirVStepSse2 {
  static void run(const FirRows<kTaps> &rows, uint8_t *dst, size_t pos, const FirTap *coef) {
    using P = FirPairs<kTaps>;
    constexpr int kHalf = P::kHalf;
    const P pairs(coef);
    const __m128i zero = _mm_setzero_si128();
    if (kLanes) {
      // The first byte of each lane is the sample; the lane is stored as 16 bits 0..255.
      const __m128i low = _mm_set1_epi16(0x00FF);
      const auto term = [&](int k) {
        if (k == 0) return _mm_and_si128(loadu(rows.rp[kHalf] + pos), low);
        return _mm_add_epi16(_mm_and_si128(loadu(rows.rp[kHalf - k] + pos), low),
                             _mm_and_si128(loadu(rows.rp[kHalf + k] + pos), low));
      };
      __m128i a0 = _mm_set1_epi32(kFirRound), a1 = a0;
      for (int i = 0; i < P::kCount; ++i) {
        const __m128i u = 2 * i + 1 < P::kTerms ? term(2 * i + 1) : zero;
        mac_pair(term(2 * i), u, pairs.c[i], &a0, &a1);
      }
      __m128i v = _mm_packs_epi32(shift(a0), shift(a1));
      v = _mm_min_epi16(_mm_max_epi16(v, zero), _mm_set1_epi16(255));
      _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + pos), v);
      return;
    }
    Acc16 acc;
    sum_terms(pairs, &acc, [&](int k, __m128i *lo, __m128i *hi) {
      if (k == 0) {
        const __m128i x = loadu(rows.rp[kHalf] + pos);
        *lo = _mm_unpacklo_epi8(x, zero);
        *hi = _mm_unpackhi_epi8(x, zero);
        return;
      }
      const __m128i u = loadu(rows.rp[kHalf - k] + pos);
      const __m128i w = loadu(rows.rp[kHalf + k] + pos);
      *lo = _mm_add_epi16(_mm_unpacklo_epi8(u, zero), _mm_unpacklo_epi8(w, zero));
      *hi = _mm_add_epi16(_mm_unpackhi_epi8(u, zero), _mm_unpackhi_epi8(w, zero));
    });
    _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + pos), acc.pack());
  }
};

}  // namespace

void fir_init_sse2(FirKernelTable *table) {
  fir_fill<FirHStepSse2>(table, std::make_index_sequence<kFirHorzEntries>{});
  fir_fill_v<FirVStepSse2>(table, std::make_index_sequence<kFirTableCount>{});
}

void fir_sub_init_sse2(FirSubKernelTable *table) {
  fir_fill_sv<FirVStepSse2>(table, std::make_index_sequence<kFirTableCount>{});
}

}  // namespace framedsp
