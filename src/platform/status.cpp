#include "platform/status.h"

#include <cstdio>
#include <cstring>

#include "platform/platform.h"

namespace framedsp {

namespace {

constexpr uint32_t kWaitTimeout = 258;
constexpr HRESULT kWaitTimeoutStatus = static_cast<HRESULT>(0x80070102u);
constexpr HRESULT kPending = static_cast<HRESULT>(0x8000000Au);

}  // namespace

HRESULT hresult_from_win32(int32_t value) {
  if (value <= 0) return value;
  // Unsigned arithmetic: the result has bit 31 set and is reinterpreted, not overflowed.
  return static_cast<HRESULT>((static_cast<uint32_t>(value) & 0xFFFFu) | 0x80070000u);
}

HRESULT status_from_error(uint32_t wait_result, int32_t last_error) {
  if (wait_result == kWaitTimeout) return kWaitTimeoutStatus;
  if (last_error == 0) return kFail;
  // Values that already look like statuses (or facility-style codes) are passed through.
  if ((static_cast<uint32_t>(last_error) & 0xFFFF8000u) != 0 || last_error <= 0) return last_error;
  return hresult_from_win32(last_error);
}

HRESULT last_error_status(uint32_t wait_result) {
  // A timed-out wait leaves no error behind, so the thread's last error is not even read.
  if (wait_result == kWaitTimeout) return kWaitTimeoutStatus;
  return status_from_error(wait_result, platform::last_error());
}

StatusText::StatusText(HRESULT hr) : text_(buffer_) {
  if (hr == kPending) {
    std::snprintf(buffer_, sizeof buffer_, "%s", "E_PENDING");
  } else {
    std::snprintf(buffer_, sizeof buffer_, "0x%08X", static_cast<unsigned>(hr));
  }
}

// The text pointer must follow the buffer into the new object; a member-wise copy would leave it
// pointing into the source, which may die first.
StatusText::StatusText(const StatusText &other) : text_(buffer_) {
  std::memcpy(buffer_, other.buffer_, sizeof buffer_);
}

StatusText &StatusText::operator=(const StatusText &other) {
  if (this != &other) std::memcpy(buffer_, other.buffer_, sizeof buffer_);
  text_ = buffer_;
  return *this;
}

void name_thread_for_debugger(const char *name) { platform::name_thread(name); }

HRESULT placeholder_operation(const void *p) { return p ? kNotImpl : kPointer; }

}  // namespace framedsp
