// Mip-map pyramids (DspCreateMipMaps).  The converter handle is checked by the export; the
// pyramid itself sees only its record.
#pragma once

#include "frame/status.h"

namespace framedsp {

HRESULT create_mipmaps(DSP_MIPMAP_PARAMS *params);

}  // namespace framedsp
