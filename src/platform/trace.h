// Diagnostics: refusals traced on request, and the hook every worker passes on entry.
//
// A validation step that quietly refuses a record (the export still
// answers S_OK, as the contract says) can name the reason: with FRAMEDSP_TRACE=1 in the
// environment each refusal prints one line to stderr,
//   "<export>: refused: <first failed condition in plain words>"
// and without it nothing is printed.  The environment is read once per process.
#pragma once

#include <cstdarg>

namespace framedsp {

// True when FRAMEDSP_TRACE is set to a value other than "" or "0".
bool trace_enabled();

// Prints "<export_name>: refused: " followed by the printf-style message and a newline, when
// tracing is on.  Always returns false, so a check can read `return refuse("DspFilter", ...);`.
bool refuse(const char *export_name, const char *format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 2, 3)))
#endif
    ;

// Test hook: overrides the environment (1 on, 0 off, -1 back to the environment).
void set_trace_override(int mode);

// Called at the start of every worker.  Tests install a hook that throws, to prove the guard and
// the handle release on the way out; in normal use the hook is null and this is one relaxed load.
using WorkerHook = void (*)(const char *worker);
void set_worker_hook(WorkerHook hook);  // test-only, not exported
void worker_entry(const char *worker);

}  // namespace framedsp
