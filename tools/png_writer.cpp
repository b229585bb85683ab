#include "png_writer.h"

#if defined(FRAMEDSP_HAVE_LIBPNG)
#include <png.h>
#endif

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace framedsp {
namespace cli {

#if !defined(FRAMEDSP_HAVE_LIBPNG)
const char *write_png_stored(FILE *file, const Picture &picture);  // png_stored.cpp
#endif

namespace {

#if defined(FRAMEDSP_HAVE_LIBPNG)
// Kept free of objects with destructors: libpng reports errors by longjmp back here.
const char *write_png_rows(FILE *file, const Picture *picture) {
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  if (!png) return "out of memory";
  png_infop info = png_create_info_struct(png);
  if (!info) {
    png_destroy_write_struct(&png, nullptr);
    return "out of memory";
  }
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    return "libpng error";
  }
  png_init_io(png, file);
  png_set_IHDR(png, info, picture->width, picture->height, 8,
               picture->channels == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY,
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_set_compression_level(png, 3);
  png_write_info(png, info);
  const size_t row_bytes = size_t(picture->width) * picture->channels;
  for (uint32_t y = 0; y < picture->height; ++y) {
    png_write_row(png, picture->pixels.data() + y * row_bytes);
  }
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  return nullptr;
}
#else
const char *write_png_rows(FILE *file, const Picture *picture) { return write_png_stored(file, *picture); }
#endif

uint8_t clamp255(double v) {
  if (v <= 0.0) return 0;
  if (v >= 255.0) return 255;
  return static_cast<uint8_t>(v + 0.5);
}

void copy_key_plane(const RawLayout &layout, const uint8_t *frame, Picture *picture, uint8_t fill) {
  // The key plane goes below the picture; samples are repeated into every colour channel.
  const uint8_t *key = frame + layout.main_bytes;
  const size_t row_bytes = size_t(picture->width) * picture->channels;
  for (uint32_t y = 0; y < layout.height; ++y) {
    uint8_t *dst = picture->pixels.data() + (layout.height + y) * row_bytes;
    std::fill(dst, dst + row_bytes, fill);
    const uint8_t *src = key + size_t(y) * layout.key_stride;
    for (uint32_t x = 0; x < layout.width; ++x) {
      for (int c = 0; c < picture->channels; ++c) dst[x * picture->channels + c] = src[x];
    }
  }
}

}  // namespace

bool write_png(const std::string &path, const Picture &picture, std::string *error) {
  if (picture.width == 0 || picture.height == 0 ||
      picture.pixels.size() != size_t(picture.width) * picture.height * picture.channels) {
    *error = path + ": empty or inconsistent picture";
    return false;
  }
  FILE *file = std::fopen(path.c_str(), "wb");
  if (!file) {
    *error = path + ": cannot create (" + std::strerror(errno) + ")";
    return false;
  }
  const char *failure = write_png_rows(file, &picture);
  if (std::fclose(file) != 0 && !failure) failure = "write failed";
  if (failure) {
    *error = path + ": " + failure;
    return false;
  }
  return true;
}

void ycbcr601_to_rgb(int y, int cb, int cr, uint8_t *rgb) {
  const double l = 1.164383 * (y - 16);
  const double u = cb - 128;
  const double v = cr - 128;
  rgb[0] = clamp255(l + 1.596027 * v);
  rgb[1] = clamp255(l - 0.391762 * u - 0.812968 * v);
  rgb[2] = clamp255(l + 2.017232 * u);
}

Picture preview(const RawLayout &layout, const uint8_t *frame) {
  Picture p;
  p.width = layout.width;
  p.height = layout.height * (layout.two_plane ? 2 : 1);
  p.channels = 3;
  p.pixels.assign(size_t(p.width) * p.height * 3, 0);
  for (uint32_t y = 0; y < layout.height; ++y) {
    const uint8_t *src = frame + size_t(y) * layout.stride;
    uint8_t *dst = p.pixels.data() + size_t(y) * p.width * 3;
    switch (layout.main_format) {
      case 21:  // U Y0 V Y1
      case 25:  // Y0 U Y1 V
        for (uint32_t x = 0; x + 1 < layout.width; x += 2, src += 4, dst += 6) {
          const bool uyvy = layout.main_format == 21;
          const int y0 = uyvy ? src[1] : src[0], y1 = uyvy ? src[3] : src[2];
          const int cb = uyvy ? src[0] : src[1], cr = uyvy ? src[2] : src[3];
          ycbcr601_to_rgb(y0, cb, cr, dst);
          ycbcr601_to_rgb(y1, cb, cr, dst + 3);
        }
        break;
      case 0:
      case 1: {
        const int step = layout.main_format == 0 ? 4 : 3;
        for (uint32_t x = 0; x < layout.width; ++x, src += step, dst += 3) {
          dst[0] = src[2];
          dst[1] = src[1];
          dst[2] = src[0];
        }
        break;
      }
      default:  // one byte a pixel
        for (uint32_t x = 0; x < layout.width; ++x, dst += 3) dst[0] = dst[1] = dst[2] = src[x];
        break;
    }
  }
  if (layout.two_plane) copy_key_plane(layout, frame, &p, 0);
  return p;
}

Picture bytes_as_gray(const RawLayout &layout, const uint8_t *frame) {
  Picture p;
  p.width = layout.line_bytes;
  p.height = layout.height * (layout.two_plane ? 2 : 1);
  p.channels = 1;
  p.pixels.resize(size_t(p.width) * p.height);
  for (uint32_t y = 0; y < layout.height; ++y) {
    std::memcpy(p.pixels.data() + size_t(y) * p.width, frame + size_t(y) * layout.stride,
                layout.line_bytes);
  }
  if (layout.two_plane) copy_key_plane(layout, frame, &p, 128);
  return p;
}

}  // namespace cli
}  // namespace framedsp
