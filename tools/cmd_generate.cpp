// `framedsp generate`: the built-in test clip as a raw uyvy422 file.
#include <cstdio>

#include "clip.h"
#include "framedsp/framedsp.h"
#include "frame_loop.h"
#include "progress.h"

namespace framedsp {
namespace cli {

namespace {

const char kHelp[] =
    "usage: framedsp generate OUT.raw [-s WxH] [--frames N] [-y]\n"
    "\n"
    "Writes the built-in test clip (colour bars, a zone plate, moving shapes) as raw\n"
    "uyvy422 (format 21), limited-range BT.601, lines tightly packed.\n"
    "\n"
    "  -s, --size WxH   frame size (default 640x360; the width must be even)\n"
    "  --frames N       number of frames (default 5)\n"
    "\n"
    "example:\n"
    "  framedsp generate clip.raw --frames 10\n"
    "  framedsp compare clip.raw clip.raw -s 640x360 -f uyvy422\n";

int run_generate(const Parsed &parsed) {
  expect_positional(parsed, 1);
  uint32_t width = kClipWidth, height = kClipHeight;
  if (parsed.has("--size")) parse_size_option(parsed, "--size", &width, &height);
  const uint32_t frames =
      parsed.has("--frames") ? parse_count(parsed.get("--frames"), "--frames", 1) : kClipFrames;
  const RawLayout layout = packed_layout(DSP_PIXEL_FORMAT_UYVY, width, height);
  const std::string &path = parsed.positional[0];
  check_output(parsed, path, {});
  RawWriter out;
  std::string error;
  if (!out.open(path, &error)) throw RuntimeError(error);
  Progress progress("generate", frames, parsed.progress);
  for (uint32_t i = 0; i < frames; ++i) {
    const std::vector<uint8_t> frame = render_clip_frame(width, height, i, frames);
    if (!out.write(frame.data(), frame.size(), &error)) throw RuntimeError(error);
    progress.update(i + 1);
  }
  progress.finish();
  if (!out.close(&error)) throw RuntimeError(error);
  std::printf("OUT: %s: %s; %u frame%s, %llu bytes\n", path.c_str(), describe_layout(layout).c_str(),
              frames, frames == 1 ? "" : "s",
              static_cast<unsigned long long>(layout.frame_bytes * frames));
  return kExitOk;
}

}  // namespace

extern const Command kGenerateCommand = {"generate",
                                         "write the built-in test clip as a raw uyvy422 file",
                                         kHelp,
                                         Common::kWrites,
                                         {{"--size|-s", true}, {"--frames", true}},
                                         run_generate};

}  // namespace cli
}  // namespace framedsp
