// Per-call work memory: blocks come straight from the virtual-memory service and are released on
// every path out of the call.  Nothing is cached or pooled.
#pragma once

#include <cstddef>
#include <cstdint>

namespace framedsp {

// First 16-byte-aligned address at or after p.
uint8_t *aligned_start(void *p);

// Owner of one block.  release() frees it (once) and empties the owner; the destructor releases.
class WorkBlock {
 public:
  WorkBlock() = default;
  ~WorkBlock() { release(); }
  WorkBlock(const WorkBlock &) = delete;
  WorkBlock &operator=(const WorkBlock &) = delete;

  // Commits a new block of exactly `bytes` (releasing any previous one); false when refused.
  bool allocate(size_t bytes);
  void release();

  void *data() const { return address_; }
  size_t size() const { return bytes_; }
  uint8_t *aligned() const { return aligned_start(address_); }
  explicit operator bool() const { return address_ != nullptr; }

 private:
  void *address_ = nullptr;
  size_t bytes_ = 0;
};

// A work line: line_bytes + 16 bytes, written from its first 16-byte-aligned address.
class WorkLine {
 public:
  bool allocate(size_t line_bytes) { return block_.allocate(line_bytes + 16); }
  uint8_t *data() const { return block_.aligned(); }
  void release() { block_.release(); }

 private:
  WorkBlock block_;
};

// Test hooks (not exported): counts of committed and released blocks since start-up, and an
// injected failure of the k-th allocation from now (0 = none).
struct WorkMemoryStats {
  uint64_t allocations;
  uint64_t releases;
};
WorkMemoryStats work_memory_stats();
void work_memory_fail_at(uint64_t k);

}  // namespace framedsp
