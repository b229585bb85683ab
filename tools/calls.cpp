#include "calls.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "args.h"
#include "formats.h"

namespace framedsp {
namespace cli {

namespace {

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

DSP_IMAGE side_image(const CopySide &side) {
  DSP_IMAGE d = image_of(side.layout, side.pixels);
  d.Buffer.eBufferType = side.type;
  if (side.w != 0 && side.h != 0) {
    d.Buffer.Region = {{side.x, side.y}, side.w, side.h};
  }
  d.eInterlace = side.interlace;
  d.eImageOrientation = side.orientation;
  d.eColorSpace = side.color_space;
  return d;
}

}  // namespace

DSP_IMAGE image_of(const RawLayout &l, const void *pixels) {
  DSP_IMAGE d;
  std::memset(&d, 0, sizeof d);
  d.Buffer.pBuffer = const_cast<void *>(pixels);
  d.Buffer.ulBytes = static_cast<uint32_t>(l.frame_bytes);
  d.Buffer.eBufferType = DSP_BUFFER_TYPE_FRAME;
  d.Buffer.Region.ulWidth = l.width;
  d.Buffer.Region.ulHeight = l.height;
  d.ulWidth = l.width;
  d.ulHeight = l.height;
  d.ePixelFormat = l.format;
  d.eInterlace = DSP_INTERLACE_PROGRESSIVE;
  d.eImageOrientation = DSP_ORIENTATION_TOP_DOWN;
  d.ulPrimaryStrideBytes = l.stride;
  d.ulSecondaryStrideBytes = l.key_stride;
  return d;
}

std::string status_text(const char *call, DSP_HRESULT status) {
  char text[128];
  std::snprintf(text, sizeof text, "%s returned 0x%08X%s", call, static_cast<unsigned>(status),
                status == DSP_E_NOTIMPL ? " (not implemented in this build)" : "");
  return text;
}

void check_status(const char *call, DSP_HRESULT status) {
  if (status != DSP_S_OK) throw RuntimeError(status_text(call, status));
}

DSP_HRESULT copy_buffer(const CopySide &in, const CopySide &out, uint32_t flags) {
  DSP_BUFFER buffer;
  std::memset(&buffer, 0, sizeof buffer);
  buffer.In = side_image(in);
  buffer.Out = side_image(out);
  buffer.ulFlags = flags;
  return DspBufferSmartCopy(&buffer);
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

DSP_HRESULT filter_frame(const RawLayout &layout, const uint8_t *in, uint8_t *out,
                         const FilterChoice &choice) {
  DSP_FILTER_PARAMS params;
  std::memset(&params, 0, sizeof params);
  params.eFilterType = choice.type;
  params.pSettings = choice.type == DSP_FILTER_TYPE_FIR ? static_cast<const void *>(&choice.fir)
                                                        : static_cast<const void *>(&choice.box);
  params.Buffer.In = image_of(layout, in);
  params.Buffer.Out = image_of(layout, out);
  if (choice.interlaced) {
    params.Buffer.In.eInterlace = params.Buffer.Out.eInterlace = DSP_INTERLACE_INTERLEAVED;
  }
  params.ulOptions = choice.temp_frame ? DSP_FILTER_OPTION_TEMP_FRAME : 0;
  return DspFilter(&params);
}

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
  p.Buffer.In = image_of(in, in_pixels);
  p.Buffer.Out = image_of(out, out_pixels);
  p.Buffer.In.eInterlace = p.Buffer.Out.eInterlace = interlace;
  p.Buffer.In.eColorSpace = choice.in_space;
  p.Buffer.Out.eColorSpace = choice.out_space;
  if (choice.field >= 0) p.Buffer.Out.Buffer.eBufferType = static_cast<uint32_t>(choice.field);
  return DspScaler(&p);
}

namespace {

DSP_SUBPIXEL_IMAGE subpixel_image(const DSP_IMAGE &d, const double rect[4]) {
  DSP_SUBPIXEL_IMAGE s;
  std::memset(&s, 0, sizeof s);
  s.Buffer.pBuffer = d.Buffer.pBuffer;
  s.Buffer.ulBytes = d.Buffer.ulBytes;
  s.Buffer.eBufferType = d.Buffer.eBufferType;
  const bool whole = !(rect[2] > 0);
  s.Buffer.Region.ptOffset.x = whole ? 0 : rect[0];
  s.Buffer.Region.ptOffset.y = whole ? 0 : rect[1];
  s.Buffer.Region.ulWidth = whole ? d.ulWidth : rect[2];
  s.Buffer.Region.ulHeight = whole ? d.ulHeight : rect[3];
  s.ulWidth = d.ulWidth;
  s.ulHeight = d.ulHeight;
  s.ePixelFormat = d.ePixelFormat;
  s.eInterlace = d.eInterlace;
  s.eColorSpace = d.eColorSpace;
  s.ulPrimaryStrideBytes = d.ulPrimaryStrideBytes;
  s.ulSecondaryStrideBytes = d.ulSecondaryStrideBytes;
  return s;
}

}  // namespace

DSP_HRESULT subpixel_scale_frame(const RawLayout &in, const uint8_t *in_pixels, const RawLayout &out,
                                 uint8_t *out_pixels, const ScaleChoice &choice, const SubPixelChoice &sub) {
  DSP_SUBPIXEL_SCALER_PARAMS p;
  std::memset(&p, 0, sizeof p);
  p.eFilter = sub.kernel;
  p.ulEdgeMode = sub.edge;
  p.ulFillColor = 0x10801080;  // black in the 4:2:2 formats
  p.ulCoverage = sub.coverage ? 1 : 0;
  p.ulOptions = choice.staged ? DSP_SCALER_OPTION_STAGED : 0;
  if (choice.fir) {
    p.ulOptions |= DSP_SCALER_OPTION_FILTERED;
    p.eFilterType = DSP_FILTER_TYPE_FIR;
    p.pSettings = &choice.fir_settings;
  }
  DSP_IMAGE i = image_of(in, in_pixels), o = image_of(out, out_pixels);
  i.eInterlace = o.eInterlace = choice.interlaced ? DSP_INTERLACE_INTERLEAVED_1 : DSP_INTERLACE_PROGRESSIVE;
  i.eColorSpace = choice.in_space;
  o.eColorSpace = choice.out_space;
  p.Buffer.In = subpixel_image(i, sub.src);
  p.Buffer.Out = subpixel_image(o, sub.dst);
  return DspSubPixelScaler(&p);
}

DSP_HRESULT panorama_frame(const RawLayout &in, const uint8_t *in_pixels, const RawLayout &out, uint8_t *out_pixels,
                           const ScaleChoice &choice, const PanoramaChoice &pan) {
  DSP_NONUNIFORM_SCALER_PARAMS p;
  std::memset(&p, 0, sizeof p);
  p.eStretchMode = pan.mode;
  p.eFilter = pan.kernel;
  p.ulCentreWidthQ14 = pan.centre_q14;
  p.ulCentreScaleQ14 = pan.scale_q14;
  p.ulOptions = choice.staged ? DSP_SCALER_OPTION_STAGED : 0;
  if (choice.fir) {
    p.ulOptions |= DSP_SCALER_OPTION_FILTERED;
    p.eFilterType = DSP_FILTER_TYPE_FIR;
    p.pSettings = &choice.fir_settings;
  }
  p.Buffer.In = image_of(in, in_pixels);
  p.Buffer.Out = image_of(out, out_pixels);
  p.Buffer.In.eInterlace = p.Buffer.Out.eInterlace =
      choice.interlaced ? DSP_INTERLACE_INTERLEAVED_1 : DSP_INTERLACE_PROGRESSIVE;
  p.Buffer.In.eColorSpace = choice.in_space;
  p.Buffer.Out.eColorSpace = choice.out_space;
  return DspNonUniformScaler(&p);
}

bool kenburns_frame(const RawLayout &in, const uint8_t *in_pixels, const RawLayout &out, uint8_t *out_pixels,
                    const KenBurnsMove &move, uint32_t phase_q14, double *ms, std::string *error) {
  DSP_SUBPIXEL_SCALER_HELPER_IN h;
  std::memset(&h, 0, sizeof h);
  h.ulSrcAspectNumerator = h.ulSrcWidth = in.width;
  h.ulSrcAspectDenominator = h.ulSrcHeight = in.height;
  h.ulDstAspectNumerator = h.ulDstWidth = out.width;
  h.ulDstAspectDenominator = h.ulDstHeight = out.height;
  h.ulModeFlags = DSP_SUBPIXEL_SCALER_HELPER_FILL | DSP_SUBPIXEL_SCALER_HELPER_KEEP_INSIDE |
                  DSP_SUBPIXEL_SCALER_HELPER_CENTRE;
  h.ViewA = move.from;
  h.ViewB = move.to;
  h.ulPhaseQ14 = phase_q14;
  h.ulEase = move.ease ? DSP_SUBPIXEL_SCALER_HELPER_EASE_SMOOTHSTEP : DSP_SUBPIXEL_SCALER_HELPER_EASE_LINEAR;
  DSP_SUBPIXEL_SCALER_HELPER_OUT r;
  std::memset(&r, 0, sizeof r);  // a quiet refusal leaves sizes of 0
  const auto start = std::chrono::steady_clock::now();
  DSP_HRESULT status = DspSubPixelScalerHelper(&h, &r);
  if (status == DSP_S_OK && !(r.dSrcWidth > 0 && r.dDstWidth > 0)) {
    *error = "DspSubPixelScalerHelper refused the views (zoom >= 1, centres within +-1/2)";
    return false;
  }
  ScaleChoice choice;
  SubPixelChoice sub;
  sub.kernel = move.kernel;
  const double src[4] = {r.dSrcX, r.dSrcY, r.dSrcWidth, r.dSrcHeight};
  const double dst[4] = {r.dDstX, r.dDstY, r.dDstWidth, r.dDstHeight};
  std::copy(src, src + 4, sub.src);
  std::copy(dst, dst + 4, sub.dst);
  if (status == DSP_S_OK) status = subpixel_scale_frame(in, in_pixels, out, out_pixels, choice, sub);
  *ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  if (status != DSP_S_OK) *error = status_text("DspSubPixelScaler", status);
  return status == DSP_S_OK;
}

Picture side_by_side(const std::vector<Picture> &pictures) {
  Picture s;
  if (pictures.empty()) return s;
  s.channels = pictures[0].channels;
  for (const Picture &p : pictures) {
    s.width += p.width + (s.width ? 4 : 0);
    s.height = std::max(s.height, p.height);
  }
  s.pixels.assign(size_t(s.width) * s.height * size_t(s.channels), 0);
  uint32_t x = 0;
  for (const Picture &p : pictures) {
    if (p.channels == s.channels) {
      for (uint32_t y = 0; y < p.height; ++y) {
        std::memcpy(&s.pixels[(size_t(y) * s.width + x) * size_t(s.channels)],
                    &p.pixels[size_t(y) * p.width * size_t(p.channels)], size_t(p.width) * size_t(p.channels));
      }
    }
    x += p.width + 4;
  }
  return s;
}

void parse_rect(const std::string &text, const char *option, double rect[4]) {
  const char *at = text.c_str();
  char *end = nullptr;
  for (int k = 0; k < 4; ++k) {
    rect[k] = std::strtod(at, &end);
    if (end == at || (k < 3 && *end != ',')) break;
    at = end + 1;
  }
  if (!end || *end != '\0' || !(rect[2] > 0) || !(rect[3] > 0) || !std::isfinite(rect[0]) ||
      !std::isfinite(rect[1]) || !std::isfinite(rect[2]) || !std::isfinite(rect[3])) {
    throw UsageError(std::string(option) + " expects x,y,w,h with w, h > 0, e.g. 10.5,4.25,320,180; got '" +
                     text + "'");
  }
}

uint32_t parse_kernel(const std::string &text) {
  const char *names[] = {"nearest", "linear", "cubic", "lanczos3"};
  for (uint32_t k = 0; k < 4; ++k) {
    if (text == names[k]) return k;
  }
  throw UsageError("--kernel expects nearest, linear, cubic or lanczos3, got '" + text + "'");
}

uint32_t parse_edge(const std::string &text) {
  const char *names[] = {"repeat", "mirror", "fill", "untouched"};
  for (uint32_t k = 0; k < 4; ++k) {
    if (text == names[k]) return k;
  }
  throw UsageError("--edge expects repeat, mirror, fill or untouched, got '" + text + "'");
}

uint32_t derived_length(uint32_t size, float factor) {
  return static_cast<uint32_t>(
      std::floor(static_cast<double>(size) * static_cast<double>(factor) + 0.5));
}

double psnr_of_mse(double mse) { return 20.0 * std::log10(255.0 / std::sqrt(mse + 0.00001)); }

bool compare_frame(const RawLayout &layout, const uint8_t *a, const uint8_t *b, uint8_t *diff,
                   double results[8], std::string *error) {
  DSP_COMPARE_PARAMS params;
  std::memset(&params, 0, sizeof params);
  const uint32_t bytes = static_cast<uint32_t>(layout.frame_bytes);
  params.BufferA = {const_cast<uint8_t *>(a), bytes, 0};
  params.BufferB = {const_cast<uint8_t *>(b), bytes, 0};
  params.BufferOut = {diff, bytes, 0};
  params.ulWidth = layout.width;
  params.ulHeight = layout.height;
  params.ulImageBytes = static_cast<uint32_t>(layout.main_bytes);
  params.ulPrimaryStrideBytes = layout.stride;
  params.ulSecondaryStrideBytes = layout.key_stride;
  params.ePixelFormat = layout.format;
  // NaN marks the slots the library has not written.
  for (double &r : params.dResults) r = std::numeric_limits<double>::quiet_NaN();
  const DSP_HRESULT status = DspCompare(&params);
  if (status != DSP_S_OK) {
    *error = status_text("DspCompare", status);
    return false;
  }
  const FormatInfo &info = format_info(layout.format);
  for (int slot = 0; slot < 4; ++slot) {
    if (info.channels[slot] &&
        (std::isnan(params.dResults[slot]) || std::isnan(params.dResults[slot + 4]))) {
      *error = "DspCompare did not measure channel " + std::string(info.channels[slot]) + " of " +
               format_label(layout.format) + " (record refused?)";
      return false;
    }
  }
  std::memcpy(results, params.dResults, sizeof params.dResults);
  return true;
}

bool pyramid_sizes(uint32_t width, uint32_t height, uint32_t count, std::vector<MipLevel> *levels,
                   std::string *error) {
  levels->clear();
  uint32_t w = width, h = height;
  for (uint32_t k = 0; k < count; ++k, w /= 2, h /= 2) {
    if (w == 0 || h == 0) {
      const std::string side = std::to_string(1u << (count - 1));
      *error = std::to_string(count) + " levels need a frame of at least " + side + "x" + side +
               " pixels (level " + std::to_string(k) + " of " + std::to_string(width) + "x" +
               std::to_string(height) + " would be empty)";
      return false;
    }
    levels->push_back({w, h, std::vector<uint8_t>(static_cast<size_t>(w) * h, 0)});
  }
  return true;
}

// The pyramid is tied to a frame-rate converter whose settings it does not use, so the smallest
// valid creation record will do.  A converter lives until the process ends (the library has no
// call that destroys one), so the process makes one and keeps it for every pyramid.
bool build_pyramid(std::vector<MipLevel> *levels, uint32_t filter, double *ms, std::string *error) {
  if (levels->empty() || levels->size() > DSP_MIPMAP_MAX_LEVELS) {
    *error = "a pyramid has 1 to " + std::to_string(DSP_MIPMAP_MAX_LEVELS) + " levels";
    return false;
  }
  static DSP_HANDLE converter = nullptr;
  if (!converter) {
    DSP_FRAME_RATE_CONVERTER_PARAMS create;
    std::memset(&create, 0, sizeof create);
    create.ulBaseCount = 1;
    create.lWidth = 64;  // bounds the default level search range of 1: at least 4
    create.lHeight = 64;
    const DSP_HRESULT created = DspCreateFrameRateConverter(&create, &converter);
    if (created != DSP_S_OK) {
      converter = nullptr;
      *error = status_text("DspCreateFrameRateConverter", created);
      return false;
    }
  }
  const std::vector<uint8_t> base = (*levels)[0].samples;
  DSP_MIPMAP_LEVELS list;
  std::memset(&list, 0, sizeof list);
  list.ulCount = static_cast<uint32_t>(levels->size());
  for (size_t k = 0; k < levels->size(); ++k) {
    MipLevel &level = (*levels)[k];
    if (k > 0) std::fill(level.samples.begin(), level.samples.end(), 0);
    RawLayout plane;  // any width: the halving makes odd ones
    plane.format = plane.main_format = DSP_PIXEL_FORMAT_MIPMAP;
    plane.width = plane.line_bytes = plane.stride = level.width;
    plane.height = level.height;
    plane.main_bytes = plane.frame_bytes = level.samples.size();
    list.Levels[k] = image_of(plane, level.samples.data());
  }
  DSP_MIPMAP_PARAMS params;
  std::memset(&params, 0, sizeof params);
  params.Base = list.Levels[0];
  params.pLevels = &list;
  params.eFilter = filter;
  const auto start = std::chrono::steady_clock::now();
  const DSP_HRESULT status = DspCreateMipMaps(converter, &params);
  *ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  if (status != DSP_S_OK) {
    *error = status_text("DspCreateMipMaps", status);
    return false;
  }
  if ((*levels)[0].samples != base) {
    *error = "DspCreateMipMaps changed level 0, the source of the pyramid";
    return false;
  }
  return true;
}

Picture mipmap_strip(const std::vector<MipLevel> &levels) {
  Picture strip;
  strip.channels = 1;
  for (const MipLevel &l : levels) strip.width += l.width;
  strip.height = levels.empty() ? 0 : levels[0].height;
  strip.pixels.assign(static_cast<size_t>(strip.width) * strip.height, 0);
  uint32_t left = 0;
  for (const MipLevel &l : levels) {
    for (uint32_t y = 0; y < l.height; ++y) {
      std::memcpy(&strip.pixels[static_cast<size_t>(y) * strip.width + left],
                  &l.samples[static_cast<size_t>(y) * l.width], l.width);
    }
    left += l.width;
  }
  return strip;
}

std::vector<uint8_t> luma_of(const RawLayout &layout, const uint8_t *frame) {
  std::vector<uint8_t> luma(static_cast<size_t>(layout.width) * layout.height);
  // Offset of the first Y byte and the distance between Y bytes in a line.
  uint32_t first = 0, step = 1;
  if (layout.main_format == DSP_PIXEL_FORMAT_UYVY) first = 1, step = 2;
  if (layout.main_format == DSP_PIXEL_FORMAT_YUYV) first = 0, step = 2;
  for (uint32_t y = 0; y < layout.height; ++y) {
    const uint8_t *line = frame + static_cast<size_t>(y) * layout.stride;
    uint8_t *dst = &luma[static_cast<size_t>(y) * layout.width];
    for (uint32_t x = 0; x < layout.width; ++x) dst[x] = line[first + x * step];
  }
  return luma;
}

namespace {

// The converter DspCreateMotionVectors asks for: any live one (its settings are not used).
DSP_HANDLE motion_converter(std::string *error) {
  static DSP_HANDLE converter = nullptr;
  if (converter) return converter;
  DSP_FRAME_RATE_CONVERTER_PARAMS create;
  std::memset(&create, 0, sizeof create);
  create.ulBaseCount = 1;
  create.lWidth = create.lHeight = 64;
  const DSP_HRESULT status = DspCreateFrameRateConverter(&create, &converter);
  if (status != DSP_S_OK) {
    converter = nullptr;
    *error = status_text("DspCreateFrameRateConverter", status);
  }
  return converter;
}

DSP_MIPMAP_LEVELS level_list(std::vector<MipLevel> &levels) {
  DSP_MIPMAP_LEVELS list;
  std::memset(&list, 0, sizeof list);
  list.ulCount = static_cast<uint32_t>(levels.size());
  for (size_t k = 0; k < levels.size(); ++k) {
    RawLayout plane;
    plane.format = plane.main_format = DSP_PIXEL_FORMAT_MIPMAP;
    plane.width = plane.line_bytes = plane.stride = levels[k].width;
    plane.height = levels[k].height;
    plane.main_bytes = plane.frame_bytes = levels[k].samples.size();
    list.Levels[k] = image_of(plane, levels[k].samples.data());
  }
  return list;
}

void put(Picture *p, int x, int y, const uint8_t c[3]) {
  if (x < 0 || y < 0 || x >= static_cast<int>(p->width) || y >= static_cast<int>(p->height)) return;
  std::memcpy(&p->pixels[(static_cast<size_t>(y) * p->width + x) * 3], c, 3);
}

void draw_line(Picture *p, double x0, double y0, double x1, double y1, const uint8_t c[3]) {
  const int n = static_cast<int>(std::max(std::fabs(x1 - x0), std::fabs(y1 - y0))) + 1;
  for (int i = 0; i <= n; ++i) {
    const double t = static_cast<double>(i) / n;
    put(p, static_cast<int>(std::lround(x0 + t * (x1 - x0))), static_cast<int>(std::lround(y0 + t * (y1 - y0))), c);
  }
}

// Hue h (0..1, red at 0) at full saturation and value v.
void hue(double h, double v, uint8_t out[3]) {
  const double k[3] = {5, 3, 1};
  for (int i = 0; i < 3; ++i) {
    const double m = std::fmod(k[i] + h * 6, 6);
    out[i] = static_cast<uint8_t>(std::lround(255 * v * (1 - std::max(0.0, std::min({m, 4 - m, 1.0})))));
  }
}

}  // namespace

bool estimate_vectors(const std::vector<uint8_t> &a, const std::vector<uint8_t> &b, uint32_t width,
                      uint32_t height, const VectorChoice &choice, VectorField *field,
                      std::string *error) {
  // The pyramid's scaler keeps widths even: every level's width must be, the last one's too.
  uint32_t levels = std::max(1u, std::min(choice.levels, 5u));
  while (levels > 1 && (width % (1u << levels) != 0 || (height >> (levels - 1)) == 0)) --levels;
  std::vector<MipLevel> pa, pb;
  if (!pyramid_sizes(width, height, levels, &pa, error) || !pyramid_sizes(width, height, levels, &pb, error)) return false;
  pa[0].samples = a;
  pb[0].samples = b;
  double ms = 0;
  if (!build_pyramid(&pa, DSP_SCALER_FILTER_LINEAR, &ms, error) || !build_pyramid(&pb, DSP_SCALER_FILTER_LINEAR, &ms, error)) {
    return false;
  }
  const DSP_MIPMAP_LEVELS la = level_list(pa), lb = level_list(pb);
  std::vector<uint8_t> bytes(DSP_VECTOR_FIELD_BYTES(width, height, choice.block, choice.block));
  DSP_MOTION_VECTORS_PARAMS p;
  std::memset(&p, 0, sizeof p);
  p.pLevelsA = &la;
  p.pLevelsB = &lb;
  p.pVectorField = bytes.data();
  p.ulVectorFieldBytes = static_cast<uint32_t>(bytes.size());
  p.ulBlockA = p.ulBlockB = choice.block;
  for (int k = 0; k < 5; ++k) p.ulLevelRangeX[k] = p.ulLevelRangeY[k] = choice.range;
  if (choice.whole_pixel) p.ulMotionFlags |= DSP_MOTION_WHOLE_PIXEL;
  const DSP_HANDLE converter = motion_converter(error);
  if (!converter) return false;
  const auto start = std::chrono::steady_clock::now();
  const DSP_HRESULT status = DspCreateMotionVectors(converter, &p);
  field->ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  std::memcpy(&field->header, bytes.data(), sizeof field->header);
  if (status != DSP_S_OK || field->header.ulFieldBytes == 0) {  // a refused record writes nothing
    *error = status_text("DspCreateMotionVectors", status) + " (FRAMEDSP_TRACE=1 names the reason)";
    return false;
  }
  field->levels = levels;
  field->entries.resize((field->header.ulFieldBytes - DSP_VECTOR_FIELD_HEADER_BYTES) / sizeof(DSP_MOTION_VECTOR));
  std::memcpy(field->entries.data(), bytes.data() + DSP_VECTOR_FIELD_HEADER_BYTES,
              field->entries.size() * sizeof(DSP_MOTION_VECTOR));
  return true;
}

Picture draw_vectors(const std::vector<uint8_t> &picture, uint32_t width, uint32_t height,
                     const VectorField &field, bool wheel, double scale) {
  Picture out;
  out.width = width;
  out.height = height;
  out.channels = 3;
  out.pixels.resize(static_cast<size_t>(width) * height * 3);
  for (size_t i = 0; i < picture.size(); ++i) std::memset(&out.pixels[i * 3], picture[i] / 2 + 32, 3);
  const DSP_VECTOR_FIELD &h = field.header;
  static const uint8_t kGood[3] = {40, 230, 60}, kBad[3] = {240, 40, 40}, kOdd[3] = {240, 220, 40};
  for (uint32_t r = 0; r < h.ulRows; ++r) {
    for (uint32_t c = 0; c < h.ulColumns; ++c) {
      const DSP_MOTION_VECTOR &v = field.entries[r * h.ulColumns + c];
      const uint32_t x0 = c * h.ulBlockWidth, y0 = r * h.ulBlockHeight;
      const uint32_t bw = std::min(h.ulBlockWidth, width - x0), bh = std::min(h.ulBlockHeight, height - y0);
      const double vx = v.sX / 4.0, vy = v.sY / 4.0;
      if (wheel) {
        uint8_t colour[3] = {0, 0, 0};
        if (!(v.usFlags & DSP_MV_BAD)) {
          hue(std::atan2(vy, vx) / 6.283185307179586 + 0.5, std::min(1.0, 0.25 + std::hypot(vx, vy) / 8), colour);
        }
        for (uint32_t y = y0; y < y0 + bh; ++y)
          for (uint32_t x = x0; x < x0 + bw; ++x) put(&out, static_cast<int>(x), static_cast<int>(y), colour);
        continue;
      }
      const uint8_t *colour = (v.usFlags & DSP_MV_BAD) ? kBad : (v.usFlags & DSP_MV_INCONSISTENT) ? kOdd : kGood;
      const double cx = x0 + bw / 2.0, cy = y0 + bh / 2.0;
      draw_line(&out, cx, cy, cx + scale * vx, cy + scale * vy, colour);
    }
  }
  return out;
}

std::vector<std::string> vector_statistics(const VectorField &field, int dir) {
  const DSP_VECTOR_FIELD &h = field.header;
  const size_t n = static_cast<size_t>(h.ulColumns) * h.ulRows;
  std::vector<int> xs, ys;
  uint32_t flags[5] = {};
  double cost = 0;
  for (size_t i = 0; i < n; ++i) {
    const DSP_MOTION_VECTOR &v = field.entries[dir * n + i];
    xs.push_back(v.sX);
    ys.push_back(v.sY);
    cost += v.usCost;
    for (int f = 0; f < 5; ++f) flags[f] += (v.usFlags >> f) & 1;
  }
  std::nth_element(xs.begin(), xs.begin() + n / 2, xs.end());
  std::nth_element(ys.begin(), ys.begin() + n / 2, ys.end());
  char text[200];
  std::vector<std::string> lines;
  std::snprintf(text, sizeof text, "%s: %zu blocks, median vector (%.2f, %.2f) px, mean cost %.1f per 64 px",
                dir ? "backward" : "forward", n, xs[n / 2] / 4.0, ys[n / 2] / 4.0, cost / static_cast<double>(n));
  lines.push_back(text);
  std::snprintf(text, sizeof text, "  bad %u, inconsistent %u, outside %u, flat %u, exhaustive %u", flags[0],
                flags[1], flags[2], flags[3], flags[4]);
  lines.push_back(text);
  return lines;
}

}  // namespace cli
}  // namespace framedsp
