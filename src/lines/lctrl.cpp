#include "lines/lctrl.h"

#include <cstdio>
#include <cstring>

#include "lines/line_walk.h"
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

// What the vertical pattern is made of: strides, region heights, the dominance change and the
// shift-up bit, the field selection and the interlace modes.
struct Vertical {
  int32_t si, so, hi, ho;
  bool d, u, field_a, field_b;
  uint32_t in_il, out_il;
};

void set_steps(LCtrl *c, int32_t line_step, int32_t runs) {
  c->line_step = line_step;
  c->number_of_runs = runs;
}

void field_into_frame(const Vertical &v, bool field_b, LCtrl *c) {
  c->src_increment = v.si;
  c->src_line_increment = 1;
  set_steps(c, 2, 1);
  c->src_field_frame = 1;
  if (!field_b) {
    if (v.out_il < 3) c->dst_increment = 2 * v.so;
    else if (v.out_il == 3) c->dst_increment = v.so;
    if (v.d) {
      c->dst_field_diminance_offset = v.so;
      c->src_field_diminance_offset = v.u ? v.si : 0;
    }
    return;
  }
  c->field = 1;
  if (v.out_il < 3) {
    c->dst_increment = 2 * v.so;
    c->dst_field_offset = v.so;
  } else if (v.out_il == 3) {
    c->dst_increment = v.so;
    c->dst_field_offset = (v.ho / 2) * v.so;
  }
  if (v.d) c->dst_field_diminance_offset = v.u ? 0 : 2 * v.so;
}

void frame_to_field_a(const Vertical &v, LCtrl *c) {
  c->dst_increment = v.so;
  c->dst_field_frame = 1;
  set_steps(c, 1, 1);
  if (v.out_il < 2) {
    c->src_line_increment = 2;
    c->src_increment = 2 * v.si;
    c->even_odd = -2;
    c->progressive_interlace = 1;
  } else if (v.out_il == 2) {
    c->src_line_increment = 2;
    c->src_increment = 2 * v.si;
  } else {
    c->src_line_increment = 1;
    c->src_increment = v.si;
  }
  if (v.d && v.u) c->src_field_diminance_offset = v.out_il <= 2 ? v.si : 2 * v.si;
}

void frame_to_field_b(const Vertical &v, LCtrl *c) {
  c->field = 1;
  c->dst_field_frame = 1;
  c->dst_increment = v.so;
  set_steps(c, 1, 1);
  if (v.in_il < 2 || v.out_il == 2) {
    c->src_line_offset = 1;
    c->src_line_increment = 2;
    c->src_field_offset = v.si;
    c->src_increment = 2 * v.si;
    if (v.in_il < 2) {
      c->even_odd = -2;
      c->progressive_interlace = 1;
    }
  } else {
    c->src_line_offset = v.hi / 2;
    c->src_line_increment = 1;
    c->src_field_offset = (v.hi / 2) * v.si;
    c->src_increment = v.si;
  }
  // Without the shift-up bit the field one line higher is taken (see the dominance table).
  if (v.d) c->src_field_diminance_offset = v.u ? v.si : -v.si;
}

// The destination of a frame-to-frame pattern: interleaved fields or progressive (one line in
// two per run), or fields one after the other (a half per run).
void frame_destination(const Vertical &v, LCtrl *c) {
  if (v.out_il < 3) {
    c->dst_increment = 2 * v.so;
    c->dst_field_offset = v.so;
  } else {
    c->dst_increment = v.so;
    c->dst_field_offset = (v.ho / 2) * v.so;
  }
}

void frame_to_frame(const Vertical &v, LCtrl *c) {
  if (v.in_il > 3 || v.out_il > 3) return;
  if (v.in_il < 2) {
    c->src_line_offset = 1;
    c->src_line_increment = 2;
    c->src_increment = 2 * v.si;
    c->src_field_offset = v.si;
    set_steps(c, 2, 2);
    c->even_odd = -2;
    c->progressive_interlace = 1;
    frame_destination(v, c);
    if (v.out_il < 3 && v.field_a != v.field_b) {
      c->number_of_runs = 1;
      c->field = v.field_b ? 1 : 0;
    }
  } else if (v.in_il == 2 && v.out_il < 3) {
    c->src_line_increment = 1;
    c->src_increment = v.si;
    c->dst_increment = v.so;
    set_steps(c, 1, 1);
  } else if (v.in_il == 2) {
    c->src_line_offset = 1;
    c->src_line_increment = 2;
    c->src_increment = 2 * v.si;
    c->src_field_offset = v.si;
    set_steps(c, 2, 2);
    frame_destination(v, c);
  } else {
    c->src_line_offset = v.hi / 2;
    c->src_field_offset = (v.hi / 2) * v.si;
    c->src_line_increment = 1;
    c->src_increment = v.si;
    set_steps(c, 2, 2);
    frame_destination(v, c);
  }
  if (v.d) {
    c->src_field_diminance_offset = v.u ? v.si : 0;
    c->dst_field_diminance_offset = v.u ? 0 : v.so;
  }
}

void fill_vertical(const DSP_BUFFER &b, LCtrl *c) {
  const Vertical v{as_int(b.In.ulPrimaryStrideBytes),
                   as_int(b.Out.ulPrimaryStrideBytes),
                   c->src_height,
                   c->dst_height,
                   dominance_changes(b.ulFlags),
                   (b.ulFlags & DSP_BUFFER_DOMINANCE_BY_SHIFTING_UP) != 0,
                   (b.ulFlags & DSP_BUFFER_PROCESS_FIELDA) != 0,
                   (b.ulFlags & DSP_BUFFER_PROCESS_FIELDB) != 0,
                   b.In.eInterlace,
                   b.Out.eInterlace};
  c->even_odd = -1;
  c->progressive_interlace = 0;
  const uint32_t in_type = b.In.Buffer.eBufferType;
  const uint32_t out_type = b.Out.Buffer.eBufferType;
  if (in_type > kFrame || out_type > kFrame) return;
  switch (in_type * 4 + out_type) {
    case 0: case 1: case 4: case 5:  // field to field
      c->src_line_increment = 1;
      c->src_increment = v.si;
      c->dst_increment = v.so;
      set_steps(c, 1, 1);
      return;
    case 2: return field_into_frame(v, false, c);
    case 6: return field_into_frame(v, true, c);
    case 8: return frame_to_field_a(v, c);
    case 9: return frame_to_field_b(v, c);
    default: return frame_to_frame(v, c);  // 10
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
  const LineSide src = line_side(buffer.In, c->src_line_start, c->src_height, c->src_column_start);
  const LineSide dst = line_side(buffer.Out, c->dst_line_start, c->dst_height, c->dst_column_start);
  // A run the copy's rules give no lines records unit steps from the regions' first lines.
  const bool none = c->dst_increment == 0 || c->src_image_height <= 0 || c->dst_height <= 0;
  const LineRun r = none ? LineRun{run, {0, 1, 0}, {0, 1, 0}, 0, 0} : line_run(buffer, *c, run, LineRules::kCopy);
  c->source_orientation_control_flag = src.sign;
  c->destination_orientation_control_flag = dst.sign;
  c->src_increment = static_cast<int32_t>(src.sign * r.src.step * src.stride);
  c->dst_increment = c->dst_increment == 0 ? 0 : static_cast<int32_t>(dst.sign * r.dst.step * dst.stride);
  c->src_limit = src.at_row(src.top);
  c->dst_limit = dst.at_row(dst.top);
  c->src_near_limit = src.at_row(src.sign > 0 ? 0 : src.rows - 1);
  c->dst_near_limit = dst.at_row(dst.sign > 0 ? 0 : dst.rows - 1);
  c->src_far_limit = src.at_row(src.sign > 0 ? src.rows - 1 : 0);
  c->dst_far_limit = dst.at_row(dst.sign > 0 ? dst.rows - 1 : 0);
  c->src_line_address = src.line(r.src.first);
  c->dst_line_address = dst.line(r.dst.first);

  const int32_t misalign = static_cast<int32_t>(reinterpret_cast<uintptr_t>(c->src_line_address) & 15u);
  c->src_preface = misalign ? 16 - misalign : 0;
  c->src_prwidth = c->src_width - c->src_preface;
  c->src_residual = c->src_prwidth % 16;
  c->dst_preface = c->src_preface;
  c->dst_prwidth = c->dst_width - c->src_preface;
  c->dst_residual = c->dst_prwidth % 16;
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
