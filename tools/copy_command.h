// `framedsp copy` and the DspBufferSmartCopy call it shares with the demo.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "framedsp/framedsp.h"
#include "raw_io.h"

namespace framedsp {
namespace cli {

// One side of a copy: a frame or field buffer of `layout` and the region used in it (a region of
// width or height 0 is the whole buffer).
struct CopySide {
  uint8_t *pixels = nullptr;
  RawLayout layout;
  uint32_t type = DSP_BUFFER_TYPE_FRAME;
  uint32_t interlace = DSP_INTERLACE_PROGRESSIVE;
  uint32_t orientation = DSP_ORIENTATION_TOP_DOWN;
  uint32_t color_space = DSP_COLOR_SPACE_UNSPECIFIED;
  int32_t x = 0, y = 0;
  uint32_t w = 0, h = 0;
};

// Field buffers are described as progressive: a field has no fields of its own.
constexpr uint32_t kFieldInterlace = DSP_INTERLACE_PROGRESSIVE;

// One DspBufferSmartCopy call.  The library refuses some records quietly (S_OK, nothing
// copied): callers check what they pass.
DSP_HRESULT copy_buffer(const CopySide &in, const CopySide &out, uint32_t flags);

// "DspBufferSmartCopy returned 0x80004005".
std::string copy_status_text(DSP_HRESULT status);

extern const char kCopyHelp[];
int cmd_copy(const std::vector<std::string> &args);

}  // namespace cli
}  // namespace framedsp
