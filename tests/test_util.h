// Test helpers: guarded image buffers and seeded random data.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "framedsp/framedsp.h"

namespace framedsp_test {

// A buffer whose bytes [0, size) are the usable region, surrounded by `margin` canary bytes on
// each side, placed so that the end of the right margin touches a protected (unreadable) page:
// reading or writing past it faults, and any write into the margins is seen by intact().
// With margin 0 the usable region itself ends against the protected page.
class GuardedBuffer {
 public:
  static constexpr uint8_t kCanary = 0xA5;

  explicit GuardedBuffer(size_t size, size_t margin = 64, uint8_t fill = 0);
  ~GuardedBuffer();
  GuardedBuffer(const GuardedBuffer &) = delete;
  GuardedBuffer &operator=(const GuardedBuffer &) = delete;

  uint8_t *data() { return data_; }
  const uint8_t *data() const { return data_; }
  size_t size() const { return size_; }
  uint8_t &operator[](size_t i) { return data_[i]; }

  // True when every margin byte still holds the canary.
  bool intact() const;
  // Offset (negative: left margin) of the first changed margin byte, for messages.
  std::string damage() const;

 private:
  uint8_t *base_ = nullptr;  // mapping start
  size_t mapped_ = 0;
  uint8_t *data_ = nullptr;
  size_t size_ = 0;
  size_t margin_ = 0;
};

// Seed for random tests: FRAMEDSP_SEED from the environment, else a fixed value.  Tests print
// it on failure so that a run can be repeated.
uint32_t test_seed();

inline void fill_random(uint8_t *p, size_t n, std::mt19937 &rng) {
  for (size_t i = 0; i < n; ++i) p[i] = static_cast<uint8_t>(rng());
}

// "offset: expected xx got yy" for the first few differing bytes.
std::string hex_diff(const uint8_t *expected, const uint8_t *got, size_t n, size_t max_rows = 8);

// The same image for DspSubPixelFilter: its region as doubles, plus fractions (fx, fy, fw, fh)
// that the filter's truncation removes.
DSP_SUBPIXEL_IMAGE fractional(const DSP_IMAGE &d, double fx = 0, double fy = 0, double fw = 0, double fh = 0);

}  // namespace framedsp_test
