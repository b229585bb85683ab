// Running a resampling plan over output rows: horizontal pass once per source row into the ring of
// work lines, vertical pass into the output.
#include <algorithm>
#include <cstring>

#include "resample/resample_internal.h"

namespace framedsp {
namespace {

// The horizontally resampled line of extended row e (fill rows are the fill line).
const uint8_t *row_line(ResamplePlanData &d, ResampleRows src, int32_t e) {
  const int32_t i = e - d.pad_rows;
  if (i < 0 || i >= d.src_rows) return d.fill_line;  // only in the fill mode: rows are folded otherwise
  const uint8_t *row = src.base + static_cast<ptrdiff_t>(i) * src.stride;
  if (d.h_identity) return row + d.identity_offset;
  const int slot = e % d.ring_size;
  uint8_t *line = d.ring[slot];
  if (d.ring_id[slot] == e) return line;
  if (d.padded) {
    std::memcpy(d.padded + d.pad_bytes, row, d.src_line_bytes);
    row = d.padded;
  }
  d.horz(row, line, &d.hplan);
  if (d.anti_ringing) resample_horz_antiring(row, line, &d.hplan, d.anti_ringing);
  d.ring_id[slot] = e;
  return line;
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
  for (int32_t r = lo; r < hi; ++r) {
    const int32_t j = r - plan->row_first;
    const int16_t *w = v.w + size_t(j) * size_t(v.taps);
    int single = -1, nonzero = 0;
    for (int t = 0; t < v.taps; ++t) {
      d.taps[t] = row_line(d, src, v.first[j] + t);
      if (w[t] == kResampleOne) single = t;
      nonzero += w[t] != 0;
    }
    if (nonzero != 1) single = -1;
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
    if (single >= 0) {
      // Every other weight is 0 (the row sums to 16384): the formula gives the line itself.
      std::memmove(target, d.taps[single], bytes);
    } else {
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
