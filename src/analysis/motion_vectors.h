// Block motion vectors (DspCreateMotionVectors).  Not yet available.
#pragma once

#include "frame/status.h"

namespace framedsp {

HRESULT create_motion_vectors(void *params);

}  // namespace framedsp
