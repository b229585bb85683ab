// framedsp: command-line host of the library.  Exit status 0 on success, 1 on runtime errors
// (files, library calls), 2 on bad usage.
#include "framedsp/framedsp.h"

#include <cstdio>
#include <string>
#include <vector>

#include "args.h"
#include "clip.h"
#include "convert_rate_command.h"
#include "copy_command.h"
#include "demo.h"
#include "filter_command.h"
#include "fit_command.h"
#include "scale_command.h"
#include "formats.h"
#include "mipmaps_command.h"
#include "frame/pixel_format.h"
#include "png_writer.h"
#include "progress.h"
#include "raw_io.h"

using namespace framedsp::cli;

namespace {

// ---- help texts

const char kMainHelp[] =
    "framedsp: command-line host of the framedsp video-processing library\n"
    "\n"
    "usage: framedsp <command> [options]\n"
    "\n"
    "commands:\n"
    "  formats    the pixel formats: codes, names, sizes, planes, what compare accepts\n"
    "  compare    MSE and PSNR per channel between two raw video files; difference images\n"
    "  copy       copy frames, regions and fields; flip; change field dominance or BT.601/709\n"
    "  filter     FIR low-pass or box-blur frames, per direction\n"
    "  scale      resize frames (nearest or linear), whole frames or field by field\n"
    "  fit        output size and scale factors that keep the picture's aspect ratio\n"
    "  mipmaps    a pyramid of halved copies of a frame's luma, as a PNG strip\n"
    "  convert-rate  change a clip's frame rate by motion-compensated interpolation\n"
    "  generate   write the built-in test clip as a raw uyvy422 file\n"
    "  demo       run the library's operations on the test clip: PNG previews and a report\n"
    "  help       help on one command, e.g. 'framedsp help compare'\n"
    "\n"
    "Options follow ffmpeg's habits: -s WxH for the frame size, -f/--format for the pixel\n"
    "format (a name or a code; misspelt names get suggestions), --name=value or --name value,\n"
    "options before or after the files, '--' ends the options.\n"
    "Every command takes --help.  Commands that work through many frames (compare, copy,\n"
    "filter, scale) show a progress line on stderr when it is a terminal, or always with\n"
    "--progress.  Raw files hold frames back to back with no header; a file must hold a\n"
    "whole number of frames of the given size and format.\n"
    "Exit status: 0 success, 1 runtime error (files, library calls), 2 bad usage.\n"
    "\n"
    "examples:\n"
    "  framedsp generate clip.raw --frames 10\n"
    "  framedsp scale clip.raw small.raw -s 640x360 -f uyvy422 --to 320x180 --progress\n"
    "  framedsp compare clip.raw other.raw -s 640x360 -f uyvy422 --diff d.png\n"
    "  framedsp mipmaps clip.raw strip.png -s 640x360 -f uyvy422\n"
    "  framedsp demo --out out\n";

const char kFormatsHelp[] =
    "usage: framedsp formats\n"
    "\n"
    "Prints every pixel-format code the library knows: its name in this tool (formats\n"
    "without a name are given by number), bytes per pixel, whether the width must be even,\n"
    "its planes, its format class and whether compare accepts it.\n"
    "\n"
    "example:\n"
    "  framedsp formats\n";

const char kCompareHelp[] =
    "usage: framedsp compare A B -s WxH --format F [options]\n"
    "\n"
    "Compares raw video files A and B frame by frame with DspCompare and prints the MSE and\n"
    "PSNR of each channel per frame and overall.\n"
    "\n"
    "  -s, --size WxH       frame size in pixels (required)\n"
    "  -f, --format F       pixel format, name or code (required; see 'framedsp formats'):\n"
    "                       bgra, bgr24, bgr24+key, uyvy422, yuyv422, uyvy422+key,\n"
    "                       yuyv422+key, gray\n"
    "  --stride N           bytes from one line to the next (default: width * bytes a pixel)\n"
    "  --key-stride N       the same for the key plane of +key formats (default: width)\n"
    "  --diff OUT.png       write the difference image of one frame as a gray PNG\n"
    "  --frame N            the frame --diff shows, counted from 0 (default 0)\n"
    "  --diff-raw OUT.raw   write the difference images of all frames, in the input layout\n"
    "\n"
    "Files: frames back to back; a frame is H lines of --stride bytes, then for +key formats\n"
    "H lines of --key-stride bytes of key.  Both files must hold the same whole number of\n"
    "frames.  4:2:2 formats need an even width.\n"
    "\n"
    "Channels: Y U V for 4:2:2, B G R (A) for bgr24 and bgra, key for gray and key planes.\n"
    "MSE = sum of squared byte differences / pixel count; the 4:2:2 chroma channels have\n"
    "half as many samples but are divided by the full pixel count as well.\n"
    "PSNR = 20*log10(255/sqrt(MSE + 0.00001)) dB, 98.131 dB for identical frames.\n"
    "overall = mean of the per-frame MSE (every frame has the same pixel count, so this is\n"
    "the MSE over all pixels of all frames); its PSNR is computed from it the same way.\n"
    "\n"
    "Difference image: every byte is a - b + 128 clamped to 0..255 (128 = equal).  The PNG\n"
    "shows each byte of a line as one gray pixel, in memory order: a 4:2:2 frame of W x H\n"
    "pixels gives a 2W x H image (U Y V Y ... for uyvy422), bgr24 3W x H, bgra 4W x H.\n"
    "For +key formats the key plane follows below the picture (twice the height); where it\n"
    "is narrower than the picture the remainder is 128.\n"
    "\n"
    "examples:\n"
    "  framedsp compare a.yuv b.yuv -s 720x486 --format uyvy422\n"
    "  framedsp compare a.raw b.raw -s 1920x1080 -f bgra --diff d.png --frame 3\n"
    "  framedsp compare a.raw b.raw -s 720x486 -f 28 --stride 1536 --diff-raw d.raw\n";

const char kGenerateHelp[] =
    "usage: framedsp generate OUT.raw [-s WxH] [--frames N]\n"
    "\n"
    "Writes the built-in test clip (colour bars, a zone plate, moving shapes) as raw\n"
    "uyvy422 (format 21), limited-range BT.601, lines tightly packed.\n"
    "\n"
    "  -s, --size WxH   frame size (default 640x360; the width must be even)\n"
    "  --frames N       number of frames (default 5)\n"
    "\n"
    "example:\n"
    "  framedsp generate clip.raw --frames 10\n"
    "  framedsp compare clip.raw clip.raw -s 640x360 -f uyvy422\n";

const char kDemoHelp[] =
    "usage: framedsp demo [--out DIR] [-s WxH] [--frames N]\n"
    "\n"
    "Renders the built-in test clip and runs the library's operations on it: PNG previews of\n"
    "the frames, DspCompare between consecutive frames, between a frame and an altered copy\n"
    "and on a two-plane frame; DspBufferSmartCopy: a plain copy, fields A and B out of a frame\n"
    "and back (checked byte for byte), BT.601 -> BT.709 -> BT.601 (largest difference shown);\n"
    "DspFilter: a 7-tap FIR low-pass at 50 % and a 9x9 box blur, each against the original;\n"
    "DspScaler: frame 0 to two thirds of its size (720p from 1080p) field by field and a trip\n"
    "through standard definition and back; DspScalerHelper: the clip as a 4:3 picture fitted\n"
    "into 16:9, then scaled; DspCreateMipMaps: a pyramid of frame 0's luma.\n"
    "Writes the images, DIR/contact_sheet.png (one labelled tile per operation with the PSNR\n"
    "against its source and the time of the call), DIR/report.txt and DIR/index.html with the\n"
    "MSE/PSNR figures and the time each call took.  Copy and filter steps are skipped while\n"
    "the library answers not-implemented.\n"
    "\n"
    "  --out DIR        output directory, created if missing (default out)\n"
    "  -s, --size WxH   clip size (default 640x360)\n"
    "  --frames N       clip length (default 5, at least 2)\n"
    "\n"
    "example:\n"
    "  framedsp demo --out /tmp/demo && xdg-open /tmp/demo/index.html\n";

const char kHelpHelp[] =
    "usage: framedsp help [command]\n"
    "\n"
    "example:\n"
    "  framedsp help compare\n";

struct Command {
  const char *name;
  const char *help;
  int (*run)(const std::vector<std::string> &args);
};

// ---- commands

int cmd_formats(const std::vector<std::string> &args) {
  const Parsed parsed = parse(args, {});
  if (parsed.help) return std::fputs(kFormatsHelp, stdout), kExitOk;
  expect_positional(parsed, 0, "");
  print_formats(stdout);
  return kExitOk;
}

struct ChannelTotals {
  const char *name;
  int slot;
  double mse_sum = 0;
};

void print_row(const char *label, const std::vector<ChannelTotals> &channels, const double *mse) {
  std::printf("%-9s", label);
  for (size_t c = 0; c < channels.size(); ++c) {
    std::printf(" %12.6f %8.3f", mse[c], psnr_of_mse(mse[c]));
  }
  std::printf("\n");
}

int cmd_compare(const std::vector<std::string> &args) {
  const Parsed parsed = parse(args, {{"--size", "-s", true},
                                     {"--format", "-f", true},
                                     {"--stride", nullptr, true},
                                     {"--key-stride", nullptr, true},
                                     {"--diff", nullptr, true},
                                     {"--diff-raw", nullptr, true},
                                     {"--frame", nullptr, true}});
  if (parsed.help) return std::fputs(kCompareHelp, stdout), kExitOk;
  expect_positional(parsed, 2, "input files: framedsp compare A B -s WxH --format F");
  uint32_t width = 0, height = 0, format = 0;
  parse_size_and_format(parsed, &width, &height, &format);
  if (!framedsp::pixel_format_info(format).compare) {
    throw UsageError(format_label(format) +
                     " is not accepted by compare; accepted: " + compare_format_list());
  }
  const uint32_t stride =
      parsed.has("--stride") ? parse_count(parsed.get("--stride"), "--stride", 1) : 0;
  const uint32_t key_stride =
      parsed.has("--key-stride") ? parse_count(parsed.get("--key-stride"), "--key-stride", 1) : 0;
  if (parsed.has("--frame") && !parsed.has("--diff")) {
    throw UsageError("--frame selects the frame of --diff; give --diff too");
  }
  const uint32_t diff_frame =
      parsed.has("--frame") ? parse_count(parsed.get("--frame"), "--frame", 0) : 0;
  std::string error;
  RawLayout layout;
  if (!make_layout(format, width, height, stride, key_stride, &layout, &error))
    throw UsageError(error);

  const std::string &path_a = parsed.positional[0], &path_b = parsed.positional[1];
  RawReader a, b;
  if (!a.open(path_a, layout, &error) || !b.open(path_b, layout, &error)) throw RuntimeError(error);
  if (a.frames() != b.frames()) {
    throw RuntimeError(path_a + " holds " + std::to_string(a.frames()) + " frame(s) but " + path_b +
                       " holds " + std::to_string(b.frames()));
  }
  if (diff_frame >= a.frames()) {
    throw UsageError("--frame " + std::to_string(diff_frame) + " is past the last frame (" +
                     std::to_string(a.frames() - 1) + ")");
  }
  RawWriter raw_out;
  if (parsed.has("--diff-raw") && !raw_out.open(parsed.get("--diff-raw"), &error)) {
    throw RuntimeError(error);
  }

  std::vector<ChannelTotals> channels;
  for (int slot = 0; slot < 4; ++slot) {
    if (const char *name = channel_name(format, slot)) channels.push_back({name, slot});
  }
  std::printf("A: %s\nB: %s\n%s; %llu frame%s of %llu bytes\n\n", path_a.c_str(), path_b.c_str(),
              describe_layout(layout).c_str(), static_cast<unsigned long long>(a.frames()),
              a.frames() == 1 ? "" : "s", static_cast<unsigned long long>(layout.frame_bytes));
  std::printf("%-9s", "frame");
  for (const ChannelTotals &c : channels) {
    std::printf(" %12s %8s", (std::string(c.name) + " MSE").c_str(),
                (std::string(c.name) + " PSNR").c_str());
  }
  std::printf("\n");

  std::vector<uint8_t> frame_a(layout.frame_bytes), frame_b(layout.frame_bytes);
  std::vector<uint8_t> diff(layout.frame_bytes), shown;
  std::vector<double> mse(channels.size());
  Progress progress("compare", a.frames(), parsed.progress);
  for (uint64_t f = 0; f < a.frames(); ++f) {
    if (!a.read(f, frame_a.data(), &error) || !b.read(f, frame_b.data(), &error)) {
      throw RuntimeError(error);
    }
    std::fill(diff.begin(), diff.end(), 128);  // stride padding reads as "equal"
    double results[8];
    if (!compare_frame(layout, frame_a.data(), frame_b.data(), diff.data(), results, &error)) {
      throw RuntimeError(error);
    }
    for (size_t c = 0; c < channels.size(); ++c) {
      mse[c] = results[channels[c].slot];
      channels[c].mse_sum += mse[c];
    }
    print_row(std::to_string(f).c_str(), channels, mse.data());
    if (f == diff_frame) shown = diff;
    if (parsed.has("--diff-raw") && !raw_out.write(diff.data(), diff.size(), &error)) {
      throw RuntimeError(error);
    }
    progress.update(f + 1);
  }
  progress.finish();
  for (size_t c = 0; c < channels.size(); ++c) {
    mse[c] = channels[c].mse_sum / static_cast<double>(a.frames());
  }
  print_row("overall", channels, mse.data());
  std::printf(
      "\nMSE: sum of squared differences / pixel count (4:2:2 chroma too); PSNR in dB =\n"
      "20*log10(255/sqrt(MSE+0.00001)); overall: mean of the per-frame MSE, PSNR from it.\n");

  if (parsed.has("--diff-raw") && !raw_out.close(&error)) throw RuntimeError(error);
  if (parsed.has("--diff")) {
    if (!write_png(parsed.get("--diff"), bytes_as_gray(layout, shown.data()), &error)) {
      throw RuntimeError(error);
    }
    std::printf("difference image of frame %u: %s\n", diff_frame, parsed.get("--diff").c_str());
  }
  if (parsed.has("--diff-raw")) {
    std::printf("difference images of all frames: %s\n", parsed.get("--diff-raw").c_str());
  }
  return kExitOk;
}

int cmd_generate(const std::vector<std::string> &args) {
  const Parsed parsed = parse(args, {{"--size", "-s", true}, {"--frames", nullptr, true}});
  if (parsed.help) return std::fputs(kGenerateHelp, stdout), kExitOk;
  expect_positional(parsed, 1, "output file: framedsp generate OUT.raw");
  uint32_t width = kClipWidth, height = kClipHeight;
  if (parsed.has("--size")) parse_size_option(parsed, &width, &height);
  const uint32_t frames =
      parsed.has("--frames") ? parse_count(parsed.get("--frames"), "--frames", 1) : kClipFrames;
  RawLayout layout;
  std::string error;
  if (!make_layout(DSP_PIXEL_FORMAT_UYVY, width, height, 0, 0, &layout, &error)) {
    throw UsageError(error);
  }
  RawWriter out;
  const std::string &path = parsed.positional[0];
  if (!out.open(path, &error)) throw RuntimeError(error);
  for (uint32_t i = 0; i < frames; ++i) {
    const std::vector<uint8_t> frame = render_clip_frame(width, height, i, frames);
    if (!out.write(frame.data(), frame.size(), &error)) throw RuntimeError(error);
  }
  if (!out.close(&error)) throw RuntimeError(error);
  std::printf("%s: %s; %u frame%s, %llu bytes\n", path.c_str(), describe_layout(layout).c_str(),
              frames, frames == 1 ? "" : "s",
              static_cast<unsigned long long>(layout.frame_bytes * frames));
  return kExitOk;
}

int cmd_demo(const std::vector<std::string> &args) {
  const Parsed parsed =
      parse(args, {{"--out", "-o", true}, {"--size", "-s", true}, {"--frames", nullptr, true}});
  if (parsed.help) return std::fputs(kDemoHelp, stdout), kExitOk;
  expect_positional(parsed, 0, "");
  DemoOptions options;
  if (parsed.has("--out")) options.out_dir = parsed.get("--out");
  if (options.out_dir.empty()) throw UsageError("--out needs a directory");
  if (parsed.has("--size")) parse_size_option(parsed, &options.width, &options.height);
  if (parsed.has("--frames")) options.frames = parse_count(parsed.get("--frames"), "--frames", 2);
  return run_demo(options);
}

int cmd_help(const std::vector<std::string> &args);

const Command kCommands[] = {
    {"formats", kFormatsHelp, cmd_formats},
    {"compare", kCompareHelp, cmd_compare},
    {"copy", kCopyHelp, cmd_copy},
    {"filter", kFilterHelp, cmd_filter},
    {"scale", kScaleHelp, cmd_scale},
    {"fit", kFitHelp, cmd_fit},
    {"mipmaps", kMipmapsHelp, cmd_mipmaps},
    {"convert-rate", kConvertRateHelp, cmd_convert_rate},
    {"generate", kGenerateHelp, cmd_generate},
    {"demo", kDemoHelp, cmd_demo},
    {"help", kHelpHelp, cmd_help},
};

const Command *find_command(const std::string &name) {
  for (const Command &c : kCommands) {
    if (name == c.name) return &c;
  }
  return nullptr;
}

std::string unknown_command(const std::string &name) {
  std::string message = "unknown command '" + name + "'";
  for (const Command &c : kCommands) {
    if (edit_distance(name, c.name) <= 2) return message + "; did you mean '" + c.name + "'?";
  }
  return message + " (commands: formats, compare, copy, filter, scale, fit, mipmaps, convert-rate, generate, demo, help)";
}

int cmd_help(const std::vector<std::string> &args) {
  if (args.empty()) return std::fputs(kMainHelp, stdout), kExitOk;
  if (args.size() > 1) throw UsageError("help takes one command name");
  if (args[0] == "--help" || args[0] == "-h") return std::fputs(kHelpHelp, stdout), kExitOk;
  const Command *command = find_command(args[0]);
  if (!command) throw UsageError(unknown_command(args[0]));
  std::fputs(command->help, stdout);
  return kExitOk;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc < 2) {
    std::fputs(kMainHelp, stderr);
    return kExitUsage;
  }
  const std::string name = argv[1];
  if (name == "--help" || name == "-h") return std::fputs(kMainHelp, stdout), kExitOk;
  const std::vector<std::string> args(argv + 2, argv + argc);
  const Command *command = find_command(name);
  const std::string prefix = command ? "framedsp " + name : std::string("framedsp");
  try {
    if (!command) throw UsageError(unknown_command(name));
    return command->run(args);
  } catch (const UsageError &e) {
    std::fprintf(stderr, "%s: %s\n", prefix.c_str(), e.what());
    std::fprintf(stderr, "Try 'framedsp help%s'.\n", command ? (" " + name).c_str() : "");
    return kExitUsage;
  } catch (const RuntimeError &e) {
    std::fprintf(stderr, "%s: %s\n", prefix.c_str(), e.what());
    return kExitRuntime;
  } catch (const std::exception &e) {
    std::fprintf(stderr, "%s: error: %s\n", prefix.c_str(), e.what());
    return kExitRuntime;
  }
}
