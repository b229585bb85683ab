// FIR line kernels: one symmetric 3..15-tap low-pass along a line of packed samples
// (horizontal) or across rows (vertical), on the format's own bytes.
//
// Every output sample: acc = c_centre * x0 + sum_k c_k * (x_-k + x_+k) in int32 (the pair is added
// before the multiply), out = clamp((acc + 256) >> 9, 0, 255).  15 products of |c| < 2^15 and
// x + x < 2^9 fit int32 with room to spare.
//
// Horizontal kernels, one per (layout class, tap count).  Each byte of a line belongs to one
// component whose neighbours lie `distance` bytes away (table below).  Edges: a left tap at
// p - k*d is used when p >= k*d, a right tap at p + k*d when p + k*d + 1 < length; a tap that fails
// its test reads the centre sample x0 instead.  The right test is one byte stricter than the left
// on purpose: the last byte of a line is never read as a right-hand tap.  (Vertical edges differ
// again: they repeat the last row in range, see below.)
//
//   class  formats      distance per byte (pattern from byte 0 of the line)     margin
//   0      21, others   chroma 4 at even bytes, luma 2 at odd bytes               32
//   1      24           bytes 0, 1 of each 4-byte group: 4; bytes 2, 3 copied     32
//   2      25           luma 2 at even bytes, chroma 4 at odd bytes               32
//   3      17           4 (same kernels as class 5)                                32
//   4      1            3                                                          48
//   5      0            4                                                          32
//   6      261          1                                                          16
//   7      22           class 0 on 16-bit samples: 8 / 4 on first bytes           64
//   8      31           class 2 on 16-bit samples: 4 / 8 on first bytes           64
//   9      23           6 on first bytes                                           96
//   10     129          8 on first bytes                                           64
//   11     262          2 on first bytes                                           32
//
// Bytes that are not filtered are copied from the source, by the scalar and the SIMD code alike:
// bytes 2 and 3 of each class-1 group, and the second byte of every 16-bit sample in classes
// 7..11 (the filter treats the first byte as the 8-bit value, the second is carried along).
// The class-1 layout keeps auxiliary data in bytes 2 and 3 that a low-pass must not smear.
//
// Driver split: left part L = min(lead + margin, length) and right part R = min(trail + margin,
// length) by the scalar edge routine, the middle in 16-byte steps.  The margin covers the widest
// tap reach of the class (7 * distance), so the steps never read outside the line.  The steps run
// only over whole 16-byte blocks; any bytes of the middle they leave go to the edge routine, and a
// line with L + R >= length is done by the edge routine alone in one pass.  lead and trail are
// therefore only alignment hints: every split gives the per-sample formula for every byte, and
// nothing outside [0, length) of the source or destination is touched.
//
// Vertical kernels: the centre row's first byte, the plane's line count H and the centre's row
// index r (both in picture order, in the rows of one field when the field shift f is 1, counted in
// frame rows), the signed distance in bytes from one picture row to the next, the row step
// s = 1 << f.  Offsets for k = 1..(N-1)/2: above -k*s when r >= k*s, else the offset of k-1 (0 for
// k = 1); below +k*s when r + k*s <= H - k*s - 1, else the offset of k-1.  The bottom test is
// stricter than "row exists" on purpose: a tap k rows down needs 2*k*s rows below the centre
// (H = 10, s = 1, 5 taps, r = 7 reads rows 5, 6, 7, 8, 8).
//   Byte kernels filter every byte.  16-bit-lane kernels read the first byte of each 16-bit lane
// as the sample and store the lane as a 16-bit value 0..255 (second byte 0); an odd last byte is
// a lane's first byte and gets the filtered value.  Lead bytes, whole 16-byte steps, the rest by
// the edge routine (lane kernels round the lead up to even so that steps keep lane pairs).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "filter/fir_tables.h"

namespace framedsp {

inline constexpr int kFirClassCount = 12;
inline constexpr int kFirHorzEntries = kFirClassCount * kFirTableCount;  // 84
inline constexpr int kFirKernelEntries = kFirHorzEntries + 2 * kFirTableCount;  // 98

// src, dst: byte 0 of the line (they must not overlap); the kernel writes dst[0, length).
using FirHorzKernel = void (*)(const uint8_t *src, uint8_t *dst, size_t length,
                               const FirTap *coef, size_t lead, size_t trail);
// centre: first byte of row r; dst: the output line (length bytes); stride: bytes from one picture
// row to the next (negative for bottom-up storage); field_shift 0 or 1.
using FirVertKernel = void (*)(const uint8_t *centre, uint8_t *dst, int32_t rows, int32_t row,
                               size_t length, ptrdiff_t stride, size_t lead, size_t trail,
                               int field_shift, const FirTap *coef);

// Entries 0..83 horz[7 * class + tap index]; 84..90 vert (bytes); 91..97 vert16 (16-bit lanes).
struct FirKernelTable {
  FirHorzKernel horz[kFirHorzEntries];
  FirVertKernel vert[kFirTableCount];
  FirVertKernel vert16[kFirTableCount];
};

// Vertical kernels of the fractional-region filter (DspSubPixelFilter): the same arguments and
// steps, other edges.  Tap k reads row max(r - k*s, 0) above and min(r + k*s, H - s) below (H - s
// read as 0 when negative): the clamp is to the absolute first and last rows, so at the edges of
// a field walk the taps may land on the other field's rows.  Entries 0..6 bytes, 7..13 16-bit
// lanes, by tap index.
struct FirSubKernelTable {
  FirVertKernel vert[kFirTableCount];
  FirVertKernel vert16[kFirTableCount];
};

// Scalar kernels, then what `cpu_flags` allows on this build.
void fir_sub_table_init(FirSubKernelTable *table, uint32_t cpu_flags);

// Scalar kernels, then what `cpu_flags` allows on this build.  Cheap: run it once per call.
void fir_table_init(FirKernelTable *table, uint32_t cpu_flags);

#if defined(FRAMEDSP_HAVE_X86)
void fir_init_sse2(FirKernelTable *table);
void fir_init_avx2(FirKernelTable *table);
void fir_sub_init_sse2(FirSubKernelTable *table);
void fir_sub_init_avx2(FirSubKernelTable *table);
#endif

namespace fir_detail {
// Compiled into each kernel file with that file's flags; the unnamed namespace keeps every
// instantiation local to its file (see vec_sse2.h).
namespace {

constexpr int kPeriod[kFirClassCount] = {4, 4, 4, 1, 1, 1, 1, 4, 4, 2, 2, 2};
constexpr int kDist[kFirClassCount][4] = {
    {4, 2, 4, 2}, {4, 4, 0, 0}, {2, 4, 2, 4}, {4, 4, 4, 4}, {3, 3, 3, 3}, {4, 4, 4, 4},
    {1, 1, 1, 1}, {8, 0, 4, 0}, {4, 0, 8, 0}, {6, 0, 6, 0}, {8, 0, 8, 0}, {2, 0, 2, 0}};
constexpr int kMargin[kFirClassCount] = {32, 32, 32, 32, 48, 32, 16, 64, 64, 96, 64, 32};

constexpr int dist_at(int cls, size_t p) { return kDist[cls][p % kPeriod[cls]]; }

inline uint8_t fir_clamp(int32_t acc) {
  const int32_t v = (acc + kFirRound) >> kFirShift;
  return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
}

// Edge routine: bytes [begin, end) of a line of `length` bytes, every tap tested.
template <int kClass, int kTaps>
void fir_h_edge_c(const uint8_t *src, uint8_t *dst, size_t begin, size_t end, size_t length,
                  const FirTap *coef) {
  constexpr int kHalf = (kTaps - 1) / 2;
  for (size_t p = begin; p < end; ++p) {
    const int d = dist_at(kClass, p);
    if (d == 0) {
      dst[p] = src[p];
      continue;
    }
    const int x0 = src[p];
    int32_t acc = coef[kHalf].lane[0] * x0;
    for (int k = 1; k <= kHalf; ++k) {
      const size_t kd = static_cast<size_t>(k) * d;
      const int left = p >= kd ? src[p - kd] : x0;
      const int right = p + kd + 1 < length ? src[p + kd] : x0;
      acc += coef[kHalf - k].lane[0] * (left + right);
    }
    dst[p] = fir_clamp(acc);
  }
}

// Scalar twin of the SIMD step: 16 bytes from byte `pos` of the line, no edge tests (the driver
// keeps steps a margin away from both ends).
template <int kClass, int kTaps>
struct FirHStepC {
  static void run(const uint8_t *s, uint8_t *d, size_t pos, const FirTap *coef) {
    constexpr int kHalf = (kTaps - 1) / 2;
    for (size_t j = 0; j < 16; ++j) {
      const int dist = dist_at(kClass, pos + j);
      if (dist == 0) {
        d[j] = s[j];
        continue;
      }
      const ptrdiff_t jj = static_cast<ptrdiff_t>(j);
      int32_t acc = coef[kHalf].lane[0] * s[jj];
      for (int k = 1; k <= kHalf; ++k) {
        acc += coef[kHalf - k].lane[0] * (s[jj - k * dist] + s[jj + k * dist]);
      }
      d[j] = fir_clamp(acc);
    }
  }
};

template <class Step, int kClass, int kTaps>
void fir_h_kernel(const uint8_t *src, uint8_t *dst, size_t length, const FirTap *coef,
                  size_t lead, size_t trail) {
  const size_t margin = static_cast<size_t>(kMargin[kClass]);
  const size_t left = lead + margin < length ? lead + margin : length;
  const size_t right = trail + margin < length ? trail + margin : length;
  if (left + right >= length) {
    fir_h_edge_c<kClass, kTaps>(src, dst, 0, length, length, coef);
    return;
  }
  const size_t middle_end = length - right;
  const size_t steps_end = left + ((middle_end - left) & ~size_t{15});
  fir_h_edge_c<kClass, kTaps>(src, dst, 0, left, length, coef);
  for (size_t p = left; p < steps_end; p += 16) Step::run(src + p, dst + p, p, coef);
  fir_h_edge_c<kClass, kTaps>(src, dst, steps_end, length, length, coef);
}

// Row offsets (in rows, picture order) of the taps above and below the centre.
template <int kHalf>
struct FirRowOffsets {
  int32_t up[kHalf + 1];
  int32_t down[kHalf + 1];
};

template <int kHalf>
FirRowOffsets<kHalf> fir_v_offsets(int32_t rows, int32_t row, int field_shift) {
  const int32_t s = 1 << field_shift;
  FirRowOffsets<kHalf> o{};
  for (int32_t k = 1; k <= kHalf; ++k) {
    o.up[k] = row >= k * s ? -k * s : o.up[k - 1];
    o.down[k] = row + k * s <= rows - k * s - 1 ? k * s : o.down[k - 1];
  }
  return o;
}

// Row pointers of one call: rp[kHalf] the centre, rp[kHalf - k] above, rp[kHalf + k] below.
template <int kTaps>
struct FirRows {
  const uint8_t *rp[kTaps];
};

template <int kTaps>
FirRows<kTaps> fir_v_rows(const uint8_t *centre, int32_t rows, int32_t row, ptrdiff_t stride,
                          int field_shift) {
  constexpr int kHalf = (kTaps - 1) / 2;
  const FirRowOffsets<kHalf> o = fir_v_offsets<kHalf>(rows, row, field_shift);
  FirRows<kTaps> r{};
  r.rp[kHalf] = centre;
  for (int k = 1; k <= kHalf; ++k) {
    r.rp[kHalf - k] = centre + o.up[k] * stride;
    r.rp[kHalf + k] = centre + o.down[k] * stride;
  }
  return r;
}

// Vertical edge routine, bytes [begin, end).  kLanes: 16-bit lanes (first byte the sample).
template <int kTaps, bool kLanes>
void fir_v_edge_c(const FirRows<kTaps> &r, uint8_t *dst, size_t begin, size_t end,
                  const FirTap *coef) {
  constexpr int kHalf = (kTaps - 1) / 2;
  for (size_t p = begin; p < end; ++p) {
    if (kLanes && (p & 1)) {
      dst[p] = 0;
      continue;
    }
    int32_t acc = coef[kHalf].lane[0] * r.rp[kHalf][p];
    for (int k = 1; k <= kHalf; ++k) {
      acc += coef[kHalf - k].lane[0] * (r.rp[kHalf - k][p] + r.rp[kHalf + k][p]);
    }
    dst[p] = fir_clamp(acc);
  }
}

template <int kTaps, bool kLanes>
struct FirVStepC {
  static void run(const FirRows<kTaps> &r, uint8_t *dst, size_t pos, const FirTap *coef) {
    fir_v_edge_c<kTaps, kLanes>(r, dst, pos, pos + 16, coef);
  }
};

// Rows of a fractional-region vertical call: absolute clamps to rows 0 and H - s.
template <int kTaps>
FirRows<kTaps> fir_sv_rows(const uint8_t *centre, int32_t rows, int32_t row, ptrdiff_t stride,
                           int field_shift) {
  constexpr int kHalf = (kTaps - 1) / 2;
  const int32_t s = 1 << field_shift;
  const int32_t last = rows - s > 0 ? rows - s : 0;
  const uint8_t *const base = centre - row * stride;  // picture row 0, the centre's column
  FirRows<kTaps> r{};
  r.rp[kHalf] = centre;
  for (int k = 1; k <= kHalf; ++k) {
    const int32_t up = row - k * s;
    const int32_t down = row + k * s;
    r.rp[kHalf - k] = base + (up > 0 ? up : 0) * stride;
    r.rp[kHalf + k] = base + (down < last ? down : last) * stride;
  }
  return r;
}

// The vertical edge rules: taps repeat the last row in range (DspFilter) or clamp to the plane's
// first and last rows (DspSubPixelFilter).
enum class FirEdge { kRepeat, kClamp };

template <class Step, int kTaps, bool kLanes, FirEdge kEdge>
void fir_v_kernel(const uint8_t *centre, uint8_t *dst, int32_t rows, int32_t row, size_t length,
                  ptrdiff_t stride, size_t lead, size_t trail, int field_shift,
                  const FirTap *coef) {
  const FirRows<kTaps> r = kEdge == FirEdge::kRepeat
                               ? fir_v_rows<kTaps>(centre, rows, row, stride, field_shift)
                               : fir_sv_rows<kTaps>(centre, rows, row, stride, field_shift);
  if (kLanes) lead += lead & 1;
  const size_t head = lead < length ? lead : length;
  const size_t tail = trail < length - head ? trail : length - head;
  const size_t steps_end = head + ((length - head - tail) & ~size_t{15});
  fir_v_edge_c<kTaps, kLanes>(r, dst, 0, head, coef);
  for (size_t p = head; p < steps_end; p += 16) Step::run(r, dst, p, coef);
  fir_v_edge_c<kTaps, kLanes>(r, dst, steps_end, length, coef);
}

constexpr int kTapsOf[kFirTableCount] = {3, 5, 7, 9, 11, 13, 15};

// Table fill from step templates: HStep<kClass, kTaps>, VStep<kTaps, kLanes>.
template <template <int, int> class HStep, size_t... I>
void fir_fill(FirKernelTable *t, std::index_sequence<I...>) {
  ((t->horz[I] = &fir_h_kernel<HStep<I / kFirTableCount, kTapsOf[I % kFirTableCount]>,
                               I / kFirTableCount, kTapsOf[I % kFirTableCount]>),
   ...);
}
template <template <int, bool> class VStep, size_t... I>
void fir_fill_v(FirKernelTable *t, std::index_sequence<I...>) {
  ((t->vert[I] = &fir_v_kernel<VStep<kTapsOf[I], false>, kTapsOf[I], false, FirEdge::kRepeat>), ...);
  ((t->vert16[I] = &fir_v_kernel<VStep<kTapsOf[I], true>, kTapsOf[I], true, FirEdge::kRepeat>), ...);
}

template <template <int, bool> class VStep, size_t... I>
void fir_fill_sv(FirSubKernelTable *t, std::index_sequence<I...>) {
  ((t->vert[I] = &fir_v_kernel<VStep<kTapsOf[I], false>, kTapsOf[I], false, FirEdge::kClamp>), ...);
  ((t->vert16[I] = &fir_v_kernel<VStep<kTapsOf[I], true>, kTapsOf[I], true, FirEdge::kClamp>), ...);
}

}  // namespace
}  // namespace fir_detail
}  // namespace framedsp
