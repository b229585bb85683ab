// Whole-pixel geometry of a fractional-region record.  The fractional filter and copy work on whole
// rows, columns and bytes: each region value is truncated toward zero to a 64-bit integer of which
// the low 32 bits are kept (so a negative size reads as its unsigned value and is then clipped by
// the line geometry like any other oversized region).  Values no 64-bit integer holds (NaN, the
// infinities, |v| >= 2^63) count as 0.
#pragma once

#include <cstdint>

#include "platform/status.h"

namespace framedsp {

uint32_t subpixel_whole(double value);

// The same image with its region in whole pixels.
DSP_IMAGE subpixel_whole_image(const DSP_SUBPIXEL_IMAGE &image);

// The record as a DSP_BUFFER: both sides through subpixel_whole_image, the flags carried, one band
// (the fractional record has no band fields).
DSP_BUFFER subpixel_whole_buffer(const DSP_SUBPIXEL_BUFFER &buffer);

// The copy of a fractional record (the fractional twin of DspBufferSmartCopy's passes, colour
// conversion included): the whole-pixel record through the copy.
HRESULT subpixel_copy(const DSP_SUBPIXEL_BUFFER &buffer);

}  // namespace framedsp
