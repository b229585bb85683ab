#include "filter/filter_pass.h"

#include "copy/smart_copy.h"
#include "filter/box_filter.h"
#include "filter/filter.h"
#include "lines/buffer_record.h"
#include "lines/buffer_rules.h"
#include "lines/line_walk.h"
#include "lines/pixel_format.h"
#include "platform/trace.h"
#include "platform/work_memory.h"

namespace framedsp {

HRESULT filter_plan_from_settings(const char *export_name, uint32_t filter_type, const void *settings,
                                  FirPlaneFilter fir_plane, FilterPlan *plan) {
  *plan = FilterPlan{false, fir_plane, nullptr, nullptr, 0, 0, 1, 1, false};
  if (filter_type == DSP_FILTER_TYPE_FIR) {
    if (!settings) {
      refuse(export_name, "FIR filter without settings (pSettings is null)");
      return kInvalidArg;
    }
    FirRows rows;
    const HRESULT hr = fir_rows_from_settings(export_name, *static_cast<const DSP_FIR_SETTINGS *>(settings), &rows);
    if (hr != kOk) return hr;
    plan->fir = true;
    plan->horz = rows.horz;
    plan->vert = rows.vert;
    plan->horz_taps = rows.horz_taps;
    plan->vert_taps = rows.vert_taps;
    plan->any_on = rows.horz != nullptr || rows.vert != nullptr;
    return kOk;
  }
  if (filter_type == DSP_FILTER_TYPE_BOX) {
    if (!settings) {
      refuse(export_name, "box filter without settings (pSettings is null)");
      return kInvalidArg;
    }
    const DSP_BOX_SETTINGS &s = *static_cast<const DSP_BOX_SETTINGS *>(settings);
    if (s.ulHorzSize > kBoxMaxSize || s.ulVertSize > kBoxMaxSize) {
      refuse(export_name, "box %s size %u is above %u", s.ulHorzSize > kBoxMaxSize ? "horizontal" : "vertical",
             s.ulHorzSize > kBoxMaxSize ? s.ulHorzSize : s.ulVertSize, kBoxMaxSize);
      return kInvalidArg;
    }
    // A size of 1 averages one sample: the direction is on but leaves that direction as it is.
    plan->horz_size = s.ulHorzSize != 0 ? s.ulHorzSize : 1;
    plan->vert_size = s.ulVertSize != 0 ? s.ulVertSize : 1;
    plan->any_on = s.ulHorzSize != 0 || s.ulVertSize != 0;
    return kOk;
  }
  refuse(export_name, "filter type %u is neither 1 (FIR) nor 2 (box)", filter_type);
  return kInvalidArg;
}

namespace {

HRESULT run_plane(const DSP_BUFFER &buffer, const FilterPlan &plan) {
  if (plan.fir) return plan.fir_plane(buffer, plan.horz, plan.horz_taps, plan.vert, plan.vert_taps);
  return box_filter_plane(buffer, plan.horz_size, plan.vert_size);
}

// One filtering pass over a private, normalised record: both planes of a two-plane format.
HRESULT run_planes(DSP_BUFFER copy, const FilterPlan &plan) {
  if (copy.ulSliceCount == 0) copy.ulSliceCount = 1;
  if (copy.ulSliceNumber == 0) copy.ulSliceNumber = 1;
  return for_each_plane(copy, [&plan](const DSP_BUFFER &plane) { return run_plane(plane, plan); });
}

uint32_t round16(uint64_t bytes) { return static_cast<uint32_t>((bytes + 15) & ~uint64_t{15}); }

// Filters into an image of work memory shaped like the input region, then copies that image into
// the caller's output.  The filtering pass keeps the input's buffer type and interlace and moves
// lines one to one (fields are still filtered apart); the copy-out then does the whole line
// geometry (field <-> frame, dominance, field selection, orientation).  Shaping the work image
// like the output instead would leave the lines a field does not cover empty, and the copy-out
// would write them over the output's other field.
HRESULT filter_through_temp(const DSP_BUFFER &buffer, const FilterPlan &plan) {
  const DSP_IMAGE &in = buffer.In;
  const DSP_IMAGE &out = buffer.Out;
  const uint64_t product = uint64_t{bytes_per_pixel(out.ePixelFormat)} * in.Buffer.Region.ulWidth;
  const uint32_t a = round16(product);
  const uint32_t b = out.ulSecondaryStrideBytes != 0 ? round16(product) : 0;
  const uint64_t size = (uint64_t{a} + b) * in.Buffer.Region.ulHeight;
  WorkBlock block;  // released by its destructor on every path
  if (size > 0xFFFFFFFFu || (size != 0 && !block.allocate(static_cast<size_t>(size)))) {
    return kOutOfMemory;
  }

  DSP_IMAGE temp = in;
  temp.Buffer.pBuffer = block.data();
  temp.Buffer.ulBytes = static_cast<uint32_t>(size);
  temp.Buffer.Region.ptOffset.x = 0;
  temp.Buffer.Region.ptOffset.y = 0;
  temp.ulWidth = in.Buffer.Region.ulWidth;
  temp.ulHeight = in.Buffer.Region.ulHeight;
  temp.eImageOrientation = DSP_ORIENTATION_TOP_DOWN;
  temp.eColorSpace = out.eColorSpace;  // the filter never converts colours
  temp.ulPrimaryStrideBytes = a;
  temp.ulSecondaryStrideBytes = b;

  constexpr uint32_t kGeometryFlags = DSP_BUFFER_IN_FIELD2_DOMINANCE |
                                      DSP_BUFFER_OUT_FIELD2_DOMINANCE |
                                      DSP_BUFFER_DOMINANCE_BY_SHIFTING_UP |
                                      DSP_BUFFER_PROCESS_FIELDA | DSP_BUFFER_PROCESS_FIELDB;
  DSP_BUFFER filter_pass = buffer;
  filter_pass.Out = temp;
  filter_pass.ulFlags &= ~kGeometryFlags;
  filter_pass.ulSliceCount = 1;  // the whole work image; the copy-out produces this call's band
  filter_pass.ulSliceNumber = 1;
  normalise_orientation(&filter_pass);
  if (size != 0) {
    const HRESULT hr = run_planes(filter_pass, plan);
    if (hr != kOk) return hr;
  }

  DSP_BUFFER copy_out = buffer;
  copy_out.In = temp;
  if (size != 0 && smart_copy(&copy_out) != kOk) return kFail;
  block.release();
  return kOk;
}

}  // namespace

HRESULT filter_run(const DSP_BUFFER &buffer, const FilterPlan &plan, uint32_t options) {
  const uint32_t out_format = buffer.Out.ePixelFormat;
  if ((options & DSP_FILTER_OPTION_TEMP_FRAME) && staged_format(out_format)) {
    return filter_through_temp(buffer, plan);
  }
  DSP_BUFFER copy = buffer;
  normalise_orientation(&copy);
  return run_planes(copy, plan);
}

}  // namespace framedsp
