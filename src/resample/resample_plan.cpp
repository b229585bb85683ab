// Building a resampling plan: positions -> weight rows -> gather blocks and work lines.
#include <algorithm>
#include <cstring>

#include "resample/resample_internal.h"

namespace framedsp {
namespace {

constexpr int64_t kPosLimit = int64_t{1} << 61;  // positions beyond this are refused
constexpr int32_t kCountLimit = 1 << 28;

// One stream of one axis: the written outputs' positions over n source samples, `pad` virtual
// samples of fill colour on each side in the fill mode.
struct AxisJob {
  const int64_t *pos;  // null: origin + j * step
  int32_t count;
  int32_t n;
  int32_t pad;
  uint32_t widen;
  const uint32_t *widen_each;
  const int16_t *lowpass;
  int32_t lowpass_taps;
  int raw_taps;  // taps before the edge rule
  int taps;      // window: min(raw_taps, n + 2 pad)
  int64_t origin;
  int64_t step;
  int64_t at(int32_t j) const { return pos ? pos[j] : origin + j * step; }
};

int64_t axis_pos(const ResampleAxis &a, int32_t j) { return a.pos ? a.pos[j] : a.origin + j * a.step; }

// Rows of one phase, kept while the axis has one reduction factor (phase precision <= 8 bits).
struct PhaseCache {
  int32_t *w;       // phases * raw_taps
  int32_t *offset;  // first - whole
  uint8_t *valid;
  int phases;
};

struct Kernel {
  uint32_t kernel;
  int32_t b, c;
  int phase_bits;
};

int32_t fold(int64_t i, int32_t n, bool mirror) {
  if (mirror) {
    const int64_t period = 2 * int64_t{n};
    int64_t m = i % period;
    if (m < 0) m += period;
    return static_cast<int32_t>(m >= n ? period - 1 - m : m);
  }
  return static_cast<int32_t>(std::min<int64_t>(std::max<int64_t>(i, 0), n - 1));
}

// Raw row of one output, low-pass included: returns the tap count (0: refused).
int raw_row(const Kernel &k, const AxisJob &a, int32_t j, PhaseCache *cache, int32_t *first, int32_t *w) {
  const uint32_t widen = a.widen_each ? a.widen_each[j] : a.widen;
  const int64_t pos = a.at(j);
  if (a.raw_taps <= 2 && !a.lowpass && widen <= 65536u) {
    // Nearest and unwidened linear rows, as resample_weights() gives them, without its call.
    const int shift = 32 - k.phase_bits;
    const int64_t q = (pos + (int64_t{1} << (shift - 1))) >> shift;
    const int64_t whole = q >> k.phase_bits, phase = q & ((int64_t{1} << k.phase_bits) - 1);
    if (k.kernel == kResampleNearest) {
      *first = static_cast<int32_t>(whole + (2 * phase >= (int64_t{1} << k.phase_bits) ? 1 : 0));
      w[0] = kResampleOne;
      return 1;
    }
    *first = static_cast<int32_t>(whole);
    w[1] = static_cast<int32_t>(phase << (kResampleWeightBits - k.phase_bits));
    w[0] = kResampleOne - w[1];
    return 2;
  }
  int64_t phase = -1;
  if (cache) {
    const int shift = 32 - k.phase_bits;
    const int64_t q = (pos + (int64_t{1} << (shift - 1))) >> shift;
    phase = q & (cache->phases - 1);
    const int64_t whole = q >> k.phase_bits;
    if (cache->valid[phase]) {
      std::memcpy(w, cache->w + phase * a.raw_taps, sizeof(int32_t) * size_t(a.raw_taps));
      *first = static_cast<int32_t>(whole + cache->offset[phase]);
      return a.raw_taps;
    }
  }
  int taps = resample_weights(k.kernel, k.b, k.c, k.phase_bits, pos, widen, first, w);
  if (taps && a.lowpass) taps = resample_convolve(w, taps, first, a.lowpass, a.lowpass_taps);
  if (taps > a.raw_taps) return 0;
  for (int t = taps; t < a.raw_taps; ++t) w[t] = 0;  // a narrower row of a varying reduction
  if (cache) {
    const int shift = 32 - k.phase_bits;
    const int64_t whole = ((pos + (int64_t{1} << (shift - 1))) >> shift) >> k.phase_bits;
    std::memcpy(cache->w + phase * a.raw_taps, w, sizeof(int32_t) * size_t(a.raw_taps));
    cache->offset[phase] = static_cast<int32_t>(*first - whole);
    cache->valid[phase] = 1;
  }
  return a.raw_taps;
}

// The rows of one stream; false when a row cannot be held (taps or weights out of range).
bool build_axis(const Kernel &k, const AxisJob &a, bool mirror, PhaseCache *cache, ResampleRowsTable *out) {
  const int32_t ext = a.n + 2 * a.pad;
  out->count = a.count;
  out->taps = a.taps;
  if (cache) std::memset(cache->valid, 0, size_t(cache->phases));
  for (int32_t j = 0; j < a.count; ++j) {
    int32_t raw[kResampleMaxTaps];
    int32_t first = 0;
    if (raw_row(k, a, j, cache, &first, raw) == 0) return false;
    const int64_t f = int64_t{first} + a.pad;
    int64_t start = f;
    const int32_t *row = raw;  // a row whose taps all lie inside is its raw row
    int32_t folded[kResampleMaxTaps];
    if (f < 0 || f + a.raw_taps > ext || a.taps != a.raw_taps) {
      start = std::min<int64_t>(std::max<int64_t>(f, 0), ext - a.taps);
      std::fill(folded, folded + a.taps, 0);
      for (int t = 0; t < a.raw_taps; ++t) {
        const int64_t at = fold(f + t, ext, mirror) - start;
        if (at < 0 || at >= a.taps) return false;
        folded[at] += raw[t];
      }
      row = folded;
    }
    int32_t positive = 0;
    int16_t *w = out->w + size_t(j) * size_t(a.taps);
    for (int t = 0; t < a.taps; ++t) {
      if (row[t] > 32767 || row[t] < -32768) return false;
      if (row[t] > 0) positive += row[t];
      w[t] = static_cast<int16_t>(row[t]);
    }
    if (positive > 32767) return false;  // keeps the 16-bit kernels' sums inside int32
    out->first[j] = static_cast<int32_t>(start);
    if (out->centre) {
      const int64_t c = (a.at(j) >> 32) + a.pad;
      out->centre[2 * j] = fold(c, ext, mirror);
      out->centre[2 * j + 1] = fold(c + 1, ext, mirror);
    }
  }
  return true;
}

// Raw tap count of a stream (the widest row), 0 when refused.
int axis_raw_taps(const Kernel &k, const ResampleAxis &axis, int32_t count) {
  uint32_t widen = axis.widen_q16;
  if (axis.widen_each) {
    widen = 0;
    for (int32_t j = 0; j < count; ++j) widen = std::max(widen, axis.widen_each[j]);
  }
  int32_t first = 0, w[kResampleMaxTaps];
  int taps = resample_weights(k.kernel, k.b, k.c, k.phase_bits, 0, widen, &first, w);
  if (taps && axis.lowpass) taps += axis.lowpass_taps - 1;
  return taps <= kResampleMaxTaps ? taps : 0;
}

// The output range an axis writes: everything, or (untouched edges) the outputs whose position
// lies inside the source; `unit` rounds the range to whole groups.
void written_range(const ResampleAxis &a, bool untouched, int32_t unit, int32_t *first, int32_t *count) {
  int32_t lo = 0, hi = a.count;
  if (untouched) {
    const int64_t begin = -(kResamplePosOne / 2);
    const int64_t end = int64_t{a.src_count} * kResamplePosOne - kResamplePosOne / 2;
    lo = a.count;
    hi = 0;
    for (int32_t j = 0; j < a.count; ++j) {
      const int64_t pos = axis_pos(a, j);
      if (pos >= begin && pos < end) {
        lo = std::min(lo, j);
        hi = j + 1;
      }
    }
    lo = (lo + unit - 1) / unit * unit;
    hi = hi / unit * unit;
  }
  *first = lo;
  *count = std::max(hi - lo, 0);
}

// Whether origin + j * step stays inside +-kPosLimit for 0 <= j < count (a line: its ends do).
bool uniform_ok(int64_t origin, int64_t step, int32_t count) {
  if (origin > kPosLimit || origin < -kPosLimit) return false;
  if (count <= 1) return true;
  if (step > kPosLimit / (count - 1) || step < -kPosLimit / (count - 1)) return false;
  const int64_t last = origin + step * (count - 1);
  return last <= kPosLimit && last >= -kPosLimit;
}

bool axis_ok(const ResampleAxis &a, int32_t unit) {
  if (a.count < 0 || a.count > kCountLimit || a.src_count < 0 || a.src_count > kCountLimit) return false;
  if (a.count % unit || a.src_count % unit) return false;
  if (a.count > 0 && a.src_count == 0) return false;
  if (a.lowpass && (a.lowpass_taps < 1 || a.lowpass_taps % 2 == 0 || a.lowpass_taps > kResampleMaxTaps)) return false;
  if (!a.pos) return uniform_ok(a.origin, a.step, a.count);
  for (int32_t j = 0; j < a.count; ++j) {
    if (a.pos[j] > kPosLimit || a.pos[j] < -kPosLimit) return false;
  }
  return true;
}

// Whether the rows of a stream read sample j + d for output j with weight 16384 and nothing else.
bool identity_rows(const ResampleRowsTable &r, int32_t *d) {
  for (int32_t j = 0; j < r.count; ++j) {
    const int16_t *w = r.w + size_t(j) * size_t(r.taps);
    int hit = -1;
    for (int t = 0; t < r.taps; ++t) {
      if (w[t] == kResampleOne && hit < 0) {
        hit = t;
      } else if (w[t] != 0) {
        return false;
      }
    }
    if (hit < 0) return false;
    const int32_t shift = r.first[j] + hit - j;
    if (j == 0) *d = shift;
    if (shift != *d) return false;
  }
  return r.count > 0;
}

void fill_pattern(uint8_t *p, size_t bytes, const uint8_t *group, size_t g) {
  for (size_t i = 0; i < bytes; ++i) p[i] = group[i % g];
}

// What a plan needs before its block is carved: the streams, the kernels and the sizes.
struct PlanShape {
  Kernel k;
  const ResampleLayout *layout;
  int32_t px, col_first, groups;
  int streams;
  AxisJob h[2], v;
  bool fill, mirror, wide, two_tap, one_tap, blocks, ring_centres, chroma_table;
  ResampleLineTable lines;
  int32_t pad_groups;
  size_t src_line_bytes, out_bytes, pad_bytes;
  int ring, phases, max_raw, pair_count;
  size_t pair_entries, block_count, two_tap_count;
};

HRESULT check_setup(const ResampleSetup &s, Kernel *k) {
  if (s.cls >= kResampleClasses || s.kernel > kResampleLanczos3 || s.edge > kResampleUntouched) return kInvalidArg;
  if (s.chroma_siting > kResampleChromaUniform || s.anti_ringing_q8 > 256) return kInvalidArg;
  if (s.cubic_b_q14 < 0 || s.cubic_b_q14 > kResampleOne || s.cubic_c_q14 < 0 || s.cubic_c_q14 > kResampleOne) {
    return kInvalidArg;
  }
  *k = Kernel{s.kernel, s.cubic_b_q14, s.cubic_c_q14, s.phase_bits ? s.phase_bits : kResampleDefaultPhaseBits};
  if (k->phase_bits < 1 || k->phase_bits > kResampleMaxPhaseBits) return kInvalidArg;
  const int32_t px = resample_layout(s.cls).pixels;
  if (!axis_ok(s.cols, px) || !axis_ok(s.rows, 1)) return kInvalidArg;
  if (px == 2 && s.chroma_siting == kResampleChromaUniform && !s.chroma_pos &&
      !uniform_ok(s.chroma_origin, s.chroma_step, s.cols.count / 2)) {
    return kInvalidArg;
  }
  return kOk;
}

AxisJob axis_job(const Kernel &k, const ResampleAxis &a, int32_t first, int32_t count) {
  AxisJob j{a.pos ? a.pos + first : nullptr, count, a.src_count, 0, a.widen_q16,
            a.widen_each ? a.widen_each + first : nullptr, a.lowpass, a.lowpass_taps, 0, 0,
            a.pos ? 0 : a.origin + first * a.step, a.pos ? 0 : a.step};
  j.raw_taps = axis_raw_taps(k, a, a.count);
  return j;
}

// The streams of a plan (pixel rate, chroma of the 4:2:2 classes, rows) over the written range.
bool shape_streams(const ResampleSetup &s, const ResamplePlan &plan, PlanShape *p) {
  p->layout = &resample_layout(s.cls);
  p->px = p->layout->pixels;
  p->col_first = plan.col_first;
  p->groups = plan.col_count / p->px;
  p->fill = s.edge == kResampleFill;
  p->mirror = s.edge == kResampleMirror;
  p->h[0] = axis_job(p->k, s.cols, plan.col_first, plan.col_count);
  p->v = axis_job(p->k, s.rows, plan.row_first, plan.row_count);
  if (p->h[0].raw_taps == 0 || p->v.raw_taps == 0) return false;
  p->streams = p->px == 2 ? 2 : 1;
  p->pad_groups = p->fill ? p->h[0].raw_taps + 1 : 0;
  p->v.pad = p->fill ? p->v.raw_taps + 1 : 0;
  p->h[0].pad = p->pad_groups * p->px;
  p->chroma_table = false;
  if (p->streams == 2) {
    AxisJob &c = p->h[1];
    c = p->h[0];
    c.count = p->groups;
    c.n = s.cols.src_count / 2;
    c.pad = p->pad_groups;
    const bool uniform = !s.chroma_pos && s.chroma_siting == kResampleChromaUniform;
    c.pos = nullptr;  // uniform, or a table filled when the block is carved
    c.origin = uniform ? s.chroma_origin + int64_t{plan.col_first / 2} * s.chroma_step : 0;
    c.step = uniform ? s.chroma_step : 0;
    p->chroma_table = !uniform;
  }
  for (int i = 0; i < p->streams; ++i) p->h[i].taps = std::min(p->h[i].raw_taps, p->h[i].n + 2 * p->h[i].pad);
  p->v.taps = std::min(p->v.raw_taps, p->v.n + 2 * p->v.pad);
  return true;
}

// Kernels and sizes of the plan's pieces.
void shape_lines(const ResampleSetup &s, uint32_t cpu_flags, PlanShape *p) {
  resample_line_table_init(&p->lines, cpu_flags);
  const ResampleLayout &l = *p->layout;
  p->wide = l.sample_bytes == 2;
  const int h_taps = std::max(p->h[0].taps, p->streams == 2 ? p->h[1].taps : 0);
  // Rows of one or two taps take the two-tap blocks where the level has their kernels.
  p->two_tap = !p->wide && h_taps <= 2 && p->lines.horz_two_tap[s.cls];
  p->one_tap = h_taps == 1;
  p->blocks = !p->two_tap && p->lines.horz_uses_blocks[s.cls] && !p->wide;
  p->ring_centres = s.anti_ringing_q8 != 0 && s.kernel != kResampleNearest;
  p->src_line_bytes = size_t(s.cols.src_count / p->px) * l.group;
  p->out_bytes = size_t(p->groups) * l.group;
  p->pad_bytes = size_t(p->pad_groups) * l.group;
  p->ring = p->v.taps;
  p->phases = p->k.phase_bits <= 8 ? 1 << p->k.phase_bits : 0;
  p->max_raw = std::max(p->h[0].raw_taps, p->v.raw_taps);
  p->pair_count = resample_pair_count(h_taps);
  p->pair_entries = p->blocks ? p->out_bytes / 8 * size_t(p->pair_count) : 0;
  p->block_count = p->blocks ? p->out_bytes / 8 : 0;
  p->two_tap_count = p->two_tap ? p->out_bytes / 16 : 0;
}

// Bytes of the block, in the order carve_rows() and carve_lines() take them.
size_t shape_bytes(const PlanShape &p) {
  auto table_bytes = [&](const AxisJob &a) {
    return ResampleCarve::size(size_t(a.count) * 4) + ResampleCarve::size(size_t(a.count) * size_t(a.taps) * 2) +
           (p.ring_centres ? ResampleCarve::size(size_t(a.count) * 8) : 0);
  };
  size_t total = ResampleCarve::size(sizeof(ResamplePlanData));
  for (int i = 0; i < p.streams; ++i) total += table_bytes(p.h[i]);
  total += table_bytes(p.v);
  total += p.chroma_table ? ResampleCarve::size(size_t(p.groups) * 8) : 0;
  if (p.phases) {
    total += ResampleCarve::size(size_t(p.phases) * size_t(p.max_raw) * 4) +
             ResampleCarve::size(size_t(p.phases) * 4) + ResampleCarve::size(size_t(p.phases));
  }
  total += ResampleCarve::size(p.pair_entries * sizeof(ResampleHPair)) + ResampleCarve::size(p.block_count) +
           p.two_tap_count * sizeof(ResampleHTwoTap);
  const size_t line = ResampleCarve::size(p.out_bytes + 16);
  total += size_t(p.ring) * line + ResampleCarve::size(size_t(p.ring) * sizeof(void *)) +
           ResampleCarve::size(size_t(p.ring) * 4) + ResampleCarve::size(size_t(p.v.taps) * sizeof(void *));
  total += p.fill ? ResampleCarve::size(p.src_line_bytes + 2 * p.pad_bytes + 16) + line : 0;
  return total + line;
}

// The weight rows of every stream; false when a row cannot be held.
bool carve_rows(const ResampleSetup &s, PlanShape &p, ResampleCarve &carve, ResamplePlanData *d) {
  auto take_table = [&](const AxisJob &a, ResampleRowsTable *t) {
    t->first = carve.take<int32_t>(size_t(a.count));
    t->w = carve.take<int16_t>(size_t(a.count) * size_t(a.taps));
    t->centre = p.ring_centres ? carve.take<int32_t>(size_t(a.count) * 2) : nullptr;
  };
  for (int i = 0; i < p.streams; ++i) take_table(p.h[i], &d->hrows[i]);
  take_table(p.v, &d->vrows);
  if (p.chroma_table) {
    int64_t *cpos = carve.take<int64_t>(size_t(p.groups));
    for (int32_t g = 0; g < p.groups; ++g) {
      const int64_t a = p.h[0].at(2 * g), b = p.h[0].at(2 * g + 1);
      if (s.chroma_pos) {
        cpos[g] = s.chroma_pos[p.col_first / 2 + g];
      } else {
        cpos[g] = s.chroma_siting == kResampleCentred ? (a + b - kResamplePosOne) >> 2 : a >> 1;
      }
    }
    p.h[1].pos = cpos;
  }
  PhaseCache cache{};
  if (p.phases) {
    cache.w = carve.take<int32_t>(size_t(p.phases) * size_t(p.max_raw));
    cache.offset = carve.take<int32_t>(size_t(p.phases));
    cache.valid = carve.take<uint8_t>(size_t(p.phases));
    cache.phases = p.phases;
  }
  for (int i = 0; i < p.streams; ++i) {
    if (!build_axis(p.k, p.h[i], p.mirror, p.phases && !p.h[i].widen_each ? &cache : nullptr, &d->hrows[i])) {
      return false;
    }
  }
  return build_axis(p.k, p.v, p.mirror, p.phases && !p.v.widen_each ? &cache : nullptr, &d->vrows);
}

// The horizontal plan and its gather blocks, the kernels and the work lines.
void carve_lines(const ResampleSetup &s, const PlanShape &p, ResampleCarve &carve, ResamplePlanData *d) {
  const ResampleLayout &l = *p.layout;
  d->cls = s.cls;
  d->edge = s.edge;
  d->anti_ringing = p.ring_centres ? s.anti_ringing_q8 : 0;
  d->wide = p.wide;
  d->layout = &l;
  d->lines = p.lines;
  d->src_rows = s.rows.src_count;
  d->pad_rows = p.v.pad;
  d->src_line_bytes = p.src_line_bytes;
  d->pad_bytes = p.pad_bytes;
  d->out_bytes = p.out_bytes;
  d->out_offset = size_t(p.col_first / p.px) * l.group;
  ResampleHorzPlan &hp = d->hplan;
  hp.cls = s.cls;
  hp.table[0] = &d->hrows[0];
  hp.table[1] = p.streams == 2 ? &d->hrows[1] : &d->hrows[0];
  hp.src_bytes = p.src_line_bytes + 2 * p.pad_bytes;
  hp.dst_bytes = p.out_bytes;
  hp.pair_count = p.pair_count;
  hp.blocks = p.block_count;
  ResampleHPair *pairs = carve.take<ResampleHPair>(p.pair_entries);
  uint8_t *fits = carve.take<uint8_t>(p.block_count);
  if (p.blocks) {
    hp.pairs = pairs;
    hp.fits = fits;
    resample_build_blocks(hp, pairs, fits);
  }
  d->horz = p.lines.horz[s.cls];
  if (p.two_tap) {
    ResampleHTwoTap *t = carve.take<ResampleHTwoTap>(p.two_tap_count);
    hp.two_tap_blocks = p.two_tap_count;
    resample_build_two_tap(hp, t);
    hp.two_tap = t;
    d->horz = p.one_tap && p.lines.horz_one_tap[s.cls] ? p.lines.horz_one_tap[s.cls] : p.lines.horz_two_tap[s.cls];
  }
  d->horz_pair = p.two_tap && !p.fill && d->anti_ringing == 0 ? p.lines.horz_pair[s.cls] : nullptr;
  int32_t shift = 0, chroma_shift = 0;
  d->h_identity = !p.fill && d->anti_ringing == 0 && identity_rows(d->hrows[0], &shift) && shift % p.px == 0 &&
                  (p.streams == 1 || (identity_rows(d->hrows[1], &chroma_shift) && chroma_shift * 2 == shift));
  d->identity_offset = d->h_identity ? size_t(shift / p.px) * l.group : 0;
  d->ring_size = p.ring;
  d->ring = carve.take<uint8_t *>(size_t(p.ring));
  d->ring_id = carve.take<int32_t>(size_t(p.ring));
  d->taps = carve.take<const uint8_t *>(size_t(p.v.taps));
  for (int r = 0; r < p.ring; ++r) {
    d->ring[r] = carve.take<uint8_t>(p.out_bytes + 16);
    d->ring_id[r] = -1;
  }
  if (p.fill) {
    d->padded = carve.take<uint8_t>(p.src_line_bytes + 2 * p.pad_bytes + 16);
    fill_pattern(d->padded, p.src_line_bytes + 2 * p.pad_bytes, s.fill, l.group);
    d->fill_line = carve.take<uint8_t>(p.out_bytes + 16);
    fill_pattern(d->fill_line, p.out_bytes, s.fill, l.group);
  }
  d->temp = carve.take<uint8_t>(p.out_bytes + 16);
}

}  // namespace

HRESULT resample_plan_build(const ResampleSetup &s, uint32_t cpu_flags, ResamplePlan *plan) {
  plan->set_data(nullptr);
  PlanShape p{};
  const HRESULT checked = check_setup(s, &p.k);
  if (checked != kOk) return checked;
  const int32_t px = int32_t(resample_layout(s.cls).pixels);
  const bool untouched = s.edge == kResampleUntouched;
  written_range(s.cols, untouched, px, &plan->col_first, &plan->col_count);
  written_range(s.rows, untouched, 1, &plan->row_first, &plan->row_count);
  if (plan->col_count == 0 || plan->row_count == 0) return kOk;
  if (!shape_streams(s, *plan, &p)) return kInvalidArg;
  shape_lines(s, cpu_flags, &p);
  if (!plan->block().allocate(shape_bytes(p) + 16)) return kOutOfMemory;
  ResampleCarve carve(plan->block().aligned());
  ResamplePlanData *d = carve.take<ResamplePlanData>(1);
  std::memset(d, 0, sizeof *d);
  if (!carve_rows(s, p, carve, d)) return kInvalidArg;
  carve_lines(s, p, carve, d);
  plan->set_data(d);
  return kOk;
}

}  // namespace framedsp
