// FIR low-pass of one plane of a fractional-region call: as fir_filter_plane, with the vertical
// taps clamped to the plane's absolute first and last rows (FirSubVertKernel).
#include "filter/fir_plane.h"
#include "filter/subpixel_filter.h"

namespace framedsp {

HRESULT subpixel_fir_plane(const DSP_BUFFER &buffer, const FirTap *horz, int horz_taps,
                           const FirTap *vert, int vert_taps) {
  FirSubKernelTable sub;
  fir_sub_table_init(&sub, cpu_flags());
  // Byte kernels for every class, as the whole-pixel filter does.
  const FirSubVertKernel vk = vert ? sub.vert[fir_table_index(static_cast<uint32_t>(vert_taps))] : nullptr;
  return fir_plane_walk(buffer, horz, horz_taps, vk != nullptr,
                        [&](const uint8_t *src, const FirSourceRow &s, uint8_t *line, size_t bytes) {
                          const uint8_t *row0 = src - s.row * s.stride;  // picture row 0, same column
                          vk(row0, line, s.rows, s.row, bytes, s.stride * (ptrdiff_t{1} << s.field_shift), vert,
                             0, 0, 0, s.field_shift);
                        });
}

}  // namespace framedsp
