#include "scale/resample_driver.h"

#include <cstring>

#include "platform/trace.h"
#include "platform/work_memory.h"

namespace framedsp {

bool mul_div(int64_t a, uint64_t b, uint64_t c, int64_t *out) {
  const bool neg = a < 0;
  const uint64_t ua = neg ? 0 - static_cast<uint64_t>(a) : static_cast<uint64_t>(a);
  uint64_t q = 0;
#if defined(__SIZEOF_INT128__)
  const unsigned __int128 n = static_cast<unsigned __int128>(ua) * b + (c >> 1);
  if ((n >> 64) >= c) return false;
  q = static_cast<uint64_t>(n / c);
#else
  const uint64_t al = ua & 0xFFFFFFFFu, ah = ua >> 32, bl = b & 0xFFFFFFFFu, bh = b >> 32;
  const uint64_t p0 = al * bl, p1 = al * bh, p2 = ah * bl, p3 = ah * bh;
  const uint64_t mid = (p0 >> 32) + (p1 & 0xFFFFFFFFu) + (p2 & 0xFFFFFFFFu);
  uint64_t lo = (p0 & 0xFFFFFFFFu) | (mid << 32);
  uint64_t hi = p3 + (p1 >> 32) + (p2 >> 32) + (mid >> 32);
  lo += c >> 1;
  if (lo < (c >> 1)) ++hi;
  if (hi >= c) return false;
  uint64_t r = hi;
  for (int i = 63; i >= 0; --i) {
    r = (r << 1) | ((lo >> i) & 1u);
    q <<= 1;
    if (r >= c) r -= c, q |= 1;
  }
#endif
  if (q >> 62) return false;
  *out = neg ? -static_cast<int64_t>(q) : static_cast<int64_t>(q);
  return true;
}

void color_finish(void *context, uint8_t *line, size_t bytes) {
  const ColorFinish &c = *static_cast<const ColorFinish *>(context);
  c.convert(line, bytes, &c.k);
}

HRESULT resample_run_rows(ResamplePlan &plan, uint32_t cls, ResampleRows src, ResampleRows dst, int32_t r0,
                          int32_t r1, bool staged, const ResampleCoverage *coverage, ColorFinish *color) {
  if (!plan.data() || r1 <= r0) return kOk;
  const ResampleFinish finish = color ? color_finish : nullptr;
  if (!staged) return resample_plan_run(&plan, src, dst, r0, r1, coverage, finish, color);
  const size_t group = resample_group_bytes(cls), px = resample_group_pixels(cls);
  const size_t offset = size_t(plan.col_first) / px * group, bytes = size_t(plan.col_count) / px * group;
  const size_t pitch = (offset + bytes + 15) & ~size_t{15};
  WorkBlock stage;
  if (!stage.allocate(pitch * size_t(r1 - r0) + 16)) return kOutOfMemory;
  uint8_t *lines = stage.aligned();
  for (int32_t r = r0; r < r1; ++r) {
    std::memcpy(lines + size_t(r - r0) * pitch + offset, dst.base + ptrdiff_t(r) * dst.stride + offset, bytes);
  }
  // Row r0 of the table lands on the first private line.
  const uintptr_t virtual_base = reinterpret_cast<uintptr_t>(lines) - uintptr_t(r0) * pitch;
  const ResampleRows private_rows{reinterpret_cast<const uint8_t *>(virtual_base), ptrdiff_t(pitch)};
  const HRESULT hr = resample_plan_run(&plan, src, private_rows, r0, r1, coverage, finish, color);
  if (hr != kOk) return hr;
  for (int32_t r = r0; r < r1; ++r) {
    std::memcpy(const_cast<uint8_t *>(dst.base) + ptrdiff_t(r) * dst.stride + offset,
                lines + size_t(r - r0) * pitch + offset, bytes);
  }
  return kOk;
}

HRESULT lowpass_rows(const char *export_name, FilterSubRecord filter, LowpassRows *out) {
  if (*filter.filter_type != DSP_FILTER_TYPE_FIR) {
    refuse(export_name, "filtered worker: filter type %u is not 1 (FIR)", *filter.filter_type);
    return kInvalidArg;
  }
  if (!filter.settings) return refuse(export_name, "filtered worker: pSettings is null"), kInvalidArg;
  FirRows rows;
  const HRESULT hr = fir_rows_from_settings(export_name, *static_cast<const DSP_FIR_SETTINGS *>(filter.settings), &rows);
  if (hr != kOk) return hr;
  // The FIR rows hold each coefficient eight times over; the engine wants one of each.
  for (int t = 0; t < rows.horz_taps; ++t) out->horz[t] = rows.horz[t].lane[0];
  for (int t = 0; t < rows.vert_taps; ++t) out->vert[t] = rows.vert[t].lane[0];
  out->h = rows.horz ? out->horz : nullptr;
  out->h_taps = rows.horz ? rows.horz_taps : 0;
  out->v = rows.vert ? out->vert : nullptr;
  out->v_taps = rows.vert ? rows.vert_taps : 0;
  return kOk;
}

}  // namespace framedsp
