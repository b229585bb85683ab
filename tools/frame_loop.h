// The commands of the framedsp tool and the frame loop the clip commands share: read the input
// frames, make each output frame with one library call, write it, show progress.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "args.h"
#include "raw_io.h"

namespace framedsp {
namespace cli {

// The options a command takes besides its own; --help/-h and --progress go everywhere.
enum class Common {
  kNone,
  kWrites,  // -y: existing output files may be overwritten
  kClip,    // -i IN (repeatable), -s/--size WxH, -f/--format/-pix_fmt F, and -y
};

// One entry of the command table: `framedsp NAME ...`.
struct Command {
  const char *name;
  const char *blurb;  // its line in `framedsp --help`
  const char *help;   // `framedsp help NAME`; the first line is the usage
  Common common;
  std::vector<OptionDef> options;  // its own
  int (*run)(const Parsed &parsed);
};

std::vector<OptionDef> common_options(Common common);

// `path` as an output file of the command: UsageError when it is one of `inputs`, RuntimeError
// naming -y when it exists and -y was not given.
void check_output(const Parsed &parsed, const std::string &path,
                  const std::vector<std::string> &inputs);

// The state of one run of a clip command.
class Job {
 public:
  std::string command;                 // for the progress line
  std::vector<std::string> in_paths;   // IN, or A and B
  RawLayout in;                        // the frame layout of every input (-s, -f, --stride)
  RawLayout out;                       // the output frames' layout; `in` unless setup changes it
  std::string out_path;                // where the output frames go; empty: nowhere
  std::string other_out;               // a positional OUT that is not raw frames (a PNG)
  uint64_t in_frames = 0;              // frames of each input, once they are open

  // `path` after check_output against the inputs; returns it.
  std::string output(const std::string &path) const;

  // Frame `index` of input `which`, read on demand; the last two frames of each input are kept.
  const uint8_t *input(uint64_t index, size_t which = 0);

  explicit Job(const Parsed &parsed) : parsed_(parsed) {}
  void open_inputs();  // the loop opens them once setup has run

 private:
  struct Input {
    RawReader reader;
    uint64_t index[2] = {UINT64_MAX, UINT64_MAX};
    std::vector<uint8_t> frame[2];
    size_t older = 0;
  };
  const Parsed &parsed_;
  std::vector<std::unique_ptr<Input>> inputs_;
};

// A command that works frame by frame.  The loop takes the input files (positional or -i), the
// frame size and format and OUT, calls setup, checks the outputs, opens the inputs, calls begin,
// then frame for every output frame, writing each to out_path, and finally finish.
class FrameCommand {
 public:
  enum class Out { kRaw, kOther, kNone };  // what the positional OUT holds, if there is one

  FrameCommand(size_t inputs, Out out) : inputs(inputs), out(out) {}
  virtual ~FrameCommand() = default;

  // Reads the command's own options with the input layout known; may set job.out and
  // job.out_path.  Throws UsageError.
  virtual void setup(const Parsed &parsed, Job &job) = 0;
  // With the inputs open: checks what depends on them and returns the number of output frames.
  virtual uint64_t begin(Job &job) { return job.in_frames; }
  // Output frame `index` into `out` (job.out.frame_bytes, zeroed): one library call.
  virtual void frame(Job &job, uint64_t index, uint8_t *out) = 0;
  // After the last frame: writes other outputs; returns what out_path holds, for the OUT line.
  virtual std::string finish(Job &job) = 0;

  const size_t inputs;
  const Out out;
};

int run_frames(const Parsed &parsed, FrameCommand &command);

template <class T>
int run_clip(const Parsed &parsed) {
  T command;
  return run_frames(parsed, command);
}

}  // namespace cli
}  // namespace framedsp
