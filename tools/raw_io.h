// Raw video files: frames of one size laid end to end, no header.  A frame of a two-plane format
// is the main picture (height lines of `stride` bytes) followed by the key plane (height lines of
// `key_stride` bytes), which is also how the library expects it in memory.
#pragma once

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

namespace framedsp {
namespace cli {

struct RawLayout {
  uint32_t format = 0;
  uint32_t width = 0;
  uint32_t height = 0;
  bool two_plane = false;
  uint32_t main_format = 0;     // the picture's format (the format itself for one plane)
  uint32_t line_bytes = 0;      // bytes of picture data in one line of the main picture
  uint32_t stride = 0;          // bytes from one main line to the next
  uint32_t key_line_bytes = 0;  // two-plane formats: width (one byte a pixel)
  uint32_t key_stride = 0;
  uint64_t main_bytes = 0;  // stride * height
  uint64_t key_bytes = 0;   // key_stride * height, 0 for one plane
  uint64_t frame_bytes = 0;
};

// Builds the layout of a frame.  stride and key_stride 0 mean tightly packed lines.  Fails (with
// a message) for formats whose pixels the tool cannot address, odd widths of subsampled formats,
// strides shorter than a line and frames of 4 GiB or more.
bool make_layout(uint32_t format, uint32_t width, uint32_t height, uint32_t stride,
                 uint32_t key_stride, RawLayout *layout, std::string *error);

// The layout of tightly packed frames; UsageError when make_layout fails.
RawLayout packed_layout(uint32_t format, uint32_t width, uint32_t height);

// "uyvy422 (21) 720x486, stride 1440" and so on (no byte counts).
std::string describe_layout(const RawLayout &layout);

class RawReader {
 public:
  // Opens the file and checks that it holds a whole number (at least one) of frames.
  bool open(const std::string &path, const RawLayout &layout, std::string *error);
  uint64_t frames() const { return frames_; }
  // Reads frame `index` into dst (layout.frame_bytes bytes).
  bool read(uint64_t index, uint8_t *dst, std::string *error);

 private:
  std::ifstream file_;
  std::string path_;
  RawLayout layout_;
  uint64_t frames_ = 0;
};

class RawWriter {
 public:
  bool open(const std::string &path, std::string *error);
  bool write(const uint8_t *data, size_t bytes, std::string *error);
  bool close(std::string *error);

 private:
  std::ofstream file_;
  std::string path_;
};

}  // namespace cli
}  // namespace framedsp
