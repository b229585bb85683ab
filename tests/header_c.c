/* The public header compiles on its own as strict C99. */
#include "framedsp/framedsp.h"

int framedsp_header_c_probe(void);
int framedsp_header_c_probe(void) {
  DSP_BUFFER b = {0};
  DSP_COMPARE_PARAMS c = {0};
  (void)b;
  (void)c;
  return (int)sizeof(DSP_FRAME_RATE_CONVERT_PARAMS);
}
