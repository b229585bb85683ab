// DspFilter on 1920x1080 frames beside the peers, one thread each, the same source bytes:
//   fir7, fir15   FIR low-pass at cut-off 50 % in both directions, on BGRA (format 0) and UYVY
//                 (21); beside OpenCV's GaussianBlur of the same size on CV_8UC4 (its 8-bit
//                 fixed-point path) and sepFilter2D with the very coefficients DspFilter uses.
//   box3 .. box255  box filter of N x N on BGRA and on UYVY; beside libyuv::ARGBBlur of radius
//                 (N - 1) / 2 and cv::blur of N x N.  ARGBBlur knows 4-byte pixels only, so the UYVY
//                 row gives it the same bytes as a 960 x 1080 ARGB frame: the same memory traffic
//                 and sample count, the peer's cost for that work.
//   copy          memcpy of the BGRA frame, the floor of any pass over it.
// Bytes/s count the output bytes; "pixels/s" the output pixels.  The edge rules differ between
// the routes (the peers use their own border modes), so only speed is compared here.
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
#endif

namespace {

constexpr uint32_t kWidth = 1920;
constexpr uint32_t kHeight = 1080;

struct Case {
  uint32_t format;
  uint32_t bytes_per_pixel;
};
constexpr Case kBgra{DSP_PIXEL_FORMAT_BGRA32, 4};
constexpr Case kUyvy{DSP_PIXEL_FORMAT_UYVY, 2};

// 64-byte-aligned source and destination frames, the source filled from a fixed seed.
struct Frames {
  explicit Frames(const Case &c) : stride(kWidth * c.bytes_per_pixel), bytes(size_t{stride} * kHeight) {
    src = static_cast<uint8_t *>(std::aligned_alloc(64, bytes));
    dst = static_cast<uint8_t *>(std::aligned_alloc(64, bytes));
    std::mt19937 rng(1080);
    for (size_t i = 0; i < bytes; ++i) src[i] = static_cast<uint8_t>(rng());
    std::memset(dst, 0, bytes);
  }
  ~Frames() {
    std::free(src);
    std::free(dst);
  }
  Frames(const Frames &) = delete;
  Frames &operator=(const Frames &) = delete;
  uint32_t stride;
  size_t bytes;
  uint8_t *src;
  uint8_t *dst;
};

void set_rates(benchmark::State &state, size_t bytes) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
  // Shown with SI prefixes: 250M/s is 250 Mpixel/s.
  state.counters["pixels/s"] = benchmark::Counter(double{kWidth} * kHeight,
                                                  benchmark::Counter::kIsIterationInvariantRate);
}

DSP_IMAGE image(const Frames &f, uint8_t *memory, const Case &c) {
  DSP_IMAGE d;
  std::memset(&d, 0, sizeof d);
  d.Buffer.pBuffer = memory;
  d.Buffer.ulBytes = static_cast<uint32_t>(f.bytes);
  d.Buffer.eBufferType = DSP_BUFFER_TYPE_FRAME;
  d.Buffer.Region.ulWidth = d.ulWidth = kWidth;
  d.Buffer.Region.ulHeight = d.ulHeight = kHeight;
  d.ePixelFormat = c.format;
  d.eInterlace = DSP_INTERLACE_PROGRESSIVE;
  d.eImageOrientation = DSP_ORIENTATION_TOP_DOWN;
  d.ulPrimaryStrideBytes = f.stride;
  return d;
}

void run_dsp_filter(benchmark::State &state, const Case &c, uint32_t type, const void *settings) {
  Frames f(c);
  DSP_FILTER_PARAMS params;
  std::memset(&params, 0, sizeof params);
  params.eFilterType = type;
  params.pSettings = settings;
  params.Buffer.In = image(f, f.src, c);
  params.Buffer.Out = image(f, f.dst, c);
  const DSP_HRESULT warm = DspFilter(&params);  // warm-up, and the check that it works
  if (warm != DSP_S_OK) {
    char text[64];
    std::snprintf(text, sizeof text, "DspFilter returned 0x%08X%s", static_cast<unsigned>(warm),
                  warm == DSP_E_NOTIMPL ? " (not implemented)" : "");
    state.SkipWithError(text);
    return;
  }
  // A refused record answers S_OK and writes nothing: the zeroed output would stay mostly zero.
  size_t zeros = 0;
  for (size_t i = 0; i < f.bytes; ++i) zeros += f.dst[i] == 0;
  if (zeros > f.bytes / 16) {
    state.SkipWithError("DspFilter wrote nothing (record refused)");
    return;
  }
  for (auto _ : state) {
    const DSP_HRESULT hr = DspFilter(&params);
    benchmark::DoNotOptimize(hr);
    benchmark::ClobberMemory();
  }
  set_rates(state, f.bytes);
}

void BM_Fir(benchmark::State &state, const Case &c, uint32_t taps) {
  const DSP_FIR_SETTINGS fir{taps, 50, 0, taps, 50};
  run_dsp_filter(state, c, DSP_FILTER_TYPE_FIR, &fir);
}

void BM_Box(benchmark::State &state, const Case &c, uint32_t size) {
  const DSP_BOX_SETTINGS box{size, 0, size};
  run_dsp_filter(state, c, DSP_FILTER_TYPE_BOX, &box);
}

void BM_Memcpy(benchmark::State &state) {
  Frames f(kBgra);
  std::memcpy(f.dst, f.src, f.bytes);
  for (auto _ : state) {
    std::memcpy(f.dst, f.src, f.bytes);
    benchmark::ClobberMemory();
  }
  set_rates(state, f.bytes);
}

#define FIR_CASE(taps, name, c)                                                  \
  BENCHMARK_CAPTURE(BM_Fir, fir##taps##_##name, c, taps)                         \
      ->Name("fir" #taps "/" #name "_1080p/framedsp")                            \
      ->Unit(benchmark::kMillisecond)

FIR_CASE(7, bgra, kBgra);
FIR_CASE(7, uyvy, kUyvy);
FIR_CASE(15, bgra, kBgra);
FIR_CASE(15, uyvy, kUyvy);

#define BOX_CASE(n, name, c)                                                     \
  BENCHMARK_CAPTURE(BM_Box, box##n##_##name, c, n)                               \
      ->Name("box" #n "/" #name "_1080p/framedsp")                               \
      ->Unit(benchmark::kMillisecond)

BOX_CASE(3, bgra, kBgra);
BOX_CASE(15, bgra, kBgra);
BOX_CASE(63, bgra, kBgra);
BOX_CASE(255, bgra, kBgra);
BOX_CASE(3, uyvy, kUyvy);
BOX_CASE(15, uyvy, kUyvy);
BOX_CASE(63, uyvy, kUyvy);
BOX_CASE(255, uyvy, kUyvy);

BENCHMARK(BM_Memcpy)->Name("copy/bgra_1080p/memcpy")->Unit(benchmark::kMillisecond);

#if defined(FRAMEDSP_BENCH_OPENCV_IMGPROC)
// Cut-off 50 % rows of the coefficient tables, outer tap first, centre last (sum 512).
const int kFir7Half[4] = {-1, 1, 127, 257};
const int kFir15Half[8] = {-1, 0, 9, 0, -35, 0, 156, 256};

cv::Mat fir_kernel(const int *half, int taps) {
  cv::Mat k(taps, 1, CV_32F);
  for (int i = 0; i < taps; ++i) {
    const int j = i <= taps / 2 ? i : taps - 1 - i;
    k.at<float>(i) = static_cast<float>(half[j]) / 512.0f;
  }
  return k;
}

template <typename Op>
void run_opencv(benchmark::State &state, Op op) {
  cv::setNumThreads(1);
  Frames f(kBgra);
  const cv::Mat in(kHeight, kWidth, CV_8UC4, f.src, f.stride);
  cv::Mat out(kHeight, kWidth, CV_8UC4, f.dst, f.stride);
  op(in, out);  // warm-up
  if (out.data != f.dst) {
    state.SkipWithError("OpenCV reallocated the output");
    return;
  }
  for (auto _ : state) {
    op(in, out);
    benchmark::ClobberMemory();
  }
  set_rates(state, f.bytes);
}

void BM_CvGaussian(benchmark::State &state, int taps) {
  run_opencv(state, [taps](const cv::Mat &in, cv::Mat &out) {
    cv::GaussianBlur(in, out, cv::Size(taps, taps), 0, 0, cv::BORDER_REPLICATE);
  });
}

void BM_CvSepFilter(benchmark::State &state, int taps) {
  const cv::Mat k = fir_kernel(taps == 7 ? kFir7Half : kFir15Half, taps);
  run_opencv(state, [&k](const cv::Mat &in, cv::Mat &out) {
    cv::sepFilter2D(in, out, -1, k, k, cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
  });
}

void BM_CvBlur(benchmark::State &state, int size) {
  run_opencv(state, [size](const cv::Mat &in, cv::Mat &out) {
    cv::blur(in, out, cv::Size(size, size), cv::Point(-1, -1), cv::BORDER_REPLICATE);
  });
}

BENCHMARK_CAPTURE(BM_CvGaussian, g7, 7)
    ->Name("fir7/bgra_1080p/opencv_gaussian")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CvSepFilter, s7, 7)
    ->Name("fir7/bgra_1080p/opencv_sepfilter")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CvGaussian, g15, 15)
    ->Name("fir15/bgra_1080p/opencv_gaussian")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CvSepFilter, s15, 15)
    ->Name("fir15/bgra_1080p/opencv_sepfilter")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CvBlur, b3, 3)->Name("box3/bgra_1080p/opencv_blur")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CvBlur, b15, 15)->Name("box15/bgra_1080p/opencv_blur")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CvBlur, b63, 63)->Name("box63/bgra_1080p/opencv_blur")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CvBlur, b255, 255)
    ->Name("box255/bgra_1080p/opencv_blur")
    ->Unit(benchmark::kMillisecond);
#endif

#if defined(FRAMEDSP_BENCH_LIBYUV)
// ARGBBlur keeps a ring of 2 * radius + 2 rows of cumulative sums (width * 4 int32 a row); it is
// given the full width * (height + 1) * 16 bytes its header asks for.
void BM_YuvBlur(benchmark::State &state, const Case &c, int size) {
  Frames f(c);
  const int radius = (size - 1) / 2;
  const int width = static_cast<int>(f.stride / 4);  // 4-byte pixels over the same bytes
  std::vector<int32_t> cumsum(size_t(width) * 4 * (kHeight + 1) + 4);
  int32_t *sums = cumsum.data();
  while (reinterpret_cast<uintptr_t>(sums) % 16 != 0) ++sums;
  auto blur = [&] {
    return libyuv::ARGBBlur(f.src, static_cast<int>(f.stride), f.dst, static_cast<int>(f.stride),
                            sums, width * 4, width, kHeight, radius);
  };
  if (blur() != 0) {
    state.SkipWithError("ARGBBlur failed");
    return;
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(blur());
    benchmark::ClobberMemory();
  }
  set_rates(state, f.bytes);
}

#define YUV_CASE(n, name, c)                                                     \
  BENCHMARK_CAPTURE(BM_YuvBlur, y##n##_##name, c, n)                             \
      ->Name("box" #n "/" #name "_1080p/libyuv_blur")                            \
      ->Unit(benchmark::kMillisecond)

YUV_CASE(3, bgra, kBgra);
YUV_CASE(15, bgra, kBgra);
YUV_CASE(63, bgra, kBgra);
YUV_CASE(255, bgra, kBgra);
YUV_CASE(3, uyvy, kUyvy);
YUV_CASE(15, uyvy, kUyvy);
YUV_CASE(63, uyvy, kUyvy);
YUV_CASE(255, uyvy, kUyvy);
#endif

}  // namespace
