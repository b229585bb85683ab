// Line kernels of the scaler: per-class horizontal resamplers (nearest, linear), the line blender
// and the colour-space line converter.
//
// Positions are 32-bit fixed point with 14 fraction bits: sample index = acc >> 14, fraction
// f = acc & 0x3FFF.  Output sample j of a stream reads acc = j * step; the index is truncated
// (never rounded) and clamped to the last whole sample of the stream.
//   nearest: out = s[idx]
//   linear:  a = s[idx], b = s[min(idx + 1, last)], out = ((b - a) * f + a * 16384 + 8192) >> 14
// Every class is a set of sample streams inside repeating groups of bytes; a line of n bytes
// holds n / group whole groups, and bytes after the last whole group are neither read nor
// written.  Streams (byte offset in the group, spacing of the samples inside one group):
//
//   class  formats        group  streams
//   0      21, others     4      luma at 1 and 3; Cb at 0; Cr at 2                  (8-bit)
//   1      24             4      luma at 2 and 3; Cb at 0; Cr at 1                  (8-bit)
//   2      25             4      luma at 0 and 2; Cb at 1; Cr at 3                  (8-bit)
//   3      17             4      one pixel of 4 bytes, each byte a stream           (8-bit)
//   4      1              3      one pixel of 3 bytes                               (8-bit)
//   5      0              4      one pixel of 4 bytes                               (8-bit)
//   6      261            1      one sample                                         (8-bit)
//   7      22             8      luma at 2 and 6; Cb at 0; Cr at 4                  (16-bit)
//   8      31             8      luma at 0 and 4; Cb at 2; Cr at 6                  (16-bit)
//   9      23             6      three components at 0, 2, 4                        (16-bit)
//   10     129            8      four components at 0, 2, 4, 6                      (16-bit)
//   11     262            2      one sample                                         (16-bit)
//
// The luma streams run at pixel rate (two samples a group in the 4:2:2 classes), the chroma
// streams at group rate; all of them use the same step, pixels (or groups) of source per output
// pixel (or group).  16-bit classes move and interpolate whole little-endian 16-bit samples: the
// linear formula above on values 0..65535 (a choice of this library; nothing is narrowed).
#pragma once

#include <cstddef>
#include <cstdint>

namespace framedsp {

constexpr int kScaleFractionBits = 14;
constexpr uint32_t kScaleOne = 1u << kScaleFractionBits;  // 16384
constexpr uint32_t kScaleFractionMask = kScaleOne - 1;    // 0x3FFF
constexpr int kScaleClasses = 12;

// src and dst are lines of src_bytes and dst_bytes bytes of the same class.
using ScaleResampler = void (*)(const uint8_t *src, uint8_t *dst, uint32_t step, size_t src_bytes,
                                size_t dst_bytes);

// out[i] = (a[i] * weight_a + b[i] * weight_b + 8192) >> 14 for i < bytes (weight_a + weight_b
// = 16384, each 0..16384); weight_a 0 copies b.  dst may equal a or b.
using ScaleBlender = void (*)(const uint8_t *a, const uint8_t *b, uint8_t *dst, uint32_t weight_b,
                              uint32_t weight_a, size_t bytes);

// One byte of the blender's formula (the scalar heads and tails of the SIMD blenders).
inline uint8_t scale_blend_byte(uint8_t a, uint8_t b, uint32_t weight_a, uint32_t weight_b) {
  return static_cast<uint8_t>((a * weight_a + b * weight_b + 8192) >> 14);
}

// Six 64-bit words of four 16-bit coefficients each, six fraction bits:
//   words 0..2: rows for Y, Cb, Cr: (weight of the sample itself (Y row only), weight of cb',
//               weight of cr', 0)
//   word 3:     (0, 128, 128, 32): the output offsets of the rows and the rounding term
//   words 4, 5: zero
// With cb' = Cb - 128, cr' = Cr - 128 and sat16 a clamp to -32768..32767:
//   Y'  = clamp(sat16(w[0][0] * Y + w[0][1] * cb' + w[0][2] * cr' + 32) >> 6, 0, 255)
//   Cb' = clamp(128 + (sat16(w[1][1] * cb' + w[1][2] * cr' + 32) >> 6), 0, 255)
//   Cr' = clamp(128 + (sat16(w[2][1] * cb' + w[2][2] * cr' + 32) >> 6), 0, 255)
// (>> arithmetic).  Both luma samples of a group share the group's chroma.
struct ScaleColorCoefficients {
  int16_t w[6][4];
};

// Converts a line of `bytes` bytes in place (whole 4-byte groups; a partial group is left alone).
using ScaleColorConverter = void (*)(uint8_t *line, size_t bytes, const ScaleColorCoefficients *k);

// The coefficient block for the colour-space pair (DSP_COLOR_SPACE_*): the copy's 14-bit
// BT.601 <-> BT.709 weights rounded to six fraction bits.  False (block untouched) for a pair
// without a conversion.
bool scale_color_coefficients(uint32_t in_space, uint32_t out_space, ScaleColorCoefficients *k);

// A prepared resampler for the 8-bit classes (0..6): one entry per output unit (a whole pixel in
// classes 3..6, a byte in the 4:2:2 classes 0..2) holding the byte offsets of the two source units
// and the fraction, so that a frame kernel computes the positions once per call instead of once
// per line.  Entries cover whole output groups only, in output order; the bytes produced are the
// resampler's own.
struct ScalePlanEntry {
  uint32_t a;  // byte offset of the sample at acc >> 14
  uint32_t b;  // byte offset of the next sample of the same kind (clamped)
  uint32_t f;  // acc & 0x3FFF
};
// Entries a plan of `dst_bytes` output bytes needs (0 for the classes without plans: 7..11).
size_t scale_plan_entries(uint32_t cls, size_t dst_bytes);
void scale_plan_build(uint32_t cls, uint32_t step, size_t src_bytes, size_t dst_bytes,
                      ScalePlanEntry *plan);

// The same positions regrouped for byte-shuffle kernels: one block per 16 output bytes (output
// byte t of the plan is component t % unit of entry t / unit).  Each half of a block (bytes 0..7
// and 8..15) reads one 16-byte window of the source line starting at base[half]; index_a[t] and
// index_b[t] are the window offsets of the two samples, with bit 7 set in the second half so that
// a shuffle of the first window leaves those bytes zero (and a shuffle of the second window, with
// the indices XOR 0x80, the others).  f2 = 2 * f (at most 32766, a signed 16-bit value).  A block
// whose samples do not all fit their windows inside the line (the window never reaches past
// src_bytes) has fits = 0 and is done byte by byte.
struct ScaleLineBlock {
  uint32_t base[2];
  uint32_t fits;
  uint32_t reserved;
  uint8_t index_a[16];
  uint8_t index_b[16];
  int16_t f2[16];
};

// A prepared line: the entries (every resampler reads them) and, optionally, the blocks.
struct ScaleLinePlan {
  const ScalePlanEntry *entries;
  size_t count;     // entries
  uint32_t unit;    // output bytes an entry
  const ScaleLineBlock *blocks;  // null: no blocks
  size_t block_count;            // count * unit / 16
};

// Bytes an entry covers (0 for the classes without plans).
uint32_t scale_plan_unit(uint32_t cls);
// Fills count * unit / 16 blocks from the entries; `linear` also fits the second samples.
void scale_plan_build_blocks(const ScalePlanEntry *plan, size_t count, uint32_t unit, size_t src_bytes,
                             bool linear, ScaleLineBlock *blocks);
// Output bytes [first, end) of a plan, byte by byte: the scalar formula of the planned kernels.
void scale_planned_bytes_c(const uint8_t *src, uint8_t *dst, const ScaleLinePlan *plan, size_t first,
                           size_t end, bool linear);
// Output bytes [first, end) of the pair kernel, byte by byte (its scalar formula).
void scale_planned_pair_bytes_c(const uint8_t *src_a, const uint8_t *src_b, uint8_t *dst,
                                const ScaleLinePlan *plan, uint32_t weight_b, size_t first, size_t end);
void scale_planned_linear_pair_c(const uint8_t *src_a, const uint8_t *src_b, uint8_t *dst,
                                 const ScaleLinePlan *plan, uint32_t weight_b);

using ScalePlannedResampler = void (*)(const uint8_t *src, uint8_t *dst, const ScaleLinePlan *plan);

// Two source lines resampled linearly by one plan and blended in one pass:
//   dst[t] = (A[t] * (16384 - weight_b) + B[t] * weight_b + 8192) >> 14,
// A and B the planned linear resampler's bytes of src_a and src_b, weight_b 1..16383: the bytes
// of resampling both lines and blending them with the line blender.
using ScalePlannedLinearPair = void (*)(const uint8_t *src_a, const uint8_t *src_b, uint8_t *dst,
                                        const ScaleLinePlan *plan, uint32_t weight_b);

struct ScaleLineTable {
  ScalePlannedResampler planned_nearest[kScaleClasses];  // null for classes 7..11
  ScalePlannedResampler planned_linear[kScaleClasses];
  ScaleResampler nearest[kScaleClasses];
  ScaleResampler linear[kScaleClasses];
  // Null for the classes that are never converted (full-chroma, key and 16-bit classes).
  ScaleColorConverter convert[kScaleClasses];
  ScaleBlender blend;
  // Whether the planned resampler of a class reads the plan's blocks (the driver builds them only
  // then; the entries are always built).
  bool nearest_uses_blocks[kScaleClasses];
  bool linear_uses_blocks[kScaleClasses];
  // Null where the level has no pair kernel (the driver then resamples and blends separately).
  ScalePlannedLinearPair planned_linear_pair[kScaleClasses];
};

// Scalar kernels, then the SIMD ones `cpu_flags` allows.
void scale_line_table_init(ScaleLineTable *table, uint32_t cpu_flags);

// The scalar twins, for the differential tests.
void scale_planned_linear4_c(const uint8_t *src, uint8_t *dst, const ScaleLinePlan *plan);
void scale_blend_c(const uint8_t *a, const uint8_t *b, uint8_t *dst, uint32_t weight_b,
                   uint32_t weight_a, size_t bytes);

#if defined(FRAMEDSP_HAVE_X86)
void scale_lines_init_sse2(ScaleLineTable *table);
void scale_blend_sse2(const uint8_t *a, const uint8_t *b, uint8_t *dst, uint32_t weight_b,
                      uint32_t weight_a, size_t bytes);
void scale_lines_init_ssse3(ScaleLineTable *table);
void scale_lines_init_avx2(ScaleLineTable *table);
#endif

}  // namespace framedsp
