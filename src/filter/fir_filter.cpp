// FIR low-pass of one plane: per output line, the vertical kernel into work line 1, the
// horizontal kernel into work line 2, one move into the destination line.
#include "filter/filter_planes.h"
#include "filter/fir_plane.h"

namespace framedsp {

HRESULT fir_filter_plane(const DSP_BUFFER &buffer, const FirTap *horz, int horz_taps,
                         const FirTap *vert, int vert_taps) {
  FirKernelTable table;
  fir_table_init(&table, cpu_flags());
  const FirVertKernel vk = vert ? table.vert[fir_table_index(static_cast<uint32_t>(vert_taps))] : nullptr;
  return fir_plane_walk(buffer, horz, horz_taps, vk != nullptr,
                        [&](const uint8_t *src, const FirSourceRow &s, uint8_t *line, size_t bytes) {
                          vk(src, line, s.rows, s.row, bytes, s.stride, 0, 0, s.field_shift, vert);
                        });
}

}  // namespace framedsp
