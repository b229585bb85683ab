// Block-matching kernels of the motion search (and of the conversion that follows its field):
//   sad      sum |a - b| over a w x h block
//   sad16    sad of a 16 x 16 block whose lines lie 16 bytes apart in a 32-byte aligned buffer (a
//            block copied once and matched at many places)
//   sad_avg  sum |a - ((b + c + 1) >> 1)|: a block against the rounded-up average of two others
//            (quarter-pixel samples between two half-pixel planes)
//   avg_line out[i] = (a[i] + b[i] + 1) >> 1 over n bytes
//   sad_q    sum |a - q| against the block at quarter-pixel phase (fx, fy) in 0..3 of a picture,
//            bilinear: q = ((4-fx)(4-fy) f(x,y) + fx(4-fy) f(x+1,y) + (4-fx)fy f(x,y+1)
//            + fx fy f(x+1,y+1) + 8) >> 4.  Reads w + 1 columns and h + 1 lines from f (only w
//            and h of them when fx, fy are 0).
//   sad_q4   sad_q's sum in four parts: columns [0, sx) and [sx, w) of lines [0, sy) and [sy, h)
//            (top-left, top-right, bottom-left, bottom-right; 1 <= sx <= w, 1 <= sy <= h, so a
//            part may be empty and 0).  One pass gives the sums of the 2x2 blocks a block holds.
//   sad_avg4 sad_avg's sum in the four parts of sad_q4: |a - ((b + c + 1) >> 1)|; with c = b the
//            plain SAD.  Quarter-pixel samples of the half-pixel planes.
//   sad_ring sad_avg4 of the eight candidates around a centre on the grid of half pixels, from the
//            3x3 samples around it in four planes (stride qs[i] for q[i]): q[0] at the upper-left
//            one (so NW = q[0][0], NE = q[0][1], SW = q[0][qs[0]], SE = q[0][qs[0] + 1]), q[1] at
//            the upper middle (N = q[1][0], S = q[1][qs[1]]), q[2] at the middle left (W = q[2][0],
//            E = q[2][1]), q[3] at the centre C.  Candidates NW, N, NE, W, E, SW, S, SE (out[0..7]): mode 0
//            each sample alone; modes 1 and 2 the rounded-up average of C and N, W, E or S, and
//            for the corners mode 1 the average of the two samples beside the corner (NW: W and
//            N), mode 2 that of C and the corner.  out[8]: in mode 0 the sums of C alone (the
//            centre's own match), in modes 1 and 2 zeros.  Reads w + 1 columns and h + 1 lines from
//            q[0], h + 1 lines from q[1] and w + 1 columns from q[2].
//   ring_refine a block's quarter-pixel vector from its whole-pixel one: sad_ring's half-pixel ring
//            around the vector, then the quarter-pixel ring around the best of that ring and the
//            vector itself; each ring's best by match ((SAD * recip + 2^15) >> 16), then shorter
//            vector (L1), then the earlier candidate, the centre before the ring.  Gives the best
//            vector and its sums in sad_ring's four parts.  Reads each plane w + 2 columns and
//            h + 2 lines from a pixel before and above the block moved by the vector.  Takes n
//            blocks at once (each alone; two interleave their work).
//   sad_sub16 sad_avg4 of a 16-wide block (split after sx = 8 or 16 columns) against the samples
//            of two half-pixel planes of a picture, made as it goes: source i is plane
//            (kinds >> 2i) & 3 (0 the picture, 1 half_h of its lines, 2 half_v across them, 3
//            half_v across plane 1's lines) with sample (0, 0) at f[i], stride fs.  No clamping:
//            planes 1 and 3 read columns -2 .. 18, planes 2 and 3 lines -2 .. h + 2 around f[i].
//   half_h   the half-pixel samples of a line: out[i] = clip((p[i-2] - 5 p[i-1] + 20 p[i]
//            + 20 p[i+1] - 5 p[i+2] + p[i+3] + 16) >> 5) for i in [0, n), reading p[-2, n + 3).
//   half_v   the same across six lines: out[i] from r[0][i] .. r[5][i] (r[2] and r[3] the two
//            lines the sample lies between).
//   activity4 a block's own detail in the four parts of sad_q4: the sum over each part of
//            |a[x] - a[x + 1]| + |a[x] - a[x + stride]| (reads w + 1 columns and h + 1 lines).
//   activity8 the same sums for each 8-column group of a strip w wide (any width): top[i] over the
//            columns [8i, 8i + 8) of lines [0, sy), bottom[i] of lines [sy, h) (1 <= sy <= h).
//   consistency n vector entries of a row of blocks (8 bytes each: x, y, cost, flags, int16 in
//            memory order): where the entry's destination, its block centre (r.cx + j * r.step,
//            but r.last for entry n - 1; r.cy; quarter pixels plus 2) moved by its vector and taken to whole pixels (>> 2), lies
//            inside the r.width x r.height picture, the other field's entry of the block there
//            (column tx * r.per_col >> 20, row ty * r.per_row >> 20, products in 32 unsigned bits,
//            r.cols a row) is read; when its vector plus the entry's exceeds r.limit in x or y,
//            r.flag is set in the entry's flags.  Nothing else is written.
// Blocks are 1..64 samples wide and 1..64 lines high; strides may be negative (bottom-up
// pictures) or 0 (one line read for every line: a picture's edge line repeated).  Sums are exact integers, so every ISA gives the same value whatever its order.
// The table is filled with the scalar kernels, then overridden by what the CPU flags allow.
#pragma once

#include <cstddef>
#include <cstdint>

namespace framedsp {

constexpr uint32_t kSadMaxSide = 64;

using SadKernel = uint32_t (*)(const uint8_t *a, ptrdiff_t a_stride, const uint8_t *b,
                               ptrdiff_t b_stride, uint32_t w, uint32_t h);
using Sad16Kernel = uint32_t (*)(const uint8_t *a, const uint8_t *b, ptrdiff_t b_stride);
using SadAvgKernel = uint32_t (*)(const uint8_t *a, ptrdiff_t a_stride, const uint8_t *b,
                                  ptrdiff_t b_stride, const uint8_t *c, ptrdiff_t c_stride,
                                  uint32_t w, uint32_t h);
using AvgLineKernel = void (*)(const uint8_t *a, const uint8_t *b, uint8_t *out, size_t n);
using SadQKernel = uint32_t (*)(const uint8_t *a, ptrdiff_t a_stride, const uint8_t *f,
                                ptrdiff_t f_stride, uint32_t w, uint32_t h, uint32_t fx, uint32_t fy);
using SadQ4Kernel = void (*)(const uint8_t *a, ptrdiff_t a_stride, const uint8_t *f,
                             ptrdiff_t f_stride, uint32_t w, uint32_t h, uint32_t fx, uint32_t fy,
                             uint32_t sx, uint32_t sy, uint32_t out[4]);
using SadAvg4Kernel = void (*)(const uint8_t *a, ptrdiff_t a_stride, const uint8_t *b, ptrdiff_t b_stride,
                               const uint8_t *c, ptrdiff_t c_stride, uint32_t w, uint32_t h, uint32_t sx,
                               uint32_t sy, uint32_t out[4]);
using SadRingKernel = void (*)(const uint8_t *a, ptrdiff_t a_stride, const uint8_t *const q[4], const ptrdiff_t qs[4],
                               uint32_t mode, uint32_t w, uint32_t h, uint32_t sx, uint32_t sy, uint32_t out[9][4]);
// The half-pixel planes as ring_refine reads them: position (x, y) on the grid of half pixels
// (2x + 1 lies halfway between x and x + 1) lies in plane ((y & 1) << 1) | (x & 1), in line
// (y >> 1) & mask of its memory (planes kept as a window of lines; -1: whole planes).
struct RingPlanes {
  const uint8_t *data[4];
  ptrdiff_t stride[4];
  int32_t mask[4] = {-1, -1, -1, -1};
};
// A block of ring_refine: its samples and place, its sums' split (as sad_ring's), the cost scale
// and its whole-pixel vector (quarter pixels, multiples of 4).
struct RingBlock {
  const uint8_t *a;
  ptrdiff_t a_stride;
  int32_t x, y;
  uint32_t w, h, sx, sy, recip;
  int32_t vx, vy;
};
struct RingBest {
  int32_t vx, vy;
  uint32_t sum[4];
};
using RingRefineKernel = void (*)(const RingPlanes &planes, const RingBlock *b, uint32_t n, RingBest *out);
using SadSub16Kernel = void (*)(const uint8_t *a, ptrdiff_t a_stride, const uint8_t *const f[2], ptrdiff_t fs,
                                uint32_t kinds, uint32_t h, uint32_t sx, uint32_t sy, uint32_t out[4]);
using HalfLineKernel = void (*)(const uint8_t *p, uint8_t *out, size_t n);
using HalfColumnKernel = void (*)(const uint8_t *const r[6], uint8_t *out, size_t n);
using Activity4Kernel = void (*)(const uint8_t *a, ptrdiff_t stride, uint32_t w, uint32_t h, uint32_t sx, uint32_t sy,
                                 uint32_t out[4]);
using Activity8Kernel = void (*)(const uint8_t *a, ptrdiff_t stride, uint32_t w, uint32_t h, uint32_t sy,
                                 uint32_t *top, uint32_t *bottom);
struct ConsistencyRow {
  int32_t cx, step, last, cy;
  uint32_t width, height, per_col, per_row, cols;
  int32_t limit;
  uint16_t flag;
};
using ConsistencyKernel = void (*)(uint8_t *e, const uint8_t *other, uint32_t n, const ConsistencyRow &r);

struct MotionKernels {
  SadKernel sad;
  Sad16Kernel sad16;
  SadAvgKernel sad_avg;
  AvgLineKernel avg_line;
  SadQKernel sad_q;
  SadQ4Kernel sad_q4;
  SadAvg4Kernel sad_avg4;
  SadRingKernel sad_ring;
  RingRefineKernel ring_refine;
  SadSub16Kernel sad_sub16;
  HalfLineKernel half_h;
  HalfColumnKernel half_v;
  Activity4Kernel activity4;
  Activity8Kernel activity8;
  ConsistencyKernel consistency;
};

uint32_t sad_c(const uint8_t *a, ptrdiff_t a_stride, const uint8_t *b, ptrdiff_t b_stride,
               uint32_t w, uint32_t h);
uint32_t sad16_c(const uint8_t *a, const uint8_t *b, ptrdiff_t b_stride);
uint32_t sad_avg_c(const uint8_t *a, ptrdiff_t a_stride, const uint8_t *b, ptrdiff_t b_stride,
                   const uint8_t *c, ptrdiff_t c_stride, uint32_t w, uint32_t h);
void avg_line_c(const uint8_t *a, const uint8_t *b, uint8_t *out, size_t n);
uint32_t sad_q_c(const uint8_t *a, ptrdiff_t a_stride, const uint8_t *f, ptrdiff_t f_stride,
                 uint32_t w, uint32_t h, uint32_t fx, uint32_t fy);
void sad_q4_c(const uint8_t *a, ptrdiff_t a_stride, const uint8_t *f, ptrdiff_t f_stride,
              uint32_t w, uint32_t h, uint32_t fx, uint32_t fy, uint32_t sx, uint32_t sy,
              uint32_t out[4]);

void sad_avg4_c(const uint8_t *a, ptrdiff_t a_stride, const uint8_t *b, ptrdiff_t b_stride, const uint8_t *c,
                ptrdiff_t c_stride, uint32_t w, uint32_t h, uint32_t sx, uint32_t sy, uint32_t out[4]);
void sad_ring_c(const uint8_t *a, ptrdiff_t a_stride, const uint8_t *const q[4], const ptrdiff_t qs[4], uint32_t mode,
                uint32_t w, uint32_t h, uint32_t sx, uint32_t sy, uint32_t out[9][4]);
// The two samples sad_ring averages for candidate i (the same twice in mode 0), and their strides.
void ring_pair(const uint8_t *const q[4], const ptrdiff_t qs[4], uint32_t mode, int i, const uint8_t **b,
               ptrdiff_t *bs, const uint8_t **c, ptrdiff_t *cs);
void ring_refine_c(const RingPlanes &planes, const RingBlock *b, uint32_t n, RingBest *out);
void sad_sub16_c(const uint8_t *a, ptrdiff_t a_stride, const uint8_t *const f[2], ptrdiff_t fs, uint32_t kinds,
                 uint32_t h, uint32_t sx, uint32_t sy, uint32_t out[4]);
void half_h_c(const uint8_t *p, uint8_t *out, size_t n);
void half_v_c(const uint8_t *const r[6], uint8_t *out, size_t n);
void activity4_c(const uint8_t *a, ptrdiff_t stride, uint32_t w, uint32_t h, uint32_t sx, uint32_t sy,
                 uint32_t out[4]);
void activity8_c(const uint8_t *a, ptrdiff_t stride, uint32_t w, uint32_t h, uint32_t sy, uint32_t *top,
                 uint32_t *bottom);
void consistency_c(uint8_t *e, const uint8_t *other, uint32_t n, const ConsistencyRow &r);

// Scalar kernels, then whatever `cpu_flags` (CpuFlags bits) allows on this build.
void motion_kernels_init(MotionKernels *table, uint32_t cpu_flags);

#if defined(FRAMEDSP_HAVE_X86)
void motion_kernels_init_sse2(MotionKernels *table);
void motion_kernels_init_avx2(MotionKernels *table);
#endif

}  // namespace framedsp
