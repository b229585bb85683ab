// DspCompare on 1080p frames, scalar-forced and with the best ISA, beside memcpy of one frame and
// libyuv's sum of squared errors over the same two frames (when libyuv is installed).  Bytes/s
// count one frame per iteration for every entry, so the rates compare directly.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>

#include "frame/cpu.h"
#include "framedsp/framedsp.h"

#if defined(FRAMEDSP_BENCH_LIBYUV)
#include <libyuv/compare.h>
#endif

namespace {

constexpr uint32_t kWidth = 1920;
constexpr uint32_t kHeight = 1080;
constexpr uint32_t kSeed = 1080;

// Two frames that differ a little everywhere (B = A + small noise) and an output frame, 64-byte
// aligned, filled once from fixed seeds.
struct Frames {
  explicit Frames(size_t bytes) : size(bytes) {
    a = static_cast<uint8_t *>(std::aligned_alloc(64, (bytes + 63) / 64 * 64));
    b = static_cast<uint8_t *>(std::aligned_alloc(64, (bytes + 63) / 64 * 64));
    out = static_cast<uint8_t *>(std::aligned_alloc(64, (bytes + 63) / 64 * 64));
    std::mt19937 rng(kSeed);
    for (size_t i = 0; i < bytes; ++i) {
      a[i] = static_cast<uint8_t>(rng());
      b[i] = static_cast<uint8_t>(a[i] + static_cast<int>(rng() % 9) - 4);
    }
    std::memset(out, 0, bytes);
  }
  ~Frames() {
    std::free(a);
    std::free(b);
    std::free(out);
  }
  Frames(const Frames &) = delete;
  Frames &operator=(const Frames &) = delete;

  size_t size;
  uint8_t *a;
  uint8_t *b;
  uint8_t *out;
};

void set_rates(benchmark::State &state, size_t frame_bytes) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(frame_bytes));
  state.counters["Mpixel"] = benchmark::Counter(kWidth * kHeight / 1e6,
                                                  benchmark::Counter::kIsIterationInvariantRate);
}

// mask 0 forces the scalar kernels, kCpuSSE2 the SSE2 ones (the Debian libyuv package exports only
// C and SSE2 sum-of-squares rows); ~0 lets the best ISA the CPU has run.
void BM_DspCompare(benchmark::State &state, uint32_t format, uint32_t pixel_bytes, uint32_t mask) {
  const size_t line = size_t{kWidth} * pixel_bytes;
  Frames f(line * kHeight);
  DSP_COMPARE_PARAMS p;
  std::memset(&p, 0, sizeof p);
  p.BufferA.pBuffer = f.a;
  p.BufferB.pBuffer = f.b;
  p.BufferOut.pBuffer = f.out;
  p.ulWidth = kWidth;
  p.ulHeight = kHeight;
  p.ulPrimaryStrideBytes = static_cast<uint32_t>(line);
  p.ePixelFormat = format;
  framedsp::set_cpu_mask(mask);
  DspCompare(&p);  // warm-up: pages faulted in, caches primed
  for (auto _ : state) {
    const DSP_HRESULT hr = DspCompare(&p);
    benchmark::DoNotOptimize(hr);
    benchmark::ClobberMemory();
  }
  framedsp::set_cpu_mask(~0u);
  if (p.dResults[0] <= 0.0) state.SkipWithError("unexpected MSE");
  set_rates(state, f.size);
}

void BM_Memcpy(benchmark::State &state, uint32_t pixel_bytes) {
  Frames f(size_t{kWidth} * pixel_bytes * kHeight);
  std::memcpy(f.out, f.a, f.size);
  for (auto _ : state) {
    std::memcpy(f.out, f.a, f.size);
    benchmark::ClobberMemory();
  }
  set_rates(state, f.size);
}

#if defined(FRAMEDSP_BENCH_LIBYUV)
// Sum of squared errors only: no difference image and one total instead of per-channel sums.
void BM_LibyuvSumSquareError(benchmark::State &state, uint32_t pixel_bytes) {
  Frames f(size_t{kWidth} * pixel_bytes * kHeight);
  uint64_t sse = libyuv::ComputeSumSquareError(f.a, f.b, static_cast<int>(f.size));
  for (auto _ : state) {
    sse = libyuv::ComputeSumSquareError(f.a, f.b, static_cast<int>(f.size));
    benchmark::DoNotOptimize(sse);
  }
  if (sse == 0) state.SkipWithError("unexpected SSE");
  set_rates(state, f.size);
}
BENCHMARK_CAPTURE(BM_LibyuvSumSquareError, uyvy_1080p, 2u)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_LibyuvSumSquareError, bgra_1080p, 4u)->Unit(benchmark::kMicrosecond);
#endif

BENCHMARK_CAPTURE(BM_DspCompare, uyvy_1080p_scalar, 21u, 2u, 0u)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_DspCompare, uyvy_1080p_sse2, 21u, 2u, framedsp::kCpuSSE2)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_DspCompare, uyvy_1080p_best, 21u, 2u, ~0u)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_DspCompare, bgra_1080p_scalar, 0u, 4u, 0u)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_DspCompare, bgra_1080p_sse2, 0u, 4u, framedsp::kCpuSSE2)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_DspCompare, bgra_1080p_best, 0u, 4u, ~0u)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_Memcpy, uyvy_1080p, 2u)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_Memcpy, bgra_1080p, 4u)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
