#include "scale/mipmap.h"

#include "frame/guard.h"

namespace framedsp {

HRESULT create_mipmaps(DSP_MIPMAP_PARAMS *params) {
  worker_entry("DspCreateMipMaps");
  (void)params;
  return kNotImpl;  // the pyramid is built through the scaler, which lands in a later release
}

}  // namespace framedsp
