// SSE2 steps of the FIR kernels and the table override.  The edge routines and drivers are the
// scalar ones of fir_kernels.h, instantiated here on these steps.
#include <emmintrin.h>

#include "filter/fir_kernels.h"

namespace framedsp {

using namespace fir_detail;

namespace {

// Byte masks of a class: sel picks the second distance, pass marks copied bytes; row = phase
// (position of the step's first byte modulo the class period).
struct FirMasks {
  uint8_t sel[4][16];
  uint8_t pass[4][16];
};

constexpr int second_distance(int cls) {
  for (int i = 0; i < 4; ++i) {
    if (kDist[cls][i] != 0 && kDist[cls][i] != kDist[cls][0]) return kDist[cls][i];
  }
  return kDist[cls][0];
}

constexpr FirMasks make_masks(int cls) {
  FirMasks m{};
  const int d_b = second_distance(cls);
  for (int phase = 0; phase < 4; ++phase) {
    for (int j = 0; j < 16; ++j) {
      const int d = dist_at(cls, static_cast<size_t>(phase + j));
      m.sel[phase][j] = (d_b != kDist[cls][0] && d == d_b) ? 0xFF : 0;
      m.pass[phase][j] = d == 0 ? 0xFF : 0;
    }
  }
  return m;
}

template <int kClass>
struct FirClassMasks {
  static constexpr FirMasks kMasks = make_masks(kClass);
};

inline __m128i loadu(const uint8_t *p) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p)); }
inline __m128i blend(__m128i a, __m128i b, __m128i m) {
  return _mm_or_si128(_mm_andnot_si128(m, a), _mm_and_si128(m, b));
}
inline __m128i coef_reg(const FirTap &t) { return _mm_load_si128(reinterpret_cast<const __m128i *>(t.lane)); }

// Full 32-bit products of eight int16 lanes (sample sums 0..510 times signed coefficients).
inline void mac32(__m128i a, __m128i c, __m128i *lo, __m128i *hi) {
  const __m128i pl = _mm_mullo_epi16(a, c);
  const __m128i ph = _mm_mulhi_epi16(a, c);
  *lo = _mm_add_epi32(*lo, _mm_unpacklo_epi16(pl, ph));
  *hi = _mm_add_epi32(*hi, _mm_unpackhi_epi16(pl, ph));
}

inline __m128i round_shift(__m128i acc) {
  return _mm_srai_epi32(_mm_add_epi32(acc, _mm_set1_epi32(kFirRound)), kFirShift);
}

// Sixteen bytes: four int32 accumulators, packed with signed then unsigned saturation (the same
// clamp to 0..255 as the scalar code: every value outside it saturates to the same end).
struct Acc16 {
  __m128i a0 = _mm_setzero_si128(), a1 = _mm_setzero_si128(), a2 = _mm_setzero_si128(),
          a3 = _mm_setzero_si128();
  void add_bytes(__m128i lo16, __m128i hi16, __m128i c) {
    mac32(lo16, c, &a0, &a1);
    mac32(hi16, c, &a2, &a3);
  }
  __m128i pack() const {
    return _mm_packus_epi16(_mm_packs_epi32(round_shift(a0), round_shift(a1)),
                            _mm_packs_epi32(round_shift(a2), round_shift(a3)));
  }
};

template <int kClass, int kTaps>
struct FirHStepSse2 {
  static void run(const uint8_t *s, uint8_t *d, size_t pos, const FirTap *coef) {
    constexpr int kHalf = (kTaps - 1) / 2;
    constexpr int kDa = kDist[kClass][0];
    constexpr int kDb = second_distance(kClass);
    const unsigned phase = static_cast<unsigned>(pos % kPeriod[kClass]);
    const FirMasks &m = FirClassMasks<kClass>::kMasks;
    const __m128i zero = _mm_setzero_si128();
    const __m128i x = loadu(s);
    Acc16 acc;
    acc.add_bytes(_mm_unpacklo_epi8(x, zero), _mm_unpackhi_epi8(x, zero), coef_reg(coef[kHalf]));
    const __m128i sel = loadu(m.sel[phase]);
    for (int k = 1; k <= kHalf; ++k) {
      __m128i l = loadu(s - k * kDa);
      __m128i r = loadu(s + k * kDa);
      if (kDb != kDa) {
        l = blend(l, loadu(s - k * kDb), sel);
        r = blend(r, loadu(s + k * kDb), sel);
      }
      acc.add_bytes(_mm_add_epi16(_mm_unpacklo_epi8(l, zero), _mm_unpacklo_epi8(r, zero)),
                    _mm_add_epi16(_mm_unpackhi_epi8(l, zero), _mm_unpackhi_epi8(r, zero)),
                    coef_reg(coef[kHalf - k]));
    }
    __m128i out = acc.pack();
    if (kClass == 1 || kClass >= 7) out = blend(out, x, loadu(m.pass[phase]));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(d), out);
  }
};

template <int kTaps, bool kLanes>
struct FirVStepSse2 {
  static void run(const FirRows<kTaps> &rows, uint8_t *dst, size_t pos, const FirTap *coef) {
    constexpr int kHalf = (kTaps - 1) / 2;
    const __m128i zero = _mm_setzero_si128();
    if (kLanes) {
      // The first byte of each lane is the sample; the lane is stored as 16 bits 0..255.
      const __m128i low = _mm_set1_epi16(0x00FF);
      __m128i a0 = zero, a1 = zero;
      mac32(_mm_and_si128(loadu(rows.rp[kHalf] + pos), low), coef_reg(coef[kHalf]), &a0, &a1);
      for (int k = 1; k <= kHalf; ++k) {
        const __m128i sum = _mm_add_epi16(_mm_and_si128(loadu(rows.rp[kHalf - k] + pos), low),
                                          _mm_and_si128(loadu(rows.rp[kHalf + k] + pos), low));
        mac32(sum, coef_reg(coef[kHalf - k]), &a0, &a1);
      }
      __m128i v = _mm_packs_epi32(round_shift(a0), round_shift(a1));
      v = _mm_min_epi16(_mm_max_epi16(v, zero), _mm_set1_epi16(255));
      _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + pos), v);
      return;
    }
    const __m128i x = loadu(rows.rp[kHalf] + pos);
    Acc16 acc;
    acc.add_bytes(_mm_unpacklo_epi8(x, zero), _mm_unpackhi_epi8(x, zero), coef_reg(coef[kHalf]));
    for (int k = 1; k <= kHalf; ++k) {
      const __m128i u = loadu(rows.rp[kHalf - k] + pos);
      const __m128i w = loadu(rows.rp[kHalf + k] + pos);
      acc.add_bytes(_mm_add_epi16(_mm_unpacklo_epi8(u, zero), _mm_unpacklo_epi8(w, zero)),
                    _mm_add_epi16(_mm_unpackhi_epi8(u, zero), _mm_unpackhi_epi8(w, zero)),
                    coef_reg(coef[kHalf - k]));
    }
    _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + pos), acc.pack());
  }
};

}  // namespace

void fir_init_sse2(FirKernelTable *table) {
  fir_fill<FirHStepSse2>(table, std::make_index_sequence<kFirHorzEntries>{});
  fir_fill_v<FirVStepSse2>(table, std::make_index_sequence<kFirTableCount>{});
}

}  // namespace framedsp
