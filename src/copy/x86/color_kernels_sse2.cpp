// SSE2 colour-matrix kernels: the shared step on 16-byte vectors (four pairs).  Compiled with
// -msse2; entered when cpu_flags() has SSE2 (the x86-64 baseline).
#include "copy/color_kernels.h"
#include "copy/x86/color_step_x86.h"
#include "platform/x86/vec_sse2.h"

namespace framedsp {

void color_init_sse2(ColorKernelTable *table) { color_detail::color_fill_x86<VecSse2>(table); }

}  // namespace framedsp
