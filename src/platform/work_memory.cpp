#include "platform/work_memory.h"

#include <atomic>

#include "platform/platform.h"

namespace framedsp {

namespace {

std::atomic<uint64_t> g_allocations{0};
std::atomic<uint64_t> g_releases{0};
// Allocations left until the injected failure; 0 = no failure pending.
std::atomic<uint64_t> g_fail_countdown{0};

// True when this allocation is the one chosen to fail.  The countdown is stepped with a CAS so
// that exactly one of several concurrent allocations sees it reach zero.
bool injected_failure() {
  uint64_t left = g_fail_countdown.load(std::memory_order_relaxed);
  while (left != 0 &&
         !g_fail_countdown.compare_exchange_weak(left, left - 1, std::memory_order_relaxed)) {
  }
  return left == 1;
}

}  // namespace

uint8_t *aligned_start(void *p) {
  const uintptr_t address = reinterpret_cast<uintptr_t>(p);
  const uintptr_t rem = address % 16;
  return reinterpret_cast<uint8_t *>(rem ? address + (16 - rem) : address);
}

bool WorkBlock::allocate(size_t bytes) {
  release();
  if (injected_failure()) return false;
  void *address = platform::vm_allocate(bytes);
  if (!address) return false;
  address_ = address;
  bytes_ = bytes;
  g_allocations.fetch_add(1, std::memory_order_relaxed);
  return true;
}

void WorkBlock::release() {
  if (!address_) return;
  platform::vm_release(address_, bytes_);
  address_ = nullptr;
  bytes_ = 0;
  g_releases.fetch_add(1, std::memory_order_relaxed);
}

WorkMemoryStats work_memory_stats() {
  return WorkMemoryStats{g_allocations.load(std::memory_order_relaxed),
                         g_releases.load(std::memory_order_relaxed)};
}

void work_memory_fail_at(uint64_t k) { g_fail_countdown.store(k, std::memory_order_relaxed); }

}  // namespace framedsp
