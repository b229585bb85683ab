// The block-search settings shared by the frame-rate converter's creation record (words 11..39)
// and DspCreateMotionVectors's record (bytes 32..147): one routine applies their defaults and
// bounds, so the two can never disagree.
#pragma once

#include <cstdint>

namespace framedsp {

constexpr uint32_t kSearchLevels = 5;

// Words 11..39 of the creation record, in their order.
struct SearchSettings {
  uint32_t levels;
  uint32_t threshold[kSearchLevels];
  uint32_t unread;
  uint32_t block_a[kSearchLevels];
  uint32_t block_b[kSearchLevels];
  uint32_t final_a;
  uint32_t final_b;
  uint32_t range_x[kSearchLevels];
  uint32_t range_y[kSearchLevels];
};
static_assert(sizeof(SearchSettings) == 29 * 4, "words 11..39");

// Applies the defaults (each judged on the given word: 0 selects thresholds 8, blocks 16, ranges 1;
// all five entries whatever `levels` says), then checks, stopping at the first failure: levels at
// most 5; final blocks 8..32; per level blocks 8..32, range_x at most width / 4 and range_y at
// most height / 4 (signed division toward zero, compared unsigned), threshold at most 255.
// A failure names itself under `export_name` when tracing is on and returns false.
bool search_settings_apply(SearchSettings *s, int32_t width, int32_t height,
                           const char *export_name);

}  // namespace framedsp
