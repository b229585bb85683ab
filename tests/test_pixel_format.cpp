// The pixel-format table, the bottom-up re-measure and the buffer dump.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "lines/buffer_record.h"
#include "lines/pixel_format.h"

namespace {

// The rows must hold together (the accessors read these rows; every operation uses them).
void expect_consistent_row(uint32_t f) {
  const framedsp::PixelFormatInfo info = framedsp::pixel_format_info(f);
  uint32_t main_format = 12345, plane_format = 12345;
  framedsp::split_format(f, &main_format, &plane_format);
  EXPECT_EQ(info.code, f);
  EXPECT_EQ(info.two_plane, main_format != f);
  if (info.two_plane) {  // the picture plane is a one-plane format of the table, the key 8 or 16 bits
    EXPECT_FALSE(framedsp::is_two_plane(main_format));
    EXPECT_GT(framedsp::bytes_per_pixel(main_format), 0u);
    EXPECT_TRUE(plane_format == 261 || plane_format == 262) << f;
  } else {
    EXPECT_EQ(plane_format, f);
  }
  EXPECT_LE(info.format_class, 11u);
  EXPECT_TRUE(!info.compare || info.copy_filter) << f;
}

TEST(PixelFormat, EveryKnownRowIsConsistentAndUnknownCodesAreRefused) {
  uint32_t count = 0;
  const uint32_t *codes = framedsp::known_formats(&count);
  ASSERT_EQ(count, 31u);
  for (uint32_t i = 0; i < count; ++i) {
    if (i) {
      EXPECT_LT(codes[i - 1], codes[i]);
    }
    SCOPED_TRACE(codes[i]);
    expect_consistent_row(codes[i]);
    EXPECT_EQ(framedsp::has_full_chroma(codes[i]), codes[i] == 0 || codes[i] == 1 || codes[i] == 5 || codes[i] == 27);
  }
  for (uint32_t f : {6u, 26u, 257u, 1000u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(f);
    expect_consistent_row(f);
    const framedsp::PixelFormatInfo info = framedsp::pixel_format_info(f);
    EXPECT_EQ(info.bytes_per_pixel + info.format_class + info.copy_filter + info.compare + info.scale, 0);
    EXPECT_FALSE(info.full_chroma);
  }
  // A few rows pinned outright: the packed 32-bit and 4:2:2 layouts and a two-plane split.
  EXPECT_EQ(framedsp::bytes_per_pixel(0) * 10 + framedsp::bytes_per_pixel(21), 42u);
  EXPECT_EQ(framedsp::bytes_per_pixel(261) * 10 + framedsp::bytes_per_pixel(129), 18u);
  uint32_t m = 0, k = 0;
  framedsp::split_format(28, &m, &k);
  EXPECT_EQ(m * 1000 + k, 21261u);
}

// A bottom-up side's region top is measured from the image's bottom (480 - 100 - y); any other
// orientation is top-down and left as it is; the sides are independent.
TEST(NormaliseOrientation, BottomUpIsMeasuredFromTheBottom) {
  for (uint32_t in_o : {0u, 1u})
    for (uint32_t out_o : {0u, 1u, 7u}) {
      DSP_BUFFER b{};
      b.In.ulHeight = b.Out.ulHeight = 480;
      b.In.Buffer.Region.ulHeight = b.Out.Buffer.Region.ulHeight = 100;
      b.In.Buffer.Region.ulWidth = b.Out.Buffer.Region.ulWidth = 720;
      b.In.eImageOrientation = in_o;
      b.Out.eImageOrientation = out_o;
      b.Out.Buffer.Region.ptOffset.y = 30;
      const DSP_BUFFER before = b;
      framedsp::normalise_orientation(&b);
      EXPECT_EQ(b.In.Buffer.Region.ptOffset.y, in_o == 1 ? 380 : 0);
      EXPECT_EQ(b.Out.Buffer.Region.ptOffset.y, out_o == 1 ? 350 : 30);
      b.In.Buffer.Region.ptOffset.y = before.In.Buffer.Region.ptOffset.y;
      b.Out.Buffer.Region.ptOffset.y = before.Out.Buffer.Region.ptOffset.y;
      EXPECT_EQ(std::memcmp(&b, &before, sizeof b), 0) << "a field other than the region tops changed";
    }
}

// A record with a distinct value in every dumped field (the zero-initialised ones aside).
DSP_BUFFER dump_record() {
  DSP_BUFFER b{};
#if UINTPTR_MAX > 0xFFFFFFFFu
  b.In.Buffer.pBuffer = reinterpret_cast<void *>(static_cast<uintptr_t>(0x7F12AB34CD50ull));
#else
  b.In.Buffer.pBuffer = reinterpret_cast<void *>(static_cast<uintptr_t>(0x12AB34C0u));
#endif
  b.In.Buffer.ulBytes = 691200;
  b.In.Buffer.eBufferType = 2;
  b.In.Buffer.Region.ptOffset.x = -3;
  b.In.Buffer.Region.ptOffset.y = 17;
  b.In.Buffer.Region.ulWidth = 704;
  b.In.Buffer.Region.ulHeight = 466;
  b.In.ulReserved = 0xDEAD;  // never dumped
  b.In.ulWidth = 720;
  b.In.ulHeight = 480;
  b.In.ePixelFormat = 21;
  b.In.eImageOrientation = 1;
  b.In.eColorSpace = 2;
  b.In.ulPrimaryStrideBytes = 1440;
  b.In.ulSecondaryStrideBytes = 720;
  b.In.ulFlags = 9;
  b.Out.Buffer.ulBytes = 0xFFFFFFFFu;  // %d of the 32-bit word
  b.Out.Buffer.eBufferType = 1;
  b.Out.Buffer.Region.ptOffset.y = -240;
  b.Out.Buffer.Region.ulWidth = 352;
  b.Out.Buffer.Region.ulHeight = 0x80000000u;
  b.Out.ulWidth = 360;
  b.Out.ulHeight = 243;
  b.Out.ePixelFormat = 28;
  b.Out.eInterlace = 3;
  b.Out.eColorSpace = 1;
  b.Out.ulPrimaryStrideBytes = 768;
  b.Out.ulSecondaryStrideBytes = 384;
  b.ulSliceCount = 4;  // band fields are not dumped
  b.ulSliceNumber = 2;
  b.ulFlags = 0x15 | 0x20;  // bits 0, 2, 4, and one the dump does not know
  return b;
}

const char kExpectedDump[] =
    "Buffer record\n"
    "\n"
#if UINTPTR_MAX > 0xFFFFFFFFu
    "pBuffer->In.Buffer.pBuffer: 7F12AB34CD50H\n"
#else
    "pBuffer->In.Buffer.pBuffer: 12AB34C0H\n"
#endif
    "pBuffer->In.Buffer.ulBytes: 691200\n"
    "pBuffer->In.Buffer.eBufferType: 2\n"
    "pBuffer->In.Buffer.Region.ptOffset.x: -3\n"
    "pBuffer->In.Buffer.Region.ptOffset.y: 17\n"
    "pBuffer->In.Buffer.Region.ulWidth: 704\n"
    "pBuffer->In.Buffer.Region.ulHeight: 466\n"
    "pBuffer->In.ulWidth: 720\n"
    "pBuffer->In.ulHeight: 480\n"
    "pBuffer->In.ePixelFormat: 21\n"
    "pBuffer->In.eInterlace: 0\n"
    "pBuffer->In.eImageOrientation: 1\n"
    "pBuffer->In.eColorSpace: 2\n"
    "pBuffer->In.ulPrimaryStrideBytes: 1440\n"
    "pBuffer->In.ulSecondaryStrideBytes: 720\n"
    "pBuffer->In.ulFlags: 9\n"
    "\n"
    "pBuffer->Out.Buffer.pBuffer: 0H\n"
    "pBuffer->Out.Buffer.ulBytes: -1\n"
    "pBuffer->Out.Buffer.eBufferType: 1\n"
    "pBuffer->Out.Buffer.Region.ptOffset.x: 0\n"
    "pBuffer->Out.Buffer.Region.ptOffset.y: -240\n"
    "pBuffer->Out.Buffer.Region.ulWidth: 352\n"
    "pBuffer->Out.Buffer.Region.ulHeight: -2147483648\n"
    "pBuffer->Out.ulWidth: 360\n"
    "pBuffer->Out.ulHeight: 243\n"
    "pBuffer->Out.ePixelFormat: 28\n"
    "pBuffer->Out.eInterlace: 3\n"
    "pBuffer->Out.eImageOrientation: 0\n"
    "pBuffer->Out.eColorSpace: 1\n"
    "pBuffer->Out.ulPrimaryStrideBytes: 768\n"
    "pBuffer->Out.ulSecondaryStrideBytes: 384\n"
    "pBuffer->Out.ulFlags: 0\n"
    "\n"
    "pBuffer->ulFlags & DSP_BUFFER_IN_FIELD2_DOMINANCE: 1\n"
    "pBuffer->ulFlags & DSP_BUFFER_OUT_FIELD2_DOMINANCE: 0\n"
    "pBuffer->ulFlags & DSP_BUFFER_DOMINANCE_BY_SHIFTING_UP: 1\n"
    "pBuffer->ulFlags & DSP_BUFFER_PROCESS_FIELDA: 0\n"
    "pBuffer->ulFlags & DSP_BUFFER_PROCESS_FIELDB: 1\n"
    "\n";

TEST(BufferDump, TextIsExactAndTruncatesLikeSnprintf) {
  const DSP_BUFFER b = dump_record();
  const int full = static_cast<int>(sizeof kExpectedDump - 1);
  std::vector<char> out(4096, '#');
  EXPECT_EQ(framedsp::format_buffer_dump(&b, "Buffer record", out.data(), static_cast<int>(out.size())), full);
  EXPECT_EQ(std::string(out.data()), std::string(kExpectedDump));
  EXPECT_EQ(framedsp::format_buffer_dump(&b, "Buffer record", nullptr, 0), full);
  char small[21];
  std::memset(small, '#', sizeof small);
  EXPECT_EQ(framedsp::format_buffer_dump(&b, "Buffer record", small, 20), full);
  EXPECT_EQ(std::string(small), std::string(kExpectedDump, 19));
  EXPECT_EQ(small[20], '#');  // nothing written past size
}

// dump_buffer shows the same text on stderr; a long title is kept whole.
TEST(BufferDump, DumpBufferWritesTheTextWithALongTitleToStderr) {
#if defined(_WIN32)
  GTEST_SKIP() << "Windows shows the dump in a message box, which waits for a person";
#endif
  const DSP_BUFFER b = dump_record();
  const std::string title(1000, 'T');
  ::testing::internal::CaptureStderr();
  framedsp::dump_buffer(&b, title.c_str());
  const std::string shown = ::testing::internal::GetCapturedStderr();
  EXPECT_NE(shown.find(title + std::string(kExpectedDump).substr(std::strlen("Buffer record"))), std::string::npos)
      << shown;
  EXPECT_EQ(framedsp::format_buffer_dump(&b, title.c_str(), nullptr, 0), int(sizeof kExpectedDump - 1) + 987);
}

}  // namespace
