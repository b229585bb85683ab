// PNG output (libpng, or stored deflate blocks without it) and the conversions that turn frames
// into something a person can look at.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "raw_io.h"

namespace framedsp {
namespace cli {

// An 8-bit image of `channels` (1 = gray, 3 = RGB) samples a pixel, rows packed.
struct Picture {
  uint32_t width = 0;
  uint32_t height = 0;
  int channels = 1;
  std::vector<uint8_t> pixels;
};

bool write_png(const std::string &path, const Picture &picture, std::string *error);

// RGB preview of a frame: 4:2:2 through limited-range BT.601, bgr24/bgra reordered (alpha
// dropped), gray as gray.  The key plane of a two-plane format is shown as gray below the
// picture, so the preview is twice as tall.
Picture preview(const RawLayout &layout, const uint8_t *frame);

// Every byte of each line as one gray pixel: a 4:2:2 line of W pixels becomes 2*W gray pixels
// (U Y V Y ... in memory order), bgr24 3*W, bgra 4*W.  The key plane of a two-plane format
// follows below; where it is narrower than the picture the rest is filled with 128 (the value
// of "no difference" in a difference image).
Picture bytes_as_gray(const RawLayout &layout, const uint8_t *frame);

// Limited-range BT.601 Y'CbCr to 8-bit R'G'B'.
void ycbcr601_to_rgb(int y, int cb, int cr, uint8_t *rgb);

}  // namespace cli
}  // namespace framedsp
