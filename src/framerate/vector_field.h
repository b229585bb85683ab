// The block vector field the converter follows: a 48-byte header, then the forward entries
// (A -> B) and, when flagged, the backward entries (B -> A), row-major over the final blocks.
// The public header defines these records together with DspCreateMotionVectors; this file gives
// the same definitions to builds whose public header does not carry them yet.
#pragma once

#include <cstdint>

#include "framedsp/framedsp.h"

#ifndef DSP_VECTOR_FIELD_HEADER_BYTES
extern "C" {
#define DSP_VECTOR_FIELD_FORWARD 0x01u
#define DSP_VECTOR_FIELD_BACKWARD 0x02u
#define DSP_VECTOR_FIELD_WHOLE_PIXEL 0x04u

typedef struct DSP_VECTOR_FIELD {
  uint32_t ulFieldBytes;
  uint32_t ulWidth;
  uint32_t ulHeight;
  uint32_t ulBlockWidth;
  uint32_t ulBlockHeight;
  uint32_t ulColumns;
  uint32_t ulRows;
  uint32_t ulFieldFlags;
  uint32_t ulBadForward;
  uint32_t ulBadBackward;
  uint32_t ulSceneThreshold;
  uint32_t ulReserved;
} DSP_VECTOR_FIELD;

#define DSP_MV_BAD 0x01u
#define DSP_MV_INCONSISTENT 0x02u
#define DSP_MV_OUTSIDE 0x04u
#define DSP_MV_FLAT 0x08u
#define DSP_MV_REFINED 0x10u

typedef struct DSP_MOTION_VECTOR {
  int16_t sX;  // quarter pixels
  int16_t sY;
  uint16_t usCost;  // SAD per 64 pixels, saturated
  uint16_t usFlags;
} DSP_MOTION_VECTOR;

#define DSP_VECTOR_FIELD_HEADER_BYTES 48u
#define DSP_VECTOR_FIELD_BYTES(w, h, bw, bh) \
  (DSP_VECTOR_FIELD_HEADER_BYTES + 16u * (((w) + (bw) - 1u) / (bw)) * (((h) + (bh) - 1u) / (bh)))
}
#endif

static_assert(sizeof(DSP_VECTOR_FIELD) == 48, "field header is 48 bytes");
static_assert(sizeof(DSP_MOTION_VECTOR) == 8, "a field entry is 8 bytes");
