// Line-control geometry and the line walker, checked by the lines they produce: small images whose
// lines carry their own number are walked and copied, and the destination is read back as a map
// "destination memory line -> source memory line".  Expected maps come from a separate model
// written from the documented rules (frame lines, fields, halves, dominance shift, bands).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "lines/buffer_record.h"
#include "lines/line_walk.h"
#include "test_util.h"

using framedsp::LCtrl;
using framedsp_test::GuardedBuffer;

namespace {

constexpr int kBpp = 4;          // format 0
constexpr int kWidth = 4;        // pixels per line
constexpr int kStride = 20;      // bytes: one pixel of padding
constexpr uint8_t kUntouched = 0xEE;
constexpr uint8_t kSourceTag = 0x5A;
constexpr int kSrcX = 2, kDstX = 1, kRegionW = 2;

struct Case {
  uint32_t in_type, out_type, in_il, out_il, in_orient, out_orient, flags;
  int ho, hi;                 // region heights
  int in_h, out_h, in_y, out_y;  // image heights and region tops (from the picture's top)
  uint32_t slices = 0, slice = 0;
};

std::string describe(const Case &k) {
  char text[256];
  std::snprintf(text, sizeof text,
                "type %u->%u interlace %u->%u orient %u->%u flags 0x%02x ho %d hi %d "
                "image %d/%d y %d/%d band %u/%u",
                k.in_type, k.out_type, k.in_il, k.out_il, k.in_orient, k.out_orient, k.flags, k.ho,
                k.hi, k.in_h, k.out_h, k.in_y, k.out_y, k.slice, k.slices);
  return text;
}

// Source line L: every pixel x = {tag, L low, L high, x}.
void fill_source(uint8_t *p, int height) {
  for (int l = 0; l < height; ++l)
    for (int x = 0; x < kStride / kBpp; ++x) {
      uint8_t *px = p + l * kStride + x * kBpp;
      px[0] = kSourceTag;
      px[1] = static_cast<uint8_t>(l);
      px[2] = static_cast<uint8_t>(l >> 8);
      px[3] = static_cast<uint8_t>(x);
    }
}

DSP_BUFFER make_record(const Case &k, void *src, void *dst) {
  DSP_BUFFER b;
  std::memset(&b, 0, sizeof b);
  auto side = [](DSP_IMAGE &im, void *p, int h, uint32_t type, uint32_t il, uint32_t orient, int x,
                 int y, int rh) {
    im.Buffer.pBuffer = p;
    im.Buffer.ulBytes = static_cast<uint32_t>(h * kStride);
    im.Buffer.eBufferType = type;
    im.Buffer.Region.ptOffset.x = x;
    im.Buffer.Region.ptOffset.y = y;
    im.Buffer.Region.ulWidth = kRegionW;
    im.Buffer.Region.ulHeight = static_cast<uint32_t>(rh);
    im.ulWidth = kWidth;
    im.ulHeight = static_cast<uint32_t>(h);
    im.ePixelFormat = 0;
    im.eInterlace = il;
    im.eImageOrientation = orient;
    im.ulPrimaryStrideBytes = kStride;
  };
  side(b.In, src, k.in_h, k.in_type, k.in_il, k.in_orient, kSrcX, k.in_y, k.hi);
  side(b.Out, dst, k.out_h, k.out_type, k.out_il, k.out_orient, kDstX, k.out_y, k.ho);
  b.ulSliceCount = k.slices;
  b.ulSliceNumber = k.slice;
  b.ulFlags = k.flags;
  return b;
}

// What a worker does: a private normalised copy, the fill, the walk.
void walk_copy(const DSP_BUFFER &caller) {
  DSP_BUFFER b = caller;
  framedsp::normalise_orientation(&b);
  LCtrl c;
  framedsp::lctrl_fill(b, &c);
  framedsp::lctrl_for_each_line(b, &c, [&](const uint8_t *s, uint8_t *d) {
    std::memmove(d, s, static_cast<size_t>(c.dst_width));
  });
}

// Destination memory line -> source memory line, -1 untouched, -2 damaged or not a source line.
std::vector<int> read_map(const uint8_t *dst, int height) {
  std::vector<int> map(static_cast<size_t>(height), -1);
  for (int m = 0; m < height; ++m) {
    const uint8_t *line = dst + m * kStride;
    bool untouched = true;
    for (int i = 0; i < kStride; ++i) untouched = untouched && line[i] == kUntouched;
    if (untouched) continue;
    int found = -2;
    for (int i = 0; i < kRegionW; ++i) {
      const uint8_t *px = line + (kDstX + i) * kBpp;
      const int l = px[1] | (px[2] << 8);
      if (px[0] != kSourceTag || px[3] != kSrcX + i || (i > 0 && l != found)) {
        found = -2;
        break;
      }
      found = l;
    }
    for (int x = 0; x < kStride / kBpp; ++x) {
      if (x >= kDstX && x < kDstX + kRegionW) continue;
      for (int i = 0; i < kBpp; ++i)
        if (line[x * kBpp + i] != kUntouched) found = -2;
    }
    map[static_cast<size_t>(m)] = found;
  }
  return map;
}

// ---- The model ----------------------------------------------------------------------------------

int floor_div2(int v) { return v >= 0 ? v / 2 : -((-v + 1) / 2); }

// Frame line shown by output region line j, or -1 when the layout is not one the geometry knows.
int output_frame_line(const Case &k, int j) {
  if (k.out_type < 2) return 2 * j + static_cast<int>(k.out_type);
  if (k.out_il <= 2) return j;
  if (k.out_il == 3) {
    const int upper = k.ho / 2;
    return j < upper ? 2 * j : 2 * (j - upper) + 1;
  }
  return -1;
}

enum class Read { kField, kLines, kHalves, kNothing };

Read input_read(const Case &k) {
  if (k.in_type < 2) return Read::kField;
  if (k.out_type == 0) return k.out_il <= 2 ? Read::kLines : Read::kHalves;
  if (k.out_type == 1) return (k.in_il < 2 || k.out_il == 2) ? Read::kLines : Read::kHalves;
  if (k.in_il > 3 || k.out_il > 3) return Read::kNothing;
  return k.in_il <= 2 ? Read::kLines : Read::kHalves;
}

int shift(const Case &k) {
  const bool differ = ((k.flags ^ (k.flags >> 1)) & 1) != 0;
  if (!differ || (k.in_type < 2 && k.out_type < 2)) return 0;
  return (k.flags & DSP_BUFFER_DOMINANCE_BY_SHIFTING_UP) ? 1 : -1;
}

int memory_line(int picture_line, int y, int image_height, uint32_t orient) {
  const int line = y + picture_line;
  return orient == DSP_ORIENTATION_BOTTOM_UP ? image_height - 1 - line : line;
}

std::vector<int> expected_map(const Case &k) {
  std::vector<int> map(static_cast<size_t>(k.out_h), -1);
  const Read read = input_read(k);
  if (read == Read::kNothing) return map;
  const bool only_a = (k.flags & DSP_BUFFER_PROCESS_FIELDA) && !(k.flags & DSP_BUFFER_PROCESS_FIELDB);
  const bool only_b = (k.flags & DSP_BUFFER_PROCESS_FIELDB) && !(k.flags & DSP_BUFFER_PROCESS_FIELDA);
  const bool selects = k.in_type == 2 && k.out_type == 2 && k.in_il < 2 && k.out_il <= 2;
  for (int j = 0; j < k.ho; ++j) {
    int picture = 0;
    if (k.in_type < 2 && k.out_type < 2) {
      picture = j;
    } else {
      const int fo = output_frame_line(k, j);
      if (fo < 0) continue;
      if (selects && ((only_a && (fo & 1)) || (only_b && !(fo & 1)))) continue;
      const int f = fo + shift(k);
      if (read == Read::kField) {
        if (((f - static_cast<int>(k.in_type)) & 1) != 0) continue;
        picture = (f - static_cast<int>(k.in_type)) / 2;
      } else if (read == Read::kLines) {
        picture = f;
      } else {
        picture = (f & 1) ? k.hi / 2 + floor_div2(f) : f / 2;
      }
    }
    int src = memory_line(picture, k.in_y, k.in_h, k.in_orient);
    src = src < 0 ? 0 : (src >= k.in_h ? k.in_h - 1 : src);
    map[static_cast<size_t>(memory_line(j, k.out_y, k.out_h, k.out_orient))] = src;
  }
  return map;
}

std::string map_text(const std::vector<int> &map) {
  std::string s;
  for (int v : map) s += std::to_string(v) + " ";
  return s;
}

// Runs the walker on guarded images (a protected page right after each) and returns the map.
// Buffers are kept per size: mapping two fresh ones for each of the many cases costs seconds.
GuardedBuffer &guarded(size_t size, int slot) {
  static std::map<std::pair<size_t, int>, std::unique_ptr<GuardedBuffer>> cache;
  std::unique_ptr<GuardedBuffer> &b = cache[{size, slot}];
  if (!b) b.reset(new GuardedBuffer(size, 32));
  return *b;
}

std::vector<int> run_case(const Case &k, bool *canaries_ok) {
  GuardedBuffer &src = guarded(static_cast<size_t>(k.in_h * kStride), 0);
  GuardedBuffer &dst = guarded(static_cast<size_t>(k.out_h * kStride), 1);
  fill_source(src.data(), k.in_h);
  std::memset(dst.data(), kUntouched, dst.size());
  walk_copy(make_record(k, src.data(), dst.data()));
  *canaries_ok = dst.intact() && src.intact();
  return read_map(dst.data(), k.out_h);
}

int natural_input_height(uint32_t in_type, uint32_t out_type, int ho) {
  if (in_type == 2 && out_type < 2) return 2 * ho;
  if (in_type < 2 && out_type == 2) return (ho + 1) / 2;
  return ho;
}

// Every interlace pair 0..3, orientation pair, dominance bits and field-selection bits of one
// buffer-type pair, with even and odd heights, regions inside the image and flush with it.
void check_all_maps(uint32_t in_type, uint32_t out_type) {
  int cases = 0, failures = 0;
  for (uint32_t in_il = 0; in_il < 4; ++in_il)
    for (uint32_t out_il = 0; out_il < 4; ++out_il)
      for (uint32_t orient = 0; orient < 4; ++orient)
        for (uint32_t flags = 0; flags < 32; ++flags)
          for (int ho : {8, 7})
            for (int flush = 0; flush < 2; ++flush) {
              Case k{in_type, out_type, in_il, out_il, orient >> 1, orient & 1, flags, ho,
                     natural_input_height(in_type, out_type, ho), 0, 0, 0, 0};
              k.in_y = flush ? 0 : 2;
              k.out_y = flush ? 0 : 1;
              k.in_h = k.hi + (flush ? 0 : 3);
              k.out_h = k.ho + (flush ? 0 : 2);
              bool ok = false;
              const std::vector<int> got = run_case(k, &ok);
              const std::vector<int> want = expected_map(k);
              ++cases;
              if ((got != want || !ok) && ++failures <= 5)
                ADD_FAILURE() << describe(k) << "\n  want " << map_text(want) << "\n  got  "
                              << map_text(got) << (ok ? "" : "\n  guard bytes damaged");
            }
  EXPECT_EQ(failures, 0) << "of " << cases << " cases";
}

}  // namespace

// Every pair of buffer types (field A, field B, frame) on both sides.
TEST(LineMap, EveryBufferTypePair) {
  for (uint32_t i = 0; i < 3; ++i)
    for (uint32_t o = 0; o < 3; ++o) check_all_maps(i, o);
}

// A few maps written out by hand, so that the model itself is pinned.
TEST(LineMap, KnownAnswers) {
  auto run = [](Case k) {
    bool ok = false;
    std::vector<int> got = run_case(k, &ok);
    EXPECT_TRUE(ok);
    return got;
  };
  // Field A into an interleaved frame: frame lines 0, 2, 4, 6; field B: 1, 3, 5, 7.
  EXPECT_EQ(run({0, 2, 0, 0, 0, 0, 0, 8, 4, 4, 8, 0, 0}),
            (std::vector<int>{0, -1, 1, -1, 2, -1, 3, -1}));
  EXPECT_EQ(run({1, 2, 0, 0, 0, 0, 0, 8, 4, 4, 8, 0, 0}),
            (std::vector<int>{-1, 0, -1, 1, -1, 2, -1, 3}));
  // Interleaved to fields one after the other.
  EXPECT_EQ(run({2, 2, 0, 3, 0, 0, 0, 6, 6, 6, 6, 0, 0}), (std::vector<int>{0, 2, 4, 1, 3, 5}));
  // Only field B: one run, the odd lines.
  EXPECT_EQ(run({2, 2, 0, 0, 0, 0, DSP_BUFFER_PROCESS_FIELDB, 6, 6, 6, 6, 0, 0}),
            (std::vector<int>{-1, 1, -1, 3, -1, 5}));
  // Dominance change, shift up: line j shows j + 1, the last line repeats the image's last.
  EXPECT_EQ(run({2, 2, 0, 0, 0, 0, DSP_BUFFER_IN_FIELD2_DOMINANCE | DSP_BUFFER_DOMINANCE_BY_SHIFTING_UP,
                 4, 4, 4, 4, 0, 0}),
            (std::vector<int>{1, 2, 3, 3}));
  // Shift down: j shows j - 1, the first line repeats line 0.
  EXPECT_EQ(run({2, 2, 0, 0, 0, 0, DSP_BUFFER_OUT_FIELD2_DOMINANCE, 4, 4, 4, 4, 0, 0}),
            (std::vector<int>{0, 0, 1, 2}));
  // Field A with a dominance change goes to the odd lines.
  EXPECT_EQ(run({0, 2, 0, 0, 0, 0, DSP_BUFFER_OUT_FIELD2_DOMINANCE, 4, 2, 2, 4, 0, 0}),
            (std::vector<int>{-1, 0, -1, 1}));
  // Top-down into bottom-up: upside down in memory order.
  EXPECT_EQ(run({2, 2, 2, 2, 0, 1, 0, 4, 4, 4, 4, 0, 0}), (std::vector<int>{3, 2, 1, 0}));
}

TEST(LCtrl, ClipsRegionsAgainstTheStride) {
  uint8_t dummy[64];
  Case k{0, 0, 2, 2, 0, 0, 0, 4, 4, 4, 4, 0, 0};
  DSP_BUFFER b = make_record(k, dummy, dummy);
  b.In.ePixelFormat = b.Out.ePixelFormat = 1;  // 3 bytes
  b.In.ulPrimaryStrideBytes = 31;              // 10 pixels
  b.In.Buffer.Region.ptOffset.x = 6;
  b.In.Buffer.Region.ulWidth = 8;
  b.Out.ulPrimaryStrideBytes = 60;
  b.Out.Buffer.Region.ptOffset.x = 3;
  b.Out.Buffer.Region.ulWidth = 8;
  LCtrl c;
  framedsp::lctrl_fill(b, &c);
  EXPECT_EQ(c.src_stride_pixels, 10);
  EXPECT_EQ(c.src_columns, 4);
  EXPECT_EQ(c.src_width, 12);
  EXPECT_EQ(c.src_column_start, 18);
  EXPECT_EQ(c.dst_stride_pixels, 20);
  EXPECT_EQ(c.dst_columns, 8);
  EXPECT_EQ(c.dst_width, 24);
  EXPECT_EQ(c.dst_column_start, 9);
  // A region past the image's bottom is cut.
  b.In.Buffer.Region.ptOffset.y = 2;
  b.In.Buffer.Region.ulHeight = 5;
  framedsp::lctrl_fill(b, &c);
  EXPECT_EQ(c.src_height, 2);
  EXPECT_EQ(c.src_line_start, 2);
}

TEST(LCtrl, OddWidth422RoundsToPairs) {
  uint8_t dummy[64];
  Case k{0, 0, 2, 2, 0, 0, 0, 4, 4, 4, 4, 0, 0};
  DSP_BUFFER b = make_record(k, dummy, dummy);
  for (uint32_t format : {21u, 25u}) {
    b.In.ePixelFormat = b.Out.ePixelFormat = format;
    b.In.ulPrimaryStrideBytes = b.Out.ulPrimaryStrideBytes = 64;
    b.In.Buffer.Region.ptOffset.x = 3;
    b.In.Buffer.Region.ulWidth = 11;
    LCtrl c;
    framedsp::lctrl_fill(b, &c);
    EXPECT_EQ(c.src_columns, 10) << format;
    EXPECT_EQ(c.src_column_start, 4) << format;  // column 2, 2 bytes a pixel
    EXPECT_EQ(c.src_width, 20) << format;
  }
}

TEST(LCtrl, RegionAtTheLastLineKeepsReadingIt) {
  // Six output lines from a source region that starts two lines above the source's end.
  Case k{0, 0, 2, 2, 0, 0, 0, 6, 2, 6, 6, 4, 0};
  for (uint32_t orient = 0; orient < 2; ++orient) {
    k.in_orient = orient;
    bool ok = false;
    const std::vector<int> got = run_case(k, &ok);
    EXPECT_TRUE(ok);
    if (orient == 0) { EXPECT_EQ(got, (std::vector<int>{4, 5, 5, 5, 5, 5})); }
    else EXPECT_EQ(got, (std::vector<int>{1, 0, 0, 0, 0, 0}));
  }
}

TEST(Band, FourBandsOver487LeaveTheLastTwoLines) {
  Case k{2, 2, 2, 2, 0, 0, 0, 487, 487, 487, 487, 0, 0, 4, 0};
  GuardedBuffer src(487 * kStride), dst(487 * kStride, 32, kUntouched);
  fill_source(src.data(), 487);
  for (uint32_t n = 1; n <= 4; ++n) {
    k.slice = n;
    walk_copy(make_record(k, src.data(), dst.data()));
  }
  const std::vector<int> got = read_map(dst.data(), 487);
  for (int m = 0; m < 485; ++m) ASSERT_EQ(got[static_cast<size_t>(m)], m) << m;
  EXPECT_EQ(got[485], -1);
  EXPECT_EQ(got[486], -1);
  EXPECT_TRUE(dst.intact());
}

TEST(LCtrl, DumpListsTheFieldsInOrder) {
  uint8_t dummy[64];
  Case k{2, 2, 0, 0, 1, 0, 0, 8, 8, 8, 8, 0, 0};
  DSP_BUFFER b = make_record(k, dummy, dummy);
  LCtrl c;
  framedsp::lctrl_fill(b, &c);
  char text[4096];
  const int n = framedsp::lctrl_format_dump(c, "geometry", text, sizeof text);
  ASSERT_GT(n, 0);
  ASSERT_LT(n, static_cast<int>(sizeof text));
  const std::string s(text);
  EXPECT_EQ(s.rfind("geometry\n\nLCtrl->line_step: 2\nLCtrl->number_of_runs: 2\nLCtrl->field: 0\n"
                    "LCtrl->even_odd: -2\nLCtrl->progressive_interlace: 1\n"
                    "LCtrl->start_line_offset: 0\n\nLCtrl->src_line_offset: 1\n",
                    0),
            0u);
  EXPECT_NE(s.find("LCtrl->src_line_start_offset: 0\n\nLCtrl->dst_increment: 40\n"), std::string::npos);
  const std::string last = "\nLCtrl->dst_line_start_offset: 0\n";
  EXPECT_EQ(s.substr(s.size() - last.size()), last);
  // 6 + 20 + 18 fields, two empty lines and the title's two.
  EXPECT_EQ(std::count(s.begin(), s.end(), '\n'), 6 + 20 + 18 + 2 + 2);
  char small[16];
  EXPECT_EQ(framedsp::lctrl_format_dump(c, "geometry", small, sizeof small), n);
  EXPECT_STREQ(small, "geometry\n\nLCtrl");
}
