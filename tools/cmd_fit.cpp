// `framedsp fit`: the sizes and scale factors DspScalerHelper computes for a source and a
// destination of given sizes and picture aspect ratios.
#include <cstdio>
#include <cstring>

#include "calls.h"
#include "frame_loop.h"

namespace framedsp {
namespace cli {

namespace {

const char kHelp[] =
    "usage: framedsp fit --src WxH --dst WxH [options]\n"
    "\n"
    "Computes with DspScalerHelper the size and the scale factors that map a source picture\n"
    "onto a destination without distorting it, from both sizes and picture aspect ratios.\n"
    "\n"
    "  --src WxH               source size in pixels (required)\n"
    "  --dst WxH               destination size in pixels (required)\n"
    "  --src-aspect N:D        picture aspect ratio of the source, e.g. 4:3 (default: W:H of\n"
    "                          --src, i.e. square pixels)\n"
    "  --dst-aspect N:D        the same for the destination\n"
    "  --src-region WxH        part of the source that is scaled (default: all of it; fill mode\n"
    "                          always takes the whole source)\n"
    "  --dst-region WxH        part of the destination that is filled (default: all of it)\n"
    "  --mode fill|width|height\n"
    "                          height (default): the output is as high as the destination\n"
    "                          region, its width follows; width: as wide, the height follows;\n"
    "                          fill: the destination region is covered and the source cropped\n"
    "\n"
    "Output, one 'key: value' per line:\n"
    "  mode, source and destination pixel shapes (height / width of one pixel),\n"
    "  output WxH    (fit modes) the size to pass to 'framedsp scale --to WxH'\n"
    "  crop WxH+X+Y  (fill) the part of the source to scale, here centred; its output is\n"
    "                the destination region\n"
    "  factors H V   the horizontal and vertical scale factors as 32-bit floats (%.9g, exact)\n"
    "  scale         the options for 'framedsp scale'\n"
    "\n"
    "examples:\n"
    "  framedsp fit --src 720x486 --src-aspect 4:3 --dst 1920x1080 --dst-aspect 16:9\n"
    "  framedsp fit --src 1920x1080 --src-aspect 16:9 --dst 720x576 --dst-aspect 4:3 --mode fill\n";

void parse_ratio(const Parsed &parsed, const char *option, uint32_t *n, uint32_t *d) {
  const std::string text = parsed.get(option);
  const size_t colon = text.find(':');
  if (colon == std::string::npos) {
    throw UsageError(std::string(option) + " expects N:D, e.g. 16:9; got '" + text + "'");
  }
  *n = parse_count(text.substr(0, colon), option, 1);
  *d = parse_count(text.substr(colon + 1), option, 1);
}

const char *mode_name(uint32_t flags) {
  return flags & DSP_SCALER_HELPER_FILL ? "fill"
                                        : (flags & DSP_SCALER_HELPER_FIT_WIDTH ? "width" : "height");
}

// The helper's record from the options.
DSP_SCALER_HELPER_IN helper_record(const Parsed &parsed) {
  expect_positional(parsed, 0);
  if (!parsed.has("--src")) throw UsageError("missing source size (--src WxH)");
  if (!parsed.has("--dst")) throw UsageError("missing destination size (--dst WxH)");
  DSP_SCALER_HELPER_IN in;
  std::memset(&in, 0, sizeof in);
  parse_size_option(parsed, "--src", &in.ulSrcWidth, &in.ulSrcHeight);
  parse_size_option(parsed, "--dst", &in.ulDstWidth, &in.ulDstHeight);
  in.ulSrcAspectNumerator = in.ulSrcWidth;
  in.ulSrcAspectDenominator = in.ulSrcHeight;
  in.ulDstAspectNumerator = in.ulDstWidth;
  in.ulDstAspectDenominator = in.ulDstHeight;
  if (parsed.has("--src-aspect")) {
    parse_ratio(parsed, "--src-aspect", &in.ulSrcAspectNumerator, &in.ulSrcAspectDenominator);
  }
  if (parsed.has("--dst-aspect")) {
    parse_ratio(parsed, "--dst-aspect", &in.ulDstAspectNumerator, &in.ulDstAspectDenominator);
  }
  if (parsed.has("--dst-region")) {
    parse_size_option(parsed, "--dst-region", &in.ulDstRegionWidth, &in.ulDstRegionHeight);
    if (in.ulDstRegionWidth > in.ulDstWidth || in.ulDstRegionHeight > in.ulDstHeight) {
      throw UsageError("--dst-region is larger than --dst");
    }
  }
  const std::string mode = parsed.has("--mode") ? parsed.get("--mode") : "height";
  if (mode == "fill") {
    in.ulFlags = DSP_SCALER_HELPER_FILL;
  } else if (mode == "width") {
    in.ulFlags = DSP_SCALER_HELPER_FIT_WIDTH;
  } else if (mode != "height") {
    throw UsageError("--mode expects fill, width or height; got '" + mode + "'");
  }
  if (parsed.has("--src-region")) {
    if (in.ulFlags & DSP_SCALER_HELPER_FILL) {
      throw UsageError("--src-region cannot be used with --mode fill (fill crops the whole source)");
    }
    parse_size_option(parsed, "--src-region", &in.ulSrcRegionWidth, &in.ulSrcRegionHeight);
    if (in.ulSrcRegionWidth > in.ulSrcWidth || in.ulSrcRegionHeight > in.ulSrcHeight) {
      throw UsageError("--src-region is larger than --src");
    }
  }
  if (in.ulFlags & DSP_SCALER_HELPER_FILL) {
    in.ulSrcRegionWidth = in.ulSrcWidth;  // fill mode is given the whole source, spelled out
    in.ulSrcRegionHeight = in.ulSrcHeight;
  }
  return in;
}

int run_fit(const Parsed &parsed) {
  const DSP_SCALER_HELPER_IN in = helper_record(parsed);
  // The helper refuses quietly (S_OK, result untouched); a result left at its marker means that.
  DSP_SCALER_HELPER_OUT out;
  std::memset(&out, 0xFF, sizeof out);
  check_status("DspScalerHelper", DspScalerHelper(&in, &out));
  if (out.ulWidth == 0xFFFFFFFFu && out.ulHeight == 0xFFFFFFFFu) {
    throw RuntimeError("DspScalerHelper refused the record (run with FRAMEDSP_TRACE=1 for the reason)");
  }
  if (out.ulWidth == 0 || out.ulHeight == 0) {
    throw RuntimeError("the sizes and aspect ratios give an empty picture (" +
                       std::to_string(out.ulWidth) + "x" + std::to_string(out.ulHeight) + ")");
  }

  const double src_shape = double(in.ulSrcHeight) * in.ulSrcAspectNumerator /
                           (double(in.ulSrcWidth) * in.ulSrcAspectDenominator);
  const double dst_shape = double(in.ulDstHeight) * in.ulDstAspectNumerator /
                           (double(in.ulDstWidth) * in.ulDstAspectDenominator);
  const uint32_t dst_w = in.ulDstRegionWidth ? in.ulDstRegionWidth : in.ulDstWidth;
  const uint32_t dst_h = in.ulDstRegionHeight ? in.ulDstRegionHeight : in.ulDstHeight;
  std::printf("mode: %s\n", mode_name(in.ulFlags));
  std::printf("source pixel shape: %.9g\n", src_shape);
  std::printf("destination pixel shape: %.9g\n", dst_shape);
  uint32_t to_w = out.ulWidth, to_h = out.ulHeight;
  if (in.ulFlags & DSP_SCALER_HELPER_FILL) {
    std::printf("crop: %ux%u+%u+%u\n", out.ulWidth, out.ulHeight,
                (in.ulSrcWidth - out.ulWidth) / 2, (in.ulSrcHeight - out.ulHeight) / 2);
    to_w = dst_w;
    to_h = dst_h;
  }
  std::printf("output: %ux%u\n", to_w, to_h);
  std::printf("factors: %.9g %.9g\n", double(out.fHorizontalScale), double(out.fVerticalScale));
  std::printf("scale: --to %ux%u\n", to_w, to_h);
  return kExitOk;
}

}  // namespace

extern const Command kFitCommand = {"fit",
                                    "output size and scale factors that keep the picture's aspect ratio",
                                    kHelp,
                                    Common::kNone,
                                    {{"--src", true},
                                     {"--dst", true},
                                     {"--src-aspect", true},
                                     {"--dst-aspect", true},
                                     {"--src-region", true},
                                     {"--dst-region", true},
                                     {"--mode|-m", true}},
                                    run_fit};

}  // namespace cli
}  // namespace framedsp
