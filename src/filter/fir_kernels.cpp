#include "filter/fir_kernels.h"

#include "platform/cpu.h"

namespace framedsp {

using namespace fir_detail;

void fir_table_init(FirKernelTable *table, uint32_t cpu_flags) {
  fir_fill<FirHStepC>(table, std::make_index_sequence<kFirHorzEntries>{});
  fir_fill_v<FirVStepC>(table, std::make_index_sequence<kFirTableCount>{});
#if defined(FRAMEDSP_HAVE_X86)
  if (cpu_flags & kCpuSSE2) fir_init_sse2(table);
  if (cpu_flags & kCpuAVX2) fir_init_avx2(table);
#else
  (void)cpu_flags;
#endif
}

void fir_sub_table_init(FirSubKernelTable *table, uint32_t cpu_flags) {
  fir_fill_sv<FirVStepC>(table, std::make_index_sequence<kFirTableCount>{});
#if defined(FRAMEDSP_HAVE_X86)
  if (cpu_flags & kCpuSSE2) fir_sub_init_sse2(table);
  if (cpu_flags & kCpuAVX2) fir_sub_init_avx2(table);
#else
  (void)cpu_flags;
#endif
}

}  // namespace framedsp
