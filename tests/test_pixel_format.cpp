// The pixel-format table, the bottom-up re-measure and the buffer dump.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "lines/buffer_record.h"
#include "lines/pixel_format.h"

namespace {

// The table as the interface documents it, written out independently of the library's.
struct FormatRow {
  uint32_t code;
  uint32_t bytes;
  bool even_width;
  uint32_t main_format;  // = code for one-plane formats
  uint32_t plane_format;
  uint32_t cls;
  bool copy_filter;
  bool compare;
};

const FormatRow kRows[] = {
    {0, 4, false, 0, 0, 5, true, true},          {1, 3, false, 1, 1, 4, true, true},
    {2, 2, true, 2, 2, 0, false, false},         {3, 2, true, 3, 3, 0, false, false},
    {4, 2, true, 4, 4, 0, false, false},         {5, 0, false, 1, 261, 0, true, true},
    {16, 2, true, 16, 16, 0, false, false},      {17, 4, true, 17, 17, 3, false, false},
    {18, 1, true, 18, 18, 0, false, false},      {21, 2, true, 21, 21, 0, true, true},
    {22, 4, true, 22, 22, 7, true, false},       {23, 6, true, 23, 23, 9, true, false},
    {24, 2, true, 24, 24, 1, true, false},       {25, 2, true, 25, 25, 2, true, true},
    {27, 0, false, 23, 262, 0, false, false},    {28, 0, true, 21, 261, 0, true, true},
    {29, 0, true, 22, 262, 0, false, false},     {30, 0, true, 25, 261, 0, true, true},
    {31, 0, true, 31, 31, 8, true, false},       {64, 2, true, 64, 64, 0, false, false},
    {128, 8, true, 128, 128, 0, false, false},   {129, 8, true, 129, 129, 10, true, false},
    {132, 4, true, 132, 132, 0, false, false},   {258, 4, true, 258, 258, 0, false, false},
    {259, 2, true, 259, 259, 0, false, false},   {260, 2, true, 260, 260, 0, false, false},
    {261, 1, true, 261, 261, 6, true, true},     {262, 0, true, 262, 262, 11, true, false},
    {263, 0, true, 263, 263, 0, false, false},   {512, 1, true, 512, 512, 0, false, false},
    {513, 2, true, 513, 513, 0, false, false},
    // Codes outside the table: nothing per pixel, class 0, subsampled, refused everywhere.
    {6, 0, true, 6, 6, 0, false, false},         {26, 0, true, 26, 26, 0, false, false},
    {257, 0, true, 257, 257, 0, false, false},   {1000, 0, true, 1000, 1000, 0, false, false},
    {0xFFFFFFFFu, 0, true, 0xFFFFFFFFu, 0xFFFFFFFFu, 0, false, false},
};
constexpr size_t kKnownRows = 31;  // the rest are unknown codes

class PixelFormatTable : public ::testing::TestWithParam<FormatRow> {};

TEST_P(PixelFormatTable, MatchesTheDocumentedRow) {
  const FormatRow &row = GetParam();
  const uint32_t f = row.code;
  EXPECT_EQ(framedsp::bytes_per_pixel(f), row.bytes);
  EXPECT_EQ(framedsp::has_full_chroma(f), !row.even_width);
  EXPECT_EQ(framedsp::is_two_plane(f), row.main_format != f);
  uint32_t main_format = 12345, plane_format = 12345;
  framedsp::split_format(f, &main_format, &plane_format);
  EXPECT_EQ(main_format, row.main_format);
  EXPECT_EQ(plane_format, row.plane_format);
  EXPECT_EQ(framedsp::format_class(f), row.cls);
  EXPECT_EQ(framedsp::copy_filter_format(f), row.copy_filter);
  EXPECT_EQ(framedsp::compare_format(f), row.compare);

  const framedsp::PixelFormatInfo info = framedsp::pixel_format_info(f);
  EXPECT_EQ(info.code, f);
  EXPECT_EQ(info.bytes_per_pixel, row.bytes);
  EXPECT_EQ(info.full_chroma, !row.even_width);
  EXPECT_EQ(info.two_plane, row.main_format != f);
  EXPECT_EQ(info.main_format, row.main_format);
  EXPECT_EQ(info.plane_format, row.plane_format);
  EXPECT_EQ(info.format_class, row.cls);
  EXPECT_EQ(info.copy_filter, row.copy_filter);
  EXPECT_EQ(info.compare, row.compare);
}

INSTANTIATE_TEST_SUITE_P(Formats, PixelFormatTable, ::testing::ValuesIn(kRows),
                         [](const auto &info) {
                           return (info.index < kKnownRows ? "code_" : "unknown_") +
                                  std::to_string(info.param.code);
                         });

TEST(PixelFormat, KnownFormatsAreExactlyTheTableInOrder) {
  uint32_t count = 0;
  const uint32_t *codes = framedsp::known_formats(&count);
  ASSERT_EQ(count, kKnownRows);
  for (uint32_t i = 0; i < count; ++i) {
    EXPECT_EQ(codes[i], kRows[i].code) << "position " << i;
  }
}

DSP_BUFFER bottom_up_record() {
  DSP_BUFFER b{};
  for (DSP_IMAGE *side : {&b.In, &b.Out}) {
    side->ulWidth = 720;
    side->ulHeight = 480;
    side->Buffer.Region.ulWidth = 720;
    side->Buffer.Region.ulHeight = 100;
    side->Buffer.Region.ptOffset.x = 8;
    side->Buffer.Region.ptOffset.y = 0;
  }
  return b;
}

// A bottom-up side's region top is measured from the image's bottom (480 - 100 - y); any other
// orientation is top-down and left as it is; the sides are independent.
TEST(NormaliseOrientation, BottomUpIsMeasuredFromTheBottom) {
  for (uint32_t in_o : {0u, 1u})
    for (uint32_t out_o : {0u, 1u, 7u}) {
      DSP_BUFFER b = bottom_up_record();
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

// A record with a distinct value in every dumped field.
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
  b.In.eInterlace = 0;
  b.In.eImageOrientation = 1;
  b.In.eColorSpace = 2;
  b.In.ulPrimaryStrideBytes = 1440;
  b.In.ulSecondaryStrideBytes = 720;
  b.In.ulFlags = 9;
  b.Out.Buffer.pBuffer = nullptr;
  b.Out.Buffer.ulBytes = 0xFFFFFFFFu;  // %d of the 32-bit word
  b.Out.Buffer.eBufferType = 1;
  b.Out.Buffer.Region.ptOffset.x = 0;
  b.Out.Buffer.Region.ptOffset.y = -240;
  b.Out.Buffer.Region.ulWidth = 352;
  b.Out.Buffer.Region.ulHeight = 0x80000000u;
  b.Out.ulWidth = 360;
  b.Out.ulHeight = 243;
  b.Out.ePixelFormat = 28;
  b.Out.eInterlace = 3;
  b.Out.eImageOrientation = 0;
  b.Out.eColorSpace = 1;
  b.Out.ulPrimaryStrideBytes = 768;
  b.Out.ulSecondaryStrideBytes = 384;
  b.Out.ulFlags = 0;
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

TEST(BufferDump, TextIsExact) {
  const DSP_BUFFER b = dump_record();
  std::vector<char> out(4096, '#');
  const int n = framedsp::format_buffer_dump(&b, "Buffer record", out.data(),
                                             static_cast<int>(out.size()));
  EXPECT_EQ(std::string(out.data()), std::string(kExpectedDump));
  EXPECT_EQ(n, static_cast<int>(sizeof kExpectedDump - 1));
}

TEST(BufferDump, TruncatesLikeSnprintf) {
  const DSP_BUFFER b = dump_record();
  const int full = static_cast<int>(sizeof kExpectedDump - 1);
  EXPECT_EQ(framedsp::format_buffer_dump(&b, "Buffer record", nullptr, 0), full);

  char small[21];
  std::memset(small, '#', sizeof small);
  EXPECT_EQ(framedsp::format_buffer_dump(&b, "Buffer record", small, 20), full);
  EXPECT_EQ(std::string(small), std::string(kExpectedDump, 19));
  EXPECT_EQ(small[20], '#');  // nothing written past size
}

TEST(BufferDump, LongTitleIsKept) {
  const DSP_BUFFER b = dump_record();
  const std::string title(1000, 'T');
  const int n = framedsp::format_buffer_dump(&b, title.c_str(), nullptr, 0);
  std::vector<char> out(static_cast<size_t>(n) + 1);
  framedsp::format_buffer_dump(&b, title.c_str(), out.data(), n + 1);
  const std::string text(out.data());
  EXPECT_EQ(text.substr(0, 1002), title + "\n\n");
  EXPECT_EQ(text.substr(1000), std::string(kExpectedDump).substr(std::strlen("Buffer record")));
}

TEST(BufferDump, DumpBufferWritesTheTextToStderr) {
#if defined(_WIN32)
  GTEST_SKIP() << "Windows shows the dump in a message box, which waits for a person";
#endif
  const DSP_BUFFER b = dump_record();
  ::testing::internal::CaptureStderr();
  framedsp::dump_buffer(&b, "Buffer record");
  const std::string shown = ::testing::internal::GetCapturedStderr();
  EXPECT_NE(shown.find(kExpectedDump), std::string::npos) << shown;
}

}  // namespace
