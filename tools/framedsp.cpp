// framedsp: command-line host of the library.  Exit status 0 on success, 1 on runtime errors
// (files, library calls), 2 on bad usage.
#include <cstdio>
#include <string>
#include <vector>

#include "formats.h"
#include "frame_loop.h"

namespace framedsp {
namespace cli {

// The commands, one file each (cmd_*.cpp, demo.cpp); `framedsp --help` lists them in this order.
extern const Command kFormatsCommand, kCompareCommand, kCopyCommand, kFilterCommand,
    kScaleCommand, kKenBurnsCommand, kPanoramaCommand, kFitCommand, kMipmapsCommand, kVectorsCommand,
    kConvertRateCommand, kGenerateCommand, kDemoCommand,
    kHelpCommand;

namespace {

const Command *const kCommands[] = {
    &kFormatsCommand, &kCompareCommand, &kCopyCommand,     &kFilterCommand, &kScaleCommand,
    &kKenBurnsCommand, &kPanoramaCommand, &kFitCommand, &kMipmapsCommand, &kVectorsCommand,
    &kConvertRateCommand, &kGenerateCommand, &kDemoCommand,
    &kHelpCommand,
};

const char kIntro[] =
    "framedsp: command-line host of the framedsp video-processing library\n"
    "\n"
    "usage: framedsp <command> [options]\n"
    "\n"
    "commands:\n";

const char kOutro[] =
    "\n"
    "Options follow ffmpeg's habits: -s WxH for the frame size, -pix_fmt (or -f, --format) for\n"
    "the pixel format (a name or a code; misspelt names get suggestions), -i IN for an input\n"
    "file, -y to overwrite an existing output file (refused otherwise), --name=value or\n"
    "--name value, options before or after the files, '--' ends the options.\n"
    "Every command takes --help.  Commands that work through many frames show a progress line\n"
    "on stderr when it is a terminal, or always with --progress.  Raw files hold frames back to\n"
    "back with no header; a file must hold a whole number of frames of the given size and\n"
    "format.\n"
    "Exit status: 0 success, 1 runtime error (files, library calls), 2 bad usage.\n"
    "\n"
    "examples:\n"
    "  framedsp generate clip.raw --frames 10\n"
    "  framedsp scale -i clip.raw -s 640x360 -pix_fmt uyvy422 --to 320x180 small.raw\n"
    "  framedsp compare clip.raw other.raw -s 640x360 -f uyvy422 --diff d.png -y\n"
    "  framedsp mipmaps clip.raw strip.png -s 640x360 -f uyvy422\n"
    "  framedsp demo --out out\n";

const char kClipHelp[] =
    "\n"
    "common options:\n"
    "  -i IN                   an input file (once for each input; the positional arguments\n"
    "                          are then the output only)\n"
    "  -y                      overwrite output files that exist\n"
    "  --progress              show the progress line even when stderr is not a terminal\n";

const char kWritesHelp[] =
    "\n"
    "common options:\n"
    "  -y                      overwrite output files that exist\n"
    "  --progress              show the progress line even when stderr is not a terminal\n";

void print_main_help(FILE *out) {
  std::fputs(kIntro, out);
  for (const Command *c : kCommands) std::fprintf(out, "  %-10s %s\n", c->name, c->blurb);
  std::fputs(kOutro, out);
}

void print_help(const Command &command) {
  std::fputs(command.help, stdout);
  if (command.common == Common::kClip) std::fputs(kClipHelp, stdout);
  if (command.common == Common::kWrites) std::fputs(kWritesHelp, stdout);
}

const Command *find_command(const std::string &name) {
  for (const Command *c : kCommands) {
    if (name == c->name) return c;
  }
  return nullptr;
}

std::string unknown_command(const std::string &name) {
  std::string message = "unknown command '" + name + "'";
  for (const Command *c : kCommands) {
    if (edit_distance(name, c->name) <= 2) return message + "; did you mean '" + c->name + "'?";
  }
  std::string names;
  for (const Command *c : kCommands) names += std::string(names.empty() ? "" : ", ") + c->name;
  return message + " (commands: " + names + ")";
}

int run_formats(const Parsed &parsed) {
  expect_positional(parsed, 0);
  print_formats(stdout);
  return kExitOk;
}

int run_help(const Parsed &parsed) {
  if (parsed.positional.empty()) return print_main_help(stdout), kExitOk;
  if (parsed.positional.size() > 1) throw UsageError("help takes one command name");
  const Command *command = find_command(parsed.positional[0]);
  if (!command) throw UsageError(unknown_command(parsed.positional[0]));
  print_help(*command);
  return kExitOk;
}

int run_command(const Command &command, const std::vector<std::string> &args) {
  std::vector<OptionDef> defs = common_options(command.common);
  defs.insert(defs.end(), command.options.begin(), command.options.end());
  Parsed parsed = parse(args, defs);
  if (parsed.help) return print_help(command), kExitOk;
  parsed.command = command.name;
  const std::string help = command.help;
  parsed.usage = help.substr(0, help.find('\n'));
  return command.run(parsed);
}

}  // namespace

extern const Command kFormatsCommand = {
    "formats",
    "the pixel formats: codes, names, sizes, planes, which commands accept them",
    "usage: framedsp formats\n"
    "\n"
    "Prints every pixel-format code the library knows: its name in this tool (formats\n"
    "without a name are given by number), bytes per pixel, whether the width must be even,\n"
    "its planes and whether copy, filter and compare accept it.\n"
    "\n"
    "example:\n"
    "  framedsp formats\n",
    Common::kNone,
    {},
    run_formats};

extern const Command kHelpCommand = {"help",
                                     "help on one command, e.g. 'framedsp help compare'",
                                     "usage: framedsp help [command]\n"
                                     "\n"
                                     "example:\n"
                                     "  framedsp help compare\n",
                                     Common::kNone,
                                     {},
                                     run_help};

}  // namespace cli
}  // namespace framedsp

int main(int argc, char **argv) {
  using namespace framedsp::cli;
  if (argc < 2) {
    print_main_help(stderr);
    return kExitUsage;
  }
  const std::string name = argv[1];
  if (name == "--help" || name == "-h") return print_main_help(stdout), kExitOk;
  const Command *command = find_command(name);
  const std::string prefix = command ? "framedsp " + name : std::string("framedsp");
  try {
    if (!command) throw UsageError(unknown_command(name));
    return run_command(*command, std::vector<std::string>(argv + 2, argv + argc));
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
