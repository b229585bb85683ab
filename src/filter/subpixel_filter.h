// The filter on fractional regions (DspSubPixelFilter).
#pragma once

#include "frame/status.h"

namespace framedsp {

HRESULT subpixel_filter_validate(const DSP_SUBPIXEL_FILTER_PARAMS *params);
HRESULT subpixel_filter_worker(const DSP_SUBPIXEL_FILTER_PARAMS *params,
                               const DSP_SUBPIXEL_BUFFER *buffer, uint32_t options);

}  // namespace framedsp
