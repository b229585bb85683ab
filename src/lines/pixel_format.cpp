#include "lines/pixel_format.h"

#include <cstddef>

namespace framedsp {

namespace {

constexpr bool kFull = true;  // full horizontal chroma: any width
constexpr bool kSub = false;  // subsampled chroma: even widths

// The operations that take a format.
enum Ops : uint8_t {
  kNone = 0,
  kCopy = 1 << 0,     // copy and filters
  kCompare = 1 << 1,
  kScale = 1 << 2,    // the scaler's general and filtered paths
  kFixed = 1 << 3,    // the scaler's fixed-ratio paths, at halving and doubling
  kAnyRatio = 1 << 4  // ... and at every other fixed ratio
};
constexpr uint8_t kCopyScale = kCopy | kScale;
constexpr uint8_t kAll = kCopy | kCompare | kScale | kFixed | kAnyRatio;

// One plane: the split gives the format itself, and the scaler addresses it as the table does.
constexpr PixelFormatInfo one(uint32_t code, uint8_t bytes, bool full, uint8_t cls, uint8_t group,
                              uint8_t ops) {
  return PixelFormatInfo{code,
                         bytes,
                         full,
                         false,
                         code,
                         code,
                         cls,
                         (ops & kCopy) != 0,
                         (ops & kCompare) != 0,
                         (ops & kScale) != 0,
                         (ops & kFixed) != 0,
                         (ops & kAnyRatio) != 0,
                         true,
                         group,
                         1,
                         bytes,
                         cls};
}

// Two planes: the main picture, then a plane in the second format in the same memory.  These
// are not addressable per pixel as a whole (0 bytes) and their class is 0; the passes use the
// layouts of the split formats.  The group is the main picture's.
constexpr PixelFormatInfo two(uint32_t code, bool full, uint32_t main, uint32_t plane, uint8_t group,
                              uint8_t ops) {
  PixelFormatInfo info = one(code, 0, full, 0, group, ops);
  info.two_plane = true;
  info.staged = false;
  info.main_format = main;
  info.plane_format = plane;
  return info;
}

// A format that never passes through an intermediate frame.
constexpr PixelFormatInfo direct(PixelFormatInfo info) {
  info.staged = false;
  return info;
}

// The 8-bit 4:2:2 lines whose pixel pairs the copy and the filters keep together.
constexpr PixelFormatInfo pairs(PixelFormatInfo info) {
  info.copy_group = 2;
  return info;
}

// A line the scaler addresses differently from the table's bytes per pixel and class.
constexpr PixelFormatInfo scaled_as(PixelFormatInfo info, uint8_t bytes, uint8_t cls) {
  info.scale_bytes = bytes;
  info.scale_class = cls;
  return info;
}

// Ascending by code; every number the library knows.
constexpr PixelFormatInfo kFormats[] = {
    one(0, 4, kFull, 5, 1, kAll),
    direct(one(1, 3, kFull, 4, 1, kAll)),
    one(2, 2, kSub, 0, 1, kNone),
    one(3, 2, kSub, 0, 1, kNone),
    one(4, 2, kSub, 0, 1, kNone),
    two(5, kFull, 1, 261, 1, kAll),
    one(16, 2, kSub, 0, 1, kNone),
    one(17, 4, kSub, 3, 1, kNone),
    one(18, 1, kSub, 0, 1, kNone),
    pairs(one(21, 2, kSub, 0, 2, kAll)),
    one(22, 4, kSub, 7, 2, kCopyScale),
    one(23, 6, kSub, 9, 1, kCopyScale),
    one(24, 2, kSub, 1, 2, kCopyScale),
    pairs(one(25, 2, kSub, 2, 2, kAll)),
    two(27, kFull, 23, 262, 1, kNone),
    two(28, kSub, 21, 261, 2, kAll),
    two(29, kSub, 22, 262, 2, kNone),
    two(30, kSub, 25, 261, 2, kAll),
    scaled_as(one(31, 0, kSub, 8, 2, kCopyScale), 4, 8),
    one(64, 2, kSub, 0, 1, kNone),
    one(128, 8, kSub, 0, 1, kNone),
    one(129, 8, kSub, 10, 1, kCopyScale),
    one(132, 4, kSub, 0, 1, kNone),
    one(258, 4, kSub, 0, 1, kNone),
    one(259, 2, kSub, 0, 1, kNone),
    one(260, 2, kSub, 0, 1, kNone),
    one(261, 1, kSub, 6, 1, kAll),
    scaled_as(one(262, 0, kSub, 11, 1, kCopyScale), 2, 11),
    scaled_as(one(263, 0, kSub, 0, 1, kScale | kFixed), 1, 6),
    one(512, 1, kSub, 0, 1, kNone),
    one(513, 2, kSub, 0, 1, kNone),
};
constexpr size_t kFormatCount = sizeof kFormats / sizeof kFormats[0];

constexpr bool ascending() {
  for (size_t i = 1; i < kFormatCount; ++i) {
    if (kFormats[i - 1].code >= kFormats[i].code) return false;
  }
  return true;
}
static_assert(ascending(), "the format table must stay sorted and free of duplicates");

struct CodeList {
  uint32_t codes[kFormatCount];
};
constexpr CodeList make_codes() {
  CodeList list{};
  for (size_t i = 0; i < kFormatCount; ++i) list.codes[i] = kFormats[i].code;
  return list;
}
constexpr CodeList kCodes = make_codes();  // constant-initialised: usable from static init

const PixelFormatInfo *find(uint32_t format) {
  size_t lo = 0, hi = kFormatCount;
  while (lo < hi) {
    const size_t mid = (lo + hi) / 2;
    if (kFormats[mid].code < format) {
      lo = mid + 1;
    } else {
      hi = mid;
    }
  }
  return (lo < kFormatCount && kFormats[lo].code == format) ? &kFormats[lo] : nullptr;
}

}  // namespace

PixelFormatInfo pixel_format_info(uint32_t format) {
  if (const PixelFormatInfo *info = find(format)) return *info;
  return one(format, 0, kSub, 0, 1, kNone);
}

uint32_t bytes_per_pixel(uint32_t format) { return pixel_format_info(format).bytes_per_pixel; }

bool is_two_plane(uint32_t format) { return pixel_format_info(format).two_plane; }

void split_format(uint32_t format, uint32_t *main_format, uint32_t *plane_format) {
  const PixelFormatInfo info = pixel_format_info(format);
  if (main_format) *main_format = info.main_format;
  if (plane_format) *plane_format = info.plane_format;
}

bool has_full_chroma(uint32_t format) { return pixel_format_info(format).full_chroma; }

uint32_t format_class(uint32_t format) { return pixel_format_info(format).format_class; }

bool copy_filter_format(uint32_t format) { return pixel_format_info(format).copy_filter; }

bool compare_format(uint32_t format) { return pixel_format_info(format).compare; }

bool scale_format(uint32_t format) { return pixel_format_info(format).scale; }

bool fixed_ratio_format(uint32_t format) { return pixel_format_info(format).fixed_ratio; }

uint32_t pixel_group(uint32_t format) { return pixel_format_info(format).group; }

bool staged_format(uint32_t format) { return pixel_format_info(format).staged; }

LineLayout copy_layout(uint32_t format) {
  const PixelFormatInfo info = pixel_format_info(format);
  return LineLayout{info.bytes_per_pixel, info.copy_group, info.format_class};
}

LineLayout scale_layout(uint32_t format) {
  const PixelFormatInfo info = pixel_format_info(format);
  return LineLayout{info.scale_bytes, info.group, info.scale_class};
}

const uint32_t *known_formats(uint32_t *count) {
  if (count) *count = static_cast<uint32_t>(kFormatCount);
  return kCodes.codes;
}

}  // namespace framedsp
