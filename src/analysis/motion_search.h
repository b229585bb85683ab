// The block motion search behind DspCreateMotionVectors, and the pieces the frame-rate conversion
// reuses (block SADs at whole and quarter pixels with clamped edges, the half-pixel planes).
//
// Vectors are in quarter pixels of the level they belong to; the level searches produce whole
// pixels (multiples of 4), level 0 refines them to quarter pixels.  Costs are in 1/16 of "SAD per
// 64 pixels": cost16 = SAD * 1024 / n (n the pixels of the block, partial blocks included) plus
// 4 * lambda per quarter pixel of L1 distance from the block's predicted vector.  Everything is
// integer and every block reads only the previous pass, so the field does not depend on the ISA
// or on the order in which blocks are visited.
#pragma once

#include <cstddef>
#include <cstdint>

#include "analysis/motion_kernels.h"
#include "framedsp/framedsp.h"

namespace framedsp {

struct MotionPlane {
  const uint8_t *data = nullptr;  // picture row 0, column 0
  ptrdiff_t stride = 0;           // bytes from one row to the next (negative: bottom-up)
  int32_t width = 0;
  int32_t height = 0;
};

struct MotionVec {
  int32_t x = 0;
  int32_t y = 0;
  bool operator==(const MotionVec &o) const { return x == o.x && y == o.y; }
  bool operator!=(const MotionVec &o) const { return !(*this == o); }
};

// Blocks of bw x bh tiling a picture from the top-left; the last column and row may be partial.
struct BlockGrid {
  int32_t bw = 0, bh = 0, cols = 0, rows = 0;
  int32_t count() const { return cols * rows; }
};
BlockGrid make_grid(int32_t width, int32_t height, int32_t bw, int32_t bh);

// One block of the source picture and its cost scale.
struct MotionBlock {
  int32_t x = 0, y = 0, w = 0, h = 0;
  const uint8_t *a = nullptr;
  ptrdiff_t a_stride = 0;
  uint32_t recip = 0;  // round(2^26 / n): cost16 = (SAD * recip + 2^15) >> 16
};
// round(2^26 / n) for a block of n pixels (the usual sizes need no division).
inline uint32_t recip_of(uint32_t n) { return n == 64 ? (1u << 20) : n == 256 ? (1u << 18) : ((1u << 26) + n / 2) / n; }
inline MotionBlock make_block(const MotionPlane &src, const BlockGrid &grid, int32_t col, int32_t row) {
  MotionBlock b;
  b.x = col * grid.bw;
  b.y = row * grid.bh;
  b.w = src.width - b.x < grid.bw ? src.width - b.x : grid.bw;
  b.h = src.height - b.y < grid.bh ? src.height - b.y : grid.bh;
  b.a = src.data + b.y * src.stride + b.x;
  b.a_stride = src.stride;
  b.recip = recip_of(static_cast<uint32_t>(b.w * b.h));
  return b;
}
inline uint32_t cost16_of_sad(uint32_t recip, uint32_t sad) {
  // sad < 2^18 and recip <= 2^26: the product needs 64 bits.
  return static_cast<uint32_t>((uint64_t{sad} * recip + (1u << 15)) >> 16);
}
inline uint32_t cost16_of_sad(const MotionBlock &block, uint32_t sad) { return cost16_of_sad(block.recip, sad); }

// SAD of the block against the target at a whole-pixel offset (dx, dy); samples outside the
// target repeat its edge samples.
uint32_t block_sad_edge(const MotionKernels &k, const MotionBlock &block, const MotionPlane &target,
                        int32_t dx, int32_t dy);
inline uint32_t block_sad(const MotionKernels &k, const MotionBlock &block, const MotionPlane &target,
                          int32_t dx, int32_t dy) {
  const int32_t x = block.x + dx, y = block.y + dy;
  if (x >= 0 && y >= 0 && x + block.w <= target.width && y + block.h <= target.height) {
    return k.sad(block.a, block.a_stride, target.data + y * target.stride + x, target.stride,
                 static_cast<uint32_t>(block.w), static_cast<uint32_t>(block.h));
  }
  return block_sad_edge(k, block, target, dx, dy);
}

// SAD of the block against the target at quarter-pixel offset (qx, qy): the samples of sad_q in
// motion_kernels.h, samples outside the target repeating its edge samples.
uint32_t block_sad_q(const MotionKernels &k, const MotionBlock &block, const MotionPlane &target,
                     int32_t qx, int32_t qy);

// block_sad_q in four parts (sad_q4 of motion_kernels.h): split after sx columns and sy lines.
void block_sad_q4(const MotionKernels &k, const MotionBlock &block, const MotionPlane &target,
                  int32_t qx, int32_t qy, uint32_t sx, uint32_t sy, uint32_t out[4]);

// The picture and its half-pixel samples: p[0] the picture, p[1] the samples halfway between
// columns x and x + 1, p[2] halfway between lines y and y + 1, p[3] halfway between both (the
// six-tap half_h / half_v of motion_kernels.h; p[3] filters p[1]'s lines).  Samples outside the
// picture repeat its edge samples.  Each plane holds width x height samples; beyond them a plane
// repeats its own edge samples.
//
// Planes 1..3 may be kept as a window over the picture's lines: line y then lies in slot
// y & mask of a plane's memory, and slots [0, run) are repeated after the last slot, so that a
// run of up to `run` + 1 lines from any slot is contiguous.  mask -1: whole planes, line y in
// slot y.
struct HalfPlanes {
  MotionPlane p[4];
  int32_t mask = -1;
  // Slots of a window for reads `span` lines apart at most (a power of two), or 0 when whole
  // planes take no more memory.
  static int32_t window(int32_t height, int32_t span);
  // Memory of the planes of a width x height picture: whole (window 0) or a window of that many
  // slots for runs of up to `run` lines.
  static size_t bytes(int32_t width, int32_t height, int32_t window = 0, int32_t run = 0);
};
void make_half_planes(const MotionKernels &k, const MotionPlane &picture, uint8_t *memory, HalfPlanes *out);

// make_half_planes line by line as they are needed, so that a pass over the picture's blocks reads
// lines just made (still in the cache).  The constructor sets out's planes (their lines unmade).
// With a window, making line y overwrites line y - window: readers keep within the window behind
// the last line made (and its three lines of p[1] made ahead for p[3]).
class HalfPlaneMaker {
 public:
  HalfPlaneMaker(const MotionKernels &k, const MotionPlane &picture, uint8_t *memory, HalfPlanes *out,
                 int32_t window = 0, int32_t run = 0);
  // Makes lines [0, line] of every plane (all of them when line is beyond the last).
  void through(int32_t line);

 private:
  uint8_t *slot(int i, int32_t y) const;
  void keep(int i, int32_t y) const;  // repeats a line of the window's first slots after its last
  const MotionKernels &k_;
  HalfPlanes *out_;
  uint8_t *line_ = nullptr;  // one padded picture line
  int32_t window_ = 0, run_ = 0;
  int32_t across_ = 0, both_ = 0;  // lines made: of p[1] and p[2], of p[3]
};

// w x h samples (w, h <= kSadMaxSide) of half-pixel plane `plane` (1..3) of `picture` from
// (x, y), made from the picture alone: the samples a HalfPlanes plane holds there, those outside
// it repeating its edge samples.  Written with stride *stride (chosen here, at most kSubStride)
// into kSubPatchBytes of out.
constexpr ptrdiff_t kSubStride = kSadMaxSide + 16;
constexpr ptrdiff_t kSubStep = 32;
constexpr size_t kSubPatchBytes = (kSadMaxSide + 5) * kSubStride + 2 * kSubStep;

// The w x h block (w <= kSadMaxSide) at (x, y) of a plane into out with stride kFetchStride,
// samples outside the plane repeating its nearest edge sample.
constexpr ptrdiff_t kFetchStride = kSubStride;  // fetched blocks and patches alike
void fetch_clamped(const MotionPlane &p, int32_t x, int32_t y, int32_t w, int32_t h, uint8_t *out);
void half_patch(const MotionKernels &k, const MotionPlane &picture, int plane, int32_t x, int32_t y, int32_t w,
                int32_t h, uint8_t *out, ptrdiff_t *stride);

// Level blocks are at most this wide and high (the search settings' bound).
constexpr int32_t kLevelBlockMax = 32;
// The level search's block_sad of block b (at most kLevelBlockMax a side) against t at (x, y), where
// the block reaches over an edge of t: the sum fetch_clamped's samples give.
uint32_t level_edge_sad(const MotionKernels &k, const MotionBlock &b, const MotionPlane &t, int32_t x, int32_t y);

// The block's match at quarter-pixel vector (qx, qy) against `target` and its half-pixel samples
// (made for the block alone), in the four parts of sad_q4 (split after sx columns and sy lines).
// Whole and half pixels are samples of a plane; the other quarter pixels the rounded-up average
// of the two nearest half-pixel samples (the two on the same line or column; on a diagonal, the
// sample halfway between columns on the nearest line and the one halfway between lines on the
// nearest column).  The _run form takes `blocks` blocks side by side at the same vector (bw
// wide, the last one what is left of run.w; run.w at most kSadMaxSide), each split alike.
void block_sad_sub4_run(const MotionKernels &k, const MotionBlock &run, int32_t blocks, int32_t bw,
                        const MotionPlane &target, int32_t qx, int32_t qy, uint32_t sx, uint32_t sy,
                        uint32_t (*out)[4]);
inline void block_sad_sub4(const MotionKernels &k, const MotionBlock &block, const MotionPlane &target, int32_t qx,
                           int32_t qy, uint32_t sx, uint32_t sy, uint32_t out[4]) {
  block_sad_sub4_run(k, block, 1, block.w, target, qx, qy, sx, sy, reinterpret_cast<uint32_t(*)[4]>(out));
}

// Where block_sad_sub4 reads the samples of (qx, qy): plane[i] at (x[i], y[i]), i = 0, 1 (the
// same twice for whole and half pixels).
struct SubSource {
  int plane[2];
  int32_t x[2], y[2];
};
SubSource sub_source(const MotionBlock &block, int32_t qx, int32_t qy);

// The previous field's vectors (level-0 quarter pixels) at a level-0 point, or nothing.
struct TemporalSource {
  const uint8_t *entries = nullptr;  // the direction's DSP_MOTION_VECTOR entries (any alignment)
  BlockGrid grid;
  int32_t width = 0, height = 0;
  MotionVec at(int32_t x, int32_t y) const;
};

struct LevelSearch {
  MotionPlane a, b;          // level k of the source and of the target
  BlockGrid grid;
  int32_t level = 0;
  int32_t range_x = 1, range_y = 1;  // level pixels
  int32_t reach_x = 1, reach_y = 1;  // level pixels: no vector leaves this box
  uint32_t threshold = 8;            // mean absolute difference that calls the exhaustive search
  uint32_t lambda = 0;
  // Per block of level k + 1, where this level's search starts from it (level_starts: its vector
  // doubled and moved toward its matches; this level's quarter pixels, whole pixels within the
  // reach), or null at the coarsest level.
  const MotionVec *parent = nullptr;
  BlockGrid parent_grid;
  bool use_global = true;
  const MotionVec *opposite = nullptr;  // the other direction at this level (candidates negated)
  const TemporalSource *temporal = nullptr;
  // Optional outputs, one entry a block (null: not wanted).  loose: 1 where no whole-pixel step
  // from the block's pass-1 vector changes its match by more than kLooseMatch (a block without
  // the detail to place itself; with a global vector such blocks are weighed against it instead
  // of their neighbours' median).  around: 5 matches (cost16 without lambda) a block, of the
  // final vector and of its left, right, upper and lower whole-pixel neighbours (UINT32_MAX
  // beyond the reach).
  uint8_t *loose = nullptr;
  uint32_t *around = nullptr;
  // Level 0 with a global vector: mark_flat's bytes, or null.  Blocks whose final blocks are all
  // flat (kAllFlat) are not searched: the refinement gives them the global sub-pixel vector
  // whatever they find, so both passes give them the level's global vector, loose.
  const uint8_t *flat = nullptr;
};

// Mean absolute difference (cost16 units) below which a whole-pixel step is no evidence.
constexpr uint32_t kLooseMatch = 1024;

// Where the search of the level below starts from each of n blocks of a searched level (`field`,
// `around` as the search left them): twice the block's vector, moved a pixel of the level below
// toward the side the block's matches around it lean to, clipped to (reach_x, reach_y) pixels of
// the level below.
void level_starts(const MotionVec *field, const uint32_t *around, int32_t n, int32_t reach_x, int32_t reach_y,
                  MotionVec *out);

// Two passes over the level's blocks.  scratch0 and scratch1 hold grid.count() vectors each;
// `out` receives the level's vectors; exhaustive (optional) one byte a block, 1 where pass 1 ran
// the exhaustive search.
void search_level(const MotionKernels &k, const LevelSearch &s, MotionVec *scratch0,
                  MotionVec *scratch1, MotionVec *out, uint8_t *exhaustive);

constexpr int32_t kMedianChunk = 64;
// Component-wise medians of the 3x3 neighbourhoods (edges repeated) of the blocks of one row,
// kMedianChunk columns from c0 at a time (entries beyond the grid are left undefined).  Vectors
// lie within the reach (at most 4 * 8191 quarter pixels), so they fit 16 bits.  The
// median of nine is med3(the largest of the three column minima, the median of the column
// medians, the smallest of the column maxima); neighbouring outputs share their columns, so each
// column is sorted once.  Every step runs over the whole chunk, which the compiler takes 8 or 16
// at a time.
struct MedianChunk {
  int16_t v[2][kMedianChunk];
  MotionVec at(int32_t col) const { return MotionVec{v[0][col % kMedianChunk], v[1][col % kMedianChunk]}; }
};
void median_chunk(const MotionVec *field, const BlockGrid &g, int32_t row, int32_t c0, MedianChunk *out);

// The value at index n / 2 of the n > 0 values once sorted (they may be reordered): counted when
// they span a short range, as vector components do, selected otherwise.
int32_t median_value(int32_t *values, int32_t n);

// Ranks two evaluated candidates: lower cost, then shorter vector (L1), then the earlier one.
inline bool better(uint64_t cost, const MotionVec &v, uint64_t best_cost, const MotionVec &best) {
  if (cost != best_cost) return cost < best_cost;
  const int32_t l = (v.x < 0 ? -v.x : v.x) + (v.y < 0 ? -v.y : v.y);
  const int32_t bl = (best.x < 0 ? -best.x : best.x) + (best.y < 0 ? -best.y : best.y);
  return l < bl;
}

}  // namespace framedsp

namespace framedsp {

// The match sums of the parts of a search block (the final blocks it holds) at one vector.
struct BlockParts {
  MotionVec v;
  uint32_t sum[4];
  bool known;
};

// Level 0's final blocks: the split stage, half- then quarter-pixel refinement, cost and the
// per-block flags (bad, outside, flat, refined; consistency comes later).
struct FinalStage {
  MotionPlane a, b;               // level 0 of the source and of the target
  const HalfPlanes *half = nullptr;  // the target's half-pixel planes (sub-pixel vectors only)
  HalfPlaneMaker *half_maker = nullptr;  // makes their lines; refinement completes them
  BlockGrid search_grid;          // level 0's search blocks and their vectors
  const MotionVec *search = nullptr;
  const uint8_t *exhaustive = nullptr;
  BlockGrid grid;                 // the final blocks
  int32_t reach_x = 0, reach_y = 0;  // pixels
  uint32_t lambda = 0;
  uint32_t scene_threshold = 0;   // per 64 pixels
  bool split = true;
  bool subpel = true;                   // false: whole pixels only
  bool use_global = true;               // loose blocks follow the global sub-pixel vector
  const uint8_t *loose = nullptr;       // the level search's loose blocks, or null
  MotionVec *refined = nullptr;         // search_grid.count() vectors of scratch each
  MotionVec *settled = nullptr;
  BlockParts *parts = nullptr;          // search_grid.count() of scratch: each settled vector's
  uint8_t *flat = nullptr;              // search_grid.count() bytes of scratch
};
// Bit q of a search block's flat byte: its final block q (of the 2x2 it holds) is flat; kAllFlat:
// every final block it holds is.
constexpr uint8_t kAllFlat = 0x10;
// Mean absolute difference to the right and lower neighbours below this: a flat block.
constexpr uint32_t kFlatActivity = 2;
// Final blocks a search block holds along an axis (1 or 2), or 0 when they do not nest.
inline int32_t nesting(int32_t search, int32_t final) { return search == final ? 1 : (search == 2 * final ? 2 : 0); }
// Fills f.flat where the final blocks nest in the search blocks (other grids need none; false
// then).  It reads the source picture alone, and f.a, f.search_grid, f.grid and f.flat.
bool mark_flat(const MotionKernels &k, const FinalStage &f);
// After mark_flat, writes the direction's grid.count() DSP_MOTION_VECTOR entries (any alignment):
// vector, cost (SAD per 64 pixels, saturated to 16 bits) and flags.
void final_stage(const MotionKernels &k, const FinalStage &f, uint8_t *entries);

}  // namespace framedsp
