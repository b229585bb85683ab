#include "convert_rate_command.h"

#include <chrono>
#include <cstdio>
#include <cstring>

#include "args.h"
#include "progress.h"
#include "raw_io.h"

namespace framedsp {
namespace cli {

const char kConvertRateHelp[] =
    "usage: framedsp convert-rate --from A --to B -s WxH -pix_fmt F -i IN.raw [-y] OUT.raw [options]\n"
    "\n"
    "Converts a raw clip from A to B frames a second with DspFrameRateConvert: output k is the\n"
    "picture at time k/B, made from the two inputs around it by motion-compensated\n"
    "interpolation (the converter estimates the motion of each pair).  An output on an input's\n"
    "time is that input, byte for byte.  The clip holds floor((N - 1) * B / A) + 1 outputs.\n"
    "\n"
    "  --from A, --to B     frame rates: whole numbers or fractions (30000/1001)\n"
    "  -s, --size WxH       frame size\n"
    "  -pix_fmt F           gray (8-bit luma) or nv16 (format 263: luma, then Cb Cr pairs)\n"
    "  -i IN.raw            the input clip;  -y overwrites OUT.raw\n"
    "  --sampling S         6tap (default), 4tap, bilinear, nearest\n"
    "  --mode M             motion (default), blend, nearest\n"
    "  --png FILE           a PNG strip of the first interpolated output: input A, the output,\n"
    "                       input B and the output with its vectors drawn\n"
    "  --log                one line per output frame on stdout: pair, phase, milliseconds\n"
    "  --progress           progress line on stderr (default when stderr is a terminal)\n"
    "\n"
    "example:\n"
    "  framedsp convert-rate --from 30 --to 60 -s 1280x720 -pix_fmt gray -i in.raw -y out.raw\n";

namespace {

void parse_rate(const std::string &text, const char *option, uint64_t *num, uint64_t *den) {
  const size_t slash = text.find('/');
  *num = parse_count(text.substr(0, slash), option, 1);
  *den = slash == std::string::npos ? 1 : parse_count(text.substr(slash + 1), option, 1);
}

uint32_t pick(const std::string &text, const char *option, const std::vector<const char *> &names) {
  for (size_t i = 0; i < names.size(); ++i)
    if (text == names[i]) return uint32_t(i);
  std::string all;
  for (const char *n : names) all += std::string(all.empty() ? "" : ", ") + n;
  throw UsageError(std::string(option) + " is one of " + all + "; got '" + text + "'");
}

std::string hex(DSP_HRESULT hr) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(hr));
  return text;
}

}  // namespace

OutputTime output_time(uint64_t k, uint64_t from_num, uint64_t from_den, uint64_t to_num, uint64_t to_den) {
  const unsigned __int128 num = (unsigned __int128)k * from_num * to_den, den = (unsigned __int128)from_den * to_num;
  uint64_t pair = uint64_t(num / den);
  uint64_t phase = uint64_t(((num % den) * 32768 + den) / (2 * den));
  if (phase == 16384) ++pair, phase = 0;
  return {pair, uint32_t(phase)};
}

bool create_converter(uint32_t width, uint32_t height, uint32_t mode, DSP_HANDLE *handle, std::string *error) {
  DSP_FRAME_RATE_CONVERTER_PARAMS p;
  std::memset(&p, 0, sizeof p);
  p.ulBaseCount = 1;
  p.lWidth = int32_t(width);
  p.lHeight = int32_t(height);
  p.eConvertMode = mode;
  p.ulLevels = 4;
  const uint32_t ranges[4] = {2, 2, 4, 4};
  for (int k = 0; k < 4; ++k) {
    // A range may not pass a quarter of the picture; 0 would take the default of 1.
    p.ulLevelRangeX[k] = std::max<uint32_t>(std::min(ranges[k], width / 4), 1);
    p.ulLevelRangeY[k] = std::max<uint32_t>(std::min(ranges[k], height / 4), 1);
  }
  const DSP_HRESULT hr = DspCreateFrameRateConverter(&p, handle);
  if (hr != DSP_S_OK) *error = "DspCreateFrameRateConverter returned " + hex(hr);
  return hr == DSP_S_OK;
}

DSP_HRESULT convert_frame(DSP_HANDLE converter, uint32_t width, uint32_t height, bool luma_only, const uint8_t *a,
                          const uint8_t *b, uint8_t *out, uint32_t phase, uint32_t sampling, bool overlay) {
  DSP_FRAME_RATE_CONVERT_PARAMS p;
  std::memset(&p, 0, sizeof p);
  const uint32_t bytes = width * height * (luma_only ? 1 : 2);
  DSP_IMAGE *frames[3] = {&p.FrameA, &p.FrameB, &p.FrameOut};
  const uint8_t *buffers[3] = {a, b, out};
  for (int i = 0; i < 3; ++i) {
    DSP_IMAGE &f = *frames[i];
    f.Buffer.pBuffer = const_cast<uint8_t *>(buffers[i]);
    f.Buffer.ulBytes = bytes;
    f.Buffer.eBufferType = DSP_BUFFER_TYPE_FRAME;
    f.Buffer.Region.ulWidth = f.ulWidth = width;
    f.Buffer.Region.ulHeight = f.ulHeight = height;
    f.ePixelFormat = DSP_PIXEL_FORMAT_MIPMAP;
    f.eInterlace = DSP_INTERLACE_PROGRESSIVE;
    f.ulPrimaryStrideBytes = f.ulSecondaryStrideBytes = width;
  }
  p.ulPhaseQ14 = phase;
  p.eSampling = uint8_t(sampling);
  p.bConvertFlags = luma_only ? DSP_CONVERT_LUMA_ONLY : 0;
  p.bOverlay = overlay ? 1 : 0;
  return DspFrameRateConvert(converter, &p, 0);
}

Picture gray_strip(const std::vector<const uint8_t *> &planes, uint32_t width, uint32_t height) {
  Picture pic;
  pic.width = uint32_t(planes.size()) * (width + 1) - 1;
  pic.height = height;
  pic.pixels.assign(size_t(pic.width) * height, 0);
  for (size_t i = 0; i < planes.size(); ++i)
    for (uint32_t y = 0; y < height; ++y)
      std::memcpy(&pic.pixels[y * size_t(pic.width) + i * (width + 1)], planes[i] + size_t(y) * width, width);
  return pic;
}

int cmd_convert_rate(const std::vector<std::string> &args) {
  const Parsed parsed = parse(args, {{"--from", nullptr, true},   {"--to", nullptr, true},
                                     {"--size", "-s", true},      {"--pix_fmt", "-pix_fmt", true},
                                     {"--input", "-i", true},     {"--overwrite", "-y", false},
                                     {"--sampling", nullptr, true}, {"--mode", nullptr, true},
                                     {"--png", nullptr, true},    {"--log", nullptr, false}});
  if (parsed.help) return std::fputs(kConvertRateHelp, stdout), kExitOk;
  if (!parsed.has("--from") || !parsed.has("--to")) throw UsageError("missing --from or --to");
  if (!parsed.has("--size")) throw UsageError("missing frame size (-s WxH)");
  if (!parsed.has("--input")) throw UsageError("missing input clip (-i IN.raw)");
  expect_positional(parsed, 1, "output file");
  uint64_t from_num, from_den, to_num, to_den;
  parse_rate(parsed.get("--from"), "--from", &from_num, &from_den);
  parse_rate(parsed.get("--to"), "--to", &to_num, &to_den);
  uint32_t width, height;
  parse_size_option(parsed, &width, &height);
  const bool luma_only =
      pick(parsed.has("--pix_fmt") ? parsed.get("--pix_fmt") : "gray", "-pix_fmt", {"gray", "nv16"}) == 0;
  if (!luma_only && (width & 1)) throw UsageError("nv16 needs an even width");
  const uint32_t sampling =
      parsed.has("--sampling") ? pick(parsed.get("--sampling"), "--sampling", {"6tap", "4tap", "bilinear", "nearest"}) : 0;
  const uint32_t mode = parsed.has("--mode") ? pick(parsed.get("--mode"), "--mode", {"motion", "blend", "nearest"}) : 0;
  const std::string out_path = parsed.positional[0];

  std::string error;
  RawLayout layout;
  if (!make_layout(DSP_PIXEL_FORMAT_KEY8, width, height * (luma_only ? 1 : 2), 0, 0, &layout, &error))
    throw UsageError(error);
  RawReader reader;
  if (!reader.open(parsed.get("--input"), layout, &error)) throw RuntimeError(error);
  if (!parsed.has("--overwrite")) {
    if (std::FILE *f = std::fopen(out_path.c_str(), "rb")) {
      std::fclose(f);
      throw RuntimeError(out_path + " exists (-y overwrites it)");
    }
  }
  RawWriter writer;
  if (!writer.open(out_path, &error)) throw RuntimeError(error);
  DSP_HANDLE converter = nullptr;
  if (!create_converter(width, height, mode, &converter, &error)) throw RuntimeError(error);

  const uint64_t inputs = reader.frames();
  const uint64_t outputs = (inputs - 1) * to_num * from_den / (to_den * from_num) + 1;
  const size_t frame = size_t(layout.frame_bytes);
  std::vector<uint8_t> a(frame), b(frame), out(frame);
  uint64_t have_a = UINT64_MAX, have_b = UINT64_MAX;
  bool strip_done = !parsed.has("--png");
  Progress progress("convert-rate", outputs, parsed.progress);
  for (uint64_t k = 0; k < outputs; ++k) {
    const OutputTime t = output_time(k, from_num, from_den, to_num, to_den);
    const uint64_t nb = std::min(t.pair + 1, inputs - 1);
    if (have_a != t.pair) {
      if (have_b == t.pair) {
        a.swap(b), have_a = have_b, have_b = UINT64_MAX;
      } else if (!reader.read(t.pair, a.data(), &error)) {
        throw RuntimeError(error);
      }
      have_a = t.pair;
    }
    if (t.phase && have_b != nb) {
      if (!reader.read(nb, b.data(), &error)) throw RuntimeError(error);
      have_b = nb;
    }
    const auto t0 = std::chrono::steady_clock::now();
    const DSP_HRESULT hr = convert_frame(converter, width, height, luma_only, a.data(), t.phase ? b.data() : a.data(),
                                         out.data(), t.phase, sampling, false);
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
    if (hr == DSP_E_NOTIMPL) throw RuntimeError("DspFrameRateConvert: not implemented");
    if (hr != DSP_S_OK) throw RuntimeError("DspFrameRateConvert returned " + hex(hr));
    if (!writer.write(out.data(), frame, &error)) throw RuntimeError(error);
    if (parsed.has("--log"))
      std::printf("output %llu: inputs %llu-%llu phase %u (%.4f) %.2f ms\n", (unsigned long long)k,
                  (unsigned long long)t.pair, (unsigned long long)nb, t.phase, t.phase / 16384.0, ms);
    if (!strip_done && t.phase) {
      std::vector<uint8_t> drawn(frame);
      convert_frame(converter, width, height, luma_only, a.data(), b.data(), drawn.data(), t.phase, sampling, true);
      if (!write_png(parsed.get("--png"), gray_strip({a.data(), out.data(), b.data(), drawn.data()}, width, height),
                     &error))
        throw RuntimeError(error);
      strip_done = true;
    }
    progress.update(k + 1);
  }
  progress.finish();
  if (!writer.close(&error)) throw RuntimeError(error);
  return kExitOk;
}

}  // namespace cli
}  // namespace framedsp
