// One pyramid level of the block search: predictive candidates, cost = SAD + lambda x distance
// from the neighbourhood's median, an exhaustive window or a small diamond, two passes.
#include <algorithm>
#include <cstring>

#include "analysis/motion_search.h"

namespace framedsp {
namespace {

constexpr int kMaxCandidates = 24;

int32_t iabs(int32_t v) { return v < 0 ? -v : v; }
int32_t clamp(int32_t v, int32_t lo, int32_t hi) { return v < lo ? lo : (v > hi ? hi : v); }

// Rounds a quarter-pixel value to the nearest whole pixel (halves toward +infinity).
int32_t whole(int32_t q) { return ((q + 2) >> 2) * 4; }

// A vector as one 64-bit key (its two numbers' bytes: keys are only compared for equality).
uint64_t pack(const MotionVec &v) {
  const int32_t xy[2] = {v.x, v.y};
  uint64_t key;
  std::memcpy(&key, xy, sizeof key);
  return key;
}
MotionVec unpack(uint64_t key) {
  int32_t xy[2];
  std::memcpy(xy, &key, sizeof xy);
  return MotionVec{xy[0], xy[1]};
}

// Candidates in ranking order, packed (raw storage: nothing to clear per block).
struct CandidateList {
  uint64_t key[kMaxCandidates];
  int n = 0;
  MotionVec operator[](int i) const { return unpack(key[i]); }
  // Without duplicates (their evaluation would change nothing, it only costs).
  void add(const MotionVec &c) {
    const uint64_t k = pack(c);
    for (int i = 0; i < n; ++i) {
      if (key[i] == k) return;
    }
    if (n < kMaxCandidates) key[n++] = k;
  }
};

// block_sad at whole-pixel vector v.
inline uint32_t level_sad(const MotionKernels &k, const MotionBlock &b, const MotionPlane &t, const MotionVec &v) {
  const int32_t x = b.x + (v.x >> 2), y = b.y + (v.y >> 2);
  if (x >= 0 && y >= 0 && x + b.w <= t.width && y + b.h <= t.height) {
    return k.sad(b.a, b.a_stride, t.data + y * t.stride + x, t.stride, static_cast<uint32_t>(b.w),
                 static_cast<uint32_t>(b.h));
  }
  return level_edge_sad(k, b, t, x, y);
}

// Evaluates vectors of one block against a fixed prediction and keeps the best; every vector's
// match is computed once.  One evaluator serves a whole pass: start() begins each block.
class BlockEval {
 public:
  BlockEval(const MotionKernels &k, const LevelSearch &s)
      : k_(k), t_(s.b), sad_(k.sad), sad16_(k.sad16), reach_x_(4 * s.reach_x), reach_y_(4 * s.reach_y),
        range_x_(s.range_x), range_y_(s.range_y), lambda4_(uint64_t{4} * s.lambda) {}

  void start(const MotionBlock &block, int32_t mx, int32_t my) {
    block_ = block;
    // Both sides 16 (sides are at least 1).  Not two comparisons: the compiler would join them
    // into one load of both sides, which just were stored one at a time and would stall it.
    packed_ = (block.w | block.h) == 16;
    if (packed_) {
      for (int j = 0; j < 16; ++j) std::memcpy(own_ + 16 * j, block.a + j * block.a_stride, 16);
    }
    m_x_ = mx;
    m_y_ = my;
    off_x_ = 4 * (kWindow / 2) - mx;
    off_y_ = 4 * (kWindow / 2) - my;
    // The block lies inside the target at whole-pixel offset d when d - lo is in [0, span] (as
    // unsigned numbers; a target smaller than the block takes no offset).
    const bool fits = block.w <= t_.width && block.h <= t_.height;
    lo_x_ = fits ? 0u - static_cast<uint32_t>(block.x) : 1u << 31;
    lo_y_ = fits ? 0u - static_cast<uint32_t>(block.y) : 1u << 31;
    span_x_ = fits ? static_cast<uint32_t>(t_.width - block.w) : 0;
    span_y_ = fits ? static_cast<uint32_t>(t_.height - block.h) : 0;
    t_at_ = t_.data + block.y * t_.stride + block.x;
    w_ = static_cast<uint32_t>(block.w);
    h_ = static_cast<uint32_t>(block.h);
    stamp_ += uint64_t{1} << 32;  // forgets the window's matches
    seen_ = 0;
    best_cost_ = UINT64_MAX;  // nothing evaluated: any vector becomes the best
    around_known_ = false;
  }

  bool in_reach(const MotionVec &v) const {
    return static_cast<uint32_t>(v.x + reach_x_) <= static_cast<uint32_t>(2 * reach_x_) &&
           static_cast<uint32_t>(v.y + reach_y_) <= static_cast<uint32_t>(2 * reach_y_);
  }

  // The match of v (cost16 without lambda), from the cache or computed and cached.
  uint32_t match(const MotionVec &v) {
    const uint32_t dx = static_cast<uint32_t>((v.x + off_x_) >> 2), dy = static_cast<uint32_t>((v.y + off_y_) >> 2);
    if ((dx | dy) < kWindow) {
      uint64_t &e = window_[dy * kWindow + dx];
      if (e >= stamp_) return static_cast<uint32_t>(e);
      const uint32_t m = compute(v);
      e = stamp_ | m;
      append(v, m);
      return m;
    }
    const uint64_t key = pack(v);
    for (int i = 0; i < seen_; ++i) {
      if (seen_key_[i] == key) return seen_match_[i];
    }
    const uint32_t m = compute(v);
    append(v, m);
    return m;
  }
  void remember(const MotionVec &v, uint32_t m) {
    const uint32_t dx = static_cast<uint32_t>((v.x + off_x_) >> 2), dy = static_cast<uint32_t>((v.y + off_y_) >> 2);
    if ((dx | dy) < kWindow) {
      uint64_t &e = window_[dy * kWindow + dx];
      if (e >= stamp_) return;
      e = stamp_ | m;
    }
    append(v, m);
  }

  // Evaluates v; true when it became the best.
  bool try_vec(const MotionVec &v) {
    const uint32_t m = match(v);
    last_match_ = m;
    return rank(v, m);
  }
  // Ranks v, whose match is m; true when it became the best.
  bool rank(const MotionVec &v, uint32_t m) {
    const uint64_t cost = m + lambda4_ * static_cast<uint32_t>(iabs(v.x - m_x_) + iabs(v.y - m_y_));
    // better(), without a branch on the common outcome (as random as the picture); equal costs
    // are rare.
    bool take = cost < best_cost_;
    if (cost == best_cost_) take = iabs(v.x) + iabs(v.y) < iabs(best_.x) + iabs(best_.y);
    best_.x = take ? v.x : best_.x;
    best_.y = take ? v.y : best_.y;
    best_cost_ = take ? cost : best_cost_;
    best_match_ = take ? m : best_match_;
    return take;
  }

  // Every whole-pixel vector within +-range of the centre (and inside the reach).  The centre is
  // taken by value: it is often best_, which moves while the window is searched.
  void exhaustive(const MotionVec centre) {
    for (int32_t dy = -range_y_; dy <= range_y_; ++dy) {
      for (int32_t dx = -range_x_; dx <= range_x_; ++dx) {
        const MotionVec v{centre.x + 4 * dx, centre.y + 4 * dy};
        if (in_reach(v)) try_vec(v);
      }
    }
  }

  // Walks downhill over the four whole-pixel neighbours while it stays within +-range of where it
  // started (and inside the reach): the box [lo, hi] in x and y.
  void diamond() {
    const int32_t lo_x = std::max(best_.x - 4 * range_x_, -reach_x_), hi_x = std::min(best_.x + 4 * range_x_, reach_x_);
    const int32_t lo_y = std::max(best_.y - 4 * range_y_, -reach_y_), hi_y = std::min(best_.y + 4 * range_y_, reach_y_);
    const int32_t steps = range_x_ + range_y_;
    // The neighbour the walk came from (kStep[back]): the previous centre, which lost to the
    // current one, so only its match is needed (back_match).
    int back = -1;
    uint32_t back_match = 0;
    for (int32_t i = 0; i < steps; ++i) {
      const MotionVec centre = best_;
      const uint32_t centre_match = best_match_;
      int last = -1;  // the last neighbour that became the best
      int tried = 0;
      const bool boxed = centre.x - 4 >= lo_x && centre.x + 4 <= hi_x && centre.y - 4 >= lo_y && centre.y + 4 <= hi_y;
      if (boxed && step_inside(centre, back, back_match, &last)) {
        tried = 4;
      } else {
        for (int j = 0; j < 4; ++j) {
          const MotionVec v{centre.x + kStep[j][0], centre.y + kStep[j][1]};
          if (v.x < lo_x || v.x > hi_x || v.y < lo_y || v.y > hi_y) continue;
          ++tried;
          if (j == back) {
            around_[1 + j] = back_match;
            continue;
          }
          if (try_vec(v)) last = j;
          around_[1 + j] = last_match_;
        }
      }
      if (last < 0) {
        // The centre stays best and all four neighbours were matched: around() has them.
        around_known_ = tried == 4;
        break;
      }
      back = last ^ 1;  // kStep pairs opposite steps: 0/1, 2/3
      back_match = centre_match;
    }
  }

  // One step of the diamond around `centre` when its four neighbours lie inside the target and
  // the window of matches: the same evaluations in the same order, with the checks made once.
  // False (nothing evaluated) otherwise.
  bool step_inside(const MotionVec centre, int back, uint32_t back_match, int *last) {
    const int32_t dx = centre.x >> 2, dy = centre.y >> 2;
    const uint32_t wx = static_cast<uint32_t>(dx + (off_x_ >> 2)) - 1, wy = static_cast<uint32_t>(dy + (off_y_ >> 2)) - 1;
    if (wx > kWindow - 3 || wy > kWindow - 3) return false;
    const uint64_t px = static_cast<uint32_t>(dx - 1) - lo_x_, py = static_cast<uint32_t>(dy - 1) - lo_y_;
    if (px + 2 > span_x_ || py + 2 > span_y_) return false;
    const ptrdiff_t stride = t_.stride;
    const uint8_t *at = t_at_ + dy * stride + dx;
    uint64_t *entry = window_ + (wy + 1) * kWindow + wx + 1;
    const ptrdiff_t step_at[4] = {-1, 1, -stride, stride};
    const ptrdiff_t step_entry[4] = {-1, 1, -kWindow, kWindow};
    // The matches first, then the ranking: the sums do not wait on one another's ranking.
    for (int j = 0; j < 4; ++j) {
      if (j == back) {
        around_[1 + j] = back_match;
        continue;
      }
      uint64_t &e = entry[step_entry[j]];
      if (e >= stamp_) {
        around_[1 + j] = static_cast<uint32_t>(e);
        continue;
      }
      const uint8_t *q = at + step_at[j];
      const uint32_t m = cost16_of_sad(block_.recip, packed_ ? sad16_(own_, q, stride) : sad_(block_.a, block_.a_stride, q, stride, w_, h_));
      e = stamp_ | m;
      append(MotionVec{centre.x + kStep[j][0], centre.y + kStep[j][1]}, m);
      around_[1 + j] = m;
    }
    for (int j = 0; j < 4; ++j) {
      if (j != back && rank(MotionVec{centre.x + kStep[j][0], centre.y + kStep[j][1]}, around_[1 + j])) *last = j;
    }
    return true;
  }

  // The best among the vectors seen, weighed against another prediction.
  void reweigh(const MotionVec &predicted) {
    m_x_ = predicted.x;
    m_y_ = predicted.y;
    around_known_ = false;
    const int n = seen_;
    best_cost_ = UINT64_MAX;
    for (int i = 0; i < n; ++i) try_vec(unpack(seen_key_[i]));
  }

  // The matches of the best vector and of its four whole-pixel neighbours.
  void around(uint32_t out[5]) {
    out[0] = best_match_;
    if (around_known_) {
      for (int i = 1; i < 5; ++i) out[i] = around_[i];
      return;
    }
    for (int i = 0; i < 4; ++i) {
      const MotionVec v{best_.x + kStep[i][0], best_.y + kStep[i][1]};
      out[1 + i] = in_reach(v) ? match(v) : UINT32_MAX;
    }
  }

  const MotionVec &best() const { return best_; }
  uint32_t best_match() const { return best_match_; }

  static constexpr int32_t kStep[4][2] = {{-4, 0}, {4, 0}, {0, -4}, {0, 4}};

 private:
  const MotionKernels &k_;
  const MotionPlane t_;
  const SadKernel sad_;
  const Sad16Kernel sad16_;
  const int32_t reach_x_, reach_y_;  // quarter pixels
  const int32_t range_x_, range_y_;  // whole pixels
  const uint64_t lambda4_;
  MotionBlock block_;
  bool packed_ = false;  // a 16 x 16 block, matched from its copy own_
  alignas(32) uint8_t own_[16 * 16];
  uint32_t lo_x_ = 0, lo_y_ = 0, span_x_ = 0, span_y_ = 0;
  const uint8_t *t_at_ = nullptr;  // the target at the block's own place
  uint32_t w_ = 0, h_ = 0;
  int32_t m_x_ = 0, m_y_ = 0;  // the prediction
  MotionVec best_;
  uint64_t best_cost_ = UINT64_MAX;  // (costs stay far below)
  uint32_t best_match_ = 0;
  uint32_t last_match_ = 0;      // of the last vector tried
  bool around_known_ = false;    // around_[1..4]: the matches of best_'s four neighbours
  uint32_t around_[5];
  uint32_t compute(const MotionVec &v) const {
    const int32_t dx = v.x >> 2, dy = v.y >> 2;
    uint32_t sad;
    if (static_cast<uint32_t>(dx) - lo_x_ <= span_x_ && static_cast<uint32_t>(dy) - lo_y_ <= span_y_) {
      const uint8_t *at = t_at_ + dy * t_.stride + dx;
      sad = packed_ ? sad16_(own_, at, t_.stride) : sad_(block_.a, block_.a_stride, at, t_.stride, w_, h_);
    } else {
      const MotionBlock b = block_;  // a copy: the evaluator's own fields stay out of the call's reach
      sad = level_edge_sad(k_, b, t_, b.x + dx, b.y + dy);
    }
    return cost16_of_sad(block_.recip, sad);
  }
  void append(const MotionVec &v, uint32_t m) {
    if (seen_ < kSeen) {
      seen_key_[seen_] = pack(v);
      seen_match_[seen_++] = m;
    }
  }
  // The vectors evaluated, in order (the first kSeen: reweigh() ranks them again); raw arrays,
  // nothing to clear per block.
  static constexpr int kSeen = 48;
  uint64_t seen_key_[kSeen];
  uint32_t seen_match_[kSeen];
  int seen_ = 0;
  // The matches of the whole-pixel vectors within -8..7 pixels of the first prediction, looked up
  // directly: stamp (the block's number in the pass) << 32 | match.
  static constexpr int32_t kWindow = 16;
  int32_t off_x_ = 0, off_y_ = 0;  // 4 * kWindow / 2 - the first prediction
  uint64_t stamp_ = 0;  // the block's number in the pass << 32: earlier blocks' entries are below it
  uint64_t window_[kWindow * kWindow] = {};
};

// No whole-pixel step from the best changes the match by more than kLooseMatch.
bool is_loose(const uint32_t around[5]) {
  for (int i = 1; i < 5; ++i) {
    if (around[i] == UINT32_MAX || around[i] > around[0] + kLooseMatch) return false;
  }
  return true;
}

MotionVec clip_to_reach(const LevelSearch &s, MotionVec v) {
  return MotionVec{clamp(whole(v.x), -4 * s.reach_x, 4 * s.reach_x),
                   clamp(whole(v.y), -4 * s.reach_y, 4 * s.reach_y)};
}

// The start a parent block gives this level.
MotionVec parent_vec(const LevelSearch &s, int32_t pcol, int32_t prow) {
  return s.parent[clamp(prow, 0, s.parent_grid.rows - 1) * s.parent_grid.cols + clamp(pcol, 0, s.parent_grid.cols - 1)];
}

// The parent blocks under the centres of a level's columns and rows (at most 16384 / 8 each).
struct ParentIndex {
  int16_t col[2048], row[2048];
  explicit ParentIndex(const LevelSearch &s) {
    if (!s.parent) return;
    for (int32_t c = 0; c < s.grid.cols; ++c) {
      const int32_t x = c * s.grid.bw, cx = x + std::min(s.grid.bw, s.a.width - x) / 2;
      col[c] = static_cast<int16_t>(std::min(cx / 2 / s.parent_grid.bw, s.parent_grid.cols - 1));
    }
    for (int32_t r = 0; r < s.grid.rows; ++r) {
      const int32_t y = r * s.grid.bh, cy = y + std::min(s.grid.bh, s.a.height - y) / 2;
      row[r] = static_cast<int16_t>(std::min(cy / 2 / s.parent_grid.bh, s.parent_grid.rows - 1));
    }
  }
};

// Component-wise median of the parent blocks' starts.
MotionVec global_vec(const LevelSearch &s, MotionVec *scratch) {
  const int32_t n = s.parent_grid.count();
  int32_t *values = reinterpret_cast<int32_t *>(scratch);
  for (int32_t i = 0; i < n; ++i) values[i] = s.parent[i].x;
  const int32_t gx = median_value(values, n);
  for (int32_t i = 0; i < n; ++i) values[i] = s.parent[i].y;
  return MotionVec{gx, median_value(values, n)};
}

// The blocks of one row of a level: make_block's blocks with the cost scale worked out once a row.
class RowBlocks {
 public:
  RowBlocks(const MotionPlane &src, const BlockGrid &g, int32_t row) : width_(src.width), bw_(g.bw) {
    b_.y = row * g.bh;
    b_.h = std::min(g.bh, src.height - b_.y);
    b_.a_stride = src.stride;
    row_a_ = src.data + b_.y * src.stride;
    recip_ = recip_of(static_cast<uint32_t>(g.bw * b_.h));
  }
  const MotionBlock &at(int32_t col) {
    b_.x = col * bw_;
    b_.w = std::min(bw_, width_ - b_.x);
    b_.a = row_a_ + b_.x;
    b_.recip = b_.w == bw_ ? recip_ : recip_of(static_cast<uint32_t>(b_.w * b_.h));
    return b_;
  }

 private:
  MotionBlock b_;
  int32_t width_, bw_;
  const uint8_t *row_a_;
  uint32_t recip_;
};

// The candidates of pass 1 of one row, in ranking order: parent and its four neighbours, zero,
// global, temporal, the other direction's vector negated (duplicates kept: the evaluator caches).
class FirstCandidates {
 public:
  FirstCandidates(const LevelSearch &s, const ParentIndex &parents, int32_t row, bool has_global,
                  const MotionVec &global)
      : s_(s), parents_(parents), row_(row), has_global_(has_global), global_(clip_to_reach(s, global)) {
    if (!s.parent) return;
    const int32_t pr = parents.row[row], last = s.parent_grid.rows - 1;
    for (int i = 0; i < 3; ++i) prow_[i] = s.parent + clamp(pr - 1 + i, 0, last) * s.parent_grid.cols;
  }
  void run(BlockEval *eval, const MotionBlock &b, int32_t col) const {
    // Candidates equal to the parent's vector are dropped cheaply: theirs is a known match that
    // ranks the same (no vector equals the stand-in without a parent).
    MotionVec p{INT32_MIN, INT32_MIN};
    if (s_.parent) {
      // The starts of the parent and of its four neighbours: whole pixels within the reach.
      const int32_t pc = parents_.col[col];
      const int32_t left = std::max(pc - 1, 0), right = std::min(pc + 1, s_.parent_grid.cols - 1);
      p = prow_[1][pc];
      eval->try_vec(p);
      const MotionVec beside[4] = {prow_[1][left], prow_[1][right], prow_[0][pc], prow_[2][pc]};
      for (const MotionVec &v : beside) {
        if (v != p) eval->try_vec(v);
      }
    }
    if (p != MotionVec{}) eval->try_vec(MotionVec{});
    if (has_global_ && global_ != p) eval->try_vec(global_);
    if (s_.temporal) {
      const MotionVec t = s_.temporal->at((b.x + b.w / 2) << s_.level, (b.y + b.h / 2) << s_.level);
      // Level-0 quarter pixels to level-k quarter pixels, rounded to the nearest.
      const int32_t half = s_.level ? 1 << (s_.level - 1) : 0;
      const MotionVec v = clip_to_reach(s_, MotionVec{(t.x + half) >> s_.level, (t.y + half) >> s_.level});
      if (v != p) eval->try_vec(v);
    }
    if (s_.opposite) {
      const MotionVec &o = s_.opposite[row_ * s_.grid.cols + col];
      const MotionVec v = clip_to_reach(s_, MotionVec{-o.x, -o.y});
      if (v != p) eval->try_vec(v);
    }
  }

 private:
  const LevelSearch &s_;
  const ParentIndex &parents_;
  const int32_t row_;
  const bool has_global_;
  const MotionVec global_;
  const MotionVec *prow_[3] = {};
};

constexpr int32_t kChunk = kMedianChunk;

// Pass 2's ranking of a block's candidates: its own vector `own`, then those of `others` (the
// neighbours' vectors that differ from it, duplicates kept, and the global vector), with pass 1's
// matches around `own` (`around`, see LevelSearch) and a SAD for any other vector.  True when
// the block keeps its own vector: once another vector ranks above it, `own` cannot come back, so
// the block keeps it when none of the others beats it alone.
bool keeps_own(const MotionKernels &k, const LevelSearch &s, const MotionBlock &block, const MotionVec &predicted,
               const uint32_t around[5], const MotionVec &own, const uint64_t *others, int n) {
  const uint64_t lambda4 = uint64_t{4} * s.lambda;
  auto lambda_of = [&](const MotionVec &v) {
    return lambda4 * static_cast<uint32_t>(iabs(v.x - predicted.x) + iabs(v.y - predicted.y));
  };
  const uint64_t own_cost = around[0] + lambda_of(own);
  // The whole-pixel step from `own` (kStep's order) by the offset's place in its 3 x 3 around.
  static constexpr int8_t kStepAt[9] = {-1, 2, -1, 0, -1, 1, -1, 3, -1};
  for (int j = 0; j < n; ++j) {
    // A duplicate of the candidate before loses again (others lose as soon as they are seen).
    if (j > 0 && others[j] == others[j - 1]) continue;
    const MotionVec v = unpack(others[j]);
    const uint64_t lambda = lambda_of(v);
    if (lambda > own_cost) continue;  // loses whatever its match
    const uint32_t cx = static_cast<uint32_t>(v.x - own.x + 4), cy = static_cast<uint32_t>(v.y - own.y + 4);
    const int step = cx <= 8 && cy <= 8 ? kStepAt[cx / 4 + 3 * (cy / 4)] : -1;
    // Every candidate lies within the reach, so a neighbour of `own` among them has its match.
    // (A duplicate of an earlier candidate that lost loses again: its SAD is simply repeated.)
    const uint32_t m = step >= 0 && around[1 + step] != UINT32_MAX
                           ? around[1 + step]
                           : cost16_of_sad(block, level_sad(k, block, s.b, v));
    if (better(m + lambda, v, own_cost, own)) return false;
  }
  return true;
}

// Pass 1: each block's candidates, then an exhaustive window or a diamond, judged against the
// medians of pass 0.
void first_pass(const MotionKernels &k, const LevelSearch &s, const ParentIndex &parents, const MotionVec *pass0,
                const MotionVec &global, MotionVec *pass1, uint8_t *exhaustive) {
  const BlockGrid &g = s.grid;
  const bool has_global = s.parent && s.use_global;
  const bool want_around = s.around || s.loose;
  uint32_t local[5];
  MedianChunk medians;
  BlockEval eval(k, s);
  const uint8_t *flat = has_global ? s.flat : nullptr;
  const MotionVec follow = clip_to_reach(s, global);
  for (int32_t row = 0; row < g.rows; ++row) {
    RowBlocks blocks(s.a, g, row);
    const FirstCandidates candidates(s, parents, row, has_global, global);
    for (int32_t col = 0; col < g.cols; ++col) {
      const size_t i = static_cast<size_t>(row) * g.cols + col;
      if (col % kChunk == 0) median_chunk(pass0, g, row, col, &medians);
      if (flat && (flat[i] & kAllFlat)) {
        pass1[i] = follow;
        if (s.loose) s.loose[i] = 1;
        if (exhaustive) exhaustive[i] = 0;
        continue;
      }
      const MotionBlock &block = blocks.at(col);
      const int32_t c = col % kChunk;
      eval.start(block, medians.v[0][c], medians.v[1][c]);
      candidates.run(&eval, block, col);
      const bool wide = eval.best_match() > s.threshold * 1024u;
      uint32_t *a = s.around ? s.around + 5 * i : local;
      if (wide) {
        eval.exhaustive(eval.best());
        if (!s.parent) eval.exhaustive(MotionVec{});
      } else {
        eval.diamond();
      }
      if (want_around) {
        eval.around(a);
        const bool loose = is_loose(a);
        if (s.loose) s.loose[i] = loose ? 1 : 0;
        // Nothing here to place the block: it follows the picture's global motion.
        if (loose && has_global) {
          eval.reweigh(global);
          eval.around(a);
        }
      }
      pass1[i] = eval.best();
      if (exhaustive) exhaustive[i] = wide ? 1 : 0;
    }
  }
}

// Pass 2: the block's own result against its eight neighbours' results of pass 1, judged
// against pass 1's medians (the global vector for loose blocks); a block that changes hands
// walks a diamond from its new vector.
void second_pass(const MotionKernels &k, const LevelSearch &s, const MotionVec *pass1, const MotionVec &global,
                 MotionVec *out) {
  const BlockGrid &g = s.grid;
  const bool has_global = s.parent && s.use_global;
  const uint8_t *flat = has_global ? s.flat : nullptr;
  MedianChunk medians;
  BlockEval eval(k, s);
  for (int32_t row = 0; row < g.rows; ++row) {
    RowBlocks blocks(s.a, g, row);
    for (int32_t col = 0; col < g.cols; ++col) {
      const size_t i = static_cast<size_t>(row) * g.cols + col;
      if (col % kChunk == 0) median_chunk(pass1, g, row, col, &medians);
      const MotionVec own = pass1[i];
      if (flat && (flat[i] & kAllFlat)) {
        out[i] = own;
        continue;
      }
      const bool loose = s.loose && s.loose[i] && has_global;
      // The candidates that differ from `own` (a duplicate's evaluation changes nothing).
      const uint64_t own_key = pack(own);
      uint64_t others[10];
      int n = 0;
      if (row > 0 && row + 1 < g.rows && col > 0 && col + 1 < g.cols) {
        const MotionVec *p = pass1 + i;
        const ptrdiff_t up = -static_cast<ptrdiff_t>(g.cols), down = g.cols;
        const MotionVec *around8[8] = {p + up - 1, p + up, p + up + 1, p - 1, p + 1, p + down - 1, p + down, p + down + 1};
        for (const MotionVec *q : around8) {
          others[n] = pack(*q);
          n += others[n] != own_key ? 1 : 0;
        }
      } else {
        for (int32_t dy = -1; dy <= 1; ++dy) {
          const int32_t r = row + dy;
          if (r < 0 || r >= g.rows) continue;
          for (int32_t q = std::max(col - 1, 0); q <= std::min(col + 1, g.cols - 1); ++q) {
            others[n] = pack(pass1[r * g.cols + q]);
            n += others[n] != own_key ? 1 : 0;
          }
        }
      }
      if (loose) {
        others[n] = pack(clip_to_reach(s, global));
        n += others[n] != own_key ? 1 : 0;
      }
      if (n == 0) {  // every neighbour agrees: nothing to weigh
        out[i] = own;
        continue;
      }
      const MotionBlock &block = blocks.at(col);
      const MotionVec predicted = loose ? global : medians.at(col);
      if (s.around && keeps_own(k, s, block, predicted, s.around + 5 * i, own, others, n)) {
        out[i] = own;
        continue;
      }
      CandidateList c;
      c.add(own);
      for (int j = 0; j < n; ++j) c.add(unpack(others[j]));
      eval.start(block, predicted.x, predicted.y);
      if (s.around) {  // pass 1's matches around its vector
        const uint32_t *a = s.around + 5 * i;
        eval.remember(own, a[0]);
        for (int j = 0; j < 4; ++j) {
          if (a[1 + j] != UINT32_MAX) eval.remember(MotionVec{own.x + BlockEval::kStep[j][0], own.y + BlockEval::kStep[j][1]}, a[1 + j]);
        }
      }
      for (int j = 0; j < c.n; ++j) eval.try_vec(c[j]);
      if (eval.best() != own) {
        eval.diamond();
        if (s.around) eval.around(s.around + 5 * i);
      }
      out[i] = eval.best();
    }
  }
}

// The side, -1, 0 or 1 pixel of the level below, that the matches m (at the vector), lo and hi (a
// pixel before and after it) lean to: a parabola through them is lowest (lo - hi) / (2 c) pixels
// of this level away, c = lo + hi - 2 m, which is (lo - hi) / c pixels below; from half a pixel
// on, the start moves.
int32_t lean(uint32_t m, uint32_t lo, uint32_t hi) {
  if (lo == UINT32_MAX || hi == UINT32_MAX) return 0;
  const int64_t c = int64_t{lo} + hi - 2 * int64_t{m}, d = int64_t{lo} - hi;
  if (c <= 0 || 2 * (d < 0 ? -d : d) < c) return 0;
  return d > 0 ? 1 : -1;
}

}  // namespace

// The block's lines are fetched with the edge samples repeated (lines beyond the top or bottom
// read the edge line), then matched as one block.  A line over one side is made with fixed-size
// moves (the compiler's vector stores, no calls): the edge sample fills 32 bytes, then the 32
// samples next to that edge are copied over it so that the inside part lands in place; the moves
// reach up to 32 bytes before or after the line's w samples, into the slack around them.  Kept out
// of line: the rare path of the search's loops.
#if defined(__GNUC__)
__attribute__((noinline))
#endif
uint32_t level_edge_sad(const MotionKernels &k, const MotionBlock &b, const MotionPlane &t, int32_t x, int32_t y) {
  constexpr int32_t kRun = kLevelBlockMax;
  static_assert(kFetchStride >= 2 * kRun, "a line's moves stay within the slack around it");
  // Columns [lead, tail) of the block lie inside the target.
  const int32_t lead = clamp(-x, 0, b.w), tail = clamp(t.width - x, lead, b.w);
  alignas(16) uint8_t buffer[kRun + kFetchStride * kLevelBlockMax];
  uint8_t *const fetched = buffer + kRun;
  if (t.width < kRun || (lead > 0 && tail < b.w)) {
    fetch_clamped(t, x, y, b.w, b.h, fetched);
    return k.sad(b.a, b.a_stride, fetched, kFetchStride, static_cast<uint32_t>(b.w), static_cast<uint32_t>(b.h));
  }
  // The target line of each block line: lines [top, bottom) of the block lie inside the target.
  const uint8_t *rows[kLevelBlockMax];
  const int32_t top = clamp(-y, 0, b.h), bottom = clamp(t.height - y, top, b.h);
  for (int32_t j = 0; j < top; ++j) rows[j] = t.data;
  if (top < bottom) {
    const uint8_t *row = t.data + (y + top) * t.stride;
    for (int32_t j = top; j < bottom; ++j, row += t.stride) rows[j] = row;
  }
  for (int32_t j = bottom; j < b.h; ++j) rows[j] = t.data + (t.height - 1) * t.stride;
  uint8_t *out = fetched;
  if (lead > 0) {  // over the left edge: the block starts at -lead
    for (int32_t j = 0; j < b.h; ++j, out += kFetchStride) {
      std::memset(out, rows[j][0], kRun);
      std::memcpy(out + lead, rows[j], kRun);
    }
  } else if (tail < b.w) {  // over the right edge: the inside part ends at tail
    const int32_t end = t.width - kRun;
    for (int32_t j = 0; j < b.h; ++j, out += kFetchStride) {
      std::memcpy(out + tail - kRun, rows[j] + end, kRun);
      std::memset(out + tail, rows[j][end + kRun - 1], kRun);
    }
  } else if (b.w == 16) {  // over the top or bottom only
    for (int32_t j = 0; j < b.h; ++j, out += kFetchStride) std::memcpy(out, rows[j] + x, 16);
  } else {
    for (int32_t j = 0; j < b.h; ++j, out += kFetchStride) std::memcpy(out, rows[j] + x, static_cast<size_t>(b.w));
  }
  return k.sad(b.a, b.a_stride, fetched, kFetchStride, static_cast<uint32_t>(b.w), static_cast<uint32_t>(b.h));
}

void level_starts(const MotionVec *field, const uint32_t *around, int32_t n, int32_t reach_x, int32_t reach_y,
                  MotionVec *out) {
  for (int32_t i = 0; i < n; ++i) {
    const uint32_t *a = around + 5 * i;
    out[i] = MotionVec{clamp(2 * field[i].x + 4 * lean(a[0], a[1], a[2]), -4 * reach_x, 4 * reach_x),
                       clamp(2 * field[i].y + 4 * lean(a[0], a[3], a[4]), -4 * reach_y, 4 * reach_y)};
  }
}

void search_level(const MotionKernels &k, const LevelSearch &s, MotionVec *scratch0,
                  MotionVec *scratch1, MotionVec *out, uint8_t *exhaustive) {
  const BlockGrid &g = s.grid;
  const bool has_global = s.parent && s.use_global;
  const MotionVec global = has_global ? global_vec(s, scratch0) : MotionVec{};

  // Pass 0: the parent field projected onto this level's blocks (zero at the coarsest level)
  // provides the predictions of pass 1.
  MotionVec *pass0 = scratch0, *pass1 = scratch1;
  const ParentIndex parents(s);
  for (int32_t row = 0; row < g.rows; ++row) {
    for (int32_t col = 0; col < g.cols; ++col) {
      MotionVec v;
      if (s.parent) v = parent_vec(s, parents.col[col], parents.row[row]);
      pass0[row * g.cols + col] = v;
    }
  }
  first_pass(k, s, parents, pass0, global, pass1, exhaustive);
  second_pass(k, s, pass1, global, out);
}

}  // namespace framedsp
