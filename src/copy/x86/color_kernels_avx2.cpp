// AVX2 colour-matrix kernels: the shared step on 32-byte vectors (eight pairs).  Compiled with
// -mavx2; entered only when cpu_flags() has AVX2.
#include "copy/color_kernels.h"
#include "copy/x86/color_step_x86.h"
#include "platform/x86/vec_avx2.h"

namespace framedsp {

void color_init_avx2(ColorKernelTable *table) { color_detail::color_fill_x86<VecAvx2>(table); }

}  // namespace framedsp
