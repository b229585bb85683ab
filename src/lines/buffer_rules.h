// Record checks shared by the validation steps of the copy, the filters and the scalers.  Written
// over the descriptor type so that the integer (DSP_IMAGE) and fractional (DSP_SUBPIXEL_IMAGE)
// records use the same rules.
#pragma once

#include "lines/pixel_format.h"
#include "platform/trace.h"

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

// The same rules for the copy and the filter, naming the first one that fails through refuse()
// (one line on stderr when tracing is on, nothing otherwise).  Each returns whether the record
// passes.
inline bool copy_formats_pass(const char *export_name, const DSP_IMAGE &in, const DSP_IMAGE &out) {
  if (!copy_filter_format(in.ePixelFormat)) {
    return refuse(export_name,
                  "input format %u is not one this operation takes "
                  "(0, 1, 5, 21..25, 28, 30, 31, 129, 261, 262)",
                  in.ePixelFormat);
  }
  if (out.ePixelFormat != in.ePixelFormat) {
    return refuse(export_name, "output format %u differs from input format %u (no format conversion)",
                  out.ePixelFormat, in.ePixelFormat);
  }
  return true;
}

inline bool interlace_pair_passes(const char *export_name, const DSP_IMAGE &in, const DSP_IMAGE &out) {
  if (!interleaved_frame_into_progressive(in, out)) return true;
  return refuse(export_name,
                "input frame has interleaved fields (interlace 0) and the output frame is "
                "progressive (interlace 2); that pair is not taken");
}

inline const char *even_width_reason(uint32_t format) {
  return pixel_group(format) == 2 ? "4:2:2 formats need even widths"
                                  : "only formats 0, 1, 5 and 27 take odd widths";
}

// Subsampled formats only (the caller skips full-chroma ones): every width even.
inline bool integer_widths_pass(const char *export_name, const DSP_IMAGE &in, const DSP_IMAGE &out) {
  const struct {
    const char *what;
    uint32_t value;
  } widths[] = {{"input width", in.ulWidth},
                {"input region width", in.Buffer.Region.ulWidth},
                {"output width", out.ulWidth},
                {"output region width", out.Buffer.Region.ulWidth}};
  for (const auto &w : widths) {
    if (odd(w.value)) {
      return refuse(export_name, "%s %u is odd for format %u (%s)", w.what, w.value,
                    in.ePixelFormat, even_width_reason(in.ePixelFormat));
    }
  }
  return true;
}

}  // namespace framedsp
