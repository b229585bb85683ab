// The column mapping of DspNonUniformScaler's panorama (see DSP_NONUNIFORM_SCALER_PARAMS):
// f(u) = g u over the centre band |u| <= c, g u - sign(u) (g - 1) s^3 beyond, s = (|u| - c) /
// (1 - c), g = 1 / r; f(+-1) = +-1.  c and r are Q14 (r = 16384 is 1).
#pragma once

#include <cstdint>

namespace framedsp {

constexpr uint32_t kPanoramaMaxScaleQ14 = 65536;
constexpr uint32_t kPanoramaMaxWidth = 1u << 28;

// True when the edge slope gE = g - 3 (g - 1) / (1 - c) would be <= 0 (the picture would fold):
// 3 r - c <= 2 in Q14.
inline bool panorama_folds(uint32_t centre_q14, uint32_t scale_q14) {
  return 3 * uint64_t{scale_q14} <= 32768 + uint64_t{centre_q14};
}

// The largest reduction of any column (Q16; 65536 or less: the mapping reduces nowhere), 0 for
// settings panorama_columns refuses.
uint32_t panorama_max_widen_q16(uint32_t mode, uint32_t centre_q14, uint32_t scale_q14, uint32_t wi, uint32_t wo);

// Source positions of `wo` output columns over `wi` source columns (Q32, source column i at i)
// and, when `widen_q16` is not null, each column's reduction (Q16, source columns per output
// column; 65536 = none).  Mode 1 reads
// f, mode 2 its inverse.  Needs 1 <= wi, wo <= kPanoramaMaxWidth, 0 <= c < 16384, 1 <= r <=
// kPanoramaMaxScaleQ14 and no folding; false when they are not met.
bool panorama_columns(uint32_t mode, uint32_t centre_q14, uint32_t scale_q14, uint32_t wi, uint32_t wo,
                      int64_t *pos, uint32_t *widen_q16);

}  // namespace framedsp
