#include "analysis/motion_settings.h"

#include "platform/trace.h"

namespace framedsp {
namespace {

constexpr uint32_t kDefaultBlock = 16;
constexpr uint32_t kDefaultRange = 1;
constexpr uint32_t kDefaultThreshold = 8;
constexpr uint32_t kMinBlock = 8;
constexpr uint32_t kMaxBlock = 32;
constexpr uint32_t kMaxThreshold = 255;

uint32_t or_default(uint32_t value, uint32_t fallback) { return value ? value : fallback; }

bool block_in_range(uint32_t block) { return block >= kMinBlock && block <= kMaxBlock; }

// The extent divided by 4 as signed integers (toward zero), then compared as unsigned, so a
// negative extent bounds nothing.
uint32_t range_bound(int32_t extent) { return static_cast<uint32_t>(extent / 4); }

}  // namespace

bool search_settings_apply(SearchSettings *s, int32_t width, int32_t height,
                           const char *export_name) {
  s->final_a = or_default(s->final_a, kDefaultBlock);
  s->final_b = or_default(s->final_b, kDefaultBlock);
  for (uint32_t i = 0; i < kSearchLevels; ++i) {
    s->block_a[i] = or_default(s->block_a[i], kDefaultBlock);
    s->block_b[i] = or_default(s->block_b[i], kDefaultBlock);
    s->range_x[i] = or_default(s->range_x[i], kDefaultRange);
    s->range_y[i] = or_default(s->range_y[i], kDefaultRange);
    s->threshold[i] = or_default(s->threshold[i], kDefaultThreshold);
  }

  if (s->levels > kSearchLevels)
    return refuse(export_name, "level count %u is above %u", s->levels, kSearchLevels);
  if (!block_in_range(s->final_a))
    return refuse(export_name, "block A %u is outside %u..%u", s->final_a, kMinBlock, kMaxBlock);
  if (!block_in_range(s->final_b))
    return refuse(export_name, "block B %u is outside %u..%u", s->final_b, kMinBlock, kMaxBlock);
  const uint32_t max_x = range_bound(width);
  const uint32_t max_y = range_bound(height);
  for (uint32_t i = 0; i < kSearchLevels; ++i) {
    if (!block_in_range(s->block_a[i]))
      return refuse(export_name, "level %u block A %u is outside %u..%u", i, s->block_a[i],
                    kMinBlock, kMaxBlock);
    if (!block_in_range(s->block_b[i]))
      return refuse(export_name, "level %u block B %u is outside %u..%u", i, s->block_b[i],
                    kMinBlock, kMaxBlock);
    if (s->range_x[i] > max_x)
      return refuse(export_name, "level %u search range x %u is above width %d / 4 = %u", i,
                    s->range_x[i], width, max_x);
    if (s->range_y[i] > max_y)
      return refuse(export_name, "level %u search range y %u is above height %d / 4 = %u", i,
                    s->range_y[i], height, max_y);
    if (s->threshold[i] > kMaxThreshold)
      return refuse(export_name, "level %u threshold %u is above %u", i, s->threshold[i],
                    kMaxThreshold);
  }
  return true;
}

}  // namespace framedsp
