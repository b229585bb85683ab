#include "analysis/motion_vectors.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "analysis/motion_search.h"
#include "analysis/motion_settings.h"
#include "lines/buffer_record.h"
#include "lines/line_walk.h"
#include "platform/cpu.h"
#include "platform/trace.h"
#include "platform/work_memory.h"

namespace framedsp {

static_assert(sizeof(DSP_VECTOR_FIELD) == DSP_VECTOR_FIELD_HEADER_BYTES, "48-byte header");
static_assert(sizeof(DSP_MOTION_VECTOR) == 8, "8-byte entries");
static_assert(offsetof(DSP_MOTION_VECTORS_PARAMS, ulLevelRangeY) + 5 * 4 -
                      offsetof(DSP_MOTION_VECTORS_PARAMS, ulLevels) ==
                  sizeof(SearchSettings),
              "the search settings are converter words 11..39");

namespace {

constexpr char kExport[] = "DspCreateMotionVectors";
constexpr uint32_t kMaxSide = 16384;
constexpr int32_t kMaxReach = 8191;  // pixels: quarter pixels must fit an int16

struct Geometry {
  uint32_t count = 0;  // levels in each list
  MotionPlane a[kSearchLevels], b[kSearchLevels];
};

// One level: a buffer, format 263, a non-empty region inside the image, lines at least the image
// width apart.  Bottom-up images are read through a negative stride.
bool level_plane(const DSP_IMAGE &im, char side, uint32_t k, MotionPlane *out) {
  if (!im.Buffer.pBuffer) return refuse(kExport, "level %u of %c has a null buffer", k, side);
  if (im.ePixelFormat != DSP_PIXEL_FORMAT_MIPMAP)
    return refuse(kExport, "level %u of %c has format %u, not 263", k, side, im.ePixelFormat);
  const DSP_REGION &r = im.Buffer.Region;
  const int64_t right = int64_t{r.ptOffset.x} + r.ulWidth, bottom = int64_t{r.ptOffset.y} + r.ulHeight;
  if (r.ulWidth == 0 || r.ulHeight == 0 || r.ptOffset.x < 0 || r.ptOffset.y < 0 ||
      right > im.ulWidth || bottom > im.ulHeight)
    return refuse(kExport, "level %u of %c: region %ux%u at (%d, %d) is empty or leaves the %ux%u image", k,
                  side, r.ulWidth, r.ulHeight, r.ptOffset.x, r.ptOffset.y, im.ulWidth, im.ulHeight);
  if (im.ulPrimaryStrideBytes < im.ulWidth)
    return refuse(kExport, "level %u of %c: stride %u is below the width %u", k, side,
                  im.ulPrimaryStrideBytes, im.ulWidth);
  if (r.ulWidth > kMaxSide || r.ulHeight > kMaxSide)
    return refuse(kExport, "level %u of %c: %ux%u is above %u in a direction", k, side, r.ulWidth,
                  r.ulHeight, kMaxSide);
  DSP_IMAGE measured = im;
  normalise_side(&measured);
  const LineSide lines = line_side(measured, measured.Buffer.Region.ptOffset.y,
                                   static_cast<int32_t>(r.ulHeight), r.ptOffset.x);
  out->data = lines.line(0);
  out->stride = static_cast<ptrdiff_t>(lines.sign) * lines.stride;
  out->width = static_cast<int32_t>(r.ulWidth);
  out->height = static_cast<int32_t>(r.ulHeight);
  return true;
}

bool halves(int32_t finer, int32_t coarser) { return coarser == finer / 2 || coarser == (finer + 1) / 2; }

bool read_geometry(const DSP_MOTION_VECTORS_PARAMS &p, Geometry *g) {
  if (!p.pLevelsA || !p.pLevelsB) return refuse(kExport, "a level list is null");
  const DSP_MIPMAP_LEVELS &la = *p.pLevelsA, &lb = *p.pLevelsB;
  if (la.ulCount < 1 || la.ulCount > kSearchLevels || lb.ulCount < 1 || lb.ulCount > kSearchLevels)
    return refuse(kExport, "level counts %u and %u: each must be 1..5", la.ulCount, lb.ulCount);
  if (la.ulCount != lb.ulCount)
    return refuse(kExport, "A has %u levels and B %u", la.ulCount, lb.ulCount);
  g->count = la.ulCount;
  for (uint32_t k = 0; k < g->count; ++k) {
    if (!level_plane(la.Levels[k], 'A', k, &g->a[k]) || !level_plane(lb.Levels[k], 'B', k, &g->b[k])) return false;
    if (g->a[k].width != g->b[k].width || g->a[k].height != g->b[k].height)
      return refuse(kExport, "level %u is %dx%d in A and %dx%d in B", k, g->a[k].width, g->a[k].height,
                    g->b[k].width, g->b[k].height);
    if (k > 0 && (!halves(g->a[k - 1].width, g->a[k].width) || !halves(g->a[k - 1].height, g->a[k].height)))
      return refuse(kExport, "level %u (%dx%d) is not level %u (%dx%d) halved", k, g->a[k].width,
                    g->a[k].height, k - 1, g->a[k - 1].width, g->a[k - 1].height);
  }
  return true;
}

// The previous field as temporal candidates, when its header describes the same blocks.
bool prior_source(const void *prior, const BlockGrid &grid, int32_t width, int32_t height,
                  TemporalSource *fwd, TemporalSource *bwd) {
  if (!prior) return false;
  DSP_VECTOR_FIELD h;
  std::memcpy(&h, prior, sizeof h);
  const uint64_t n = static_cast<uint64_t>(grid.count());
  const bool both = (h.ulFieldFlags & DSP_VECTOR_FIELD_BACKWARD) != 0;
  if (!(h.ulFieldFlags & DSP_VECTOR_FIELD_FORWARD) || h.ulWidth != static_cast<uint32_t>(width) ||
      h.ulHeight != static_cast<uint32_t>(height) || h.ulBlockWidth != static_cast<uint32_t>(grid.bw) ||
      h.ulBlockHeight != static_cast<uint32_t>(grid.bh) || h.ulColumns != static_cast<uint32_t>(grid.cols) ||
      h.ulRows != static_cast<uint32_t>(grid.rows) || h.ulFieldBytes < DSP_VECTOR_FIELD_HEADER_BYTES + 8 * n * (both ? 2 : 1)) {
    return false;
  }
  const uint8_t *entries = static_cast<const uint8_t *>(prior) + DSP_VECTOR_FIELD_HEADER_BYTES;
  *fwd = TemporalSource{entries, grid, width, height};
  if (both) *bwd = TemporalSource{entries + 8 * n, grid, width, height};
  return true;
}

}  // namespace

namespace {

// Everything one call estimates, carved from one block of work memory.  The level searches'
// `around` and level 0's `parts` are never live at once (the final stage follows a direction's
// level searches), so they share their memory; so do the directions' exhaustive bytes.
struct Work {
  MotionVec *fwd[kSearchLevels] = {}, *bwd[kSearchLevels] = {};
  MotionVec *scratch0 = nullptr, *scratch1 = nullptr;
  uint8_t *loose = nullptr;   // the level being searched
  uint32_t *around = nullptr;  // the level being searched
  // The next level's parent starts (level_starts), made from the level just searched; level 0's
  // stay for the backward search (negated).
  MotionVec *start = nullptr;
  BlockParts *parts = nullptr;  // level 0
  uint8_t *flat = nullptr;      // level 0
  uint8_t *half = nullptr;      // the target's half-pixel planes (sub-pixel vectors only)
  uint8_t *exhaustive = nullptr;  // level 0, the direction being estimated
};

struct Plan {
  Geometry geo;
  SearchSettings s;
  uint32_t levels = 0;
  BlockGrid grids[kSearchLevels];
  BlockGrid final_grid;
  int32_t reach_x[kSearchLevels] = {}, reach_y[kSearchLevels] = {};
  uint32_t flags = 0, lambda = 0, scene = 0;
  bool both = true, subpel = true;
};

// The next 16-byte-aligned piece of `bytes`; null while only measuring (base null).
uint8_t *carve(uint8_t *base, size_t *at, size_t bytes) {
  const size_t start = *at;
  *at += (bytes + 15) & ~size_t{15};
  return base ? base + start : nullptr;
}

// The half-pixel planes live in a window of lines: refining a row of search blocks reads them
// within the reach above and below it, while the lines are made a row of blocks ahead (and three
// more of one plane for another).  Runs of a search block's height and one more line are read.
int32_t half_window(const Plan &p) {
  return HalfPlanes::window(p.geo.a[0].height, p.grids[0].bh + 2 * p.reach_y[0] + 7);
}
int32_t half_run(const Plan &p) { return p.grids[0].bh + 1; }

// Lays the work memory out; with base null only measures it.
size_t layout(const Plan &p, uint8_t *base, Work *w) {
  size_t at = 0, largest = 0;
  for (uint32_t k = 0; k < p.levels; ++k) largest = std::max(largest, static_cast<size_t>(p.grids[k].count()));
  auto vecs = [&](size_t n) { return reinterpret_cast<MotionVec *>(carve(base, &at, n * sizeof(MotionVec))); };
  // The backward search has level 0 alone (see negate_coarse).
  for (uint32_t k = 0; k < p.levels; ++k) w->fwd[k] = vecs(static_cast<size_t>(p.grids[k].count()));
  w->bwd[0] = vecs(static_cast<size_t>(p.grids[0].count()));
  if (p.levels > 1) w->start = vecs(static_cast<size_t>(p.grids[1].count()));
  w->scratch0 = vecs(largest);
  w->scratch1 = vecs(largest);
  w->loose = carve(base, &at, largest);
  w->flat = carve(base, &at, static_cast<size_t>(p.grids[0].count()));
  w->exhaustive = carve(base, &at, static_cast<size_t>(p.grids[0].count()));
  if (p.subpel) {
    const int32_t window = half_window(p), run = half_run(p);
    w->half = carve(base, &at, HalfPlanes::bytes(p.geo.a[0].width, p.geo.a[0].height, window, run));
  }
  const size_t shared = at;
  w->around = reinterpret_cast<uint32_t *>(carve(base, &at, largest * 5 * 4));
  const size_t end = at;
  at = shared;
  w->parts = reinterpret_cast<BlockParts *>(carve(base, &at, static_cast<size_t>(p.grids[0].count()) * sizeof(BlockParts)));
  return std::max(at, end);
}

bool make_plan(const DSP_MOTION_VECTORS_PARAMS &rec, Plan *p) {
  if (!read_geometry(rec, &p->geo)) return false;
  std::memcpy(&p->s, &rec.ulLevels, sizeof p->s);
  const MotionPlane &l0 = p->geo.a[0];
  if (!search_settings_apply(&p->s, l0.width, l0.height, kExport)) return false;
  if (p->s.levels > p->geo.count)
    return refuse(kExport, "ulLevels %u is above the lists' %u levels", p->s.levels, p->geo.count);
  for (uint32_t r : rec.ulReserved) {
    if (r) return refuse(kExport, "reserved word 0x%X is not 0", r);
  }
  p->levels = p->s.levels ? p->s.levels : p->geo.count;
  p->flags = rec.ulMotionFlags;
  p->both = !(p->flags & DSP_MOTION_FORWARD_ONLY);
  p->subpel = !(p->flags & DSP_MOTION_WHOLE_PIXEL);
  p->lambda = rec.ulLambda ? rec.ulLambda : DSP_MOTION_DEFAULT_LAMBDA;
  p->scene = rec.ulSceneThreshold ? rec.ulSceneThreshold : DSP_MOTION_DEFAULT_SCENE_THRESHOLD;
  for (uint32_t k = 0; k < p->levels; ++k) {
    p->grids[k] = make_grid(p->geo.a[k].width, p->geo.a[k].height, static_cast<int32_t>(p->s.block_a[k]),
                            static_cast<int32_t>(p->s.block_b[k]));
  }
  p->final_grid = make_grid(l0.width, l0.height, static_cast<int32_t>(p->s.final_a), static_cast<int32_t>(p->s.final_b));
  // Reach of level k in its own pixels: the ranges of k and every coarser level, scaled.
  int64_t rx = 0, ry = 0;
  for (int32_t k = static_cast<int32_t>(p->levels) - 1; k >= 0; --k) {
    rx = 2 * rx + p->s.range_x[k];
    ry = 2 * ry + p->s.range_y[k];
    p->reach_x[k] = static_cast<int32_t>(std::min<int64_t>(rx, kMaxReach >> k));
    p->reach_y[k] = static_cast<int32_t>(std::min<int64_t>(ry, kMaxReach >> k));
  }
  const uint64_t entries = static_cast<uint64_t>(p->final_grid.count()) * (p->both ? 2 : 1);
  const uint64_t need = DSP_VECTOR_FIELD_HEADER_BYTES + 8 * entries;
  if (!rec.pVectorField) return refuse(kExport, "the field buffer is null");
  if (rec.ulVectorFieldBytes < need)
    return refuse(kExport, "the field buffer holds %u bytes; %llu are needed", rec.ulVectorFieldBytes,
                  static_cast<unsigned long long>(need));
  return true;
}

// The backward search shares the forward one's coarse levels: its parent starts at level 0 are
// the forward ones negated (a motion seen from A to B at a coarse scale is its opposite from B to
// A), so it searches level 0 alone.  The fine level keeps its own search, since blocks of B do
// not sit where blocks of A moved to.
void negate_coarse(const Plan &p, Work &w) {
  const int32_t n = p.grids[1].count();
  for (int32_t i = 0; i < n; ++i) w.start[i] = MotionVec{-w.start[i].x, -w.start[i].y};
}

// One direction: every level from the coarsest down (the backward one from level 0, see
// negate_coarse), then the final blocks.
// The final blocks are written straight into the direction's entries of the field (the prior
// field, which may be the same buffer, is read only by the level searches before that).
void estimate(const MotionKernels &k, const Plan &p, Work &w, int d, const TemporalSource *temporal,
              uint8_t *entries) {
  const MotionPlane *src = d == 0 ? p.geo.a : p.geo.b, *dst = d == 0 ? p.geo.b : p.geo.a;
  MotionVec **out = d == 0 ? w.fwd : w.bwd;
  int32_t top = static_cast<int32_t>(p.levels) - 1;
  if (d == 1 && top > 0) {
    negate_coarse(p, w);
    top = 0;
  }
  FinalStage f;
  f.a = src[0];
  f.b = dst[0];
  f.search_grid = p.grids[0];
  f.grid = p.final_grid;
  f.flat = w.flat;
  // Flat blocks are known before the searches: level 0 leaves out those that follow the global
  // vector anyway.
  const bool flat = mark_flat(k, f);
  for (int32_t lv = top; lv >= 0; --lv) {
    LevelSearch s;
    s.a = src[lv];
    s.b = dst[lv];
    s.grid = p.grids[lv];
    s.level = lv;
    s.range_x = static_cast<int32_t>(p.s.range_x[lv]);
    s.range_y = static_cast<int32_t>(p.s.range_y[lv]);
    s.reach_x = p.reach_x[lv];
    s.reach_y = p.reach_y[lv];
    s.threshold = p.s.threshold[lv];
    s.lambda = p.lambda;
    if (lv + 1 < static_cast<int32_t>(p.levels)) {
      s.parent = w.start;
      s.parent_grid = p.grids[lv + 1];
    }
    s.use_global = !(p.flags & DSP_MOTION_NO_GLOBAL);
    s.opposite = d == 1 ? w.fwd[lv] : nullptr;
    s.temporal = temporal;
    s.loose = w.loose;
    s.around = w.around;
    if (lv == 0 && flat && p.subpel) s.flat = w.flat;
    search_level(k, s, w.scratch0, w.scratch1, out[lv], lv == 0 ? w.exhaustive : nullptr);
    // The level below starts where this level's matches say the motion lies.
    if (lv > 0) level_starts(out[lv], w.around, p.grids[lv].count(), p.reach_x[lv - 1], p.reach_y[lv - 1], w.start);
  }
  HalfPlanes half;
  HalfPlaneMaker maker(k, dst[0], w.half, &half, half_window(p), half_run(p));
  if (p.subpel) {
    f.half = &half;
    f.half_maker = &maker;
  }
  f.search = out[0];
  f.exhaustive = w.exhaustive;
  f.reach_x = p.reach_x[0];
  f.reach_y = p.reach_y[0];
  f.lambda = p.lambda;
  f.scene_threshold = p.scene;
  f.split = !(p.flags & DSP_MOTION_NO_SPLIT);
  f.subpel = p.subpel;
  f.use_global = !(p.flags & DSP_MOTION_NO_GLOBAL);
  f.loose = w.loose;
  f.refined = w.scratch0;
  f.settled = w.scratch1;
  f.parts = w.parts;
  final_stage(k, f, entries);
}

// Vectors of the two directions further apart than this (quarter pixels, x or y) disagree.
constexpr int32_t kConsistency = 4;

// Flags DSP_MV_INCONSISTENT in `entries` where the other direction's vector at a block's
// destination is not the negated vector within one pixel in x and y.  Destinations outside the
// picture are not checked.
void mark_inconsistent(const MotionKernels &k, const BlockGrid &g, int32_t width, int32_t height, uint8_t *entries,
                       const uint8_t *other) {
  // n / d for 0 <= n < 2^14 and d in 8..32 as (n * (2^20 / d + 1)) >> 20: the product's excess,
  // below n / 2^20 < 1 / d, never reaches the next multiple, and the product fits 32 bits.
  ConsistencyRow r;
  r.step = 4 * g.bw;
  r.width = static_cast<uint32_t>(width), r.height = static_cast<uint32_t>(height);
  r.per_col = (1u << 20) / static_cast<uint32_t>(g.bw) + 1;
  r.per_row = (1u << 20) / static_cast<uint32_t>(g.bh) + 1;
  r.cols = static_cast<uint32_t>(g.cols);
  r.limit = kConsistency;
  r.flag = DSP_MV_INCONSISTENT;
  // Block centres in quarter pixels, plus 2: the destination rounds to the nearest pixel.  Every
  // column but the last (maybe partial) is a whole block.
  const int32_t last = g.cols - 1;
  r.cx = 4 * (g.bw / 2) + 2;
  r.last = 4 * (last * g.bw + std::min(g.bw, width - last * g.bw) / 2) + 2;
  for (int32_t row = 0; row < g.rows; ++row) {
    r.cy = 4 * (row * g.bh + std::min(g.bh, height - row * g.bh) / 2) + 2;
    k.consistency(entries + sizeof(DSP_MOTION_VECTOR) * static_cast<size_t>(row) * g.cols, other,
                  static_cast<uint32_t>(g.cols), r);
  }
}

// The header, once the entries are written.
void write_header(const Plan &p, uint8_t *field) {
  const size_t n = static_cast<size_t>(p.final_grid.count());
  const int dirs = p.both ? 2 : 1;
  DSP_VECTOR_FIELD h;
  std::memset(&h, 0, sizeof h);
  h.ulFieldBytes = static_cast<uint32_t>(DSP_VECTOR_FIELD_HEADER_BYTES + 8 * n * dirs);
  h.ulWidth = static_cast<uint32_t>(p.geo.a[0].width);
  h.ulHeight = static_cast<uint32_t>(p.geo.a[0].height);
  h.ulBlockWidth = static_cast<uint32_t>(p.final_grid.bw);
  h.ulBlockHeight = static_cast<uint32_t>(p.final_grid.bh);
  h.ulColumns = static_cast<uint32_t>(p.final_grid.cols);
  h.ulRows = static_cast<uint32_t>(p.final_grid.rows);
  h.ulFieldFlags = DSP_VECTOR_FIELD_FORWARD | (p.both ? DSP_VECTOR_FIELD_BACKWARD : 0u) |
                   (p.subpel ? 0u : DSP_VECTOR_FIELD_WHOLE_PIXEL);
  h.ulSceneThreshold = p.scene;
  const uint8_t *e = field + DSP_VECTOR_FIELD_HEADER_BYTES;
  for (int d = 0; d < dirs; ++d) {
    uint32_t bad = 0;
    for (size_t i = 0; i < n; ++i, e += 8) {
      uint16_t flags;
      std::memcpy(&flags, e + offsetof(DSP_MOTION_VECTOR, usFlags), sizeof flags);
      bad += (flags & DSP_MV_BAD) ? 1u : 0u;
    }
    (d == 0 ? h.ulBadForward : h.ulBadBackward) = bad;
  }
  std::memcpy(field, &h, sizeof h);
}

}  // namespace

HRESULT create_motion_vectors(void *params) {
  worker_entry(kExport);
  DSP_MOTION_VECTORS_PARAMS rec;
  std::memcpy(&rec, params, sizeof rec);
  Plan plan;
  if (!make_plan(rec, &plan)) return kInvalidArg;

  TemporalSource prior[2];
  const bool has_prior = prior_source(rec.pPriorField, plan.final_grid, plan.geo.a[0].width,
                                      plan.geo.a[0].height, &prior[0], &prior[1]);
  Work work;
  WorkBlock memory;
  if (!memory.allocate(layout(plan, nullptr, &work) + 16)) return kOutOfMemory;
  layout(plan, memory.aligned(), &work);

  MotionKernels kernels;
  motion_kernels_init(&kernels, cpu_flags());
  uint8_t *field = static_cast<uint8_t *>(rec.pVectorField);
  uint8_t *entries[2] = {field + DSP_VECTOR_FIELD_HEADER_BYTES,
                         field + DSP_VECTOR_FIELD_HEADER_BYTES + 8 * static_cast<size_t>(plan.final_grid.count())};
  estimate(kernels, plan, work, 0, has_prior ? &prior[0] : nullptr, entries[0]);
  if (plan.both) {
    estimate(kernels, plan, work, 1, has_prior && prior[1].entries ? &prior[1] : nullptr, entries[1]);
    const MotionPlane &l0 = plan.geo.a[0];
    mark_inconsistent(kernels, plan.final_grid, l0.width, l0.height, entries[0], entries[1]);
    mark_inconsistent(kernels, plan.final_grid, l0.width, l0.height, entries[1], entries[0]);
  }
  write_header(plan, field);
  return kOk;
}

}  // namespace framedsp
