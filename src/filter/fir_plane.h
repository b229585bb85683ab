// FIR low-pass of one plane, for the whole-pixel filter (DspFilter) and the fractional one
// (DspSubPixelFilter).  The filter workers check the settings, split two-plane formats, build the
// temporary frame when asked and hand each plane's private, normalised, single-format record here.
#pragma once

#include "filter/fir_tables.h"
#include "platform/status.h"

namespace framedsp {

// `horz` / `vert` are coefficient rows (fir_coefficients) or null for a direction that is off; at
// least one is non-null.  `horz_taps` / `vert_taps` are the odd tap counts of those rows.  Per
// output line: the vertical taps into a work line, the horizontal kernel into a second one, one
// move into the destination line; each pass rounded (acc + 256) >> 9 and clamped.  Interlaced
// frames handled field by field (row step 2) never mix fields.  Work lines come from work memory
// and are released on every path; E_OUTOFMEMORY when they cannot be had.
HRESULT fir_filter_plane(const DSP_BUFFER &buffer, const FirTap *horz, int horz_taps,
                         const FirTap *vert, int vert_taps);
// The same with the fractional filter's vertical edges: taps clamped to the plane's absolute
// first and last rows (FirSubKernelTable).
HRESULT subpixel_fir_plane(const DSP_BUFFER &buffer, const FirTap *horz, int horz_taps,
                           const FirTap *vert, int vert_taps);

}  // namespace framedsp
