// `framedsp scale`: DspScaler on every frame.
#include <cstdlib>

#include "calls.h"
#include "formats.h"
#include "frame_loop.h"

namespace framedsp {
namespace cli {

namespace {

const char kHelp[] =
    "usage: framedsp scale IN OUT -s WxH -pix_fmt F (--to WxH | --factor X[,Y]) [options]\n"
    "\n"
    "Resizes every frame of the raw file IN into OUT with DspScaler, nearest sample or linear,\n"
    "in the pixel format of IN (BT.601/BT.709 conversion on the way if asked); with --subpixel\n"
    "(or any of its options) DspSubPixelScaler maps a fractional source region onto a fractional\n"
    "output region with a choice of four kernels.\n"
    "\n"
    "  -s, --size WxH          size of the frames of IN\n"
    "  -f, -pix_fmt F          pixel format, name or code (see 'framedsp formats')\n"
    "  --to WxH                size of the frames of OUT\n"
    "  --factor X[,Y]          scale factors (Y defaults to X); without --to the output size is\n"
    "                          floor(W*X + 0.5) x floor(H*Y + 0.5), an odd frame height + 1\n"
    "  --fit                   let the library derive the output region from the factors\n"
    "                          (implied by --factor without --to)\n"
    "  --filter nearest|linear interpolation (default linear)\n"
    "  --interlaced            frames hold two interleaved fields: each field is scaled into\n"
    "                          the same field of the output\n"
    "  --field a|b             scale only field A (frame lines 0, 2, ...) or B of each frame;\n"
    "                          OUT holds fields of the --to size\n"
    "  --staged                scale through a private image (same bytes, other memory path)\n"
    "  --fir HT:HC,VT:VC       scale and FIR low-pass in one pass (the filtered path): taps 3..15\n"
    "                          and cut-off 0..99 per direction, 100 = off; a direction is only\n"
    "                          filtered when that axis is scaled (both on for a scale of both)\n"
    "  --colorspace 601:709|709:601\n"
    "                          convert the colour matrix (4:2:2 formats)\n"
    "  --subpixel              use DspSubPixelScaler (implied by the options below; with\n"
    "                          --interlaced each field is sampled at its true lines)\n"
    "  --src-rect X,Y,W,H      fractional source region (default the whole frame)\n"
    "  --dst-rect X,Y,W,H      fractional output region (default the whole output frame)\n"
    "  --kernel nearest|linear|cubic|lanczos3\n"
    "                          sub-pixel kernel (default cubic, Catmull-Rom)\n"
    "  --edge repeat|mirror|fill|untouched\n"
    "                          what taps past the picture read (fill: black)\n"
    "  --coverage              blend the partly covered first/last column and line\n"
    "\n"
    "examples:\n"
    "  framedsp scale in.yuv out.yuv -s 1920x1080 -pix_fmt uyvy422 --to 1280x720 --filter linear\n"
    "  framedsp scale -i in.yuv -s 720x486 -f uyvy422 --to 1920x1080 --interlaced -y hd.yuv\n"
    "  framedsp scale in.bgra half.bgra -s 640x480 -f bgra --factor 0.5\n"
    "  framedsp scale in.yuv a.yuv -s 1920x1080 -f uyvy422 --field a --to 1280x360\n"
    "  framedsp scale in.yuv soft.yuv -s 1920x1080 -f uyvy422 --to 1280x720 --fir 7:60,5:60\n"
    "  framedsp scale in.yuv crop.yuv -s 1280x720 -f uyvy422 --to 1920x1080 --subpixel \\\n"
    "      --src-rect 100.25,50.5,640,360 --kernel lanczos3\n";

void parse_factor(const std::string &text, float *x, float *y) {
  char *end = nullptr;
  const double fx = std::strtod(text.c_str(), &end);
  double fy = fx;
  if (end && *end == ',') fy = std::strtod(end + 1, &end);
  if (!end || *end != '\0' || !(fx > 0) || !(fy > 0) || fx > 64 || fy > 64) {
    throw UsageError("--factor expects X or X,Y with 0 < factor <= 64, e.g. 0.5 or 1.5,1.25; got '" +
                     text + "'");
  }
  *x = static_cast<float>(fx);
  *y = static_cast<float>(fy);
}

class Scale : public FrameCommand {
 public:
  Scale() : FrameCommand(1, Out::kRaw) {}

  void setup(const Parsed &parsed, Job &job) override {
    parse_choice(parsed);
    if (!parsed.has("--to") && !parsed.has("--factor")) {
      throw UsageError("give --to WxH or --factor X[,Y]");
    }
    if (parsed.has("--fit") && !parsed.has("--factor")) throw UsageError("--fit needs --factor");
    uint32_t to_w = 0, to_h = 0;
    if (parsed.has("--factor")) {
      parse_factor(parsed.get("--factor"), &choice_.factor_x, &choice_.factor_y);
    }
    if (parsed.has("--to")) {
      parse_size_option(parsed, "--to", &to_w, &to_h);
      choice_.derive = parsed.has("--fit");
    } else {
      // The size the library derives; a frame (not a field) keeps an even height.
      choice_.derive = true;
      const float fy = choice_.field >= 0 ? choice_.factor_y * 0.5f : choice_.factor_y;
      to_w = derived_length(job.in.width, choice_.factor_x);
      to_h = derived_length(job.in.height, fy);
      if (choice_.field < 0 && (to_h & 1)) ++to_h;
      if (format_info(job.in.format).even) to_w &= ~1u;
      if (to_w == 0 || to_h == 0) throw UsageError("the factors leave no picture");
    }
    if (!parsed.has("--factor")) {
      choice_.factor_x = static_cast<float>(to_w) / static_cast<float>(job.in.width);
      choice_.factor_y = static_cast<float>(to_h) / static_cast<float>(job.in.height);
    }
    job.out = packed_layout(job.in.format, to_w, to_h);
  }

  void frame(Job &job, uint64_t index, uint8_t *out) override {
    if (subpixel_) {
      check_status("DspSubPixelScaler", subpixel_scale_frame(job.in, job.input(index), job.out, out, choice_, sub_));
      return;
    }
    check_status("DspScaler", scale_frame(job.in, job.input(index), job.out, out, choice_));
  }

  std::string finish(Job &) override {
    const char *kernels[] = {"nearest", "linear", "cubic", "lanczos3"};
    std::string s = subpixel_ ? std::string("sub-pixel ") + kernels[sub_.kernel] : choice_.filter ? "linear" : "nearest";
    if (choice_.field >= 0) s += choice_.field == DSP_BUFFER_TYPE_FIELD_A ? ", field A" : ", field B";
    if (choice_.interlaced) s += ", field by field";
    if (choice_.staged) s += ", staged";
    if (choice_.fir) s += ", FIR on the scaled axes";
    return s;
  }

 private:
  void parse_subpixel(const Parsed &parsed) {
    for (const char *o : {"--subpixel", "--src-rect", "--dst-rect", "--kernel", "--edge", "--coverage"}) {
      subpixel_ = subpixel_ || parsed.has(o);
    }
    if (!subpixel_) return;
    if (parsed.has("--field")) throw UsageError("--field is not taken with --subpixel (use --interlaced)");
    if (parsed.has("--filter")) throw UsageError("--filter is DspScaler's; give --kernel with --subpixel");
    if (parsed.has("--src-rect")) parse_rect(parsed.get("--src-rect"), "--src-rect", sub_.src);
    if (parsed.has("--dst-rect")) parse_rect(parsed.get("--dst-rect"), "--dst-rect", sub_.dst);
    if (parsed.has("--kernel")) sub_.kernel = parse_kernel(parsed.get("--kernel"));
    if (parsed.has("--edge")) sub_.edge = parse_edge(parsed.get("--edge"));
    sub_.coverage = parsed.has("--coverage");
  }

  void parse_choice(const Parsed &parsed) {
    parse_subpixel(parsed);
    if (parsed.has("--filter")) choice_.filter = parse_interpolation(parsed.get("--filter"));
    if (parsed.has("--field")) {
      choice_.field = static_cast<int>(parse_field(parsed.get("--field"), "--field"));
      if (parsed.has("--interlaced")) {
        throw UsageError("--field and --interlaced exclude each other");
      }
    }
    choice_.interlaced = parsed.has("--interlaced");
    choice_.staged = parsed.has("--staged");
    if (parsed.has("--fir")) {
      choice_.fir = true;
      parse_fir(parsed.get("--fir"), &choice_.fir_settings);
    }
    if (parsed.has("--colorspace")) {
      parse_colorspace(parsed.get("--colorspace"), &choice_.in_space, &choice_.out_space);
    }
  }

  ScaleChoice choice_;
  bool subpixel_ = false;
  SubPixelChoice sub_;
};

}  // namespace

extern const Command kScaleCommand = {"scale",
                                      "resize frames (nearest or linear), or fractional regions (four kernels)",
                                      kHelp,
                                      Common::kClip,
                                      {{"--to", true},
                                       {"--factor", true},
                                       {"--fit", false},
                                       {"--filter", true},
                                       {"--interlaced", false},
                                       {"--field", true},
                                       {"--staged", false},
                                       {"--fir", true},
                                       {"--colorspace", true},
                                       {"--subpixel", false},
                                       {"--src-rect", true},
                                       {"--dst-rect", true},
                                       {"--kernel", true},
                                       {"--edge", true},
                                       {"--coverage", false}},
                                      run_clip<Scale>};

}  // namespace cli
}  // namespace framedsp
