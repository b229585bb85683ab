#include "frame/guard.h"

#include <atomic>

namespace framedsp {

namespace {
std::atomic<WorkerHook> g_worker_hook{nullptr};
}

void set_worker_hook(WorkerHook hook) { g_worker_hook.store(hook, std::memory_order_release); }

void worker_entry(const char *worker) {
  WorkerHook hook = g_worker_hook.load(std::memory_order_acquire);
  if (hook) hook(worker);
}

}  // namespace framedsp
