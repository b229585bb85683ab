// Line kernels of the scaler's two fixed-ratio fast paths.
//
// Integer ratios (nearest): a quarter, a half, double, four times.  Sample phase 0 is kept: output
// sample j of a component takes source sample 2j / 4j (decimation) or j / 2, j / 4 (replication),
// exactly what the general nearest resampler gives for the same step (positions truncated).
// Half linear: a 2x2 box, out = (a + b + c + d + 2) >> 2, of source samples 2j and 2j + 1 of the
// same component on two source lines (the caller passes the same line twice for a 1-D average).
//
// Per format (bytes of one 4-byte group for 21 / 25):
//   0: 4-byte pixels, 1: 3-byte pixels, 261 / 263: 1-byte samples (every byte a sample)
//   21: U Y0 V Y1, 25: Y0 U Y1 V (luma one per pixel, one chroma pair per 4-byte group)
//
// HD-width (fixed-phase linear), per component, group of source samples -> output samples:
//   x4/3: 3 -> 4  phases 0, 3/4, 3/2, 9/4      x3/2: 2 -> 3  phases 0, 3/4, 5/4
//   x3/4: 4 -> 3  phases 0, 5/4, 11/4          x2/3: 3 -> 2  phases 0, 3/2
// A phase i + f/4 gives a = s[i] (f 0), (3a + b) >> 2 (f 1), (a + b) >> 1 (f 2) or (a + 3b) >> 2
// (f 3) with b = s[i + 1]: truncated, no rounding term.  Pixel groups: per-pixel formats use the
// component group as it stands (3 -> 4 pixels etc.), 21 and 25 twice as many pixels (6 -> 8 ...)
// so that the chroma pairs make whole groups.  The two up-scales read the next group's first
// sample for their last output; in the last group of a line that output "unit" (a pixel, or the
// 4-byte word of 21 / 25) repeats the unit before it instead, so a line never reads past its end.
#pragma once

#include <cstddef>
#include <cstdint>

namespace framedsp {

enum FixedRatio { kRatioQuarter, kRatioHalf, kRatioDouble, kRatioQuadruple, kRatioHalfLinear,
                  kFixedRatioCount };
enum HdRatio { kHdFourThirds, kHdThreeHalves, kHdThreeQuarters, kHdTwoThirds, kHdRatioCount };
// Slots of the tables by the scaler's layout class: 4-byte and 3-byte pixels (formats 0, 1), the
// two 8-bit 4:2:2 orders (21, 25) and 8-bit planes (261, 263).
enum FixedFormat { kFixedArgb, kFixedRgb, kFixedUyvy, kFixedYuyv, kFixedPlane, kFixedFormatCount };

// -1 for a layout class without a routine.
int fixed_ratio_slot(uint32_t layout_class);

// a, b: the source line(s) (b is read only by the half-linear kernel; it may equal a); dst: the
// output line; out_bytes: output bytes, a whole number of groups (of the format for the integer
// ratios, of the HD group for the HD kernels).  The source is read only inside
// [0, out_bytes * in / out) and the destination written only inside [0, out_bytes).
using FixedLineKernel = void (*)(const uint8_t *a, const uint8_t *b, uint8_t *dst, size_t out_bytes);

struct FixedRatioTable {
  FixedLineKernel ratio[kFixedRatioCount][kFixedFormatCount];
  FixedLineKernel hd[kHdRatioCount][kFixedFormatCount];
};

// Output and input bytes of one HD group of the slot.
size_t hd_group_out_bytes(int hd_ratio, int slot);
size_t hd_group_in_bytes(int hd_ratio, int slot);
// Bytes of one pixel group of the slot for the integer ratios (4 for 21 / 25, else bpp).
size_t fixed_group_bytes(int slot);

void fixed_ratio_table_init(FixedRatioTable *table, uint32_t cpu_flags);

#if defined(FRAMEDSP_HAVE_X86)
void fixed_ratio_init_sse2(FixedRatioTable *table);
void hd_width_init_ssse3(FixedRatioTable *table);
void fixed_ratio_init_avx2(FixedRatioTable *table);
#endif

namespace fixed_detail {
namespace {

constexpr int kBpp[kFixedFormatCount] = {4, 3, 2, 2, 1};
constexpr bool kPacked422[kFixedFormatCount] = {false, false, true, true, false};

// Source byte of output byte i for the nearest ratios.  map(j) gives the source sample index of
// output sample j of one component.
template <int kRatio>
constexpr size_t map_sample(size_t j) {
  return kRatio == kRatioQuarter ? j * 4
         : kRatio == kRatioHalf  ? j * 2
         : kRatio == kRatioDouble ? j / 2
                                  : j / 4;
}

// Byte i of a packed 4:2:2 line: luma (sample index i / 2) at the odd bytes of 21 and the even
// bytes of 25; chroma (pair index i / 4, byte i % 4 of the pair's group) elsewhere.
template <int kSlot>
constexpr bool is_luma(size_t i) { return kSlot == kFixedUyvy ? (i & 1) != 0 : (i & 1) == 0; }

template <int kRatio, int kSlot>
inline size_t nearest_source(size_t i) {
  if (kPacked422[kSlot]) {
    if (is_luma<kSlot>(i)) return 2 * map_sample<kRatio>(i / 2) + (kSlot == kFixedUyvy ? 1 : 0);
    return 4 * map_sample<kRatio>(i / 4) + (i & 3);
  }
  return map_sample<kRatio>(i / kBpp[kSlot]) * kBpp[kSlot] + i % kBpp[kSlot];
}

// Output bytes [begin, end) of a nearest-ratio line.
template <int kRatio, int kSlot>
void ratio_range_c(const uint8_t *a, uint8_t *dst, size_t begin, size_t end) {
  for (size_t i = begin; i < end; ++i) dst[i] = a[nearest_source<kRatio, kSlot>(i)];
}

// Output bytes [begin, end) of the half-linear line: samples 2j and 2j + 1 of each component.
template <int kSlot>
void half_linear_range_c(const uint8_t *a, const uint8_t *b, uint8_t *dst, size_t begin,
                         size_t end) {
  for (size_t i = begin; i < end; ++i) {
    size_t s0, s1;
    if (kPacked422[kSlot]) {
      if (is_luma<kSlot>(i)) {
        const size_t off = kSlot == kFixedUyvy ? 1 : 0;
        s0 = 2 * (2 * (i / 2)) + off;
        s1 = s0 + 2;
      } else {
        s0 = 4 * (2 * (i / 4)) + (i & 3);
        s1 = s0 + 4;
      }
    } else {
      constexpr size_t p = kBpp[kSlot];
      s0 = 2 * (i / p) * p + i % p;
      s1 = s0 + p;
    }
    dst[i] = static_cast<uint8_t>((a[s0] + a[s1] + b[s0] + b[s1] + 2) >> 2);
  }
}

// HD phases: source index (within the component's cycle) and quarter fraction per output.
struct HdPhase {
  uint8_t index;
  uint8_t quarter;
};
constexpr int kHdIn[kHdRatioCount] = {3, 2, 4, 3};
constexpr int kHdOut[kHdRatioCount] = {4, 3, 3, 2};
constexpr HdPhase kHdPhases[kHdRatioCount][4] = {
    {{0, 0}, {0, 3}, {1, 2}, {2, 1}},
    {{0, 0}, {0, 3}, {1, 1}, {0, 0}},
    {{0, 0}, {1, 1}, {2, 3}, {0, 0}},
    {{0, 0}, {1, 2}, {0, 0}, {0, 0}}};

inline uint8_t hd_mix(int a, int b, int quarter) {
  switch (quarter) {
    case 0: return static_cast<uint8_t>(a);
    case 1: return static_cast<uint8_t>((3 * a + b) >> 2);
    case 2: return static_cast<uint8_t>((a + b) >> 1);
    default: return static_cast<uint8_t>((a + 3 * b) >> 2);
  }
}

// Pixels of one HD group: the component cycle, doubled for the packed 4:2:2 formats.
constexpr size_t hd_pixels_in(int r, int slot) { return static_cast<size_t>(kHdIn[r]) * (kPacked422[slot] ? 2 : 1); }
constexpr size_t hd_pixels_out(int r, int slot) { return static_cast<size_t>(kHdOut[r]) * (kPacked422[slot] ? 2 : 1); }

// The source pair (byte offsets relative to the group start) and quarter of output byte o of a
// group.  Shared by the scalar kernels and by the SSSE3 table builder.
inline void hd_source(int r, int slot, size_t o, size_t *s0, size_t *s1, int *quarter) {
  size_t j, first, spacing;
  if (kPacked422[slot]) {
    const bool luma = slot == kFixedUyvy ? (o & 1) != 0 : (o & 1) == 0;
    if (luma) {
      j = o / 2;
      first = slot == kFixedUyvy ? 1 : 0;
      spacing = 2;
    } else {
      j = o / 4;
      first = o & 3;
      spacing = 4;
    }
  } else {
    const size_t p = static_cast<size_t>(kBpp[slot]);
    j = o / p;
    first = o % p;
    spacing = p;
  }
  const size_t cycle = j / static_cast<size_t>(kHdOut[r]);
  const HdPhase ph = kHdPhases[r][j % static_cast<size_t>(kHdOut[r])];
  const size_t index = cycle * static_cast<size_t>(kHdIn[r]) + ph.index;
  *s0 = first + index * spacing;
  *s1 = *s0 + (ph.quarter ? spacing : 0);
  *quarter = ph.quarter;
}

// Groups [g_begin, g_end) of a line of `groups` groups.
template <int kRatio, int kSlot>
void hd_range_c(const uint8_t *src, uint8_t *dst, size_t g_begin, size_t g_end, size_t groups) {
  const size_t gi = hd_pixels_in(kRatio, kSlot) * kBpp[kSlot];
  const size_t go = hd_pixels_out(kRatio, kSlot) * kBpp[kSlot];
  const size_t unit = kPacked422[kSlot] ? 4 : static_cast<size_t>(kBpp[kSlot]);
  constexpr bool kUp = kRatio == kHdFourThirds || kRatio == kHdThreeHalves;
  for (size_t g = g_begin; g < g_end; ++g) {
    const uint8_t *s = src + g * gi;
    uint8_t *d = dst + g * go;
    const bool last = kUp && g + 1 == groups;
    const size_t n = last ? go - unit : go;
    for (size_t o = 0; o < n; ++o) {
      size_t s0, s1;
      int q;
      hd_source(kRatio, kSlot, o, &s0, &s1, &q);
      d[o] = hd_mix(s[s0], s[s1], q);
    }
    if (last) {
      for (size_t o = n; o < go; ++o) d[o] = d[o - unit];
    }
  }
}

template <int kRatio, int kSlot>
void hd_kernel_c(const uint8_t *a, const uint8_t *, uint8_t *dst, size_t out_bytes) {
  const size_t go = hd_pixels_out(kRatio, kSlot) * kBpp[kSlot];
  const size_t groups = out_bytes / go;
  hd_range_c<kRatio, kSlot>(a, dst, 0, groups, groups);
}

template <int kRatio, int kSlot>
void ratio_kernel_c(const uint8_t *a, const uint8_t *, uint8_t *dst, size_t out_bytes) {
  ratio_range_c<kRatio, kSlot>(a, dst, 0, out_bytes);
}

template <int kSlot>
void half_linear_kernel_c(const uint8_t *a, const uint8_t *b, uint8_t *dst, size_t out_bytes) {
  half_linear_range_c<kSlot>(a, b, dst, 0, out_bytes);
}

// Output bytes before dst reaches a 16-byte boundary, rounded up to whole groups of `group`
// bytes (0 when the address can never reach one on a group boundary), at most `n`.
inline size_t head_bytes(const uint8_t *dst, size_t group, size_t n) {
  const size_t mis = static_cast<size_t>(reinterpret_cast<uintptr_t>(dst) & 15);
  size_t head = mis ? 16 - mis : 0;
  if (head % group) head = 0;  // a 3-byte group or an odd address: no boundary on a group edge
  return head < n ? head : n;
}

}  // namespace
}  // namespace fixed_detail
}  // namespace framedsp
