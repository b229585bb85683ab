#include "scale/subpixel_scaler_helper.h"

#include <cstdint>

#include "platform/trace.h"
#include "scale/wide_int.h"
#include "scale/zoom_path.h"

namespace framedsp {

namespace {

constexpr const char *kHelper = "DspSubPixelScalerHelper";
constexpr uint32_t kKnownModes = DSP_SUBPIXEL_SCALER_HELPER_FIT_WIDTH |
                                 DSP_SUBPIXEL_SCALER_HELPER_FILL |
                                 DSP_SUBPIXEL_SCALER_HELPER_KEEP_INSIDE |
                                 DSP_SUBPIXEL_SCALER_HELPER_CENTRE;
constexpr int32_t kCentreLimitQ14 = 8192;  // half a picture

struct Ratio {
  uint64_t num;  // both at least 1: products of two nonzero 32-bit terms
  uint64_t den;
};

// One direction of the mapping: image sizes, the base source size as a fraction of the source
// (at most 1), the destination rectangle's size as a fraction of the destination, the centre.
struct AxisIn {
  uint32_t src;
  uint32_t dst;
  Ratio base;
  Ratio extent;
  int64_t centre_q44;
};

struct AxisOut {
  double src_pos, src_size, dst_pos, dst_size;
  float scale;
};

bool view_ok(const char *which, const DSP_SUBPIXEL_VIEW &view) {
  if (view.ulZoomQ14 < kPhaseOneQ14) {
    return refuse(kHelper, "view %s zoom %u is below 16384 (1.0)", which, view.ulZoomQ14);
  }
  const int32_t cx = view.lCentreXQ14, cy = view.lCentreYQ14;
  if (cx < -kCentreLimitQ14 || cx > kCentreLimitQ14 || cy < -kCentreLimitQ14 || cy > kCentreLimitQ14) {
    return refuse(kHelper, "view %s centre (%d, %d) is outside -8192..8192", which, cx, cy);
  }
  return true;
}

// Exact per axis, then each value rounded once.  With n = src, f = base, z = zoom / 2^40 and
// c = centre / 2^44, the source values share the denominator fd * zoom * 2^44:
//   size = n f / z,  position = n (1/2 + c) - size / 2.
// Numerators stay below 2^220 (32 + 45 + 64 + 58 bits for the centre, 218 for the scale).
AxisOut solve_axis(const AxisIn &a, uint64_t zoom_q40, bool keep_inside, bool centre) {
  AxisOut out;
  const Wide den = Wide(a.base.den) * zoom_q40 << 44;
  const Wide size = Wide(a.src) * a.base.num << 84;
  const Wide half = size >> 1;
  const uint64_t from_left = static_cast<uint64_t>((int64_t{1} << 43) + a.centre_q44);  // 0..2^44
  const Wide middle = Wide(a.src) * from_left * a.base.den * zoom_q40;
  bool negative = middle < half;
  Wide pos = negative ? half - middle : middle - half;
  if (keep_inside) {
    const Wide limit = den * a.src - size;  // >= 0: f <= 1 <= z
    if (negative) {
      pos = Wide();
      negative = false;
    } else if (limit < pos) {
      pos = limit;
    }
  }
  out.src_pos = ratio_to_double(pos, den, negative);
  out.src_size = ratio_to_double(size, den);

  const Wide dst_full = Wide(a.dst) * a.extent.den;
  const Wide dst_size = Wide(a.dst) * a.extent.num;
  out.dst_size = ratio_to_double(dst_size, Wide(a.extent.den));
  out.dst_pos = 0.0;
  if (centre) {
    const bool overhang = dst_full < dst_size;
    out.dst_pos = ratio_to_double(overhang ? dst_size - dst_full : dst_full - dst_size,
                                  Wide(a.extent.den) * 2, overhang);
  }
  // dst e / (n f / z) = dst en fd zoom / (ed n fn 2^40).
  out.scale = ratio_to_float(Wide(a.dst) * a.extent.num * a.base.den * zoom_q40,
                             Wide(a.extent.den) * a.src * a.base.num << 40);
  return out;
}

}  // namespace

HRESULT subpixel_scaler_helper_validate(const DSP_SUBPIXEL_SCALER_HELPER_IN *in) {
  if (!in->ulSrcAspectNumerator || !in->ulSrcAspectDenominator || !in->ulDstAspectNumerator ||
      !in->ulDstAspectDenominator) {
    refuse(kHelper, "an aspect term is 0 (source %u:%u, destination %u:%u)", in->ulSrcAspectNumerator,
           in->ulSrcAspectDenominator, in->ulDstAspectNumerator, in->ulDstAspectDenominator);
    return kInvalidArg;
  }
  if (!in->ulSrcWidth || !in->ulSrcHeight || !in->ulDstWidth || !in->ulDstHeight) {
    refuse(kHelper, "an image size is 0 (source %ux%u, destination %ux%u)", in->ulSrcWidth,
           in->ulSrcHeight, in->ulDstWidth, in->ulDstHeight);
    return kInvalidArg;
  }
  if (in->ulModeFlags & ~kKnownModes) {
    refuse(kHelper, "mode flags 0x%X have bits above bit 3", in->ulModeFlags);
    return kInvalidArg;
  }
  if (!view_ok("A", in->ViewA) || !view_ok("B", in->ViewB)) return kInvalidArg;
  if (in->ulPhaseQ14 > kPhaseOneQ14) {
    refuse(kHelper, "phase %u is above 16384", in->ulPhaseQ14);
    return kInvalidArg;
  }
  if (in->ulEase > DSP_SUBPIXEL_SCALER_HELPER_EASE_SMOOTHSTEP) {
    refuse(kHelper, "ease %u is neither 0 (linear) nor 1 (smoothstep)", in->ulEase);
    return kInvalidArg;
  }
  for (int i = 0; i < 3; ++i) {
    if (in->ulReserved[i]) {
      refuse(kHelper, "reserved word %d is 0x%X, not 0", i, in->ulReserved[i]);
      return kInvalidArg;
    }
  }
  return kOk;
}

HRESULT subpixel_scaler_helper_worker(const DSP_SUBPIXEL_SCALER_HELPER_IN *in,
                                      DSP_SUBPIXEL_SCALER_HELPER_OUT *out) {
  worker_entry(kHelper);
  // r = p / q: the source picture's aspect over the destination's.
  const uint64_t p = uint64_t{in->ulSrcAspectNumerator} * in->ulDstAspectDenominator;
  const uint64_t q = uint64_t{in->ulSrcAspectDenominator} * in->ulDstAspectNumerator;
  const uint32_t mode = in->ulModeFlags;
  Ratio base_x{1, 1}, base_y{1, 1}, extent_x{1, 1}, extent_y{1, 1};
  if (mode & DSP_SUBPIXEL_SCALER_HELPER_FILL) {
    if (p <= q) {
      base_y = Ratio{p, q};  // the source is narrower: crop its height
    } else {
      base_x = Ratio{q, p};
    }
  } else if (mode & DSP_SUBPIXEL_SCALER_HELPER_FIT_WIDTH) {
    extent_y = Ratio{q, p};
  } else {
    extent_x = Ratio{p, q};
  }
  const uint32_t s = eased_phase_q30(in->ulPhaseQ14, in->ulEase);
  const uint64_t zoom = zoom_q40(in->ViewA.ulZoomQ14, in->ViewB.ulZoomQ14, s);
  const bool keep = (mode & DSP_SUBPIXEL_SCALER_HELPER_KEEP_INSIDE) != 0;
  const bool centre = (mode & DSP_SUBPIXEL_SCALER_HELPER_CENTRE) != 0;
  const AxisOut x = solve_axis(
      {in->ulSrcWidth, in->ulDstWidth, base_x, extent_x,
       centre_q44(in->ViewA.lCentreXQ14, in->ViewB.lCentreXQ14, s)},
      zoom, keep, centre);
  const AxisOut y = solve_axis(
      {in->ulSrcHeight, in->ulDstHeight, base_y, extent_y,
       centre_q44(in->ViewA.lCentreYQ14, in->ViewB.lCentreYQ14, s)},
      zoom, keep, centre);
  out->dSrcX = x.src_pos;
  out->dSrcY = y.src_pos;
  out->dSrcWidth = x.src_size;
  out->dSrcHeight = y.src_size;
  out->dDstX = x.dst_pos;
  out->dDstY = y.dst_pos;
  out->dDstWidth = x.dst_size;
  out->dDstHeight = y.dst_size;
  out->fHorizontalScale = x.scale;
  out->fVerticalScale = y.scale;
  return kOk;
}

}  // namespace framedsp
