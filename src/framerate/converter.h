// The frame-rate converter: the library's one object that lives across calls.
#pragma once

#include <cstdint>

#include "platform/handle.h"
#include "platform/status.h"

namespace framedsp {

class FrameRateConverter : public HandleObject {
 public:
  ~FrameRateConverter() override;
  virtual HRESULT Convert(DSP_FRAME_RATE_CONVERT_PARAMS *params) = 0;
};

class DspFrameRateConverter : public FrameRateConverter {
 public:
  DspFrameRateConverter();
  ~DspFrameRateConverter() override;

  // Checks and copies the creation record, applies the defaults and derives the Q14 ratios.
  // E_INVALIDARG (and the object unchanged in meaning) when the record is out of bounds.
  HRESULT Initialise(const DSP_FRAME_RATE_CONVERTER_PARAMS &params);

  // The frame at the record's phase (framerate/frc_convert.h).  Reads the settings only.
  HRESULT Convert(DSP_FRAME_RATE_CONVERT_PARAMS *params) override;

  const DSP_FRAME_RATE_CONVERTER_PARAMS &settings() const { return settings_; }
  uint32_t rate_ratio_ba_q14() const { return ulRateRatioBAQ14; }
  uint32_t rate_ratio_ab_q14() const { return ulRateRatioABQ14; }

 private:
  DSP_FRAME_RATE_CONVERTER_PARAMS settings_{};
  uint32_t ulRateRatioBAQ14 = 0;  // trunc(16384 * fRateB / fRateA)
  uint32_t ulRateRatioABQ14 = 0;  // trunc(16384 * fRateA / fRateB)
};

// The body of DspCreateFrameRateConverter after its null checks: allocate, construct, initialise,
// store the handle.  Exceptions propagate to the export's guard (memory freed first).
HRESULT create_frame_rate_converter(const DSP_FRAME_RATE_CONVERTER_PARAMS *params,
                                    DSP_HANDLE *handle_out);

// Test hook (not exported): the next converter allocation yields nothing, as when memory runs out.
void frame_rate_converter_fail_next_allocation();

}  // namespace framedsp
