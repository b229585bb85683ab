// `framedsp filter`: DspFilter on every frame.
#include "calls.h"
#include "formats.h"
#include "frame_loop.h"

namespace framedsp {
namespace cli {

namespace {

const char kHelp[] =
    "usage: framedsp filter IN OUT -s WxH -pix_fmt F (--fir H,V | --box WxH) [options]\n"
    "\n"
    "Low-pass filters every frame of the raw file IN into OUT with DspFilter: a separable FIR\n"
    "or a box (moving-average) filter over the packed samples of the format.  The size and\n"
    "pixel format do not change.\n"
    "\n"
    "  -s, --size WxH          frame size in pixels (required)\n"
    "  -f, -pix_fmt F          pixel format, name or code: bgra, bgr24, bgr24+key, uyvy422,\n"
    "                          yuyv422, uyvy422+key, yuyv422+key, gray, or 22, 23, 24, 129\n"
    "  --fir HT:HC,VT:VC       FIR low-pass: taps (3..15; even counts use the next lower odd\n"
    "                          kernel) and cut-off (0..100, the pass band in percent of\n"
    "                          Nyquist) horizontally, then vertically.  Cut-off 100 switches\n"
    "                          that direction off (its taps are then not checked).  A single\n"
    "                          T:C applies to both directions\n"
    "  --box WxH               box filter: W columns by H rows averaged (each 0..256; 0 switches\n"
    "                          that direction off, 1 averages a single sample)\n"
    "  --temp-frame            filter into a temporary frame inside the library, then copy it\n"
    "  --interlaced            the frames hold two interleaved fields: vertical filtering mixes\n"
    "                          only lines of the same field\n"
    "\n"
    "Exactly one of --fir and --box.  With every direction off the frames are copied unchanged.\n"
    "Files: frames back to back, lines tightly packed; +key formats carry their key plane after\n"
    "each picture, which is filtered with it.  4:2:2 formats need an even width.\n"
    "\n"
    "examples:\n"
    "  framedsp filter in.yuv soft.yuv -s 1920x1080 -f uyvy422 --fir 7:50,7:50\n"
    "  framedsp filter in.yuv hsoft.yuv -s 720x486 -f uyvy422 --fir 15:30,3:100 --interlaced\n"
    "  framedsp filter -i in.bgra -s 1280x720 -pix_fmt bgra --box 9x9 -y blur.bgra\n"
    "  framedsp filter in.bgra rows.bgra -s 1280x720 -f bgra --box 31x0 --temp-frame\n";

std::string settings_text(const FilterChoice &choice) {
  auto fir = [](uint32_t taps, uint32_t cutoff) {
    return cutoff == 100 ? std::string("off")
                         : std::to_string(taps) + " taps at " + std::to_string(cutoff) + " %";
  };
  auto box = [](uint32_t size) { return size == 0 ? std::string("off") : std::to_string(size); };
  std::string s = choice.type == DSP_FILTER_TYPE_FIR
                      ? "FIR horizontal " + fir(choice.fir.ulHorzTaps, choice.fir.ulHorzCutoff) +
                            ", vertical " + fir(choice.fir.ulVertTaps, choice.fir.ulVertCutoff)
                      : "box horizontal " + box(choice.box.ulHorzSize) + ", vertical " +
                            box(choice.box.ulVertSize);
  if (choice.interlaced) s += ", by fields";
  if (choice.temp_frame) s += ", through a temporary frame";
  return s;
}

class Filter : public FrameCommand {
 public:
  Filter() : FrameCommand(1, Out::kRaw) {}

  void setup(const Parsed &parsed, Job &job) override {
    if (!format_info(job.in.format).copy_filter) {
      throw UsageError(format_label(job.in.format) + " is not accepted by the filter");
    }
    if (parsed.has("--fir") == parsed.has("--box")) {
      throw UsageError("give exactly one of --fir TAPS:CUTOFF,TAPS:CUTOFF and --box WxH");
    }
    if (parsed.has("--fir")) {
      choice_.type = DSP_FILTER_TYPE_FIR;
      parse_fir(parsed.get("--fir"), &choice_.fir);
    } else {
      choice_.type = DSP_FILTER_TYPE_BOX;
      parse_box(parsed.get("--box"), &choice_.box);
    }
    choice_.temp_frame = parsed.has("--temp-frame");
    choice_.interlaced = parsed.has("--interlaced");
  }

  void frame(Job &job, uint64_t index, uint8_t *out) override {
    const DSP_HRESULT status = filter_frame(job.in, job.input(index), out, choice_);
    if (status != DSP_S_OK) {
      throw RuntimeError(status_text("DspFilter", status) + " on frame " + std::to_string(index));
    }
  }

  std::string finish(Job &) override { return settings_text(choice_); }

 private:
  FilterChoice choice_;
};

}  // namespace

extern const Command kFilterCommand = {
    "filter",
    "FIR low-pass or box-blur frames, per direction",
    kHelp,
    Common::kClip,
    {{"--fir", true}, {"--box", true}, {"--temp-frame", false}, {"--interlaced", false}},
    run_clip<Filter>};

}  // namespace cli
}  // namespace framedsp
