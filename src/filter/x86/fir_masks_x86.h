// Byte masks of the FIR steps, shared by the SSE2 and AVX2 files.  Plain constant data (no
// intrinsics); the unnamed namespace keeps one copy per translation unit like the step templates.
#pragma once

#include "filter/fir_kernels.h"

namespace framedsp {
namespace fir_detail {
namespace {

// Byte masks of a class: sel picks the second distance, pass marks copied bytes; row = phase
// (position of the step's first byte modulo the class period).
struct FirMasks {
  uint8_t sel[4][16];
  uint8_t pass[4][16];
};

constexpr int second_distance(int cls) {
  for (int i = 0; i < 4; ++i) {
    if (kDist[cls][i] != 0 && kDist[cls][i] != kDist[cls][0]) return kDist[cls][i];
  }
  return kDist[cls][0];
}

constexpr FirMasks make_masks(int cls) {
  FirMasks m{};
  const int d_b = second_distance(cls);
  for (int phase = 0; phase < 4; ++phase) {
    for (int j = 0; j < 16; ++j) {
      const int d = dist_at(cls, static_cast<size_t>(phase + j));
      m.sel[phase][j] = (d_b != kDist[cls][0] && d == d_b) ? 0xFF : 0;
      m.pass[phase][j] = d == 0 ? 0xFF : 0;
    }
  }
  return m;
}

template <int kClass>
struct FirClassMasks {
  static constexpr FirMasks kMasks = make_masks(kClass);
};

}  // namespace
}  // namespace fir_detail
}  // namespace framedsp
