#include "platform/handle.h"

#include "platform/platform.h"

#if defined(_MSC_VER)
#include <intrin.h>
#endif

namespace framedsp {

namespace {

// The counter word: a view of the shared section or the platform's process-local word; null
// until opened, either at load or lazily by the first identity drawn.
std::atomic<uint32_t *> g_counter{nullptr};
std::atomic<bool> g_shared{false};
std::atomic<uint32_t *> g_redirect{nullptr};
std::atomic<int64_t> g_live{0};

// The word is shared with other processes that know nothing of std::atomic, so it is changed
// with the plain interlocked primitives on its address.
uint32_t interlocked_increment(uint32_t *word) {
#if defined(_MSC_VER)
  return static_cast<uint32_t>(_InterlockedIncrement(reinterpret_cast<volatile long *>(word)));
#else
  return __atomic_add_fetch(word, 1u, __ATOMIC_SEQ_CST);
#endif
}

void interlocked_store(uint32_t *word, uint32_t value) {
#if defined(_MSC_VER)
  _InterlockedExchange(reinterpret_cast<volatile long *>(word), static_cast<long>(value));
#else
  __atomic_store_n(word, value, __ATOMIC_SEQ_CST);
#endif
}

uint32_t *counter_word() {
  uint32_t *word = g_redirect.load(std::memory_order_acquire);
  if (word) return word;
  word = g_counter.load(std::memory_order_acquire);
  if (word) return word;
  // Load has not run (a static link may drop the load hook) or unload has: open now.  The
  // platform's open is idempotent and lock-free, so racing first users get the same word.
  identity_counter_open();
  return g_counter.load(std::memory_order_acquire);
}

}  // namespace

HandleObject::HandleObject() : self_(this), id_(next_identity()), references_(1) {
  g_live.fetch_add(1, std::memory_order_relaxed);
}

HandleObject::~HandleObject() {
  // Also reached without release() when a derived constructor throws: the handle must not
  // validate after that either.
  self_ = nullptr;
  g_live.fetch_sub(1, std::memory_order_relaxed);
}

int32_t HandleObject::add_ref() { return references_.fetch_add(1, std::memory_order_relaxed) + 1; }

int32_t HandleObject::release() {
  const int32_t left = references_.fetch_sub(1, std::memory_order_acq_rel) - 1;
  if (left == 0) {
    // The self word is cleared first so that a stale handle held elsewhere fails lookup.
    self_ = nullptr;
    delete this;
  }
  return left;
}

HandleObject *HandleObject::lookup(DSP_HANDLE handle) {
  const uintptr_t value = reinterpret_cast<uintptr_t>(handle);
  // 0xFFFFFFFF is the classic invalid handle value; all-ones is its pointer-wide form.
  if (value == 0 || value == 0xFFFFFFFFu || value == ~uintptr_t{0}) return nullptr;
  if (value % alignof(HandleObject) != 0) return nullptr;
  // The self word follows the dispatch pointer.  Integer arithmetic: the address may be garbage.
  const uintptr_t self_address = value + sizeof(void *);
  if (self_address < value) return nullptr;
  void *self = nullptr;
  if (!platform::probe_read(reinterpret_cast<const void *>(self_address), &self, sizeof self)) {
    return nullptr;
  }
  if (self != handle) return nullptr;
  return static_cast<HandleObject *>(handle);
}

uint32_t next_identity() {
  uint32_t *word = counter_word();
  uint32_t id = interlocked_increment(word);
  if (id == 0) id = interlocked_increment(word);  // 0 is never an id
  return id;
}

void identity_counter_open() {
  bool shared = false;
  uint32_t *word = platform::shared_counter_open(&shared);
  g_shared.store(shared, std::memory_order_relaxed);
  g_counter.store(word, std::memory_order_release);
}

void identity_counter_close() {
  g_counter.store(nullptr, std::memory_order_release);
  g_shared.store(false, std::memory_order_relaxed);
  platform::shared_counter_close();
}

bool identity_counter_shared() {
  if (!g_counter.load(std::memory_order_acquire)) identity_counter_open();
  return g_shared.load(std::memory_order_relaxed);
}

void identity_counter_set(uint32_t value) { interlocked_store(counter_word(), value); }

void identity_counter_redirect(uint32_t *word) {
  g_redirect.store(word, std::memory_order_release);
}

int64_t live_handle_objects() { return g_live.load(std::memory_order_relaxed); }

}  // namespace framedsp
