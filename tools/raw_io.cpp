#include "raw_io.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "args.h"
#include "formats.h"

namespace framedsp {
namespace cli {

namespace {

std::string plural(uint64_t n, const char *word) {
  return std::to_string(n) + " " + word + (n == 1 ? "" : "s");
}

std::string system_error() { return std::strerror(errno); }

}  // namespace

bool make_layout(uint32_t format, uint32_t width, uint32_t height, uint32_t stride,
                 uint32_t key_stride, RawLayout *layout, std::string *error) {
  const FormatInfo &info = format_info(format);
  RawLayout l;
  l.format = format;
  l.width = width;
  l.height = height;
  l.two_plane = info.two_plane();
  l.main_format = l.two_plane ? info.main : format;
  const uint32_t bpp = format_info(l.main_format).bytes;
  if (bpp == 0) {
    *error = format_label(format) + " has no per-pixel layout the tool can read";
    return false;
  }
  if (l.two_plane && format_info(info.plane).bytes != 1) {
    *error = format_label(format) + " has a key plane the tool cannot read";
    return false;
  }
  if (width == 0 || height == 0) {
    *error = "width and height must be at least 1";
    return false;
  }
  if (info.even && width % 2 != 0) {
    *error = format_label(format) + " needs an even width (pairs of pixels share chroma); got " +
             std::to_string(width);
    return false;
  }
  const uint64_t line_bytes = uint64_t(width) * bpp;
  if (line_bytes > UINT32_MAX) {
    *error = "lines of " + std::to_string(line_bytes) + " bytes are too long";
    return false;
  }
  l.line_bytes = static_cast<uint32_t>(line_bytes);
  l.stride = stride ? stride : l.line_bytes;
  if (l.stride < l.line_bytes) {
    *error = "stride " + std::to_string(l.stride) + " is shorter than a line of " +
             format_label(l.main_format) + " at width " + std::to_string(width) + " (" +
             std::to_string(l.line_bytes) + " bytes)";
    return false;
  }
  if (l.two_plane) {
    l.key_line_bytes = width;
    l.key_stride = key_stride ? key_stride : width;
    if (l.key_stride < width) {
      *error = "key stride " + std::to_string(l.key_stride) + " is shorter than the width " +
               std::to_string(width);
      return false;
    }
  } else if (key_stride) {
    *error = "--key-stride applies only to the two-plane (+key) formats";
    return false;
  }
  l.main_bytes = uint64_t(l.stride) * height;
  l.key_bytes = uint64_t(l.key_stride) * height;
  l.frame_bytes = l.main_bytes + l.key_bytes;
  // The library's records hold sizes and offsets in 32 bits.
  if (l.frame_bytes > UINT32_MAX) {
    *error = "a frame of " + std::to_string(l.frame_bytes) + " bytes is too large (4 GiB limit)";
    return false;
  }
  *layout = l;
  return true;
}

RawLayout packed_layout(uint32_t format, uint32_t width, uint32_t height) {
  RawLayout layout;
  std::string error;
  if (!make_layout(format, width, height, 0, 0, &layout, &error)) throw UsageError(error);
  return layout;
}

std::string describe_layout(const RawLayout &l) {
  std::string s = format_label(l.format) + " " + std::to_string(l.width) + "x" +
                  std::to_string(l.height) + ", stride " + std::to_string(l.stride);
  if (l.two_plane) s += ", key stride " + std::to_string(l.key_stride);
  return s;
}

bool RawReader::open(const std::string &path, const RawLayout &layout, std::string *error) {
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec)) {
    *error = path + ": is a directory";
    return false;
  }
  file_.open(path, std::ios::binary);
  if (!file_) {
    *error = path + ": cannot open (" + system_error() + ")";
    return false;
  }
  file_.seekg(0, std::ios::end);
  const std::streamoff size = file_.tellg();
  file_.seekg(0, std::ios::beg);
  if (size < 0) {
    *error = path + ": cannot determine the file size";
    return false;
  }
  const uint64_t bytes = static_cast<uint64_t>(size);
  const std::string what = describe_layout(layout);
  if (bytes < layout.frame_bytes) {
    *error = path + ": " + plural(bytes, "byte") + ", shorter than one frame of " +
             plural(layout.frame_bytes, "byte") + " (" + what + ")";
    return false;
  }
  if (bytes % layout.frame_bytes != 0) {
    *error = path + ": " + plural(bytes, "byte") + ", not a whole number of frames of " +
             plural(layout.frame_bytes, "byte") + " (" + what +
             "): " + plural(bytes / layout.frame_bytes, "frame") + " and " +
             plural(bytes % layout.frame_bytes, "byte") + " left over; expected " +
             std::to_string(bytes / layout.frame_bytes * layout.frame_bytes) + " or " +
             std::to_string((bytes / layout.frame_bytes + 1) * layout.frame_bytes) + " bytes";
    return false;
  }
  path_ = path;
  layout_ = layout;
  frames_ = bytes / layout.frame_bytes;
  return true;
}

bool RawReader::read(uint64_t index, uint8_t *dst, std::string *error) {
  if (index >= frames_) {
    *error = path_ + ": no frame " + std::to_string(index);
    return false;
  }
  file_.clear();
  file_.seekg(static_cast<std::streamoff>(index * layout_.frame_bytes), std::ios::beg);
  file_.read(reinterpret_cast<char *>(dst), static_cast<std::streamsize>(layout_.frame_bytes));
  if (!file_ || static_cast<uint64_t>(file_.gcount()) != layout_.frame_bytes) {
    *error = path_ + ": read of frame " + std::to_string(index) + " failed";
    return false;
  }
  return true;
}

bool RawWriter::open(const std::string &path, std::string *error) {
  file_.open(path, std::ios::binary | std::ios::trunc);
  if (!file_) {
    *error = path + ": cannot create (" + system_error() + ")";
    return false;
  }
  path_ = path;
  return true;
}

bool RawWriter::write(const uint8_t *data, size_t bytes, std::string *error) {
  file_.write(reinterpret_cast<const char *>(data), static_cast<std::streamsize>(bytes));
  if (!file_) {
    *error = path_ + ": write failed";
    return false;
  }
  return true;
}

bool RawWriter::close(std::string *error) {
  file_.close();
  if (!file_) {
    *error = path_ + ": write failed";
    return false;
  }
  return true;
}

}  // namespace cli
}  // namespace framedsp
