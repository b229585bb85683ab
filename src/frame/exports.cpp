// The thirteen exports.  Each is a thin frame: null checks, the operation's validation step (a
// refused record returns S_OK and does nothing), the worker, and the guard that turns exceptions
// into E_UNEXPECTED.
#include "analysis/compare.h"
#include "analysis/motion_vectors.h"
#include "copy/smart_copy.h"
#include "filter/filter.h"
#include "filter/subpixel_filter.h"
#include "frame/guard.h"
#include "framerate/converter.h"
#include "platform/handle.h"
#include "platform/trace.h"
#include "scale/mipmap.h"
#include "scale/scaler.h"
#include "scale/scaler_helper.h"
#include "scale/subpixel_scaler_helper.h"

using namespace framedsp;

namespace {

constexpr uint32_t kCallFlagFiltered = 0x2;  // bit 1 of a scaler record's call flags

FilterSubRecord filter_sub_record(const uint32_t *filter_type, const void *settings) {
  return FilterSubRecord{filter_type, settings};
}

// A handle export's refusal, named when tracing is on.  The second lookup only picks the words.
HRESULT handle_refused(const char *export_name, DSP_HANDLE handle) {
  if (trace_enabled()) {
    const uintptr_t value = reinterpret_cast<uintptr_t>(handle);
    const unsigned long long shown = value;
    if (value == 0) {
      refuse(export_name, "handle is null");
    } else if (value == 0xFFFFFFFFu || value == ~uintptr_t{0}) {
      refuse(export_name, "handle 0x%llX is the invalid-handle value", shown);
    } else if (HandleObject::lookup(handle)) {
      refuse(export_name, "handle 0x%llX names an object that is not a frame-rate converter", shown);
    } else {
      refuse(export_name, "handle 0x%llX is not a live object (released, or never a handle)", shown);
    }
  }
  return kHandle;
}

}  // namespace

extern "C" {

FRAMEDSP_API DSP_HRESULT FRAMEDSP_CALL DspBufferSmartCopy(const DSP_BUFFER *pBuffer) {
  FRAMEDSP_GUARD_BEGIN
  if (!pBuffer) return kPointer;
  if (smart_copy_validate(pBuffer) != kOk) return kOk;
  return smart_copy(pBuffer);
  FRAMEDSP_GUARD_END
}

FRAMEDSP_API DSP_HRESULT FRAMEDSP_CALL DspCompare(DSP_COMPARE_PARAMS *pParams) {
  FRAMEDSP_GUARD_BEGIN
  if (!pParams) return kPointer;
  if (compare_validate(pParams) != kOk) return kOk;
  return compare_worker(pParams);
  FRAMEDSP_GUARD_END
}

FRAMEDSP_API DSP_HRESULT FRAMEDSP_CALL DspFilter(const DSP_FILTER_PARAMS *pParams) {
  FRAMEDSP_GUARD_BEGIN
  if (!pParams) return kPointer;
  if (filter_validate(pParams) != kOk) return kOk;
  return filter_worker(pParams, &pParams->Buffer, pParams->ulOptions);
  FRAMEDSP_GUARD_END
}

FRAMEDSP_API DSP_HRESULT FRAMEDSP_CALL DspSubPixelFilter(const DSP_SUBPIXEL_FILTER_PARAMS *pParams) {
  FRAMEDSP_GUARD_BEGIN
  if (!pParams) return kPointer;
  if (subpixel_filter_validate(pParams) != kOk) return kOk;
  return subpixel_filter_worker(pParams, &pParams->Buffer, pParams->ulOptions);
  FRAMEDSP_GUARD_END
}

FRAMEDSP_API DSP_HRESULT FRAMEDSP_CALL DspScaler(const DSP_SCALER_PARAMS *pParams) {
  FRAMEDSP_GUARD_BEGIN
  if (!pParams) return kPointer;
  if (pParams->ulOptions & kCallFlagFiltered) {
    return filtered_scaler_worker(pParams, filter_sub_record(&pParams->eFilterType, pParams->pSettings),
                                  &pParams->Buffer, pParams->ulOptions);
  }
  return scaler_worker(pParams, &pParams->Buffer, pParams->ulOptions);
  FRAMEDSP_GUARD_END
}

FRAMEDSP_API DSP_HRESULT FRAMEDSP_CALL DspNonUniformScaler(const DSP_NONUNIFORM_SCALER_PARAMS *pParams) {
  FRAMEDSP_GUARD_BEGIN
  if (!pParams) return kPointer;
  if (pParams->ulOptions & kCallFlagFiltered) {
    return filtered_nonuniform_scaler_worker(
        pParams, filter_sub_record(&pParams->eFilterType, pParams->pSettings), pParams->ulOptions);
  }
  return nonuniform_scaler_worker(pParams, pParams->ulOptions);
  FRAMEDSP_GUARD_END
}

FRAMEDSP_API DSP_HRESULT FRAMEDSP_CALL DspSubPixelScaler(const DSP_SUBPIXEL_SCALER_PARAMS *pParams) {
  FRAMEDSP_GUARD_BEGIN
  if (!pParams) return kPointer;
  if (pParams->ulOptions & kCallFlagFiltered) {
    return filtered_subpixel_scaler_worker(
        pParams, filter_sub_record(&pParams->eFilterType, pParams->pSettings), &pParams->ulEdgeMode,
        &pParams->Buffer, pParams->ulOptions);
  }
  return subpixel_scaler_worker(pParams, &pParams->ulEdgeMode, &pParams->Buffer, pParams->ulOptions);
  FRAMEDSP_GUARD_END
}

FRAMEDSP_API DSP_HRESULT FRAMEDSP_CALL DspScalerHelper(const DSP_SCALER_HELPER_IN *pIn,
                                                       DSP_SCALER_HELPER_OUT *pOut) {
  FRAMEDSP_GUARD_BEGIN
  if (!pIn || !pOut) return kPointer;
  if (scaler_helper_validate(pIn) != kOk) return kOk;
  return scaler_helper_worker(pIn, pOut);
  FRAMEDSP_GUARD_END
}

FRAMEDSP_API DSP_HRESULT FRAMEDSP_CALL DspSubPixelScalerHelper(
    const DSP_SUBPIXEL_SCALER_HELPER_IN *pIn, DSP_SUBPIXEL_SCALER_HELPER_OUT *pOut) {
  FRAMEDSP_GUARD_BEGIN
  if (!pIn || !pOut) return kPointer;
  if (subpixel_scaler_helper_validate(pIn) != kOk) return kOk;
  return subpixel_scaler_helper_worker(pIn, pOut);
  FRAMEDSP_GUARD_END
}

FRAMEDSP_API DSP_HRESULT FRAMEDSP_CALL DspCreateFrameRateConverter(
    const DSP_FRAME_RATE_CONVERTER_PARAMS *pParams, DSP_HANDLE *phConverter) {
  FRAMEDSP_GUARD_BEGIN
  if (!pParams || !phConverter) return kPointer;
  return create_frame_rate_converter(pParams, phConverter);
  FRAMEDSP_GUARD_END
}

FRAMEDSP_API DSP_HRESULT FRAMEDSP_CALL DspFrameRateConvert(DSP_HANDLE hConverter,
                                                           DSP_FRAME_RATE_CONVERT_PARAMS *pParams,
                                                           uint32_t /*ulUnused*/) {
  FRAMEDSP_GUARD_BEGIN
  // No null check of the record here: the handle is checked first and the conversion owns the
  // record.  The reference is dropped on every path, exceptions included.
  HandleRef<DspFrameRateConverter> converter(hConverter);
  if (!converter) return handle_refused("DspFrameRateConvert", hConverter);
  return converter.get()->Convert(pParams);
  FRAMEDSP_GUARD_END
}

FRAMEDSP_API DSP_HRESULT FRAMEDSP_CALL DspCreateMotionVectors(DSP_HANDLE hConverter, void *pParams) {
  FRAMEDSP_GUARD_BEGIN
  if (!pParams) return kPointer;
  // The converter must be live for the call, but the operation does not use its state.
  HandleRef<DspFrameRateConverter> converter(hConverter);
  if (!converter) return handle_refused("DspCreateMotionVectors", hConverter);
  return create_motion_vectors(pParams);
  FRAMEDSP_GUARD_END
}

FRAMEDSP_API DSP_HRESULT FRAMEDSP_CALL DspCreateMipMaps(DSP_HANDLE hConverter,
                                                        DSP_MIPMAP_PARAMS *pParams) {
  FRAMEDSP_GUARD_BEGIN
  if (!pParams) return kPointer;
  HandleRef<DspFrameRateConverter> converter(hConverter);
  if (!converter) return handle_refused("DspCreateMipMaps", hConverter);
  return create_mipmaps(pParams);
  FRAMEDSP_GUARD_END
}

}  // extern "C"
