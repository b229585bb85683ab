// Block-matching kernels of the motion search (and of the conversion that follows its field):
//   sad      sum |a - b| over a w x h block
//   sad_avg  sum |a - ((b + c + 1) >> 1)|: a block against the rounded-up average of two others
//            (quarter-pixel samples between two half-pixel planes)
//   avg_line out[i] = (a[i] + b[i] + 1) >> 1 over n bytes
//   sad_q    sum |a - q| against the block at quarter-pixel phase (fx, fy) in 0..3 of a picture,
//            bilinear: q = ((4-fx)(4-fy) f(x,y) + fx(4-fy) f(x+1,y) + (4-fx)fy f(x,y+1)
//            + fx fy f(x+1,y+1) + 8) >> 4.  Reads w + 1 columns and h + 1 lines from f (only w
//            and h of them when fx, fy are 0).
// Blocks are 1..64 samples wide and 1..64 lines high; strides may be negative (bottom-up
// pictures).  Sums are exact integers, so every ISA gives the same value whatever its order.
// The table is filled with the scalar kernels, then overridden by what the CPU flags allow.
#pragma once

#include <cstddef>
#include <cstdint>

namespace framedsp {

constexpr uint32_t kSadMaxSide = 64;

using SadKernel = uint32_t (*)(const uint8_t *a, ptrdiff_t a_stride, const uint8_t *b,
                               ptrdiff_t b_stride, uint32_t w, uint32_t h);
using SadAvgKernel = uint32_t (*)(const uint8_t *a, ptrdiff_t a_stride, const uint8_t *b,
                                  ptrdiff_t b_stride, const uint8_t *c, ptrdiff_t c_stride,
                                  uint32_t w, uint32_t h);
using AvgLineKernel = void (*)(const uint8_t *a, const uint8_t *b, uint8_t *out, size_t n);
using SadQKernel = uint32_t (*)(const uint8_t *a, ptrdiff_t a_stride, const uint8_t *f,
                                ptrdiff_t f_stride, uint32_t w, uint32_t h, uint32_t fx, uint32_t fy);

struct MotionKernels {
  SadKernel sad;
  SadAvgKernel sad_avg;
  AvgLineKernel avg_line;
  SadQKernel sad_q;
};

uint32_t sad_c(const uint8_t *a, ptrdiff_t a_stride, const uint8_t *b, ptrdiff_t b_stride,
               uint32_t w, uint32_t h);
uint32_t sad_avg_c(const uint8_t *a, ptrdiff_t a_stride, const uint8_t *b, ptrdiff_t b_stride,
                   const uint8_t *c, ptrdiff_t c_stride, uint32_t w, uint32_t h);
void avg_line_c(const uint8_t *a, const uint8_t *b, uint8_t *out, size_t n);
uint32_t sad_q_c(const uint8_t *a, ptrdiff_t a_stride, const uint8_t *f, ptrdiff_t f_stride,
                 uint32_t w, uint32_t h, uint32_t fx, uint32_t fy);

// Scalar kernels, then whatever `cpu_flags` (CpuFlags bits) allows on this build.
void motion_kernels_init(MotionKernels *table, uint32_t cpu_flags);
// CpuFlags bits this build has motion kernels for (0 without SIMD or off x86).
uint32_t motion_isas_built();

#if defined(FRAMEDSP_HAVE_X86)
void motion_kernels_init_sse2(MotionKernels *table);
void motion_kernels_init_avx2(MotionKernels *table);
#endif

}  // namespace framedsp
