// Image scalers (DspScaler, DspNonUniformScaler, DspSubPixelScaler).  The export frame picks the
// plain or the filtered worker by bit 1 of the call flags.
#pragma once

#include "platform/status.h"

namespace framedsp {

// The three-word filter sub-record (eFilterType, pSettings, reserved) as the filtered workers see
// it: a pointer to its first word inside the caller's record.
struct FilterSubRecord {
  const uint32_t *filter_type;
  const void *settings;
};

HRESULT scaler_worker(const DSP_SCALER_PARAMS *params, const DSP_BUFFER *buffer, uint32_t flags);
HRESULT filtered_scaler_worker(const DSP_SCALER_PARAMS *params, FilterSubRecord filter,
                               const DSP_BUFFER *buffer, uint32_t flags);

// What the geometry step leaves for the rest of DspScaler (shared by the general and the filtered
// path): the record with the output region size final, as the caller gave it (`raw`, for the
// copy, which re-measures bottom-up regions itself) and normalised (`norm`, for the kernels).
struct ScaleSetup {
  DSP_BUFFER raw;
  DSP_BUFFER norm;
  float field_factor;  // 2 field -> frame, 0.5 frame -> field, else 1
  int mode;            // kScaleMode* (scale/scale_frame.h)
  uint32_t filter;     // eFilter
};

// eFilter, input region inside its image, output size (derived when ulScaleFlags bit 0 is set,
// else checked against the room), scale mode.  E_INVALIDARG with a trace line on refusal.
HRESULT scale_geometry(const DSP_SCALER_PARAMS &params, const DSP_BUFFER &caller, ScaleSetup *setup);
// The general validation (formats, interlace and field selection, even widths).
HRESULT scale_validate(const DSP_SCALER_PARAMS &params, const DSP_BUFFER &buffer);

// DspNonUniformScaler (nonuniform_scaler.cpp).
HRESULT nonuniform_scaler_worker(const DSP_NONUNIFORM_SCALER_PARAMS *params, uint32_t flags);
HRESULT filtered_nonuniform_scaler_worker(const DSP_NONUNIFORM_SCALER_PARAMS *params, FilterSubRecord filter,
                                          uint32_t flags);

HRESULT subpixel_scaler_worker(const DSP_SUBPIXEL_SCALER_PARAMS *params, const uint32_t *settings,
                               const DSP_SUBPIXEL_BUFFER *buffer, uint32_t flags);
HRESULT filtered_subpixel_scaler_worker(const DSP_SUBPIXEL_SCALER_PARAMS *params,
                                        FilterSubRecord filter, const uint32_t *settings,
                                        const DSP_SUBPIXEL_BUFFER *buffer, uint32_t flags);

}  // namespace framedsp
