// Frame comparison (DspCompare): difference image, per-channel MSE and PSNR.
#pragma once

#include "platform/status.h"

namespace framedsp {

// 0 for formats 0, 1, 5, 21, 25, 28, 30, 261; E_INVALIDARG otherwise.
HRESULT compare_validate(const DSP_COMPARE_PARAMS *params);
HRESULT compare_worker(DSP_COMPARE_PARAMS *params);

}  // namespace framedsp
