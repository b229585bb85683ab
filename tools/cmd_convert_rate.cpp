// `framedsp convert-rate`: a clip from one frame rate to another with DspFrameRateConvert.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>

#include "calls.h"
#include "frame_loop.h"
#include "frame_rate_calls.h"

namespace framedsp {
namespace cli {

OutputTime output_time(uint64_t k, uint64_t from_num, uint64_t from_den, uint64_t to_num, uint64_t to_den) {
  const unsigned __int128 num = (unsigned __int128)k * from_num * to_den, den = (unsigned __int128)from_den * to_num;
  uint64_t pair = uint64_t(num / den);
  uint64_t phase = uint64_t(((num % den) * 32768 + den) / (2 * den));
  if (phase == 16384) ++pair, phase = 0;
  return {pair, uint32_t(phase)};
}

// A converter lives until the process ends (the library has no destroy call), so one per
// geometry and mode is made and kept here, where it stays reachable for the whole run.
DSP_HANDLE frame_rate_converter(uint32_t width, uint32_t height, uint32_t mode) {
  struct Made {
    uint32_t width, height, mode;
    DSP_HANDLE handle;
  };
  static Made made[8];
  static int count = 0;
  for (int i = 0; i < count; ++i)
    if (made[i].width == width && made[i].height == height && made[i].mode == mode) return made[i].handle;
  DSP_FRAME_RATE_CONVERTER_PARAMS p;
  std::memset(&p, 0, sizeof p);
  p.ulBaseCount = 1;
  p.lWidth = int32_t(width);
  p.lHeight = int32_t(height);
  p.eConvertMode = mode;
  p.ulLevels = 4;
  const uint32_t ranges[4] = {2, 2, 4, 4};
  for (int k = 0; k < 4; ++k) {  // a range may not pass a quarter of the picture; 0 means 1
    p.ulLevelRangeX[k] = std::max<uint32_t>(std::min(ranges[k], width / 4), 1);
    p.ulLevelRangeY[k] = std::max<uint32_t>(std::min(ranges[k], height / 4), 1);
  }
  DSP_HANDLE handle = nullptr;
  check_status("DspCreateFrameRateConverter", DspCreateFrameRateConverter(&p, &handle));
  if (count < 8) made[count++] = {width, height, mode, handle};
  return handle;
}

DSP_HRESULT convert_frame(DSP_HANDLE converter, uint32_t width, uint32_t height, bool luma_only, const uint8_t *a,
                          const uint8_t *b, uint8_t *out, uint32_t phase, uint32_t sampling, bool overlay,
                          double *ms, const std::vector<uint8_t> *field, uint8_t flags) {
  DSP_FRAME_RATE_CONVERT_PARAMS p;
  std::memset(&p, 0, sizeof p);
  DSP_IMAGE *frames[3] = {&p.FrameA, &p.FrameB, &p.FrameOut};
  const uint8_t *buffers[3] = {a, b, out};
  for (int i = 0; i < 3; ++i) {
    DSP_IMAGE &f = *frames[i];
    f.Buffer.pBuffer = const_cast<uint8_t *>(buffers[i]);
    f.Buffer.ulBytes = width * height * (luma_only ? 1 : 2);
    f.Buffer.eBufferType = DSP_BUFFER_TYPE_FRAME;
    f.Buffer.Region.ulWidth = f.ulWidth = width;
    f.Buffer.Region.ulHeight = f.ulHeight = height;
    f.ePixelFormat = DSP_PIXEL_FORMAT_MIPMAP;
    f.eInterlace = DSP_INTERLACE_PROGRESSIVE;
    f.ulPrimaryStrideBytes = f.ulSecondaryStrideBytes = width;
  }
  p.ulPhaseQ14 = phase;
  p.eSampling = uint8_t(sampling);
  p.bConvertFlags = uint8_t(flags | (luma_only ? DSP_CONVERT_LUMA_ONLY : 0));
  p.bOverlay = overlay ? 1 : 0;
  if (field) p.pVectorField = const_cast<uint8_t *>(field->data()), p.ulVectorFieldBytes = uint32_t(field->size());
  const auto t0 = std::chrono::steady_clock::now();
  const DSP_HRESULT hr = DspFrameRateConvert(converter, &p, 0);
  if (ms) *ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
  return hr;
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

void uyvy_to_nv16(const uint8_t *uyvy, uint32_t width, uint32_t height, uint8_t *planes) {
  const size_t n = size_t(width) * height;
  for (size_t i = 0; i < n; i += 2) {
    planes[n + i] = uyvy[2 * i], planes[i] = uyvy[2 * i + 1];
    planes[n + i + 1] = uyvy[2 * i + 2], planes[i + 1] = uyvy[2 * i + 3];
  }
}

void nv16_to_uyvy(const uint8_t *planes, uint32_t width, uint32_t height, uint8_t *uyvy) {
  const size_t n = size_t(width) * height;
  for (size_t i = 0; i < n; i += 2) {
    uyvy[2 * i] = planes[n + i], uyvy[2 * i + 1] = planes[i];
    uyvy[2 * i + 2] = planes[n + i + 1], uyvy[2 * i + 3] = planes[i + 1];
  }
}

namespace {

const char kHelp[] =
    "usage: framedsp convert-rate --from A --to B -s WxH -pix_fmt F -i IN.raw OUT.raw [options]\n"
    "\n"
    "Converts a raw clip from A to B frames a second with DspFrameRateConvert.  Output k is the\n"
    "picture at time k/B, made from the two inputs around it by motion-compensated\n"
    "interpolation; an output on an input's time is that input, byte for byte.  The clip holds\n"
    "floor((N - 1) * B / A) + 1 outputs.  The inputs are read once each, in order (two in\n"
    "memory); each input's pyramid (DspCreateMipMaps) and each pair's field\n"
    "(DspCreateMotionVectors, the previous pair's field as temporal candidates) are made once.\n"
    "\n"
    "  --from A, --to B     frame rates: whole numbers or fractions (30000/1001)\n"
    "  -s, --size WxH       frame size\n"
    "  -pix_fmt F           gray (8-bit luma) or 263 (luma, then NV16 chroma: Cb Cr pairs at\n"
    "                       half width, the same bytes a line)\n"
    "  --sampling S         6tap (default), 4tap, bilinear, nearest\n"
    "  --mode M             motion (default), blend, nearest\n"
    "  --no-occlusion       no covered / uncovered handling at object boundaries: every\n"
    "                       pixel blends both inputs (DSP_CONVERT_NO_OCCLUSION)\n"
    "  --png FILE           a PNG strip of the first interpolated output's luma: input A, the\n"
    "                       output, input B and the output with the vectors drawn\n"
    "  --log                one line per output frame: inputs, phase, milliseconds of the call\n"
    "\n"
    "example:\n"
    "  framedsp convert-rate --from 30 --to 60 -s 1280x720 -pix_fmt gray -i in.raw -y out.raw\n";

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

// Streaming: each input's pyramid (DspCreateMipMaps) is made once, each pair's field
// (DspCreateMotionVectors, both directions) once, and every output of the pair follows it.
class Stream {
 public:
  Stream(uint32_t width, uint32_t height) : w_(width), h_(height) {
    levels_ = 1;
    while (levels_ < 4 && (width >> levels_) >= 16 && (height >> levels_) >= 16) ++levels_;
    field_.resize(DSP_VECTOR_FIELD_BYTES(width, height, 16u, 16u));
  }
  // The field from input `pair` to `pair` + 1.
  const std::vector<uint8_t> *field(DSP_HANDLE converter, uint64_t pair, const uint8_t *a, const uint8_t *b) {
    if (field_pair_ == pair) return &field_;
    const DSP_MIPMAP_LEVELS *la = pyramid(converter, pair, a), *lb = pyramid(converter, pair + 1, b);
    DSP_MOTION_VECTORS_PARAMS p;
    std::memset(&p, 0, sizeof p);
    p.pLevelsA = la, p.pLevelsB = lb;
    p.pVectorField = field_.data();
    p.ulVectorFieldBytes = uint32_t(field_.size());
    p.ulLevels = levels_;
    p.ulBlockA = p.ulBlockB = 16;
    // The previous pair's field, when it is the pair before, gives temporal candidates.
    if (field_pair_ + 1 == pair) p.pPriorField = field_.data();
    const uint32_t ranges[4] = {2, 2, 4, 4};
    for (uint32_t k = 0; k < 4; ++k) {
      p.ulLevelRangeX[k] = std::max<uint32_t>(std::min(ranges[k], w_ / 4), 1);
      p.ulLevelRangeY[k] = std::max<uint32_t>(std::min(ranges[k], h_ / 4), 1);
    }
    const auto t0 = std::chrono::steady_clock::now();
    check_status("DspCreateMotionVectors", DspCreateMotionVectors(converter, &p));
    ms += std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
    field_pair_ = pair;
    return &field_;
  }

 private:
  const DSP_MIPMAP_LEVELS *pyramid(DSP_HANDLE converter, uint64_t index, const uint8_t *frame) {
    for (Pyramid &p : pyramids_)
      if (p.index == index) return &p.levels;
    Pyramid &p = pyramids_[next_];
    next_ ^= 1;
    p.index = index;
    size_t bytes = 0;
    for (uint32_t k = 1; k < levels_; ++k) bytes += size_t(w_ >> k) * (h_ >> k);
    p.samples.resize(bytes);
    std::memset(&p.levels, 0, sizeof p.levels);
    p.levels.ulCount = levels_;
    uint8_t *next = p.samples.data();
    for (uint32_t k = 0; k < levels_; ++k) {
      DSP_IMAGE &im = p.levels.Levels[k];
      const uint32_t lw = w_ >> k, lh = h_ >> k;
      im.Buffer.pBuffer = k ? next : const_cast<uint8_t *>(frame);
      im.Buffer.ulBytes = lw * lh;
      im.Buffer.eBufferType = DSP_BUFFER_TYPE_FRAME;
      im.Buffer.Region.ulWidth = im.ulWidth = lw;
      im.Buffer.Region.ulHeight = im.ulHeight = lh;
      im.ePixelFormat = DSP_PIXEL_FORMAT_MIPMAP;
      im.eInterlace = DSP_INTERLACE_PROGRESSIVE;
      im.ulPrimaryStrideBytes = lw;
      if (k) next += size_t(lw) * lh;
    }
    DSP_MIPMAP_PARAMS call;
    std::memset(&call, 0, sizeof call);
    call.Base = p.levels.Levels[0];
    call.pLevels = &p.levels;
    call.eFilter = DSP_SCALER_FILTER_LINEAR;
    const auto t0 = std::chrono::steady_clock::now();
    check_status("DspCreateMipMaps", DspCreateMipMaps(converter, &call));
    ms += std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
    return &p.levels;
  }

  struct Pyramid {
    uint64_t index = UINT64_MAX;
    DSP_MIPMAP_LEVELS levels;
    std::vector<uint8_t> samples;
  };
  uint32_t w_, h_, levels_;
  Pyramid pyramids_[2];
  size_t next_ = 0;
  std::vector<uint8_t> field_;
  uint64_t field_pair_ = UINT64_MAX;

 public:
  double ms = 0;  // time spent in DspCreateMipMaps and DspCreateMotionVectors
};

class ConvertRate : public FrameCommand {
 public:
  ConvertRate() : FrameCommand(1, Out::kRaw) {}

  void setup(const Parsed &parsed, Job &job) override {
    if (!parsed.has("--from") || !parsed.has("--to")) throw UsageError("missing --from or --to");
    parse_rate(parsed.get("--from"), "--from", &from_num_, &from_den_);
    parse_rate(parsed.get("--to"), "--to", &to_num_, &to_den_);
    const uint32_t format = job.in.format;
    if (format != DSP_PIXEL_FORMAT_KEY8 && format != DSP_PIXEL_FORMAT_MIPMAP)
      throw UsageError("convert-rate reads gray or 263 frames");
    luma_only_ = format == DSP_PIXEL_FORMAT_KEY8;
    width_ = job.in.width, height_ = job.in.height;
    if (!luma_only_) {  // two planes of the same bytes
      std::string error;
      if (!make_layout(DSP_PIXEL_FORMAT_MIPMAP, width_, 2 * height_, 0, 0, &job.in, &error)) throw UsageError(error);
      job.out = job.in;
    }
    if (parsed.has("--sampling"))
      sampling_ = pick(parsed.get("--sampling"), "--sampling", {"6tap", "4tap", "bilinear", "nearest"});
    if (parsed.has("--mode")) mode_ = pick(parsed.get("--mode"), "--mode", {"motion", "blend", "nearest"});
    if (parsed.has("--png")) png_ = job.output(parsed.get("--png"));
    log_ = parsed.has("--log");
    if (parsed.has("--no-occlusion")) flags_ = DSP_CONVERT_NO_OCCLUSION;
  }

  uint64_t begin(Job &job) override {
    converter_ = frame_rate_converter(width_, height_, mode_);
    return (job.in_frames - 1) * to_num_ * from_den_ / (to_den_ * from_num_) + 1;
  }

  void frame(Job &job, uint64_t index, uint8_t *out) override {
    const OutputTime t = output_time(index, from_num_, from_den_, to_num_, to_den_);
    const uint8_t *a = job.input(t.pair);
    const uint8_t *b = t.phase ? job.input(t.pair + 1) : a;
    double ms = 0;
    const std::vector<uint8_t> *field = nullptr;
    if (t.phase && mode_ == DSP_CONVERT_MODE_MOTION) {
      if (!stream_) stream_ = std::make_unique<Stream>(width_, height_);
      field = stream_->field(converter_, t.pair, a, b);
    }
    check_status("DspFrameRateConvert", convert_frame(converter_, width_, height_, luma_only_, a, b, out, t.phase,
                                                      sampling_, false, &ms, field, flags_));
    ms_ += ms;
    if (log_)
      std::printf("output %llu: inputs %llu-%llu phase %u (%.4f) %.2f ms\n", (unsigned long long)index,
                  (unsigned long long)t.pair, (unsigned long long)(t.pair + (t.phase != 0)), t.phase,
                  t.phase / 16384.0, ms);
    if (!png_.empty() && t.phase && !strip_done_) {
      std::vector<uint8_t> drawn(job.out.frame_bytes);
      check_status("DspFrameRateConvert", convert_frame(converter_, width_, height_, luma_only_, a, b, drawn.data(),
                                                        t.phase, sampling_, true, nullptr, field, flags_));
      std::string error;
      if (!write_png(png_, gray_strip({a, out, b, drawn.data()}, width_, height_), &error)) throw RuntimeError(error);
      strip_done_ = true;
    }
  }

  std::string finish(Job &) override {
    if (!png_.empty()) std::printf("OUT: %s: %s\n", png_.c_str(), strip_done_ ? "strip A | output | B | vectors" : "no interpolated output");
    char text[160];
    std::snprintf(text, sizeof text, "%.2f ms of DspFrameRateConvert, %.2f ms of DspCreateMipMaps and "
                  "DspCreateMotionVectors in all", ms_, stream_ ? stream_->ms : 0.0);
    return text;
  }

 private:
  uint64_t from_num_ = 0, from_den_ = 1, to_num_ = 0, to_den_ = 1;
  uint32_t width_ = 0, height_ = 0, sampling_ = 0, mode_ = 0;
  uint8_t flags_ = 0;
  bool luma_only_ = true, log_ = false, strip_done_ = false;
  std::string png_;
  DSP_HANDLE converter_ = nullptr;
  double ms_ = 0;
  std::unique_ptr<Stream> stream_;
};

}  // namespace

extern const Command kConvertRateCommand = {
    "convert-rate",
    "change a clip's frame rate by motion-compensated interpolation",
    kHelp,
    Common::kClip,
    {{"--from", true}, {"--to", true}, {"--sampling", true}, {"--mode", true}, {"--png", true}, {"--log", false},
     {"--no-occlusion", false}},
    run_clip<ConvertRate>};

}  // namespace cli
}  // namespace framedsp
