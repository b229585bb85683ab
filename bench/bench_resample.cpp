// The resampling engine beside its peers, one thread each, the same source bytes:
//   uyvy 1280x720 -> 1920x1080   linear, cubic (Catmull-Rom), Lanczos-3: plan + both passes per
//                                frame; libyuv UYVYToI422 + I422Scale (bilinear) + I422ToUYVY
//   uyvy 720x486 -> 1920x1080    linear (DspScaler's BM_framedsp_uyvy_sd_to_hd_linear is the same frame)
//   the same through DspSubPixelScaler from a fractional 720p window (the whole export)
//   8-bit plane 1280x720 -> 1920x1080 and 1920x1080 -> 1280x720, cubic: the engine beside zimg's
//                                bicubic (B 0, C 1/2) and libyuv ScalePlane (bilinear, box)
// "pixels/s" counts output pixels.  Times are per output frame.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "platform/cpu.h"
#include "framedsp/framedsp.h"
#include "resample/resample.h"
#include "resample_util.h"

#if defined(FRAMEDSP_BENCH_LIBYUV)
#include <libyuv/planar_functions.h>
#include <libyuv/scale.h>
#endif
#if defined(FRAMEDSP_BENCH_ZIMG)
#include "zimg_resize.h"
#endif

namespace {

using resample_test::Job;
using resample_test::Picture;

void rates(benchmark::State &state, int dw, int dh) {
  state.counters["pixels/s"] = benchmark::Counter(double(dw) * dh, benchmark::Counter::kIsIterationInvariantRate);
}

void random_bytes(std::vector<uint8_t> &v) {
  std::mt19937 rng(720);
  for (auto &b : v) b = uint8_t(rng());
}

// range(0): kernel; range(1): class (0 UYVY, 6 plane); range(2..5): sizes.
void BM_ResampleEngine(benchmark::State &state) {
  const uint32_t kernel = uint32_t(state.range(0)), cls = uint32_t(state.range(1));
  const int sw = int(state.range(2)), sh = int(state.range(3)), dw = int(state.range(4)), dh = int(state.range(5));
  Picture src(cls, sw, sh), dst(cls, dw, dh);
  random_bytes(src.bytes);
  Job job(cls, kernel, sw, sh, dw, dh);
  for (auto _ : state) {
    job.run(src, dst, framedsp::cpu_flags());
    benchmark::DoNotOptimize(dst.bytes.data());
  }
  rates(state, dw, dh);
}
BENCHMARK(BM_ResampleEngine)->Name("resample/uyvy_720p_1080p/linear")->Args({1, 0, 1280, 720, 1920, 1080})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ResampleEngine)->Name("resample/uyvy_486_1080p/linear")->Args({1, 0, 720, 486, 1920, 1080})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ResampleEngine)->Name("resample/uyvy_720p_1080p/cubic")->Args({2, 0, 1280, 720, 1920, 1080})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ResampleEngine)->Name("resample/uyvy_720p_1080p/lanczos3")->Args({3, 0, 1280, 720, 1920, 1080})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ResampleEngine)->Name("resample/plane_720p_1080p/cubic")->Args({2, 6, 1280, 720, 1920, 1080})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ResampleEngine)->Name("resample/plane_1080p_720p/cubic")->Args({2, 6, 1920, 1080, 1280, 720})->Unit(benchmark::kMillisecond);

// DspSubPixelScaler through the export: a fractional 720p UYVY window onto a 1080p frame, all
// checks, tables and plans included.  range(0): eFilter.
void BM_SubPixelScaler(benchmark::State &state) {
  const uint32_t sw = 1280, sh = 720, dw = 1920, dh = 1080;
  std::vector<uint8_t> src(size_t(sw) * 2 * sh), dst(size_t(dw) * 2 * dh);
  random_bytes(src);
  DSP_SUBPIXEL_SCALER_PARAMS p{};
  p.eFilter = uint32_t(state.range(0));
  DSP_SUBPIXEL_IMAGE *sides[2] = {&p.Buffer.In, &p.Buffer.Out};
  for (int k = 0; k < 2; ++k) {
    DSP_SUBPIXEL_IMAGE &im = *sides[k];
    im.Buffer.pBuffer = k ? dst.data() : src.data();
    im.Buffer.eBufferType = DSP_BUFFER_TYPE_FRAME;
    im.ulWidth = k ? dw : sw;
    im.ulHeight = k ? dh : sh;
    im.ePixelFormat = DSP_PIXEL_FORMAT_UYVY;
    im.eInterlace = DSP_INTERLACE_PROGRESSIVE;
    im.ulPrimaryStrideBytes = im.ulWidth * 2;
  }
  p.Buffer.In.Buffer.Region = {{0.25, 0.5}, 1279.5, 719.25};
  p.Buffer.Out.Buffer.Region = {{0, 0}, double(dw), double(dh)};
  for (auto _ : state) {
    if (DspSubPixelScaler(&p) != DSP_S_OK) state.SkipWithError("DspSubPixelScaler failed");
    benchmark::DoNotOptimize(dst.data());
  }
  rates(state, int(dw), int(dh));
}
BENCHMARK(BM_SubPixelScaler)->Name("subpixel_scaler/uyvy_720p_1080p/linear")->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SubPixelScaler)->Name("subpixel_scaler/uyvy_720p_1080p/cubic")->Arg(2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SubPixelScaler)->Name("subpixel_scaler/uyvy_720p_1080p/lanczos3")->Arg(3)->Unit(benchmark::kMillisecond);

#if defined(FRAMEDSP_BENCH_ZIMG)
void BM_ZimgBicubic(benchmark::State &state) {
  const unsigned sw = unsigned(state.range(0)), sh = unsigned(state.range(1));
  const unsigned dw = unsigned(state.range(2)), dh = unsigned(state.range(3));
  zimg_peer::AlignedPlane src(sw, sh), dst(dw, dh);
  std::vector<uint8_t> bytes(size_t(src.stride) * sh);
  random_bytes(bytes);
  std::copy(bytes.begin(), bytes.end(), src.data);
  zimg_peer::Resize resize(sw, sh, dw, dh, 1, 0, 0.5);
  for (auto _ : state) {
    resize.run(src, dst);
    benchmark::DoNotOptimize(dst.data);
  }
  rates(state, int(dw), int(dh));
}
BENCHMARK(BM_ZimgBicubic)->Name("zimg/plane_720p_1080p/bicubic")->Args({1280, 720, 1920, 1080})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ZimgBicubic)->Name("zimg/plane_1080p_720p/bicubic")->Args({1920, 1080, 1280, 720})->Unit(benchmark::kMillisecond);
#endif

#if defined(FRAMEDSP_BENCH_LIBYUV)
void BM_LibyuvPlane(benchmark::State &state) {
  const int sw = int(state.range(0)), sh = int(state.range(1)), dw = int(state.range(2)), dh = int(state.range(3));
  std::vector<uint8_t> src(size_t(sw) * sh), dst(size_t(dw) * dh);
  random_bytes(src);
  const auto mode = state.range(4) ? libyuv::kFilterBox : libyuv::kFilterBilinear;
  for (auto _ : state) {
    libyuv::ScalePlane(src.data(), sw, sw, sh, dst.data(), dw, dw, dh, mode);
    benchmark::DoNotOptimize(dst.data());
  }
  rates(state, dw, dh);
}
BENCHMARK(BM_LibyuvPlane)->Name("libyuv/plane_720p_1080p/bilinear")->Args({1280, 720, 1920, 1080, 0})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LibyuvPlane)->Name("libyuv/plane_1080p_720p/box")->Args({1920, 1080, 1280, 720, 1})->Unit(benchmark::kMillisecond);

void BM_LibyuvUyvy(benchmark::State &state) {
  const int sw = 1280, sh = 720, dw = 1920, dh = 1080;
  std::vector<uint8_t> src(size_t(sw) * 2 * sh), dst(size_t(dw) * 2 * dh);
  random_bytes(src);
  std::vector<uint8_t> sy(size_t(sw) * sh), su(size_t(sw / 2) * sh), sv(su.size());
  std::vector<uint8_t> dy(size_t(dw) * dh), du(size_t(dw / 2) * dh), dv(du.size());
  for (auto _ : state) {
    libyuv::UYVYToI422(src.data(), sw * 2, sy.data(), sw, su.data(), sw / 2, sv.data(), sw / 2, sw, sh);
    libyuv::I422Scale(sy.data(), sw, su.data(), sw / 2, sv.data(), sw / 2, sw, sh, dy.data(), dw, du.data(), dw / 2,
                      dv.data(), dw / 2, dw, dh, libyuv::kFilterBilinear);
    libyuv::I422ToUYVY(dy.data(), dw, du.data(), dw / 2, dv.data(), dw / 2, dst.data(), dw * 2, dw, dh);
    benchmark::DoNotOptimize(dst.data());
  }
  rates(state, dw, dh);
}
BENCHMARK(BM_LibyuvUyvy)->Name("libyuv/uyvy_720p_1080p/bilinear")->Unit(benchmark::kMillisecond);
#endif

}  // namespace
