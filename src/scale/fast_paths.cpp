// The two fixed-ratio fast paths of DspScaler.  Both walk the runs of the call (one run a field
// when a field is selected out of an interleaved frame, else one progressive run), so a field is
// scaled into a field; the output band of the call is the walker's.  Per output line k of a
// run the source line is picked by the path's own vertical rule (fast_paths.h / framedsp.h) and
// clamped to the run's lines inside the source region, keeping the field.
#include "scale/fast_paths.h"

#include <cmath>
#include <cstring>

#include "lines/line_walk.h"
#include "lines/pixel_format.h"
#include "platform/cpu.h"
#include "scale/fixed_ratio_kernels.h"

namespace framedsp {

namespace {

constexpr uint32_t kFieldSelect = DSP_BUFFER_PROCESS_FIELDA | DSP_BUFFER_PROCESS_FIELDB;

// Shared part of the two eligibility rules: formats, buffer types, interlace and fields.
bool common_eligible(const DSP_BUFFER &b) {
  // A record without memory is not eligible: the general path refuses it (E_INVALIDARG).
  if (!b.In.Buffer.pBuffer || !b.Out.Buffer.pBuffer) return false;
  const uint32_t f = b.In.ePixelFormat;
  if (!fixed_ratio_format(f) || b.Out.ePixelFormat != f) return false;
  if (b.In.Buffer.eBufferType != DSP_BUFFER_TYPE_FRAME ||
      b.Out.Buffer.eBufferType != DSP_BUFFER_TYPE_FRAME) return false;
  const uint32_t il = b.In.eInterlace;
  if ((il != DSP_INTERLACE_INTERLEAVED && il != DSP_INTERLACE_PROGRESSIVE) || b.Out.eInterlace != il) {
    return false;
  }
  if (b.ulFlags & kFieldSelect) return il == DSP_INTERLACE_INTERLEAVED;
  return il != 0 && b.Out.eInterlace != 0;
}

// Source line of output line k of a run, in the run's own lines (0 = the run's first line).
enum class VerticalRule { kDecimate2, kDecimate4, kRepeat2, kRepeat4, kNearest };

struct PlaneJob {
  FixedLineKernel kernel;
  VerticalRule rule;
  bool two_lines;      // the half-linear box reads line 2m and 2m + 1
  uint64_t num, den;   // output bytes = source bytes * num / den, in whole groups of `group`
  size_t group;
};

int64_t run_source_line(const PlaneJob &job, int64_t k, int64_t src_lines, int64_t dst_lines) {
  switch (job.rule) {
    case VerticalRule::kDecimate2: return 2 * k;
    case VerticalRule::kDecimate4: return 4 * k;
    case VerticalRule::kRepeat2: return k / 2;
    case VerticalRule::kRepeat4: return k / 4;
    default:
      // The general nearest rule: position k * step, step = source / output lines, truncated.
      return dst_lines > 0 ? (k * ((src_lines << 14) / dst_lines)) >> 14 : 0;
  }
}

// Picture-order line L of the source region, pulled back inside [0, height) in steps of `step`
// (the field's line distance) so that a clamped line stays in its field.
int64_t clamp_in_field(int64_t line, int64_t height, int64_t step) {
  if (line > height - 1) line -= ((line - (height - 1) + step - 1) / step) * step;
  if (line < 0) line += ((-line + step - 1) / step) * step;
  if (line > height - 1) line = height - 1;
  if (line < 0) line = 0;
  return line;
}

// Scales one plane (formats already set to the plane's) with the job's kernel.
void run_plane(const DSP_BUFFER &b, const PlaneJob &job) {
  const LineWalk walk(b, scale_layout(b.In.ePixelFormat));
  const LCtrl &c = walk.control();
  if (c.src_width <= 0 || c.dst_width <= 0 || c.src_height <= 0) return;
  uint64_t out_bytes = static_cast<uint64_t>(c.dst_width);
  const uint64_t from_source = static_cast<uint64_t>(c.src_width) * job.num / job.den;
  if (from_source < out_bytes) out_bytes = from_source;
  out_bytes -= out_bytes % job.group;
  if (out_bytes == 0) return;

  const LineSide &src = walk.source();
  const LineSide &dst = walk.destination();
  const int64_t height = c.src_height;
  const int64_t step = c.src_line_increment > 0 ? c.src_line_increment : 1;
  for (int r = 0; r < walk.run_count(); ++r) {
    const LineRun &run = walk.run(r);
    // The run's source lines in picture order: p0, p0 + step, ... inside the region.
    const int64_t p0 = run.src.first;
    const int64_t run_src_lines = (height - p0 + step - 1) / step;
    const int64_t run_dst_lines = (int64_t{c.dst_height} + step - 1) / step;
    for (int32_t k = run.begin; k < run.end; ++k) {
      const int64_t m = run_source_line(job, k, run_src_lines, run_dst_lines);
      const uint8_t *a = src.line(clamp_in_field(p0 + m * step, height, step));
      const uint8_t *second = job.two_lines ? src.line(clamp_in_field(p0 + m * step + step, height, step)) : a;
      job.kernel(a, second, dst.line(int64_t{run.dst.first} + int64_t{k} * run.dst.step),
                 static_cast<size_t>(out_bytes));
    }
  }
}

// Runs `make` (plane format -> job or an error) on each plane of the call, every job made before
// any line is written: two-plane formats as the general driver's two passes, main picture then
// plane.
template <class Make>
HRESULT run_planes(const DSP_BUFFER &buffer, Make make) {
  const uint32_t f = buffer.In.ePixelFormat;
  uint32_t formats[2] = {f, f};
  split_format(f, &formats[0], &formats[1]);
  PlaneJob jobs[2]{};
  const int planes = is_two_plane(f) ? 2 : 1;
  for (int p = 0; p < planes; ++p) {
    const HRESULT hr = make(formats[p], &jobs[p]);
    if (hr != kOk) return hr;
  }
  int plane = 0;
  return for_each_plane(buffer, [&](const DSP_BUFFER &b) {
    run_plane(b, jobs[plane++]);
    return kOk;
  });
}

}  // namespace

bool integer_ratio_eligible(const FastPathCall &call) {
  const DSP_BUFFER &b = call.buffer;
  if (!common_eligible(b)) return false;
  const uint64_t wi = b.In.Buffer.Region.ulWidth;
  const uint64_t wo = b.Out.Buffer.Region.ulWidth;
  if (wi != 2 * wo && wi != 4 * wo && wo != 2 * wi && wo != 4 * wi) return false;
  const uint32_t g = pixel_group(b.In.ePixelFormat);
  return wi % g == 0 && wo % g == 0;
}

HRESULT integer_ratio_scale(const FastPathCall &call) {
  const DSP_BUFFER &b = call.buffer;
  const double wi = b.In.Buffer.Region.ulWidth;
  const double wo = b.Out.Buffer.Region.ulWidth;
  const double r = wo / wi;
  const double v = static_cast<double>(b.Out.Buffer.Region.ulHeight) /
                   (static_cast<double>(b.In.Buffer.Region.ulHeight) * call.field_factor);
  if (std::fabs(r - v) > 0.1) return kInvalidArg;
  if (!(r * 16 >= 4 && r * 16 < 65)) return kInvalidArg;  // also refuses NaN
  const int code = static_cast<int>(r * 16);
  int ratio;
  VerticalRule rule;
  switch (code) {
    case 4: ratio = kRatioQuarter; rule = VerticalRule::kDecimate4; break;
    case 8: ratio = kRatioHalf; rule = VerticalRule::kDecimate2; break;
    case 32: ratio = kRatioDouble; rule = VerticalRule::kRepeat2; break;
    case 64: ratio = kRatioQuadruple; rule = VerticalRule::kRepeat4; break;
    default: return kInvalidArg;
  }
  const uint32_t filter = call.params ? call.params->eFilter : 0;
  if (filter == DSP_SCALER_FILTER_LINEAR) {
    if (ratio != kRatioHalf) return kNotImpl;
    ratio = kRatioHalfLinear;
  } else if (filter != DSP_SCALER_FILTER_NEAREST) {
    return kFail;
  }
  FixedRatioTable table;
  fixed_ratio_table_init(&table, cpu_flags());
  const bool quarter_or_quad = ratio == kRatioQuarter || ratio == kRatioQuadruple;
  return run_planes(b, [&](uint32_t format, PlaneJob *job) -> HRESULT {
    const int slot = fixed_ratio_slot(scale_layout(format).layout_class);
    if (slot < 0 || (quarter_or_quad && !pixel_format_info(format).any_ratio)) return kInvalidArg;
    job->kernel = table.ratio[ratio][slot];
    job->rule = rule;
    job->two_lines = ratio == kRatioHalfLinear;
    const bool up = ratio == kRatioDouble || ratio == kRatioQuadruple;
    const uint64_t n = ratio == kRatioQuarter || ratio == kRatioQuadruple ? 4 : 2;
    job->num = up ? n : 1;
    job->den = up ? 1 : n;
    // Output bytes in whole source groups (up) or whole output groups (down).
    job->group = fixed_group_bytes(slot) * (up ? n : 1);
    return kOk;
  });
}

bool hd_width_eligible(const FastPathCall &call) {
  const DSP_BUFFER &b = call.buffer;
  if (!common_eligible(b)) return false;
  if (reinterpret_cast<uintptr_t>(b.Out.Buffer.pBuffer) & 15) return false;
  const uint32_t wi = b.In.Buffer.Region.ulWidth;
  const uint32_t wo = b.Out.Buffer.Region.ulWidth;
  switch (wi) {
    case 1440: return wo == 1920;
    case 1920: return wo == 1440 || wo == 1280;
    case 960: return wo == 1280;
    case 1280: return wo == 1920 || wo == 960;
    default: return true;  // other input widths are refused by the work, not here
  }
}

HRESULT hd_width_scale(const FastPathCall &call) {
  const DSP_BUFFER &b = call.buffer;
  const uint32_t wi = b.In.Buffer.Region.ulWidth;
  const uint32_t wo = b.Out.Buffer.Region.ulWidth;
  int ratio;
  switch (wi) {
    case 1440: case 960: ratio = kHdFourThirds; break;
    case 1280: ratio = wo == 1920 ? kHdThreeHalves : kHdThreeQuarters; break;
    case 1920: ratio = wo == 1440 ? kHdThreeQuarters : kHdTwoThirds; break;
    default: return kInvalidArg;
  }
  static constexpr uint32_t kNum[kHdRatioCount] = {4, 3, 3, 2};
  static constexpr uint32_t kDen[kHdRatioCount] = {3, 2, 4, 3};
  // The kernel makes exactly in * num / den pixels: any other output width is refused.
  if (static_cast<uint64_t>(wi) * kNum[ratio] != static_cast<uint64_t>(wo) * kDen[ratio]) {
    return kInvalidArg;
  }
  FixedRatioTable table;
  fixed_ratio_table_init(&table, cpu_flags());
  return run_planes(b, [&](uint32_t format, PlaneJob *job) -> HRESULT {
    const int slot = fixed_ratio_slot(scale_layout(format).layout_class);
    if (slot < 0 || !pixel_format_info(format).any_ratio) return kInvalidArg;
    job->kernel = table.hd[ratio][slot];
    job->rule = VerticalRule::kNearest;
    job->two_lines = false;
    job->num = kNum[ratio];
    job->den = kDen[ratio];
    job->group = hd_group_out_bytes(ratio, slot);
    return kOk;
  });
}

}  // namespace framedsp
