// Shared pieces of one conversion call: the checked geometry, the field being followed and the
// stages (vector choice, motion compensation, refinement, the converter's own estimation).
#pragma once

#include <cstddef>
#include <cstdint>

#include "framerate/frc_kernels.h"
#include "framerate/vector_field.h"

namespace framedsp {

struct FrcPlane {
  const uint8_t *a;
  const uint8_t *b;
  uint8_t *out;
};

// One call, after the checks.  Planes share width, height and stride (FrameB's); plane 2 of an
// NV16 picture holds width / 2 Cb Cr pairs a line.
struct FrcJob {
  int width = 0, height = 0;
  ptrdiff_t stride = 0;
  FrcPlane plane[2] = {};
  int planes = 1;
  bool nv16 = true;
  uint32_t phase = 0;     // Q14, 1..16383 on the motion path
  uint32_t sampling = 0;  // DSP_SAMPLING_*
  bool occlusion = true;
  bool overlay = false;
  uint32_t occlusion_threshold = 4;  // quarter pixels
  int band_y0 = 0, band_y1 = 0;      // output lines [y0, y1)
  FrcKernels k{};
};

// A field to follow: forward entries (A -> B) and, when present, backward entries (B -> A).
struct FieldView {
  int width = 0, height = 0, bw = 0, bh = 0, cols = 0, rows = 0;
  const DSP_MOTION_VECTOR *fwd = nullptr;
  const DSP_MOTION_VECTOR *bwd = nullptr;  // null: forward only
  const DSP_MOTION_VECTOR &f(int c, int r) const { return fwd[r * cols + c]; }
  const DSP_MOTION_VECTOR &b(int c, int r) const { return bwd[r * cols + c]; }
};

struct Vec {
  int32_t x, y;
};

inline int32_t floor_div(int32_t a, int32_t b) {  // b > 0
  return a >= 0 ? a / b : -((-a + b - 1) / b);
}
inline int32_t clamp_i(int32_t v, int32_t lo, int32_t hi) { return v < lo ? lo : v > hi ? hi : v; }

// Offsets of the two sides of a vector v (1/64 pixel) at phase p (Q14): the output at x shows
// A at x - da and B at x + db, da + db = v, da = round(p v / 16384) with halves up.
inline int32_t side_a_offset(int32_t v64, uint32_t phase) {
  const int64_t t = int64_t(phase) * v64 + 8192;  // |v64| < 2^20: 64 bits
  return static_cast<int32_t>(t >= 0 ? t / 16384 : -((-t + 16383) / 16384));
}

// The motion-compensated conversion of the job's band along `field`.  E_OUTOFMEMORY when work
// memory is refused, else S_OK.
int32_t convert_along_field(const FrcJob &job, const FieldView &field);

// Sum of |A(x) - B(x + v)| over a block with B sampled bilinearly at quarter pixels (v in quarter
// pixels), edges repeated: the match cost of refinement and of the converter's own estimation.
uint32_t qpel_sad(const uint8_t *a, const uint8_t *b, int width, int height, ptrdiff_t stride, int x0,
                  int y0, int w, int h, int vx, int vy, const FrcKernels &k);

// Searches again the forward (and backward) entries whose cost exceeds `threshold`, at full
// resolution, in `entries` (a private copy of the field's entries).
void refine_field(const uint8_t *a, const uint8_t *b, int width, int height, ptrdiff_t stride,
                  const FieldView &field, uint32_t threshold, DSP_MOTION_VECTOR *fwd, DSP_MOTION_VECTOR *bwd,
                  const FrcKernels &k);

// Settings of the converter's own estimation (from its creation record).
struct EstimateSettings {
  uint32_t levels;
  uint32_t block_w, block_h;
  uint32_t level_block_w[5], level_block_h[5];
  uint32_t range_x[5], range_y[5];
  uint32_t threshold[5];
};

// Bytes of the field the converter estimates for a width x height picture.
size_t estimated_field_bytes(int width, int height, const EstimateSettings &s);
// Estimates forward and backward vectors between plane 1 of A and B into `field` (header and
// entries, estimated_field_bytes long).  E_OUTOFMEMORY or S_OK.
int32_t estimate_field(const uint8_t *a, const uint8_t *b, int width, int height, ptrdiff_t stride,
                       const EstimateSettings &s, void *field, const FrcKernels &k);

}  // namespace framedsp
