// Frame-rate conversion for the convert-rate command and the demo: output times, the converter
// and one DspFrameRateConvert call.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "framedsp/framedsp.h"
#include "png_writer.h"

namespace framedsp {
namespace cli {

// Output k of a change from rate A to rate B (fractions num / den) lies at k / B seconds,
// between inputs n = floor(k A / B) and n + 1, at phase round(16384 * fraction), halves up (a
// phase of 16384 is input n + 1 at phase 0).
struct OutputTime {
  uint64_t pair;
  uint32_t phase;
};
OutputTime output_time(uint64_t k, uint64_t from_num, uint64_t from_den, uint64_t to_num, uint64_t to_den);

// A converter for width x height frames whose own estimation reaches 54 pixels a pair (4 levels,
// ranges 2, 2, 4, 4 clipped to a quarter of the picture; 16x16 blocks), eConvertMode `mode`.
DSP_HANDLE frame_rate_converter(uint32_t width, uint32_t height, uint32_t mode);

// One conversion of frames of width x height packed lines: plane 1, then (unless luma_only) an
// NV16 plane 2, along `field` (null: the converter estimates), with DSP_CONVERT_* `flags` added.
// Returns the library's status; *ms the time of the call.
DSP_HRESULT convert_frame(DSP_HANDLE converter, uint32_t width, uint32_t height, bool luma_only, const uint8_t *a,
                          const uint8_t *b, uint8_t *out, uint32_t phase, uint32_t sampling, bool overlay,
                          double *ms = nullptr, const std::vector<uint8_t> *field = nullptr, uint8_t flags = 0);

// Gray planes of width x height side by side, a black column between them.
Picture gray_strip(const std::vector<const uint8_t *> &planes, uint32_t width, uint32_t height);

// UYVY (format 21) to the two planes of format 263 (Y, then Cb Cr pairs) and back.
void uyvy_to_nv16(const uint8_t *uyvy, uint32_t width, uint32_t height, uint8_t *planes);
void nv16_to_uyvy(const uint8_t *planes, uint32_t width, uint32_t height, uint8_t *uyvy);

}  // namespace cli
}  // namespace framedsp
