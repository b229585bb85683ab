// The scaler workers.  The export frame has already picked plain or filtered by the call flags;
// every path of this release answers E_NOTIMPL once the worker is entered.
#include "scale/scaler.h"

#include "frame/guard.h"

namespace framedsp {

HRESULT scaler_worker(const DSP_SCALER_PARAMS *params, const DSP_BUFFER *buffer, uint32_t flags) {
  worker_entry("DspScaler");
  (void)params;
  (void)buffer;
  (void)flags;
  return kNotImpl;
}

HRESULT filtered_scaler_worker(const DSP_SCALER_PARAMS *params, FilterSubRecord filter,
                               const DSP_BUFFER *buffer, uint32_t flags) {
  worker_entry("DspScaler");
  (void)params;
  (void)filter;
  (void)buffer;
  (void)flags;
  return kNotImpl;
}

HRESULT nonuniform_scaler_worker(const DSP_SCALER_PARAMS *params, const DSP_BUFFER *buffer,
                                 uint32_t flags) {
  worker_entry("DspNonUniformScaler");
  (void)params;
  (void)buffer;
  (void)flags;
  return kNotImpl;
}

HRESULT filtered_nonuniform_scaler_worker(const DSP_SCALER_PARAMS *params, FilterSubRecord filter,
                                          const DSP_BUFFER *buffer, uint32_t flags) {
  worker_entry("DspNonUniformScaler");
  (void)params;
  (void)filter;
  (void)buffer;
  (void)flags;
  return kNotImpl;
}

HRESULT subpixel_scaler_worker(const DSP_SUBPIXEL_SCALER_PARAMS *params, const uint32_t *settings,
                               const DSP_SUBPIXEL_BUFFER *buffer, uint32_t flags) {
  worker_entry("DspSubPixelScaler");
  (void)params;
  (void)settings;
  (void)buffer;
  (void)flags;
  return kNotImpl;
}

HRESULT filtered_subpixel_scaler_worker(const DSP_SUBPIXEL_SCALER_PARAMS *params,
                                        FilterSubRecord filter, const uint32_t *settings,
                                        const DSP_SUBPIXEL_BUFFER *buffer, uint32_t flags) {
  worker_entry("DspSubPixelScaler");
  (void)params;
  (void)filter;
  (void)settings;
  (void)buffer;
  (void)flags;
  return kNotImpl;
}

}  // namespace framedsp
