// The filter on fractional regions (DspSubPixelFilter).
#pragma once

#include "filter/fir_tables.h"
#include "platform/status.h"

namespace framedsp {

HRESULT subpixel_filter_validate(const DSP_SUBPIXEL_FILTER_PARAMS *params);
HRESULT subpixel_filter_worker(const DSP_SUBPIXEL_FILTER_PARAMS *params,
                               const DSP_SUBPIXEL_BUFFER *buffer, uint32_t options);

// FIR low-pass of one plane of a whole-pixel record with the fractional filter's vertical kernels
// (taps clamped to the plane's absolute first and last rows); otherwise as fir_filter_plane.
HRESULT subpixel_fir_plane(const DSP_BUFFER &buffer, const FirTap *horz, int horz_taps,
                           const FirTap *vert, int vert_taps);

}  // namespace framedsp
