// FIR low-pass of one plane: per output line, the vertical kernel into work line 1, the
// horizontal kernel into work line 2, one move into the destination line.
#include <algorithm>
#include <cstring>

#include "filter/filter_planes.h"
#include "filter/fir_kernels.h"
#include "frame/cpu.h"
#include "frame/work_memory.h"
#include "lines/lctrl.h"

namespace framedsp {

namespace {

// Where a source line sits for the vertical taps: its row in picture order inside the rows that
// may be mixed with it, their count, and the bytes from one picture row to the next.
struct SourceRow {
  int32_t rows;
  int32_t row;
  ptrdiff_t stride;
  int field_shift;
};

struct SourcePlane {
  const uint8_t *base;
  ptrdiff_t stride;  // primary stride, > 0
  int32_t height;
  bool bottom_up;
  bool halves;       // a frame with field A in the upper half, field B in the lower
  int field_shift;   // 1 when the walk takes every second row (one field of interleaved rows)
};

SourceRow locate(const SourcePlane &p, const uint8_t *line) {
  const int32_t memory_row = static_cast<int32_t>((line - p.base) / p.stride);
  SourceRow s{p.height, p.bottom_up ? p.height - 1 - memory_row : memory_row,
              p.bottom_up ? -p.stride : p.stride, p.field_shift};
  if (p.halves) {
    const int32_t upper = p.height / 2;
    if (s.row < upper) {
      s.rows = upper;
    } else {
      s.row -= upper;
      s.rows = p.height - upper;
    }
  }
  return s;
}

}  // namespace

HRESULT fir_filter_plane(const DSP_BUFFER &buffer, const FirTap *horz, int horz_taps,
                         const FirTap *vert, int vert_taps) {
  FirKernelTable table;
  fir_table_init(&table, cpu_flags());
  const int cls = fir_layout_class(buffer.In.ePixelFormat);
  const FirHorzKernel hk =
      horz ? table.horz[kFirTableCount * cls + fir_tap_index(static_cast<uint32_t>(horz_taps))]
           : nullptr;
  const FirVertKernel vk =
      vert ? table.vert[fir_tap_index(static_cast<uint32_t>(vert_taps))] : nullptr;

  LCtrl c;
  lctrl_fill(buffer, &c);
  const size_t bytes = static_cast<size_t>(std::max(std::min(c.src_width, c.dst_width), 0));
  if (bytes == 0 || (!hk && !vk)) return kOk;

  const DSP_IMAGE &in = buffer.In;
  SourcePlane plane{static_cast<const uint8_t *>(in.Buffer.pBuffer),
                    static_cast<ptrdiff_t>(in.ulPrimaryStrideBytes),
                    static_cast<int32_t>(in.ulHeight),
                    in.eImageOrientation == DSP_ORIENTATION_BOTTOM_UP,
                    in.Buffer.eBufferType == DSP_BUFFER_TYPE_FRAME &&
                        in.eInterlace == DSP_INTERLACE_SEPARATE,
                    c.src_line_increment == 2 ? 1 : 0};
  if (plane.stride <= 0) return kOk;

  WorkLine first, second;  // released by their destructors on every path
  if (!first.allocate(bytes) || (hk && vk && !second.allocate(bytes))) return kOutOfMemory;
  uint8_t *const line1 = first.data();
  uint8_t *const line2 = hk && vk ? second.data() : nullptr;

  lctrl_for_each_line(buffer, &c, [&](const uint8_t *src, uint8_t *dst) {
    const uint8_t *result = line1;
    if (vk) {
      const SourceRow s = locate(plane, src);
      vk(src, line1, s.rows, s.row, bytes, s.stride, 0, 0, s.field_shift, vert);
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
