#include "framerate/frc_kernels.h"

#include <cstring>

#include "platform/cpu.h"
#include "resample/resample.h"
#include "framerate/frc_internal.h"

namespace framedsp {
namespace {

// The motion-compensation filters are the resampling engine's weight rows at the 64 phases,
// placed in six taps from two samples before the position.
McFilter build_filter(uint32_t sampling) {
  static const uint32_t kKernels[4] = {kResampleLanczos3, kResampleCubic, kResampleLinear, kResampleNearest};
  McFilter filter{};
  for (int phase = 0; phase < kMcPhases; ++phase) {
    int32_t first = 0, w[kResampleMaxTaps];
    const int taps = resample_weights(kKernels[sampling], 0, 8192, 6, int64_t(phase) << 26, 65536, &first, w);
    for (int t = 0; t < taps; ++t) filter.rows[phase][first + kMcLead + t] = static_cast<int16_t>(w[t]);
  }
  return filter;
}

}  // namespace

const McFilter &mc_filter(uint32_t sampling) {
  static const McFilter filters[4] = {build_filter(0), build_filter(1), build_filter(2), build_filter(3)};
  return filters[sampling < 4 ? sampling : 0];
}

void mc_tile_c(const uint8_t *src, ptrdiff_t stride, int w, int h, int step, const int16_t *hrow,
               const int16_t *vrow, int16_t *dst) {
  int16_t mid[kMcPatch][kMcMaxTile];
  for (int y = 0; y < h + kMcTaps - 1; ++y) {
    const uint8_t *s = src + y * stride;
    for (int x = 0; x < w; ++x) {
      int32_t acc = 0;
      for (int t = 0; t < kMcTaps; ++t) acc += hrow[t] * s[x + t * step];
      mid[y][x] = static_cast<int16_t>((acc + 128) >> 8);
    }
  }
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      int32_t acc = 0;
      for (int t = 0; t < kMcTaps; ++t) acc += vrow[t] * mid[y + t][x];
      dst[y * kMcMaxTile + x] = static_cast<int16_t>((acc + 8192) >> 14);
    }
  }
}

void mc_blend_c(const int16_t *a, const int16_t *b, int n, int wa, int wb, uint8_t *out) {
  for (int i = 0; i < n; ++i) {
    const int32_t v = (wa * a[i] + wb * b[i] + (1 << 19)) >> 20;
    out[i] = static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
  }
}

void frc_kernels_init(FrcKernels *k, uint32_t cpu_flags) {
  k->tile = mc_tile_c;
  k->blend = mc_blend_c;
#if defined(FRAMEDSP_HAVE_X86)
  if (cpu_flags & kCpuSSE2) frc_init_sse2(k);
  if (cpu_flags & kCpuAVX2) frc_init_avx2(k);
#else
  (void)cpu_flags;
#endif
}

void side_samples(const uint8_t *src, int width, int height, ptrdiff_t stride, int step, int x, int y, int w, int h,
                  int32_t off_x, int32_t off_y, uint32_t sampling, const FrcKernels &k, int16_t *dst) {
  const int32_t ix = floor_div(off_x, 64), iy = floor_div(off_y, 64);
  const McFilter &filt = mc_filter(sampling);
  const int16_t *hrow = filt.rows[off_x - ix * 64], *vrow = filt.rows[off_y - iy * 64];
  const int sx = x + (ix - kMcLead) * step, sy = y + iy - kMcLead;
  const int read = mc_read_width(w, step);
  if (sx >= 0 && sy >= 0 && sx + read <= width && sy + h + kMcTaps - 1 <= height) {
    k.tile(src + sy * stride + sx, stride, w, h, step, hrow, vrow, dst);
    return;
  }
  constexpr int kPatchStride = 48;
  alignas(16) uint8_t patch[kMcPatch * kPatchStride];
  const int cols = width / step;
  const bool columns_inside = sx >= 0 && sx + read <= width;
  for (int r = 0; r < h + kMcTaps - 1; ++r) {
    const uint8_t *line = src + clamp_i(sy + r, 0, height - 1) * stride;
    uint8_t *row = patch + r * kPatchStride;
    if (columns_inside) {
      std::memcpy(row, line + sx, size_t(read));
      continue;
    }
    for (int c = 0; c < read; ++c) {
      const int b = sx + c, parity = b & (step - 1);
      row[c] = line[clamp_i(floor_div(b - parity, step), 0, cols - 1) * step + parity];
    }
  }
  k.tile(patch, kPatchStride, w, h, step, hrow, vrow, dst);
}

}  // namespace framedsp
