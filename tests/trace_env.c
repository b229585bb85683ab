/* Two refused calls through the shared library, for trace_env_test.sh: the statuses must not
 * depend on FRAMEDSP_TRACE; only stderr does. */
#include <stdio.h>
#include <string.h>

#include "framedsp/framedsp.h"

int main(void) {
  unsigned char a[16] = {0}, b[16] = {0}, out[16];
  DSP_COMPARE_PARAMS p;
  DSP_MIPMAP_PARAMS mip;
  memset(out, 0x5A, sizeof out);
  memset(&p, 0, sizeof p);
  memset(&mip, 0, sizeof mip);
  p.BufferA.pBuffer = a;
  p.BufferB.pBuffer = b;
  p.BufferOut.pBuffer = out;
  p.ulWidth = 4;
  p.ulHeight = 1;
  p.ulPrimaryStrideBytes = 16;
  p.ePixelFormat = 22;
  if (DspCompare(&p) != DSP_S_OK || out[0] != 0x5A) return 1;
  if (DspCreateMipMaps((DSP_HANDLE)0, &mip) != DSP_E_HANDLE) return 1;
  printf("statuses as without tracing\n");
  return 0;
}
