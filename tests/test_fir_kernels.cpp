// FIR line kernels: every table entry, scalar against SSE2 byte for byte over many lengths, leads
// and sample patterns with guarded memory, and the scalar kernels against a per-sample formula
// written here (edge rules included).  Vertical edge offsets checked as row lists.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "filter/fir_kernels.h"
#include "filter/fir_tables.h"
#include "frame/cpu.h"
#include "test_util.h"

namespace {

using framedsp::FirKernelTable;
using framedsp::FirTap;
using framedsp_test::GuardedBuffer;

constexpr int kTaps[7] = {3, 5, 7, 9, 11, 13, 15};
// Class distances restated independently: distance per byte offset, 0 = copied byte.
int ref_distance(int cls, size_t p) {
  switch (cls) {
    case 0: return p % 2 ? 2 : 4;
    case 1: return p % 4 < 2 ? 4 : 0;
    case 2: return p % 2 ? 4 : 2;
    case 3: case 5: return 4;
    case 4: return 3;
    case 6: return 1;
    case 7: return p % 2 ? 0 : (p % 4 == 0 ? 8 : 4);
    case 8: return p % 2 ? 0 : (p % 4 == 0 ? 4 : 8);
    case 9: return p % 2 ? 0 : 6;
    case 10: return p % 2 ? 0 : 8;
    case 11: return p % 2 ? 0 : 2;
  }
  return -1;
}

int clamp_out(int64_t acc) {
  const int64_t v = (acc + 256) >> 9;
  return v < 0 ? 0 : (v > 255 ? 255 : static_cast<int>(v));
}

std::vector<uint8_t> ref_horizontal(int cls, int taps, const uint8_t *src, size_t n,
                                    const FirTap *c) {
  std::vector<uint8_t> out(n);
  const int half = (taps - 1) / 2;
  for (size_t p = 0; p < n; ++p) {
    const int d = ref_distance(cls, p);
    if (d == 0) { out[p] = src[p]; continue; }
    int64_t acc = int64_t{c[half].lane[0]} * src[p];
    for (int k = 1; k <= half; ++k) {
      const long l = static_cast<long>(p) - k * d, r = static_cast<long>(p) + k * d;
      const int xl = l >= 0 ? src[l] : src[p];
      const int xr = r <= static_cast<long>(n) - 2 ? src[r] : src[p];  // last byte never a right tap
      acc += int64_t{c[half - k].lane[0]} * (xl + xr);
    }
    out[p] = static_cast<uint8_t>(clamp_out(acc));
  }
  return out;
}

// Rows read by a vertical kernel of `taps` at row r (picture order), top to bottom.
std::vector<int> ref_rows(int taps, int h, int r, int s) {
  const int half = (taps - 1) / 2;
  std::vector<int> up(half + 1, 0), down(half + 1, 0);
  for (int k = 1; k <= half; ++k) {
    up[k] = r - k * s >= 0 ? -k * s : up[k - 1];
    down[k] = r + 2 * k * s <= h - 1 ? k * s : down[k - 1];
  }
  std::vector<int> rows;
  for (int k = half; k >= 1; --k) rows.push_back(r + up[k]);
  rows.push_back(r);
  for (int k = 1; k <= half; ++k) rows.push_back(r + down[k]);
  return rows;
}

// Coefficient sets: real rows plus an adversarial one with large alternating taps.
struct Coefs {
  std::vector<FirTap> taps;
};
Coefs adversarial(int n) {
  Coefs c;
  c.taps.resize(n);
  for (int i = 0; i < n; ++i) {
    const int16_t v = static_cast<int16_t>((i % 2 ? -1 : 1) * (300 + 37 * i));
    const int16_t mirrored = static_cast<int16_t>(((n - 1 - i) % 2 ? -1 : 1) * (300 + 37 * (n - 1 - i)));
    const int16_t use = i <= (n - 1) / 2 ? v : mirrored;
    for (auto &l : c.taps[i].lane) l = use;
  }
  return c;
}

enum Pattern { kRandom, kZero, kFull, kAlternate };
void fill(uint8_t *p, size_t n, Pattern pat, std::mt19937 &rng) {
  for (size_t i = 0; i < n; ++i) {
    switch (pat) {
      case kRandom: p[i] = static_cast<uint8_t>(rng()); break;
      case kZero: p[i] = 0; break;
      case kFull: p[i] = 255; break;
      case kAlternate: p[i] = (i / 2) % 2 ? 255 : 0; break;
    }
  }
}

std::string entry_name(int e) {
  if (e < framedsp::kFirHorzEntries) {
    return "fir_h_class" + std::to_string(e / 7) + "_t" + std::to_string(kTaps[e % 7]);
  }
  const int v = e - framedsp::kFirHorzEntries;
  return (v < 7 ? "fir_v_t" : "fir_v16_t") + std::to_string(kTaps[v % 7]);
}

// The scalar table and the table of one ISA level: `isa` limits the CPU flags, so the SSE2 steps
// are checked on their own even where AVX2 would replace them.
struct Tables {
  FirKernelTable c, simd;
  explicit Tables(uint32_t isa = ~0u) {
    framedsp::fir_table_init(&c, 0);
    framedsp::fir_table_init(&simd, framedsp::cpu_flags() & isa);
  }
};

// ISA levels the checker runs: SSE2 alone, then everything the CPU has.
const uint32_t kIsaLevels[] = {framedsp::kCpuSSE2, ~0u};
const char *isa_name(uint32_t isa) { return isa == framedsp::kCpuSSE2 ? "sse2" : "best"; }
void skip_without(uint32_t isa) {
  if (isa == framedsp::kCpuSSE2 && !(framedsp::cpu_flags() & framedsp::kCpuSSE2)) {
    GTEST_SKIP() << "no SSE2 on this machine";
  }
}

std::vector<size_t> lengths() {
  std::vector<size_t> l;
  for (size_t n = 0; n <= 300; ++n) l.push_back(n);
  l.push_back(1440);
  l.push_back(3840 + 7);
  return l;
}

class FirHorzTest : public ::testing::TestWithParam<std::tuple<int, uint32_t>> {};

TEST_P(FirHorzTest, ScalarMatchesFormulaAndSimdMatchesScalar) {
  const int e = std::get<0>(GetParam());
  const int cls = e / 7, taps = kTaps[e % 7];
  skip_without(std::get<1>(GetParam()));
  Tables t(std::get<1>(GetParam()));
  const uint32_t seed = framedsp_test::test_seed() + static_cast<uint32_t>(e);
  std::mt19937 rng(seed);
  const Coefs adv = adversarial(taps);
  const FirTap *sets[3] = {framedsp::fir_coefficients(taps, 50), framedsp::fir_coefficients(taps, 5),
                           adv.taps.data()};
  for (size_t n : lengths()) {
    GuardedBuffer src(n, 0);  // the line ends against the protected page
    GuardedBuffer dc(n + 16), ds(n + 16);
    for (int pat = 0; pat < 4; ++pat) {
      fill(src.data(), n, static_cast<Pattern>(pat), rng);
      for (int set = 0; set < 3; ++set) {
        const std::vector<uint8_t> want = ref_horizontal(cls, taps, src.data(), n, sets[set]);
        const size_t leads = n > 600 ? 16 : (pat == 0 ? 16 : 1);
        for (size_t lead = 0; lead < leads; ++lead) {
          const size_t trail = (n + 16 - lead) % 16;
          t.c.horz[e](src.data(), dc.data(), n, sets[set], lead, trail);
          t.simd.horz[e](src.data(), ds.data(), n, sets[set], lead, trail);
          const auto where = ::testing::Message() << entry_name(e) << " len " << n << " lead " << lead << " set "
                                                  << set << " pattern " << pat << " seed " << seed;
          ASSERT_TRUE(n == 0 || std::memcmp(want.data(), dc.data(), n) == 0)
              << where << " isa c\n" << framedsp_test::hex_diff(want.data(), dc.data(), n);
          ASSERT_TRUE(n == 0 || std::memcmp(dc.data(), ds.data(), n) == 0)
              << where << " isa sse2\n" << framedsp_test::hex_diff(dc.data(), ds.data(), n);
          ASSERT_TRUE(dc.intact() && ds.intact()) << where << " " << dc.damage() << ds.damage();
        }
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Entries, FirHorzTest,
    ::testing::Combine(::testing::Range(0, framedsp::kFirHorzEntries), ::testing::ValuesIn(kIsaLevels)),
    [](const ::testing::TestParamInfo<std::tuple<int, uint32_t>> &i) {
      return entry_name(std::get<0>(i.param)) + "_" + isa_name(std::get<1>(i.param));
    });

class FirVertTest : public ::testing::TestWithParam<std::tuple<int, uint32_t>> {};

TEST_P(FirVertTest, ScalarMatchesFormulaAndSimdMatchesScalar) {
  const int v = std::get<0>(GetParam());
  skip_without(std::get<1>(GetParam()));
  const bool lanes = v >= 7;
  const int taps = kTaps[v % 7];
  Tables t(std::get<1>(GetParam()));
  const uint32_t seed = framedsp_test::test_seed() + 1000u + static_cast<uint32_t>(v);
  std::mt19937 rng(seed);
  const Coefs adv = adversarial(taps);
  const FirTap *sets[2] = {framedsp::fir_coefficients(taps, 30), adv.taps.data()};
  const framedsp::FirVertKernel kc = lanes ? t.c.vert16[v % 7] : t.c.vert[v % 7];
  const framedsp::FirVertKernel ks = lanes ? t.simd.vert16[v % 7] : t.simd.vert[v % 7];
  const int h = 11;
  for (size_t n : lengths()) {
    if (n > 300 && n != 1440) continue;
    // h rows of n bytes, row stride n + 3, ending against the protected page.
    const size_t stride = n + 3;
    GuardedBuffer img(stride * (h - 1) + n, 0);
    GuardedBuffer dc(n + 16), ds(n + 16);
    fill(img.data(), img.size(), n % 3 ? kRandom : static_cast<Pattern>(n % 4), rng);
    for (int f = 0; f <= 1; ++f) {
      for (int bottom_up = 0; bottom_up <= 1; ++bottom_up) {
        for (int r = 0; r < h; ++r) {
          const int mem_row = bottom_up ? h - 1 - r : r;
          const ptrdiff_t pstride = bottom_up ? -static_cast<ptrdiff_t>(stride) : static_cast<ptrdiff_t>(stride);
          const uint8_t *centre = img.data() + mem_row * stride;
          const std::vector<int> rows = ref_rows(taps, h, r, 1 << f);
          const int set = r % 2;
          const FirTap *c = sets[set];
          std::vector<uint8_t> want(n);
          for (size_t p = 0; p < n; ++p) {
            if (lanes && p % 2) { want[p] = 0; continue; }
            int64_t acc = 0;
            for (int i = 0; i < taps; ++i) {
              const int row = rows[i];
              const int mr = bottom_up ? h - 1 - row : row;
              acc += int64_t{c[i].lane[0]} * img.data()[mr * stride + p];
            }
            want[p] = static_cast<uint8_t>(clamp_out(acc));
          }
          const size_t lead = (static_cast<size_t>(r) * 5 + n) % 16;
          const size_t trail = (n + 32 - lead) % 16;
          kc(centre, dc.data(), h, r, n, pstride, lead, trail, f, c);
          ks(centre, ds.data(), h, r, n, pstride, lead, trail, f, c);
          const auto where = ::testing::Message() << entry_name(framedsp::kFirHorzEntries + v) << " len " << n
                                                  << " lead " << lead << " r " << r << " f " << f << " up "
                                                  << bottom_up << " seed " << seed;
          ASSERT_TRUE(n == 0 || std::memcmp(want.data(), dc.data(), n) == 0)
              << where << " isa c\n" << framedsp_test::hex_diff(want.data(), dc.data(), n);
          ASSERT_TRUE(n == 0 || std::memcmp(dc.data(), ds.data(), n) == 0)
              << where << " isa sse2\n" << framedsp_test::hex_diff(dc.data(), ds.data(), n);
          ASSERT_TRUE(dc.intact() && ds.intact()) << where;
        }
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Entries, FirVertTest,
                         ::testing::Combine(::testing::Range(0, 14), ::testing::ValuesIn(kIsaLevels)),
                         [](const ::testing::TestParamInfo<std::tuple<int, uint32_t>> &i) {
                           return entry_name(framedsp::kFirHorzEntries + std::get<0>(i.param)) + "_" +
                                  isa_name(std::get<1>(i.param));
                         });

// Known row lists: the kernel reads only these rows (each row filled with its own index, a
// one-hot coefficient set picks out a single tap position).
TEST(FirVertOffsets, KnownRows) {
  EXPECT_EQ((std::vector<int>{5, 6, 7, 8, 8}), ref_rows(5, 10, 7, 1));
  EXPECT_EQ((std::vector<int>{0, 0, 0, 0, 1, 2, 3}), ref_rows(7, 10, 0, 1));
  EXPECT_EQ((std::vector<int>{0, 0, 0, 1, 2, 3, 4}), ref_rows(7, 10, 1, 1));
  EXPECT_EQ((std::vector<int>{1, 1, 3, 5, 5}), ref_rows(5, 10, 3, 2));
  Tables t;
  for (int s = 1; s <= 2; ++s) {
    for (int r = 0; r < 10; ++r) {
      const std::vector<int> rows = ref_rows(5, 10, r, s);
      for (int tap = 0; tap < 5; ++tap) {
        std::vector<uint8_t> img(10 * 16);
        for (int y = 0; y < 10; ++y) std::memset(&img[y * 16], 10 * y + 5, 16);
        std::vector<FirTap> c(5);
        for (auto &x : c) for (auto &l : x.lane) l = 0;
        // tap and its mirror both point at one pair; use the centre alone for tap 2.
        const int k = tap < 2 ? 2 - tap : tap - 2;
        for (auto &l : c[2 - k].lane) l = k == 0 ? 512 : 256;
        alignas(16) uint8_t out[16];
        t.simd.vert[1](&img[r * 16], out, 10, r, 16, 16, 0, 0, s - 1, c.data());
        const int expect = k == 0 ? 10 * r + 5 : ((10 * rows[2 - k] + 5) + (10 * rows[2 + k] + 5) + 1) / 2;
        EXPECT_EQ(expect, out[0]) << "s " << s << " r " << r << " k " << k;
        if (s == 2) {
          EXPECT_EQ(r % 2, rows[2 - k] % 2);
          EXPECT_EQ(r % 2, rows[2 + k] % 2);
        }
      }
    }
  }
}

TEST(FirKernels, SimdEntriesPresent) {
  if (!(framedsp::cpu_flags() & framedsp::kCpuSSE2) || !(framedsp::fir_isas_built() & framedsp::kCpuSSE2)) {
    GTEST_SKIP() << "no SSE2 kernels on this machine or build";
  }
  Tables t;
  for (int e = 0; e < framedsp::kFirHorzEntries; ++e) EXPECT_NE(t.c.horz[e], t.simd.horz[e]) << entry_name(e);
  for (int v = 0; v < 7; ++v) {
    EXPECT_NE(t.c.vert[v], t.simd.vert[v]);
    EXPECT_NE(t.c.vert16[v], t.simd.vert16[v]);
  }
}

TEST(FirKernels, LayoutClassAndTapIndex) {
  const uint32_t formats[] = {21, 24, 25, 17, 1, 0, 261, 22, 31, 23, 129, 262};
  for (int i = 0; i < 12; ++i) EXPECT_EQ(i, framedsp::fir_layout_class(formats[i]));
  EXPECT_EQ(0, framedsp::fir_layout_class(999));
  EXPECT_EQ(0, framedsp::fir_tap_index(4));
  EXPECT_EQ(5, framedsp::fir_tap_index(14));
  EXPECT_EQ(6, framedsp::fir_tap_index(15));
  EXPECT_EQ(-1, framedsp::fir_tap_index(2));
}

}  // namespace
