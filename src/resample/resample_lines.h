// Line kernels of the resampling engine: per-class horizontal passes and the vertical passes.
//
// Horizontal, output byte t of a line (group g = t / G, lane l = t % G of the class layout):
//   j = g * per + sub of the lane's stream; taps i = first[j] .. first[j] + taps - 1 of the stream
//   out[t] = clamp((sum_k w[j][k] * src[addr(i)] + 8192) >> 14), addr(i) = (i / per) * G + pos[i % per]
// Vertical, byte (or 16-bit sample) x: out[x] = clamp((sum_k w[k] * line_k[x] + 8192) >> 14).
// Clamps are to 0..255 (8-bit) or 0..65535 (16-bit classes).
//
// The SIMD horizontal kernels of the 8-bit classes read gather blocks: one per 8 output bytes and
// tap pair (taps 2p, 2p + 1; an odd last tap pairs with a zero weight).  A block's 16 bytes
// src[base .. base + 15] hold every sample it needs; idx[2i + h] is the window offset of tap 2p + h
// of output byte i and w[2i + h] its weight, the order pmaddwd wants after a zero-extending
// unpack.  A block whose samples do not fit one window (strong reductions, lines under 16 bytes)
// has fits = 0 and is computed by the scalar formula.
#pragma once

#include <cstddef>
#include <cstdint>

#include "resample/resample.h"

namespace framedsp {

struct ResampleLane {
  uint8_t table;   // 0: the pixel-rate rows, 1: the chroma rows (4:2:2 classes)
  uint8_t per;     // samples of the lane's stream in one group
  uint8_t sub;     // which of them this lane is
  uint8_t pos[2];  // byte offsets of the stream's samples in a group
};

struct ResampleLayout {
  uint8_t group;         // bytes
  uint8_t sample_bytes;  // 1 or 2
  uint8_t lanes;         // group / sample_bytes
  uint8_t pixels;        // pixels a group
  ResampleLane lane[8];  // one per sample of a group
};

const ResampleLayout &resample_layout(uint32_t cls);

struct alignas(16) ResampleHPair {
  int16_t w[16];
  uint8_t idx[16];
  uint32_t base;
  uint32_t reserved[3];
};
static_assert(sizeof(ResampleHPair) == 64, "one pair entry is a cache line");

// Two-tap gather blocks, for plans whose rows have at most two taps (linear without widening,
// nearest): one block per 16 output bytes, each half (output bytes 8h .. 8h + 7) reading one
// 16-byte window src[base[h] .. base[h] + 15].  idx[h][2i] and idx[h][2i + 1] are the window
// offsets of samples p and q of output byte 8h + i, and
//   out = clamp(p + (((q - p) * f + 8192) >> 14)),  f2[h][i] = 2 f,  f in -16383..16383,
// which is the row's formula (w_p p + w_q q + 8192) >> 14 whenever w_p + w_q = 16384 (p is the
// tap weighted 16384 - f; the builder swaps the taps when w_q > 16383, and a one-tap row has
// p = q, f = 0).  pmaddubsw with (-1, +1) gives q - p exactly and pmulhrsw(q - p, 2f) is
// ((q - p) * f + 8192) >> 14, so the SIMD kernels need no 32-bit sums.  A block with a row outside
// that form, or whose samples do not fit its windows, has fits = 0 and is computed by the scalar
// formula.
struct alignas(16) ResampleHTwoTap {
  uint8_t idx[2][16];
  int16_t f2[2][8];
  uint32_t base[2];
  uint32_t fits;
  uint32_t reserved;
};
static_assert(sizeof(ResampleHTwoTap) == 80, "two 32-byte halves and the bases");

struct ResampleHorzPlan {
  uint32_t cls;
  const ResampleRowsTable *table[2];  // pixel-rate rows, chroma rows (4:2:2) or null
  size_t src_bytes;                   // readable bytes of the source line
  size_t dst_bytes;                   // whole groups
  const ResampleHPair *pairs;         // block b's pairs at b * pair_count; null: no blocks
  const uint8_t *fits;
  size_t blocks;                      // dst_bytes / 8
  int pair_count;
  const ResampleHTwoTap *two_tap;     // blocks of the two-tap kernels; null: none
  size_t two_tap_blocks;              // dst_bytes / 16
};

using ResampleHorzFn = void (*)(const uint8_t *src, uint8_t *dst, const ResampleHorzPlan *plan);
// `lines` holds `taps` line pointers, `w` their weights (sum 16384); bytes of whole samples.
using ResampleVertFn = void (*)(const uint8_t *const *lines, const int16_t *w, int taps, uint8_t *dst,
                                size_t bytes);

// Two source lines through the two-tap blocks, blended by a vertical row of two taps with
// w[0] + w[1] = 16384: the bytes of the horizontal kernel on each line, then vert8() on the two
// results, in one pass with no work line in between.
using ResampleHorzPairFn = void (*)(const uint8_t *src0, const uint8_t *src1, uint8_t *dst,
                                    const ResampleHorzPlan *plan, const int16_t *w);

struct ResampleLineTable {
  ResampleHorzFn horz[kResampleClasses];
  bool horz_uses_blocks[kResampleClasses];
  ResampleVertFn vert8;
  ResampleVertFn vert16;
  // Horizontal kernels over the two-tap blocks (rows of one or two taps; the one-tap kernels
  // only gather p, for plans whose rows all have one tap); null where the level has none.
  ResampleHorzFn horz_two_tap[kResampleClasses];
  ResampleHorzFn horz_one_tap[kResampleClasses];
  ResampleHorzPairFn horz_pair[kResampleClasses];
};

// Scalar kernels, then what SSE2, SSSE3 and AVX2 implement, as `cpu_flags` allows.
void resample_line_table_init(ResampleLineTable *table, uint32_t cpu_flags);

// Scalar formulas (the twins, and the SIMD kernels' fallbacks).
void resample_horz_bytes_c(const uint8_t *src, uint8_t *dst, const ResampleHorzPlan *plan, size_t first,
                           size_t end);
void resample_horz_c(const uint8_t *src, uint8_t *dst, const ResampleHorzPlan *plan);
// The pair kernels' formula on output bytes [first, end) (8-bit classes).
void resample_horz_pair_bytes_c(const uint8_t *src0, const uint8_t *src1, uint8_t *dst,
                                const ResampleHorzPlan *plan, const int16_t *w, size_t first, size_t end);
void resample_vert8_c(const uint8_t *const *lines, const int16_t *w, int taps, uint8_t *dst, size_t bytes);
void resample_vert16_c(const uint8_t *const *lines, const int16_t *w, int taps, uint8_t *dst, size_t bytes);
// Vertical bytes [first, end) (8-bit), for SIMD tails.
void resample_vert8_range_c(const uint8_t *const *lines, const int16_t *w, int taps, uint8_t *dst, size_t first,
                            size_t end);
void resample_vert16_range_c(const uint8_t *const *lines, const int16_t *w, int taps, uint8_t *dst, size_t first,
                             size_t end);

// Fills plan->blocks blocks of gather pairs (and their fits flags) from the plan's rows.
void resample_build_blocks(const ResampleHorzPlan &plan, ResampleHPair *pairs, uint8_t *fits);
// Fills plan->two_tap_blocks two-tap blocks from the plan's rows (8-bit classes).
void resample_build_two_tap(const ResampleHorzPlan &plan, ResampleHTwoTap *blocks);
// Pair entries the blocks of a plan need.
inline int resample_pair_count(int taps) { return (taps + 1) / 2; }

// Anti-ringing of a horizontal result line (the rows' centre indices) with strength a (Q8).
void resample_horz_antiring(const uint8_t *src, uint8_t *dst, const ResampleHorzPlan *plan, uint32_t a);
// Anti-ringing of a vertical result: lo..hi from lines c0 and c1.
void resample_vert_antiring(const uint8_t *c0, const uint8_t *c1, uint8_t *dst, size_t bytes, bool wide,
                            uint32_t a);

#if defined(FRAMEDSP_HAVE_X86)
void resample_lines_init_sse2(ResampleLineTable *table);
void resample_vert8_sse2(const uint8_t *const *lines, const int16_t *w, int taps, uint8_t *dst, size_t bytes);
void resample_lines_init_ssse3(ResampleLineTable *table);
void resample_lines_init_avx2(ResampleLineTable *table);
#endif

}  // namespace framedsp
