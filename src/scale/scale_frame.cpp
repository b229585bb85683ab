#include "scale/scale_frame.h"

#include <algorithm>
#include <cstring>

#include "lines/line_walk.h"
#include "lines/pixel_format.h"
#include "platform/cpu.h"
#include "platform/work_memory.h"
#include "resample/resample.h"
#include "scale/scale_line_kernels.h"

namespace framedsp {
namespace {

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

// Whole groups of pixels: the scaler never splits a pair that shares its chroma.
int32_t whole_groups(int32_t pixels, uint32_t group) {
  return group == 2 ? pixels & ~int32_t{1} : pixels;
}

// What one frame call works with: the line kernels it picked, line sizes and steps, and the
// pieces of its work memory.
struct FrameScale {
  bool linear;
  bool resampled;  // lines are resampled (else source lines are moved as they are)
  bool lean;       // nearest without colours: neither cached lines nor tables
  size_t src_bytes;
  size_t dst_bytes;
  uint32_t hstep;
  uint64_t vstep;
  ScaleLineTable lines;
  ScaleResampler resample;
  ScalePlannedResampler planned;
  ScalePlannedLinearPair pair;
  ScaleColorConverter convert;
  ScaleColorCoefficients coefficients;
  ScaleLinePlan line_plan;
  bool use_plan;  // horizontal positions prepared once for the call
  uint8_t *line_a;
  uint8_t *line_b;
  uint8_t *out;    // the finished line when colours are converted
  int32_t *index;  // source line of each output line of a run
  int32_t *fraction;
};

void pick_kernels(FrameScale *f, const DSP_BUFFER &b, uint32_t cls, bool convert) {
  scale_line_table_init(&f->lines, cpu_flags());
  const ScaleLineTable &t = f->lines;
  f->resample = f->linear ? t.linear[cls] : t.nearest[cls];
  f->planned = f->linear ? t.planned_linear[cls] : t.planned_nearest[cls];
  f->pair = f->linear && f->planned ? t.planned_linear_pair[cls] : nullptr;
  f->convert = nullptr;
  if (convert && scale_color_coefficients(b.In.eColorSpace, b.Out.eColorSpace, &f->coefficients)) {
    f->convert = t.convert[cls];
  }
  f->lean = !f->linear && !f->convert;
}

// Work memory, one block for the whole call (each block costs a map and an unmap): two resampled
// lines when lines are resampled, a finished line when colours are converted, the source-line
// and fraction tables and the horizontal plan.  Every piece starts 16-byte aligned and lines
// keep 16 bytes of slack.
HRESULT take_work(FrameScale *f, uint32_t cls, int32_t max_lines, WorkBlock *work) {
  const size_t plan_entries = f->planned && f->resampled ? scale_plan_entries(cls, f->dst_bytes) : 0;
  const uint32_t unit = plan_entries ? scale_plan_unit(cls) : 0;
  const bool with_blocks = f->linear ? f->lines.linear_uses_blocks[cls] : f->lines.nearest_uses_blocks[cls];
  const size_t blocks = with_blocks ? plan_entries * unit / 16 : 0;
  auto pad16 = [](size_t n) { return (n + 15) & ~size_t{15}; };
  const size_t line_bytes = pad16(f->dst_bytes + 16);
  const size_t table_bytes = f->lean ? 0 : pad16(size_t(max_lines) * 4);
  const size_t entry_bytes = pad16(plan_entries * sizeof(ScalePlanEntry));
  const size_t cache_bytes = f->resampled && !f->lean ? 2 * line_bytes : 0;
  const size_t out_bytes = f->convert ? line_bytes : 0;
  const size_t fraction_bytes = f->linear ? table_bytes : 0;
  const size_t total = cache_bytes + out_bytes + table_bytes + fraction_bytes + entry_bytes +
                       blocks * sizeof(ScaleLineBlock);
  if (total && !work->allocate(total + 16)) return kOutOfMemory;
  uint8_t *carve = work->aligned();
  auto take = [&carve](size_t bytes) {
    uint8_t *p = bytes ? carve : nullptr;
    carve += bytes;
    return p;
  };
  f->line_a = take(cache_bytes ? line_bytes : 0);
  f->line_b = take(cache_bytes ? line_bytes : 0);
  f->out = take(out_bytes);
  f->index = reinterpret_cast<int32_t *>(take(table_bytes));
  f->fraction = reinterpret_cast<int32_t *>(take(fraction_bytes));
  // Horizontal positions once per call for the 8-bit classes.
  ScalePlanEntry *positions = reinterpret_cast<ScalePlanEntry *>(take(entry_bytes));
  ScaleLineBlock *block_list = reinterpret_cast<ScaleLineBlock *>(take(blocks * sizeof(ScaleLineBlock)));
  f->line_plan = ScaleLinePlan{};
  if (plan_entries) {
    scale_plan_build(cls, f->hstep, f->src_bytes, f->dst_bytes, positions);
    if (blocks) scale_plan_build_blocks(positions, plan_entries, unit, f->src_bytes, f->linear, block_list);
    f->line_plan = {positions, plan_entries, unit, blocks ? block_list : nullptr, blocks};
  }
  f->use_plan = positions && f->src_bytes;
  return kOk;
}

void resample_line(const FrameScale &f, const uint8_t *src, uint8_t *to) {
  if (f.use_plan) {
    f.planned(src, to, &f.line_plan);
  } else {
    f.resample(src, to, f.hstep, f.src_bytes, f.dst_bytes);
  }
}

// Nearest without a colour conversion: each output line is resampled straight from its source
// line, and a line that repeats its predecessor's source line copies the finished predecessor.
void run_lean(const FrameScale &f, const LineWalk &walk, const LineRun &run) {
  const int32_t last = run.src.count - 1;
  const uint8_t *previous = nullptr;
  int32_t previous_index = -1;
  for (int32_t k = run.begin; k < run.end; ++k) {
    uint8_t *dst = walk.destination().line(int64_t{run.dst.first} + int64_t{k} * run.dst.step);
    const int32_t i = static_cast<int32_t>(std::min<uint64_t>((uint64_t(k) * f.vstep) >> kScaleFractionBits, uint64_t(last)));
    const uint8_t *src = walk.source().line(int64_t{run.src.first} + int64_t{i} * run.src.step);
    if (previous && i == previous_index) {
      std::memmove(dst, previous, f.dst_bytes);
    } else if (!f.resampled) {
      std::memmove(dst, src, f.dst_bytes);
    } else {
      resample_line(f, src, dst);
    }
    previous = dst;
    previous_index = i;
  }
}

// The other kernels: source lines resampled into two cached lines (or read as they are), blended
// and converted into a finished line, which is moved into the output.
void run_cached(FrameScale &f, const LineWalk &walk, const LineRun &run, LineCache &cache) {
  const int32_t first = run.begin, end = run.end;
  const int32_t last = run.src.count - 1;
  for (int32_t k = first; k < end; ++k) {
    f.index[k - first] = static_cast<int32_t>(std::min<uint64_t>((uint64_t(k) * f.vstep) >> kScaleFractionBits, uint64_t(last)));
    if (f.linear) f.fraction[k - first] = static_cast<int32_t>((uint64_t(k) * f.vstep) & kScaleFractionMask);
  }
  cache.reset();
  auto source_line = [&](int32_t i) { return walk.source().line(int64_t{run.src.first} + int64_t{i} * run.src.step); };
  auto fill = [&](int32_t i, uint8_t *to) { resample_line(f, source_line(i), to); };
  auto source = [&](int32_t i, int32_t keep) -> const uint8_t * {
    if (!f.resampled) return source_line(i);
    return cache.get(i, keep, fill);
  };
  for (int32_t k = first; k < end; ++k) {
    uint8_t *dst = walk.destination().line(int64_t{run.dst.first} + int64_t{k} * run.dst.step);
    const int32_t i = f.index[k - first];
    const int32_t frac = f.linear ? f.fraction[k - first] : 0;
    // A line used by this output line only is resampled straight into the output.
    if (f.resampled && !f.convert && (!f.linear || frac == 0) && !cache.holds(i) &&
        (k + 1 == end || f.index[k + 1 - first] > i)) {
      fill(i, dst);
      continue;
    }
    // Two source lines that no neighbouring output line shares are resampled and blended in one
    // pass, straight into the output.
    if (f.linear && f.pair && frac != 0 && !f.convert && f.use_plan) {
      const int32_t i2 = std::min(i + 1, last);
      const bool shared = cache.holds(i) || cache.holds(i2) || (k + 1 < end && f.index[k + 1 - first] <= i2);
      if (!shared) {
        f.pair(source_line(i), source_line(i2), dst, &f.line_plan, uint32_t(frac));
        continue;
      }
    }
    const uint8_t *a = source(i, -1);
    const uint8_t *finished = a;
    if (f.linear && frac != 0) {
      const uint8_t *bl = source(std::min(i + 1, last), i);
      f.lines.blend(a, bl, f.convert ? f.out : dst, uint32_t(frac), kScaleOne - uint32_t(frac), f.dst_bytes);
      finished = f.convert ? f.out : nullptr;
    }
    if (f.convert) {
      if (finished != f.out) std::memcpy(f.out, finished, f.dst_bytes);
      f.convert(f.out, f.dst_bytes, &f.coefficients);
      finished = f.out;
    }
    if (finished) std::memmove(dst, finished, f.dst_bytes);
  }
}

// The run's lines as rows base + i * stride of one image, when none of them is clamped into it.
bool run_rows(const LineSide &side, const LineSeries &lines, ResampleRows *rows) {
  const int64_t a = side.top + int64_t{side.sign} * lines.first;
  const int64_t b = a + int64_t{side.sign} * lines.step * (int64_t{lines.count} - 1);
  if (lines.count <= 0 || std::min(a, b) < 0 || std::max(a, b) >= side.rows) return false;
  rows->base = side.at_row(static_cast<int32_t>(a));
  rows->stride = static_cast<ptrdiff_t>(side.sign) * lines.step * static_cast<ptrdiff_t>(side.stride);
  return true;
}

struct ColorFinish {
  ScaleColorConverter convert;
  ScaleColorCoefficients k;
};

void finish_color(void *context, uint8_t *line, size_t bytes) {
  const ColorFinish &c = *static_cast<const ColorFinish *>(context);
  c.convert(line, bytes, &c.k);
}

// The 8-bit classes through the resampling engine.  The scaler's positions in the engine's
// terms: output j reads j * step (14 fraction bits, truncated), nearest the sample floor(j * step)
// = the engine's floor(s + 1/2) at s = j * step - 1/2; 14-bit phases make the linear rows exactly
// (16384 - f, f), the repeated edge is the scaler's clamp of both samples to the last one, and the
// engine's vertical formula is the scaler's blend.  The chroma of the 4:2:2 classes steps by the
// same step per group.  Every plan is built before the first line is written; a run whose lines
// the walk would clamp into the image, or positions the engine refuses, take the scaler's own
// resampler (false, nothing written).
bool scale_with_engine(const DSP_BUFFER &b, const LineWalk &walk, uint32_t cls, int32_t src_cols, int32_t dst_cols,
                       uint32_t hstep, uint64_t vstep, bool linear, bool convert, HRESULT *hr) {
  // Nearest on 4-byte pixels keeps the scaler's own gather, which needs no plan and no work memory.
  if (cls > 6 || (!linear && (cls == 3 || cls == 5)) || vstep > (uint64_t{1} << 44)) return false;
  ResampleRows src[2], dst[2];
  ResamplePlan plans[2];
  ResamplePlan *plan_of[2] = {nullptr, nullptr};
  const int64_t origin = linear ? 0 : -(kResamplePosOne / 2);
  for (int r = 0; r < walk.run_count(); ++r) {
    const LineRun &run = walk.run(r);
    if (run.begin >= run.end) continue;
    if (!run_rows(walk.source(), run.src, &src[r])) return false;
    if (!run_rows(walk.destination(), run.dst, &dst[r])) return false;
    if (r == 1 && plan_of[0] && walk.run(0).src.count == run.src.count && walk.run(0).dst.count == run.dst.count) {
      plan_of[1] = plan_of[0];
      continue;
    }
    ResampleSetup s{};
    s.cls = cls;
    s.kernel = linear ? kResampleLinear : kResampleNearest;
    s.phase_bits = 14;
    s.cols = ResampleAxis{nullptr, dst_cols, src_cols, 65536u, nullptr, nullptr, 0, origin, int64_t{hstep} << 18};
    s.rows = ResampleAxis{nullptr, run.dst.count, run.src.count, 65536u, nullptr, nullptr, 0, origin,
                          static_cast<int64_t>(vstep << 18)};
    s.chroma_siting = kResampleChromaUniform;
    s.chroma_origin = origin;
    s.chroma_step = int64_t{hstep} << 18;
    s.edge = kResampleRepeat;
    const HRESULT built = resample_plan_build(s, cpu_flags(), &plans[r]);
    if (built == kOutOfMemory) {
      *hr = built;
      return true;
    }
    if (built != kOk) return false;
    plan_of[r] = &plans[r];
  }
  ColorFinish color{nullptr, {}};
  if (convert && scale_color_coefficients(b.In.eColorSpace, b.Out.eColorSpace, &color.k)) {
    ScaleLineTable lines;
    scale_line_table_init(&lines, cpu_flags());
    color.convert = lines.convert[cls];
  }
  for (int r = 0; r < walk.run_count(); ++r) {
    if (!plan_of[r]) continue;
    if (r == 1 && plan_of[1] == plan_of[0]) resample_plan_forget(plan_of[1]);
    const LineRun &run = walk.run(r);
    resample_plan_run(plan_of[r], src[r], dst[r], run.begin, run.end, nullptr,
                      color.convert ? finish_color : nullptr, &color);
  }
  *hr = kOk;
  return true;
}

// One frame kernel: the output region of a normalised private record resampled from its input
// region, field by field, with nearest or linear positions, converting colours when asked.
HRESULT scale_frame(const DSP_BUFFER &b, int mode, bool linear, bool convert) {
  const LineLayout layout = scale_layout(b.In.ePixelFormat);
  const LineWalk walk(b, layout, LineRules::kScale);
  const LCtrl &c = walk.control();
  const int32_t src_cols = whole_groups(c.src_columns, layout.group);
  const int32_t dst_cols = whole_groups(c.dst_columns, layout.group);
  FrameScale f;
  f.linear = linear;
  f.src_bytes = size_t(src_cols) * layout.bytes_per_pixel;
  f.dst_bytes = size_t(dst_cols) * layout.bytes_per_pixel;
  if (f.dst_bytes == 0 || c.dst_height <= 0) return kOk;
  pick_kernels(&f, b, layout.layout_class, convert);
  // Vertical-only kernels move source lines as they are when the widths agree.
  f.resampled = mode != kScaleModeVertical || f.src_bytes != f.dst_bytes;
  f.hstep = src_cols > 0 && dst_cols > 0
                ? static_cast<uint32_t>(std::min<uint64_t>(
                      (uint64_t(src_cols) << kScaleFractionBits) / uint64_t(dst_cols), 0xFFFFFFFFu))
                : 0;
  int32_t max_lines = 0;
  for (int r = 0; r < walk.run_count(); ++r) max_lines = std::max(max_lines, walk.run(r).dst.count);
  if (max_lines == 0) return kOk;
  // A field into a frame reads each field line for two frame lines, a frame into a field every
  // second line.
  const uint64_t vstep = ((uint64_t(std::max(c.src_height, 0)) << kScaleFractionBits) << c.src_field_frame) /
                         (uint64_t(c.dst_height) << c.dst_field_frame);
  f.vstep = mode == kScaleModeHorizontal ? kScaleOne : vstep;
  HRESULT engine_hr = kOk;
  if (scale_with_engine(b, walk, layout.layout_class, src_cols, dst_cols, f.hstep, f.vstep, linear, convert,
                        &engine_hr)) {
    return engine_hr;
  }

  WorkBlock work;
  const HRESULT hr = take_work(&f, layout.layout_class, max_lines, &work);
  if (hr != kOk) return hr;
  LineCache cache(f.line_a, f.line_b);
  for (int r = 0; r < walk.run_count(); ++r) {
    const LineRun &run = walk.run(r);
    if (run.begin >= run.end) continue;
    if (f.lean) {
      run_lean(f, walk, run);
    } else {
      run_cached(f, walk, run, cache);
    }
  }
  return kOk;
}

template <int kMode, bool kLinear, bool kConvert>
HRESULT frame_kernel(const DSP_BUFFER *buffer) {
  return scale_frame(*buffer, kMode, kLinear, kConvert);
}

HRESULT reserved_kernel(const DSP_BUFFER *) { return kNotImpl; }

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

const ScaleFrameKernel *scale_plain_kernels() { return kPlain; }
const ScaleFrameKernel *scale_color_kernels() { return kColor; }

void scale_walk_back(const DSP_IMAGE &from, const DSP_BUFFER &to, ScaleBackFn fn, void *context) {
  const LineLayout layout = scale_layout(to.Out.ePixelFormat);
  const LineWalk walk(to, layout, LineRules::kScale);
  const int32_t cols = whole_groups(walk.control().dst_columns, layout.group);
  const size_t bytes = std::min<size_t>(size_t(cols) * layout.bytes_per_pixel, from.ulPrimaryStrideBytes);
  if (bytes == 0) return;
  const LineSide src = line_side(from, 0, int32_t(from.ulHeight), 0);
  for (int r = 0; r < walk.run_count(); ++r) {
    const LineRun &run = walk.run(r);
    const LineSeries &d = run.dst;
    // The run's lines in the private image: rows d.first, d.first + d.step, ..., all inside it.
    const int32_t rows = std::min<int32_t>(d.count, (int32_t(from.ulHeight) - d.first + d.step - 1) / d.step);
    ScaleBackLine line;
    line.run_first = src.line(d.first);
    line.run_stride = static_cast<ptrdiff_t>(d.step) * static_cast<ptrdiff_t>(from.ulPrimaryStrideBytes);
    line.run_lines = rows;
    line.bytes = bytes;
    for (int32_t k = run.begin; k < run.end && k < rows; ++k) {
      line.index = k;
      line.dst = walk.destination().line(int64_t{d.first} + int64_t{k} * d.step);
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
