// DspCreateFrameRateConverter and the handle checks of DspFrameRateConvert,
// DspCreateMotionVectors and DspCreateMipMaps: creation words from the fuzz input against an
// oracle of the documented bounds, then live, garbage, unmapped, foreign and stale handles.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "platform/handle.h"
#include "harness.h"

namespace {

using fuzz::require;

bool block_ok(uint32_t v) {
  const uint32_t b = v ? v : 16;
  return b >= 8 && b <= 32;
}

// The creation bounds of the public header, written independently of the library.
bool creation_valid(const DSP_FRAME_RATE_CONVERTER_PARAMS &p) {
  if (p.ulBaseCount == 0) return false;
  if (p.bDeriveCount && p.ulDerivedCount == 0) return false;
  if (p.ulLevels > 5) return false;
  if (!block_ok(p.ulBlockA) || !block_ok(p.ulBlockB)) return false;
  const uint32_t max_x = static_cast<uint32_t>(p.lWidth / 4);
  const uint32_t max_y = static_cast<uint32_t>(p.lHeight / 4);
  for (int i = 0; i < 5; ++i) {
    if (!block_ok(p.ulLevelBlockA[i]) || !block_ok(p.ulLevelBlockB[i])) return false;
    if ((p.ulLevelRangeX[i] ? p.ulLevelRangeX[i] : 1) > max_x) return false;
    if ((p.ulLevelRangeY[i] ? p.ulLevelRangeY[i] : 1) > max_y) return false;
    if ((p.ulLevelThreshold[i] ? p.ulLevelThreshold[i] : 8) > 255) return false;
  }
  return true;
}

uint32_t small_or_any(fuzz::Reader &r, uint32_t hi) { return r.u8() < 220 ? r.range(0, hi) : r.u32(); }

void draw_creation(fuzz::Reader &r, DSP_FRAME_RATE_CONVERTER_PARAMS *p) {
  *p = DSP_FRAME_RATE_CONVERTER_PARAMS{};
  p->ulBaseCount = small_or_any(r, 3);
  p->ulDerivedCount = small_or_any(r, 3);
  const uint32_t ra = r.u32(), rb = r.u32();
  std::memcpy(&p->fRateA, &ra, 4);
  std::memcpy(&p->fRateB, &rb, 4);
  if (r.flag()) {
    static const float kRates[] = {0.0f, -0.0f, 24.0f, 25.0f, 29.97f, 50.0f, 60.0f, -30.0f};
    p->fRateA = r.pick(kRates);
    p->fRateB = r.pick(kRates);
  }
  p->lWidth = static_cast<int32_t>(small_or_any(r, 2000)) - (r.u8() < 16 ? 4000 : 0);
  p->lHeight = static_cast<int32_t>(small_or_any(r, 2000)) - (r.u8() < 16 ? 4000 : 0);
  p->ulLevels = small_or_any(r, 6);
  for (int i = 0; i < 5; ++i) {
    p->ulLevelThreshold[i] = r.u8() < 200 ? 0 : small_or_any(r, 260);
    p->ulLevelBlockA[i] = r.u8() < 200 ? 0 : small_or_any(r, 34);
    p->ulLevelBlockB[i] = r.u8() < 200 ? 0 : small_or_any(r, 34);
    p->ulLevelRangeX[i] = r.u8() < 200 ? 0 : small_or_any(r, 600);
    p->ulLevelRangeY[i] = r.u8() < 200 ? 0 : small_or_any(r, 600);
  }
  p->ulBlockA = r.u8() < 200 ? 0 : small_or_any(r, 34);
  p->ulBlockB = r.u8() < 200 ? 0 : small_or_any(r, 34);
  p->bDeriveCount = r.u8() & 1;
  p->ulReserved2 = r.u32();
  for (uint32_t &w : p->ulReserved40) w = r.u32();
}

// Every handle export on one handle; `live` says which answer is due.
void use_handle(DSP_HANDLE h, bool live) {
  DSP_FRAME_RATE_CONVERT_PARAMS convert{};
  DSP_MOTION_VECTORS_PARAMS motion{};
  DSP_MIPMAP_PARAMS mip{};
  // The handle is checked first; a live one then meets the record (zeroed: no frames).
  require(DspFrameRateConvert(h, &convert, 7) == (live ? DSP_E_INVALIDARG : DSP_E_HANDLE), "DspFrameRateConvert");
  require(DspFrameRateConvert(h, nullptr, 0) == (live ? DSP_E_POINTER : DSP_E_HANDLE),
          "DspFrameRateConvert (null record)");
  require(DspCreateMotionVectors(h, &motion) == (live ? DSP_E_INVALIDARG : DSP_E_HANDLE), "DspCreateMotionVectors");
  require(DspCreateMotionVectors(h, nullptr) == DSP_E_POINTER, "DspCreateMotionVectors (null record)");
  // The mip-map record here has no level list: a live handle reaches the record check.
  require(DspCreateMipMaps(h, &mip) == (live ? DSP_E_POINTER : DSP_E_HANDLE), "DspCreateMipMaps");
  require(DspCreateMipMaps(h, nullptr) == DSP_E_POINTER, "DspCreateMipMaps (null record)");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader r(data, size);
  const int64_t live_before = framedsp::live_handle_objects();
  std::vector<DSP_HANDLE> live;
  int steps = 0;
  while (r.left() > 0 && steps++ < 64) {
    switch (r.u8() % 7) {
      case 0: {  // create
        DSP_FRAME_RATE_CONVERTER_PARAMS p;
        draw_creation(r, &p);
        const DSP_FRAME_RATE_CONVERTER_PARAMS p_before = p;
        const bool valid = creation_valid(p);
        DSP_HANDLE h = reinterpret_cast<DSP_HANDLE>(uintptr_t{0x5EED});
        const DSP_HRESULT hr = DspCreateFrameRateConverter(&p, &h);
        require(std::memcmp(&p, &p_before, sizeof p) == 0, "DspCreateFrameRateConverter", "the record changed");
        if (!valid) {
          require(hr == DSP_E_INVALIDARG, "DspCreateFrameRateConverter", "out-of-bounds record accepted");
          require(h == reinterpret_cast<DSP_HANDLE>(uintptr_t{0x5EED}), "DspCreateFrameRateConverter",
                  "handle written after a refusal");
          break;
        }
        require(hr == DSP_S_OK, "DspCreateFrameRateConverter", "valid record refused");
        framedsp::HandleObject *object = framedsp::HandleObject::lookup(h);
        require(object && object->references() == 1, "DspCreateFrameRateConverter", "new handle not live");
        for (DSP_HANDLE other : live) {
          require(other != h, "DspCreateFrameRateConverter", "handle reused while live");
          require(framedsp::HandleObject::lookup(other)->id() != object->id(), "DspCreateFrameRateConverter",
                  "identity reused");
        }
        live.push_back(h);
        break;
      }
      case 1:  // a live handle
        if (!live.empty()) {
          DSP_HANDLE h = live[r.u8() % live.size()];
          use_handle(h, true);
          require(framedsp::HandleObject::lookup(h)->references() == 1, "handle exports", "reference not dropped");
        }
        break;
      case 2: {  // garbage
        uintptr_t v = 0;
        for (size_t i = 0; i < sizeof v; ++i) v |= uintptr_t{r.u8()} << (8 * i);
        static const uintptr_t kFixed[] = {0, ~uintptr_t{0}, 0xFFFFFFFFu, 1, 8, 0x1000, 0x7FFFFFFFFFF8ull};
        if (r.flag()) v = r.pick(kFixed);
        bool is_live = false;
        for (DSP_HANDLE h : live) is_live |= reinterpret_cast<uintptr_t>(h) == v;
        if (!is_live) use_handle(reinterpret_cast<DSP_HANDLE>(v), false);
        break;
      }
      case 3: {  // an unmapped page, and a page without read access
        const long page = sysconf(_SC_PAGESIZE);
        void *p = mmap(nullptr, page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        require(p != MAP_FAILED, "mmap");
        std::memset(p, 0, page);
        const size_t at = (r.u16() % (page / 8)) * 8;
        auto *words = static_cast<uintptr_t *>(p);
        words[at / 8 + (at + 8 < static_cast<size_t>(page) ? 1 : 0)] = reinterpret_cast<uintptr_t>(p) + at;
        mprotect(p, page, PROT_NONE);
        use_handle(static_cast<uint8_t *>(p) + at, false);
        munmap(p, page);
        use_handle(static_cast<uint8_t *>(p) + at, false);
        break;
      }
      case 4: {  // foreign heap block, and addresses inside a live object
        std::vector<uintptr_t> block(8);
        for (uintptr_t &w : block) w = r.u32();
        block[1] = 0;  // not its own address
        use_handle(block.data(), false);
        if (!live.empty()) {
          auto *base = static_cast<uint8_t *>(live[r.u8() % live.size()]);
          use_handle(base + 8 * (1 + r.u8() % 3), false);
          use_handle(base + 1 + r.u8() % 7, false);
        }
        break;
      }
      case 5: {  // stale: a converter released through its last reference
        if (live.empty()) break;
        const size_t i = r.u8() % live.size();
        DSP_HANDLE h = live[i];
        live.erase(live.begin() + static_cast<ptrdiff_t>(i));
        require(framedsp::HandleObject::lookup(h)->release() == 0, "release", "object kept alive");
        // The memory is only reused by a later creation, which this step is not.
        use_handle(h, false);
        break;
      }
      case 6: {  // null pointers of the creation call
        DSP_FRAME_RATE_CONVERTER_PARAMS p{};
        p.ulBaseCount = 1;
        DSP_HANDLE h = nullptr;
        require(DspCreateFrameRateConverter(nullptr, &h) == DSP_E_POINTER && h == nullptr, "create null record");
        require(DspCreateFrameRateConverter(&p, nullptr) == DSP_E_POINTER, "create null handle pointer");
        break;
      }
    }
  }
  for (DSP_HANDLE h : live) require(framedsp::HandleObject::lookup(h)->release() == 0, "release at end");
  require(framedsp::live_handle_objects() == live_before, "live handle objects not restored");
  return 0;
}
