// Mip-map pyramids (DspCreateMipMaps).  The converter handle is checked by the export; the
// pyramid itself sees only its record.
#pragma once

#include "platform/status.h"

namespace framedsp {

// The record checks (level list non-null is checked by create_mipmaps): count at most five,
// base and every listed level with a buffer and format 263.
bool mipmaps_accept(const DSP_MIPMAP_PARAMS &params);
HRESULT create_mipmaps(DSP_MIPMAP_PARAMS *params);

}  // namespace framedsp
