#include "analysis/motion_vectors.h"

#include "platform/trace.h"

namespace framedsp {

HRESULT create_motion_vectors(void *params) {
  worker_entry("DspCreateMotionVectors");
  (void)params;
  return kNotImpl;  // the estimator is not available yet
}

}  // namespace framedsp
