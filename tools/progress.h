// The progress line of multi-frame work: "framedsp scale: frame 12/250 (4.8 %)" rewritten in
// place on stderr.  Shown when stderr is a terminal, or always with --progress; never on stdout,
// so the figures a command prints stay clean for scripts.
#pragma once

#include <cstdint>

namespace framedsp {
namespace cli {

class Progress {
 public:
  // `command` names the command in the line; `forced` is --progress.
  Progress(const char *command, uint64_t total, bool forced);
  ~Progress();
  // Frame `done` (1-based count of finished frames) is finished.
  void update(uint64_t done);
  // Ends the line (also done by the destructor).
  void finish();
  bool enabled() const { return enabled_; }

 private:
  const char *command_;
  uint64_t total_;
  bool enabled_;
  bool open_ = false;
};

}  // namespace cli
}  // namespace framedsp
