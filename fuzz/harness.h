// Shared harness of the fuzz targets: a byte reader over the fuzz input, image memory placed
// against protected pages, canary margins around every output, a per-byte map of what an
// operation may write, and the record builder for DSP_IMAGE / DSP_BUFFER.  A new target is one
// small file: build a record with RecordBuilder, run the export, call OutputImage::check().
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "framedsp/framedsp.h"

namespace fuzz {

// Aborts with a message (and the failing target's name) when `ok` is false.
void require(bool ok, const char *what, const char *detail = nullptr);
// A record printed with the message of a failed check (null: none).
void set_failure_context(const DSP_BUFFER *buffer);

// Reads the fuzz input front to back; past its end every read gives 0.
class Reader {
 public:
  Reader(const uint8_t *data, size_t size) : data_(data), size_(size) {}
  uint8_t u8();
  uint16_t u16();
  uint32_t u32();
  bool flag() { return (u8() & 1) != 0; }
  // A value in [lo, hi].
  uint32_t range(uint32_t lo, uint32_t hi);
  template <class T, size_t N>
  T pick(const T (&values)[N]) {
    return values[u8() % N];
  }
  size_t left() const { return pos_ < size_ ? size_ - pos_ : 0; }

 private:
  const uint8_t *data_;
  size_t size_;
  size_t pos_ = 0;
};

// Bytes [0, size) inside a mapping with an unreadable, unwritable page right before and right
// after.  With at_end the data ends exactly at the trailing page (over-reads fault); otherwise it
// starts exactly at the leading page (under-reads fault).  margin canary bytes lie on each side.
class PageBuffer {
 public:
  static constexpr uint8_t kCanary = 0xA5;
  PageBuffer(size_t size, bool at_end, size_t margin);
  ~PageBuffer();
  PageBuffer(const PageBuffer &) = delete;
  PageBuffer &operator=(const PageBuffer &) = delete;

  uint8_t *data() { return data_; }
  size_t size() const { return size_; }
  // Every margin byte still holds the canary.
  bool margins_intact() const;

 private:
  uint8_t *base_ = nullptr;
  size_t mapped_ = 0;
  uint8_t *data_ = nullptr;
  size_t size_ = 0;
  size_t margin_ = 0;
};

// An output image: page-protected memory with canary margins, a snapshot of its bytes before the
// call and the map of bytes the call may change.
class OutputImage {
 public:
  OutputImage(size_t size, bool at_end, uint32_t fill_seed);
  uint8_t *data() { return buffer_.data(); }
  size_t size() const { return buffer_.size(); }
  // Marks bytes [offset, offset + n) as writable, clipped to the buffer.
  void allow(int64_t offset, int64_t n);
  // Aborts when a byte outside the allowed ones (all bytes when nothing_allowed) changed, or a
  // margin canary did.
  void check(const char *target, bool nothing_allowed);

 private:
  PageBuffer buffer_;
  std::vector<uint8_t> before_;
  std::vector<uint8_t> allowed_;
};

// Bytes per pixel of the main picture and the two-plane split, written from the format table of
// the public header (independent of the library's own table).
struct FormatFacts {
  uint32_t bytes;         // 0 = not addressable per pixel
  bool two_plane;
  uint32_t plane_bytes;   // bytes per pixel of the plane (1 for key plane 261, 0 for 262)
  bool full_chroma;       // widths may be odd
  bool known;
};
FormatFacts format_facts(uint32_t format);

// Formats a target draws from: the accepted ones most of the time, sometimes one of the refused
// codes or a random word.
uint32_t draw_format(Reader &r, bool compare);

// One image of a record together with its memory.
struct ImageSide {
  DSP_IMAGE image{};
  size_t bytes = 0;  // main picture + plane
};

// Draws the geometry of one side: sizes up to max_dim, strides with slack, a region that mostly
// lies inside the image but may reach past any edge, buffer type, interlace, orientation,
// colour space.
void draw_image(Reader &r, uint32_t format, uint32_t max_dim, ImageSide *side);

// Byte size of an image's memory: picture lines then, for two-plane formats, the plane lines.
size_t image_bytes(const DSP_IMAGE &image);

// Marks the bytes a line-by-line operation (copy, filter) may write for `buffer`, from the
// documented line map: the output region's rows (clipped to the image, re-measured for bottom-up
// images), the selected field's lines, the band's lines, and the region's columns clipped to each
// plane's stride (left edge rounded down to even for subsampled formats).
void allow_line_operation(const DSP_BUFFER &buffer, OutputImage *out);

// A live frame-rate converter of 64 x 64 with conversion mode `mode` (0..3) and `levels` pyramid
// levels (0: the default), made once, for the handle argument.
DSP_HANDLE live_converter(uint32_t mode = 0, uint32_t levels = 0);

// Truncation toward zero to a 64-bit integer, low 32 bits kept; NaN, infinities and values no
// int64 holds give 0.
uint32_t low32_of_trunc(double v);

// Fills a buffer with bytes from the input (repeated) mixed with a seed.
void fill_from(Reader &r, uint8_t *p, size_t n);

}  // namespace fuzz
