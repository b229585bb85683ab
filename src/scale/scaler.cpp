// The scaler workers.  The export frame has already picked plain or filtered by the call flags.
// DspScaler's general driver: geometry step, fast-path choice, validation, plane split, staged
// mode, no-scaling copy and kernel dispatch; the filtered path on the same pieces.  The non-uniform
// and sub-pixel scalers live in their own files.
#include "scale/scaler.h"

#include <algorithm>
#include <cmath>

#include "copy/smart_copy.h"
#include "filter/filter.h"
#include "lines/buffer_record.h"
#include "lines/buffer_rules.h"
#include "lines/line_walk.h"
#include "lines/pixel_format.h"
#include "platform/trace.h"
#include "platform/work_memory.h"
#include "scale/fast_paths.h"
#include "scale/scale_filtered.h"
#include "scale/scale_frame.h"
#include "scale/scale_line_kernels.h"

namespace framedsp {

namespace {

constexpr const char *kExport = "DspScaler";

// floor(x + 0.5) of a double, truncated to 32 bits (NaN gives 0).
uint32_t derived_size(double x) {
  double v = std::floor(x + 0.5);
  if (!(v == v)) return 0;
  v = std::fmod(v, 4294967296.0);
  if (v < 0) v += 4294967296.0;
  return static_cast<uint32_t>(v);
}

bool converts_color(const DSP_BUFFER &b) {
  return b.In.eColorSpace != b.Out.eColorSpace && !has_full_chroma(b.In.ePixelFormat);
}

HRESULT run_kernel(const ScaleSetup &s, const DSP_BUFFER &norm) {
  const ScaleFrameKernel *table = converts_color(norm) ? scale_color_kernels() : scale_plain_kernels();
  if (s.mode == kScaleModeNone) return kInvalidArg;
  const ScaleFrameKernel kernel = table[s.mode + 3 * static_cast<int>(s.filter)];
  if (!kernel) return kInvalidArg;
  return kernel(&norm);
}

// Staged mode: run `kernel` into a private top-down image shaped like the output region (rows
// padded to 16 bytes), then move the lines it wrote into the real output.
template <class Kernel>
HRESULT run_staged(const DSP_BUFFER &norm, Kernel &&kernel) {
  WorkBlock image;
  DSP_BUFFER stage = norm;
  DSP_IMAGE &p = stage.Out;
  const HRESULT made = scale_private_image(norm.Out, uint64_t{1} << 40, &image, &p);
  if (made != kOk) return made;
  const HRESULT hr = kernel(static_cast<const DSP_BUFFER &>(stage));
  if (hr != kOk) return hr;
  scale_copy_back(p, norm);
  image.release();
  return kOk;
}

// `run` over the planes of a scaled record: both planes of a two-plane format one after the
// other, else the one plane, straight or (staged mode) through a private picture.
template <class Run>
HRESULT run_planes(const DSP_BUFFER &norm, uint32_t options, Run &&run) {
  const uint32_t format = norm.Out.ePixelFormat;
  if (is_two_plane(format)) return for_each_plane(norm, run);
  if ((options & DSP_SCALER_OPTION_STAGED) && staged_format(format)) return run_staged(norm, run);
  return run(norm);
}

}  // namespace

HRESULT scale_geometry(const DSP_SCALER_PARAMS &params, const DSP_BUFFER &caller, ScaleSetup *s) {
  s->filter = params.eFilter;
  if (params.eFilter > 2) return refuse(kExport, "eFilter %u is not 0, 1 or 2", params.eFilter), kInvalidArg;
  DSP_BUFFER raw = caller;
  const DSP_IMAGE &in = raw.In;
  DSP_IMAGE &out = raw.Out;
  const bool in_frame = in.Buffer.eBufferType == DSP_BUFFER_TYPE_FRAME;
  const bool in_field = in.Buffer.eBufferType <= 1;
  const bool out_frame = out.Buffer.eBufferType == DSP_BUFFER_TYPE_FRAME;
  const bool out_field = out.Buffer.eBufferType <= 1;
  s->field_factor = (in_field && out_frame) ? 2.0f : ((in_frame && out_field) ? 0.5f : 1.0f);

  const int64_t in_x = in.Buffer.Region.ptOffset.x, in_y = in.Buffer.Region.ptOffset.y;
  if (in_x < 0 || in_y < 0 || int64_t{in.Buffer.Region.ulWidth} + in_x > in.ulWidth) {
    refuse(kExport, "input region (x %lld, width %u) does not fit the image width %u",
           static_cast<long long>(in_x), in.Buffer.Region.ulWidth, in.ulWidth);
    return kInvalidArg;
  }
  if (int64_t{in.Buffer.Region.ulHeight} + in_y > in.ulHeight) {
    refuse(kExport, "input region (y %lld, height %u) does not fit the image height %u",
           static_cast<long long>(in_y), in.Buffer.Region.ulHeight, in.ulHeight);
    return kInvalidArg;
  }
  const int64_t out_x = out.Buffer.Region.ptOffset.x, out_y = out.Buffer.Region.ptOffset.y;
  if (out_x < 0 || out_y < 0 || out_x > out.ulWidth || out_y > out.ulHeight) {
    refuse(kExport, "output region origin (%lld, %lld) lies outside the output image",
           static_cast<long long>(out_x), static_cast<long long>(out_y));
    return kInvalidArg;
  }
  const uint32_t room_w = out.ulWidth - static_cast<uint32_t>(out_x);
  const uint32_t room_h = out.ulHeight - static_cast<uint32_t>(out_y);
  const bool derive = (params.ulScaleFlags & DSP_SCALE_FLAG_DERIVE_SIZE) != 0;
  if (derive) {
    const double w = static_cast<double>(in.Buffer.Region.ulWidth) * static_cast<double>(params.fHorizontalScale);
    const double h = static_cast<double>(in.Buffer.Region.ulHeight) * static_cast<double>(s->field_factor) *
                     static_cast<double>(params.fVerticalScale);
    out.Buffer.Region.ulWidth = std::min(derived_size(w), room_w);
    out.Buffer.Region.ulHeight = std::min(derived_size(h), room_h);
    // A frame keeps whole line pairs: an odd derived height grows by one line (or, with no room
    // below, shrinks by one).
    if (out_frame && odd(out.Buffer.Region.ulHeight)) {
      out.Buffer.Region.ulHeight += out.Buffer.Region.ulHeight < room_h ? 1 : -1;
    }
  } else if (out.Buffer.Region.ulWidth > room_w || out.Buffer.Region.ulHeight > room_h) {
    refuse(kExport, "output region %ux%u is larger than the room %ux%u", out.Buffer.Region.ulWidth,
           out.Buffer.Region.ulHeight, room_w, room_h);
    return kInvalidArg;
  }
  const bool width_differs = out.Buffer.Region.ulWidth != in.Buffer.Region.ulWidth;
  const bool height_differs =
      static_cast<double>(out.Buffer.Region.ulHeight) !=
      static_cast<double>(in.Buffer.Region.ulHeight) * static_cast<double>(s->field_factor);
  s->mode = width_differs ? (height_differs ? kScaleModeBoth : kScaleModeHorizontal)
                          : (height_differs ? kScaleModeVertical : kScaleModeNone);
  s->raw = raw;
  s->norm = raw;
  normalise_orientation(&s->norm);
  return kOk;
}

HRESULT scale_validate(const DSP_SCALER_PARAMS &params, const DSP_BUFFER &b) {
  if (params.eFilter > 2) return refuse(kExport, "eFilter %u is not 0, 1 or 2", params.eFilter), kInvalidArg;
  const uint32_t format = b.In.ePixelFormat;
  if (!scale_format(format)) {
    refuse(kExport, "pixel format %u cannot be scaled", format);
    return kInvalidArg;
  }
  if (b.Out.ePixelFormat != format) {
    refuse(kExport, "output format %u differs from the input format %u", b.Out.ePixelFormat, format);
    return kInvalidArg;
  }
  if (interleaved_frame_into_progressive(b.In, b.Out)) {
    refuse(kExport, "a frame with interleaved fields (interlace 0) cannot become a progressive frame");
    return kInvalidArg;
  }
  if (!has_full_chroma(format) && !integer_widths_even(b.In, b.Out)) {
    refuse(kExport, "format %u needs even image and region widths (in %u/%u, out %u/%u)", format, b.In.ulWidth,
           b.In.Buffer.Region.ulWidth, b.Out.ulWidth, b.Out.Buffer.Region.ulWidth);
    return kInvalidArg;
  }
  if (!b.In.Buffer.pBuffer || !b.Out.Buffer.pBuffer) {
    refuse(kExport, "an image has no memory (pBuffer is null)");
    return kInvalidArg;
  }
  const bool selects = (b.ulFlags & (DSP_BUFFER_PROCESS_FIELDA | DSP_BUFFER_PROCESS_FIELDB)) != 0;
  if (selects) {
    if (b.In.eInterlace != 0 && b.Out.eInterlace != 0) {
      refuse(kExport, "field selection needs input interlace 0, or output interlace 0 (in %u, out %u)",
             b.In.eInterlace, b.Out.eInterlace);
      return kInvalidArg;
    }
  } else if (b.In.eInterlace == 0 || b.Out.eInterlace == 0) {
    refuse(kExport, "interlace 0 needs DSP_BUFFER_PROCESS_FIELDA or FIELDB (in %u, out %u)", b.In.eInterlace,
           b.Out.eInterlace);
    return kInvalidArg;
  }
  return kOk;
}

HRESULT scaler_worker(const DSP_SCALER_PARAMS *params, const DSP_BUFFER *buffer, uint32_t flags) {
  worker_entry("DspScaler");
  ScaleSetup s;
  HRESULT hr = scale_geometry(*params, *buffer, &s);
  if (hr != kOk) return hr;

  const FastPathCall call{params, s.norm, s.field_factor, params->ulScaleFlags};
  if (params->eScalerPath == DSP_SCALER_PATH_INTEGER_RATIO && integer_ratio_eligible(call)) {
    return integer_ratio_scale(call);
  }
  if (params->eScalerPath == DSP_SCALER_PATH_HD_WIDTH && hd_width_eligible(call)) {
    return hd_width_scale(call);
  }
  hr = scale_validate(*params, s.norm);
  if (hr != kOk) return hr;

  if (s.mode == kScaleModeNone) {
    // Nothing to scale: the format copy (colour-converting when the spaces differ), staged or not.
    return smart_copy_unchecked(&s.raw) == kOk ? kOk : kFail;
  }
  return run_planes(s.norm, flags, [&s](const DSP_BUFFER &b) { return run_kernel(s, b); });
}

HRESULT filtered_scaler_worker(const DSP_SCALER_PARAMS *params, FilterSubRecord filter,
                               const DSP_BUFFER *buffer, uint32_t flags) {
  worker_entry("DspScaler");
  // General validation on the caller's record, then the geometry step, which fixes the output
  // region; the same validation again on the final sizes (a derived width can be odd).
  HRESULT hr = scale_validate(*params, *buffer);
  if (hr != kOk) return hr;
  ScaleSetup s;
  hr = scale_geometry(*params, *buffer, &s);
  if (hr != kOk) return hr;
  hr = scale_validate(*params, s.norm);
  if (hr != kOk) return hr;

  if (*filter.filter_type != DSP_FILTER_TYPE_FIR) {
    refuse(kExport, "filtered path: filter type %u is not 1 (FIR)", *filter.filter_type);
    return kInvalidArg;
  }
  if (!filter.settings) {
    refuse(kExport, "filtered path: FIR filter without settings (pSettings is null)");
    return kInvalidArg;
  }
  const DSP_FIR_SETTINGS &settings = *static_cast<const DSP_FIR_SETTINGS *>(filter.settings);
  FirRows rows;
  hr = fir_rows_from_settings(kExport, settings, &rows);
  if (hr != kOk) return hr;
  const bool horz = rows.horz != nullptr;
  const bool vert = rows.vert != nullptr;

  if (s.mode == kScaleModeNone) {
    if (!horz && !vert) return smart_copy_unchecked(&s.raw) == kOk ? kOk : kFail;
    // Nothing scaled: DspFilter's FIR on the regions, which must agree as DspFilter wants them.
    DSP_FILTER_PARAMS fp{};
    fp.eFilterType = DSP_FILTER_TYPE_FIR;
    fp.pSettings = filter.settings;
    fp.Buffer = s.raw;
    if (filter_validate(&fp) != kOk) {
      refuse(kExport, "filtered path without scaling: the regions do not agree for the filter");
      return kInvalidArg;
    }
    return filter_apply(&fp, &s.raw, 0);
  }

  const bool combined = (horz && s.mode == kScaleModeHorizontal) || (vert && s.mode == kScaleModeVertical) ||
                        (horz && vert && s.mode == kScaleModeBoth);
  ScaleFirRows fir{nullptr, nullptr, 0, 0};
  if (s.mode != kScaleModeVertical) fir.horz = rows.horz, fir.horz_taps = rows.horz_taps;
  if (s.mode != kScaleModeHorizontal) fir.vert = rows.vert, fir.vert_taps = rows.vert_taps;
  const int index = s.mode + 3 * static_cast<int>(s.filter);
  auto run = [&](const DSP_BUFFER &b) -> HRESULT {
    if (!combined) return run_kernel(s, b);
    const ScaleFilterKernel *table = converts_color(b) ? scale_filter_color_kernels() : scale_filter_plain_kernels();
    const ScaleFilterKernel kernel = table[index];
    if (!kernel) return kInvalidArg;
    return kernel(&b, fir);
  };
  return run_planes(s.norm, flags, run);
}

}  // namespace framedsp
