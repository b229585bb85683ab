// Coefficient tables of the FIR low-pass filter and the (taps, cut-off) -> row lookup.
//
// One table per odd tap count 3..15, 19 rows each.  Row k is designed for a pass band of
// 5 * (19 - k) percent of Nyquist: row 0 is the mildest (95 %), row 9 a half-band filter, row 18
// the strongest (5 %).  Coefficients are fixed point with 9 fractional bits; every row is
// symmetric, and the rows are used as stored: a few sum to 510..515 rather than 512 and the filter
// keeps that slight gain or loss on purpose.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace framedsp {

// out = clamp((acc + kFirRound) >> kFirShift, 0, 255), with acc the int32 sum of products.
inline constexpr int kFirShift = 9;
inline constexpr int kFirRound = 1 << (kFirShift - 1);  // 256

inline constexpr int kFirMinTaps = 3;
inline constexpr int kFirMaxTaps = 15;
inline constexpr int kFirTableCount = 7;   // 3, 5, 7, 9, 11, 13, 15 taps
inline constexpr int kFirRowCount = 19;
inline constexpr int kFirLanes = 8;        // copies of each coefficient: one 128-bit register
inline constexpr uint32_t kFirCutoffOff = 100;  // a direction at this cut-off is not filtered

// One coefficient, replicated so that a kernel loads a whole register of it with one aligned load.
struct alignas(16) FirTap {
  int16_t lane[kFirLanes];
};
static_assert(sizeof(FirTap) == 16, "a tap is one 128-bit register");

// One table row: N taps in tap order, tap i at byte 16 * i.  Tap i equals tap N - 1 - i; the centre
// tap is tap (N - 1) / 2.
template <int N>
struct FirCoefficientSet {
  FirTap tap[N];
};

// The rows of one table lie back to back, 16 * N bytes apart, in 16-byte-aligned storage.
template <int N>
using FirTable = std::array<FirCoefficientSet<N>, kFirRowCount>;

static_assert(sizeof(FirTable<3>) == 16 * 3 * kFirRowCount, "rows are 16 * N bytes apart");
static_assert(sizeof(FirTable<15>) == 16 * 15 * kFirRowCount, "rows are 16 * N bytes apart");
static_assert(alignof(FirTable<7>) == 16, "rows are 16-byte aligned");

// The table of N taps (N odd, 3..15).  Only those seven instantiations exist.
template <int N>
const FirTable<N> &fir_table();
extern template const FirTable<3> &fir_table<3>();
extern template const FirTable<5> &fir_table<5>();
extern template const FirTable<7> &fir_table<7>();
extern template const FirTable<9> &fir_table<9>();
extern template const FirTable<11> &fir_table<11>();
extern template const FirTable<13> &fir_table<13>();
extern template const FirTable<15> &fir_table<15>();

// Tap count of the table that serves a requested count: rounded down to odd (4 -> 3, 14 -> 13,
// 15 -> 15); 0 when the count is outside 3..15.
int fir_table_taps(uint32_t taps);

// Index 0..6 of that table (3 -> 0 ... 15 -> 6; even counts share the table below them); -1 when
// the count is outside 3..15.  This is also the kernels' tap index.
int fir_table_index(uint32_t taps);

// Row for a cut-off in percent: 19 - cutoff / 5, with 19 (cut-offs 0..4) folded onto row 18, so
// 0..9 -> 18, 10..14 -> 17, ..., 90..94 -> 1, 95..99 -> 0.  100 and above: -1, since 100 switches
// the direction off and no row belongs to it (the settings check refuses anything above 100).
int fir_cutoff_row(uint32_t cutoff);

// The first tap of the row for (taps, cut-off); the row holds fir_table_taps(taps) taps.  Null when
// the tap count is outside 3..15 or the cut-off is 100 or more (direction off).
const FirTap *fir_coefficients(uint32_t taps, uint32_t cutoff);

}  // namespace framedsp
