// Motion vectors on 1280x720 and 1920x1080 luma: the two pyramids (DspCreateMipMaps, 4 levels,
// linear) and DspCreateMotionVectors (4 levels, 8x8 final blocks, both fields) on a textured
// picture moved by (3.25, -1.75) pixels, with the default search settings and with the settings
// that reach 48 pixels (ranges 2, 2, 4, 4), scalar-forced and with the best ISA.  One thread.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "platform/cpu.h"
#include "framedsp/framedsp.h"

namespace {

// A smooth random texture moved by (dx, dy): 40 sinusoids, each split into column and line
// factors (sin(a + b) = sin a cos b + cos a sin b) so a frame costs two multiply-adds a wave.
std::vector<uint8_t> texture(int w, int h, double dx, double dy) {
  std::mt19937 r(720);
  std::uniform_real_distribution<double> u(0, 1);
  std::vector<double> v(static_cast<size_t>(w) * h, 128);
  std::vector<double> sx(w), cx(w);
  for (int i = 0; i < 40; ++i) {
    const double f = 0.03 * std::pow(2.0, 4.0 * u(r)), t = 6.283185307179586 * u(r);
    const double kx = f * std::cos(t), ky = f * std::sin(t), phase = 6.283185307179586 * u(r);
    const double amp = 14 / std::sqrt(f);
    for (int x = 0; x < w; ++x) sx[x] = std::sin(kx * (x - dx)), cx[x] = std::cos(kx * (x - dx));
    for (int y = 0; y < h; ++y) {
      const double b = ky * (y - dy) + phase, sb = amp * std::sin(b), cb = amp * std::cos(b);
      double *row = &v[static_cast<size_t>(y) * w];
      for (int x = 0; x < w; ++x) row[x] += sx[x] * cb + cx[x] * sb;
    }
  }
  std::vector<uint8_t> out(v.size());
  for (size_t i = 0; i < v.size(); ++i) out[i] = static_cast<uint8_t>(std::lround(std::fmin(255, std::fmax(0, v[i]))));
  return out;
}

DSP_HANDLE converter() {
  static DSP_HANDLE h = [] {
    DSP_FRAME_RATE_CONVERTER_PARAMS p{};
    p.ulBaseCount = 1;
    p.lWidth = p.lHeight = 64;
    DSP_HANDLE out = nullptr;
    DspCreateFrameRateConverter(&p, &out);
    return out;
  }();
  return h;
}

struct Pyramid {
  std::vector<std::vector<uint8_t>> planes;
  DSP_MIPMAP_LEVELS list{};
  DSP_MIPMAP_PARAMS params{};
  Pyramid(std::vector<uint8_t> base, int w, int h) {
    list.ulCount = 4;
    for (int k = 0; k < 4; ++k, w /= 2, h /= 2) {
      planes.push_back(k ? std::vector<uint8_t>(static_cast<size_t>(w) * h) : base);
      DSP_IMAGE &d = list.Levels[k];
      d.Buffer.pBuffer = planes.back().data();
      d.Buffer.eBufferType = DSP_BUFFER_TYPE_FRAME;
      d.Buffer.Region.ulWidth = d.ulWidth = static_cast<uint32_t>(w);
      d.Buffer.Region.ulHeight = d.ulHeight = static_cast<uint32_t>(h);
      d.ePixelFormat = DSP_PIXEL_FORMAT_MIPMAP;
      d.eInterlace = DSP_INTERLACE_PROGRESSIVE;
      d.ulPrimaryStrideBytes = static_cast<uint32_t>(w);
    }
    params.Base = list.Levels[0];
    params.pLevels = &list;
    params.eFilter = DSP_SCALER_FILTER_LINEAR;
    DspCreateMipMaps(converter(), &params);
  }
};

struct Pair {
  Pyramid a, b;
  Pair(int w, int h) : a(texture(w, h, 0, 0), w, h), b(texture(w, h, 3.25, -1.75), w, h) {}
};

Pair &pair_of(int w) {
  static Pair hd720(1280, 720), hd1080(1920, 1080);
  return w == 1280 ? hd720 : hd1080;
}

void BM_Pyramids(benchmark::State &state) {
  Pair &p = pair_of(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(DspCreateMipMaps(converter(), &p.a.params));
    benchmark::DoNotOptimize(DspCreateMipMaps(converter(), &p.b.params));
  }
  state.SetLabel("both frames, 4 levels");
}

// range(1): 0 default settings, 1 the 48-pixel reach; range(2): CPU mask (0 = scalar).
void BM_MotionVectors(benchmark::State &state) {
  const int w = static_cast<int>(state.range(0)), h = w == 1280 ? 720 : 1080;
  Pair &p = pair_of(w);
  std::vector<uint8_t> field(DSP_VECTOR_FIELD_BYTES(w, h, 8, 8));
  DSP_MOTION_VECTORS_PARAMS m{};
  m.pLevelsA = &p.a.list;
  m.pLevelsB = &p.b.list;
  m.pVectorField = field.data();
  m.ulVectorFieldBytes = static_cast<uint32_t>(field.size());
  m.ulBlockA = m.ulBlockB = 8;
  if (state.range(1)) {
    const uint32_t ranges[4] = {2, 2, 4, 4};
    for (int k = 0; k < 4; ++k) m.ulLevelRangeX[k] = m.ulLevelRangeY[k] = ranges[k];
  }
  framedsp::set_cpu_mask(static_cast<uint32_t>(state.range(2)));
  DspCreateMotionVectors(converter(), &m);
  for (auto _ : state) benchmark::DoNotOptimize(DspCreateMotionVectors(converter(), &m));
  framedsp::set_cpu_mask(~0u);
  DSP_VECTOR_FIELD header;
  std::memcpy(&header, field.data(), sizeof header);
  state.counters["bad"] = header.ulBadForward + header.ulBadBackward;
  state.SetLabel(std::string(state.range(1) ? "reach 54 px" : "default reach 15 px") +
                 (state.range(2) ? ", best ISA" : ", scalar"));
}

BENCHMARK(BM_Pyramids)->Arg(1280)->Arg(1920)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MotionVectors)
    ->Args({1280, 0, -1})
    ->Args({1280, 1, -1})
    ->Args({1280, 0, 0})
    ->Args({1920, 0, -1})
    ->Args({1920, 1, -1})
    ->Unit(benchmark::kMillisecond);

}  // namespace
