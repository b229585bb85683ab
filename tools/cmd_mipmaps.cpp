// `framedsp mipmaps`: a DspCreateMipMaps pyramid of one frame's luma, as a PNG strip.
#include <cstdio>

#include "calls.h"
#include "formats.h"
#include "frame_loop.h"

namespace framedsp {
namespace cli {

namespace {

const char kHelp[] =
    "usage: framedsp mipmaps IN.raw OUT.png -s WxH -pix_fmt F [--levels N] [--filter nearest|linear]\n"
    "                        [--frame N]\n"
    "\n"
    "Builds a pyramid of successively halved copies of one frame's luma with DspCreateMipMaps\n"
    "and writes the levels side by side, left to right and top-aligned, as one gray PNG of\n"
    "(sum of the level widths) x H pixels; the area below the smaller levels is black.\n"
    "Level 0 is the luma itself; level k is level k-1 halved (sizes rounded down), made by the\n"
    "library's integer-ratio scaler path from the 8-bit single-sample plane (format 263).\n"
    "\n"
    "  -s, --size WxH          frame size of IN\n"
    "  -f, -pix_fmt F          gray (one byte a pixel; 263 is read the same way), or the luma of\n"
    "                          uyvy422, yuyv422, uyvy422+key, yuyv422+key\n"
    "  --levels N              number of levels, level 0 included: 2..5 (default 5); every\n"
    "                          level must keep at least one pixel in each direction\n"
    "  --filter nearest|linear interpolation handed to every level (default linear)\n"
    "  --frame N               the frame of IN to use, counted from 0 (default 0)\n"
    "\n"
    "The tool checks afterwards that level 0 is still the luma it passed; the library does not\n"
    "report per-level results.\n"
    "\n"
    "examples:\n"
    "  framedsp mipmaps clip.raw strip.png -s 640x360 -pix_fmt uyvy422\n"
    "  framedsp mipmaps key.raw strip.png -s 256x256 -f gray --levels 3 --filter nearest -y\n";

class Mipmaps : public FrameCommand {
 public:
  Mipmaps() : FrameCommand(1, Out::kOther) {}

  void setup(const Parsed &parsed, Job &job) override {
    const uint32_t main = job.in.main_format;
    if (main != DSP_PIXEL_FORMAT_KEY8 && main != DSP_PIXEL_FORMAT_MIPMAP &&
        main != DSP_PIXEL_FORMAT_UYVY && main != DSP_PIXEL_FORMAT_YUYV) {
      throw UsageError("mipmaps reads the luma of gray, uyvy422, yuyv422, uyvy422+key or "
                       "yuyv422+key frames, not " + format_label(job.in.format));
    }
    uint32_t count = DSP_MIPMAP_MAX_LEVELS;
    if (parsed.has("--levels")) {
      count = parse_count(parsed.get("--levels"), "--levels", 2);
      if (count > DSP_MIPMAP_MAX_LEVELS) throw UsageError("--levels must be at most 5");
    }
    if (parsed.has("--filter")) filter_ = parse_interpolation(parsed.get("--filter"));
    index_ = parsed.has("--frame") ? parse_count(parsed.get("--frame"), "--frame", 0) : 0;
    std::string error;
    if (!pyramid_sizes(job.in.width, job.in.height, count, &levels_, &error)) {
      throw UsageError(error);
    }
  }

  // One step: the frame --frame selects.
  uint64_t begin(Job &job) override {
    if (index_ >= job.in_frames) {
      throw UsageError("--frame " + std::to_string(index_) + " is past the last frame (" +
                       std::to_string(job.in_frames - 1) + ")");
    }
    return 1;
  }

  void frame(Job &job, uint64_t, uint8_t *) override {
    levels_[0].samples = luma_of(job.in, job.input(index_));
    std::string error;
    if (!build_pyramid(&levels_, filter_, &ms_, &error)) throw RuntimeError(error);
  }

  std::string finish(Job &job) override {
    const Picture strip = mipmap_strip(levels_);
    std::string error;
    if (!write_png(job.other_out, strip, &error)) throw RuntimeError(error);
    std::printf("OUT: %s: %ux%u gray PNG of frame %u, %zu levels (%s), %.3f ms\n",
                job.other_out.c_str(), strip.width, strip.height, index_, levels_.size(),
                filter_ ? "linear" : "nearest", ms_);
    for (size_t k = 0; k < levels_.size(); ++k) {
      std::printf("  level %zu: %ux%u\n", k, levels_[k].width, levels_[k].height);
    }
    return "";
  }

 private:
  std::vector<MipLevel> levels_;
  uint32_t filter_ = DSP_SCALER_FILTER_LINEAR;
  uint32_t index_ = 0;
  double ms_ = 0;
};

}  // namespace

extern const Command kMipmapsCommand = {
    "mipmaps",
    "a pyramid of halved copies of a frame's luma, as a PNG strip",
    kHelp,
    Common::kClip,
    {{"--levels", true}, {"--filter", true}, {"--frame", true}},
    run_clip<Mipmaps>};

}  // namespace cli
}  // namespace framedsp
