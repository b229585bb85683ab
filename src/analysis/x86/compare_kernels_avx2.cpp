// AVX2 kernels of the comparison table: the shared step on 32-byte vectors.  Compiled with
// -mavx2; entered only when cpu_flags() has AVX2.
#include "analysis/compare_kernels.h"
#include "analysis/x86/compare_step_x86.h"
#include "platform/x86/vec_avx2.h"

namespace framedsp {

void compare_init_avx2(CompareKernelTable *table) {
  compare_detail::compare_fill_x86<VecAvx2>(table);
}

}  // namespace framedsp
