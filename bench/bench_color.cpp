// BT.601 -> BT.709 on one 1920x1080 UYVY frame (random bytes, fixed seed): framedsp's line
// kernel over every line, scalar-forced and with the best ISA, beside memcpy of the frame and the
// peer routes built in.  Every entry is charged the 4,147,200 bytes of the UYVY frame per
// iteration, so GB/s compare directly as frames per second.
//
//   swscale_uyvy   sws_scale uyvy422 -> uyvy422, same size, SWS_CS_ITU601 -> SWS_CS_ITU709 set
//                  with sws_setColorspaceDetails (both limited range).
//   swscale_rgb    the route that does apply the matrices in swscale: uyvy422 -> rgb24 with
//                  the 601 table, then rgb24 -> uyvy422 with the 709 table (two passes;
//                  R'G'B' clipped).
//   opencv_pairs   cv::transform on the frame viewed as 960x1080 CV_8UC4 (one element per pair:
//                  U Y0 V Y1) with a 4x5 float matrix: the 3x3 matrix with Y's chroma weights in
//                  both Y rows and the -128 / +128 offsets in the last column.  One pass, in place
//                  of the line kernel; float arithmetic rounded to nearest even.
//   opencv_444     cv::transform with the 3x4 matrix on a prebuilt 1920x1080 CV_8UC3 frame of
//                  (Y, Cb, Cr) triples (the 4:4:4 expansion is not timed).
//
// Each peer's label gives its largest difference from framedsp's output on the same frame.  The
// entries are named color601to709/uyvy_1080p/<route>, with the routes above, memcpy and
// framedsp_scalar / framedsp_sse2 / framedsp_best.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "platform/cpu.h"
#include "copy/color_kernels.h"

#if defined(FRAMEDSP_BENCH_SWSCALE)
extern "C" {
#include <libavutil/pixfmt.h>
#include <libswscale/swscale.h>
}
#endif
#if defined(FRAMEDSP_BENCH_OPENCV)
#include <opencv2/core.hpp>
#endif

namespace {

constexpr int kColorWidth = 1920;
constexpr int kColorHeight = 1080;
constexpr size_t kColorStride = kColorWidth * 2;
constexpr size_t kColorFrameBytes = kColorStride * kColorHeight;

struct ColorFrames {
  ColorFrames() : src(alloc()), dst(alloc()), ref(alloc()) {
    std::mt19937 rng(601709);
    for (size_t i = 0; i < kColorFrameBytes; ++i) src[i] = static_cast<uint8_t>(rng());
    std::memset(dst, 0, kColorFrameBytes);
    framedsp::ColorKernelTable t;
    framedsp::color_table_init(&t, 0);
    for (int y = 0; y < kColorHeight; ++y) {
      t.uyvy(src + y * kColorStride, ref + y * kColorStride, kColorWidth,
             &framedsp::kBt601ToBt709);
    }
  }
  ~ColorFrames() {
    std::free(src);
    std::free(dst);
    std::free(ref);
  }
  ColorFrames(const ColorFrames &) = delete;
  ColorFrames &operator=(const ColorFrames &) = delete;
  static uint8_t *alloc() {
    return static_cast<uint8_t *>(std::aligned_alloc(64, kColorFrameBytes));
  }

  uint8_t *src;
  uint8_t *dst;
  uint8_t *ref;  // the scalar kernel's frame, for the peers' labels
};

ColorFrames &color_frames() {
  static ColorFrames frames;
  return frames;
}

void set_color_rates(benchmark::State &state) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(kColorFrameBytes));
  state.counters["Mpixel"] = benchmark::Counter(kColorWidth * kColorHeight / 1e6,
                                                benchmark::Counter::kIsIterationInvariantRate);
}

// "max diff N, M bytes differ, K bytes changed from the source".
std::string diff_label(const uint8_t *got) {
  const ColorFrames &f = color_frames();
  int worst = 0;
  size_t differ = 0, changed = 0;
  for (size_t i = 0; i < kColorFrameBytes; ++i) {
    worst = std::max(worst, std::abs(int{got[i]} - int{f.ref[i]}));
    differ += got[i] != f.ref[i];
    changed += got[i] != f.src[i];
  }
  return "max diff " + std::to_string(worst) + ", " + std::to_string(differ) +
         " bytes differ, " + std::to_string(changed) + " changed from source";
}

// mask 0 forces the scalar kernel, kCpuSSE2 the SSE2 one; ~0 the best the CPU has.
void BM_color_framedsp(benchmark::State &state, uint32_t mask) {
  ColorFrames &f = color_frames();
  framedsp::ColorKernelTable t;
  framedsp::color_table_init(&t, framedsp::cpu_flags() & mask);
  for (auto _ : state) {
    for (int y = 0; y < kColorHeight; ++y) {
      t.uyvy(f.src + y * kColorStride, f.dst + y * kColorStride, kColorWidth,
             &framedsp::kBt601ToBt709);
    }
    benchmark::ClobberMemory();
  }
  set_color_rates(state);
  state.SetLabel(diff_label(f.dst));
}

void BM_color_memcpy(benchmark::State &state) {
  ColorFrames &f = color_frames();
  for (auto _ : state) {
    std::memcpy(f.dst, f.src, kColorFrameBytes);
    benchmark::ClobberMemory();
  }
  set_color_rates(state);
}

#if defined(FRAMEDSP_BENCH_SWSCALE)
SwsContext *sws_context(AVPixelFormat in, AVPixelFormat out, int in_space, int out_space) {
  SwsContext *c = sws_getContext(kColorWidth, kColorHeight, in, kColorWidth, kColorHeight, out,
                                 SWS_POINT, nullptr, nullptr, nullptr);
  if (c && sws_setColorspaceDetails(c, sws_getCoefficients(in_space), 0,
                                    sws_getCoefficients(out_space), 0, 0, 1 << 16, 1 << 16) < 0) {
    sws_freeContext(c);
    return nullptr;
  }
  return c;
}

void BM_color_swscale_uyvy(benchmark::State &state) {
  ColorFrames &f = color_frames();
  SwsContext *c =
      sws_context(AV_PIX_FMT_UYVY422, AV_PIX_FMT_UYVY422, SWS_CS_ITU601, SWS_CS_ITU709);
  if (!c) {
    state.SkipWithError("swscale refused the context or the colour-space details");
    return;
  }
  const uint8_t *in[4] = {f.src, nullptr, nullptr, nullptr};
  uint8_t *out[4] = {f.dst, nullptr, nullptr, nullptr};
  const int stride[4] = {static_cast<int>(kColorStride), 0, 0, 0};
  std::memset(f.dst, 0, kColorFrameBytes);
  for (auto _ : state) {
    sws_scale(c, in, stride, 0, kColorHeight, out, stride);
    benchmark::ClobberMemory();
  }
  sws_freeContext(c);
  set_color_rates(state);
  state.SetLabel(diff_label(f.dst));
}

void BM_color_swscale_rgb(benchmark::State &state) {
  ColorFrames &f = color_frames();
  SwsContext *to_rgb = sws_context(AV_PIX_FMT_UYVY422, AV_PIX_FMT_RGB24, SWS_CS_ITU601,
                                   SWS_CS_ITU601);
  SwsContext *to_yuv = sws_context(AV_PIX_FMT_RGB24, AV_PIX_FMT_UYVY422, SWS_CS_ITU709,
                                   SWS_CS_ITU709);
  if (!to_rgb || !to_yuv) {
    sws_freeContext(to_rgb);
    sws_freeContext(to_yuv);
    state.SkipWithError("swscale refused a context");
    return;
  }
  std::vector<uint8_t> rgb(static_cast<size_t>(kColorWidth) * 3 * kColorHeight);
  const uint8_t *in[4] = {f.src, nullptr, nullptr, nullptr};
  uint8_t *mid[4] = {rgb.data(), nullptr, nullptr, nullptr};
  const uint8_t *mid_in[4] = {rgb.data(), nullptr, nullptr, nullptr};
  uint8_t *out[4] = {f.dst, nullptr, nullptr, nullptr};
  const int stride[4] = {static_cast<int>(kColorStride), 0, 0, 0};
  const int rgb_stride[4] = {kColorWidth * 3, 0, 0, 0};
  for (auto _ : state) {
    sws_scale(to_rgb, in, stride, 0, kColorHeight, mid, rgb_stride);
    sws_scale(to_yuv, mid_in, rgb_stride, 0, kColorHeight, out, stride);
    benchmark::ClobberMemory();
  }
  sws_freeContext(to_rgb);
  sws_freeContext(to_yuv);
  set_color_rates(state);
  state.SetLabel(diff_label(f.dst));
}
#endif

#if defined(FRAMEDSP_BENCH_OPENCV)
// Weights of row r of the matrix as doubles (1/16384 units).
void weights(int r, double *cb, double *cr) {
  const framedsp::ColorMatrix &m = framedsp::kBt601ToBt709;
  const int16_t w[3][2] = {{m.y_cb, m.y_cr}, {m.cb_cb, m.cb_cr}, {m.cr_cb, m.cr_cr}};
  *cb = w[r][0] / 16384.0;
  *cr = w[r][1] / 16384.0;
}

// Every route runs on one thread, as the library's kernels do.
void BM_color_opencv_pairs(benchmark::State &state) {
  cv::setNumThreads(1);
  ColorFrames &f = color_frames();
  const cv::Mat in(kColorHeight, kColorWidth / 2, CV_8UC4, f.src, kColorStride);
  cv::Mat out(kColorHeight, kColorWidth / 2, CV_8UC4, f.dst, kColorStride);
  double yb, yr, bb, br, rb, rr;
  weights(0, &yb, &yr);
  weights(1, &bb, &br);
  weights(2, &rb, &rr);
  // Channels U Y0 V Y1 and a constant 1.
  const float w[4][5] = {
      {float(bb), 0.f, float(br), 0.f, float(128 - 128 * (bb + br))},
      {float(yb), 1.f, float(yr), 0.f, float(-128 * (yb + yr))},
      {float(rb), 0.f, float(rr), 0.f, float(128 - 128 * (rb + rr))},
      {float(yb), 0.f, float(yr), 1.f, float(-128 * (yb + yr))}};
  const cv::Matx<float, 4, 5> m(&w[0][0]);
  for (auto _ : state) {
    cv::transform(in, out, m);
    benchmark::ClobberMemory();
  }
  set_color_rates(state);
  state.SetLabel(diff_label(f.dst) + ", " + std::to_string(cv::getNumThreads()) + " cv threads");
}

void BM_color_opencv_444(benchmark::State &state) {
  cv::setNumThreads(1);
  ColorFrames &f = color_frames();
  cv::Mat in(kColorHeight, kColorWidth, CV_8UC3), out(kColorHeight, kColorWidth, CV_8UC3);
  for (int y = 0; y < kColorHeight; ++y) {
    const uint8_t *s = f.src + y * kColorStride;
    uint8_t *d = in.ptr<uint8_t>(y);
    for (int x = 0; x < kColorWidth; ++x) {
      const uint8_t *pair = s + (x / 2) * 4;
      d[3 * x] = pair[1 + 2 * (x & 1)];
      d[3 * x + 1] = pair[0];
      d[3 * x + 2] = pair[2];
    }
  }
  double yb, yr, bb, br, rb, rr;
  weights(0, &yb, &yr);
  weights(1, &bb, &br);
  weights(2, &rb, &rr);
  const cv::Matx<float, 3, 4> m(1.f, float(yb), float(yr), float(-128 * (yb + yr)),
                                0.f, float(bb), float(br), float(128 - 128 * (bb + br)),
                                0.f, float(rb), float(rr), float(128 - 128 * (rb + rr)));
  for (auto _ : state) {
    cv::transform(in, out, m);
    benchmark::ClobberMemory();
  }
  // Back to UYVY (Cb, Cr from the pair's first pixel, as the kernels use) for the label.
  for (int y = 0; y < kColorHeight; ++y) {
    const uint8_t *s = out.ptr<uint8_t>(y);
    uint8_t *d = f.dst + y * kColorStride;
    for (int x = 0; x < kColorWidth; x += 2) {
      d[2 * x] = s[3 * x + 1];
      d[2 * x + 1] = s[3 * x];
      d[2 * x + 2] = s[3 * x + 2];
      d[2 * x + 3] = s[3 * x + 3];
    }
  }
  set_color_rates(state);
  state.SetLabel(diff_label(f.dst) + ", " + std::to_string(cv::getNumThreads()) + " cv threads");
}
#endif

// Entries color601to709/uyvy_1080p/<route>, registered in this order.
template <class... Args>
void add_color(const char *route, Args... args) {
  const std::string name = std::string("color601to709/uyvy_1080p/") + route;
  benchmark::RegisterBenchmark(name.c_str(), args...)->Unit(benchmark::kMicrosecond);
}

[[maybe_unused]] const bool kColorRegistered = [] {
  add_color("framedsp_scalar", BM_color_framedsp, 0u);
  add_color("framedsp_sse2", BM_color_framedsp, static_cast<uint32_t>(framedsp::kCpuSSE2));
  add_color("framedsp_best", BM_color_framedsp, ~0u);
  add_color("memcpy", BM_color_memcpy);
#if defined(FRAMEDSP_BENCH_SWSCALE)
  add_color("swscale_uyvy", BM_color_swscale_uyvy);
  add_color("swscale_rgb", BM_color_swscale_rgb);
#endif
#if defined(FRAMEDSP_BENCH_OPENCV)
  add_color("opencv_pairs", BM_color_opencv_pairs);
  add_color("opencv_444", BM_color_opencv_444);
#endif
  return true;
}();

}  // namespace
