// Independent expectations for the scaler tests: the sample layouts of every format class and
// the per-sample resampling formulas, written from the layout descriptions (not from the library).
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace scale_ref {

// One stream of samples: sample i at byte (i / per) * group + offset + (i % per) * spacing.
struct RefStream {
  int offset, per, spacing, bytes;
};
struct RefLayout {
  uint32_t format;
  uint32_t cls;
  int group;
  std::vector<RefStream> streams;
};

inline std::vector<RefLayout> layouts() {
  return {
      {21, 0, 4, {{1, 2, 2, 1}, {0, 1, 0, 1}, {2, 1, 0, 1}}},  // U Y V Y
      {24, 1, 4, {{2, 2, 1, 1}, {0, 1, 0, 1}, {1, 1, 0, 1}}},  // U V Y Y
      {25, 2, 4, {{0, 2, 2, 1}, {1, 1, 0, 1}, {3, 1, 0, 1}}},  // Y U Y V
      {17, 3, 4, {{0, 1, 0, 1}, {1, 1, 0, 1}, {2, 1, 0, 1}, {3, 1, 0, 1}}},
      {1, 4, 3, {{0, 1, 0, 1}, {1, 1, 0, 1}, {2, 1, 0, 1}}},
      {0, 5, 4, {{0, 1, 0, 1}, {1, 1, 0, 1}, {2, 1, 0, 1}, {3, 1, 0, 1}}},
      {261, 6, 1, {{0, 1, 0, 1}}},
      {22, 7, 8, {{2, 2, 4, 2}, {0, 1, 0, 2}, {4, 1, 0, 2}}},
      {31, 8, 8, {{0, 2, 4, 2}, {2, 1, 0, 2}, {6, 1, 0, 2}}},
      {23, 9, 6, {{0, 1, 0, 2}, {2, 1, 0, 2}, {4, 1, 0, 2}}},
      {129, 10, 8, {{0, 1, 0, 2}, {2, 1, 0, 2}, {4, 1, 0, 2}, {6, 1, 0, 2}}},
      {262, 11, 2, {{0, 1, 0, 2}}},
  };
}

inline uint32_t get(const uint8_t *p, int bytes) { return bytes == 1 ? p[0] : uint32_t(p[0]) | (uint32_t(p[1]) << 8); }
inline void put(uint8_t *p, int bytes, uint32_t v) {
  p[0] = uint8_t(v);
  if (bytes == 2) p[1] = uint8_t(v >> 8);
}

// The expected line: bytes not covered by a stream of a whole group keep their old value.
inline void reference(const RefLayout &l, bool linear, const uint8_t *src, size_t src_bytes, uint8_t *dst,
               size_t dst_bytes, uint32_t step) {
  for (const RefStream &s : l.streams) {
    const size_t sc = src_bytes / l.group * s.per;
    const size_t dc = dst_bytes / l.group * s.per;
    auto at = [&](size_t i) { return (i / s.per) * l.group + s.offset + (i % s.per) * s.spacing; };
    for (size_t j = 0; sc && j < dc; ++j) {
      const uint64_t acc = uint64_t(j) * step;
      const size_t idx = std::min<uint64_t>(acc >> 14, sc - 1);
      const int64_t a = get(src + at(idx), s.bytes);
      int64_t v = a;
      if (linear) {
        const int64_t b = get(src + at(std::min(idx + 1, sc - 1)), s.bytes);
        v = ((b - a) * int64_t(acc & 16383) + a * 16384 + 8192) >> 14;
      }
      put(dst + at(j), s.bytes, uint32_t(v));
    }
  }
}

inline const RefLayout &layout_of(uint32_t format) {
  static const std::vector<RefLayout> all = layouts();
  if (format == 263) format = 261;  // the pyramid's 8-bit plane: one byte a sample, like 261
  for (const RefLayout &l : all) {
    if (l.format == format) return l;
  }
  return all[0];  // class 0: 21 and every format not listed
}

}  // namespace scale_ref
