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
#include <cstring>

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

#if defined(FRAMEDSP_HAVE_X86)
// Built only inside the library with their files' ISA flags; only color_table_init calls them,
// each after checking its flag.
void color_init_sse2(ColorKernelTable *table);
void color_init_avx2(ColorKernelTable *table);
#endif

namespace color_detail {

// Compiled into each kernel file with that file's ISA flags.  The unnamed namespace keeps every
// instantiation local to its file, so the linker cannot hand the scalar kernels a copy of the
// driver built with -mavx2.
namespace {

// Byte offsets inside one 4-byte pixel pair.
struct UyvyLayout {
  static constexpr unsigned kCb = 0, kY0 = 1, kCr = 2, kY1 = 3;
};
struct YuyvLayout {
  static constexpr unsigned kY0 = 0, kCb = 1, kY1 = 2, kCr = 3;
};

inline uint8_t clamp_u8(int v) { return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v)); }

// One pair by the formula above.  Sums stay within +-18567 * 128 + 8192 (int32); >> on a
// negative int is arithmetic on every compiler we build with.
template <class L>
inline void color_pair(const uint8_t *s, uint8_t *d, const ColorMatrix &m) {
  const int cb = int{s[L::kCb]} - 128;
  const int cr = int{s[L::kCr]} - 128;
  const int dy = (m.y_cb * cb + m.y_cr * cr + 8192) >> 14;
  const int cb_out = 128 + ((m.cb_cb * cb + m.cb_cr * cr + 8192) >> 14);
  const int cr_out = 128 + ((m.cr_cb * cb + m.cr_cr * cr + 8192) >> 14);
  d[L::kY0] = clamp_u8(s[L::kY0] + dy);
  d[L::kY1] = clamp_u8(s[L::kY1] + dy);
  d[L::kCb] = clamp_u8(cb_out);
  d[L::kCr] = clamp_u8(cr_out);
}

// Scalar twin of the SIMD steps: kPairs pairs a step, so the scalar kernels run the same split.
template <class L, size_t N>
struct ColorStepC {
  static constexpr size_t kPairs = N;
  struct Consts {
    explicit Consts(const ColorMatrix &matrix) : m(matrix) {}
    ColorMatrix m;
  };
  static void run(const uint8_t *s, uint8_t *d, const Consts &k) {
    for (size_t p = 0; p < N; ++p) color_pair<L>(s + 4 * p, d + 4 * p, k.m);
  }
};

// The line driver of every kernel: whole steps from pixel 0 (loads and stores are unaligned, so
// the head is empty), the remaining pairs one at a time, an odd last pixel copied.  Nothing
// outside [0, pixels * 2) is read or written.  memmove for the null matrix: the caller may
// convert in place.
template <class Step, class L>
inline void color_line(const uint8_t *src, uint8_t *dst, size_t pixels, const ColorMatrix *m) {
  const size_t bytes = pixels * 2;
  if (bytes == 0) return;
  if (!m) {
    std::memmove(dst, src, bytes);
    return;
  }
  const size_t pairs = pixels / 2;
  const size_t body = pairs - pairs % Step::kPairs;
  const typename Step::Consts k(*m);
  size_t p = 0;
  for (; p < body; p += Step::kPairs) Step::run(src + 4 * p, dst + 4 * p, k);
  for (; p < pairs; ++p) color_pair<L>(src + 4 * p, dst + 4 * p, *m);
  if (pixels & 1) {
    dst[bytes - 2] = src[bytes - 2];
    dst[bytes - 1] = src[bytes - 1];
  }
}

}  // namespace
}  // namespace color_detail
}  // namespace framedsp
