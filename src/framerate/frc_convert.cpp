// DspFrameRateConvert: the checks of the record, then one of: an exact copy (phase 0 or 16384),
// the blend or the nearest source (by mode, or for a scene cut), or the motion-compensated frame.
#include "framerate/frc_convert.h"

#include <cstdint>
#include <cstring>

#include "platform/cpu.h"
#include "platform/trace.h"
#include "platform/work_memory.h"
#include "framerate/frc_internal.h"

namespace framedsp {
namespace {

constexpr char kExport[] = "DspFrameRateConvert";
constexpr uint32_t kPhaseOne = 16384;
constexpr uint32_t kMaxSide = 16384;
constexpr uint32_t kKnownFlags = DSP_CONVERT_REFINE | DSP_CONVERT_PLAIN_PLANE2 | DSP_CONVERT_LUMA_ONLY |
                                 DSP_CONVERT_NO_OCCLUSION;

uint64_t frame_bytes(uint32_t planes, uint32_t height, uint32_t stride, uint32_t width) {
  return (uint64_t(planes) * height - 1) * stride + width;
}

bool frame_ok(const char *name, const DSP_IMAGE &f, uint64_t need) {
  if (!f.Buffer.pBuffer) return refuse(kExport, "%s has a null buffer", name);
  if (f.Buffer.ulBytes < need)
    return refuse(kExport, "%s holds %u bytes, the geometry needs %llu", name, f.Buffer.ulBytes,
                  static_cast<unsigned long long>(need));
  return true;
}

bool field_ok(const DSP_FRAME_RATE_CONVERT_PARAMS &p, uint32_t w, uint32_t h, FieldView *view) {
  if (p.ulVectorFieldBytes < DSP_VECTOR_FIELD_HEADER_BYTES)
    return refuse(kExport, "vector field of %u bytes is shorter than its header", p.ulVectorFieldBytes);
  DSP_VECTOR_FIELD hd;
  std::memcpy(&hd, p.pVectorField, sizeof hd);
  if (hd.ulWidth != w || hd.ulHeight != h)
    return refuse(kExport, "vector field is for %ux%u, the frames are %ux%u", hd.ulWidth, hd.ulHeight, w, h);
  if (hd.ulBlockWidth < 4 || hd.ulBlockWidth > 32 || hd.ulBlockHeight < 4 || hd.ulBlockHeight > 32)
    return refuse(kExport, "vector field blocks %ux%u are outside 4..32", hd.ulBlockWidth, hd.ulBlockHeight);
  const uint32_t cols = (w + hd.ulBlockWidth - 1) / hd.ulBlockWidth;
  const uint32_t rows = (h + hd.ulBlockHeight - 1) / hd.ulBlockHeight;
  if (hd.ulColumns != cols || hd.ulRows != rows)
    return refuse(kExport, "vector field has %ux%u blocks, its size gives %ux%u", hd.ulColumns, hd.ulRows, cols,
                  rows);
  if (!(hd.ulFieldFlags & DSP_VECTOR_FIELD_FORWARD)) return refuse(kExport, "vector field has no forward entries");
  const bool backward = (hd.ulFieldFlags & DSP_VECTOR_FIELD_BACKWARD) != 0;
  const uint64_t bytes = DSP_VECTOR_FIELD_HEADER_BYTES + uint64_t(cols) * rows * 8 * (backward ? 2 : 1);
  if (hd.ulFieldBytes != bytes || bytes > p.ulVectorFieldBytes)
    return refuse(kExport, "vector field says %u bytes, needs %llu, the buffer holds %u", hd.ulFieldBytes,
                  static_cast<unsigned long long>(bytes), p.ulVectorFieldBytes);
  const auto *entries = reinterpret_cast<const DSP_MOTION_VECTOR *>(
      static_cast<const uint8_t *>(p.pVectorField) + DSP_VECTOR_FIELD_HEADER_BYTES);
  *view = FieldView{int(w), int(h), int(hd.ulBlockWidth), int(hd.ulBlockHeight), int(cols), int(rows), entries,
                    backward ? entries + size_t(cols) * rows : nullptr};
  return true;
}

// Everything a call may refuse, before a byte is written.
bool record_ok(const DSP_FRAME_RATE_CONVERTER_PARAMS &s, const DSP_FRAME_RATE_CONVERT_PARAMS &p, FrcJob *job,
               FieldView *field) {
  if (s.eConvertMode > DSP_CONVERT_MODE_NEAREST)
    return refuse(kExport, "converter mode %u is not 0..2", s.eConvertMode);
  if (p.ulPhaseQ14 > kPhaseOne) return refuse(kExport, "phase %u is above 16384", p.ulPhaseQ14);
  if (p.eSampling > DSP_SAMPLING_NEAREST) return refuse(kExport, "sampling %u is not 0..3", p.eSampling);
  if (p.bConvertFlags & ~kKnownFlags) return refuse(kExport, "unknown convert flags 0x%02X", p.bConvertFlags);
  if (p.ulReserved != 0) return refuse(kExport, "reserved word is 0x%X, not 0", p.ulReserved);
  const uint32_t count = p.ulSliceCount ? p.ulSliceCount : 1;
  const uint32_t number = p.ulSliceNumber ? p.ulSliceNumber : 1;
  if (number > count) return refuse(kExport, "band %u of %u", number, count);
  const DSP_IMAGE &g = p.FrameB;
  const uint32_t w = g.ulWidth, h = g.ulHeight, stride = g.ulPrimaryStrideBytes;
  if (w == 0 || h == 0 || w > kMaxSide || h > kMaxSide)
    return refuse(kExport, "frame size %ux%u is outside 1..16384", w, h);
  if (stride < w) return refuse(kExport, "stride %u is below the width %u", stride, w);
  const bool luma_only = (p.bConvertFlags & DSP_CONVERT_LUMA_ONLY) != 0;
  const bool nv16 = !luma_only && !(p.bConvertFlags & DSP_CONVERT_PLAIN_PLANE2);
  if (nv16 && (w & 1)) return refuse(kExport, "width %u is odd for NV16 chroma in plane 2", w);
  const uint32_t planes = luma_only ? 1 : 2;
  const uint64_t need = frame_bytes(planes, h, stride, w);
  if (!frame_ok("FrameA", p.FrameA, need) || !frame_ok("FrameB", p.FrameB, need) ||
      !frame_ok("FrameOut", p.FrameOut, need))
    return false;
  if (p.pVectorField && !field_ok(p, w, h, field)) return false;

  job->width = int(w);
  job->height = int(h);
  job->stride = stride;
  job->planes = int(planes);
  job->nv16 = nv16;
  for (uint32_t i = 0; i < planes; ++i) {
    const size_t off = size_t(i) * h * stride;
    job->plane[i] = {static_cast<const uint8_t *>(p.FrameA.Buffer.pBuffer) + off,
                     static_cast<const uint8_t *>(p.FrameB.Buffer.pBuffer) + off,
                     static_cast<uint8_t *>(p.FrameOut.Buffer.pBuffer) + off};
  }
  job->phase = p.ulPhaseQ14;
  job->sampling = p.eSampling;
  job->occlusion = !(p.bConvertFlags & DSP_CONVERT_NO_OCCLUSION);
  job->overlay = p.bOverlay != 0;
  job->occlusion_threshold = p.ulOcclusionThreshold ? p.ulOcclusionThreshold : DSP_CONVERT_DEFAULT_OCCLUSION_THRESHOLD;
  job->band_y0 = int(uint64_t(number - 1) * h / count);
  job->band_y1 = int(uint64_t(number) * h / count);
  frc_kernels_init(&job->k, cpu_flags());
  motion_kernels_init(&job->mk, cpu_flags());
  return true;
}

// Every plane's band lines from one source, or the per-byte blend / nearest choice of both.
void convert_without_motion(const FrcJob &job, uint32_t mode) {
  const uint32_t wb = job.phase, wa = kPhaseOne - wb;
  for (int i = 0; i < job.planes; ++i) {
    const FrcPlane &pl = job.plane[i];
    for (int y = job.band_y0; y < job.band_y1; ++y) {
      const ptrdiff_t o = y * job.stride;
      if (mode == DSP_CONVERT_MODE_NEAREST || wb == 0 || wa == 0) {
        const bool use_b = mode == DSP_CONVERT_MODE_NEAREST ? wb >= kPhaseOne / 2 : wa == 0;
        std::memcpy(pl.out + o, (use_b ? pl.b : pl.a) + o, size_t(job.width));
        continue;
      }
      for (int x = 0; x < job.width; ++x)
        pl.out[o + x] = static_cast<uint8_t>((wa * pl.a[o + x] + wb * pl.b[o + x] + 8192) >> 14);
    }
  }
}

// The field says the pair is a scene cut: more bad forward blocks than the threshold allows.
bool scene_cut(const FieldView &f, uint32_t threshold_256) {
  uint64_t bad = 0;
  const size_t n = size_t(f.cols) * f.rows;
  for (size_t i = 0; i < n; ++i) bad += (f.fwd[i].usFlags & DSP_MV_BAD) != 0;
  return bad * 256 > uint64_t(threshold_256) * n;
}

// Points the view at a private, aligned copy of its entries (forward, then backward); null when
// the work memory is short.
DSP_MOTION_VECTOR *copy_entries(FieldView *field, WorkBlock *block) {
  const size_t half = size_t(field->cols) * field->rows, n = half * (field->bwd ? 2 : 1);
  if (!block->allocate(n * sizeof(DSP_MOTION_VECTOR) + 16)) return nullptr;
  auto *copy = reinterpret_cast<DSP_MOTION_VECTOR *>(block->aligned());
  std::memcpy(copy, field->fwd, half * sizeof *copy);
  if (field->bwd) std::memcpy(copy + half, field->bwd, half * sizeof *copy);
  field->fwd = copy;
  if (field->bwd) field->bwd = copy + half;
  return copy;
}

HRESULT convert_motion(const DSP_FRAME_RATE_CONVERTER_PARAMS &s, const DSP_FRAME_RATE_CONVERT_PARAMS &p,
                       const FrcJob &job, FieldView field) {
  WorkBlock own_field, aligned_entries, private_entries;
  if (p.pVectorField && reinterpret_cast<uintptr_t>(field.fwd) % alignof(DSP_MOTION_VECTOR) != 0) {
    // A host's field may start at any address: its entries are read from an aligned copy.
    if (!copy_entries(&field, &aligned_entries)) return kOutOfMemory;
  }
  if (!p.pVectorField) {
    if (job.width < 4 || job.height < 4) {  // too small to search: no window fits
      convert_without_motion(job, DSP_CONVERT_MODE_BLEND);
      return kOk;
    }
    DSP_FRAME_RATE_CONVERT_PARAMS q = p;
    const HRESULT hr = estimate_own_field(s, p, job, &own_field, &q.ulVectorFieldBytes);
    if (hr != kOk) return hr;
    q.pVectorField = own_field.aligned();
    if (!field_ok(q, uint32_t(job.width), uint32_t(job.height), &field)) return kUnexpected;
  }
  const uint32_t fallback = p.ulFallbackThreshold ? p.ulFallbackThreshold : DSP_CONVERT_DEFAULT_FALLBACK_THRESHOLD;
  if (scene_cut(field, fallback)) {
    convert_without_motion(job, DSP_CONVERT_MODE_BLEND);
    return kOk;
  }
  if (p.bConvertFlags & DSP_CONVERT_REFINE) {
    const FieldView given = field;
    DSP_MOTION_VECTOR *copy = copy_entries(&field, &private_entries);
    if (!copy) return kOutOfMemory;
    const size_t half = size_t(field.cols) * field.rows;
    refine_field(job, given, p.ulRefineThreshold, copy, field.bwd ? copy + half : nullptr);
  }
  return convert_along_field(job, field);
}

}  // namespace

HRESULT frame_rate_convert(const DSP_FRAME_RATE_CONVERTER_PARAMS &settings,
                           const DSP_FRAME_RATE_CONVERT_PARAMS *params) {
  worker_entry(kExport);
  if (!params) return kPointer;
  DSP_FRAME_RATE_CONVERT_PARAMS p;
  std::memcpy(&p, params, sizeof p);
  FrcJob job;
  FieldView field;
  if (!record_ok(settings, p, &job, &field)) return kInvalidArg;
  if (job.band_y0 >= job.band_y1) return kOk;
  if (p.ulPhaseQ14 == 0 || p.ulPhaseQ14 == kPhaseOne || settings.eConvertMode != DSP_CONVERT_MODE_MOTION) {
    convert_without_motion(job, settings.eConvertMode);
    return kOk;
  }
  return convert_motion(settings, p, job, field);
}

}  // namespace framedsp
