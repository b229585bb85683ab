// The filter on fractional regions (DspSubPixelFilter).
#pragma once

#include "filter/fir_tables.h"
#include "platform/status.h"

namespace framedsp {

HRESULT subpixel_filter_validate(const DSP_SUBPIXEL_FILTER_PARAMS *params);
HRESULT subpixel_filter_worker(const DSP_SUBPIXEL_FILTER_PARAMS *params,
                               const DSP_SUBPIXEL_BUFFER *buffer, uint32_t options);

}  // namespace framedsp
