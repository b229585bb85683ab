// The demo's panorama step: the middle of frame 0 as a 4:3 picture, stretched onto 16:9 uniformly
// and as a panorama (side by side), then the panorama undone and compared with the 4:3 picture.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "calls.h"
#include "demo.h"

namespace framedsp {
namespace cli {

namespace {

bool save(Demo &demo, const std::string &name, const Picture &picture, std::string *error) {
  demo.pictures[name] = picture;
  return write_png((demo.dir / name).string(), picture, error);
}

// The middle 4:3 part of `frame` (the whole width when the frame is narrower) into `to` with
// DspScaler, linear.
DSP_HRESULT crop_43(const RawLayout &l, const uint8_t *frame, const RawLayout &to, uint8_t *out) {
  DSP_SCALER_PARAMS p;
  std::memset(&p, 0, sizeof p);
  p.eFilter = DSP_SCALER_FILTER_LINEAR;
  p.Buffer.In = image_of(l, frame);
  p.Buffer.Out = image_of(to, out);
  const uint32_t w = std::min(l.width, l.height * 4 / 3) & ~1u;
  p.Buffer.In.Buffer.Region.ptOffset.x = int32_t((l.width - w) / 2) & ~1;
  p.Buffer.In.Buffer.Region.ulWidth = w;
  return DspScaler(&p);
}

}  // namespace

bool step_panorama(Demo &demo, StepReport *report, std::string *error) {
  const RawLayout &l = demo.layout;
  const uint32_t h = std::max(2u, l.height / 2);
  RawLayout narrow, wide;
  if (!make_layout(DSP_PIXEL_FORMAT_UYVY, std::max(2u, (h * 4 / 3) & ~1u), h, 0, 0, &narrow, error) ||
      !make_layout(DSP_PIXEL_FORMAT_UYVY, std::max(2u, (h * 16 / 9) & ~1u), h, 0, 0, &wide, error)) {
    return false;
  }
  std::vector<uint8_t> material(narrow.frame_bytes, 0), back(narrow.frame_bytes, 0);
  std::vector<uint8_t> uniform(wide.frame_bytes, 0), panorama(wide.frame_bytes, 0);
  const ScaleChoice choice;
  PanoramaChoice pan, flat, undo;
  flat.mode = DSP_STRETCH_UNIFORM;
  undo.mode = DSP_STRETCH_PANORAMA_INVERSE;
  DSP_HRESULT status = crop_43(l, demo.frames[0].data(), narrow, material.data());
  if (status == DSP_S_OK) status = panorama_frame(narrow, material.data(), wide, uniform.data(), choice, flat);
  using Clock = std::chrono::steady_clock;
  const auto start = Clock::now();
  if (status == DSP_S_OK) status = panorama_frame(narrow, material.data(), wide, panorama.data(), choice, pan);
  const auto middle = Clock::now();
  if (status == DSP_S_OK) status = panorama_frame(wide, panorama.data(), narrow, back.data(), choice, undo);
  const double ms = std::chrono::duration<double, std::milli>(middle - start).count();
  const double undo_ms = std::chrono::duration<double, std::milli>(Clock::now() - middle).count();
  if (status != DSP_S_OK) {
    *error = status_text("DspNonUniformScaler", status);
    return false;
  }
  if (!save(demo, "panorama_43.png", preview(narrow, material.data()), error)) return false;
  report->entries.push_back({"panorama_43.png", "the middle of frame 0 as a 4:3 picture (DspScaler)", {}, -1});
  if (!save(demo, "panorama.png", side_by_side({preview(wide, uniform.data()), preview(wide, panorama.data())}),
            error)) {
    return false;
  }
  char text[220];
  std::snprintf(text, sizeof text,
                "DspNonUniformScaler %ux%u -> %ux%u, cubic: left the uniform stretch (mode 0), right the panorama "
                "(mode 1: centre 0.2 of the width at 0.85 of the stretch), %.3f ms",
                narrow.width, narrow.height, wide.width, wide.height, ms);
  report->entries.push_back({"panorama.png", text, {}, ms});
  if (!save(demo, "panorama_undone.png", preview(narrow, back.data()), error)) return false;
  report->entries.push_back({"panorama_undone.png", "DspNonUniformScaler: the panorama undone (mode 2), back to 4:3", {},
                             undo_ms});
  return compare_entry(demo, narrow, material.data(), back.data(), "diff_panorama.png",
                       "the 4:3 picture against its trip through the panorama", report, error);
}

}  // namespace cli
}  // namespace framedsp
