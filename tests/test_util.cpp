#include "test_util.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "framerate/converter.h"
#include "platform/cpu.h"
#include "platform/handle.h"
#include "platform/trace.h"
#include "platform/work_memory.h"
#include "test_os.h"

namespace framedsp_test {

GuardedBuffer::GuardedBuffer(size_t size, size_t margin, uint8_t fill) : size_(size), margin_(margin) {
  const size_t page = page_size();
  const size_t used = size + 2 * margin;
  const size_t body = (used + page - 1) / page * page;
  mapped_ = body + page;
  base_ = map_pages(mapped_);
  if (!base_) throw std::bad_alloc();
  protect_pages(base_ + body, page);
  uint8_t *start = base_ + body - used;
  std::memset(start, kCanary, used);
  data_ = start + margin;
  std::memset(data_, fill, size);
}

GuardedBuffer::~GuardedBuffer() { unmap_pages(base_, mapped_); }

bool GuardedBuffer::intact() const {
  for (size_t i = 0; i < margin_; ++i) {
    if (data_[-1 - static_cast<ptrdiff_t>(i)] != kCanary) return false;
    if (data_[size_ + i] != kCanary) return false;
  }
  return true;
}

void GuardedBuffer::reset(uint8_t fill) {
  std::memset(data_ - margin_, kCanary, size_ + 2 * margin_);
  std::memset(data_, fill, size_);
}

GuardedBuffer &scratch(int slot, size_t size, size_t margin, uint8_t fill) {
  static std::unique_ptr<GuardedBuffer> slots[8];
  std::unique_ptr<GuardedBuffer> &b = slots[slot];
  if (!b || b->size() != size || b->margin() != margin) {
    b.reset();
    b.reset(new GuardedBuffer(size, margin, fill));
  } else {
    b->reset(fill);
  }
  return *b;
}

std::string GuardedBuffer::damage() const {
  for (size_t i = margin_; i > 0; --i) {
    if (data_[-static_cast<ptrdiff_t>(i)] != kCanary) return "left margin at -" + std::to_string(i);
  }
  for (size_t i = 0; i < margin_; ++i) {
    if (data_[size_ + i] != kCanary) return "right margin at +" + std::to_string(i);
  }
  return "none";
}

uint32_t test_seed() {
  const char *s = std::getenv("FRAMEDSP_SEED");
  if (s && *s) return static_cast<uint32_t>(std::strtoul(s, nullptr, 0));
  return 20261122u;
}

std::string hex_diff(const uint8_t *expected, const uint8_t *got, size_t n, size_t max_rows) {
  std::string out;
  size_t rows = 0;
  for (size_t i = 0; i < n && rows < max_rows; ++i) {
    if (expected[i] != got[i]) {
      char line[64];
      std::snprintf(line, sizeof line, "  @%zu: expected %02x got %02x\n", i, expected[i], got[i]);
      out += line;
      ++rows;
    }
  }
  return out;
}

DSP_SUBPIXEL_IMAGE fractional(const DSP_IMAGE &d, double fx, double fy, double fw, double fh) {
  DSP_SUBPIXEL_IMAGE s;
  std::memset(&s, 0, sizeof s);
  s.Buffer.pBuffer = d.Buffer.pBuffer;
  s.Buffer.ulBytes = d.Buffer.ulBytes;
  s.Buffer.eBufferType = d.Buffer.eBufferType;
  s.Buffer.Region.ptOffset.x = d.Buffer.Region.ptOffset.x + fx;
  s.Buffer.Region.ptOffset.y = d.Buffer.Region.ptOffset.y + fy;
  s.Buffer.Region.ulWidth = d.Buffer.Region.ulWidth + fw;
  s.Buffer.Region.ulHeight = d.Buffer.Region.ulHeight + fh;
  s.ulWidth = d.ulWidth;
  s.ulHeight = d.ulHeight;
  s.ePixelFormat = d.ePixelFormat;
  s.eInterlace = d.eInterlace;
  s.eImageOrientation = d.eImageOrientation;
  s.eColorSpace = d.eColorSpace;
  s.ulPrimaryStrideBytes = d.ulPrimaryStrideBytes;
  s.ulSecondaryStrideBytes = d.ulSecondaryStrideBytes;
  s.ulFlags = d.ulFlags;
  return s;
}

uint32_t main_bytes(uint32_t format) {
  switch (format) {
    case 0: case 17: case 22: case 31: return 4;
    case 1: case 5: return 3;
    case 21: case 24: case 25: case 28: case 30: case 262: return 2;
    case 23: return 6;
    case 129: return 8;
    case 261: case 263: return 1;
    default: return 0;
  }
}

uint32_t plane_bytes(uint32_t format) { return format == 5 || format == 28 || format == 30 ? 1 : 0; }

Pic::Pic(uint32_t f, uint32_t w, uint32_t h, bool up, uint32_t slack, uint8_t fill, size_t margin)
    : format(f), width(w), height(h), stride(w * main_bytes(f) + slack),
      stride2(plane_bytes(f) ? w + slack + 3 : 0), bottom_up(up),
      mem(std::make_unique<GuardedBuffer>(size_t{h} * (stride + stride2), margin, fill)) {}

Pic::Pic(const Pic &o)
    : format(o.format), width(o.width), height(o.height), stride(o.stride), stride2(o.stride2),
      bottom_up(o.bottom_up), mem(std::make_unique<GuardedBuffer>(o.size(), 48)) {
  std::memcpy(data(), o.data(), size());
}

uint8_t *Pic::row(uint32_t y, bool plane) const {
  const size_t line = bottom_up ? height - 1 - y : y;
  return plane ? data() + size_t{height} * stride + line * stride2 : data() + line * stride;
}

DSP_IMAGE Pic::image(int x, int y, uint32_t w, uint32_t h, uint32_t type, uint32_t interlace,
                     uint32_t colour) const {
  DSP_IMAGE d;
  std::memset(&d, 0, sizeof d);
  d.Buffer.pBuffer = data();
  d.Buffer.ulBytes = static_cast<uint32_t>(size());
  d.Buffer.eBufferType = type;
  d.Buffer.Region = DSP_REGION{{x, y}, w ? w : width, w ? h : height};
  d.ulWidth = width;
  d.ulHeight = height;
  d.ePixelFormat = format;
  d.eInterlace = interlace;
  d.eImageOrientation = bottom_up ? DSP_ORIENTATION_BOTTOM_UP : DSP_ORIENTATION_TOP_DOWN;
  d.ulPrimaryStrideBytes = stride;
  d.ulSecondaryStrideBytes = stride2;
  d.eColorSpace = colour;
  return d;
}

DSP_FILTER_PARAMS filter_params(uint32_t type, const void *settings, const DSP_BUFFER &buffer, uint32_t options) {
  DSP_FILTER_PARAMS p{};
  p.eFilterType = type;
  p.pSettings = settings;
  p.Buffer = buffer;
  p.ulOptions = options;
  return p;
}

::testing::AssertionResult same_bytes(const Pic &want, const Pic &got) {
  if (!got.mem->intact()) return ::testing::AssertionFailure() << "guard bytes: " << got.mem->damage();
  if (want.size() != got.size() || std::memcmp(want.data(), got.data(), got.size()) != 0) {
    return ::testing::AssertionFailure() << "bytes differ\n" << hex_diff(want.data(), got.data(), got.size());
  }
  return ::testing::AssertionSuccess();
}

std::string traced(int on, const std::function<void()> &call) {
  framedsp::set_trace_override(on);
  ::testing::internal::CaptureStderr();
  call();
  std::string text = ::testing::internal::GetCapturedStderr();
  framedsp::set_trace_override(-1);
  return text;
}

int32_t converter_references(DSP_HANDLE h) {
  auto *converter = framedsp::acquire_handle<framedsp::DspFrameRateConverter>(h);
  if (!converter) return -1;
  const int32_t held = converter->references() - 1;
  converter->release();
  return held;
}

void destroy_converter(DSP_HANDLE h) {
  auto *converter = framedsp::acquire_handle<framedsp::DspFrameRateConverter>(h);
  ASSERT_NE(converter, nullptr);
  converter->release();
  EXPECT_EQ(converter->release(), 0);
}

CpuLevel::CpuLevel(bool simd) { framedsp::set_cpu_mask(simd ? ~0u : 0u); }
CpuLevel::~CpuLevel() { framedsp::set_cpu_mask(~0u); }

std::vector<uint32_t> simd_levels() {
  const uint32_t have = framedsp::cpu_flags();
  std::vector<uint32_t> levels;
  if (!(have & framedsp::kCpuSSE2)) return levels;
  for (uint32_t want : {uint32_t{framedsp::kCpuSSE2}, framedsp::kCpuSSE2 | framedsp::kCpuSSSE3, have}) {
    const uint32_t level = want & have;
    if (std::find(levels.begin(), levels.end(), level) == levels.end()) levels.push_back(level);
  }
  return levels;
}

void fill_line(uint8_t *p, size_t n, int kind, std::mt19937 &rng) {
  for (size_t i = 0; i < n; ++i) {
    p[i] = kind == kRandomLine ? uint8_t(rng()) : kind == kZeroLine ? 0 : kind == kFullLine ? 255 : (rng() & 1) * 255;
  }
}

void for_each_line(size_t short_max, size_t long_count, std::mt19937 &rng,
                   const std::function<void(size_t, size_t, int)> &check) {
  for (size_t n = 0; n <= short_max && !::testing::Test::HasFailure(); ++n) {
    for (size_t lead = 0; lead < 16; ++lead) check(n, lead, kRandomLine);
    for (int kind = kZeroLine; kind <= kExtremeLine; ++kind) check(n, (n * 7 + size_t(kind)) % 16, kind);
  }
  for (size_t i = 0; i < long_count && !::testing::Test::HasFailure(); ++i) {
    check(i ? short_max + 1 + rng() % (4096 - short_max) : 4096, rng() % 16, i % 4 == 3 ? kExtremeLine : kRandomLine);
  }
}

::testing::AssertionResult line_in(const GuardedBuffer &got, size_t at, const uint8_t *want, size_t n, uint8_t fill) {
  if (!got.intact()) return ::testing::AssertionFailure() << "guard bytes: " << got.damage();
  for (size_t i = 0; i < got.size(); ++i) {
    if ((i < at || i >= at + n) && got.data()[i] != fill) return ::testing::AssertionFailure() << "byte " << i << " outside the line written";
  }
  return same_line(want, got.data() + at, n);
}

::testing::AssertionResult same_line(const uint8_t *want, const uint8_t *got, size_t n) {
  if (n == 0 || std::memcmp(want, got, n) == 0) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "bytes differ\n" << hex_diff(want, got, n);
}

}  // namespace framedsp_test
