// Helpers of the motion-vector and frame-rate conversion tests: one-byte planes, frame triples
// with a smooth random texture moved by whole pixels, and pyramids made by DspCreateMipMaps.
#pragma once

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "analysis/motion_kernels.h"
#include "framedsp/framedsp.h"
#include "platform/cpu.h"
#include "test_util.h"

namespace motion_test {

using framedsp_test::GuardedBuffer;

// The scalar motion kernels, and those of SSE2 and of the best ISA of this machine.
struct KernelsPerIsa {
  framedsp::MotionKernels scalar, simd[2];
  KernelsPerIsa() {
    framedsp::motion_kernels_init(&scalar, 0);
    framedsp::motion_kernels_init(&simd[0], framedsp::kCpuSSE2 & framedsp::cpu_flags());
    framedsp::motion_kernels_init(&simd[1], framedsp::cpu_flags());
  }
};

// A w x h plane of format 263 over `bytes` bytes at `data`.
inline DSP_IMAGE plane(uint8_t *data, uint32_t w, uint32_t h, uint32_t stride, size_t bytes) {
  return DSP_IMAGE{{data, uint32_t(bytes), DSP_BUFFER_TYPE_FRAME, {{0, 0}, w, h}}, 0, w, h, DSP_PIXEL_FORMAT_MIPMAP,
                   DSP_INTERLACE_PROGRESSIVE, 0, 0, stride, 0, 0};
}

// A live converter, for the handle argument of the pyramid and motion exports.
inline DSP_HANDLE converter() {
  static const DSP_HANDLE h = [] {
    DSP_FRAME_RATE_CONVERTER_PARAMS p{};
    p.ulBaseCount = 1;
    p.lWidth = p.lHeight = 64;
    DSP_HANDLE out = nullptr;
    EXPECT_EQ(DspCreateFrameRateConverter(&p, &out), DSP_S_OK);
    return out;
  }();
  return h;
}

// `levels` levels over a copy of the w x h base, each half the one before (linear filter).
struct Pyramid {
  std::vector<std::vector<uint8_t>> planes;
  DSP_MIPMAP_LEVELS list{};
  Pyramid(const uint8_t *base, int w, int h, int levels) {
    list.ulCount = uint32_t(levels);
    for (int k = 0; k < levels; ++k, w /= 2, h /= 2) {
      planes.push_back(k ? std::vector<uint8_t>(size_t(w) * h) : std::vector<uint8_t>(base, base + size_t(w) * h));
      list.Levels[k] = plane(planes.back().data(), uint32_t(w), uint32_t(h), uint32_t(w), planes.back().size());
    }
    DSP_MIPMAP_PARAMS m{};
    m.Base = list.Levels[0], m.pLevels = &list, m.eFilter = DSP_SCALER_FILTER_LINEAR;
    EXPECT_EQ(DspCreateMipMaps(converter(), &m), DSP_S_OK);
  }
  Pyramid(const std::vector<uint8_t> &base, int w, int h, int levels) : Pyramid(base.data(), w, h, levels) {}
};

// Three frames (A, B, out) of `planes` planes of w x h with stride s, each ending against a
// protected page.
struct Frames {
  Frames(int w_, int h_, int s_ = 0, int planes = 2)
      : w(w_), h(h_), s(s_ ? s_ : w_), bytes(size_t(planes * h - 1) * s + w), a(bytes, 0), b(bytes, 0),
        out(bytes, 0, 0x5A) {}
  uint8_t *plane(GuardedBuffer &f, int i) { return f.data() + size_t(i) * h * s; }
  void texture(uint32_t seed) {  // smooth random texture in A (all planes): a bilinear 4x zoom
    std::mt19937 rng(seed);
    const int cw = w / 4 + 3;
    std::vector<int> coarse(size_t(cw) * (2 * h / 4 + 3));
    for (int &c : coarse) c = int(rng() % 256);
    for (int y = 0; y < 2 * h; ++y)
      for (int x = 0; x < w; ++x) {
        const int cx = x / 4, cy = y / 4, fx = x % 4, fy = y % 4;
        const int v = ((4 - fx) * (4 - fy) * coarse[cy * cw + cx] + fx * (4 - fy) * coarse[cy * cw + cx + 1] +
                       (4 - fx) * fy * coarse[(cy + 1) * cw + cx] + fx * fy * coarse[(cy + 1) * cw + cx + 1]) / 16;
        const size_t o = size_t(y / h) * h * s + size_t(y % h) * s + x;
        if (o < bytes) a[o] = uint8_t(v);
      }
  }
  // B(x) = A(x - (dx, dy)) in every plane (edges repeated); dx counts bytes.
  void shifted(int dx, int dy) {
    for (size_t o = 0; o < bytes; ++o) {
      const int p = int(o / (size_t(h) * s)), y = int(o / s % h), x = int(o % s);
      if (x >= w) continue;
      const int sy = std::min(std::max(y - dy, 0), h - 1), sx = std::min(std::max(x - dx, 0), w - 1);
      b[o] = a[size_t(p) * h * s + size_t(sy) * s + sx];
    }
  }
  int w, h, s;
  size_t bytes;
  GuardedBuffer a, b, out;
};

}  // namespace motion_test
