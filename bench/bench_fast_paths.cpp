// The scaler's fixed-ratio fast paths on whole frames, called through the fast-path interface
// (integer_ratio_scale / hd_width_scale) beside memcpy of the output bytes and, with libyuv, the
// peer route for packed 4:2:2 (UYVYToI422 + I422Scale + I422ToUYVY) and ScalePlane for an 8-bit
// plane.  pixels/s counts OUTPUT pixels (shown with SI prefixes: 1.2G/s is 1200 Mpixel/s).
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "framedsp/framedsp.h"
#include "scale/fast_paths.h"

#if defined(FRAMEDSP_BENCH_LIBYUV)
#include <libyuv/convert_from.h>
#include <libyuv/planar_functions.h>
#include <libyuv/scale.h>
#endif

namespace {

struct Frame {
  Frame(uint32_t w, uint32_t h, uint32_t bpp) : width(w), height(h), stride(w * bpp) {
    bytes = size_t{stride} * h;
    data = static_cast<uint8_t *>(std::aligned_alloc(64, (bytes + 63) & ~size_t{63}));
    std::mt19937 rng(w * 7 + h);
    for (size_t i = 0; i < bytes; ++i) data[i] = static_cast<uint8_t>(rng());
  }
  ~Frame() { std::free(data); }
  Frame(const Frame &) = delete;
  Frame &operator=(const Frame &) = delete;
  uint32_t width, height, stride;
  size_t bytes;
  uint8_t *data;
};

DSP_IMAGE image(const Frame &f, uint32_t format) {
  DSP_IMAGE d;
  std::memset(&d, 0, sizeof d);
  d.Buffer.pBuffer = f.data;
  d.Buffer.ulBytes = static_cast<uint32_t>(f.bytes);
  d.Buffer.eBufferType = DSP_BUFFER_TYPE_FRAME;
  d.Buffer.Region.ulWidth = d.ulWidth = f.width;
  d.Buffer.Region.ulHeight = d.ulHeight = f.height;
  d.ePixelFormat = format;
  d.eInterlace = DSP_INTERLACE_PROGRESSIVE;
  d.ulPrimaryStrideBytes = f.stride;
  return d;
}

void set_rates(benchmark::State &state, const Frame &out) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(out.bytes));
  state.counters["pixels/s"] = benchmark::Counter(static_cast<double>(out.width) * out.height,
                                                  benchmark::Counter::kIsIterationInvariantRate);
}

void run_fast(benchmark::State &state, uint32_t format, uint32_t bpp, uint32_t wi, uint32_t hi,
              uint32_t wo, uint32_t ho, uint32_t filter, bool hd) {
  Frame in(wi, hi, bpp), out(wo, ho, bpp);
  DSP_SCALER_PARAMS params;
  std::memset(&params, 0, sizeof params);
  params.eScalerPath = hd ? DSP_SCALER_PATH_HD_WIDTH : DSP_SCALER_PATH_INTEGER_RATIO;
  params.eFilter = filter;
  framedsp::FastPathCall call{};
  call.params = &params;
  call.buffer.In = image(in, format);
  call.buffer.Out = image(out, format);
  call.field_factor = 1.0f;
  const bool eligible = hd ? framedsp::hd_width_eligible(call) : framedsp::integer_ratio_eligible(call);
  auto run = [&] { return hd ? framedsp::hd_width_scale(call) : framedsp::integer_ratio_scale(call); };
  if (!eligible || run() != DSP_S_OK) {
    state.SkipWithError("fast path refused the call");
    return;
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(run());
    benchmark::ClobberMemory();
  }
  set_rates(state, out);
}

void BM_FastHalfUyvy(benchmark::State &s) { run_fast(s, 21, 2, 1920, 1080, 960, 540, 0, false); }
void BM_FastHalfLinearUyvy(benchmark::State &s) { run_fast(s, 21, 2, 1920, 1080, 960, 540, 1, false); }
void BM_FastDoubleUyvy(benchmark::State &s) { run_fast(s, 21, 2, 1920, 1080, 3840, 2160, 0, false); }
void BM_FastHd1440To1920Uyvy(benchmark::State &s) { run_fast(s, 21, 2, 1440, 1080, 1920, 1080, 1, true); }
void BM_FastHalfLinearPlane(benchmark::State &s) { run_fast(s, 263, 1, 1920, 1080, 960, 540, 1, false); }
BENCHMARK(BM_FastHalfUyvy)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FastHalfLinearUyvy)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FastDoubleUyvy)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FastHd1440To1920Uyvy)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FastHalfLinearPlane)->Unit(benchmark::kMillisecond);

// memcpy of the output bytes: the floor any scaler of the same output has to write.
void run_memcpy(benchmark::State &state, uint32_t w, uint32_t h, uint32_t bpp) {
  Frame a(w, h, bpp), b(w, h, bpp);
  for (auto _ : state) {
    std::memcpy(b.data, a.data, a.bytes);
    benchmark::ClobberMemory();
  }
  set_rates(state, b);
}
void BM_MemcpyUyvy960x540(benchmark::State &s) { run_memcpy(s, 960, 540, 2); }
void BM_MemcpyUyvy3840x2160(benchmark::State &s) { run_memcpy(s, 3840, 2160, 2); }
void BM_MemcpyUyvy1920x1080(benchmark::State &s) { run_memcpy(s, 1920, 1080, 2); }
BENCHMARK(BM_MemcpyUyvy960x540)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MemcpyUyvy3840x2160)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MemcpyUyvy1920x1080)->Unit(benchmark::kMillisecond);

#if defined(FRAMEDSP_BENCH_LIBYUV)
// libyuv has no packed 4:2:2 scaler: unpack to planes, scale the planes, pack again.
void run_libyuv_uyvy(benchmark::State &state, int wi, int hi, int wo, int ho, libyuv::FilterMode mode) {
  Frame in(static_cast<uint32_t>(wi), static_cast<uint32_t>(hi), 2);
  Frame out(static_cast<uint32_t>(wo), static_cast<uint32_t>(ho), 2);
  std::vector<uint8_t> y(size_t(wi) * hi), u(size_t(wi / 2) * hi), v(size_t(wi / 2) * hi);
  std::vector<uint8_t> y2(size_t(wo) * ho), u2(size_t(wo / 2) * ho), v2(size_t(wo / 2) * ho);
  for (auto _ : state) {
    libyuv::UYVYToI422(in.data, wi * 2, y.data(), wi, u.data(), wi / 2, v.data(), wi / 2, wi, hi);
    libyuv::I422Scale(y.data(), wi, u.data(), wi / 2, v.data(), wi / 2, wi, hi, y2.data(), wo,
                      u2.data(), wo / 2, v2.data(), wo / 2, wo, ho, mode);
    libyuv::I422ToUYVY(y2.data(), wo, u2.data(), wo / 2, v2.data(), wo / 2, out.data, wo * 2, wo, ho);
    benchmark::ClobberMemory();
  }
  set_rates(state, out);
}
void BM_LibyuvHalfUyvyNone(benchmark::State &s) { run_libyuv_uyvy(s, 1920, 1080, 960, 540, libyuv::kFilterNone); }
void BM_LibyuvHalfUyvyBox(benchmark::State &s) { run_libyuv_uyvy(s, 1920, 1080, 960, 540, libyuv::kFilterBox); }
void BM_LibyuvDoubleUyvyNone(benchmark::State &s) { run_libyuv_uyvy(s, 1920, 1080, 3840, 2160, libyuv::kFilterNone); }
void BM_LibyuvHd1440To1920UyvyBilinear(benchmark::State &s) {
  run_libyuv_uyvy(s, 1440, 1080, 1920, 1080, libyuv::kFilterBilinear);
}
void BM_LibyuvHalfPlaneBox(benchmark::State &state) {
  Frame in(1920, 1080, 1), out(960, 540, 1);
  for (auto _ : state) {
    libyuv::ScalePlane(in.data, 1920, 1920, 1080, out.data, 960, 960, 540, libyuv::kFilterBox);
    benchmark::ClobberMemory();
  }
  set_rates(state, out);
}
BENCHMARK(BM_LibyuvHalfUyvyNone)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LibyuvHalfUyvyBox)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LibyuvDoubleUyvyNone)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LibyuvHd1440To1920UyvyBilinear)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LibyuvHalfPlaneBox)->Unit(benchmark::kMillisecond);
#endif

}  // namespace
