// FIR coefficient tables and their (taps, cut-off) lookup.  The expected half-rows below are typed
// from the coefficient tables (outer tap first, centre last); the test mirrors them itself and
// reads the library's tables byte by byte, so tap values, placement, mirroring (symmetry), the
// eight-fold replication, the 16 * N row stride and the alignment are all checked against this copy.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "filter/fir_tables.h"

using framedsp::FirTap;

namespace {

// clang-format off
const int kHalf3[19][2] = {
    {13,486}, {25,462}, {37,438}, {50,412}, {62,388}, {73,365}, {84,344}, {94,323}, {104,304},
    {113,287}, {121,270}, {128,255}, {135,241}, {142,229}, {147,217}, {153,207}, {157,197},
    {162,188}, {163,186},
};
const int kHalf5[19][3] = {
    {-1,14,486}, {-2,28,460}, {-2,41,435}, {-2,53,410}, {-2,65,385}, {0,76,361}, {2,85,337},
    {4,94,316}, {4,108,288}, {15,105,271}, {21,109,251}, {28,112,231}, {36,114,213}, {44,114,195},
    {53,114,178}, {62,113,162}, {72,111,147}, {82,108,132}, {92,105,117},
};
const int kHalf7[19][4] = {
    {1,-8,20,487}, {2,-16,39,462}, {2,-22,58,436}, {3,-25,74,411}, {2,-27,89,384}, {1,-25,102,357},
    {0,-22,113,331}, {-1,-16,120,307}, {-2,-8,125,282}, {-1,1,127,257}, {1,11,128,233},
    {4,21,126,210}, {9,31,122,188}, {15,40,117,168}, {23,48,111,149}, {31,55,104,132},
    {41,61,96,116}, {51,65,89,101}, {62,70,81,87},
};
const int kHalf9[19][5] = {
    {-1,6,-14,22,486}, {-1,9,-26,44,460}, {-1,12,-36,64,435}, {-1,12,-43,83,410}, {0,9,-45,100,384},
    {1,4,-43,114,359}, {1,-2,-36,126,334}, {1,-8,-26,135,308}, {1,-11,-14,140,281},
    {0,-13,0,142,254}, {-1,-11,13,140,230}, {-1,-7,27,135,205}, {0,0,38,128,181}, {4,8,46,119,158},
    {9,18,53,108,136}, {15,27,58,98,116}, {24,36,59,87,100}, {34,44,59,77,84}, {45,50,58,67,70},
};
const int kHalf11[19][6] = {
    {1,-4,10,-17,23,486}, {1,-7,18,-33,46,461}, {1,-7,22,-46,68,435}, {0,-4,21,-54,88,410},
    {-1,0,16,-56,105,384}, {-1,5,7,-54,120,358}, {-1,7,-4,-46,133,333}, {0,7,-13,-33,142,307},
    {1,4,-20,-17,147,283}, {1,0,-23,0,149,257}, {1,-4,-20,17,147,230}, {0,-7,-13,33,141,205},
    {-1,-7,-4,45,133,180}, {-1,-3,8,54,121,154}, {2,3,19,59,108,131}, {8,11,28,60,94,110},
    {15,20,36,59,81,90}, {23,30,41,56,69,74}, {35,38,44,51,57,62},
};
const int kHalf13[19][7] = {
    {-1,4,-8,14,-20,24,486}, {-1,5,-13,24,-37,47,461}, {0,3,-13,30,-51,70,434},
    {1,0,-8,29,-60,90,408}, {1,-3,0,21,-63,108,384}, {1,-5,8,9,-60,124,358},
    {0,-3,13,-5,-51,136,333}, {-1,2,13,-18,-40,146,308}, {-1,4,8,-27,-20,151,282},
    {0,5,0,-30,0,153,256}, {1,3,-8,-27,20,151,231}, {1,0,-13,-18,37,146,206},
    {0,-2,-13,-5,51,136,178}, {-1,-4,-8,9,60,124,152}, {0,-3,1,21,64,109,128},
    {2,3,11,31,63,93,105}, {8,11,21,38,59,77,85}, {17,21,29,40,53,63,67}, {30,30,33,38,45,52,55},
};
const int kHalf15[19][8] = {
    {1,-3,6,-11,16,-21,24,486}, {1,-3,9,-18,29,-40,48,461}, {0,-1,6,-18,35,-55,71,435},
    {-1,2,0,-11,34,-64,91,410}, {-1,4,-6,0,25,-68,110,384}, {0,2,-9,11,11,-64,126,358},
    {1,-1,-6,18,-6,-55,139,333}, {1,-3,0,18,-21,-40,148,307}, {0,-3,6,11,-32,-21,154,282},
    {-1,0,9,0,-35,0,156,256}, {0,3,6,-11,-32,21,154,230}, {1,3,0,-18,-21,40,148,205},
    {1,1,-6,-18,-6,55,139,180}, {0,-2,-9,-11,11,64,126,152}, {-1,-3,-6,0,25,68,110,127},
    {0,-1,1,12,35,65,92,103}, {4,5,11,22,39,59,75,81}, {12,14,20,29,40,51,59,62},
    {22,24,28,32,38,42,46,47},
};
// clang-format on

// One table seen as raw storage, next to the expected half-rows.
struct Table {
  int taps;
  const void *storage;   // row 0, tap 0
  size_t bytes;          // sizeof the whole table
  const int *half;       // kFirRowCount rows of (taps + 1) / 2 values
};

template <int N, size_t H>
Table view(const int (&half)[19][H]) {
  static_assert(H == (N + 1) / 2, "half-row width");
  const auto &table = framedsp::fir_table<N>();
  return Table{N, table.data(), sizeof table, &half[0][0]};
}

std::vector<Table> tables() {
  return {view<3>(kHalf3),   view<5>(kHalf5),   view<7>(kHalf7),   view<9>(kHalf9),
          view<11>(kHalf11), view<13>(kHalf13), view<15>(kHalf15)};
}

// Expected coefficient of tap i: the half-row read outward from the centre on the right side.
int expected_tap(const Table &t, int row, int i) {
  const int width = (t.taps + 1) / 2;
  const int from = i < width ? i : t.taps - 1 - i;
  return t.half[row * width + from];
}

int16_t stored(const Table &t, size_t offset) {
  int16_t v;
  std::memcpy(&v, static_cast<const unsigned char *>(t.storage) + offset, sizeof v);
  return v;
}

class FirTableTest : public ::testing::TestWithParam<int> {
 protected:
  Table table() const { return tables()[GetParam()]; }
};

TEST_P(FirTableTest, EveryTapOfEveryRowReplicatedEightTimesAligned) {
  const Table t = table();
  const size_t row_bytes = 16u * t.taps;  // a multiple of 16: every row starts on a register boundary
  ASSERT_EQ(t.bytes, row_bytes * framedsp::kFirRowCount);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(t.storage) % 16, 0u);
  for (int row = 0; row < framedsp::kFirRowCount; ++row) {
    for (int i = 0; i < t.taps; ++i) {
      for (int lane = 0; lane < 8; ++lane) {
        const size_t at = row * row_bytes + 16u * i + 2u * lane;
        ASSERT_EQ(stored(t, at), expected_tap(t, row, i))
            << t.taps << " taps, row " << row << ", tap " << i << ", lane " << lane;
      }
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
      for (int i = 0; got && i < table; ++i) {  // the row of the cut-off, read through the pointer
        ASSERT_EQ(got[i].lane[i % 8], expected_tap(tables()[(table - 3) / 2], row_for[c], i)) << taps << "/" << c;
      }
    }
  }
}

}  // namespace
