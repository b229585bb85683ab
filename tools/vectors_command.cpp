#include "vectors_command.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "args.h"
#include "formats.h"
#include "mipmaps_command.h"

namespace framedsp {
namespace cli {

const char kVectorsHelp[] =
    "usage: framedsp vectors A.raw B.raw OUT.png -s WxH [-f gray|263] [options]\n"
    "\n"
    "Estimates block motion from frame A to frame B and back with DspCreateMotionVectors on\n"
    "pyramids built by DspCreateMipMaps, prints the statistics of both fields and draws the\n"
    "forward field into OUT.png.\n"
    "\n"
    "  -s, --size WxH       frame size (required)\n"
    "  -f, --format F       gray (one byte a pixel, the default) or 263 (two planes of W x H:\n"
    "                       the luma plane is used)\n"
    "  --frame-a N, --frame-b N  frames of A and B, counted from 0 (default 0; A and B may be\n"
    "                       the same file: --frame-b 1)\n"
    "  --levels N           pyramid levels, 1..5 (default 4; fewer when the width does not\n"
    "                       halve evenly that often)\n"
    "  --block N            final block size, 8..32 (default 8)\n"
    "  --range R            search range at every level (default 1; the reach is R x (2^levels - 1)\n"
    "                       pixels)\n"
    "  --whole-pixel        no half- and quarter-pixel refinement\n"
    "  --style arrows|wheel arrows over the picture (default) or a colour wheel per block\n"
    "  --scale K            arrow length per pixel of motion (default 2)\n"
    "\n"
    "Arrows start at each block's centre: green, red for bad blocks (cost above the scene\n"
    "threshold), yellow where forward and backward disagree.  The wheel colours each block by\n"
    "its direction (right red, down yellow-green, left cyan, up violet), brighter for longer\n"
    "vectors; bad blocks are black.\n"
    "\n"
    "examples:\n"
    "  framedsp vectors a.gray b.gray v.png -s 1280x720\n"
    "  framedsp vectors clip.gray clip.gray v.png -s 640x360 --frame-b 1 --style wheel\n";

namespace {

std::string hex(DSP_HRESULT status) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(status));
  return text;
}

struct Tuning {
  uint32_t range;
  bool whole;
};

void apply_tuning(DSP_MOTION_VECTORS_PARAMS *p, void *data) {
  const Tuning &t = *static_cast<const Tuning *>(data);
  for (int k = 0; k < 5; ++k) p->ulLevelRangeX[k] = p->ulLevelRangeY[k] = t.range;
  if (t.whole) p->ulMotionFlags |= DSP_MOTION_WHOLE_PIXEL;
}

// The luma of frame `index` of a raw file: frames of `frame_bytes`, the plane first.
std::vector<uint8_t> read_plane(const std::string &path, size_t frame_bytes, size_t plane_bytes,
                                uint32_t index) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw RuntimeError(path + ": cannot open");
  in.seekg(0, std::ios::end);
  const uint64_t size = static_cast<uint64_t>(in.tellg());
  if (size % frame_bytes) {
    throw RuntimeError(path + ": " + std::to_string(size) + " bytes is not a whole number of " +
                       std::to_string(frame_bytes) + "-byte frames");
  }
  if (index >= size / frame_bytes) {
    throw UsageError(path + " has " + std::to_string(size / frame_bytes) + " frame(s); frame " +
                     std::to_string(index) + " asked for");
  }
  std::vector<uint8_t> plane(plane_bytes);
  in.seekg(static_cast<std::streamoff>(index * frame_bytes));
  in.read(reinterpret_cast<char *>(plane.data()), static_cast<std::streamsize>(plane_bytes));
  if (!in) throw RuntimeError(path + ": read failed");
  return plane;
}

void put(Picture *p, int x, int y, const uint8_t c[3]) {
  if (x < 0 || y < 0 || x >= static_cast<int>(p->width) || y >= static_cast<int>(p->height)) return;
  std::memcpy(&p->pixels[(static_cast<size_t>(y) * p->width + x) * 3], c, 3);
}

void line(Picture *p, double x0, double y0, double x1, double y1, const uint8_t c[3]) {
  const int n = static_cast<int>(std::max(std::fabs(x1 - x0), std::fabs(y1 - y0))) + 1;
  for (int i = 0; i <= n; ++i) {
    const double t = static_cast<double>(i) / n;
    put(p, static_cast<int>(std::lround(x0 + t * (x1 - x0))), static_cast<int>(std::lround(y0 + t * (y1 - y0))), c);
  }
}

void hsv(double h, double v, uint8_t out[3]) {
  const double k[3] = {5, 3, 1};
  for (int i = 0; i < 3; ++i) {
    const double m = std::fmod(k[i] + h * 6, 6);
    out[i] = static_cast<uint8_t>(std::lround(255 * v * (1 - std::max(0.0, std::min({m, 4 - m, 1.0})))));
  }
}

}  // namespace

bool estimate_vectors(const std::vector<uint8_t> &a, const std::vector<uint8_t> &b, uint32_t width,
                      uint32_t height, uint32_t levels, uint32_t block,
                      void (*tune)(DSP_MOTION_VECTORS_PARAMS *, void *), void *tune_data,
                      VectorField *field, std::string *error) {
  // The pyramid's scaler keeps widths even: level k exists while width / 2^k is even.
  while (levels > 1 && (width % (1u << levels) != 0 || (height >> (levels - 1)) == 0)) --levels;
  std::vector<MipLevel> pa, pb;
  if (!pyramid_sizes(width, height, levels, &pa, error) || !pyramid_sizes(width, height, levels, &pb, error)) return false;
  pa[0].samples = a;
  pb[0].samples = b;
  double ms = 0;
  if (!build_pyramid(&pa, DSP_SCALER_FILTER_LINEAR, &ms, error) || !build_pyramid(&pb, DSP_SCALER_FILTER_LINEAR, &ms, error)) return false;
  DSP_MIPMAP_LEVELS la{}, lb{};
  la.ulCount = lb.ulCount = levels;
  for (uint32_t k = 0; k < levels; ++k) {
    for (int side = 0; side < 2; ++side) {
      MipLevel &m = side ? pb[k] : pa[k];
      DSP_IMAGE &d = side ? lb.Levels[k] : la.Levels[k];
      d.Buffer.pBuffer = m.samples.data();
      d.Buffer.ulBytes = static_cast<uint32_t>(m.samples.size());
      d.Buffer.eBufferType = DSP_BUFFER_TYPE_FRAME;
      d.Buffer.Region.ulWidth = d.ulWidth = m.width;
      d.Buffer.Region.ulHeight = d.ulHeight = m.height;
      d.ePixelFormat = DSP_PIXEL_FORMAT_MIPMAP;
      d.eInterlace = DSP_INTERLACE_PROGRESSIVE;
      d.ulPrimaryStrideBytes = m.width;
    }
  }
  std::vector<uint8_t> bytes(DSP_VECTOR_FIELD_BYTES(width, height, block, block));
  DSP_MOTION_VECTORS_PARAMS p{};
  p.pLevelsA = &la;
  p.pLevelsB = &lb;
  p.pVectorField = bytes.data();
  p.ulVectorFieldBytes = static_cast<uint32_t>(bytes.size());
  p.ulBlockA = p.ulBlockB = block;
  if (tune) tune(&p, tune_data);
  // The operation needs a live converter (its settings are not used); one serves the process.
  DSP_FRAME_RATE_CONVERTER_PARAMS create{};
  create.ulBaseCount = 1;
  create.lWidth = create.lHeight = 64;
  static DSP_HANDLE converter = nullptr;
  if (!converter && DspCreateFrameRateConverter(&create, &converter) != DSP_S_OK) {
    *error = "DspCreateFrameRateConverter failed";
    return false;
  }
  const auto start = std::chrono::steady_clock::now();
  const DSP_HRESULT status = DspCreateMotionVectors(converter, &p);
  field->ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  if (status != DSP_S_OK) {
    *error = "DspCreateMotionVectors returned " + hex(status) + " (FRAMEDSP_TRACE=1 names the reason)";
    return false;
  }
  std::memcpy(&field->header, bytes.data(), sizeof field->header);
  field->entries.resize((field->header.ulFieldBytes - DSP_VECTOR_FIELD_HEADER_BYTES) / 8);
  std::memcpy(field->entries.data(), bytes.data() + DSP_VECTOR_FIELD_HEADER_BYTES, field->entries.size() * 8);
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
  for (uint32_t r = 0; r < h.ulRows; ++r) {
    for (uint32_t c = 0; c < h.ulColumns; ++c) {
      const DSP_MOTION_VECTOR &v = field.entries[r * h.ulColumns + c];
      const uint32_t x0 = c * h.ulBlockWidth, y0 = r * h.ulBlockHeight;
      const uint32_t bw = std::min(h.ulBlockWidth, width - x0), bh = std::min(h.ulBlockHeight, height - y0);
      const double vx = v.sX / 4.0, vy = v.sY / 4.0;
      if (wheel) {
        uint8_t colour[3] = {0, 0, 0};
        if (!(v.usFlags & DSP_MV_BAD)) {
          hsv(std::atan2(vy, vx) / 6.283185307179586 + 0.5, std::min(1.0, 0.25 + std::hypot(vx, vy) / 8), colour);
        }
        for (uint32_t y = y0; y < y0 + bh; ++y)
          for (uint32_t x = x0; x < x0 + bw; ++x) put(&out, static_cast<int>(x), static_cast<int>(y), colour);
        continue;
      }
      static const uint8_t kGood[3] = {40, 230, 60}, kBad[3] = {240, 40, 40}, kOdd[3] = {240, 220, 40};
      const uint8_t *colour = (v.usFlags & DSP_MV_BAD) ? kBad : (v.usFlags & DSP_MV_INCONSISTENT) ? kOdd : kGood;
      const double cx = x0 + bw / 2.0, cy = y0 + bh / 2.0;
      line(&out, cx, cy, cx + scale * vx, cy + scale * vy, colour);
      put(&out, static_cast<int>(cx), static_cast<int>(cy), colour);
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
  std::snprintf(text, sizeof text, "  bad %u, inconsistent %u, outside %u, flat %u, exhaustive %u", flags[0], flags[1],
                flags[2], flags[3], flags[4]);
  lines.push_back(text);
  return lines;
}

bool demo_vectors(const std::vector<uint8_t> &a, const std::vector<uint8_t> &b, uint32_t width,
                  uint32_t height, Picture *picture, std::string *caption, double *ms,
                  std::string *error) {
  VectorField field;
  if (!estimate_vectors(a, b, width, height, 4, 8, nullptr, nullptr, &field, error)) return false;
  *picture = draw_vectors(a, width, height, field, false, 3);
  *ms = field.ms;
  *caption = "luma, frame 0 -> 1, 8x8 blocks, bad " + std::to_string(field.header.ulBadForward) + " / " +
             std::to_string(field.header.ulBadBackward) + " of " +
             std::to_string(field.header.ulColumns * field.header.ulRows) + " (arrows x3)";
  return true;
}

int cmd_vectors(const std::vector<std::string> &args) {
  const Parsed parsed = parse(args, {{"--size", "-s", true},        {"--format", "-f", true},
                                     {"--frame-a", nullptr, true},  {"--frame-b", nullptr, true},
                                     {"--levels", nullptr, true},   {"--block", nullptr, true},
                                     {"--range", nullptr, true},    {"--whole-pixel", nullptr, false},
                                     {"--style", nullptr, true},    {"--scale", nullptr, true}});
  if (parsed.help) return std::fputs(kVectorsHelp, stdout), kExitOk;
  expect_positional(parsed, 3, "files: framedsp vectors A.raw B.raw OUT.png -s WxH");
  uint32_t width = 0, height = 0;
  if (!parsed.has("--size")) throw UsageError("missing frame size (-s WxH)");
  parse_size_option(parsed, &width, &height);
  uint32_t format = DSP_PIXEL_FORMAT_KEY8;
  std::string error;
  if (parsed.has("--format") && !parse_format(parsed.get("--format"), &format, &error)) throw UsageError(error);
  if (format != DSP_PIXEL_FORMAT_KEY8 && format != DSP_PIXEL_FORMAT_MIPMAP)
    throw UsageError("vectors reads gray or 263 frames, not " + format_label(format));
  const uint32_t levels = parsed.has("--levels") ? parse_count(parsed.get("--levels"), "--levels", 1) : 4;
  const uint32_t block = parsed.has("--block") ? parse_count(parsed.get("--block"), "--block", 8) : 8;
  if (levels > 5) throw UsageError("--levels must be 1..5");
  if (block > 32) throw UsageError("--block must be 8..32");
  Tuning tuning{parsed.has("--range") ? parse_count(parsed.get("--range"), "--range", 1) : 1, parsed.has("--whole-pixel")};
  const std::string style = parsed.has("--style") ? parsed.get("--style") : "arrows";
  if (style != "arrows" && style != "wheel") throw UsageError("--style expects arrows or wheel, got '" + style + "'");
  const double scale = parsed.has("--scale") ? std::atof(parsed.get("--scale").c_str()) : 2.0;

  const size_t plane = static_cast<size_t>(width) * height;
  const size_t frame = format == DSP_PIXEL_FORMAT_MIPMAP ? 2 * plane : plane;
  const uint32_t fa = parsed.has("--frame-a") ? parse_count(parsed.get("--frame-a"), "--frame-a", 0) : 0;
  const uint32_t fb = parsed.has("--frame-b") ? parse_count(parsed.get("--frame-b"), "--frame-b", 0) : 0;
  const std::vector<uint8_t> a = read_plane(parsed.positional[0], frame, plane, fa);
  const std::vector<uint8_t> b = read_plane(parsed.positional[1], frame, plane, fb);

  VectorField field;
  if (!estimate_vectors(a, b, width, height, levels, block, apply_tuning, &tuning, &field, &error)) throw RuntimeError(error);
  std::printf("A: %s frame %u\nB: %s frame %u\n%ux%u, %ux%u blocks (%u x %u), DspCreateMotionVectors %.2f ms\n",
              parsed.positional[0].c_str(), fa, parsed.positional[1].c_str(), fb, width, height,
              field.header.ulBlockWidth, field.header.ulBlockHeight, field.header.ulColumns, field.header.ulRows,
              field.ms);
  for (int dir = 0; dir < 2; ++dir)
    for (const std::string &l : vector_statistics(field, dir)) std::printf("%s\n", l.c_str());
  if (!write_png(parsed.positional[2], draw_vectors(a, width, height, field, style == "wheel", scale), &error))
    throw RuntimeError(error);
  std::printf("forward field (%s): %s\n", style.c_str(), parsed.positional[2].c_str());
  return kExitOk;
}

}  // namespace cli
}  // namespace framedsp
