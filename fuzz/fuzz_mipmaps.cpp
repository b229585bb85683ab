// DspCreateMipMaps on pyramids built from the fuzz input: every level in its own page-guarded
// buffer with canary margins.  Whatever the scaler answers for a level, only levels 1..count-1
// may change and only inside their own region (clipped to the image and the stride); level 0 and
// the base are read only; a refused record (count above five, a null buffer, a format other than
// 263, a bad handle) changes nothing.
#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "line_call.h"

namespace {

void draw_level(fuzz::Reader &r, uint32_t width, uint32_t height, DSP_IMAGE *im) {
  *im = DSP_IMAGE{};
  im->ePixelFormat = r.u8() < 245 ? DSP_PIXEL_FORMAT_MIPMAP : r.u32() % 300;
  im->ulWidth = r.u8() < 200 ? width : r.range(0, 2 * width + 4);
  im->ulHeight = r.u8() < 200 ? height : r.range(0, 2 * height + 4);
  im->ulPrimaryStrideBytes = im->ulWidth + (r.u8() < 128 ? 0 : r.range(0, 40));
  if (r.u8() < 6) im->ulPrimaryStrideBytes = r.range(0, im->ulWidth + 8);
  im->ulSecondaryStrideBytes = r.range(0, 8);
  im->Buffer.eBufferType = r.u8() < 220 ? DSP_BUFFER_TYPE_FRAME : r.range(0, 3);
  im->eInterlace = r.u8() < 200 ? DSP_INTERLACE_PROGRESSIVE : r.range(0, 4);
  im->eImageOrientation = r.u8() < 220 ? 0 : r.range(0, 2);
  im->eColorSpace = r.range(0, 1);
  DSP_REGION &reg = im->Buffer.Region;
  if (r.u8() < 190) {
    reg.ulWidth = im->ulWidth;
    reg.ulHeight = im->ulHeight;
  } else {
    reg.ptOffset.x = static_cast<int32_t>(r.range(0, im->ulWidth + 2)) - (r.u8() < 20 ? 3 : 0);
    reg.ptOffset.y = static_cast<int32_t>(r.range(0, im->ulHeight + 2)) - (r.u8() < 20 ? 3 : 0);
    reg.ulWidth = r.range(0, im->ulWidth + 4);
    reg.ulHeight = r.range(0, im->ulHeight + 4);
  }
  im->Buffer.ulBytes = im->ulHeight * im->ulPrimaryStrideBytes;
}

// Rows of the region inside the image, columns clipped to the image width and the stride.
void allow_level(const DSP_IMAGE &im, fuzz::OutputImage *out) {
  const DSP_REGION &reg = im.Buffer.Region;
  const int64_t H = im.ulHeight, s = im.ulPrimaryStrideBytes;
  const int64_t x0 = std::max<int64_t>(reg.ptOffset.x, 0) & ~int64_t{1};
  const int64_t x1 = std::min<int64_t>({int64_t{reg.ptOffset.x} + reg.ulWidth, int64_t{im.ulWidth}, s});
  for (int64_t j = 0; j < reg.ulHeight; ++j) {
    const int64_t p = int64_t{reg.ptOffset.y} + j;
    if (p < 0 || p >= H) continue;
    const int64_t m = im.eImageOrientation == DSP_ORIENTATION_BOTTOM_UP ? H - 1 - p : p;
    if (x1 > x0) out->allow(m * s + x0, x1 - x0);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader r(data, size);
  fuzz::draw_cpu_mask(r);
  DSP_MIPMAP_PARAMS p{};
  DSP_MIPMAP_LEVELS levels{};
  const uint8_t count = r.u8();
  levels.ulCount = count < 240 ? count % 6 : r.u32() % 12;
  p.eFilter = r.u8() < 245 ? r.range(0, 2) : r.u32();
  static const uint32_t kBase[] = {2, 4, 8, 16, 32, 64, 96, 128, 256};
  uint32_t w = r.pick(kBase), h = r.pick(kBase);
  if (r.u8() < 40) w = r.range(0, 300);
  if (r.u8() < 40) h = r.range(0, 300);
  draw_level(r, w, h, &p.Base);
  std::unique_ptr<fuzz::PageBuffer> base(new fuzz::PageBuffer(p.Base.Buffer.ulBytes, r.flag(), 0));
  fuzz::fill_from(r, base->data(), base->size());
  const std::vector<uint8_t> base_copy(base->data(), base->data() + base->size());
  p.Base.Buffer.pBuffer = base->data();

  std::unique_ptr<fuzz::OutputImage> images[DSP_MIPMAP_MAX_LEVELS];
  for (uint32_t k = 0; k < DSP_MIPMAP_MAX_LEVELS; ++k) {
    const uint8_t shrink = r.u8();
    if (k > 0 && shrink < 200) {
      w /= 2;
      h /= 2;
    } else if (k > 0 && shrink < 220) {
      w *= 2;
      h *= 2;
    }
    draw_level(r, w, h, &levels.Levels[k]);
    images[k].reset(new fuzz::OutputImage(levels.Levels[k].Buffer.ulBytes, r.flag(), r.u32()));
    levels.Levels[k].Buffer.pBuffer = r.u8() < 250 ? images[k]->data() : nullptr;
  }
  if (r.u8() == 255) p.Base.Buffer.pBuffer = nullptr;
  p.pLevels = r.u8() < 252 ? &levels : nullptr;
  const uint8_t handle_choice = r.u8();
  const DSP_HANDLE handle = handle_choice < 245 ? fuzz::live_converter()
                            : handle_choice < 250 ? nullptr
                                                  : reinterpret_cast<DSP_HANDLE>(uintptr_t{0xFFFFFFFFu});

  // What the header promises to refuse before any level is written.
  bool refused = p.pLevels == nullptr || levels.ulCount > DSP_MIPMAP_MAX_LEVELS || !p.Base.Buffer.pBuffer ||
                 p.Base.ePixelFormat != DSP_PIXEL_FORMAT_MIPMAP;
  for (uint32_t k = 0; !refused && k < levels.ulCount; ++k) {
    refused = !levels.Levels[k].Buffer.pBuffer || levels.Levels[k].ePixelFormat != DSP_PIXEL_FORMAT_MIPMAP;
  }
  const bool live = handle == fuzz::live_converter();
  if (!refused && live) {
    for (uint32_t k = 1; k < levels.ulCount; ++k) allow_level(levels.Levels[k], images[k].get());
  }

  const DSP_MIPMAP_PARAMS before = p;
  const DSP_MIPMAP_LEVELS levels_before = levels;
  const DSP_HRESULT hr = DspCreateMipMaps(handle, &p);
  fuzz::require(std::memcmp(&before, &p, sizeof p) == 0, "DspCreateMipMaps", "the record changed");
  fuzz::require(std::memcmp(&levels_before, &levels, sizeof levels) == 0, "DspCreateMipMaps",
                "the level list changed");
  const DSP_HRESULT expected = !live ? DSP_E_HANDLE
                               : p.pLevels == nullptr ? DSP_E_POINTER
                               : refused ? DSP_E_INVALIDARG
                                         : DSP_S_OK;
  fuzz::require(hr == expected, "DspCreateMipMaps", "status other than the header's");
  fuzz::require(base_copy.empty() || std::memcmp(base_copy.data(), base->data(), base_copy.size()) == 0,
                "DspCreateMipMaps", "the base changed");
  for (uint32_t k = 0; k < DSP_MIPMAP_MAX_LEVELS; ++k) {
    images[k]->check("DspCreateMipMaps", hr != DSP_S_OK || k == 0 || k >= levels.ulCount);
  }
  return 0;
}
