// Two-dimensional FIR and box filtering (DspFilter).
#pragma once

#include "frame/status.h"

namespace framedsp {

HRESULT filter_validate(const DSP_FILTER_PARAMS *params);
HRESULT filter_worker(const DSP_FILTER_PARAMS *params, const DSP_BUFFER *buffer, uint32_t options);

}  // namespace framedsp
