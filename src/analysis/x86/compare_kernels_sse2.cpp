// SSE2 kernels of the comparison table: the shared step on 16-byte vectors.  Compiled with
// -msse2; entered when cpu_flags() has SSE2 (the x86-64 baseline).
#include "analysis/compare_kernels.h"
#include "analysis/x86/compare_step_x86.h"
#include "platform/x86/vec_sse2.h"

namespace framedsp {

void compare_init_sse2(CompareKernelTable *table) {
  compare_detail::compare_fill_x86<VecSse2>(table);
}

}  // namespace framedsp
