#include "analysis/compare.h"

#include <cstddef>
#include <cstdint>

#include "analysis/compare_kernels.h"
#include "lines/pixel_format.h"
#include "platform/cpu.h"
#include "platform/trace.h"

namespace framedsp {

namespace {

// Bytes per line of a one-plane format.  Widths come from a 32-bit field, so the product needs
// up to 34 bits: computed in 64.  Where size_t is 32 bits such a line could not exist in memory
// anyway; it is saturated rather than wrapped (buffers are trusted, so this only decides which
// wrong answer an impossible record gets).
size_t line_bytes(uint32_t width, uint32_t format) {
  uint64_t bytes = static_cast<uint64_t>(width) * bytes_per_pixel(format);
  if constexpr (sizeof(size_t) < sizeof(uint64_t)) {
    if (bytes > SIZE_MAX) bytes = SIZE_MAX & ~size_t{3};
  }
  return static_cast<size_t>(bytes);
}

// The one-plane pass: the kernel of the record's format over ulHeight lines, results straight
// into the record's dResults.
void line_pass(DSP_COMPARE_PARAMS *p, const CompareKernelTable &table) {
  const uint32_t format = p->ePixelFormat;
  const CompareKernel kernel = table.kernel[compare_kernel_id(format)];
  kernel(static_cast<const uint8_t *>(p->BufferA.pBuffer),
         static_cast<const uint8_t *>(p->BufferB.pBuffer),
         static_cast<uint8_t *>(p->BufferOut.pBuffer), p->ulHeight,
         line_bytes(p->ulWidth, format), p->ulPrimaryStrideBytes, p->dResults);
}

void set_plane_bytes(DSP_COMPARE_PARAMS *p, uint32_t plane_bytes) {
  p->ulImageBytes = plane_bytes;
  p->BufferA.ulBytes = plane_bytes;
  p->BufferB.ulBytes = plane_bytes;
  p->BufferOut.ulBytes = plane_bytes;
}

void *advance(void *base, size_t bytes) { return static_cast<uint8_t *>(base) + bytes; }

}  // namespace

HRESULT compare_validate(const DSP_COMPARE_PARAMS *params) {
  if (compare_format(params->ePixelFormat)) return kOk;
  refuse("DspCompare", "pixel format %u is not one the comparison takes (0, 1, 5, 21, 25, 28, 30, 261)",
         params->ePixelFormat);
  return kInvalidArg;
}

HRESULT compare_worker(DSP_COMPARE_PARAMS *params) {
  worker_entry("DspCompare");
  CompareKernelTable table;
  compare_table_init(&table, cpu_flags());

  if (!is_two_plane(params->ePixelFormat)) {
    line_pass(params, table);
    return kOk;
  }

  uint32_t colour_format = 0;
  uint32_t key_format = 0;
  split_format(params->ePixelFormat, &colour_format, &key_format);
  const uint32_t height = params->ulHeight;
  const uint32_t stride = params->ulPrimaryStrideBytes;
  const uint32_t key_stride = params->ulSecondaryStrideBytes;

  // Pass 1, the picture.  The byte counts are 32-bit record fields (wrapping as they would in
  // the host's record); nothing reads them.
  DSP_COMPARE_PARAMS colour = *params;
  colour.ePixelFormat = colour_format;
  set_plane_bytes(&colour, stride * height);
  line_pass(&colour, table);
  static constexpr int kColourSlots[] = {0, 1, 2, 4, 5, 6};
  for (int slot : kColourSlots) params->dResults[slot] = colour.dResults[slot];

  // Pass 2, the key plane right after the picture's ulHeight lines, with its own stride.
  DSP_COMPARE_PARAMS key = *params;
  const size_t key_offset = static_cast<size_t>(stride) * height;
  key.BufferA.pBuffer = advance(params->BufferA.pBuffer, key_offset);
  key.BufferB.pBuffer = advance(params->BufferB.pBuffer, key_offset);
  key.BufferOut.pBuffer = advance(params->BufferOut.pBuffer, key_offset);
  key.ulPrimaryStrideBytes = key_stride;
  key.ePixelFormat = key_format;
  set_plane_bytes(&key, key_stride * height);
  line_pass(&key, table);
  params->dResults[3] = key.dResults[3];
  params->dResults[7] = key.dResults[7];
  return kOk;
}

}  // namespace framedsp
