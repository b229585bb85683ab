// SSE2 motion kernels (16-byte steps).  Compiled with -msse2; entered when cpu_flags() has SSE2.
#include "analysis/x86/motion_activity_x86.h"
#include "analysis/x86/motion_ring_x86.h"
#include "analysis/x86/motion_sad_x86.h"
#include "analysis/x86/motion_sub_x86.h"

namespace framedsp {

void motion_kernels_init_sse2(MotionKernels *table) {
  motion_x86::fill_table(table);
  table->activity4 = motion_x86::activity4_x86;
  table->activity8 = motion_x86::activity8_x86;
  table->ring_refine = motion_x86::ring_refine_x86;
  table->sad_sub16 = motion_x86::sad_sub16_x86;
}

}  // namespace framedsp
