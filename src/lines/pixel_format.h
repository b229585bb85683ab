// The pixel-format table: every per-format answer of the library, per operation where operations
// differ.  Adding a format means adding one row.
#pragma once

#include <cstdint>

#include "framedsp/framedsp.h"

namespace framedsp {

// How a family of operations addresses the pixels of one line of a format.
struct LineLayout {
  uint32_t bytes_per_pixel;  // 0: the line has no pixels this family can address
  uint32_t group;            // pixels per group: region edges and widths round down to it
  uint32_t layout_class;     // index of the family's per-format kernel tables
};

struct PixelFormatInfo {
  uint32_t code;
  uint8_t bytes_per_pixel;  // main picture; 0 = not addressable per pixel
  bool full_chroma;         // horizontally full-resolution chroma (0, 1, 5, 27): any width
  bool two_plane;           // 5, 27..30
  uint32_t main_format;     // two-plane split; the format itself otherwise
  uint32_t plane_format;
  uint8_t format_class;     // sample layout: index of every per-format kernel table (0..11)
  bool copy_filter;         // taken by DspBufferSmartCopy, DspFilter and DspSubPixelFilter
  bool compare;             // taken by DspCompare
  bool scale;               // taken by DspScaler's general and filtered paths
  bool fixed_ratio;         // eligible for the scaler's integer-ratio and HD-width paths
  bool any_ratio;           // ... at every fixed ratio (else only halving and doubling)
  bool staged;              // may pass through an intermediate frame (the scaler's staged mode,
                            // the filter's temporary frame): not 1, nor the two-plane formats
  uint8_t group;            // pixels sharing chroma: 2 for the 4:2:2 layouts (two-plane: main)
  uint8_t copy_group;       // the pairs the copy and the filters keep region edges on
  uint8_t scale_bytes;      // bytes per pixel as the scaler addresses a line
  uint8_t scale_class;      // the scaler's layout class
};

// Formats outside the table report 0 bytes per pixel, class 0, subsampled, one plane, taken by
// no operation.
PixelFormatInfo pixel_format_info(uint32_t format);

uint32_t bytes_per_pixel(uint32_t format);
bool is_two_plane(uint32_t format);
void split_format(uint32_t format, uint32_t *main_format, uint32_t *plane_format);
bool has_full_chroma(uint32_t format);
uint32_t format_class(uint32_t format);
bool copy_filter_format(uint32_t format);  // 0, 1, 5, 21..25, 28, 30, 31, 129, 261, 262
bool compare_format(uint32_t format);      // 0, 1, 5, 21, 25, 28, 30, 261
bool scale_format(uint32_t format);        // the copy's formats and 263
bool fixed_ratio_format(uint32_t format);  // 0, 1, 5, 21, 25, 28, 30, 261, 263
uint32_t pixel_group(uint32_t format);
bool staged_format(uint32_t format);

// The copy and the filters: the table's bytes per pixel and class; region edges on pixel pairs
// only in the 8-bit 4:2:2 formats 21 and 25.
LineLayout copy_layout(uint32_t format);
// The scaler and its fast paths: 2, 4 and 1 bytes for formats 262, 31 and 263, which the table
// leaves unaddressable; 263, the pyramid's 8-bit plane, laid out as 261; groups of the 4:2:2
// layouts.
LineLayout scale_layout(uint32_t format);

// Every code the table knows, in ascending order (for tools and tests).
const uint32_t *known_formats(uint32_t *count);

}  // namespace framedsp
