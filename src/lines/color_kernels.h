// Colour-matrix line kernels of the copy: BT.601 <-> BT.709 on 8-bit 4:2:2 lines.
//
// Arithmetic (identical in every kernel, scalar and SIMD):
//   cb' = Cb - 128, cr' = Cr - 128
//   Y_out  = clamp(Y  + ((m[0] * cb' + m[1] * cr' + 8192) >> 14), 0, 255)   for both Y of the pair
//   Cb_out = clamp(128 + ((m[2] * cb' + m[3] * cr' + 8192) >> 14), 0, 255)
//   Cr_out = clamp(128 + ((m[4] * cb' + m[5] * cr' + 8192) >> 14), 0, 255)
// with the coefficient pairs of ColorMatrix in units of 1/16384 and >> an arithmetic shift
// (round half up: floor(x / 16384 + 1/2)).  |m| < 2^15 and |cb'|, |cr'| <= 128, so every sum
// fits 32 bits (and the 16 x 16 -> 32 multiply-add of the SIMD kernels).
#pragma once

#include <cstddef>
#include <cstdint>

namespace framedsp {

// The three (Cb, Cr) weight pairs for Y, Cb and Cr, in units of 1/16384.
struct ColorMatrix {
  int16_t y_cb, y_cr;
  int16_t cb_cb, cb_cr;
  int16_t cr_cb, cr_cr;
};

extern const ColorMatrix kBt601ToBt709;  // (-1893, -3406) (16689, 1878) (1229, 16799)
extern const ColorMatrix kBt709ToBt601;  // (1627, 3141) (16217, -1813) (-1187, 16112)

// The matrix from colour space `in` to `out` (DSP_COLOR_SPACE_*), or null when the pair has none
// (equal spaces, unspecified): the kernels then copy unchanged.
const ColorMatrix *color_matrix(uint32_t in_space, uint32_t out_space);

// Converts `pixels` pixels (pixels / 2 pairs; an odd last pixel is copied unchanged) from src to
// dst.  dst may be any address (the copy passes it a 16-byte-aligned work line).  A null matrix
// copies.  Reads and writes exactly pixels * 2 bytes.
using ColorLineKernel = void (*)(const uint8_t *src, uint8_t *dst, size_t pixels,
                                 const ColorMatrix *matrix);

struct ColorKernelTable {
  ColorLineKernel uyvy;  // U Y V Y (format 21 and the common 4:2:2 layout)
  ColorLineKernel yuyv;  // Y U Y V (format 25)
};

void color_uyvy_c(const uint8_t *src, uint8_t *dst, size_t pixels, const ColorMatrix *matrix);
void color_yuyv_c(const uint8_t *src, uint8_t *dst, size_t pixels, const ColorMatrix *matrix);

// Scalar kernels, then the SIMD ones `cpu_flags` allows.
void color_table_init(ColorKernelTable *table, uint32_t cpu_flags);
uint32_t color_isas_built();

#if defined(FRAMEDSP_HAVE_X86)
void color_init_sse2(ColorKernelTable *table);
#endif

}  // namespace framedsp
