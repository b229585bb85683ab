// `framedsp panorama`: DspNonUniformScaler on every frame: 4:3 material onto a wider frame with an
// undistorted centre (mode 1), the panorama undone (mode 2), or the uniform stretch (mode 0).
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
    "usage: framedsp panorama IN OUT -s WxH -pix_fmt F --mode 1|2 [options]\n"
    "\n"
    "Scales every frame of the raw file IN into OUT with DspNonUniformScaler.  Mode 1 fills a\n"
    "wider frame (4:3 material on 16:9) keeping the centre close to its shape and stretching\n"
    "more towards the left and right edges; mode 2 undoes a mode 1 panorama of the same\n"
    "settings; mode 0 is DspScaler's uniform stretch.  Vertically every mode scales as\n"
    "DspScaler does.\n"
    "\n"
    "  -s, --size WxH          size of the frames of IN\n"
    "  -f, -pix_fmt F          pixel format, name or code (every format DspScaler takes)\n"
    "  --mode 0|1|2            uniform, panorama, or the panorama undone (default 1)\n"
    "  --to WxH                size of OUT's frames (default: mode 1 and 0 4/3 of the width,\n"
    "                          mode 2 3/4 of it, the height kept: 4:3 <-> 16:9)\n"
    "  --centre C              width of the undistorted centre band as a fraction of the wide\n"
    "                          side, 0 <= C < 1 (default 0.2)\n"
    "  --centre-scale R        the centre's scale relative to the uniform stretch, 0 < R <= 4\n"
    "                          (default 0.85); 3 R - C must exceed 2, or the picture would fold\n"
    "  --kernel nearest|linear|cubic|lanczos3\n"
    "                          interpolation (default cubic, Catmull-Rom)\n"
    "  --interlaced            frames hold two interleaved fields, scaled field by field\n"
    "  --staged                scale through private lines (same bytes)\n"
    "  --fir HT:HC,VT:VC       fold a FIR low-pass into the scaling (taps 3..15, cut-off 0..99,\n"
    "                          100 = off)\n"
    "  --colorspace 601:709|709:601\n"
    "                          convert the colour matrix (4:2:2 formats)\n"
    "  --png FILE              preview of the first frame: the input, (mode 1) the uniform\n"
    "                          stretch and the result side by side\n"
    "\n"
    "examples:\n"
    "  framedsp panorama sd.uyvy wide.uyvy -s 720x486 -f uyvy422 --mode 1 --to 1920x1080 \\\n"
    "      --centre 0.2 --centre-scale 0.85 --png wide.png\n"
    "  framedsp panorama wide.uyvy back.uyvy -s 1920x1080 -f uyvy422 --mode 2 --to 720x486\n";

double parse_fraction(const Parsed &parsed, const char *option, double lo, double hi, double fallback) {
  if (!parsed.has(option)) return fallback;
  const std::string text = parsed.get(option);
  char *end = nullptr;
  const double v = std::strtod(text.c_str(), &end);
  if (!end || *end != '\0' || end == text.c_str() || !(v >= lo && v <= hi)) {
    char range[80];
    std::snprintf(range, sizeof range, " expects a number in %g .. %g; got '", lo, hi);
    throw UsageError(std::string(option) + range + text + "'");
  }
  return v;
}

class Panorama : public FrameCommand {
 public:
  Panorama() : FrameCommand(1, Out::kRaw) {}

  void setup(const Parsed &parsed, Job &job) override {
    const std::string mode = parsed.has("--mode") ? parsed.get("--mode") : "1";
    if (mode != "0" && mode != "1" && mode != "2") throw UsageError("--mode expects 0, 1 or 2; got '" + mode + "'");
    pan_.mode = uint32_t(mode[0] - '0');
    const double c = parse_fraction(parsed, "--centre", 0, 16383.0 / 16384, 0.2);
    const double r = parse_fraction(parsed, "--centre-scale", 1.0 / 16384, 4, 0.85);
    pan_.centre_q14 = uint32_t(std::lround(c * 16384));
    pan_.scale_q14 = uint32_t(std::lround(r * 16384));
    if (3 * uint64_t{pan_.scale_q14} <= 32768 + uint64_t{pan_.centre_q14}) {
      char text[120];
      std::snprintf(text, sizeof text, "--centre %g with --centre-scale %g folds the picture (3 R - C must exceed 2)", c, r);
      throw UsageError(text);
    }
    if (parsed.has("--kernel")) pan_.kernel = parse_kernel(parsed.get("--kernel"));
    choice_.interlaced = parsed.has("--interlaced");
    choice_.staged = parsed.has("--staged");
    if (parsed.has("--fir")) choice_.fir = true, parse_fir(parsed.get("--fir"), &choice_.fir_settings);
    if (parsed.has("--colorspace")) parse_colorspace(parsed.get("--colorspace"), &choice_.in_space, &choice_.out_space);
    uint32_t w = pan_.mode == 2 ? job.in.width * 3 / 4 : job.in.width * 4 / 3, h = job.in.height;
    if (parsed.has("--to")) {
      parse_size_option(parsed, "--to", &w, &h);
    } else if (format_info(job.in.format).even) {
      w &= ~1u;
    }
    if (format_info(job.in.format).even && (w & 1)) throw UsageError(format_label(job.in.format) + " needs an even width");
    if (parsed.has("--png")) png_ = job.output(parsed.get("--png"));
    job.out = packed_layout(job.in.format, w, h);
  }

  void frame(Job &job, uint64_t index, uint8_t *out) override {
    const uint8_t *in = job.input(index);
    check_status("DspNonUniformScaler", panorama_frame(job.in, in, job.out, out, choice_, pan_));
    if (index != 0 || png_.empty()) return;
    std::vector<Picture> shots{preview(job.in, in)};
    if (pan_.mode == DSP_STRETCH_PANORAMA) {
      std::vector<uint8_t> uniform(job.out.frame_bytes, 0);
      PanoramaChoice flat = pan_;
      flat.mode = DSP_STRETCH_UNIFORM;
      check_status("DspNonUniformScaler", panorama_frame(job.in, in, job.out, uniform.data(), choice_, flat));
      shots.push_back(preview(job.out, uniform.data()));
    }
    shots.push_back(preview(job.out, out));
    std::string error;
    if (!write_png(png_, side_by_side(shots), &error)) throw RuntimeError(error);
  }

  std::string finish(Job &) override {
    const char *modes[] = {"uniform", "panorama", "panorama undone"};
    const char *kernels[] = {"nearest", "linear", "cubic", "lanczos3"};
    char text[160];
    std::snprintf(text, sizeof text, "%s, centre %.3g at scale %.3g, %s%s%s", modes[pan_.mode], pan_.centre_q14 / 16384.0,
                  pan_.scale_q14 / 16384.0, kernels[pan_.kernel], choice_.interlaced ? ", field by field" : "",
                  choice_.staged ? ", staged" : "");
    return text;
  }

 private:
  PanoramaChoice pan_;
  ScaleChoice choice_;
  std::string png_;
};

}  // namespace

extern const Command kPanoramaCommand = {"panorama",
                                         "4:3 <-> 16:9 with an undistorted centre (non-uniform stretch), or undo it",
                                         kHelp,
                                         Common::kClip,
                                         {{"--mode", true},
                                          {"--to", true},
                                          {"--centre", true},
                                          {"--centre-scale", true},
                                          {"--kernel", true},
                                          {"--interlaced", false},
                                          {"--staged", false},
                                          {"--fir", true},
                                          {"--colorspace", true},
                                          {"--png", true}},
                                         run_clip<Panorama>};

}  // namespace cli
}  // namespace framedsp
