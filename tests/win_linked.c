/* A Windows host linked against framedsp.dll through its import library, calling the exports
 * directly as declared in framedsp.h (__stdcall).  Prints "win linked ok". */
#include <stdio.h>
#include <string.h>

#include "framedsp/framedsp.h"

int main(void) {
  DSP_FRAME_RATE_CONVERTER_PARAMS cp;
  DSP_SCALER_HELPER_OUT out;
  DSP_SUBPIXEL_SCALER_HELPER_OUT subpixel_out;
  DSP_HANDLE h = NULL;
  int bad = 0;
  bad |= DspBufferSmartCopy(NULL) != DSP_E_POINTER;
  bad |= DspCompare(NULL) != DSP_E_POINTER;
  bad |= DspFilter(NULL) != DSP_E_POINTER;
  bad |= DspSubPixelFilter(NULL) != DSP_E_POINTER;
  bad |= DspScaler(NULL) != DSP_E_POINTER;
  bad |= DspNonUniformScaler(NULL) != DSP_E_POINTER;
  bad |= DspSubPixelScaler(NULL) != DSP_E_POINTER;
  bad |= DspScalerHelper(NULL, &out) != DSP_E_POINTER;
  bad |= DspSubPixelScalerHelper(NULL, &subpixel_out) != DSP_E_POINTER;
  bad |= DspCreateFrameRateConverter(NULL, &h) != DSP_E_POINTER;
  memset(&cp, 0, sizeof cp);
  cp.ulBaseCount = 1;
  cp.lWidth = 720;
  cp.lHeight = 576;
  bad |= DspCreateFrameRateConverter(&cp, &h) != DSP_S_OK || h == NULL;
  bad |= DspFrameRateConvert((DSP_HANDLE)0, NULL, 0) != DSP_E_HANDLE;
  bad |= DspCreateMotionVectors((DSP_HANDLE)0, &cp) != DSP_E_HANDLE;
  bad |= DspCreateMipMaps((DSP_HANDLE)0, (DSP_MIPMAP_PARAMS *)&cp) != DSP_E_HANDLE;
  bad |= DspCreateMipMaps(h, NULL) != DSP_E_POINTER;
  if (bad) {
    fprintf(stderr, "win linked: a status differs\n");
    return 1;
  }
  printf("win linked ok\n");
  return 0;
}
