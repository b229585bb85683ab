// The resampling engine: samples a picture at fractional source positions, separably.
//
// A caller describes one call by two tables of source positions, one entry per output column
// (pixel) and one per output row, in Q32 fixed point: position 3.25 * 2^32 reads a quarter of the
// way from source sample 3 to sample 4 (sample i sits at position i; the centre convention,
// s = x_in + (j + 1/2 - x_out) * w_in / w_out - 1/2, is the caller's to apply).  Tables need not
// be uniform, so a non-uniform column mapping, a fractional window or per-block sampling all feed
// the same plan.  Everything after the tables is integer arithmetic, so every CPU and ISA level
// gives the same bytes, and N band calls give the bytes of one call.
//
//   plan   resample_plan_build(): positions -> phases (1/64 pixel by default) -> Q14 weight rows
//          (each sums to exactly 16384; the rounding residue goes to the largest tap), the edge
//          rule folded into the rows, the per-byte gather blocks of the SIMD line kernels, and
//          the work lines, all in one block of work memory.
//   lines  resample_plan_run(): for the output rows asked for, each source row the vertical
//          taps need is resampled horizontally once into a ring of work lines (8-bit, or 16-bit
//          for the 16-bit classes), then the vertical kernel combines the ring's lines into the
//          output row: out = clamp((sum w_k * line_k + 8192) >> 14).
//
// Kernels (radius in source samples; a reduction by r > 1 widens every kernel but nearest by r,
// which gives 2 * ceil(radius * r) taps):
//   nearest   the sample at floor(s + 1/2) (one tap, never widened)
//   linear    the tent, 2 taps
//   cubic     Mitchell-Netravali with B, C in Q14 (Catmull-Rom B = 0, C = 8192 by default), 4 taps
//   lanczos3  sinc(x) sinc(x / 3), 6 taps
// A low-pass row (the FIR tables' rows, any sum) may be convolved into every weight row; the
// result is normalised to unit gain, so a constant picture stays constant.
//
// Edges (the same rule on both axes):
//   repeat    taps outside the source read the edge sample
//   mirror    taps outside read the source reflected about its edge (-1 -> 0, -2 -> 1, ...)
//   fill      taps outside read a fill colour (one pixel group of bytes)
//   untouched as repeat, but output columns and rows whose position lies outside the source
//             (s < -1/2 or s >= n - 1/2) are not written; whole groups in the 4:2:2 classes
//
// Anti-ringing, strength a in Q8 (0..256): each result v of either pass moves towards the range
// [lo, hi] of its two central taps (floor(s) and floor(s) + 1, after the edge rule):
//   v' = v + (((clamp(v, lo, hi) - v) * a + 128) >> 8)   (>> arithmetic)
// so a = 256 keeps every output inside its 2x2 source neighbourhood.
//
// Sample layouts (format classes; G = bytes a group; positions are per pixel, the chroma of the
// 4:2:2 classes per group, co-sited with the group's first pixel or centred between its two):
//   0 Cb Y0 Cr Y1  1 Cb Cr Y0 Y1  2 Y0 Cb Y1 Cr          (8-bit 4:2:2, G 4)
//   3, 5 four bytes a pixel  4 three bytes  6 one byte    (8-bit, every byte filtered alike)
//   7 16-bit Cb Y0 Cr Y1 (G 8)  8 16-bit Y0 Cb Y1 Cr (G 8)  9 three 16-bit components (G 6)
//   10 four 16-bit components (G 8)  11 one 16-bit sample (G 2)
// 16-bit samples are little-endian, 0..65535, and keep 16 bits through both passes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/status.h"
#include "platform/work_memory.h"

namespace framedsp {

constexpr int kResampleWeightBits = 14;
constexpr int32_t kResampleOne = 1 << kResampleWeightBits;  // 16384
constexpr int kResampleDefaultPhaseBits = 6;                 // 1/64 pixel
constexpr int kResampleMaxPhaseBits = 14;
constexpr int kResampleMaxTaps = 96;     // after widening and a low-pass row
constexpr int kResampleClasses = 12;
constexpr int64_t kResamplePosOne = int64_t{1} << 32;  // Q32 positions

enum ResampleKernel : uint32_t { kResampleNearest = 0, kResampleLinear = 1, kResampleCubic = 2, kResampleLanczos3 = 3 };
enum ResampleEdge : uint32_t { kResampleRepeat = 0, kResampleMirror = 1, kResampleFill = 2, kResampleUntouched = 3 };
enum ResampleSiting : uint32_t { kResampleCosited = 0, kResampleCentred = 1, kResampleChromaUniform = 2 };

// One axis: `count` output samples read source positions pos[0..count) over `src_count` source
// samples.  widen_q16 is the reduction factor in Q16 (65536 = none; the caller's src / dst when it
// reduces, below 65536 is taken as 65536).  widen_each, when set, gives it per output instead (a
// non-uniform mapping); rows are then computed one by one instead of once per phase.  A null
// `pos` is a uniform axis: output j reads origin + j * step (Q32), no table needed.
struct ResampleAxis {
  const int64_t *pos;
  int32_t count;
  int32_t src_count;
  uint32_t widen_q16;
  const uint32_t *widen_each;
  const int16_t *lowpass;  // optional low-pass row (odd length), convolved into every weight row
  int32_t lowpass_taps;
  int64_t origin = 0;      // uniform axis (pos null) only
  int64_t step = 0;
};

struct ResampleSetup {
  uint32_t cls;            // format class 0..11
  uint32_t kernel;         // ResampleKernel
  int32_t cubic_b_q14;     // used by kCubic; 0..16384
  int32_t cubic_c_q14;     // 0..16384
  int32_t phase_bits;      // 0: kResampleDefaultPhaseBits; at most kResampleMaxPhaseBits
  ResampleAxis cols;       // per output pixel (whole groups in the 4:2:2 classes)
  ResampleAxis rows;
  // 4:2:2 classes: chroma positions per output group, in source groups; null derives them from
  // `cols` by the siting: co-sited c_g = s(2g) / 2, centred c_g = (s(2g) + s(2g + 1) - 1) / 4,
  // uniform c_g = chroma_origin + g * chroma_step (g counted from output pixel 0).
  const int64_t *chroma_pos;
  uint32_t chroma_siting;  // ResampleSiting
  uint32_t edge;           // ResampleEdge
  uint8_t fill[8];         // kResampleFill: the bytes of one pixel group
  uint32_t anti_ringing_q8;
  int64_t chroma_origin = 0;  // kResampleChromaUniform only
  int64_t chroma_step = 0;
};

// Per-call coverage of the first and last written column unit and row, Q14 (16384 = whole).
// A unit below 16384 is blended into what the output already holds:
//   out = (new * c + old * (16384 - c) + 8192) >> 14, c = (c_col * c_row + 8192) >> 14.
// Column units are pixels, or 2-pixel groups in the 4:2:2 classes.
struct ResampleCoverage {
  uint32_t first_col, last_col, first_row, last_row;
};

// A finished output line before it is written (or blended): the colour-space converter of a
// driver, say.  `line` holds `bytes` bytes of whole groups.
using ResampleFinish = void (*)(void *context, uint8_t *line, size_t bytes);

// Rows of a picture: row i at base + i * stride (stride may be negative: bottom-up, or a field).
struct ResampleRows {
  const uint8_t *base;
  ptrdiff_t stride;
};

struct ResamplePlanData;  // tables and work lines, in the plan's work block

class ResamplePlan {
 public:
  ResamplePlan() = default;
  ResamplePlan(const ResamplePlan &) = delete;
  ResamplePlan &operator=(const ResamplePlan &) = delete;

  // Written output range (after the untouched edge rule): columns [col_first, col_first +
  // col_count) in pixels and rows [row_first, row_first + row_count), both of the caller's tables.
  int32_t col_first = 0, col_count = 0, row_first = 0, row_count = 0;

  ResamplePlanData *data() const { return data_; }
  WorkBlock &block() { return block_; }
  void set_data(ResamplePlanData *d) { data_ = d; }

 private:
  WorkBlock block_;
  ResamplePlanData *data_ = nullptr;
};

// E_INVALIDARG for a class, kernel, edge, phase precision, B / C, low-pass or table outside the
// ranges above; E_OUTOFMEMORY when the work block cannot be had.  `cpu_flags` picks the kernels
// (and so whether gather blocks are built).
HRESULT resample_plan_build(const ResampleSetup &setup, uint32_t cpu_flags, ResamplePlan *plan);

// Output rows [row_begin, row_end) of the caller's row table (clipped to the written range):
// `src` row i is source row i (column 0 = source sample 0); `dst` row r is output row r, column 0
// = output pixel 0 of the column table.  Writes only the written range of each written row.
HRESULT resample_plan_run(ResamplePlan *plan, ResampleRows src, ResampleRows dst, int32_t row_begin,
                          int32_t row_end, const ResampleCoverage *coverage = nullptr,
                          ResampleFinish finish = nullptr, void *finish_context = nullptr);

// Forgets the lines the plan keeps between runs, so its next run may read another picture (the
// other field, say) with the same geometry.
void resample_plan_forget(ResamplePlan *plan);

// Bytes a pixel group (and pixels a group) of a class; 0 for a class outside 0..11.
uint32_t resample_group_bytes(uint32_t cls);
uint32_t resample_group_pixels(uint32_t cls);

// ---- weight rows (exposed for the tests and for drivers that need the raw rows) -------------

// One axis of weight rows: output j reads taps source first[j] .. first[j] + taps - 1 with
// weights w[j * taps + k] (sum 16384).  first[j] + taps <= src_count after the edge rule.
struct ResampleRowsTable {
  int32_t count;
  int32_t taps;
  int32_t *first;
  int16_t *w;
  int32_t *centre;  // 2 per output (anti-ringing), or null
};

// Raw weights of one output: `taps` (2 * ceil(radius * widen), 1 for nearest) rows of weights for
// source first .. first + taps - 1, summing to 16384, before the low-pass and the edge rule.
// Returns the tap count (0 on a bad argument); `w` must hold kResampleMaxTaps entries.
int resample_weights(uint32_t kernel, int32_t b_q14, int32_t c_q14, int phase_bits, int64_t pos,
                     uint32_t widen_q16, int32_t *first, int32_t *w);

}  // namespace framedsp
