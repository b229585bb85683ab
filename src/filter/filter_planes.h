// One plane of a filter call.  The filter worker (filter.cpp) checks the settings, splits
// two-plane formats, builds the temporary frame when asked and hands each plane's private,
// normalised, single-format record to one of these routines.
#pragma once

#include <cstdint>

#include "filter/fir_tables.h"
#include "platform/status.h"

namespace framedsp {

// FIR low-pass of one plane.  `horz` / `vert` are coefficient rows (fir_coefficients) or null for
// a direction that is off; at least one is non-null.  `horz_taps` / `vert_taps` are the odd tap
// counts of those rows.  Vertical before horizontal, each rounded (acc + 256) >> 9 and clamped.
// Interlaced frames handled field by field (row step 2) never mix fields.  Work lines come from
// work memory and are released on every path; E_OUTOFMEMORY when they cannot be had.
HRESULT fir_filter_plane(const DSP_BUFFER &buffer, const FirTap *horz, int horz_taps,
                         const FirTap *vert, int vert_taps);

// Box (moving-average) filter of one plane with window sizes 1..256 per direction (1 = that
// direction off; at least one above 1).  Cost per pixel independent of the window size.
HRESULT box_filter_plane(const DSP_BUFFER &buffer, uint32_t horz_size, uint32_t vert_size);

}  // namespace framedsp
