// AVX2 kernels of the box filter, entered only after the runtime check.  Column-sum steps: the
// samples are widened straight from memory (8 bytes or 8 words to eight 32-bit lanes), the byte
// move forms enter - leave in 16 bits and widens the signed difference once; the rest of a line
// goes to the scalar twins.  Horizontal pass: the four-sample-group 8-bit classes, two groups a
// register.  Unaligned loads and stores throughout (rows and lines are caller memory).
#include <immintrin.h>

#include <cstring>

#include "filter/box_filter.h"

namespace framedsp {
namespace {

inline __m256i load8(const uint32_t *p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p)); }
inline void store8(uint32_t *p, __m256i v) { _mm256_storeu_si256(reinterpret_cast<__m256i *>(p), v); }
inline __m256i widen_u8(const uint8_t *p) {
  return _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(p)));
}
inline __m256i widen_u16(const uint8_t *p) {
  return _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p)));
}

template <bool kAdd>
inline void apply(uint32_t *acc, __m256i v) {
  const __m256i a = load8(acc);
  store8(acc, kAdd ? _mm256_add_epi32(a, v) : _mm256_sub_epi32(a, v));
}

template <bool kAdd>
void rows_u8(uint32_t *acc, const uint8_t *row, size_t n) {
  size_t i = 0;
  for (; i + 16 <= n; i += 16) {
    apply<kAdd>(acc + i, widen_u8(row + i));
    apply<kAdd>(acc + i + 8, widen_u8(row + i + 8));
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
  for (; i + 8 <= n; i += 8) apply<kAdd>(acc + i, widen_u16(row + 2 * i));
  if (kAdd) {
    box_row_add_u16_c(acc + i, row + 2 * i, n - i);
  } else {
    box_row_sub_u16_c(acc + i, row + 2 * i, n - i);
  }
}

// acc - leave + enter.  Bytes: the 16-bit difference of 16 samples is exact and is sign-extended
// to two registers of eight lanes.  Words: both widened and applied one after the other.
void box_row_move_u8_avx2(uint32_t *acc, const uint8_t *leave, const uint8_t *enter, size_t n) {
  size_t i = 0;
  for (; i + 16 <= n; i += 16) {
    const __m256i e = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i *>(enter + i)));
    const __m256i l = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i *>(leave + i)));
    const __m256i d = _mm256_sub_epi16(e, l);
    apply<true>(acc + i, _mm256_cvtepi16_epi32(_mm256_castsi256_si128(d)));
    apply<true>(acc + i + 8, _mm256_cvtepi16_epi32(_mm256_extracti128_si256(d, 1)));
  }
  box_row_move_u8_c(acc + i, leave + i, enter + i, n - i);
}

void box_row_move_u16_avx2(uint32_t *acc, const uint8_t *leave, const uint8_t *enter, size_t n) {
  size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    const __m256i a = load8(acc + i);
    store8(acc + i, _mm256_add_epi32(_mm256_sub_epi32(a, widen_u16(leave + 2 * i)), widen_u16(enter + 2 * i)));
  }
  box_row_move_u16_c(acc + i, leave + 2 * i, enter + 2 * i, n - i);
}

void box_row_add_u8_avx2(uint32_t *acc, const uint8_t *row, size_t n) { rows_u8<true>(acc, row, n); }
void box_row_sub_u8_avx2(uint32_t *acc, const uint8_t *row, size_t n) { rows_u8<false>(acc, row, n); }
void box_row_add_u16_avx2(uint32_t *acc, const uint8_t *row, size_t n) { rows_u16<true>(acc, row, n); }
void box_row_sub_u16_avx2(uint32_t *acc, const uint8_t *row, size_t n) { rows_u16<false>(acc, row, n); }

// Horizontal pass of the four-sample-group classes (0, 2, 3, 5).  Group g's window sums sit in
// four 32-bit lanes (see the SSE2 kernel for the lane rules); a register holds groups g and
// g + 1, and the change from one pair to the next is delta(g) + delta(g + 1), the deltas loaded
// for two groups at once.  The ends are padded first, so no clamping.  Scaling keeps the
// low 32 bits of sum * R per lane (the scalar uint32_t product), adds 2^22, shifts by 23 and
// saturates to 255 in the packs; four pairs (32 bytes) are packed together and put back in
// group order with one lane permute.
inline __m128i load4(const uint32_t *p) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p)); }

// `groups` copies of a four-lane pattern from p on.
inline void pad(uint32_t *p, __m128i pattern, int32_t groups) {
  const __m256i two = _mm256_broadcastsi128_si256(pattern);
  int32_t k = 0;
  for (; k + 2 <= groups; k += 2) store8(p + 4 * k, two);
  if (k < groups) _mm_storeu_si128(reinterpret_cast<__m128i *>(p + 4 * k), pattern);
}

// Group 0's window sums: `before` copies of the head, then groups 0 .. after (padding included),
// two groups a load; the luma lanes summed apart.
template <uint32_t kLuma>
void first_window(const uint32_t *sums, const BoxWindow &w, __m128i head, uint32_t start[4]) {
  __m256i first2 = _mm256_setzero_si256();
  int32_t j = 0;
  for (; j + 1 <= w.after; j += 2) first2 = _mm256_add_epi32(first2, load8(sums + 4 * j));
  __m128i first = _mm_add_epi32(_mm256_castsi256_si128(first2), _mm256_extracti128_si256(first2, 1));
  if (j == w.after) first = _mm_add_epi32(first, load4(sums + 4 * j));
  first = _mm_add_epi32(first, _mm_mullo_epi32(head, _mm_set1_epi32(w.before)));
  _mm_store_si128(reinterpret_cast<__m128i *>(start), first);
  box_group_luma_start(sums, kLuma, w, start);
}

template <uint32_t kLuma>
void box_h_group_avx2(uint32_t *sums, uint8_t *dst, size_t n, const BoxWindow &w) {
  constexpr uint32_t kClass = kLuma == 0xA ? 0 : kLuma == 0x5 ? 2 : 5;
  if (n == 0) return;
  if (n % 4 != 0) {
    box_horz_kernel(kClass)(sums, dst, n, w);
    return;
  }
  alignas(16) uint32_t ends[2][4];
  box_group_ends(sums, n, kLuma, ends[0], ends[1]);
  const __m128i head = load4(ends[0]), tail = load4(ends[1]);
  const int32_t before = w.before, right = w.after + 3;
  pad(sums - 4 * static_cast<size_t>(before), head, before);
  pad(sums + n, tail, right);
  alignas(16) uint32_t start[4];
  first_window<kLuma>(sums, w, head, start);
  const size_t groups = n / 4;
  const __m256i recip = _mm256_set1_epi32(static_cast<int>(w.recip));
  const __m256i round = _mm256_set1_epi32(static_cast<int>(kBoxRound));
  const ptrdiff_t a = w.after, b = w.before;
  const uint32_t *const enter4 = sums + 4 * (a + 1);  // group g: + 4g
  const uint32_t *const leave4 = sums - 4 * b;
  const uint32_t *const enter2 = sums + 2 * a + 2;    // luma pair of group g: + 4g and + 4g + 2
  const uint32_t *const leave2 = sums - 2 * b;
  // (delta(g), delta(g + 1)): the change of the window sums from group g to g + 1 and from
  // g + 1 to g + 2.
  auto delta = [&](size_t g) {
    const size_t at = 4 * g;
    __m256i d = _mm256_sub_epi32(load8(enter4 + at), load8(leave4 + at));
    if (kLuma != 0) {
      const __m256i in2 = _mm256_add_epi32(load8(enter2 + at), load8(enter2 + at + 2));
      const __m256i out2 = _mm256_add_epi32(load8(leave2 + at), load8(leave2 + at + 2));
      d = _mm256_blend_epi32(d, _mm256_sub_epi32(in2, out2), static_cast<int>(kLuma | (kLuma << 4)));
    }
    return d;
  };
  auto scale = [&](__m256i s) {
    return _mm256_srli_epi32(_mm256_add_epi32(_mm256_mullo_epi32(s, recip), round), static_cast<int>(kBoxShift));
  };
  // From pair (g, g + 1) to pair (g + 2, g + 3): delta(g) + delta(g + 1) and delta(g + 1) +
  // delta(g + 2); the middle register is put together from the loaded ones.
  __m256i dcur = delta(0);
  __m256i pair;
  auto advance = [&](size_t g) {
    const __m256i dnext = delta(g + 2);
    pair = _mm256_add_epi32(pair, _mm256_add_epi32(dcur, _mm256_permute2x128_si256(dcur, dnext, 0x21)));
    dcur = dnext;
  };

  const __m128i s0 = load4(start);
  pair = _mm256_inserti128_si256(_mm256_castsi128_si256(s0), _mm_add_epi32(s0, _mm256_castsi256_si128(dcur)), 1);
  const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
  size_t g = 0;
  for (; g + 8 <= groups; g += 8) {
    const __m256i p0 = pair;
    advance(g);
    const __m256i p1 = pair;
    advance(g + 2);
    const __m256i p2 = pair;
    advance(g + 4);
    const __m256i p3 = pair;
    if (g + 8 < groups) advance(g + 6);
    // packs: [g0 g2 | g1 g3] and [g4 g6 | g5 g7]; packus: groups 0 2 4 6 1 3 5 7 in dwords.
    const __m256i x = _mm256_packs_epi32(scale(p0), scale(p1));
    const __m256i y = _mm256_packs_epi32(scale(p2), scale(p3));
    const __m256i bytes = _mm256_permutevar8x32_epi32(_mm256_packus_epi16(x, y), order);
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + 4 * g), bytes);
  }
  for (; g + 2 <= groups; g += 2) {
    const __m256i v = scale(pair);
    const __m128i w16 = _mm_packs_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
    _mm_storel_epi64(reinterpret_cast<__m128i *>(dst + 4 * g), _mm_packus_epi16(w16, w16));
    if (g + 2 < groups) advance(g);
  }
  if (g < groups) {
    const __m128i v = _mm256_castsi256_si128(scale(pair));
    const __m128i w16 = _mm_packs_epi32(v, v);
    const int32_t px = _mm_cvtsi128_si32(_mm_packus_epi16(w16, w16));
    std::memcpy(dst + 4 * g, &px, 4);
  }
}

}  // namespace

void box_row_init_avx2(BoxRowKernels *table) {
  table->add_u8 = box_row_add_u8_avx2;
  table->sub_u8 = box_row_sub_u8_avx2;
  table->add_u16 = box_row_add_u16_avx2;
  table->sub_u16 = box_row_sub_u16_avx2;
  table->move_u8 = box_row_move_u8_avx2;
  table->move_u16 = box_row_move_u16_avx2;
}

BoxHorzKernel box_horz_kernel_avx2(uint32_t layout_class) {
  switch (layout_class) {
    case 0: return box_h_group_avx2<0xA>;
    case 2: return box_h_group_avx2<0x5>;
    case 3:
    case 5: return box_h_group_avx2<0>;
    default: return nullptr;
  }
}

}  // namespace framedsp
