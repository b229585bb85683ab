// Scale-and-filter kernels: the frame kernel of the same index scales the whole output region into
// a private top-down image shaped like the region (rows padded to 16 bytes), then the FIR line
// kernels of DspFilter low-pass those lines into the output, run by run, so that a field is only
// ever filtered with lines of the same field and the band of the call is the only part written.
#include "scale/scale_filtered.h"

#include <cstring>

#include "filter/fir_kernels.h"
#include "lines/pixel_format.h"
#include "platform/cpu.h"
#include "platform/work_memory.h"
#include "scale/scale_frame.h"
#include "scale/scale_line_kernels.h"

namespace framedsp {

namespace {

struct FilterBack {
  FirHorzKernel horz;
  FirVertKernel vert;
  const ScaleFirRows *rows;
  uint8_t *line1;
  uint8_t *line2;
};

void filter_line(void *context, const ScaleBackLine &l) {
  const FilterBack &f = *static_cast<const FilterBack *>(context);
  const uint8_t *centre = l.run_first + l.index * l.run_stride;
  const uint8_t *result = centre;
  if (f.vert) {
    f.vert(centre, f.line1, l.run_lines, l.index, l.bytes, l.run_stride, 0, 0, 0, f.rows->vert);
    result = f.line1;
  }
  if (f.horz) {
    uint8_t *to = result == f.line1 ? f.line2 : f.line1;
    f.horz(result, to, l.bytes, f.rows->horz, 0, 0);
    result = to;
  }
  std::memcpy(l.dst, result, l.bytes);
}

HRESULT scale_then_filter(const DSP_BUFFER &b, const ScaleFirRows &rows, ScaleFrameKernel scale) {
  if (!scale) return kInvalidArg;
  const DSP_IMAGE &out = b.Out;
  WorkBlock image;  // released by its destructor on every path
  DSP_BUFFER stage = b;
  DSP_IMAGE &p = stage.Out;
  const HRESULT made = scale_private_image(out, 0xFFFFFFF0u, &image, &p);
  if (made != kOk) return made;
  // The vertical taps of a band's lines reach lines of the neighbouring bands: scale them all.
  stage.ulSliceCount = 1;
  stage.ulSliceNumber = 1;
  const HRESULT hr = scale(&stage);
  if (hr != kOk) return hr;

  FirKernelTable table;
  fir_table_init(&table, cpu_flags());
  FilterBack f{nullptr, nullptr, &rows, nullptr, nullptr};
  // The lines are filtered as the scaler lays them out.
  const LineLayout layout = scale_layout(out.ePixelFormat);
  if (rows.horz) {
    f.horz = table.horz[kFirTableCount * layout.layout_class +
                        fir_table_index(static_cast<uint32_t>(rows.horz_taps))];
  }
  if (rows.vert) f.vert = table.vert[fir_table_index(static_cast<uint32_t>(rows.vert_taps))];
  const uint64_t line = uint64_t{layout.bytes_per_pixel} * out.Buffer.Region.ulWidth;
  WorkLine first, second;
  if (line != 0 && (!first.allocate(static_cast<size_t>(line)) || !second.allocate(static_cast<size_t>(line)))) {
    return kOutOfMemory;
  }
  f.line1 = first.data();
  f.line2 = second.data();
  scale_walk_back(p, b, filter_line, &f);
  return kOk;
}

template <int kIndex, bool kColor>
HRESULT filter_kernel(const DSP_BUFFER *buffer, const ScaleFirRows &rows) {
  const ScaleFrameKernel *scale = kColor ? scale_color_kernels() : scale_plain_kernels();
  return scale_then_filter(*buffer, rows, scale[kIndex]);
}

HRESULT reserved_kernel(const DSP_BUFFER *, const ScaleFirRows &) { return kNotImpl; }

constexpr ScaleFilterKernel kPlain[9] = {filter_kernel<0, false>, filter_kernel<1, false>, filter_kernel<2, false>,
                                         filter_kernel<3, false>, filter_kernel<4, false>, filter_kernel<5, false>,
                                         reserved_kernel,         reserved_kernel,         reserved_kernel};
constexpr ScaleFilterKernel kColor[9] = {filter_kernel<0, true>, filter_kernel<1, true>, filter_kernel<2, true>,
                                         filter_kernel<3, true>, filter_kernel<4, true>, filter_kernel<5, true>,
                                         reserved_kernel,        reserved_kernel,        reserved_kernel};

}  // namespace

const ScaleFilterKernel *scale_filter_plain_kernels() { return kPlain; }
const ScaleFilterKernel *scale_filter_color_kernels() { return kColor; }

}  // namespace framedsp
