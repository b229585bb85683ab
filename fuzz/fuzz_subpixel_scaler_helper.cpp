// DspSubPixelScalerHelper on records built from the fuzz input.  A refused record (judged here
// from the header's list) leaves the result byte for byte; an accepted one gives finite, positive
// sizes, factors that are the rectangles' ratios, a view inside the source with keep-inside, and
// at phase 0 exactly the result of view A alone.
#include <cmath>
#include <cstring>

#include "harness.h"

namespace {

constexpr const char *kTarget = "DspSubPixelScalerHelper";

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

bool view_ok(const DSP_SUBPIXEL_VIEW &v) {
  return v.ulZoomQ14 >= 16384 && v.lCentreXQ14 >= -8192 && v.lCentreXQ14 <= 8192 &&
         v.lCentreYQ14 >= -8192 && v.lCentreYQ14 <= 8192;
}

bool accepted(const DSP_SUBPIXEL_SCALER_HELPER_IN &in) {
  return in.ulSrcAspectNumerator && in.ulSrcAspectDenominator && in.ulDstAspectNumerator &&
         in.ulDstAspectDenominator && in.ulSrcWidth && in.ulSrcHeight && in.ulDstWidth && in.ulDstHeight &&
         in.ulModeFlags < 16 && view_ok(in.ViewA) && view_ok(in.ViewB) && in.ulPhaseQ14 <= 16384 &&
         in.ulEase <= 1 && !in.ulReserved[0] && !in.ulReserved[1] && !in.ulReserved[2];
}

bool finite_positive(double v) { return std::isfinite(v) && v > 0; }

// The float is the rounded ratio of the exact sizes, the doubles each rounded once.
bool ratio_matches(float factor, double dst, double src) {
  return std::isfinite(factor) && std::fabs(factor / (dst / src) - 1) < 2e-7;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader r(data, size);
  DSP_SUBPIXEL_SCALER_HELPER_IN in{};
  in.ulSrcAspectNumerator = draw_term(r);
  in.ulSrcAspectDenominator = draw_term(r);
  in.ulDstAspectNumerator = draw_term(r);
  in.ulDstAspectDenominator = draw_term(r);
  in.ulSrcWidth = draw_term(r);
  in.ulSrcHeight = draw_term(r);
  in.ulDstWidth = draw_term(r);
  in.ulDstHeight = draw_term(r);
  in.ulModeFlags = r.u8() < 240 ? r.range(0, 15) : r.u32();
  in.ViewA = draw_view(r);
  in.ViewB = draw_view(r);
  in.ulPhaseQ14 = r.u8() < 240 ? r.range(0, 16384) : r.u32();
  in.ulEase = r.u8() < 250 ? r.range(0, 1) : r.u32();
  if (r.u8() >= 250) {
    const uint32_t word = r.range(0, 2);
    in.ulReserved[word] = r.u32() | 1;
  }

  DSP_SUBPIXEL_SCALER_HELPER_OUT out, untouched;
  std::memset(&out, 0xA5, sizeof out);
  untouched = out;
  const DSP_SUBPIXEL_SCALER_HELPER_IN before = in;
  fuzz::require(DspSubPixelScalerHelper(&in, &out) == DSP_S_OK, kTarget, "status other than S_OK");
  fuzz::require(std::memcmp(&before, &in, sizeof in) == 0, kTarget, "the input record changed");
  if (!accepted(in)) {
    fuzz::require(std::memcmp(&untouched, &out, sizeof out) == 0, kTarget, "a refused record wrote the result");
    return 0;
  }
  fuzz::require(finite_positive(out.dSrcWidth) && finite_positive(out.dSrcHeight) &&
                    finite_positive(out.dDstWidth) && finite_positive(out.dDstHeight) &&
                    std::isfinite(out.dSrcX) && std::isfinite(out.dSrcY) && std::isfinite(out.dDstX) &&
                    std::isfinite(out.dDstY),
                kTarget, "a rectangle is not finite or not positive");
  fuzz::require(ratio_matches(out.fHorizontalScale, out.dDstWidth, out.dSrcWidth) &&
                    ratio_matches(out.fVerticalScale, out.dDstHeight, out.dSrcHeight),
                kTarget, "a factor is not the ratio of the rectangles");
  fuzz::require(out.dSrcWidth <= in.ulSrcWidth && out.dSrcHeight <= in.ulSrcHeight, kTarget,
                "the view is larger than the source");
  if (in.ulModeFlags & DSP_SUBPIXEL_SCALER_HELPER_KEEP_INSIDE) {
    const double slack = 1 + 1e-15;
    fuzz::require(out.dSrcX >= 0 && out.dSrcY >= 0 && out.dSrcX + out.dSrcWidth <= in.ulSrcWidth * slack &&
                      out.dSrcY + out.dSrcHeight <= in.ulSrcHeight * slack,
                  kTarget, "keep-inside left the source");
  }
  DSP_SUBPIXEL_SCALER_HELPER_IN start = in, only_a = in;
  start.ulPhaseQ14 = only_a.ulPhaseQ14 = 0;
  only_a.ViewB = in.ViewA;
  DSP_SUBPIXEL_SCALER_HELPER_OUT at_start, of_a;
  DspSubPixelScalerHelper(&start, &at_start);
  DspSubPixelScalerHelper(&only_a, &of_a);
  fuzz::require(std::memcmp(&at_start, &of_a, sizeof of_a) == 0, kTarget, "phase 0 is not view A");
  fuzz::require(DspSubPixelScalerHelper(nullptr, &out) == DSP_E_POINTER &&
                    DspSubPixelScalerHelper(&in, nullptr) == DSP_E_POINTER,
                kTarget, "null pointer not E_POINTER");
  return 0;
}
