// DspScalerHelper on records built from the fuzz input.  The result record is written only on
// success (a refused record leaves it byte for byte), and a written result is the one the
// header's formulas give, recomputed here in double precision.
#include <cmath>
#include <cstring>

#include "harness.h"

namespace {

uint32_t draw_term(fuzz::Reader &r) {
  static const uint32_t kTerms[] = {0, 1, 3, 4, 9, 16, 480, 486, 576, 720, 1080, 1920, 0xFFFFFFFFu};
  const uint8_t c = r.u8();
  if (c < 200) return r.pick(kTerms);
  if (c < 240) return r.range(0, 4096);
  return r.u32();
}

bool expected_result(const DSP_SCALER_HELPER_IN &in, DSP_SCALER_HELPER_OUT *out) {
  if (!in.ulSrcAspectNumerator || !in.ulSrcAspectDenominator || !in.ulDstAspectNumerator ||
      !in.ulDstAspectDenominator || !in.ulSrcWidth || !in.ulSrcHeight || !in.ulDstWidth || !in.ulDstHeight) {
    return false;
  }
  const bool fill = (in.ulFlags & DSP_SCALER_HELPER_FILL) != 0;
  // Fill mode needs the whole source as its region; 0 counts as "other" there.
  if (fill && (in.ulSrcRegionWidth != in.ulSrcWidth || in.ulSrcRegionHeight != in.ulSrcHeight)) return false;
  const double sW = in.ulSrcRegionWidth ? in.ulSrcRegionWidth : in.ulSrcWidth;
  const double sH = in.ulSrcRegionHeight ? in.ulSrcRegionHeight : in.ulSrcHeight;
  const double dW = in.ulDstRegionWidth ? in.ulDstRegionWidth : in.ulDstWidth;
  const double dH = in.ulDstRegionHeight ? in.ulDstRegionHeight : in.ulDstHeight;
  const double sPAR = (static_cast<double>(in.ulSrcHeight) * in.ulSrcAspectNumerator) /
                      (static_cast<double>(in.ulSrcWidth) * in.ulSrcAspectDenominator);
  const double dPAR = (static_cast<double>(in.ulDstHeight) * in.ulDstAspectNumerator) /
                      (static_cast<double>(in.ulDstWidth) * in.ulDstAspectDenominator);
  double rw, rh, fh, fv;
  if (fill) {
    const double h = dW / sW;
    const uint32_t n = fuzz::low32_of_trunc(dH * sPAR / (h * dPAR));
    if (sH >= n) {
      rw = sW, rh = n, fh = h, fv = dH / n;
    } else {
      const double v = dH / sH;
      const uint32_t m = fuzz::low32_of_trunc(dPAR * dW / (sPAR * v));
      if (sW >= m) {
        rw = m, rh = sH, fh = dW / m, fv = v;
      } else {
        rw = sW, rh = sH, fh = dW / sW, fv = dH / sH;
      }
    }
  } else if (in.ulFlags & DSP_SCALER_HELPER_FIT_WIDTH) {
    const double h = dW / sW;
    const uint32_t o = fuzz::low32_of_trunc(dPAR * sH * h / sPAR);
    rw = dW, rh = o, fh = h, fv = o / sH;
  } else {
    const double v = dH / sH;
    const uint32_t w = fuzz::low32_of_trunc(sPAR * sW * v / dPAR);
    rw = w, rh = dH, fh = w / sW, fv = v;
  }
  out->ulWidth = static_cast<uint32_t>(rw);
  out->ulHeight = static_cast<uint32_t>(rh);
  out->fHorizontalScale = static_cast<float>(fh);
  out->fVerticalScale = static_cast<float>(fv);
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader r(data, size);
  DSP_SCALER_HELPER_IN in{};
  in.ulSrcAspectNumerator = draw_term(r);
  in.ulSrcAspectDenominator = draw_term(r);
  in.ulSrcWidth = draw_term(r);
  in.ulSrcHeight = draw_term(r);
  in.ulSrcRegionWidth = r.u8() < 128 ? (r.flag() ? 0 : in.ulSrcWidth) : draw_term(r);
  in.ulSrcRegionHeight = r.u8() < 128 ? (r.flag() ? 0 : in.ulSrcHeight) : draw_term(r);
  in.ulReserved1 = r.u32();
  in.ulDstAspectNumerator = draw_term(r);
  in.ulDstAspectDenominator = draw_term(r);
  in.ulDstWidth = draw_term(r);
  in.ulDstHeight = draw_term(r);
  in.ulDstRegionWidth = r.u8() < 128 ? 0 : draw_term(r);
  in.ulDstRegionHeight = r.u8() < 128 ? 0 : draw_term(r);
  in.ulReserved2 = r.u32();
  in.ulFlags = r.u8() < 230 ? r.range(0, 3) : r.u32();

  DSP_SCALER_HELPER_OUT out;
  std::memset(&out, 0xA5, sizeof out);
  DSP_SCALER_HELPER_OUT untouched;
  std::memcpy(&untouched, &out, sizeof out);
  const DSP_SCALER_HELPER_IN before = in;
  const DSP_HRESULT hr = DspScalerHelper(&in, &out);
  fuzz::require(std::memcmp(&before, &in, sizeof in) == 0, "DspScalerHelper", "the input record changed");
  fuzz::require(hr == DSP_S_OK, "DspScalerHelper", "status other than S_OK");
  DSP_SCALER_HELPER_OUT want;
  if (!expected_result(in, &want)) {
    fuzz::require(std::memcmp(&untouched, &out, sizeof out) == 0, "DspScalerHelper",
                  "a refused record wrote the result");
  } else {
    fuzz::require(out.ulWidth == want.ulWidth && out.ulHeight == want.ulHeight, "DspScalerHelper",
                  "sizes differ from the formulas");
    fuzz::require(std::memcmp(&out.fHorizontalScale, &want.fHorizontalScale, sizeof(float)) == 0 &&
                      std::memcmp(&out.fVerticalScale, &want.fVerticalScale, sizeof(float)) == 0,
                  "DspScalerHelper", "factors differ from the formulas");
  }
  fuzz::require(DspScalerHelper(nullptr, &out) == DSP_E_POINTER && DspScalerHelper(&in, nullptr) == DSP_E_POINTER,
                "DspScalerHelper", "null pointer not E_POINTER");
  return 0;
}
