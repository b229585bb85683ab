// `framedsp filter` and the DspFilter call it shares with the demo.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "framedsp/framedsp.h"
#include "raw_io.h"

namespace framedsp {
namespace cli {

// What to filter with: a FIR low-pass (taps and cut-off per direction, cut-off 100 = off) or a
// box average (size per direction, 0 = off).
struct FilterChoice {
  uint32_t type = DSP_FILTER_TYPE_FIR;
  DSP_FIR_SETTINGS fir{3, 100, 0, 3, 100};
  DSP_BOX_SETTINGS box{0, 0, 0};
  bool temp_frame = false;
  bool interlaced = false;  // frames of two interleaved fields: vertical taps stay in one field
};

// One DspFilter call from a whole frame of `layout` into a frame of the same layout.  The library
// refuses some records quietly (S_OK, nothing written): callers check what they pass.
DSP_HRESULT filter_frame(const RawLayout &layout, const uint8_t *in, uint8_t *out,
                         const FilterChoice &choice);

// "DspFilter returned 0x80004001 (not implemented in this build)".
std::string filter_status_text(DSP_HRESULT status);

// Parsers of --fir and --box; they throw UsageError.
void parse_fir(const std::string &text, DSP_FIR_SETTINGS *fir);
void parse_box(const std::string &text, DSP_BOX_SETTINGS *box);

extern const char kFilterHelp[];
int cmd_filter(const std::vector<std::string> &args);

}  // namespace cli
}  // namespace framedsp
