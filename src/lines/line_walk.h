// The line walker: which output lines this call writes, run by run (one run a field when fields
// are handled apart), inside this call's band, and for each the source and destination line:
// region line, memory row and address.  Every line operation is a driver over it: the copy, the
// filters, the scaler's fast paths, the general scaler and its staged copy-back; two-plane
// formats go through for_each_plane.
//
// Lines are counted in region lines from the picture's top (whatever the storage order); a line
// index outside the region or the image reads the nearest image line (edge lines repeat).
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "framedsp/framedsp.h"
#include "lines/lctrl.h"
#include "lines/pixel_format.h"

namespace framedsp {

// Region lines first, first + step, ... (count of them).
struct LineSeries {
  int32_t first;
  int32_t step;
  int32_t count;
};

// One side of the call as the walker addresses it.
struct LineSide {
  intptr_t first;   // address of memory row 0 of the image, the region's column start applied
  intptr_t stride;  // bytes from one memory row to the next
  int32_t rows;     // rows of the image
  int32_t top;      // memory row of region line 0 (the region's picture-top line)
  int32_t sign;     // memory rows per region line: +1 top-down, -1 bottom-up

  // Memory row of region line j, clamped into the image.
  int32_t row(int64_t j) const {
    int64_t m = top + sign * j;
    if (m > int64_t{rows} - 1) m = int64_t{rows} - 1;
    if (m < 0) m = 0;
    return static_cast<int32_t>(m);
  }
  // Integer arithmetic: a record's address may be anything until a line is actually touched.
  uint8_t *at_row(int32_t m) const {
    return reinterpret_cast<uint8_t *>(first + static_cast<intptr_t>(m) * stride);
  }
  uint8_t *line(int64_t j) const { return at_row(row(j)); }
};

// One run of the call.  Output line k of the run is destination region line dst.first + k *
// dst.step and reads source region line src.first + k * src.step; src.count is the number of
// source lines of the run's field (for operations that pick their own source lines), and a
// dominance shift may move src.first one line outside the region.
struct LineRun {
  int32_t field;     // run number: 0 (first field, or the one pass) or 1 (second field)
  LineSeries src;
  LineSeries dst;
  int32_t begin;     // the run's lines in this call's band: begin <= k < end
  int32_t end;
};

// One output line of the one-for-one walk.
struct WalkLine {
  const LineRun *run;  // its run: field, lines and part of the band
  int32_t k;           // line of the run
  int32_t src_line;    // source region line read (picture order; may lie outside the region)
  int32_t dst_line;    // destination region line written
  int32_t src_row;     // memory rows, clamped into each image
  int32_t dst_row;
  const uint8_t *src;
  uint8_t *dst;
};

// The two families of line rules.
//   kCopy (copy, filters, fast paths): the dominance flags move the source fields; a destination
//     whose lines are not apart (stride 0, or an interlace the geometry does not know) or an
//     input image without lines gives no lines at all.
//   kScale (general scaler): the dominance flags are not applied (each field keeps its lines); a
//     run whose source region has no lines is not walked.
enum class LineRules { kCopy, kScale };

class LineWalk {
 public:
  // The walk of a private, normalised record (bottom-up regions re-measured, band fields read),
  // its line-control record filled with `layout`.
  LineWalk(const DSP_BUFFER &buffer, const LineLayout &layout, LineRules rules = LineRules::kCopy);
  // The same from a line-control record already filled from `buffer`.
  LineWalk(const DSP_BUFFER &buffer, const LCtrl &filled, LineRules rules = LineRules::kCopy);

  const LCtrl &control() const { return c_; }
  const LineSide &source() const { return src_; }
  const LineSide &destination() const { return dst_; }
  int run_count() const { return run_count_; }
  const LineRun &run(int i) const { return runs_[i]; }

  // f(const WalkLine &) for every line of this call's band, run after run, top of the picture
  // first within a run.
  template <class F>
  void for_each_line(F &&f) const {
    for (int r = 0; r < run_count_; ++r) {
      const LineRun &run = runs_[r];
      for (int32_t k = run.begin; k < run.end; ++k) {
        const int32_t sj = run.src.first + k * run.src.step;
        const int32_t dj = run.dst.first + k * run.dst.step;
        const int32_t sm = src_.row(sj);
        const int32_t dm = dst_.row(dj);
        f(WalkLine{&run, k, sj, dj, sm, dm, src_.at_row(sm), dst_.at_row(dm)});
      }
    }
  }

 private:
  void plan(const DSP_BUFFER &buffer, LineRules rules);

  LCtrl c_;
  LineSide src_;
  LineSide dst_;
  LineRun runs_[2];
  int run_count_;
};

// The sides and the lines of run `run` of a filled line-control record, band not applied
// (begin = 0, end = dst.count); lctrl_setup_run's geometry.
LineSide line_side(const DSP_IMAGE &image, int32_t line_start, int32_t height, int32_t column_start);
LineRun line_run(const DSP_BUFFER &buffer, const LCtrl &c, int run, LineRules rules);

// The copy's walk on a filled record: for each run sets the run up in *c (so f may read the run's
// preface and widths from c) and calls f(const uint8_t *src_line, uint8_t *dst_line) for the
// run's lines inside the band.  Source and destination may overlap.
template <class F>
void lctrl_for_each_line(const DSP_BUFFER &buffer, LCtrl *c, F &&f) {
  const LineWalk walk(buffer, *c);
  for (int r = 0; r < walk.run_count(); ++r) {
    const LineRun &run = walk.run(r);
    lctrl_setup_run(buffer, c, run.field);
    for (int32_t k = run.begin; k < run.end; ++k) {
      f(static_cast<const uint8_t *>(walk.source().line(int64_t{run.src.first} + int64_t{k} * run.src.step)),
        walk.destination().line(int64_t{run.dst.first} + int64_t{k} * run.dst.step));
    }
  }
}

// f(const DSP_BUFFER &plane) for the two planes of a private record: first the main picture
// (both sides in `main_format`, byte counts cut to it), then the plane that follows it in the
// same memory (its lines a secondary stride apart, both sides in `plane_format`).  The first
// status other than S_OK ends the walk.
template <class F>
DSP_HRESULT for_each_plane(const DSP_BUFFER &buffer, uint32_t main_format, uint32_t plane_format, F &&f) {
  DSP_BUFFER plane = buffer;
  for (DSP_IMAGE *image : {&plane.In, &plane.Out}) {
    image->ePixelFormat = main_format;
    image->Buffer.ulBytes = static_cast<uint32_t>(uint64_t{image->ulHeight} * image->ulPrimaryStrideBytes);
  }
  const DSP_HRESULT hr = f(static_cast<const DSP_BUFFER &>(plane));
  if (hr != DSP_S_OK) return hr;
  plane = buffer;
  for (DSP_IMAGE *image : {&plane.In, &plane.Out}) {
    const uint64_t main = uint64_t{image->ulHeight} * image->ulPrimaryStrideBytes;
    image->Buffer.pBuffer = static_cast<uint8_t *>(image->Buffer.pBuffer) + main;
    image->Buffer.ulBytes = image->Buffer.ulBytes > main ? static_cast<uint32_t>(image->Buffer.ulBytes - main) : 0;
    image->ulPrimaryStrideBytes = image->ulSecondaryStrideBytes;
    image->ePixelFormat = plane_format;
  }
  return f(static_cast<const DSP_BUFFER &>(plane));
}

// The same by the format table: once for a one-plane format, the table's split for a two-plane
// one.
template <class F>
DSP_HRESULT for_each_plane(const DSP_BUFFER &buffer, F &&f) {
  const uint32_t format = buffer.Out.ePixelFormat;
  if (!is_two_plane(format)) return f(buffer);
  uint32_t main_format = format, plane_format = format;
  split_format(format, &main_format, &plane_format);
  return for_each_plane(buffer, main_format, plane_format, f);
}

}  // namespace framedsp
