#include "mipmaps_command.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "args.h"
#include "formats.h"
#include "framedsp/framedsp.h"
#include "raw_io.h"

namespace framedsp {
namespace cli {

const char kMipmapsHelp[] =
    "usage: framedsp mipmaps IN.raw OUT.png -s WxH --format F [--levels N] [--filter nearest|linear]\n"
    "                        [--frame N]\n"
    "\n"
    "Builds a pyramid of successively halved copies of one frame's luma with DspCreateMipMaps\n"
    "and writes the levels side by side, left to right and top-aligned, as one gray PNG of\n"
    "(sum of the level widths) x H pixels; the area below the smaller levels is black.\n"
    "Level 0 is the luma itself; level k is level k-1 halved (sizes rounded down), made by the\n"
    "library's integer-ratio scaler path from the 8-bit single-sample plane (format 263).\n"
    "\n"
    "  -s, --size WxH          frame size of IN\n"
    "  -f, --format F          gray (one byte a pixel; 263 is read the same way), or the luma of\n"
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
    "  framedsp mipmaps clip.raw strip.png -s 640x360 --format uyvy422\n"
    "  framedsp mipmaps key.raw strip.png -s 256x256 -f gray --levels 3 --filter nearest\n";

namespace {

DSP_IMAGE plane_image(MipLevel &level) {
  DSP_IMAGE d;
  std::memset(&d, 0, sizeof d);
  d.Buffer.pBuffer = level.samples.data();
  d.Buffer.ulBytes = static_cast<uint32_t>(level.samples.size());
  d.Buffer.eBufferType = DSP_BUFFER_TYPE_FRAME;
  d.Buffer.Region.ulWidth = level.width;
  d.Buffer.Region.ulHeight = level.height;
  d.ulWidth = level.width;
  d.ulHeight = level.height;
  d.ePixelFormat = DSP_PIXEL_FORMAT_MIPMAP;
  d.eInterlace = DSP_INTERLACE_PROGRESSIVE;
  d.ulPrimaryStrideBytes = level.width;
  return d;
}

std::string hex(DSP_HRESULT status) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(status));
  return text;
}

}  // namespace

bool pyramid_sizes(uint32_t width, uint32_t height, uint32_t count, std::vector<MipLevel> *levels,
                   std::string *error) {
  levels->clear();
  uint32_t w = width, h = height;
  for (uint32_t k = 0; k < count; ++k) {
    if (w == 0 || h == 0) {
      *error = std::to_string(count) + " levels need a frame of at least " +
               std::to_string(1u << (count - 1)) + "x" + std::to_string(1u << (count - 1)) +
               " pixels (level " + std::to_string(k) + " of " + std::to_string(width) + "x" +
               std::to_string(height) + " would be empty)";
      return false;
    }
    MipLevel level;
    level.width = w;
    level.height = h;
    level.samples.assign(static_cast<size_t>(w) * h, 0);
    levels->push_back(std::move(level));
    w /= 2;
    h /= 2;
  }
  return true;
}

bool build_pyramid(std::vector<MipLevel> *levels, uint32_t filter, double *ms, std::string *error) {
  if (levels->empty() || levels->size() > DSP_MIPMAP_MAX_LEVELS) {
    *error = "a pyramid has 1 to " + std::to_string(DSP_MIPMAP_MAX_LEVELS) + " levels";
    return false;
  }
  // The pyramid is tied to a frame-rate converter; its settings are not used, so the smallest
  // valid creation record will do.  The library has no call that destroys a converter (it lives
  // until the process ends), so the process makes one and keeps its handle for every pyramid.
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
      *error = "DspCreateFrameRateConverter returned " + hex(created);
      return false;
    }
  }
  DSP_HRESULT status = DSP_S_OK;
  const std::vector<uint8_t> base = (*levels)[0].samples;
  DSP_MIPMAP_LEVELS list;
  std::memset(&list, 0, sizeof list);
  list.ulCount = static_cast<uint32_t>(levels->size());
  for (size_t k = 0; k < levels->size(); ++k) {
    if (k > 0) std::fill((*levels)[k].samples.begin(), (*levels)[k].samples.end(), 0);
    list.Levels[k] = plane_image((*levels)[k]);
  }
  DSP_MIPMAP_PARAMS params;
  std::memset(&params, 0, sizeof params);
  params.Base = list.Levels[0];
  params.pLevels = &list;
  params.eFilter = filter;
  const auto start = std::chrono::steady_clock::now();
  status = DspCreateMipMaps(converter, &params);
  *ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  if (status != DSP_S_OK) {
    *error = "DspCreateMipMaps returned " + hex(status);
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

std::vector<uint8_t> luma_of(uint32_t format, uint32_t width, uint32_t height, uint32_t stride,
                             const uint8_t *frame) {
  std::vector<uint8_t> luma(static_cast<size_t>(width) * height);
  // Offset of the first Y byte and the distance between Y bytes in a line.
  uint32_t first = 0, step = 1;
  if (format == DSP_PIXEL_FORMAT_UYVY || format == DSP_PIXEL_FORMAT_UYVY_KEY) first = 1, step = 2;
  if (format == DSP_PIXEL_FORMAT_YUYV || format == DSP_PIXEL_FORMAT_YUYV_KEY) first = 0, step = 2;
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t *line = frame + static_cast<size_t>(y) * stride;
    for (uint32_t x = 0; x < width; ++x) luma[static_cast<size_t>(y) * width + x] = line[first + x * step];
  }
  return luma;
}

int cmd_mipmaps(const std::vector<std::string> &args) {
  const Parsed parsed = parse(args, {{"--size", "-s", true},
                                     {"--format", "-f", true},
                                     {"--levels", nullptr, true},
                                     {"--filter", nullptr, true},
                                     {"--frame", nullptr, true}});
  if (parsed.help) return std::fputs(kMipmapsHelp, stdout), kExitOk;
  expect_positional(parsed, 2, "files: framedsp mipmaps IN.raw OUT.png -s WxH --format F");
  uint32_t width = 0, height = 0, format = 0;
  parse_size_and_format(parsed, &width, &height, &format);
  switch (format) {
    case DSP_PIXEL_FORMAT_KEY8:
    case DSP_PIXEL_FORMAT_MIPMAP:
    case DSP_PIXEL_FORMAT_UYVY:
    case DSP_PIXEL_FORMAT_YUYV:
    case DSP_PIXEL_FORMAT_UYVY_KEY:
    case DSP_PIXEL_FORMAT_YUYV_KEY:
      break;
    default:
      throw UsageError("mipmaps reads the luma of gray, uyvy422, yuyv422, uyvy422+key or "
                       "yuyv422+key frames, not " + format_label(format));
  }
  uint32_t count = 5;
  if (parsed.has("--levels")) {
    count = parse_count(parsed.get("--levels"), "--levels", 2);
    if (count > DSP_MIPMAP_MAX_LEVELS) throw UsageError("--levels must be at most 5");
  }
  uint32_t filter = DSP_SCALER_FILTER_LINEAR;
  if (parsed.has("--filter")) {
    const std::string f = parsed.get("--filter");
    if (f == "nearest") filter = DSP_SCALER_FILTER_NEAREST;
    else if (f == "linear") filter = DSP_SCALER_FILTER_LINEAR;
    else throw UsageError("--filter expects nearest or linear, got '" + f + "'");
  }
  const uint32_t frame_index = parsed.has("--frame") ? parse_count(parsed.get("--frame"), "--frame", 0) : 0;

  // 263 has no per-pixel entry in the format table; its files hold one byte a pixel like gray.
  const uint32_t file_format = format == DSP_PIXEL_FORMAT_MIPMAP ? DSP_PIXEL_FORMAT_KEY8 : format;
  RawLayout layout;
  std::string error;
  if (!make_layout(file_format, width, height, 0, 0, &layout, &error)) throw UsageError(error);
  std::vector<MipLevel> levels;
  if (!pyramid_sizes(width, height, count, &levels, &error)) throw UsageError(error);

  const std::string &in_path = parsed.positional[0], &out_path = parsed.positional[1];
  RawReader reader;
  if (!reader.open(in_path, layout, &error)) throw RuntimeError(error);
  if (frame_index >= reader.frames()) {
    throw UsageError("--frame " + std::to_string(frame_index) + " is past the last frame (" +
                     std::to_string(reader.frames() - 1) + ")");
  }
  std::vector<uint8_t> frame(layout.frame_bytes);
  if (!reader.read(frame_index, frame.data(), &error)) throw RuntimeError(error);
  levels[0].samples = luma_of(format, width, height, layout.stride, frame.data());

  double ms = 0;
  if (!build_pyramid(&levels, filter, &ms, &error)) throw RuntimeError(error);
  const Picture strip = mipmap_strip(levels);
  if (!write_png(out_path, strip, &error)) throw RuntimeError(error);
  std::printf("IN:  %s: %s, frame %u\nOUT: %s: %ux%u gray PNG, %u levels (%s), %.3f ms\n",
              in_path.c_str(), describe_layout(layout).c_str(), frame_index, out_path.c_str(),
              strip.width, strip.height, count, filter ? "linear" : "nearest", ms);
  for (size_t k = 0; k < levels.size(); ++k) {
    std::printf("  level %zu: %ux%u\n", k, levels[k].width, levels[k].height);
  }
  return kExitOk;
}

}  // namespace cli
}  // namespace framedsp
