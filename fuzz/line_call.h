// A line-by-line call (DSP_BUFFER) built from fuzz bytes: real input and output memory of the
// record's sizes, the input against protected pages and left unchanged, the output in canary
// margins with the map of the bytes the call may write.  Shared by the copy and filter targets;
// a scaler target draws its output region with its own size rule through region_rule.
#pragma once

#include <memory>
#include <vector>

#include "harness.h"

namespace fuzz {

enum class RegionRule {
  kFree,         // output region drawn independently of the input's (copy)
  kFieldFactor,  // output region width equal, height = input height / field factor (filter)
};

struct LineCall {
  DSP_BUFFER buffer{};
  std::unique_ptr<PageBuffer> input;
  std::unique_ptr<OutputImage> output;
  std::vector<uint8_t> input_copy;
};

void draw_line_call(Reader &r, RegionRule rule, LineCall *call);

// After the export: the caller's record, the input and every output byte outside the allowed
// ones unchanged (every byte when the record was refused).
void check_line_call(const char *target, LineCall &call, const DSP_BUFFER &record_before,
                     bool refused);

// Sometimes forces the scalar kernels, sometimes SSE2 only, otherwise every ISA.
void draw_cpu_mask(Reader &r);

}  // namespace fuzz
