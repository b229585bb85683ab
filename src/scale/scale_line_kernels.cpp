#include "scale/scale_line_kernels.h"

#include <algorithm>
#include <cstring>

#include "copy/color_kernels.h"
#include "lines/pixel_format.h"
#include "platform/cpu.h"

namespace framedsp {
namespace {

// One sample stream: sample i sits at byte (i / kPer) * kGroup + kOffset + (i % kPer) * kSpacing
// and is kBytes wide (1 or 2, little-endian).
template <int kGroup, int kPer, int kOffset, int kSpacing, int kBytes>
struct Stream {
  static size_t at(size_t i) {
    if (kPer == 1) return i * kGroup + kOffset;
    return (i / kPer) * kGroup + kOffset + (i % kPer) * kSpacing;
  }
  static uint32_t load(const uint8_t *p) {
    return kBytes == 1 ? p[0] : static_cast<uint32_t>(p[0] | (p[1] << 8));
  }
  static void store(uint8_t *p, uint32_t v) {
    p[0] = static_cast<uint8_t>(v);
    if (kBytes == 2) p[1] = static_cast<uint8_t>(v >> 8);
  }
};

template <class S, int kGroup, int kPer, bool kLinear>
void resample_stream(const uint8_t *src, uint8_t *dst, uint32_t step, size_t src_bytes,
                     size_t dst_bytes) {
  const size_t src_count = (src_bytes / kGroup) * kPer;
  const size_t dst_count = (dst_bytes / kGroup) * kPer;
  if (src_count == 0 || dst_count == 0) return;
  const uint64_t last = src_count - 1;
  uint64_t acc = 0;
  for (size_t j = 0; j < dst_count; ++j, acc += step) {
    const uint64_t idx = std::min<uint64_t>(acc >> kScaleFractionBits, last);
    const uint32_t a = S::load(src + S::at(static_cast<size_t>(idx)));
    if (!kLinear) {
      S::store(dst + S::at(j), a);
      continue;
    }
    const uint64_t next = std::min<uint64_t>(idx + 1, last);
    const int64_t b = S::load(src + S::at(static_cast<size_t>(next)));
    const int64_t f = static_cast<int64_t>(acc & kScaleFractionMask);
    const int64_t v = ((b - a) * f + int64_t{a} * kScaleOne + 8192) >> kScaleFractionBits;
    S::store(dst + S::at(j), static_cast<uint32_t>(v));
  }
}

// Whole pixels of kPixel 8-bit components, the fast common case (formats 0, 1, 17, 261).
template <int kPixel, bool kLinear>
void resample_pixels(const uint8_t *src, uint8_t *dst, uint32_t step, size_t src_bytes,
                     size_t dst_bytes) {
  const size_t src_count = src_bytes / kPixel;
  const size_t dst_count = dst_bytes / kPixel;
  if (src_count == 0 || dst_count == 0) return;
  const uint32_t last = static_cast<uint32_t>(src_count - 1);
  uint64_t acc = 0;
  for (size_t j = 0; j < dst_count; ++j, acc += step) {
    const uint64_t i64 = acc >> kScaleFractionBits;
    const uint32_t idx = i64 > last ? last : static_cast<uint32_t>(i64);
    const uint8_t *a = src + size_t{idx} * kPixel;
    uint8_t *d = dst + j * kPixel;
    if (!kLinear) {
      for (int c = 0; c < kPixel; ++c) d[c] = a[c];
      continue;
    }
    const uint8_t *b = src + size_t{idx < last ? idx + 1 : last} * kPixel;
    const int f = static_cast<int>(acc & kScaleFractionMask);
    for (int c = 0; c < kPixel; ++c) {
      d[c] = static_cast<uint8_t>(((b[c] - a[c]) * f + a[c] * 16384 + 8192) >> 14);
    }
  }
}

// 8-bit 4:2:2 lines: luma at kY0 and kY1, chroma at kCb and kCr of each 4-byte group.
template <int kY0, int kY1, int kCb, int kCr, bool kLinear>
void resample_422(const uint8_t *src, uint8_t *dst, uint32_t step, size_t src_bytes,
                  size_t dst_bytes) {
  const size_t src_groups = src_bytes / 4;
  const size_t dst_groups = dst_bytes / 4;
  if (src_groups == 0 || dst_groups == 0) return;
  const uint32_t last_y = static_cast<uint32_t>(src_groups * 2 - 1);
  const uint32_t last_g = static_cast<uint32_t>(src_groups - 1);
  auto luma_at = [](uint32_t i) -> size_t { return size_t{i >> 1} * 4 + ((i & 1) ? kY1 : kY0); };
  auto clamp = [](uint64_t v, uint32_t last) -> uint32_t {
    return v > last ? last : static_cast<uint32_t>(v);
  };
  uint64_t acc_y = 0;
  uint64_t acc_g = 0;
  for (size_t g = 0; g < dst_groups; ++g, acc_g += step) {
    uint8_t *d = dst + 4 * g;
    for (int half = 0; half < 2; ++half, acc_y += step) {
      const uint32_t i = clamp(acc_y >> 14, last_y);
      const int a = src[luma_at(i)];
      int v = a;
      if (kLinear) {
        const int b = src[luma_at(i < last_y ? i + 1 : last_y)];
        v = ((b - a) * static_cast<int>(acc_y & kScaleFractionMask) + a * 16384 + 8192) >> 14;
      }
      d[half ? kY1 : kY0] = static_cast<uint8_t>(v);
    }
    const uint32_t k = clamp(acc_g >> 14, last_g);
    const uint8_t *a = src + size_t{k} * 4;
    if (!kLinear) {
      d[kCb] = a[kCb];
      d[kCr] = a[kCr];
      continue;
    }
    const uint8_t *b = src + size_t{k < last_g ? k + 1 : last_g} * 4;
    const int f = static_cast<int>(acc_g & kScaleFractionMask);
    d[kCb] = static_cast<uint8_t>(((b[kCb] - a[kCb]) * f + a[kCb] * 16384 + 8192) >> 14);
    d[kCr] = static_cast<uint8_t>(((b[kCr] - a[kCr]) * f + a[kCr] * 16384 + 8192) >> 14);
  }
}

// 16-bit 4:2:2 (classes 7, 8): group of 8 bytes, luma at kY and kY + 4, chroma at kCb and kCr.
template <int kY, int kCb, int kCr, bool kLinear>
void resample_422_16(const uint8_t *src, uint8_t *dst, uint32_t step, size_t src_bytes,
                     size_t dst_bytes) {
  resample_stream<Stream<8, 2, kY, 4, 2>, 8, 2, kLinear>(src, dst, step, src_bytes, dst_bytes);
  resample_stream<Stream<8, 1, kCb, 0, 2>, 8, 1, kLinear>(src, dst, step, src_bytes, dst_bytes);
  resample_stream<Stream<8, 1, kCr, 0, 2>, 8, 1, kLinear>(src, dst, step, src_bytes, dst_bytes);
}

// kComponents 16-bit components a pixel (classes 9, 10, 11).
template <int kComponents, bool kLinear>
void resample_16(const uint8_t *src, uint8_t *dst, uint32_t step, size_t src_bytes,
                 size_t dst_bytes) {
  constexpr int kGroup = 2 * kComponents;
  resample_stream<Stream<kGroup, 1, 0, 0, 2>, kGroup, 1, kLinear>(src, dst, step, src_bytes, dst_bytes);
  if (kComponents > 1)
    resample_stream<Stream<kGroup, 1, 2, 0, 2>, kGroup, 1, kLinear>(src, dst, step, src_bytes, dst_bytes);
  if (kComponents > 2)
    resample_stream<Stream<kGroup, 1, 4, 0, 2>, kGroup, 1, kLinear>(src, dst, step, src_bytes, dst_bytes);
  if (kComponents > 3)
    resample_stream<Stream<kGroup, 1, 6, 0, 2>, kGroup, 1, kLinear>(src, dst, step, src_bytes, dst_bytes);
}

// Bytes a unit of the planned class: the pixel in classes 3..6, one byte in classes 0..2.
size_t plan_unit(uint32_t cls) {
  switch (cls) {
    case 0: case 1: case 2: return 1;
    case 3: case 5: return 4;
    case 4: return 3;
    case 6: return 1;
    default: return 0;
  }
}

template <int K>
void planned_nearest(const uint8_t *src, uint8_t *dst, const ScaleLinePlan *p) {
  const ScalePlanEntry *plan = p->entries;
  for (size_t j = 0; j < p->count; ++j, dst += K) std::memcpy(dst, src + plan[j].a, K);
}

template <int K>
void planned_linear(const uint8_t *src, uint8_t *dst, const ScaleLinePlan *p) {
  const ScalePlanEntry *plan = p->entries;
  for (size_t j = 0; j < p->count; ++j, dst += K) {
    const uint8_t *a = src + plan[j].a;
    const uint8_t *b = src + plan[j].b;
    const uint32_t f = plan[j].f, g = kScaleOne - f;
    for (int c = 0; c < K; ++c) dst[c] = static_cast<uint8_t>((a[c] * g + b[c] * f + 8192) >> 14);
  }
}

inline uint8_t clamp_u8(int v) { return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v)); }
inline int sat16(int v) { return v < -32768 ? -32768 : (v > 32767 ? 32767 : v); }

template <int kY0, int kY1, int kCb, int kCr>
void convert_422(uint8_t *line, size_t bytes, const ScaleColorCoefficients *k) {
  const int16_t(*w)[4] = k->w;
  const int round = w[3][3];
  for (size_t g = 0; g + 4 <= bytes; g += 4) {
    uint8_t *p = line + g;
    const int cb = p[kCb] - 128;
    const int cr = p[kCr] - 128;
    const int dy = w[0][1] * cb + w[0][2] * cr + round;
    p[kY0] = clamp_u8(sat16(w[0][0] * p[kY0] + dy) >> 6);
    p[kY1] = clamp_u8(sat16(w[0][0] * p[kY1] + dy) >> 6);
    p[kCb] = clamp_u8(w[3][1] + (sat16(w[1][1] * cb + w[1][2] * cr + round) >> 6));
    p[kCr] = clamp_u8(w[3][2] + (sat16(w[2][1] * cb + w[2][2] * cr + round) >> 6));
  }
}

int16_t to_six_bits(int16_t weight14) {
  // Round half away from zero: weight / 256.
  const int v = weight14 >= 0 ? (weight14 + 128) / 256 : -((-weight14 + 128) / 256);
  return static_cast<int16_t>(v);
}

}  // namespace

void scale_blend_c(const uint8_t *a, const uint8_t *b, uint8_t *dst, uint32_t weight_b,
                   uint32_t weight_a, size_t bytes) {
  if (weight_a == 0) {
    std::memmove(dst, b, bytes);
    return;
  }
  for (size_t i = 0; i < bytes; ++i) {
    dst[i] = scale_blend_byte(a[i], b[i], weight_a, weight_b);
  }
}

void scale_planned_linear4_c(const uint8_t *src, uint8_t *dst, const ScaleLinePlan *plan) {
  planned_linear<4>(src, dst, plan);
}

void scale_planned_bytes_c(const uint8_t *src, uint8_t *dst, const ScaleLinePlan *plan, size_t first,
                           size_t end, bool linear) {
  const uint32_t unit = plan->unit;
  for (size_t t = first; t < end; ++t) {
    const ScalePlanEntry &e = plan->entries[t / unit];
    const uint32_t c = static_cast<uint32_t>(t % unit);
    const uint32_t a = src[e.a + c];
    if (!linear) {
      dst[t] = static_cast<uint8_t>(a);
      continue;
    }
    dst[t] = static_cast<uint8_t>((a * (kScaleOne - e.f) + src[e.b + c] * e.f + 8192) >> 14);
  }
}

void scale_planned_pair_bytes_c(const uint8_t *src_a, const uint8_t *src_b, uint8_t *dst,
                                const ScaleLinePlan *plan, uint32_t weight_b, size_t first, size_t end) {
  const uint32_t weight_a = kScaleOne - weight_b;
  const uint32_t unit = plan->unit;
  for (size_t t = first; t < end; ++t) {
    const ScalePlanEntry &e = plan->entries[t / unit];
    const uint32_t c = static_cast<uint32_t>(t % unit);
    const uint32_t g = kScaleOne - e.f;
    const uint32_t a = (src_a[e.a + c] * g + src_a[e.b + c] * e.f + 8192) >> 14;
    const uint32_t b = (src_b[e.a + c] * g + src_b[e.b + c] * e.f + 8192) >> 14;
    dst[t] = static_cast<uint8_t>((a * weight_a + b * weight_b + 8192) >> 14);
  }
}

void scale_planned_linear_pair_c(const uint8_t *src_a, const uint8_t *src_b, uint8_t *dst,
                                 const ScaleLinePlan *plan, uint32_t weight_b) {
  scale_planned_pair_bytes_c(src_a, src_b, dst, plan, weight_b, 0, plan->count * plan->unit);
}

uint32_t scale_plan_unit(uint32_t cls) { return static_cast<uint32_t>(plan_unit(cls)); }

void scale_plan_build_blocks(const ScalePlanEntry *plan, size_t count, uint32_t unit, size_t src_bytes,
                             bool linear, ScaleLineBlock *blocks) {
  const size_t block_count = count * unit / 16;
  for (size_t k = 0; k < block_count; ++k) {
    ScaleLineBlock &blk = blocks[k];
    std::memset(&blk, 0, sizeof blk);
    blk.fits = src_bytes >= 16 ? 1u : 0u;
    for (int half = 0; half < 2; ++half) {
      uint64_t lo = UINT64_MAX, hi = 0;
      for (int i = 0; i < 8; ++i) {
        const size_t t = k * 16 + size_t(half) * 8 + size_t(i);
        const ScalePlanEntry &e = plan[t / unit];
        const uint64_t c = t % unit;
        lo = std::min<uint64_t>(lo, e.a + c);
        hi = std::max<uint64_t>(hi, e.a + c);
        if (linear) {
          lo = std::min<uint64_t>(lo, e.b + c);
          hi = std::max<uint64_t>(hi, e.b + c);
        }
      }
      if (blk.fits == 0) break;
      const uint64_t base = std::min<uint64_t>(lo, src_bytes - 16);
      if (hi - base > 15) {
        blk.fits = 0;
        break;
      }
      blk.base[half] = static_cast<uint32_t>(base);
      const uint8_t mark = half ? 0x80 : 0x00;
      for (int i = 0; i < 8; ++i) {
        const size_t t = k * 16 + size_t(half) * 8 + size_t(i);
        const ScalePlanEntry &e = plan[t / unit];
        const uint32_t c = static_cast<uint32_t>(t % unit);
        const int slot = half * 8 + i;
        blk.index_a[slot] = static_cast<uint8_t>(mark | (e.a + c - base));
        blk.index_b[slot] = static_cast<uint8_t>(mark | ((linear ? e.b + c : e.a + c) - base));
        blk.f2[slot] = static_cast<int16_t>(linear ? 2 * e.f : 0);
      }
    }
  }
}

size_t scale_plan_entries(uint32_t cls, size_t dst_bytes) {
  const size_t unit = plan_unit(cls);
  if (unit == 0) return 0;
  const size_t group = cls <= 2 ? 4 : unit;
  return dst_bytes / group * group / unit;
}

void scale_plan_build(uint32_t cls, uint32_t step, size_t src_bytes, size_t dst_bytes, ScalePlanEntry *plan) {
  const size_t unit = plan_unit(cls);
  if (unit == 0) return;
  auto entry = [step](uint64_t j, uint64_t count, auto at) {
    const uint64_t acc = j * step;
    const uint64_t last = count - 1;
    const uint64_t i = std::min<uint64_t>(acc >> kScaleFractionBits, last);
    return ScalePlanEntry{static_cast<uint32_t>(at(i)), static_cast<uint32_t>(at(std::min(i + 1, last))),
                          static_cast<uint32_t>(acc & kScaleFractionMask)};
  };
  if (cls > 2) {
    const size_t src_count = src_bytes / unit, dst_count = dst_bytes / unit;
    if (src_count == 0) return;
    for (size_t j = 0; j < dst_count; ++j) plan[j] = entry(j, src_count, [unit](uint64_t i) { return i * unit; });
    return;
  }
  // 4:2:2: byte positions of the two luma samples and the two chroma samples in a group.
  static const int kLayout[3][4] = {{1, 3, 0, 2}, {2, 3, 0, 1}, {0, 2, 1, 3}};  // Y0 Y1 Cb Cr
  const int *l = kLayout[cls];
  const size_t src_groups = src_bytes / 4, dst_groups = dst_bytes / 4;
  if (src_groups == 0) return;
  auto luma = [l](uint64_t i) { return (i >> 1) * 4 + static_cast<uint64_t>((i & 1) ? l[1] : l[0]); };
  for (size_t g = 0; g < dst_groups; ++g) {
    ScalePlanEntry *e = plan + 4 * g;
    e[l[0]] = entry(2 * g, src_groups * 2, luma);
    e[l[1]] = entry(2 * g + 1, src_groups * 2, luma);
    for (int c = 2; c < 4; ++c) {
      const uint64_t offset = static_cast<uint64_t>(l[c]);
      e[l[c]] = entry(g, src_groups, [offset](uint64_t i) { return i * 4 + offset; });
    }
  }
}

bool scale_color_coefficients(uint32_t in_space, uint32_t out_space, ScaleColorCoefficients *k) {
  const ColorMatrix *m = color_matrix(in_space, out_space);
  if (!m) return false;
  std::memset(k, 0, sizeof *k);
  k->w[0][0] = 64;
  k->w[0][1] = to_six_bits(m->y_cb);
  k->w[0][2] = to_six_bits(m->y_cr);
  k->w[1][1] = to_six_bits(m->cb_cb);
  k->w[1][2] = to_six_bits(m->cb_cr);
  k->w[2][1] = to_six_bits(m->cr_cb);
  k->w[2][2] = to_six_bits(m->cr_cr);
  k->w[3][1] = 128;
  k->w[3][2] = 128;
  k->w[3][3] = 32;
  return true;
}

void scale_line_table_init(ScaleLineTable *t, uint32_t cpu_flags) {
  t->nearest[0] = resample_422<1, 3, 0, 2, false>;
  t->linear[0] = resample_422<1, 3, 0, 2, true>;
  t->nearest[1] = resample_422<2, 3, 0, 1, false>;
  t->linear[1] = resample_422<2, 3, 0, 1, true>;
  t->nearest[2] = resample_422<0, 2, 1, 3, false>;
  t->linear[2] = resample_422<0, 2, 1, 3, true>;
  t->nearest[3] = resample_pixels<4, false>;
  t->linear[3] = resample_pixels<4, true>;
  t->nearest[4] = resample_pixels<3, false>;
  t->linear[4] = resample_pixels<3, true>;
  t->nearest[5] = resample_pixels<4, false>;
  t->linear[5] = resample_pixels<4, true>;
  t->nearest[6] = resample_pixels<1, false>;
  t->linear[6] = resample_pixels<1, true>;
  t->nearest[7] = resample_422_16<2, 0, 4, false>;
  t->linear[7] = resample_422_16<2, 0, 4, true>;
  t->nearest[8] = resample_422_16<0, 2, 6, false>;
  t->linear[8] = resample_422_16<0, 2, 6, true>;
  t->nearest[9] = resample_16<3, false>;
  t->linear[9] = resample_16<3, true>;
  t->nearest[10] = resample_16<4, false>;
  t->linear[10] = resample_16<4, true>;
  t->nearest[11] = resample_16<1, false>;
  t->linear[11] = resample_16<1, true>;
  for (auto &c : t->convert) c = nullptr;
  for (int c = 0; c < kScaleClasses; ++c) {
    t->planned_nearest[c] = t->planned_linear[c] = nullptr;
    t->nearest_uses_blocks[c] = t->linear_uses_blocks[c] = false;
    t->planned_linear_pair[c] = nullptr;
  }
  for (int c = 0; c <= 2; ++c) {
    t->planned_nearest[c] = planned_nearest<1>;
    t->planned_linear[c] = planned_linear<1>;
  }
  t->planned_nearest[3] = t->planned_nearest[5] = planned_nearest<4>;
  t->planned_linear[3] = t->planned_linear[5] = planned_linear<4>;
  t->planned_nearest[4] = planned_nearest<3>;
  t->planned_linear[4] = planned_linear<3>;
  t->planned_nearest[6] = planned_nearest<1>;
  t->planned_linear[6] = planned_linear<1>;
  t->convert[0] = convert_422<1, 3, 0, 2>;
  t->convert[1] = convert_422<2, 3, 0, 1>;
  t->convert[2] = convert_422<0, 2, 1, 3>;
  t->blend = scale_blend_c;
#if defined(FRAMEDSP_HAVE_X86)
  if (cpu_flags & kCpuSSE2) scale_lines_init_sse2(t);
  if (cpu_flags & kCpuSSSE3) scale_lines_init_ssse3(t);
  if ((cpu_flags & kCpuSSSE3) && (cpu_flags & kCpuAVX2)) scale_lines_init_avx2(t);
#else
  (void)cpu_flags;
#endif
}

}  // namespace framedsp
