#include "filter/fir_plane.h"

#include <algorithm>
#include <cstring>

#include "filter/fir_kernels.h"
#include "lines/line_walk.h"
#include "lines/pixel_format.h"
#include "platform/cpu.h"
#include "platform/work_memory.h"

namespace framedsp {
namespace {

// Where a source line sits for the vertical taps: its row in picture order inside the rows that
// may be mixed with it (a half of a frame whose fields lie one after the other, else the plane),
// their count, and the bytes from one picture row to the next.
struct FirSourceRow {
  int32_t rows;
  int32_t row;
  ptrdiff_t stride;
};

FirSourceRow locate(const DSP_IMAGE &in, int32_t memory_row) {
  const int32_t height = static_cast<int32_t>(in.ulHeight);
  const ptrdiff_t stride = static_cast<ptrdiff_t>(in.ulPrimaryStrideBytes);
  const bool bottom_up = in.eImageOrientation == DSP_ORIENTATION_BOTTOM_UP;
  FirSourceRow s{height, bottom_up ? height - 1 - memory_row : memory_row, bottom_up ? -stride : stride};
  if (in.Buffer.eBufferType == DSP_BUFFER_TYPE_FRAME && in.eInterlace == DSP_INTERLACE_SEPARATE) {
    const int32_t upper = height / 2;
    if (s.row < upper) {
      s.rows = upper;
    } else {
      s.row -= upper;
      s.rows = height - upper;
    }
  }
  return s;
}

// The walk of both plane filters; `vk` is null when no vertical row is on.
HRESULT fir_plane(const DSP_BUFFER &buffer, const FirTap *horz, int horz_taps, FirVertKernel vk,
                  const FirTap *vert) {
  FirKernelTable table;
  fir_table_init(&table, cpu_flags());
  const uint32_t cls = format_class(buffer.In.ePixelFormat);
  const FirHorzKernel hk =
      horz ? table.horz[kFirTableCount * cls + fir_table_index(static_cast<uint32_t>(horz_taps))] : nullptr;

  const LineWalk walk(buffer, copy_layout(buffer.In.ePixelFormat));
  const LCtrl &c = walk.control();
  const size_t bytes = static_cast<size_t>(std::max(std::min(c.src_width, c.dst_width), 0));
  if (bytes == 0 || (!hk && !vk)) return kOk;
  if (buffer.In.ulPrimaryStrideBytes == 0) return kOk;
  // Interlaced rows walked a field at a time (every second row) keep to their field's rows.
  const int field_shift = c.src_line_increment == 2 ? 1 : 0;

  WorkLine first, second;  // released by their destructors on every path
  if (!first.allocate(bytes) || (hk && vk && !second.allocate(bytes))) return kOutOfMemory;
  uint8_t *const line1 = first.data();
  uint8_t *const line2 = hk && vk ? second.data() : nullptr;

  walk.for_each_line([&](const WalkLine &l) {
    const uint8_t *result = line1;
    if (vk) {
      const FirSourceRow s = locate(buffer.In, l.src_row);
      vk(l.src, line1, s.rows, s.row, bytes, s.stride, 0, 0, field_shift, vert);
      if (hk) {
        hk(line1, line2, bytes, horz, 0, 0);
        result = line2;
      }
    } else {
      hk(l.src, line1, bytes, horz, 0, 0);
    }
    std::memmove(l.dst, result, bytes);
  });
  return kOk;
}

}  // namespace

HRESULT fir_filter_plane(const DSP_BUFFER &buffer, const FirTap *horz, int horz_taps,
                         const FirTap *vert, int vert_taps) {
  FirKernelTable table;
  fir_table_init(&table, cpu_flags());
  const FirVertKernel vk = vert ? table.vert[fir_table_index(static_cast<uint32_t>(vert_taps))] : nullptr;
  return fir_plane(buffer, horz, horz_taps, vk, vert);
}

HRESULT subpixel_fir_plane(const DSP_BUFFER &buffer, const FirTap *horz, int horz_taps,
                           const FirTap *vert, int vert_taps) {
  FirSubKernelTable sub;
  fir_sub_table_init(&sub, cpu_flags());
  // Byte kernels for every class, as the whole-pixel filter does.
  const FirVertKernel vk = vert ? sub.vert[fir_table_index(static_cast<uint32_t>(vert_taps))] : nullptr;
  return fir_plane(buffer, horz, horz_taps, vk, vert);
}

}  // namespace framedsp
