// Aspect-ratio helper (DspScalerHelper).
#pragma once

#include "platform/status.h"

namespace framedsp {

HRESULT scaler_helper_validate(const DSP_SCALER_HELPER_IN *in);
HRESULT scaler_helper_worker(const DSP_SCALER_HELPER_IN *in, DSP_SCALER_HELPER_OUT *out);

}  // namespace framedsp
