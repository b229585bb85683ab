// Block motion vectors (DspCreateMotionVectors).  Not yet available.
#pragma once

#include "platform/status.h"

namespace framedsp {

HRESULT create_motion_vectors(void *params);

}  // namespace framedsp
