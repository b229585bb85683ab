#include "scale/scaler_helper.h"

#include <cstdint>

#include "platform/trace.h"

namespace framedsp {

namespace {

constexpr const char *kHelper = "DspScalerHelper";

// Truncation toward zero to a 64-bit integer, low 32 bits kept.  Values that no int64 holds (and
// NaN) give 0, the low half of the x86 "integer indefinite" 0x8000000000000000; converting them
// with a plain cast would be undefined.
uint32_t trunc_low32(double value) {
  constexpr double kLimit = 9223372036854775808.0;  // 2^63
  if (!(value > -kLimit && value < kLimit)) return 0;
  return static_cast<uint32_t>(static_cast<uint64_t>(static_cast<int64_t>(value)));
}

double or_full(uint32_t region, uint32_t full) { return region != 0 ? region : full; }

void store(DSP_SCALER_HELPER_OUT *out, uint32_t width, uint32_t height, double horz,
           double vert) {
  out->ulWidth = width;
  out->ulHeight = height;
  out->fHorizontalScale = static_cast<float>(horz);
  out->fVerticalScale = static_cast<float>(vert);
}

}  // namespace

HRESULT scaler_helper_validate(const DSP_SCALER_HELPER_IN *in) {
  // A zero size or aspect term would make a pixel shape 0 or infinite.
  if (in->ulSrcAspectNumerator == 0 || in->ulSrcAspectDenominator == 0) {
    refuse(kHelper, "source aspect numerator or denominator is 0");
    return kInvalidArg;
  }
  if (in->ulSrcWidth == 0 || in->ulSrcHeight == 0) {
    refuse(kHelper, "source width or height is 0");
    return kInvalidArg;
  }
  if (in->ulDstAspectNumerator == 0 || in->ulDstAspectDenominator == 0) {
    refuse(kHelper, "destination aspect numerator or denominator is 0");
    return kInvalidArg;
  }
  if (in->ulDstWidth == 0 || in->ulDstHeight == 0) {
    refuse(kHelper, "destination width or height is 0");
    return kInvalidArg;
  }
  // Fill mode crops the whole source itself, so it must be given the whole source, spelled out:
  // a region of 0 ("the full size") is refused here although the fit modes accept it.
  if (in->ulFlags & DSP_SCALER_HELPER_FILL) {
    if (in->ulSrcRegionHeight != in->ulSrcHeight || in->ulSrcRegionWidth != in->ulSrcWidth) {
      refuse(kHelper, "fill mode needs the source region %ux%u to equal the source size %ux%u",
             in->ulSrcRegionWidth, in->ulSrcRegionHeight, in->ulSrcWidth, in->ulSrcHeight);
      return kInvalidArg;
    }
  }
  return kOk;
}

// Every product and quotient in double, in the order written, so that the sizes and factors are
// reproducible bit for bit; the factors are divisions by the truncated sizes, so that the scaler's
// floor(size * factor + 0.5) gives those sizes back.
HRESULT scaler_helper_worker(const DSP_SCALER_HELPER_IN *in, DSP_SCALER_HELPER_OUT *out) {
  worker_entry(kHelper);
  const double sW = or_full(in->ulSrcRegionWidth, in->ulSrcWidth);
  const double sH = or_full(in->ulSrcRegionHeight, in->ulSrcHeight);
  const double dW = or_full(in->ulDstRegionWidth, in->ulDstWidth);
  const double dH = or_full(in->ulDstRegionHeight, in->ulDstHeight);
  // Pixel shapes (height over width of one pixel, in picture units) from the full sizes.
  const double sPAR = (static_cast<double>(in->ulSrcHeight) * in->ulSrcAspectNumerator) /
                      (static_cast<double>(in->ulSrcWidth) * in->ulSrcAspectDenominator);
  const double dPAR = (static_cast<double>(in->ulDstHeight) * in->ulDstAspectNumerator) /
                      (static_cast<double>(in->ulDstWidth) * in->ulDstAspectDenominator);

  if (in->ulFlags & DSP_SCALER_HELPER_FILL) {
    const double h = dW / sW;
    const uint32_t need = trunc_low32(dH * sPAR / (h * dPAR));
    if (sH >= need) {
      store(out, static_cast<uint32_t>(sW), need, h, dH / need);
      return kOk;
    }
    const double v = dH / sH;
    const uint32_t need_w = trunc_low32(dPAR * dW / (sPAR * v));
    if (sW >= need_w) {
      store(out, need_w, static_cast<uint32_t>(sH), dW / need_w, v);
      return kOk;
    }
    store(out, static_cast<uint32_t>(sW), static_cast<uint32_t>(sH), dW / sW, dH / sH);
    return kOk;
  }
  if (in->ulFlags & DSP_SCALER_HELPER_FIT_WIDTH) {
    const double h = dW / sW;
    const uint32_t out_h = trunc_low32(dPAR * sH * h / sPAR);
    store(out, static_cast<uint32_t>(dW), out_h, h, out_h / sH);
    return kOk;
  }
  const double v = dH / sH;
  const uint32_t out_w = trunc_low32(sPAR * sW * v / dPAR);
  store(out, out_w, static_cast<uint32_t>(dH), out_w / sW, v);
  return kOk;
}

}  // namespace framedsp
