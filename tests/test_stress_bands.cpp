// Bands: each band alone writes only bytes of the whole call and none another band writes, and N
// threads, each producing one band of the same call at the same time, leave exactly the bytes of
// one whole call, for the copy, the filter and the scaler (general, staged, filtered) over
// progressive, interleaved, separate-field, field and bottom-up geometries.  Run under
// ThreadSanitizer by
// `make tsan`.  A new banded operation is one more entry in kOperations.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "framedsp/framedsp.h"
#include "test_util.h"

namespace {

// One banded operation: runs the call on `buffer` (bands already set) and returns its status.
struct BandOperation {
  const char *name;
  std::function<DSP_HRESULT(const DSP_BUFFER &)> call;
};

const DSP_FIR_SETTINGS kFir{7, 45, 0, 5, 60};
const DSP_BOX_SETTINGS kBox{5, 0, 4};

DSP_HRESULT run_filter(const DSP_BUFFER &buffer, uint32_t type, const void *settings, uint32_t options) {
  DSP_FILTER_PARAMS p{};
  p.eFilterType = type;
  p.pSettings = settings;
  p.Buffer = buffer;
  p.ulOptions = options;
  return DspFilter(&p);
}

// The scaler reads a smaller input region (30 pixels of the 40, three quarters of the lines), so
// both axes are scaled up into the output region.
DSP_HRESULT run_scaler(const DSP_BUFFER &buffer, uint32_t filter, uint32_t options) {
  DSP_SCALER_PARAMS p{};
  p.eScalerPath = DSP_SCALER_PATH_GENERAL;
  p.eFilter = filter;
  if (options & DSP_SCALER_OPTION_FILTERED) {
    p.eFilterType = DSP_FILTER_TYPE_FIR;
    p.pSettings = &kFir;
  }
  p.Buffer = buffer;
  p.Buffer.In.Buffer.Region.ulWidth = 30;
  p.Buffer.In.Buffer.Region.ulHeight = buffer.In.Buffer.Region.ulHeight / 4 * 3;
  p.ulOptions = options;
  return DspScaler(&p);
}
bool is_scaler(const BandOperation &op) { return std::strncmp(op.name, "scale", 5) == 0; }

const BandOperation kOperations[] = {
    {"copy", [](const DSP_BUFFER &b) { return DspBufferSmartCopy(&b); }},
    {"fir", [](const DSP_BUFFER &b) { return run_filter(b, DSP_FILTER_TYPE_FIR, &kFir, 0); }},
    {"fir_temp",
     [](const DSP_BUFFER &b) {
       return run_filter(b, DSP_FILTER_TYPE_FIR, &kFir, DSP_FILTER_OPTION_TEMP_FRAME);
     }},
    {"box", [](const DSP_BUFFER &b) { return run_filter(b, DSP_FILTER_TYPE_BOX, &kBox, 0); }},
    {"scale_linear", [](const DSP_BUFFER &b) { return run_scaler(b, DSP_SCALER_FILTER_LINEAR, 0); }},
    {"scale_nearest_staged",
     [](const DSP_BUFFER &b) { return run_scaler(b, DSP_SCALER_FILTER_NEAREST, DSP_SCALER_OPTION_STAGED); }},
    {"scale_filtered",
     [](const DSP_BUFFER &b) { return run_scaler(b, DSP_SCALER_FILTER_LINEAR, DSP_SCALER_OPTION_FILTERED); }},
};
constexpr int kOperationCount = static_cast<int>(sizeof kOperations / sizeof kOperations[0]);

// Geometry of one case.  Region heights keep the filter's field factor; ho is a multiple of every
// band count used, in even bands when fields are taken apart.
struct Geometry {
  const char *name;
  uint32_t format;
  uint32_t in_type, in_interlace, in_orientation;
  uint32_t out_type, out_interlace, out_orientation;
  uint32_t flags;
  uint32_t in_region_height;
  uint32_t out_region_height;
  uint32_t in_colour, out_colour;
};

const Geometry kGeometries[] = {
    {"progressive_bgra", 0, 2, 2, 0, 2, 2, 0, 0, 96, 96, 0, 0},
    {"interleaved_uyvy", 21, 2, 1, 0, 2, 1, 0, 0, 96, 96, 2, 1},
    {"interleaved_field_b_only", 25, 2, 0, 0, 2, 1, 0, DSP_BUFFER_PROCESS_FIELDB, 96, 96, 0, 0},
    {"separate_fields_bgr", 1, 2, 3, 0, 2, 2, 1, 0, 96, 96, 0, 0},
    {"bottom_up_key_plane", 28, 2, 2, 1, 2, 2, 0, 0, 96, 96, 1, 2},
    {"frame_to_field_b", 0, 2, 0, 0, 1, 2, 0, DSP_BUFFER_IN_FIELD2_DOMINANCE, 192, 96, 0, 0},
    {"field_a_to_frame_shift", 25, 0, 2, 0, 2, 0, 1, DSP_BUFFER_OUT_FIELD2_DOMINANCE, 48, 96, 0, 0},
    {"key_field_to_field", 261, 1, 2, 1, 0, 2, 0, 0, 96, 96, 0, 0},
};

constexpr uint32_t kWidth = 40;  // pixels; images are 8 pixels wider and 8 lines taller
constexpr int kIterations = 6;

uint32_t bytes_per_pixel(uint32_t format) {
  switch (format) {
    case 0: return 4;
    case 1: case 5: return 3;
    case 21: case 25: case 28: case 30: return 2;
    case 261: return 1;
    default: return 0;
  }
}
bool two_plane(uint32_t format) { return format == 5 || format == 28 || format == 30; }

struct Image {
  DSP_IMAGE image{};
  std::vector<uint8_t> bytes;
};

Image make_image(uint32_t format, uint32_t type, uint32_t interlace, uint32_t orientation,
                 uint32_t colour, uint32_t region_height, std::mt19937 &rng) {
  Image im;
  DSP_IMAGE &d = im.image;
  d.ePixelFormat = format;
  d.Buffer.eBufferType = type;
  d.eInterlace = interlace;
  d.eImageOrientation = orientation;
  d.eColorSpace = colour;
  d.ulWidth = kWidth + 8;
  d.ulHeight = region_height + 8;
  d.ulPrimaryStrideBytes = d.ulWidth * bytes_per_pixel(format) + 12;
  d.ulSecondaryStrideBytes = two_plane(format) ? d.ulWidth + 4 : 0;
  d.Buffer.Region.ptOffset.x = 4;
  d.Buffer.Region.ptOffset.y = 3;
  d.Buffer.Region.ulWidth = kWidth;
  d.Buffer.Region.ulHeight = region_height;
  im.bytes.resize(size_t{d.ulHeight} * (d.ulPrimaryStrideBytes + d.ulSecondaryStrideBytes));
  framedsp_test::fill_random(im.bytes.data(), im.bytes.size(), rng);
  d.Buffer.pBuffer = im.bytes.data();
  d.Buffer.ulBytes = static_cast<uint32_t>(im.bytes.size());
  return im;
}

using Param = std::tuple<int, int, uint32_t>;  // operation, geometry, threads

class StressBands : public ::testing::TestWithParam<Param> {};

TEST_P(StressBands, ThreadsGiveTheBytesOfOneCall) {
  const BandOperation &op = kOperations[std::get<0>(GetParam())];
  const Geometry &g = kGeometries[std::get<1>(GetParam())];
  const uint32_t threads = std::get<2>(GetParam());
  const uint32_t seed = framedsp_test::test_seed();
  std::mt19937 rng(seed + static_cast<uint32_t>(std::get<1>(GetParam())) * 101 + threads);
  SCOPED_TRACE(std::string(op.name) + "/" + g.name + " seed " + std::to_string(seed));

  for (int iteration = 0; iteration < kIterations; ++iteration) {
    Image in = make_image(g.format, g.in_type, g.in_interlace, g.in_orientation, g.in_colour,
                          g.in_region_height, rng);
    Image whole = make_image(g.format, g.out_type, g.out_interlace, g.out_orientation, g.out_colour,
                             g.out_region_height, rng);
    Image banded = whole;
    banded.image.Buffer.pBuffer = banded.bytes.data();
    const std::vector<uint8_t> untouched = whole.bytes;

    DSP_BUFFER one{};
    one.In = in.image;
    one.Out = whole.image;
    one.ulFlags = g.flags;
    ASSERT_EQ(op.call(one), DSP_S_OK);
    ASSERT_NE(whole.bytes, untouched) << "the whole call wrote nothing";

    if (iteration == 0 && threads == 3) {
      // One band at a time: each writes only bytes of the whole call, no byte is written by two
      // bands, and together they write every byte the whole call changed.
      std::vector<int> owner(untouched.size(), 0);
      for (uint32_t n = 1; n <= threads; ++n) {
        Image alone = whole;
        alone.bytes = untouched;
        DSP_BUFFER band{};
        band.In = in.image;
        band.Out = alone.image;
        band.Out.Buffer.pBuffer = alone.bytes.data();
        band.ulFlags = g.flags;
        band.ulSliceCount = threads;
        band.ulSliceNumber = n;
        ASSERT_EQ(op.call(band), DSP_S_OK) << "band " << n;
        for (size_t i = 0; i < untouched.size(); ++i) {
          if (alone.bytes[i] == untouched[i]) continue;
          ASSERT_EQ(owner[i], 0) << "byte " << i << " written by bands " << owner[i] << " and " << n;
          ASSERT_EQ(alone.bytes[i], whole.bytes[i]) << "band " << n << " byte " << i;
          owner[i] = static_cast<int>(n);
        }
      }
      for (size_t i = 0; i < untouched.size(); ++i) {
        if (whole.bytes[i] != untouched[i]) { ASSERT_NE(owner[i], 0) << "byte " << i << " in no band"; }
      }
    }

    std::atomic<uint32_t> ready{0};
    std::vector<DSP_HRESULT> status(threads, DSP_E_UNEXPECTED);
    std::vector<std::thread> pool;
    for (uint32_t n = 1; n <= threads; ++n) {
      pool.emplace_back([&, n] {
        DSP_BUFFER band{};
        band.In = in.image;
        band.Out = banded.image;
        band.ulFlags = g.flags;
        band.ulSliceCount = threads;
        band.ulSliceNumber = n;
        ready.fetch_add(1);
        while (ready.load() < threads) std::this_thread::yield();  // start together
        status[n - 1] = op.call(band);
      });
    }
    for (std::thread &t : pool) t.join();
    for (uint32_t n = 0; n < threads; ++n) EXPECT_EQ(status[n], DSP_S_OK) << "band " << n + 1;
    ASSERT_EQ(whole.bytes.size(), banded.bytes.size());
    ASSERT_TRUE(whole.bytes == banded.bytes)
        << "iteration " << iteration << ", " << threads << " threads\n"
        << framedsp_test::hex_diff(whole.bytes.data(), banded.bytes.data(), whole.bytes.size());
  }
}

std::string name(const ::testing::TestParamInfo<Param> &info) {
  return std::string(kOperations[std::get<0>(info.param)].name) + "_" +
         kGeometries[std::get<1>(info.param)].name + "_t" + std::to_string(std::get<2>(info.param));
}

// Every operation with every geometry it accepts: the scaler takes interlace 0 only with a field
// selection, so the two geometries that change dominance without one are not scaler cases.
std::vector<Param> all_cases() {
  std::vector<Param> cases;
  const int geometries = static_cast<int>(sizeof kGeometries / sizeof kGeometries[0]);
  for (int o = 0; o < kOperationCount; ++o) {
    for (int g = 0; g < geometries; ++g) {
      const Geometry &geo = kGeometries[g];
      const bool selects = (geo.flags & (DSP_BUFFER_PROCESS_FIELDA | DSP_BUFFER_PROCESS_FIELDB)) != 0;
      if (is_scaler(kOperations[o]) && !selects && (geo.in_interlace == 0 || geo.out_interlace == 0)) continue;
      for (uint32_t threads : {2u, 3u, 8u}) cases.emplace_back(o, g, threads);
    }
  }
  return cases;
}

INSTANTIATE_TEST_SUITE_P(All, StressBands, ::testing::ValuesIn(all_cases()), name);

}  // namespace
