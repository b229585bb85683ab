// `framedsp demo`: runs the library's operations on the built-in clip and writes PNG previews, a
// text report and an HTML index.  Also the library calls the commands share with it.
#pragma once

#include <cstdint>
#include <string>

#include "raw_io.h"

namespace framedsp {
namespace cli {

struct DemoOptions {
  std::string out_dir = "out";
  uint32_t width = 0;  // 0 = the clip's own size
  uint32_t height = 0;
  uint32_t frames = 0;  // 0 = the clip's own length
};

// Returns the process exit status (0, or 1 when a step failed or a file could not be written).
int run_demo(const DemoOptions &options);

// One DspCompare call on frames of `layout`: a and b are compared, the difference image goes to
// diff (layout.frame_bytes bytes), MSE into results[0..3] and PSNR into results[4..7] by slot.
// Slots the format has no channel for are NaN.  Fails when the call does not return S_OK or
// leaves a slot of the format's channels unwritten (a record the library refused).
bool compare_frame(const RawLayout &layout, const uint8_t *a, const uint8_t *b, uint8_t *diff,
                   double results[8], std::string *error);

// 20 * log10(255 / sqrt(mse + 0.00001)): the library's PSNR of an MSE.
double psnr_of_mse(double mse);

}  // namespace cli
}  // namespace framedsp
