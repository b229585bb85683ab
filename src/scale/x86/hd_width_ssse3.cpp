// SSSE3 steps of the HD-width kernels.  Every (ratio, format) pair runs the same step: two byte
// shuffles pick the pair (a, b) of each output byte from a 16-byte source window, one
// multiply-add applies the quarter weights (4, 0), (3, 1), (2, 2) or (1, 3), and >> 2 truncates:
// (2a + 2b) >> 2 == (a + b) >> 1, so the step gives the scalar formula for every phase.  The
// shuffle tables are derived once from the scalar phase table (hd_source); a step covers as many
// whole groups as fit in 16 output bytes and a 16-byte source window.  The last group of a line
// (the repeated unit of the up-scales) and whatever the steps leave go to the scalar routine.
#include <tmmintrin.h>

#include "scale/fixed_ratio_kernels.h"

namespace framedsp {

using namespace fixed_detail;

namespace {

struct HdShuffle {
  alignas(16) uint8_t index_a[16];
  alignas(16) uint8_t index_b[16];
  alignas(16) int8_t weights[32];  // (wa, wb) per output byte, bytes 0..7 then 8..15
  size_t groups;                   // groups per step (0: no step fits)
  size_t out_bytes;                // per step
  size_t in_bytes;
};

HdShuffle build(int r, int slot) {
  HdShuffle h{};
  const size_t gi = hd_group_in_bytes(r, slot);
  const size_t go = hd_group_out_bytes(r, slot);
  for (size_t k = 16 / go; k >= 1; --k) {
    size_t window = 0;
    for (size_t o = 0; o < k * go; ++o) {
      size_t s0, s1;
      int q;
      hd_source(r, slot, o % go, &s0, &s1, &q);
      const size_t end = (o / go) * gi + s1 + 1;
      if (end > window) window = end;
    }
    if (window <= 16) {
      h.groups = k;
      break;
    }
  }
  h.out_bytes = h.groups * go;
  h.in_bytes = h.groups * gi;
  for (size_t o = 0; o < 16; ++o) {
    if (o >= h.out_bytes) {
      h.index_a[o] = h.index_b[o] = 0x80;
      continue;
    }
    size_t s0, s1;
    int q;
    hd_source(r, slot, o % go, &s0, &s1, &q);
    h.index_a[o] = static_cast<uint8_t>((o / go) * gi + s0);
    h.index_b[o] = static_cast<uint8_t>((o / go) * gi + s1);
    h.weights[2 * o] = static_cast<int8_t>(4 - q);
    h.weights[2 * o + 1] = static_cast<int8_t>(q);
  }
  return h;
}

const HdShuffle &shuffle_of(int r, int slot) {
  static const struct All {
    HdShuffle s[kHdRatioCount][kFixedFormatCount];
    All() {
      for (int r = 0; r < kHdRatioCount; ++r)
        for (int f = 0; f < kFixedFormatCount; ++f) s[r][f] = build(r, f);
    }
  } all;
  return all.s[r][slot];
}

inline __m128i ld(const void *p) { return _mm_loadu_si128(static_cast<const __m128i *>(p)); }

template <int kRatio, int kSlot>
void hd_kernel_ssse3(const uint8_t *a, const uint8_t *, uint8_t *dst, size_t out_bytes) {
  const HdShuffle &h = shuffle_of(kRatio, kSlot);
  const size_t gi = hd_group_in_bytes(kRatio, kSlot);
  const size_t go = hd_group_out_bytes(kRatio, kSlot);
  const size_t groups = out_bytes / go;
  const size_t in_bytes = groups * gi;
  size_t g = 0;
  if (h.groups) {
    const __m128i ia = ld(h.index_a), ib = ld(h.index_b);
    const __m128i wlo = ld(h.weights), whi = ld(h.weights + 16);
    // Steps keep the last group for the scalar routine and stay inside both lines.
    while (g + h.groups < groups && g * go + 16 <= out_bytes && g * gi + 16 <= in_bytes) {
      const __m128i s = ld(a + g * gi);
      const __m128i va = _mm_shuffle_epi8(s, ia), vb = _mm_shuffle_epi8(s, ib);
      const __m128i lo = _mm_srli_epi16(_mm_maddubs_epi16(_mm_unpacklo_epi8(va, vb), wlo), 2);
      const __m128i hi = _mm_srli_epi16(_mm_maddubs_epi16(_mm_unpackhi_epi8(va, vb), whi), 2);
      _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + g * go), _mm_packus_epi16(lo, hi));
      g += h.groups;
    }
  }
  hd_range_c<kRatio, kSlot>(a, dst, g, groups, groups);
}

template <int kRatio>
void set_ratio(FixedRatioTable *t) {
  t->hd[kRatio][kFixedArgb] = &hd_kernel_ssse3<kRatio, kFixedArgb>;
  t->hd[kRatio][kFixedRgb] = &hd_kernel_ssse3<kRatio, kFixedRgb>;
  t->hd[kRatio][kFixedUyvy] = &hd_kernel_ssse3<kRatio, kFixedUyvy>;
  t->hd[kRatio][kFixedYuyv] = &hd_kernel_ssse3<kRatio, kFixedYuyv>;
  t->hd[kRatio][kFixedPlane] = &hd_kernel_ssse3<kRatio, kFixedPlane>;
}

}  // namespace

void hd_width_init_ssse3(FixedRatioTable *table) {
  set_ratio<kHdFourThirds>(table);
  set_ratio<kHdThreeHalves>(table);
  set_ratio<kHdThreeQuarters>(table);
  set_ratio<kHdTwoThirds>(table);
}

}  // namespace framedsp
