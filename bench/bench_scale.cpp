// DspScaler beside the peers, one thread each, the same source bytes:
//   bgra 1920x1080 -> 1280x720   nearest and linear; libyuv ARGBScale (kFilterNone, kFilterBilinear),
//                                OpenCV resize (INTER_NEAREST, INTER_LINEAR), swscale (point, bilinear)
//   uyvy 1920x1080 -> 1280x720   nearest and linear; libyuv UYVYToI422 + I422Scale + I422ToUYVY
//                                (bilinear), swscale fast bilinear uyvy422 -> uyvy422
//   uyvy 720x486 -> 1920x1080    linear, beside the same two peer routes; DspNonUniformScaler's
//                                panorama (linear, cubic) on the same frames
//   uyvy 1920x1080 -> 1440x1080  the panorama undone (cubic)
// "pixels/s" counts output pixels (250M/s is 250 Mpixel/s).  The routes differ in their sample
// phase and rounding, so only speed is compared here.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "framedsp/framedsp.h"

#if defined(FRAMEDSP_BENCH_OPENCV_IMGPROC)
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif
#if defined(FRAMEDSP_BENCH_LIBYUV)
#include <libyuv/planar_functions.h>
#include <libyuv/scale.h>
#include <libyuv/scale_argb.h>
#endif
#if defined(FRAMEDSP_BENCH_SWSCALE)
extern "C" {
#include <libswscale/swscale.h>
}
#endif

namespace {

struct Geometry {
  uint32_t sw, sh, dw, dh, bpp;
};
constexpr Geometry kBgraDown{1920, 1080, 1280, 720, 4};
constexpr Geometry kUyvyDown{1920, 1080, 1280, 720, 2};
constexpr Geometry kUyvyUp{720, 486, 1920, 1080, 2};

struct Frames {
  explicit Frames(const Geometry &g)
      : g(g), src_stride(g.sw * g.bpp), dst_stride(g.dw * g.bpp), src(size_t{src_stride} * g.sh), dst(size_t{dst_stride} * g.dh) {
    std::mt19937 rng(1080);
    for (auto &b : src) b = static_cast<uint8_t>(rng());
  }
  Geometry g;
  uint32_t src_stride, dst_stride;
  std::vector<uint8_t> src, dst;
};

void set_rates(benchmark::State &state, const Geometry &g) {
  state.counters["pixels/s"] =
      benchmark::Counter(static_cast<double>(g.dw) * g.dh, benchmark::Counter::kIsIterationInvariantRate);
}

DSP_IMAGE image(uint8_t *memory, uint32_t w, uint32_t h, uint32_t stride, uint32_t format) {
  DSP_IMAGE d;
  std::memset(&d, 0, sizeof d);
  d.Buffer.pBuffer = memory;
  d.Buffer.ulBytes = stride * h;
  d.Buffer.eBufferType = DSP_BUFFER_TYPE_FRAME;
  d.Buffer.Region.ulWidth = d.ulWidth = w;
  d.Buffer.Region.ulHeight = d.ulHeight = h;
  d.ePixelFormat = format;
  d.eInterlace = DSP_INTERLACE_PROGRESSIVE;
  d.ulPrimaryStrideBytes = stride;
  return d;
}

void run_framedsp(benchmark::State &state, const Geometry &g, uint32_t format, uint32_t filter) {
  Frames f(g);
  DSP_SCALER_PARAMS p;
  std::memset(&p, 0, sizeof p);
  p.eFilter = filter;
  p.Buffer.In = image(f.src.data(), g.sw, g.sh, f.src_stride, format);
  p.Buffer.Out = image(f.dst.data(), g.dw, g.dh, f.dst_stride, format);
  if (DspScaler(&p) != DSP_S_OK) {
    state.SkipWithError("DspScaler refused the record");
    return;
  }
  for (auto _ : state) {
    DspScaler(&p);
    benchmark::DoNotOptimize(f.dst.data());
  }
  set_rates(state, g);
}

void BM_framedsp_bgra_nearest(benchmark::State &s) { run_framedsp(s, kBgraDown, DSP_PIXEL_FORMAT_BGRA32, 0); }
void BM_framedsp_bgra_linear(benchmark::State &s) { run_framedsp(s, kBgraDown, DSP_PIXEL_FORMAT_BGRA32, 1); }
void BM_framedsp_uyvy_nearest(benchmark::State &s) { run_framedsp(s, kUyvyDown, DSP_PIXEL_FORMAT_UYVY, 0); }
void BM_framedsp_uyvy_linear(benchmark::State &s) { run_framedsp(s, kUyvyDown, DSP_PIXEL_FORMAT_UYVY, 1); }
void BM_framedsp_uyvy_sd_to_hd_linear(benchmark::State &s) { run_framedsp(s, kUyvyUp, DSP_PIXEL_FORMAT_UYVY, 1); }
BENCHMARK(BM_framedsp_bgra_nearest)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_framedsp_bgra_linear)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_framedsp_uyvy_nearest)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_framedsp_uyvy_linear)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_framedsp_uyvy_sd_to_hd_linear)->Unit(benchmark::kMillisecond);

// DspNonUniformScaler on the same frames as the SD -> HD DspScaler run above: the panorama of
// 4:3 material (centre 0.2 at 0.85 of the stretch).
constexpr Geometry kUyvyUndo{1920, 1080, 1440, 1080, 2};

void run_panorama(benchmark::State &state, uint32_t filter, uint32_t mode = DSP_STRETCH_PANORAMA,
                  const Geometry &geometry = kUyvyUp) {
  Frames f(geometry);
  const Geometry &g = f.g;
  DSP_NONUNIFORM_SCALER_PARAMS p;
  std::memset(&p, 0, sizeof p);
  p.eStretchMode = mode;
  p.eFilter = filter;
  p.ulCentreWidthQ14 = 3277;
  p.ulCentreScaleQ14 = 13926;
  p.Buffer.In = image(f.src.data(), g.sw, g.sh, f.src_stride, DSP_PIXEL_FORMAT_UYVY);
  p.Buffer.Out = image(f.dst.data(), g.dw, g.dh, f.dst_stride, DSP_PIXEL_FORMAT_UYVY);
  if (DspNonUniformScaler(&p) != DSP_S_OK) {
    state.SkipWithError("DspNonUniformScaler refused the record");
    return;
  }
  for (auto _ : state) {
    DspNonUniformScaler(&p);
    benchmark::DoNotOptimize(f.dst.data());
  }
  set_rates(state, g);
}
void BM_framedsp_uyvy_sd_to_hd_panorama_linear(benchmark::State &s) { run_panorama(s, DSP_SUBPIXEL_FILTER_LINEAR); }
void BM_framedsp_uyvy_sd_to_hd_panorama_cubic(benchmark::State &s) { run_panorama(s, DSP_SUBPIXEL_FILTER_CUBIC); }
BENCHMARK(BM_framedsp_uyvy_sd_to_hd_panorama_linear)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_framedsp_uyvy_sd_to_hd_panorama_cubic)->Unit(benchmark::kMillisecond);
// The panorama of an HD frame undone (16:9 back to 4:3): strong, uneven reductions at the edges.
void BM_framedsp_uyvy_hd_panorama_undone_cubic(benchmark::State &s) {
  run_panorama(s, DSP_SUBPIXEL_FILTER_CUBIC, DSP_STRETCH_PANORAMA_INVERSE, kUyvyUndo);
}
BENCHMARK(BM_framedsp_uyvy_hd_panorama_undone_cubic)->Unit(benchmark::kMillisecond);

#if defined(FRAMEDSP_BENCH_LIBYUV)
void run_libyuv_argb(benchmark::State &state, libyuv::FilterMode mode) {
  Frames f(kBgraDown);
  const Geometry &g = f.g;
  for (auto _ : state) {
    libyuv::ARGBScale(f.src.data(), int(f.src_stride), int(g.sw), int(g.sh), f.dst.data(), int(f.dst_stride),
                      int(g.dw), int(g.dh), mode);
    benchmark::DoNotOptimize(f.dst.data());
  }
  set_rates(state, g);
}
void BM_libyuv_argb_none(benchmark::State &s) { run_libyuv_argb(s, libyuv::kFilterNone); }
void BM_libyuv_argb_bilinear(benchmark::State &s) { run_libyuv_argb(s, libyuv::kFilterBilinear); }
BENCHMARK(BM_libyuv_argb_none)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_libyuv_argb_bilinear)->Unit(benchmark::kMillisecond);

// Packed 4:2:2 has no direct libyuv scaler: unpack to planes, scale the planes, pack again.
void run_libyuv_uyvy(benchmark::State &state, const Geometry &g) {
  Frames f(g);
  std::vector<uint8_t> sy(size_t{g.sw} * g.sh), su(size_t{g.sw / 2} * g.sh), sv(su.size());
  std::vector<uint8_t> dy(size_t{g.dw} * g.dh), du(size_t{g.dw / 2} * g.dh), dv(du.size());
  for (auto _ : state) {
    libyuv::UYVYToI422(f.src.data(), int(f.src_stride), sy.data(), int(g.sw), su.data(), int(g.sw / 2), sv.data(),
                       int(g.sw / 2), int(g.sw), int(g.sh));
    libyuv::I422Scale(sy.data(), int(g.sw), su.data(), int(g.sw / 2), sv.data(), int(g.sw / 2), int(g.sw), int(g.sh),
                      dy.data(), int(g.dw), du.data(), int(g.dw / 2), dv.data(), int(g.dw / 2), int(g.dw), int(g.dh),
                      libyuv::kFilterBilinear);
    libyuv::I422ToUYVY(dy.data(), int(g.dw), du.data(), int(g.dw / 2), dv.data(), int(g.dw / 2), f.dst.data(),
                       int(f.dst_stride), int(g.dw), int(g.dh));
    benchmark::DoNotOptimize(f.dst.data());
  }
  set_rates(state, g);
}
void BM_libyuv_uyvy_bilinear_route(benchmark::State &s) { run_libyuv_uyvy(s, kUyvyDown); }
void BM_libyuv_uyvy_sd_to_hd_bilinear_route(benchmark::State &s) { run_libyuv_uyvy(s, kUyvyUp); }
BENCHMARK(BM_libyuv_uyvy_bilinear_route)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_libyuv_uyvy_sd_to_hd_bilinear_route)->Unit(benchmark::kMillisecond);
#endif

#if defined(FRAMEDSP_BENCH_OPENCV_IMGPROC)
void run_opencv(benchmark::State &state, int interpolation) {
  cv::setNumThreads(1);
  Frames f(kBgraDown);
  const Geometry &g = f.g;
  cv::Mat src(int(g.sh), int(g.sw), CV_8UC4, f.src.data(), f.src_stride);
  cv::Mat dst(int(g.dh), int(g.dw), CV_8UC4, f.dst.data(), f.dst_stride);
  for (auto _ : state) {
    cv::resize(src, dst, dst.size(), 0, 0, interpolation);
    benchmark::DoNotOptimize(f.dst.data());
  }
  set_rates(state, g);
}
void BM_opencv_bgra_nearest(benchmark::State &s) { run_opencv(s, cv::INTER_NEAREST); }
void BM_opencv_bgra_linear(benchmark::State &s) { run_opencv(s, cv::INTER_LINEAR); }
BENCHMARK(BM_opencv_bgra_nearest)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_opencv_bgra_linear)->Unit(benchmark::kMillisecond);
#endif

#if defined(FRAMEDSP_BENCH_SWSCALE)
void run_swscale(benchmark::State &state, const Geometry &g, AVPixelFormat format, int flags) {
  Frames f(g);
  SwsContext *ctx = sws_getContext(int(g.sw), int(g.sh), format, int(g.dw), int(g.dh), format, flags, nullptr,
                                   nullptr, nullptr);
  if (!ctx) {
    state.SkipWithError("sws_getContext failed");
    return;
  }
  const uint8_t *src[4] = {f.src.data(), nullptr, nullptr, nullptr};
  uint8_t *dst[4] = {f.dst.data(), nullptr, nullptr, nullptr};
  const int src_stride[4] = {int(f.src_stride), 0, 0, 0};
  const int dst_stride[4] = {int(f.dst_stride), 0, 0, 0};
  for (auto _ : state) {
    sws_scale(ctx, src, src_stride, 0, int(g.sh), dst, dst_stride);
    benchmark::DoNotOptimize(f.dst.data());
  }
  sws_freeContext(ctx);
  set_rates(state, g);
}
void BM_swscale_bgra_point(benchmark::State &s) { run_swscale(s, kBgraDown, AV_PIX_FMT_BGRA, SWS_POINT); }
void BM_swscale_bgra_bilinear(benchmark::State &s) { run_swscale(s, kBgraDown, AV_PIX_FMT_BGRA, SWS_BILINEAR); }
void BM_swscale_uyvy_fast_bilinear(benchmark::State &s) {
  run_swscale(s, kUyvyDown, AV_PIX_FMT_UYVY422, SWS_FAST_BILINEAR);
}
void BM_swscale_uyvy_sd_to_hd_fast_bilinear(benchmark::State &s) {
  run_swscale(s, kUyvyUp, AV_PIX_FMT_UYVY422, SWS_FAST_BILINEAR);
}
BENCHMARK(BM_swscale_bgra_point)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_swscale_bgra_bilinear)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_swscale_uyvy_fast_bilinear)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_swscale_uyvy_sd_to_hd_fast_bilinear)->Unit(benchmark::kMillisecond);
#endif

}  // namespace
