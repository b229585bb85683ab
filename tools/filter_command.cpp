#include "filter_command.h"

#include <cstdio>
#include <cstring>
#include <filesystem>

#include "args.h"
#include "progress.h"
#include "formats.h"
#include "lines/pixel_format.h"

namespace framedsp {
namespace cli {

const char kFilterHelp[] =
    "usage: framedsp filter IN OUT -s WxH --format F (--fir H,V | --box WxH) [options]\n"
    "\n"
    "Low-pass filters every frame of the raw file IN into OUT with DspFilter: a separable FIR\n"
    "or a box (moving-average) filter over the packed samples of the format.  The size and\n"
    "pixel format do not change.\n"
    "\n"
    "  -s, --size WxH          frame size in pixels (required)\n"
    "  -f, --format F          pixel format, name or code: bgra, bgr24, bgr24+key, uyvy422,\n"
    "                          yuyv422, uyvy422+key, yuyv422+key, gray, or 22, 23, 24, 31, 129\n"
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
    "  framedsp filter in.bgra blur.bgra -s 1280x720 -f bgra --box 9x9\n"
    "  framedsp filter in.bgra rows.bgra -s 1280x720 -f bgra --box 31x0 --temp-frame\n";

namespace {

DSP_IMAGE describe(const RawLayout &l, const uint8_t *pixels, uint32_t interlace) {
  DSP_IMAGE d;
  std::memset(&d, 0, sizeof d);
  d.Buffer.pBuffer = const_cast<uint8_t *>(pixels);
  d.Buffer.ulBytes = static_cast<uint32_t>(l.frame_bytes);
  d.Buffer.eBufferType = DSP_BUFFER_TYPE_FRAME;
  d.Buffer.Region.ulWidth = l.width;
  d.Buffer.Region.ulHeight = l.height;
  d.ulWidth = l.width;
  d.ulHeight = l.height;
  d.ePixelFormat = l.format;
  d.eInterlace = interlace;
  d.eImageOrientation = DSP_ORIENTATION_TOP_DOWN;
  d.ulPrimaryStrideBytes = l.stride;
  d.ulSecondaryStrideBytes = l.key_stride;
  return d;
}

// "T:C" of --fir.
void parse_fir_pair(const std::string &text, const std::string &whole, uint32_t *taps,
                    uint32_t *cutoff) {
  const size_t colon = text.find(':');
  if (colon == std::string::npos) {
    throw UsageError("--fir expects TAPS:CUTOFF,TAPS:CUTOFF, e.g. 7:50,7:50; got '" + whole + "'");
  }
  *taps = parse_count(text.substr(0, colon), "--fir taps", 0);
  *cutoff = parse_count(text.substr(colon + 1), "--fir cut-off", 0);
  if (*cutoff > 100) {
    throw UsageError("--fir cut-off " + std::to_string(*cutoff) + " is above 100 (100 = off)");
  }
  if (*cutoff != 100 && (*taps < 3 || *taps > 15)) {
    throw UsageError("--fir taps " + std::to_string(*taps) +
                     " is outside 3..15 (only a direction at cut-off 100 may have other counts)");
  }
}

uint32_t parse_box_size(const std::string &text, const std::string &whole) {
  if (text.empty()) throw UsageError("--box expects WxH, e.g. 9x9; got '" + whole + "'");
  const uint32_t size = parse_count(text, "--box", 0);
  if (size > 256) {
    throw UsageError("--box size " + std::to_string(size) + " is above 256 (0 = off)");
  }
  return size;
}

bool same_file(const std::string &a, const std::string &b) {
  std::error_code ec;
  return std::filesystem::exists(b, ec) && std::filesystem::equivalent(a, b, ec);
}

std::string settings_text(const FilterChoice &choice) {
  char text[128];
  auto fir_dir = [](uint32_t taps, uint32_t cutoff) {
    return cutoff == 100 ? std::string("off")
                         : std::to_string(taps) + " taps at " + std::to_string(cutoff) + " %";
  };
  auto box_dir = [](uint32_t size) { return size == 0 ? std::string("off") : std::to_string(size); };
  if (choice.type == DSP_FILTER_TYPE_FIR) {
    std::snprintf(text, sizeof text, "FIR horizontal %s, vertical %s",
                  fir_dir(choice.fir.ulHorzTaps, choice.fir.ulHorzCutoff).c_str(),
                  fir_dir(choice.fir.ulVertTaps, choice.fir.ulVertCutoff).c_str());
  } else {
    std::snprintf(text, sizeof text, "box horizontal %s, vertical %s",
                  box_dir(choice.box.ulHorzSize).c_str(), box_dir(choice.box.ulVertSize).c_str());
  }
  std::string s = text;
  if (choice.interlaced) s += ", by fields";
  if (choice.temp_frame) s += ", through a temporary frame";
  return s;
}

}  // namespace

void parse_fir(const std::string &text, DSP_FIR_SETTINGS *fir) {
  const size_t comma = text.find(',');
  std::memset(fir, 0, sizeof *fir);
  parse_fir_pair(text.substr(0, comma), text, &fir->ulHorzTaps, &fir->ulHorzCutoff);
  if (comma == std::string::npos) {
    fir->ulVertTaps = fir->ulHorzTaps;
    fir->ulVertCutoff = fir->ulHorzCutoff;
  } else {
    parse_fir_pair(text.substr(comma + 1), text, &fir->ulVertTaps, &fir->ulVertCutoff);
  }
}

void parse_box(const std::string &text, DSP_BOX_SETTINGS *box) {
  const size_t x = text.find_first_of("xX");
  if (x == std::string::npos) {
    throw UsageError("--box expects WxH, e.g. 9x9 or 15x0; got '" + text + "'");
  }
  std::memset(box, 0, sizeof *box);
  box->ulHorzSize = parse_box_size(text.substr(0, x), text);
  box->ulVertSize = parse_box_size(text.substr(x + 1), text);
}

DSP_HRESULT filter_frame(const RawLayout &layout, const uint8_t *in, uint8_t *out,
                         const FilterChoice &choice) {
  DSP_FILTER_PARAMS params;
  std::memset(&params, 0, sizeof params);
  params.eFilterType = choice.type;
  params.pSettings = choice.type == DSP_FILTER_TYPE_FIR ? static_cast<const void *>(&choice.fir)
                                                      : static_cast<const void *>(&choice.box);
  const uint32_t interlace = choice.interlaced ? DSP_INTERLACE_INTERLEAVED : DSP_INTERLACE_PROGRESSIVE;
  params.Buffer.In = describe(layout, in, interlace);
  params.Buffer.Out = describe(layout, out, interlace);
  params.ulOptions = choice.temp_frame ? DSP_FILTER_OPTION_TEMP_FRAME : 0;
  return DspFilter(&params);
}

std::string filter_status_text(DSP_HRESULT status) {
  char text[96];
  std::snprintf(text, sizeof text, "DspFilter returned 0x%08X%s", static_cast<unsigned>(status),
                status == DSP_E_NOTIMPL ? " (not implemented in this build)" : "");
  return text;
}

int cmd_filter(const std::vector<std::string> &args) {
  const Parsed parsed = parse(args, {{"--size", "-s", true},
                                     {"--format", "-f", true},
                                     {"--fir", nullptr, true},
                                     {"--box", nullptr, true},
                                     {"--temp-frame", nullptr, false},
                                     {"--interlaced", nullptr, false}});
  if (parsed.help) return std::fputs(kFilterHelp, stdout), kExitOk;
  expect_positional(parsed, 2, "files: framedsp filter IN OUT -s WxH --format F --fir|--box");
  uint32_t width = 0, height = 0, format = 0;
  parse_size_and_format(parsed, &width, &height, &format);
  if (!copy_filter_format(format)) {
    throw UsageError(format_label(format) + " is not accepted by the filter");
  }
  if (parsed.has("--fir") == parsed.has("--box")) {
    throw UsageError("give exactly one of --fir TAPS:CUTOFF,TAPS:CUTOFF and --box WxH");
  }
  FilterChoice choice;
  if (parsed.has("--fir")) {
    choice.type = DSP_FILTER_TYPE_FIR;
    parse_fir(parsed.get("--fir"), &choice.fir);
  } else {
    choice.type = DSP_FILTER_TYPE_BOX;
    parse_box(parsed.get("--box"), &choice.box);
  }
  choice.temp_frame = parsed.has("--temp-frame");
  choice.interlaced = parsed.has("--interlaced");
  const std::string &in_path = parsed.positional[0], &out_path = parsed.positional[1];
  if (same_file(in_path, out_path)) throw UsageError("IN and OUT are the same file");
  RawLayout layout;
  std::string error;
  if (!make_layout(format, width, height, 0, 0, &layout, &error)) throw UsageError(error);

  RawReader reader;
  if (!reader.open(in_path, layout, &error)) throw RuntimeError(error);
  RawWriter writer;
  if (!writer.open(out_path, &error)) throw RuntimeError(error);
  std::vector<uint8_t> source(layout.frame_bytes), target(layout.frame_bytes);
  Progress progress("filter", reader.frames(), parsed.progress);
  for (uint64_t f = 0; f < reader.frames(); ++f) {
    if (!reader.read(f, source.data(), &error)) throw RuntimeError(error);
    std::fill(target.begin(), target.end(), 0);
    const DSP_HRESULT status = filter_frame(layout, source.data(), target.data(), choice);
    if (status != DSP_S_OK) {
      throw RuntimeError(filter_status_text(status) + " on frame " + std::to_string(f));
    }
    if (!writer.write(target.data(), target.size(), &error)) throw RuntimeError(error);
    progress.update(f + 1);
  }
  progress.finish();
  if (!writer.close(&error)) throw RuntimeError(error);
  const uint64_t frames = reader.frames();
  std::printf("IN:  %s: %s; %llu frame%s\nOUT: %s (%s)\n", in_path.c_str(),
              describe_layout(layout).c_str(), static_cast<unsigned long long>(frames),
              frames == 1 ? "" : "s", out_path.c_str(), settings_text(choice).c_str());
  return kExitOk;
}

}  // namespace cli
}  // namespace framedsp
