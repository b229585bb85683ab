#include "filter/filter.h"

#include "copy/smart_copy.h"
#include "filter/filter_pass.h"
#include "filter/fir_plane.h"
#include "lines/buffer_rules.h"
#include "lines/pixel_format.h"
#include "platform/trace.h"
#include "platform/work_memory.h"

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
  FilterPlan plan;
  const HRESULT hr = filter_plan_from_settings("DspFilter", params->eFilterType, params->pSettings,
                                               fir_filter_plane, &plan);
  if (hr != kOk) return hr;
  if (!plan.any_on) return smart_copy(buffer) == kOk ? kOk : kFail;
  return filter_run(*buffer, plan, options);
}

}  // namespace framedsp
