// Box (moving-average) filter of one plane, and the row and line kernels behind it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/status.h"

namespace framedsp {

// Box (moving-average) filter of one plane with window sizes 1..256 per direction (1 = that
// direction off; at least one above 1).  Cost per pixel independent of the window size.
HRESULT box_filter_plane(const DSP_BUFFER &buffer, uint32_t horz_size, uint32_t vert_size);

constexpr uint32_t kBoxMaxSize = 256;
constexpr uint32_t kBoxShift = 23;             // sums are scaled by R / 2^23
constexpr uint32_t kBoxOne = 1u << kBoxShift;  // 8388608
constexpr uint32_t kBoxRound = kBoxOne >> 1;   // 4194304
constexpr uint32_t kBoxClasses = 12;

// An N-sample window covers N/2 samples before the centre and N - N/2 - 1 after it, so an even
// window reaches one sample further up or left.
struct BoxWindow {
  int32_t before;
  int32_t after;
  uint32_t recip;  // R = trunc(2^23 / (Nh * Nv) + 0.5), computed in double
};
inline int32_t box_before(uint32_t n) { return static_cast<int32_t>(n / 2); }
inline int32_t box_after(uint32_t n) { return static_cast<int32_t>(n - n / 2 - 1); }
uint32_t box_reciprocal(uint32_t horz_size, uint32_t vert_size);

// Column sums: acc[i] +=/-= sample i of the row.  The 8-bit forms read n bytes; the 16-bit forms
// read n little-endian 16-bit words (2n bytes).  A column holds at most 256 rows, so 256 * 65535
// fits easily in 32 bits.
using BoxRowKernel = void (*)(uint32_t *acc, const uint8_t *row, size_t n);
void box_row_add_u8_c(uint32_t *acc, const uint8_t *row, size_t n);
void box_row_sub_u8_c(uint32_t *acc, const uint8_t *row, size_t n);
void box_row_add_u16_c(uint32_t *acc, const uint8_t *row, size_t n);
void box_row_sub_u16_c(uint32_t *acc, const uint8_t *row, size_t n);

// One vertical step in a single pass: acc[i] = acc[i] - leave sample i + enter sample i (modulo
// 2^32, so the same as a sub step then an add step).
using BoxMoveKernel = void (*)(uint32_t *acc, const uint8_t *leave, const uint8_t *enter, size_t n);
void box_row_move_u8_c(uint32_t *acc, const uint8_t *leave, const uint8_t *enter, size_t n);
void box_row_move_u16_c(uint32_t *acc, const uint8_t *leave, const uint8_t *enter, size_t n);

struct BoxRowKernels {
  BoxRowKernel add_u8, sub_u8, add_u16, sub_u16;
  BoxMoveKernel move_u8, move_u16;
};
// Scalar kernels, then the SIMD ones `cpu_flags` allows (all byte-identical to the scalar ones).
void box_row_table_init(BoxRowKernels *table, uint32_t cpu_flags);

#if defined(FRAMEDSP_HAVE_X86)
// Built with the SSE2 / AVX2 flags; only box_row_table_init calls them, after checking the flag.
void box_row_init_sse2(BoxRowKernels *table);
void box_row_init_avx2(BoxRowKernels *table);
#endif

// Horizontal pass of one layout class along a line of `n` column sums (one per sample: per byte
// for classes 0..6, per 16-bit word for 7..11), writing the line's n samples to dst and nothing
// else.  Each component is averaged with its own samples only; positions beyond either end of
// the line repeat the end sample.  8-bit classes store min(255, (S * R + 2^22) >> 23); 16-bit
// classes store min(65535, the same value computed in 64 bits) as a little-endian word.
//
// The line of sums must have kBoxPad writable elements before sums[0] and after sums[n - 1]:
// the SIMD kernels write the repeated end samples there so that their inner loops need no
// clamping (the scalar kernels leave them alone).  The sums themselves are only read.
using BoxHorzKernel = void (*)(uint32_t *sums, uint8_t *dst, size_t n, const BoxWindow &w);
constexpr size_t kBoxPad = 544;  // >= 4 * (kBoxMaxSize / 2 + 3), a multiple of 8

// The four-sample-group classes (0, 2, 3, 5) seen as four lanes a group: lanes whose bit is set
// in `luma_lanes` hold luma samples two apart (the 4:2:2 classes: 0xA for class 0, 0x5 for
// class 2), the others a component four apart (0 for classes 3 and 5).  A SIMD group kernel
// pads the line with the repeated end samples, 4 * before elements on the left and
// 4 * (after + 3) on the right, each group of the padding equal to the `head` or `tail` pattern
// of box_group_ends.  box_group_luma_start gives the window sums of group 0's luma lanes from
// the padded line (the other lanes are summed by the kernels).  Lines of whole groups only
// (n % 4 == 0, n > 0).
void box_group_ends(const uint32_t *sums, size_t n, uint32_t luma_lanes, uint32_t head[4], uint32_t tail[4]);
void box_group_luma_start(const uint32_t *sums, uint32_t luma_lanes, const BoxWindow &w, uint32_t out[4]);
// The scalar kernel (the reference); null for an empty entry (class >= kBoxClasses).
BoxHorzKernel box_horz_kernel(uint32_t layout_class);
// The kernel `cpu_flags` allows: a SIMD one where one is built for the class (byte-identical to
// the scalar one), else box_horz_kernel(layout_class).
BoxHorzKernel box_horz_kernel(uint32_t layout_class, uint32_t cpu_flags);
#if defined(FRAMEDSP_HAVE_X86)
// Built with the SSE2 / AVX2 flags; null for a class without a kernel of that ISA.
BoxHorzKernel box_horz_kernel_sse2(uint32_t layout_class);
BoxHorzKernel box_horz_kernel_avx2(uint32_t layout_class);
#endif

// Bytes per sample of a layout class: 1 for 0..6, 2 for 7..11.
inline uint32_t box_sample_bytes(uint32_t layout_class) { return layout_class >= 7 ? 2 : 1; }

}  // namespace framedsp
