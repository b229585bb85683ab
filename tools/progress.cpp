#include "progress.h"

#include <cstdio>

#if defined(_WIN32)
#include <io.h>
#define FRAMEDSP_ISATTY _isatty
#define FRAMEDSP_FILENO _fileno
#else
#include <unistd.h>
#define FRAMEDSP_ISATTY isatty
#define FRAMEDSP_FILENO fileno
#endif

namespace framedsp {
namespace cli {

Progress::Progress(const char *command, uint64_t total, bool forced)
    : command_(command),
      total_(total),
      enabled_(forced || FRAMEDSP_ISATTY(FRAMEDSP_FILENO(stderr)) != 0) {}

Progress::~Progress() { finish(); }

void Progress::update(uint64_t done) {
  if (!enabled_ || total_ == 0) return;
  const double percent = 100.0 * static_cast<double>(done) / static_cast<double>(total_);
  std::fprintf(stderr, "\rframedsp %s: frame %llu/%llu (%.1f %%)", command_,
               static_cast<unsigned long long>(done), static_cast<unsigned long long>(total_),
               percent);
  std::fflush(stderr);
  open_ = true;
}

void Progress::finish() {
  if (!open_) return;
  std::fputc('\n', stderr);
  std::fflush(stderr);
  open_ = false;
}

}  // namespace cli
}  // namespace framedsp
