#include "copy/color_kernels.h"

#include "framedsp/framedsp.h"
#include "platform/cpu.h"

namespace framedsp {

using namespace color_detail;

// Each weight is within one unit of the exact studio-range conversion (Y scaled 219, chroma 224;
// Kr/Kb 0.299/0.114 and 0.2126/0.0722); the tests derive those and check.
const ColorMatrix kBt601ToBt709 = {-1893, -3406, 16689, 1878, 1229, 16799};
const ColorMatrix kBt709ToBt601 = {1627, 3141, 16217, -1813, -1187, 16112};

const ColorMatrix *color_matrix(uint32_t in_space, uint32_t out_space) {
  if (in_space == DSP_COLOR_SPACE_BT601 && out_space == DSP_COLOR_SPACE_BT709) {
    return &kBt601ToBt709;
  }
  if (in_space == DSP_COLOR_SPACE_BT709 && out_space == DSP_COLOR_SPACE_BT601) {
    return &kBt709ToBt601;
  }
  return nullptr;
}

// The scalar twins use the SSE2 step length: four pairs, 16 bytes.
void color_uyvy_c(const uint8_t *src, uint8_t *dst, size_t pixels, const ColorMatrix *matrix) {
  color_line<ColorStepC<UyvyLayout, 4>, UyvyLayout>(src, dst, pixels, matrix);
}

void color_yuyv_c(const uint8_t *src, uint8_t *dst, size_t pixels, const ColorMatrix *matrix) {
  color_line<ColorStepC<YuyvLayout, 4>, YuyvLayout>(src, dst, pixels, matrix);
}

#if defined(FRAMEDSP_HAVE_X86)
// Kept in this file (no ISA flags): the ISA files are entered only once their flag is seen.
static void color_init_x86(ColorKernelTable *table, uint32_t cpu_flags) {
  if (cpu_flags & kCpuSSE2) color_init_sse2(table);
  if (cpu_flags & kCpuAVX2) color_init_avx2(table);
}
#endif

void color_table_init(ColorKernelTable *table, uint32_t cpu_flags) {
  table->uyvy = color_uyvy_c;
  table->yuyv = color_yuyv_c;
#if defined(FRAMEDSP_HAVE_X86)
  color_init_x86(table, cpu_flags);
#else
  (void)cpu_flags;
#endif
}

}  // namespace framedsp
