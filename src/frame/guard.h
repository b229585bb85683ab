// The exception guard of every export: anything thrown by the library's own code (allocation
// failures included) becomes E_UNEXPECTED.  Processor faults are not caught.
#pragma once

#include "frame/status.h"

#define FRAMEDSP_GUARD_BEGIN try {
#define FRAMEDSP_GUARD_END                  \
  }                                         \
  catch (...) {                             \
    return ::framedsp::kUnexpected;         \
  }

namespace framedsp {

// Called at the start of every worker.  Tests install a hook that throws, to prove the guard and
// the handle release on the way out; in normal use the hook is null and this is one relaxed load.
using WorkerHook = void (*)(const char *worker);
void set_worker_hook(WorkerHook hook);  // test-only, not exported
void worker_entry(const char *worker);

}  // namespace framedsp
