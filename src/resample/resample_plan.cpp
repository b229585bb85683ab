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
  const int64_t *pos;
  int32_t count;
  int32_t n;
  int32_t pad;
  uint32_t widen;
  const uint32_t *widen_each;
  const int16_t *lowpass;
  int32_t lowpass_taps;
  int raw_taps;  // taps before the edge rule
  int taps;      // window: min(raw_taps, n + 2 pad)
};

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
  const int64_t pos = a.pos[j];
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
      const int64_t c = (a.pos[j] >> 32) + a.pad;
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
      if (a.pos[j] >= begin && a.pos[j] < end) {
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

bool axis_ok(const ResampleAxis &a, int32_t unit) {
  if (a.count < 0 || a.count > kCountLimit || a.src_count < 0 || a.src_count > kCountLimit) return false;
  if (a.count % unit || a.src_count % unit) return false;
  if (a.count > 0 && (!a.pos || a.src_count == 0)) return false;
  if (a.lowpass && (a.lowpass_taps < 1 || a.lowpass_taps % 2 == 0 || a.lowpass_taps > kResampleMaxTaps)) return false;
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

}  // namespace

HRESULT resample_plan_build(const ResampleSetup &s, uint32_t cpu_flags, ResamplePlan *plan) {
  plan->set_data(nullptr);
  if (s.cls >= kResampleClasses || s.kernel > kResampleLanczos3 || s.edge > kResampleUntouched) return kInvalidArg;
  if (s.chroma_siting > kResampleCentred || s.anti_ringing_q8 > 256) return kInvalidArg;
  if (s.cubic_b_q14 < 0 || s.cubic_b_q14 > kResampleOne || s.cubic_c_q14 < 0 || s.cubic_c_q14 > kResampleOne) {
    return kInvalidArg;
  }
  const Kernel k{s.kernel, s.cubic_b_q14, s.cubic_c_q14, s.phase_bits ? s.phase_bits : kResampleDefaultPhaseBits};
  if (k.phase_bits < 1 || k.phase_bits > kResampleMaxPhaseBits) return kInvalidArg;
  const ResampleLayout &layout = resample_layout(s.cls);
  const int32_t px = layout.pixels;
  if (!axis_ok(s.cols, px) || !axis_ok(s.rows, 1)) return kInvalidArg;
  const bool untouched = s.edge == kResampleUntouched, fill = s.edge == kResampleFill;
  const bool mirror = s.edge == kResampleMirror;

  int32_t col_first, col_count, row_first, row_count;
  written_range(s.cols, untouched, px, &col_first, &col_count);
  written_range(s.rows, untouched, 1, &row_first, &row_count);
  plan->col_first = col_first;
  plan->col_count = col_count;
  plan->row_first = row_first;
  plan->row_count = row_count;
  if (col_count == 0 || row_count == 0) return kOk;

  // Streams: pixel rate, chroma (4:2:2), rows.
  const int32_t groups = col_count / px;
  AxisJob h[2] = {}, v = {};
  h[0] = {s.cols.pos + col_first, col_count, s.cols.src_count, 0, s.cols.widen_q16,
          s.cols.widen_each ? s.cols.widen_each + col_first : nullptr, s.cols.lowpass, s.cols.lowpass_taps, 0, 0};
  h[0].raw_taps = axis_raw_taps(k, s.cols, s.cols.count);
  v = {s.rows.pos + row_first, row_count, s.rows.src_count, 0, s.rows.widen_q16,
       s.rows.widen_each ? s.rows.widen_each + row_first : nullptr, s.rows.lowpass, s.rows.lowpass_taps, 0, 0};
  v.raw_taps = axis_raw_taps(k, s.rows, s.rows.count);
  if (h[0].raw_taps == 0 || v.raw_taps == 0) return kInvalidArg;
  const int streams = px == 2 ? 2 : 1;
  int32_t pad_groups = 0;
  if (fill) {
    pad_groups = h[0].raw_taps + 1;
    v.pad = v.raw_taps + 1;
  }
  h[0].pad = pad_groups * px;
  if (streams == 2) {
    h[1] = h[0];
    h[1].count = groups;
    h[1].n = s.cols.src_count / 2;
    h[1].pad = pad_groups;
    h[1].pos = nullptr;  // filled below
  }
  for (int i = 0; i < streams; ++i) h[i].taps = std::min(h[i].raw_taps, h[i].n + 2 * h[i].pad);
  v.taps = std::min(v.raw_taps, v.n + 2 * v.pad);

  ResampleLineTable lines;
  resample_line_table_init(&lines, cpu_flags);
  const bool wide = layout.sample_bytes == 2;
  const int h_taps = std::max(h[0].taps, streams == 2 ? h[1].taps : 0);
  // Rows of one or two taps take the two-tap blocks where the level has their kernels.
  const bool two_tap = !wide && h_taps <= 2 && lines.horz_two_tap[s.cls];
  const bool blocks = !two_tap && lines.horz_uses_blocks[s.cls] && !wide;
  const bool ring_centres = s.anti_ringing_q8 != 0 && s.kernel != kResampleNearest;
  const size_t src_line_bytes = size_t(s.cols.src_count / px) * layout.group;
  const size_t out_bytes = size_t(groups) * layout.group;
  const size_t pad_bytes = size_t(pad_groups) * layout.group;
  const int ring = v.taps;
  const int phases = k.phase_bits <= 8 ? 1 << k.phase_bits : 0;
  const int max_raw = std::max(h[0].raw_taps, v.raw_taps);
  const int pair_count = resample_pair_count(h_taps);
  const size_t pair_entries = blocks ? out_bytes / 8 * size_t(pair_count) : 0;
  const size_t block_count = blocks ? out_bytes / 8 : 0;
  const size_t two_tap_count = two_tap ? out_bytes / 16 : 0;

  // Sizes, in the order they are carved.
  size_t total = 0;
  auto table_bytes = [&](const AxisJob &a) {
    return ResampleCarve::size(size_t(a.count) * 4) + ResampleCarve::size(size_t(a.count) * size_t(a.taps) * 2) +
           (ring_centres ? ResampleCarve::size(size_t(a.count) * 8) : 0);
  };
  for (int i = 0; i < streams; ++i) total += table_bytes(h[i]);
  total += table_bytes(v) + ResampleCarve::size(sizeof(ResamplePlanData));
  total += streams == 2 ? ResampleCarve::size(size_t(groups) * 8) : 0;
  if (phases) {
    total += ResampleCarve::size(size_t(phases) * size_t(max_raw) * 4) + ResampleCarve::size(size_t(phases) * 4) +
             ResampleCarve::size(size_t(phases));
  }
  total += ResampleCarve::size(pair_entries * sizeof(ResampleHPair)) + ResampleCarve::size(block_count) +
           two_tap_count * sizeof(ResampleHTwoTap);
  const size_t line = ResampleCarve::size(out_bytes + 16);
  total += size_t(ring) * line + ResampleCarve::size(size_t(ring) * sizeof(void *)) +
           ResampleCarve::size(size_t(ring) * 4) + ResampleCarve::size(size_t(v.taps) * sizeof(void *));
  total += fill ? ResampleCarve::size(src_line_bytes + 2 * pad_bytes + 16) + line : 0;
  total += line;
  if (!plan->block().allocate(total + 16)) return kOutOfMemory;

  ResampleCarve carve(plan->block().aligned());
  ResamplePlanData *d = carve.take<ResamplePlanData>(1);
  std::memset(d, 0, sizeof *d);
  auto take_table = [&](const AxisJob &a, ResampleRowsTable *t) {
    t->first = carve.take<int32_t>(size_t(a.count));
    t->w = carve.take<int16_t>(size_t(a.count) * size_t(a.taps));
    t->centre = ring_centres ? carve.take<int32_t>(size_t(a.count) * 2) : nullptr;
  };
  for (int i = 0; i < streams; ++i) take_table(h[i], &d->hrows[i]);
  take_table(v, &d->vrows);
  if (streams == 2) {
    int64_t *cpos = carve.take<int64_t>(size_t(groups));
    for (int32_t g = 0; g < groups; ++g) {
      const int64_t a = h[0].pos[2 * g], b = h[0].pos[2 * g + 1];
      if (s.chroma_pos) {
        cpos[g] = s.chroma_pos[col_first / 2 + g];
      } else {
        cpos[g] = s.chroma_siting == kResampleCentred ? (a + b - kResamplePosOne) >> 2 : a >> 1;
      }
    }
    h[1].pos = cpos;
  }
  PhaseCache cache{};
  if (phases) {
    cache.w = carve.take<int32_t>(size_t(phases) * size_t(max_raw));
    cache.offset = carve.take<int32_t>(size_t(phases));
    cache.valid = carve.take<uint8_t>(size_t(phases));
    cache.phases = phases;
  }
  for (int i = 0; i < streams; ++i) {
    if (!build_axis(k, h[i], mirror, phases && !h[i].widen_each ? &cache : nullptr, &d->hrows[i])) return kInvalidArg;
  }
  if (!build_axis(k, v, mirror, phases && !v.widen_each ? &cache : nullptr, &d->vrows)) return kInvalidArg;

  d->cls = s.cls;
  d->edge = s.edge;
  d->anti_ringing = ring_centres ? s.anti_ringing_q8 : 0;
  d->wide = wide;
  d->layout = &layout;
  d->lines = lines;
  d->src_rows = s.rows.src_count;
  d->pad_rows = v.pad;
  d->src_line_bytes = src_line_bytes;
  d->pad_bytes = pad_bytes;
  d->out_bytes = out_bytes;
  d->out_offset = size_t(col_first / px) * layout.group;
  ResampleHorzPlan &hp = d->hplan;
  hp.cls = s.cls;
  hp.table[0] = &d->hrows[0];
  hp.table[1] = streams == 2 ? &d->hrows[1] : &d->hrows[0];
  hp.src_bytes = src_line_bytes + 2 * pad_bytes;
  hp.dst_bytes = out_bytes;
  hp.pair_count = pair_count;
  hp.blocks = block_count;
  ResampleHPair *pairs = carve.take<ResampleHPair>(pair_entries);
  uint8_t *fits = carve.take<uint8_t>(block_count);
  if (blocks) {
    hp.pairs = pairs;
    hp.fits = fits;
    resample_build_blocks(hp, pairs, fits);
  }
  d->horz = lines.horz[s.cls];
  if (two_tap) {
    ResampleHTwoTap *t = carve.take<ResampleHTwoTap>(two_tap_count);
    hp.two_tap_blocks = two_tap_count;
    resample_build_two_tap(hp, t);
    hp.two_tap = t;
    d->horz = lines.horz_two_tap[s.cls];
  }
  int32_t shift = 0, chroma_shift = 0;
  d->h_identity = !fill && d->anti_ringing == 0 && identity_rows(d->hrows[0], &shift) && shift % px == 0 &&
                  (streams == 1 || (identity_rows(d->hrows[1], &chroma_shift) && chroma_shift * 2 == shift));
  d->identity_offset = d->h_identity ? size_t(shift / px) * layout.group : 0;

  d->ring_size = ring;
  d->ring = carve.take<uint8_t *>(size_t(ring));
  d->ring_id = carve.take<int32_t>(size_t(ring));
  d->taps = carve.take<const uint8_t *>(size_t(v.taps));
  for (int r = 0; r < ring; ++r) {
    d->ring[r] = carve.take<uint8_t>(out_bytes + 16);
    d->ring_id[r] = -1;
  }
  if (fill) {
    d->padded = carve.take<uint8_t>(src_line_bytes + 2 * pad_bytes + 16);
    fill_pattern(d->padded, src_line_bytes + 2 * pad_bytes, s.fill, layout.group);
    d->fill_line = carve.take<uint8_t>(out_bytes + 16);
    fill_pattern(d->fill_line, out_bytes, s.fill, layout.group);
  }
  d->temp = carve.take<uint8_t>(out_bytes + 16);
  plan->set_data(d);
  return kOk;
}

}  // namespace framedsp
