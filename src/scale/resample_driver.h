// What the scalers built on the resampling engine share: an exact rounded ratio, the colour-space
// converter as the engine's line finish, staged runs and the FIR low-pass rows of the filtered
// workers.
#pragma once

#include <cstddef>
#include <cstdint>

#include "filter/filter.h"
#include "platform/status.h"
#include "resample/resample.h"
#include "scale/scale_line_kernels.h"
#include "scale/scaler.h"

namespace framedsp {

// round(a * b / c), halves away from zero, for b and c in 1..2^62; false when the result needs
// more than 62 bits.  Exact on every compiler (a 128-bit product, or two 64-bit halves).
bool mul_div(int64_t a, uint64_t b, uint64_t c, int64_t *out);

// The colour-space converter of a scaled line, as a ResampleFinish (context: a ColorFinish).
struct ColorFinish {
  ScaleColorConverter convert;
  ScaleColorCoefficients k;
};
void color_finish(void *context, uint8_t *line, size_t bytes);

// Rows [r0, r1) of a plan into `dst`.  Staged: through private lines (holding what the output
// held, for a coverage blend) that are then copied into the output; the same bytes.
HRESULT resample_run_rows(ResamplePlan &plan, uint32_t cls, ResampleRows src, ResampleRows dst, int32_t r0,
                          int32_t r1, bool staged, const ResampleCoverage *coverage, ColorFinish *color);

// The low-pass rows of a filtered worker's sub-record, one coefficient a tap (null, 0 taps: that
// direction is not filtered).  E_INVALIDARG (traced under `export_name`) for a filter type other
// than FIR, a null pSettings or settings DspFilter refuses; E_FAIL for a missing table row.
struct LowpassRows {
  int16_t horz[kFirMaxTaps], vert[kFirMaxTaps];
  const int16_t *h, *v;
  int32_t h_taps, v_taps;
};
HRESULT lowpass_rows(const char *export_name, FilterSubRecord filter, LowpassRows *rows);

}  // namespace framedsp
