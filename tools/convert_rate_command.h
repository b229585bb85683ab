// `framedsp convert-rate`: a raw clip from one frame rate to another through
// DspFrameRateConvert, streaming (two input frames in memory).  The demo shares the clip code.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "framedsp/framedsp.h"
#include "png_writer.h"

namespace framedsp {
namespace cli {

extern const char kConvertRateHelp[];
int cmd_convert_rate(const std::vector<std::string> &args);

// Output k of a rate change: the input pair (n, n + 1) and the phase in Q14 (0 = input n).
struct OutputTime {
  uint64_t pair;
  uint32_t phase;
};
// Output k lies at k / to seconds, between inputs n = floor(k * from / to) and n + 1, at phase
// round(16384 * fraction), halves up (a phase of 16384 is input n + 1 at phase 0).
OutputTime output_time(uint64_t k, uint64_t from_num, uint64_t from_den, uint64_t to_num, uint64_t to_den);

// A converter for width x height frames whose own estimation reaches 54 pixels per pair
// (4 levels, ranges 2, 2, 4, 4; 16x16 blocks).  eConvertMode = mode.
bool create_converter(uint32_t width, uint32_t height, uint32_t mode, DSP_HANDLE *handle, std::string *error);

// One conversion of two-plane frames (plane 2 NV16 chroma unless luma_only) of width x height,
// lines packed.  overlay draws the vectors.
DSP_HRESULT convert_frame(DSP_HANDLE converter, uint32_t width, uint32_t height, bool luma_only, const uint8_t *a,
                          const uint8_t *b, uint8_t *out, uint32_t phase, uint32_t sampling, bool overlay);

// Gray pictures side by side, one gap column of 0 between them.
Picture gray_strip(const std::vector<const uint8_t *> &planes, uint32_t width, uint32_t height);

}  // namespace cli
}  // namespace framedsp
