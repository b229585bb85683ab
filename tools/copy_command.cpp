#include "copy_command.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "args.h"
#include "progress.h"
#include "formats.h"
#include "lines/pixel_format.h"

namespace framedsp {
namespace cli {

const char kCopyHelp[] =
    "usage: framedsp copy IN OUT -s WxH --format F [options]\n"
    "\n"
    "Copies every frame of the raw file IN into OUT with DspBufferSmartCopy: regions, fields\n"
    "out of interleaved frames and back, bottom-up storage, field dominance and BT.601/BT.709.\n"
    "The pixel format never changes.\n"
    "\n"
    "  -s, --size WxH          size of the frames of IN (of the fields, with --to-frame)\n"
    "  -f, --format F          pixel format, name or code: bgra, bgr24, bgr24+key, uyvy422,\n"
    "                          yuyv422, uyvy422+key, yuyv422+key, gray, or 22, 24, 129\n"
    "  --region X,Y,W,H        copy only this part of IN; OUT is W x H (default: all of IN).\n"
    "                          4:2:2 formats need an even X and W\n"
    "  --field a|b             IN holds interleaved frames: write field A (frame lines 0, 2, ...)\n"
    "                          or field B (lines 1, 3, ...) of each; OUT is W x H/2\n"
    "  --to-frame a|b          IN holds fields: place each as field A or B of an interleaved\n"
    "                          W x 2H frame.  An existing OUT of as many frames keeps its other\n"
    "                          field; otherwise OUT is created with zero bytes there.  With\n"
    "                          --region the part lands at X, 2Y of the frame\n"
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
    "  framedsp copy in.yuv a.yuv -s 720x486 -f uyvy422 --field a\n"
    "  framedsp copy a.yuv frame.yuv -s 720x243 -f uyvy422 --to-frame a\n"
    "  framedsp copy in.yuv out.yuv -s 720x486 -f uyvy422 --colorspace 601:709\n"
    "  framedsp copy in.bgr flipped.bgr -s 640x480 -f bgr24 --flip\n"
    "  framedsp copy in.yuv swapped.yuv -s 720x486 -f uyvy422 --dominance 1,2\n";

namespace {

DSP_IMAGE describe(const CopySide &side) {
  DSP_IMAGE d;
  std::memset(&d, 0, sizeof d);
  const RawLayout &l = side.layout;
  const bool whole = side.w == 0 || side.h == 0;
  d.Buffer.pBuffer = side.pixels;
  d.Buffer.ulBytes = static_cast<uint32_t>(l.frame_bytes);
  d.Buffer.eBufferType = side.type;
  d.Buffer.Region.ptOffset.x = whole ? 0 : side.x;
  d.Buffer.Region.ptOffset.y = whole ? 0 : side.y;
  d.Buffer.Region.ulWidth = whole ? l.width : side.w;
  d.Buffer.Region.ulHeight = whole ? l.height : side.h;
  d.ulWidth = l.width;
  d.ulHeight = l.height;
  d.ePixelFormat = l.format;
  d.eInterlace = side.interlace;
  d.eImageOrientation = side.orientation;
  d.eColorSpace = side.color_space;
  d.ulPrimaryStrideBytes = l.stride;
  d.ulSecondaryStrideBytes = l.key_stride;
  return d;
}

struct RegionArg {
  bool given = false;
  uint32_t x = 0, y = 0, w = 0, h = 0;
};

RegionArg parse_region(const std::string &text, const RawLayout &in) {
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
  RegionArg r{true, v[0], v[1], v[2], v[3]};
  if (uint64_t{r.x} + r.w > in.width || uint64_t{r.y} + r.h > in.height) {
    throw UsageError("--region " + text + " does not fit into " + std::to_string(in.width) + "x" +
                     std::to_string(in.height));
  }
  if (!has_full_chroma(in.format) && (r.x % 2 != 0 || r.w % 2 != 0)) {
    throw UsageError(format_label(in.format) +
                     " needs an even region X and width (pairs of pixels share chroma)");
  }
  return r;
}

uint32_t parse_field(const std::string &text, const char *option) {
  if (text == "a" || text == "A") return DSP_BUFFER_TYPE_FIELD_A;
  if (text == "b" || text == "B") return DSP_BUFFER_TYPE_FIELD_B;
  throw UsageError(std::string(option) + " expects a or b, got '" + text + "'");
}

uint32_t parse_dominance(const std::string &text) {
  const std::string usage =
      "--dominance expects IN,OUT[,up] with 1 or 2, e.g. 1,2; got '" + text + "'";
  if (text.size() < 3 || text[1] != ',') throw UsageError(usage);
  auto field = [&](char c) {
    if (c != '1' && c != '2') throw UsageError(usage);
    return c == '2';
  };
  uint32_t flags = 0;
  if (field(text[0])) flags |= DSP_BUFFER_IN_FIELD2_DOMINANCE;
  if (field(text[2])) flags |= DSP_BUFFER_OUT_FIELD2_DOMINANCE;
  if (text.size() == 3) return flags;
  if (text.substr(3) != ",up") throw UsageError(usage);
  return flags | DSP_BUFFER_DOMINANCE_BY_SHIFTING_UP;
}

void parse_colorspace(const std::string &text, uint32_t *in, uint32_t *out) {
  if (text == "601:709") {
    *in = DSP_COLOR_SPACE_BT601;
    *out = DSP_COLOR_SPACE_BT709;
  } else if (text == "709:601") {
    *in = DSP_COLOR_SPACE_BT709;
    *out = DSP_COLOR_SPACE_BT601;
  } else {
    throw UsageError("--colorspace expects 601:709 or 709:601, got '" + text + "'");
  }
}

RawLayout layout_of(uint32_t format, uint32_t width, uint32_t height) {
  RawLayout l;
  std::string error;
  if (!make_layout(format, width, height, 0, 0, &l, &error)) throw UsageError(error);
  return l;
}

bool same_file(const std::string &a, const std::string &b) {
  std::error_code ec;
  return std::filesystem::exists(b, ec) && std::filesystem::equivalent(a, b, ec);
}

}  // namespace

DSP_HRESULT copy_buffer(const CopySide &in, const CopySide &out, uint32_t flags) {
  DSP_BUFFER buffer;
  std::memset(&buffer, 0, sizeof buffer);
  buffer.In = describe(in);
  buffer.Out = describe(out);
  buffer.ulFlags = flags;
  return DspBufferSmartCopy(&buffer);
}

std::string copy_status_text(DSP_HRESULT status) {
  char text[64];
  std::snprintf(text, sizeof text, "DspBufferSmartCopy returned 0x%08X",
                static_cast<unsigned>(status));
  return text;
}

int cmd_copy(const std::vector<std::string> &args) {
  const Parsed parsed = parse(args, {{"--size", "-s", true},
                                     {"--format", "-f", true},
                                     {"--region", nullptr, true},
                                     {"--field", nullptr, true},
                                     {"--to-frame", nullptr, true},
                                     {"--flip", nullptr, false},
                                     {"--dominance", nullptr, true},
                                     {"--colorspace", nullptr, true}});
  if (parsed.help) return std::fputs(kCopyHelp, stdout), kExitOk;
  expect_positional(parsed, 2, "files: framedsp copy IN OUT -s WxH --format F");
  uint32_t width = 0, height = 0, format = 0;
  parse_size_and_format(parsed, &width, &height, &format);
  std::string error;
  if (!copy_filter_format(format)) {
    throw UsageError(format_label(format) + " is not accepted by the copy");
  }
  if (parsed.has("--field") && parsed.has("--to-frame")) {
    throw UsageError("--field and --to-frame exclude each other");
  }
  const std::string &in_path = parsed.positional[0], &out_path = parsed.positional[1];
  if (same_file(in_path, out_path)) throw UsageError("IN and OUT are the same file");

  CopySide in, out;
  in.layout = layout_of(format, width, height);
  const RegionArg region =
      parsed.has("--region") ? parse_region(parsed.get("--region"), in.layout) : RegionArg{};
  const uint32_t rw = region.given ? region.w : width, rh = region.given ? region.h : height;
  if (region.given) {
    in.x = static_cast<int32_t>(region.x);
    in.y = static_cast<int32_t>(region.y);
    in.w = region.w;
    in.h = region.h;
  }
  uint32_t flags = parsed.has("--dominance") ? parse_dominance(parsed.get("--dominance")) : 0;
  if (parsed.has("--colorspace")) {
    parse_colorspace(parsed.get("--colorspace"), &in.color_space, &out.color_space);
  }
  if (parsed.has("--flip")) out.orientation = DSP_ORIENTATION_BOTTOM_UP;

  std::string what;
  if (parsed.has("--field")) {
    out.type = parse_field(parsed.get("--field"), "--field");
    if (rh % 2 != 0)
      throw UsageError("--field needs an even number of frame lines, got " + std::to_string(rh));
    in.interlace = DSP_INTERLACE_INTERLEAVED;
    out.interlace = kFieldInterlace;
    out.layout = layout_of(format, rw, rh / 2);
    what = std::string("field ") + (out.type == DSP_BUFFER_TYPE_FIELD_A ? "A" : "B");
  } else if (parsed.has("--to-frame")) {
    in.type = parse_field(parsed.get("--to-frame"), "--to-frame");
    in.interlace = kFieldInterlace;
    out.interlace = DSP_INTERLACE_INTERLEAVED;
    out.layout = layout_of(format, width, 2 * height);
    if (region.given) {
      out.x = in.x;
      out.y = 2 * in.y;
      out.w = rw;
      out.h = 2 * rh;
    }
    what = std::string("placed as field ") + (in.type == DSP_BUFFER_TYPE_FIELD_A ? "A" : "B");
  } else {
    if (flags) in.interlace = out.interlace = DSP_INTERLACE_INTERLEAVED;
    out.layout = layout_of(format, rw, rh);
    what = "frames";
  }

  RawReader reader;
  if (!reader.open(in_path, in.layout, &error)) throw RuntimeError(error);
  const uint64_t frames = reader.frames();
  // --to-frame into an existing file: its frames are the starting point of each output frame.
  std::vector<uint8_t> existing;
  if (parsed.has("--to-frame") && std::filesystem::exists(out_path)) {
    RawReader previous;
    if (!previous.open(out_path, out.layout, &error)) throw RuntimeError(error);
    if (previous.frames() != frames) {
      throw RuntimeError(out_path + " holds " + std::to_string(previous.frames()) +
                         " frame(s) but " + in_path + " holds " + std::to_string(frames));
    }
    existing.resize(out.layout.frame_bytes * frames);
    for (uint64_t f = 0; f < frames; ++f) {
      if (!previous.read(f, existing.data() + f * out.layout.frame_bytes, &error)) {
        throw RuntimeError(error);
      }
    }
  }

  RawWriter writer;
  if (!writer.open(out_path, &error)) throw RuntimeError(error);
  std::vector<uint8_t> source(in.layout.frame_bytes), target(out.layout.frame_bytes);
  in.pixels = source.data();
  out.pixels = target.data();
  Progress progress("copy", frames, parsed.progress);
  for (uint64_t f = 0; f < frames; ++f) {
    if (!reader.read(f, source.data(), &error)) throw RuntimeError(error);
    if (existing.empty()) {
      std::fill(target.begin(), target.end(), 0);
    } else {
      std::memcpy(target.data(), existing.data() + f * out.layout.frame_bytes, target.size());
    }
    const DSP_HRESULT status = copy_buffer(in, out, flags);
    if (status != DSP_S_OK) throw RuntimeError(copy_status_text(status));
    if (!writer.write(target.data(), target.size(), &error)) throw RuntimeError(error);
    progress.update(f + 1);
  }
  progress.finish();
  if (!writer.close(&error)) throw RuntimeError(error);
  std::printf("IN:  %s: %s; %llu frame%s\nOUT: %s: %s (%s%s%s)\n", in_path.c_str(),
              describe_layout(in.layout).c_str(), static_cast<unsigned long long>(frames),
              frames == 1 ? "" : "s", out_path.c_str(), describe_layout(out.layout).c_str(),
              what.c_str(), out.orientation == DSP_ORIENTATION_BOTTOM_UP ? ", bottom-up" : "",
              in.color_space != out.color_space && !has_full_chroma(format)
                  ? ", BT.601/709 converted"
                  : "");
  return kExitOk;
}

}  // namespace cli
}  // namespace framedsp
