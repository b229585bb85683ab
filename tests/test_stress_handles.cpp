// Handle abuse under contention, through the handle exports: many threads take and drop
// references to one converter while others present garbage, stale, unmapped and protected
// handles; concurrent creation draws distinct identities; and two processes creating converters
// at the same time never share an identity.  Run under ThreadSanitizer by `make tsan`.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "platform/handle.h"
#include "framedsp/framedsp.h"
#include "test_os.h"
#include "test_util.h"

namespace {

constexpr int kUsers = 6;        // threads using the live converter
constexpr int kAbusers = 6;      // threads presenting bad handles
constexpr int kIterations = 3000;  // calls per thread and export

DSP_HANDLE create_converter() {
  DSP_FRAME_RATE_CONVERTER_PARAMS p{};
  p.ulBaseCount = 2;
  p.lWidth = 64;
  p.lHeight = 64;
  DSP_HANDLE h = nullptr;
  EXPECT_EQ(DspCreateFrameRateConverter(&p, &h), DSP_S_OK);
  return h;
}

// Every handle export once; the count of answers other than the handle check's.  A bad handle
// gets E_HANDLE; a live one gets past the handle to its zeroed record: the pyramid answers
// E_POINTER for the missing level list, the motion vectors and the conversion E_INVALIDARG.
int use(DSP_HANDLE h, bool live) {
  DSP_FRAME_RATE_CONVERT_PARAMS convert{};
  DSP_MOTION_VECTORS_PARAMS motion{};
  DSP_MIPMAP_PARAMS mip{};
  return (DspFrameRateConvert(h, &convert, 0) != (live ? DSP_E_INVALIDARG : DSP_E_HANDLE)) +
         (DspCreateMotionVectors(h, &motion) != (live ? DSP_E_INVALIDARG : DSP_E_HANDLE)) +
         (DspCreateMipMaps(h, &mip) != (live ? DSP_E_POINTER : DSP_E_HANDLE));
}

// Runs body(t) for t = 0 .. n - 1 on n threads that start together.
void together(int n, const std::function<void(int)> &body) {
  std::atomic<int> ready{0};
  std::vector<std::thread> pool;
  for (int t = 0; t < n; ++t) {
    pool.emplace_back([&, t] {
      ready.fetch_add(1);
      while (ready.load() < n) std::this_thread::yield();
      body(t);
    });
  }
  for (std::thread &thread : pool) thread.join();
}

TEST(HandleStress, OneConverterUnderContentionWithBadHandles) {
  const int64_t live_before = framedsp::live_handle_objects();
  DSP_HANDLE live = create_converter();
  ASSERT_NE(live, nullptr);
  framedsp::HandleObject *object = framedsp::HandleObject::lookup(live);
  ASSERT_NE(object, nullptr);

  // A stale handle: a converter whose last reference is gone.  Nothing is created while the
  // threads run, so its memory cannot come back as a live converter.
  DSP_HANDLE stale = create_converter();
  ASSERT_EQ(framedsp::HandleObject::lookup(stale)->release(), 0);

  // An unmapped page, and a page without access holding a self word that would pass.
  const size_t page = framedsp_test::page_size();
  void *gone = framedsp_test::unmapped_address();
  auto *locked = reinterpret_cast<uintptr_t *>(framedsp_test::map_pages(page));
  ASSERT_NE(gone, nullptr);
  ASSERT_NE(locked, nullptr);
  locked[1] = reinterpret_cast<uintptr_t>(locked);
  ASSERT_TRUE(framedsp_test::protect_pages(locked, page));

  // A foreign block shaped like an object whose self word names another address.
  std::vector<uintptr_t> foreign(8, 0);
  foreign[1] = reinterpret_cast<uintptr_t>(live);

  std::atomic<int> wrong_live{0}, wrong_bad{0};
  together(kUsers + kAbusers, [&](int t) {
    int wrong = 0;
    if (t < kUsers) {
      for (int i = 0; i < kIterations; ++i) wrong += use(live, true);
      wrong_live.fetch_add(wrong);
      return;
    }
    std::mt19937_64 rng(framedsp_test::test_seed() + static_cast<uint64_t>(t));
    const DSP_HANDLE fixed[] = {nullptr, reinterpret_cast<DSP_HANDLE>(~uintptr_t{0}),
                                reinterpret_cast<DSP_HANDLE>(uintptr_t{0xFFFFFFFFu}), stale, gone, locked,
                                foreign.data(), static_cast<uint8_t *>(live) + 8, static_cast<uint8_t *>(live) + 1};
    for (int i = 0; i < kIterations; ++i) {
      DSP_HANDLE h = fixed[i % (sizeof fixed / sizeof fixed[0])];
      if (i % 3 == 2) {
        uintptr_t v = static_cast<uintptr_t>(rng());
        if (t % 2) v &= 0x0000FFFFFFFFFFF8ull;  // canonical, aligned addresses
        h = reinterpret_cast<DSP_HANDLE>(v);
        if (h == live) continue;
      }
      wrong += use(h, false);
    }
    wrong_bad.fetch_add(wrong);
  });

  EXPECT_EQ(wrong_live.load(), 0) << "a live converter was refused";
  EXPECT_EQ(wrong_bad.load(), 0) << "a bad handle was accepted";
  EXPECT_EQ(object->references(), 1) << "references not restored";
  EXPECT_EQ(framedsp::HandleObject::lookup(live), object);
  framedsp_test::unmap_pages(locked, page);
  // The converter has no destroy export; the test drops the creation reference itself.
  EXPECT_EQ(object->release(), 0);
  EXPECT_EQ(framedsp::HandleObject::lookup(live), nullptr);
  EXPECT_EQ(framedsp::live_handle_objects(), live_before) << "a converter leaked";
}

TEST(HandleStress, ConcurrentCreationDrawsDistinctIdentities) {
  constexpr int kThreads = 8, kEach = 200;
  const int64_t live_before = framedsp::live_handle_objects();
  std::vector<std::vector<DSP_HANDLE>> made(kThreads);
  together(kThreads, [&](int t) {
    for (int i = 0; i < kEach; ++i) {
      made[size_t(t)].push_back(create_converter());
      EXPECT_EQ(use(made[size_t(t)].back(), true), 0);
    }
  });
  std::set<uint32_t> ids;
  std::set<DSP_HANDLE> handles;
  for (const auto &list : made) {
    for (DSP_HANDLE h : list) {
      framedsp::HandleObject *o = framedsp::HandleObject::lookup(h);
      ASSERT_NE(o, nullptr);
      ids.insert(o->id());
      handles.insert(h);
    }
  }
  EXPECT_EQ(ids.size(), size_t{kThreads} * kEach) << "two converters share an identity";
  EXPECT_EQ(ids.count(0u), 0u);
  EXPECT_EQ(handles.size(), size_t{kThreads} * kEach);
  EXPECT_EQ(framedsp::live_handle_objects(), live_before + kThreads * kEach);
  for (DSP_HANDLE h : handles) EXPECT_EQ(framedsp::HandleObject::lookup(h)->release(), 0);
  EXPECT_EQ(framedsp::live_handle_objects(), live_before);
}

}  // namespace
