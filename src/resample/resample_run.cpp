// Running a resampling plan over output rows: horizontal pass once per source row into the ring of
// work lines, vertical pass into the output.
#include <algorithm>
#include <cstring>

#include "resample/resample_internal.h"

namespace framedsp {
namespace {

// Horizontal pass of source row i (a row of the caller's table) into `line`.
void horz_line(ResamplePlanData &d, ResampleRows src, int32_t i, uint8_t *line) {
  const uint8_t *row = src.base + static_cast<ptrdiff_t>(i) * src.stride;
  if (d.padded) {
    std::memcpy(d.padded + d.pad_bytes, row, d.src_line_bytes);
    row = d.padded;
  }
  d.horz(row, line, &d.hplan);
  if (d.anti_ringing) resample_horz_antiring(row, line, &d.hplan, d.anti_ringing);
}

bool in_ring(const ResamplePlanData &d, int32_t e) { return d.ring_id[e % d.ring_size] == e; }

// The horizontally resampled line of extended row e (fill rows are the fill line).
const uint8_t *row_line(ResamplePlanData &d, ResampleRows src, int32_t e) {
  const int32_t i = e - d.pad_rows;
  if (i < 0 || i >= d.src_rows) return d.fill_line;  // only in the fill mode: rows are folded otherwise
  if (d.h_identity) return src.base + static_cast<ptrdiff_t>(i) * src.stride + d.identity_offset;
  const int slot = e % d.ring_size;
  uint8_t *line = d.ring[slot];
  if (d.ring_id[slot] == e) return line;
  horz_line(d, src, i, line);
  d.ring_id[slot] = e;
  return line;
}

// The tap of row j that carries all of its weight, or -1.
int single_tap(const ResampleRowsTable &v, int32_t j) {
  const int16_t *w = v.w + size_t(j) * size_t(v.taps);
  int single = -1;
  for (int t = 0; t < v.taps; ++t) {
    if (w[t] == kResampleOne && single < 0) {
      single = t;
    } else if (w[t] != 0) {
      return -1;
    }
  }
  return single;
}

// Whether row j reads extended row e with a non-zero weight.
bool reads(const ResampleRowsTable &v, int32_t j, int32_t e) {
  const int32_t t = e - v.first[j];
  return t >= 0 && t < v.taps && v.w[size_t(j) * size_t(v.taps) + size_t(t)] != 0;
}

// A line taken by one output row alone is resampled straight into it (no ring line, no copy); the
// row after it may copy it when it reads the same line alone and nothing converted it.
struct Direct {
  int32_t e = -1;
  const uint8_t *out = nullptr;
};

// A row of two taps whose lines no ring line holds and the next row does not read: both lines
// resampled and blended in one pass straight into `target`.  False when the row is not one.
bool pair_row(ResamplePlanData &d, ResampleRows src, int32_t j, bool last, uint8_t *target) {
  const ResampleRowsTable &v = d.vrows;
  if (!d.horz_pair || d.h_identity || v.taps != 2) return false;
  const int16_t *w = v.w + size_t(j) * 2;
  const int32_t e = v.first[j], i = e - d.pad_rows;
  if (w[0] == 0 || w[1] == 0 || int32_t{w[0]} + w[1] != kResampleOne || i < 0 || i + 1 >= d.src_rows) return false;
  if (in_ring(d, e) || in_ring(d, e + 1)) return false;
  if (!last && (reads(v, j + 1, e) || reads(v, j + 1, e + 1))) return false;
  const uint8_t *row = src.base + static_cast<ptrdiff_t>(i) * src.stride;
  d.horz_pair(row, row + src.stride, target, &d.hplan, w);
  return true;
}

// Writes row j's line into `target`; false when the row needs the vertical pass.
bool single_row(ResamplePlanData &d, ResampleRows src, int32_t j, bool last, bool plain, uint8_t *target,
                Direct *direct) {
  const ResampleRowsTable &v = d.vrows;
  const int single = single_tap(v, j);
  if (single < 0) return false;
  const int32_t e = v.first[j] + single, i = e - d.pad_rows;
  const Direct before = *direct;
  *direct = Direct{};
  if (plain && before.e == e) {
    std::memmove(target, before.out, d.out_bytes);
  } else if (!d.h_identity && i >= 0 && i < d.src_rows && !in_ring(d, e) &&
             (last || !reads(v, j + 1, e) || (plain && single_tap(v, j + 1) >= 0))) {
    horz_line(d, src, i, target);
  } else {
    std::memmove(target, row_line(d, src, e), d.out_bytes);
    return true;
  }
  if (plain) *direct = Direct{e, target};
  return true;
}

// Blends `line` into `dst` with per-unit coverage: the row's coverage times the first and last
// unit's column coverage.
void blend_line(const ResamplePlanData &d, const uint8_t *line, uint8_t *dst, uint32_t row_cov,
                const ResampleCoverage &c) {
  const size_t unit = d.layout->group;
  const size_t units = d.out_bytes / unit;
  for (size_t u = 0; u < units; ++u) {
    uint32_t col = kResampleOne;
    if (u == 0) col = c.first_col;
    if (u + 1 == units) col = u == 0 ? (c.first_col * c.last_col + 8192) >> 14 : c.last_col;
    const uint32_t cov = (col * row_cov + 8192) >> 14;
    const uint8_t *s = line + u * unit;
    uint8_t *o = dst + u * unit;
    if (cov >= uint32_t(kResampleOne)) {
      std::memcpy(o, s, unit);
      continue;
    }
    if (d.wide) {
      for (size_t b = 0; b + 2 <= unit; b += 2) {
        const uint32_t nv = s[b] | (s[b + 1] << 8), ov = o[b] | (o[b + 1] << 8);
        const uint32_t v = (nv * cov + ov * (kResampleOne - cov) + 8192) >> 14;
        o[b] = static_cast<uint8_t>(v);
        o[b + 1] = static_cast<uint8_t>(v >> 8);
      }
    } else {
      for (size_t b = 0; b < unit; ++b) o[b] = static_cast<uint8_t>((s[b] * cov + o[b] * (kResampleOne - cov) + 8192) >> 14);
    }
  }
}

}  // namespace

void resample_plan_forget(ResamplePlan *plan) {
  ResamplePlanData *d = plan->data();
  for (int r = 0; d && r < d->ring_size; ++r) d->ring_id[r] = -1;
}

HRESULT resample_plan_run(ResamplePlan *plan, ResampleRows src, ResampleRows dst, int32_t row_begin, int32_t row_end,
                          const ResampleCoverage *coverage, ResampleFinish finish, void *finish_context) {
  ResamplePlanData *dp = plan->data();
  if (!dp) return kOk;  // nothing to write
  ResamplePlanData &d = *dp;
  const int32_t lo = std::max(row_begin, plan->row_first);
  const int32_t hi = std::min(row_end, plan->row_first + plan->row_count);
  const ResampleRowsTable &v = d.vrows;
  const size_t bytes = d.out_bytes;
  const ResampleVertFn vert = d.wide ? d.lines.vert16 : d.lines.vert8;
  Direct direct;
  for (int32_t r = lo; r < hi; ++r) {
    const int32_t j = r - plan->row_first;
    const int16_t *w = v.w + size_t(j) * size_t(v.taps);
    uint8_t *out = const_cast<uint8_t *>(dst.base) + static_cast<ptrdiff_t>(r) * dst.stride + d.out_offset;
    uint32_t row_cov = kResampleOne;
    if (coverage) {
      if (r == plan->row_first) row_cov = coverage->first_row;
      if (r == plan->row_first + plan->row_count - 1) {
        row_cov = plan->row_count == 1 ? (coverage->first_row * coverage->last_row + 8192) >> 14 : coverage->last_row;
      }
    }
    const bool blended = coverage && (row_cov < uint32_t(kResampleOne) || coverage->first_col < uint32_t(kResampleOne) ||
                                      coverage->last_col < uint32_t(kResampleOne));
    uint8_t *target = blended ? d.temp : out;
    // A row with one weight of 16384 (the others 0) is that line itself.
    if (!single_row(d, src, j, r + 1 == hi, !blended && !finish, target, &direct) &&
        !pair_row(d, src, j, r + 1 == hi, target)) {
      const uint8_t *any = nullptr;
      for (int t = 0; t < v.taps; ++t) {
        if (w[t] != 0) any = d.taps[t] = row_line(d, src, v.first[j] + t);
      }
      for (int t = 0; t < v.taps; ++t) {
        if (w[t] == 0) d.taps[t] = any;  // read with weight 0: any line will do
      }
      vert(d.taps, w, v.taps, target, bytes);
      if (d.anti_ringing) {
        resample_vert_antiring(row_line(d, src, v.centre[2 * j]), row_line(d, src, v.centre[2 * j + 1]), target,
                               bytes, d.wide, d.anti_ringing);
      }
    }
    if (finish) finish(finish_context, target, bytes);
    if (blended) blend_line(d, target, out, row_cov, *coverage);
  }
  return kOk;
}

}  // namespace framedsp
