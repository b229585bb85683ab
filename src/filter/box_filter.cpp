// Box filter of one plane.  Per output line: a line of 32-bit column sums is kept over the
// vertical window (two row operations a line once a run is under way), then the class kernel
// runs a horizontal running sum per component along it (two column operations a sample), so the
// cost per pixel does not depend on either window size.
#include "filter/box_filter.h"

#include <algorithm>
#include <cstring>

#include "lines/line_walk.h"
#include "lines/pixel_format.h"
#include "platform/cpu.h"
#include "platform/work_memory.h"

namespace framedsp {

uint32_t box_reciprocal(uint32_t horz_size, uint32_t vert_size) {
  const double area = static_cast<double>(horz_size) * static_cast<double>(vert_size);
  return static_cast<uint32_t>(static_cast<double>(kBoxOne) / area + 0.5);
}

// 16-bit samples are little-endian words whatever the host.
static inline uint32_t load_u16(const uint8_t *p) { return p[0] | (uint32_t{p[1]} << 8); }

void box_row_add_u8_c(uint32_t *acc, const uint8_t *row, size_t n) {
  for (size_t i = 0; i < n; ++i) acc[i] += row[i];
}
void box_row_sub_u8_c(uint32_t *acc, const uint8_t *row, size_t n) {
  for (size_t i = 0; i < n; ++i) acc[i] -= row[i];
}
void box_row_add_u16_c(uint32_t *acc, const uint8_t *row, size_t n) {
  for (size_t i = 0; i < n; ++i) acc[i] += load_u16(row + 2 * i);
}
void box_row_sub_u16_c(uint32_t *acc, const uint8_t *row, size_t n) {
  for (size_t i = 0; i < n; ++i) acc[i] -= load_u16(row + 2 * i);
}

void box_row_move_u8_c(uint32_t *acc, const uint8_t *leave, const uint8_t *enter, size_t n) {
  for (size_t i = 0; i < n; ++i) acc[i] = acc[i] - leave[i] + enter[i];
}
void box_row_move_u16_c(uint32_t *acc, const uint8_t *leave, const uint8_t *enter, size_t n) {
  for (size_t i = 0; i < n; ++i) acc[i] = acc[i] - load_u16(leave + 2 * i) + load_u16(enter + 2 * i);
}

void box_row_table_init(BoxRowKernels *table, uint32_t cpu_flags) {
  table->add_u8 = box_row_add_u8_c;
  table->sub_u8 = box_row_sub_u8_c;
  table->add_u16 = box_row_add_u16_c;
  table->sub_u16 = box_row_sub_u16_c;
  table->move_u8 = box_row_move_u8_c;
  table->move_u16 = box_row_move_u16_c;
#if defined(FRAMEDSP_HAVE_X86)
  if (cpu_flags & kCpuSSE2) box_row_init_sse2(table);
  if (cpu_flags & kCpuAVX2) box_row_init_avx2(table);
#else
  (void)cpu_flags;
#endif
}

namespace {

// 8-bit: S <= 255 * Nh * Nv and R <= 2^23 / (Nh * Nv) + 0.5, so S * R + 2^22 < 2^31 and the
// product is exact in 32 bits; the result can still reach 256 (large windows round R up), hence
// the clamp.  16-bit: the same formula would wrap 32 bits for any sample above 511, so the
// product is formed in 64 bits (equal to the 32-bit value wherever that does not wrap) and the
// result clamped to 65535.
struct Byte {
  static constexpr size_t kBytes = 1;
  static void store(uint8_t *dst, size_t i, uint32_t sum, uint32_t recip) {
    const uint32_t v = (sum * recip + kBoxRound) >> kBoxShift;
    dst[i] = static_cast<uint8_t>(v > 255 ? 255 : v);
  }
};
struct Word {
  static constexpr size_t kBytes = 2;
  static void store(uint8_t *dst, size_t i, uint32_t sum, uint32_t recip) {
    const uint64_t v = (uint64_t{sum} * recip + kBoxRound) >> kBoxShift;
    const uint32_t c = v > 65535 ? 65535u : static_cast<uint32_t>(v);
    dst[2 * i] = static_cast<uint8_t>(c);
    dst[2 * i + 1] = static_cast<uint8_t>(c >> 8);
  }
};

// Sample positions of one component: start, start + dist, ...
struct Strided {
  size_t start, dist;
  size_t count(size_t n) const { return n > start ? (n - start + dist - 1) / dist : 0; }
  size_t at(size_t j) const { return start + j * dist; }
};
// Luma of 4-byte groups with both luma bytes at the end (chroma 0, chroma 1, Y0, Y1): bytes
// 2, 3, 6, 7, ... in picture order.
struct PairedLuma {
  size_t count(size_t n) const { return 2 * (n / 4) + (n % 4 > 2 ? n % 4 - 2 : 0); }
  size_t at(size_t j) const { return 4 * (j >> 1) + 2 + (j & 1); }
};

// Running sum of the m samples of one component.  The window of output i covers positions
// i - before .. i + after, clamped to 0 .. m - 1; the sum is kept modulo 2^32 (it never exceeds
// 256 * 256 * 65535 < 2^32, so the transient wrap of add-before-subtract cancels).
template <class S, class P>
void box_component(const uint32_t *sums, uint8_t *dst, size_t n, const P &pos,
                   const BoxWindow &w) {
  const size_t m = pos.count(n);
  if (m == 0) return;
  const ptrdiff_t last = static_cast<ptrdiff_t>(m) - 1;
  auto column = [&](ptrdiff_t j) {
    return sums[pos.at(static_cast<size_t>(j < 0 ? 0 : (j > last ? last : j)))];
  };
  uint32_t sum = 0;
  for (ptrdiff_t j = -w.before; j <= w.after; ++j) sum += column(j);
  for (ptrdiff_t i = 0; i <= last; ++i) {
    S::store(dst, pos.at(static_cast<size_t>(i)), sum, w.recip);
    sum += column(i + w.after + 1);
    sum -= column(i - w.before);
  }
}

// Components of a class as (start, distance) pairs in samples; the 16-bit classes use the
// layout of their 8-bit twin on words.
template <class S, size_t... Pairs>
void strided_kernel(uint32_t *sums, uint8_t *dst, size_t n, const BoxWindow &w) {
  constexpr size_t p[] = {Pairs...};
  for (size_t k = 0; k + 1 < sizeof...(Pairs); k += 2) {
    box_component<S>(sums, dst, n, Strided{p[k], p[k + 1]}, w);
  }
}

// Class 1: chroma bytes 0 and 1 of each group four apart, the two luma bytes as one sequence.
void box_h_class1_c(uint32_t *sums, uint8_t *dst, size_t n, const BoxWindow &w) {
  box_component<Byte>(sums, dst, n, Strided{0, 4}, w);
  box_component<Byte>(sums, dst, n, Strided{1, 4}, w);
  box_component<Byte>(sums, dst, n, PairedLuma{}, w);
}

// Classes 3 and 5 differ only in channel order, which an average per channel does not see.
constexpr BoxHorzKernel kBoxHorz[kBoxClasses] = {
    strided_kernel<Byte, 0, 4, 2, 4, 1, 2>,        // 0: U Y V Y
    box_h_class1_c,                                // 1: U V Y Y
    strided_kernel<Byte, 0, 2, 1, 4, 3, 4>,        // 2: Y U Y V
    strided_kernel<Byte, 0, 4, 1, 4, 2, 4, 3, 4>,  // 3: four channels
    strided_kernel<Byte, 0, 3, 1, 3, 2, 3>,        // 4: three channels
    strided_kernel<Byte, 0, 4, 1, 4, 2, 4, 3, 4>,  // 5: four channels
    strided_kernel<Byte, 0, 1>,                    // 6: one channel
    strided_kernel<Word, 0, 4, 2, 4, 1, 2>,        // 7: class 0 on words
    strided_kernel<Word, 0, 2, 1, 4, 3, 4>,        // 8: class 2 on words
    strided_kernel<Word, 0, 3, 1, 3, 2, 3>,        // 9: class 4 on words
    strided_kernel<Word, 0, 4, 1, 4, 2, 4, 3, 4>,  // 10: class 5 on words
    strided_kernel<Word, 0, 1>,                    // 11: class 6 on words
};

// The rows one run may read: memory rows lo, lo + s, ..., hi of the source image.  `down` is
// the signed memory-row step from one picture line of the run to the next (negative for
// bottom-up images), so picture-up is -down whatever the orientation.
struct RowRange {
  int32_t lo, hi, down;
  int32_t clamp(int64_t r) const {
    return static_cast<int32_t>(r < lo ? lo : (r > hi ? hi : r));
  }
  bool operator==(const RowRange &o) const { return lo == o.lo && hi == o.hi && down == o.down; }
};

// Interleaved fields (s = 2) keep to rows of the current row's parity, so the window never
// mixes fields and never leaves the image; fields stored one after the other (eInterlace 3,
// walked with s = 1) keep to the half of the image that holds the row.
RowRange row_range(const DSP_IMAGE &in, int32_t row, int32_t down) {
  const int32_t h = static_cast<int32_t>(in.ulHeight);
  const int32_t s = down < 0 ? -down : down;
  if (s == 1 && in.Buffer.eBufferType == DSP_BUFFER_TYPE_FRAME && in.eInterlace == 3) {
    const int32_t half = h / 2;
    return row < half ? RowRange{0, half - 1, down} : RowRange{half, h - 1, down};
  }
  return RowRange{row % s, row + (h - 1 - row) / s * s, down};
}

class ColumnSums {
 public:
  ColumnSums(uint32_t *acc, size_t n, const uint8_t *base, intptr_t stride,
             const BoxRowKernels &rows, bool wide, const BoxWindow &v)
      : acc_(acc), n_(n), base_(base), stride_(stride), v_(v),
        add_(wide ? rows.add_u16 : rows.add_u8),
        move_(wide ? rows.move_u16 : rows.move_u8) {}

  // Brings the sums to the window centred on `row`: one pass taking the leaving row out and the
  // entering one in when it follows the previous row of the same range, a fresh sum of the
  // window otherwise.
  void move_to(int32_t row, const RowRange &range) {
    if (valid_ && range == range_ && row == row_ + range.down) {
      const int32_t leaving = range.clamp(int64_t{row_} - int64_t{v_.before} * range.down);
      const int32_t entering = range.clamp(int64_t{row} + int64_t{v_.after} * range.down);
      if (leaving != entering) {
        move_(acc_, line(leaving), line(entering), n_);
      }
    } else {
      std::memset(acc_, 0, n_ * sizeof *acc_);
      for (int32_t j = -v_.before; j <= v_.after; ++j) {
        add_(acc_, line(range.clamp(int64_t{row} + int64_t{j} * range.down)), n_);
      }
    }
    valid_ = true;
    row_ = row;
    range_ = range;
  }

 private:
  const uint8_t *line(int32_t row) const { return base_ + static_cast<intptr_t>(row) * stride_; }

  uint32_t *acc_;
  size_t n_;
  const uint8_t *base_;
  intptr_t stride_;
  BoxWindow v_;
  BoxRowKernel add_;
  BoxMoveKernel move_;
  bool valid_ = false;
  int32_t row_ = 0;
  RowRange range_{0, 0, 1};
};

}  // namespace

// Lane c of a group is luma when bit c of `luma` is set; the first luma sample of the line is
// then at byte 1 (lanes 1 and 3) or 0 (lanes 0 and 2).
static inline bool luma_lane(uint32_t luma, size_t c) { return (luma >> c) & 1u; }
static inline size_t luma_origin(uint32_t luma) { return (luma & 1u) ? 0 : 1; }

void box_group_ends(const uint32_t *sums, size_t n, uint32_t luma, uint32_t head[4], uint32_t tail[4]) {
  const size_t o = luma_origin(luma);
  for (size_t c = 0; c < 4; ++c) {
    head[c] = luma_lane(luma, c) ? sums[o] : sums[c];
    tail[c] = luma_lane(luma, c) ? sums[n - 2 + o] : sums[n - 4 + c];
  }
}

// Luma samples j = -before .. after, sample j at element 2j + o: the `before` samples left of
// the line all hold sample 0, the rest are read (from the right padding where the window passes
// the line's end).  The lane of luma sample 1 has that window moved on by one.
void box_group_luma_start(const uint32_t *sums, uint32_t luma, const BoxWindow &w, uint32_t out[4]) {
  if (luma == 0) return;
  const size_t o = luma_origin(luma);
  uint32_t y = static_cast<uint32_t>(w.before) * sums[o];
  for (int32_t j = 0; j <= w.after; ++j) y += sums[2 * static_cast<size_t>(j) + o];
  out[o] = y;
  out[o + 2] = y - sums[o] + sums[2 * (static_cast<size_t>(w.after) + 1) + o];
}

BoxHorzKernel box_horz_kernel(uint32_t layout_class) {
  return layout_class < kBoxClasses ? kBoxHorz[layout_class] : nullptr;
}

BoxHorzKernel box_horz_kernel(uint32_t layout_class, uint32_t cpu_flags) {
#if defined(FRAMEDSP_HAVE_X86)
  if (cpu_flags & kCpuAVX2) {
    if (const BoxHorzKernel k = box_horz_kernel_avx2(layout_class)) return k;
  }
  if (cpu_flags & kCpuSSE2) {
    if (const BoxHorzKernel k = box_horz_kernel_sse2(layout_class)) return k;
  }
#else
  (void)cpu_flags;
#endif
  return box_horz_kernel(layout_class);
}

HRESULT box_filter_plane(const DSP_BUFFER &buffer, uint32_t horz_size, uint32_t vert_size) {
  if (horz_size == 0) horz_size = 1;
  if (vert_size == 0) vert_size = 1;
  if (horz_size > kBoxMaxSize || vert_size > kBoxMaxSize) return kInvalidArg;
  const uint32_t cls = format_class(buffer.In.ePixelFormat);
  const uint32_t flags = cpu_flags();
  const BoxHorzKernel kernel = box_horz_kernel(cls, flags);
  if (!kernel) return static_cast<HRESULT>(0xFFFFFFFFu);  // no valid format gets here

  const LineWalk walk(buffer, copy_layout(buffer.In.ePixelFormat));
  const LCtrl &c = walk.control();
  const bool wide = box_sample_bytes(cls) == 2;
  const size_t sample_bytes = box_sample_bytes(cls);
  const size_t samples = static_cast<size_t>(std::max(c.src_width, 0)) / sample_bytes;
  const size_t move = std::min(samples * sample_bytes, static_cast<size_t>(std::max(c.dst_width, 0)));
  if (samples == 0 || move == 0) return kOk;

  // The horizontal kernels write exactly the line's bytes, so they store straight into the
  // destination line when the region takes the whole line; otherwise through a line buffer.
  const bool direct = move == samples * sample_bytes;
  WorkBlock sums_block;  // both released by their destructors on every path
  WorkLine out_line;
  if (!sums_block.allocate((samples + 2 * kBoxPad) * sizeof(uint32_t) + 32) ||
      (!direct && !out_line.allocate(samples * sample_bytes))) {
    return kOutOfMemory;
  }
  uint32_t *const sums = reinterpret_cast<uint32_t *>(sums_block.aligned()) + kBoxPad;
  uint8_t *const out = direct ? nullptr : out_line.data();

  BoxWindow h{box_before(horz_size), box_after(horz_size), box_reciprocal(horz_size, vert_size)};
  const BoxWindow v{box_before(vert_size), box_after(vert_size), h.recip};
  const intptr_t stride = static_cast<intptr_t>(buffer.In.ulPrimaryStrideBytes);
  const uint8_t *const base = static_cast<const uint8_t *>(buffer.In.Buffer.pBuffer) + c.src_column_start;
  BoxRowKernels rows;
  box_row_table_init(&rows, flags);
  ColumnSums columns(sums, samples, base, stride, rows, wide, v);

  walk.for_each_line([&](const WalkLine &l) {
    // The memory rows from one picture line of the run to the next.
    const int32_t down = walk.source().sign * l.run->src.step;
    columns.move_to(l.src_row, row_range(buffer.In, l.src_row, down));
    if (direct) {
      kernel(sums, l.dst, samples, h);
    } else {
      kernel(sums, out, samples, h);
      std::memmove(l.dst, out, move);
    }
  });
  sums_block.release();
  out_line.release();
  return kOk;
}

}  // namespace framedsp
