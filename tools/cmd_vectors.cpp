// `framedsp vectors`: DspCreateMotionVectors between a frame of A and a frame of B, statistics
// of both fields and a PNG of the forward one.
#include <cstdio>
#include <cstdlib>

#include "calls.h"
#include "formats.h"
#include "frame_loop.h"

namespace framedsp {
namespace cli {

namespace {

const char kHelp[] =
    "usage: framedsp vectors A B OUT.png -s WxH -pix_fmt gray|263 [options]\n"
    "\n"
    "Estimates block motion from a frame of A to a frame of B and back with\n"
    "DspCreateMotionVectors, on pyramids of the two pictures made by DspCreateMipMaps (linear),\n"
    "prints the statistics of both fields and draws the forward field into OUT.png.\n"
    "\n"
    "  -s, --size WxH          frame size (required)\n"
    "  -f, -pix_fmt F          gray (one byte a pixel) or 263 (two planes of W x H bytes, the\n"
    "                          luma first; the luma is used)\n"
    "  --frame-a N, --frame-b N  the frames of A and B, counted from 0 (default 0 both; A and B\n"
    "                          may be the same file: --frame-b 1)\n"
    "  --levels N              pyramid levels, 1..5 (default 4; fewer when a level's width\n"
    "                          would be odd)\n"
    "  --block N               block size of the field, 8..32 (default 8)\n"
    "  --range R               search range at every level (default 1: the reach is\n"
    "                          R x (2^levels - 1) pixels, 15 with 4 levels)\n"
    "  --whole-pixel           no quarter-pixel refinement\n"
    "  --style arrows|wheel    arrows over the picture (default) or a colour wheel per block\n"
    "  --scale K               arrow length per pixel of motion (default 2)\n"
  "  --field FILE            also write the field as DspCreateMotionVectors wrote it: the\n"
  "                          48-byte DSP_VECTOR_FIELD header, then the 8-byte entries\n"
  "                          (forward, then backward), in this machine's byte order\n"
    "\n"
    "Arrows start at each block's centre: green, red for bad blocks (cost above the scene\n"
    "threshold), yellow where the forward and backward fields disagree.  The wheel colours each\n"
    "block by its direction (right red, down yellow-green, left cyan, up violet), brighter for\n"
    "longer vectors; bad blocks are black.  Both files must hold the same number of frames.\n"
    "\n"
    "examples:\n"
    "  framedsp vectors a.gray b.gray v.png -s 1280x720 -pix_fmt gray\n"
    "  framedsp vectors -i clip.263 -i clip.263 v.png -s 640x360 -f 263 --frame-b 1 --style wheel\n";

class Vectors : public FrameCommand {
 public:
  Vectors() : FrameCommand(2, Out::kOther) {}

  void setup(const Parsed &parsed, Job &job) override {
    const uint32_t format = job.in.format;
    if (format != DSP_PIXEL_FORMAT_KEY8 && format != DSP_PIXEL_FORMAT_MIPMAP) {
      throw UsageError("vectors reads gray or 263 frames, not " + format_label(format));
    }
    width_ = job.in.width;
    height_ = job.in.height;
    if (format == DSP_PIXEL_FORMAT_MIPMAP) {  // two planes of the same bytes
      std::string error;
      if (!make_layout(format, width_, 2 * height_, 0, 0, &job.in, &error)) throw UsageError(error);
    }
    frame_a_ = parsed.has("--frame-a") ? parse_count(parsed.get("--frame-a"), "--frame-a", 0) : 0;
    frame_b_ = parsed.has("--frame-b") ? parse_count(parsed.get("--frame-b"), "--frame-b", 0) : 0;
    if (parsed.has("--levels")) {
      choice_.levels = parse_count(parsed.get("--levels"), "--levels", 1);
      if (choice_.levels > 5) throw UsageError("--levels must be 1..5");
    }
    if (parsed.has("--block")) {
      choice_.block = parse_count(parsed.get("--block"), "--block", 8);
      if (choice_.block > 32) throw UsageError("--block must be 8..32");
    }
    if (parsed.has("--range")) choice_.range = parse_count(parsed.get("--range"), "--range", 1);
    // Search ranges are bounded by a quarter of the picture.
    const uint32_t range = choice_.range ? choice_.range : 1;
    if (width_ < 4 * range || height_ < 4 * range) {
      throw UsageError("a search range of " + std::to_string(range) + " needs a frame of at least " +
                       std::to_string(4 * range) + "x" + std::to_string(4 * range) + " pixels");
    }
    choice_.whole_pixel = parsed.has("--whole-pixel");
    if (parsed.has("--style")) {
      const std::string style = parsed.get("--style");
      if (style != "arrows" && style != "wheel") {
        throw UsageError("--style expects arrows or wheel, got '" + style + "'");
      }
      wheel_ = style == "wheel";
    }
    if (parsed.has("--field")) field_path_ = parsed.get("--field");
    if (parsed.has("--scale")) {
      char *end = nullptr;
      scale_ = std::strtod(parsed.get("--scale").c_str(), &end);
      if (*end || !(scale_ > 0 && scale_ <= 100)) throw UsageError("--scale expects a number in (0, 100]");
    }
  }

  // One step: the pair.
  uint64_t begin(Job &job) override {
    for (const uint32_t f : {frame_a_, frame_b_}) {
      if (f >= job.in_frames) {
        throw UsageError("frame " + std::to_string(f) + " is past the last frame (" +
                         std::to_string(job.in_frames - 1) + ")");
      }
    }
    return 1;
  }

  void frame(Job &job, uint64_t, uint8_t *) override {
    const size_t plane = static_cast<size_t>(width_) * height_;
    const uint8_t *a = job.input(frame_a_, 0);
    a_.assign(a, a + plane);
    const uint8_t *b = job.input(frame_b_, 1);
    const std::vector<uint8_t> luma_b(b, b + plane);
    std::string error;
    if (!estimate_vectors(a_, luma_b, width_, height_, choice_, &field_, &error)) throw RuntimeError(error);
  }

  std::string finish(Job &job) override {
    const DSP_VECTOR_FIELD &h = field_.header;
    std::printf("frames %u -> %u, %u levels, %ux%u blocks (%u x %u), DspCreateMotionVectors %.2f ms\n",
                frame_a_, frame_b_, field_.levels, h.ulBlockWidth, h.ulBlockHeight, h.ulColumns, h.ulRows,
                field_.ms);
    for (int dir = 0; dir < 2; ++dir) {
      for (const std::string &line : vector_statistics(field_, dir)) std::printf("%s\n", line.c_str());
    }
    std::string error;
    if (!write_png(job.other_out, draw_vectors(a_, width_, height_, field_, wheel_, scale_), &error)) {
      throw RuntimeError(error);
    }
    std::printf("OUT: %s: %ux%u PNG of the forward field (%s)\n", job.other_out.c_str(), width_, height_,
                wheel_ ? "colour wheel" : "arrows");
    if (!field_path_.empty()) write_field();
    return "";
  }

 private:
  void write_field() const {
    FILE *file = std::fopen(field_path_.c_str(), "wb");
    const size_t entries = field_.entries.size();
    const bool ok = file && std::fwrite(&field_.header, sizeof field_.header, 1, file) == 1 &&
                    std::fwrite(field_.entries.data(), sizeof(DSP_MOTION_VECTOR), entries, file) == entries;
    if (file && std::fclose(file) != 0) throw RuntimeError("cannot write " + field_path_);
    if (!ok) throw RuntimeError("cannot write " + field_path_);
    std::printf("OUT: %s: the field, %u bytes\n", field_path_.c_str(), field_.header.ulFieldBytes);
  }

  std::string field_path_;
  uint32_t width_ = 0, height_ = 0, frame_a_ = 0, frame_b_ = 0;
  VectorChoice choice_;
  bool wheel_ = false;
  double scale_ = 2;
  std::vector<uint8_t> a_;
  VectorField field_;
};

}  // namespace

extern const Command kVectorsCommand = {
    "vectors",
    "block motion vectors between two frames: statistics and a PNG of the field",
    kHelp,
    Common::kClip,
    {{"--frame-a", true},
     {"--frame-b", true},
     {"--levels", true},
     {"--block", true},
     {"--range", true},
     {"--whole-pixel", false},
     {"--style", true},
     {"--scale", true},
     {"--field", true}},
    run_clip<Vectors>};

}  // namespace cli
}  // namespace framedsp
