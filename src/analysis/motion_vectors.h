// Block motion vectors (DspCreateMotionVectors): the record's checks, then the search of
// analysis/motion_search.h in both directions and the field written at the end.
#pragma once

#include "platform/status.h"

namespace framedsp {

// The operation behind the export's handle check; `params` is a DSP_MOTION_VECTORS_PARAMS.
HRESULT create_motion_vectors(void *params);

}  // namespace framedsp
