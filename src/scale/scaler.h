// Image scalers (DspScaler, DspNonUniformScaler, DspSubPixelScaler).  The export frame picks the
// plain or the filtered worker by bit 1 of the call flags.
#pragma once

#include "frame/status.h"

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

HRESULT nonuniform_scaler_worker(const DSP_SCALER_PARAMS *params, const DSP_BUFFER *buffer,
                                 uint32_t flags);
HRESULT filtered_nonuniform_scaler_worker(const DSP_SCALER_PARAMS *params, FilterSubRecord filter,
                                          const DSP_BUFFER *buffer, uint32_t flags);

HRESULT subpixel_scaler_worker(const DSP_SUBPIXEL_SCALER_PARAMS *params, const uint32_t *settings,
                               const DSP_SUBPIXEL_BUFFER *buffer, uint32_t flags);
HRESULT filtered_subpixel_scaler_worker(const DSP_SUBPIXEL_SCALER_PARAMS *params,
                                        FilterSubRecord filter, const uint32_t *settings,
                                        const DSP_SUBPIXEL_BUFFER *buffer, uint32_t flags);

}  // namespace framedsp
