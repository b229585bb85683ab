#include "filter/fir_tables.h"

namespace framedsp {
namespace {

// Rows as designed: outer tap first, centre tap last; the other half is the mirror image.
template <int N>
using FirHalfTable = std::array<std::array<int16_t, (N + 1) / 2>, kFirRowCount>;

constexpr FirHalfTable<3> kHalf3 = {{
    {{13, 486}},  // 0
    {{25, 462}},  // 1
    {{37, 438}},  // 2
    {{50, 412}},  // 3
    {{62, 388}},  // 4
    {{73, 365}},  // 5
    {{84, 344}},  // 6
    {{94, 323}},  // 7
    {{104, 304}},  // 8
    {{113, 287}},  // 9
    {{121, 270}},  // 10
    {{128, 255}},  // 11
    {{135, 241}},  // 12
    {{142, 229}},  // 13
    {{147, 217}},  // 14
    {{153, 207}},  // 15
    {{157, 197}},  // 16
    {{162, 188}},  // 17
    {{163, 186}},  // 18
}};

constexpr FirHalfTable<5> kHalf5 = {{
    {{-1, 14, 486}},  // 0
    {{-2, 28, 460}},  // 1
    {{-2, 41, 435}},  // 2
    {{-2, 53, 410}},  // 3
    {{-2, 65, 385}},  // 4
    {{0, 76, 361}},  // 5
    {{2, 85, 337}},  // 6
    {{4, 94, 316}},  // 7
    {{4, 108, 288}},  // 8
    {{15, 105, 271}},  // 9
    {{21, 109, 251}},  // 10
    {{28, 112, 231}},  // 11
    {{36, 114, 213}},  // 12
    {{44, 114, 195}},  // 13
    {{53, 114, 178}},  // 14
    {{62, 113, 162}},  // 15
    {{72, 111, 147}},  // 16
    {{82, 108, 132}},  // 17
    {{92, 105, 117}},  // 18
}};

constexpr FirHalfTable<7> kHalf7 = {{
    {{1, -8, 20, 487}},  // 0
    {{2, -16, 39, 462}},  // 1
    {{2, -22, 58, 436}},  // 2
    {{3, -25, 74, 411}},  // 3
    {{2, -27, 89, 384}},  // 4
    {{1, -25, 102, 357}},  // 5
    {{0, -22, 113, 331}},  // 6
    {{-1, -16, 120, 307}},  // 7
    {{-2, -8, 125, 282}},  // 8
    {{-1, 1, 127, 257}},  // 9
    {{1, 11, 128, 233}},  // 10
    {{4, 21, 126, 210}},  // 11
    {{9, 31, 122, 188}},  // 12
    {{15, 40, 117, 168}},  // 13
    {{23, 48, 111, 149}},  // 14
    {{31, 55, 104, 132}},  // 15
    {{41, 61, 96, 116}},  // 16
    {{51, 65, 89, 101}},  // 17
    {{62, 70, 81, 87}},  // 18
}};

constexpr FirHalfTable<9> kHalf9 = {{
    {{-1, 6, -14, 22, 486}},  // 0
    {{-1, 9, -26, 44, 460}},  // 1
    {{-1, 12, -36, 64, 435}},  // 2
    {{-1, 12, -43, 83, 410}},  // 3
    {{0, 9, -45, 100, 384}},  // 4
    {{1, 4, -43, 114, 359}},  // 5
    {{1, -2, -36, 126, 334}},  // 6
    {{1, -8, -26, 135, 308}},  // 7
    {{1, -11, -14, 140, 281}},  // 8
    {{0, -13, 0, 142, 254}},  // 9
    {{-1, -11, 13, 140, 230}},  // 10
    {{-1, -7, 27, 135, 205}},  // 11
    {{0, 0, 38, 128, 181}},  // 12
    {{4, 8, 46, 119, 158}},  // 13
    {{9, 18, 53, 108, 136}},  // 14
    {{15, 27, 58, 98, 116}},  // 15
    {{24, 36, 59, 87, 100}},  // 16
    {{34, 44, 59, 77, 84}},  // 17
    {{45, 50, 58, 67, 70}},  // 18
}};

constexpr FirHalfTable<11> kHalf11 = {{
    {{1, -4, 10, -17, 23, 486}},  // 0
    {{1, -7, 18, -33, 46, 461}},  // 1
    {{1, -7, 22, -46, 68, 435}},  // 2
    {{0, -4, 21, -54, 88, 410}},  // 3
    {{-1, 0, 16, -56, 105, 384}},  // 4
    {{-1, 5, 7, -54, 120, 358}},  // 5
    {{-1, 7, -4, -46, 133, 333}},  // 6
    {{0, 7, -13, -33, 142, 307}},  // 7
    {{1, 4, -20, -17, 147, 283}},  // 8
    {{1, 0, -23, 0, 149, 257}},  // 9
    {{1, -4, -20, 17, 147, 230}},  // 10
    {{0, -7, -13, 33, 141, 205}},  // 11
    {{-1, -7, -4, 45, 133, 180}},  // 12
    {{-1, -3, 8, 54, 121, 154}},  // 13
    {{2, 3, 19, 59, 108, 131}},  // 14
    {{8, 11, 28, 60, 94, 110}},  // 15
    {{15, 20, 36, 59, 81, 90}},  // 16
    {{23, 30, 41, 56, 69, 74}},  // 17
    {{35, 38, 44, 51, 57, 62}},  // 18
}};

constexpr FirHalfTable<13> kHalf13 = {{
    {{-1, 4, -8, 14, -20, 24, 486}},  // 0
    {{-1, 5, -13, 24, -37, 47, 461}},  // 1
    {{0, 3, -13, 30, -51, 70, 434}},  // 2
    {{1, 0, -8, 29, -60, 90, 408}},  // 3
    {{1, -3, 0, 21, -63, 108, 384}},  // 4
    {{1, -5, 8, 9, -60, 124, 358}},  // 5
    {{0, -3, 13, -5, -51, 136, 333}},  // 6
    {{-1, 2, 13, -18, -40, 146, 308}},  // 7
    {{-1, 4, 8, -27, -20, 151, 282}},  // 8
    {{0, 5, 0, -30, 0, 153, 256}},  // 9
    {{1, 3, -8, -27, 20, 151, 231}},  // 10
    {{1, 0, -13, -18, 37, 146, 206}},  // 11
    {{0, -2, -13, -5, 51, 136, 178}},  // 12
    {{-1, -4, -8, 9, 60, 124, 152}},  // 13
    {{0, -3, 1, 21, 64, 109, 128}},  // 14
    {{2, 3, 11, 31, 63, 93, 105}},  // 15
    {{8, 11, 21, 38, 59, 77, 85}},  // 16
    {{17, 21, 29, 40, 53, 63, 67}},  // 17
    {{30, 30, 33, 38, 45, 52, 55}},  // 18
}};

constexpr FirHalfTable<15> kHalf15 = {{
    {{1, -3, 6, -11, 16, -21, 24, 486}},  // 0
    {{1, -3, 9, -18, 29, -40, 48, 461}},  // 1
    {{0, -1, 6, -18, 35, -55, 71, 435}},  // 2
    {{-1, 2, 0, -11, 34, -64, 91, 410}},  // 3
    {{-1, 4, -6, 0, 25, -68, 110, 384}},  // 4
    {{0, 2, -9, 11, 11, -64, 126, 358}},  // 5
    {{1, -1, -6, 18, -6, -55, 139, 333}},  // 6
    {{1, -3, 0, 18, -21, -40, 148, 307}},  // 7
    {{0, -3, 6, 11, -32, -21, 154, 282}},  // 8
    {{-1, 0, 9, 0, -35, 0, 156, 256}},  // 9
    {{0, 3, 6, -11, -32, 21, 154, 230}},  // 10
    {{1, 3, 0, -18, -21, 40, 148, 205}},  // 11
    {{1, 1, -6, -18, -6, 55, 139, 180}},  // 12
    {{0, -2, -9, -11, 11, 64, 126, 152}},  // 13
    {{-1, -3, -6, 0, 25, 68, 110, 127}},  // 14
    {{0, -1, 1, 12, 35, 65, 92, 103}},  // 15
    {{4, 5, 11, 22, 39, 59, 75, 81}},  // 16
    {{12, 14, 20, 29, 40, 51, 59, 62}},  // 17
    {{22, 24, 28, 32, 38, 42, 46, 47}},  // 18
}};

// Mirrors each half-row into N taps and replicates every tap across the eight lanes.
template <int N>
constexpr FirTable<N> expand(const FirHalfTable<N> &half) {
  static_assert(N % 2 == 1 && N >= kFirMinTaps && N <= kFirMaxTaps, "odd tap counts 3..15");
  FirTable<N> table{};
  for (int row = 0; row < kFirRowCount; ++row) {
    for (int i = 0; i < N; ++i) {
      const int from = i <= N / 2 ? i : N - 1 - i;
      for (int lane = 0; lane < kFirLanes; ++lane) {
        table[row].tap[i].lane[lane] = half[row][from];
      }
    }
  }
  return table;
}

// A mistyped coefficient shows up as a row sum far from 512; the designed rows stay within 3.
template <int N>
constexpr bool sums_near_unity(const FirHalfTable<N> &half) {
  for (const auto &row : half) {
    int sum = row[N / 2];
    for (int i = 0; i < N / 2; ++i) sum += 2 * row[i];
    if (sum < 512 - 3 || sum > 512 + 3) return false;
  }
  return true;
}

static_assert(sums_near_unity<3>(kHalf3) && sums_near_unity<5>(kHalf5) &&
                  sums_near_unity<7>(kHalf7) && sums_near_unity<9>(kHalf9) &&
                  sums_near_unity<11>(kHalf11) && sums_near_unity<13>(kHalf13) &&
                  sums_near_unity<15>(kHalf15),
              "every row sums to 512 within 3");

constexpr FirTable<3> kFir3 = expand<3>(kHalf3);
constexpr FirTable<5> kFir5 = expand<5>(kHalf5);
constexpr FirTable<7> kFir7 = expand<7>(kHalf7);
constexpr FirTable<9> kFir9 = expand<9>(kHalf9);
constexpr FirTable<11> kFir11 = expand<11>(kHalf11);
constexpr FirTable<13> kFir13 = expand<13>(kHalf13);
constexpr FirTable<15> kFir15 = expand<15>(kHalf15);

// First tap of a row, by table index 0..6.
constexpr const FirTap *row_start(int index, int row) {
  switch (index) {
    case 0: return kFir3[row].tap;
    case 1: return kFir5[row].tap;
    case 2: return kFir7[row].tap;
    case 3: return kFir9[row].tap;
    case 4: return kFir11[row].tap;
    case 5: return kFir13[row].tap;
    default: return kFir15[row].tap;
  }
}

}  // namespace

template <int N>
const FirTable<N> &fir_table() {
  if constexpr (N == 3) return kFir3;
  else if constexpr (N == 5) return kFir5;
  else if constexpr (N == 7) return kFir7;
  else if constexpr (N == 9) return kFir9;
  else if constexpr (N == 11) return kFir11;
  else if constexpr (N == 13) return kFir13;
  else return kFir15;
}

template const FirTable<3> &fir_table<3>();
template const FirTable<5> &fir_table<5>();
template const FirTable<7> &fir_table<7>();
template const FirTable<9> &fir_table<9>();
template const FirTable<11> &fir_table<11>();
template const FirTable<13> &fir_table<13>();
template const FirTable<15> &fir_table<15>();

int fir_table_taps(uint32_t taps) {
  if (taps < uint32_t{kFirMinTaps} || taps > uint32_t{kFirMaxTaps}) return 0;
  return static_cast<int>(taps - 1) | 1;  // 4 -> 3, 5 -> 5, 14 -> 13, 15 -> 15
}

int fir_table_index(uint32_t taps) {
  const int odd = fir_table_taps(taps);
  return odd == 0 ? -1 : (odd - kFirMinTaps) / 2;
}

int fir_cutoff_row(uint32_t cutoff) {
  if (cutoff >= kFirCutoffOff) return -1;
  const int row = kFirRowCount - static_cast<int>(cutoff / 5);
  return row == kFirRowCount ? kFirRowCount - 1 : row;
}

const FirTap *fir_coefficients(uint32_t taps, uint32_t cutoff) {
  const int index = fir_table_index(taps);
  const int row = fir_cutoff_row(cutoff);
  if (index < 0 || row < 0) return nullptr;
  return row_start(index, row);
}

}  // namespace framedsp
