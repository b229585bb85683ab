// What a resampling plan holds between resample_plan_build() and resample_plan_run().
#pragma once

#include <cstddef>
#include <cstdint>

#include "resample/resample.h"
#include "resample/resample_lines.h"

namespace framedsp {

struct ResamplePlanData {
  uint32_t cls;
  uint32_t edge;
  uint32_t anti_ringing;    // 0: off (also for nearest, where it could not change a sample)
  bool wide;                // 16-bit samples
  const ResampleLayout *layout;
  ResampleLineTable lines;
  ResampleHorzFn horz;       // the horizontal kernel of the plan's rows and level
  ResampleHorzPairFn horz_pair;  // two lines and a two-tap row in one pass, or null

  ResampleRowsTable hrows[2];  // pixel-rate rows and, for 4:2:2, chroma rows
  ResampleRowsTable vrows;
  ResampleHorzPlan hplan;

  int32_t src_rows;         // source rows of the caller's table
  int32_t pad_rows;         // fill: virtual rows above (and below) the source, all the fill colour
  size_t src_line_bytes;    // bytes of a source line read (whole groups)
  size_t pad_bytes;         // fill: bytes of fill groups before (and after) the source in `padded`
  size_t out_bytes;         // bytes of an output line in the written range
  size_t out_offset;        // bytes from output column 0 to the written range
  bool h_identity;          // the horizontal pass is a plain offset copy: read source rows directly
  size_t identity_offset;   // bytes

  int ring_size;
  uint8_t **ring;
  int32_t *ring_id;
  const uint8_t **taps;     // vrows.taps line pointers
  uint8_t *padded;          // fill: the padded source line
  uint8_t *fill_line;       // fill: an output line of the fill colour
  uint8_t *temp;            // a finished line before it is blended or converted
};

// Carves 16-byte-aligned pieces from one work block.
class ResampleCarve {
 public:
  explicit ResampleCarve(uint8_t *base) : at_(base) {}
  template <class T>
  T *take(size_t count) {
    T *p = reinterpret_cast<T *>(at_);
    at_ += (count * sizeof(T) + 15) & ~size_t{15};
    return p;
  }
  static size_t size(size_t bytes) { return (bytes + 15) & ~size_t{15}; }

 private:
  uint8_t *at_;
};

int resample_convolve(int32_t *w, int taps, int32_t *first, const int16_t *lowpass, int n);

}  // namespace framedsp
