/*
 * framedsp — line-by-line video processing on uncompressed 8-bit frames and fields.
 *
 * This is the whole public interface: thirteen exported functions and the plain records they
 * take.  It is usable from C (C99 or later) and C++; it includes only <stdint.h> and <stddef.h>.
 *
 * Binary interface
 * ----------------
 * The records below are the binary interface shared with the host.  Every record keeps its field
 * order.  32-bit fields are uint32_t (int32_t where signed, float where a 32-bit float), addresses
 * are real pointers, doubles are doubles and 8-bit fields are uint8_t.  Reserved words keep their
 * place and are never written by the library; it reads only those a record documents as "must
 * be 0" (refusing other values, so that they can be given a meaning later).
 *
 * Under a 32-bit (ILP32) compiler every record has the byte offsets of the library's 32-bit
 * Windows ABI, e.g. DSP_BUFFER is 148 bytes with Out at 68 and DSP_SCALER_PARAMS has its
 * DSP_BUFFER at 32 and ulOptions at 180.  On 64-bit (LP64/LLP64) builds the same structs take the
 * natural layout of that ABI (pointers are 8 bytes): DSP_BUFFER is 160 bytes with Out at 72;
 * DSP_SCALER_PARAMS has pSettings at 24, Buffer at 40 and ulOptions at 200.  Both layouts are
 * pinned by compile-time checks in the library's test suite.
 *
 * Records use default C alignment except DSP_SUBPIXEL_BUFFER (with its two descriptors) and
 * DSP_FRAME_RATE_CONVERT_PARAMS, which are byte-packed.
 *
 * Calling convention
 * ------------------
 * On 32-bit Windows every export is __stdcall with an undecorated name (the DLL ships a .def
 * file).  Elsewhere the platform's default convention is used.  The import library of the
 * mingw-w64 build (libframedsp.dll.a) holds the name@bytes symbols that a __stdcall caller
 * compiled against this header references, each importing the plain name.
 *
 * Status values
 * -------------
 * Every export returns a 32-bit HRESULT-compatible status (DSP_HRESULT).  Negative values are
 * failures.  The values are those of Windows (DSP_E_POINTER == E_POINTER and so on).
 *
 * The call frame shared by every export
 * -------------------------------------
 *  1. Required pointer arguments are checked: a null one gives DSP_E_POINTER.
 *  2. The operation's validation step checks the record.  A record that fails validation is
 *     accepted QUIETLY: the export returns DSP_S_OK and does nothing at all (no output byte and no
 *     result field is written).  This quiet success is part of the contract: hosts rely on it.
 *  3. Otherwise the operation runs and its status is returned unchanged.
 *  4. Any C++ exception raised inside the library (an allocation failure included) is turned into
 *     DSP_E_UNEXPECTED.  Processor faults (a bad image address, say) are not caught.
 *
 * Rejection diagnostics: when the environment variable FRAMEDSP_TRACE is set to anything but ""
 * or "0" (read once per process), each refusal prints one line to stderr naming the export and
 * the first failed condition with its values, e.g.
 *   DspFilter: refused: input width 721 is odd for format 21 (4:2:2 formats need even widths)
 * This covers the quiet refusals of step 2, the E_INVALIDARG answers of DspFilter's settings and
 * of DspCreateFrameRateConverter, and the E_HANDLE answers of the handle exports (null, the
 * invalid-handle value, a released or foreign object).  Null pointers (DSP_E_POINTER) print
 * nothing.  Statuses and outputs are the same with and without the variable.
 *
 * The library never writes outside the output region of the output image, never changes the
 * caller's records except the documented result fields, starts no threads, takes no locks and
 * keeps no state between calls other than frame-rate converter objects and one machine-wide
 * identity counter.  All exports are reentrant: a host may run any number of calls at once on
 * different records, and may split one operation over several threads by giving each call a
 * different band of the output (ulSliceCount / ulSliceNumber of DSP_BUFFER).
 *
 * Availability in this release
 * ----------------------------
 * Every export works: DspBufferSmartCopy, DspCompare, DspFilter, DspSubPixelFilter, DspScaler
 * (general, fast and filtered paths), DspNonUniformScaler, DspSubPixelScaler, DspScalerHelper,
 * DspSubPixelScalerHelper, DspCreateMipMaps, DspCreateFrameRateConverter, DspCreateMotionVectors
 * and DspFrameRateConvert.
 */
#ifndef FRAMEDSP_FRAMEDSP_H
#define FRAMEDSP_FRAMEDSP_H

#include <stddef.h>
#include <stdint.h>

/* ---------------------------------------------------------------------------------------------
 * Export and calling-convention macros
 * ------------------------------------------------------------------------------------------- */

#if defined(_WIN32) && !defined(_WIN64)
#define FRAMEDSP_CALL __stdcall
#else
#define FRAMEDSP_CALL
#endif

#if defined(FRAMEDSP_STATIC)
#define FRAMEDSP_API
#elif defined(_WIN32)
#if defined(FRAMEDSP_BUILD)
#define FRAMEDSP_API __declspec(dllexport)
#else
#define FRAMEDSP_API __declspec(dllimport)
#endif
#elif defined(__GNUC__) && __GNUC__ >= 4
#define FRAMEDSP_API __attribute__((visibility("default")))
#else
#define FRAMEDSP_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---------------------------------------------------------------------------------------------
 * Status values
 * ------------------------------------------------------------------------------------------- */

typedef int32_t DSP_HRESULT;

#define DSP_S_OK ((DSP_HRESULT)0)
#define DSP_E_NOTIMPL ((DSP_HRESULT)0x80004001UL)      /* operation not available            */
#define DSP_E_POINTER ((DSP_HRESULT)0x80004003UL)      /* a required pointer is null         */
#define DSP_E_FAIL ((DSP_HRESULT)0x80004005UL)         /* a pass or an inner copy failed     */
#define DSP_E_UNEXPECTED ((DSP_HRESULT)0x8000FFFFUL)   /* an exception escaped the operation */
#define DSP_E_HANDLE ((DSP_HRESULT)0x80070006UL)       /* not a live frame-rate converter    */
#define DSP_E_OUTOFMEMORY ((DSP_HRESULT)0x8007000EUL)  /* work memory or object allocation   */
#define DSP_E_INVALIDARG ((DSP_HRESULT)0x80070057UL)   /* settings refused by an operation   */

#define DSP_SUCCEEDED(hr) (((DSP_HRESULT)(hr)) >= 0)
#define DSP_FAILED(hr) (((DSP_HRESULT)(hr)) < 0)

/* ---------------------------------------------------------------------------------------------
 * Enumerations of the image descriptor
 * ------------------------------------------------------------------------------------------- */

/* eBufferType: what the image memory holds. */
#define DSP_BUFFER_TYPE_FIELD_A 0u /* one field, the first                              */
#define DSP_BUFFER_TYPE_FIELD_B 1u /* one field, the second                             */
#define DSP_BUFFER_TYPE_FRAME 2u   /* a whole frame with both fields                    */

/* eInterlace: how the lines of the two fields lie in the buffer. */
#define DSP_INTERLACE_INTERLEAVED 0u   /* fields interleaved line by line                   */
#define DSP_INTERLACE_INTERLEAVED_1 1u /* the same as 0 for the line geometry               */
#define DSP_INTERLACE_PROGRESSIVE 2u   /* no fields                                         */
#define DSP_INTERLACE_SEPARATE 3u      /* first field in the upper half, second from line
                                          (region height / 2) on                           */

/* eImageOrientation: 1 = stored bottom-up; any other value = top-down.  Region.ptOffset.y is
 * always counted from the top of the picture; the library re-measures it for bottom-up images. */
#define DSP_ORIENTATION_TOP_DOWN 0u
#define DSP_ORIENTATION_BOTTOM_UP 1u

/* eColorSpace of YCbCr formats.  Conversions happen only between 1 and 2, and only for formats
 * with horizontally subsampled chroma. */
#define DSP_COLOR_SPACE_UNSPECIFIED 0u
#define DSP_COLOR_SPACE_BT709 1u
#define DSP_COLOR_SPACE_BT601 2u

/* ePixelFormat: formats are plain numbers.  The table gives, for every number the library knows,
 * bytes per pixel of the main picture (0 = not addressable per pixel), whether widths must be
 * even (horizontally subsampled chroma), the two-plane split and where the format is accepted.
 *
 *   code  bytes  even  planes        copy/filter  compare  memory layout (this release)
 *   0     4      no    -             yes          yes      4 bytes c0 c1 c2 c3 (e.g. B G R A)
 *   1     3      no    -             yes          yes      3 bytes c0 c1 c2    (e.g. B G R)
 *   5     0      no    (1, 261)      yes          yes      format 1 picture, then a key plane
 *   21    2      yes   -             yes          yes      U Y V Y (4:2:2, 8-bit)
 *   22    4      yes   -             yes          no       4:2:2, 16-bit samples
 *   23    6      yes   -             yes          no       16-bit samples, 6 bytes a pixel
 *   24    2      yes   -             yes          no       4:2:2 variant (class 1)
 *   25    2      yes   -             yes          yes      Y U Y V (4:2:2, 8-bit)
 *   27    0      no    (23, 262)     no           no
 *   28    0      yes   (21, 261)     yes          yes      format 21 picture, then a key plane
 *   29    0      yes   (22, 262)     no           no
 *   30    0      yes   (25, 261)     yes          yes      format 25 picture, then a key plane
 *   31    0      yes   -             yes          no       packed, not addressable per pixel
 *   129   8      yes   -             yes          no       16-bit samples, 8 bytes a pixel
 *   261   1      yes   -             yes          yes      one 8-bit key (alpha) sample
 *   262   0      yes   -             yes          no       16-bit key samples
 *   263   0      yes   -             no           no       scaler and mip-map format
 *   2, 3, 4, 16, 18, 64, 259, 260, 513: 2 bytes; 17, 132, 258: 4; 128: 8; 512: 1 — known to the
 *   table but refused by every operation of this release.
 *
 * Two-plane formats (5, 27..30) hold the main picture followed, in the same memory, by a plane in
 * the plane format: the plane starts at pBuffer + ulHeight * ulPrimaryStrideBytes and its lines
 * are ulSecondaryStrideBytes apart.  Formats other than 0, 1, 5 and 27 need even widths (image
 * width and region width of both sides).
 */
#define DSP_PIXEL_FORMAT_BGRA32 0u
#define DSP_PIXEL_FORMAT_BGR24 1u
#define DSP_PIXEL_FORMAT_BGR24_KEY 5u
#define DSP_PIXEL_FORMAT_UYVY 21u
#define DSP_PIXEL_FORMAT_YUYV 25u
#define DSP_PIXEL_FORMAT_UYVY_KEY 28u
#define DSP_PIXEL_FORMAT_YUYV_KEY 30u
#define DSP_PIXEL_FORMAT_KEY8 261u
#define DSP_PIXEL_FORMAT_MIPMAP 263u

/* ---------------------------------------------------------------------------------------------
 * Image descriptor and buffer record
 * ------------------------------------------------------------------------------------------- */

typedef struct DSP_POINT {
  int32_t x; /* left column, in pixels                                */
  int32_t y; /* top line, counted from the top of the picture          */
} DSP_POINT;

typedef struct DSP_REGION {
  DSP_POINT ptOffset; /* top-left corner of the region of interest        */
  uint32_t ulWidth;   /* region width in pixels                           */
  uint32_t ulHeight;  /* region height in lines                           */
} DSP_REGION;

typedef struct DSP_MEMORY {
  void *pBuffer;        /* first byte of the image memory (top row in memory order) */
  uint32_t ulBytes;     /* size of the image memory in bytes                        */
  uint32_t eBufferType; /* DSP_BUFFER_TYPE_*                                        */
  DSP_REGION Region;    /* region of interest                                       */
} DSP_MEMORY;

/* One image: 68 bytes (17 words) on ILP32, 72 on LP64. */
typedef struct DSP_IMAGE {
  DSP_MEMORY Buffer;
  uint32_t ulReserved;             /* never read or written                               */
  uint32_t ulWidth;                /* full image width in pixels                          */
  uint32_t ulHeight;               /* full image height in lines                          */
  uint32_t ePixelFormat;           /* DSP_PIXEL_FORMAT_* / format code                    */
  uint32_t eInterlace;             /* DSP_INTERLACE_*                                     */
  uint32_t eImageOrientation;      /* DSP_ORIENTATION_*                                   */
  uint32_t eColorSpace;            /* DSP_COLOR_SPACE_*                                   */
  uint32_t ulPrimaryStrideBytes;   /* bytes from one line to the next (main picture)      */
  uint32_t ulSecondaryStrideBytes; /* the same for the second plane of two-plane formats  */
  uint32_t ulFlags;                /* per-image flags: carried and dumped, not interpreted */
} DSP_IMAGE;

/* ulFlags of DSP_BUFFER, and the line maps of every line-by-line operation.
 *
 * Lines count from the top of each region in picture order: a bottom-up image is the same
 * picture with its memory order reversed.  Field A is a frame's even lines, field B its odd ones.
 * Frame line of region line j: in a frame of eInterlace 0..2, j; in a frame of eInterlace 3 (field
 * A in the upper h/2 lines, field B from line h/2 on), 2k for line k of the upper half and 2k + 1
 * for line k of the lower; in a field buffer of type t, 2j + t.  Output line j shows the input
 * line whose frame line is (frame line of j) + s, with s from the dominance table, found in the
 * input read as:
 *   field  - a field buffer of type t: line (F - t) / 2; only output lines whose F has parity t
 *            are written, so a field lands on every second frame line (or in its half);
 *   lines  - frame line F is region line F;
 *   halves - even F is line F / 2 of the upper half, odd F line F / 2 of the half from hi / 2 on.
 *
 *   In -> Out          read as                         output lines written
 *   field -> field     line j (flags ignored)          all
 *   field -> frame     field                           parity t; the other one when s != 0
 *   frame -> field A   lines if Out.eInterlace <= 2,   all (note: chosen by Out's eInterlace)
 *                      halves if above
 *   frame -> field B   lines if In.eInterlace < 2 or   all
 *                      Out.eInterlace == 2, else halves
 *   frame -> frame     lines if In 0..2, halves if 3   all; between In 0/1 and Out 0..2, only
 *                                                      field A's (B's) lines when only
 *                                                      DSP_BUFFER_PROCESS_FIELDA (FIELDB) is set
 *   Frame -> frame with an eInterlace above 3, and field -> frame into one above 3, copy nothing.
 *   An input line outside the input image is read from its nearest line (edge lines repeat);
 *   inside the image, lines next to the region are read as they are.
 *
 * Dominance (bits 0..2), for every pair but field -> field:
 *   IN_FIELD2  OUT_FIELD2  SHIFTING_UP   s    the output shows
 *     same       same         any        0    the input in place
 *     differ     differ        1        +1    the picture one frame line higher
 *     differ     differ        0        -1    the picture one frame line lower
 * A one-line shift puts every field on the other field's lines, so the output's fields come in
 * the time order its own dominance bit gives.
 */
#define DSP_BUFFER_IN_FIELD2_DOMINANCE 0x01u      /* input's second field comes first in time */
#define DSP_BUFFER_OUT_FIELD2_DOMINANCE 0x02u     /* the same for the output                  */
#define DSP_BUFFER_DOMINANCE_BY_SHIFTING_UP 0x04u /* change dominance by shifting lines up    */
#define DSP_BUFFER_PROCESS_FIELDA 0x08u           /* process the first field of a frame       */
#define DSP_BUFFER_PROCESS_FIELDB 0x10u           /* process the second field of a frame      */

/* Input and output of one operation: 148 bytes on ILP32 (Out at 68), 160 on LP64 (Out at 72).
 *
 * Bands: band n (counted from 1) of c bands produces the output region lines [(n - 1) * h,
 * n * h), counted from the picture's top whatever the orientation, with h = ho / c (integer
 * division; ho = output region height) rounded down to even when fields are taken apart
 * (frame -> frame from In 0/1, frame -> field A into Out 0/1, frame -> field B from In 0/1).
 * A region reaching past the top or bottom of its image is first cut to the image: ho is the
 * height of what remains, and region lines (for bands and for the field parities of the line
 * map above) count from its first line inside the image.
 * The last band also takes line n * h (lines n * h and n * h + 1 when fields are taken apart)
 * when ho is odd; no band passes Out.ulHeight.  0 in either field is taken as 1.  A band holds
 * the lines of both fields in its range, so bands never overlap, and one band always covers the
 * whole region.  Lines past the last band belong to no band: four bands over 487 progressive
 * lines give 0..120, 121..241, 242..362, 363..484 and leave 485 and 486.  Choose c dividing ho
 * (into an even h when fields are taken apart; for odd ho, ho mod c = 1 also covers everything
 * without fields), or produce the remaining lines with one more call on just those lines. */
typedef struct DSP_BUFFER {
  DSP_IMAGE In;
  DSP_IMAGE Out;
  uint32_t ulSliceCount;  /* number of horizontal bands of the output region; 0 = 1   */
  uint32_t ulSliceNumber; /* the band this call produces, from 1; 0 = 1               */
  uint32_t ulFlags;       /* DSP_BUFFER_* flags                                       */
} DSP_BUFFER;

/* The same with the region given in fractional pixels.  Packed: the doubles are not aligned.
 * Each descriptor is 84 bytes on ILP32; the whole record 172 bytes, Out at 84, ulFlags at 168. */
#pragma pack(push, 1)
typedef struct DSP_SUBPIXEL_POINT {
  double x;
  double y;
} DSP_SUBPIXEL_POINT;

typedef struct DSP_SUBPIXEL_REGION {
  DSP_SUBPIXEL_POINT ptOffset;
  double ulWidth;
  double ulHeight;
} DSP_SUBPIXEL_REGION;

typedef struct DSP_SUBPIXEL_MEMORY {
  void *pBuffer;
  uint32_t ulBytes;
  uint32_t eBufferType;
  DSP_SUBPIXEL_REGION Region;
} DSP_SUBPIXEL_MEMORY;

typedef struct DSP_SUBPIXEL_IMAGE {
  DSP_SUBPIXEL_MEMORY Buffer;
  uint32_t ulReserved;
  uint32_t ulWidth;
  uint32_t ulHeight;
  uint32_t ePixelFormat;
  uint32_t eInterlace;
  uint32_t eImageOrientation;
  uint32_t eColorSpace;
  uint32_t ulPrimaryStrideBytes;
  uint32_t ulSecondaryStrideBytes;
  uint32_t ulFlags;
} DSP_SUBPIXEL_IMAGE;

typedef struct DSP_SUBPIXEL_BUFFER {
  DSP_SUBPIXEL_IMAGE In;
  DSP_SUBPIXEL_IMAGE Out;
  uint32_t ulFlags; /* DSP_BUFFER_* flags */
} DSP_SUBPIXEL_BUFFER;
#pragma pack(pop)

/* ---------------------------------------------------------------------------------------------
 * Filtering: DspFilter and DspSubPixelFilter
 * ------------------------------------------------------------------------------------------- */

#define DSP_FILTER_TYPE_FIR 1u /* settings are DSP_FIR_SETTINGS */
#define DSP_FILTER_TYPE_BOX 2u /* settings are DSP_BOX_SETTINGS */

/* ulOptions of the filter records. */
#define DSP_FILTER_OPTION_TEMP_FRAME 0x01u /* filter into a temporary frame, then copy */

/* FIR low-pass.  Taps 3..15 (even counts use the next lower odd table); a cut-off of 100 turns
 * that direction off, below 100 it is the pass band in percent of Nyquist. */
typedef struct DSP_FIR_SETTINGS {
  uint32_t ulHorzTaps;
  uint32_t ulHorzCutoff;
  uint32_t ulReserved;
  uint32_t ulVertTaps;
  uint32_t ulVertCutoff;
} DSP_FIR_SETTINGS;

/* Box (moving average).  A size of 0 turns that direction off; otherwise up to 256 samples. */
typedef struct DSP_BOX_SETTINGS {
  uint32_t ulHorzSize;
  uint32_t ulReserved;
  uint32_t ulVertSize;
} DSP_BOX_SETTINGS;

/* DspFilter's record.  ILP32: pSettings at 4, Buffer at 12, ulOptions at 168, 172 bytes. */
typedef struct DSP_FILTER_PARAMS {
  uint32_t eFilterType;  /* DSP_FILTER_TYPE_*                                  */
  const void *pSettings; /* DSP_FIR_SETTINGS or DSP_BOX_SETTINGS                */
  uint32_t ulReserved;
  DSP_BUFFER Buffer;
  uint32_t ulReserved2[2];
  uint32_t ulOptions; /* DSP_FILTER_OPTION_*                                    */
} DSP_FILTER_PARAMS;

/* DspSubPixelFilter's record.  ILP32: Buffer at 12, ulOptions at 184, 188 bytes. */
typedef struct DSP_SUBPIXEL_FILTER_PARAMS {
  uint32_t eFilterType;
  const void *pSettings;
  uint32_t ulReserved;
  DSP_SUBPIXEL_BUFFER Buffer;
  uint32_t ulOptions;
} DSP_SUBPIXEL_FILTER_PARAMS;

/* ---------------------------------------------------------------------------------------------
 * Scaling: DspScaler, DspNonUniformScaler, DspSubPixelScaler
 * ------------------------------------------------------------------------------------------- */

#define DSP_SCALER_PATH_GENERAL 0u       /* any value other than 1 and 2                */
#define DSP_SCALER_PATH_INTEGER_RATIO 1u /* integer-ratio horizontal fast path          */
#define DSP_SCALER_PATH_HD_WIDTH 2u      /* HD-width fast path                          */

#define DSP_SCALER_FILTER_NEAREST 0u
#define DSP_SCALER_FILTER_LINEAR 1u
#define DSP_SCALER_FILTER_RESERVED 2u /* every kernel answers DSP_E_NOTIMPL */

/* ulScaleFlags */
#define DSP_SCALE_FLAG_DERIVE_SIZE 0x01u   /* derive the output region size from the factors */
#define DSP_SCALE_FLAG_KERNEL_OPTION 0x04u /* kernel option bit 0 (always on in the general path) */

/* ulOptions of the scaler records (bit 1 is also the frame's choice of worker). */
#define DSP_SCALER_OPTION_STAGED 0x01u   /* scale into a private image, then copy */
#define DSP_SCALER_OPTION_FILTERED 0x02u /* scale and FIR-filter in one pass      */

/* The fixed-ratio fast paths (eScalerPath 1 and 2).  Taken only when their eligibility rule
 * passes (frames on both sides, progressive or interleaved with a field selection, same format);
 * otherwise the general path runs.  What they do where the general path would differ:
 *
 *  - Integer ratios (a quarter, a half, double, four times): both axes are scaled by the ratio of
 *    the region widths; the output region height only has to be within 0.1 of that ratio.  The
 *    nearest kernels keep sample phase 0: output sample j of each component (luma, U, V of the
 *    4:2:2 formats, each byte of a 0/1 pixel, each 261/263 byte) is source sample 2j, 4j, j/2 or
 *    j/4, and output line k is source line 2k, 4k, k/2 or k/4 of its field; this is what the
 *    general nearest kernels give for the same ratio.  The half LINEAR kernel is a 2x2 box:
 *    out = (a + b + c + d + 2) >> 2 over source samples 2j and 2j + 1 of the same component on
 *    source lines 2k and 2k + 1 (a mip-map level, unlike the general linear kernel, which at
 *    exactly one half would pick sample 2j alone).  A source line past the last line of the
 *    region (odd heights, or an output taller than the ratio) repeats the last line of the same
 *    field.  Format 263 is an 8-bit plane (one byte a pixel) for the half and double kernels;
 *    the quarter and quadruple kernels have no routine for it (DSP_E_INVALIDARG).  Linear at a
 *    ratio other than a half is DSP_E_NOTIMPL; an eFilter other than 0 and 1 (2 included) is
 *    DSP_E_FAIL, the path having no kernel to choose.
 *  - HD widths: the kernel fixes the output width (1440 or 960 -> x4/3, 1280 -> x3/2 for 1920 out
 *    or x3/4, 1920 -> x3/4 for 1440 out or x2/3); an output region of any other width is
 *    DSP_E_INVALIDARG.  Per component the phases are 0, 3/4, 3/2, 9/4 (x4/3); 0, 3/4, 5/4 (x3/2);
 *    0, 5/4, 11/4 (x3/4); 0, 3/2 (x2/3) source samples, each the nearest quarter of the exact
 *    position, mixed as a, (3a + b) >> 2, (a + b) >> 1 or (a + 3b) >> 2, truncated.  In the last
 *    group of a line the last output pixel (the last 4-byte word for 21 and 25) repeats the one
 *    before it.  eFilter is not read.  Vertically the lines are picked like the general nearest
 *    kernel does, field by field: output line k of a field takes source line
 *    (k * ((S << 14) / D)) >> 14 of the same field (S, D: the field's source and output lines),
 *    so equal heights copy lines one for one.
 *  - Interleaved frames with DSP_BUFFER_PROCESS_FIELDA / FIELDB scale the selected field(s) into
 *    the same field of the output and leave the other field's lines untouched.  Bands
 *    (ulSliceCount / ulSliceNumber) cut the output as in every other operation.
 *  - Two-plane formats (5, 28, 30) run the main picture and then the plane with the same region,
 *    the plane's lines ulSecondaryStrideBytes apart.  Only the output region is written and only
 *    the input image is read. */
/* DspScaler's record.  ILP32: the filter sub-record at 20, Buffer at 32, ulOptions at 180, 184
 * bytes.  LP64: pSettings at 24, Buffer at 40, ulOptions at 200. */
typedef struct DSP_SCALER_PARAMS {
  uint32_t eScalerPath;   /* DSP_SCALER_PATH_*                                        */
  uint32_t eFilter;       /* DSP_SCALER_FILTER_*                                      */
  float fHorizontalScale; /* output width per input width                             */
  float fVerticalScale;   /* output height per input height, before the field factor  */
  uint32_t ulScaleFlags;  /* DSP_SCALE_FLAG_*                                         */
  uint32_t eFilterType;   /* filtered path only: must be DSP_FILTER_TYPE_FIR          */
  const void *pSettings;  /* filtered path only: DSP_FIR_SETTINGS                     */
  uint32_t ulReserved;
  DSP_BUFFER Buffer;
  uint32_t ulOptions; /* DSP_SCALER_OPTION_*                                            */
} DSP_SCALER_PARAMS;

/* DspNonUniformScaler: DspScaler's regions, fields and bands with a horizontal mapping that need
 * not be uniform.  The panorama (mode 1) fills a wider output (4:3 material on a 16:9 frame, say)
 * keeping a centre band close to the uniform shape and stretching more and more towards the left
 * and right edges, the way televisions and cameras fill wide screens; mode 2 undoes it (a 16:9
 * panorama back to 4:3), mode 0 is the uniform stretch.
 *
 * Where equal steps of the input land (c = 0.2, r = 0.85):
 *   input        +---+---+---+---+---+---+---+---+---+---+---+---+  Wi
 *   mode 0       +----+-----+----+----+-----+----+----+-----+----+----+-----+----+  Wo = k Wi
 *   mode 1       +-------+----+----+----+---+----+----+---+----+----+----+-------+
 *                                         |<-- c Wo -->|
 *                  steps grow outwards     steps r k     steps grow outwards
 *
 * The mapping (modes 1 and 2).  A column x of a region w pixels wide sits at (2x + 1 - w) / w in
 * (-1, 1), the region's edges at -1 and 1 (the centre convention).  Mode 1: output column u reads
 * the input at t = f(u) (source pixel (t + 1) Wi / 2 - 1/2); mode 2: output column t reads the
 * input at u = f^-1(t), so the wide side is mode 1's output and mode 2's input.  With
 * c = ulCentreWidthQ14 / 16384, r = ulCentreScaleQ14 / 16384 and g = 1 / r:
 *     f(u) = g u                                                  |u| <= c
 *     f(u) = g u - sign(u) (g - 1) s^3,   s = (|u| - c) / (1 - c)  |u| >  c
 * f is odd and f(+-1) = +-1, so the region edges meet; its slope is g over the centre band (the
 * centre is scaled by r times the uniform factor Wo / Wi) and changes smoothly (slope and
 * curvature continuous) to gE = g - 3 (g - 1) / (1 - c) at the edges.  With gE <= 0 the mapping
 * would fold the picture: 3 ulCentreScaleQ14 - ulCentreWidthQ14 must exceed 32768 (for example
 * r = 0.85 allows c up to 0.55; r >= 1 allows any c).  r = 1 is the uniform stretch in the centre
 * convention (DspSubPixelScaler's positions for whole regions).
 *
 * Arithmetic.  The centre term g u is exact and rounded once to 1/2^32 pixel; the edge term is
 * evaluated in Q30 (s, s^2, s^3 each rounded once); mode 2 finds f^-1 by bisection over Q30
 * values of u, comparing f(u) with t exactly.  Positions are monotone, mirror-symmetric (a
 * mirrored input gives the mirrored output in the 1-pixel formats; the 4:2:2 formats keep their
 * chroma on the pair's first pixel), sampled at 1/64-pixel phases.  Where the mapping reduces
 * (source pixels per output pixel above 1: mode 2 towards the edges, or an output narrower than
 * the input) every kernel but nearest widens by the local reduction, column by column, so the
 * squeezed edges do not alias.  Taps stop at the input region's edges (edge samples repeat), as
 * in DspScaler.  Vertically every mode is DspScaler's: its fields, runs, bands and line
 * positions (output line k of a run reads line (k * vstep) / 16384 of the same run),
 * with the kernels of eFilter (widened when the lines are reduced) at 1/64-line phases.
 *
 * Mode 0 is DspScaler's geometry exactly.  With eFilter 0 or 1 the call IS DspScaler's general
 * (or, with ulOptions bit 1, filtered) path for this record: the same bytes, speed and work
 * memory.  With eFilter 2 (cubic) and 3 (Lanczos-3), which DspScaler does not have, the engine
 * samples DspScaler's positions (column j of each component at j * hstep / 16384, top-left
 * aligned, exact to 1/16384) with the kernel widened by the reduction.  In any mode a call that
 * scales nothing (equal regions, and in modes 1 and 2 a centre scale of 1) is DspScaler's format
 * copy, or DspFilter's FIR with ulOptions bit 1.
 *
 * Everything else is DspScaler's: the output region size as given (no derived size), the region
 * and room checks, its formats (0, 1, 5, 21..25, 28, 30, 31, 129, 261..263; output format equal;
 * even widths in the 4:2:2 formats), interlace and field-selection rules, BT.601 <-> BT.709
 * conversion of the 4:2:2 formats when the colour spaces differ, two-plane formats (both planes,
 * same geometry), orientation and bands (ulSliceCount / ulSliceNumber, N bands give the bytes of
 * one call).  The filtered worker (ulOptions bit 1) folds the FIR low-pass of pSettings into the
 * weight rows of both directions (modes 1 and 2, and mode 0 with eFilter 2 or 3), checked as
 * DspFilter checks it.  Staged mode (bit 0, not for two-plane formats or format 1) scales
 * through private lines: the same bytes.
 *
 * Statuses: DSP_S_OK; DSP_E_INVALIDARG for an eStretchMode above 2, an eFilter above 3, a centre
 * width of 16384 or more, a centre scale above 65536, a folding pair (above), a non-zero ulReserved,
 * ulOptions bits other than 0 and 1, an empty input region with a non-empty output, region widths
 * above 2^28, a reduction needing more than 96 taps, and every refusal of DspScaler's checks (for
 * those the FRAMEDSP_TRACE line names DspScaler) and of the filtered worker's sub-record;
 * DSP_E_OUTOFMEMORY when work memory cannot be had; DSP_E_FAIL as DspScaler gives it.  Every
 * refusal comes before the first byte is written (the settings are checked in every mode, used
 * or not); work memory is released on every path.
 *
 * ILP32 offsets in brackets; LP64: pSettings at 24, Buffer at 40, ulOptions at 200 (the layout of
 * DSP_SCALER_PARAMS). */
#define DSP_STRETCH_UNIFORM 0u           /* DspScaler's uniform positions                      */
#define DSP_STRETCH_PANORAMA 1u          /* undistorted centre, stretch growing to the edges   */
#define DSP_STRETCH_PANORAMA_INVERSE 2u  /* undoes DSP_STRETCH_PANORAMA of the same settings   */

typedef struct DSP_NONUNIFORM_SCALER_PARAMS {
  uint32_t eStretchMode;     /* [0]  DSP_STRETCH_*, 0..2; default 0 (uniform)                     */
  uint32_t eFilter;          /* [4]  DSP_SUBPIXEL_FILTER_*: nearest, linear, cubic (Catmull-Rom),
                                     Lanczos-3, 0..3; default 0 (nearest)                        */
  uint32_t ulCentreWidthQ14; /* [8]  c: the centre band's width as a fraction of the wide side's
                                     width (mode 1 output, mode 2 input), 0..16383; default 0 (the
                                     step grows from the middle on); typical 3277 (0.2)          */
  uint32_t ulCentreScaleQ14; /* [12] r: the centre's scale relative to the uniform factor,
                                     1..65536; 0 = 16384 (1.0); typical 13926 (0.85)            */
  uint32_t ulReserved;       /* [16] must be 0                                                   */
  uint32_t eFilterType;      /* [20] filtered worker: DSP_FILTER_TYPE_FIR; plain: not read        */
  const void *pSettings;     /* [24] filtered worker: DSP_FIR_SETTINGS (DspFilter's rules); a
                                     cut-off of 100 leaves that direction unfiltered; plain: not
                                     read                                                       */
  uint32_t ulReserved2;      /* [28] not read                                                    */
  DSP_BUFFER Buffer;         /* [32] input and output region as for DspScaler                   */
  uint32_t ulOptions;        /* [180] bit 0 DSP_SCALER_OPTION_STAGED, bit 1 the filtered worker
                                      (DSP_SCALER_OPTION_FILTERED); other bits refused          */
} DSP_NONUNIFORM_SCALER_PARAMS;

/* DspSubPixelScaler: scales the fractional input region onto the fractional output region.
 *
 * Geometry (the centre convention, per axis): output column j reads the source at
 *   s = x_in + (j + 1/2 - x_out) * w_in / w_out - 1/2     (sample i sits at position i)
 * rounded once to 1/2^32 pixel, then to a 1/64-pixel phase.  The output columns whose centre lies
 * inside the output region are written: j = ceil(x_out - 1/2) .. ceil(x_out + w_out - 1/2) - 1,
 * clipped to the output image; rows alike.  In the 4:2:2 formats (21, 22, 24, 25, 28, 30, 31)
 * the unit written is a pixel pair: pair g is written when its centre 2g + 1 lies inside the
 * region (the pixels inside it keep their own positions).  Taps reach past the input region into
 * the rest of the input image; past the image's edge the edge mode decides.  Regions partly or
 * wholly outside their image are clipped (nothing outside the output image is written).
 * Integral, equal regions copy byte for byte; moving the input region by one whole pixel moves
 * the picture by one column.  All arithmetic after the first rounding is integer: every CPU and
 * ISA level, and every band split, gives the same bytes.
 *
 * Kernels (eFilter): nearest, linear (2 taps), cubic (4 taps, Mitchell-Netravali B and C),
 * Lanczos-3 (6 taps); when a direction is reduced by r > 1 every kernel but nearest widens by r,
 * so a reduction does not alias.  Weight rows are Q14 and sum to exactly 16384.
 *
 * Fields (frames of eInterlace 0 or 1, and field buffers).  An interleaved output frame is
 * written field by field, each field from the input field of the same parity (from the whole
 * picture when the input is progressive); DSP_BUFFER_PROCESS_FIELDA / FIELDB in Buffer.ulFlags
 * choose the output fields (neither: both).  A field buffer writes its own lines from the input
 * field of its type (or the whole input picture).  A field into a progressive frame fills every
 * line from that field.  An interleaved frame (eInterlace 0) into a progressive frame is refused;
 * eInterlace 1 into a progressive frame reads the frame as one picture.  eInterlace 3 (fields in
 * halves) is refused.  ulFieldMode 0: every line is placed at its true height in frame lines
 * (line k of field t at frame line 2k + t; a field buffer's region is in field lines, twice as
 * tall in frame lines), so a vertical pan of interlaced video does not bob and a field changes
 * its parity by interpolation.  ulFieldMode 1: each field is a picture of its own (line k at k,
 * an interleaved frame's region halved), as DspScaler treats fields.
 *
 * Formats: 0, 1, 5, 21, 22, 23, 24, 25, 28, 30, 31, 129, 261, 262, 263, the output in the input's
 * format.  16-bit formats keep 16 bits through both passes.  Two-plane formats (5, 28, 30) run
 * the main picture and then the key plane over the same regions (the key plane's written columns
 * are the main picture's).  The 4:2:2 formats need even image widths; region values may be any
 * fraction.  Strides must hold a line of the image.  Subsampled formats convert
 * BT.601 <-> BT.709 when In.eColorSpace and Out.eColorSpace are 1 and 2 (as DspScaler does).
 *
 * Statuses: DSP_S_OK; DSP_E_POINTER for a null image address; DSP_E_INVALIDARG for any setting
 * outside the ranges below, a reserved word or bit that is not 0, a NaN, infinite, negative or
 * zero region size, a region value beyond +-2^28, a format or interlace pair not taken, a
 * band beyond the count, a reduction too strong for the kernel (more than 96 taps after widening
 * and the low-pass), and (filtered worker) a filter sub-record DspFilter would refuse;
 * DSP_E_OUTOFMEMORY when work memory cannot be had.  Every refusal comes before the first byte
 * is written; work memory is released on every path.
 *
 * ILP32 offsets in brackets; LP64: pSettings at 24, Buffer at 36, ulEdgeMode at 216, ulOptions
 * at 292, 296 bytes. */
#define DSP_SUBPIXEL_FILTER_NEAREST 0u
#define DSP_SUBPIXEL_FILTER_LINEAR 1u
#define DSP_SUBPIXEL_FILTER_CUBIC 2u
#define DSP_SUBPIXEL_FILTER_LANCZOS3 3u

#define DSP_SUBPIXEL_EDGE_REPEAT 0u    /* taps past the image read its edge sample              */
#define DSP_SUBPIXEL_EDGE_MIRROR 1u    /* taps past the image read it mirrored (-1 -> 0, -2 -> 1) */
#define DSP_SUBPIXEL_EDGE_FILL 2u      /* taps past the image read ulFillColor                  */
#define DSP_SUBPIXEL_EDGE_UNTOUCHED 3u /* as REPEAT, but output pixels (pairs in 4:2:2) whose
                                          position lies outside the input image are not written */

#define DSP_SUBPIXEL_SITING_COSITED 0u /* 4:2:2 chroma sits on the pair's first pixel          */
#define DSP_SUBPIXEL_SITING_CENTRED 1u /* 4:2:2 chroma sits between the pair's two pixels      */

#define DSP_SUBPIXEL_FIELDS_TRUE_LINES 0u /* fields sampled at their lines in frame coordinates */
#define DSP_SUBPIXEL_FIELDS_SEPARATE 1u   /* each field scaled as a picture of its own          */

typedef struct DSP_SUBPIXEL_SCALER_PARAMS {
  uint32_t eScalerPath;       /* [0]  not read                                                    */
  uint32_t eFilter;           /* [4]  DSP_SUBPIXEL_FILTER_*, 0..3; default 0 (nearest)            */
  float fHorizontalScale;     /* [8]  with DSP_SCALE_FLAG_DERIVE_SIZE: output region width =
                                      input region width x this (kept fractional); must then be
                                      finite and > 0; else not read                               */
  float fVerticalScale;       /* [12] the same for the height (frame lines per frame line)        */
  uint32_t ulScaleFlags;      /* [16] DSP_SCALE_FLAG_DERIVE_SIZE or 0; other bits refused         */
  uint32_t eFilterType;       /* [20] filtered worker: DSP_FILTER_TYPE_FIR; plain: not read        */
  const void *pSettings;      /* [24] filtered worker: DSP_FIR_SETTINGS, whose low-pass rows are
                                      folded into the weight rows, checked as DspFilter checks them
                                      (a cut-off of 100 leaves that direction unfiltered); plain:
                                      not read                                                    */
  uint32_t ulReserved;        /* [28] not read                                                    */
  DSP_SUBPIXEL_BUFFER Buffer; /* [32] regions in fractional pixels and lines                      */
  uint32_t ulEdgeMode;        /* [204] DSP_SUBPIXEL_EDGE_*, 0..3; default 0 (repeat)              */
  uint32_t ulFillColor;       /* [208] DSP_SUBPIXEL_EDGE_FILL: byte k (little-endian) is sample k
                                       of one pixel group in memory order (UYVY black 0x10801080,
                                       BGRA: 0xAARRGGBB); 16-bit samples take byte * 257; key
                                       planes of two-plane formats fill with 0 (transparent)     */
  uint32_t ulCoverage;        /* [212] non-zero: the first and last written column and row are
                                       blended into what the output holds by the Q14 fraction of
                                       them the region covers, so a moving window has no stepping
                                       edge; 0: written whole                                     */
  uint32_t ulAntiRingingQ8;   /* [216] 0..256; each result moves this far (in 1/256) towards the
                                       range of its two central source samples (256: stays inside
                                       its 2x2 neighbourhood); 0 = off                            */
  uint32_t ulChromaSiting;    /* [220] DSP_SUBPIXEL_SITING_*, 0..1; 4:2:2 formats only           */
  uint32_t ulFieldMode;       /* [224] DSP_SUBPIXEL_FIELDS_*, 0..1; default 0 (true lines)       */
  uint32_t ulCubicBQ14;       /* [228] cubic B, 0..16384 (1.0); both B and C 0: Catmull-Rom      */
  uint32_t ulCubicCQ14;       /* [232] cubic C, 0..16384; with B = 0 and C = 0 the kernel is
                                       Catmull-Rom (B 0, C 8192); otherwise taken as given       */
  uint32_t ulSliceCount;      /* [236] bands of the written lines; 0 = 1                         */
  uint32_t ulSliceNumber;     /* [240] the band this call writes, 1..count; 0 = 1.  Band n of c
                                       writes lines [L(n-1)/c, Ln/c) of the L written frame lines
                                       (integer division): the bands cover every line once     */
  uint32_t ulReserved2[9];    /* [244] must be 0                                                 */
  uint32_t ulOptions;         /* [280] bit 0 DSP_SCALER_OPTION_STAGED (scale into private work
                                       lines, then copy: the same bytes); bit 1 the filtered
                                       worker; other bits refused                                */
} DSP_SUBPIXEL_SCALER_PARAMS;

/* ---------------------------------------------------------------------------------------------
 * DspScalerHelper: sizes and factors that keep a picture's aspect ratio
 * ------------------------------------------------------------------------------------------- */

#define DSP_SCALER_HELPER_FIT_WIDTH 0x01u /* fit to the destination width (bit 1 clear)  */
#define DSP_SCALER_HELPER_FILL 0x02u      /* fill the destination, cropping the source   */
/* neither bit: fit to the destination height */

typedef struct DSP_SCALER_HELPER_IN {
  uint32_t ulSrcAspectNumerator;   /* picture aspect of the source, e.g. 4 of 4:3 */
  uint32_t ulSrcAspectDenominator; /* e.g. 3 of 4:3                                */
  uint32_t ulSrcWidth;
  uint32_t ulSrcHeight;
  uint32_t ulSrcRegionWidth;  /* 0 = ulSrcWidth  */
  uint32_t ulSrcRegionHeight; /* 0 = ulSrcHeight */
  uint32_t ulReserved1;
  uint32_t ulDstAspectNumerator;
  uint32_t ulDstAspectDenominator;
  uint32_t ulDstWidth;
  uint32_t ulDstHeight;
  uint32_t ulDstRegionWidth;  /* 0 = ulDstWidth  */
  uint32_t ulDstRegionHeight; /* 0 = ulDstHeight */
  uint32_t ulReserved2;
  uint32_t ulFlags; /* DSP_SCALER_HELPER_* */
} DSP_SCALER_HELPER_IN;

typedef struct DSP_SCALER_HELPER_OUT {
  uint32_t ulWidth;       /* fill: width of the source part to use; fit: output width   */
  uint32_t ulHeight;      /* fill: height of the source part to use; fit: output height */
  float fHorizontalScale; /* copy into DSP_SCALER_PARAMS.fHorizontalScale               */
  float fVerticalScale;   /* copy into DSP_SCALER_PARAMS.fVerticalScale                 */
} DSP_SCALER_HELPER_OUT;

/* ---------------------------------------------------------------------------------------------
 * DspSubPixelScalerHelper: fractional rectangles, and a zoom and pan between two views
 * ------------------------------------------------------------------------------------------- */

/* ulModeFlags.  Bits 0 and 1 choose the mapping as in DspScalerHelper (fill wins over fit to
 * width; neither: fit to the height); bits 2 and 3 are independent; other bits are refused. */
#define DSP_SUBPIXEL_SCALER_HELPER_FIT_WIDTH 0x01u   /* fit to the destination width            */
#define DSP_SUBPIXEL_SCALER_HELPER_FILL 0x02u        /* fill the destination, cropping the source */
#define DSP_SUBPIXEL_SCALER_HELPER_KEEP_INSIDE 0x04u /* slide the view back inside the source   */
#define DSP_SUBPIXEL_SCALER_HELPER_CENTRE 0x08u      /* centre the fitted destination rectangle */

/* ulEase: how the phase runs between the two views. */
#define DSP_SUBPIXEL_SCALER_HELPER_EASE_LINEAR 0u     /* s = t                                  */
#define DSP_SUBPIXEL_SCALER_HELPER_EASE_SMOOTHSTEP 1u /* s = 3t^2 - 2t^3: starts and stops gently */

/* One view of the source: how far it is zoomed in and where its centre lies.  12 bytes. */
typedef struct DSP_SUBPIXEL_VIEW {
  uint32_t ulZoomQ14;  /* zoom, 16384 (1.0: the whole base rectangle) .. 0xFFFFFFFF (just under
                          262144); below 16384 refused.  The view is the base source rectangle
                          shrunk by this factor about its centre.                               */
  int32_t lCentreXQ14; /* centre of the view minus the middle of the source, in source widths,
                          -8192 .. 8192 (-1/2 .. 1/2: the left .. right edge); 0 = the middle   */
  int32_t lCentreYQ14; /* the same downwards, in source heights                                 */
} DSP_SUBPIXEL_VIEW;

/* DspSubPixelScalerHelper's input, 80 bytes of 32-bit words on every ABI (offsets in brackets). */
typedef struct DSP_SUBPIXEL_SCALER_HELPER_IN {
  uint32_t ulSrcAspectNumerator;   /* [0]  picture aspect of the source, e.g. 4 of 4:3; >= 1  */
  uint32_t ulSrcAspectDenominator; /* [4]  e.g. 3 of 4:3; >= 1                               */
  uint32_t ulDstAspectNumerator;   /* [8]  picture aspect of the destination; >= 1           */
  uint32_t ulDstAspectDenominator; /* [12] >= 1                                              */
  uint32_t ulSrcWidth;             /* [16] source image in pixels; >= 1                       */
  uint32_t ulSrcHeight;            /* [20] >= 1                                              */
  uint32_t ulDstWidth;             /* [24] destination image in pixels; >= 1                  */
  uint32_t ulDstHeight;            /* [28] >= 1                                              */
  uint32_t ulModeFlags;            /* [32] DSP_SUBPIXEL_SCALER_HELPER_*; 0 = fit to the height */
  DSP_SUBPIXEL_VIEW ViewA;         /* [36] the view at phase 0                               */
  DSP_SUBPIXEL_VIEW ViewB;         /* [48] the view at phase 16384                           */
  uint32_t ulPhaseQ14;             /* [60] 0 (view A) .. 16384 (view B)                      */
  uint32_t ulEase;                 /* [64] DSP_SUBPIXEL_SCALER_HELPER_EASE_*; 0 = linear       */
  uint32_t ulReserved[3];          /* [68] must be 0                                         */
} DSP_SUBPIXEL_SCALER_HELPER_IN;

/* DspSubPixelScalerHelper's result, 72 bytes on every ABI: the doubles first, then the floats. */
typedef struct DSP_SUBPIXEL_SCALER_HELPER_OUT {
  double dSrcX;           /* [0]  source rectangle: In.Buffer.Region of DSP_SUBPIXEL_BUFFER      */
  double dSrcY;           /* [8]                                                              */
  double dSrcWidth;       /* [16]                                                             */
  double dSrcHeight;      /* [24]                                                             */
  double dDstX;           /* [32] destination rectangle: Out.Buffer.Region                     */
  double dDstY;           /* [40]                                                             */
  double dDstWidth;       /* [48]                                                             */
  double dDstHeight;      /* [56]                                                             */
  float fHorizontalScale; /* [64] dDstWidth / dSrcWidth                                       */
  float fVerticalScale;   /* [68] dDstHeight / dSrcHeight                                     */
} DSP_SUBPIXEL_SCALER_HELPER_OUT;

/* ---------------------------------------------------------------------------------------------
 * DspCreateMipMaps
 * ------------------------------------------------------------------------------------------- */

#define DSP_MIPMAP_MAX_LEVELS 5u

typedef struct DSP_MIPMAP_LEVELS {
  uint32_t ulCount; /* number of levels that follow, below 6 */
  DSP_IMAGE Levels[DSP_MIPMAP_MAX_LEVELS];
} DSP_MIPMAP_LEVELS;

typedef struct DSP_MIPMAP_PARAMS {
  DSP_IMAGE Base;            /* base image: pBuffer non-null, format 263            */
  DSP_MIPMAP_LEVELS *pLevels; /* the pyramid, level 0 first                          */
  uint32_t eFilter;          /* DSP_SCALER_FILTER_*, handed to every level          */
} DSP_MIPMAP_PARAMS;

/* ---------------------------------------------------------------------------------------------
 * DspCompare
 * ------------------------------------------------------------------------------------------- */

typedef struct DSP_COMPARE_BUFFER {
  void *pBuffer;     /* first byte                                  */
  uint32_t ulBytes;  /* size of the buffer; not checked             */
  uint32_t reserved; /* not read                                    */
} DSP_COMPARE_BUFFER;

/* DspCompare's record, 38 words on ILP32 (ePixelFormat at 72, dResults at 80).  The operation
 * copies the whole record for two-plane formats, so a host must always supply all of it.
 *
 * Formats and channels (a result slot the format has no channel for is left untouched):
 *   0    4 bytes c0 c1 c2 c3          channels 0..3
 *   1    3 bytes c0 c1 c2             channels 0..2
 *   21   U Y V Y                      0 = Y (odd bytes), 1 = U (byte 0), 2 = V (byte 2)
 *   25   Y U Y V                      0 = Y (even bytes), 1 = U (byte 1), 2 = V (byte 3)
 *   261  key                          channel 3
 *   5, 28, 30: the picture as 1, 21, 25 and channel 3 from the key plane at
 *              pBuffer + ulPrimaryStrideBytes * ulHeight, lines ulSecondaryStrideBytes apart.
 * Any other format is refused quietly (DSP_S_OK, nothing written).
 *
 * For each byte d = a - b; the difference image gets d + 128 clamped to 0..255.
 * dResults[c] = MSE(c) = sum(d * d) / N with N = pixels (width * height; the 4:2:2 chroma
 * channels, which have half as many samples, are still divided by the full pixel count; for 261,
 * N = bytes per line * height), and dResults[c + 4] = PSNR(c) =
 * 20 * log10(255 / sqrt(MSE(c) + 0.00001)) dB, about 98.13 dB for identical images.  A zero
 * width or height gives 0 / 0 (NaN MSE); no check is made of sizes or strides. */
typedef struct DSP_COMPARE_PARAMS {
  DSP_COMPARE_BUFFER BufferA;
  DSP_COMPARE_BUFFER BufferB;
  DSP_COMPARE_BUFFER BufferOut; /* difference image, written */
  uint32_t ulWidth;
  uint32_t ulHeight;
  uint32_t ulImageBytes; /* not read */
  uint32_t ulPrimaryStrideBytes;   /* one stride for A, B and the output            */
  uint32_t ulSecondaryStrideBytes; /* stride of the key plane of formats 5, 28, 30  */
  uint32_t ulReserved1[4];
  uint32_t ePixelFormat;
  uint32_t ulReserved2;
  double dResults[8]; /* 0..3 MSE of channels 0..3, 4..7 PSNR of channels 0..3 (written) */
  uint32_t ulReserved3[2];
} DSP_COMPARE_PARAMS;

/* ---------------------------------------------------------------------------------------------
 * Frame-rate converter
 * ------------------------------------------------------------------------------------------- */

/* A handle is the address of a live library object.  Handles are checked on every use: 0, the
 * all-ones value, unmapped addresses, foreign blocks and released objects give DSP_E_HANDLE. */
typedef void *DSP_HANDLE;

/* Creation record, 48 words (192 bytes, no pointers: the same layout everywhere).  A word given
 * as 0 takes the default shown.  All five entries of each per-level array are defaulted and
 * checked whatever ulLevels says.  Words marked reserved are carried into the object unchecked.
 * Words 11..39 are the block-search settings; DSP_MOTION_VECTORS_PARAMS carries the same words
 * with the same defaults and bounds, and says what they mean for the search. */
typedef struct DSP_FRAME_RATE_CONVERTER_PARAMS {
  uint32_t ulBaseCount;     /* w0:  must be non-zero                                        */
  uint32_t ulDerivedCount;  /* w1:  with bDeriveCount: must be non-zero, then replaced by
                                    (ulBaseCount * trunc(16384 * fRateB / fRateA)) >> 14    */
  uint32_t ulReserved2;     /* w2                                                           */
  float fRateA;             /* w3                                                           */
  float fRateB;             /* w4                                                           */
  uint32_t ulReserved5[2];  /* w5, w6                                                       */
  int32_t lWidth;           /* w7:  bounds ulLevelRangeX (at most lWidth / 4)               */
  int32_t lHeight;          /* w8:  bounds ulLevelRangeY (at most lHeight / 4)              */
  uint32_t ulReserved9;     /* w9                                                           */
  uint32_t eConvertMode;    /* w10: DSP_CONVERT_MODE_*; read by DspFrameRateConvert (values
                                    above 2 make every conversion DSP_E_INVALIDARG)         */
  uint32_t ulLevels;        /* w11: at most 5                                               */
  uint32_t ulLevelThreshold[5]; /* w12..16: default 8, at most 255                          */
  uint32_t ulReserved17;        /* w17                                                      */
  uint32_t ulLevelBlockA[5];    /* w18..22: default 16, 8..32                               */
  uint32_t ulLevelBlockB[5];    /* w23..27: default 16, 8..32                               */
  uint32_t ulBlockA;            /* w28: default 16, 8..32                                   */
  uint32_t ulBlockB;            /* w29: default 16, 8..32                                   */
  uint32_t ulLevelRangeX[5];    /* w30..34: default 1                                       */
  uint32_t ulLevelRangeY[5];    /* w35..39: default 1                                       */
  uint32_t ulReserved40[7];     /* w40..46                                                  */
  uint8_t bReserved47[2];       /* w47 bytes 0, 1                                           */
  uint8_t bDeriveCount;         /* w47 byte 2: derive ulDerivedCount from the rates         */
  uint8_t bReserved47b;         /* w47 byte 3                                               */
} DSP_FRAME_RATE_CONVERTER_PARAMS;

/* eConvertMode (creation word 10): how the converter makes a frame between two sources. */
#define DSP_CONVERT_MODE_MOTION 0u  /* motion-compensated (default)                          */
#define DSP_CONVERT_MODE_BLEND 1u   /* (wA a + wB b + 8192) >> 14 per byte, no motion          */
#define DSP_CONVERT_MODE_NEAREST 2u /* the nearer source: A below phase 8192, B from it on     */

/* bConvertFlags bits. */
#define DSP_CONVERT_REFINE 0x01u       /* search blocks whose usCost exceeds ulRefineThreshold
                                          again at full resolution before converting          */
#define DSP_CONVERT_PLAIN_PLANE2 0x02u /* plane 2 is a plain picture moved like the luma, not
                                          NV16 chroma (Cb Cr pairs at half horizontal
                                          resolution, moved by (vx / 2, vy))                  */
#define DSP_CONVERT_LUMA_ONLY 0x04u    /* plane 1 only: plane 2 is neither read nor written   */
#define DSP_CONVERT_NO_OCCLUSION 0x08u /* no covered / uncovered handling: at object
                                          boundaries every pixel takes the vector whose two
                                          sides differ least and blends both sides            */

/* eSampling: the motion-compensation filter, sampling at 1/64 pixel. */
#define DSP_SAMPLING_6TAP 0u     /* Lanczos-3, 6 taps (default)                              */
#define DSP_SAMPLING_4TAP 1u     /* cubic (Catmull-Rom), 4 taps                              */
#define DSP_SAMPLING_BILINEAR 2u /* 2 taps                                                   */
#define DSP_SAMPLING_NEAREST 3u  /* the nearest whole sample                                 */

#define DSP_CONVERT_DEFAULT_OCCLUSION_THRESHOLD 4u /* ulOcclusionThreshold 0, quarter pixels  */
#define DSP_CONVERT_DEFAULT_FALLBACK_THRESHOLD 130u /* ulFallbackThreshold 0, in 1/256        */

/* Conversion record, byte-packed: 243 bytes on ILP32 (pVectorField at 204, ulPhaseQ14 at 208,
 * ulVectorFieldBytes at 212, ulRefineThreshold at 216, bConvertFlags at 220, bOverlay at 221,
 * ulSliceCount at 222, ulSliceNumber at 226, ulOcclusionThreshold at 230, ulFallbackThreshold at
 * 234, eSampling at 238, ulReserved at 239); 259 bytes on LP64 (every field after pVectorField
 * 12 bytes further on).  See DspFrameRateConvert for what each field means. */
#pragma pack(push, 1)
typedef struct DSP_FRAME_RATE_CONVERT_PARAMS {
  DSP_IMAGE FrameA;              /* first source, weighted by 16384 - ulPhaseQ14             */
  DSP_IMAGE FrameB;              /* second source, weighted by ulPhaseQ14; its geometry
                                    serves all three frames                                 */
  DSP_IMAGE FrameOut;            /* the frame produced                                      */
  void *pVectorField;            /* a vector field of DspCreateMotionVectors from A to B, or
                                    NULL: the converter estimates one itself                */
  uint32_t ulPhaseQ14;           /* 0..16384: the output's time between A (0) and B (16384) */
  uint32_t ulVectorFieldBytes;   /* readable bytes at pVectorField (ignored when NULL)      */
  uint32_t ulRefineThreshold;    /* with DSP_CONVERT_REFINE: usCost above this is refined   */
  uint8_t bConvertFlags;         /* DSP_CONVERT_*                                           */
  uint8_t bOverlay;              /* non-zero: draw each block's vector into plane 1         */
  uint32_t ulSliceCount;         /* bands of the output; 0 = 1                              */
  uint32_t ulSliceNumber;        /* the band produced, from 1; 0 = 1                        */
  uint32_t ulOcclusionThreshold; /* quarter pixels; 0 = 4: vectors further apart are
                                    different motions (object boundaries)                   */
  uint32_t ulFallbackThreshold;  /* bad blocks in 1/256 above which the pair is blended;
                                    0 = 130                                                 */
  uint8_t eSampling;             /* DSP_SAMPLING_*                                          */
  uint32_t ulReserved;           /* must be 0                                               */
} DSP_FRAME_RATE_CONVERT_PARAMS;
#pragma pack(pop)

/* ---------------------------------------------------------------------------------------------
 * DspCreateMotionVectors: block motion vectors between two mip-map pyramids
 * ------------------------------------------------------------------------------------------- */

/* ulMotionFlags of DSP_MOTION_VECTORS_PARAMS (other bits are ignored). */
#define DSP_MOTION_FORWARD_ONLY 0x01u /* estimate A -> B only; no backward entries            */
#define DSP_MOTION_WHOLE_PIXEL 0x02u  /* no half- and quarter-pixel refinement                */
#define DSP_MOTION_NO_GLOBAL 0x04u    /* no global candidate                                  */
#define DSP_MOTION_NO_SPLIT 0x08u     /* no split stage: each final block keeps the vector of
                                         the level-0 search block under its centre            */

#define DSP_MOTION_DEFAULT_LAMBDA 24u           /* ulLambda 0 */
#define DSP_MOTION_DEFAULT_SCENE_THRESHOLD 400u /* ulSceneThreshold 0 */

/* DspCreateMotionVectors's record: 160 bytes on ILP32 (the search settings at 32..147, in the
 * order of words 11..39 of DSP_FRAME_RATE_CONVERTER_PARAMS), 184 on LP64 (pPriorField at 32,
 * ulLevels at 52, ulReserved at 168).
 *
 * The search settings have the converter's defaults and bounds, applied by one routine shared
 * with DspCreateFrameRateConverter, with lWidth and lHeight taken as the width and height of
 * level 0: a 0 selects the default (thresholds 8, block sizes 16, ranges 1); ulLevels at most 5;
 * blocks 8..32; thresholds at most 255; ulLevelRangeX[k] at most width / 4, ulLevelRangeY[k] at
 * most height / 4.  All five entries of each array are defaulted and checked whatever ulLevels
 * says.  What they mean for the search (the same for the converter's own estimation):
 *
 *   ulLevels             pyramid levels searched, 1..the lists' count; 0 = all of them.  The
 *                        search runs from level ulLevels - 1 (the coarsest) down to level 0.
 *   ulLevelBlockA/B[k]   width / height of the search blocks at level k, in level-k pixels.  The
 *                        blocks tile the level from its top-left corner; the last column and row
 *                        may be partial (their costs are scaled to 64 pixels).
 *   ulBlockA/B           width / height of the blocks of the field (the final blocks), at level
 *                        0.  16x8 suits fields; 8x8 gives fine boundaries.
 *   ulLevelRangeX/Y[k]   the search window at level k: at most +-RangeX[k] x +-RangeY[k] level-k
 *                        pixels around the best predicted vector.
 *   ulLevelThreshold[k]  when the best predicted vector of a block at level k matches with a mean
 *                        absolute difference above this (grey levels per pixel), the whole
 *                        window is searched exhaustively; otherwise a small diamond walks
 *                        downhill inside it.
 *
 * Reach: no vector is longer than reachX = sum over the searched levels k of RangeX[k] * 2^k
 * pixels horizontally (reachY alike; both at most 8191, the range of an entry's quarter pixels)
 * -- vectors are clipped to that box at every level, so motion
 * beyond it cannot be matched and shows up as high costs (DSP_MV_BAD) rather than as a wrong
 * vector passed off as good.  The defaults give 1 + 2 + 4 + 8 = 15 pixels with 4 levels and 31
 * with 5.  To reach 48 pixels per frame pair use 4 levels with RangeX = RangeY = {2, 2, 4, 4}
 * (level 0 first: 2 + 4 + 16 + 32 = 54 pixels; the exhaustive windows of the coarse levels are
 * then 9x9 at 1/8 and 1/4 resolution), or 5 levels with ranges of 2 (62 pixels).  Ranges are
 * bounded by the picture (width / 4), so small pictures have small reaches. */
typedef struct DSP_MOTION_VECTORS_PARAMS {
  const DSP_MIPMAP_LEVELS *pLevelsA; /* pyramid of frame A (DspCreateMipMaps), level 0 first  */
  const DSP_MIPMAP_LEVELS *pLevelsB; /* pyramid of frame B, the same geometry                  */
  void *pVectorField;                /* the field written: header then entries                */
  uint32_t ulVectorFieldBytes;       /* size of that buffer                                   */
  const void *pPriorField;           /* the previous pair's field (temporal candidates), or
                                        NULL; may be pVectorField itself                       */
  uint32_t ulMotionFlags;            /* DSP_MOTION_*                                          */
  uint32_t ulLambda;                 /* smoothness weight; 0 = DSP_MOTION_DEFAULT_LAMBDA      */
  uint32_t ulSceneThreshold;         /* cost above which a block is bad; 0 = 400              */
  uint32_t ulLevels;                 /* the search settings (converter words 11..39)          */
  uint32_t ulLevelThreshold[5];
  uint32_t ulReserved17;             /* not read (converter word 17)                          */
  uint32_t ulLevelBlockA[5];
  uint32_t ulLevelBlockB[5];
  uint32_t ulBlockA;
  uint32_t ulBlockB;
  uint32_t ulLevelRangeX[5];
  uint32_t ulLevelRangeY[5];
  uint32_t ulReserved[3];            /* must be 0                                             */
} DSP_MOTION_VECTORS_PARAMS;

/* ulFieldFlags of the field header. */
#define DSP_VECTOR_FIELD_FORWARD 0x01u     /* forward entries present (always)                */
#define DSP_VECTOR_FIELD_BACKWARD 0x02u    /* backward entries follow the forward ones        */
#define DSP_VECTOR_FIELD_WHOLE_PIXEL 0x04u /* every vector is a whole number of pixels        */

/* The field header, 48 bytes (no pointers: the same layout everywhere). */
typedef struct DSP_VECTOR_FIELD {
  uint32_t ulFieldBytes;     /* bytes written: 48 + 8 x entries                               */
  uint32_t ulWidth;          /* level 0 width and height, pixels                              */
  uint32_t ulHeight;
  uint32_t ulBlockWidth;     /* final block size (ulBlockA x ulBlockB)                        */
  uint32_t ulBlockHeight;
  uint32_t ulColumns;        /* ceil(ulWidth / ulBlockWidth)                                  */
  uint32_t ulRows;           /* ceil(ulHeight / ulBlockHeight)                                */
  uint32_t ulFieldFlags;     /* DSP_VECTOR_FIELD_*                                            */
  uint32_t ulBadForward;     /* forward entries flagged DSP_MV_BAD                            */
  uint32_t ulBadBackward;    /* backward entries flagged DSP_MV_BAD (0 without them)          */
  uint32_t ulSceneThreshold; /* the threshold used (after the default)                        */
  uint32_t ulReserved;       /* written as 0                                                  */
} DSP_VECTOR_FIELD;

/* usFlags of an entry. */
#define DSP_MV_BAD 0x01u          /* usCost above the scene threshold: no trustworthy match     */
#define DSP_MV_INCONSISTENT 0x02u /* the other direction's vector at the block's destination
                                     differs from the negated vector by more than one pixel in
                                     x or y (uncovered or covered area, or a wrong match)      */
#define DSP_MV_OUTSIDE 0x04u      /* the matched block reaches outside the picture (edge
                                     samples repeated)                                         */
#define DSP_MV_FLAT 0x08u         /* the block has almost no detail (mean absolute difference
                                     to its right and lower neighbours below 2): its content
                                     does not determine its vector (others match it about as
                                     well), which follows its neighbours or the picture's
                                     motion instead; the accuracy stated for
                                     DspCreateMotionVectors does not cover such blocks        */
#define DSP_MV_REFINED 0x10u      /* the block's level-0 prediction failed the threshold and
                                     the exhaustive search placed it                           */

/* One entry, 8 bytes.  Row-major over the final blocks: all forward entries, then (with
 * DSP_VECTOR_FIELD_BACKWARD) all backward entries in the same order. */
typedef struct DSP_MOTION_VECTOR {
  int16_t sX;       /* quarter pixels: the block at p in A matches p + v in B (forward); the
                       block at p in B matches p + v in A (backward)                           */
  int16_t sY;
  uint16_t usCost;  /* SAD of the match per 64 pixels, saturated at 65535 (fractional vectors:
                       against interpolated samples, see DspCreateMotionVectors)               */
  uint16_t usFlags; /* DSP_MV_*                                                                 */
} DSP_MOTION_VECTOR;

#define DSP_VECTOR_FIELD_HEADER_BYTES 48u

/* Bytes of a field with both directions for a w x h level 0 and bw x bh final blocks (about
 * 230 KB at 1280x720 with 8x8 blocks).  A forward-only field needs 48 + 8 x columns x rows. */
#define DSP_VECTOR_FIELD_BYTES(w, h, bw, bh) \
  (DSP_VECTOR_FIELD_HEADER_BYTES + 16u * (((w) + (bw) - 1u) / (bw)) * (((h) + (bh) - 1u) / (bh)))

/* ---------------------------------------------------------------------------------------------
 * Exports
 * ------------------------------------------------------------------------------------------- */

/* Copies the input region into the output region in the same pixel format, between frames and
 * fields, orientations and field dominances, optionally converting BT.601 <-> BT.709.
 *
 * Statuses: E_POINTER for a null record; S_OK without work when the record is refused (input
 * format not one of 0, 1, 5, 21..25, 28, 30, 31, 129, 261, 262; output format different; a frame
 * with interleaved fields into a progressive frame; odd widths in a subsampled format); S_OK
 * after the copy; E_FAIL when a pass fails (the only cause in this release: the work line of the
 * converting pass cannot be had, which is reported as E_FAIL, not E_OUTOFMEMORY).  After E_FAIL
 * the output may hold the lines already written; of a two-plane format whose picture failed, the
 * plane is left untouched.
 *
 * Lines: the line geometry (which source line feeds which output line, fields, dominance, bands)
 * is that of the buffer record above.  Each output line receives the region width in bytes
 * (bytes per pixel x region width, clipped to each side's stride; formats 21 and 25 round left
 * edges down to an even pixel), read from the source line at the input region's left edge.  When
 * the two clipped widths differ, the narrower one is moved and the rest of a wider output line is
 * left as it was, so nothing right of the input region is ever read.  Source and output may lie in the same memory and overlap; every line
 * then behaves as memmove.  A source that runs out of lines repeats its last line (its first
 * line in memory order when bottom-up), so no line outside the input image is read.  Bottom-up
 * sides (eImageOrientation 1) still give Region.ptOffset.y from the top of the picture.
 *
 * Two-plane formats (5, 28, 30): the picture in the main format, then the plane in the plane
 * format at pBuffer + ulHeight * ulPrimaryStrideBytes with ulSecondaryStrideBytes per line, each
 * side by its own strides.
 *
 * Colour: when In.eColorSpace differs from Out.eColorSpace and the format is horizontally
 * subsampled, lines go through the converting pass: BT.601 -> BT.709 or BT.709 -> BT.601 for the
 * pairs (2, 1) and (1, 2), an unchanged copy for any other pair (0 = unspecified).  Only 8-bit
 * 4:2:2 pictures are converted: U Y V Y (21 and the picture of 28; 24 uses the same layout) and
 * Y U Y V (25 and the picture of 30).  Key planes (261, and the plane of 28 and 30), 16-bit key
 * samples (262) and the formats whose samples are not 8-bit 4:2:2 (22, 23, 31, 129) pass through
 * the converting pass unchanged: a chroma matrix applied to alpha or to 16-bit samples would
 * corrupt them, and a 4:2:2 line kernel would read past their lines.  Full-chroma formats (0, 1,
 * 5) are never converted.  Arithmetic, per pixel pair with cb' = Cb - 128, cr' = Cr - 128 and
 * coefficients in 1/16384: Y += (a * cb' + b * cr' + 8192) >> 14 for both Y, Cb and Cr likewise
 * about 128, each clamped to 0..255; results lie within 1 of the exact conversion.
 *
 * Work memory: the converting pass takes one work line (region width in bytes + 16) from the
 * system for the call and frees it before returning, on every path; the plain pass takes none. */
FRAMEDSP_API DSP_HRESULT FRAMEDSP_CALL DspBufferSmartCopy(const DSP_BUFFER *pBuffer);

/* Compares two images (see DSP_COMPARE_PARAMS): writes the difference image and the MSE and PSNR
 * of each channel.  E_POINTER for null; S_OK with nothing written for an unsupported format;
 * otherwise S_OK. */
FRAMEDSP_API DSP_HRESULT FRAMEDSP_CALL DspCompare(DSP_COMPARE_PARAMS *pParams);

/* Separable FIR low-pass or box filter of the input region into an equal-sized output region,
 * on the format's own bytes (no unpacking), walking lines with the geometry of DSP_BUFFER (fields,
 * dominance, orientation, bands).
 *
 * Refused quietly (S_OK, no work): formats as for DspBufferSmartCopy, the interleaved-frame into
 * progressive-frame pair, region widths that differ, an output region height that is not the
 * input region height times the field factor (2 when only the input is a frame, 1/2 when only the
 * output is), odd widths in subsampled formats.
 * Errors: E_INVALIDARG for an eFilterType other than 1 and 2, a null pSettings, a FIR direction
 * that is on (cut-off below 100) with taps outside 3..15, a cut-off above 100, a box size above
 * 256; E_FAIL when the inner copy fails; E_OUTOFMEMORY when work memory cannot be had.
 *
 * FIR (DSP_FIR_SETTINGS): tap counts round down to odd (4 = 3, ..., 14 = 13); cut-off c selects
 * coefficient row 19 - c / 5 (0..9 the strongest, 95..99 the mildest); rows are used as stored,
 * so a row summing to 510 turns a flat 255 into 254.  Vertical pass first, then horizontal, each
 * (sum + 256) >> 9 clamped to 0..255.  Vertical taps read absolute image rows (rows outside the
 * region are used; past the image edge the nearest usable row of the same field repeats, a tap
 * k rows down only when 2k rows remain below); horizontal taps stop at the region's edges, where
 * a missing tap takes the centre sample.  Interlaced frames are filtered field by field.  Bytes
 * that carry no 8-bit sample of their own pass through the horizontal pass unchanged: bytes 2 and
 * 3 of each format-24 group and the second byte of every 16-bit sample (22, 23, 31, 129, 262),
 * whose first byte is filtered as an 8-bit value; the vertical pass filters every byte.
 * Both cut-offs 100: a plain copy.
 *
 * Box (DSP_BOX_SETTINGS): size 0 = that direction off, 1..256 = window (an even window reaches one
 * sample further up / left); each output is (window sum * R + 2^22) >> 23 with
 * R = trunc(2^23 / (Nh * Nv) + 0.5), per component, samples beyond a line's end repeating the end
 * sample and rows clamped to the image (within the field).  16-bit formats average whole
 * little-endian 16-bit samples (clamped to 65535).  Cost per pixel does not depend on the window.
 *
 * ulOptions bit 0 (DSP_FILTER_OPTION_TEMP_FRAME, not for two-plane formats or format 1): filter
 * into work memory shaped like the input region, then copy into the output; same bytes as the
 * direct path.  Formats 31 and 262 have no per-pixel size in the format table, so their lines are
 * empty and nothing is written. */
FRAMEDSP_API DSP_HRESULT FRAMEDSP_CALL DspFilter(const DSP_FILTER_PARAMS *pParams);

/* The filter for fractional regions: DspFilter's filter types, settings, settings errors, option
 * bit and plane handling on a record whose regions are doubles.
 *
 * Validation (a refusal is S_OK with nothing written): the formats and field rules of DspFilter;
 * the input and output region widths equal as doubles (720.0 and 720.5 are refused); the output
 * region height times the field factor (2 frame -> field, 1/2 field -> frame, else 1) equal to the
 * input region height as doubles; in 4:2:2 formats the image widths and the whole parts of both
 * region widths even (721.5 is refused, 720.5 accepted).
 *
 * In this release no sample is weighted by a fraction: each region value (origin and size) is
 * truncated toward zero to a 64-bit integer of which the low 32 bits are used (NaN, infinities and
 * values no 64-bit integer holds count as 0), and the call works on those whole rows, columns and
 * bytes.  The record has no band fields: every call produces the whole region.
 *
 * Box settings, a FIR with only the horizontal direction on, and every copy (both directions off;
 * with the colour-space conversion of DspBufferSmartCopy where the spaces differ) give exactly
 * DspFilter's bytes for the truncated record.  FIR vertical taps differ at the picture's edges:
 * tap k of centre row r reads rows max(r - k*s, 0) and min(r + k*s, H - s) (H the plane's rows, or
 * a half's rows for eInterlace 3; s = 2 when an interleaved frame is walked field by field, else
 * 1), so rows are clamped to the absolute first and last rows, and near the top and bottom of a
 * field walk a tap may read a row of the other field.  Rows whose taps all stay inside come out as
 * DspFilter's.  The vertical pass filters every byte, as DspFilter's does. */
FRAMEDSP_API DSP_HRESULT FRAMEDSP_CALL DspSubPixelFilter(const DSP_SUBPIXEL_FILTER_PARAMS *pParams);

/* Resizes the input region into the output region (same pixel format), nearest sample or linear,
 * a field into a field and a frame into a frame.  No quiet refusal: settings errors are returned
 * (DSP_E_INVALIDARG).  ulOptions bit 1 selects the filtered path (below); eFilter 2 answers
 * DSP_E_NOTIMPL from every kernel.
 *
 * Geometry.  field factor f = 2 (field -> frame), 0.5 (frame -> field), else 1.  With
 * DSP_SCALE_FLAG_DERIVE_SIZE the output region becomes floor(w * fHorizontalScale + 0.5) by
 * floor(h * f * fVerticalScale + 0.5) (double precision, low 32 bits), each clamped to the room
 * right of and below the output origin; without it a region past the room is refused.  Region
 * origins count from the picture's top-left whatever the orientation, must not be negative, and
 * the input region must lie inside its image.  An odd derived height on a frame output grows by
 * one line (a frame keeps line pairs), or shrinks by one when the room ends there; the scale mode
 * (none, horizontal, vertical, both) is decided after that, so the extra line is part of the
 * scaled picture, never a line read from outside the input region.  No scaling at all: the call
 * is the format copy (DspBufferSmartCopy's rules, colour-converting when the spaces differ).
 *
 * Validation: both pBuffer set; formats 0, 1, 5, 21..25, 28, 30, 31, 129, 261..263, output
 * format equal; even widths except 0, 1, 5; not an interleaved frame (interlace 0) into a
 * progressive frame; with DSP_BUFFER_PROCESS_FIELDA/B set the input's eInterlace is 0 or the
 * output's is; without, both are nonzero (interlace 1 is the usual interleaved frame for a
 * full-frame call).
 *
 * Arithmetic (14 fraction bits).  Horizontal step = src_pixels * 16384 / dst_pixels (integer
 * division); output sample j of each component reads position j * step, index truncated and
 * clamped to the last whole sample (pixel pair in 4:2:2 layouts, whose chroma steps by pairs).
 * Linear: ((b - a) * frac + a * 16384 + 8192) >> 14 with b the next sample of the component
 * (clamped).  Vertically each run (one field, or the whole frame) maps output line k of the run to
 * source line (k * vstep) >> 14 of the same run, clamped to its last line, with
 * vstep = (hi * 16384 << s) / (ho << d) (hi, ho region heights; s = 1 field -> frame, d = 1
 * frame -> field): a field is never blended with the other field.  Linear lines with a nonzero
 * fraction are (A * (16384 - frac) + B * frac + 8192) >> 14 of the two horizontally resampled
 * lines, byte by byte; fraction 0 copies A.  16-bit formats (22, 23, 31, 129, 262) move and
 * interpolate whole little-endian 16-bit samples.  The scaler addresses formats 31 and 262 as
 * 4 and 2 bytes a pixel, and 263, the mip-map pyramid's 8-bit plane, as one byte a sample like
 * 261 (the fast paths read it the same way).  Fields are read as DspBufferSmartCopy reads them; the dominance bits
 * (0..2) do not shift scaled output.  Bands (ulSliceCount/ulSliceNumber) cover the same output
 * lines as the copy's.
 *
 * Colour: when In.eColorSpace and Out.eColorSpace differ (601 <-> 709) in the 8-bit 4:2:2
 * layouts (21, 24, 25, 28, 30), each finished line is converted with the copy's matrix
 * rounded to six fraction bits: Y' = sat(64 Y + a cb + b cr + 32) >> 6, C' = 128 +
 * (sat(c cb + d cr + 32) >> 6), cb = Cb - 128, cr = Cr - 128, results clamped to 0..255 (the
 * intermediate to 16 bits).  Other formats scale unchanged.
 *
 * Two-plane formats scale both planes with the same geometry.  ulOptions bit 0 (staged, not for
 * two-plane formats or format 1) scales into a private image with 16-byte-padded rows and then
 * moves exactly the lines it wrote into the output: the same bytes as a direct call.  Work memory
 * is released on every path; a refused allocation gives DSP_E_OUTOFMEMORY.
 *
 * Filtered path (ulOptions bit 1, DSP_SCALER_OPTION_FILTERED).  eScalerPath is not read (no fast
 * path).  Order: the validation above on the record as given, the geometry step, the same
 * validation on the final sizes (a derived odd width of a 4:2:2 format is refused as on the
 * general path); then eFilterType must be DSP_FILTER_TYPE_FIR and pSettings a DSP_FIR_SETTINGS
 * (null: DSP_E_INVALIDARG), checked by DspFilter's rules whatever the scale mode: cut-offs at most
 * 100, taps 3..15 on a direction whose cut-off is below 100 (DSP_E_INVALIDARG), the coefficient
 * row of each direction that is on (DSP_E_FAIL if the tables lack it).  A direction is wanted
 * when its cut-off is not 100.
 *   - Something scaled, and the wanted directions match the scale mode (horizontal wanted for a
 *     horizontal scale, vertical for a vertical one, both for a scale of both axes): "scale and
 *     filter in one pass".  Exactly: the output region first receives what the general path
 *     would write into a picture shaped like the region (same buffer type and interlace), then
 *     the FIR of DspFilter runs along each scaled axis only, on the scaled lines: vertically over
 *     the lines of the same run (one field of an interlaced output, or the whole frame), edges at
 *     the first and last line of that run inside the output region (nothing outside the region is
 *     read); then horizontally along each line, edges at the region's first and last byte.  Per
 *     sample that is DspFilter's arithmetic (vertical before horizontal, (acc + 256) >> 9,
 *     clamped).  The result equals the general DspScaler into such a picture followed by DspFilter
 *     from it into the output region, byte for byte.  A direction asked for on an unscaled axis
 *     is dropped (a horizontal-only scale with both directions on filters horizontally only).
 *     Colour conversion, bands, field selection and orientation as on the general path; the
 *     vertical taps of a band's lines read scaled lines of the neighbouring bands, so bands
 *     together equal one whole call.
 *   - Something scaled but the wanted directions do not match the mode (for example only the
 *     horizontal direction on for a scale of both axes, or only the vertical one for a horizontal
 *     scale): the general kernels alone, the filter dropped; the bytes equal the general path's.
 *   - Nothing scaled: no direction wanted, the format copy as on the general path; otherwise
 *     DspFilter's FIR on the two regions with DspFilter's validation (a record DspFilter refuses,
 *     e.g. format 263, is DSP_E_INVALIDARG).
 *   eFilter 2 is DSP_E_NOTIMPL from the kernels of every scaled case.  Staged mode (bit 0) and
 *   two-plane formats as on the general path: each plane is scaled and filtered with its own
 *   format's FIR layout (263 with 261's: one byte a sample, as the scaler reads it).  Work memory: a private picture of the region and two work lines per
 *   plane on top of the general kernel's, released on every path. */
FRAMEDSP_API DSP_HRESULT FRAMEDSP_CALL DspScaler(const DSP_SCALER_PARAMS *pParams);

/* Scales the input region into the output region with a uniform or panoramic horizontal mapping
 * (see DSP_NONUNIFORM_SCALER_PARAMS for the mapping, settings and statuses).  No validation step:
 * E_POINTER for a null record; ulOptions bit 1 picks the filtered worker, clear the plain one;
 * each refuses bad settings with DSP_E_INVALIDARG before writing anything.  Work memory: the
 * column positions, one engine plan per plane and run (weight rows, a ring of work lines as many
 * as the vertical taps), plus the written lines in staged mode; mode 0 with eFilter 0 or 1 takes
 * DspScaler's.  All released on every path. */
FRAMEDSP_API DSP_HRESULT FRAMEDSP_CALL DspNonUniformScaler(const DSP_NONUNIFORM_SCALER_PARAMS *pParams);

/* Scales between fractional regions (see DSP_SUBPIXEL_SCALER_PARAMS for the geometry, settings
 * and statuses).  No validation step: E_POINTER for a null record; ulOptions bit 1 picks the
 * filtered worker (the FIR low-pass of pSettings folded into the weight rows), clear the plain
 * one; each refuses bad settings with DSP_E_INVALIDARG before writing anything.  Work memory: one
 * plan per plane (weight rows, a ring of work lines as many as the vertical taps), plus the
 * written region's lines in staged mode, released on every path. */
FRAMEDSP_API DSP_HRESULT FRAMEDSP_CALL DspSubPixelScaler(const DSP_SUBPIXEL_SCALER_PARAMS *pParams);

/* Computes the sizes and factors that map a source onto a destination without distorting the
 * picture.  E_POINTER when either pointer is null; S_OK with the result untouched when the record
 * is refused (any aspect term or full size 0; fill mode with a source region other than the whole
 * source, 0 included).  Every other record gives S_OK and a written result.
 *
 * All arithmetic is in double precision.  sW x sH is the source region (0 = the full size), dW x
 * dH the destination region.  The pixel shapes come from the FULL sizes:
 *   sPAR = (ulSrcHeight * ulSrcAspectNumerator) / (ulSrcWidth * ulSrcAspectDenominator), dPAR alike.
 * trunc() is truncation toward zero to a 64-bit integer of which the low 32 bits are kept; a value
 * no 64-bit integer holds gives 0 (the factor that divides by it is then +infinity).
 *   fit to height (no flag):  v = dH / sH, w = trunc(sPAR * sW * v / dPAR)  -> (w, dH, w / sW, v)
 *   fit to width (bit 0):     h = dW / sW, o = trunc(dPAR * sH * h / sPAR)  -> (dW, o, h, o / sH)
 *   fill (bit 1):             h = dW / sW, n = trunc(dH * sPAR / (h * dPAR)); if sH >= n:
 *                             (sW, n, h, dH / n); else v = dH / sH, m = trunc(dPAR * dW / (sPAR * v));
 *                             if sW >= m: (m, sH, dW / m, v); else (sW, sH, dW / sW, dH / sH).
 * The factors are rounded to float last; they reproduce the sizes through the scaler's
 * floor(size * factor + 0.5).  Example: 720x486 at 4:3 fitted to the height of 1920x1080 at 16:9
 * gives 1440x1080 with factors 2.0 and 1080 / 486.  Other flag bits are ignored. */
FRAMEDSP_API DSP_HRESULT FRAMEDSP_CALL DspScalerHelper(const DSP_SCALER_HELPER_IN *pIn,
                                                       DSP_SCALER_HELPER_OUT *pOut);

/* The fractional source and destination rectangles that map a source onto a destination without
 * distorting the picture, for one frame of a zoom and pan between two views: a Ken Burns move is
 * one call per frame, phase 0 .. 16384.  The result goes straight into a DSP_SUBPIXEL_BUFFER of
 * DspSubPixelScaler: dSrc* into In.Buffer.Region, dDst* into Out.Buffer.Region (and the factors
 * into fHorizontalScale / fVerticalScale where a record wants them).  It touches no image.
 *
 * Statuses.  DSP_E_POINTER when either pointer is null.  DSP_S_OK with the result untouched (not
 * one byte written) when the record is refused: an aspect term or an image size of 0, a mode bit
 * above bit 3, a zoom below 16384, a centre outside -8192 .. 8192, a phase above 16384, an ease
 * other than 0 and 1, a reserved word other than 0.  Every other record gives DSP_S_OK and all ten
 * result fields written.  DSP_E_UNEXPECTED only if an internal check fails (none is expected).
 *
 * Coordinates are pixels with the image's top-left corner at (0, 0); pixel (i, j) covers
 * [i, i + 1) x [j, j + 1), as in DSP_SUBPIXEL_BUFFER regions.  sW x sH is the source image, dW x dH
 * the destination image, and r the source picture's aspect over the destination's:
 *   r = (ulSrcAspectNumerator * ulDstAspectDenominator) / (ulSrcAspectDenominator * ulDstAspectNumerator).
 *
 * Base rectangles (zoom 1, centre 0): the part of the source W0 x H0 at (0, 0), and the
 * destination rectangle, which the view always fills and which does not move with the view.
 *   fit to height (no mode bit):  W0 x H0 = sW x sH;  destination dW * r wide, dH high, at (X, 0)
 *   fit to width (bit 0):         W0 x H0 = sW x sH;  destination dW wide, dH / r high, at (0, Y)
 *   fill (bit 1):                 W0 x H0 = sW x sH * r when r <= 1, else sW / r x sH (the
 *                                 source cropped to the destination's shape); destination the
 *                                 whole image (0, 0, dW, dH)
 * These are DspScalerHelper's sizes without its truncation to whole pixels.  With bit 3 (CENTRE)
 * X = (dW - dW * r) / 2 and Y = (dH - dH / r) / 2, which puts the fitted picture in the middle of
 * the destination (letterbox or pillarbox); without it X = Y = 0.  Fill ignores bit 3.  A fitted
 * side larger than the destination overhangs it (X or Y negative with bit 3); the scaler clips the
 * output region to the image.
 *
 * The view at phase t = ulPhaseQ14 / 16384: with s = t (ulEase 0) or s = 3t^2 - 2t^3 (ulEase 1),
 *   zoom    z  = zA^(1 - s) * zB^s   (geometric: equal steps of t zoom by equal ratios, which the
 *                                     eye sees as a constant speed)
 *   centre  cx = cxA + (cxB - cxA) * s,  cy alike   (zA = ViewA.ulZoomQ14 / 16384, cxA =
 *                                                     ViewA.lCentreXQ14 / 16384, ...)
 *   dSrcWidth  = W0 / z,                   dSrcHeight = H0 / z
 *   dSrcX = sW * (1/2 + cx) - dSrcWidth / 2,   dSrcY = sH * (1/2 + cy) - dSrcHeight / 2
 * With bit 2 (KEEP_INSIDE) dSrcX is then clamped to 0 .. sW - dSrcWidth and dSrcY to
 * 0 .. sH - dSrcHeight: the view slides back inside the source with its size kept (a zoom of at
 * least 1 always leaves room).  Without bit 2 the view may reach past the source's edges, and the
 * scaler's edge mode decides what shows there.  Example: zoom 2, centre 0 on 720 x 486 gives the
 * source rectangle 360 x 243 at (180, 121.5); 720 x 486 at 4:3 fitted to the height of 1920 x 1080
 * at 16:9 with bit 3 gives the destination rectangle 1440 x 1080 at (240, 0).
 *   dDst* = the destination rectangle above;  fHorizontalScale = dDstWidth / dSrcWidth,
 *   fVerticalScale = dDstHeight / dSrcHeight  (output pixels per input pixel).
 *
 * Exactness: the result is the same bit for bit on every compiler, CPU and floating-point setting
 * (x87 or SSE, 32- or 64-bit), because it is computed in integer arithmetic only:
 *   - s in units of 2^-30: t exactly, or 3t^2 - 2t^3 computed exactly and rounded half up;
 *   - cx, cy exactly (units of 2^-44);
 *   - z in units of 2^-40, from the view nearer in phase: zA * 2^(s * L) for s <= 1/2,
 *     zB * 2^(-(1 - s) * L) above, L = log2(zB) - log2(zA), with log2 and 2^x computed to 48
 *     fraction bits by a fixed integer method (relative error of z below 1e-12).  Phase 0 and
 *     16384 give views A and B exactly, and zooms a power of two apart meet exactly at the middle
 *     (1 and 4 give 2 at phase 8192);
 *   - every result field is then the exact value of the formulas above for that s, z and c,
 *     rounded once to the nearest double (float for the factors), ties to even. */
FRAMEDSP_API DSP_HRESULT FRAMEDSP_CALL DspSubPixelScalerHelper(const DSP_SUBPIXEL_SCALER_HELPER_IN *pIn,
                                                               DSP_SUBPIXEL_SCALER_HELPER_OUT *pOut);

/* Creates a frame-rate converter from a checked creation record and stores its handle.
 * E_POINTER when either pointer is null; E_OUTOFMEMORY; E_INVALIDARG when the record is out of
 * bounds (then *phConverter is untouched and nothing is created).  There is no destroy call: a
 * converter lives until the process ends. */
FRAMEDSP_API DSP_HRESULT FRAMEDSP_CALL DspCreateFrameRateConverter(
    const DSP_FRAME_RATE_CONVERTER_PARAMS *pParams, DSP_HANDLE *phConverter);

/* Makes the frame at ulPhaseQ14 between FrameA (0) and FrameB (16384) with a live converter.
 * E_HANDLE for a handle that is not a live converter (checked first); then E_POINTER for a null
 * record.  The third argument is ignored.
 *
 * Frames.  All three are read as two planes of FrameB's geometry: plane 1 (luma) at pBuffer,
 * ulWidth x ulHeight bytes with lines ulPrimaryStrideBytes apart, plane 2 at pBuffer + ulHeight x
 * ulPrimaryStrideBytes with the same geometry.  Plane 2 is NV16 chroma (ulWidth / 2 Cb Cr pairs a
 * line, moved by half the horizontal motion), or with DSP_CONVERT_PLAIN_PLANE2 a plain picture
 * moved like the luma, or with DSP_CONVERT_LUMA_ONLY neither read nor written.  Only pBuffer and
 * ulBytes of FrameA and FrameOut are read, and of FrameB also ulWidth, ulHeight and
 * ulPrimaryStrideBytes (regions, formats, interlace and orientation are not read: frames are
 * progressive, top-down).  The whole picture is produced (or the band, below).
 *
 * Refusals: DSP_E_INVALIDARG with not a byte written, for: a null frame buffer; a frame whose
 * ulBytes is below (planes x ulHeight - 1) x stride + ulWidth; a width or height of 0 or above
 * 16384; a stride below the width; an odd width with NV16 chroma; a phase above 16384; eSampling
 * above 3; unknown bConvertFlags bits; a non-zero ulReserved; ulSliceNumber above ulSliceCount;
 * the converter's eConvertMode above 2; and with a field: ulVectorFieldBytes below 48, a header
 * whose size differs from FrameB's, blocks outside 4..32, a column or row count that is not
 * ceil(size / block), no forward entries, or ulFieldBytes other than 48 + 8 x entries or above
 * ulVectorFieldBytes.  A record that passes never makes the library read or write outside the
 * first ulBytes of its frames, whatever the vectors.  DSP_E_OUTOFMEMORY when work memory is
 * refused.
 *
 * Bands: band n (from 1) of c makes output lines floor((n - 1) h / c) to floor(n h / c) - 1 of both
 * planes and writes nothing else; any split gives the bytes of one whole call, so a host may run
 * the bands on several threads.  One converter may serve any number of calls at once (its
 * settings are only read).  The bytes do not depend on the CPU or its instruction sets.
 *
 * What is made (wA = 16384 - phase, wB = phase):
 *   - phase 0 or 16384: FrameA or FrameB, byte for byte.
 *   - eConvertMode 1 (blend): (wA a + wB b + 8192) >> 14 per byte; 2 (nearest): A below phase
 *     8192, B from it on.  Also mode 1 when the field's share of forward blocks flagged
 *     DSP_MV_BAD is above ulFallbackThreshold / 256 (a scene cut).
 *   - Otherwise the motion-compensated frame along the field (pVectorField, the forward entries
 *     and, when present, the backward ones), or with a null pVectorField along the field the
 *     converter estimates itself from its creation settings (ulLevels, 0 = 4; the per-level
 *     blocks, ranges and thresholds; ulBlockA x ulBlockB final blocks; both directions):
 *       1. With DSP_CONVERT_REFINE, entries whose usCost exceeds ulRefineThreshold are searched
 *          again at full resolution (the neighbours' vectors and zero, a +-8 pixel window, then
 *          half and quarter pixels) in a private copy; the caller's field is not written.
 *       2. Each output block (the field's blocks) takes one vector at the output time: among the
 *          forward vector at the block, the forward vector again at where that vector says the
 *          block comes from in A, the negated backward vector at the block and at where that one
 *          leads in B, the four neighbours' vectors (a block's vector: its forward one, or where
 *          that match reaches outside the picture (DSP_MV_OUTSIDE) and the backward entry costs
 *          less, the backward one negated), the median vector and zero, the one whose two sides
 *          A(x - p v) and B(x + (1 - p) v) differ least: the bilateral SAD per 64 pixels, with A
 *          at whole pixels and B at that position + v in bilinear quarter pixels (where a side
 *          leaves the picture, both at whole pixels and a pixel with a side outside costing 6,
 *          or 1 when the field agrees with v on the other side or v is within
 *          ulOcclusionThreshold of the median vector of the picture); plus 4 per quarter pixel
 *          from the median of the block's and its neighbours' vectors (at most 128) and 2 per
 *          quarter pixel from the median vector of the picture (at most 256, or 512 for a block
 *          whose own entry is flagged DSP_MV_FLAT, DSP_MV_INCONSISTENT or DSP_MV_BAD: ambiguous
 *          or periodic texture then follows the picture's motion).
 *       3. Each quarter of a block (a tile) takes the vectors of the nearest four block centres:
 *          when they differ by at most ulOcclusionThreshold quarter pixels (0 = 4), their
 *          bilinear mix at 1/64 pixel.  Otherwise (an object's boundary, with the areas it covers
 *          and uncovers) each pixel of the tile chooses among those vectors (the candidates),
 *          the first of top-left, top-right, bottom-left, bottom-right on a tie:
 *          a. The difference of a candidate's two compensated sides (step 4) summed over the
 *             3 x 3 pixels around the pixel inside the tile (in 1/64 grey level; a pixel whose
 *             side is dropped counts 6 grey levels).  Where the least of these is at most 4 grey
 *             levels a pixel (2304), or with DSP_CONVERT_NO_OCCLUSION, the pixel takes that
 *             candidate, both sides blended.
 *          b. Elsewhere, when the field's forward/backward check flagged a block around the tile
 *             (DSP_MV_INCONSISTENT in either direction, within one block plus the candidates'
 *             largest motion in whole pixels of the tile; a field without backward entries counts
 *             as flagged everywhere), the pixel is covered (seen in A only) or uncovered (seen in
 *             B only), and the candidates rank by the consistency of their sides.  A side of
 *             candidate v is inconsistent when the samples it shows are explained by another
 *             motion: the sum
 *             of |side - other frame| over the 7 x 7 whole pixels around the side's sample
 *             (A at x - p v and B at x + (1 - p) v rounded to whole pixels; the other frame at
 *             that position + v for A, - v for B, in bilinear quarter pixels as the block
 *             matching's; edges repeated) is, along some candidate further than
 *             ulOcclusionThreshold from v, less than half of what it is along v.  Candidates
 *             with both sides consistent come first (both sides blended); then those with one
 *             inconsistent side whose other side's ratio (best other motion's sum over v's own)
 *             is at least twice the inconsistent side's: that other side alone (A only for a
 *             covered pixel, B only for an uncovered one, at full weight), the candidate nearest
 *             the median vector of the picture first (covered and uncovered pixels are
 *             background, taken to move as the picture does); then the rest (both sides
 *             blended).  Then the motion of the object may decide the side: with bg the candidate
 *             nearest the median vector of the picture, fg the one furthest from bg (the first on a
 *             tie; none when within ulOcclusionThreshold), d = fg - bg and g(y, v) the sum of
 *             |A(y - p v) - B(y + (1 - p) v)| over the 3 x 3 pixels around output pixel y (p v in
 *             1/64 pixel, then p v and v - p v rounded to whole pixels, halves up; edges repeated),
 *             the object's evidence at y is o(y) = g(y, bg) - g(y, fg); "behind" is the largest o
 *             at x - k (1 - p) d / 4 and "ahead" the largest at x + k p d / 4, k = 1 .. 5 (whole
 *             pixels, halves up).  Unless the candidate ranked first has both sides consistent,
 *             lies further than ulOcclusionThreshold from bg and o(x) >= -400, when behind and
 *             ahead differ by at least 200 grey levels and the larger exceeds o(x) + 400, the pixel
 *             takes the background's motion (the median vector of the picture when bg is within
 *             ulOcclusionThreshold of it, else bg) from A alone when behind is larger (the object
 *             reaches it by B's time: covered), else from B alone (uncovered).  Where no flag is
 *             near the tile (or no candidate ranked ahead), the least difference of step a decides,
 *             both sides blended.
 *          The choice is made on the tile's whole extent, whatever the band; plane 2 follows the
 *          luma's vector and sides byte for byte, except that an NV16 Cr byte takes the choice at
 *          its pair's Cb byte when that lies in the same tile (always so when the block width
 *          and the picture width are multiples of 4).
 *       4. Each side is sampled at 1/64 pixel with eSampling's filter (6-tap Lanczos-3, 4-tap
 *          Catmull-Rom, bilinear, nearest; Q14 taps, edges repeated), horizontally then
 *          vertically, kept in 1/64 of a grey level, and the output is
 *          clamp((wA a + wB b + 2^19) >> 20); a side whose sample lies more than half a pixel
 *          outside the picture is dropped for that pixel (the other one is used alone).
 *   - bOverlay non-zero: plane 1 shows each block's forward vector, drawn after the block in
 *     raster order of blocks: bytes set to 0 in the 3 x 3 around the block's centre, then to 255
 *     along the line (Bresenham, both ends) from the centre to centre + v rounded to whole pixels,
 *     clipped to the picture and the band.  A drawing covers the blocks before it and its own;
 *     later blocks are produced over it.  Exact copies, blends and scene cuts draw nothing. */
FRAMEDSP_API DSP_HRESULT FRAMEDSP_CALL DspFrameRateConvert(DSP_HANDLE hConverter,
                                                           DSP_FRAME_RATE_CONVERT_PARAMS *pParams,
                                                           uint32_t ulUnused);

/* Block motion vectors between two mip-map pyramids.  pParams points to a
 * DSP_MOTION_VECTORS_PARAMS (all 160 / 184 bytes are read).  E_POINTER for a null record (before
 * the handle is looked at), E_HANDLE for a handle that is not a live converter (its state is not
 * used).  E_INVALIDARG, with not a byte of the field written, for: a null level list; a level
 * count outside 1..5 or two different counts; a level (of those counts) with a null buffer, a
 * format other than 263, an empty region, a region leaving its image, a stride below the image
 * width, or a side above 16384; levels of A and B of different sizes; a level that is not the one
 * before halved (either rounding); search settings outside the bounds above; ulLevels above the
 * count; a null field or ulVectorFieldBytes below 48 + 8 x entries; a non-zero ulReserved word.
 * E_OUTOFMEMORY when work memory cannot be had.  Otherwise S_OK and the field is written.
 * Each level is read as the top-down picture of its region (bottom-up images through their
 * orientation); eInterlace, eBufferType and eColorSpace are not read.
 *
 * The search runs forward (A -> B) from level ulLevels - 1 down to level 0, then backward (B -> A)
 * at level 0 alone: the two directions share the coarse levels, the backward search taking the
 * forward field of level 1 negated as its parent field (with ulLevels 1 it has none).  Per level:
 *   - Every search block of a level gets candidates: the parent level's vector (doubled) at the
 *     block's centre and at the parent's four neighbours (each doubled vector moves a pixel
 *     along x and y toward the side a parabola through the parent's matches at its vector and a
 *     pixel either side puts the motion, when that is at least half a pixel of this level away;
 *     pass 1 takes its medians m, below, from these as well), zero, the global vector
 *     (component median of the parent field so doubled and moved, unless DSP_MOTION_NO_GLOBAL),
 *     the prior field's vector at the block's centre (pPriorField, when its header has the same
 *     size and blocks; scaled to the level), and for the backward field the forward vector of
 *     the same block negated.  All are whole pixels of the level and clipped to the reach.
 *   - Cost = SAD x 64 / n (n the block's pixels) + lambda x |v - m| (pixels of the level, L1),
 *     with m the component median of the 3x3 blocks around it in the previous pass.  Ties go to
 *     the shorter vector, then to the earlier candidate.
 *   - When the best candidate's mean absolute difference exceeds ulLevelThreshold[k], every
 *     vector within +-range of it (at the coarsest level also of zero) is tried; otherwise a
 *     diamond of one-pixel steps walks downhill within +-range.  Then pass 2: each block weighs
 *     its own vector against its eight neighbours' and walks a diamond when it changes.  Every
 *     block reads only the previous pass, so the field does not depend on block order or ISA.
 *   - A block whose match changes by at most one grey level a pixel for every whole-pixel step
 *     from its vector has no detail to place it (a loose block): below the coarsest level it is
 *     weighed against the global vector instead of its neighbours' median, and the global vector
 *     is among its candidates, so flat areas follow the picture's motion rather than stay put.
 *   - At level 0 (below a coarser level, with the global vector and sub-pixel vectors), search
 *     blocks whose final blocks nest in them and are all DSP_MV_FLAT are not searched: they
 *     take the level's global vector in both passes (their neighbours weigh it), and the
 *     refinement gives them the global sub-pixel vector below like every loose block.
 *   - Level 0: each search block's vector is refined to quarter pixels by its match alone (no
 *     smoothness term): the best of it and its eight neighbours half a pixel away, then the best
 *     of that one and its eight neighbours a quarter pixel away.  Fractional vectors are matched
 *     against interpolated samples of the other picture (B forward, A backward): the half-pixel samples between two columns and between
 *     two lines are clamp((s-2 - 5 s-1 + 20 s0 + 20 s1 - 5 s2 + s3 + 16) >> 5, 0, 255) of the six
 *     samples around them, those between both the same filter across the lines of the former;
 *     a quarter-pixel sample is the rounded-up average of the two nearest whole- or half-pixel
 *     samples on its line or column (on a diagonal: of the half-pixel sample between columns on
 *     the nearest line and the one between lines on the nearest column).  Loose blocks, and
 *     search blocks whose final blocks (when they nest in it) are all DSP_MV_FLAT, are not
 *     refined: they take the component median of the other blocks' refined vectors (unless
 *     DSP_MOTION_NO_GLOBAL).  Then each block weighs its refined vector against its
 *     neighbours' that differ by more than a quarter pixel, with lambda against the median of
 *     the refined 3x3 (the global vector for the blocks that took it), which settles
 *     blocks whose texture leaves the match open along one direction; then each final block
 *     takes the cheapest (with lambda, against its own search block's vector) of the 3x3 vectors
 *     around it that differ from its own by more than half a pixel (the split stage, unless
 *     DSP_MOTION_NO_SPLIT).  The refinement and the settling weigh a block whose matches at the
 *     vectors they compare would read samples outside B (a fractional vector reads the filter's
 *     two samples before and three after) on the part of the block whose samples all lie inside
 *     B (when there is one): repeated edge samples say nothing about where a block
 *     lies between two pixels, so on a pan the blocks at the picture's edges keep the vector of
 *     their real content.  Their cost and DSP_MV_OUTSIDE still describe the whole block.
 *   - Accuracy: when a picture moves as a whole by whole or quarter pixels within the reach, a
 *     block counts when it is not DSP_MV_FLAT and its match, with the filter's two samples before
 *     and three after, lies inside the other picture.  Of the counted blocks at least 98 % in
 *     each direction get the motion within a quarter pixel in x and y.  Blocks without detail
 *     (DSP_MV_FLAT) cannot be placed by their own content: their vectors follow the global
 *     motion or the smoothness term and may be off by more than a quarter pixel where the
 *     picture does not move as a whole.
 * Samples outside a picture repeat its edge samples.  After both directions, each entry is
 * checked against the other direction at the point its centre moves to (DSP_MV_INCONSISTENT).
 * The same inputs give the same field on every CPU and ISA level. */
FRAMEDSP_API DSP_HRESULT FRAMEDSP_CALL DspCreateMotionVectors(DSP_HANDLE hConverter, void *pParams);

/* Builds up to five pyramid levels through the scaler.  E_POINTER for a null record (or a null
 * level list), E_HANDLE for a handle that is not a live converter (the converter's state is not
 * used; a reference is held for the call).  E_INVALIDARG, before any level is written, when the
 * count is above five, the base or a listed level has a null buffer, or any of them is not
 * format 263.  Fewer than two levels: S_OK, nothing done.  Otherwise level k (k >= 1) is made
 * from level k - 1 by one DspScaler call with eScalerPath 1 (integer ratio), eFilter from the
 * record, factors and scale flags 0 (each level's own region is the output size), buffer flags
 * and options 0.  Those results are deliberately not reported: the call answers S_OK, and a
 * level the scaler refuses (e.g. interleaved levels without a field selection) keeps its old
 * bytes, as do the levels made from it.  Halving regions of format 263 take the integer-ratio
 * path; any other size pair falls back to the general scaler with the same eFilter. */
FRAMEDSP_API DSP_HRESULT FRAMEDSP_CALL DspCreateMipMaps(DSP_HANDLE hConverter,
                                                        DSP_MIPMAP_PARAMS *pParams);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* FRAMEDSP_FRAMEDSP_H */
