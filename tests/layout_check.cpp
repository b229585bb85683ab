// Compile-time checks of every record's size and field offsets.  Built twice: into the test
// binary (LP64 offsets) and, by `make test`, with -m32 -fsyntax-only (ILP32 offsets, the layout
// 32-bit Windows hosts were written against).  Needs only the compiler's freestanding headers.
#include <stddef.h>

#include "framedsp/framedsp.h"

#define AT(type, field, off) static_assert(offsetof(type, field) == (off), #type "." #field)
#define SIZE(type, n) static_assert(sizeof(type) == (n), "sizeof " #type)

#if UINTPTR_MAX == 0xFFFFFFFFu
// ---- ILP32 -------------------------------------------------------------------------------------
// DSP_IMAGE and DSP_SUBPIXEL_IMAGE share their fields; the fractional region holds doubles.
#define IMAGE_AT(field, image, subpixel) \
  AT(DSP_IMAGE, field, image);          \
  AT(DSP_SUBPIXEL_IMAGE, field, subpixel)
SIZE(DSP_IMAGE, 68);
SIZE(DSP_SUBPIXEL_IMAGE, 84);
IMAGE_AT(Buffer.pBuffer, 0, 0);
IMAGE_AT(Buffer.ulBytes, 4, 4);
IMAGE_AT(Buffer.eBufferType, 8, 8);
IMAGE_AT(Buffer.Region.ptOffset.x, 12, 12);
IMAGE_AT(Buffer.Region.ptOffset.y, 16, 20);
IMAGE_AT(Buffer.Region.ulWidth, 20, 28);
IMAGE_AT(Buffer.Region.ulHeight, 24, 36);
IMAGE_AT(ulReserved, 28, 44);
IMAGE_AT(ulWidth, 32, 48);
IMAGE_AT(ulHeight, 36, 52);
IMAGE_AT(ePixelFormat, 40, 56);
IMAGE_AT(eInterlace, 44, 60);
IMAGE_AT(eImageOrientation, 48, 64);
IMAGE_AT(eColorSpace, 52, 68);
IMAGE_AT(ulPrimaryStrideBytes, 56, 72);
IMAGE_AT(ulSecondaryStrideBytes, 60, 76);
IMAGE_AT(ulFlags, 64, 80);

SIZE(DSP_BUFFER, 148);
AT(DSP_BUFFER, In, 0);
AT(DSP_BUFFER, Out, 68);
AT(DSP_BUFFER, ulSliceCount, 136);
AT(DSP_BUFFER, ulSliceNumber, 140);
AT(DSP_BUFFER, ulFlags, 144);

SIZE(DSP_SUBPIXEL_BUFFER, 172);
AT(DSP_SUBPIXEL_BUFFER, Out, 84);
AT(DSP_SUBPIXEL_BUFFER, ulFlags, 168);

SIZE(DSP_FILTER_PARAMS, 172);
AT(DSP_FILTER_PARAMS, eFilterType, 0);
AT(DSP_FILTER_PARAMS, pSettings, 4);
AT(DSP_FILTER_PARAMS, ulReserved, 8);
AT(DSP_FILTER_PARAMS, Buffer, 12);
AT(DSP_FILTER_PARAMS, ulReserved2, 160);
AT(DSP_FILTER_PARAMS, ulOptions, 168);

SIZE(DSP_SUBPIXEL_FILTER_PARAMS, 188);
AT(DSP_SUBPIXEL_FILTER_PARAMS, pSettings, 4);
AT(DSP_SUBPIXEL_FILTER_PARAMS, Buffer, 12);
AT(DSP_SUBPIXEL_FILTER_PARAMS, ulOptions, 184);

// Both scaler records open with the same fields.
#define SCALERS_AT(field, off)       \
  AT(DSP_SCALER_PARAMS, field, off); \
  AT(DSP_SUBPIXEL_SCALER_PARAMS, field, off)
SCALERS_AT(eScalerPath, 0);
SCALERS_AT(eFilter, 4);
SCALERS_AT(fHorizontalScale, 8);
SCALERS_AT(fVerticalScale, 12);
SCALERS_AT(ulScaleFlags, 16);
SCALERS_AT(eFilterType, 20);
SCALERS_AT(pSettings, 24);
SCALERS_AT(ulReserved, 28);
SCALERS_AT(Buffer, 32);
SIZE(DSP_SCALER_PARAMS, 184);
AT(DSP_SCALER_PARAMS, ulOptions, 180);

SIZE(DSP_NONUNIFORM_SCALER_PARAMS, 184);
AT(DSP_NONUNIFORM_SCALER_PARAMS, eStretchMode, 0);
AT(DSP_NONUNIFORM_SCALER_PARAMS, eFilter, 4);
AT(DSP_NONUNIFORM_SCALER_PARAMS, ulCentreWidthQ14, 8);
AT(DSP_NONUNIFORM_SCALER_PARAMS, ulCentreScaleQ14, 12);
AT(DSP_NONUNIFORM_SCALER_PARAMS, ulReserved, 16);
AT(DSP_NONUNIFORM_SCALER_PARAMS, eFilterType, 20);
AT(DSP_NONUNIFORM_SCALER_PARAMS, pSettings, 24);
AT(DSP_NONUNIFORM_SCALER_PARAMS, ulReserved2, 28);
AT(DSP_NONUNIFORM_SCALER_PARAMS, Buffer, 32);
AT(DSP_NONUNIFORM_SCALER_PARAMS, ulOptions, 180);

SIZE(DSP_SUBPIXEL_SCALER_PARAMS, 284);
AT(DSP_SUBPIXEL_SCALER_PARAMS, ulEdgeMode, 204);
AT(DSP_SUBPIXEL_SCALER_PARAMS, ulFillColor, 208);
AT(DSP_SUBPIXEL_SCALER_PARAMS, ulCoverage, 212);
AT(DSP_SUBPIXEL_SCALER_PARAMS, ulAntiRingingQ8, 216);
AT(DSP_SUBPIXEL_SCALER_PARAMS, ulChromaSiting, 220);
AT(DSP_SUBPIXEL_SCALER_PARAMS, ulFieldMode, 224);
AT(DSP_SUBPIXEL_SCALER_PARAMS, ulCubicBQ14, 228);
AT(DSP_SUBPIXEL_SCALER_PARAMS, ulCubicCQ14, 232);
AT(DSP_SUBPIXEL_SCALER_PARAMS, ulSliceCount, 236);
AT(DSP_SUBPIXEL_SCALER_PARAMS, ulSliceNumber, 240);
AT(DSP_SUBPIXEL_SCALER_PARAMS, ulReserved2, 244);
AT(DSP_SUBPIXEL_SCALER_PARAMS, ulOptions, 280);

SIZE(DSP_MIPMAP_LEVELS, 4 + 5 * 68);
AT(DSP_MIPMAP_LEVELS, Levels, 4);
SIZE(DSP_MIPMAP_PARAMS, 76);
AT(DSP_MIPMAP_PARAMS, pLevels, 68);
AT(DSP_MIPMAP_PARAMS, eFilter, 72);

SIZE(DSP_COMPARE_PARAMS, 38 * 4);
AT(DSP_COMPARE_PARAMS, BufferA.pBuffer, 0);
AT(DSP_COMPARE_PARAMS, BufferA.ulBytes, 4);
AT(DSP_COMPARE_PARAMS, BufferB, 12);
AT(DSP_COMPARE_PARAMS, BufferOut, 24);
AT(DSP_COMPARE_PARAMS, ulWidth, 36);
AT(DSP_COMPARE_PARAMS, ulHeight, 40);
AT(DSP_COMPARE_PARAMS, ulImageBytes, 44);
AT(DSP_COMPARE_PARAMS, ulPrimaryStrideBytes, 48);
AT(DSP_COMPARE_PARAMS, ulSecondaryStrideBytes, 52);
AT(DSP_COMPARE_PARAMS, ePixelFormat, 72);
AT(DSP_COMPARE_PARAMS, dResults, 80);
AT(DSP_COMPARE_PARAMS, ulReserved3, 144);

SIZE(DSP_FRAME_RATE_CONVERT_PARAMS, 243);
AT(DSP_FRAME_RATE_CONVERT_PARAMS, FrameB, 68);
AT(DSP_FRAME_RATE_CONVERT_PARAMS, FrameOut, 136);
AT(DSP_FRAME_RATE_CONVERT_PARAMS, pVectorField, 204);
AT(DSP_FRAME_RATE_CONVERT_PARAMS, ulPhaseQ14, 208);
AT(DSP_FRAME_RATE_CONVERT_PARAMS, ulVectorFieldBytes, 212);
AT(DSP_FRAME_RATE_CONVERT_PARAMS, ulRefineThreshold, 216);
AT(DSP_FRAME_RATE_CONVERT_PARAMS, bConvertFlags, 220);
AT(DSP_FRAME_RATE_CONVERT_PARAMS, bOverlay, 221);
AT(DSP_FRAME_RATE_CONVERT_PARAMS, ulSliceCount, 222);
AT(DSP_FRAME_RATE_CONVERT_PARAMS, ulSliceNumber, 226);
AT(DSP_FRAME_RATE_CONVERT_PARAMS, ulOcclusionThreshold, 230);
AT(DSP_FRAME_RATE_CONVERT_PARAMS, ulFallbackThreshold, 234);
AT(DSP_FRAME_RATE_CONVERT_PARAMS, eSampling, 238);
AT(DSP_FRAME_RATE_CONVERT_PARAMS, ulReserved, 239);

SIZE(DSP_MOTION_VECTORS_PARAMS, 160);
AT(DSP_MOTION_VECTORS_PARAMS, pLevelsB, 4);
AT(DSP_MOTION_VECTORS_PARAMS, pVectorField, 8);
AT(DSP_MOTION_VECTORS_PARAMS, ulVectorFieldBytes, 12);
AT(DSP_MOTION_VECTORS_PARAMS, pPriorField, 16);
AT(DSP_MOTION_VECTORS_PARAMS, ulMotionFlags, 20);
AT(DSP_MOTION_VECTORS_PARAMS, ulLambda, 24);
AT(DSP_MOTION_VECTORS_PARAMS, ulSceneThreshold, 28);
AT(DSP_MOTION_VECTORS_PARAMS, ulReserved, 148);
// The search settings are one block in both records (the converter hands its own to the search).
#define SEARCH_AT(field, motion)                 \
  AT(DSP_MOTION_VECTORS_PARAMS, field, motion); \
  AT(DSP_FRAME_RATE_CONVERTER_PARAMS, field, (motion) + 12)
SEARCH_AT(ulLevels, 32);
SEARCH_AT(ulLevelThreshold, 36);
SEARCH_AT(ulReserved17, 56);
SEARCH_AT(ulLevelBlockA, 60);
SEARCH_AT(ulLevelBlockB, 80);
SEARCH_AT(ulBlockA, 100);
SEARCH_AT(ulBlockB, 104);
SEARCH_AT(ulLevelRangeX, 108);
SEARCH_AT(ulLevelRangeY, 128);

#elif UINTPTR_MAX == 0xFFFFFFFFFFFFFFFFu
// ---- LP64 (natural layout of the same structs) -------------------------------------------------
// Sizes, and the offsets where the pointers' width or alignment moves a field; the rest follows
// from the ILP32 pins (the same fields in the same order) and these.
SIZE(DSP_IMAGE, 72);
AT(DSP_IMAGE, Buffer.ulBytes, 8);
SIZE(DSP_BUFFER, 160);
SIZE(DSP_SUBPIXEL_IMAGE, 88);
SIZE(DSP_SUBPIXEL_BUFFER, 180);

SIZE(DSP_FILTER_PARAMS, 200);
AT(DSP_FILTER_PARAMS, pSettings, 8);
AT(DSP_FILTER_PARAMS, Buffer, 24);
SIZE(DSP_SUBPIXEL_FILTER_PARAMS, 208);
AT(DSP_SUBPIXEL_FILTER_PARAMS, Buffer, 20);

SIZE(DSP_SCALER_PARAMS, 208);
AT(DSP_SCALER_PARAMS, pSettings, 24);
AT(DSP_SCALER_PARAMS, Buffer, 40);
SIZE(DSP_NONUNIFORM_SCALER_PARAMS, 208);
AT(DSP_NONUNIFORM_SCALER_PARAMS, pSettings, 24);
AT(DSP_NONUNIFORM_SCALER_PARAMS, Buffer, 40);
SIZE(DSP_SUBPIXEL_SCALER_PARAMS, 296);
AT(DSP_SUBPIXEL_SCALER_PARAMS, pSettings, 24);
AT(DSP_SUBPIXEL_SCALER_PARAMS, Buffer, 36);

SIZE(DSP_MIPMAP_LEVELS, 4 + 4 + 5 * 72);
AT(DSP_MIPMAP_LEVELS, Levels, 8);
SIZE(DSP_MIPMAP_PARAMS, 88);
AT(DSP_MIPMAP_PARAMS, eFilter, 80);

SIZE(DSP_COMPARE_PARAMS, 168);
AT(DSP_COMPARE_PARAMS, dResults, 96);

SIZE(DSP_FRAME_RATE_CONVERT_PARAMS, 259);
AT(DSP_FRAME_RATE_CONVERT_PARAMS, ulPhaseQ14, 224);

SIZE(DSP_MOTION_VECTORS_PARAMS, 184);
AT(DSP_MOTION_VECTORS_PARAMS, ulVectorFieldBytes, 24);
AT(DSP_MOTION_VECTORS_PARAMS, pPriorField, 32);
AT(DSP_MOTION_VECTORS_PARAMS, ulMotionFlags, 40);
#else
#error "unknown pointer width"
#endif

// ---- the same everywhere (no pointers) ---------------------------------------------------------
SIZE(DSP_FIR_SETTINGS, 20);
AT(DSP_FIR_SETTINGS, ulVertTaps, 12);
AT(DSP_FIR_SETTINGS, ulVertCutoff, 16);
SIZE(DSP_BOX_SETTINGS, 12);
AT(DSP_BOX_SETTINGS, ulVertSize, 8);

SIZE(DSP_SCALER_HELPER_IN, 60);
AT(DSP_SCALER_HELPER_IN, ulSrcRegionHeight, 20);
AT(DSP_SCALER_HELPER_IN, ulDstAspectNumerator, 28);
AT(DSP_SCALER_HELPER_IN, ulDstRegionHeight, 48);
AT(DSP_SCALER_HELPER_IN, ulFlags, 56);
SIZE(DSP_SCALER_HELPER_OUT, 16);
AT(DSP_SCALER_HELPER_OUT, fHorizontalScale, 8);
AT(DSP_SCALER_HELPER_OUT, fVerticalScale, 12);

SIZE(DSP_SUBPIXEL_SCALER_HELPER_IN, 80);
AT(DSP_SUBPIXEL_SCALER_HELPER_IN, ulModeFlags, 32);
AT(DSP_SUBPIXEL_SCALER_HELPER_IN, ViewB.ulZoomQ14, 48);
AT(DSP_SUBPIXEL_SCALER_HELPER_IN, ulPhaseQ14, 60);
AT(DSP_SUBPIXEL_SCALER_HELPER_IN, ulReserved, 68);
SIZE(DSP_SUBPIXEL_SCALER_HELPER_OUT, 72);
AT(DSP_SUBPIXEL_SCALER_HELPER_OUT, dDstX, 32);
AT(DSP_SUBPIXEL_SCALER_HELPER_OUT, fHorizontalScale, 64);

SIZE(DSP_FRAME_RATE_CONVERTER_PARAMS, 192);
AT(DSP_FRAME_RATE_CONVERTER_PARAMS, ulBaseCount, 0 * 4);
AT(DSP_FRAME_RATE_CONVERTER_PARAMS, ulDerivedCount, 1 * 4);
AT(DSP_FRAME_RATE_CONVERTER_PARAMS, fRateA, 3 * 4);
AT(DSP_FRAME_RATE_CONVERTER_PARAMS, fRateB, 4 * 4);
AT(DSP_FRAME_RATE_CONVERTER_PARAMS, lWidth, 7 * 4);
AT(DSP_FRAME_RATE_CONVERTER_PARAMS, lHeight, 8 * 4);
AT(DSP_FRAME_RATE_CONVERTER_PARAMS, eConvertMode, 10 * 4);
AT(DSP_FRAME_RATE_CONVERTER_PARAMS, ulReserved40, 40 * 4);
AT(DSP_FRAME_RATE_CONVERTER_PARAMS, bDeriveCount, 47 * 4 + 2);

SIZE(DSP_VECTOR_FIELD, 48);
AT(DSP_VECTOR_FIELD, ulColumns, 20);
AT(DSP_VECTOR_FIELD, ulFieldFlags, 28);
AT(DSP_VECTOR_FIELD, ulBadForward, 32);
AT(DSP_VECTOR_FIELD, ulSceneThreshold, 40);
SIZE(DSP_MOTION_VECTOR, 8);
AT(DSP_MOTION_VECTOR, sY, 2);
AT(DSP_MOTION_VECTOR, usCost, 4);
AT(DSP_MOTION_VECTOR, usFlags, 6);
static_assert(DSP_VECTOR_FIELD_BYTES(1280, 720, 8, 8) == 48 + 16 * 160 * 90, "field size");
static_assert(DSP_VECTOR_FIELD_BYTES(17, 9, 8, 8) == 48 + 16 * 3 * 2, "partial blocks round up");
