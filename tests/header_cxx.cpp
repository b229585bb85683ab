// The public header compiles on its own as C++.
#include "framedsp/framedsp.h"

int framedsp_header_cxx_probe();
int framedsp_header_cxx_probe() {
  DSP_BUFFER b{};
  DSP_HANDLE h = nullptr;
  (void)b;
  (void)h;
  return static_cast<int>(sizeof(DSP_SUBPIXEL_BUFFER));
}
