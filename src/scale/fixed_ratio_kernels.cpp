#include "scale/fixed_ratio_kernels.h"

#include <utility>

#include "platform/cpu.h"

namespace framedsp {

using namespace fixed_detail;

namespace {

template <size_t... S>
void fill_slots(FixedRatioTable *t, std::index_sequence<S...>) {
  ((t->ratio[kRatioQuarter][S] = &ratio_kernel_c<kRatioQuarter, static_cast<int>(S)>), ...);
  ((t->ratio[kRatioHalf][S] = &ratio_kernel_c<kRatioHalf, static_cast<int>(S)>), ...);
  ((t->ratio[kRatioDouble][S] = &ratio_kernel_c<kRatioDouble, static_cast<int>(S)>), ...);
  ((t->ratio[kRatioQuadruple][S] = &ratio_kernel_c<kRatioQuadruple, static_cast<int>(S)>), ...);
  ((t->ratio[kRatioHalfLinear][S] = &half_linear_kernel_c<static_cast<int>(S)>), ...);
  ((t->hd[kHdFourThirds][S] = &hd_kernel_c<kHdFourThirds, static_cast<int>(S)>), ...);
  ((t->hd[kHdThreeHalves][S] = &hd_kernel_c<kHdThreeHalves, static_cast<int>(S)>), ...);
  ((t->hd[kHdThreeQuarters][S] = &hd_kernel_c<kHdThreeQuarters, static_cast<int>(S)>), ...);
  ((t->hd[kHdTwoThirds][S] = &hd_kernel_c<kHdTwoThirds, static_cast<int>(S)>), ...);
}

}  // namespace

int fixed_ratio_slot(uint32_t layout_class) {
  switch (layout_class) {
    case 5: return kFixedArgb;
    case 4: return kFixedRgb;
    case 0: return kFixedUyvy;
    case 2: return kFixedYuyv;
    case 6: return kFixedPlane;
    default: return -1;
  }
}

size_t hd_group_out_bytes(int hd_ratio, int slot) {
  return hd_pixels_out(hd_ratio, slot) * static_cast<size_t>(kBpp[slot]);
}
size_t hd_group_in_bytes(int hd_ratio, int slot) {
  return hd_pixels_in(hd_ratio, slot) * static_cast<size_t>(kBpp[slot]);
}
size_t fixed_group_bytes(int slot) { return kPacked422[slot] ? 4 : static_cast<size_t>(kBpp[slot]); }

void fixed_ratio_table_init(FixedRatioTable *table, uint32_t cpu_flags) {
  fill_slots(table, std::make_index_sequence<kFixedFormatCount>{});
#if defined(FRAMEDSP_HAVE_X86)
  if (cpu_flags & kCpuSSE2) fixed_ratio_init_sse2(table);
  if (cpu_flags & kCpuSSSE3) hd_width_init_ssse3(table);
  if (cpu_flags & kCpuAVX2) fixed_ratio_init_avx2(table);
#else
  (void)cpu_flags;
#endif
}

}  // namespace framedsp
