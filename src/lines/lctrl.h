// Line-control geometry: which source line feeds which destination line, in how many runs (one
// per field when fields are handled separately), where each line starts, how wide it is, how its
// first line sits against a 16-byte boundary, and which band of the output this call produces.
// Every line-by-line operation derives one LCtrl from its (private, normalised) DSP_BUFFER and
// walks its lines with the increments below.
#pragma once

#include <cstddef>
#include <cstdint>

#include "framedsp/framedsp.h"

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
  int32_t dst_height;                  // the line count of a run
  int32_t src_line_start;
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
  uint8_t *src_near_limit;
  uint8_t *dst_near_limit;
  uint8_t *src_far_limit;              // the limits the clamped line advance uses
  uint8_t *dst_far_limit;
  int32_t single_field_frames;
};

// Clears `c` and computes everything but the run state from a normalised private copy of the
// record (bottom-up regions already re-measured, band fields 0 already read as 1).
void lctrl_fill(const DSP_BUFFER &buffer, LCtrl *c);

// Line addresses, limits, orientation signs, dominance adjustment and alignment split of run
// `run` (0 or 1).
void lctrl_setup_run(const DSP_BUFFER &buffer, LCtrl *c, int run);

// Developer aid: the record as text to stderr (a message box on Windows).  No operation calls it.
void lctrl_dump(const LCtrl &c, const char *title);

// Clamped line advance: top-down sides move toward higher addresses and stop at their limit,
// bottom-up sides toward lower ones; at the edge the last line repeats.
inline uint8_t *advance_line(uint8_t *line, int32_t increment, uint8_t *limit, bool bottom_up) {
  const intptr_t next = reinterpret_cast<intptr_t>(line) + increment;
  const intptr_t lim = reinterpret_cast<intptr_t>(limit);
  return reinterpret_cast<uint8_t *>(bottom_up ? (next > lim ? next : lim) : (next < lim ? next : lim));
}

}  // namespace framedsp
