// DspFrameRateConvert on records built from the fuzz input: three frames in page-guarded memory
// (each ending against a protected page, ulBytes as the record says), a vector field of any
// contents, any phase, flags, sampling, band and thresholds.  A refused record changes nothing;
// an accepted one writes only the band's lines of the output's planes, inside ulBytes.
#include <cstring>
#include <memory>
#include <vector>

#include "harness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader r(data, size);
  const uint32_t mode = r.u8() < 230 ? 0 : r.range(0, 3);
  const uint32_t w = r.range(1, 48), h = r.range(1, 40), stride = w + r.range(0, 6);
  const uint8_t flags = r.u8() < 240 ? uint8_t(r.u8() & 15) : r.u8();
  const uint32_t planes = (flags & DSP_CONVERT_LUMA_ONLY) ? 1 : 2;
  const size_t need = size_t(planes * h - 1) * stride + w;
  DSP_FRAME_RATE_CONVERT_PARAMS p;
  std::memset(&p, 0, sizeof p);
  std::unique_ptr<fuzz::PageBuffer> in[2];
  DSP_IMAGE *frames[3] = {&p.FrameA, &p.FrameB, &p.FrameOut};
  for (int i = 0; i < 3; ++i) {
    DSP_IMAGE &f = *frames[i];
    f.ulWidth = i == 1 && r.u8() < 10 ? r.range(0, 50) : w;
    f.ulHeight = h;
    f.ulPrimaryStrideBytes = i == 1 && r.u8() < 10 ? r.range(0, 50) : stride;
    f.Buffer.ulBytes = uint32_t(r.u8() < 240 ? need : r.range(0, uint32_t(need) + 8));
  }
  for (int i = 0; i < 2; ++i) {
    in[i] = std::make_unique<fuzz::PageBuffer>(frames[i]->Buffer.ulBytes, true, 0);
    for (size_t k = 0; k < in[i]->size(); ++k) in[i]->data()[k] = r.u8();
    frames[i]->Buffer.pBuffer = r.u8() < 250 ? in[i]->data() : nullptr;
  }
  fuzz::OutputImage out(p.FrameOut.Buffer.ulBytes, true, r.u32());
  p.FrameOut.Buffer.pBuffer = r.u8() < 250 ? out.data() : nullptr;
  p.ulPhaseQ14 = r.u8() < 240 ? r.range(0, 16384) : r.u32();
  p.eSampling = uint8_t(r.u8() < 240 ? r.range(0, 3) : r.u8());
  p.bConvertFlags = flags;
  p.bOverlay = r.u8() & 1;
  p.ulRefineThreshold = r.u16();
  p.ulSliceCount = r.range(0, 5);
  p.ulSliceNumber = r.range(0, 6);
  p.ulOcclusionThreshold = r.range(0, 20);
  p.ulFallbackThreshold = r.range(0, 300);
  p.ulReserved = r.u8() < 250 ? 0 : r.u32();
  std::vector<uint8_t> field;
  if (r.u8() < 200) {
    const uint32_t bw = r.range(3, 33), bh = r.range(3, 33);
    const uint32_t cols = (w + bw - 1) / bw, rows = (h + bh - 1) / bh, dirs = r.range(1, 2);
    const size_t bytes = 48 + size_t(8) * cols * rows * dirs;
    DSP_VECTOR_FIELD hd = {uint32_t(bytes), w, h, bw, bh, cols, rows, dirs == 2 ? 3u : 1u, 0, 0, 400, 0};
    if (r.u8() < 20) hd.ulFieldBytes = r.u32() % 4096;
    if (r.u8() < 10) hd.ulColumns = r.range(0, 20);
    field.resize(bytes + r.range(0, 16));
    std::memcpy(field.data(), &hd, sizeof hd);
    for (size_t k = 48; k < bytes; ++k) field[k] = r.u8();
  }
  std::unique_ptr<fuzz::PageBuffer> field_mem;
  if (!field.empty()) {
    field_mem = std::make_unique<fuzz::PageBuffer>(field.size(), true, 0);
    std::memcpy(field_mem->data(), field.data(), field.size());
    p.pVectorField = field_mem->data();
    p.ulVectorFieldBytes = uint32_t(r.u8() < 240 ? field.size() : r.range(0, uint32_t(field.size())));
  }
  const DSP_HRESULT hr = DspFrameRateConvert(fuzz::live_converter(mode, 3), &p, 0);
  fuzz::require(hr == DSP_S_OK || hr == DSP_E_INVALIDARG, "status");
  if (hr == DSP_S_OK) {
    const uint32_t count = p.ulSliceCount ? p.ulSliceCount : 1, number = p.ulSliceNumber ? p.ulSliceNumber : 1;
    // FrameB's geometry serves all three frames.
    const uint32_t gw = p.FrameB.ulWidth, gh = p.FrameB.ulHeight, gs = p.FrameB.ulPrimaryStrideBytes;
    const uint32_t y0 = (number - 1) * gh / count, y1 = number * gh / count;
    for (uint32_t pl = 0; pl < planes; ++pl)
      for (uint32_t y = y0; y < y1; ++y) out.allow(int64_t(pl * gh + y) * gs, gw);
  }
  out.check("frame_rate", hr != DSP_S_OK);
  return 0;
}
