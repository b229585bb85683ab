// Test helpers: guarded image buffers and seeded random data.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
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
  // Canaries back in the margins and `fill` in every usable byte.
  void reset(uint8_t fill);
  size_t margin() const { return margin_; }
  // Offset (negative: left margin) of the first changed margin byte, for messages.
  std::string damage() const;

 private:
  uint8_t *base_ = nullptr;  // mapping start
  size_t mapped_ = 0;
  uint8_t *data_ = nullptr;
  size_t size_ = 0;
  size_t margin_ = 0;
};

// A guarded buffer kept for reuse in one of 8 slots: mapping pages for every line of a kernel
// check costs more than the check.  Reset to the canaries and `fill` on every call.
GuardedBuffer &scratch(int slot, size_t size, size_t margin = 64, uint8_t fill = 0);

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

// Bytes per pixel of a format's picture plane and of its second plane (0: none), from the
// layouts in the header; 0 for formats the operations do not take.
uint32_t main_bytes(uint32_t format);
uint32_t plane_bytes(uint32_t format);

constexpr uint8_t kFill = 0xEE;  // output bytes before a call

// A picture in guarded memory: `height` lines of the picture plane, then for two-plane formats
// `height` lines of the second plane.  Rows are addressed in picture order (a bottom-up picture
// stores its first row last).
struct Pic {
  uint32_t format, width, height, stride, stride2;
  bool bottom_up;
  std::unique_ptr<GuardedBuffer> mem;
  // `margin` canary bytes on each side; 0 puts the picture's last byte against the protected page.
  Pic(uint32_t format, uint32_t width, uint32_t height, bool bottom_up = false, uint32_t slack = 6,
      uint8_t fill = kFill, size_t margin = 48);
  Pic(const Pic &from);  // same shape and bytes, its own memory
  size_t size() const { return mem->size(); }
  uint8_t *data() const { return mem->data(); }
  uint8_t *row(uint32_t y, bool plane = false) const;
  void randomise(std::mt19937 &rng) { fill_random(data(), size(), rng); }
  std::vector<uint8_t> bytes() const { return std::vector<uint8_t>(data(), data() + size()); }
  // The record of region (x, y, w, h); w = 0 takes the whole picture.
  DSP_IMAGE image(int x = 0, int y = 0, uint32_t w = 0, uint32_t h = 0, uint32_t type = DSP_BUFFER_TYPE_FRAME,
                  uint32_t interlace = DSP_INTERLACE_PROGRESSIVE, uint32_t colour = 0) const;
};

// A buffer record of two images.
inline DSP_BUFFER buffer_of(const DSP_IMAGE &in, const DSP_IMAGE &out, uint32_t flags = 0) {
  DSP_BUFFER b{};
  b.In = in;
  b.Out = out;
  b.ulFlags = flags;
  return b;
}

// DspFilter's record.
DSP_FILTER_PARAMS filter_params(uint32_t type, const void *settings, const DSP_BUFFER &buffer, uint32_t options = 0);

// Both pictures' bytes equal, and `got`'s guard margins intact.
::testing::AssertionResult same_bytes(const Pic &want, const Pic &got);

// Runs `call` with tracing on (on = 1) or off (0) and returns what it printed on stderr.
std::string traced(int on, const std::function<void()> &call);

// References held on a live frame-rate converter, less the probe's own (-1: not a live one).
int32_t converter_references(DSP_HANDLE h);
// Drops a converter's creation reference, which no export does: it must be the last one.
void destroy_converter(DSP_HANDLE h);

// Forces the scalar kernels (false) or every instruction set the machine has (true) while alive.
struct CpuLevel {
  explicit CpuLevel(bool simd);
  ~CpuLevel();
};

// ---- the kernel check: every SIMD kernel against its scalar twin, line by line ----------------

// The instruction-set masks a kernel check hands to a table's init next to the scalar mask 0:
// SSE2 alone, SSE2 with SSSE3, and everything the machine has, each only once and only where the
// machine has it (none without SSE2).
std::vector<uint32_t> simd_levels();

// Bytes of a kernel check's line: random, all 0, all 255, or 0 and 255 at random.
enum LineKind { kRandomLine, kZeroLine, kFullLine, kExtremeLine };
void fill_line(uint8_t *p, size_t n, int kind, std::mt19937 &rng);

// Calls check(length, lead, kind) for every length 0..short_max at every lead 0..15 with random
// bytes, for every such length once per flat kind, and for `long_count` random lengths up to
// 4096 (4096 itself among them) at random leads; stops at the first failure.
void for_each_line(size_t short_max, size_t long_count, std::mt19937 &rng,
                   const std::function<void(size_t length, size_t lead, int kind)> &check);

// n bytes equal, with the first differing bytes in the message.
::testing::AssertionResult same_line(const uint8_t *want, const uint8_t *got, size_t n);
// The n bytes at `at` in `got` equal `want`, every other byte still holds `fill` and the guards
// are intact.
::testing::AssertionResult line_in(const GuardedBuffer &got, size_t at, const uint8_t *want, size_t n, uint8_t fill);

}  // namespace framedsp_test
