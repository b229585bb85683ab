// A C++ host of the installed library: creates a converter, checks a bad handle and a refused
// copy, and filters one UYVY line with a box of 1 (an exact copy).
#include <framedsp/framedsp.h>

#include <cstdio>
#include <cstring>
#include <vector>

int main() {
  DSP_FRAME_RATE_CONVERTER_PARAMS cp{};
  cp.ulBaseCount = 25;
  cp.fRateA = 25.0f;
  cp.fRateB = 50.0f;
  cp.lWidth = 720;
  cp.lHeight = 576;
  DSP_HANDLE converter = nullptr;
  if (DspCreateFrameRateConverter(&cp, &converter) != DSP_S_OK || converter == nullptr) {
    std::fprintf(stderr, "host: converter not created\n");
    return 1;
  }
  if (DspCreateMipMaps(nullptr, reinterpret_cast<DSP_MIPMAP_PARAMS *>(&cp)) != DSP_E_HANDLE) {
    std::fprintf(stderr, "host: null handle accepted\n");
    return 1;
  }
  if (DspBufferSmartCopy(nullptr) != DSP_E_POINTER) return 1;

  std::vector<unsigned char> in(16), out(16, 0xEE);
  for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<unsigned char>(17 * i);
  DSP_BUFFER b{};
  b.In.Buffer.pBuffer = in.data();
  b.In.Buffer.ulBytes = 16;
  b.In.Buffer.Region.ulWidth = 8;
  b.In.Buffer.Region.ulHeight = 1;
  b.In.ulWidth = 8;
  b.In.ulHeight = 1;
  b.In.ulPrimaryStrideBytes = 16;
  b.In.ePixelFormat = DSP_PIXEL_FORMAT_UYVY;
  b.Out = b.In;
  b.Out.Buffer.pBuffer = out.data();
  if (DspBufferSmartCopy(&b) != DSP_S_OK || std::memcmp(in.data(), out.data(), 16) != 0) {
    std::fprintf(stderr, "host: copy differs\n");
    return 1;
  }
  std::printf("host ok\n");
  return 0;
}
