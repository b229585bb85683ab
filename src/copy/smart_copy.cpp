#include "copy/smart_copy.h"

#include <algorithm>
#include <cstring>

#include "copy/color_kernels.h"
#include "lines/buffer_record.h"
#include "lines/buffer_rules.h"
#include "lines/line_walk.h"
#include "lines/pixel_format.h"
#include "platform/cpu.h"
#include "platform/trace.h"
#include "platform/work_memory.h"

namespace framedsp {

HRESULT smart_copy_validate(const DSP_BUFFER *buffer) {
  const DSP_IMAGE &in = buffer->In;
  const DSP_IMAGE &out = buffer->Out;
  constexpr const char *kExport = "DspBufferSmartCopy";
  if (!copy_formats_pass(kExport, in, out)) return kInvalidArg;
  if (!interlace_pair_passes(kExport, in, out)) return kInvalidArg;
  if (has_full_chroma(in.ePixelFormat)) return kOk;
  return integer_widths_pass(kExport, in, out) ? kOk : kInvalidArg;
}

namespace {

// Bytes moved per line: the narrower of the two clipped regions.  A destination region wider than
// the source would otherwise read past the source region, and at the right edge of the source's
// last line past its image; the destination bytes beyond the source width are left as they are.
size_t line_bytes_to_move(const LCtrl &c) {
  return static_cast<size_t>(std::max(std::min(c.src_width, c.dst_width), 0));
}

// Source and destination lines may overlap (a copy inside one buffer), hence memmove.
HRESULT plain_pass(const DSP_BUFFER &buffer) {
  LCtrl c;
  lctrl_fill(buffer, &c);
  const size_t bytes = line_bytes_to_move(c);
  lctrl_for_each_line(buffer, &c,
                      [bytes](const uint8_t *src, uint8_t *dst) { std::memmove(dst, src, bytes); });
  return kOk;
}

// Only 8-bit 4:2:2 lines have a matrix kernel.  Key planes and the 16-bit or packed formats
// (22, 23, 31, 129, 261, 262) get none and are moved unchanged: a chroma matrix would corrupt
// alpha or 16-bit samples, and a kernel reading two bytes a pixel would run past a key line.
ColorLineKernel kernel_for(uint32_t format, const ColorKernelTable &kernels) {
  if (has_full_chroma(format) || bytes_per_pixel(format) != 2) return nullptr;
  switch (format_class(format)) {
    case 0:
    case 1:
      return kernels.uyvy;
    case 2:
      return kernels.yuyv;
    default:
      return nullptr;
  }
}

HRESULT color_pass(const DSP_BUFFER &buffer, const ColorKernelTable &kernels) {
  const ColorLineKernel kernel = kernel_for(buffer.In.ePixelFormat, kernels);
  if (!kernel) return plain_pass(buffer);
  const ColorMatrix *matrix = color_matrix(buffer.In.eColorSpace, buffer.Out.eColorSpace);

  LCtrl c;
  lctrl_fill(buffer, &c);
  const size_t pixels = static_cast<size_t>(std::max(std::min(c.src_columns, c.dst_columns), 0));
  const size_t bytes = line_bytes_to_move(c);
  WorkLine work;  // released by its destructor on every path, exceptions included
  if (!work.allocate(static_cast<size_t>(std::max(c.src_width, 0)))) return kOutOfMemory;
  uint8_t *const line = work.data();
  lctrl_for_each_line(buffer, &c, [&](const uint8_t *src, uint8_t *dst) {
    kernel(src, line, pixels, matrix);
    std::memmove(dst, line, bytes);
  });
  work.release();
  return kOk;
}

bool converts(const DSP_BUFFER &buffer) {
  return buffer.In.eColorSpace != buffer.Out.eColorSpace &&
         !has_full_chroma(buffer.In.ePixelFormat);
}

HRESULT run_pass(const DSP_BUFFER &buffer, const ColorKernelTable &kernels) {
  return converts(buffer) ? color_pass(buffer, kernels) : plain_pass(buffer);
}

}  // namespace

HRESULT smart_copy(const DSP_BUFFER *buffer) {
  worker_entry("DspBufferSmartCopy");
  return smart_copy_unchecked(buffer);
}

HRESULT smart_copy_unchecked(const DSP_BUFFER *buffer) {
  DSP_BUFFER copy = *buffer;
  normalise_orientation(&copy);
  if (copy.ulSliceCount == 0) copy.ulSliceCount = 1;
  if (copy.ulSliceNumber == 0) copy.ulSliceNumber = 1;

  ColorKernelTable kernels;
  color_table_init(&kernels, cpu_flags());

  const HRESULT hr =
      for_each_plane(copy, [&kernels](const DSP_BUFFER &plane) { return run_pass(plane, kernels); });
  return hr == kOk ? kOk : kFail;
}

}  // namespace framedsp
