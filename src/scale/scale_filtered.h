// Scale-and-filter frame kernels of DspScaler's filtered path.
#pragma once

#include <cstdint>

#include "filter/fir_tables.h"
#include "platform/status.h"

namespace framedsp {

// The FIR rows a filtered kernel runs after scaling: null for an axis it does not filter.
struct ScaleFirRows {
  const FirTap *horz;
  const FirTap *vert;
  int horz_taps;  // odd tap count of `horz` (3..15), 0 when null
  int vert_taps;
};

// A combined kernel: scales the normalised record as the plain (or colour-converting) frame kernel
// of the same index does, then low-passes the scaled lines with the FIR line kernels: `vert` over
// the lines of each run (field) of the output region, the run's first and last lines being the
// edges, then `horz` along each line, edges at the region's first and last byte.  S_OK,
// E_OUTOFMEMORY, E_NOTIMPL (eFilter 2).
using ScaleFilterKernel = HRESULT (*)(const DSP_BUFFER *buffer, const ScaleFirRows &rows);

// Nine entries each, indexed by scale mode + 3 * eFilter like the plain tables.
const ScaleFilterKernel *scale_filter_plain_kernels();
const ScaleFilterKernel *scale_filter_color_kernels();

}  // namespace framedsp
