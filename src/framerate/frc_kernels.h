// Kernels of the frame-rate conversion: motion compensation of one tile at 1/64 pixel, the
// weighted blend of two compensated tiles.
//
// Fixed point: filter rows are 6 taps in Q14 (sum 16384) at 64 phases, taps at x - 2 .. x + 3.
// The horizontal pass keeps t = (sum c s + 128) >> 8 (the sample in Q6, |t| < 2^15), the
// vertical pass u = (sum c t + 8192) >> 14 (Q6 again), and the blend writes
// clamp((wA a + wB b + 2^19) >> 20) with wA + wB = 16384.  A whole-pixel phase is exactly 64 s,
// so a tile at whole-pixel offsets reproduces its source bytes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "framedsp/framedsp.h"

namespace framedsp {

constexpr int kMcTaps = 6;
constexpr int kMcPhases = 64;     // 1/64 pixel
constexpr int kMcLead = 2;        // taps reach 2 samples before the position, 3 after
constexpr int kMcMaxTile = 32;    // tiles are at most 32 x 32
constexpr int kMcPatch = kMcMaxTile + kMcTaps - 1;

// Bytes a tile kernel may read from each of its h + 5 source lines: whole groups of eight
// outputs, each reading five taps (`step` bytes apart) past its own.
constexpr int mc_read_width(int w, int step) { return ((w + 7) & ~7) + (kMcTaps - 1) * step; }

// One filter per sampling mode; rows[phase][tap].
struct McFilter {
  alignas(16) int16_t rows[kMcPhases][kMcTaps];
};

// The rows of DSP_SAMPLING_6TAP (Lanczos-3), _4TAP (Catmull-Rom), _BILINEAR and _NEAREST, each
// rounded to Q14 with the rounding error put on the largest tap so every row sums to 16384.
const McFilter &mc_filter(uint32_t sampling);

// src: the sample 2 taps left of and 2 lines above the tile's top-left position; rows `stride`
// apart; horizontal taps `step` bytes apart (1, or 2 for interleaved pairs, whose two components
// are filtered each with its own samples); the kernel reads mc_read_width(w, step) x (h + 5)
// bytes from there.  hrow, vrow: the horizontal and vertical
// filter rows (6 taps).  dst: w x h Q6 values, rows kMcMaxTile apart.  w, h in 1..32.
using McTileKernel = void (*)(const uint8_t *src, ptrdiff_t stride, int w, int h, int step, const int16_t *hrow,
                              const int16_t *vrow, int16_t *dst);
// out[i] = clamp((wa a[i] + wb b[i] + 2^19) >> 20, 0, 255) for i < n; wa + wb = 16384.
using McBlendKernel = void (*)(const int16_t *a, const int16_t *b, int n, int wa, int wb, uint8_t *out);
struct FrcKernels {
  McTileKernel tile;
  McBlendKernel blend;
};

// Scalar kernels, then what `cpu_flags` allows on this build.
void frc_kernels_init(FrcKernels *k, uint32_t cpu_flags);

void mc_tile_c(const uint8_t *src, ptrdiff_t stride, int w, int h, int step, const int16_t *hrow,
               const int16_t *vrow, int16_t *dst);
void mc_blend_c(const int16_t *a, const int16_t *b, int n, int wa, int wb, uint8_t *out);
#if defined(FRAMEDSP_HAVE_X86)
void frc_init_sse2(FrcKernels *k);
void frc_init_avx2(FrcKernels *k);
#endif

}  // namespace framedsp
