// DspSubPixelScalerHelper on records built from the fuzz input.  A refused record (judged here
// from the header's list) leaves the result byte for byte; an accepted one gives finite, positive
// sizes no larger than the source, factors equal to the rectangles' ratios, and a view inside the
// source with keep-inside.
#include <cmath>
#include <cstring>

#include "harness.h"

namespace {

constexpr const char *kTarget = "DspSubPixelScalerHelper";
using Out = DSP_SUBPIXEL_SCALER_HELPER_OUT;

uint32_t draw_term(fuzz::Reader &r) {
  static const uint32_t kTerms[] = {0, 1, 3, 4, 9, 16, 486, 720, 1080, 1920, 0xFFFFFFFEu, 0xFFFFFFFFu};
  const uint8_t c = r.u8();
  return c < 160 ? r.pick(kTerms) : c < 230 ? r.range(1, 5000) : r.u32();
}

DSP_SUBPIXEL_VIEW draw_view(fuzz::Reader &r) {
  static const uint32_t kZooms[] = {0, 16383, 16384, 16385, 32768, 65536, 0xFFFFFFFFu};
  static const int32_t kCentres[] = {-8193, -8192, -1, 0, 1, 8192, 8193};
  DSP_SUBPIXEL_VIEW v;
  v.ulZoomQ14 = r.u8() < 128 ? r.pick(kZooms) : r.u32();
  v.lCentreXQ14 = r.u8() < 100 ? r.pick(kCentres) : static_cast<int32_t>(r.range(0, 16384)) - 8192;
  v.lCentreYQ14 = r.u8() < 100 ? r.pick(kCentres) : static_cast<int32_t>(r.u32());
  return v;
}

bool accepted(const DSP_SUBPIXEL_SCALER_HELPER_IN &in) {
  auto ok = [](const DSP_SUBPIXEL_VIEW &v) {
    return v.ulZoomQ14 >= 16384 && v.lCentreXQ14 >= -8192 && v.lCentreXQ14 <= 8192 &&
           v.lCentreYQ14 >= -8192 && v.lCentreYQ14 <= 8192;
  };
  return in.ulSrcAspectNumerator && in.ulSrcAspectDenominator && in.ulDstAspectNumerator &&
         in.ulDstAspectDenominator && in.ulSrcWidth && in.ulSrcHeight && in.ulDstWidth && in.ulDstHeight &&
         in.ulModeFlags < 16 && ok(in.ViewA) && ok(in.ViewB) && in.ulPhaseQ14 <= 16384 && in.ulEase <= 1 &&
         !in.ulReserved[0] && !in.ulReserved[1] && !in.ulReserved[2];
}

// A size in (0, limit]; its factor the float nearest dst / src (both doubles rounded once).
bool axis_ok(double pos, double size, double limit, double dst_pos, double dst, float factor) {
  return std::isfinite(pos) && size > 0 && size <= limit && std::isfinite(dst_pos) && dst > 0 &&
         std::isfinite(dst) && std::fabs(factor / (dst / size) - 1) < 2e-7;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader r(data, size);
  DSP_SUBPIXEL_SCALER_HELPER_IN in{};
  uint32_t terms[8];  // aspects and sizes, the record's first eight words
  for (uint32_t &t : terms) t = draw_term(r);
  std::memcpy(&in, terms, sizeof terms);
  in.ulModeFlags = r.u8() < 240 ? r.range(0, 15) : r.u32();
  in.ViewA = draw_view(r);
  in.ViewB = draw_view(r);
  in.ulPhaseQ14 = r.u8() < 240 ? r.range(0, 16384) : r.u32();
  in.ulEase = r.u8() < 250 ? r.range(0, 1) : r.u32();
  if (r.u8() >= 250) in.ulReserved[r.u8() % 3] = r.u32() | 1;  // the value is read first

  Out out, untouched;
  std::memset(&out, 0xA5, sizeof out);
  untouched = out;
  const DSP_SUBPIXEL_SCALER_HELPER_IN before = in;
  fuzz::require(DspSubPixelScalerHelper(&in, &out) == DSP_S_OK, kTarget, "status other than S_OK");
  fuzz::require(std::memcmp(&before, &in, sizeof in) == 0, kTarget, "the input record changed");
  if (!accepted(in)) {
    fuzz::require(std::memcmp(&untouched, &out, sizeof out) == 0, kTarget, "a refused record wrote");
    return 0;
  }
  fuzz::require(
      axis_ok(out.dSrcX, out.dSrcWidth, in.ulSrcWidth, out.dDstX, out.dDstWidth, out.fHorizontalScale) &&
          axis_ok(out.dSrcY, out.dSrcHeight, in.ulSrcHeight, out.dDstY, out.dDstHeight, out.fVerticalScale),
      kTarget, "a rectangle or factor out of range");
  const double slack = 1 + 1e-15;
  fuzz::require(!(in.ulModeFlags & DSP_SUBPIXEL_SCALER_HELPER_KEEP_INSIDE) ||
                    (out.dSrcX >= 0 && out.dSrcY >= 0 && out.dSrcX + out.dSrcWidth <= in.ulSrcWidth * slack
                     && out.dSrcY + out.dSrcHeight <= in.ulSrcHeight * slack),
                kTarget, "keep-inside left the source");
  return 0;
}
