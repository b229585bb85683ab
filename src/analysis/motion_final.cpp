// Level 0 of the motion search: each search block's vector is refined to quarter pixels, settled
// against its neighbours, and each final block picks among the search blocks' vectors around it
// (the split stage) and gets its cost and flags.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "analysis/motion_calm.h"
#include "analysis/motion_search.h"

namespace framedsp {
namespace {

int32_t iabs(int32_t v) { return v < 0 ? -v : v; }

// The split stage weighs a neighbour's vector only when it is further than this from the block's
// own (quarter pixels, x or y); the settling pass when it is further than kSettleApart.
constexpr int32_t kSplitApart = 2;
constexpr int32_t kSettleApart = 1;

bool apart(const MotionVec &a, const MotionVec &b, int32_t limit) {
  // |d| > limit as one unsigned comparison a component (differences lie within +-2^16), no branch.
  const uint32_t span = 2 * static_cast<uint32_t>(limit);
  return (static_cast<uint32_t>(a.x - b.x + limit) > span) | (static_cast<uint32_t>(a.y - b.y + limit) > span);
}

constexpr int32_t kChunk = kCalmChunk;

// The block's match at v in the four parts of sad_q4.
void parts_at(const MotionKernels &k, const FinalStage &f, const MotionBlock &b, const MotionVec &v, uint32_t sx,
              uint32_t sy, uint32_t out[4]) {
  if ((v.x | v.y) & 3) {
    block_sad_sub4(k, b, f.b, v.x, v.y, sx, sy, out);
  } else {
    block_sad_q4(k, b, f.b, v.x, v.y, sx, sy, out);
  }
}

struct Best {
  MotionVec v;
  uint64_t cost = 0;
  uint32_t match = 0;
  bool set = false;
  void offer(const MotionVec &w, uint64_t c, uint32_t m) {
    if (!set || better(c, w, cost, v)) *this = Best{w, c, m, true};
  }
};

class FinalEval {
 public:
  // Sums are split after sx columns and sy lines (the final blocks a search block holds).
  FinalEval(const MotionKernels &k, const FinalStage &f, const MotionBlock &block, MotionVec m,
            uint32_t lambda, uint32_t sx, uint32_t sy)
      : k_(k), f_(f), block_(block), m_(m), lambda_(lambda), sx_(sx), sy_(sy) {}

  // Evaluates v once (repeats are skipped); returns its cost, or UINT64_MAX outside the reach.
  uint64_t consider(const MotionVec &v) {
    if (iabs(v.x) > 4 * f_.reach_x || iabs(v.y) > 4 * f_.reach_y) return UINT64_MAX;
    for (int i = 0; i < seen_; ++i) {
      if (seen_x_[i] == v.x && seen_y_[i] == v.y) return seen_cost_[i];
    }
    BlockParts p{v, {}, true};
    parts_at(k_, f_, block_, v, sx_, sy_, p.sum);
    return take(p);
  }

  // A vector whose sums another evaluation of this block found.
  uint64_t take(const BlockParts &p) {
    const uint32_t match = cost16_of_sad(block_, p.sum[0] + p.sum[1] + p.sum[2] + p.sum[3]);
    const MotionVec &v = p.v;
    const uint64_t cost =
        match + uint64_t{4} * lambda_ * static_cast<uint32_t>(iabs(v.x - m_.x) + iabs(v.y - m_.y));
    if (seen_ < kSeen) {
      seen_x_[seen_] = v.x;
      seen_y_[seen_] = v.y;
      seen_cost_[seen_++] = cost;
    }
    if (!best_.set || better(cost, v, best_.cost, best_.v)) best_parts_ = p;
    best_.offer(v, cost, match);
    return cost;
  }

  const BlockParts &best_parts() const { return best_parts_; }
  const Best &best() const { return best_; }

 private:
  const MotionKernels &k_;
  const FinalStage &f_;
  const MotionBlock &block_;
  MotionVec m_;
  uint32_t lambda_;
  uint32_t sx_, sy_;
  Best best_;
  BlockParts best_parts_{};
  static constexpr int kSeen = 24;
  int32_t seen_x_[kSeen], seen_y_[kSeen];  // entries [0, seen_) are set: nothing to clear per block
  uint64_t seen_cost_[kSeen];
  int seen_ = 0;
};

// True when the block's own detail is below kFlatActivity per sample pair: differences to the
// right and lower neighbours, within the picture.
bool flat(const MotionKernels &k, const MotionPlane &src, const MotionBlock &b) {
  const int32_t wh = b.x + b.w < src.width ? b.w : b.w - 1;
  const int32_t hv = b.y + b.h < src.height ? b.h : b.h - 1;
  uint32_t activity = 0, pairs = 0;
  if (wh > 0) {
    activity += k.sad(b.a, b.a_stride, b.a + 1, b.a_stride, static_cast<uint32_t>(wh), static_cast<uint32_t>(b.h));
    pairs += static_cast<uint32_t>(wh * b.h);
  }
  if (hv > 0) {
    activity += k.sad(b.a, b.a_stride, b.a + b.a_stride, b.a_stride, static_cast<uint32_t>(b.w), static_cast<uint32_t>(hv));
    pairs += static_cast<uint32_t>(b.w * hv);
  }
  return activity < kFlatActivity * pairs;
}

// The part of a block whose samples at every whole-pixel offset lo..hi (per axis, inclusive) lie
// inside the target.  False when that is the whole block, or nothing of it.  Edge-repeated
// samples say nothing about where a block lies between two pixels, so sub-pixel decisions are
// taken on this part alone.
// The samples of the whole block at every whole-pixel offset lo..hi lie inside the target.
bool all_inside(const MotionPlane &target, const MotionBlock &b, MotionVec lo, MotionVec hi) {
  return b.x + lo.x >= 0 && b.y + lo.y >= 0 && b.x + b.w + hi.x <= target.width && b.y + b.h + hi.y <= target.height;
}

bool inside_part(const MotionPlane &target, const MotionBlock &b, MotionVec lo, MotionVec hi, MotionBlock *out) {
  const int32_t x0 = std::max(b.x, -lo.x), x1 = std::min(b.x + b.w, target.width - hi.x);
  const int32_t y0 = std::max(b.y, -lo.y), y1 = std::min(b.y + b.h, target.height - hi.y);
  if (x0 >= x1 || y0 >= y1 || (x0 == b.x && y0 == b.y && x1 == b.x + b.w && y1 == b.y + b.h)) return false;
  *out = b;
  out->x = x0;
  out->y = y0;
  out->w = x1 - x0;
  out->h = y1 - y0;
  out->a = b.a + (y0 - b.y) * b.a_stride + (x0 - b.x);
  const uint32_t n = static_cast<uint32_t>(out->w * out->h);
  out->recip = ((1u << 26) + n / 2) / n;
  return true;
}

// Whole-pixel offsets (per axis) of the picture samples the matches of v depend on: a fraction
// depends on the six-tap filter's reach, two pixels before and three after.
constexpr int32_t kTapsBefore = 2, kTapsAfter = 3;
int32_t lo_of(int32_t q) { return (q >> 2) - ((q & 3) ? kTapsBefore : 0); }
int32_t hi_of(int32_t q) { return (q & 3) ? (q >> 2) + kTapsAfter : q >> 2; }
MotionVec read_lo(const MotionVec &v) { return MotionVec{lo_of(v.x), lo_of(v.y)}; }
MotionVec read_hi(const MotionVec &v) { return MotionVec{hi_of(v.x), hi_of(v.y)}; }

// The eight neighbours `step` quarter pixels from the best, in a fixed order.
void ring(FinalEval *e, int32_t step) {
  const MotionVec c = e->best().v;
  for (int32_t dy = -step; dy <= step; dy += step) {
    for (int32_t dx = -step; dx <= step; dx += step) {
      if (dx || dy) e->consider(MotionVec{c.x + dx, c.y + dy});
    }
  }
}

bool nests(const FinalStage &f) { return nesting(f.search_grid.bw, f.grid.bw) && nesting(f.search_grid.bh, f.grid.bh); }

// Where a search block's sums split: after the first final block's columns and lines when the
// final blocks nest in the search blocks (nested), nowhere otherwise.
void split_of(const FinalStage &f, bool nested, const MotionBlock &b, uint32_t *sx, uint32_t *sy) {
  *sx = static_cast<uint32_t>(nested ? std::min(f.grid.bw, b.w) : b.w);
  *sy = static_cast<uint32_t>(nested ? std::min(f.grid.bh, b.h) : b.h);
}

// Blocks that follow the global vector: loose ones and, when the final blocks nest, those whose
// final blocks are all flat (no detail to place them either, whatever the level search found).
bool follows_global(const FinalStage &f, int32_t i) {
  return (f.loose && f.loose[i]) || (f.flat && (f.flat[i] & kAllFlat));
}

MotionVec median_of(int32_t *xs, int32_t *ys, int32_t n) {
  return MotionVec{median_value(xs, n), median_value(ys, n)};
}

RingPlanes ring_planes(const HalfPlanes &half) {
  RingPlanes planes;
  for (int i = 0; i < 4; ++i) {
    planes.data[i] = half.p[i].data, planes.stride[i] = half.p[i].stride, planes.mask[i] = i ? half.mask : -1;
  }
  return planes;
}

// Blocks for ring_refine, taken two at a time (their rings interleave); each result goes to the
// block's refined vector and sums, and to the list of refined vectors.
class RingBatch {
 public:
  RingBatch(const MotionKernels &k, const FinalStage &f, int32_t *xs, int32_t *ys, int32_t *placed)
      : k_(k), f_(f), planes_(ring_planes(f.half ? *f.half : HalfPlanes{})), xs_(xs), ys_(ys), placed_(placed) {}
  void add(const RingBlock &b, int32_t i, bool cut) {
    block_[n_] = b, index_[n_] = i, cut_[n_++] = cut;
    if (n_ == 2) flush();
  }
  void flush() {
    if (n_ == 0) return;
    RingBest best[2];
    k_.ring_refine(planes_, block_, static_cast<uint32_t>(n_), best);
    for (int j = 0; j < n_; ++j) {
      // Member by member: whole-record copies would load across the kernel's narrower stores.
      BlockParts &p = f_.parts[index_[j]];
      MotionVec &v = f_.refined[index_[j]];
      xs_[*placed_] = v.x = p.v.x = best[j].vx;
      ys_[(*placed_)++] = v.y = p.v.y = best[j].vy;
      std::memcpy(p.sum, best[j].sum, sizeof p.sum);
      p.known = !cut_[j];
    }
    n_ = 0;
  }

 private:
  const MotionKernels &k_;
  const FinalStage &f_;
  const RingPlanes planes_;
  int32_t *xs_, *ys_, *placed_;
  RingBlock block_[2];
  int32_t index_[2];
  bool cut_[2];
  int n_ = 0;
};

// Sub-pixel refinement: the best of the half-pixel ring around each vector, then of the
// quarter-pixel ring around that.
// Loose blocks take the median of the others' refined vectors (*global; false when there is none).
bool refine(const MotionKernels &k, const FinalStage &f, MotionVec *global) {
  const BlockGrid &sg = f.search_grid;
  const int32_t n = sg.count();
  int32_t *xs = reinterpret_cast<int32_t *>(f.settled), *ys = xs + n, placed = 0;
  RingBatch batch(k, f, xs, ys, &placed);
  int32_t made = -1;  // the planes' lines made so far: [0, made]
  const bool nested = nests(f);
  int32_t row_y = 0;
  for (int32_t i = 0; i < n; ++i) {
    const MotionVec own = f.search[i];
    const bool follows = f.use_global && follows_global(f, i);
    f.parts[i].known = false;
    if (!f.subpel || follows) {
      f.refined[i] = own;
      continue;
    }
    // Every vector weighed here lies within a pixel of `own`; where their matches reach outside
    // the target, only the part of the block inside it is weighed (and its sums are not kept).
    const MotionBlock whole = make_block(f.a, sg, i % sg.cols, i / sg.cols);
    // The lowest plane line its matches read (unclamped; a clamped read means all of them).
    const int32_t need = whole.y + whole.h + (own.y >> 2) + 2;
    if (whole.y != row_y) {
      batch.flush();  // a batch stays within a row: the planes' window holds a row's reads
      row_y = whole.y;
    }
    if (f.half_maker && need > made) {
      // The planes follow a row of blocks ahead, so that the rows are read while in the cache.
      made = std::max(need, whole.y + sg.bh + 2);
      f.half_maker->through(made);
    }
    MotionBlock part;
    const MotionVec lo = read_lo(MotionVec{own.x - 3, own.y - 3}), hi = read_hi(MotionVec{own.x + 3, own.y + 3});
    // Most blocks read inside the target: then none of them is cut.
    const bool inside = all_inside(f.b, whole, lo, hi);
    const bool cut = !inside && inside_part(f.b, whole, lo, hi, &part);
    const MotionBlock &b = cut ? part : whole;
    uint32_t sx, sy;
    split_of(f, nested, b, &sx, &sy);
    // A cut block's part lies inside by construction, so it takes the direct path as well.
    if ((cut || inside) && iabs(own.x) + 3 <= 4 * f.reach_x &&
        iabs(own.y) + 3 <= 4 * f.reach_y) {
      if (cut) sx = static_cast<uint32_t>(b.w), sy = static_cast<uint32_t>(b.h);
      batch.add(RingBlock{b.a, b.a_stride, b.x, b.y, static_cast<uint32_t>(b.w), static_cast<uint32_t>(b.h), sx, sy,
                          b.recip, own.x, own.y},
                i, cut);
    } else {
      FinalEval eval(k, f, b, own, 0, cut ? static_cast<uint32_t>(b.w) : sx, cut ? static_cast<uint32_t>(b.h) : sy);
      eval.consider(own);  // pure match: a smoothness term would pull to `own`
      ring(&eval, 2);
      ring(&eval, 1);
      f.refined[i] = eval.best().v;
      f.parts[i] = eval.best_parts();
      f.parts[i].known = !cut;
      xs[placed] = f.refined[i].x;
      ys[placed++] = f.refined[i].y;
    }
  }
  batch.flush();
  if (!f.use_global || (!f.loose && !f.flat) || placed == n || placed == 0) return false;
  const MotionVec g = *global = median_of(xs, ys, placed);
  // Without branches: which blocks follow has no pattern to predict.
  const uint8_t *loose = f.loose, *flat = f.flat;
  MotionVec *refined = f.refined;
  for (int32_t i = 0; i < n; ++i) {
    const int32_t follows = (loose ? loose[i] != 0 : 0) | (flat ? (flat[i] & kAllFlat) != 0 : 0);
    refined[i].x += (g.x - refined[i].x) & -follows;
    refined[i].y += (g.y - refined[i].y) & -follows;
  }
  return true;
}

// Block (col, row), not calm: its refined vector weighed against its neighbours'.  The chunk's
// medians are made on first use (*have_medians).
void settle_block(const MotionKernels &k, const FinalStage &f, const MotionVec &global, bool has_global, bool nested,
                  int32_t row, int32_t col, MedianChunk *medians, bool *have_medians) {
  const BlockGrid &sg = f.search_grid;
  const size_t i = static_cast<size_t>(row) * sg.cols + col;
  const MotionVec own = f.refined[i];
  MotionVec cand[8];
  int n = 0;
  // The neighbours within the grid, in a fixed order (the block itself is never apart).
  const int32_t r0 = row > 0 ? -1 : 0, r1 = row + 1 < sg.rows ? 1 : 0;
  const int32_t c0 = col > 0 ? -1 : 0, c1 = col + 1 < sg.cols ? 1 : 0;
  for (int32_t dy = r0; dy <= r1; ++dy) {
    const MotionVec *line = f.refined + static_cast<ptrdiff_t>(row + dy) * sg.cols + col;
    for (int32_t dx = c0; dx <= c1; ++dx) {
      const MotionVec &v = line[dx];
      if (apart(v, own, kSettleApart) && std::find(cand, cand + n, v) == cand + n) cand[n++] = v;
    }
  }
  if (n == 0) return;  // settled as it is
  const bool follows = has_global && follows_global(f, static_cast<int32_t>(i));
  MotionVec lo = read_lo(own), hi = read_hi(own);
  for (int j = 0; j < n; ++j) {
    lo = MotionVec{std::min(lo.x, read_lo(cand[j]).x), std::min(lo.y, read_lo(cand[j]).y)};
    hi = MotionVec{std::max(hi.x, read_hi(cand[j]).x), std::max(hi.y, read_hi(cand[j]).y)};
  }
  const MotionBlock whole = make_block(f.a, sg, col, row);
  MotionBlock part;
  const bool cut = !all_inside(f.b, whole, lo, hi) && inside_part(f.b, whole, lo, hi, &part);  // as in refine()
  const MotionBlock &block = cut ? part : whole;
  uint32_t sx, sy;
  split_of(f, nested, block, &sx, &sy);
  if (cut) sx = static_cast<uint32_t>(block.w), sy = static_cast<uint32_t>(block.h);
  if (!follows && !*have_medians) {
    median_chunk(f.refined, sg, row, col - col % kChunk, medians);
    *have_medians = true;
  }
  FinalEval eval(k, f, block, follows ? global : medians->at(col), f.lambda, sx, sy);
  if (f.parts[i].known && !cut) {
    eval.take(f.parts[i]);
  } else {
    eval.consider(own);
  }
  for (int j = 0; j < n; ++j) eval.consider(cand[j]);
  f.settled[i] = eval.best().v;
  f.parts[i] = eval.best_parts();
  f.parts[i].known = !cut;
}

// Each block weighs its refined vector against its neighbours' (those more than kSettleApart
// away) with the smoothness term against the median of the refined 3x3, or against the global
// vector for a block that follows it: this settles blocks whose texture leaves the match open
// along one direction.  Calm blocks keep their vector: a chunk's are copied at once.
void settle(const MotionKernels &k, const FinalStage &f, const MotionVec &global, bool has_global) {
  const BlockGrid &sg = f.search_grid;
  static_assert(kCalmChunk == kMedianChunk, "calm flags and medians share their chunks");
  uint8_t calm[kChunk];
  MedianChunk medians;
  const bool nested = nests(f);
  for (int32_t c0 = 0; c0 < sg.cols; c0 += kChunk) {
    CalmChunk calm_rows(f.refined, sg, c0, kSettleApart);
    for (int32_t row = 0; row < sg.rows; ++row) {
      const int32_t n = std::min(kChunk, sg.cols - c0);
      const size_t i0 = static_cast<size_t>(row) * sg.cols + c0;
      calm_rows.row(row, calm);
      std::copy(f.refined + i0, f.refined + i0 + n, f.settled + i0);
      bool have_medians = false;  // made for the chunk's first block that needs them
      // calm holds whole words of 8 blocks (those beyond the chunk calm or not): most are all calm.
      for (int32_t j8 = 0; j8 < n; j8 += 8) {
        uint64_t word;
        std::memcpy(&word, calm + j8, sizeof word);
        for (int32_t j = j8; word != 0x0101010101010101u && j < std::min(j8 + 8, n); ++j) {
          if (!calm[j]) settle_block(k, f, global, has_global, nested, row, c0 + j, &medians, &have_medians);
        }
      }
    }
  }
}

struct Out {
  uint8_t *entries;
};

// The vectors of a search block's eight neighbours (in a fixed order, each once) more than half a
// pixel from its own and within the reach: the other motions its final blocks may follow.
int other_motions(const FinalStage &f, const MotionVec *search, int32_t sc, int32_t sr, MotionVec out[8]) {
  const BlockGrid &sg = f.search_grid;
  const MotionVec own = search[sr * sg.cols + sc];
  const int32_t r0 = std::max(sr - 1, 0), r1 = std::min(sr + 1, sg.rows - 1);
  const int32_t c0 = std::max(sc - 1, 0), c1 = std::min(sc + 1, sg.cols - 1);
  MotionVec seen[8];
  int n = 0, taken = 0;
  for (int32_t r = r0; r <= r1; ++r) {
    for (int32_t c = c0; c <= c1; ++c) {
      const MotionVec &v = search[r * sg.cols + c];
      if (!apart(v, own, kSplitApart) || std::find(seen, seen + n, v) != seen + n) continue;
      seen[n++] = v;
      if (iabs(v.x) <= 4 * f.reach_x && iabs(v.y) <= 4 * f.reach_y) out[taken++] = v;
    }
  }
  return taken;
}

// The final blocks of a chunk of a search row, by final row (qr) and column from the chunk's first.
struct PartChunk {
  int16_t x[2][2 * kChunk], y[2][2 * kChunk];  // vector (quarter pixels within the reach fit 16 bits)
  uint32_t match[2][2 * kChunk];
  uint16_t flags[2][2 * kChunk];  // DSP_MV_FLAT and DSP_MV_REFINED
};

// Where a neighbour of search block (sc, sr) moves otherwise: for each part, the best of its own
// vector (v[q], match m[q] on entry) and the neighbours'.
void other_parts(const MotionKernels &k, const FinalStage &f, const MotionVec *search, int32_t sc, int32_t sr,
                 uint32_t sx, uint32_t sy, const uint32_t recip[4], MotionVec v[4], uint32_t m[4]) {
  MotionVec cand[8];
  const int nc = other_motions(f, search, sc, sr, cand);
  if (nc == 0) return;
  const MotionVec own = v[0];
  Best best[4];
  for (int q = 0; q < 4; ++q) best[q] = Best{own, m[q], m[q], true};
  const MotionBlock sb = make_block(f.a, f.search_grid, sc, sr);
  for (int c = 0; c < nc; ++c) {
    uint32_t sums[4];
    parts_at(k, f, sb, cand[c], sx, sy, sums);
    const uint64_t lambda =
        uint64_t{4} * f.lambda * static_cast<uint32_t>(iabs(cand[c].x - own.x) + iabs(cand[c].y - own.y));
    for (int q = 0; q < 4; ++q) {
      const uint32_t match = cost16_of_sad(recip[q], sums[q]);
      best[q].offer(cand[c], match + lambda, match);
    }
  }
  for (int q = 0; q < 4; ++q) v[q] = best[q].v, m[q] = best[q].match;
}

// Where a search block's sums split (after sx columns and sy lines) and the cost scale of each
// part: the same for every block of a row but the last.
struct Shape {
  uint32_t sx, sy, recip[4];
};
Shape shape_of(const FinalStage &f, int32_t sc, int32_t sr) {
  const BlockGrid &g = f.grid, &sg = f.search_grid;
  const int32_t w = std::min(sg.bw, f.a.width - sc * sg.bw), h = std::min(sg.bh, f.a.height - sr * sg.bh);
  Shape s;
  s.sx = static_cast<uint32_t>(std::min(g.bw, w)), s.sy = static_cast<uint32_t>(std::min(g.bh, h));
  // The parts: the search block's first sx columns and the rest, by its first sy lines and the rest.
  const int32_t pw[2] = {static_cast<int32_t>(s.sx), w - static_cast<int32_t>(s.sx)};
  const int32_t ph[2] = {static_cast<int32_t>(s.sy), h - static_cast<int32_t>(s.sy)};
  for (int q = 0; q < 4; ++q) s.recip[q] = recip_of(static_cast<uint32_t>(std::max(pw[q & 1] * ph[q >> 1], 1)));
  return s;
}

// Whether the split stage has the sums of search block i at its own vector from refinement or
// settling.
bool parts_known(const FinalStage &f, const MotionVec *search, size_t i) {
  return f.subpel && f.parts[i].known && f.parts[i].v == search[i];
}

// The sums at their own vectors of the chunk's n blocks: those refinement or settling found, or
// found here (fractional vectors a run of neighbours with the same vector at a time, their
// half-pixel samples made once).
void own_sums(const MotionKernels &k, const FinalStage &f, const MotionVec *search, int32_t sr, int32_t c0,
              int32_t n, const Shape &inner, const Shape &edge, uint32_t (*sums)[4]) {
  const BlockGrid &sg = f.search_grid;
  const size_t row = static_cast<size_t>(sr) * sg.cols;
  const int32_t per_run = std::max<int32_t>(1, static_cast<int32_t>(kSadMaxSide) / sg.bw);
  for (int32_t j = 0; j < n;) {
    const size_t i = row + c0 + j;
    const MotionVec v = search[i];
    if (parts_known(f, search, i)) {
      std::copy(f.parts[i].sum, f.parts[i].sum + 4, sums[j]);
      ++j;
      continue;
    }
    // The last column (a partial block, another split) goes alone.
    if (((v.x | v.y) & 3) == 0 || c0 + j + 1 == sg.cols) {
      const Shape &shape = c0 + j + 1 < sg.cols ? inner : edge;
      parts_at(k, f, make_block(f.a, sg, c0 + j, sr), v, shape.sx, shape.sy, sums[j]);
      ++j;
      continue;
    }
    int32_t len = 1;
    while (len < per_run && j + len < n && c0 + j + len + 1 < sg.cols && search[i + len] == v &&
           !parts_known(f, search, i + len)) {
      ++len;
    }
    MotionBlock run = make_block(f.a, sg, c0 + j, sr);
    run.w = len * sg.bw;
    block_sad_sub4_run(k, run, len, sg.bw, f.b, v.x, v.y, inner.sx, inner.sy, sums + j);
    j += len;
  }
}

// The chunk's n blocks with their own vector for every part (on inner's cost scales), ny final
// rows of NX columns: one step over the chunk, which the compiler takes several lanes at a time.
// search, exhaustive and flat from the chunk's first block.
template <int NX>
void own_entries(const MotionVec *search, const uint8_t *exhaustive, const uint8_t *flat, const uint32_t (*sums)[4],
                 const Shape &inner, int32_t n, int32_t ny, PartChunk *out) {
  for (int32_t qr = 0; qr < ny; ++qr) {
    for (int32_t j = 0; j < n; ++j) {
      for (int32_t qc = 0; qc < NX; ++qc) {
        const int32_t q = 2 * qr + qc, at = j * NX + qc;
        out->x[qr][at] = static_cast<int16_t>(search[j].x), out->y[qr][at] = static_cast<int16_t>(search[j].y);
        out->match[qr][at] = cost16_of_sad(inner.recip[q], sums[j][q]);
        out->flags[qr][at] =
            static_cast<uint16_t>((exhaustive[j] ? DSP_MV_REFINED : 0u) | ((flat[j] >> q) & 1 ? DSP_MV_FLAT : 0u));
      }
    }
  }
}

// Search block (sc, sr), the chunk's block j, with its own sums: where a neighbour may move
// otherwise (not calm), the best of its own vector and the neighbours' for each part; the last
// column's costs on its own scales.
void split_block(const MotionKernels &k, const FinalStage &f, const MotionVec *search, int32_t sc, int32_t sr,
                 const Shape &shape, bool calm, int32_t nx, int32_t j, const uint32_t sums[4], PartChunk *out) {
  const MotionVec own = search[static_cast<size_t>(sr) * f.search_grid.cols + sc];
  uint32_t m[4];
  MotionVec v[4] = {own, own, own, own};
  for (int q = 0; q < 4; ++q) m[q] = cost16_of_sad(shape.recip[q], sums[q]);
  if (!calm) other_parts(k, f, search, sc, sr, shape.sx, shape.sy, shape.recip, v, m);
  for (int q = 0; q < 4; ++q) {
    const int32_t qc = q & 1, qr = q >> 1, at = j * nx + qc;
    if (qc >= nx) continue;
    out->x[qr][at] = static_cast<int16_t>(v[q].x), out->y[qr][at] = static_cast<int16_t>(v[q].y);
    out->match[qr][at] = m[q];
  }
}

int16_t clamp16(int32_t v) { return static_cast<int16_t>(std::min(std::max(v, -32768), 32767)); }

// Where a vector takes a final block outside the target: the first sample column left of 0 or
// the last (rounded up for a fractional position) right of the last column; rows alike.  For a
// block at x, w wide: 4 * x + vx < 0, or x + ((vx + 3) >> 2) + w > right, that is vx > 4 * (right
// - x - w).  Vectors lie within +-4 * 8191, so the bounds clamped to 16 bits decide alike.
struct Bounds {
  int16_t lo[2 * kChunk], hi[2 * kChunk];
};
// The column bounds of n final blocks from column f0.
void column_bounds(const FinalStage &f, int32_t f0, int32_t n, Bounds *out) {
  for (int32_t t = 0; t < n; ++t) {
    const int32_t x = (f0 + t) * f.grid.bw, w = std::min(f.grid.bw, f.a.width - x);
    out->lo[t] = clamp16(-4 * x);
    out->hi[t] = clamp16(4 * (f.b.width - x - w));
  }
}

// The entries of n final blocks of row fr from column f0 (x, y, match, flags of the chunk's final
// row; `columns` their column bounds) with their cost, DSP_MV_BAD and DSP_MV_OUTSIDE: one step
// over the row, which the compiler takes several lanes at a time, then one copy.
void write_row(const FinalStage &f, const int16_t *vx, const int16_t *vy, const uint32_t *match, const uint16_t *flags,
               const Bounds &columns, int32_t fr, int32_t f0, int32_t n, uint8_t *entries) {
  const BlockGrid &g = f.grid;
  const int32_t y = fr * g.bh, h = std::min(g.bh, f.a.height - y);
  const int16_t top = clamp16(-4 * y), bottom = clamp16(4 * (f.b.height - h - y));
  // Costs lie below 2^28: the threshold clamped to 31 bits decides alike.
  const uint32_t threshold = std::min<uint32_t>(f.scene_threshold, 0x7FFFFFFF);
  uint16_t packed[4 * 2 * kChunk];
  for (int32_t t = 0; t < n; ++t) {
    const bool out = (vx[t] < columns.lo[t]) | (vx[t] > columns.hi[t]) | (vy[t] < top) | (vy[t] > bottom);
    const uint32_t c64 = (match[t] + 8) >> 4;
    packed[4 * t] = static_cast<uint16_t>(vx[t]);
    packed[4 * t + 1] = static_cast<uint16_t>(vy[t]);
    packed[4 * t + 2] = static_cast<uint16_t>(std::min<uint32_t>(c64, 0xFFFF));
    packed[4 * t + 3] = static_cast<uint16_t>(flags[t] | (c64 > threshold ? DSP_MV_BAD : 0u) | (out ? DSP_MV_OUTSIDE : 0u));
  }
  std::memcpy(entries + sizeof(DSP_MOTION_VECTOR) * (static_cast<size_t>(fr) * g.cols + f0), packed,
              sizeof(uint16_t) * 4 * static_cast<size_t>(n));
}

// The split stage when every search block holds 1x1, 2x1, 1x2 or 2x2 final blocks: one pass of
// sad_q4 a candidate gives the matches of all of them.  Most blocks have no neighbour with another
// motion; they keep their own vector and the sums refinement found for it.  Chunks of columns
// from top to bottom, so that their final columns' bounds are worked out once.
void split_nested(const MotionKernels &k, const FinalStage &f, const MotionVec *search, int32_t nx, int32_t ny,
                  const Out &out) {
  const BlockGrid &sg = f.search_grid;
  static constexpr uint8_t kNone[kChunk] = {};  // no block refined by the exhaustive search
  uint8_t calm[kChunk];
  uint32_t sums[kChunk][4];
  PartChunk chunk;
  Bounds columns;
  for (int32_t c0 = 0; c0 < sg.cols; c0 += kChunk) {
    const int32_t n = std::min(kChunk, sg.cols - c0);
    const int32_t f0 = c0 * nx, count = std::min((c0 + n) * nx, f.grid.cols) - f0;
    column_bounds(f, f0, count, &columns);
    CalmChunk calm_rows(search, sg, c0, kSplitApart);
    for (int32_t sr = 0; sr < sg.rows; ++sr) {
      const Shape inner = shape_of(f, 0, sr), edge = shape_of(f, sg.cols - 1, sr);
      if (f.split) calm_rows.row(sr, calm);
      own_sums(k, f, search, sr, c0, n, inner, edge, sums);
      const size_t i0 = static_cast<size_t>(sr) * sg.cols + c0;
      const uint8_t *exhaustive = f.exhaustive ? f.exhaustive + i0 : kNone;
      if (nx == 2) {
        own_entries<2>(search + i0, exhaustive, f.flat + i0, sums, inner, n, ny, &chunk);
      } else {
        own_entries<1>(search + i0, exhaustive, f.flat + i0, sums, inner, n, ny, &chunk);
      }
      // calm holds whole words of 8 blocks (those beyond the chunk calm or not): most are all calm.
      for (int32_t j8 = 0; f.split && j8 < n; j8 += 8) {
        uint64_t word;
        std::memcpy(&word, calm + j8, sizeof word);
        for (int32_t j = j8; word != 0x0101010101010101u && j < std::min(j8 + 8, n); ++j) {
          const int32_t sc = c0 + j;
          if (!calm[j]) {
            split_block(k, f, search, sc, sr, sc + 1 < sg.cols ? inner : edge, false, nx, j, sums[j], &chunk);
          }
        }
      }
      // The last column's parts have their own cost scales.
      const int32_t last = sg.cols - 1 - c0;
      if (last < n && (!f.split || calm[last])) {
        split_block(k, f, search, sg.cols - 1, sr, edge, true, nx, last, sums[last], &chunk);
      }
      for (int32_t qr = 0; qr < ny && sr * ny + qr < f.grid.rows; ++qr) {
        write_row(f, chunk.x[qr], chunk.y[qr], chunk.match[qr], chunk.flags[qr], columns, sr * ny + qr, f0, count,
                  out.entries);
      }
    }
  }
}

// The split stage for any block sizes: each final block weighs the vectors of the 3x3 search
// blocks around the one under its centre.
void split_any(const MotionKernels &k, const FinalStage &f, const MotionVec *search, const Out &out) {
  const BlockGrid &g = f.grid, &sg = f.search_grid;
  for (int32_t row = 0; row < g.rows; ++row) {
    for (int32_t col = 0; col < g.cols; ++col) {
      const MotionBlock block = make_block(f.a, g, col, row);
      const int32_t sc = std::min((block.x + block.w / 2) / sg.bw, sg.cols - 1);
      const int32_t sr = std::min((block.y + block.h / 2) / sg.bh, sg.rows - 1);
      const MotionVec own = search[sr * sg.cols + sc];
      FinalEval eval(k, f, block, own, f.lambda, static_cast<uint32_t>(block.w), static_cast<uint32_t>(block.h));
      eval.consider(own);
      for (int32_t dy = -1; f.split && dy <= 1; ++dy) {
        for (int32_t dx = -1; dx <= 1; ++dx) {
          const int32_t r = sr + dy, c = sc + dx;
          if ((dx || dy) && r >= 0 && r < sg.rows && c >= 0 && c < sg.cols) {
            const MotionVec &v = search[r * sg.cols + c];
            if (apart(v, own, kSplitApart)) eval.consider(v);
          }
        }
      }
      const bool exhaustive = f.exhaustive && f.exhaustive[sr * sg.cols + sc];
      const uint16_t fl = static_cast<uint16_t>((flat(k, f.a, block) ? DSP_MV_FLAT : 0u) | (exhaustive ? DSP_MV_REFINED : 0u));
      const int16_t vx = static_cast<int16_t>(eval.best().v.x), vy = static_cast<int16_t>(eval.best().v.y);
      const uint32_t match = eval.best().match;
      Bounds column;
      column_bounds(f, col, 1, &column);
      write_row(f, &vx, &vy, &match, &fl, column, row, col, 1, out.entries);
    }
  }
}

}  // namespace

void final_stage(const MotionKernels &k, const FinalStage &f, uint8_t *entries) {
  const MotionVec *search = f.search;
  const int32_t nx = nesting(f.search_grid.bw, f.grid.bw), ny = nesting(f.search_grid.bh, f.grid.bh);
  FinalStage stage = f;
  if (!nx || !ny) stage.flat = nullptr;
  MotionVec global;
  const bool has_global = refine(k, stage, &global);
  if (f.subpel) {
    settle(k, stage, global, has_global);
    search = f.settled;
  }
  const Out out{entries};
  if (nx && ny) {
    split_nested(k, stage, search, nx, ny, out);
  } else {
    split_any(k, f, search, out);
  }
}

}  // namespace framedsp
