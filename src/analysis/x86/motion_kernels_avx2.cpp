// AVX2 motion kernels (32-byte steps, two 16-wide lines a vector).  Compiled with -mavx2; entered
// only when cpu_flags() has AVX2.
#include "analysis/x86/motion_activity_x86.h"
#include "analysis/x86/motion_consistency_avx2.h"
#include "analysis/x86/motion_ring_x86.h"
#include "analysis/x86/motion_sad_x86.h"
#include "analysis/x86/motion_sub_x86.h"

namespace framedsp {

void motion_kernels_init_avx2(MotionKernels *table) {
  motion_x86::fill_table(table);
  table->activity4 = motion_x86::activity4_x86;
  table->activity8 = motion_x86::activity8_x86;
  table->ring_refine = motion_x86::ring_refine_x86;
  table->consistency = motion_x86::consistency_avx2;
  table->sad_sub16 = motion_x86::sad_sub16_x86;
}

}  // namespace framedsp
