// Handle objects: lookup of bad handles never faults and never succeeds, reference counting is
// atomic, the last release destroys once and invalidates the handle, and identities come from a
// counter shared by every process on the machine.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "frame/handle.h"
#include "frame/platform.h"

namespace {

using framedsp::HandleObject;

// A handle class of the tests' own that reports its destruction.
class Probe : public HandleObject {
 public:
  explicit Probe(int *destroyed = nullptr, DSP_HANDLE *self_at_destruction = nullptr)
      : destroyed_(destroyed), self_at_destruction_(self_at_destruction) {}
  ~Probe() override {
    if (destroyed_) ++*destroyed_;
    if (self_at_destruction_) *self_at_destruction_ = handle();
  }

 private:
  int *destroyed_;
  DSP_HANDLE *self_at_destruction_;
};

// POSIX shared memory lives in /dev/shm on Linux; where it is missing or read-only the counter
// falls back to a process-local word on purpose, and the cross-process tests cannot run.
bool shared_memory_available() { return access("/dev/shm", W_OK | X_OK) == 0; }
constexpr char kNoSharedMemory[] = "/dev/shm is unavailable here: ids are process-local";

size_t page_size() { return static_cast<size_t>(sysconf(_SC_PAGESIZE)); }

DSP_HANDLE as_handle(uintptr_t value) { return reinterpret_cast<DSP_HANDLE>(value); }

// Points the identity counter at a test-owned word for the scope, so that driving it to chosen
// values cannot disturb other processes sharing the machine-wide word.
class RedirectedCounter {
 public:
  RedirectedCounter() { framedsp::identity_counter_redirect(&word); }
  ~RedirectedCounter() { framedsp::identity_counter_redirect(nullptr); }
  uint32_t word = 0;
};

TEST(Handles, SelfAndIdWordsFollowTheDispatchPointer) {
  auto *probe = new Probe();
  HandleObject *base = probe;
  const auto *bytes = reinterpret_cast<const unsigned char *>(base);
  void *self = nullptr;
  std::memcpy(&self, bytes + sizeof(void *), sizeof self);
  uint32_t id = 0;
  std::memcpy(&id, bytes + 2 * sizeof(void *), sizeof id);
  EXPECT_EQ(self, static_cast<void *>(base));
  EXPECT_EQ(probe->handle(), static_cast<DSP_HANDLE>(base));
  EXPECT_EQ(id, probe->id());
  EXPECT_EQ(probe->references(), 1);
  EXPECT_EQ(HandleObject::lookup(probe->handle()), base);
  EXPECT_EQ(probe->release(), 0);
}

TEST(Handles, ReservedValuesFailLookup) {
  EXPECT_EQ(HandleObject::lookup(nullptr), nullptr);
  EXPECT_EQ(HandleObject::lookup(as_handle(0xFFFFFFFFu)), nullptr);
  EXPECT_EQ(HandleObject::lookup(as_handle(~uintptr_t{0})), nullptr);
  // Aligned, but the self word would lie past the end of the address space.
  EXPECT_EQ(HandleObject::lookup(as_handle(~uintptr_t{0} - 7)), nullptr);
  EXPECT_EQ(HandleObject::lookup(as_handle(uintptr_t{16})), nullptr);
}

TEST(Handles, UnmappedAndProtectedPagesFailLookupWithoutFault) {
  const size_t page = page_size();
  void *gone = mmap(nullptr, page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(gone, MAP_FAILED);
  ASSERT_EQ(munmap(gone, page), 0);
  EXPECT_EQ(HandleObject::lookup(gone), nullptr);

  // Two pages: the first readable and forged to look like a live object, the second PROT_NONE
  // and forged the same way before it was protected.
  auto *pages = static_cast<unsigned char *>(
      mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(static_cast<void *>(pages), MAP_FAILED);
  unsigned char *second = pages + page;
  std::memcpy(pages + sizeof(void *), &pages, sizeof pages);
  std::memcpy(second + sizeof(void *), &second, sizeof second);
  unsigned char *straddle = second - sizeof(void *);  // self word at the start of `second`
  std::memcpy(second, &straddle, sizeof straddle);
  ASSERT_EQ(mprotect(second, page, PROT_NONE), 0);

  // The readable forgery passes (lookup can only compare the word), which shows the probe
  // really reads: the failures below come from the protection alone.
  EXPECT_EQ(HandleObject::lookup(pages), reinterpret_cast<HandleObject *>(pages));
  EXPECT_EQ(HandleObject::lookup(second), nullptr);
  EXPECT_EQ(HandleObject::lookup(straddle), nullptr);
  munmap(pages, 2 * page);
}

// The probe itself, both ways: the direct read and the portable one (a write into a pipe) that
// serves where the direct read is not allowed.  Readable bytes come back intact; unmapped,
// protected and partly protected ranges fail; a stale object fails lookup either way.
TEST(Handles, ProbeReadsReadableBytesOnlyBothWays) {
  const size_t page = page_size();
  auto *pages = static_cast<unsigned char *>(
      mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(static_cast<void *>(pages), MAP_FAILED);
  for (size_t i = 0; i < page; ++i) pages[i] = static_cast<unsigned char>(i * 13 + 1);
  ASSERT_EQ(mprotect(pages + page, page, PROT_NONE), 0);

  struct FallbackOffAtExit {
    ~FallbackOffAtExit() { framedsp::platform::probe_use_fallback(false); }
  } restore;
  for (bool fallback : {false, true}) {
    framedsp::platform::probe_use_fallback(fallback);
    const char *way = fallback ? "pipe" : "direct";
    unsigned char out[16];
    ASSERT_TRUE(framedsp::platform::probe_read(pages + 100, out, sizeof out)) << way;
    EXPECT_EQ(std::memcmp(out, pages + 100, sizeof out), 0) << way;
    EXPECT_FALSE(framedsp::platform::probe_read(pages + page, out, 8)) << way;
    EXPECT_FALSE(framedsp::platform::probe_read(pages + page - 4, out, 8)) << way;
    // Unmapped just before the probe: an allocation in between could map the hole again.
    void *hole = mmap(nullptr, page, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(hole, MAP_FAILED);
    ASSERT_EQ(munmap(hole, page), 0);
    EXPECT_FALSE(framedsp::platform::probe_read(hole, out, 8)) << way;

    int destroyed = 0;
    auto *probe = new Probe(&destroyed);
    const DSP_HANDLE h = probe->handle();
    EXPECT_EQ(HandleObject::lookup(h), probe) << way;
    probe->release();
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(HandleObject::lookup(h), nullptr) << way;
    EXPECT_EQ(HandleObject::lookup(pages + page), nullptr) << way;
  }
  munmap(pages, 2 * page);
}

TEST(Handles, ForeignAndMisalignedPointersFailLookup) {
  std::unique_ptr<uint64_t[]> block(new uint64_t[8]());
  EXPECT_EQ(HandleObject::lookup(block.get()), nullptr);
  for (int i = 0; i < 8; ++i) block[i] = 0x0123456789ABCDEFull * (i + 1);
  EXPECT_EQ(HandleObject::lookup(block.get()), nullptr);

  // A misaligned address whose "self word" holds that very address still fails.
  alignas(16) static unsigned char bytes[64];
  for (size_t offset = 1; offset < alignof(HandleObject); ++offset) {
    unsigned char *p = bytes + offset;
    std::memcpy(p + sizeof(void *), &p, sizeof p);
    EXPECT_EQ(HandleObject::lookup(p), nullptr) << "offset " << offset;
  }

  Probe *live = new Probe();
  auto *inside = reinterpret_cast<unsigned char *>(static_cast<HandleObject *>(live)) + 1;
  EXPECT_EQ(HandleObject::lookup(inside), nullptr);
  live->release();
}

TEST(Handles, LastReleaseClearsSelfFirstAndDestroysOnce) {
  int destroyed = 0;
  DSP_HANDLE self_seen = reinterpret_cast<DSP_HANDLE>(uintptr_t{1});
  auto *probe = new Probe(&destroyed, &self_seen);
  const DSP_HANDLE h = probe->handle();
  EXPECT_EQ(probe->add_ref(), 2);
  EXPECT_EQ(probe->add_ref(), 3);
  EXPECT_EQ(probe->release(), 2);
  EXPECT_EQ(probe->release(), 1);
  EXPECT_EQ(destroyed, 0);
  EXPECT_EQ(HandleObject::lookup(h), probe);
  EXPECT_EQ(probe->release(), 0);
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(self_seen, nullptr) << "self word must be cleared before the destructor runs";
  EXPECT_EQ(HandleObject::lookup(h), nullptr) << "stale handle";
}

TEST(Handles, ManyThreadsAddAndReleaseOneHandle) {
  int destroyed = 0;
  auto *probe = new Probe(&destroyed);
  const DSP_HANDLE h = probe->handle();
  constexpr int kThreads = 8;
  constexpr int kRounds = 100000;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([probe] {
      for (int i = 0; i < kRounds; ++i) {
        probe->add_ref();
        probe->release();
      }
    });
  }
  for (auto &thread : threads) thread.join();
  EXPECT_EQ(probe->references(), 1);
  EXPECT_EQ(destroyed, 0);
  EXPECT_EQ(HandleObject::lookup(h), probe);

  // Counted up concurrently, then down concurrently: exactly one destruction.
  threads.clear();
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([probe] {
      for (int i = 0; i < 1000; ++i) probe->add_ref();
    });
  }
  for (auto &thread : threads) thread.join();
  EXPECT_EQ(probe->references(), 1 + kThreads * 1000);
  probe->release();  // the creation reference
  threads.clear();
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([probe] {
      for (int i = 0; i < 1000; ++i) probe->release();
    });
  }
  for (auto &thread : threads) thread.join();
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(HandleObject::lookup(h), nullptr);
}

TEST(Handles, CounterWrapSkipsZero) {
  RedirectedCounter counter;
  framedsp::identity_counter_set(0xFFFFFFFFu);
  EXPECT_EQ(counter.word, 0xFFFFFFFFu);
  auto *first = new Probe();
  EXPECT_EQ(first->id(), 1u);
  EXPECT_EQ(counter.word, 1u);
  first->release();

  framedsp::identity_counter_set(0xFFFFFFFEu);
  auto *last = new Probe();
  auto *wrapped = new Probe();
  EXPECT_EQ(last->id(), 0xFFFFFFFFu);
  EXPECT_EQ(wrapped->id(), 1u);
  last->release();
  wrapped->release();

  framedsp::identity_counter_set(41);
  EXPECT_EQ(framedsp::next_identity(), 42u);
}

// The counter lives in the named shared-memory object: mapped independently by name, its value
// brackets the id a new object draws.
TEST(Handles, CounterIsTheNamedSharedWord) {
  if (!shared_memory_available()) GTEST_SKIP() << kNoSharedMemory;
  ASSERT_TRUE(framedsp::identity_counter_shared());
  const char *name = framedsp::platform::shared_counter_name();
  ASSERT_EQ(name[0], '/');
  EXPECT_EQ(std::strchr(name + 1, '/'), nullptr);
  EXPECT_NE(std::strstr(name, "{7F0369A3-6A89-4fa8-AF2E-1F173F606C0C}"), nullptr);

  const int fd = shm_open(name, O_RDWR, 0);
  ASSERT_GE(fd, 0);
  struct stat st;
  ASSERT_EQ(fstat(fd, &st), 0);
  EXPECT_GE(st.st_size, 4);
  EXPECT_EQ(st.st_mode & 0777, 0666u) << "every user must be able to open the counter";
  void *view = mmap(nullptr, 4, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  close(fd);
  ASSERT_NE(view, MAP_FAILED);
  auto *word = static_cast<uint32_t *>(view);

  const uint32_t before = __atomic_load_n(word, __ATOMIC_SEQ_CST);
  auto *probe = new Probe();
  const uint32_t id = probe->id();
  const uint32_t after = __atomic_load_n(word, __ATOMIC_SEQ_CST);
  probe->release();
  munmap(view, 4);
  // Other processes may draw ids meanwhile; ours still lies in (before, after], modulo 2^32.
  EXPECT_GE(after - before, 1u);
  EXPECT_GE(id - before, 1u);
  EXPECT_LE(id - before, after - before);
}

// Several processes each open the counter by name, as a fresh load of the library does, and
// draw ids at the same time: no id appears twice.
TEST(Handles, ProcessesSharingTheCounterGetDistinctIds) {
  if (!shared_memory_available()) GTEST_SKIP() << kNoSharedMemory;
  ASSERT_TRUE(framedsp::identity_counter_shared());
  constexpr int kChildren = 3;
  constexpr int kObjects = 20000;
  int go[2];
  ASSERT_EQ(pipe(go), 0);
  std::vector<pid_t> pids;
  std::vector<int> results;
  for (int c = 0; c < kChildren; ++c) {
    int out[2];
    ASSERT_EQ(pipe(out), 0);
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      close(go[1]);
      close(out[0]);
      // Drop the mapping inherited from the parent and open the section by name.
      framedsp::identity_counter_close();
      framedsp::identity_counter_open();
      if (!framedsp::identity_counter_shared()) _exit(3);
      char byte;
      if (read(go[0], &byte, 1) != 0) _exit(4);  // released when the parent closes `go`
      std::vector<uint32_t> ids;
      ids.reserve(kObjects);
      for (int i = 0; i < kObjects; ++i) {
        auto *probe = new Probe();
        ids.push_back(probe->id());
        probe->release();
      }
      const char *p = reinterpret_cast<const char *>(ids.data());
      size_t left = ids.size() * sizeof(uint32_t);
      while (left > 0) {
        const ssize_t n = write(out[1], p, left);
        if (n <= 0) _exit(5);
        p += n;
        left -= static_cast<size_t>(n);
      }
      _exit(0);
    }
    close(out[1]);
    pids.push_back(pid);
    results.push_back(out[0]);
  }
  close(go[0]);
  close(go[1]);

  std::vector<uint32_t> all;
  for (int i = 0; i < kObjects; ++i) {
    auto *probe = new Probe();
    all.push_back(probe->id());
    probe->release();
  }
  for (int c = 0; c < kChildren; ++c) {
    std::vector<uint32_t> ids(kObjects);
    char *p = reinterpret_cast<char *>(ids.data());
    size_t left = ids.size() * sizeof(uint32_t);
    while (left > 0) {
      const ssize_t n = read(results[c], p, left);
      if (n <= 0) break;
      p += n;
      left -= static_cast<size_t>(n);
    }
    close(results[c]);
    int status = 0;
    ASSERT_EQ(waitpid(pids[c], &status, 0), pids[c]);
    ASSERT_TRUE(WIFEXITED(status));
    ASSERT_EQ(WEXITSTATUS(status), 0) << "child " << c;
    ASSERT_EQ(left, 0u) << "child " << c << " reported too few ids";
    all.insert(all.end(), ids.begin(), ids.end());
  }
  const std::set<uint32_t> distinct(all.begin(), all.end());
  EXPECT_EQ(distinct.size(), all.size());
  EXPECT_EQ(distinct.count(0u), 0u);
}

}  // namespace
