// `framedsp scale` and the DspScaler call it shares with the demo.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "framedsp/framedsp.h"
#include "raw_io.h"

namespace framedsp {
namespace cli {

struct ScaleChoice {
  uint32_t filter = DSP_SCALER_FILTER_LINEAR;
  float factor_x = 1.0f;
  float factor_y = 1.0f;
  bool derive = false;      // let the library derive the output size from the factors
  bool staged = false;      // ulOptions bit 0
  bool fir = false;         // ulOptions bit 1: scale and FIR-filter the scaled axes in one pass
  DSP_FIR_SETTINGS fir_settings{3, 100, 0, 3, 100};
  bool interlaced = false;  // frames of two interleaved fields, scaled field by field
  int field = -1;           // 0 / 1: scale only field A / B of each input frame into a field
  uint32_t in_space = DSP_COLOR_SPACE_UNSPECIFIED;
  uint32_t out_space = DSP_COLOR_SPACE_UNSPECIFIED;
};

// One DspScaler call from a whole frame of `in` into a whole frame of `out`.
DSP_HRESULT scale_frame(const RawLayout &in, const uint8_t *in_pixels, const RawLayout &out,
                        uint8_t *out_pixels, const ScaleChoice &choice);

// "DspScaler returned 0x80070057".
std::string scale_status_text(DSP_HRESULT status);

// floor(size * factor + 0.5), as the library derives it.
uint32_t derived_length(uint32_t size, float factor);

extern const char kScaleHelp[];
int cmd_scale(const std::vector<std::string> &args);

}  // namespace cli
}  // namespace framedsp
