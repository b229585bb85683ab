// The built-in test clip: 8-bit UYVY (format 21) frames, limited-range BT.601.  The top third
// holds 75% colour bars, the lower left a zone plate whose phase advances each frame, the lower
// right a luma ramp with a disc and a square moving across it.
#pragma once

#include <cstdint>
#include <vector>

namespace framedsp {
namespace cli {

constexpr uint32_t kClipWidth = 640;
constexpr uint32_t kClipHeight = 360;
constexpr uint32_t kClipFrames = 5;

// One frame, tightly packed (stride 2 * width).  width must be even.
std::vector<uint8_t> render_clip_frame(uint32_t width, uint32_t height, uint32_t index,
                                       uint32_t count);

// Packed 8-bit R'G'B' (3 bytes a pixel) to UYVY with limited-range BT.601; each chroma pair is
// the rounded mean of the two pixels' chroma.
void rgb_to_uyvy(const uint8_t *rgb, uint32_t width, uint32_t height, uint8_t *uyvy);

}  // namespace cli
}  // namespace framedsp
