// `framedsp kenburns`: a zoom and pan between two views rendered as a clip, one
// DspSubPixelScalerHelper call and one DspSubPixelScaler call per output frame.
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "calls.h"
#include "formats.h"
#include "frame_loop.h"

namespace framedsp {
namespace cli {

namespace {

const char kHelp[] =
    "usage: framedsp kenburns IN OUT -s WxH -pix_fmt F [--frames N] [options]\n"
    "\n"
    "Renders a Ken Burns move: output frame k shows the view at phase k / (N - 1) between the\n"
    "--start and --end views, computed by DspSubPixelScalerHelper (geometric zoom, fractional\n"
    "rectangles, kept inside the source) and scaled by DspSubPixelScaler, so the picture glides\n"
    "by fractions of a pixel instead of stepping.  Output frame k reads input frame k (the last\n"
    "one once the input ends: a single frame is a still).\n"
    "\n"
    "  -s, --size WxH          size of the frames of IN\n"
    "  -f, -pix_fmt F          pixel format, name or code (every format DspScaler takes)\n"
    "  --to WxH                size of the output frames (default the input size)\n"
    "  --frames N              output frames (default 50)\n"
    "  --start Z[,X,Y]         view A: zoom Z >= 1 and its centre X, Y in picture widths and\n"
    "                          heights from the middle, -0.5 .. 0.5 (default 1,0,0)\n"
    "  --end Z[,X,Y]           view B (default 2,0,0)\n"
    "  --ease                  start and stop gently (smoothstep) instead of at constant speed\n"
    "  --kernel nearest|linear|cubic|lanczos3\n"
    "                          interpolation (default cubic)\n"
    "  --png FILE              previews of four frames of the move side by side\n"
    "\n"
    "examples:\n"
    "  framedsp kenburns still.uyvy move.uyvy -s 1920x1080 -f uyvy422 --frames 125 \\\n"
    "      --start 1 --end 2.5,0.2,-0.1 --ease --png move.png --progress\n"
    "  framedsp kenburns in.bgra out.bgra -s 1280x720 -f bgra --to 640x360 --end 3,-0.3,0.3\n";

DSP_SUBPIXEL_VIEW parse_view(const std::string &text, const char *option) {
  double v[3] = {0, 0, 0};
  const char *at = text.c_str();
  char *end = nullptr;
  int n = 0;
  for (; n < 3; ++n) {
    v[n] = std::strtod(at, &end);
    if (end == at || *end != ',') break;
    at = end + 1;
  }
  const bool ok = end && *end == '\0' && end != at && (n == 0 || n == 2) && v[0] >= 1 && v[0] <= 16 &&
                  std::fabs(v[1]) <= 0.5 && std::fabs(v[2]) <= 0.5;
  if (!ok) {
    throw UsageError(std::string(option) + " expects Z or Z,X,Y with 1 <= Z <= 16 and -0.5 <= X, Y <= 0.5; got '" +
                     text + "'");
  }
  return DSP_SUBPIXEL_VIEW{uint32_t(std::lround(v[0] * 16384)), int32_t(std::lround(v[1] * 16384)),
                           int32_t(std::lround(v[2] * 16384))};
}

class KenBurns : public FrameCommand {
 public:
  KenBurns() : FrameCommand(1, Out::kRaw) {}

  void setup(const Parsed &parsed, Job &job) override {
    uint32_t w = job.in.width, h = job.in.height;
    if (parsed.has("--to")) parse_size_option(parsed, "--to", &w, &h);
    if (format_info(job.in.format).even && (w & 1)) throw UsageError(format_label(job.in.format) + " needs an even width");
    frames_ = parsed.has("--frames") ? parse_count(parsed.get("--frames"), "--frames", 1) : 50;
    if (parsed.has("--start")) move_.from = parse_view(parsed.get("--start"), "--start");
    if (parsed.has("--end")) move_.to = parse_view(parsed.get("--end"), "--end");
    if (parsed.has("--kernel")) move_.kernel = parse_kernel(parsed.get("--kernel"));
    move_.ease = parsed.has("--ease");
    if (parsed.has("--png")) png_ = job.output(parsed.get("--png"));
    job.out = packed_layout(job.in.format, w, h);
  }

  uint64_t begin(Job &) override { return frames_; }

  void frame(Job &job, uint64_t index, uint8_t *out) override {
    const uint32_t phase = frames_ > 1 ? uint32_t(index * 16384 / (frames_ - 1)) : 0;
    const uint64_t source = index < job.in_frames ? index : job.in_frames - 1;
    double ms = 0;
    std::string error;
    if (!kenburns_frame(job.in, job.input(source), job.out, out, move_, phase, &ms, &error)) {
      throw RuntimeError(error + " on frame " + std::to_string(index));
    }
    total_ms_ += ms;
    if (!png_.empty() && (index * 3) % (frames_ > 1 ? frames_ - 1 : 1) < 3) {
      if (shots_.size() < 4) shots_.push_back(preview(job.out, out));
    }
  }

  std::string finish(Job &) override {
    std::string error;
    if (!png_.empty() && !write_png(png_, side_by_side(shots_), &error)) throw RuntimeError(error);
    char text[160];
    std::snprintf(text, sizeof text, "zoom %.3g -> %.3g%s, %.3f ms a frame in the library", move_.from.ulZoomQ14 / 16384.0,
                  move_.to.ulZoomQ14 / 16384.0, move_.ease ? ", eased" : "", frames_ ? total_ms_ / frames_ : 0.0);
    return text;
  }

 private:
  KenBurnsMove move_;
  uint32_t frames_ = 50;
  std::string png_;
  std::vector<Picture> shots_;
  double total_ms_ = 0;
};

}  // namespace

extern const Command kKenBurnsCommand = {"kenburns",
                                         "zoom and pan between two views by fractions of a pixel, as a clip",
                                         kHelp,
                                         Common::kClip,
                                         {{"--to", true},
                                          {"--frames", true},
                                          {"--start", true},
                                          {"--end", true},
                                          {"--ease", false},
                                          {"--kernel", true},
                                          {"--png", true}},
                                         run_clip<KenBurns>};

}  // namespace cli
}  // namespace framedsp
