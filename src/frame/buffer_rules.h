// Record checks shared by the validation steps of the copy, the filters and the scalers.  Written
// over the descriptor type so that the integer (DSP_IMAGE) and fractional (DSP_SUBPIXEL_IMAGE)
// records use the same rules.
#pragma once

#include "frame/pixel_format.h"

namespace framedsp {

// The input format is one the copy and the filters take, and the output keeps it.
template <class Image>
bool copy_formats_ok(const Image &in, const Image &out) {
  return copy_filter_format(in.ePixelFormat) && out.ePixelFormat == in.ePixelFormat;
}

// A frame with interleaved fields (interlace 0) into a progressive frame is refused; interlace 1,
// its twin elsewhere, is not.
template <class Image>
bool interleaved_frame_into_progressive(const Image &in, const Image &out) {
  return in.Buffer.eBufferType == DSP_BUFFER_TYPE_FRAME && in.eInterlace == DSP_INTERLACE_INTERLEAVED &&
         out.Buffer.eBufferType == DSP_BUFFER_TYPE_FRAME && out.eInterlace == DSP_INTERLACE_PROGRESSIVE;
}

// Input region height per output region height: a frame holds two fields' lines, so frame -> field
// gives 2, field -> frame 1/2, anything else 1.
template <class Image>
double region_height_factor(const Image &in, const Image &out) {
  const bool in_frame = in.Buffer.eBufferType == DSP_BUFFER_TYPE_FRAME;
  const bool out_frame = out.Buffer.eBufferType == DSP_BUFFER_TYPE_FRAME;
  if (in_frame && !out_frame) return 2.0;
  if (out_frame && !in_frame) return 0.5;
  return 1.0;
}

inline bool odd(uint32_t value) { return (value & 1u) != 0; }

// Subsampled chroma: a pixel pair shares its chroma, so no width of either side may split a pair.
inline bool integer_widths_even(const DSP_IMAGE &in, const DSP_IMAGE &out) {
  return !(odd(in.ulWidth) || odd(in.Buffer.Region.ulWidth) || odd(out.ulWidth) ||
           odd(out.Buffer.Region.ulWidth));
}

}  // namespace framedsp
