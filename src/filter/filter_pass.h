// The part of a filter call shared by DspFilter and DspSubPixelFilter once the record is in whole
// pixels: the settings turned into a plan, and the plan run over the planes of the record, either
// straight into the output or through a temporary frame.
#pragma once

#include <cstdint>

#include "filter/fir_tables.h"
#include "framedsp/framedsp.h"
#include "platform/status.h"

namespace framedsp {

// FIR of one plane (fir_filter_plane, or the fractional filter's variant).
using FirPlaneFilter = HRESULT (*)(const DSP_BUFFER &buffer, const FirTap *horz, int horz_taps,
                                   const FirTap *vert, int vert_taps);

struct FilterPlan {
  bool fir;
  FirPlaneFilter fir_plane;  // for fir
  const FirTap *horz;        // FIR rows, null for a direction that is off
  const FirTap *vert;
  int horz_taps;
  int vert_taps;
  uint32_t horz_size;  // box windows, 1 for a direction that is off
  uint32_t vert_size;
  bool any_on;         // some direction is on (else the call is a copy)
};

// eFilterType and pSettings of a filter record: E_INVALIDARG for an unknown type, missing
// settings or settings out of range, E_FAIL for a missing coefficient row; every refusal is
// traced under `export_name`.
HRESULT filter_plan_from_settings(const char *export_name, uint32_t filter_type, const void *settings,
                                  FirPlaneFilter fir_plane, FilterPlan *plan);

// Runs the plan (some direction on) over a whole-pixel record: through a temporary frame when
// `options` asks for one and the format allows it, else straight into the output; two-plane
// formats plane by plane.
HRESULT filter_run(const DSP_BUFFER &buffer, const FilterPlan &plan, uint32_t options);

}  // namespace framedsp
