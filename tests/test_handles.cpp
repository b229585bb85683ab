// Handle objects: lookup of bad handles never faults and never succeeds, reference counting is
// atomic, the last release destroys once and invalidates the handle, and identities come from a
// counter shared by every process on the machine.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <set>
#include <thread>
#include <vector>

#include "platform/handle.h"
#include "platform/platform.h"
#include "test_os.h"

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

using framedsp_test::map_pages;
using framedsp_test::page_size;
using framedsp_test::protect_pages;
using framedsp_test::unmap_pages;

DSP_HANDLE as_handle(uintptr_t value) { return reinterpret_cast<DSP_HANDLE>(value); }

// Points the identity counter at a test-owned word for the scope, so that driving it to chosen
// values cannot disturb other processes sharing the machine-wide word.
class RedirectedCounter {
 public:
  RedirectedCounter() { framedsp::identity_counter_redirect(&word); }
  ~RedirectedCounter() { framedsp::identity_counter_redirect(nullptr); }
  uint32_t word = 0;
};

// The probe itself, both ways: the direct read and the portable one (a write into a pipe) that
// serves where the direct read is not allowed.  Readable bytes come back intact; unmapped,
// protected and partly protected ranges fail; a stale object fails lookup either way.  Two
// pages: the first readable with a forged self word at the object's self offset, the second
// forged the same way (and straddled by a third forgery) before losing all access.
TEST(Handles, ProbeAndLookupReadReadableBytesOnlyBothWays) {
  const size_t page = page_size();
  unsigned char *pages = map_pages(2 * page);
  ASSERT_NE(pages, nullptr);
  for (size_t i = 0; i < page; ++i) pages[i] = static_cast<unsigned char>(i * 13 + 1);
  unsigned char *second = pages + page, *straddle = second - sizeof(void *);
  std::memcpy(pages + sizeof(void *), &pages, sizeof pages);
  std::memcpy(second + sizeof(void *), &second, sizeof second);
  std::memcpy(second, &straddle, sizeof straddle);
  ASSERT_TRUE(protect_pages(second, page));

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
    void *hole = framedsp_test::unmapped_address();
    EXPECT_FALSE(framedsp::platform::probe_read(hole, out, 8)) << way;

    int destroyed = 0;
    auto *probe = new Probe(&destroyed);
    const DSP_HANDLE h = probe->handle();
    EXPECT_EQ(HandleObject::lookup(h), probe) << way;
    probe->release();
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(HandleObject::lookup(h), nullptr) << way;
    // The readable forgery passes (lookup can only compare the word): the probe really reads,
    // and the failures come from the protection alone.
    EXPECT_EQ(HandleObject::lookup(pages), reinterpret_cast<HandleObject *>(pages)) << way;
    EXPECT_EQ(HandleObject::lookup(second), nullptr) << way;
    EXPECT_EQ(HandleObject::lookup(straddle), nullptr) << way;
  }
  unmap_pages(pages, 2 * page);
}

// (Foreign memory and pointers into a live object are rows of the converter's handle test.)
TEST(Handles, MisalignedAndWrappingPointersFailLookup) {
  // A misaligned address whose "self word" holds that very address still fails.
  alignas(16) static unsigned char bytes[64];
  for (size_t offset = 1; offset < alignof(HandleObject); ++offset) {
    unsigned char *p = bytes + offset;
    std::memcpy(p + sizeof(void *), &p, sizeof p);
    EXPECT_EQ(HandleObject::lookup(p), nullptr) << "offset " << offset;
  }

  // Aligned, but the self word would lie past the end of the address space; and a low address.
  EXPECT_EQ(HandleObject::lookup(as_handle(~uintptr_t{0} - 7)), nullptr);
  EXPECT_EQ(HandleObject::lookup(as_handle(uintptr_t{16})), nullptr);
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

// Counted up concurrently, then down concurrently: exactly one destruction.
TEST(Handles, ManyThreadsReleaseOneHandleToItsEnd) {
  int destroyed = 0;
  auto *probe = new Probe(&destroyed);
  const DSP_HANDLE h = probe->handle();
  constexpr int kThreads = 8;
  auto run = [&](bool up) {
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([probe, up] {
        for (int i = 0; i < 1000; ++i) up ? probe->add_ref() : probe->release();
      });
    }
    for (auto &thread : threads) thread.join();
  };
  run(true);
  EXPECT_EQ(probe->references(), 1 + kThreads * 1000);
  probe->release();  // the creation reference
  EXPECT_EQ(destroyed, 0);
  run(false);
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
}

// The counter lives in the named shared-memory object: mapped independently by name, its value
// brackets the id a new object draws, and every user of the machine may open it.
TEST(Handles, CounterIsTheNamedSharedWord) {
  if (const char *why = framedsp_test::named_memory_missing()) GTEST_SKIP() << why;
  ASSERT_TRUE(framedsp::identity_counter_shared());
  const char *name = framedsp::platform::shared_counter_name();
  EXPECT_NE(std::strstr(name, "{7F0369A3-6A89-4fa8-AF2E-1F173F606C0C}"), nullptr);
#if !defined(_WIN32)
  ASSERT_EQ(name[0], '/');
  EXPECT_EQ(std::strchr(name + 1, '/'), nullptr);
#endif
  bool everyone = false;
  uint32_t *word = framedsp_test::map_named_word(name, &everyone);
  ASSERT_NE(word, nullptr);
  EXPECT_TRUE(everyone) << "every user must be able to open the counter";

  const uint32_t before = __atomic_load_n(word, __ATOMIC_SEQ_CST);
  auto *probe = new Probe();
  const uint32_t id = probe->id();
  const uint32_t after = __atomic_load_n(word, __ATOMIC_SEQ_CST);
  probe->release();
  framedsp_test::unmap_named_word(word);
  // Other processes may draw ids meanwhile; ours still lies in (before, after], modulo 2^32.
  EXPECT_GE(after - before, 1u);
  EXPECT_GE(id - before, 1u);
  EXPECT_LE(id - before, after - before);
}

// Several processes each open the counter by name, as a fresh load of the library does, and
// draw ids at the same time: no id appears twice.
TEST(Handles, ProcessesSharingTheCounterGetDistinctIds) {
  if (const char *why = framedsp_test::named_memory_missing()) GTEST_SKIP() << why;
  ASSERT_TRUE(framedsp::identity_counter_shared());
  std::string error;
  const auto drawn = framedsp_test::draw_in_processes(3, [] {
    // A forked child drops the mapping inherited from its parent and opens the section by name.
    framedsp::identity_counter_close();
    framedsp::identity_counter_open();
    std::vector<uint32_t> ids;
    if (!framedsp::identity_counter_shared()) return ids;
    for (int i = 0; i < 20000; ++i) {
      auto *probe = new Probe();
      ids.push_back(probe->id());
      probe->release();
    }
    return ids;
  }, &error);
  ASSERT_EQ(drawn.size(), 4u) << error;
  std::set<uint32_t> distinct;
  for (const auto &ids : drawn) {
    ASSERT_EQ(ids.size(), 20000u);
    distinct.insert(ids.begin(), ids.end());
  }
  EXPECT_EQ(distinct.size(), 4u * 20000);
  EXPECT_EQ(distinct.count(0u), 0u);
}

}  // namespace
