#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "lines/buffer_record.h"
#include "platform/platform.h"

namespace framedsp {

void normalise_side(DSP_IMAGE *image) {
  if (image->eImageOrientation != DSP_ORIENTATION_BOTTOM_UP) return;
  // Modulo 2^32, the arithmetic of the 32-bit ABI; a region that does not fit gives a wild offset
  // that the geometry's clamping then contains, rather than signed-overflow UB here.
  const uint32_t y = image->ulHeight - image->Buffer.Region.ulHeight -
                     static_cast<uint32_t>(image->Buffer.Region.ptOffset.y);
  image->Buffer.Region.ptOffset.y = static_cast<int32_t>(y);
}

namespace {

#if defined(__GNUC__)
#define FRAMEDSP_PRINTF_METHOD [[gnu::format(printf, 2, 3)]]
#else
#define FRAMEDSP_PRINTF_METHOD
#endif

// Appends printf-style text and counts the full length, writing what fits into out[0, size - 1].
class DumpWriter {
 public:
  DumpWriter(char *out, int size) : out_(out), size_(out && size > 0 ? size : 0) {
    if (size_ > 0) out_[0] = '\0';
  }

  FRAMEDSP_PRINTF_METHOD void add(const char *format, ...) {
    char line[192];
    va_list args;
    va_start(args, format);
    const int n = std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    if (n <= 0) return;
    // Every line of the dump is short; only the caller's title can exceed the line buffer.
    if (static_cast<size_t>(n) >= sizeof line) {
      va_start(args, format);
      std::string big(static_cast<size_t>(n) + 1, '\0');
      std::vsnprintf(&big[0], big.size(), format, args);
      va_end(args);
      append(big.c_str(), n);
    } else {
      append(line, n);
    }
  }

  int length() const { return length_; }

 private:
  void append(const char *text, int n) {
    if (length_ < size_ - 1) {
      const int room = size_ - 1 - length_;
      const int take = n < room ? n : room;
      std::memcpy(out_ + length_, text, static_cast<size_t>(take));
      out_[length_ + take] = '\0';
    }
    length_ += n;
  }

  char *out_;
  int size_;
  int length_ = 0;
};

// The %d fields show each 32-bit word of the record as a signed int.
int as_int(uint32_t value) { return static_cast<int>(value); }

void dump_image(DumpWriter &w, const char *side, const DSP_IMAGE &image) {
  // The address in hex with an H suffix, all of its digits (a 64-bit address keeps its upper
  // half).
  w.add("pBuffer->%s.Buffer.pBuffer: %" PRIXPTR "H\n", side,
        reinterpret_cast<uintptr_t>(image.Buffer.pBuffer));
  w.add("pBuffer->%s.Buffer.ulBytes: %d\n", side, as_int(image.Buffer.ulBytes));
  w.add("pBuffer->%s.Buffer.eBufferType: %d\n", side, as_int(image.Buffer.eBufferType));
  w.add("pBuffer->%s.Buffer.Region.ptOffset.x: %d\n", side, image.Buffer.Region.ptOffset.x);
  w.add("pBuffer->%s.Buffer.Region.ptOffset.y: %d\n", side, image.Buffer.Region.ptOffset.y);
  w.add("pBuffer->%s.Buffer.Region.ulWidth: %d\n", side, as_int(image.Buffer.Region.ulWidth));
  w.add("pBuffer->%s.Buffer.Region.ulHeight: %d\n", side, as_int(image.Buffer.Region.ulHeight));
  w.add("pBuffer->%s.ulWidth: %d\n", side, as_int(image.ulWidth));
  w.add("pBuffer->%s.ulHeight: %d\n", side, as_int(image.ulHeight));
  w.add("pBuffer->%s.ePixelFormat: %d\n", side, as_int(image.ePixelFormat));
  w.add("pBuffer->%s.eInterlace: %d\n", side, as_int(image.eInterlace));
  w.add("pBuffer->%s.eImageOrientation: %d\n", side, as_int(image.eImageOrientation));
  w.add("pBuffer->%s.eColorSpace: %d\n", side, as_int(image.eColorSpace));
  w.add("pBuffer->%s.ulPrimaryStrideBytes: %d\n", side, as_int(image.ulPrimaryStrideBytes));
  w.add("pBuffer->%s.ulSecondaryStrideBytes: %d\n", side, as_int(image.ulSecondaryStrideBytes));
  w.add("pBuffer->%s.ulFlags: %d\n", side, as_int(image.ulFlags));
}

int flag(uint32_t flags, uint32_t bit) { return (flags & bit) ? 1 : 0; }

}  // namespace

int format_buffer_dump(const DSP_BUFFER *buffer, const char *title, char *out, int size) {
  DumpWriter w(out, size);
  w.add("%s\n\n", title ? title : "");
  if (!buffer) return w.length();
  dump_image(w, "In", buffer->In);
  w.add("\n");
  dump_image(w, "Out", buffer->Out);
  w.add("\n");
  const uint32_t f = buffer->ulFlags;
  w.add("pBuffer->ulFlags & DSP_BUFFER_IN_FIELD2_DOMINANCE: %d\n",
        flag(f, DSP_BUFFER_IN_FIELD2_DOMINANCE));
  w.add("pBuffer->ulFlags & DSP_BUFFER_OUT_FIELD2_DOMINANCE: %d\n",
        flag(f, DSP_BUFFER_OUT_FIELD2_DOMINANCE));
  w.add("pBuffer->ulFlags & DSP_BUFFER_DOMINANCE_BY_SHIFTING_UP: %d\n",
        flag(f, DSP_BUFFER_DOMINANCE_BY_SHIFTING_UP));
  w.add("pBuffer->ulFlags & DSP_BUFFER_PROCESS_FIELDA: %d\n", flag(f, DSP_BUFFER_PROCESS_FIELDA));
  w.add("pBuffer->ulFlags & DSP_BUFFER_PROCESS_FIELDB: %d\n", flag(f, DSP_BUFFER_PROCESS_FIELDB));
  w.add("\n");
  return w.length();
}

void normalise_orientation(DSP_BUFFER *copy) {
  normalise_side(&copy->In);
  normalise_side(&copy->Out);
}

void dump_buffer(const DSP_BUFFER *buffer, const char *title) {
  const int n = format_buffer_dump(buffer, title, nullptr, 0);
  std::string text(static_cast<size_t>(n) + 1, '\0');
  format_buffer_dump(buffer, title, &text[0], n + 1);
  platform::show_text(text.c_str());
}

}  // namespace framedsp
