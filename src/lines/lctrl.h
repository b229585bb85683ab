// Line-control geometry: which source line feeds which destination line, in how many runs (one
// per field when fields are handled separately), where each line starts, how wide it is, how its
// first line sits against a 16-byte boundary, and which band of the output this call produces.
// Every line-by-line operation derives one LCtrl from its (private, normalised) DSP_BUFFER and
// walks its lines with the increments below.
#pragma once

#include <cstddef>
#include <cstdint>

#include "framedsp/framedsp.h"
#include "lines/pixel_format.h"

namespace framedsp {

// Fields in this order.  Counts and byte offsets are 32-bit signed; the addresses are pointers.
struct LCtrl {
  int32_t src_line_offset;             // first source line of the run pattern, in lines
  int32_t src_line_increment;          // source lines advanced per output line
  int32_t src_increment;               // source bytes per line (negative bottom-up, after set-up)
  int32_t src_field_offset;            // source bytes between the starts of successive runs
  int32_t start_line_offset;           // reserved (0)
  int32_t src_field_frame;             // 1: the source is a single field placed into a frame
  int32_t src_field_diminance_offset;  // source bytes added to the first line on a dominance change
  int32_t dst_increment;
  int32_t dst_field_offset;
  int32_t dst_field_frame;             // 1: the destination takes a single field out of a frame
  int32_t dst_field_diminance_offset;
  int32_t field;                       // number of the first run (0 or 1)
  int32_t line_step;                   // step of the line counter per line copied
  int32_t number_of_runs;              // 1 or 2
  int32_t even_odd;                    // band mask: -1 keeps the band height, -2 rounds it to even
  int32_t progressive_interlace;       // band shift: 1 halves the band height
  int32_t reserved0;
  int32_t src_stride_pixels;
  int32_t dst_stride_pixels;
  int32_t src_columns;                 // region width in pixels after clipping
  int32_t src_width;                   // the same in bytes
  int32_t src_stride;
  int32_t dst_columns;
  int32_t dst_width;
  int32_t dst_stride;
  int32_t src_image_height;
  int32_t dst_image_height;
  int32_t src_height;                  // region height after clipping
  int32_t dst_height;                  // the same for the destination; the runs share its lines
  int32_t src_line_start;              // region top line in memory order (bottom-up: re-measured)
  int32_t src_column_start;            // bytes
  int32_t dst_line_start;
  int32_t dst_column_start;            // bytes
  int32_t src_preface;                 // bytes before the first 16-byte boundary of the source line
  int32_t src_residual;                // src_prwidth mod 16
  int32_t src_prwidth;                 // src_width - src_preface
  int32_t dst_preface;                 // = src_preface: the destination follows the source's split
  int32_t dst_residual;
  int32_t dst_prwidth;                 // dst_width - src_preface
  int32_t source_orientation_control_flag;       // +1 / -1
  int32_t destination_orientation_control_flag;  // +1 / -1
  int32_t src_column_start_offset;     // reserved (0)
  int32_t src_line_start_offset;       // reserved (0)
  int32_t dst_column_start_offset;     // reserved (0)
  int32_t dst_line_start_offset;       // reserved (0)
  int32_t band_lines;
  int32_t band_index;
  int32_t band_first_line;
  int32_t reserved1[4];
  uint8_t *src_line_address;           // first source / destination line of the run
  uint8_t *dst_line_address;
  uint8_t *src_limit;                  // each side's region start as first computed
  uint8_t *dst_limit;
  uint8_t *src_near_limit;             // each side's first image line in walking order
  uint8_t *dst_near_limit;
  uint8_t *src_far_limit;              // the limits the clamped line advance uses: the last
  uint8_t *dst_far_limit;              // image line in walking order, plus the column start
  int32_t single_field_frames;
};

// Clears `c` and computes everything but the run state from a normalised private copy of the
// record (bottom-up regions already re-measured, band fields 0 already read as 1).
// src_line_start / dst_line_start are therefore the region's top line in MEMORY order: the one
// re-measure of a bottom-up side is normalise_orientation()'s, and nothing here repeats it.
// A bottom-up region that reaches past the picture's bottom (negative re-measured top) is cut at
// memory line 0, which keeps its picture-top line where it was.
// Columns are counted in the pixels of `layout` (the copy's layout of the input format by
// default): region edges and widths round down to its groups.
void lctrl_fill(const DSP_BUFFER &buffer, LCtrl *c);
void lctrl_fill(const DSP_BUFFER &buffer, const LineLayout &layout, LCtrl *c);

// Line addresses, limits, orientation signs, dominance adjustment and alignment split of run
// `run` (0 or 1).  A bottom-up side starts at its region's last memory line (the picture's top
// line of the region) and walks with a negative increment.  The dominance adjusters move each
// side's start line themselves (see framedsp.h for the rule), so the fill's *_diminance_offset
// words are a record of the stride involved and are never added on top.  src_line_address is the
// first line as read (clamped into the image); the preface is measured on it.  src_residual is
// the C remainder, negative when a line is shorter than its preface.
void lctrl_setup_run(const DSP_BUFFER &buffer, LCtrl *c, int run);

// Developer aid: the record as text to stderr (a message box on Windows).  No operation calls it.
// lctrl_format_dump writes the same text into `out` (snprintf rules; returns the full length).
void lctrl_dump(const LCtrl &c, const char *title);
int lctrl_format_dump(const LCtrl &c, const char *title, char *out, int size);

}  // namespace framedsp
