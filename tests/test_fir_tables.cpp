// FIR coefficient tables and their (taps, cut-off) lookup, read byte by byte from the library's
// storage: every row's DC gain as designed (512 give or take the rounding of its taps, so any
// changed coefficient shows), mirror symmetry, a centre tap that falls with the cut-off, the
// eight-fold replication, the 16 * N row stride and the alignment.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "filter/fir_tables.h"

using framedsp::FirTap;

namespace {

// Sum of the taps of every row, rows 0..18 (cut-off 95..99 first), tables of 3..15 taps.
const int kGain[7][19] = {
    {512, 512, 512, 512, 512, 511, 512, 511, 512, 513, 512, 511, 511, 513, 511, 513, 511, 512, 512},
    {512, 512, 513, 512, 511, 513, 511, 512, 512, 511, 511, 511, 513, 511, 512, 512, 513, 512, 511},
    {513, 512, 512, 515, 512, 513, 513, 513, 512, 511, 513, 512, 512, 512, 513, 512, 512, 511, 513},
    {512, 512, 513, 512, 512, 511, 512, 512, 513, 512, 512, 513, 513, 512, 512, 512, 512, 512, 510},
    {512, 511, 511, 512, 512, 512, 511, 513, 513, 511, 512, 513, 512, 512, 513, 512, 512, 512, 512},
    {512, 511, 512, 512, 512, 512, 513, 512, 512, 512, 511, 512, 512, 512, 512, 511, 513, 513, 511},
    {510, 513, 511, 512, 512, 512, 513, 513, 512, 514, 512, 511, 512, 510, 513, 511, 511, 512, 511},
};

// One table seen as raw storage.
struct Table {
  int taps;
  const void *storage;  // row 0, tap 0
  size_t bytes;         // sizeof the whole table
  int16_t at(int row, int tap, int lane) const {
    int16_t v;
    std::memcpy(&v, static_cast<const unsigned char *>(storage) + 16u * (taps * row + tap) + 2u * lane, sizeof v);
    return v;
  }
};

template <int N>
Table view() {
  const auto &table = framedsp::fir_table<N>();
  return Table{N, table.data(), sizeof table};
}

std::vector<Table> tables() { return {view<3>(), view<5>(), view<7>(), view<9>(), view<11>(), view<13>(), view<15>()}; }

class FirTableTest : public ::testing::TestWithParam<int> {};

TEST_P(FirTableTest, RowsKeepTheirGainSymmetryAndLayout) {
  const Table t = tables()[GetParam()];
  ASSERT_EQ(t.bytes, 16u * t.taps * framedsp::kFirRowCount);  // rows 16 * N apart: on register boundaries
  EXPECT_EQ(reinterpret_cast<uintptr_t>(t.storage) % 16, 0u);
  for (int row = 0; row < framedsp::kFirRowCount; ++row) {
    SCOPED_TRACE(testing::Message() << t.taps << " taps, row " << row);
    int gain = 0;
    for (int i = 0; i < t.taps; ++i) {
      gain += t.at(row, i, 0);
      ASSERT_EQ(t.at(row, i, 0), t.at(row, t.taps - 1 - i, 0)) << "tap " << i;
      for (int lane = 1; lane < 8; ++lane) ASSERT_EQ(t.at(row, i, lane), t.at(row, i, 0)) << "tap " << i;
    }
    EXPECT_EQ(gain, kGain[GetParam()][row]);
    if (row) {
      EXPECT_LT(t.at(row, t.taps / 2, 0), t.at(row - 1, t.taps / 2, 0)) << "centre tap";
    }
  }
}

INSTANTIATE_TEST_SUITE_P(FirTables, FirTableTest, ::testing::Range(0, 7),
                         [](const ::testing::TestParamInfo<int> &info) {
                           return "t" + std::to_string(3 + 2 * info.param);
                         });

TEST(FirLookup, TapCountsRoundDownToOdd) {
  const int kTable[] = {0, 0, 0, 3, 3, 5, 5, 7, 7, 9, 9, 11, 11, 13, 13, 15, 0, 0, 0};
  for (uint32_t taps = 0; taps < sizeof kTable / sizeof kTable[0]; ++taps) {
    EXPECT_EQ(framedsp::fir_table_taps(taps), kTable[taps]) << taps;
    EXPECT_EQ(framedsp::fir_table_index(taps), kTable[taps] ? (kTable[taps] - 3) / 2 : -1) << taps;
  }
  EXPECT_EQ(framedsp::fir_table_taps(0xFFFFFFFFu), 0);
  EXPECT_EQ(framedsp::fir_table_index(0x80000003u), -1);
  EXPECT_EQ(framedsp::fir_cutoff_row(0xFFFFFFFFu), -1);
}

TEST(FirLookup, EveryTapCountAndCutoff) {
  // Model built the other way round: each row owns the five cut-offs 5 * (19 - row) .. + 4, and
  // row 18 also takes 0..4.
  int row_for[100];
  for (int row = 0; row < 19; ++row) {
    for (int c = 5 * (19 - row); c < 5 * (19 - row) + 5 && c < 100; ++c) row_for[c] = row;
  }
  for (int c = 0; c < 5; ++c) row_for[c] = 18;

  for (uint32_t c = 0; c <= 110; ++c) EXPECT_EQ(framedsp::fir_cutoff_row(c), c < 100 ? row_for[c] : -1) << c;
  for (uint32_t taps = 0; taps <= 20; ++taps) {
    const int table = (taps >= 3 && taps <= 15) ? (taps % 2 ? taps : taps - 1) : 0;
    for (uint32_t c = 0; c <= 110; ++c) {
      const FirTap *got = framedsp::fir_coefficients(taps, c);
      ASSERT_EQ(got != nullptr, table && c < 100) << "taps " << taps << ", cut-off " << c;
      if (got) {  // the row of the cut-off in the table of the taps
        const Table t = tables()[(table - 3) / 2];
        ASSERT_EQ(static_cast<const void *>(got), static_cast<const char *>(t.storage) + 16u * table * row_for[c])
            << taps << "/" << c;
      }
    }
  }
}

}  // namespace
