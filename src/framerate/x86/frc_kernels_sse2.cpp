#include "framerate/x86/frc_step_x86.h"

namespace framedsp {

void frc_init_sse2(FrcKernels *k) {
  k->tile = mc_tile_sse2_body;
  k->blend = mc_blend_sse2_body;
}

}  // namespace framedsp
