#include "scale/scaler_helper.h"

#include "frame/guard.h"

namespace framedsp {

HRESULT scaler_helper_validate(const DSP_SCALER_HELPER_IN *in) {
  // A zero size or aspect term would make a pixel shape 0 or infinite.
  if (in->ulSrcAspectNumerator == 0 || in->ulSrcAspectDenominator == 0 || in->ulSrcWidth == 0 ||
      in->ulSrcHeight == 0 || in->ulDstAspectNumerator == 0 || in->ulDstAspectDenominator == 0 ||
      in->ulDstWidth == 0 || in->ulDstHeight == 0) {
    return kInvalidArg;
  }
  // Fill mode crops the whole source itself, so it must be given the whole source, spelled out:
  // a region of 0 ("the full size") is refused here although the fit modes accept it.
  if (in->ulFlags & DSP_SCALER_HELPER_FILL) {
    if (in->ulSrcRegionHeight != in->ulSrcHeight || in->ulSrcRegionWidth != in->ulSrcWidth) {
      return kInvalidArg;
    }
  }
  return kOk;
}

HRESULT scaler_helper_worker(const DSP_SCALER_HELPER_IN *in, DSP_SCALER_HELPER_OUT *out) {
  worker_entry("DspScalerHelper");
  (void)in;
  (void)out;
  return kNotImpl;
}

// The sub-pixel helper's records are not fixed yet, so there is nothing to refuse.
HRESULT subpixel_scaler_helper_validate(const void *in) {
  (void)in;
  return kOk;
}

HRESULT subpixel_scaler_helper_worker(const void *in, void *out) {
  worker_entry("DspSubPixelScalerHelper");
  (void)in;
  (void)out;
  return kNotImpl;
}

}  // namespace framedsp
