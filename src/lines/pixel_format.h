// The pixel-format table and the shared routines on it.
#pragma once

#include <cstdint>

#include "framedsp/framedsp.h"

namespace framedsp {

struct PixelFormatInfo {
  uint32_t code;
  uint8_t bytes_per_pixel;  // main picture; 0 = not addressable per pixel
  bool full_chroma;         // horizontally full-resolution chroma (0, 1, 5, 27)
  bool two_plane;           // 5, 27..30
  uint32_t main_format;     // two-plane split; the format itself otherwise
  uint32_t plane_format;
  uint8_t format_class;     // index of every per-format kernel table (0..11)
  bool copy_filter;         // accepted by copy and filter
  bool compare;             // accepted by compare
};

// Formats outside the table report 0 bytes per pixel, class 0, subsampled, one plane.
PixelFormatInfo pixel_format_info(uint32_t format);

uint32_t bytes_per_pixel(uint32_t format);
bool is_two_plane(uint32_t format);
void split_format(uint32_t format, uint32_t *main_format, uint32_t *plane_format);
bool has_full_chroma(uint32_t format);
uint32_t format_class(uint32_t format);
bool copy_filter_format(uint32_t format);  // 0, 1, 5, 21..25, 28, 30, 31, 129, 261, 262
bool compare_format(uint32_t format);      // 0, 1, 5, 21, 25, 28, 30, 261

// Every code the table knows, in ascending order (for tools and tests).
const uint32_t *known_formats(uint32_t *count);

}  // namespace framedsp
