// DspSubPixelScaler: scaling between fractional regions on the resampling engine.  The record is
// checked whole first (nothing is written before every check has passed), the four region values
// of each side are rounded once to Q32, and every position after that is integer arithmetic.
// One engine plan per written field (or picture) and plane.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "filter/filter.h"
#include "platform/cpu.h"
#include "lines/pixel_format.h"
#include "platform/trace.h"
#include "platform/work_memory.h"
#include "resample/resample.h"
#include "resample/resample_lines.h"
#include "scale/resample_driver.h"
#include "scale/scale_line_kernels.h"
#include "scale/scaler.h"

namespace framedsp {

namespace {

constexpr const char *kExport = "DspSubPixelScaler";
constexpr double kCoordLimit = 268435456.0;  // 2^28: region values beyond are refused
constexpr int64_t kOne = int64_t{1} << 32;    // Q32
constexpr int64_t kHalf = kOne / 2;
constexpr uint32_t kKnownOptions = DSP_SCALER_OPTION_STAGED | DSP_SCALER_OPTION_FILTERED;

// The settings words from offset 204, in record order.
enum SettingWord { kEdge, kFill, kCoverage, kAntiRinging, kSiting, kFieldMode, kCubicB, kCubicC,
                   kSliceCount, kSliceNumber, kFirstReserved, kSettingWords = 19 };

bool in_list(uint32_t v, std::initializer_list<uint32_t> list) {
  return std::find(list.begin(), list.end(), v) != list.end();
}

// A double rounded once to Q32 (ties away from zero); false for NaN, infinities and values beyond
// 2^28, and for sizes that round to 0 or below.  ldexp and llround are exact IEEE operations.
bool to_q32(double v, bool size, int64_t *out) {
  if (!(v >= -kCoordLimit && v <= kCoordLimit)) return false;
  const int64_t q = std::llround(std::ldexp(v, 32));
  if (size && q <= 0) return false;
  *out = q;
  return true;
}

int64_t ceil_div(int64_t a, int64_t b) { return a >= 0 ? (a + b - 1) / b : -((-a) / b); }

// The mirror edge rule on a position outside [-1/2, n - 1/2): reflected about the source's edges
// (sample -1 reads 0, n reads n - 1) until it lies inside, so the kernel's window stays in the
// picture however far outside the position was.
int64_t mirror_position(int64_t s, int64_t n) {
  const int64_t lo = -kHalf, hi = n * kOne - kHalf, period = 2 * n * kOne;
  if (s >= lo && s < hi) return s;
  int64_t m = (s - lo) % period;
  if (m < 0) m += period;
  return m < n * kOne ? lo + m : lo + period - m;
}

// Rows of one field (or the whole picture) of an image: image line first + step * i for row i,
// whose centre sits at m * i + d + 1/2 frame lines (Q32 d).
struct Lines {
  int32_t first, step, rows;
  int32_t m;
  int64_t d;
};

// One side of the record after the checks.
struct Side {
  const DSP_SUBPIXEL_IMAGE *im;
  bool field_buffer;        // eBufferType 0 or 1
  bool interleaved;         // a frame whose fields are taken apart
  int64_t x, w, y, h;       // native region, Q32
  int64_t yf, hf;           // the region in frame lines
};

struct Job {
  const uint32_t *settings;
  uint32_t kernel;
  Side in, out;
  uint32_t format;
  bool staged;
  const int16_t *lowpass_h, *lowpass_v;
  int32_t taps_h, taps_v;
};

bool refused(const char *fmt, uint32_t a = 0, uint32_t b = 0) {
  refuse(kExport, fmt, a, b);
  return false;
}

bool check_settings(const DSP_SUBPIXEL_SCALER_PARAMS &p, const uint32_t *s, uint32_t flags) {
  if (p.eFilter > DSP_SUBPIXEL_FILTER_LANCZOS3) return refused("eFilter %u is not 0..3", p.eFilter);
  if (s[kEdge] > DSP_SUBPIXEL_EDGE_UNTOUCHED) return refused("ulEdgeMode %u is not 0..3", s[kEdge]);
  if (s[kAntiRinging] > 256) return refused("ulAntiRingingQ8 %u is above 256", s[kAntiRinging]);
  if (s[kSiting] > 1) return refused("ulChromaSiting %u is not 0 or 1", s[kSiting]);
  if (s[kFieldMode] > 1) return refused("ulFieldMode %u is not 0 or 1", s[kFieldMode]);
  if (s[kCubicB] > 16384 || s[kCubicC] > 16384) return refused("cubic B %u or C %u is above 16384", s[kCubicB], s[kCubicC]);
  const uint32_t count = std::max(s[kSliceCount], 1u), number = std::max(s[kSliceNumber], 1u);
  if (number > count) return refused("band %u of %u", number, count);
  for (int i = kFirstReserved; i < kSettingWords; ++i) {
    if (s[i]) return refused("reserved word at %u is 0x%X, not 0", 204u + 4u * uint32_t(i), s[i]);
  }
  if (p.ulScaleFlags & ~DSP_SCALE_FLAG_DERIVE_SIZE) return refused("ulScaleFlags 0x%X has unknown bits", p.ulScaleFlags);
  if (flags & ~kKnownOptions) return refused("ulOptions 0x%X has unknown bits", flags);
  return true;
}

bool check_image(const char *which, const DSP_SUBPIXEL_IMAGE &im, uint32_t format, bool *null_memory) {
  if (!im.Buffer.pBuffer) *null_memory = true;
  if (im.Buffer.eBufferType > DSP_BUFFER_TYPE_FRAME) return refused("buffer type %u is not 0..2", im.Buffer.eBufferType);
  if (im.Buffer.eBufferType == DSP_BUFFER_TYPE_FRAME && im.eInterlace > DSP_INTERLACE_PROGRESSIVE) {
    return refused("frame interlace %u is not 0..2", im.eInterlace);
  }
  if (im.ulWidth == 0 || im.ulHeight == 0 || im.ulWidth > (1u << 28) || im.ulHeight > (1u << 28)) {
    return refused("image size %ux%u is empty or too large", im.ulWidth, im.ulHeight);
  }
  uint32_t main = format, plane = format;
  split_format(format, &main, &plane);
  const uint32_t cls = scale_layout(main).layout_class;
  if (im.ulWidth % resample_group_pixels(cls)) return refused("image width %u must be even in format %u", im.ulWidth, format);
  const uint64_t line = uint64_t{scale_layout(main).bytes_per_pixel} * im.ulWidth;
  if (im.ulPrimaryStrideBytes < line) return refused("stride %u is shorter than a line (%u bytes)", im.ulPrimaryStrideBytes, uint32_t(line));
  if (is_two_plane(format) && im.ulSecondaryStrideBytes < uint64_t{scale_layout(plane).bytes_per_pixel} * im.ulWidth) {
    return refused("plane stride %u is shorter than a line of %u", im.ulSecondaryStrideBytes, im.ulWidth);
  }
  (void)which;
  return true;
}

// Region values to Q32; the output size from the factors when asked.
bool side_regions(const DSP_SUBPIXEL_SCALER_PARAMS &p, Job *job) {
  const DSP_SUBPIXEL_REGION &ri = job->in.im->Buffer.Region, &ro = job->out.im->Buffer.Region;
  double ow = ro.ulWidth, oh = ro.ulHeight;
  const double ki = job->in.field_buffer ? 2.0 : 1.0, ko = job->out.field_buffer ? 2.0 : 1.0;
  if (p.ulScaleFlags & DSP_SCALE_FLAG_DERIVE_SIZE) {
    ow = ri.ulWidth * static_cast<double>(p.fHorizontalScale);
    oh = ri.ulHeight * ki * static_cast<double>(p.fVerticalScale) / ko;
  }
  Side &i = job->in, &o = job->out;
  if (!to_q32(ri.ptOffset.x, false, &i.x) || !to_q32(ri.ptOffset.y, false, &i.y) || !to_q32(ri.ulWidth, true, &i.w) ||
      !to_q32(ri.ulHeight, true, &i.h)) {
    return refused("input region is not finite, not positive or beyond 2^28");
  }
  if (!to_q32(ro.ptOffset.x, false, &o.x) || !to_q32(ro.ptOffset.y, false, &o.y) || !to_q32(ow, true, &o.w) ||
      !to_q32(oh, true, &o.h)) {
    return refused("output region is not finite, not positive or beyond 2^28");
  }
  for (Side *s : {&i, &o}) {
    s->yf = s->field_buffer ? 2 * s->y : s->y;
    s->hf = s->field_buffer ? 2 * s->h : s->h;
  }
  return true;
}

HRESULT check(const DSP_SUBPIXEL_SCALER_PARAMS &p, const uint32_t *s, const DSP_SUBPIXEL_BUFFER &b, uint32_t flags,
              Job *job) {
  if (!check_settings(p, s, flags)) return kInvalidArg;
  const uint32_t format = b.In.ePixelFormat;
  if (!in_list(format, {0, 1, 5, 21, 22, 23, 24, 25, 28, 30, 31, 129, 261, 262, 263})) {
    return refused("pixel format %u cannot be scaled", format), kInvalidArg;
  }
  if (b.Out.ePixelFormat != format) return refused("output format %u differs from %u", b.Out.ePixelFormat, format), kInvalidArg;
  bool null_memory = false;
  if (!check_image("input", b.In, format, &null_memory) || !check_image("output", b.Out, format, &null_memory)) {
    return kInvalidArg;
  }
  const bool in_frame = b.In.Buffer.eBufferType == DSP_BUFFER_TYPE_FRAME;
  const bool out_frame = b.Out.Buffer.eBufferType == DSP_BUFFER_TYPE_FRAME;
  const bool out_progressive = out_frame && b.Out.eInterlace == DSP_INTERLACE_PROGRESSIVE;
  if (in_frame && out_progressive && b.In.eInterlace == DSP_INTERLACE_INTERLEAVED) {
    return refused("a frame of interleaved fields (interlace 0) into a progressive frame"), kInvalidArg;
  }
  job->settings = s;
  job->kernel = p.eFilter;
  job->format = format;
  job->staged = (flags & DSP_SCALER_OPTION_STAGED) != 0;
  job->in = Side{&b.In, !in_frame, in_frame && !out_progressive && b.In.eInterlace != DSP_INTERLACE_PROGRESSIVE, 0, 0, 0, 0, 0, 0};
  job->out = Side{&b.Out, !out_frame, out_frame && !out_progressive, 0, 0, 0, 0, 0, 0};
  if (!side_regions(p, job)) return kInvalidArg;
  if (null_memory) return kPointer;
  return kOk;
}

// The lines of field `parity` (-1: every line) of a side.
Lines side_lines(const Side &s, int parity, uint32_t field_mode) {
  const uint32_t height = s.im->ulHeight;
  if (s.field_buffer) {
    const int64_t d = field_mode ? kHalf : int64_t{s.im->Buffer.eBufferType} << 32;
    return Lines{0, 1, int32_t(height), 2, d};
  }
  if (parity < 0) return Lines{0, 1, int32_t(height), 1, 0};
  const int64_t d = field_mode ? kHalf : int64_t{parity} << 32;
  return Lines{parity, 2, int32_t((height - uint32_t(parity) + 1) / 2), 2, d};
}

// Rows of a side's plane as the engine reads them (picture order, either orientation).
ResampleRows plane_rows(const DSP_SUBPIXEL_IMAGE &im, const Lines &l, bool key_plane) {
  uint8_t *base = static_cast<uint8_t *>(im.Buffer.pBuffer);
  ptrdiff_t stride = im.ulPrimaryStrideBytes;
  if (key_plane) {
    base += size_t{im.ulHeight} * im.ulPrimaryStrideBytes;
    stride = im.ulSecondaryStrideBytes;
  }
  if (im.eImageOrientation == DSP_ORIENTATION_BOTTOM_UP) {
    base += (ptrdiff_t(im.ulHeight) - 1) * stride;
    stride = -stride;
  }
  return ResampleRows{base + ptrdiff_t(l.first) * stride, stride * l.step};
}

// Units [*lo, *hi) whose centre step * u + offset lies in [r0, r1), clipped to [0, limit).
void units_inside(int64_t r0, int64_t r1, int64_t offset, int64_t step, int64_t limit, int64_t *lo, int64_t *hi) {
  *lo = std::max<int64_t>(ceil_div(r0 - offset, step), 0);
  *hi = std::min<int64_t>(ceil_div(r1 - offset, step), limit);
}

// Q14 share of the cell [a, a + len) inside [r0, r1).
uint32_t cover_q14(int64_t a, int64_t len, int64_t r0, int64_t r1) {
  const int64_t inside = std::max<int64_t>(std::min(a + len, r1) - std::max(a, r0), 0);
  return uint32_t(((inside << 14) + len / 2) / len);
}

}  // namespace

namespace {

// One output field (or the whole picture) of one plane, and what feeds it.
struct Pass {
  Lines in, out;
  bool key;
  uint32_t cls;
  int64_t lo, hi;  // output rows of the field written by the whole call
  ResamplePlan plan;
  WorkBlock rows;  // the row positions
};

// Byte k of the fill word is sample k of a group; 16-bit samples take byte * 257.
void fill_group(uint32_t cls, uint32_t word, bool key, uint8_t *out) {
  const ResampleLayout &l = resample_layout(cls);
  std::memset(out, 0, 8);
  if (key) return;
  for (int k = 0; k < l.lanes && k < 4; ++k) {
    const uint32_t v = (word >> (8 * k)) & 0xFFu;
    if (l.sample_bytes == 2) {
      out[2 * k] = out[2 * k + 1] = static_cast<uint8_t>(v);
    } else {
      out[k] = static_cast<uint8_t>(v);
    }
  }
}

// The passes of the call: output fields chosen by the buffer types, interlace and field flags.
int make_passes(const Job &job, uint32_t buffer_flags, Pass *passes) {
  const uint32_t mode = job.settings[kFieldMode];
  int count = 0;
  auto add = [&](int out_parity, int in_parity) {
    passes[count].out = side_lines(job.out, out_parity, mode);
    passes[count].in = side_lines(job.in, in_parity, mode);
    ++count;
  };
  const int in_type = job.in.field_buffer ? int(job.in.im->Buffer.eBufferType) : -1;
  if (job.out.field_buffer) {
    add(-1, job.in.interleaved ? int(job.out.im->Buffer.eBufferType) : -1);
  } else if (!job.out.interleaved) {
    add(-1, -1);
  } else {
    const uint32_t pick = buffer_flags & (DSP_BUFFER_PROCESS_FIELDA | DSP_BUFFER_PROCESS_FIELDB);
    for (int p = 0; p < 2; ++p) {
      if (pick && !(pick & (p ? DSP_BUFFER_PROCESS_FIELDB : DSP_BUFFER_PROCESS_FIELDA))) continue;
      if (in_type >= 0 && in_type != p) continue;  // a field lands on its own lines only
      add(p, job.in.interleaved ? p : -1);
    }
  }
  return count;
}

// Builds the plan of one pass: row positions, then the engine's plan over the shared columns.
HRESULT build_pass(const Job &job, const ResampleAxis &cols, Pass *pass) {
  const Side &in = job.in, &out = job.out;
  const Lines &o = pass->out, &i = pass->in;
  units_inside(out.yf, out.yf + out.hf, o.d + kHalf, o.m * kOne, o.rows, &pass->lo, &pass->hi);
  const int64_t n = std::max<int64_t>(pass->hi - pass->lo, 0);
  if (n == 0 || i.rows == 0) return kOk;
  if (!pass->rows.allocate(size_t(n) * sizeof(int64_t) + 16)) return kOutOfMemory;
  int64_t *pos = reinterpret_cast<int64_t *>(pass->rows.aligned());
  for (int64_t r = 0; r < n; ++r) {
    const int64_t centre = o.m * (pass->lo + r) * kOne + o.d + kHalf;
    int64_t y = 0;
    if (!mul_div(centre - out.yf, uint64_t(in.hf), uint64_t(out.hf), &y)) return kInvalidArg;
    const int64_t s = in.yf + y - kHalf - i.d;
    pos[r] = i.m == 2 ? s >> 1 : s;
    if (job.settings[kEdge] == DSP_SUBPIXEL_EDGE_MIRROR) pos[r] = mirror_position(pos[r], i.rows);
  }
  int64_t widen = 0;
  if (!mul_div(int64_t{65536} * o.m, uint64_t(in.hf), uint64_t(out.hf) * uint64_t(i.m), &widen)) return kInvalidArg;
  ResampleSetup setup{};
  setup.cls = pass->cls;
  setup.kernel = job.kernel;
  const bool catmull_rom = job.settings[kCubicB] == 0 && job.settings[kCubicC] == 0;
  setup.cubic_b_q14 = int32_t(job.settings[kCubicB]);
  setup.cubic_c_q14 = catmull_rom ? 8192 : int32_t(job.settings[kCubicC]);
  setup.cols = cols;
  setup.rows = ResampleAxis{pos, int32_t(n), i.rows, uint32_t(std::min<int64_t>(widen, INT32_MAX)), nullptr,
                            job.lowpass_v, job.taps_v};
  setup.chroma_siting = job.settings[kSiting];
  setup.edge = job.settings[kEdge];
  fill_group(pass->cls, job.settings[kFill], pass->key, setup.fill);
  setup.anti_ringing_q8 = job.settings[kAntiRinging];
  return resample_plan_build(setup, cpu_flags(), &pass->plan);
}

struct ColumnRange {
  int64_t u0, u1;  // written units
  int64_t px;
};

ResampleCoverage pass_coverage(const Job &job, const Pass &pass, const ColumnRange &c) {
  const Side &out = job.out;
  const int64_t unit = c.px * kOne;
  const int64_t first_u = c.u0 + pass.plan.col_first / c.px;
  const int64_t last_u = first_u + pass.plan.col_count / c.px - 1;
  const int64_t first_r = pass.lo + pass.plan.row_first, last_r = first_r + pass.plan.row_count - 1;
  // Rows are cells of the output's own lines: image lines of a frame, field lines of a field.
  const int64_t f0 = out.field_buffer ? first_r : pass.out.first + pass.out.step * first_r;
  const int64_t f1 = out.field_buffer ? last_r : pass.out.first + pass.out.step * last_r;
  return ResampleCoverage{cover_q14(first_u * unit, unit, out.x, out.x + out.w),
                          cover_q14(last_u * unit, unit, out.x, out.x + out.w),
                          cover_q14(f0 * kOne, kOne, out.y, out.y + out.h),
                          cover_q14(f1 * kOne, kOne, out.y, out.y + out.h)};
}

// Output rows [*b0, *b1) of a pass in the call's band: band n of c takes image lines
// [F0 + L (n - 1) / c, F0 + L n / c) of the span F0 .. F0 + L - 1 of every written line.
void band_rows(const Pass &p, int64_t f_lo, int64_t f_hi, int64_t *b0, int64_t *b1) {
  *b0 = std::max(p.lo, ceil_div(f_lo - p.out.first, p.out.step));
  *b1 = std::min(p.hi, ceil_div(f_hi - p.out.first, p.out.step));
}

HRESULT run_pass(const Job &job, Pass &p, ResampleRows dst, int64_t b0, int64_t b1, const ResampleCoverage *cov,
                 ColorFinish *color) {
  const ResampleRows src = plane_rows(*job.in.im, p.in, p.key);
  return resample_run_rows(p.plan, p.cls, src, dst, int32_t(b0 - p.lo), int32_t(b1 - p.lo), job.staged, cov, color);
}

HRESULT scale(const DSP_SUBPIXEL_SCALER_PARAMS &params, const uint32_t *settings, const DSP_SUBPIXEL_BUFFER &buffer,
              uint32_t flags, Job *job) {
  HRESULT hr = check(params, settings, buffer, flags, job);
  if (hr != kOk) return hr;
  uint32_t main = job->format, plane = job->format;
  split_format(job->format, &main, &plane);
  const bool two = is_two_plane(job->format);
  const uint32_t main_cls = scale_layout(main).layout_class;

  // Columns: written units (pixel pairs in the 4:2:2 classes), one position a pixel.
  const Side &in = job->in, &out = job->out;
  ColumnRange c{0, 0, int64_t(resample_group_pixels(main_cls))};
  units_inside(out.x, out.x + out.w, c.px * kHalf, c.px * kOne, out.im->ulWidth / c.px, &c.u0, &c.u1);
  const int64_t pixels = std::max<int64_t>(c.u1 - c.u0, 0) * c.px;
  if (pixels == 0) return kOk;
  WorkBlock col_block;
  if (!col_block.allocate(size_t(pixels) * sizeof(int64_t) + 16)) return kOutOfMemory;
  int64_t *cpos = reinterpret_cast<int64_t *>(col_block.aligned());
  for (int64_t j = 0; j < pixels; ++j) {
    int64_t x = 0;
    if (!mul_div((c.u0 * c.px + j) * kOne + kHalf - out.x, uint64_t(in.w), uint64_t(out.w), &x)) return kInvalidArg;
    cpos[j] = in.x + x - kHalf;
    if (settings[kEdge] == DSP_SUBPIXEL_EDGE_MIRROR) cpos[j] = mirror_position(cpos[j], in.im->ulWidth);
  }
  int64_t widen = 0;
  if (!mul_div(65536, uint64_t(in.w), uint64_t(out.w), &widen)) return kInvalidArg;
  ResampleAxis cols{cpos, int32_t(pixels), int32_t(in.im->ulWidth), uint32_t(std::min<int64_t>(widen, INT32_MAX)),
                    nullptr, job->lowpass_h, job->taps_h};

  // Every plan is built before the first byte is written, so a refusal leaves the output alone.
  Pass passes[4];
  Pass fields[2];
  const int field_count = make_passes(*job, buffer.ulFlags, fields);
  int count = 0;
  for (int f = 0; f < field_count; ++f) {
    for (int k = 0; k < (two ? 2 : 1); ++k) {
      Pass &p = passes[count++];
      p.in = fields[f].in;
      p.out = fields[f].out;
      p.key = k == 1;
      p.cls = scale_layout(k == 1 ? plane : main).layout_class;
      hr = build_pass(*job, cols, &p);
      if (hr != kOk) return hr == kInvalidArg ? (refused("the mapping needs more taps or range than the engine has"), hr) : hr;
    }
  }
  int64_t f_lo = INT64_MAX, f_hi = INT64_MIN;
  for (int i = 0; i < count; ++i) {
    const Pass &p = passes[i];
    if (!p.plan.data()) continue;
    const int64_t a = p.lo + p.plan.row_first, b = a + p.plan.row_count;
    f_lo = std::min(f_lo, p.out.first + p.out.step * a);
    f_hi = std::max(f_hi, p.out.first + p.out.step * (b - 1) + 1);
  }
  if (f_lo >= f_hi) return kOk;
  const int64_t bands = std::max(settings[kSliceCount], 1u), band = std::max(settings[kSliceNumber], 1u);
  const int64_t span = f_hi - f_lo;
  const int64_t band_lo = f_lo + span * (band - 1) / bands, band_hi = f_lo + span * band / bands;

  ColorFinish color{};
  ScaleLineTable lines;
  scale_line_table_init(&lines, cpu_flags());
  const bool converts = !has_full_chroma(job->format) && lines.convert[main_cls] &&
                        scale_color_coefficients(in.im->eColorSpace, out.im->eColorSpace, &color.k);
  color.convert = converts ? lines.convert[main_cls] : nullptr;
  for (int i = 0; i < count; ++i) {
    Pass &p = passes[i];
    if (!p.plan.data()) continue;
    int64_t b0 = 0, b1 = 0;
    band_rows(p, band_lo, band_hi, &b0, &b1);
    ResampleRows dst = plane_rows(*out.im, p.out, p.key);
    const size_t group = resample_group_bytes(p.cls), px = resample_group_pixels(p.cls);
    // Signed: the stride of a bottom-up image is negative.
    dst.base += ptrdiff_t(size_t(c.u0 * c.px) / px * group) + ptrdiff_t(p.lo) * dst.stride;
    const ResampleCoverage cov = pass_coverage(*job, p, c);
    hr = run_pass(*job, p, dst, b0, b1, settings[kCoverage] ? &cov : nullptr, converts && !p.key ? &color : nullptr);
    if (hr != kOk) return hr;
  }
  return kOk;
}

}  // namespace

HRESULT subpixel_scaler_worker(const DSP_SUBPIXEL_SCALER_PARAMS *params, const uint32_t *settings,
                               const DSP_SUBPIXEL_BUFFER *buffer, uint32_t flags) {
  worker_entry(kExport);
  Job job{};
  return scale(*params, settings, *buffer, flags, &job);
}

HRESULT filtered_subpixel_scaler_worker(const DSP_SUBPIXEL_SCALER_PARAMS *params, FilterSubRecord filter,
                                        const uint32_t *settings, const DSP_SUBPIXEL_BUFFER *buffer,
                                        uint32_t flags) {
  worker_entry(kExport);
  LowpassRows rows;
  const HRESULT hr = lowpass_rows(kExport, filter, &rows);
  if (hr != kOk) return hr;
  Job job{};
  job.lowpass_h = rows.h;
  job.taps_h = rows.h_taps;
  job.lowpass_v = rows.v;
  job.taps_v = rows.v_taps;
  return scale(*params, settings, *buffer, flags, &job);
}

}  // namespace framedsp
