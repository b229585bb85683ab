#include "filter/filter.h"

#include "frame/guard.h"
#include "frame/buffer_rules.h"
#include "frame/pixel_format.h"
#include "frame/trace.h"
#include "frame/work_memory.h"
#include "filter/filter_planes.h"
#include "lines/smart_copy.h"

namespace framedsp {

HRESULT filter_validate(const DSP_FILTER_PARAMS *params) {
  const DSP_IMAGE &in = params->Buffer.In;
  const DSP_IMAGE &out = params->Buffer.Out;
  constexpr const char *kExport = "DspFilter";
  if (!copy_formats_pass(kExport, in, out)) return kInvalidArg;
  if (!interlace_pair_passes(kExport, in, out)) return kInvalidArg;
  if (in.Buffer.Region.ulWidth != out.Buffer.Region.ulWidth) {
    refuse(kExport, "input region width %u differs from output region width %u (the filter does not scale)",
           in.Buffer.Region.ulWidth, out.Buffer.Region.ulWidth);
    return kInvalidArg;
  }
  // In doubles, so that an odd frame height against a field can never compare equal.
  const double factor = region_height_factor(in, out);
  if (static_cast<double>(out.Buffer.Region.ulHeight) * factor !=
      static_cast<double>(in.Buffer.Region.ulHeight)) {
    refuse(kExport, "input region height %u does not match output region height %u (%s)",
           in.Buffer.Region.ulHeight, out.Buffer.Region.ulHeight,
           factor > 1.0   ? "a frame into a field needs twice the field's lines"
           : factor < 1.0 ? "a field into a frame needs half the frame's lines"
                          : "they must be equal");
    return kInvalidArg;
  }
  if (has_full_chroma(in.ePixelFormat)) return kOk;
  return integer_widths_pass(kExport, in, out) ? kOk : kInvalidArg;
}

namespace {

struct FilterPlan {
  bool fir;
  const FirTap *horz;  // FIR rows, null for a direction that is off
  const FirTap *vert;
  int horz_taps;
  int vert_taps;
  uint32_t horz_size;  // box windows, 1 for a direction that is off
  uint32_t vert_size;
};

HRESULT run_plane(const DSP_BUFFER &buffer, const FilterPlan &plan) {
  if (plan.fir) {
    return fir_filter_plane(buffer, plan.horz, plan.horz_taps, plan.vert, plan.vert_taps);
  }
  return box_filter_plane(buffer, plan.horz_size, plan.vert_size);
}

void set_formats(DSP_BUFFER *buffer, uint32_t format) {
  buffer->In.ePixelFormat = buffer->Out.ePixelFormat = format;
}

// The second plane follows the main picture, its lines a secondary stride apart.
void move_to_plane(DSP_IMAGE *image) {
  const uint32_t main_bytes = image->ulHeight * image->ulPrimaryStrideBytes;
  image->Buffer.pBuffer = static_cast<uint8_t *>(image->Buffer.pBuffer) + main_bytes;
  image->Buffer.ulBytes = image->Buffer.ulBytes > main_bytes ? image->Buffer.ulBytes - main_bytes : 0;
  image->ulPrimaryStrideBytes = image->ulSecondaryStrideBytes;
}

// One filtering pass over a private, normalised record: both planes of a two-plane format.
HRESULT run_planes(DSP_BUFFER copy, const FilterPlan &plan) {
  if (copy.ulSliceCount == 0) copy.ulSliceCount = 1;
  if (copy.ulSliceNumber == 0) copy.ulSliceNumber = 1;
  const uint32_t format = copy.Out.ePixelFormat;
  if (!is_two_plane(format)) return run_plane(copy, plan);
  uint32_t main_format = format, plane_format = format;
  split_format(format, &main_format, &plane_format);
  set_formats(&copy, main_format);
  const HRESULT hr = run_plane(copy, plan);
  if (hr != kOk) return hr;
  move_to_plane(&copy.In);
  move_to_plane(&copy.Out);
  set_formats(&copy, plane_format);
  return run_plane(copy, plan);
}

uint32_t round16(uint64_t bytes) { return static_cast<uint32_t>((bytes + 15) & ~uint64_t{15}); }

// Filters into an image of work memory shaped like the input region, then copies that image into
// the caller's output.  The filtering pass keeps the input's buffer type and interlace and moves
// lines one to one (fields are still filtered apart); the copy-out then does the whole line
// geometry (field <-> frame, dominance, field selection, orientation).  Shaping the work image
// like the output instead would leave the lines a field does not cover empty, and the copy-out
// would write them over the output's other field.
HRESULT filter_through_temp(const DSP_BUFFER &buffer, const FilterPlan &plan) {
  const DSP_IMAGE &in = buffer.In;
  const DSP_IMAGE &out = buffer.Out;
  const uint64_t product = uint64_t{bytes_per_pixel(out.ePixelFormat)} * in.Buffer.Region.ulWidth;
  const uint32_t a = round16(product);
  const uint32_t b = out.ulSecondaryStrideBytes != 0 ? round16(product) : 0;
  const uint64_t size = (uint64_t{a} + b) * in.Buffer.Region.ulHeight;
  WorkBlock block;  // released by its destructor on every path
  if (size > 0xFFFFFFFFu || (size != 0 && !block.allocate(static_cast<size_t>(size)))) {
    return kOutOfMemory;
  }

  DSP_IMAGE temp = in;
  temp.Buffer.pBuffer = block.data();
  temp.Buffer.ulBytes = static_cast<uint32_t>(size);
  temp.Buffer.Region.ptOffset.x = 0;
  temp.Buffer.Region.ptOffset.y = 0;
  temp.ulWidth = in.Buffer.Region.ulWidth;
  temp.ulHeight = in.Buffer.Region.ulHeight;
  temp.eImageOrientation = DSP_ORIENTATION_TOP_DOWN;
  temp.eColorSpace = out.eColorSpace;  // the filter never converts colours
  temp.ulPrimaryStrideBytes = a;
  temp.ulSecondaryStrideBytes = b;

  constexpr uint32_t kGeometryFlags = DSP_BUFFER_IN_FIELD2_DOMINANCE |
                                      DSP_BUFFER_OUT_FIELD2_DOMINANCE |
                                      DSP_BUFFER_DOMINANCE_BY_SHIFTING_UP |
                                      DSP_BUFFER_PROCESS_FIELDA | DSP_BUFFER_PROCESS_FIELDB;
  DSP_BUFFER filter_pass = buffer;
  filter_pass.Out = temp;
  filter_pass.ulFlags &= ~kGeometryFlags;
  filter_pass.ulSliceCount = 1;  // the whole work image; the copy-out produces this call's band
  filter_pass.ulSliceNumber = 1;
  normalise_orientation(&filter_pass);
  if (size != 0) {
    const HRESULT hr = run_planes(filter_pass, plan);
    if (hr != kOk) return hr;
  }

  DSP_BUFFER copy_out = buffer;
  copy_out.In = temp;
  if (size != 0 && smart_copy(&copy_out) != kOk) return kFail;
  block.release();
  return kOk;
}

}  // namespace

HRESULT fir_rows_from_settings(const char *export_name, const DSP_FIR_SETTINGS &s, FirRows *rows) {
  *rows = FirRows{nullptr, nullptr, 0, 0};
  if (s.ulHorzCutoff > kFirCutoffOff || s.ulVertCutoff > kFirCutoffOff) {
    refuse(export_name, "FIR %s cut-off %u is above %u (%u turns the direction off)",
           s.ulHorzCutoff > kFirCutoffOff ? "horizontal" : "vertical",
           s.ulHorzCutoff > kFirCutoffOff ? s.ulHorzCutoff : s.ulVertCutoff, kFirCutoffOff, kFirCutoffOff);
    return kInvalidArg;
  }
  const bool horz_on = s.ulHorzCutoff != kFirCutoffOff;
  const bool vert_on = s.ulVertCutoff != kFirCutoffOff;
  const auto taps_ok = [](uint32_t t) { return t >= kFirMinTaps && t <= kFirMaxTaps; };
  if ((horz_on && !taps_ok(s.ulHorzTaps)) || (vert_on && !taps_ok(s.ulVertTaps))) {
    const bool horz_bad = horz_on && !taps_ok(s.ulHorzTaps);
    refuse(export_name, "FIR %s taps %u are outside %d..%d", horz_bad ? "horizontal" : "vertical",
           horz_bad ? s.ulHorzTaps : s.ulVertTaps, kFirMinTaps, kFirMaxTaps);
    return kInvalidArg;
  }
  if (horz_on) {
    rows->horz = fir_coefficients(s.ulHorzTaps, s.ulHorzCutoff);
    rows->horz_taps = fir_table_taps(s.ulHorzTaps);
    if (!rows->horz) return kFail;
  }
  if (vert_on) {
    rows->vert = fir_coefficients(s.ulVertTaps, s.ulVertCutoff);
    rows->vert_taps = fir_table_taps(s.ulVertTaps);
    if (!rows->vert) return kFail;
  }
  return kOk;
}

HRESULT filter_worker(const DSP_FILTER_PARAMS *params, const DSP_BUFFER *buffer, uint32_t options) {
  worker_entry("DspFilter");
  return filter_apply(params, buffer, options);
}

HRESULT filter_apply(const DSP_FILTER_PARAMS *params, const DSP_BUFFER *buffer, uint32_t options) {
  FilterPlan plan{false, nullptr, nullptr, 0, 0, 1, 1};
  bool horz_on = false, vert_on = false;
  if (params->eFilterType == DSP_FILTER_TYPE_FIR) {
    if (!params->pSettings) {
      refuse("DspFilter", "FIR filter without settings (pSettings is null)");
      return kInvalidArg;
    }
    FirRows rows;
    const HRESULT hr = fir_rows_from_settings("DspFilter",
                                              *static_cast<const DSP_FIR_SETTINGS *>(params->pSettings), &rows);
    if (hr != kOk) return hr;
    horz_on = rows.horz != nullptr;
    vert_on = rows.vert != nullptr;
    plan.fir = true;
    plan.horz = rows.horz;
    plan.vert = rows.vert;
    plan.horz_taps = rows.horz_taps;
    plan.vert_taps = rows.vert_taps;
  } else if (params->eFilterType == DSP_FILTER_TYPE_BOX) {
    if (!params->pSettings) {
      refuse("DspFilter", "box filter without settings (pSettings is null)");
      return kInvalidArg;
    }
    const DSP_BOX_SETTINGS &s = *static_cast<const DSP_BOX_SETTINGS *>(params->pSettings);
    if (s.ulHorzSize > 256 || s.ulVertSize > 256) {
      refuse("DspFilter", "box %s size %u is above 256", s.ulHorzSize > 256 ? "horizontal" : "vertical",
             s.ulHorzSize > 256 ? s.ulHorzSize : s.ulVertSize);
      return kInvalidArg;
    }
    // A size of 1 averages one sample: the direction is on but leaves that direction as it is.
    horz_on = s.ulHorzSize != 0;
    vert_on = s.ulVertSize != 0;
    plan.horz_size = horz_on ? s.ulHorzSize : 1;
    plan.vert_size = vert_on ? s.ulVertSize : 1;
  } else {
    refuse("DspFilter", "filter type %u is neither 1 (FIR) nor 2 (box)", params->eFilterType);
    return kInvalidArg;
  }

  if (!horz_on && !vert_on) return smart_copy(buffer) == kOk ? kOk : kFail;

  const uint32_t out_format = buffer->Out.ePixelFormat;
  if ((options & DSP_FILTER_OPTION_TEMP_FRAME) && !is_two_plane(out_format) &&
      out_format != DSP_PIXEL_FORMAT_BGR24) {
    return filter_through_temp(*buffer, plan);
  }
  DSP_BUFFER copy = *buffer;
  normalise_orientation(&copy);
  return run_planes(copy, plan);
}

}  // namespace framedsp
