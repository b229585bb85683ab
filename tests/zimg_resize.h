// zimg as an independent resizer of 8-bit planes (tests and benchmarks only; never linked into
// the library): a grey plane resized from a fractional active region, 32-byte-aligned rows.
#pragma once

#include <zimg.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace zimg_peer {

struct AlignedPlane {
  unsigned width, height;
  ptrdiff_t stride;
  uint8_t *data;
  AlignedPlane(unsigned w, unsigned h) : width(w), height(h), stride((ptrdiff_t(w) + 31) & ~ptrdiff_t(31)) {
    data = static_cast<uint8_t *>(std::aligned_alloc(32, size_t(stride) * h + 32));
    std::memset(data, 0, size_t(stride) * h);
  }
  ~AlignedPlane() { std::free(data); }
  AlignedPlane(const AlignedPlane &) = delete;
  AlignedPlane &operator=(const AlignedPlane &) = delete;
};

// A prepared resize: filter 0 bilinear, 1 bicubic (b, c), 2 Lanczos (3 taps).
class Resize {
 public:
  Resize(unsigned sw, unsigned sh, unsigned dw, unsigned dh, int filter, double b = 0, double c = 0.5,
         double left = 0, double top = 0, double aw = 0, double ah = 0) {
    zimg_image_format in, out;
    zimg_image_format_default(&in, ZIMG_API_VERSION);
    zimg_image_format_default(&out, ZIMG_API_VERSION);
    in.width = sw;
    in.height = sh;
    out.width = dw;
    out.height = dh;
    in.pixel_type = out.pixel_type = ZIMG_PIXEL_BYTE;
    in.color_family = out.color_family = ZIMG_COLOR_GREY;
    in.depth = out.depth = 8;
    in.pixel_range = out.pixel_range = ZIMG_RANGE_FULL;
    in.active_region.left = left;
    in.active_region.top = top;
    in.active_region.width = aw > 0 ? aw : sw;
    in.active_region.height = ah > 0 ? ah : sh;
    zimg_graph_builder_params p;
    zimg_graph_builder_params_default(&p, ZIMG_API_VERSION);
    p.resample_filter = filter == 0 ? ZIMG_RESIZE_BILINEAR : filter == 1 ? ZIMG_RESIZE_BICUBIC : ZIMG_RESIZE_LANCZOS;
    p.filter_param_a = filter == 1 ? b : 3;
    p.filter_param_b = c;
    graph_ = zimg_filter_graph_build(&in, &out, &p);
    size_t tmp = 0;
    if (graph_ && zimg_filter_graph_get_tmp_size(graph_, &tmp) == ZIMG_ERROR_SUCCESS) {
      tmp_ = static_cast<uint8_t *>(std::aligned_alloc(64, (tmp + 63) & ~size_t(63)));
    }
  }
  ~Resize() {
    if (graph_) zimg_filter_graph_free(graph_);
    std::free(tmp_);
  }
  bool ok() const { return graph_ && tmp_; }
  bool run(const AlignedPlane &src, AlignedPlane &dst) const {
    zimg_image_buffer_const s{};
    zimg_image_buffer d{};
    s.version = d.version = ZIMG_API_VERSION;
    s.plane[0] = {src.data, src.stride, ZIMG_BUFFER_MAX};
    d.plane[0] = {dst.data, dst.stride, ZIMG_BUFFER_MAX};
    return zimg_filter_graph_process(graph_, &s, &d, tmp_, nullptr, nullptr, nullptr, nullptr) == ZIMG_ERROR_SUCCESS;
  }

 private:
  zimg_filter_graph *graph_ = nullptr;
  uint8_t *tmp_ = nullptr;
};

}  // namespace zimg_peer
