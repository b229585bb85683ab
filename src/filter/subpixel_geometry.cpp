#include "filter/subpixel_geometry.h"

#include <cstring>

#include "copy/smart_copy.h"
#include "platform/status.h"

namespace framedsp {

uint32_t subpixel_whole(double value) {
  constexpr double kLimit = 9223372036854775808.0;  // 2^63
  if (!(value > -kLimit && value < kLimit)) return 0;
  return static_cast<uint32_t>(static_cast<uint64_t>(static_cast<int64_t>(value)));
}

DSP_IMAGE subpixel_whole_image(const DSP_SUBPIXEL_IMAGE &image) {
  DSP_IMAGE out;
  std::memset(&out, 0, sizeof out);
  out.Buffer.pBuffer = image.Buffer.pBuffer;
  out.Buffer.ulBytes = image.Buffer.ulBytes;
  out.Buffer.eBufferType = image.Buffer.eBufferType;
  out.Buffer.Region.ptOffset.x = static_cast<int32_t>(subpixel_whole(image.Buffer.Region.ptOffset.x));
  out.Buffer.Region.ptOffset.y = static_cast<int32_t>(subpixel_whole(image.Buffer.Region.ptOffset.y));
  out.Buffer.Region.ulWidth = subpixel_whole(image.Buffer.Region.ulWidth);
  out.Buffer.Region.ulHeight = subpixel_whole(image.Buffer.Region.ulHeight);
  out.ulReserved = image.ulReserved;
  out.ulWidth = image.ulWidth;
  out.ulHeight = image.ulHeight;
  out.ePixelFormat = image.ePixelFormat;
  out.eInterlace = image.eInterlace;
  out.eImageOrientation = image.eImageOrientation;
  out.eColorSpace = image.eColorSpace;
  out.ulPrimaryStrideBytes = image.ulPrimaryStrideBytes;
  out.ulSecondaryStrideBytes = image.ulSecondaryStrideBytes;
  out.ulFlags = image.ulFlags;
  return out;
}

DSP_BUFFER subpixel_whole_buffer(const DSP_SUBPIXEL_BUFFER &buffer) {
  DSP_BUFFER out;
  std::memset(&out, 0, sizeof out);
  out.In = subpixel_whole_image(buffer.In);
  out.Out = subpixel_whole_image(buffer.Out);
  out.ulSliceCount = 1;
  out.ulSliceNumber = 1;
  out.ulFlags = buffer.ulFlags;
  return out;
}

HRESULT subpixel_copy(const DSP_SUBPIXEL_BUFFER &buffer) {
  const DSP_BUFFER whole = subpixel_whole_buffer(buffer);
  return smart_copy(&whole);
}

}  // namespace framedsp
