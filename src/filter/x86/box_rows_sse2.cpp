// SSE2 column-sum steps of the box filter: 16 byte samples or 8 word samples a step, the rest
// by the scalar twins.  Unaligned loads and stores throughout (rows are caller memory).
#include <emmintrin.h>

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

void box_row_add_u8_sse2(uint32_t *acc, const uint8_t *row, size_t n) { rows_u8<true>(acc, row, n); }
void box_row_sub_u8_sse2(uint32_t *acc, const uint8_t *row, size_t n) { rows_u8<false>(acc, row, n); }
void box_row_add_u16_sse2(uint32_t *acc, const uint8_t *row, size_t n) { rows_u16<true>(acc, row, n); }
void box_row_sub_u16_sse2(uint32_t *acc, const uint8_t *row, size_t n) { rows_u16<false>(acc, row, n); }

}  // namespace

void box_row_init_sse2(BoxRowKernels *table) {
  table->add_u8 = box_row_add_u8_sse2;
  table->sub_u8 = box_row_sub_u8_sse2;
  table->add_u16 = box_row_add_u16_sse2;
  table->sub_u16 = box_row_sub_u16_sse2;
}

}  // namespace framedsp
