// FIR line kernels, every table entry (horizontal per layout class and taps, vertical on bytes and
// on 16-bit lanes, and the vertical kernels of the fractional-region filter): the scalar kernel
// against a per-sample formula written here, edge rules included, and every SIMD kernel against
// the scalar one, over the kernel-check lines with real and adversarial coefficients.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "filter/fir_kernels.h"
#include "filter/fir_tables.h"
#include "fir_formula.h"
#include "platform/cpu.h"
#include "test_util.h"

namespace {

using framedsp::FirTap;
using framedsp_test::GuardedBuffer;

constexpr int kTaps[7] = {3, 5, 7, 9, 11, 13, 15};

// Large taps of alternating sign, mirrored: sums far outside 0..255 on both sides.
std::vector<FirTap> adversarial(int taps) {
  std::vector<FirTap> c(static_cast<size_t>(taps));
  for (int i = 0; i < taps; ++i) {
    const int k = std::min(i, taps - 1 - i);
    for (auto &l : c[size_t(i)].lane) l = int16_t((k % 2 ? -1 : 1) * (3000 + 1700 * k));
  }
  return c;
}

// Entries: 0..83 horizontal (7 * class + tap index), then by tap index 84.. vertical, 91..
// vertical on lanes, 98.. fractional vertical, 105.. fractional vertical on lanes.
constexpr int kEntries = framedsp::kFirHorzEntries + 28;

struct Tables {
  framedsp::FirKernelTable whole;
  framedsp::FirSubKernelTable sub;
  explicit Tables(uint32_t flags) {
    framedsp::fir_table_init(&whole, flags);
    framedsp::fir_sub_table_init(&sub, flags);
  }
  // Vertical entry v (0.. after the horizontal ones).
  framedsp::FirVertKernel vertical(int v) const {
    const framedsp::FirVertKernel *const kinds[4] = {whole.vert, whole.vert16, sub.vert, sub.vert16};
    return kinds[v / 7][v % 7];
  }
  uintptr_t entry(int e) const {
    const int v = e - framedsp::kFirHorzEntries;
    return v < 0 ? reinterpret_cast<uintptr_t>(whole.horz[e]) : reinterpret_cast<uintptr_t>(vertical(v));
  }
};

std::string entry_name(int e) {
  if (e < framedsp::kFirHorzEntries) return "h_class" + std::to_string(e / 7) + "_t" + std::to_string(kTaps[e % 7]);
  const int v = e - framedsp::kFirHorzEntries;
  static const char *const kKind[] = {"v_t", "v16_t", "sv_t", "sv16_t"};
  return kKind[v / 7] + std::to_string(kTaps[v % 7]);
}

// One call of entry e on a line of n bytes at `lead` into dst: horizontal on one line, vertical at
// every row of an image of `h` rows of n bytes (pitch n + 3, bottom-up or not, the last row against
// the protected page) into dst + row * n.
struct Call {
  int e, taps, h, shift;
  bool bottom_up;
  const FirTap *coef;
};

void run(const Tables &t, const Call &c, const uint8_t *src, size_t n, size_t lead, uint8_t *dst) {
  const int v = c.e - framedsp::kFirHorzEntries;
  const size_t trail = (n + 32 - lead) % 16;
  if (v < 0) return t.whole.horz[c.e](src, dst, n, c.coef, lead, trail);
  const ptrdiff_t pitch = c.bottom_up ? -ptrdiff_t(n + 3) : ptrdiff_t(n + 3);
  const uint8_t *row0 = src + (c.bottom_up ? size_t(c.h - 1) * (n + 3) : 0);
  for (int r = 0; r < c.h; ++r) {
    uint8_t *out = dst + size_t(r) * n;
    const size_t l = (lead + size_t(r) * 5) % 16, tr = (n + 32 - l) % 16;
    t.vertical(v)(row0 + r * pitch, out, c.h, r, n, pitch, l, tr, c.shift, c.coef);
  }
}

std::vector<uint8_t> formula(const Call &c, const uint8_t *src, size_t n) {
  const int v = c.e - framedsp::kFirHorzEntries;
  std::vector<uint8_t> out(size_t(c.h) * n);
  if (v < 0) {
    fir_formula::horizontal(c.coef, c.taps, c.e / 7, src, n, out.data());
    return out;
  }
  auto row = [&](int y) { return src + size_t(c.bottom_up ? c.h - 1 - y : y) * (n + 3); };
  for (int r = 0; r < c.h; ++r) {  // the 16-bit lanes' high bytes are 0
    for (size_t p = 0; p < n; ++p) {
      const uint8_t model = fir_formula::vertical(c.coef, c.taps, row, c.h, r, p, 1 << c.shift, v >= 14);
      out[size_t(r) * n + p] = (v % 14) >= 7 && (p & 1) ? 0 : model;
    }
  }
  return out;
}

class FirKernel : public ::testing::TestWithParam<int> {};

TEST_P(FirKernel, ScalarFollowsTheFormulaAndSimdEqualsScalar) {
  const int e = GetParam(), taps = kTaps[e % 7];  // 84 entries before the vertical ones
  const bool vertical = e >= framedsp::kFirHorzEntries;
  const Tables scalar(0);
  std::vector<Tables> simd;
  for (uint32_t level : framedsp_test::simd_levels()) {
    if (Tables(level).entry(e) != scalar.entry(e)) simd.emplace_back(level);
  }
  if (framedsp::simd_twins_built() && !framedsp_test::simd_levels().empty()) {
    EXPECT_FALSE(simd.empty()) << "no SIMD kernel for " << entry_name(e);
  }
  const std::vector<FirTap> adv = adversarial(taps);
  const FirTap *sets[3] = {framedsp::fir_coefficients(uint32_t(taps), 50), framedsp::fir_coefficients(uint32_t(taps), 5),
                           adv.data()};
  std::mt19937 rng(framedsp_test::test_seed() + uint32_t(e));
  framedsp_test::for_each_line(vertical ? 100 : 300, vertical ? 8 : 30, rng, [&](size_t n, size_t lead, int kind) {
    const int h = vertical ? 1 + int(n + lead) % 12 : 1;
    const Call c{e, taps, h, int(lead & 1), (lead & 2) != 0, sets[(n + lead + size_t(kind)) % 3]};
    const size_t bytes = vertical ? size_t(h) * (n + 3) - 3 : n;
    GuardedBuffer &src = framedsp_test::scratch(0, bytes, 0), &want = framedsp_test::scratch(1, size_t(h) * n, 16, 0x77),
                  &got = framedsp_test::scratch(2, size_t(h) * n, 16, 0x77);
    framedsp_test::fill_line(src.data(), bytes, kind, rng);
    const std::vector<uint8_t> model = formula(c, src.data(), n);
    run(scalar, c, src.data(), n, lead, want.data());
    const std::string what = entry_name(e) + " len " + std::to_string(n) + " lead " + std::to_string(lead) + " rows " +
                             std::to_string(h) + " kind " + std::to_string(kind);
    ASSERT_TRUE(want.intact()) << what << " " << want.damage();
    ASSERT_TRUE(framedsp_test::same_line(model.data(), want.data(), model.size())) << what << " scalar";
    for (const Tables &t : simd) {
      std::memset(got.data(), 0x77, got.size());
      run(t, c, src.data(), n, lead, got.data());
      ASSERT_TRUE(got.intact()) << what << " " << got.damage();
      ASSERT_TRUE(framedsp_test::same_line(want.data(), got.data(), got.size())) << what << " simd";
    }
  });
}

INSTANTIATE_TEST_SUITE_P(Entries, FirKernel, ::testing::Range(0, kEntries),
                         [](const auto &info) { return entry_name(info.param); });

}  // namespace
