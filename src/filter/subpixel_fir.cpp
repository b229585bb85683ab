// FIR low-pass of one plane of a fractional-region call: as fir_filter_plane, with the vertical
// taps clamped to the plane's absolute first and last rows (FirSubVertKernel).
#include <algorithm>
#include <cstring>

#include "filter/fir_kernels.h"
#include "filter/subpixel_filter.h"
#include "frame/cpu.h"
#include "frame/work_memory.h"
#include "lines/lctrl.h"

namespace framedsp {

namespace {

struct Plane {
  const uint8_t *base;
  ptrdiff_t stride;  // primary stride, > 0
  int32_t height;
  bool bottom_up;
  bool halves;  // a frame with field A in the upper half, field B in the lower
};

// Picture row of a source line within the rows that may be mixed with it, and their count.
struct Row {
  int32_t rows;
  int32_t row;
  ptrdiff_t pitch;  // bytes from one picture row to the next
};

Row locate(const Plane &p, const uint8_t *line) {
  const int32_t memory_row = static_cast<int32_t>((line - p.base) / p.stride);
  Row r{p.height, p.bottom_up ? p.height - 1 - memory_row : memory_row,
        p.bottom_up ? -p.stride : p.stride};
  if (p.halves) {
    const int32_t upper = p.height / 2;
    if (r.row < upper) {
      r.rows = upper;
    } else {
      r.row -= upper;
      r.rows = p.height - upper;
    }
  }
  return r;
}

}  // namespace

HRESULT subpixel_fir_plane(const DSP_BUFFER &buffer, const FirTap *horz, int horz_taps,
                           const FirTap *vert, int vert_taps) {
  FirKernelTable table;
  fir_table_init(&table, cpu_flags());
  FirSubKernelTable sub;
  fir_sub_table_init(&sub, cpu_flags());
  const int cls = fir_layout_class(buffer.In.ePixelFormat);
  const FirHorzKernel hk =
      horz ? table.horz[kFirTableCount * cls + fir_tap_index(static_cast<uint32_t>(horz_taps))]
           : nullptr;
  // Byte kernels for every class, as the whole-pixel filter does.
  const FirSubVertKernel vk =
      vert ? sub.vert[fir_tap_index(static_cast<uint32_t>(vert_taps))] : nullptr;

  LCtrl c;
  lctrl_fill(buffer, &c);
  const size_t bytes = static_cast<size_t>(std::max(std::min(c.src_width, c.dst_width), 0));
  if (bytes == 0 || (!hk && !vk)) return kOk;

  const DSP_IMAGE &in = buffer.In;
  const Plane plane{static_cast<const uint8_t *>(in.Buffer.pBuffer),
                    static_cast<ptrdiff_t>(in.ulPrimaryStrideBytes),
                    static_cast<int32_t>(in.ulHeight),
                    in.eImageOrientation == DSP_ORIENTATION_BOTTOM_UP,
                    in.Buffer.eBufferType == DSP_BUFFER_TYPE_FRAME &&
                        in.eInterlace == DSP_INTERLACE_SEPARATE};
  if (plane.stride <= 0) return kOk;
  const int field_shift = c.src_line_increment == 2 ? 1 : 0;

  WorkLine first, second;  // released by their destructors on every path
  if (!first.allocate(bytes) || (hk && vk && !second.allocate(bytes))) return kOutOfMemory;
  uint8_t *const line1 = first.data();
  uint8_t *const line2 = hk && vk ? second.data() : nullptr;

  lctrl_for_each_line(buffer, &c, [&](const uint8_t *src, uint8_t *dst) {
    const uint8_t *result = line1;
    if (vk) {
      const Row r = locate(plane, src);
      const uint8_t *row0 = src - r.row * r.pitch;  // picture row 0, same column
      vk(row0, line1, r.rows, r.row, bytes, r.pitch * (ptrdiff_t{1} << field_shift), vert, 0, 0,
         0, field_shift);
      if (hk) {
        hk(line1, line2, bytes, horz, 0, 0);
        result = line2;
      }
    } else {
      hk(src, line1, bytes, horz, 0, 0);
    }
    std::memmove(dst, result, bytes);
  });
  return kOk;
}

}  // namespace framedsp
