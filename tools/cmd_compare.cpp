// `framedsp compare`: DspCompare on every pair of frames, a table of the figures.
#include <algorithm>
#include <cstdio>

#include "calls.h"
#include "formats.h"
#include "frame_loop.h"

namespace framedsp {
namespace cli {

namespace {

const char kHelp[] =
    "usage: framedsp compare A B -s WxH -pix_fmt F [options]\n"
    "\n"
    "Compares raw video files A and B frame by frame with DspCompare and prints the MSE and\n"
    "PSNR of each channel per frame and overall.\n"
    "\n"
    "  -s, --size WxH       frame size in pixels (required)\n"
    "  -f, -pix_fmt F       pixel format, name or code (required; see 'framedsp formats'):\n"
    "                       bgra, bgr24, bgr24+key, uyvy422, yuyv422, uyvy422+key,\n"
    "                       yuyv422+key, gray\n"
    "  --stride N           bytes from one line to the next (default: width * bytes a pixel)\n"
    "  --key-stride N       the same for the key plane of +key formats (default: width)\n"
    "  --diff OUT.png       write the difference image of one frame as a gray PNG\n"
    "  --frame N            the frame --diff shows, counted from 0 (default 0)\n"
    "  --diff-raw OUT.raw   write the difference images of all frames, in the input layout\n"
    "\n"
    "Files: frames back to back; a frame is H lines of --stride bytes, then for +key formats\n"
    "H lines of --key-stride bytes of key.  Both files must hold the same whole number of\n"
    "frames.  4:2:2 formats need an even width.\n"
    "\n"
    "Channels: Y U V for 4:2:2, B G R (A) for bgr24 and bgra, key for gray and key planes.\n"
    "MSE = sum of squared byte differences / pixel count; the 4:2:2 chroma channels have\n"
    "half as many samples but are divided by the full pixel count as well.\n"
    "PSNR = 20*log10(255/sqrt(MSE + 0.00001)) dB, 98.131 dB for identical frames.\n"
    "overall = mean of the per-frame MSE (every frame has the same pixel count, so this is\n"
    "the MSE over all pixels of all frames); its PSNR is computed from it the same way.\n"
    "\n"
    "Difference image: every byte is a - b + 128 clamped to 0..255 (128 = equal).  The PNG\n"
    "shows each byte of a line as one gray pixel, in memory order: a 4:2:2 frame of W x H\n"
    "pixels gives a 2W x H image (U Y V Y ... for uyvy422), bgr24 3W x H, bgra 4W x H.\n"
    "For +key formats the key plane follows below the picture (twice the height); where it\n"
    "is narrower than the picture the remainder is 128.\n"
    "\n"
    "examples:\n"
    "  framedsp compare a.yuv b.yuv -s 720x486 -pix_fmt uyvy422\n"
    "  framedsp compare -i a.raw -i b.raw -s 1920x1080 -f bgra --diff d.png --frame 3\n"
    "  framedsp compare a.raw b.raw -s 720x486 -f 28 --stride 1536 --diff-raw d.raw -y\n";

class Compare : public FrameCommand {
 public:
  Compare() : FrameCommand(2, Out::kNone) {}

  void setup(const Parsed &parsed, Job &job) override {
    const FormatInfo &info = format_info(job.in.format);
    if (!info.compare) {
      throw UsageError(format_label(job.in.format) +
                       " is not accepted by compare; accepted: " + compare_format_list());
    }
    if (parsed.has("--frame") && !parsed.has("--diff")) {
      throw UsageError("--frame selects the frame of --diff; give --diff too");
    }
    shown_index_ = parsed.has("--frame") ? parse_count(parsed.get("--frame"), "--frame", 0) : 0;
    if (parsed.has("--diff")) png_ = job.output(parsed.get("--diff"));
    if (parsed.has("--diff-raw")) job.out_path = parsed.get("--diff-raw");
    for (int slot = 0; slot < 4; ++slot) {
      if (info.channels[slot]) channels_.push_back({info.channels[slot], slot, 0});
    }
  }

  uint64_t begin(Job &job) override {
    if (shown_index_ >= job.in_frames) {
      throw UsageError("--frame " + std::to_string(shown_index_) + " is past the last frame (" +
                       std::to_string(job.in_frames - 1) + ")");
    }
    std::printf("\n%-9s", "frame");
    for (const Channel &c : channels_) {
      std::printf(" %12s %8s", (std::string(c.name) + " MSE").c_str(),
                  (std::string(c.name) + " PSNR").c_str());
    }
    std::printf("\n");
    return job.in_frames;
  }

  void frame(Job &job, uint64_t index, uint8_t *out) override {
    std::fill(out, out + job.out.frame_bytes, 128);  // stride padding reads as "equal"
    double results[8];
    std::string error;
    if (!compare_frame(job.in, job.input(index, 0), job.input(index, 1), out, results, &error)) {
      throw RuntimeError(error);
    }
    std::vector<double> mse;
    for (Channel &c : channels_) {
      mse.push_back(results[c.slot]);
      c.mse_sum += results[c.slot];
    }
    print_row(std::to_string(index).c_str(), mse);
    if (index == shown_index_) shown_.assign(out, out + job.out.frame_bytes);
  }

  std::string finish(Job &job) override {
    std::vector<double> mse;
    for (const Channel &c : channels_) mse.push_back(c.mse_sum / static_cast<double>(job.in_frames));
    print_row("overall", mse);
    std::printf(
        "\nMSE: sum of squared differences / pixel count (4:2:2 chroma too); PSNR in dB =\n"
        "20*log10(255/sqrt(MSE+0.00001)); overall: mean of the per-frame MSE, PSNR from it.\n");
    if (!png_.empty()) {
      std::string error;
      if (!write_png(png_, bytes_as_gray(job.in, shown_.data()), &error)) {
        throw RuntimeError(error);
      }
      std::printf("difference image of frame %u: %s\n", shown_index_, png_.c_str());
    }
    return "difference images of all frames";
  }

 private:
  struct Channel {
    const char *name;
    int slot;
    double mse_sum;
  };

  void print_row(const char *label, const std::vector<double> &mse) const {
    std::printf("%-9s", label);
    for (double m : mse) std::printf(" %12.6f %8.3f", m, psnr_of_mse(m));
    std::printf("\n");
  }

  std::vector<Channel> channels_;
  uint32_t shown_index_ = 0;
  std::string png_;
  std::vector<uint8_t> shown_;
};

}  // namespace

extern const Command kCompareCommand = {
    "compare",
    "MSE and PSNR per channel between two raw video files; difference images",
    kHelp,
    Common::kClip,
    {{"--stride", true},
     {"--key-stride", true},
     {"--diff", true},
     {"--diff-raw", true},
     {"--frame", true}},
    run_clip<Compare>};

}  // namespace cli
}  // namespace framedsp
