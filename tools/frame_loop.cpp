#include "frame_loop.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "formats.h"
#include "progress.h"

namespace framedsp {
namespace cli {

namespace {

std::string frames_text(uint64_t n) {
  return std::to_string(n) + (n == 1 ? " frame" : " frames");
}

// The input files and the raw layout of their frames.
void take_inputs(const Parsed &parsed, const FrameCommand &command, Job *job) {
  const size_t outs = command.out == FrameCommand::Out::kNone ? 0 : 1;
  job->in_paths = parsed.all("-i");
  if (job->in_paths.empty()) {
    expect_positional(parsed, command.inputs + outs);
    job->in_paths.assign(parsed.positional.begin(), parsed.positional.begin() + command.inputs);
  } else if (job->in_paths.size() != command.inputs) {
    throw UsageError(parsed.command + " reads " + std::to_string(command.inputs) +
                     " input file(s): give -i once for each, or none and the files in order");
  } else {
    expect_positional(parsed, outs);
  }
  if (outs) {
    const std::string &out = parsed.positional.back();
    (command.out == FrameCommand::Out::kRaw ? job->out_path : job->other_out) = out;
  }
  if (!parsed.has("--size")) throw UsageError("missing frame size (-s WxH)");
  if (!parsed.has("--format")) throw UsageError("missing pixel format (-pix_fmt F or --format F)");
  uint32_t width = 0, height = 0, format = 0;
  parse_size_option(parsed, "--size", &width, &height);
  std::string error;
  if (!parse_format(parsed.get("--format"), &format, &error)) throw UsageError(error);
  const uint32_t stride =
      parsed.has("--stride") ? parse_count(parsed.get("--stride"), "--stride", 1) : 0;
  const uint32_t key_stride =
      parsed.has("--key-stride") ? parse_count(parsed.get("--key-stride"), "--key-stride", 1) : 0;
  if (!make_layout(format, width, height, stride, key_stride, &job->in, &error)) {
    throw UsageError(error);
  }
  job->out = job->in;
}

}  // namespace

std::vector<OptionDef> common_options(Common common) {
  switch (common) {
    case Common::kNone:
      return {};
    case Common::kWrites:
      return {{"-y", false}};
    case Common::kClip:
      return {{"-y", false},
              {"-i", true, true},
              {"--size|-s", true},
              {"--format|-f|-pix_fmt", true}};
  }
  return {};
}

void check_output(const Parsed &parsed, const std::string &path,
                  const std::vector<std::string> &inputs) {
  std::error_code ec;
  if (!std::filesystem::exists(path, ec)) return;
  for (const std::string &in : inputs) {
    if (std::filesystem::equivalent(in, path, ec)) {
      throw UsageError("IN and OUT are the same file (" + path + ")");
    }
  }
  if (!parsed.has("-y")) throw RuntimeError(path + " already exists; add -y to overwrite it");
}

std::string Job::output(const std::string &path) const {
  check_output(parsed_, path, in_paths);
  return path;
}

void Job::open_inputs() {
  std::string error;
  for (const std::string &path : in_paths) {
    inputs_.push_back(std::make_unique<Input>());
    if (!inputs_.back()->reader.open(path, in, &error)) throw RuntimeError(error);
    const uint64_t frames = inputs_.back()->reader.frames();
    if (inputs_.size() > 1 && frames != in_frames) {
      throw RuntimeError(in_paths[0] + " holds " + frames_text(in_frames) + " but " + path +
                         " holds " + frames_text(frames));
    }
    in_frames = frames;
  }
}

const uint8_t *Job::input(uint64_t index, size_t which) {
  Input &in_file = *inputs_.at(which);
  for (int slot = 0; slot < 2; ++slot) {
    if (in_file.index[slot] == index) return in_file.frame[slot].data();
  }
  const size_t slot = in_file.older;
  in_file.older ^= 1;
  in_file.frame[slot].resize(in.frame_bytes);
  in_file.index[slot] = UINT64_MAX;
  std::string error;
  if (!in_file.reader.read(index, in_file.frame[slot].data(), &error)) throw RuntimeError(error);
  in_file.index[slot] = index;
  return in_file.frame[slot].data();
}

int run_frames(const Parsed &parsed, FrameCommand &command) {
  Job job(parsed);
  job.command = parsed.command;
  take_inputs(parsed, command, &job);
  command.setup(parsed, job);
  if (!job.out_path.empty()) job.output(job.out_path);
  if (!job.other_out.empty()) job.output(job.other_out);

  job.open_inputs();
  for (const std::string &path : job.in_paths) {
    std::printf("IN:  %s: %s; %s\n", path.c_str(), describe_layout(job.in).c_str(),
                frames_text(job.in_frames).c_str());
  }
  const uint64_t count = command.begin(job);
  std::string error;
  RawWriter writer;
  if (!job.out_path.empty() && !writer.open(job.out_path, &error)) throw RuntimeError(error);
  std::vector<uint8_t> target(job.out.frame_bytes);
  Progress progress(parsed.command.c_str(), count, parsed.progress);
  for (uint64_t f = 0; f < count; ++f) {
    std::fill(target.begin(), target.end(), 0);
    command.frame(job, f, target.data());
    if (!job.out_path.empty() && !writer.write(target.data(), target.size(), &error)) {
      throw RuntimeError(error);
    }
    progress.update(f + 1);
  }
  progress.finish();
  if (!job.out_path.empty() && !writer.close(&error)) throw RuntimeError(error);
  const std::string what = command.finish(job);
  if (!job.out_path.empty()) {
    std::printf("OUT: %s: %s; %s (%s)\n", job.out_path.c_str(), describe_layout(job.out).c_str(),
                frames_text(count).c_str(), what.c_str());
  }
  return kExitOk;
}

}  // namespace cli
}  // namespace framedsp
