// The demo's Ken Burns step: a zoom and pan over frame 0 as a strip of five frames.
#include <algorithm>
#include <cstdio>

#include "calls.h"
#include "demo.h"

namespace framedsp {
namespace cli {

bool step_kenburns(Demo &demo, StepReport *report, std::string *error) {
  const RawLayout &l = demo.layout;
  RawLayout o;
  if (!make_layout(DSP_PIXEL_FORMAT_UYVY, std::max(2u, (l.width / 2) & ~1u), std::max(1u, l.height / 2), 0, 0, &o,
                   error)) {
    return false;
  }
  KenBurnsMove move;
  move.from = DSP_SUBPIXEL_VIEW{16384, 0, 0};
  move.to = DSP_SUBPIXEL_VIEW{3 * 16384, 4096, -2048};  // zoom 3 towards the right, a little up
  move.ease = true;
  std::vector<Picture> shots;
  std::vector<uint8_t> out(o.frame_bytes, 0);
  double total = 0;
  for (uint32_t k = 0; k < 5; ++k) {
    double ms = 0;
    if (!kenburns_frame(l, demo.frames[0].data(), o, out.data(), move, k * 4096, &ms, error)) return false;
    total += ms;
    shots.push_back(preview(o, out.data()));
  }
  const Picture strip = side_by_side(shots);
  demo.pictures["kenburns.png"] = strip;
  if (!write_png((demo.dir / "kenburns.png").string(), strip, error)) return false;
  char text[200];
  std::snprintf(text, sizeof text,
                "DspSubPixelScalerHelper + DspSubPixelScaler: zoom 1 -> 3 eased, phases 0, 1/4, 1/2, 3/4, 1 of the "
                "move into %ux%u (cubic), %.3f ms a frame",
                o.width, o.height, total / 5);
  report->entries.push_back({"kenburns.png", text, {}, total / 5});
  return true;
}

}  // namespace cli
}  // namespace framedsp
