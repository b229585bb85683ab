// SSE2 kernels of the box filter.  Column-sum steps: 16 byte samples or 8 word samples a step,
// the rest by the scalar twins.  Horizontal pass: the four-sample-group 8-bit classes.
// Unaligned loads and stores throughout (rows and lines are caller memory).
#include <emmintrin.h>

#include <cstring>

#include "filter/box_filter.h"

namespace framedsp {
namespace {

template <bool kAdd>
inline void apply(uint32_t *acc, __m128i v32) {
  const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(acc));
  _mm_storeu_si128(reinterpret_cast<__m128i *>(acc), kAdd ? _mm_add_epi32(a, v32) : _mm_sub_epi32(a, v32));
}

// Eight zero-extended 16-bit samples into acc[0..7].
template <bool kAdd>
inline void apply8(uint32_t *acc, __m128i w16) {
  const __m128i zero = _mm_setzero_si128();
  apply<kAdd>(acc, _mm_unpacklo_epi16(w16, zero));
  apply<kAdd>(acc + 4, _mm_unpackhi_epi16(w16, zero));
}

template <bool kAdd>
void rows_u8(uint32_t *acc, const uint8_t *row, size_t n) {
  const __m128i zero = _mm_setzero_si128();
  size_t i = 0;
  for (; i + 16 <= n; i += 16) {
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(row + i));
    apply8<kAdd>(acc + i, _mm_unpacklo_epi8(b, zero));
    apply8<kAdd>(acc + i + 8, _mm_unpackhi_epi8(b, zero));
  }
  if (kAdd) {
    box_row_add_u8_c(acc + i, row + i, n - i);
  } else {
    box_row_sub_u8_c(acc + i, row + i, n - i);
  }
}

// Little-endian words: x86 loads them as they are.
template <bool kAdd>
void rows_u16(uint32_t *acc, const uint8_t *row, size_t n) {
  size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    apply8<kAdd>(acc + i, _mm_loadu_si128(reinterpret_cast<const __m128i *>(row + 2 * i)));
  }
  if (kAdd) {
    box_row_add_u16_c(acc + i, row + 2 * i, n - i);
  } else {
    box_row_sub_u16_c(acc + i, row + 2 * i, n - i);
  }
}

// acc - leave + enter: for bytes the difference fits 16 signed bits and is sign-extended once;
// words are widened and applied one after the other.
void box_row_move_u8_sse2(uint32_t *acc, const uint8_t *leave, const uint8_t *enter, size_t n) {
  const __m128i zero = _mm_setzero_si128();
  size_t i = 0;
  for (; i + 16 <= n; i += 16) {
    const __m128i l = _mm_loadu_si128(reinterpret_cast<const __m128i *>(leave + i));
    const __m128i e = _mm_loadu_si128(reinterpret_cast<const __m128i *>(enter + i));
    const __m128i d_lo = _mm_sub_epi16(_mm_unpacklo_epi8(e, zero), _mm_unpacklo_epi8(l, zero));
    const __m128i d_hi = _mm_sub_epi16(_mm_unpackhi_epi8(e, zero), _mm_unpackhi_epi8(l, zero));
    const __m128i s_lo = _mm_srai_epi16(d_lo, 15);
    const __m128i s_hi = _mm_srai_epi16(d_hi, 15);
    apply<true>(acc + i, _mm_unpacklo_epi16(d_lo, s_lo));
    apply<true>(acc + i + 4, _mm_unpackhi_epi16(d_lo, s_lo));
    apply<true>(acc + i + 8, _mm_unpacklo_epi16(d_hi, s_hi));
    apply<true>(acc + i + 12, _mm_unpackhi_epi16(d_hi, s_hi));
  }
  box_row_move_u8_c(acc + i, leave + i, enter + i, n - i);
}

void box_row_move_u16_sse2(uint32_t *acc, const uint8_t *leave, const uint8_t *enter, size_t n) {
  const __m128i zero = _mm_setzero_si128();
  size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    const __m128i l = _mm_loadu_si128(reinterpret_cast<const __m128i *>(leave + 2 * i));
    const __m128i e = _mm_loadu_si128(reinterpret_cast<const __m128i *>(enter + 2 * i));
    for (size_t h = 0; h < 2; ++h) {
      const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(acc + i + 4 * h));
      const __m128i l32 = h ? _mm_unpackhi_epi16(l, zero) : _mm_unpacklo_epi16(l, zero);
      const __m128i e32 = h ? _mm_unpackhi_epi16(e, zero) : _mm_unpacklo_epi16(e, zero);
      _mm_storeu_si128(reinterpret_cast<__m128i *>(acc + i + 4 * h), _mm_add_epi32(_mm_sub_epi32(a, l32), e32));
    }
  }
  box_row_move_u16_c(acc + i, leave + 2 * i, enter + 2 * i, n - i);
}

void box_row_add_u8_sse2(uint32_t *acc, const uint8_t *row, size_t n) { rows_u8<true>(acc, row, n); }
void box_row_sub_u8_sse2(uint32_t *acc, const uint8_t *row, size_t n) { rows_u8<false>(acc, row, n); }
void box_row_add_u16_sse2(uint32_t *acc, const uint8_t *row, size_t n) { rows_u16<true>(acc, row, n); }
void box_row_sub_u16_sse2(uint32_t *acc, const uint8_t *row, size_t n) { rows_u16<false>(acc, row, n); }

// Horizontal pass of the four-sample-group classes (0, 2, 3, 5): the running sums of one group's
// four samples sit in the four 32-bit lanes of a register, one group (16 bytes of sums) a step.
// A component four apart enters and leaves one sample a group; a luma lane (4:2:2 classes)
// moves two luma samples a group, so it adds the two entering and takes out the two leaving
// ones.  The ends of the line are padded with the repeated end samples first, so the loop needs
// no clamping.  The lanes wrap modulo 2^32 exactly as the scalar sums do.  Scaling forms the low
// 32 bits of sum * R in each lane with two widening multiplies (even and odd lanes), which is the
// scalar uint32_t product whatever its size, then adds 2^22, shifts by 23 and saturates to 255
// while packing (values are below 2^9 after the shift, so the signed 32-to-16 pack is exact).  A
// line that is not a whole number of groups gives its components different lengths and goes to
// the scalar kernel.
inline __m128i load4(const uint32_t *p) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p)); }

inline __m128i scale(__m128i sum, __m128i recip, __m128i round) {
  const __m128i even = _mm_mul_epu32(sum, recip);
  const __m128i odd = _mm_mul_epu32(_mm_srli_epi64(sum, 32), recip);
  const __m128i lo = _mm_unpacklo_epi32(_mm_shuffle_epi32(even, _MM_SHUFFLE(3, 1, 2, 0)),
                                        _mm_shuffle_epi32(odd, _MM_SHUFFLE(3, 1, 2, 0)));
  return _mm_srli_epi32(_mm_add_epi32(lo, round), static_cast<int>(kBoxShift));
}

template <uint32_t kLuma>
void box_h_group_sse2(uint32_t *sums, uint8_t *dst, size_t n, const BoxWindow &w) {
  constexpr uint32_t kClass = kLuma == 0xA ? 0 : kLuma == 0x5 ? 2 : 5;
  if (n == 0) return;
  if (n % 4 != 0) {
    box_horz_kernel(kClass)(sums, dst, n, w);
    return;
  }
  alignas(16) uint32_t ends[2][4];
  box_group_ends(sums, n, kLuma, ends[0], ends[1]);
  const __m128i head = load4(ends[0]), tail = load4(ends[1]);
  uint32_t *const left = sums - 4 * static_cast<size_t>(w.before);
  for (int32_t k = 0; k < w.before; ++k) _mm_storeu_si128(reinterpret_cast<__m128i *>(left + 4 * k), head);
  for (int32_t k = 0; k < w.after + 3; ++k) _mm_storeu_si128(reinterpret_cast<__m128i *>(sums + n + 4 * k), tail);
  // Group 0's window: `before` copies of the head, then groups 0 .. after (padding included).
  __m128i first = _mm_setzero_si128();
  for (int32_t j = 0; j <= w.after; ++j) first = _mm_add_epi32(first, load4(sums + 4 * j));
  for (int32_t k = 0; k < w.before; ++k) first = _mm_add_epi32(first, head);
  alignas(16) uint32_t start[4];
  _mm_store_si128(reinterpret_cast<__m128i *>(start), first);
  box_group_luma_start(sums, kLuma, w, start);
  const size_t groups = n / 4;
  const __m128i recip = _mm_set1_epi32(static_cast<int>(w.recip));
  const __m128i round = _mm_set1_epi32(static_cast<int>(kBoxRound));
  const __m128i luma = _mm_set_epi32(kLuma & 8 ? -1 : 0, kLuma & 4 ? -1 : 0, kLuma & 2 ? -1 : 0, kLuma & 1 ? -1 : 0);
  const ptrdiff_t a = w.after, b = w.before;
  const uint32_t *const enter4 = sums + 4 * (a + 1);  // group g: + 4g
  const uint32_t *const leave4 = sums - 4 * b;
  const uint32_t *const enter2 = sums + 2 * a + 2;    // luma pair of group g: + 4g and + 4g + 2
  const uint32_t *const leave2 = sums - 2 * b;
  // Change of the window sums from group g to group g + 1.
  auto delta = [&](size_t g) {
    const size_t at = 4 * g;
    __m128i d = _mm_sub_epi32(load4(enter4 + at), load4(leave4 + at));
    if (kLuma != 0) {
      const __m128i in2 = _mm_add_epi32(load4(enter2 + at), load4(enter2 + at + 2));
      const __m128i out2 = _mm_add_epi32(load4(leave2 + at), load4(leave2 + at + 2));
      d = _mm_or_si128(_mm_andnot_si128(luma, d), _mm_and_si128(luma, _mm_sub_epi32(in2, out2)));
    }
    return d;
  };
  __m128i sum = load4(start);
  size_t g = 0;
  for (; g + 4 <= groups; g += 4) {
    __m128i s[4];
    for (size_t k = 0; k < 4; ++k) {
      s[k] = sum;
      sum = _mm_add_epi32(sum, delta(g + k));
    }
    const __m128i lo = _mm_packs_epi32(scale(s[0], recip, round), scale(s[1], recip, round));
    const __m128i hi = _mm_packs_epi32(scale(s[2], recip, round), scale(s[3], recip, round));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + 4 * g), _mm_packus_epi16(lo, hi));
  }
  for (; g < groups; ++g) {
    const __m128i v = _mm_packs_epi32(scale(sum, recip, round), _mm_setzero_si128());
    const int32_t px = _mm_cvtsi128_si32(_mm_packus_epi16(v, v));
    std::memcpy(dst + 4 * g, &px, 4);
    sum = _mm_add_epi32(sum, delta(g));
  }
}

}  // namespace

void box_row_init_sse2(BoxRowKernels *table) {
  table->add_u8 = box_row_add_u8_sse2;
  table->sub_u8 = box_row_sub_u8_sse2;
  table->add_u16 = box_row_add_u16_sse2;
  table->sub_u16 = box_row_sub_u16_sse2;
  table->move_u8 = box_row_move_u8_sse2;
  table->move_u16 = box_row_move_u16_sse2;
}

BoxHorzKernel box_horz_kernel_sse2(uint32_t layout_class) {
  switch (layout_class) {
    case 0: return box_h_group_sse2<0xA>;
    case 2: return box_h_group_sse2<0x5>;
    case 3:
    case 5: return box_h_group_sse2<0>;
    default: return nullptr;
  }
}

}  // namespace framedsp
