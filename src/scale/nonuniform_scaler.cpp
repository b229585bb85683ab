// DspNonUniformScaler: DspScaler's regions, fields and bands with a uniform or panoramic column
// mapping.  Mode 0 with nearest or linear is DspScaler's own worker (its bytes and its speed).
// Everything else samples through the resampling engine: one plan per plane and run, built from a
// table of column positions and DspScaler's line positions, every plan before the first byte is
// written, so a refusal leaves the output alone.
#include <algorithm>
#include <climits>

#include "lines/line_walk.h"
#include "lines/pixel_format.h"
#include "platform/cpu.h"
#include "platform/trace.h"
#include "platform/work_memory.h"
#include "resample/resample.h"
#include "scale/panorama_map.h"
#include "scale/resample_driver.h"
#include "scale/scale_frame.h"
#include "scale/scale_line_kernels.h"
#include "scale/scaler.h"

namespace framedsp {
namespace {

constexpr const char *kExport = "DspNonUniformScaler";
constexpr uint32_t kKnownOptions = DSP_SCALER_OPTION_STAGED | DSP_SCALER_OPTION_FILTERED;
constexpr uint32_t kUnitScale = 16384;
constexpr int kMaxPasses = 4;  // two planes of two runs

uint32_t centre_scale(const DSP_NONUNIFORM_SCALER_PARAMS &p) {
  return p.ulCentreScaleQ14 ? p.ulCentreScaleQ14 : kUnitScale;
}

bool check_settings(const DSP_NONUNIFORM_SCALER_PARAMS &p, uint32_t flags) {
  if (p.eStretchMode > DSP_STRETCH_PANORAMA_INVERSE) return refuse(kExport, "eStretchMode %u is not 0..2", p.eStretchMode);
  if (p.eFilter > DSP_SUBPIXEL_FILTER_LANCZOS3) return refuse(kExport, "eFilter %u is not 0..3", p.eFilter);
  if (p.ulCentreWidthQ14 >= 16384) return refuse(kExport, "ulCentreWidthQ14 %u is not below 16384", p.ulCentreWidthQ14);
  const uint32_t r = centre_scale(p);
  if (r > kPanoramaMaxScaleQ14) return refuse(kExport, "ulCentreScaleQ14 %u is above 65536", r);
  if (panorama_folds(p.ulCentreWidthQ14, r)) {
    return refuse(kExport, "centre width %u with centre scale %u folds the picture (3 x scale - width <= 32768)",
                  p.ulCentreWidthQ14, r);
  }
  if (p.ulReserved) return refuse(kExport, "ulReserved is 0x%X, not 0", p.ulReserved);
  if (flags & ~kKnownOptions) return refuse(kExport, "ulOptions 0x%X has unknown bits", flags);
  return true;
}

// DspScaler's record for the same regions: general path, sizes as given.
DSP_SCALER_PARAMS as_scaler(const DSP_NONUNIFORM_SCALER_PARAMS &p, uint32_t filter) {
  DSP_SCALER_PARAMS s{};
  s.eFilter = filter;
  s.eFilterType = p.eFilterType;
  s.pSettings = p.pSettings;
  s.ulReserved = p.ulReserved2;
  s.Buffer = p.Buffer;
  s.ulOptions = p.ulOptions;
  return s;
}

HRESULT scaler_path(const DSP_SCALER_PARAMS &s, const FilterSubRecord *filter) {
  if (filter) return filtered_scaler_worker(&s, FilterSubRecord{&s.eFilterType, s.pSettings}, &s.Buffer, s.ulOptions);
  return scaler_worker(&s, &s.Buffer, s.ulOptions);
}

struct Job {
  uint32_t mode, kernel, centre, scale;
  int scale_mode;
  bool staged;
  const LowpassRows *lowpass;  // null: the plain worker
};

// One run of one plane: its plan and where it reads and writes.
struct Pass {
  ResamplePlan plan;
  WorkBlock rows;
  ResampleRows src, dst;
  int32_t begin, end;
  uint32_t cls;
  bool convert;
  ColorFinish color;
};

struct Columns {
  WorkBlock block;
  ResampleAxis axis;
  const int64_t *chroma;
};

int32_t whole_groups(int32_t pixels, uint32_t group) { return group == 2 ? pixels & ~int32_t{1} : pixels; }

uint32_t widen_of(uint64_t step_q14) { return uint32_t(std::min<uint64_t>(step_q14 << 2, INT32_MAX)); }

// Mode 0: DspScaler's step, every component of column j at j * hstep (chroma: group g at g *
// hstep).  Modes 1 and 2: the panorama, widened column by column where it reduces.
HRESULT make_columns(const Job &job, uint32_t cls, int32_t src_cols, int32_t dst_cols, Columns *out) {
  const size_t n = size_t(dst_cols);
  const bool chroma = job.mode == DSP_STRETCH_UNIFORM && resample_group_pixels(cls) == 2;
  if (!out->block.allocate(n * 12 + n * 4 + 64)) return kOutOfMemory;
  int64_t *pos = reinterpret_cast<int64_t *>(out->block.aligned());
  int64_t *cpos = pos + n;
  uint32_t *widen = reinterpret_cast<uint32_t *>(pos + n + n / 2 + 1);
  ResampleAxis &a = out->axis;
  a = ResampleAxis{pos, dst_cols, src_cols, 65536, nullptr, nullptr, 0};
  if (job.lowpass) a.lowpass = job.lowpass->h, a.lowpass_taps = job.lowpass->h_taps;
  out->chroma = chroma ? cpos : nullptr;
  if (job.mode == DSP_STRETCH_UNIFORM) {
    const uint64_t hstep = std::min<uint64_t>((uint64_t(src_cols) << kScaleFractionBits) / uint64_t(dst_cols), 0xFFFFFFFFu);
    for (size_t j = 0; j < n; ++j) pos[j] = int64_t(j * hstep) << 18;
    for (size_t g = 0; chroma && g < n / 2; ++g) cpos[g] = int64_t(g * hstep) << 18;
    a.widen_q16 = widen_of(hstep);
    return kOk;
  }
  const uint32_t most = panorama_max_widen_q16(job.mode, job.centre, job.scale, uint32_t(src_cols), uint32_t(dst_cols));
  const bool each = most > 65536;
  if (!panorama_columns(job.mode, job.centre, job.scale, uint32_t(src_cols), uint32_t(dst_cols), pos,
                        each ? widen : nullptr)) {
    return refuse(kExport, "region widths %d -> %d are beyond the mapping's range", src_cols, dst_cols), kInvalidArg;
  }
  if (each) {
    // One reduction for every column (a centre scale of 1) keeps the engine's per-phase rows.
    const bool uniform = std::all_of(widen, widen + n, [&](uint32_t w) { return w == widen[0]; });
    a.widen_q16 = widen[0];
    a.widen_each = uniform ? nullptr : widen;
  }
  return kOk;
}

// The plans of one plane: one per run of DspScaler's line walk that has lines in this band.
HRESULT plan_plane(const Job &job, const DSP_BUFFER &plane, Pass *passes, int *count) {
  const LineLayout layout = scale_layout(plane.In.ePixelFormat);
  const LineWalk walk(plane, layout, LineRules::kScale);
  const LCtrl &c = walk.control();
  const int32_t src_cols = whole_groups(c.src_columns, layout.group);
  const int32_t dst_cols = whole_groups(c.dst_columns, layout.group);
  if (dst_cols <= 0 || c.dst_height <= 0) return kOk;
  if (src_cols <= 0) return refuse(kExport, "the input region is empty"), kInvalidArg;
  const uint32_t cls = layout.layout_class;
  Columns cols;
  HRESULT hr = make_columns(job, cls, src_cols, dst_cols, &cols);
  if (hr != kOk) return hr;
  // DspScaler's line step: a field into a frame reads each field line for two frame lines, a
  // frame into a field every second line.
  const uint64_t vstep = job.scale_mode == kScaleModeHorizontal
                             ? kScaleOne
                             : ((uint64_t(std::max(c.src_height, 0)) << kScaleFractionBits) << c.src_field_frame) /
                                   (uint64_t(c.dst_height) << c.dst_field_frame);
  ScaleLineTable lines;
  scale_line_table_init(&lines, cpu_flags());
  ColorFinish color{};
  const bool convert = plane.In.eColorSpace != plane.Out.eColorSpace && !has_full_chroma(plane.In.ePixelFormat) &&
                       lines.convert[cls] &&
                       scale_color_coefficients(plane.In.eColorSpace, plane.Out.eColorSpace, &color.k);
  color.convert = convert ? lines.convert[cls] : nullptr;
  for (int r = 0; r < walk.run_count(); ++r) {
    const LineRun &run = walk.run(r);
    if (run.begin >= run.end) continue;
    Pass &p = passes[(*count)++];
    const int32_t n = run.dst.count;
    if (!p.rows.allocate(size_t(n) * 8 + 16)) return kOutOfMemory;
    int64_t *pos = reinterpret_cast<int64_t *>(p.rows.aligned());
    // Lines beyond 2^29 are beyond the engine's positions (it refuses them).
    for (int32_t k = 0; k < n; ++k) pos[k] = int64_t(std::min<uint64_t>(uint64_t(k) * vstep, uint64_t{1} << 43) << 18);
    ResampleSetup setup{};
    setup.cls = cls;
    setup.kernel = job.kernel;
    setup.cubic_c_q14 = 8192;  // Catmull-Rom
    setup.phase_bits = job.mode == DSP_STRETCH_UNIFORM ? kScaleFractionBits : 0;
    setup.cols = cols.axis;
    setup.rows = ResampleAxis{pos, n, run.src.count, widen_of(vstep), nullptr, nullptr, 0};
    if (job.lowpass) setup.rows.lowpass = job.lowpass->v, setup.rows.lowpass_taps = job.lowpass->v_taps;
    setup.chroma_pos = cols.chroma;
    setup.edge = kResampleRepeat;
    hr = resample_plan_build(setup, cpu_flags(), &p.plan);
    if (hr == kInvalidArg) return refuse(kExport, "the reduction needs more taps than the engine has"), hr;
    if (hr != kOk) return hr;
    const LineSide &s = walk.source(), &d = walk.destination();
    p.src = ResampleRows{s.line(run.src.first), ptrdiff_t(s.stride) * s.sign * run.src.step};
    p.dst = ResampleRows{d.line(run.dst.first), ptrdiff_t(d.stride) * d.sign * run.dst.step};
    p.begin = run.begin;
    p.end = run.end;
    p.cls = cls;
    p.convert = convert;
    p.color = color;
  }
  return kOk;
}

HRESULT scale(const DSP_NONUNIFORM_SCALER_PARAMS &p, uint32_t flags, const FilterSubRecord *filter) {
  if (!check_settings(p, flags)) return kInvalidArg;
  if (p.eStretchMode == DSP_STRETCH_UNIFORM && p.eFilter <= DSP_SUBPIXEL_FILTER_LINEAR) {
    return scaler_path(as_scaler(p, p.eFilter), filter);
  }
  // DspScaler's checks in its order (the filtered path validates the record as given first); its
  // eFilter plays no part in them.
  const DSP_SCALER_PARAMS s = as_scaler(p, 0);
  HRESULT hr = filter ? scale_validate(s, p.Buffer) : kOk;
  ScaleSetup setup;
  if (hr == kOk) hr = scale_geometry(s, p.Buffer, &setup);
  if (hr == kOk) hr = scale_validate(s, setup.norm);
  if (hr != kOk) return hr;
  LowpassRows lowpass{};
  if (filter && (hr = lowpass_rows(kExport, *filter, &lowpass)) != kOk) return hr;
  if (setup.mode == kScaleModeNone && (p.eStretchMode == DSP_STRETCH_UNIFORM || centre_scale(p) == kUnitScale)) {
    return scaler_path(s, filter);  // nothing to scale: DspScaler's copy (or DspFilter's FIR)
  }
  const uint32_t format = setup.norm.Out.ePixelFormat;
  const Job job{p.eStretchMode, p.eFilter, p.ulCentreWidthQ14, centre_scale(p), setup.mode,
                (flags & DSP_SCALER_OPTION_STAGED) != 0 && staged_format(format), filter ? &lowpass : nullptr};
  Pass passes[kMaxPasses];
  int count = 0;
  hr = for_each_plane(setup.norm, [&](const DSP_BUFFER &plane) { return plan_plane(job, plane, passes, &count); });
  if (hr != kOk) return hr;
  for (int i = 0; i < count; ++i) {
    Pass &q = passes[i];
    hr = resample_run_rows(q.plan, q.cls, q.src, q.dst, q.begin, q.end, job.staged, nullptr,
                           q.convert ? &q.color : nullptr);
    if (hr != kOk) return hr;
  }
  return kOk;
}

}  // namespace

HRESULT nonuniform_scaler_worker(const DSP_NONUNIFORM_SCALER_PARAMS *params, uint32_t flags) {
  worker_entry(kExport);
  return scale(*params, flags, nullptr);
}

HRESULT filtered_nonuniform_scaler_worker(const DSP_NONUNIFORM_SCALER_PARAMS *params, FilterSubRecord filter,
                                          uint32_t flags) {
  worker_entry(kExport);
  return scale(*params, flags, &filter);
}

}  // namespace framedsp
