// The motion-compensated frame: a vector per output block chosen at the output time, then per
// tile (a quarter of a block) either the vectors of the four nearest blocks interpolated, or,
// where they disagree, per pixel the one whose two sides agree best, or in covered and uncovered
// areas the one the consistency of its sides prefers; each tile is compensated from both sources
// (or the one side that shows the pixel) at 1/64 pixel and blended by phase.
#include <algorithm>
#include <cstring>

#include "platform/status.h"
#include "platform/work_memory.h"
#include "framerate/frc_internal.h"

namespace framedsp {
namespace {

constexpr int32_t kLambda = 4;          // cost per quarter pixel away from the neighbours' median
constexpr int32_t kLambdaCap = 128;     // at most two grey levels a pixel: evidence beats smoothness
constexpr int32_t kGlobalLambda = 2;    // cost per quarter pixel away from the picture's median vector
constexpr int32_t kGlobalCap = 256;     // ... for a block the field trusts ...
constexpr int32_t kGlobalCapDoubt = 512;  // ... and for one it flags flat, inconsistent or bad
constexpr uint32_t kOutsidePenalty = 6;  // cost of a pixel one side of which is outside ...
constexpr uint32_t kOutsideKept = 1;     // ... when the field agrees with the vector on its other side
constexpr int kMaxCandidates = 12;

constexpr uint32_t kAgree = 9 * 4 * 64;  // two sides agree: 3 x 3 sum of |a - b| (Q6) within 4 a pixel
constexpr int kEvidenceReach = 3;        // side evidence matches 7 x 7 pixels ...
constexpr int kEvidenceTile = 16;        // ... for mixed tiles, at most a quarter of a 32 x 32 block
// The object's evidence (3 x 3 sums of grey levels, see occluded_side): the object must show
// kObjectMargin more beside a covered or uncovered pixel than at it, kSideMargin more on the side
// it lies; a pixel some candidate's both sides explain keeps it unless the background's motion
// explains the pixel kBackgroundLead better than the object's.
constexpr int32_t kObjectMargin = 400, kSideMargin = 200, kBackgroundLead = 400;

enum Sides : uint8_t { kBoth, kOnlyA, kOnlyB, kNeither };  // sides a candidate is compensated from

struct Tile {
  int x, y, w, h;
};

struct SideEvidence {  // [candidate][side A, B][pixel, rows kEvidenceTile apart]
  uint32_t own[4][2][kEvidenceTile * kEvidenceTile], other[4][2][kEvidenceTile * kEvidenceTile];
};

struct Axis {
  int i0;     // the first of two block centres
  int32_t w1;  // the second one's weight, Q8
};

struct BlockTiles {  // a block's (up to) four tiles and their vectors
  Tile tile[4];
  Vec mix[4], cand[4][4];
  int n[4], count;
  bool mixed[4];
};

int32_t median3(int32_t a, int32_t b, int32_t c) { return std::max(std::min(a, b), std::min(std::max(a, b), c)); }

Vec qvec(const DSP_MOTION_VECTOR &m) { return {m.sX, m.sY}; }
bool same(Vec a, Vec b) { return a.x == b.x && a.y == b.y; }
int32_t dist_inf(Vec a, Vec b) { return std::max(std::abs(a.x - b.x), std::abs(a.y - b.y)); }

class Converter {
 public:
  Converter(const FrcJob &job, const FieldView &f, Vec *choice) : j_(job), f_(f), choice_(choice) {}

  void find_global(int16_t *scratch);
  void choose_rows(int r0, int r1);
  void render_band();
  void draw_overlay();

 private:
  Vec block_vector_at(const DSP_MOTION_VECTOR *entries, int32_t px, int32_t py) const;
  uint32_t bilateral_cost(const Tile &t, Vec v, uint32_t penalty = kOutsidePenalty) const;
  bool consistent_a(int32_t cx, int32_t cy, Vec v) const;
  bool consistent_b(int32_t cx, int32_t cy, Vec v) const;
  Vec choose_block(int c, int r) const;
  Vec trusted(int c, int r) const;
  bool tile_vectors(Axis ax, Axis ay, Vec *mix64, Vec *cand, int *n) const;
  bool settled(int c, int r) const;
  bool block_tiles(int c, int r, const Axis rows[2], BlockTiles *bt) const;
  void predict(const FrcPlane &pl, const Tile &t, Vec v64, int step, int16_t *sa, int16_t *sb,
               uint8_t *dropped) const;
  void emit(const FrcPlane &pl, const Tile &t, const int16_t *sa, const int16_t *sb) const;
  void render_part(const Tile &part, Vec v64) const;
  void match_grid(const uint8_t *p, int px, int py, const uint8_t *q, int qx4, int qy4, int w, int h,
                  uint32_t *out) const;
  void side_evidence(const Tile &t, const Vec *cand, int n, SideEvidence *ev) const;
  void prefer_consistent(const Tile &box, const Tile &t, const Vec *cand, int n, int bg, int take,
                         const uint32_t (*sums)[kMcMaxTile * kMcMaxTile], uint8_t *pick) const;
  void render_mixed(const Tile &t, int y0, int y1, const Vec *cand, int n) const;
  bool inconsistent_near(const Tile &t, const Vec *cand, int n) const;
  int32_t gap(int32_t x, int32_t y, Vec v) const;
  uint8_t occluded_side(int32_t x, int32_t y, Vec bg, Vec fg, int32_t here) const;

  const FrcJob &j_;
  const FieldView &f_;
  Vec *choice_;
  Vec global_{0, 0};
};

void Converter::find_global(int16_t *scratch) {
  const size_t n = size_t(f_.cols) * f_.rows;
  for (int axis = 0; axis < 2; ++axis) {
    for (size_t i = 0; i < n; ++i) scratch[i] = axis ? f_.fwd[i].sY : f_.fwd[i].sX;
    std::nth_element(scratch, scratch + n / 2, scratch + n);
    (axis ? global_.y : global_.x) = scratch[n / 2];
  }
}

// The vector of the block holding pixel (px, py) of `entries`, clamped to the grid.
Vec Converter::block_vector_at(const DSP_MOTION_VECTOR *entries, int32_t px, int32_t py) const {
  const int c = clamp_i(floor_div(px, f_.bw), 0, f_.cols - 1);
  const int r = clamp_i(floor_div(py, f_.bh), 0, f_.rows - 1);
  return qvec(entries[r * f_.cols + c]);
}

// Bilateral SAD of a rectangle at whole-pixel offsets, scaled to 64 pixels; pixels with a side
// outside the picture cost kOutsidePenalty.
// The field of a side agrees with v where the output's (cx, cy) comes from: the forward field at
// the A position, the backward field (negated) at the B position.
bool Converter::consistent_a(int32_t cx, int32_t cy, Vec v) const {
  const int32_t p = int32_t(j_.phase);
  return dist_inf(block_vector_at(f_.fwd, cx - floor_div(p * v.x, 65536), cy - floor_div(p * v.y, 65536)), v) <=
         int32_t(j_.occlusion_threshold);
}

bool Converter::consistent_b(int32_t cx, int32_t cy, Vec v) const {
  if (!f_.bwd) return false;
  const int32_t q = 16384 - int32_t(j_.phase);
  const Vec b = block_vector_at(f_.bwd, cx + floor_div(q * v.x, 65536), cy + floor_div(q * v.y, 65536));
  return dist_inf({-b.x, -b.y}, v) <= int32_t(j_.occlusion_threshold);
}

uint32_t Converter::bilateral_cost(const Tile &t, Vec v, uint32_t penalty) const {
  const int32_t dax = side_a_offset(v.x * 16, j_.phase), day = side_a_offset(v.y * 16, j_.phase);
  const int32_t iax = floor_div(dax + 32, 64), iay = floor_div(day + 32, 64);
  const int32_t ibx = floor_div(v.x * 16 - dax + 32, 64), iby = floor_div(v.y * 16 - day + 32, 64);
  const int ax = t.x - iax, ay = t.y - iay, bx = t.x + ibx, by = t.y + iby;
  const uint8_t *a = j_.plane[0].a, *b = j_.plane[0].b;
  uint32_t sum = 0;
  // Inside: A at whole pixels and B at A's position + v, at quarter pixels (bilinear), so the two
  // sides keep v exactly between them.
  const int qbx = ax + floor_div(v.x, 4), qby = ay + floor_div(v.y, 4);
  if (ax >= 0 && ay >= 0 && ax + t.w <= j_.width && ay + t.h <= j_.height && qbx >= 0 && qby >= 0 &&
      qbx + t.w + 1 <= j_.width && qby + t.h + 1 <= j_.height) {
    sum = j_.mk.sad_q(a + ay * j_.stride + ax, j_.stride, b + qby * j_.stride + qbx, j_.stride, uint32_t(t.w),
                      uint32_t(t.h), uint32_t(v.x & 3), uint32_t(v.y & 3));
  } else {
    // Per line, the columns whose two sides are both inside; the others cost the penalty.
    const int x0 = std::max({0, -ax, -bx}), x1 = std::min({t.w, j_.width - ax, j_.width - bx});
    for (int y = 0; y < t.h; ++y) {
      const int ya = ay + y, yb = by + y;
      if (ya < 0 || ya >= j_.height || yb < 0 || yb >= j_.height || x0 >= x1) {
        sum += penalty * uint32_t(t.w);
        continue;
      }
      const uint8_t *ra = a + ya * j_.stride + ax, *rb = b + yb * j_.stride + bx;
      sum += penalty * uint32_t(t.w - (x1 - x0));
      for (int x = x0; x < x1; ++x) sum += uint32_t(std::abs(ra[x] - rb[x]));
    }
  }
  return sum * 64 / uint32_t(t.w * t.h);
}

// A block's motion: its forward entry, or its backward one negated where the forward match reaches
// outside the picture and the backward one matches better.  On a pan, the forward matches of the
// blocks at the edge the content leaves through lie (partly) outside B and may be placed by edge
// samples alone; the backward matches of the same blocks see their content in A.
Vec Converter::trusted(int c, int r) const {
  const DSP_MOTION_VECTOR &f = f_.f(c, r);
  if (f_.bwd && (f.usFlags & DSP_MV_OUTSIDE) && f_.b(c, r).usCost < f.usCost)
    return {-f_.b(c, r).sX, -f_.b(c, r).sY};
  return qvec(f);
}

Vec Converter::choose_block(int c, int r) const {
  const Tile t{c * f_.bw, r * f_.bh, std::min(f_.bw, j_.width - c * f_.bw), std::min(f_.bh, j_.height - r * f_.bh)};
  const int32_t cx = t.x + t.w / 2, cy = t.y + t.h / 2;
  const int32_t p = int32_t(j_.phase), q = 16384 - p;
  Vec cand[kMaxCandidates];
  int n = 0;
  auto add = [&](Vec v) {
    for (int i = 0; i < n; ++i)
      if (same(cand[i], v)) return;
    cand[n++] = v;
  };
  const Vec fv = qvec(f_.f(c, r));
  add(fv);
  add(block_vector_at(f_.fwd, cx - floor_div(p * fv.x, 65536), cy - floor_div(p * fv.y, 65536)));
  if (f_.bwd) {
    const Vec bv{-f_.b(c, r).sX, -f_.b(c, r).sY};
    add(bv);
    const Vec w = block_vector_at(f_.bwd, cx + floor_div(q * bv.x, 65536), cy + floor_div(q * bv.y, 65536));
    add({-w.x, -w.y});
  }
  const Vec left = trusted(std::max(c - 1, 0), r), right = trusted(std::min(c + 1, f_.cols - 1), r);
  const Vec up = trusted(c, std::max(r - 1, 0)), down = trusted(c, std::min(r + 1, f_.rows - 1));
  const Vec own = trusted(c, r);
  add(left), add(right), add(up), add(down), add(global_), add({0, 0});
  const Vec med{median3(median3(left.x, right.x, own.x), up.x, down.x),
                median3(median3(left.y, right.y, own.y), up.y, down.y)};
  const int32_t global_cap =
      f_.f(c, r).usFlags & (DSP_MV_FLAT | DSP_MV_INCONSISTENT | DSP_MV_BAD) ? kGlobalCapDoubt : kGlobalCap;
  Vec best = cand[0];
  uint32_t best_cost = UINT32_MAX;
  for (int i = 0; i < n; ++i) {
    // A side outside the picture says nothing; the vector is likelier where a field agrees with
    // it or where it is the picture's own motion (content entering or leaving on a pan).
    const bool kept = consistent_a(cx, cy, cand[i]) || consistent_b(cx, cy, cand[i]) ||
                      dist_inf(cand[i], global_) <= int32_t(j_.occlusion_threshold);
    const uint32_t cost =
        bilateral_cost(t, cand[i], kept ? kOutsideKept : kOutsidePenalty) +
        uint32_t(std::min(kLambdaCap, kLambda * (std::abs(cand[i].x - med.x) + std::abs(cand[i].y - med.y)))) +
        uint32_t(std::min(global_cap, kGlobalLambda * (std::abs(cand[i].x - global_.x) + std::abs(cand[i].y - global_.y))));
    if (cost < best_cost) best_cost = cost, best = cand[i];
  }
  return best;
}

void Converter::choose_rows(int r0, int r1) {
  for (int r = r0; r < r1; ++r)
    for (int c = 0; c < f_.cols; ++c) choice_[r * f_.cols + c] = choose_block(c, r);
}

// Interpolation weights of a tile's centre between block centres, along one axis: index of the
// first block and the weight (Q8) of the second.
Axis axis_weights(int start, int len, int block, int count) {
  const int32_t g2 = 2 * start + len - block;  // doubled distance from the first block's centre
  Axis a{floor_div(g2, 2 * block), 0};
  a.w1 = (g2 - a.i0 * 2 * block) * 256 + block;
  a.w1 /= 2 * block;
  if (a.i0 < 0) a = {0, 0};
  if (a.i0 >= count - 1) a = {count - 1, 0};
  return a;
}

// The vectors of the (up to four) block centres around a tile.  When they differ by at most the
// occlusion threshold, *mix64 receives their bilinear mix at 1/64
// pixel and the answer is false; otherwise cand[0 .. *n) the distinct ones, in the order top-left,
// top-right, bottom-left, bottom-right.
bool Converter::tile_vectors(Axis ax, Axis ay, Vec *mix64, Vec *cand, int *n) const {
  const int c0 = ax.i0, r0 = ay.i0;
  const int32_t wx = ax.w1, wy = ay.w1;
  const int c1 = std::min(c0 + 1, f_.cols - 1), r1 = std::min(r0 + 1, f_.rows - 1);
  const Vec v[4] = {choice_[r0 * f_.cols + c0], choice_[r0 * f_.cols + c1], choice_[r1 * f_.cols + c0],
                    choice_[r1 * f_.cols + c1]};
  const int32_t w[4] = {(256 - wx) * (256 - wy), wx * (256 - wy), (256 - wx) * wy, wx * wy};
  int32_t spread = 0;
  *n = 0;
  for (int i = 0; i < 4; ++i) {
    if (!w[i]) continue;
    bool seen = false;
    for (int k = 0; k < *n; ++k) spread = std::max(spread, dist_inf(cand[k], v[i])), seen = seen || same(cand[k], v[i]);
    if (!seen) cand[(*n)++] = v[i];
  }
  if (spread > int32_t(j_.occlusion_threshold)) return true;
  int64_t sx = 0, sy = 0;  // Q16 weights times quarter pixels, to 1/64 pixel
  for (int i = 0; i < 4; ++i) sx += int64_t(w[i]) * v[i].x, sy += int64_t(w[i]) * v[i].y;
  *mix64 = {int32_t((sx * 16 + 32768) >> 16), int32_t((sy * 16 + 32768) >> 16)};
  return false;
}

// True when the block and its eight neighbours (clamped to the grid) took one vector, so that
// every tile of the block mixes that vector alone.
bool Converter::settled(int c, int r) const {
  const Vec v = choice_[r * f_.cols + c];
  for (int y = std::max(r - 1, 0); y <= std::min(r + 1, f_.rows - 1); ++y)
    for (int x = std::max(c - 1, 0); x <= std::min(c + 1, f_.cols - 1); ++x)
      if (!same(choice_[y * f_.cols + x], v)) return false;
  return true;
}

// Both sides of a tile along v64 (1/64 pixel): Q6 samples, rows kMcMaxTile apart.  A sample more
// than half a pixel outside the picture drops its side for that pixel, which then holds the other
// side's sample (and is marked in `dropped` when given); so the blend of the two shows the other
// side alone.
void Converter::predict(const FrcPlane &pl, const Tile &t, Vec v64, int step, int16_t *sa, int16_t *sb,
                        uint8_t *dropped) const {
  const int w = t.w, cols = j_.width / step;
  const int32_t vx = step == 2 ? floor_div(v64.x + 1, 2) : v64.x;
  const int32_t dax = side_a_offset(vx, j_.phase), day = side_a_offset(v64.y, j_.phase);
  const int32_t dbx = vx - dax, dby = v64.y - day;
  side_samples(pl.a, j_.width, j_.height, j_.stride, step, t.x, t.y, w, t.h, -dax, -day, j_.sampling, j_.k, sa);
  side_samples(pl.b, j_.width, j_.height, j_.stride, step, t.x, t.y, w, t.h, dbx, dby, j_.sampling, j_.k, sb);
  auto outside = [](int32_t pos64, int n) { return pos64 < -32 || pos64 > (n - 1) * 64 + 32; };
  const int j0 = t.x / step, j1 = (t.x + w - 1) / step;
  const bool any_out = outside(j0 * 64 - dax, cols) || outside(j1 * 64 - dax, cols) ||
                       outside(j0 * 64 + dbx, cols) || outside(j1 * 64 + dbx, cols) ||
                       outside(t.y * 64 - day, j_.height) || outside((t.y + t.h - 1) * 64 - day, j_.height) ||
                       outside(t.y * 64 + dby, j_.height) || outside((t.y + t.h - 1) * 64 + dby, j_.height);
  if (dropped) std::memset(dropped, 0, kMcMaxTile * kMcMaxTile);
  if (!any_out) return;
  for (int y = 0; y < t.h; ++y) {
    int16_t *ra = sa + y * kMcMaxTile, *rb = sb + y * kMcMaxTile;
    const bool ya = outside((t.y + y) * 64 - day, j_.height), yb = outside((t.y + y) * 64 + dby, j_.height);
    for (int x = 0; x < w; ++x) {
      const int jx = (t.x + x) / step;
      const bool a_out = ya || outside(jx * 64 - dax, cols), b_out = yb || outside(jx * 64 + dbx, cols);
      if (a_out == b_out) continue;
      if (a_out) ra[x] = rb[x];
      else rb[x] = ra[x];
      if (dropped) dropped[y * kMcMaxTile + x] = 1;
    }
  }
}

// Lines of a tile from its two sides: clamp((wA a + wB b + 2^19) >> 20).
void Converter::emit(const FrcPlane &pl, const Tile &t, const int16_t *sa, const int16_t *sb) const {
  const int32_t wa = 16384 - int32_t(j_.phase);
  uint8_t *out = pl.out + t.y * j_.stride + t.x;
  for (int y = 0; y < t.h; ++y)
    j_.k.blend(sa + y * kMcMaxTile, sb + y * kMcMaxTile, t.w, wa, 16384 - wa, out + y * j_.stride);
}

// Lines of the picture along one vector, both planes.
void Converter::render_part(const Tile &part, Vec v64) const {
  alignas(16) int16_t sa[kMcMaxTile * kMcMaxTile], sb[kMcMaxTile * kMcMaxTile];
  for (int i = 0; i < j_.planes; ++i) {
    predict(j_.plane[i], part, v64, i && j_.nv16 ? 2 : 1, sa, sb, nullptr);
    emit(j_.plane[i], part, sa, sb);
  }
}

// How well one motion explains one side's samples around each pixel of a w x h grid: the sum over
// the 7 x 7 pixels around (px + x, py + y) of picture p against picture q at (qx4 + 4 x, qy4 + 4 y)
// quarter pixels (bilinear, as the block matching's), edges repeated.  w, h <= kEvidenceTile.
void Converter::match_grid(const uint8_t *p, int px, int py, const uint8_t *q, int qx4, int qy4, int w, int h,
                           uint32_t *out) const {
  constexpr int kSpan = kEvidenceTile + 2 * kEvidenceReach;
  const int qx = floor_div(qx4, 4) - kEvidenceReach, qy = floor_div(qy4, 4) - kEvidenceReach;
  const int fx = qx4 & 3, fy = qy4 & 3, gw = w + 2 * kEvidenceReach, gh = h + 2 * kEvidenceReach;
  const int w00 = (4 - fx) * (4 - fy), w10 = fx * (4 - fy), w01 = (4 - fx) * fy, w11 = fx * fy;
  int cp[kSpan], cq[kSpan + 1];  // clamped columns
  for (int x = 0; x <= gw; ++x) {
    if (x < gw) cp[x] = clamp_i(px - kEvidenceReach + x, 0, j_.width - 1);
    cq[x] = clamp_i(qx + x, 0, j_.width - 1);
  }
  uint16_t rows[kSpan][kEvidenceTile];  // 7-column sums of |p - q|, below 7 * 255
  for (int y = 0; y < gh; ++y) {
    const uint8_t *rp = p + clamp_i(py - kEvidenceReach + y, 0, j_.height - 1) * j_.stride;
    const uint8_t *r0 = q + clamp_i(qy + y, 0, j_.height - 1) * j_.stride;
    const uint8_t *r1 = q + clamp_i(qy + y + 1, 0, j_.height - 1) * j_.stride;
    int d[kSpan];
    for (int x = 0; x < gw; ++x) {
      const int v = (w00 * r0[cq[x]] + w10 * r0[cq[x + 1]] + w01 * r1[cq[x]] + w11 * r1[cq[x + 1]] + 8) >> 4;
      d[x] = std::abs(rp[cp[x]] - v);
    }
    int sum = 0;
    for (int x = 0; x < 2 * kEvidenceReach; ++x) sum += d[x];
    for (int x = 0; x < w; ++x) {
      sum += d[x + 2 * kEvidenceReach];
      rows[y][x] = uint16_t(sum);
      sum -= d[x];
    }
  }
  for (int x = 0; x < w; ++x) {
    uint32_t sum = 0;
    for (int y = 0; y < 2 * kEvidenceReach; ++y) sum += rows[y][x];
    for (int y = 0; y < h; ++y) {
      sum += rows[y + 2 * kEvidenceReach][x];
      out[y * kEvidenceTile + x] = sum;
      sum -= rows[y][x];
    }
  }
}

// For every candidate and side of a mixed tile, per pixel: how well the candidate's own motion
// explains the side's samples (own) and how well the best of the candidates farther than the
// occlusion threshold from it does (other; UINT32_MAX when there is none).
void Converter::side_evidence(const Tile &t, const Vec *cand, int n, SideEvidence *ev) const {
  for (int i = 0; i < n; ++i) {
    const int32_t dax = side_a_offset(cand[i].x * 16, j_.phase), day = side_a_offset(cand[i].y * 16, j_.phase);
    for (int side = 0; side < 2; ++side) {
      uint32_t *own = ev->own[i][side], *other = ev->other[i][side];
      std::fill(other, other + kEvidenceTile * kEvidenceTile, UINT32_MAX);
      // The side's samples at whole pixels: A at x - da, B at x + v - da.
      const int px = side ? t.x + floor_div(cand[i].x * 16 - dax + 32, 64) : t.x - floor_div(dax + 32, 64);
      const int py = side ? t.y + floor_div(cand[i].y * 16 - day + 32, 64) : t.y - floor_div(day + 32, 64);
      const uint8_t *p = side ? j_.plane[0].b : j_.plane[0].a, *q = side ? j_.plane[0].a : j_.plane[0].b;
      for (int k = 0; k < n; ++k) {
        const bool mine = k == i;
        if (!mine && dist_inf(cand[k], cand[i]) <= int32_t(j_.occlusion_threshold)) continue;
        uint32_t grid[kEvidenceTile * kEvidenceTile];
        const int sx = side ? -cand[k].x : cand[k].x, sy = side ? -cand[k].y : cand[k].y;
        match_grid(p, px, py, q, px * 4 + sx, py * 4 + sy, t.w, t.h, mine ? own : grid);
        if (mine) continue;
        for (int y = 0; y < t.h; ++y)
          for (int o = y * kEvidenceTile; o < y * kEvidenceTile + t.w; ++o) other[o] = std::min(other[o], grid[o]);
      }
    }
  }
}

// 3 x 3 sum of |A(x - p v) - B(x + (1 - p) v)| at whole pixels, edges repeated.
int32_t Converter::gap(int32_t x, int32_t y, Vec v) const {
  const int32_t dax = side_a_offset(v.x * 16, j_.phase), day = side_a_offset(v.y * 16, j_.phase);
  const int32_t iax = floor_div(dax + 32, 64), iay = floor_div(day + 32, 64);
  const int32_t ibx = floor_div(v.x * 16 - dax + 32, 64), iby = floor_div(v.y * 16 - day + 32, 64);
  int32_t sum = 0;
  const int ax0 = x - iax - 1, ay0 = y - iay - 1, bx0 = x + ibx - 1, by0 = y + iby - 1;
  if (std::min({ax0, ay0, bx0, by0}) >= 0 && std::max(ax0, bx0) + 3 <= j_.width && std::max(ay0, by0) + 3 <= j_.height) {
    const uint8_t *a = j_.plane[0].a + ay0 * j_.stride + ax0, *b = j_.plane[0].b + by0 * j_.stride + bx0;
    for (int r = 0; r < 3; ++r, a += j_.stride, b += j_.stride)
      sum += std::abs(a[0] - b[0]) + std::abs(a[1] - b[1]) + std::abs(a[2] - b[2]);
    return sum;
  }
  for (int dy = -1; dy <= 1; ++dy)
    for (int dx = -1; dx <= 1; ++dx) {
      const int ax = clamp_i(x + dx - iax, 0, j_.width - 1), ay = clamp_i(y + dy - iay, 0, j_.height - 1);
      const int bx = clamp_i(x + dx + ibx, 0, j_.width - 1), by = clamp_i(y + dy + iby, 0, j_.height - 1);
      sum += std::abs(j_.plane[0].a[ay * j_.stride + ax] - j_.plane[0].b[by * j_.stride + bx]);
    }
  return sum;
}

// The side that shows the background at output pixel (x, y) when it lies in the band an object
// moving by fg over a background moving by bg covers or uncovers: kOnlyA when the object lies
// behind it along d = fg - bg (within (1 - p) d, a quarter more: covered by B's time), kOnlyB
// when ahead (within p d, a quarter more: uncovered since A's time), kBoth when undecided.  Where
// the object is, fg explains the output better than bg (gap); `here` is that evidence at the pixel
// itself, which the larger side must exceed by kObjectMargin.
uint8_t Converter::occluded_side(int32_t x, int32_t y, Vec bg, Vec fg, int32_t here) const {
  auto object = [&](int32_t px, int32_t py) { return gap(px, py, bg) - gap(px, py, fg); };
  const int64_t dx = fg.x - bg.x, dy = fg.y - bg.y, p = j_.phase;  // quarter pixels, Q14
  int32_t behind = INT32_MIN, ahead = INT32_MIN;
  for (int64_t k = 1; k <= 5; ++k) {  // k quarters of the way: Q14 times quarter pixels, over 4 * 2^16
    const int64_t wc = k * (16384 - p), wu = k * p;
    behind = std::max(behind, object(x - int32_t((wc * dx + 131072) >> 18), y - int32_t((wc * dy + 131072) >> 18)));
    ahead = std::max(ahead, object(x + int32_t((wu * dx + 131072) >> 18), y + int32_t((wu * dy + 131072) >> 18)));
  }
  if (std::abs(behind - ahead) < kSideMargin || std::max(behind, ahead) <= here + kObjectMargin) return kBoth;
  return behind > ahead ? kOnlyA : kOnlyB;
}

// The sides a candidate is compensated from at a pixel where no candidate's two sides agree, from
// side_evidence.  A side is inconsistent with the candidate when another motion explains its
// samples (7 x 7) at least twice as well as the candidate's own; one inconsistent side is dropped
// when the other side's ratio is at least twice its ratio, else both count as inconsistent.
uint8_t sides_from(uint32_t own_a, uint32_t other_a, uint32_t own_b, uint32_t other_b) {
  auto ratio = [](uint32_t own, uint32_t other) {  // other / own in Q4, capped
    return other == UINT32_MAX ? 1u << 20 : std::min<uint32_t>(uint32_t(uint64_t(other) * 16 / std::max(own, 1u)), 1u << 20);
  };
  const uint32_t ea = ratio(own_a, other_a), eb = ratio(own_b, other_b);
  const bool a_bad = ea < 8, b_bad = eb < 8;
  if (!a_bad && !b_bad) return kBoth;
  if (a_bad && b_bad) return kNeither;
  if (b_bad) return ea >= 2 * eb ? kOnlyA : kNeither;
  return eb >= 2 * ea ? kOnlyB : kNeither;
}

// The pixels of `box` (inside tile t) where no candidate's sides agree: the candidates rank by the
// consistency of their sides (sides_from): both consistent, blended; one, that side alone (covered:
// A, uncovered: B), the candidate nearest the picture's median vector first; neither, blended;
// otherwise the least difference of the sides, the earlier on a tie.  A pixel seen from one side
// is background being covered or uncovered, and the one-sided evidence of a candidate and of the
// motion beside it is symmetric (each side the other motion explains), so the background's motion,
// taken as the picture's, decides.  The side is then the object's motion's to say (occluded_side),
// with the background's motion cand[bg] taken as cand[take], unless a candidate away from it kept
// both sides and the background does not explain the pixel clearly better: the 7 x 7 evidence
// cannot place a band narrower than its windows, the object's position along its motion can.
void Converter::prefer_consistent(const Tile &box, const Tile &t, const Vec *cand, int n, int bg, int take,
                                  const uint32_t (*sums)[kMcMaxTile * kMcMaxTile], uint8_t *pick) const {
  SideEvidence ev;
  side_evidence(box, cand, n, &ev);
  int fg = 0;  // the candidate farthest from the background's
  for (int i = 1; i < n; ++i)
    if (dist_inf(cand[i], cand[bg]) > dist_inf(cand[fg], cand[bg])) fg = i;
  if (dist_inf(cand[fg], cand[bg]) <= int32_t(j_.occlusion_threshold)) fg = -1;
  for (int y = box.y - t.y; y < box.y - t.y + box.h; ++y)
    for (int x = box.x - t.x; x < box.x - t.x + box.w; ++x) {
      const int o = y * kMcMaxTile + x, e = (y - box.y + t.y) * kEvidenceTile + x - box.x + t.x;
      if (sums[pick[o]][o] <= kAgree) continue;
      uint32_t best = UINT32_MAX;
      for (int i = 0; i < n; ++i) {
        const uint8_t s = sides_from(ev.own[i][0][e], ev.other[i][0][e], ev.own[i][1][e], ev.other[i][1][e]);
        const uint32_t rank = s == kBoth ? 0 : s == kNeither ? 2 : 1;
        const uint32_t cost = rank == 1 ? uint32_t(dist_inf(cand[i], global_)) : sums[i][o];
        if ((rank << 20 | cost) < best) best = rank << 20 | cost, pick[o] = uint8_t(i | s << 3);
      }
      if (fg < 0) continue;
      const int32_t px = t.x + x, py = t.y + y, here = gap(px, py, cand[bg]) - gap(px, py, cand[fg]);
      const int k = pick[o] & 7;
      if (pick[o] >> 3 == kBoth && dist_inf(cand[k], cand[bg]) > int32_t(j_.occlusion_threshold) &&
          here >= -kBackgroundLead)
        continue;
      const uint8_t side = occluded_side(px, py, cand[bg], cand[fg], here);
      if (side != kBoth) pick[o] = uint8_t(take | side << 3);
    }
}

// True when the fields' forward/backward check flagged a block around the tile: in either field,
// within one block and the tile's largest candidate motion (whole pixels) of it.  Covered and
// uncovered pixels lie only there; a field without its backward half carries no such flags, and
// then the pixels are looked at wherever the candidates disagree.
bool Converter::inconsistent_near(const Tile &t, const Vec *cand, int n) const {
  if (!f_.bwd) return true;
  int32_t reach = 0;
  for (int i = 0; i < n; ++i) reach = std::max(reach, std::max(std::abs(cand[i].x), std::abs(cand[i].y)));
  reach = (reach + 3) / 4;
  const int c0 = clamp_i(floor_div(t.x - reach, f_.bw) - 1, 0, f_.cols - 1);
  const int c1 = clamp_i(floor_div(t.x + t.w - 1 + reach, f_.bw) + 1, 0, f_.cols - 1);
  const int r0 = clamp_i(floor_div(t.y - reach, f_.bh) - 1, 0, f_.rows - 1);
  const int r1 = clamp_i(floor_div(t.y + t.h - 1 + reach, f_.bh) + 1, 0, f_.rows - 1);
  for (int r = r0; r <= r1; ++r)
    for (int c = c0; c <= c1; ++c)
      if ((f_.f(c, r).usFlags | f_.b(c, r).usFlags) & DSP_MV_INCONSISTENT) return true;
  return false;
}

// A tile whose vectors disagree (an object boundary).  Each pixel takes the candidate whose two
// sides differ least over the 3 x 3 pixels around it (inside the tile; a dropped side counts
// kOutsidePenalty grey levels), the earlier on a tie, when those sides agree (kAgree); elsewhere
// (covered and uncovered areas) the one prefer_consistent picks, from one side or both.  Plane 2
// follows the luma's choice (an NV16 Cb Cr pair that at its Cb byte, when the tile holds it).
void Converter::render_mixed(const Tile &t, int y0, int y1, const Vec *blocks, int n) const {
  constexpr int kArea = kMcMaxTile * kMcMaxTile;
  Vec cand[5];  // the blocks' vectors, then the picture's median when covered pixels take it
  std::copy(blocks, blocks + n, cand);
  alignas(16) int16_t sa[5][kArea], sb[5][kArea];
  alignas(16) uint8_t dropped[kArea];
  uint16_t diff[kArea], rows3[kArea];  // |a - b| in Q6, then summed over 3 columns
  uint32_t sums[4][kArea];             // 3 x 3 sums, below 9 * 255 * 64 < 2^18
  uint8_t pick[kArea];                 // candidate | its sides << 3
  for (int i = 0; i < n; ++i) {
    predict(j_.plane[0], t, {cand[i].x * 16, cand[i].y * 16}, 1, sa[i], sb[i], dropped);
    for (int y = 0; y < t.h; ++y)
      for (int x = 0; x < t.w; ++x) {
        const int o = y * kMcMaxTile + x;
        diff[o] = dropped[o] ? uint16_t(kOutsidePenalty * 64) : uint16_t(std::abs(sa[i][o] - sb[i][o]));
      }
    for (int y = 0; y < t.h; ++y)
      for (int x = 0; x < t.w; ++x) {
        const uint16_t *d = diff + y * kMcMaxTile;
        rows3[y * kMcMaxTile + x] = uint16_t(d[std::max(x - 1, 0)] + d[x] + d[std::min(x + 1, t.w - 1)]);
      }
    for (int y = 0; y < t.h; ++y)
      for (int x = 0; x < t.w; ++x) {
        const int o = y * kMcMaxTile + x;
        sums[i][o] = uint32_t(rows3[std::max(y - 1, 0) * kMcMaxTile + x]) + rows3[o] +
                     rows3[std::min(y + 1, t.h - 1) * kMcMaxTile + x];
      }
  }
  int hx0 = t.w, hy0 = t.h, hx1 = -1, hy1 = -1;  // bounds of the pixels where no candidate's sides agree
  for (int y = 0; y < t.h; ++y)
    for (int x = 0; x < t.w; ++x) {
      const int o = y * kMcMaxTile + x;
      int k = 0;
      for (int i = 1; i < n; ++i)
        if (sums[i][o] < sums[k][o]) k = i;
      pick[o] = uint8_t(k);
      if (sums[k][o] > kAgree) hx0 = std::min(hx0, x), hy0 = std::min(hy0, y), hx1 = std::max(hx1, x), hy1 = std::max(hy1, y);
    }
  if (j_.occlusion && hx1 >= 0 && inconsistent_near(t, cand, n)) {
    int bg = 0, take;  // the background's motion: the candidate nearest the picture's median ...
    for (int i = 1; i < n; ++i)
      if (dist_inf(cand[i], global_) < dist_inf(cand[bg], global_)) bg = i;
    take = bg;  // ... or the median itself when within the threshold of it
    if (dist_inf(cand[bg], global_) <= int32_t(j_.occlusion_threshold) && !same(cand[bg], global_)) {
      take = n, cand[n] = global_;
      predict(j_.plane[0], t, {global_.x * 16, global_.y * 16}, 1, sa[n], sb[n], nullptr);
    }
    prefer_consistent({t.x + hx0, t.y + hy0, hx1 - hx0 + 1, hy1 - hy0 + 1}, t, cand, n, bg, take, sums, pick);
    n += take == n;
  }
  alignas(16) int16_t oa[kArea], ob[kArea];
  const Tile part{t.x, y0, t.w, y1 - y0};
  const int first = (y0 - t.y) * kMcMaxTile;
  auto take = [&](int o, uint8_t p) {  // the picked candidate's sides, or one of them twice
    const int k = p & 7, s = p >> 3;
    oa[o] = s == kOnlyB ? sb[k][o] : sa[k][o];
    ob[o] = s == kOnlyA ? sa[k][o] : sb[k][o];
  };
  for (int y = y0 - t.y; y < y1 - t.y; ++y)
    for (int o = y * kMcMaxTile; o < y * kMcMaxTile + t.w; ++o) take(o, pick[o]);
  emit(j_.plane[0], part, oa + first, ob + first);
  if (j_.planes != 2) return;
  const int step = j_.nv16 ? 2 : 1;
  for (int i = 0; i < n; ++i) predict(j_.plane[1], part, {cand[i].x * 16, cand[i].y * 16}, step, sa[i], sb[i], nullptr);
  for (int y = 0; y < part.h; ++y)
    for (int x = 0; x < t.w; ++x) {
      const int lx = step == 2 && ((t.x + x) & 1) && x > 0 ? x - 1 : x;  // the pair's Cb byte
      take(y * kMcMaxTile + x, pick[first + y * kMcMaxTile + lx]);
    }
  emit(j_.plane[1], part, oa, ob);
}

// The tiles of block (c, r), each with its vectors decided on its whole extent (tile_vectors).
// True when all of them mix one vector, then in mix[0]: always so where the block and its eight
// neighbours took one vector.
bool Converter::block_tiles(int c, int r, const Axis rows[2], BlockTiles *bt) const {
  const Vec v = choice_[r * f_.cols + c];
  bt->count = 0;
  bt->mix[0] = {v.x * 16, v.y * 16};
  if (settled(c, r)) return true;
  const int x0 = c * f_.bw, y0 = r * f_.bh, w = std::min(f_.bw, j_.width - x0), h = std::min(f_.bh, j_.height - y0);
  const int tw0 = (w + 1) / 2, th0 = (h + 1) / 2;
  const Axis cols[2] = {axis_weights(x0, tw0, f_.bw, f_.cols), axis_weights(x0 + tw0, w - tw0, f_.bw, f_.cols)};
  bool uniform = true;
  for (int q = 0; q < 4; ++q) {
    const Tile t{x0 + (q & 1) * tw0, y0 + (q >> 1) * th0, (q & 1) ? w - tw0 : tw0, (q >> 1) ? h - th0 : th0};
    if (t.w <= 0 || t.h <= 0) continue;
    const int k = bt->count++;
    bt->tile[k] = t;
    bt->mixed[k] = tile_vectors(cols[q & 1], rows[q >> 1], &bt->mix[k], bt->cand[k], &bt->n[k]);
    uniform = uniform && !bt->mixed[k] && same(bt->mix[k], bt->mix[0]);
  }
  return uniform;
}

// Block by block, only lines inside the band: a block whose tiles mix one vector is compensated
// in one piece with the uniform blocks before it that share the vector (at most kMcMaxTile
// wide); the bytes are those of tile by tile.
void Converter::render_band() {
  for (int r = j_.band_y0 / f_.bh; r * f_.bh < j_.band_y1; ++r) {
    const int y0 = r * f_.bh, h = std::min(f_.bh, j_.height - y0), th0 = (h + 1) / 2;
    const int ya = std::max(y0, j_.band_y0), yb = std::min(y0 + h, j_.band_y1);
    const Axis rows[2] = {axis_weights(y0, th0, f_.bh, f_.rows), axis_weights(y0 + th0, h - th0, f_.bh, f_.rows)};
    Tile run{0, ya, 0, yb - ya};  // uniform blocks to the left with one vector, not yet made
    Vec run_v{0, 0};
    for (int c = 0; c < f_.cols; ++c) {
      const int x0 = c * f_.bw, w = std::min(f_.bw, j_.width - x0);
      BlockTiles bt;
      const bool uniform = block_tiles(c, r, rows, &bt);
      if (uniform && run.w && same(run_v, bt.mix[0]) && run.w + w <= kMcMaxTile) {
        run.w += w;
        continue;
      }
      if (run.w) render_part(run, run_v);
      run.w = 0;
      if (uniform) {
        run = {x0, ya, w, yb - ya}, run_v = bt.mix[0];
        continue;
      }
      for (int k = 0; k < bt.count; ++k) {
        const Tile &t = bt.tile[k];
        const int a = std::max(t.y, ya), b = std::min(t.y + t.h, yb);
        if (a >= b) continue;
        if (bt.mixed[k]) render_mixed(t, a, b, bt.cand[k], bt.n[k]);
        else render_part({t.x, a, t.w, b - a}, bt.mix[k]);
      }
    }
    if (run.w) render_part(run, run_v);
  }
}

// Each block's forward vector, drawn after the block: zeros in the 3x3 around its centre, then a
// 255 line to centre + v (whole pixels).  A block's drawing covers the blocks before it in raster
// order and itself; later blocks are produced over it.  Clipped to the picture and the band.
void Converter::draw_overlay() {
  uint8_t *out = j_.plane[0].out;
  auto put = [&](int32_t x, int32_t y, int k, uint8_t value) {
    if (x < 0 || y < 0 || x >= j_.width || y < j_.band_y0 || y >= j_.band_y1) return;
    if ((y / f_.bh) * f_.cols + x / f_.bw > k) return;
    out[y * j_.stride + x] = value;
  };
  for (int r = 0; r < f_.rows; ++r) {
    for (int c = 0; c < f_.cols; ++c) {
      const int k = r * f_.cols + c;
      const int32_t cx = c * f_.bw + std::min(f_.bw, j_.width - c * f_.bw) / 2;
      const int32_t cy = r * f_.bh + std::min(f_.bh, j_.height - r * f_.bh) / 2;
      const Vec v = qvec(f_.fwd[k]);
      const int32_t ex = cx + floor_div(v.x + 2, 4), ey = cy + floor_div(v.y + 2, 4);
      if (std::max(cy + 1, ey) < j_.band_y0 || std::min(cy - 1, ey) >= j_.band_y1) continue;
      for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) put(cx + dx, cy + dy, k, 0);
      // Bresenham from the centre to the end point, both included.
      int32_t x = cx, y = cy;
      const int32_t ddx = std::abs(ex - cx), ddy = -std::abs(ey - cy), sx = cx < ex ? 1 : -1, sy = cy < ey ? 1 : -1;
      int32_t err = ddx + ddy;
      for (;;) {
        put(x, y, k, 255);
        if (x == ex && y == ey) break;
        const int32_t e2 = 2 * err;
        if (e2 >= ddy) err += ddy, x += sx;
        if (e2 <= ddx) err += ddx, y += sy;
      }
    }
  }
}

}  // namespace

int32_t convert_along_field(const FrcJob &job, const FieldView &field) {
  const int r0 = std::max(job.band_y0 / field.bh - 1, 0);
  const int r1 = std::min((job.band_y1 + field.bh - 1) / field.bh + 1, field.rows);
  const size_t blocks = size_t(field.cols) * field.rows;
  WorkBlock work;
  if (!work.allocate(blocks * (sizeof(Vec) + sizeof(int16_t)) + 32)) return kOutOfMemory;
  Vec *choice = reinterpret_cast<Vec *>(work.aligned());
  Converter conv(job, field, choice);
  conv.find_global(reinterpret_cast<int16_t *>(choice + blocks));
  conv.choose_rows(r0, r1);
  conv.render_band();
  if (job.overlay) conv.draw_overlay();
  return kOk;
}

}  // namespace framedsp
