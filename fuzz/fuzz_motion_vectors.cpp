// DspCreateMotionVectors on real pyramids (DspCreateMipMaps over fuzz-filled frames) with records
// drawn from the fuzz input: one spoilt field or word at a time, search settings in and out of
// their bounds, flags, lambda, thresholds, field sizes.  A refused record (the header's list)
// must answer E_INVALIDARG and leave every byte of the field buffer as it was; an accepted one may
// write only the bytes its header counts, keeps its vectors inside the reach and counts its bad
// entries; the pyramids are never written.
#include <cstring>
#include <memory>
#include <vector>

#include "line_call.h"

namespace {

struct Pyramid {
  std::vector<std::vector<uint8_t>> planes;
  DSP_MIPMAP_LEVELS list{};
  void build(fuzz::Reader &r, uint32_t w, uint32_t h, uint32_t count) {
    list.ulCount = count;
    for (uint32_t k = 0; k < count; ++k, w /= 2, h /= 2) {
      planes.emplace_back(static_cast<size_t>(w) * h);
      if (k == 0) fuzz::fill_from(r, planes[0].data(), planes[0].size());
      list.Levels[k] = DSP_IMAGE{{planes.back().data(), 0, DSP_BUFFER_TYPE_FRAME, {{0, 0}, w, h}}, 0, w, h,
                                 DSP_PIXEL_FORMAT_MIPMAP, DSP_INTERLACE_PROGRESSIVE, 0, 0, w, 0, 0};
    }
    DSP_MIPMAP_PARAMS m{};
    m.Base = list.Levels[0];
    m.pLevels = &list;
    m.eFilter = DSP_SCALER_FILTER_LINEAR;
    fuzz::require(DspCreateMipMaps(fuzz::live_converter(), &m) == DSP_S_OK, "DspCreateMipMaps");
  }
};

// A settings word: mostly 0 (the default), often in bounds, sometimes anything.
uint32_t draw_word(fuzz::Reader &r, uint32_t lo, uint32_t hi) {
  const uint8_t c = r.u8();
  return c < 128 ? 0 : c < 230 ? r.range(lo, hi) : r.u32() % (hi + 40);
}

bool block_ok(uint32_t b) { return b == 0 || (b >= 8 && b <= 32); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader r(data, size);
  fuzz::draw_cpu_mask(r);
  static const uint32_t kWidths[] = {16, 32, 48, 64, 80, 96, 128};
  const uint32_t count = r.range(1, 5), w = r.pick(kWidths), h = r.range(1u << (count - 1), 100);
  Pyramid a, b;
  a.build(r, w, h, count);
  b.build(r, w, h, count);
  const std::vector<std::vector<uint8_t>> planes_a = a.planes, planes_b = b.planes;

  DSP_MOTION_VECTORS_PARAMS p{};
  DSP_MIPMAP_LEVELS la = a.list, lb = b.list;
  p.pLevelsA = &la;
  p.pLevelsB = &lb;
  p.ulMotionFlags = r.u8() & 0x1F;
  p.ulLambda = r.u8() < 200 ? 0 : r.u32() % 5000;
  p.ulSceneThreshold = r.u8() < 200 ? 0 : r.u32() % 3000;
  p.ulLevels = r.u8() < 200 ? 0 : r.range(0, 7);
  bool settings_ok = p.ulLevels <= count;
  for (int k = 0; k < 5; ++k) {
    p.ulLevelThreshold[k] = draw_word(r, 1, 255);
    p.ulLevelBlockA[k] = draw_word(r, 8, 32);
    p.ulLevelBlockB[k] = draw_word(r, 8, 32);
    p.ulLevelRangeX[k] = draw_word(r, 1, w / 4);
    p.ulLevelRangeY[k] = draw_word(r, 1, h / 4);
    settings_ok = settings_ok && p.ulLevelThreshold[k] <= 255 && block_ok(p.ulLevelBlockA[k]) &&
                  block_ok(p.ulLevelBlockB[k]) && (p.ulLevelRangeX[k] ? p.ulLevelRangeX[k] : 1) <= w / 4 &&
                  (p.ulLevelRangeY[k] ? p.ulLevelRangeY[k] : 1) <= h / 4;
  }
  p.ulReserved17 = r.u32();  // never read
  p.ulBlockA = draw_word(r, 8, 32);
  p.ulBlockB = draw_word(r, 8, 32);
  settings_ok = settings_ok && block_ok(p.ulBlockA) && block_ok(p.ulBlockB);

  const uint32_t bw = p.ulBlockA ? p.ulBlockA : 16, bh = p.ulBlockB ? p.ulBlockB : 16;
  const bool both = !(p.ulMotionFlags & DSP_MOTION_FORWARD_ONLY);
  const size_t n = static_cast<size_t>((w + bw - 1) / bw) * ((h + bh - 1) / bh);
  const size_t need = 48 + 8 * n * (both ? 2 : 1);
  const size_t room = r.u8() < 220 ? need + r.range(0, 64) : r.range(0, static_cast<uint32_t>(need));
  fuzz::OutputImage field(room ? room : 1, r.flag(), r.u32());
  p.pVectorField = r.u8() < 252 ? field.data() : nullptr;
  p.ulVectorFieldBytes = static_cast<uint32_t>(room);

  // At most one spoilt part of the pyramids or the record, each refused.
  bool refused = !settings_ok || room < need || !p.pVectorField;
  const uint32_t k = r.range(0, count - 1);
  switch (r.u8() % 24) {
    case 0: p.pLevelsB = nullptr, refused = true; break;
    case 1: la.ulCount = r.u8() % 2 ? 0 : r.range(6, 20), refused = true; break;
    case 2: lb.ulCount = count == 1 ? 2 : count - 1, refused = true; break;
    case 3: la.Levels[k].Buffer.pBuffer = nullptr, refused = true; break;
    case 4: lb.Levels[k].ePixelFormat = r.u32() % 262, refused = true; break;
    case 5: lb.Levels[k].Buffer.Region.ulWidth -= 1, lb.Levels[k].ulWidth -= 1, refused = true; break;
    case 6: la.Levels[k].Buffer.Region.ptOffset.y = 1, refused = true; break;
    case 7: p.ulReserved[r.range(0, 2)] = r.u32() | 1, refused = true; break;
    case 8:  // a bottom-up level list is as good as a top-down one
      for (uint32_t j = 0; j < count; ++j) la.Levels[j].eImageOrientation = DSP_ORIENTATION_BOTTOM_UP;
      break;
    default: break;
  }
  const DSP_MOTION_VECTORS_PARAMS before = p;
  const DSP_HRESULT hr = DspCreateMotionVectors(fuzz::live_converter(), &p);
  fuzz::require(std::memcmp(&before, &p, sizeof p) == 0, "DspCreateMotionVectors", "the record changed");
  fuzz::require(a.planes == planes_a && b.planes == planes_b, "DspCreateMotionVectors", "a pyramid changed");
  fuzz::require(hr == (refused ? DSP_E_INVALIDARG : DSP_S_OK), "DspCreateMotionVectors",
                "status other than the header's");
  if (hr != DSP_S_OK) {
    field.check("DspCreateMotionVectors", true);
    return 0;
  }
  DSP_VECTOR_FIELD hd;
  std::memcpy(&hd, field.data(), sizeof hd);
  fuzz::require(hd.ulFieldBytes == need && hd.ulColumns * hd.ulRows == n && hd.ulReserved == 0,
                "DspCreateMotionVectors", "header");
  field.allow(0, static_cast<int64_t>(need));
  field.check("DspCreateMotionVectors", false);
  // No vector beyond the reach of the searched levels.
  const uint32_t levels = p.ulLevels ? p.ulLevels : count;
  int64_t reach_x = 0, reach_y = 0;
  for (uint32_t j = 0; j < levels; ++j) {
    reach_x += int64_t{p.ulLevelRangeX[j] ? p.ulLevelRangeX[j] : 1} << j;
    reach_y += int64_t{p.ulLevelRangeY[j] ? p.ulLevelRangeY[j] : 1} << j;
  }
  uint32_t bad[2] = {0, 0};
  for (size_t i = 0; i < n * (both ? 2 : 1); ++i) {
    DSP_MOTION_VECTOR v;
    std::memcpy(&v, field.data() + 48 + 8 * i, sizeof v);
    fuzz::require(v.sX >= -4 * reach_x && v.sX <= 4 * reach_x && v.sY >= -4 * reach_y && v.sY <= 4 * reach_y,
                  "DspCreateMotionVectors", "a vector beyond the reach");
    bad[i >= n] += v.usFlags & DSP_MV_BAD;
  }
  fuzz::require(hd.ulBadForward == bad[0] && hd.ulBadBackward == bad[1], "DspCreateMotionVectors", "bad counts");
  return 0;
}
