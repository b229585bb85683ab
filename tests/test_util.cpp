#include "test_util.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

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

}  // namespace framedsp_test
