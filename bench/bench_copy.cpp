// DspBufferSmartCopy on a 1080p UYVY frame beside memcpy of the same bytes: the plain progressive
// copy against one memcpy and a memcpy per line, and the extraction of field A from an
// interleaved frame against one memcpy of a field's bytes.  Bytes/s count the bytes written;
// source and destination are 4 MB each, so hosts with a larger last-level cache show cache rates.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>

#include "framedsp/framedsp.h"

namespace {

constexpr uint32_t kWidth = 1920;
constexpr uint32_t kHeight = 1080;
constexpr uint32_t kStride = kWidth * 2;
constexpr size_t kFrameBytes = size_t{kStride} * kHeight;
constexpr size_t kFieldBytes = kFrameBytes / 2;

// 64-byte-aligned source and destination frames, the source filled from a fixed seed.
struct Pair {
  Pair() {
    src = static_cast<uint8_t *>(std::aligned_alloc(64, kFrameBytes));
    dst = static_cast<uint8_t *>(std::aligned_alloc(64, kFrameBytes));
    std::mt19937 rng(1080);
    for (size_t i = 0; i < kFrameBytes; ++i) src[i] = static_cast<uint8_t>(rng());
    std::memset(dst, 0, kFrameBytes);
  }
  ~Pair() {
    std::free(src);
    std::free(dst);
  }
  Pair(const Pair &) = delete;
  Pair &operator=(const Pair &) = delete;
  uint8_t *src;
  uint8_t *dst;
};

DSP_IMAGE image(uint8_t *memory, uint32_t type, uint32_t height, uint32_t interlace) {
  DSP_IMAGE d;
  std::memset(&d, 0, sizeof d);
  d.Buffer.pBuffer = memory;
  d.Buffer.ulBytes = kStride * height;
  d.Buffer.eBufferType = type;
  d.Buffer.Region.ulWidth = d.ulWidth = kWidth;
  d.Buffer.Region.ulHeight = d.ulHeight = height;
  d.ePixelFormat = DSP_PIXEL_FORMAT_UYVY;
  d.eInterlace = interlace;
  d.ulPrimaryStrideBytes = kStride;
  return d;
}

void set_rates(benchmark::State &state, size_t bytes, uint32_t lines) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
  // Shown with SI prefixes: 20.5G/s is 20 500 Mpixel/s.
  state.counters["pixels/s"] = benchmark::Counter(kWidth * static_cast<double>(lines),
                                                  benchmark::Counter::kIsIterationInvariantRate);
}

void run_copy(benchmark::State &state, DSP_BUFFER *buffer, size_t bytes, uint32_t lines) {
  if (DspBufferSmartCopy(buffer) != DSP_S_OK) {  // warm-up
    state.SkipWithError("DspBufferSmartCopy failed");
    return;
  }
  for (auto _ : state) {
    const DSP_HRESULT hr = DspBufferSmartCopy(buffer);
    benchmark::DoNotOptimize(hr);
    benchmark::ClobberMemory();
  }
  set_rates(state, bytes, lines);
}

void BM_SmartCopyProgressive(benchmark::State &state) {
  Pair p;
  DSP_BUFFER b;
  std::memset(&b, 0, sizeof b);
  b.In = image(p.src, DSP_BUFFER_TYPE_FRAME, kHeight, DSP_INTERLACE_PROGRESSIVE);
  b.Out = image(p.dst, DSP_BUFFER_TYPE_FRAME, kHeight, DSP_INTERLACE_PROGRESSIVE);
  run_copy(state, &b, kFrameBytes, kHeight);
  if (std::memcmp(p.src, p.dst, kFrameBytes) != 0) state.SkipWithError("copy differs");
}

void BM_SmartCopyFieldA(benchmark::State &state) {
  Pair p;
  DSP_BUFFER b;
  std::memset(&b, 0, sizeof b);
  b.In = image(p.src, DSP_BUFFER_TYPE_FRAME, kHeight, DSP_INTERLACE_INTERLEAVED);
  b.Out = image(p.dst, DSP_BUFFER_TYPE_FIELD_A, kHeight / 2, DSP_INTERLACE_PROGRESSIVE);
  run_copy(state, &b, kFieldBytes, kHeight / 2);
  for (uint32_t y = 0; y < kHeight / 2; ++y) {
    if (std::memcmp(p.src + size_t{2 * y} * kStride, p.dst + size_t{y} * kStride, kStride) != 0) {
      state.SkipWithError("field line differs");
      break;
    }
  }
}

void BM_MemcpyBytes(benchmark::State &state, size_t bytes, uint32_t lines) {
  Pair p;
  std::memcpy(p.dst, p.src, bytes);
  for (auto _ : state) {
    std::memcpy(p.dst, p.src, bytes);
    benchmark::ClobberMemory();
  }
  set_rates(state, bytes, lines);
}

void BM_MemcpyPerLine(benchmark::State &state) {
  Pair p;
  for (auto _ : state) {
    for (uint32_t y = 0; y < kHeight; ++y) {
      std::memcpy(p.dst + size_t{y} * kStride, p.src + size_t{y} * kStride, kStride);
    }
    benchmark::ClobberMemory();
  }
  set_rates(state, kFrameBytes, kHeight);
}

// Wall-clock time: the copies are memory-bound, and CPU time under-counts on a shared host
// (Google Benchmark appends "/real_time" to these names).
BENCHMARK(BM_SmartCopyProgressive)
    ->Name("copy/uyvy_1080p/framedsp")
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_MemcpyBytes, frame, kFrameBytes, kHeight)
    ->Name("copy/uyvy_1080p/memcpy")
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();
BENCHMARK(BM_MemcpyPerLine)
    ->Name("copy/uyvy_1080p/memcpy_per_line")
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();
BENCHMARK(BM_SmartCopyFieldA)
    ->Name("field_a/uyvy_1080p/framedsp")
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_MemcpyBytes, field, kFieldBytes, kHeight / 2)
    ->Name("field_a/uyvy_1080p/memcpy")
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();

}  // namespace
