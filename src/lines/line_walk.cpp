#include "lines/line_walk.h"

namespace framedsp {
namespace {

constexpr uint32_t kFrame = DSP_BUFFER_TYPE_FRAME;

// +1: the output shows the source picture one frame line higher (shift up), -1 lower, 0 none.
int32_t dominance_shift(uint32_t flags) {
  if (((flags ^ (flags >> 1)) & DSP_BUFFER_IN_FIELD2_DOMINANCE) == 0) return 0;
  return (flags & DSP_BUFFER_DOMINANCE_BY_SHIFTING_UP) ? 1 : -1;
}

// The output lines of a run: all lines of a field or a progressive frame, one field's lines of a
// frame (every second line, or one half when the fields lie one after the other).
bool plan_destination(const DSP_BUFFER &b, const LCtrl &c, int32_t parity, LineSeries *dst) {
  const int32_t ho = c.dst_height;
  *dst = LineSeries{0, 1, 0};
  if (ho <= 0) return true;
  if (b.Out.Buffer.eBufferType != kFrame || c.line_step == 1) {
    dst->count = ho;
  } else if (b.Out.eInterlace < 3) {
    *dst = LineSeries{parity, 2, (ho + 1 - parity) / 2};
  } else if (b.Out.eInterlace == 3) {
    *dst = LineSeries{parity * (ho / 2), 1, parity ? ho - ho / 2 : ho / 2};
  } else {
    return false;
  }
  return true;
}

// The source lines read one for one: a field's own lines, a frame's lines of the run's field
// (shifted by the dominance rule), or all lines of a progressive pass.
LineSeries plan_source(const DSP_BUFFER &b, const LCtrl &c, int run, int32_t parity, int32_t s) {
  const uint32_t in_type = b.In.Buffer.eBufferType;
  const int32_t hi = c.src_height;
  if (in_type != kFrame) {
    // A field's line m sits on frame line 2m + type; the output line 2k + parity shows frame
    // line 2k + parity + s, which has the field's parity by the choice of `parity`.
    const int32_t first =
        b.Out.Buffer.eBufferType == kFrame ? (parity + s - static_cast<int32_t>(in_type)) / 2 : 0;
    return LineSeries{first, 1, hi};
  }
  const int32_t step = c.src_line_increment;
  // Read one line at a time, a frame's fields lie one after the other, except in the
  // progressive frame-to-frame pass.
  const bool halves = step == 1 && !(b.Out.Buffer.eBufferType == kFrame && c.line_step == 1);
  if (!halves) {
    // Frame lines in memory order: field `run` starts on line `run`, a progressive pass on 0.
    if (step != 2) return LineSeries{s, step, hi};
    return LineSeries{run + s, 2, (hi - run + 1) / 2};
  }
  // Fields one after the other: frame line F is line F / 2 of field F & 1, whose half starts at
  // region line (height / 2) * (F & 1).
  const int32_t frame_line = run + s;
  const int32_t field = frame_line & 1;
  const int32_t half = hi / 2;
  return LineSeries{field * half + (frame_line - field) / 2, 1, run ? hi - half : half};
}

// Output lines k of a run whose destination lines lie in the band's lines [lo, hi).
void clip_to_band(const LCtrl &c, LineRun *run) {
  const int64_t lo = int64_t{c.band_first_line} << c.progressive_interlace;
  const int64_t hi = (int64_t{c.band_first_line} + c.band_lines) << c.progressive_interlace;
  const LineSeries &d = run->dst;
  auto first_at_or_above = [&d](int64_t line) -> int64_t {
    const int64_t n = line - d.first;
    return n <= 0 ? 0 : (n + d.step - 1) / d.step;
  };
  const int64_t first = first_at_or_above(lo);
  int64_t end = first_at_or_above(hi);
  if (end > d.count) end = d.count;
  if (c.band_lines <= 0 || first >= end) return;
  run->begin = static_cast<int32_t>(first);
  run->end = static_cast<int32_t>(end);
}

}  // namespace

LineSide line_side(const DSP_IMAGE &image, int32_t line_start, int32_t height, int32_t column_start) {
  const bool bottom_up = image.eImageOrientation == DSP_ORIENTATION_BOTTOM_UP;
  LineSide side;
  side.first = reinterpret_cast<intptr_t>(image.Buffer.pBuffer) + column_start;
  side.stride = static_cast<int32_t>(image.ulPrimaryStrideBytes);
  side.rows = static_cast<int32_t>(image.ulHeight);
  side.top = bottom_up ? line_start + height - 1 : line_start;
  side.sign = bottom_up ? -1 : 1;
  return side;
}

LineRun line_run(const DSP_BUFFER &b, const LCtrl &c, int run, LineRules rules) {
  LineRun r{run, {0, 1, 0}, {0, 1, 0}, 0, 0};
  const int32_t s = rules == LineRules::kCopy ? dominance_shift(b.ulFlags) : 0;
  // The output field this run writes: the run number, except that a single field placed into a
  // frame lands on the other field's lines when the dominance changes.
  int32_t parity = run & 1;
  const uint32_t in_type = b.In.Buffer.eBufferType;
  if (in_type != kFrame && b.Out.Buffer.eBufferType == kFrame) {
    parity = static_cast<int32_t>(in_type) ^ (s != 0 ? 1 : 0);
  }
  if (c.number_of_runs <= 0 || !plan_destination(b, c, parity, &r.dst)) return r;
  r.src = plan_source(b, c, run, parity, s);
  r.end = r.dst.count;
  return r;
}

LineWalk::LineWalk(const DSP_BUFFER &buffer, const LineLayout &layout, LineRules rules) {
  lctrl_fill(buffer, layout, &c_);
  plan(buffer, rules);
}

LineWalk::LineWalk(const DSP_BUFFER &buffer, const LCtrl &filled, LineRules rules) : c_(filled) {
  plan(buffer, rules);
}

void LineWalk::plan(const DSP_BUFFER &buffer, LineRules rules) {
  src_ = line_side(buffer.In, c_.src_line_start, c_.src_height, c_.src_column_start);
  dst_ = line_side(buffer.Out, c_.dst_line_start, c_.dst_height, c_.dst_column_start);
  run_count_ = 0;
  const bool nothing =
      rules == LineRules::kCopy && (c_.dst_increment == 0 || c_.src_image_height <= 0);
  for (int32_t run = c_.field; run < c_.field + c_.number_of_runs && run_count_ < 2; ++run) {
    LineRun r = line_run(buffer, c_, run, rules);
    r.begin = r.end = 0;
    const bool walked = !nothing && !(rules == LineRules::kScale && r.src.count <= 0);
    if (walked) clip_to_band(c_, &r);
    runs_[run_count_++] = r;
  }
}

}  // namespace framedsp
