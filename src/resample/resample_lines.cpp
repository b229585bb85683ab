#include "resample/resample_lines.h"

#include <algorithm>
#include <cstring>

#include "platform/cpu.h"

namespace framedsp {
namespace {

constexpr ResampleLane kPlain[4] = {{0, 1, 0, {0, 0}}, {0, 1, 0, {1, 0}}, {0, 1, 0, {2, 0}}, {0, 1, 0, {3, 0}}};

constexpr ResampleLayout kLayouts[kResampleClasses] = {
    // 0: Cb Y0 Cr Y1
    {4, 1, 4, 2, {{1, 1, 0, {0, 0}}, {0, 2, 0, {1, 3}}, {1, 1, 0, {2, 0}}, {0, 2, 1, {1, 3}}}},
    // 1: Cb Cr Y0 Y1
    {4, 1, 4, 2, {{1, 1, 0, {0, 0}}, {1, 1, 0, {1, 0}}, {0, 2, 0, {2, 3}}, {0, 2, 1, {2, 3}}}},
    // 2: Y0 Cb Y1 Cr
    {4, 1, 4, 2, {{0, 2, 0, {0, 2}}, {1, 1, 0, {1, 0}}, {0, 2, 1, {0, 2}}, {1, 1, 0, {3, 0}}}},
    {4, 1, 4, 1, {kPlain[0], kPlain[1], kPlain[2], kPlain[3]}},
    {3, 1, 3, 1, {kPlain[0], kPlain[1], kPlain[2]}},
    {4, 1, 4, 1, {kPlain[0], kPlain[1], kPlain[2], kPlain[3]}},
    {1, 1, 1, 1, {kPlain[0]}},
    // 7: 16-bit Cb Y0 Cr Y1
    {8, 2, 4, 2, {{1, 1, 0, {0, 0}}, {0, 2, 0, {2, 6}}, {1, 1, 0, {4, 0}}, {0, 2, 1, {2, 6}}}},
    // 8: 16-bit Y0 Cb Y1 Cr
    {8, 2, 4, 2, {{0, 2, 0, {0, 4}}, {1, 1, 0, {2, 0}}, {0, 2, 1, {0, 4}}, {1, 1, 0, {6, 0}}}},
    {6, 2, 3, 1, {{0, 1, 0, {0, 0}}, {0, 1, 0, {2, 0}}, {0, 1, 0, {4, 0}}}},
    {8, 2, 4, 1, {{0, 1, 0, {0, 0}}, {0, 1, 0, {2, 0}}, {0, 1, 0, {4, 0}}, {0, 1, 0, {6, 0}}}},
    {2, 2, 1, 1, {{0, 1, 0, {0, 0}}}},
};

inline size_t stream_addr(const ResampleLayout &l, const ResampleLane &lane, int32_t i) {
  const uint32_t u = static_cast<uint32_t>(i);
  return lane.per == 1 ? size_t(u) * l.group + lane.pos[0] : size_t(u >> 1) * l.group + lane.pos[u & 1];
}

// The stream and row of each output byte of block b (bytes 8b .. 8b + 7).
struct ByteRow {
  const ResampleLane *lane;
  const ResampleRowsTable *rows;
  size_t j;
};
inline void block_rows(const ResampleLayout &l, const ResampleHorzPlan &p, size_t b, ByteRow *out) {
  size_t g = b * 8 / l.lanes;
  unsigned li = unsigned(b * 8 % l.lanes);
  for (int i = 0; i < 8; ++i) {
    const ResampleLane &lane = l.lane[li];
    out[i] = {&lane, p.table[lane.table], g * lane.per + lane.sub};
    if (++li == l.lanes) li = 0, ++g;
  }
}

template <int kBytes>
inline int32_t load(const uint8_t *p) {
  return kBytes == 1 ? p[0] : int32_t(p[0] | (p[1] << 8));
}

template <int kBytes>
inline void store(uint8_t *p, int64_t v) {
  constexpr int64_t kMax = kBytes == 1 ? 255 : 65535;
  const int64_t c = v < 0 ? 0 : (v > kMax ? kMax : v);
  p[0] = static_cast<uint8_t>(c);
  if (kBytes == 2) p[1] = static_cast<uint8_t>(c >> 8);
}

// Output samples [first, end) of a line (sample = byte in the 8-bit classes).
template <int kBytes>
void horz_range(const ResampleLayout &l, const uint8_t *src, uint8_t *dst, const ResampleHorzPlan *p, size_t first,
                size_t end) {
  size_t g = first / l.lanes;  // group and lane of output t, walked without a division per sample
  unsigned li = static_cast<unsigned>(first % l.lanes);
  for (size_t t = first; t < end; ++t) {
    const ResampleLane &lane = l.lane[li];
    const ResampleRowsTable &rows = *p->table[lane.table];
    const size_t j = g * lane.per + lane.sub;
    const int16_t *w = rows.w + j * size_t(rows.taps);
    const int32_t f = rows.first[j];
    int64_t acc = 8192;
    for (int32_t k = 0; k < rows.taps; ++k) acc += int64_t{w[k]} * load<kBytes>(src + stream_addr(l, lane, f + k));
    store<kBytes>(dst + t * kBytes, acc >> kResampleWeightBits);
    if (++li == l.lanes) li = 0, ++g;
  }
}

// One output byte of the horizontal formula (8-bit classes).
inline int32_t horz_byte(const ResampleLayout &l, const uint8_t *src, const ResampleHorzPlan *p, size_t t) {
  const ResampleLane &lane = l.lane[t % l.lanes];
  const ResampleRowsTable &rows = *p->table[lane.table];
  const size_t j = (t / l.lanes) * lane.per + lane.sub;
  const int16_t *w = rows.w + j * size_t(rows.taps);
  int64_t acc = 8192;
  for (int32_t k = 0; k < rows.taps; ++k) acc += int64_t{w[k]} * src[stream_addr(l, lane, rows.first[j] + k)];
  const int64_t v = acc >> kResampleWeightBits;
  return static_cast<int32_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
}

template <int kCls>
void horz_c(const uint8_t *src, uint8_t *dst, const ResampleHorzPlan *p) {
  constexpr const ResampleLayout &l = kLayouts[kCls];
  horz_range<l.sample_bytes>(l, src, dst, p, 0, p->dst_bytes / l.sample_bytes);
}

template <int kBytes>
void vert_range(const uint8_t *const *lines, const int16_t *w, int taps, uint8_t *dst, size_t first, size_t end) {
  for (size_t x = first; x < end; ++x) {
    int64_t acc = 8192;
    for (int k = 0; k < taps; ++k) acc += int64_t{w[k]} * load<kBytes>(lines[k] + x * kBytes);
    store<kBytes>(dst + x * kBytes, acc >> kResampleWeightBits);
  }
}

template <int kBytes>
inline void antiring(uint8_t *d, int32_t a0, int32_t a1, uint32_t a) {
  const int32_t v = load<kBytes>(d);
  const int32_t lo = std::min(a0, a1), hi = std::max(a0, a1);
  const int32_t c = std::min(std::max(v, lo), hi);
  store<kBytes>(d, v + ((int64_t{c - v} * int32_t(a) + 128) >> 8));
}

template <int kBytes>
void horz_antiring(const ResampleLayout &l, const uint8_t *src, uint8_t *dst, const ResampleHorzPlan *p,
                   uint32_t a) {
  const size_t n = p->dst_bytes / kBytes;
  for (size_t t = 0; t < n; ++t) {
    const ResampleLane &lane = l.lane[t % l.lanes];
    const ResampleRowsTable &rows = *p->table[lane.table];
    const size_t j = (t / l.lanes) * lane.per + lane.sub;
    const int32_t c0 = load<kBytes>(src + stream_addr(l, lane, rows.centre[2 * j]));
    const int32_t c1 = load<kBytes>(src + stream_addr(l, lane, rows.centre[2 * j + 1]));
    antiring<kBytes>(dst + t * kBytes, c0, c1, a);
  }
}

}  // namespace

const ResampleLayout &resample_layout(uint32_t cls) { return kLayouts[cls < kResampleClasses ? cls : 6]; }

uint32_t resample_group_bytes(uint32_t cls) { return cls < kResampleClasses ? kLayouts[cls].group : 0; }
uint32_t resample_group_pixels(uint32_t cls) { return cls < kResampleClasses ? kLayouts[cls].pixels : 0; }

void resample_horz_bytes_c(const uint8_t *src, uint8_t *dst, const ResampleHorzPlan *p, size_t first, size_t end) {
  horz_range<1>(kLayouts[p->cls], src, dst, p, first, end);
}

void resample_horz_c(const uint8_t *src, uint8_t *dst, const ResampleHorzPlan *p) {
  const ResampleLayout &l = kLayouts[p->cls];
  if (l.sample_bytes == 1) {
    horz_range<1>(l, src, dst, p, 0, p->dst_bytes);
  } else {
    horz_range<2>(l, src, dst, p, 0, p->dst_bytes / 2);
  }
}

void resample_horz_pair_bytes_c(const uint8_t *src0, const uint8_t *src1, uint8_t *dst,
                                const ResampleHorzPlan *p, const int16_t *w, size_t first, size_t end) {
  const ResampleLayout &l = kLayouts[p->cls];
  for (size_t t = first; t < end; ++t) {
    const int32_t v = (w[0] * horz_byte(l, src0, p, t) + w[1] * horz_byte(l, src1, p, t) + 8192) >> 14;
    dst[t] = static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
  }
}

void resample_vert8_range_c(const uint8_t *const *lines, const int16_t *w, int taps, uint8_t *dst, size_t first,
                            size_t end) {
  vert_range<1>(lines, w, taps, dst, first, end);
}
void resample_vert16_range_c(const uint8_t *const *lines, const int16_t *w, int taps, uint8_t *dst, size_t first,
                             size_t end) {
  vert_range<2>(lines, w, taps, dst, first, end);
}
void resample_vert8_c(const uint8_t *const *lines, const int16_t *w, int taps, uint8_t *dst, size_t bytes) {
  vert_range<1>(lines, w, taps, dst, 0, bytes);
}
void resample_vert16_c(const uint8_t *const *lines, const int16_t *w, int taps, uint8_t *dst, size_t bytes) {
  vert_range<2>(lines, w, taps, dst, 0, bytes / 2);
}

void resample_horz_antiring(const uint8_t *src, uint8_t *dst, const ResampleHorzPlan *p, uint32_t a) {
  const ResampleLayout &l = kLayouts[p->cls];
  if (l.sample_bytes == 1) {
    horz_antiring<1>(l, src, dst, p, a);
  } else {
    horz_antiring<2>(l, src, dst, p, a);
  }
}

void resample_vert_antiring(const uint8_t *c0, const uint8_t *c1, uint8_t *dst, size_t bytes, bool wide, uint32_t a) {
  if (wide) {
    for (size_t x = 0; x + 2 <= bytes; x += 2) antiring<2>(dst + x, load<2>(c0 + x), load<2>(c1 + x), a);
  } else {
    for (size_t x = 0; x < bytes; ++x) antiring<1>(dst + x, c0[x], c1[x], a);
  }
}

void resample_build_blocks(const ResampleHorzPlan &p, ResampleHPair *pairs, uint8_t *fits) {
  const ResampleLayout &l = kLayouts[p.cls];
  for (size_t b = 0; b < p.blocks; ++b) {
    ResampleHPair *pb = pairs + b * size_t(p.pair_count);
    std::memset(pb, 0, sizeof(ResampleHPair) * size_t(p.pair_count));
    bool ok = p.src_bytes >= 16;
    ByteRow br[8];
    block_rows(l, p, b, br);
    for (int q = 0; q < p.pair_count && ok; ++q) {
      size_t addr[16];
      int16_t w[16];
      size_t lo = SIZE_MAX, hi = 0;
      for (int s = 0; s < 16; ++s) {
        const ResampleLane &lane = *br[s / 2].lane;
        const ResampleRowsTable &rows = *br[s / 2].rows;
        const size_t j = br[s / 2].j;
        int k = 2 * q + (s & 1);
        w[s] = k < rows.taps ? rows.w[j * size_t(rows.taps) + size_t(k)] : 0;
        if (k >= rows.taps) k = rows.taps - 1;
        addr[s] = stream_addr(l, lane, rows.first[j] + k);
        if (w[s] == 0) continue;  // a zero weight may read any byte of the window
        lo = std::min(lo, addr[s]);
        hi = std::max(hi, addr[s]);
      }
      if (lo == SIZE_MAX) lo = hi = 0;
      const size_t base = std::min(lo, p.src_bytes - 16);
      if (hi - base > 15) {
        ok = false;
        break;
      }
      pb[q].base = static_cast<uint32_t>(base);
      for (int s = 0; s < 16; ++s) {
        pb[q].idx[s] = w[s] == 0 ? 0 : static_cast<uint8_t>(addr[s] - base);
        pb[q].w[s] = w[s];
      }
    }
    fits[b] = ok ? 1 : 0;
  }
}

void resample_build_two_tap(const ResampleHorzPlan &p, ResampleHTwoTap *blocks) {
  const ResampleLayout &l = kLayouts[p.cls];
  size_t g = 0;     // group of the next output byte
  unsigned li = 0;  // and its lane
  for (size_t b = 0; b < p.two_tap_blocks; ++b) {
    ResampleHTwoTap &e = blocks[b];
    bool ok = p.src_bytes >= 16;
    for (int h = 0; h < 2; ++h) {
      size_t addr[16];
      size_t lo = SIZE_MAX, hi = 0;
      for (int i = 0; i < 8; ++i) {
        const ResampleLane &lane = l.lane[li];
        const ResampleRowsTable &rows = *p.table[lane.table];
        const size_t j = g * lane.per + lane.sub;
        if (++li == l.lanes) li = 0, ++g;
        const int16_t *w = rows.w + j * size_t(rows.taps);
        const int32_t w0 = w[0], w1 = rows.taps == 2 ? w[1] : 0;
        ok = ok && rows.taps <= 2 && w0 + w1 == kResampleOne;
        // p carries 16384 - f: the first tap unless that leaves 2f outside int16.
        const bool swap = w1 > kResampleOne - 1;
        const int32_t first = rows.first[j];
        const size_t a = stream_addr(l, lane, first + (swap ? 1 : 0));
        const size_t q = rows.taps == 2 ? stream_addr(l, lane, first + (swap ? 0 : 1)) : a;
        addr[2 * i] = a;
        addr[2 * i + 1] = q;
        e.f2[h][i] = static_cast<int16_t>(2 * (swap ? w0 : w1));
        lo = std::min(lo, std::min(a, q));
        hi = std::max(hi, std::max(a, q));
      }
      const size_t base = ok ? std::min(lo, p.src_bytes - 16) : 0;
      ok = ok && hi - base <= 15;
      e.base[h] = static_cast<uint32_t>(base);
      for (int s = 0; s < 16; ++s) e.idx[h][s] = static_cast<uint8_t>(ok ? addr[s] - base : 0);
    }
    e.fits = ok ? 1 : 0;
    e.reserved = 0;
  }
}

void resample_line_table_init(ResampleLineTable *t, uint32_t cpu_flags) {
  t->horz[0] = horz_c<0>;
  t->horz[1] = horz_c<1>;
  t->horz[2] = horz_c<2>;
  t->horz[3] = horz_c<3>;
  t->horz[4] = horz_c<4>;
  t->horz[5] = horz_c<5>;
  t->horz[6] = horz_c<6>;
  t->horz[7] = horz_c<7>;
  t->horz[8] = horz_c<8>;
  t->horz[9] = horz_c<9>;
  t->horz[10] = horz_c<10>;
  t->horz[11] = horz_c<11>;
  for (bool &b : t->horz_uses_blocks) b = false;
  for (ResampleHorzFn &f : t->horz_two_tap) f = nullptr;
  for (ResampleHorzFn &f : t->horz_one_tap) f = nullptr;
  for (ResampleHorzPairFn &f : t->horz_pair) f = nullptr;
  t->vert8 = resample_vert8_c;
  t->vert16 = resample_vert16_c;
#if defined(FRAMEDSP_HAVE_X86)
  if (cpu_flags & kCpuSSE2) resample_lines_init_sse2(t);
  if (cpu_flags & kCpuSSSE3) resample_lines_init_ssse3(t);
  if ((cpu_flags & kCpuSSSE3) && (cpu_flags & kCpuAVX2)) resample_lines_init_avx2(t);
#else
  (void)cpu_flags;
#endif
}

}  // namespace framedsp
