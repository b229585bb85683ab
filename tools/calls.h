// The library calls the commands and the demo share: one image record for a frame of a raw
// layout, one wrapper per operation and the parsers of their settings.  The library refuses some
// records quietly (S_OK, output untouched): callers check what they pass.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "framedsp/framedsp.h"
#include "png_writer.h"
#include "raw_io.h"

namespace framedsp {
namespace cli {

// A whole frame of `layout` at `pixels`: progressive, top-down, colour space unspecified.
DSP_IMAGE image_of(const RawLayout &layout, const void *pixels);

// "DspScaler returned 0x80070057"; E_NOTIMPL adds "(not implemented in this build)".
std::string status_text(const char *call, DSP_HRESULT status);

// RuntimeError with status_text unless the call returned S_OK.
void check_status(const char *call, DSP_HRESULT status);

// ---- DspBufferSmartCopy: one side is a frame or field buffer of `layout` and the region used
// in it (a region of width or height 0 is the whole buffer).
struct CopySide {
  uint8_t *pixels = nullptr;
  RawLayout layout;
  uint32_t type = DSP_BUFFER_TYPE_FRAME;
  uint32_t interlace = DSP_INTERLACE_PROGRESSIVE;  // field buffers are progressive too
  uint32_t orientation = DSP_ORIENTATION_TOP_DOWN;
  uint32_t color_space = DSP_COLOR_SPACE_UNSPECIFIED;
  int32_t x = 0, y = 0;
  uint32_t w = 0, h = 0;
};
DSP_HRESULT copy_buffer(const CopySide &in, const CopySide &out, uint32_t flags);

// "601:709" or "709:601".
void parse_colorspace(const std::string &text, uint32_t *in, uint32_t *out);

// ---- DspFilter: a FIR low-pass (taps and cut-off per direction, cut-off 100 = off) or a box
// average (size per direction, 0 = off), from a whole frame into a frame of the same layout.
struct FilterChoice {
  uint32_t type = DSP_FILTER_TYPE_FIR;
  DSP_FIR_SETTINGS fir{3, 100, 0, 3, 100};
  DSP_BOX_SETTINGS box{0, 0, 0};
  bool temp_frame = false;
  bool interlaced = false;  // frames of two interleaved fields: vertical taps stay in one field
};
DSP_HRESULT filter_frame(const RawLayout &layout, const uint8_t *in, uint8_t *out,
                         const FilterChoice &choice);

// --fir HT:HC,VT:VC (or one T:C for both) and --box WxH; UsageError when malformed.
void parse_fir(const std::string &text, DSP_FIR_SETTINGS *fir);
void parse_box(const std::string &text, DSP_BOX_SETTINGS *box);

// ---- DspScaler: a whole frame of `in` into a whole frame (or one field) of `out`.
struct ScaleChoice {
  uint32_t filter = DSP_SCALER_FILTER_LINEAR;
  float factor_x = 1.0f;
  float factor_y = 1.0f;
  bool derive = false;  // the library derives the output region from the factors
  bool staged = false;
  bool fir = false;     // scale and FIR-filter the scaled axes in one pass
  DSP_FIR_SETTINGS fir_settings{3, 100, 0, 3, 100};
  bool interlaced = false;  // frames of two interleaved fields, scaled field by field
  int field = -1;           // DSP_BUFFER_TYPE_FIELD_A/B: scale only that field into a field
  uint32_t in_space = DSP_COLOR_SPACE_UNSPECIFIED;
  uint32_t out_space = DSP_COLOR_SPACE_UNSPECIFIED;
};
DSP_HRESULT scale_frame(const RawLayout &in, const uint8_t *in_pixels, const RawLayout &out,
                        uint8_t *out_pixels, const ScaleChoice &choice);

// ---- DspSubPixelScaler: the fractional region `src` (x, y, w, h) of a whole frame of `in` into
// the region `dst` of a whole frame of `out`; a region of width 0 is the whole frame.  Staging,
// the FIR sub-record, interlacing and colour spaces come from `choice`.
struct SubPixelChoice {
  uint32_t kernel = DSP_SUBPIXEL_FILTER_CUBIC;
  uint32_t edge = DSP_SUBPIXEL_EDGE_REPEAT;
  bool coverage = false;
  double src[4] = {0, 0, 0, 0};
  double dst[4] = {0, 0, 0, 0};
};
DSP_HRESULT subpixel_scale_frame(const RawLayout &in, const uint8_t *in_pixels, const RawLayout &out,
                                 uint8_t *out_pixels, const ScaleChoice &choice, const SubPixelChoice &sub);

// ---- DspNonUniformScaler: a whole frame of `in` into a whole frame of `out` with the mapping of
// `mode` (DSP_STRETCH_*); staging, the FIR sub-record, interlacing and colour spaces come from
// `choice`.
struct PanoramaChoice {
  uint32_t mode = DSP_STRETCH_PANORAMA;
  uint32_t kernel = DSP_SUBPIXEL_FILTER_CUBIC;
  uint32_t centre_q14 = 3277;  // 0.2 of the wide side
  uint32_t scale_q14 = 13926;  // 0.85 of the uniform factor
};
DSP_HRESULT panorama_frame(const RawLayout &in, const uint8_t *in_pixels, const RawLayout &out, uint8_t *out_pixels,
                           const ScaleChoice &choice, const PanoramaChoice &pan);

// ---- A Ken Burns move: DspSubPixelScalerHelper's view at `phase_q14` (0 = view A .. 16384 =
// view B) of a source of `src_w` x `src_h` filling `dst_w` x `dst_h` (square pixels, views kept
// inside the source), then DspSubPixelScaler from that view; *ms is the time of both calls.
struct KenBurnsMove {
  DSP_SUBPIXEL_VIEW from{16384, 0, 0};
  DSP_SUBPIXEL_VIEW to{32768, 0, 0};
  bool ease = false;
  uint32_t kernel = DSP_SUBPIXEL_FILTER_CUBIC;
};
bool kenburns_frame(const RawLayout &in, const uint8_t *in_pixels, const RawLayout &out, uint8_t *out_pixels,
                    const KenBurnsMove &move, uint32_t phase_q14, double *ms, std::string *error);

// The pictures left to right, 4 black pixels apart, top-aligned (the first one's channels).
Picture side_by_side(const std::vector<Picture> &pictures);

// "x,y,w,h" (fractions allowed, w and h > 0), "nearest|linear|cubic|lanczos3",
// "repeat|mirror|fill|untouched"; UsageError when malformed.
void parse_rect(const std::string &text, const char *option, double rect[4]);
uint32_t parse_kernel(const std::string &text);
uint32_t parse_edge(const std::string &text);

// floor(size * factor + 0.5), as the library derives it.
uint32_t derived_length(uint32_t size, float factor);

// ---- DspCompare: a against b, the difference image into diff (layout.frame_bytes bytes), MSE
// into results[0..3] and PSNR into results[4..7] by slot.  Fails when the call does not return
// S_OK or leaves a slot of the format's channels unwritten (a record the library refused).
bool compare_frame(const RawLayout &layout, const uint8_t *a, const uint8_t *b, uint8_t *diff,
                   double results[8], std::string *error);

// 20 * log10(255 / sqrt(mse + 0.00001)): the library's PSNR of an MSE.
double psnr_of_mse(double mse);

// ---- DspCreateMipMaps: one level is an 8-bit plane (format 263), lines tightly packed.
struct MipLevel {
  uint32_t width = 0;
  uint32_t height = 0;
  std::vector<uint8_t> samples;
};

// A halving pyramid of `count` levels from width x height (sizes rounded down); fails when a
// level would be empty.
bool pyramid_sizes(uint32_t width, uint32_t height, uint32_t count, std::vector<MipLevel> *levels,
                   std::string *error);

// Fills levels[1..] (cleared to 0 first) from levels[0] with one DspCreateMipMaps call on the
// process's frame-rate converter, created on first use and kept; *ms is the time of the call.
bool build_pyramid(std::vector<MipLevel> *levels, uint32_t filter, double *ms, std::string *error);

// The levels left to right, top-aligned; black below the smaller levels.
Picture mipmap_strip(const std::vector<MipLevel> &levels);

// ---- DspCreateMotionVectors between two gray pictures of width x height (lines packed), on
// pyramids made by build_pyramid.
struct VectorField {
  DSP_VECTOR_FIELD header{};
  std::vector<DSP_MOTION_VECTOR> entries;  // forward, then backward
  uint32_t levels = 0;                     // pyramid levels searched
  double ms = 0;                           // the DspCreateMotionVectors call
};
struct VectorChoice {
  uint32_t levels = 4;  // at most; fewer where a level's width would be odd or its height 0
  uint32_t block = 8;   // final blocks, 8..32
  uint32_t range = 0;   // search range at every level; 0: the library's default
  bool whole_pixel = false;
};
bool estimate_vectors(const std::vector<uint8_t> &a, const std::vector<uint8_t> &b, uint32_t width,
                      uint32_t height, const VectorChoice &choice, VectorField *field,
                      std::string *error);

// The forward field over the dimmed picture: an arrow from each block's centre, `scale` times
// its length (green; red for bad blocks, yellow for inconsistent ones); or (wheel) each block
// in the colour of its direction, brighter for longer vectors, black for bad blocks.
Picture draw_vectors(const std::vector<uint8_t> &picture, uint32_t width, uint32_t height,
                     const VectorField &field, bool wheel, double scale);

// Two lines of statistics of one direction (0 forward, 1 backward): blocks, median vector,
// mean cost, then the count of each flag.
std::vector<std::string> vector_statistics(const VectorField &field, int dir);

// The luma samples of a frame of gray, uyvy422, yuyv422 or their +key forms.
std::vector<uint8_t> luma_of(const RawLayout &layout, const uint8_t *frame);

}  // namespace cli
}  // namespace framedsp
