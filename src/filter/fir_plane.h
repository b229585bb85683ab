// The line walk shared by the FIR plane filters (whole-pixel and fractional regions): per output
// line, the vertical taps into work line 1, the horizontal kernel into work line 2, one move into
// the destination line.  The two filters differ only in their vertical kernel, which the caller
// supplies as `vertical(src, row, line1, bytes)`.
#pragma once

#include <algorithm>
#include <cstring>

#include "filter/fir_kernels.h"
#include "lines/line_walk.h"
#include "lines/pixel_format.h"
#include "platform/cpu.h"
#include "platform/status.h"
#include "platform/work_memory.h"

namespace framedsp {

// Where a source line sits for the vertical taps: its row in picture order inside the rows that
// may be mixed with it, their count, and the bytes from one picture row to the next.
struct FirSourceRow {
  int32_t rows;
  int32_t row;
  ptrdiff_t stride;
  int field_shift;  // 1 when the walk takes every second row (one field of interleaved rows)
};

struct FirSourcePlane {
  ptrdiff_t stride;  // primary stride, > 0
  int32_t height;
  bool bottom_up;
  bool halves;       // a frame with field A in the upper half, field B in the lower
  int field_shift;

  FirSourceRow locate(int32_t memory_row) const {
    FirSourceRow s{height, bottom_up ? height - 1 - memory_row : memory_row, bottom_up ? -stride : stride,
                   field_shift};
    if (halves) {
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
};

// `has_vertical`: whether a vertical row is on; `vertical` is called only then.
template <class Vertical>
HRESULT fir_plane_walk(const DSP_BUFFER &buffer, const FirTap *horz, int horz_taps, bool has_vertical,
                       Vertical &&vertical) {
  FirKernelTable table;
  fir_table_init(&table, cpu_flags());
  const uint32_t cls = format_class(buffer.In.ePixelFormat);
  const FirHorzKernel hk =
      horz ? table.horz[kFirTableCount * cls + fir_table_index(static_cast<uint32_t>(horz_taps))] : nullptr;

  const LineWalk walk(buffer, copy_layout(buffer.In.ePixelFormat));
  const LCtrl &c = walk.control();
  const size_t bytes = static_cast<size_t>(std::max(std::min(c.src_width, c.dst_width), 0));
  if (bytes == 0 || (!hk && !has_vertical)) return kOk;

  const DSP_IMAGE &in = buffer.In;
  const FirSourcePlane plane{static_cast<ptrdiff_t>(in.ulPrimaryStrideBytes),
                             static_cast<int32_t>(in.ulHeight),
                             in.eImageOrientation == DSP_ORIENTATION_BOTTOM_UP,
                             in.Buffer.eBufferType == DSP_BUFFER_TYPE_FRAME && in.eInterlace == DSP_INTERLACE_SEPARATE,
                             c.src_line_increment == 2 ? 1 : 0};
  if (plane.stride <= 0) return kOk;

  WorkLine first, second;  // released by their destructors on every path
  if (!first.allocate(bytes) || (hk && has_vertical && !second.allocate(bytes))) return kOutOfMemory;
  uint8_t *const line1 = first.data();
  uint8_t *const line2 = hk && has_vertical ? second.data() : nullptr;

  walk.for_each_line([&](const WalkLine &l) {
    const uint8_t *result = line1;
    if (has_vertical) {
      vertical(l.src, plane.locate(l.src_row), line1, bytes);
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

}  // namespace framedsp
