// Shared pieces of one conversion call: the checked geometry, the field being followed and the
// stages (vector choice, motion compensation, refinement, the converter's own field).
#pragma once

#include <cstddef>
#include <cstdint>

#include "analysis/motion_search.h"
#include "platform/status.h"
#include "platform/work_memory.h"
#include "framerate/frc_kernels.h"

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
  MotionKernels mk{};  // block matching: the bilateral cost and refinement
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

// One side of a tile: Q6 samples for bytes [x, x + w) of lines [y, y + h), taken at an offset of
// (off_x, off_y) / 64 samples of the same component; components are `step` bytes apart (2 for the
// interleaved Cb Cr of NV16).  Edges repeat each component's own first and last sample.
void side_samples(const uint8_t *src, int width, int height, ptrdiff_t stride, int step, int x, int y, int w, int h,
                  int32_t off_x, int32_t off_y, uint32_t sampling, const FrcKernels &k, int16_t *dst);

// The motion-compensated conversion of the job's band along `field`.  E_OUTOFMEMORY when work
// memory is refused, else S_OK.
int32_t convert_along_field(const FrcJob &job, const FieldView &field);

// Searches again, at full resolution, the forward (and backward) entries whose cost exceeds
// `threshold`, writing them into `fwd` and `bwd` (a private copy of the field's entries).
void refine_field(const FrcJob &job, const FieldView &field, uint32_t threshold, DSP_MOTION_VECTOR *fwd,
                  DSP_MOTION_VECTOR *bwd);

// Pyramid levels of the converter's own field for a width x height picture: ulLevels (0 = 4),
// fewer while the coarsest level would be below 16 pixels in a direction.
uint32_t own_field_levels(const DSP_FRAME_RATE_CONVERTER_PARAMS &s, int width, int height);

// The converter's own field between plane 1 of the record's frames: their pyramids as
// DspCreateMipMaps makes them (linear filter), then DspCreateMotionVectors's search in both
// directions with the converter's search settings (ulLevels from own_field_levels, ranges at most
// a quarter of the picture).  *field receives the field, *field_bytes its size.
HRESULT estimate_own_field(const DSP_FRAME_RATE_CONVERTER_PARAMS &s, const DSP_FRAME_RATE_CONVERT_PARAMS &p,
                           const FrcJob &job, WorkBlock *field, uint32_t *field_bytes);

}  // namespace framedsp
