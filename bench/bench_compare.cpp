// DspCompare on 1080p frames, scalar-forced and with the best ISA, beside memcpy of one frame and
// libyuv's sum of squared errors over the same two frames (when libyuv is installed).  Bytes/s
// count one frame per iteration for every entry, so the rates compare directly.  Names, as in the
// other benchmark files: <operation>/<case>/<route>.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "platform/cpu.h"
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
#endif

// Entries compare/<layout>_1080p/<route>, registered in this order.
struct CompareLayout {
  const char *name;
  uint32_t format;
  uint32_t pixel_bytes;
};
constexpr CompareLayout kLayouts[] = {{"uyvy", 21u, 2u}, {"bgra", 0u, 4u}};

template <class... Args>
void add_compare(const CompareLayout &layout, const char *route, Args... args) {
  const std::string name = std::string("compare/") + layout.name + "_1080p/" + route;
  benchmark::RegisterBenchmark(name.c_str(), args...)->Unit(benchmark::kMicrosecond);
}

[[maybe_unused]] const bool kCompareRegistered = [] {
#if defined(FRAMEDSP_BENCH_LIBYUV)
  for (const CompareLayout &l : kLayouts) {
    add_compare(l, "libyuv", BM_LibyuvSumSquareError, l.pixel_bytes);
  }
#endif
  for (const CompareLayout &l : kLayouts) {
    add_compare(l, "framedsp_scalar", BM_DspCompare, l.format, l.pixel_bytes, 0u);
    add_compare(l, "framedsp_sse2", BM_DspCompare, l.format, l.pixel_bytes,
                static_cast<uint32_t>(framedsp::kCpuSSE2));
    add_compare(l, "framedsp_best", BM_DspCompare, l.format, l.pixel_bytes, ~0u);
  }
  for (const CompareLayout &l : kLayouts) add_compare(l, "memcpy", BM_Memcpy, l.pixel_bytes);
  return true;
}();

}  // namespace

BENCHMARK_MAIN();
