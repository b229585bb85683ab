// SSE2 steps of the integer-ratio kernels (every ratio, nearest, and half linear) for formats 0,
// 21, 25 and 261 / 263, and the table override.  Heads and tails are the scalar range routines of
// fixed_ratio_kernels.h, so every split gives the scalar bytes.
#include <emmintrin.h>

#include "scale/fixed_ratio_kernels.h"

namespace framedsp {

using namespace fixed_detail;

namespace {

inline __m128i ld(const uint8_t *p) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p)); }
inline void st(uint8_t *p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i *>(p), v); }
inline __m128i mask32(uint32_t m) { return _mm_set1_epi32(static_cast<int>(m)); }
inline __m128i pick(__m128i a, uint32_t ma, __m128i b, uint32_t mb) {
  return _mm_or_si128(_mm_and_si128(a, mask32(ma)), _mm_and_si128(b, mask32(mb)));
}

// The even and odd 4-byte groups of 32 source bytes.
inline void split_dwords(const uint8_t *s, __m128i *e, __m128i *o) {
  const __m128 x = _mm_castsi128_ps(ld(s));
  const __m128 y = _mm_castsi128_ps(ld(s + 16));
  *e = _mm_castps_si128(_mm_shuffle_ps(x, y, _MM_SHUFFLE(2, 0, 2, 0)));
  *o = _mm_castps_si128(_mm_shuffle_ps(x, y, _MM_SHUFFLE(3, 1, 3, 1)));
}

// P: the sample each output byte keeps (phase 0), Q: its partner (phase 1), from the even and odd
// groups of a 4-byte-group format.
template <int kSlot>
inline void pair_dwords(__m128i e, __m128i o, __m128i *p, __m128i *q) {
  if (kSlot == kFixedUyvy) {  // U Y0 V Y1
    *p = pick(e, 0x00FFFFFFu, _mm_slli_epi32(o, 16), 0xFF000000u);
    *q = pick(o, 0xFFFF00FFu, _mm_srli_epi32(e, 16), 0x0000FF00u);
  } else if (kSlot == kFixedYuyv) {  // Y0 U Y1 V
    *p = pick(e, 0xFF00FFFFu, _mm_slli_epi32(o, 16), 0x00FF0000u);
    *q = pick(o, 0xFFFFFF00u, _mm_srli_epi32(e, 16), 0x000000FFu);
  } else {  // 4-byte pixels
    *p = e;
    *q = o;
  }
}

// Sixteen output bytes of the half kernels from 32 source bytes.
template <int kSlot>
struct HalfStep {
  static constexpr size_t kOut = 16;
  static void run(const uint8_t *a, const uint8_t *, uint8_t *d) {
    if (kSlot == kFixedPlane) {
      const __m128i m = _mm_set1_epi16(0x00FF);
      st(d, _mm_packus_epi16(_mm_and_si128(ld(a), m), _mm_and_si128(ld(a + 16), m)));
      return;
    }
    __m128i e, o, p, q;
    split_dwords(a, &e, &o);
    pair_dwords<kSlot>(e, o, &p, &q);
    st(d, p);
  }
};

inline __m128i box4(__m128i a, __m128i b, __m128i c, __m128i d) {  // 16-bit lanes
  return _mm_srli_epi16(
      _mm_add_epi16(_mm_add_epi16(_mm_add_epi16(a, b), _mm_add_epi16(c, d)), _mm_set1_epi16(2)), 2);
}

template <int kSlot>
struct HalfLinearStep {
  static constexpr size_t kOut = 16;
  static void run(const uint8_t *a, const uint8_t *b, uint8_t *d) {
    const __m128i z = _mm_setzero_si128();
    if (kSlot == kFixedPlane) {
      const __m128i m = _mm_set1_epi16(0x00FF);
      __m128i r[2];
      for (int h = 0; h < 2; ++h) {
        const __m128i x = ld(a + 16 * h), y = ld(b + 16 * h);
        r[h] = box4(_mm_and_si128(x, m), _mm_srli_epi16(x, 8), _mm_and_si128(y, m),
                    _mm_srli_epi16(y, 8));
      }
      st(d, _mm_packus_epi16(r[0], r[1]));
      return;
    }
    __m128i e, o, pa, qa, pb, qb;
    split_dwords(a, &e, &o);
    pair_dwords<kSlot>(e, o, &pa, &qa);
    split_dwords(b, &e, &o);
    pair_dwords<kSlot>(e, o, &pb, &qb);
    const __m128i lo = box4(_mm_unpacklo_epi8(pa, z), _mm_unpacklo_epi8(qa, z),
                            _mm_unpacklo_epi8(pb, z), _mm_unpacklo_epi8(qb, z));
    const __m128i hi = box4(_mm_unpackhi_epi8(pa, z), _mm_unpackhi_epi8(qa, z),
                            _mm_unpackhi_epi8(pb, z), _mm_unpackhi_epi8(qb, z));
    st(d, _mm_packus_epi16(lo, hi));
  }
};

// The two output groups of a double step for one source group (4-byte formats) or the byte pair
// (planes), as (lo, hi) halves of 16 source bytes.
template <int kSlot>
inline void double_halves(__m128i v, __m128i *lo, __m128i *hi) {
  if (kSlot == kFixedUyvy) {  // U Y0 V Y0 | U Y1 V Y1
    *lo = pick(v, 0x00FFFFFFu, _mm_slli_epi32(v, 16), 0xFF000000u);
    *hi = pick(v, 0xFFFF00FFu, _mm_srli_epi32(v, 16), 0x0000FF00u);
  } else if (kSlot == kFixedYuyv) {  // Y0 U Y0 V | Y1 U Y1 V
    *lo = pick(v, 0xFF00FFFFu, _mm_slli_epi32(v, 16), 0x00FF0000u);
    *hi = pick(v, 0xFFFFFF00u, _mm_srli_epi32(v, 16), 0x000000FFu);
  } else {
    *lo = v;
    *hi = v;
  }
}

// Thirty-two output bytes of the double kernels from 16 source bytes.
template <int kSlot>
struct DoubleStep {
  static constexpr size_t kOut = 32;
  static void run(const uint8_t *a, const uint8_t *, uint8_t *d) {
    const __m128i v = ld(a);
    if (kSlot == kFixedPlane) {
      st(d, _mm_unpacklo_epi8(v, v));
      st(d + 16, _mm_unpackhi_epi8(v, v));
      return;
    }
    __m128i lo, hi;
    double_halves<kSlot>(v, &lo, &hi);
    st(d, _mm_unpacklo_epi32(lo, hi));
    st(d + 16, _mm_unpackhi_epi32(lo, hi));
  }
};

// Sixteen output bytes of the quarter kernels from 64 source bytes: the half step on the even
// groups of the even groups.
template <int kSlot>
struct QuarterStep {
  static constexpr size_t kOut = 16;
  static void run(const uint8_t *a, const uint8_t *, uint8_t *d) {
    if (kSlot == kFixedPlane) {
      const __m128i m = _mm_set1_epi32(0xFF);
      const __m128i lo = _mm_packs_epi32(_mm_and_si128(ld(a), m), _mm_and_si128(ld(a + 16), m));
      const __m128i hi = _mm_packs_epi32(_mm_and_si128(ld(a + 32), m), _mm_and_si128(ld(a + 48), m));
      st(d, _mm_packus_epi16(lo, hi));
      return;
    }
    __m128i e1, e2, o, e, p, q;
    split_dwords(a, &e1, &o);
    split_dwords(a + 32, &e2, &o);
    const __m128 x = _mm_castsi128_ps(e1), y = _mm_castsi128_ps(e2);
    e = _mm_castps_si128(_mm_shuffle_ps(x, y, _MM_SHUFFLE(2, 0, 2, 0)));
    o = _mm_castps_si128(_mm_shuffle_ps(x, y, _MM_SHUFFLE(3, 1, 3, 1)));
    pair_dwords<kSlot>(e, o, &p, &q);
    st(d, p);
  }
};

// Sixty-four output bytes of the quadruple kernels from 16 source bytes: each group of the
// double step written twice.
template <int kSlot>
struct QuadrupleStep {
  static constexpr size_t kOut = 64;
  static void run(const uint8_t *a, const uint8_t *, uint8_t *d) {
    const __m128i v = ld(a);
    if (kSlot == kFixedPlane) {
      const __m128i l = _mm_unpacklo_epi8(v, v), h = _mm_unpackhi_epi8(v, v);
      st(d, _mm_unpacklo_epi16(l, l));
      st(d + 16, _mm_unpackhi_epi16(l, l));
      st(d + 32, _mm_unpacklo_epi16(h, h));
      st(d + 48, _mm_unpackhi_epi16(h, h));
      return;
    }
    __m128i lo, hi;
    double_halves<kSlot>(v, &lo, &hi);
    if (kSlot == kFixedArgb) {  // each pixel four times
      const __m128i x = _mm_unpacklo_epi32(v, v), y = _mm_unpackhi_epi32(v, v);
      st(d, _mm_unpacklo_epi32(x, x));
      st(d + 16, _mm_unpackhi_epi32(x, x));
      st(d + 32, _mm_unpacklo_epi32(y, y));
      st(d + 48, _mm_unpackhi_epi32(y, y));
      return;
    }
    // 4:2:2: groups lo0 lo0 hi0 hi0 lo1 lo1 hi1 hi1 ...
    st(d, _mm_unpacklo_epi64(_mm_unpacklo_epi32(lo, lo), _mm_unpacklo_epi32(hi, hi)));
    st(d + 16, _mm_unpackhi_epi64(_mm_unpacklo_epi32(lo, lo), _mm_unpacklo_epi32(hi, hi)));
    st(d + 32, _mm_unpacklo_epi64(_mm_unpackhi_epi32(lo, lo), _mm_unpackhi_epi32(hi, hi)));
    st(d + 48, _mm_unpackhi_epi64(_mm_unpackhi_epi32(lo, lo), _mm_unpackhi_epi32(hi, hi)));
  }
};

// Output bytes [0, head) and the tail by the scalar range routine, the middle in steps.  `unit`:
// output bytes that start at a whole source group (one group for the half kernels, the two
// groups made of one source group for the double kernels).
template <class Step, int kRatio, int kSlot>
void ratio_kernel_sse2(const uint8_t *a, const uint8_t *b, uint8_t *dst, size_t n) {
  const size_t group = fixed_group_bytes(kSlot);
  const size_t unit = kRatio == kRatioDouble      ? 2 * group
                     : kRatio == kRatioQuadruple ? 4 * group
                                                 : group;
  const size_t head = head_bytes(dst, unit, n);
  auto range = [&](size_t begin, size_t end) {
    if (kRatio == kRatioHalfLinear) {
      half_linear_range_c<kSlot>(a, b, dst, begin, end);
    } else {
      ratio_range_c<kRatio, kSlot>(a, dst, begin, end);
    }
  };
  range(0, head);
  size_t p = head;
  for (; p + Step::kOut <= n; p += Step::kOut) {
    const size_t s = kRatio == kRatioDouble      ? p / 2
                     : kRatio == kRatioQuadruple ? p / 4
                     : kRatio == kRatioQuarter   ? 4 * p
                                                 : 2 * p;
    Step::run(a + s, b + s, dst + p);
  }
  range(p, n);
}

template <int kSlot>
void set_slot(FixedRatioTable *t) {
  t->ratio[kRatioHalf][kSlot] = &ratio_kernel_sse2<HalfStep<kSlot>, kRatioHalf, kSlot>;
  t->ratio[kRatioHalfLinear][kSlot] =
      &ratio_kernel_sse2<HalfLinearStep<kSlot>, kRatioHalfLinear, kSlot>;
  t->ratio[kRatioDouble][kSlot] = &ratio_kernel_sse2<DoubleStep<kSlot>, kRatioDouble, kSlot>;
  t->ratio[kRatioQuarter][kSlot] = &ratio_kernel_sse2<QuarterStep<kSlot>, kRatioQuarter, kSlot>;
  t->ratio[kRatioQuadruple][kSlot] =
      &ratio_kernel_sse2<QuadrupleStep<kSlot>, kRatioQuadruple, kSlot>;
}

}  // namespace

void fixed_ratio_init_sse2(FixedRatioTable *table) {
  set_slot<kFixedArgb>(table);
  set_slot<kFixedUyvy>(table);
  set_slot<kFixedYuyv>(table);
  set_slot<kFixedPlane>(table);
}

}  // namespace framedsp
