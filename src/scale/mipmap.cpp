// Mip-map pyramids: every level is made from the one before by one scaler call that asks for
// the integer-ratio path (halving regions of format 263 take it; anything else falls back to the
// general scaler).  A level's own result is not reported: the pyramid answers S_OK once its
// record is accepted, and a level that could not be made stays as it was.
#include "scale/mipmap.h"

#include <cstring>

#include "platform/trace.h"
#include "scale/scaler.h"

namespace framedsp {
namespace {

constexpr char kExport[] = "DspCreateMipMaps";

bool level_ok(const DSP_IMAGE &level) {
  return level.Buffer.pBuffer != nullptr && level.ePixelFormat == DSP_PIXEL_FORMAT_MIPMAP;
}

}  // namespace

bool mipmaps_accept(const DSP_MIPMAP_PARAMS &params) {
  const DSP_MIPMAP_LEVELS *levels = params.pLevels;
  if (levels->ulCount > DSP_MIPMAP_MAX_LEVELS)
    return refuse(kExport, "level count %u is above %u", levels->ulCount, DSP_MIPMAP_MAX_LEVELS);
  if (params.Base.Buffer.pBuffer == nullptr) return refuse(kExport, "the base image buffer is null");
  if (params.Base.ePixelFormat != DSP_PIXEL_FORMAT_MIPMAP)
    return refuse(kExport, "base format %u is not %u (the pyramid works on 8-bit planes)",
                  params.Base.ePixelFormat, DSP_PIXEL_FORMAT_MIPMAP);
  for (uint32_t k = 0; k < levels->ulCount; ++k) {
    const DSP_IMAGE &level = levels->Levels[k];
    if (level.Buffer.pBuffer == nullptr) return refuse(kExport, "level %u has a null buffer", k);
    if (!level_ok(level))
      return refuse(kExport, "level %u has format %u, not %u", k, level.ePixelFormat,
                    DSP_PIXEL_FORMAT_MIPMAP);
  }
  return true;
}

HRESULT create_mipmaps(DSP_MIPMAP_PARAMS *params) {
  worker_entry(kExport);
  if (params->pLevels == nullptr) return kPointer;  // a null pointer is its own diagnosis
  // Every check comes before the first level is touched.
  if (!mipmaps_accept(*params)) return kInvalidArg;
  const DSP_MIPMAP_LEVELS &levels = *params->pLevels;
  for (uint32_t k = 1; k < levels.ulCount; ++k) {
    DSP_SCALER_PARAMS call;
    std::memset(&call, 0, sizeof call);
    call.eScalerPath = DSP_SCALER_PATH_INTEGER_RATIO;
    call.eFilter = params->eFilter;
    call.Buffer.In = levels.Levels[k - 1];
    call.Buffer.Out = levels.Levels[k];
    // A level's status is deliberately not reported (see the header); a level that throws is
    // ignored like one that fails.
    try {
      (void)scaler_worker(&call, &call.Buffer, call.ulOptions);
    } catch (...) {
    }
  }
  return kOk;
}

}  // namespace framedsp
