// Objects handed to the host.  The handle is the object's address; it is accepted only while the
// object's self word still holds that address, so stale and foreign handles fail lookup instead
// of being used.  Reference counts and the machine-wide identity counter change atomically.
#pragma once

#include <atomic>
#include <cstdint>

#include "framedsp/framedsp.h"

namespace framedsp {

class HandleObject {
 public:
  HandleObject();
  virtual ~HandleObject();
  HandleObject(const HandleObject &) = delete;
  HandleObject &operator=(const HandleObject &) = delete;

  DSP_HANDLE handle() const { return self_; }
  uint32_t id() const { return id_; }
  int32_t references() const { return references_.load(std::memory_order_relaxed); }

  int32_t add_ref();
  // Drops one reference; the last one clears the self word and deletes the object.  Returns the
  // new count (0 when destroyed).
  int32_t release();

  // The object at a handle, or null: 0, all-ones, unreadable memory or a self word that differs.
  static HandleObject *lookup(DSP_HANDLE handle);

 private:
  // Field order: dispatch table, self, id, references.  lookup() reads the self word, which sits
  // right after the dispatch pointer.
  DSP_HANDLE volatile self_;
  uint32_t id_;
  std::atomic<int32_t> references_;
};

// Looks a handle up and checks its run-time type; on success takes a reference the caller must
// release (HandleRef does that on every path, exceptions included).
template <class T>
T *acquire_handle(DSP_HANDLE handle) {
  HandleObject *object = HandleObject::lookup(handle);
  T *typed = object ? dynamic_cast<T *>(object) : nullptr;
  if (typed) typed->add_ref();
  return typed;
}

template <class T>
class HandleRef {
 public:
  explicit HandleRef(DSP_HANDLE handle) : object_(acquire_handle<T>(handle)) {}
  ~HandleRef() {
    if (object_) object_->release();
  }
  HandleRef(const HandleRef &) = delete;
  HandleRef &operator=(const HandleRef &) = delete;
  T *get() const { return object_; }
  explicit operator bool() const { return object_ != nullptr; }

 private:
  T *object_;
};

// The identity counter.  next_identity() increments it atomically and skips 0.
uint32_t next_identity();
// Load / unload: open and close the shared counter.
void identity_counter_open();
void identity_counter_close();
// Test hooks (not exported): whether the shared section is in use, and setting the word.
bool identity_counter_shared();
void identity_counter_set(uint32_t value);
// Points the counter at a caller's word instead (null: back to the shared or process-local
// word), so that tests can drive the counter without disturbing other processes.
void identity_counter_redirect(uint32_t *word);
// Handle objects constructed and not yet destroyed in this process.
int64_t live_handle_objects();

}  // namespace framedsp
