// `framedsp demo`: the steps, each one or a few library calls on the clip, and the command.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "calls.h"
#include "clip.h"
#include "demo.h"
#include "formats.h"
#include "frame_loop.h"
#include "frame_rate_calls.h"

namespace framedsp {
namespace cli {

namespace {

using Clock = std::chrono::steady_clock;

double ms_since(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

bool save_png(Demo &demo, const std::string &name, const Picture &picture,
              std::string *error) {
  demo.pictures[name] = picture;
  return write_png((demo.dir / name).string(), picture, error);
}

std::vector<Figure> figures_of(uint32_t format, const double results[8]) {
  std::vector<Figure> figures;
  for (int slot = 0; slot < 4; ++slot) {
    if (const char *name = format_info(format).channels[slot]) {
      figures.push_back({name, results[slot], results[slot + 4]});
    }
  }
  return figures;
}

}  // namespace

bool compare_entry(Demo &demo, const RawLayout &layout, const uint8_t *a, const uint8_t *b,
                   const std::string &image, const std::string &caption, StepReport *report,
                   std::string *error) {
  std::vector<uint8_t> diff(layout.frame_bytes, 128);
  double results[8];
  const auto start = Clock::now();
  if (!compare_frame(layout, a, b, diff.data(), results, error)) return false;
  Entry entry{image, caption, figures_of(layout.format, results), ms_since(start)};
  if (!save_png(demo, image, bytes_as_gray(layout, diff.data()), error)) return false;
  report->entries.push_back(entry);
  return true;
}

namespace {

// ---- steps

bool step_previews(Demo &demo, StepReport *report, std::string *error) {
  for (size_t i = 0; i < demo.frames.size(); ++i) {
    const std::string name = frame_png(static_cast<uint32_t>(i));
    if (!save_png(demo, name, preview(demo.layout, demo.frames[i].data()), error)) return false;
    report->entries.push_back({name, "frame " + std::to_string(i) + " (BT.601 preview)", {}, -1});
  }
  return true;
}

bool step_consecutive(Demo &demo, StepReport *report, std::string *error) {
  for (size_t i = 0; i + 1 < demo.frames.size(); ++i) {
    const std::string a = std::to_string(i), b = std::to_string(i + 1);
    if (!compare_entry(demo, demo.layout, demo.frames[i].data(), demo.frames[i + 1].data(),
                       "diff_" + a + "_" + b + ".png", "frame " + a + " against frame " + b, report,
                       error)) {
      return false;
    }
  }
  return true;
}

bool step_altered(Demo &demo, StepReport *report, std::string *error) {
  const RawLayout &l = demo.layout;
  const std::vector<uint8_t> &original = demo.frames[0];
  // Luma noise of -2..2 everywhere (fixed LCG), and Cb raised by 12 in a small rectangle.
  std::vector<uint8_t> altered = original;
  uint32_t seed = 12345;
  for (uint32_t y = 0; y < l.height; ++y) {
    uint8_t *line = altered.data() + size_t(y) * l.stride;
    for (uint32_t x = 1; x < l.line_bytes; x += 2) {
      seed = seed * 1664525u + 1013904223u;
      const int v = line[x] + static_cast<int>((seed >> 24) % 5) - 2;
      line[x] = static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
    }
  }
  const uint32_t x0 = (l.width / 2) & ~1u, y0 = l.height / 2;
  for (uint32_t y = y0; y < std::min(l.height, y0 + l.height / 8); ++y) {
    for (uint32_t x = x0; x < std::min(l.width, x0 + l.width / 8); x += 2) {
      uint8_t &cb = altered[size_t(y) * l.stride + 2 * x];
      cb = static_cast<uint8_t>(std::min(255, cb + 12));
    }
  }
  if (!compare_entry(demo, l, original.data(), original.data(), "diff_0_same.png",
                     "frame 0 against itself (uniform mid-gray expected)", report, error)) {
    return false;
  }
  if (!save_png(demo, "altered_0.png", preview(l, altered.data()), error)) return false;
  report->entries.push_back(
      {"altered_0.png", "frame 0 with luma noise of +-2 and a Cb patch of +12", {}, -1});
  return compare_entry(demo, l, original.data(), altered.data(), "diff_0_altered.png",
                       "frame 0 against its altered copy", report, error);
}

bool step_key(Demo &demo, StepReport *report, std::string *error) {
  RawLayout l;
  if (!make_layout(DSP_PIXEL_FORMAT_UYVY_KEY, demo.layout.width, demo.layout.height, 0, 0, &l,
                   error)) {
    return false;
  }
  // The same picture twice; the key planes are a horizontal ramp, one with an opaque disc.
  std::vector<uint8_t> a(l.frame_bytes), b;
  std::memcpy(a.data(), demo.frames[0].data(), l.main_bytes);
  for (uint32_t y = 0; y < l.height; ++y) {
    for (uint32_t x = 0; x < l.width; ++x) {
      a[l.main_bytes + size_t(y) * l.key_stride + x] =
          static_cast<uint8_t>(x * 255 / std::max(1u, l.width - 1));
    }
  }
  b = a;
  const double cx = l.width * 0.3, cy = l.height * 0.5, r = l.height * 0.25;
  for (uint32_t y = 0; y < l.height; ++y) {
    for (uint32_t x = 0; x < l.width; ++x) {
      if ((x - cx) * (x - cx) + (y - cy) * (y - cy) <= r * r) {
        b[l.main_bytes + size_t(y) * l.key_stride + x] = 255;
      }
    }
  }
  if (!save_png(demo, "key_frame.png", preview(l, b.data()), error)) return false;
  report->entries.push_back(
      {"key_frame.png", "uyvy422+key frame: picture, key plane below", {}, -1});
  return compare_entry(demo, l, a.data(), b.data(), "diff_key.png",
                       "same picture, key ramp against key ramp with an opaque disc "
                       "(difference bytes, key plane below)",
                       report, error);
}

CopySide side_of(const RawLayout &layout, uint8_t *pixels, uint32_t type, uint32_t interlace,
                 uint32_t space = DSP_COLOR_SPACE_UNSPECIFIED) {
  CopySide side;
  side.pixels = pixels;
  side.layout = layout;
  side.type = type;
  side.interlace = interlace;
  side.color_space = space;
  return side;
}

bool step_copy(Demo &demo, StepReport *report, std::string *error) {
  const RawLayout &l = demo.layout;
  std::vector<uint8_t> out(l.frame_bytes, 0);
  const auto start = Clock::now();
  const DSP_HRESULT status = copy_buffer(
      side_of(l, demo.frames[0].data(), DSP_BUFFER_TYPE_FRAME, DSP_INTERLACE_PROGRESSIVE,
              DSP_COLOR_SPACE_BT601),
      side_of(l, out.data(), DSP_BUFFER_TYPE_FRAME, DSP_INTERLACE_PROGRESSIVE,
              DSP_COLOR_SPACE_BT601),
      0);
  const double ms = ms_since(start);
  if (status != DSP_S_OK) {
    *error = status_text("DspBufferSmartCopy", status);
    return false;
  }
  if (!save_png(demo, "copy_0.png", preview(l, out.data()), error)) return false;
  report->entries.push_back({"copy_0.png", "frame 0 copied (progressive, top-down)", {}, ms});
  const size_t first = report->entries.size();
  if (!compare_entry(demo, l, demo.frames[0].data(), out.data(), "diff_copy.png",
                     "frame 0 against its copy", report, error)) {
    return false;
  }
  for (const Figure &f : report->entries[first].figures) {
    if (f.mse != 0.0) {
      *error =
          "the copy differs from its input (" + f.channel + " MSE " + std::to_string(f.mse) + ")";
      return false;
    }
  }
  return true;
}

// Frame 0 as an interleaved frame: fields A and B out of it, then both back into a new frame,
// which must equal the original byte for byte.
bool step_fields(Demo &demo, StepReport *report, std::string *error) {
  const RawLayout &l = demo.layout;
  if (l.height % 2 != 0) {
    report->status = "skipped: the frame height is odd";
    return true;
  }
  RawLayout fl;
  if (!make_layout(l.format, l.width, l.height / 2, 0, 0, &fl, error)) return false;
  std::vector<uint8_t> field_a(fl.frame_bytes), field_b(fl.frame_bytes), rebuilt(l.frame_bytes, 0);
  const CopySide frame = side_of(l, demo.frames[0].data(), DSP_BUFFER_TYPE_FRAME,
                                 DSP_INTERLACE_INTERLEAVED);
  const CopySide target = side_of(l, rebuilt.data(), DSP_BUFFER_TYPE_FRAME,
                                  DSP_INTERLACE_INTERLEAVED);
  const CopySide a = side_of(fl, field_a.data(), DSP_BUFFER_TYPE_FIELD_A, DSP_INTERLACE_PROGRESSIVE);
  const CopySide b = side_of(fl, field_b.data(), DSP_BUFFER_TYPE_FIELD_B, DSP_INTERLACE_PROGRESSIVE);
  const CopySide steps[4][2] = {{frame, a}, {frame, b}, {a, target}, {b, target}};
  double ms[4];
  for (int i = 0; i < 4; ++i) {
    const auto start = Clock::now();
    const DSP_HRESULT status = copy_buffer(steps[i][0], steps[i][1], 0);
    ms[i] = ms_since(start);
    if (status != DSP_S_OK) return *error = status_text("DspBufferSmartCopy", status), false;
  }
  if (!save_png(demo, "field_a.png", preview(fl, field_a.data()), error) ||
      !save_png(demo, "field_b.png", preview(fl, field_b.data()), error) ||
      !save_png(demo, "fields_rebuilt.png", preview(l, rebuilt.data()), error)) {
    return false;
  }
  report->entries.push_back(
      {"field_a.png", "field A of frame 0 (frame lines 0, 2, 4, ...)", {}, ms[0]});
  report->entries.push_back(
      {"field_b.png", "field B of frame 0 (frame lines 1, 3, 5, ...)", {}, ms[1]});
  report->entries.push_back(
      {"fields_rebuilt.png", "fields A and B placed back into a frame", {}, ms[2] + ms[3]});
  if (rebuilt != demo.frames[0]) {
    size_t at = 0;
    while (rebuilt[at] == demo.frames[0][at]) ++at;
    *error = "the rebuilt frame differs from frame 0 (first at byte " + std::to_string(at) + ")";
    return false;
  }
  report->status = "ok: the rebuilt frame equals frame 0 byte for byte";
  return true;
}

// Frame 0 (BT.601) to BT.709 and back; the round trip loses at most a rounding step or two.
bool step_colorspace(Demo &demo, StepReport *report, std::string *error) {
  const RawLayout &l = demo.layout;
  std::vector<uint8_t> bt709(l.frame_bytes), back(l.frame_bytes);
  const CopySide src = side_of(l, demo.frames[0].data(), DSP_BUFFER_TYPE_FRAME,
                               DSP_INTERLACE_PROGRESSIVE, DSP_COLOR_SPACE_BT601);
  const CopySide mid = side_of(l, bt709.data(), DSP_BUFFER_TYPE_FRAME, DSP_INTERLACE_PROGRESSIVE,
                               DSP_COLOR_SPACE_BT709);
  const CopySide dst = side_of(l, back.data(), DSP_BUFFER_TYPE_FRAME, DSP_INTERLACE_PROGRESSIVE,
                               DSP_COLOR_SPACE_BT601);
  auto start = Clock::now();
  DSP_HRESULT status = copy_buffer(src, mid, 0);
  const double forward_ms = ms_since(start);
  if (status != DSP_S_OK) return *error = status_text("DspBufferSmartCopy", status), false;
  start = Clock::now();
  status = copy_buffer(mid, dst, 0);
  const double back_ms = ms_since(start);
  if (status != DSP_S_OK) return *error = status_text("DspBufferSmartCopy", status), false;
  if (!save_png(demo, "bt709.png", preview(l, bt709.data()), error)) return false;
  report->entries.push_back(
      {"bt709.png", "frame 0 in BT.709, shown through the BT.601 preview", {}, forward_ms});
  if (!save_png(demo, "bt709_back.png", preview(l, back.data()), error)) return false;
  report->entries.push_back({"bt709_back.png", "converted back to BT.601", {}, back_ms});
  if (!compare_entry(demo, l, demo.frames[0].data(), back.data(), "diff_bt709_round_trip.png",
                     "frame 0 against its BT.601 -> BT.709 -> BT.601 round trip", report, error)) {
    return false;
  }
  int worst = 0;
  for (size_t i = 0; i < back.size(); ++i) {
    worst = std::max(worst, std::abs(int{back[i]} - int{demo.frames[0][i]}));
  }
  report->status = "ok: round trip max difference " + std::to_string(worst);
  if (worst > 4) {
    *error = "the round trip differs by " + std::to_string(worst) + " (more than 4)";
    return false;
  }
  return true;
}

// Frame 0 through DspFilter: before and after previews and the figures against the original.
// A low-pass of the clip (zone plate, bar edges) must change it; an unchanged result means the
// record was refused.
bool filter_step(Demo &demo, const FilterChoice &choice, const std::string &name,
                 const std::string &caption, StepReport *report, std::string *error) {
  const RawLayout &l = demo.layout;
  std::vector<uint8_t> out(l.frame_bytes, 0);
  const auto start = Clock::now();
  const DSP_HRESULT status = filter_frame(l, demo.frames[0].data(), out.data(), choice);
  const double ms = ms_since(start);
  if (status != DSP_S_OK) {
    *error = status_text("DspFilter", status);
    return false;
  }
  report->entries.push_back({frame_png(0), "before: frame 0", {}, -1});
  if (!save_png(demo, name + ".png", preview(l, out.data()), error)) return false;
  report->entries.push_back({name + ".png", "after: " + caption, {}, ms});
  const size_t first = report->entries.size();
  if (!compare_entry(demo, l, demo.frames[0].data(), out.data(), "diff_" + name + ".png",
                     "frame 0 against " + caption, report, error)) {
    return false;
  }
  double total = 0;
  for (const Figure &f : report->entries[first].figures) total += f.mse;
  if (total == 0.0) {
    *error = "the filtered frame equals frame 0 (record refused?)";
    return false;
  }
  return true;
}

bool step_fir(Demo &demo, StepReport *report, std::string *error) {
  FilterChoice choice;
  choice.type = DSP_FILTER_TYPE_FIR;
  choice.fir = {7, 50, 0, 7, 50};
  return filter_step(demo, choice, "fir7_50", "its 7-tap low-pass at 50 % both ways", report, error);
}

bool step_box(Demo &demo, StepReport *report, std::string *error) {
  FilterChoice choice;
  choice.type = DSP_FILTER_TYPE_BOX;
  choice.box = {9, 0, 9};
  return filter_step(demo, choice, "box9x9", "its 9x9 box blur", report, error);
}

// ---- scaling

RawLayout demo_layout(uint32_t width, uint32_t height, std::string *error) {
  RawLayout l;
  make_layout(DSP_PIXEL_FORMAT_UYVY, width, height, 0, 0, &l, error);
  return l;
}

// The clip (1080 lines by default) to two thirds of its size (720p), field by field.
bool step_scale_720(Demo &demo, StepReport *report, std::string *error) {
  const RawLayout &l = demo.layout;
  const uint32_t w = std::max(2u, (l.width * 2 / 3) & ~1u), h = std::max(2u, (l.height * 2 / 3) & ~1u);
  const RawLayout o = demo_layout(w, h, error);
  if (o.width == 0) return false;
  std::vector<uint8_t> out(o.frame_bytes, 0);
  ScaleChoice choice;
  choice.interlaced = true;
  const auto start = Clock::now();
  const DSP_HRESULT status = scale_frame(l, demo.frames[0].data(), o, out.data(), choice);
  const double ms = ms_since(start);
  if (status != DSP_S_OK) {
    *error = status_text("DspScaler", status);
    return false;
  }
  report->entries.push_back({frame_png(0), "before: frame 0", {}, -1});
  if (!save_png(demo, "scaled_720.png", preview(o, out.data()), error)) return false;
  report->entries.push_back({"scaled_720.png", "DspScaler: frame 0 to " + std::to_string(w) + "x" +
                                                   std::to_string(h) + ", linear, field by field",
                             {}, ms});
  return true;
}

// A standard-definition frame (720x486 from 1920x1080) scaled up to the clip's size again and
// compared with the original.
bool step_scale_sd_hd(Demo &demo, StepReport *report, std::string *error) {
  const RawLayout &l = demo.layout;
  const uint32_t w = std::max(2u, (l.width * 3 / 8) & ~1u), h = std::max(2u, (l.height * 9 / 20) & ~1u);
  const RawLayout sd = demo_layout(w, h, error);
  if (sd.width == 0) return false;
  std::vector<uint8_t> small(sd.frame_bytes, 0), big(l.frame_bytes, 0);
  ScaleChoice choice;
  choice.interlaced = true;
  DSP_HRESULT status = scale_frame(l, demo.frames[0].data(), sd, small.data(), choice);
  const auto start = Clock::now();
  if (status == DSP_S_OK) status = scale_frame(sd, small.data(), l, big.data(), choice);
  const double ms = ms_since(start);
  if (status != DSP_S_OK) {
    *error = status_text("DspScaler", status);
    return false;
  }
  if (!save_png(demo, "scaled_sd.png", preview(sd, small.data()), error)) return false;
  report->entries.push_back({"scaled_sd.png", "frame 0 at standard definition " + std::to_string(w) + "x" +
                                                  std::to_string(h), {}, -1});
  if (!save_png(demo, "scaled_sd_hd.png", preview(l, big.data()), error)) return false;
  report->entries.push_back({"scaled_sd_hd.png", "DspScaler: that frame up to " + std::to_string(l.width) + "x" +
                                                     std::to_string(l.height) + ", linear", {}, ms});
  return compare_entry(demo, l, demo.frames[0].data(), big.data(), "diff_sd_hd.png",
                       "frame 0 against its trip through standard definition", report, error);
}

// The clip taken as a 4:3 picture (non-square pixels) fitted to the height of a 16:9 frame of
// twice its height with DspScalerHelper, then scaled with the factors it gives.
bool step_fit(Demo &demo, StepReport *report, std::string *error) {
  const RawLayout &l = demo.layout;
  DSP_SCALER_HELPER_IN in;
  std::memset(&in, 0, sizeof in);
  in.ulSrcAspectNumerator = 4;
  in.ulSrcAspectDenominator = 3;
  in.ulSrcWidth = l.width;
  in.ulSrcHeight = l.height;
  in.ulDstAspectNumerator = 16;
  in.ulDstAspectDenominator = 9;
  in.ulDstHeight = l.height * 2;
  in.ulDstWidth = static_cast<uint32_t>(uint64_t(in.ulDstHeight) * 16 / 9) & ~1u;
  DSP_SCALER_HELPER_OUT out;
  std::memset(&out, 0, sizeof out);
  auto start = Clock::now();
  DSP_HRESULT status = DspScalerHelper(&in, &out);
  const double helper_ms = ms_since(start);
  if (status != DSP_S_OK) {
    *error = status_text("DspScalerHelper", status);
    return false;
  }
  const uint32_t w = out.ulWidth & ~1u, h = out.ulHeight;
  if (w == 0 || h == 0) {
    *error = "DspScalerHelper left no picture (" + std::to_string(out.ulWidth) + "x" +
             std::to_string(out.ulHeight) + ")";
    return false;
  }
  const RawLayout o = demo_layout(w, h, error);
  if (o.width == 0) return false;
  std::vector<uint8_t> pixels(o.frame_bytes, 0);
  ScaleChoice choice;
  choice.factor_x = out.fHorizontalScale;
  choice.factor_y = out.fVerticalScale;
  start = Clock::now();
  status = scale_frame(l, demo.frames[0].data(), o, pixels.data(), choice);
  const double ms = ms_since(start);
  if (status != DSP_S_OK) {
    *error = status_text("DspScaler", status);
    return false;
  }
  char text[200];
  std::snprintf(text, sizeof text,
                "DspScalerHelper (%.3f ms): %ux%u at 4:3 fitted to the height of %ux%u at 16:9 "
                "gives %ux%u, factors %.6g x %.6g; DspScaler with them",
                helper_ms, l.width, l.height, in.ulDstWidth, in.ulDstHeight, out.ulWidth,
                out.ulHeight, out.fHorizontalScale, out.fVerticalScale);
  report->status = "ok: " + std::to_string(out.ulWidth) + "x" + std::to_string(out.ulHeight);
  if (!save_png(demo, "fit.png", preview(o, pixels.data()), error)) return false;
  report->entries.push_back({"fit.png", text, {}, ms});
  return true;
}

// A five-level pyramid of frame 0's luma (fewer levels for a small clip).
bool step_mipmaps(Demo &demo, StepReport *report, std::string *error) {
  const RawLayout &l = demo.layout;
  uint32_t count = DSP_MIPMAP_MAX_LEVELS;
  while (count > 2 && ((l.width >> (count - 1)) == 0 || (l.height >> (count - 1)) == 0)) --count;
  std::vector<MipLevel> levels;
  if (!pyramid_sizes(l.width, l.height, count, &levels, error)) return false;
  levels[0].samples = luma_of(l, demo.frames[0].data());
  double ms = 0;
  if (!build_pyramid(&levels, DSP_SCALER_FILTER_LINEAR, &ms, error)) return false;
  // The clip has no black luma, so an all-zero level is one the library did not write.
  for (size_t k = 1; k < levels.size(); ++k) {
    if (std::all_of(levels[k].samples.begin(), levels[k].samples.end(),
                    [](uint8_t v) { return v == 0; })) {
      *error = "level " + std::to_string(k) + " was not written";
      return false;
    }
  }
  if (!save_png(demo, "mipmaps.png", mipmap_strip(levels), error)) return false;
  std::string sizes;
  for (const MipLevel &m : levels) {
    sizes += (sizes.empty() ? "" : ", ") + std::to_string(m.width) + "x" + std::to_string(m.height);
  }
  report->entries.push_back({"mipmaps.png", "DspCreateMipMaps: luma of frame 0, " +
                                                std::to_string(count) + " levels (" + sizes +
                                                "), linear",
                             {}, ms});
  return true;
}

// Block motion from frame 0 to frame 1 of the clip's luma, drawn as arrows.
bool step_vectors(Demo &demo, StepReport *report, std::string *error) {
  const RawLayout &l = demo.layout;
  const std::vector<uint8_t> a = luma_of(l, demo.frames[0].data());
  VectorField field;
  if (!estimate_vectors(a, luma_of(l, demo.frames[1].data()), l.width, l.height, VectorChoice(), &field, error) ||
      !save_png(demo, "vectors.png", draw_vectors(a, l.width, l.height, field, false, 3), error)) {
    return false;
  }
  const DSP_VECTOR_FIELD &h = field.header;
  const std::string stats = vector_statistics(field, 0)[0];  // "forward: N blocks, median vector (x, y) px, ..."
  const size_t median = stats.find("median"), end = stats.find(" px", median);
  report->entries.push_back({"vectors.png",
                             "DspCreateMotionVectors: luma, frame 0 -> 1, " + std::to_string(field.levels) +
                                 " levels, 8x8 blocks, " + stats.substr(median, end + 3 - median) + ", bad " +
                                 std::to_string(h.ulBadForward) + " / " + std::to_string(h.ulBadBackward) +
                                 " of " + std::to_string(h.ulColumns * h.ulRows) + " (arrows x3)",
                             {}, field.ms});
  return true;
}

// The clip at four times its frame rate: frames 0 and 1 as format 263 (luma, NV16 chroma), the
// frame halfway between them, and the same with the vectors drawn into its luma.
bool step_convert_rate(Demo &demo, StepReport *report, std::string *error) {
  const RawLayout &l = demo.layout;
  const uint32_t count = 4 * uint32_t(demo.frames.size());
  const size_t bytes = size_t(l.width) * l.height * 2;
  std::vector<uint8_t> a(bytes), b(bytes), out(bytes), drawn(bytes), uyvy(l.frame_bytes);
  uyvy_to_nv16(render_clip_frame(l.width, l.height, 0, count).data(), l.width, l.height, a.data());
  uyvy_to_nv16(render_clip_frame(l.width, l.height, 1, count).data(), l.width, l.height, b.data());
  const DSP_HANDLE converter = frame_rate_converter(l.width, l.height, DSP_CONVERT_MODE_MOTION);
  double ms = 0, drawn_ms = 0;
  DSP_HRESULT hr = convert_frame(converter, l.width, l.height, false, a.data(), b.data(), out.data(), 8192, 0, false, &ms);
  if (hr == DSP_S_OK)
    hr = convert_frame(converter, l.width, l.height, false, a.data(), b.data(), drawn.data(), 8192, 0, true, &drawn_ms);
  if (hr != DSP_S_OK) {
    char text[64];
    std::snprintf(text, sizeof text, "DspFrameRateConvert returned 0x%08X", unsigned(hr));
    *error = text;
    return false;
  }
  nv16_to_uyvy(out.data(), l.width, l.height, uyvy.data());
  if (!save_png(demo, "convert_rate.png", preview(l, uyvy.data()), error) ||
      !save_png(demo, "convert_rate_vectors.png", gray_strip({drawn.data()}, l.width, l.height), error))
    return false;
  report->entries.push_back({"convert_rate.png", "DspFrameRateConvert: the clip at 4x its rate, frame 0.5, "
                                                 "motion-compensated, 6-tap, NV16 chroma", {}, ms});
  report->entries.push_back({"convert_rate_vectors.png", "DspFrameRateConvert: the same with each block's vector "
                                                         "drawn into the luma", {}, drawn_ms});
  return true;
}

struct Step {
  const char *title;
  bool (*run)(Demo &, StepReport *, std::string *);
};

const Step kSteps[] = {
    {"Clip frames", step_previews},
    {"DspCompare: consecutive frames", step_consecutive},
    {"DspCompare: frame 0 against an altered copy", step_altered},
    {"DspCompare: two-plane uyvy422+key", step_key},
    {"DspBufferSmartCopy: frame 0 copied and compared", step_copy},
    {"DspBufferSmartCopy: fields A, B and back", step_fields},
    {"DspBufferSmartCopy: BT.601 -> BT.709 -> BT.601", step_colorspace},
    {"DspFilter: 7-tap FIR low-pass at 50 %", step_fir},
    {"DspFilter: 9x9 box blur", step_box},
    {"DspScaler: frame 0 to 720p", step_scale_720},
    {"DspScaler: standard definition up to the clip size", step_scale_sd_hd},
    {"DspScalerHelper: 4:3 fitted into 16:9, then DspScaler", step_fit},
    {"DspSubPixelScaler: a Ken Burns move over frame 0", step_kenburns},
    {"DspNonUniformScaler: 4:3 on 16:9, uniform and panorama, then undone", step_panorama},
    {"DspCreateMipMaps: pyramid of frame 0's luma", step_mipmaps},
    {"DspCreateMotionVectors: frame 0 to frame 1", step_vectors},
    {"DspFrameRateConvert: between frames 0 and 1 at 4x the rate", step_convert_rate},
};

// The demo writes into a folder of its own: a new or empty one, or one an earlier demo wrote
// (its report.txt says so).  Another folder with files in it needs -y.
void check_folder(const Parsed &parsed, const std::filesystem::path &dir) {
  std::error_code ec;
  if (!std::filesystem::exists(dir, ec)) return;
  if (!std::filesystem::is_directory(dir, ec)) {
    throw RuntimeError(dir.string() + " exists and is not a directory");
  }
  if (std::filesystem::is_empty(dir, ec) || parsed.has("-y")) return;
  std::ifstream report(dir / "report.txt");
  std::string first;
  std::getline(report, first);
  if (first.compare(0, sizeof kReportStart - 1, kReportStart) == 0) return;
  throw RuntimeError(dir.string() + " holds files that no earlier demo wrote; add -y to write " +
                     "the demo's files into it anyway, or choose another --out");
}

int run_demo(const Parsed &parsed) {
  expect_positional(parsed, 0);
  Demo demo;
  demo.dir = parsed.has("--out") ? parsed.get("--out") : "out";
  if (demo.dir.empty()) throw UsageError("--out needs a directory");
  uint32_t width = kClipWidth, height = kClipHeight;
  if (parsed.has("--size")) parse_size_option(parsed, "--size", &width, &height);
  const uint32_t count =
      parsed.has("--frames") ? parse_count(parsed.get("--frames"), "--frames", 2) : kClipFrames;
  demo.layout = packed_layout(DSP_PIXEL_FORMAT_UYVY, width, height);
  check_folder(parsed, demo.dir);
  std::error_code ec;
  std::filesystem::create_directories(demo.dir, ec);
  if (ec) throw RuntimeError("cannot create " + demo.dir.string() + ": " + ec.message());

  const auto start = Clock::now();
  for (uint32_t i = 0; i < count; ++i) {
    demo.frames.push_back(render_clip_frame(width, height, i, count));
  }
  std::printf("%s (rendered in %.1f ms)\n", header_text(demo).c_str(), ms_since(start));
  std::vector<StepReport> steps;
  bool failed = false;
  std::string error;
  for (const Step &step : kSteps) {
    StepReport report;
    report.title = step.title;
    const auto step_start = Clock::now();
    if (!step.run(demo, &report, &error)) {
      report.failed = failed = true;
      report.status = "failed: " + error;
    }
    report.ms = ms_since(step_start);
    std::printf("  %-50s %s, %zu image%s, %.1f ms\n", report.title.c_str(), report.status.c_str(),
                report.entries.size(), report.entries.size() == 1 ? "" : "s", report.ms);
    steps.push_back(report);
  }
  const Picture sheet = contact_sheet(header_text(demo), sheet_tiles(demo, steps));
  if (!write_png((demo.dir / "contact_sheet.png").string(), sheet, &error) ||
      !write_text_report(demo, steps, &error) || !write_html_report(demo, steps, &error)) {
    throw RuntimeError(error);
  }
  std::printf("contact sheet: %s (%ux%u)\nreport: %s, %s\n",
              (demo.dir / "contact_sheet.png").string().c_str(), sheet.width, sheet.height,
              (demo.dir / "report.txt").string().c_str(), (demo.dir / "index.html").string().c_str());
  if (failed) std::fprintf(stderr, "framedsp demo: a step failed (see the report)\n");
  return failed ? kExitRuntime : kExitOk;
}

const char kHelp[] =
    "usage: framedsp demo [--out DIR] [-s WxH] [--frames N] [-y]\n"
    "\n"
    "Renders the built-in test clip and runs the library's operations on it: PNG previews of\n"
    "the frames, DspCompare between consecutive frames, between a frame and an altered copy\n"
    "and on a two-plane frame; DspBufferSmartCopy: a plain copy, fields A and B out of a frame\n"
    "and back (checked byte for byte), BT.601 -> BT.709 -> BT.601 (largest difference shown);\n"
    "DspFilter: a 7-tap FIR low-pass at 50 % and a 9x9 box blur, each against the original;\n"
    "DspScaler: frame 0 to two thirds of its size (720p from 1080p) field by field and a trip\n"
    "through standard definition and back; DspScalerHelper: the clip as a 4:3 picture fitted\n"
    "into 16:9, then scaled; DspSubPixelScalerHelper and DspSubPixelScaler: a Ken Burns move over\n"
    "frame 0 (five frames of a zoom to 3x); DspCreateMipMaps: a pyramid of frame 0's luma;\n"
    "DspFrameRateConvert: the clip rendered at four times its rate, the frame halfway between\n"
    "its frames 0 and 1, and its vectors.\n"
    "Writes the images, DIR/contact_sheet.png (one labelled tile per operation with the PSNR\n"
    "against its source and the time of the call), DIR/report.txt and DIR/index.html with the\n"
    "MSE/PSNR figures and the time each call took.\n"
    "\n"
    "  --out DIR        output directory, created if missing (default out).  The demo rewrites\n"
    "                   its own files in a folder an earlier demo wrote; a folder holding other\n"
    "                   files needs -y\n"
    "  -s, --size WxH   clip size (default 640x360)\n"
    "  --frames N       clip length (default 5, at least 2)\n"
    "\n"
    "example:\n"
    "  framedsp demo --out /tmp/demo && xdg-open /tmp/demo/index.html\n";

}  // namespace

extern const Command kDemoCommand = {
    "demo",
    "run the library's operations on the test clip: PNG previews and a report",
    kHelp,
    Common::kWrites,
    {{"--out|-o", true}, {"--size|-s", true}, {"--frames", true}},
    run_demo};

}  // namespace cli
}  // namespace framedsp
