// The two fixed-ratio fast paths of DspScaler: the integer-ratio path (eScalerPath 1: a quarter,
// a half, double, four times) and the HD-width path (eScalerPath 2: 1440/960 <-> 1920/1280 and
// friends).  The general driver calls the eligibility test after its geometry step and, when it
// passes, returns the path's result instead of running the general kernels.
#pragma once

#include "platform/status.h"

namespace framedsp {

// What the driver hands a fast path: its private buffer record after the orientation fix-up and
// the geometry step (derived output region written in, bottom-up regions re-measured), the field
// factor (2 frame<-field, 0.5 field<-frame, else 1) and the flags word (ulScaleFlags).
struct FastPathCall {
  const DSP_SCALER_PARAMS *params;
  DSP_BUFFER buffer;
  float field_factor;
  uint32_t flags;
};

bool integer_ratio_eligible(const FastPathCall &call);
// Runs the integer-ratio path (two-plane formats run twice).  Only called when eligible.
HRESULT integer_ratio_scale(const FastPathCall &call);

bool hd_width_eligible(const FastPathCall &call);
HRESULT hd_width_scale(const FastPathCall &call);

}  // namespace framedsp
