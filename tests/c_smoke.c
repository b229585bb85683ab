/* Links a C program against the shared library and makes one call of each kind. */
#include <stdio.h>
#include <string.h>

#include "framedsp/framedsp.h"

int main(void) {
  unsigned char a[8] = {10, 20, 30, 40, 50, 60, 70, 80};
  unsigned char b[8] = {10, 20, 30, 40, 50, 60, 70, 80};
  unsigned char out[8];
  DSP_COMPARE_PARAMS p;
  DSP_FRAME_RATE_CONVERTER_PARAMS cp;
  DSP_HANDLE h = 0;
  memset(&p, 0, sizeof p);
  p.BufferA.pBuffer = a;
  p.BufferB.pBuffer = b;
  p.BufferOut.pBuffer = out;
  p.ulWidth = 4;
  p.ulHeight = 1;
  p.ulPrimaryStrideBytes = 8;
  p.ePixelFormat = DSP_PIXEL_FORMAT_UYVY;
  if (DspCompare(&p) != DSP_S_OK || out[0] != 128 || p.dResults[0] != 0.0) {
    fprintf(stderr, "DspCompare failed\n");
    return 1;
  }
  if (DspCompare(NULL) != DSP_E_POINTER) return 1;
  memset(&cp, 0, sizeof cp);
  cp.ulBaseCount = 1;
  cp.lWidth = 720; /* the default search range of 1 must fit in width / 4 */
  cp.lHeight = 576;
  if (DspCreateFrameRateConverter(&cp, &h) != DSP_S_OK || h == 0) {
    fprintf(stderr, "DspCreateFrameRateConverter failed\n");
    return 1;
  }
  if (DspCreateMipMaps((DSP_HANDLE)0, (DSP_MIPMAP_PARAMS *)&p) != DSP_E_HANDLE) return 1;
  printf("c smoke ok\n");
  return 0;
}
