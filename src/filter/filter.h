// Two-dimensional FIR and box filtering (DspFilter).
#pragma once

#include "filter/fir_tables.h"
#include "platform/status.h"

namespace framedsp {

HRESULT filter_validate(const DSP_FILTER_PARAMS *params);
// The coefficient rows a DSP_FIR_SETTINGS asks for: null (and 0 taps) for a direction at cut-off
// 100.  E_INVALIDARG with a trace line under `export_name` for a cut-off above 100 or taps outside
// 3..15 on a direction that is on; E_FAIL when a row is missing from the tables.
struct FirRows {
  const FirTap *horz;
  const FirTap *vert;
  int horz_taps;
  int vert_taps;
};
HRESULT fir_rows_from_settings(const char *export_name, const DSP_FIR_SETTINGS &settings, FirRows *rows);

HRESULT filter_worker(const DSP_FILTER_PARAMS *params, const DSP_BUFFER *buffer, uint32_t options);
// The worker's work without its entry mark, for other operations that filter a validated record.
HRESULT filter_apply(const DSP_FILTER_PARAMS *params, const DSP_BUFFER *buffer, uint32_t options);

}  // namespace framedsp
