// Status values and the small status helpers shared by every subsystem.
#pragma once

#include <cstdint>

#include "framedsp/framedsp.h"

namespace framedsp {

using HRESULT = DSP_HRESULT;

constexpr HRESULT kOk = DSP_S_OK;
constexpr HRESULT kPointer = DSP_E_POINTER;
constexpr HRESULT kInvalidArg = DSP_E_INVALIDARG;
constexpr HRESULT kNotImpl = DSP_E_NOTIMPL;
constexpr HRESULT kFail = DSP_E_FAIL;
constexpr HRESULT kOutOfMemory = DSP_E_OUTOFMEMORY;
constexpr HRESULT kHandle = DSP_E_HANDLE;
constexpr HRESULT kUnexpected = DSP_E_UNEXPECTED;

// Win32 error code to HRESULT: values <= 0 pass unchanged, others become
// (value & 0xFFFF) | 0x80070000.
HRESULT hresult_from_win32(int32_t value);

// Status after a wait or a failed system call.  258 (wait timed out) gives 0x80070102 without
// reading the thread's last error; otherwise the last error is read: 0 gives E_FAIL, a value with
// any bit of 0xFFFF8000 set or <= 0 is returned as it is, others go through hresult_from_win32.
HRESULT last_error_status(uint32_t wait_result);
// The same rule on an explicit error value (the part that does not read the thread's state).
HRESULT status_from_error(uint32_t wait_result, int32_t last_error);

// A status as text: "E_PENDING" for 0x8000000A, otherwise "0x%08X".  Holds its own buffer.
class StatusText {
 public:
  explicit StatusText(HRESULT hr);
  StatusText(const StatusText &other);
  StatusText &operator=(const StatusText &other);
  const char *c_str() const { return text_; }

 private:
  char buffer_[16];
  const char *text_;  // points into buffer_
};

// Names the calling thread for an attached debugger; harmless when none listens.
void name_thread_for_debugger(const char *name);

// The placeholder operation: E_POINTER for null, E_NOTIMPL otherwise.
HRESULT placeholder_operation(const void *p);

}  // namespace framedsp
