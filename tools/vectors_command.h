// `framedsp vectors`: block motion vectors between two frames (DspCreateMotionVectors on pyramids
// from DspCreateMipMaps), their statistics and a PNG of the field.  The demo shares the estimate
// and the drawing.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "framedsp/framedsp.h"
#include "png_writer.h"

namespace framedsp {
namespace cli {

extern const char kVectorsHelp[];
int cmd_vectors(const std::vector<std::string> &args);

struct VectorField {
  DSP_VECTOR_FIELD header{};
  std::vector<DSP_MOTION_VECTOR> entries;  // forward, then backward
  double ms = 0;                           // the DspCreateMotionVectors call
};

// Both fields between two gray pictures of width x height (lines packed): pyramids of up to
// `levels` levels (fewer when the width does not halve evenly that often), final blocks of
// `block` pixels, the record's other words as `tune` leaves them (may be null).
bool estimate_vectors(const std::vector<uint8_t> &a, const std::vector<uint8_t> &b, uint32_t width,
                      uint32_t height, uint32_t levels, uint32_t block,
                      void (*tune)(DSP_MOTION_VECTORS_PARAMS *, void *), void *tune_data,
                      VectorField *field, std::string *error);

// The forward field drawn over the dimmed picture: arrows from each block's centre (green, red
// for bad blocks, yellow for inconsistent ones), lengths times `scale`; or (wheel) each block
// filled with the colour of its direction, brighter for longer vectors, black for bad blocks.
Picture draw_vectors(const std::vector<uint8_t> &picture, uint32_t width, uint32_t height,
                     const VectorField &field, bool wheel, double scale);

// The demo's tile: both fields from luma picture a to b, the forward field drawn as arrows, a
// caption with the medians and bad counts, the time of the call.
bool demo_vectors(const std::vector<uint8_t> &a, const std::vector<uint8_t> &b, uint32_t width,
                  uint32_t height, Picture *picture, std::string *caption, double *ms,
                  std::string *error);

// Text lines of statistics for one direction (0 forward, 1 backward).
std::vector<std::string> vector_statistics(const VectorField &field, int dir);

}  // namespace cli
}  // namespace framedsp
