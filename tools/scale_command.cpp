#include "scale_command.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "args.h"
#include "progress.h"
#include "filter_command.h"
#include "formats.h"
#include "lines/pixel_format.h"

namespace framedsp {
namespace cli {

const char kScaleHelp[] =
    "usage: framedsp scale IN OUT -s WxH --format F (--to WxH | --factor X[,Y]) [options]\n"
    "\n"
    "Resizes every frame of the raw file IN into OUT with DspScaler, nearest sample or linear,\n"
    "in the pixel format of IN (BT.601/BT.709 conversion on the way if asked).\n"
    "\n"
    "  -s, --size WxH          size of the frames of IN\n"
    "  -f, --format F          pixel format, name or code (see 'framedsp formats')\n"
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
    "\n"
    "examples:\n"
    "  framedsp scale in.yuv out.yuv -s 1920x1080 --format uyvy422 --to 1280x720 --filter linear\n"
    "  framedsp scale in.yuv hd.yuv -s 720x486 -f uyvy422 --to 1920x1080 --interlaced\n"
    "  framedsp scale in.bgra half.bgra -s 640x480 -f bgra --factor 0.5\n"
    "  framedsp scale in.yuv a.yuv -s 1920x1080 -f uyvy422 --field a --to 1280x360\n"
    "  framedsp scale in.yuv soft.yuv -s 1920x1080 -f uyvy422 --to 1280x720 --fir 7:60,5:60\n";

namespace {

DSP_IMAGE describe(const RawLayout &l, const uint8_t *pixels, uint32_t type, uint32_t interlace,
                   uint32_t space) {
  DSP_IMAGE d;
  std::memset(&d, 0, sizeof d);
  d.Buffer.pBuffer = const_cast<uint8_t *>(pixels);
  d.Buffer.ulBytes = static_cast<uint32_t>(l.frame_bytes);
  d.Buffer.eBufferType = type;
  d.Buffer.Region.ulWidth = l.width;
  d.Buffer.Region.ulHeight = l.height;
  d.ulWidth = l.width;
  d.ulHeight = l.height;
  d.ePixelFormat = l.format;
  d.eInterlace = interlace;
  d.eColorSpace = space;
  d.ulPrimaryStrideBytes = l.stride;
  d.ulSecondaryStrideBytes = l.key_stride;
  return d;
}

void parse_factor(const std::string &text, float *x, float *y) {
  char *end = nullptr;
  const double fx = std::strtod(text.c_str(), &end);
  double fy = fx;
  if (end && *end == ',') fy = std::strtod(end + 1, &end);
  if (!end || *end != '\0' || !(fx > 0) || !(fy > 0) || fx > 64 || fy > 64) {
    throw UsageError("--factor expects X or X,Y with 0 < factor <= 64, e.g. 0.5 or 1.5,1.25; got '" + text + "'");
  }
  *x = static_cast<float>(fx);
  *y = static_cast<float>(fy);
}

RawLayout layout_of(uint32_t format, uint32_t width, uint32_t height) {
  RawLayout l;
  std::string error;
  if (!make_layout(format, width, height, 0, 0, &l, &error)) throw UsageError(error);
  return l;
}

}  // namespace

uint32_t derived_length(uint32_t size, float factor) {
  return static_cast<uint32_t>(std::floor(static_cast<double>(size) * static_cast<double>(factor) + 0.5));
}

DSP_HRESULT scale_frame(const RawLayout &in, const uint8_t *in_pixels, const RawLayout &out,
                        uint8_t *out_pixels, const ScaleChoice &choice) {
  DSP_SCALER_PARAMS p;
  std::memset(&p, 0, sizeof p);
  p.eFilter = choice.filter;
  p.fHorizontalScale = choice.factor_x;
  p.fVerticalScale = choice.factor_y;
  p.ulScaleFlags = choice.derive ? DSP_SCALE_FLAG_DERIVE_SIZE : 0;
  p.ulOptions = choice.staged ? DSP_SCALER_OPTION_STAGED : 0;
  if (choice.fir) {
    p.ulOptions |= DSP_SCALER_OPTION_FILTERED;
    p.eFilterType = DSP_FILTER_TYPE_FIR;
    p.pSettings = &choice.fir_settings;
  }
  const uint32_t interlace = choice.interlaced || choice.field >= 0 ? DSP_INTERLACE_INTERLEAVED_1
                                                                    : DSP_INTERLACE_PROGRESSIVE;
  p.Buffer.In = describe(in, in_pixels, DSP_BUFFER_TYPE_FRAME, interlace, choice.in_space);
  p.Buffer.Out = describe(out, out_pixels,
                          choice.field >= 0 ? static_cast<uint32_t>(choice.field) : DSP_BUFFER_TYPE_FRAME,
                          interlace, choice.out_space);
  return DspScaler(&p);
}

std::string scale_status_text(DSP_HRESULT status) {
  char text[64];
  std::snprintf(text, sizeof text, "DspScaler returned 0x%08X", static_cast<unsigned>(status));
  return text;
}

int cmd_scale(const std::vector<std::string> &args) {
  const Parsed parsed = parse(args, {{"--size", "-s", true},
                                     {"--format", "-f", true},
                                     {"--to", nullptr, true},
                                     {"--factor", nullptr, true},
                                     {"--fit", nullptr, false},
                                     {"--filter", nullptr, true},
                                     {"--interlaced", nullptr, false},
                                     {"--field", nullptr, true},
                                     {"--staged", nullptr, false},
                                     {"--fir", nullptr, true},
                                     {"--colorspace", nullptr, true}});
  if (parsed.help) return std::fputs(kScaleHelp, stdout), kExitOk;
  expect_positional(parsed, 2, "files: framedsp scale IN OUT -s WxH --format F --to WxH");
  uint32_t width = 0, height = 0, format = 0;
  parse_size_and_format(parsed, &width, &height, &format);
  ScaleChoice choice;
  if (parsed.has("--filter")) {
    const std::string f = parsed.get("--filter");
    if (f == "nearest") choice.filter = DSP_SCALER_FILTER_NEAREST;
    else if (f == "linear") choice.filter = DSP_SCALER_FILTER_LINEAR;
    else throw UsageError("--filter expects nearest or linear, got '" + f + "'");
  }
  if (parsed.has("--field")) {
    const std::string f = parsed.get("--field");
    if (f == "a" || f == "A") choice.field = 0;
    else if (f == "b" || f == "B") choice.field = 1;
    else throw UsageError("--field expects a or b, got '" + f + "'");
    if (parsed.has("--interlaced")) throw UsageError("--field and --interlaced exclude each other");
  }
  choice.interlaced = parsed.has("--interlaced");
  choice.staged = parsed.has("--staged");
  if (parsed.has("--fir")) {
    choice.fir = true;
    parse_fir(parsed.get("--fir"), &choice.fir_settings);
  }
  if (parsed.has("--colorspace")) {
    const std::string c = parsed.get("--colorspace");
    if (c == "601:709") choice.in_space = DSP_COLOR_SPACE_BT601, choice.out_space = DSP_COLOR_SPACE_BT709;
    else if (c == "709:601") choice.in_space = DSP_COLOR_SPACE_BT709, choice.out_space = DSP_COLOR_SPACE_BT601;
    else throw UsageError("--colorspace expects 601:709 or 709:601, got '" + c + "'");
  }
  if (!parsed.has("--to") && !parsed.has("--factor")) throw UsageError("give --to WxH or --factor X[,Y]");
  if (parsed.has("--fit") && !parsed.has("--factor")) throw UsageError("--fit needs --factor");
  uint32_t to_w = 0, to_h = 0;
  if (parsed.has("--factor")) parse_factor(parsed.get("--factor"), &choice.factor_x, &choice.factor_y);
  if (parsed.has("--to")) {
    if (!parse_size(parsed.get("--to"), &to_w, &to_h)) throw UsageError("--to expects WxH, got '" + parsed.get("--to") + "'");
    choice.derive = parsed.has("--fit");
  } else {
    choice.derive = true;
    const float fy = choice.field >= 0 ? choice.factor_y * 0.5f : choice.factor_y;
    to_w = derived_length(width, choice.factor_x);
    to_h = derived_length(height, fy);
    if (choice.field < 0 && (to_h & 1)) ++to_h;
    if (!has_full_chroma(format)) to_w &= ~1u;
    if (to_w == 0 || to_h == 0) throw UsageError("the factors leave no picture");
  }
  if (!parsed.has("--factor")) {
    choice.factor_x = static_cast<float>(to_w) / static_cast<float>(width);
    choice.factor_y = static_cast<float>(to_h) / static_cast<float>(height);
  }

  const std::string &in_path = parsed.positional[0], &out_path = parsed.positional[1];
  std::error_code ec;
  if (std::filesystem::exists(out_path, ec) && std::filesystem::equivalent(in_path, out_path, ec)) {
    throw UsageError("IN and OUT are the same file");
  }
  const RawLayout in = layout_of(format, width, height);
  const RawLayout out = layout_of(format, to_w, to_h);
  std::string error;
  RawReader reader;
  if (!reader.open(in_path, in, &error)) throw RuntimeError(error);
  RawWriter writer;
  if (!writer.open(out_path, &error)) throw RuntimeError(error);
  std::vector<uint8_t> source(in.frame_bytes), target(out.frame_bytes);
  Progress progress("scale", reader.frames(), parsed.progress);
  for (uint64_t f = 0; f < reader.frames(); ++f) {
    if (!reader.read(f, source.data(), &error)) throw RuntimeError(error);
    std::fill(target.begin(), target.end(), 0);
    const DSP_HRESULT status = scale_frame(in, source.data(), out, target.data(), choice);
    if (status != DSP_S_OK) throw RuntimeError(scale_status_text(status));
    if (!writer.write(target.data(), target.size(), &error)) throw RuntimeError(error);
    progress.update(f + 1);
  }
  progress.finish();
  if (!writer.close(&error)) throw RuntimeError(error);
  const uint64_t frames = reader.frames();
  std::printf("IN:  %s: %s; %llu frame%s\nOUT: %s: %s (%s%s%s%s%s)\n", in_path.c_str(), describe_layout(in).c_str(),
              static_cast<unsigned long long>(frames), frames == 1 ? "" : "s", out_path.c_str(),
              describe_layout(out).c_str(), choice.filter ? "linear" : "nearest",
              choice.field == 0 ? ", field A" : (choice.field == 1 ? ", field B" : ""),
              choice.interlaced ? ", field by field" : "", choice.staged ? ", staged" : "",
              choice.fir ? ", FIR on the scaled axes" : "");
  return kExitOk;
}

}  // namespace cli
}  // namespace framedsp
