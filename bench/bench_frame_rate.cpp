// DspFrameRateConvert on a textured pan (5.3, -2.6 pixels a pair) at phase 0.4: the conversion
// alone along a given field (scalar-forced and best ISA; luma, and luma with NV16 chroma), and
// the whole call with a null field (the converter's own pyramids and both fields), at 720p and
// 1080p.  Names: frame_rate/<size>/<what>/<route>.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "platform/cpu.h"
#include "framedsp/framedsp.h"
#include "framerate/frc_internal.h"

namespace {

struct Pan {
  Pan(int w_, int h_) : w(w_), h(h_), a(size_t(2) * w * h), b(a.size()), out(a.size()) {
    std::mt19937 rng(720);
    std::vector<uint8_t> big(size_t(w + 64) * (2 * h + 64));
    for (uint8_t &v : big) v = uint8_t(rng());
    for (int pass = 0; pass < 2; ++pass)  // soften: natural pictures have little energy at Nyquist
      for (size_t i = 1; i + 1 < big.size(); ++i) big[i] = uint8_t((big[i - 1] + 2 * big[i] + big[i + 1]) / 4);
    for (int y = 0; y < 2 * h; ++y)
      for (int x = 0; x < w; ++x) {
        a[size_t(y) * w + x] = big[size_t(y + 8) * (w + 64) + x + 8];
        b[size_t(y) * w + x] = big[size_t(y + 11) * (w + 64) + x + 3];  // moved by about (-5, -3)
      }
    const uint32_t ranges[4] = {2, 2, 4, 4};
    DSP_FRAME_RATE_CONVERTER_PARAMS c;
    std::memset(&c, 0, sizeof c);
    c.ulBaseCount = 1, c.lWidth = w, c.lHeight = h, c.ulLevels = 4;
    for (int i = 0; i < 4; ++i) c.ulLevelRangeX[i] = c.ulLevelRangeY[i] = ranges[i];
    DspCreateFrameRateConverter(&c, &handle);
    // The field the converter makes itself, kept for the runs that are given one.
    framedsp::FrcJob job;
    job.width = w, job.height = h, job.stride = w;
    framedsp::WorkBlock own;
    uint32_t bytes = 0;
    const DSP_FRAME_RATE_CONVERT_PARAMS rec = record(false, false);
    if (framedsp::estimate_own_field(settings(), rec, job, &own, &bytes) == framedsp::kOk)
      field.assign(static_cast<uint8_t *>(own.aligned()), static_cast<uint8_t *>(own.aligned()) + bytes);
  }
  DSP_FRAME_RATE_CONVERTER_PARAMS settings() const {
    DSP_FRAME_RATE_CONVERTER_PARAMS c;  // as DspCreateFrameRateConverter applies the defaults
    std::memset(&c, 0, sizeof c);
    c.ulBaseCount = 1, c.lWidth = w, c.lHeight = h, c.ulLevels = 4, c.ulBlockA = c.ulBlockB = 16;
    const uint32_t ranges[4] = {2, 2, 4, 4};
    for (int i = 0; i < 5; ++i) {
      c.ulLevelRangeX[i] = c.ulLevelRangeY[i] = i < 4 ? ranges[i] : 1;
      c.ulLevelBlockA[i] = c.ulLevelBlockB[i] = 16, c.ulLevelThreshold[i] = 8;
    }
    return c;
  }
  DSP_FRAME_RATE_CONVERT_PARAMS record(bool chroma, bool with_field) {
    DSP_FRAME_RATE_CONVERT_PARAMS p;
    std::memset(&p, 0, sizeof p);
    DSP_IMAGE *f[3] = {&p.FrameA, &p.FrameB, &p.FrameOut};
    uint8_t *m[3] = {a.data(), b.data(), out.data()};
    for (int i = 0; i < 3; ++i) {
      f[i]->Buffer.pBuffer = m[i];
      f[i]->Buffer.ulBytes = uint32_t(a.size());
      f[i]->ulWidth = uint32_t(w), f[i]->ulHeight = uint32_t(h), f[i]->ulPrimaryStrideBytes = uint32_t(w);
    }
    p.ulPhaseQ14 = 6554;
    p.bConvertFlags = chroma ? 0 : DSP_CONVERT_LUMA_ONLY;
    if (with_field) p.pVectorField = field.data(), p.ulVectorFieldBytes = uint32_t(field.size());
    return p;
  }
  int w, h;
  std::vector<uint8_t> a, b, out, field;
  DSP_HANDLE handle = nullptr;
};

Pan &pan(int height) {
  static Pan p720(1280, 720), p1080(1920, 1080);
  return height == 720 ? p720 : p1080;
}

// range(0): height; range(1): 1 = plane 2 too; range(2): 1 = given field; range(3): 0 = scalar.
void BM_convert(benchmark::State &state) {
  Pan &p = pan(int(state.range(0)));
  DSP_FRAME_RATE_CONVERT_PARAMS rec = p.record(state.range(1) != 0, state.range(2) != 0);
  framedsp::set_cpu_mask(state.range(3) ? ~0u : 0u);
  for (auto _ : state) {
    if (DspFrameRateConvert(p.handle, &rec, 0) != DSP_S_OK) state.SkipWithError("conversion failed");
    benchmark::DoNotOptimize(p.out.data());
  }
  framedsp::set_cpu_mask(~0u);
  state.SetItemsProcessed(state.iterations());  // frames
}

void args(benchmark::internal::Benchmark *b) {
  b->ArgNames({"h", "plane2", "field", "simd"});
  for (int h : {720, 1080})
    for (int simd : {0, 1}) b->Args({h, 0, 1, simd});
  b->Args({720, 1, 1, 1});
  for (int h : {720, 1080}) b->Args({h, 0, 0, 1});
  b->Args({720, 1, 0, 1});
  b->Unit(benchmark::kMillisecond);
}

}  // namespace

BENCHMARK(BM_convert)->Apply(args);
