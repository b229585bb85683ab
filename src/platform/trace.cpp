#include "platform/trace.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace framedsp {
namespace {

std::atomic<int> g_override{-1};
std::atomic<WorkerHook> g_worker_hook{nullptr};

bool environment_says_on() {
  static const bool on = [] {
    const char *value = std::getenv("FRAMEDSP_TRACE");
    return value != nullptr && value[0] != '\0' && std::strcmp(value, "0") != 0;
  }();
  return on;
}

}  // namespace

bool trace_enabled() {
  const int mode = g_override.load(std::memory_order_relaxed);
  return mode >= 0 ? mode != 0 : environment_says_on();
}

bool refuse(const char *export_name, const char *format, ...) {
  if (!trace_enabled()) return false;
  // One fprintf of a finished line, so lines from concurrent calls do not interleave.
  char line[512];
  int used = std::snprintf(line, sizeof line, "%s: refused: ", export_name ? export_name : "?");
  if (used < 0) return false;
  if (static_cast<size_t>(used) < sizeof line) {
    va_list args;
    va_start(args, format);
    std::vsnprintf(line + used, sizeof line - static_cast<size_t>(used), format, args);
    va_end(args);
  }
  std::fprintf(stderr, "%s\n", line);
  return false;
}

void set_trace_override(int mode) { g_override.store(mode < 0 ? -1 : (mode ? 1 : 0)); }

void set_worker_hook(WorkerHook hook) { g_worker_hook.store(hook, std::memory_order_release); }

void worker_entry(const char *worker) {
  WorkerHook hook = g_worker_hook.load(std::memory_order_acquire);
  if (hook) hook(worker);
}

}  // namespace framedsp
