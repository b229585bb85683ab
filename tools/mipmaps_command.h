// `framedsp mipmaps`: a pyramid of halved copies of a frame's luma built by DspCreateMipMaps,
// written as a PNG strip of the levels side by side.  The demo shares the pyramid code.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "png_writer.h"

namespace framedsp {
namespace cli {

extern const char kMipmapsHelp[];
int cmd_mipmaps(const std::vector<std::string> &args);

// One level: an 8-bit single-sample plane (format 263), lines tightly packed.
struct MipLevel {
  uint32_t width = 0;
  uint32_t height = 0;
  std::vector<uint8_t> samples;
};

// Sizes of a halving pyramid of `count` levels from width x height: level k is level k - 1
// halved (rounded down) in both directions.  Fails when a level would be empty.
bool pyramid_sizes(uint32_t width, uint32_t height, uint32_t count, std::vector<MipLevel> *levels,
                   std::string *error);

// Fills levels[1..] from levels[0] with one DspCreateMipMaps call (eFilter = DSP_SCALER_FILTER_*)
// on the process's frame-rate converter, created on first use and kept.  Levels after the first are cleared to 0 beforehand.
// *ms receives the time of the DspCreateMipMaps call.
bool build_pyramid(std::vector<MipLevel> *levels, uint32_t filter, double *ms, std::string *error);

// The levels left to right, top-aligned, no gap; the area below the smaller levels is 0 (black).
// Gray picture of (sum of the level widths) x (height of level 0).
Picture mipmap_strip(const std::vector<MipLevel> &levels);

// The luma (Y) samples of a frame of one of the formats `framedsp mipmaps` reads.
std::vector<uint8_t> luma_of(uint32_t format, uint32_t width, uint32_t height, uint32_t stride,
                             const uint8_t *frame);

}  // namespace cli
}  // namespace framedsp
