// Helpers of the resampling-engine tests: uniform position tables and a whole-picture run.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "resample/resample.h"

namespace resample_test {

// Centre convention over whole regions: s_j = (j + 1/2) * src / dst - 1/2 + offset (Q32).
inline std::vector<int64_t> centre_positions(int32_t dst, int32_t src, int64_t offset = 0) {
  std::vector<int64_t> p(size_t(dst > 0 ? dst : 0));
  for (int32_t j = 0; j < dst; ++j) {
    p[size_t(j)] = int64_t((__int128(2 * j + 1) * src << 32) / (2 * dst)) - (int64_t{1} << 31) + offset;
  }
  return p;
}

inline uint32_t widen_of(int32_t src, int32_t dst) {
  return src > dst ? uint32_t((uint64_t(src) << 16) / uint64_t(dst)) : 65536u;
}

struct Picture {
  int32_t width = 0, height = 0;  // pixels, rows
  size_t stride = 0;
  std::vector<uint8_t> bytes;
  Picture(uint32_t cls, int32_t w, int32_t h, uint8_t fill = 0)
      : width(w), height(h),
        stride(size_t(w) / framedsp::resample_group_pixels(cls) * framedsp::resample_group_bytes(cls)),
        bytes(stride * size_t(h), fill) {}
  uint8_t *row(int32_t r) { return bytes.data() + size_t(r) * stride; }
};

// A setup with uniform centre-convention tables; the caller may change anything before building.
struct Job {
  framedsp::ResampleSetup s{};
  std::vector<int64_t> cols, rows;
  Job(uint32_t cls, uint32_t kernel, int32_t sw, int32_t sh, int32_t dw, int32_t dh, int64_t dx = 0, int64_t dy = 0) {
    cols = centre_positions(dw, sw, dx);
    rows = centre_positions(dh, sh, dy);
    s.cls = cls;
    s.kernel = kernel;
    s.cubic_c_q14 = 8192;
    s.cols = {cols.data(), dw, sw, widen_of(sw, dw), nullptr, nullptr, 0};
    s.rows = {rows.data(), dh, sh, widen_of(sh, dh), nullptr, nullptr, 0};
  }
  // Runs the rows [r0, r1) (all by default) of a plan built for `cpu` into `out`.
  framedsp::HRESULT run(Picture &src, Picture &out, uint32_t cpu, int32_t r0 = 0, int32_t r1 = 1 << 30,
              const framedsp::ResampleCoverage *cov = nullptr) {
    s.cols.pos = cols.data();
    s.rows.pos = rows.data();
    framedsp::ResamplePlan plan;
    const framedsp::HRESULT hr = framedsp::resample_plan_build(s, cpu, &plan);
    if (hr != 0) return hr;
    return framedsp::resample_plan_run(&plan, {src.bytes.data(), ptrdiff_t(src.stride)},
                                       {out.bytes.data(), ptrdiff_t(out.stride)}, r0, r1, cov);
  }
};

}  // namespace resample_test
