// The general scaler's frame kernels (a plane's output region resampled from its input region,
// run by run over the line walker), the private picture of the staged and filtered paths, and
// the walk that moves it into the output.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/status.h"

namespace framedsp {

// Scale modes (the driver's dispatch index is mode + 3 * eFilter).
constexpr int kScaleModeNone = -1;
constexpr int kScaleModeHorizontal = 0;
constexpr int kScaleModeVertical = 1;
constexpr int kScaleModeBoth = 2;

// Frame kernel: a normalised private record (bottom-up regions re-measured, sizes final).  S_OK,
// E_OUTOFMEMORY, E_NOTIMPL (eFilter 2).
using ScaleFrameKernel = HRESULT (*)(const DSP_BUFFER *buffer);

// The nine-entry tables, indexed by mode + 3 * eFilter.
const ScaleFrameKernel *scale_plain_kernels();
const ScaleFrameKernel *scale_color_kernels();

// Copies the lines a scale into `from` (shaped like the output region, top-down, region at the
// origin) wrote into the output region of `to`: the same runs and band, one row per line.
// `to` is normalised; `from` describes the private image.
void scale_copy_back(const DSP_IMAGE &from, const DSP_BUFFER &to);

class WorkBlock;
// The private picture a staged or filtered call scales into: the output region's width and height,
// top-down, one plane, rows padded to 16 bytes, in a block of work memory.  E_OUTOFMEMORY when a
// row or the whole picture is too large (more than max_bytes) or the block cannot be had.
HRESULT scale_private_image(const DSP_IMAGE &out, uint64_t max_bytes, WorkBlock *block, DSP_IMAGE *image);

// One output line of the walk that scale_copy_back makes: where the line's run lies in the private
// image (line 0 of the run, bytes from one run line to the next, lines of the run), the line's
// index in its run, the output line (column start applied) and the bytes to write.
struct ScaleBackLine {
  const uint8_t *run_first;
  ptrdiff_t run_stride;
  int32_t run_lines;
  int32_t index;
  uint8_t *dst;
  size_t bytes;
};
using ScaleBackFn = void (*)(void *context, const ScaleBackLine &line);
// Calls `fn` for every output line of `to` (normalised; its band and field selection) that a scale
// into `from` wrote, in run order.
void scale_walk_back(const DSP_IMAGE &from, const DSP_BUFFER &to, ScaleBackFn fn, void *context);

}  // namespace framedsp
