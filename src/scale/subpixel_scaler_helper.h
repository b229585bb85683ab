// DspSubPixelScalerHelper: exact fractional rectangles for a zoom and pan between two views.
#pragma once

#include "platform/status.h"

namespace framedsp {

HRESULT subpixel_scaler_helper_validate(const DSP_SUBPIXEL_SCALER_HELPER_IN *in);
HRESULT subpixel_scaler_helper_worker(const DSP_SUBPIXEL_SCALER_HELPER_IN *in,
                                      DSP_SUBPIXEL_SCALER_HELPER_OUT *out);

}  // namespace framedsp
