// Mip-map pyramids: the record checks come before any level is touched, one scaler call per
// level, level failures are not reported, and the converter's reference is given back.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "platform/trace.h"
#include "platform/handle.h"
#include "framedsp/framedsp.h"
#include "framerate/converter.h"
#include "test_util.h"

namespace {

using framedsp_test::converter_references;
using framedsp_test::Pic;

std::vector<std::string> g_entered;
void recording_hook(const char *worker) { g_entered.emplace_back(worker); }

int count_entered(const char *worker) {
  int n = 0;
  for (const std::string &w : g_entered) n += (w == worker);
  return n;
}

DSP_HANDLE new_converter() {
  DSP_FRAME_RATE_CONVERTER_PARAMS p{};
  p.ulBaseCount = 1;
  p.lWidth = 720;
  p.lHeight = 576;
  DSP_HANDLE h = nullptr;
  EXPECT_EQ(DspCreateFrameRateConverter(&p, &h), DSP_S_OK);
  return h;
}

// A five-level halving pyramid from 64 x 32, every level in its own guarded buffer (rows without
// padding).
class MipMaps : public ::testing::Test {
 protected:
  void SetUp() override {
    framedsp::set_worker_hook(recording_hook);
    g_entered.clear();
    converter = new_converter();
    uint32_t w = 64, h = 32;
    std::memset(&levels, 0, sizeof levels);
    levels.ulCount = DSP_MIPMAP_MAX_LEVELS;
    memory.reserve(DSP_MIPMAP_MAX_LEVELS);  // the records point into the pictures
    for (uint32_t k = 0; k < DSP_MIPMAP_MAX_LEVELS; ++k) {
      memory.emplace_back(DSP_PIXEL_FORMAT_MIPMAP, w, h, false, 0, static_cast<uint8_t>(0x10 + k), 64);
      levels.Levels[k] = memory.back().image();
      w /= 2;
      h /= 2;
    }
    std::memset(&record, 0, sizeof record);
    record.Base = levels.Levels[0];
    record.pLevels = &levels;
    record.eFilter = DSP_SCALER_FILTER_NEAREST;
    g_entered.clear();
  }
  void TearDown() override {
    framedsp::set_worker_hook(nullptr);
    framedsp_test::destroy_converter(converter);
  }

  std::string level_bytes() const {
    std::string all;
    for (const Pic &m : memory) all.append(reinterpret_cast<const char *>(m.data()), m.size());
    return all;
  }
  void expect_guards_intact() const {
    for (size_t k = 0; k < memory.size(); ++k)
      EXPECT_TRUE(memory[k].mem->intact()) << "level " << k << ": " << memory[k].mem->damage();
  }

  DSP_HANDLE converter = nullptr;
  std::vector<Pic> memory;
  DSP_MIPMAP_LEVELS levels;
  DSP_MIPMAP_PARAMS record;
};

struct BadRecord {
  const char *label;
  void (*edit)(DSP_MIPMAP_PARAMS &, DSP_MIPMAP_LEVELS &);
};

class MipMapRecordChecks : public MipMaps, public ::testing::WithParamInterface<BadRecord> {};

TEST_P(MipMapRecordChecks, InvalidArgBeforeAnyLevelIsWritten) {
  GetParam().edit(record, levels);
  const std::string before = level_bytes();
  const int32_t refs = converter_references(converter);
  EXPECT_EQ(DspCreateMipMaps(converter, &record), DSP_E_INVALIDARG);
  EXPECT_EQ(count_entered("DspScaler"), 0);
  EXPECT_TRUE(level_bytes() == before) << "a level was written although the record was refused";
  expect_guards_intact();
  EXPECT_EQ(converter_references(converter), refs);
}

using P = DSP_MIPMAP_PARAMS;
using L = DSP_MIPMAP_LEVELS;
// The last level is the one a careless check would reach only after writing the others.
const BadRecord kBadRecords[] = {
    {"count6", [](P &, L &l) { l.ulCount = 6; }},
    {"count_all_ones", [](P &, L &l) { l.ulCount = 0xFFFFFFFFu; }},
    {"base_null", [](P &r, L &) { r.Base.Buffer.pBuffer = nullptr; }},
    {"base_luma_plane", [](P &r, L &) { r.Base.ePixelFormat = 261; }},
    {"last_level_format", [](P &, L &l) { l.Levels[4].ePixelFormat = 262; }},
    {"last_level_null", [](P &, L &l) { l.Levels[4].Buffer.pBuffer = nullptr; }},
    {"first_level_null", [](P &, L &l) { l.Levels[0].Buffer.pBuffer = nullptr; }},
};
INSTANTIATE_TEST_SUITE_P(Refused, MipMapRecordChecks, ::testing::ValuesIn(kBadRecords),
                         [](const auto &info) { return std::string(info.param.label); });

TEST_F(MipMaps, LevelsPastTheCountAreNotChecked) {
  levels.ulCount = 2;
  levels.Levels[2].ePixelFormat = DSP_PIXEL_FORMAT_UYVY;
  levels.Levels[3].Buffer.pBuffer = nullptr;
  EXPECT_EQ(DspCreateMipMaps(converter, &record), DSP_S_OK);
  EXPECT_EQ(count_entered("DspScaler"), 1);
}

TEST_F(MipMaps, NullLevelListIsEPointer) {
  record.pLevels = nullptr;
  EXPECT_EQ(DspCreateMipMaps(converter, &record), DSP_E_POINTER);
  EXPECT_EQ(converter_references(converter), 1);
}

// Fewer than two levels do nothing; otherwise one scaler call per level after the first.
TEST_F(MipMaps, OneScalerCallPerLevel) {
  for (uint32_t count = 0; count <= DSP_MIPMAP_MAX_LEVELS; ++count) {
    g_entered.clear();
    levels.ulCount = count;
    const std::string before = level_bytes();
    EXPECT_EQ(DspCreateMipMaps(converter, &record), DSP_S_OK) << count;
    EXPECT_EQ(count_entered("DspScaler"), count < 2 ? 0 : static_cast<int>(count - 1)) << count;
    if (count < 2) { EXPECT_TRUE(level_bytes() == before); }
    if (count >= 2) { EXPECT_EQ(g_entered.front(), "DspCreateMipMaps"); }
    expect_guards_intact();
    EXPECT_EQ(converter_references(converter), 1);
  }
}

// Interleaved levels without a field selection fail the scaler's own checks at every level; the
// pyramid still answers S_OK and nothing is written.
TEST_F(MipMaps, FailedLevelsAreNotReported) {
  for (uint32_t k = 0; k < DSP_MIPMAP_MAX_LEVELS; ++k)
    levels.Levels[k].eInterlace = DSP_INTERLACE_INTERLEAVED;
  const std::string before = level_bytes();
  EXPECT_EQ(DspCreateMipMaps(converter, &record), DSP_S_OK);
  EXPECT_EQ(count_entered("DspCreateMipMaps"), 1);
  EXPECT_TRUE(level_bytes() == before);
  expect_guards_intact();
}

}  // namespace

// ---- level contents ----------------------------------------------------------------------------

namespace {

// Level k + 1 computed here from level k: nearest keeps sample (2x, 2y); linear is the rounded
// mean of the 2 x 2 block, which only the integer-ratio path produces (the general linear kernel
// at an exact half lands on whole samples and would equal nearest).
std::vector<uint8_t> halve(const std::vector<uint8_t> &src, uint32_t w, uint32_t h, bool linear) {
  std::vector<uint8_t> out((w / 2) * (h / 2));
  for (uint32_t y = 0; y < h / 2; ++y) {
    for (uint32_t x = 0; x < w / 2; ++x) {
      const uint8_t *p = &src[(2 * y) * w + 2 * x];
      out[y * (w / 2) + x] =
          linear ? static_cast<uint8_t>((p[0] + p[1] + p[w] + p[w + 1] + 2) >> 2) : p[0];
    }
  }
  return out;
}

class MipMapLevels : public MipMaps, public ::testing::WithParamInterface<uint32_t> {};

TEST_P(MipMapLevels, HalvingLevelsFollowTheIntegerRatioRule) {
  const bool linear = GetParam() == DSP_SCALER_FILTER_LINEAR;
  record.eFilter = GetParam();
  std::mt19937 rng(framedsp_test::test_seed());
  framedsp_test::fill_random(memory[0].data(), memory[0].size(), rng);
  std::vector<uint8_t> expected(memory[0].data(), memory[0].data() + memory[0].size());
  ASSERT_EQ(DspCreateMipMaps(converter, &record), DSP_S_OK);
  EXPECT_EQ(count_entered("DspScaler"), 4);
  uint32_t w = 64, h = 32;
  for (uint32_t k = 1; k < DSP_MIPMAP_MAX_LEVELS; ++k) {
    expected = halve(expected, w, h, linear);
    w /= 2;
    h /= 2;
    ASSERT_EQ(memory[k].size(), expected.size());
    EXPECT_TRUE(std::memcmp(memory[k].data(), expected.data(), expected.size()) == 0)
        << "level " << k << "\n"
        << framedsp_test::hex_diff(expected.data(), memory[k].data(), expected.size());
  }
  expect_guards_intact();
  EXPECT_EQ(converter_references(converter), 1);
}

INSTANTIATE_TEST_SUITE_P(Filters, MipMapLevels,
                         ::testing::Values(DSP_SCALER_FILTER_NEAREST, DSP_SCALER_FILTER_LINEAR),
                         [](const ::testing::TestParamInfo<uint32_t> &info) {
                           return std::string(info.param ? "linear" : "nearest");
                         });

// A level whose size is not an eligible ratio of the one before (64 x 32 -> 48 x 24) comes from
// the general scaler: nearest samples at truncated 14-bit positions, one byte a sample.
TEST_F(MipMaps, IneligibleLevelFallsBackToTheGeneralScaler) {
  levels.ulCount = 2;
  const uint32_t sw = 64, sh = 32, dw = 48, dh = 24;
  const Pic big(DSP_PIXEL_FORMAT_MIPMAP, dw, dh, false, 0, 0x33, 64);
  levels.Levels[1] = big.image();
  std::mt19937 rng(framedsp_test::test_seed() + 1);
  framedsp_test::fill_random(memory[0].data(), memory[0].size(), rng);
  ASSERT_EQ(DspCreateMipMaps(converter, &record), DSP_S_OK);
  const uint32_t hstep = sw * 16384 / dw, vstep = sh * 16384 / dh;
  for (uint32_t y = 0; y < dh; ++y) {
    const uint32_t sy = (y * vstep) >> 14;
    for (uint32_t x = 0; x < dw; ++x) {
      const uint32_t sx = (x * hstep) >> 14;
      ASSERT_EQ(big.data()[y * dw + x], memory[0].data()[sy * sw + sx]) << x << "," << y;
    }
  }
  EXPECT_TRUE(big.mem->intact()) << big.mem->damage();
}

}  // namespace
