// The field a conversion follows when the caller gives none (each frame's pyramid, then both
// directions of the block search, with the converter's search settings), and the refinement of
// a field's bad blocks.  Both reuse the motion-vector operation and its block-matching kernels.
#include <algorithm>
#include <cstring>

#include "analysis/motion_vectors.h"
#include "platform/work_memory.h"
#include "framerate/frc_internal.h"
#include "scale/mipmap.h"

namespace framedsp {
namespace {

constexpr int32_t kRefineRange = 8;  // whole pixels around the best candidate
constexpr int32_t kMinLevelSide = 16;

DSP_IMAGE plane_image(const void *pixels, uint32_t bytes, uint32_t w, uint32_t h, uint32_t stride) {
  DSP_IMAGE im;
  std::memset(&im, 0, sizeof im);
  im.Buffer.pBuffer = const_cast<void *>(pixels);
  im.Buffer.ulBytes = bytes;
  im.Buffer.eBufferType = DSP_BUFFER_TYPE_FRAME;
  im.Buffer.Region.ulWidth = im.ulWidth = w;
  im.Buffer.Region.ulHeight = im.ulHeight = h;
  im.ePixelFormat = DSP_PIXEL_FORMAT_MIPMAP;
  im.eInterlace = DSP_INTERLACE_PROGRESSIVE;
  im.ulPrimaryStrideBytes = stride;
  return im;
}

uint16_t cost64(uint32_t sad, int32_t n) {
  return static_cast<uint16_t>(std::min<uint64_t>(uint64_t(sad) * 64 / uint32_t(n), 65535));
}

}  // namespace

uint32_t own_field_levels(const DSP_FRAME_RATE_CONVERTER_PARAMS &s, int width, int height) {
  uint32_t levels = s.ulLevels ? s.ulLevels : 4;
  while (levels > 1 && ((width >> (levels - 1)) < kMinLevelSide || (height >> (levels - 1)) < kMinLevelSide)) --levels;
  return levels;
}

HRESULT estimate_own_field(const DSP_FRAME_RATE_CONVERTER_PARAMS &s, const DSP_FRAME_RATE_CONVERT_PARAMS &p,
                           const FrcJob &job, WorkBlock *field, uint32_t *field_bytes) {
  const uint32_t w = uint32_t(job.width), h = uint32_t(job.height), levels = own_field_levels(s, job.width, job.height);
  size_t level_bytes = 0;
  for (uint32_t k = 1; k < levels; ++k) level_bytes += size_t(w >> k) * (h >> k);
  *field_bytes = DSP_VECTOR_FIELD_BYTES(w, h, s.ulBlockA, s.ulBlockB);
  WorkBlock pyramids;
  if (!field->allocate(*field_bytes + 16) || (level_bytes && !pyramids.allocate(2 * level_bytes))) return kOutOfMemory;
  DSP_MIPMAP_LEVELS lists[2];
  uint8_t *next = static_cast<uint8_t *>(pyramids.data());
  const DSP_IMAGE *frames[2] = {&p.FrameA, &p.FrameB};
  for (int side = 0; side < 2; ++side) {
    DSP_MIPMAP_LEVELS &l = lists[side];
    std::memset(&l, 0, sizeof l);
    l.ulCount = levels;
    l.Levels[0] = plane_image(frames[side]->Buffer.pBuffer, frames[side]->Buffer.ulBytes, w, h, uint32_t(job.stride));
    for (uint32_t k = 1; k < levels; ++k) {
      l.Levels[k] = plane_image(next, (w >> k) * (h >> k), w >> k, h >> k, w >> k);
      next += size_t(w >> k) * (h >> k);
    }
    DSP_MIPMAP_PARAMS mip;
    std::memset(&mip, 0, sizeof mip);
    mip.Base = l.Levels[0];
    mip.pLevels = &l;
    mip.eFilter = DSP_SCALER_FILTER_LINEAR;
    const HRESULT hr = create_mipmaps(&mip);
    if (hr != kOk) return hr;
  }
  DSP_MOTION_VECTORS_PARAMS m;
  std::memset(&m, 0, sizeof m);
  m.pLevelsA = &lists[0];
  m.pLevelsB = &lists[1];
  m.pVectorField = field->aligned();
  m.ulVectorFieldBytes = *field_bytes;
  std::memcpy(&m.ulLevels, &s.ulLevels, offsetof(DSP_MOTION_VECTORS_PARAMS, ulReserved) -
                                            offsetof(DSP_MOTION_VECTORS_PARAMS, ulLevels));
  m.ulLevels = levels;
  for (int k = 0; k < 5; ++k) {  // the converter's ranges were bounded by its lWidth / lHeight
    m.ulLevelRangeX[k] = std::max<uint32_t>(std::min(m.ulLevelRangeX[k], w / 4), 1);
    m.ulLevelRangeY[k] = std::max<uint32_t>(std::min(m.ulLevelRangeY[k], h / 4), 1);
  }
  return create_motion_vectors(&m);
}

void refine_field(const FrcJob &job, const FieldView &field, uint32_t threshold, DSP_MOTION_VECTOR *fwd,
                  DSP_MOTION_VECTOR *bwd) {
  const MotionPlane a{job.plane[0].a, job.stride, job.width, job.height};
  const MotionPlane b{job.plane[0].b, job.stride, job.width, job.height};
  const BlockGrid grid = make_grid(job.width, job.height, field.bw, field.bh);
  for (int dir = 0; dir < (bwd ? 2 : 1); ++dir) {
    const MotionPlane &from = dir ? b : a, &to = dir ? a : b;
    const DSP_MOTION_VECTOR *orig = dir ? field.bwd : field.fwd;
    DSP_MOTION_VECTOR *out = dir ? bwd : fwd;
    for (int r = 0; r < field.rows; ++r)
      for (int c = 0; c < field.cols; ++c) {
        if (orig[r * field.cols + c].usCost <= threshold) continue;
        const MotionBlock blk = make_block(from, grid, c, r);
        auto whole = [&](int cc, int rr) {
          const DSP_MOTION_VECTOR &e = orig[clamp_i(rr, 0, field.rows - 1) * field.cols + clamp_i(cc, 0, field.cols - 1)];
          return Vec{floor_div(e.sX + 2, 4), floor_div(e.sY + 2, 4)};
        };
        const Vec cand[6] = {whole(c, r), whole(c - 1, r), whole(c + 1, r), whole(c, r - 1), whole(c, r + 1), {0, 0}};
        Vec best = cand[0];
        uint32_t best_sad = UINT32_MAX;
        for (const Vec v : cand) {
          const uint32_t sad = block_sad(job.mk, blk, to, v.x, v.y);
          if (sad < best_sad) best_sad = sad, best = v;
        }
        const Vec centre = best;
        for (int32_t dy = -kRefineRange; dy <= kRefineRange; ++dy)
          for (int32_t dx = -kRefineRange; dx <= kRefineRange; ++dx) {
            const uint32_t sad = block_sad(job.mk, blk, to, centre.x + dx, centre.y + dy);
            if (sad < best_sad) best_sad = sad, best = {centre.x + dx, centre.y + dy};
          }
        Vec q{best.x * 4, best.y * 4};
        for (int32_t step = 2; step >= 1; --step) {  // half, then quarter pixels
          const Vec from_q = q;
          for (int32_t dy = -step; dy <= step; dy += step)
            for (int32_t dx = -step; dx <= step; dx += step) {
              if (!dx && !dy) continue;
              const uint32_t sad = block_sad_q(job.mk, blk, to, from_q.x + dx, from_q.y + dy);
              if (sad < best_sad) best_sad = sad, q = {from_q.x + dx, from_q.y + dy};
            }
        }
        DSP_MOTION_VECTOR &o = out[r * field.cols + c];
        o.sX = int16_t(clamp_i(q.x, -32768, 32767));
        o.sY = int16_t(clamp_i(q.y, -32768, 32767));
        o.usCost = cost64(best_sad, blk.w * blk.h);
        o.usFlags = uint16_t((o.usFlags & ~DSP_MV_BAD) | DSP_MV_REFINED);
      }
  }
}

}  // namespace framedsp
