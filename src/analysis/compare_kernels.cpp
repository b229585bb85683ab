#include "analysis/compare_kernels.h"

#include <cmath>

#include "framedsp/framedsp.h"
#include "platform/cpu.h"

namespace framedsp {

using namespace compare_detail;

void compare_finish(const uint64_t sums[4], uint32_t channel_mask, uint64_t pixels,
                    double *results) {
  // The sums are exact integers.  Accumulating each 32-bit square in a double gives the same
  // value as long as every partial sum stays below 2^53, i.e. for up to 2^53 / 255^2 (about
  // 1.4e11) samples per channel; past that the integer sum is the more exact of the two.
  // 0 pixels give 0 / 0 = NaN, as documented.
  const double n = static_cast<double>(pixels);
  for (unsigned c = 0; c < 4; ++c) {
    if (!(channel_mask & (1u << c))) continue;
    const double mse = static_cast<double>(sums[c]) / n;
    results[c] = mse;
    results[c + 4] = 20.0 * std::log10(255.0 / std::sqrt(mse + 0.00001));
  }
}

// The scalar twins use the SSE2 step lengths: 16 bytes, 48 for the three-byte layout.
void compare_uyvy_c(const uint8_t *a, const uint8_t *b, uint8_t *out, uint32_t lines,
                    size_t bytes_per_line, size_t stride, double *results) {
  compare_run<CompareStepC<UyvyLayout, 16>, UyvyLayout>(a, b, out, lines, bytes_per_line, stride,
                                                         results);
}

void compare_yuyv_c(const uint8_t *a, const uint8_t *b, uint8_t *out, uint32_t lines,
                    size_t bytes_per_line, size_t stride, double *results) {
  compare_run<CompareStepC<YuyvLayout, 16>, YuyvLayout>(a, b, out, lines, bytes_per_line, stride,
                                                         results);
}

void compare_bgr24_c(const uint8_t *a, const uint8_t *b, uint8_t *out, uint32_t lines,
                     size_t bytes_per_line, size_t stride, double *results) {
  compare_run<CompareStepC<Bgr24Layout, 48>, Bgr24Layout>(a, b, out, lines, bytes_per_line,
                                                           stride, results);
}

void compare_bgra32_c(const uint8_t *a, const uint8_t *b, uint8_t *out, uint32_t lines,
                      size_t bytes_per_line, size_t stride, double *results) {
  compare_run<CompareStepC<Bgra32Layout, 16>, Bgra32Layout>(a, b, out, lines, bytes_per_line,
                                                             stride, results);
}

void compare_key8_c(const uint8_t *a, const uint8_t *b, uint8_t *out, uint32_t lines,
                    size_t bytes_per_line, size_t stride, double *results) {
  compare_run<CompareStepC<Key8Layout, 16>, Key8Layout>(a, b, out, lines, bytes_per_line, stride,
                                                         results);
}

uint32_t compare_kernel_id(uint32_t format) {
  switch (format) {
    case DSP_PIXEL_FORMAT_UYVY: return kCompareUyvy;
    case DSP_PIXEL_FORMAT_YUYV: return kCompareYuyv;
    case DSP_PIXEL_FORMAT_BGR24: return kCompareBgr24;
    case DSP_PIXEL_FORMAT_BGRA32: return kCompareBgra32;
    case DSP_PIXEL_FORMAT_KEY8: return kCompareKey8;
    default: return kCompareUyvy;
  }
}

const char *compare_kernel_name(uint32_t id) {
  static const char *const kNames[kCompareKernelCount] = {"uyvy", "yuyv", "bgr24", "bgra32",
                                                          "key8"};
  return id < kCompareKernelCount ? kNames[id] : "?";
}

#if defined(FRAMEDSP_HAVE_X86)
// Kept in this file (no ISA flags): the ISA files are entered only once their flag is seen.
static void compare_init_x86(CompareKernelTable *table, uint32_t cpu_flags) {
  if (cpu_flags & kCpuSSE2) compare_init_sse2(table);
  if (cpu_flags & kCpuAVX2) compare_init_avx2(table);
}
#endif

void compare_table_init(CompareKernelTable *table, uint32_t cpu_flags) {
  table->kernel[kCompareUyvy] = compare_uyvy_c;
  table->kernel[kCompareYuyv] = compare_yuyv_c;
  table->kernel[kCompareBgr24] = compare_bgr24_c;
  table->kernel[kCompareBgra32] = compare_bgra32_c;
  table->kernel[kCompareKey8] = compare_key8_c;
#if defined(FRAMEDSP_HAVE_X86)
  compare_init_x86(table, cpu_flags);
#else
  (void)cpu_flags;
#endif
}

}  // namespace framedsp
