#include "lines/pixel_format.h"

#include <cstddef>

namespace framedsp {

namespace {

constexpr bool kFull = true;   // full horizontal chroma: any width
constexpr bool kSub = false;   // subsampled chroma: even widths
constexpr bool kYes = true;
constexpr bool kNo = false;

// One plane: the split gives the format itself.
constexpr PixelFormatInfo one(uint32_t code, uint8_t bytes, bool full, uint8_t cls, bool copy,
                              bool compare) {
  return PixelFormatInfo{code, bytes, full, false, code, code, cls, copy, compare};
}

// Two planes: the main picture, then a plane in the second format in the same memory.  These
// are not addressable per pixel as a whole (0 bytes) and their class is 0; the passes use the
// classes of the split formats.
constexpr PixelFormatInfo two(uint32_t code, bool full, uint32_t main, uint32_t plane, bool copy,
                              bool compare) {
  return PixelFormatInfo{code, 0, full, true, main, plane, 0, copy, compare};
}

// Ascending by code; every number the library knows.
constexpr PixelFormatInfo kFormats[] = {
    one(0, 4, kFull, 5, kYes, kYes),
    one(1, 3, kFull, 4, kYes, kYes),
    one(2, 2, kSub, 0, kNo, kNo),
    one(3, 2, kSub, 0, kNo, kNo),
    one(4, 2, kSub, 0, kNo, kNo),
    two(5, kFull, 1, 261, kYes, kYes),
    one(16, 2, kSub, 0, kNo, kNo),
    one(17, 4, kSub, 3, kNo, kNo),
    one(18, 1, kSub, 0, kNo, kNo),
    one(21, 2, kSub, 0, kYes, kYes),
    one(22, 4, kSub, 7, kYes, kNo),
    one(23, 6, kSub, 9, kYes, kNo),
    one(24, 2, kSub, 1, kYes, kNo),
    one(25, 2, kSub, 2, kYes, kYes),
    two(27, kFull, 23, 262, kNo, kNo),
    two(28, kSub, 21, 261, kYes, kYes),
    two(29, kSub, 22, 262, kNo, kNo),
    two(30, kSub, 25, 261, kYes, kYes),
    one(31, 0, kSub, 8, kYes, kNo),
    one(64, 2, kSub, 0, kNo, kNo),
    one(128, 8, kSub, 0, kNo, kNo),
    one(129, 8, kSub, 10, kYes, kNo),
    one(132, 4, kSub, 0, kNo, kNo),
    one(258, 4, kSub, 0, kNo, kNo),
    one(259, 2, kSub, 0, kNo, kNo),
    one(260, 2, kSub, 0, kNo, kNo),
    one(261, 1, kSub, 6, kYes, kYes),
    one(262, 0, kSub, 11, kYes, kNo),
    one(263, 0, kSub, 0, kNo, kNo),
    one(512, 1, kSub, 0, kNo, kNo),
    one(513, 2, kSub, 0, kNo, kNo),
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
  return PixelFormatInfo{format, 0, false, false, format, format, 0, false, false};
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

const uint32_t *known_formats(uint32_t *count) {
  if (count) *count = static_cast<uint32_t>(kFormatCount);
  return kCodes.codes;
}

}  // namespace framedsp
