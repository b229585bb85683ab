/* Windows smoke test of framedsp.dll: loads the DLL by name, finds all thirteen exports by their
 * undecorated names (and none by a decorated one), calls a few through __stdcall pointers, and
 * reads the identity counter through the machine-wide named section.  Prints "win smoke ok". */
#include <stdio.h>
#include <string.h>
#include <windows.h>

#include "framedsp/framedsp.h"

typedef DSP_HRESULT(__stdcall *CompareFn)(DSP_COMPARE_PARAMS *);
typedef DSP_HRESULT(__stdcall *CopyFn)(const DSP_BUFFER *);
typedef DSP_HRESULT(__stdcall *CreateFn)(const DSP_FRAME_RATE_CONVERTER_PARAMS *, DSP_HANDLE *);
typedef DSP_HRESULT(__stdcall *MipFn)(DSP_HANDLE, DSP_MIPMAP_PARAMS *);
typedef DSP_HRESULT(__stdcall *ConvertFn)(DSP_HANDLE, DSP_FRAME_RATE_CONVERT_PARAMS *, uint32_t);

static const char *const kExports[13] = {
    "DspBufferSmartCopy", "DspCompare", "DspCreateFrameRateConverter", "DspCreateMipMaps",
    "DspCreateMotionVectors", "DspFilter", "DspFrameRateConvert", "DspNonUniformScaler",
    "DspScaler", "DspScalerHelper", "DspSubPixelFilter", "DspSubPixelScaler",
    "DspSubPixelScalerHelper"};

static int failures = 0;
#define CHECK(cond, what)                          \
  do {                                             \
    if (!(cond)) {                                 \
      fprintf(stderr, "win smoke: %s\n", what);    \
      ++failures;                                  \
    }                                              \
  } while (0)

static unsigned long counter_word(void) {
  unsigned long value = 0;
  HANDLE section =
      OpenFileMappingA(FILE_MAP_READ, FALSE, "Global\\{7F0369A3-6A89-4fa8-AF2E-1F173F606C0C}");
  if (section) {
    const volatile unsigned long *view =
        (const volatile unsigned long *)MapViewOfFile(section, FILE_MAP_READ, 0, 0, 4);
    if (view) {
      value = *view;
      UnmapViewOfFile((LPCVOID)view);
    }
    CloseHandle(section);
  }
  return value;
}

int main(void) {
  HMODULE dll = LoadLibraryA("framedsp.dll");
  int i;
  if (!dll) {
    fprintf(stderr, "win smoke: LoadLibrary failed (%lu)\n", (unsigned long)GetLastError());
    return 1;
  }
  for (i = 0; i < 13; ++i) {
    char decorated[64];
    CHECK(GetProcAddress(dll, kExports[i]) != NULL, kExports[i]);
    snprintf(decorated, sizeof decorated, "_%s@4", kExports[i]);
    CHECK(GetProcAddress(dll, decorated) == NULL, "a decorated name is exported");
  }

  {
    CompareFn compare = (CompareFn)(void (*)(void))GetProcAddress(dll, "DspCompare");
    unsigned char a[16], b[16], out[16];
    DSP_COMPARE_PARAMS p;
    memset(a, 100, sizeof a);
    memcpy(b, a, sizeof b);
    b[3] = 104; /* Y of the second pixel: d = -4 */
    memset(out, 0xEE, sizeof out);
    memset(&p, 0, sizeof p);
    p.BufferA.pBuffer = a;
    p.BufferB.pBuffer = b;
    p.BufferOut.pBuffer = out;
    p.ulWidth = 8;
    p.ulHeight = 1;
    p.ulPrimaryStrideBytes = 16;
    p.ePixelFormat = DSP_PIXEL_FORMAT_UYVY;
    CHECK(compare && compare(&p) == DSP_S_OK, "DspCompare status");
    CHECK(out[3] == 124 && out[0] == 128, "DspCompare difference image");
    CHECK(p.dResults[0] == 2.0, "DspCompare MSE of Y (16 / 8)");
    CHECK(compare && compare(NULL) == DSP_E_POINTER, "DspCompare(NULL)");
  }

  {
    CopyFn copy = (CopyFn)(void (*)(void))GetProcAddress(dll, "DspBufferSmartCopy");
    unsigned char in[16], out[16];
    DSP_BUFFER b;
    for (i = 0; i < 16; ++i) in[i] = (unsigned char)(i * 9);
    memset(out, 0xEE, sizeof out);
    memset(&b, 0, sizeof b);
    b.In.Buffer.pBuffer = in;
    b.In.Buffer.ulBytes = 16;
    b.In.Buffer.Region.ulWidth = 8;
    b.In.Buffer.Region.ulHeight = 1;
    b.In.ulWidth = 8;
    b.In.ulHeight = 1;
    b.In.ulPrimaryStrideBytes = 16;
    b.In.ePixelFormat = DSP_PIXEL_FORMAT_UYVY;
    b.Out = b.In;
    b.Out.Buffer.pBuffer = out;
    CHECK(copy && copy(&b) == DSP_S_OK && memcmp(in, out, 16) == 0, "DspBufferSmartCopy");
  }

  {
    CreateFn create = (CreateFn)(void (*)(void))GetProcAddress(dll, "DspCreateFrameRateConverter");
    MipFn mip = (MipFn)(void (*)(void))GetProcAddress(dll, "DspCreateMipMaps");
    ConvertFn convert = (ConvertFn)(void (*)(void))GetProcAddress(dll, "DspFrameRateConvert");
    DSP_FRAME_RATE_CONVERTER_PARAMS cp;
    DSP_HANDLE h = NULL;
    unsigned long before = counter_word(), after;
    memset(&cp, 0, sizeof cp);
    cp.ulBaseCount = 1;
    cp.lWidth = 720;
    cp.lHeight = 576;
    CHECK(create && create(&cp, &h) == DSP_S_OK && h != NULL, "DspCreateFrameRateConverter");
    after = counter_word();
    CHECK(after != 0 && after != before, "the named section's counter moved");
    CHECK(mip && mip((DSP_HANDLE)0, (DSP_MIPMAP_PARAMS *)&cp) == DSP_E_HANDLE, "null handle");
    CHECK(mip && mip((DSP_HANDLE)(uintptr_t)0xFFFFFFFFu, (DSP_MIPMAP_PARAMS *)&cp) == DSP_E_HANDLE,
          "all-ones handle");
    /* An unreadable address: the guarded self-word read fails instead of faulting. */
    CHECK(mip && mip((DSP_HANDLE)(uintptr_t)0x10, (DSP_MIPMAP_PARAMS *)&cp) == DSP_E_HANDLE,
          "unmapped handle");
    CHECK(convert && convert(h, NULL, 0) == DSP_E_NOTIMPL, "DspFrameRateConvert on a live handle");
    printf("counter %lu -> %lu\n", before, after);
  }

  FreeLibrary(dll);
  if (failures) return 1;
  printf("win smoke ok\n");
  return 0;
}
