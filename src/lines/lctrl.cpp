#include "lines/lctrl.h"

#include <cstdio>
#include <cstring>

#include "lines/pixel_format.h"
#include "platform/platform.h"

namespace framedsp {
namespace {

constexpr uint32_t kFrame = DSP_BUFFER_TYPE_FRAME;

int32_t as_int(uint32_t v) { return static_cast<int32_t>(v); }

// Region top and height clipped to the image.  A negative top (a bottom-up region reaching past
// the picture's bottom, or a careless host) is cut at line 0.
void clip_lines(const DSP_IMAGE &image, int32_t *top, int32_t *height) {
  int64_t y = image.Buffer.Region.ptOffset.y;
  int64_t h = image.Buffer.Region.ulHeight;
  const int64_t image_height = image.ulHeight;
  if (y < 0) {
    h += y;
    y = 0;
  }
  if (y + h > image_height) h = image_height - y;
  if (h < 0) h = 0;
  *top = static_cast<int32_t>(y);
  *height = static_cast<int32_t>(h);
}

// Left edge and width in pixels, rounded down to whole groups (1 or 2 pixels), clipped to the
// stride in pixels (when known) and to column 0.
void clip_columns(const DSP_IMAGE &image, int32_t stride_pixels, bool known, uint32_t group,
                  int32_t *left, int32_t *width) {
  int64_t x = image.Buffer.Region.ptOffset.x;
  int64_t w = image.Buffer.Region.ulWidth;
  if (group == 2) {
    x &= ~int64_t{1};
    w &= ~int64_t{1};
  }
  if (x < 0) {
    w += x;
    x = 0;
  }
  if (known && x + w > stride_pixels) w = stride_pixels - x;
  if (w < 0) w = 0;
  // A region that starts past the end of its line has no columns; its start is kept at the line's
  // end, so that the start in bytes (pixels times bytes per pixel) stays within the stride.
  if (known && x > stride_pixels) x = stride_pixels;
  *left = static_cast<int32_t>(x);
  *width = static_cast<int32_t>(w);
}

bool dominance_changes(uint32_t flags) {
  return ((flags ^ (flags >> 1)) & DSP_BUFFER_IN_FIELD2_DOMINANCE) != 0;
}

// +1: the output shows the source picture one frame line higher (shift up), -1 lower, 0 none.
int32_t dominance_shift(uint32_t flags) {
  if (!dominance_changes(flags)) return 0;
  return (flags & DSP_BUFFER_DOMINANCE_BY_SHIFTING_UP) ? 1 : -1;
}

void fill_vertical(const DSP_BUFFER &b, LCtrl *c) {
  const int32_t si = as_int(b.In.ulPrimaryStrideBytes);
  const int32_t so = as_int(b.Out.ulPrimaryStrideBytes);
  const int32_t hi = c->src_height;
  const int32_t ho = c->dst_height;
  const bool d = dominance_changes(b.ulFlags);
  const bool u = (b.ulFlags & DSP_BUFFER_DOMINANCE_BY_SHIFTING_UP) != 0;
  const bool field_a = (b.ulFlags & DSP_BUFFER_PROCESS_FIELDA) != 0;
  const bool field_b = (b.ulFlags & DSP_BUFFER_PROCESS_FIELDB) != 0;
  const uint32_t in_il = b.In.eInterlace;
  const uint32_t out_il = b.Out.eInterlace;
  c->even_odd = -1;
  c->progressive_interlace = 0;

  const uint32_t in_type = b.In.Buffer.eBufferType;
  const uint32_t out_type = b.Out.Buffer.eBufferType;
  if (in_type > kFrame || out_type > kFrame) return;
  switch (in_type * 4 + out_type) {
    case 0: case 1: case 4: case 5:  // field to field
      c->src_line_increment = 1;
      c->src_increment = si;
      c->dst_increment = so;
      c->line_step = 1;
      c->number_of_runs = 1;
      return;
    case 2:  // field A into a frame
      c->src_increment = si;
      c->src_line_increment = 1;
      c->line_step = 2;
      c->number_of_runs = 1;
      c->src_field_frame = 1;
      if (out_il < 3) c->dst_increment = 2 * so;
      else if (out_il == 3) c->dst_increment = so;
      if (d) {
        c->dst_field_diminance_offset = so;
        c->src_field_diminance_offset = u ? si : 0;
      }
      return;
    case 6:  // field B into a frame
      c->src_increment = si;
      c->src_line_increment = 1;
      c->line_step = 2;
      c->number_of_runs = 1;
      c->src_field_frame = 1;
      c->field = 1;
      if (out_il < 3) {
        c->dst_increment = 2 * so;
        c->dst_field_offset = so;
      } else if (out_il == 3) {
        c->dst_increment = so;
        c->dst_field_offset = (ho / 2) * so;
      }
      if (d) c->dst_field_diminance_offset = u ? 0 : 2 * so;
      return;
    case 8:  // frame to field A
      c->dst_increment = so;
      c->dst_field_frame = 1;
      c->line_step = 1;
      c->number_of_runs = 1;
      if (out_il < 2) {
        c->src_line_increment = 2;
        c->src_increment = 2 * si;
        c->even_odd = -2;
        c->progressive_interlace = 1;
      } else if (out_il == 2) {
        c->src_line_increment = 2;
        c->src_increment = 2 * si;
      } else {
        c->src_line_increment = 1;
        c->src_increment = si;
      }
      if (d && u) c->src_field_diminance_offset = out_il <= 2 ? si : 2 * si;
      return;
    case 9:  // frame to field B
      c->field = 1;
      c->dst_field_frame = 1;
      c->dst_increment = so;
      c->line_step = 1;
      c->number_of_runs = 1;
      if (in_il < 2 || out_il == 2) {
        c->src_line_offset = 1;
        c->src_line_increment = 2;
        c->src_field_offset = si;
        c->src_increment = 2 * si;
        if (in_il < 2) {
          c->even_odd = -2;
          c->progressive_interlace = 1;
        }
      } else {
        c->src_line_offset = hi / 2;
        c->src_line_increment = 1;
        c->src_field_offset = (hi / 2) * si;
        c->src_increment = si;
      }
      // Without the shift-up bit the field one line higher is taken (see the dominance table).
      if (d) c->src_field_diminance_offset = u ? si : -si;
      return;
    case 10:
      break;
    default:
      return;
  }

  // Frame to frame.
  if (in_il > 3 || out_il > 3) return;
  if (in_il < 2) {
    c->src_line_offset = 1;
    c->src_line_increment = 2;
    c->src_increment = 2 * si;
    c->src_field_offset = si;
    c->line_step = 2;
    c->even_odd = -2;
    c->progressive_interlace = 1;
    c->number_of_runs = 2;
    if (out_il < 3) {
      c->dst_increment = 2 * so;
      c->dst_field_offset = so;
      if (field_a != field_b) {
        c->number_of_runs = 1;
        c->field = field_b ? 1 : 0;
      }
    } else {
      c->dst_increment = so;
      c->dst_field_offset = (ho / 2) * so;
    }
  } else if (in_il == 2) {
    if (out_il < 3) {
      c->src_line_increment = 1;
      c->src_increment = si;
      c->dst_increment = so;
      c->line_step = 1;
      c->number_of_runs = 1;
    } else {
      c->src_line_offset = 1;
      c->src_line_increment = 2;
      c->src_increment = 2 * si;
      c->src_field_offset = si;
      c->dst_increment = so;
      c->dst_field_offset = (ho / 2) * so;
      c->line_step = 2;
      c->number_of_runs = 2;
    }
  } else {
    c->src_line_offset = hi / 2;
    c->src_field_offset = (hi / 2) * si;
    c->src_line_increment = 1;
    c->src_increment = si;
    c->line_step = 2;
    c->number_of_runs = 2;
    if (out_il < 3) {
      c->dst_increment = 2 * so;
      c->dst_field_offset = so;
    } else {
      c->dst_increment = so;
      c->dst_field_offset = (ho / 2) * so;
    }
  }
  if (d) {
    c->src_field_diminance_offset = u ? si : 0;
    c->dst_field_diminance_offset = u ? 0 : so;
  }
}

void fill_horizontal(const DSP_BUFFER &b, const LineLayout &layout, LCtrl *c) {
  const int32_t bpp = static_cast<int32_t>(layout.bytes_per_pixel);
  const int32_t si = as_int(b.In.ulPrimaryStrideBytes);
  const int32_t so = as_int(b.Out.ulPrimaryStrideBytes);
  if (bpp != 0) {
    c->src_stride_pixels = si / bpp;
    c->dst_stride_pixels = so / bpp;
  }
  int32_t src_left = 0;
  int32_t dst_left = 0;
  clip_columns(b.In, c->src_stride_pixels, bpp != 0, layout.group, &src_left, &c->src_columns);
  clip_columns(b.Out, c->dst_stride_pixels, bpp != 0, layout.group, &dst_left, &c->dst_columns);
  c->src_width = c->src_columns * bpp;
  c->dst_width = c->dst_columns * bpp;
  c->src_column_start = src_left * bpp;
  c->dst_column_start = dst_left * bpp;
  c->src_stride = si;
  c->dst_stride = so;
}

void fill_band(const DSP_BUFFER &b, LCtrl *c) {
  const int32_t count = b.ulSliceCount ? as_int(b.ulSliceCount) : 1;
  const int32_t number = b.ulSliceNumber ? as_int(b.ulSliceNumber) : 1;
  c->band_index = number - 1;
  c->band_lines = ((c->dst_height / count) & c->even_odd) >> c->progressive_interlace;
  c->band_first_line = (number - 1) * c->band_lines;
  if (number == count && (c->dst_height & 1)) ++c->band_lines;
  if (c->band_first_line + c->band_lines > c->dst_image_height)
    c->band_lines = c->dst_image_height - c->band_first_line;
  if (c->band_lines < 0) c->band_lines = 0;
}

// Which lines run `run` reads and writes, in picture lines counted from each region's top.
struct RunPlan {
  int32_t src_line;  // source line of the run's line 0 (may be -1 or past the region)
  int32_t src_step;
  int32_t dst_line;
  int32_t dst_step;
  int32_t lines;
};

RunPlan plan_run(const DSP_BUFFER &b, const LCtrl &c, int run) {
  RunPlan p{0, 1, 0, 1, 0};
  const uint32_t in_type = b.In.Buffer.eBufferType;
  const uint32_t out_type = b.Out.Buffer.eBufferType;
  const int32_t ho = c.dst_height;
  const int32_t s = dominance_shift(b.ulFlags);
  if (c.number_of_runs <= 0 || c.dst_increment == 0 || c.src_image_height <= 0 || ho <= 0) return p;

  // The output field this run writes: the run number, except that a single field placed into a
  // frame lands on the other field's lines when the dominance changes.
  int32_t parity = run & 1;
  if (in_type != kFrame && out_type == kFrame) parity = static_cast<int32_t>(in_type) ^ (s != 0 ? 1 : 0);

  if (out_type != kFrame || c.line_step == 1) {
    p.lines = ho;
  } else if (b.Out.eInterlace < 3) {
    p.dst_line = parity;
    p.dst_step = 2;
    p.lines = (ho + 1 - parity) / 2;
  } else if (b.Out.eInterlace == 3) {
    p.dst_line = parity * (ho / 2);
    p.lines = parity ? ho - ho / 2 : ho / 2;
  } else {
    return p;
  }

  if (in_type != kFrame) {
    // A field's line m sits on frame line 2m + type; the output line 2k + parity shows frame
    // line 2k + parity + s, which has the field's parity by the choice of `parity`.
    if (out_type == kFrame) p.src_line = (parity + s - static_cast<int32_t>(in_type)) / 2;
    return p;
  }
  p.src_step = c.src_line_increment;
  // Read one line at a time, a frame's fields lie one after the other, except in the
  // progressive frame-to-frame pass.
  const bool halves = c.src_line_increment == 1 && !(out_type == kFrame && c.line_step == 1);
  if (!halves) {
    // Frame lines in memory order: field `run` starts on line `run`, a progressive pass on 0.
    p.src_line = (c.src_line_increment == 2 ? run : 0) + s;
  } else {
    // Fields one after the other: frame line F is line F / 2 of field F & 1, whose half starts
    // at region line (height / 2) * (F & 1).
    const int32_t frame_line = run + s;
    const int32_t field = frame_line & 1;
    const int32_t half = c.src_height / 2;
    p.src_line = field * half + (frame_line - field) / 2;
  }
  return p;
}

struct Side {
  intptr_t base;  // region's picture-top line plus column start
  intptr_t near;
  intptr_t far;
  int32_t sign;
  int32_t stride;
};

Side side_of(const DSP_IMAGE &image, int32_t line_start, int32_t height, int32_t column_start) {
  const intptr_t buffer = reinterpret_cast<intptr_t>(image.Buffer.pBuffer);
  const intptr_t stride = as_int(image.ulPrimaryStrideBytes);
  const intptr_t first = buffer + column_start;
  const intptr_t last = first + (static_cast<intptr_t>(image.ulHeight) - 1) * stride;
  Side side;
  side.stride = static_cast<int32_t>(stride);
  if (image.eImageOrientation == DSP_ORIENTATION_BOTTOM_UP) {
    side.sign = -1;
    side.base = first + (static_cast<intptr_t>(line_start) + height - 1) * stride;
    side.near = last;
    side.far = first;
  } else {
    side.sign = 1;
    side.base = first + static_cast<intptr_t>(line_start) * stride;
    side.near = first;
    side.far = last;
  }
  return side;
}

uint8_t *to_ptr(intptr_t v) { return reinterpret_cast<uint8_t *>(v); }

}  // namespace

void lctrl_fill(const DSP_BUFFER &buffer, LCtrl *c) {
  lctrl_fill(buffer, copy_layout(buffer.In.ePixelFormat), c);
}

void lctrl_fill(const DSP_BUFFER &buffer, const LineLayout &layout, LCtrl *c) {
  std::memset(c, 0, sizeof *c);
  c->src_image_height = as_int(buffer.In.ulHeight);
  c->dst_image_height = as_int(buffer.Out.ulHeight);
  clip_lines(buffer.In, &c->src_line_start, &c->src_height);
  clip_lines(buffer.Out, &c->dst_line_start, &c->dst_height);
  fill_vertical(buffer, c);
  fill_horizontal(buffer, layout, c);
  fill_band(buffer, c);
  c->single_field_frames =
      (buffer.ulFlags & (DSP_BUFFER_PROCESS_FIELDA | DSP_BUFFER_PROCESS_FIELDB)) != 0 &&
      buffer.In.eInterlace == 0 && buffer.Out.eInterlace == 0;
}

void lctrl_setup_run(const DSP_BUFFER &buffer, LCtrl *c, int run) {
  const Side src = side_of(buffer.In, c->src_line_start, c->src_height, c->src_column_start);
  const Side dst = side_of(buffer.Out, c->dst_line_start, c->dst_height, c->dst_column_start);
  const RunPlan p = plan_run(buffer, *c, run);
  c->source_orientation_control_flag = src.sign;
  c->destination_orientation_control_flag = dst.sign;
  c->src_increment = src.sign * p.src_step * src.stride;
  c->dst_increment = c->dst_increment == 0 ? 0 : dst.sign * p.dst_step * dst.stride;
  c->src_limit = to_ptr(src.base);
  c->dst_limit = to_ptr(dst.base);
  c->src_near_limit = to_ptr(src.near);
  c->dst_near_limit = to_ptr(dst.near);
  c->src_far_limit = to_ptr(src.far);
  c->dst_far_limit = to_ptr(dst.far);
  const intptr_t src_first = src.base + static_cast<intptr_t>(src.sign) * p.src_line * src.stride;
  const intptr_t dst_first = dst.base + static_cast<intptr_t>(dst.sign) * p.dst_line * dst.stride;
  c->src_line_address = clamp_line(src_first, c->src_near_limit, c->src_far_limit);
  c->dst_line_address = clamp_line(dst_first, c->dst_near_limit, c->dst_far_limit);

  const int32_t misalign = static_cast<int32_t>(reinterpret_cast<uintptr_t>(c->src_line_address) & 15u);
  c->src_preface = misalign ? 16 - misalign : 0;
  c->src_prwidth = c->src_width - c->src_preface;
  c->src_residual = c->src_prwidth % 16;
  c->dst_preface = c->src_preface;
  c->dst_prwidth = c->dst_width - c->src_preface;
  c->dst_residual = c->dst_prwidth % 16;
}

LineSpan lctrl_run_span(const DSP_BUFFER &buffer, const LCtrl &c, int run) {
  const RunPlan p = plan_run(buffer, c, run);
  LineSpan span{0, 0, 0, 0, c.src_increment, c.dst_increment};
  const int64_t lo = int64_t{c.band_first_line} << c.progressive_interlace;
  const int64_t hi = (int64_t{c.band_first_line} + c.band_lines) << c.progressive_interlace;
  // Line k writes destination line dst_line + k * dst_step; keep those in [lo, hi).
  auto first_at_or_above = [&](int64_t line) -> int64_t {
    const int64_t n = line - p.dst_line;
    return n <= 0 ? 0 : (n + p.dst_step - 1) / p.dst_step;
  };
  const int64_t first = first_at_or_above(lo);
  int64_t end = first_at_or_above(hi);
  if (end > p.lines) end = p.lines;
  if (c.band_lines <= 0 || first >= end) return span;
  span.first = static_cast<int32_t>(first);
  span.end = static_cast<int32_t>(end);
  const Side src = side_of(buffer.In, c.src_line_start, c.src_height, c.src_column_start);
  const Side dst = side_of(buffer.Out, c.dst_line_start, c.dst_height, c.dst_column_start);
  span.src = src.base + static_cast<intptr_t>(src.sign) * (p.src_line + first * p.src_step) * src.stride;
  span.dst = dst.base + static_cast<intptr_t>(dst.sign) * (p.dst_line + first * p.dst_step) * dst.stride;
  return span;
}

int lctrl_format_dump(const LCtrl &c, const char *title, char *out, int size) {
  struct Entry {
    const char *name;
    int32_t value;
  };
  const Entry head[] = {{"line_step", c.line_step}, {"number_of_runs", c.number_of_runs},
                        {"field", c.field}, {"even_odd", c.even_odd},
                        {"progressive_interlace", c.progressive_interlace},
                        {"start_line_offset", c.start_line_offset}};
  const Entry source[] = {{"src_line_offset", c.src_line_offset},
                          {"src_line_increment", c.src_line_increment},
                          {"src_increment", c.src_increment},
                          {"src_field_offset", c.src_field_offset},
                          {"src_field_frame", c.src_field_frame},
                          {"src_field_diminance_offset", c.src_field_diminance_offset},
                          {"src_stride_pixels", c.src_stride_pixels},
                          {"src_columns", c.src_columns},
                          {"src_width", c.src_width},
                          {"src_stride", c.src_stride},
                          {"src_image_height", c.src_image_height},
                          {"src_height", c.src_height},
                          {"src_line_start", c.src_line_start},
                          {"src_column_start", c.src_column_start},
                          {"src_preface", c.src_preface},
                          {"src_residual", c.src_residual},
                          {"src_prwidth", c.src_prwidth},
                          {"source_orientation_control_flag", c.source_orientation_control_flag},
                          {"src_column_start_offset", c.src_column_start_offset},
                          {"src_line_start_offset", c.src_line_start_offset}};
  const Entry destination[] = {{"dst_increment", c.dst_increment},
                               {"dst_field_offset", c.dst_field_offset},
                               {"dst_field_frame", c.dst_field_frame},
                               {"dst_field_diminance_offset", c.dst_field_diminance_offset},
                               {"dst_stride_pixels", c.dst_stride_pixels},
                               {"dst_columns", c.dst_columns},
                               {"dst_width", c.dst_width},
                               {"dst_stride", c.dst_stride},
                               {"dst_image_height", c.dst_image_height},
                               {"dst_height", c.dst_height},
                               {"dst_line_start", c.dst_line_start},
                               {"dst_column_start", c.dst_column_start},
                               {"dst_preface", c.dst_preface},
                               {"dst_residual", c.dst_residual},
                               {"dst_prwidth", c.dst_prwidth},
                               {"destination_orientation_control_flag",
                                c.destination_orientation_control_flag},
                               {"dst_column_start_offset", c.dst_column_start_offset},
                               {"dst_line_start_offset", c.dst_line_start_offset}};
  int length = 0;
  auto put = [&](const char *format, const char *text, int32_t value) {
    const int room = length < size ? size - length : 0;
    const int n = text ? std::snprintf(room ? out + length : nullptr, room, format, text, value)
                       : std::snprintf(room ? out + length : nullptr, room, "%s", format);
    if (n > 0) length += n;
  };
  put("%s\n\n", title ? title : "", 0);
  for (const Entry &e : head) put("LCtrl->%s: %d\n", e.name, e.value);
  put("\n", nullptr, 0);
  for (const Entry &e : source) put("LCtrl->%s: %d\n", e.name, e.value);
  put("\n", nullptr, 0);
  for (const Entry &e : destination) put("LCtrl->%s: %d\n", e.name, e.value);
  return length;
}

void lctrl_dump(const LCtrl &c, const char *title) {
  char text[4096];
  lctrl_format_dump(c, title, text, sizeof text);
  platform::show_text(text);
}

}  // namespace framedsp
