// PNG writer for builds without libpng (the Windows cross build): the image data goes into the
// zlib stream as stored (uncompressed) deflate blocks, which every PNG reader accepts.
#include "png_writer.h"

#include <cstdio>

namespace framedsp {
namespace cli {

namespace {

uint32_t crc32(const uint8_t *p, size_t n, uint32_t crc = 0) {
  crc = ~crc;
  for (size_t i = 0; i < n; ++i) {
    crc ^= p[i];
    for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
  }
  return ~crc;
}

void put32(std::vector<uint8_t> *out, uint32_t v) {
  for (int shift = 24; shift >= 0; shift -= 8) out->push_back(static_cast<uint8_t>(v >> shift));
}

bool write_chunk(FILE *file, const char type[4], const std::vector<uint8_t> &data) {
  std::vector<uint8_t> chunk;
  put32(&chunk, static_cast<uint32_t>(data.size()));
  chunk.insert(chunk.end(), type, type + 4);
  chunk.insert(chunk.end(), data.begin(), data.end());
  put32(&chunk, crc32(chunk.data() + 4, chunk.size() - 4));
  return std::fwrite(chunk.data(), 1, chunk.size(), file) == chunk.size();
}

}  // namespace

const char *write_png_stored(FILE *file, const Picture &picture) {
  static const uint8_t kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
  std::vector<uint8_t> header;
  put32(&header, picture.width);
  put32(&header, picture.height);
  header.insert(header.end(), {8, static_cast<uint8_t>(picture.channels == 3 ? 2 : 0), 0, 0, 0});

  // Each row behind filter byte 0, then the rows cut into stored blocks of at most 65535 bytes.
  const size_t row_bytes = size_t(picture.width) * picture.channels;
  std::vector<uint8_t> raw;
  raw.reserve((row_bytes + 1) * picture.height);
  for (uint32_t y = 0; y < picture.height; ++y) {
    raw.push_back(0);
    const auto row = picture.pixels.begin() + y * row_bytes;
    raw.insert(raw.end(), row, row + row_bytes);
  }
  std::vector<uint8_t> z = {0x78, 0x01};
  uint32_t a = 1, b = 0;  // Adler-32 of the raw bytes
  for (size_t at = 0; at < raw.size() || at == 0; at += 65535) {
    const size_t n = raw.size() - at < 65535 ? raw.size() - at : 65535;
    z.push_back(at + n >= raw.size() ? 1 : 0);
    z.insert(z.end(), {uint8_t(n), uint8_t(n >> 8), uint8_t(~n), uint8_t(~n >> 8)});
    z.insert(z.end(), raw.begin() + at, raw.begin() + at + n);
    for (size_t i = at; i < at + n; ++i) {
      a = (a + raw[i]) % 65521;
      b = (b + a) % 65521;
    }
    if (raw.empty()) break;
  }
  put32(&z, (b << 16) | a);
  if (std::fwrite(kSignature, 1, 8, file) != 8 || !write_chunk(file, "IHDR", header) ||
      !write_chunk(file, "IDAT", z) || !write_chunk(file, "IEND", {})) {
    return "write failed";
  }
  return nullptr;
}

}  // namespace cli
}  // namespace framedsp
