// `framedsp copy`: DspBufferSmartCopy on every frame.
#include <cstring>
#include <filesystem>

#include "calls.h"
#include "formats.h"
#include "frame_loop.h"

namespace framedsp {
namespace cli {

namespace {

const char kHelp[] =
    "usage: framedsp copy IN OUT -s WxH -pix_fmt F [options]\n"
    "\n"
    "Copies every frame of the raw file IN into OUT with DspBufferSmartCopy: regions, fields\n"
    "out of interleaved frames and back, bottom-up storage, field dominance and BT.601/BT.709.\n"
    "The pixel format never changes.\n"
    "\n"
    "  -s, --size WxH          size of the frames of IN (of the fields, with --to-frame)\n"
    "  -f, -pix_fmt F          pixel format, name or code: bgra, bgr24, bgr24+key, uyvy422,\n"
    "                          yuyv422, uyvy422+key, yuyv422+key, gray, or 22, 23, 24, 129\n"
    "  --region X,Y,W,H        copy only this part of IN; OUT is W x H (default: all of IN).\n"
    "                          4:2:2 formats need an even X and W\n"
    "  --field a|b             IN holds interleaved frames: write field A (frame lines 0, 2, ...)\n"
    "                          or field B (lines 1, 3, ...) of each; OUT is W x H/2\n"
    "  --to-frame a|b          IN holds fields: place each as field A or B of an interleaved\n"
    "                          W x 2H frame.  An existing OUT of as many frames (-y) keeps its\n"
    "                          other field; a new OUT has zero bytes there.  With --region the\n"
    "                          part lands at X, 2Y of the frame\n"
    "  --flip                  store OUT bottom-up (the picture's lines in reverse memory order)\n"
    "  --dominance I,O[,up]    field dominance of IN and OUT, 1 or 2 (2: the second field comes\n"
    "                          first in time); 'up' changes it by shifting lines up instead of\n"
    "                          down.  Frames are then handled as interleaved fields\n"
    "  --colorspace 601:709|709:601\n"
    "                          convert the colour matrix (4:2:2 formats; key planes and the\n"
    "                          other formats are copied unchanged)\n"
    "\n"
    "Files: frames back to back, lines tightly packed; +key formats carry their key plane\n"
    "after each picture, which is copied with it.\n"
    "\n"
    "examples:\n"
    "  framedsp copy in.yuv crop.yuv -s 1920x1080 -f uyvy422 --region 480,270,960,540\n"
    "  framedsp copy -i in.yuv -s 720x486 -pix_fmt uyvy422 --field a a.yuv\n"
    "  framedsp copy a.yuv frame.yuv -s 720x243 -f uyvy422 --to-frame a\n"
    "  framedsp copy in.yuv out.yuv -s 720x486 -f uyvy422 --colorspace 601:709 -y\n"
    "  framedsp copy in.bgr flipped.bgr -s 640x480 -f bgr24 --flip\n"
    "  framedsp copy in.yuv swapped.yuv -s 720x486 -f uyvy422 --dominance 1,2\n";

void parse_region(const std::string &text, CopySide *in) {
  uint32_t v[4];
  size_t start = 0;
  for (int i = 0; i < 4; ++i) {
    const size_t comma = text.find(',', start);
    if ((i < 3) == (comma == std::string::npos)) {
      throw UsageError("--region expects X,Y,W,H, e.g. 16,8,64,32; got '" + text + "'");
    }
    v[i] = parse_count(text.substr(start, comma - start), "--region", i < 2 ? 0 : 1);
    start = comma + 1;
  }
  const RawLayout &l = in->layout;
  if (uint64_t{v[0]} + v[2] > l.width || uint64_t{v[1]} + v[3] > l.height) {
    throw UsageError("--region " + text + " does not fit into " + std::to_string(l.width) + "x" +
                     std::to_string(l.height));
  }
  if (format_info(l.format).even && (v[0] % 2 != 0 || v[2] % 2 != 0)) {
    throw UsageError(format_label(l.format) +
                     " needs an even region X and width (pairs of pixels share chroma)");
  }
  in->x = static_cast<int32_t>(v[0]);
  in->y = static_cast<int32_t>(v[1]);
  in->w = v[2];
  in->h = v[3];
}

uint32_t parse_dominance(const std::string &text) {
  const std::string usage =
      "--dominance expects IN,OUT[,up] with 1 or 2, e.g. 1,2; got '" + text + "'";
  if (text.size() < 3 || text[1] != ',') throw UsageError(usage);
  auto second = [&](char c) {
    if (c != '1' && c != '2') throw UsageError(usage);
    return c == '2';
  };
  uint32_t flags = 0;
  if (second(text[0])) flags |= DSP_BUFFER_IN_FIELD2_DOMINANCE;
  if (second(text[2])) flags |= DSP_BUFFER_OUT_FIELD2_DOMINANCE;
  if (text.size() == 3) return flags;
  if (text.substr(3) != ",up") throw UsageError(usage);
  return flags | DSP_BUFFER_DOMINANCE_BY_SHIFTING_UP;
}

class Copy : public FrameCommand {
 public:
  Copy() : FrameCommand(1, Out::kRaw) {}

  void setup(const Parsed &parsed, Job &job) override {
    const uint32_t format = job.in.format;
    if (!format_info(format).copy_filter) {
      throw UsageError(format_label(format) + " is not accepted by the copy");
    }
    if (parsed.has("--field") && parsed.has("--to-frame")) {
      throw UsageError("--field and --to-frame exclude each other");
    }
    in_.layout = job.in;
    if (parsed.has("--region")) parse_region(parsed.get("--region"), &in_);
    const uint32_t rw = in_.w ? in_.w : job.in.width, rh = in_.h ? in_.h : job.in.height;
    flags_ = parsed.has("--dominance") ? parse_dominance(parsed.get("--dominance")) : 0;
    if (parsed.has("--colorspace")) {
      parse_colorspace(parsed.get("--colorspace"), &in_.color_space, &out_.color_space);
    }
    if (parsed.has("--flip")) out_.orientation = DSP_ORIENTATION_BOTTOM_UP;
    if (parsed.has("--field")) {
      out_.type = parse_field(parsed.get("--field"), "--field");
      if (rh % 2 != 0) {
        throw UsageError("--field needs an even number of frame lines, got " + std::to_string(rh));
      }
      in_.interlace = DSP_INTERLACE_INTERLEAVED;
      out_.layout = packed_layout(format, rw, rh / 2);
      what_ = out_.type == DSP_BUFFER_TYPE_FIELD_A ? "field A" : "field B";
    } else if (parsed.has("--to-frame")) {
      in_.type = parse_field(parsed.get("--to-frame"), "--to-frame");
      out_.interlace = DSP_INTERLACE_INTERLEAVED;
      out_.layout = packed_layout(format, job.in.width, 2 * job.in.height);
      if (in_.w) out_ = placed(out_, in_.x, 2 * in_.y, rw, 2 * rh);
      what_ = in_.type == DSP_BUFFER_TYPE_FIELD_A ? "placed as field A" : "placed as field B";
    } else {
      if (flags_) in_.interlace = out_.interlace = DSP_INTERLACE_INTERLEAVED;
      out_.layout = packed_layout(format, rw, rh);
      what_ = "frames";
    }
    if (out_.orientation == DSP_ORIENTATION_BOTTOM_UP) what_ += ", bottom-up";
    if (in_.color_space != out_.color_space && format_info(format).even) {
      what_ += ", BT.601/709 converted";
    }
    job.out = out_.layout;
  }

  // --to-frame into an existing file: its frames are the starting point of the output frames.
  uint64_t begin(Job &job) override {
    std::error_code ec;
    if (in_.type == DSP_BUFFER_TYPE_FRAME || !std::filesystem::exists(job.out_path, ec)) {
      return job.in_frames;
    }
    RawReader previous;
    std::string error;
    if (!previous.open(job.out_path, job.out, &error)) throw RuntimeError(error);
    if (previous.frames() != job.in_frames) {
      throw RuntimeError(job.out_path + " holds " + std::to_string(previous.frames()) +
                         " frame(s) but " + job.in_paths[0] + " holds " +
                         std::to_string(job.in_frames));
    }
    existing_.resize(job.out.frame_bytes * job.in_frames);
    for (uint64_t f = 0; f < job.in_frames; ++f) {
      if (!previous.read(f, existing_.data() + f * job.out.frame_bytes, &error)) {
        throw RuntimeError(error);
      }
    }
    return job.in_frames;
  }

  void frame(Job &job, uint64_t index, uint8_t *out) override {
    if (!existing_.empty()) {
      std::memcpy(out, existing_.data() + index * job.out.frame_bytes, job.out.frame_bytes);
    }
    in_.pixels = const_cast<uint8_t *>(job.input(index));
    out_.pixels = out;
    check_status("DspBufferSmartCopy", copy_buffer(in_, out_, flags_));
  }

  std::string finish(Job &) override { return what_; }

 private:
  static CopySide placed(CopySide side, int32_t x, int32_t y, uint32_t w, uint32_t h) {
    side.x = x;
    side.y = y;
    side.w = w;
    side.h = h;
    return side;
  }

  CopySide in_, out_;
  uint32_t flags_ = 0;
  std::string what_;
  std::vector<uint8_t> existing_;
};

}  // namespace

extern const Command kCopyCommand = {
    "copy",
    "copy frames, regions and fields; flip; change field dominance or BT.601/709",
    kHelp,
    Common::kClip,
    {{"--region", true},
     {"--field", true},
     {"--to-frame", true},
     {"--flip", false},
     {"--dominance", true},
     {"--colorspace", true}},
    run_clip<Copy>};

}  // namespace cli
}  // namespace framedsp
