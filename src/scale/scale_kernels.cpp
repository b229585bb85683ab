#include "scale/scale_kernels.h"

#include <algorithm>
#include <cstring>

#include "platform/cpu.h"
#include "lines/pixel_format.h"
#include "platform/work_memory.h"
#include "lines/lctrl.h"
#include "scale/scale_lines.h"

namespace framedsp {
namespace {

constexpr uint32_t kFrame = DSP_BUFFER_TYPE_FRAME;

ScaleSideLines all_lines(int32_t h) { return {0, 1, h}; }
// Frame lines of one parity: p, p + 2, ...
ScaleSideLines parity_lines(int32_t p, int32_t h) { return {p, 2, std::max((h - p + 1) / 2, 0)}; }
// Fields one after the other: field p is the upper half (p = 0) or the rest from h / 2 on.
ScaleSideLines half_lines(int32_t p, int32_t h) { return {p * (h / 2), 1, p ? h - h / 2 : h / 2}; }

ScaleSideLines frame_field(bool halves, int32_t p, int32_t h) {
  return halves ? half_lines(p, h) : parity_lines(p, h);
}

// Region line j of a side -> line address, the memory line clamped into the image.
struct SideAddress {
  const uint8_t *base;  // pBuffer + column start
  intptr_t stride;
  int32_t top;          // region top in memory order
  int32_t height;       // region height (clipped)
  int32_t image_height;
  bool bottom_up;

  uint8_t *line(int32_t j) const {
    int64_t m = bottom_up ? int64_t{top} + height - 1 - j : int64_t{top} + j;
    if (m > image_height - 1) m = image_height - 1;
    if (m < 0) m = 0;
    return const_cast<uint8_t *>(base) + static_cast<intptr_t>(m) * stride;
  }
};

// Left edge and width in pixels: rounded down to whole groups, clipped to column 0 and to the
// stride.
void clip_columns(const DSP_IMAGE &image, uint32_t bpp, uint32_t group, int32_t *left, int32_t *width) {
  int64_t x = image.Buffer.Region.ptOffset.x;
  int64_t w = image.Buffer.Region.ulWidth;
  if (group == 2) {
    x &= ~int64_t{1};
    w &= ~int64_t{1};
  }
  if (x < 0) {
    w += x;
    x = 0;
  }
  const int64_t stride_pixels = bpp ? image.ulPrimaryStrideBytes / bpp : 0;
  if (x + w > stride_pixels) w = stride_pixels - x;
  if (group == 2) w &= ~int64_t{1};
  if (w < 0) w = 0;
  // A region starting past the end of its line has no columns; keep its start at the line's end
  // so that the start in bytes stays within the stride.
  if (x > stride_pixels) x = stride_pixels;
  *left = static_cast<int32_t>(x);
  *width = static_cast<int32_t>(w);
}

SideAddress side_address(const DSP_IMAGE &image, int32_t top, int32_t height, int32_t column_bytes) {
  SideAddress s;
  s.base = static_cast<const uint8_t *>(image.Buffer.pBuffer) + column_bytes;
  s.stride = static_cast<intptr_t>(image.ulPrimaryStrideBytes);
  s.top = top;
  s.height = height;
  s.image_height = static_cast<int32_t>(image.ulHeight);
  s.bottom_up = image.eImageOrientation == DSP_ORIENTATION_BOTTOM_UP;
  return s;
}

// Band of the output region this call writes, in region lines [lo, hi).
struct Band {
  int64_t lo;
  int64_t hi;
};

Band band_of(const LCtrl &c) {
  Band b;
  b.lo = int64_t{c.band_first_line} << c.progressive_interlace;
  b.hi = (int64_t{c.band_first_line} + c.band_lines) << c.progressive_interlace;
  if (c.band_lines <= 0) b.hi = b.lo;
  return b;
}

// Run indices [first, end) whose destination line lies inside the band.
void run_span(const ScaleSideLines &d, const Band &band, int32_t *first, int32_t *end) {
  auto at_or_above = [&](int64_t line) -> int64_t {
    const int64_t n = line - d.first;
    return n <= 0 ? 0 : (n + d.step - 1) / d.step;
  };
  const int64_t f = std::min<int64_t>(at_or_above(band.lo), d.count);
  const int64_t e = std::min<int64_t>(at_or_above(band.hi), d.count);
  *first = static_cast<int32_t>(f);
  *end = static_cast<int32_t>(std::max(e, f));
}

// Two resampled source lines, each kept until another line needs its slot.
class LineCache {
 public:
  LineCache(uint8_t *a, uint8_t *b) : buf_{a, b} {}
  void reset() { id_[0] = id_[1] = -1; }
  bool holds(int32_t i) const { return id_[0] == i || id_[1] == i; }
  template <class Fill>
  const uint8_t *get(int32_t i, int32_t keep, Fill &&fill) {
    for (int s = 0; s < 2; ++s) {
      if (id_[s] == i) return buf_[s];
    }
    const int s = id_[0] == keep ? 1 : 0;
    fill(i, buf_[s]);
    id_[s] = i;
    return buf_[s];
  }

 private:
  uint8_t *buf_[2];
  int32_t id_[2] = {-1, -1};
};

template <int kMode, bool kLinear, bool kConvert>
HRESULT frame_kernel(const DSP_BUFFER *buffer, uint32_t flags) {
  (void)flags;
  const DSP_BUFFER &b = *buffer;
  LCtrl c;
  lctrl_fill(b, &c);

  const LineLayout layout = scale_layout(b.In.ePixelFormat);
  const uint32_t bpp = layout.bytes_per_pixel;
  const uint32_t group = layout.group;
  int32_t src_left = 0, src_cols = 0, dst_left = 0, dst_cols = 0;
  clip_columns(b.In, bpp, group, &src_left, &src_cols);
  clip_columns(b.Out, bpp, group, &dst_left, &dst_cols);
  const size_t src_bytes = size_t(src_cols) * bpp;
  const size_t dst_bytes = size_t(dst_cols) * bpp;
  if (dst_bytes == 0 || c.dst_height <= 0) return kOk;

  ScaleLineTable lines;
  scale_line_table_init(&lines, cpu_flags());
  const uint32_t cls = layout.layout_class;
  const ScaleResampler resample = kLinear ? lines.linear[cls] : lines.nearest[cls];
  const ScalePlannedResampler planned = kLinear ? lines.planned_linear[cls] : lines.planned_nearest[cls];
  const ScalePlannedLinearPair pair = kLinear && planned ? lines.planned_linear_pair[cls] : nullptr;
  ScaleColorCoefficients coefficients;
  ScaleColorConverter convert = nullptr;
  if (kConvert && scale_color_coefficients(b.In.eColorSpace, b.Out.eColorSpace, &coefficients)) {
    convert = lines.convert[cls];
  }
  // Vertical-only kernels move source lines as they are when the widths agree.
  const bool resampled = kMode != kScaleModeVertical || src_bytes != dst_bytes;
  const uint32_t hstep = src_cols > 0 && dst_cols > 0
                             ? static_cast<uint32_t>(std::min<uint64_t>(
                                   (uint64_t(src_cols) << kScaleFractionBits) / uint64_t(dst_cols), 0xFFFFFFFFu))
                             : 0;

  const ScalePlan plan = scale_plan(b, c.src_height, c.dst_height);
  int32_t max_lines = 0;
  for (int r = 0; r < plan.count; ++r) max_lines = std::max(max_lines, plan.runs[r].dst.count);
  if (max_lines == 0) return kOk;
  const uint64_t vstep64 =
      c.dst_height > 0 ? ((uint64_t(std::max(c.src_height, 0)) << kScaleFractionBits) << plan.src_field_frame) /
                             (uint64_t(c.dst_height) << plan.dst_field_frame)
                       : 0;
  const uint64_t vstep = kMode == kScaleModeHorizontal ? kScaleOne : vstep64;

  // Work memory, one block for the whole call (each block costs a map and an unmap): two
  // resampled lines when lines are resampled, a finished line when colours are converted, the
  // source-line and fraction tables and the horizontal plan.  Every piece starts 16-byte aligned
  // and lines keep 16 bytes of slack.
  const size_t plan_entries = planned && resampled ? scale_plan_entries(cls, dst_bytes) : 0;
  const uint32_t unit = plan_entries ? scale_plan_unit(cls) : 0;
  const bool with_blocks = kLinear ? lines.linear_uses_blocks[cls] : lines.nearest_uses_blocks[cls];
  const size_t blocks = with_blocks ? plan_entries * unit / 16 : 0;
  auto pad16 = [](size_t n) { return (n + 15) & ~size_t{15}; };
  // Nearest without a colour conversion needs neither lines nor tables: each output line is
  // resampled straight from its source line, and a line that repeats its predecessor's source
  // line copies the finished predecessor.
  const bool lean = !kLinear && !convert;
  const size_t line_bytes = pad16(dst_bytes + 16);
  const size_t table_bytes = lean ? 0 : pad16(size_t(max_lines) * 4);
  const size_t entry_bytes = pad16(plan_entries * sizeof(ScalePlanEntry));
  const size_t cache_bytes = resampled && !lean ? 2 * line_bytes : 0;
  const size_t out_bytes = convert ? line_bytes : 0;
  const size_t fraction_bytes = kLinear ? table_bytes : 0;
  const size_t total = cache_bytes + out_bytes + table_bytes + fraction_bytes + entry_bytes +
                       blocks * sizeof(ScaleLineBlock);
  WorkBlock work;
  if (total && !work.allocate(total + 16)) return kOutOfMemory;
  uint8_t *carve = work.aligned();
  auto take = [&carve](size_t bytes) {
    uint8_t *p = bytes ? carve : nullptr;
    carve += bytes;
    return p;
  };
  uint8_t *const line_a = take(cache_bytes ? line_bytes : 0);
  uint8_t *const line_b = take(cache_bytes ? line_bytes : 0);
  uint8_t *const out = take(out_bytes);
  int32_t *const index = reinterpret_cast<int32_t *>(take(table_bytes));
  int32_t *const fraction = reinterpret_cast<int32_t *>(take(fraction_bytes));
  // Horizontal positions once per call for the 8-bit classes.
  ScalePlanEntry *positions = reinterpret_cast<ScalePlanEntry *>(take(entry_bytes));
  ScaleLineBlock *block_list = reinterpret_cast<ScaleLineBlock *>(take(blocks * sizeof(ScaleLineBlock)));
  ScaleLinePlan line_plan{};
  if (plan_entries) {
    scale_plan_build(cls, hstep, src_bytes, dst_bytes, positions);
    if (blocks) scale_plan_build_blocks(positions, plan_entries, unit, src_bytes, kLinear, block_list);
    line_plan = {positions, plan_entries, unit, blocks ? block_list : nullptr, blocks};
  }
  LineCache cache(line_a, line_b);

  const SideAddress src_side = side_address(b.In, c.src_line_start, c.src_height, src_left * int32_t(bpp));
  const SideAddress dst_side = side_address(b.Out, c.dst_line_start, c.dst_height, dst_left * int32_t(bpp));
  const Band band = band_of(c);

  for (int r = 0; r < plan.count; ++r) {
    const ScaleRun &run = plan.runs[r];
    if (run.src.count <= 0 || run.dst.count <= 0) continue;
    int32_t first = 0, end = 0;
    run_span(run.dst, band, &first, &end);
    const int32_t last = run.src.count - 1;
    auto source_index = [&](int32_t k) {
      return static_cast<int32_t>(std::min<uint64_t>((uint64_t(k) * vstep) >> kScaleFractionBits, uint64_t(last)));
    };
    auto fill = [&](int32_t i, uint8_t *to) {
      const uint8_t *src = src_side.line(run.src.first + i * run.src.step);
      if (positions && src_bytes) {
        planned(src, to, &line_plan);
      } else {
        resample(src, to, hstep, src_bytes, dst_bytes);
      }
    };
    if (lean) {
      const uint8_t *previous = nullptr;
      int32_t previous_index = -1;
      for (int32_t k = first; k < end; ++k) {
        uint8_t *dst = dst_side.line(run.dst.first + k * run.dst.step);
        const int32_t i = source_index(k);
        if (previous && i == previous_index) {
          std::memmove(dst, previous, dst_bytes);
        } else if (!resampled) {
          std::memmove(dst, src_side.line(run.src.first + i * run.src.step), dst_bytes);
        } else {
          fill(i, dst);
        }
        previous = dst;
        previous_index = i;
      }
      continue;
    }
    for (int32_t k = first; k < end; ++k) {
      index[k - first] = source_index(k);
      if (kLinear) fraction[k - first] = static_cast<int32_t>((uint64_t(k) * vstep) & kScaleFractionMask);
    }
    cache.reset();
    auto source = [&](int32_t i, int32_t keep) -> const uint8_t * {
      if (!resampled) return src_side.line(run.src.first + i * run.src.step);
      return cache.get(i, keep, fill);
    };
    for (int32_t k = first; k < end; ++k) {
      uint8_t *dst = dst_side.line(run.dst.first + k * run.dst.step);
      const int32_t i = index[k - first];
      const int32_t f = kLinear ? fraction[k - first] : 0;
      // A line used by this output line only is resampled straight into the output.
      if (resampled && !convert && (!kLinear || f == 0) && !cache.holds(i) &&
          (k + 1 == end || index[k + 1 - first] > i)) {
        fill(i, dst);
        continue;
      }
      // Two source lines that no neighbouring output line shares are resampled and blended in
      // one pass, straight into the output.
      if (kLinear && pair && f != 0 && !convert && positions && src_bytes) {
        const int32_t i2 = std::min(i + 1, last);
        const bool shared = cache.holds(i) || cache.holds(i2) || (k + 1 < end && index[k + 1 - first] <= i2);
        if (!shared) {
          pair(src_side.line(run.src.first + i * run.src.step), src_side.line(run.src.first + i2 * run.src.step),
               dst, &line_plan, uint32_t(f));
          continue;
        }
      }
      const uint8_t *a = source(i, -1);
      const uint8_t *finished = a;
      if (kLinear && f != 0) {
        const uint8_t *bl = source(std::min(i + 1, last), i);
        lines.blend(a, bl, convert ? out : dst, uint32_t(f), kScaleOne - uint32_t(f), dst_bytes);
        finished = convert ? out : nullptr;
      }
      if (convert) {
        if (finished != out) std::memcpy(out, finished, dst_bytes);
        convert(out, dst_bytes, &coefficients);
        finished = out;
      }
      if (finished) std::memmove(dst, finished, dst_bytes);
    }
  }
  return kOk;
}

HRESULT reserved_kernel(const DSP_BUFFER *, uint32_t) { return kNotImpl; }

constexpr ScaleFrameKernel kPlain[9] = {
    frame_kernel<kScaleModeHorizontal, false, false>, frame_kernel<kScaleModeVertical, false, false>,
    frame_kernel<kScaleModeBoth, false, false>,       frame_kernel<kScaleModeHorizontal, true, false>,
    frame_kernel<kScaleModeVertical, true, false>,    frame_kernel<kScaleModeBoth, true, false>,
    reserved_kernel,                                  reserved_kernel,
    reserved_kernel};
constexpr ScaleFrameKernel kColor[9] = {
    frame_kernel<kScaleModeHorizontal, false, true>, frame_kernel<kScaleModeVertical, false, true>,
    frame_kernel<kScaleModeBoth, false, true>,       frame_kernel<kScaleModeHorizontal, true, true>,
    frame_kernel<kScaleModeVertical, true, true>,    frame_kernel<kScaleModeBoth, true, true>,
    reserved_kernel,                                 reserved_kernel,
    reserved_kernel};

}  // namespace

ScalePlan scale_plan(const DSP_BUFFER &b, int32_t hi, int32_t ho) {
  ScalePlan plan{};
  const uint32_t in_type = b.In.Buffer.eBufferType;
  const uint32_t out_type = b.Out.Buffer.eBufferType;
  const uint32_t in_il = b.In.eInterlace;
  const uint32_t out_il = b.Out.eInterlace;
  if (in_type > kFrame || out_type > kFrame) return plan;
  if (in_type != kFrame && out_type != kFrame) {
    plan.runs[0] = {all_lines(hi), all_lines(ho)};
    plan.count = 1;
    return plan;
  }
  if (in_type != kFrame) {  // a field into its lines of a frame
    if (out_il > 3) return plan;
    plan.src_field_frame = 1;
    plan.runs[0] = {all_lines(hi), frame_field(out_il == 3, int32_t(in_type), ho)};
    plan.count = 1;
    return plan;
  }
  if (out_type != kFrame) {  // one field of a frame, read as the copy reads it
    plan.dst_field_frame = 1;
    const bool halves = out_type == 0 ? out_il > 2 : !(in_il < 2 || out_il == 2);
    plan.runs[0] = {frame_field(halves, int32_t(out_type), hi), all_lines(ho)};
    plan.count = 1;
    return plan;
  }
  if (in_il > 3 || out_il > 3) return plan;
  if (in_il == 2 && out_il < 3) {  // one progressive pass
    plan.runs[0] = {all_lines(hi), all_lines(ho)};
    plan.count = 1;
    return plan;
  }
  const bool field_a = (b.ulFlags & DSP_BUFFER_PROCESS_FIELDA) != 0;
  const bool field_b = (b.ulFlags & DSP_BUFFER_PROCESS_FIELDB) != 0;
  int first = 0, runs = 2;
  if (in_il < 2 && out_il < 3 && field_a != field_b) {
    first = field_b ? 1 : 0;
    runs = 1;
  }
  for (int r = 0; r < runs; ++r) {
    const int32_t p = first + r;
    plan.runs[r] = {frame_field(in_il == 3, p, hi), frame_field(out_il == 3, p, ho)};
  }
  plan.count = runs;
  return plan;
}

const ScaleFrameKernel *scale_plain_kernels() { return kPlain; }
const ScaleFrameKernel *scale_color_kernels() { return kColor; }

void scale_walk_back(const DSP_IMAGE &from, const DSP_BUFFER &to, ScaleBackFn fn, void *context) {
  LCtrl c;
  lctrl_fill(to, &c);
  const LineLayout layout = scale_layout(to.Out.ePixelFormat);
  const uint32_t bpp = layout.bytes_per_pixel;
  const uint32_t group = layout.group;
  int32_t left = 0, cols = 0;
  clip_columns(to.Out, bpp, group, &left, &cols);
  const size_t bytes = std::min<size_t>(size_t(cols) * bpp, from.ulPrimaryStrideBytes);
  if (bytes == 0) return;
  const SideAddress src = side_address(from, 0, int32_t(from.ulHeight), 0);
  const SideAddress dst = side_address(to.Out, c.dst_line_start, c.dst_height, left * int32_t(bpp));
  const ScalePlan plan = scale_plan(to, c.src_height, c.dst_height);
  const Band band = band_of(c);
  for (int r = 0; r < plan.count; ++r) {
    const ScaleSideLines &d = plan.runs[r].dst;
    if (plan.runs[r].src.count <= 0) continue;
    int32_t first = 0, end = 0;
    run_span(d, band, &first, &end);
    // The run's lines in the private image: rows d.first, d.first + d.step, ..., all inside it.
    const int32_t rows = std::min<int32_t>(d.count, (int32_t(from.ulHeight) - d.first + d.step - 1) / d.step);
    ScaleBackLine line;
    line.run_first = src.line(d.first);
    line.run_stride = static_cast<ptrdiff_t>(d.step) * static_cast<ptrdiff_t>(from.ulPrimaryStrideBytes);
    line.run_lines = rows;
    line.bytes = bytes;
    for (int32_t k = first; k < end && k < rows; ++k) {
      line.index = k;
      line.dst = dst.line(d.first + k * d.step);
      fn(context, line);
    }
  }
}

HRESULT scale_private_image(const DSP_IMAGE &out, uint64_t max_bytes, WorkBlock *block, DSP_IMAGE *image) {
  const uint32_t width = out.Buffer.Region.ulWidth;
  const uint32_t height = out.Buffer.Region.ulHeight;
  const uint64_t line = uint64_t{scale_layout(out.ePixelFormat).bytes_per_pixel} * width;
  const uint64_t stride = (line + 15) & ~uint64_t{15};
  if (stride > 0x7FFFFFF0u) return kOutOfMemory;
  const uint64_t bytes = stride * height;
  if (bytes > max_bytes || !block->allocate(static_cast<size_t>(bytes ? bytes : 16))) return kOutOfMemory;
  *image = out;
  image->Buffer.pBuffer = block->data();
  image->Buffer.ulBytes = static_cast<uint32_t>(bytes);
  image->Buffer.Region.ptOffset.x = 0;
  image->Buffer.Region.ptOffset.y = 0;
  image->ulWidth = width;
  image->ulHeight = height;
  image->eImageOrientation = DSP_ORIENTATION_TOP_DOWN;
  image->ulPrimaryStrideBytes = static_cast<uint32_t>(stride);
  image->ulSecondaryStrideBytes = 0;
  return kOk;
}

void scale_copy_back(const DSP_IMAGE &from, const DSP_BUFFER &to) {
  scale_walk_back(from, to, [](void *, const ScaleBackLine &l) {
    std::memcpy(l.dst, l.run_first + l.index * l.run_stride, l.bytes);
  }, nullptr);
}

}  // namespace framedsp
