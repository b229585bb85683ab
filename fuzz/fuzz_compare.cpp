// DspCompare on records built from the fuzz input: A and B against protected pages, the
// difference image in canary margins, only the format's result slots written.
#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include "analysis/compare.h"
#include "harness.h"
#include "line_call.h"

namespace {

bool channel_written(uint32_t format, int c) {
  switch (format) {
    case 0: case 5: case 28: case 30: return true;
    case 1: case 21: case 25: return c < 3;
    case 261: return c == 3;
    default: return false;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  using namespace fuzz;
  Reader r(data, size);
  draw_cpu_mask(r);
  static const uint32_t kDims[] = {1, 4, 9, 33, 64, 130, 300};
  DSP_COMPARE_PARAMS p{};
  p.ePixelFormat = draw_format(r, true);
  const FormatFacts f = format_facts(p.ePixelFormat);
  p.ulWidth = r.range(0, r.pick(kDims));
  p.ulHeight = r.range(0, r.pick(kDims));
  const size_t line = size_t{p.ulWidth} * (f.bytes ? f.bytes : 1);
  p.ulPrimaryStrideBytes = static_cast<uint32_t>(line + (r.flag() ? 0 : r.range(0, 40)));
  p.ulSecondaryStrideBytes = f.two_plane ? p.ulWidth + r.range(0, 24) : r.range(0, 8);
  p.ulImageBytes = r.u32();
  for (uint32_t &w : p.ulReserved1) w = r.u32();
  p.ulReserved2 = r.u32();
  for (double &d : p.dResults) d = -1.5;
  const size_t bytes = size_t{p.ulHeight} * p.ulPrimaryStrideBytes +
                       (f.two_plane ? size_t{p.ulHeight} * p.ulSecondaryStrideBytes : 0);

  PageBuffer a(bytes, r.flag(), 0), b(bytes, r.flag(), 0);
  fill_from(r, a.data(), bytes);
  if (r.u8() < 64) std::memcpy(b.data(), a.data(), bytes);
  else fill_from(r, b.data(), bytes);
  const std::vector<uint8_t> a_copy(a.data(), a.data() + bytes), b_copy(b.data(), b.data() + bytes);
  OutputImage out(bytes, r.flag(), r.u32());
  p.BufferA = {a.data(), r.u32(), r.u32()};
  p.BufferB = {b.data(), r.u32(), r.u32()};
  p.BufferOut = {out.data(), r.u32(), r.u32()};
  for (uint32_t y = 0; y < p.ulHeight; ++y) {
    out.allow(int64_t{y} * p.ulPrimaryStrideBytes, static_cast<int64_t>(line));
    if (f.two_plane) {
      out.allow(int64_t{p.ulHeight} * p.ulPrimaryStrideBytes + int64_t{y} * p.ulSecondaryStrideBytes,
                p.ulWidth);
    }
  }

  const DSP_COMPARE_PARAMS before = p;
  const bool refused = framedsp::compare_validate(&p) != DSP_S_OK;
  const DSP_HRESULT hr = DspCompare(&p);
  require(hr == DSP_S_OK, "DspCompare", "status other than S_OK");
  // Everything but the written result slots keeps its bytes.
  DSP_COMPARE_PARAMS masked = p;
  for (int c = 0; c < 4; ++c) {
    if (!refused && channel_written(p.ePixelFormat, c)) {
      masked.dResults[c] = before.dResults[c];
      masked.dResults[c + 4] = before.dResults[c + 4];
      const double mse = p.dResults[c];
      // An empty image gives 0 / 0; otherwise MSE lies in [0, 255^2].
      if (p.ulWidth && p.ulHeight) {
        require(mse >= 0 && mse <= 65025.0, "DspCompare", "MSE out of range");
        const double psnr = 20 * std::log10(255 / std::sqrt(mse + 0.00001));
        require(std::fabs(psnr - p.dResults[c + 4]) < 1e-6, "DspCompare", "PSNR does not follow MSE");
      }
    }
  }
  require(std::memcmp(&masked, &before, sizeof p) == 0, "DspCompare", "a field other than a result slot changed");
  require(bytes == 0 || (std::memcmp(a_copy.data(), a.data(), bytes) == 0 &&
                         std::memcmp(b_copy.data(), b.data(), bytes) == 0),
          "DspCompare", "an input changed");
  out.check("DspCompare", refused);
  return 0;
}
