// The SIMD step of the colour-matrix kernels, written once for every x86 vector width.  Each ISA
// file includes its vector traits (platform/x86/vec_<isa>.h) and calls color_fill_x86 from its init
// function; the traits provide at least:
//
//   struct Vec {
//     using Reg = <vector type>;                          // sizeof(Reg) bytes a vector
//     static Reg loadu(const uint8_t *p);
//     static void storeu(uint8_t *p, Reg v);
//     static Reg set1_epi16(short x), set1_epi32(int x);
//     static Reg and_si(Reg a, Reg b);
//     template <int k> static Reg srli_epi16(Reg v), srai_epi32(Reg v);
//     static Reg madd_epi16(Reg a, Reg b), add_epi32(Reg a, Reg b), add_epi16(Reg a, Reg b);
//     static Reg packs_epi32(Reg a, Reg b), packus_epi16(Reg a, Reg b);
//     static Reg unpacklo_epi16(Reg a, Reg b), unpackhi_epi16(Reg a, Reg b);
//   };
//
// Every operation works inside 128-bit lanes, and a lane's output bytes come from the same lane's
// input bytes, so one body serves 16- and 32-byte vectors.  As in color_kernels.h, everything
// sits in an unnamed namespace so that each instantiation keeps its includer's ISA flags.
#pragma once

#include <cstddef>
#include <cstdint>

#include "copy/color_kernels.h"

namespace framedsp {
namespace color_detail {
namespace {

// Whether the chroma bytes are the low bytes of the 16-bit words (U Y V Y) or the high ones.
template <class L>
constexpr bool chroma_low() {
  return L::kCb == 0;
}

template <class Vec, class L>
struct ColorStepX86 {
  using Reg = typename Vec::Reg;
  static constexpr size_t kPairs = sizeof(Reg) / 4;

  // Each (Cb, Cr) weight pair as one 32-bit lane, repeated, so that pmaddwd of the (Cb, Cr) words
  // of a pair gives m0 * Cb + m1 * Cr.  The -128 of both chroma samples goes into the bias:
  // m0 (Cb - 128) + m1 (Cr - 128) = m0 Cb + m1 Cr - 128 (m0 + m1), an exact identity, and
  // m Cb + m Cr stays below 2 * 2^15 * 255 (int32).  The chroma bias also carries 128 << 14,
  // which comes out of the arithmetic shift as exactly +128.
  struct Consts {
    explicit Consts(const ColorMatrix &m)
        : my(pair(m.y_cb, m.y_cr)),
          mcb(pair(m.cb_cb, m.cb_cr)),
          mcr(pair(m.cr_cb, m.cr_cr)),
          by(Vec::set1_epi32(bias(m.y_cb, m.y_cr, 0))),
          bcb(Vec::set1_epi32(bias(m.cb_cb, m.cb_cr, 128))),
          bcr(Vec::set1_epi32(bias(m.cr_cb, m.cr_cr, 128))) {}
    static Reg pair(int16_t cb, int16_t cr) {
      return Vec::set1_epi32(static_cast<int>(static_cast<uint32_t>(static_cast<uint16_t>(cb)) |
                                              (static_cast<uint32_t>(static_cast<uint16_t>(cr))
                                               << 16)));
    }
    static int bias(int m0, int m1, int offset) { return 8192 + (offset << 14) - 128 * (m0 + m1); }
    Reg my, mcb, mcr, by, bcb, bcr;
  };

  static inline void run(const uint8_t *s, uint8_t *d, const Consts &k) {
    const Reg low_bytes = Vec::set1_epi16(0x00FF);
    const Reg x = Vec::loadu(s);
    // Words: chroma Cb0 Cr0 Cb1 Cr1 ..., luma Y0 Y1 Y2 Y3 ... (pair p owns Y 2p, 2p + 1).
    const Reg c = chroma_low<L>() ? Vec::and_si(x, low_bytes) : Vec::template srli_epi16<8>(x);
    Reg y = chroma_low<L>() ? Vec::template srli_epi16<8>(x) : Vec::and_si(x, low_bytes);
    // One 32-bit lane per pair.  |dy| <= 42 and cb, cr in -18..273: the 16-bit packs are exact.
    const Reg dy = Vec::template srai_epi32<14>(Vec::add_epi32(Vec::madd_epi16(c, k.my), k.by));
    const Reg cb = Vec::template srai_epi32<14>(Vec::add_epi32(Vec::madd_epi16(c, k.mcb), k.bcb));
    const Reg cr = Vec::template srai_epi32<14>(Vec::add_epi32(Vec::madd_epi16(c, k.mcr), k.bcr));
    const Reg dy16 = Vec::packs_epi32(dy, dy);
    y = Vec::add_epi16(y, Vec::unpacklo_epi16(dy16, dy16));  // -42..297
    const Reg cc = Vec::unpacklo_epi16(Vec::packs_epi32(cb, cb), Vec::packs_epi32(cr, cr));
    const Reg lo = chroma_low<L>() ? Vec::unpacklo_epi16(cc, y) : Vec::unpacklo_epi16(y, cc);
    const Reg hi = chroma_low<L>() ? Vec::unpackhi_epi16(cc, y) : Vec::unpackhi_epi16(y, cc);
    Vec::storeu(d, Vec::packus_epi16(lo, hi));  // the clamp to 0..255
  }
};

template <class Vec, class L>
void color_kernel_x86(const uint8_t *src, uint8_t *dst, size_t pixels, const ColorMatrix *m) {
  color_line<ColorStepX86<Vec, L>, L>(src, dst, pixels, m);
}

template <class Vec>
void color_fill_x86(ColorKernelTable *table) {
  table->uyvy = color_kernel_x86<Vec, UyvyLayout>;
  table->yuyv = color_kernel_x86<Vec, YuyvLayout>;
}

}  // namespace
}  // namespace color_detail
}  // namespace framedsp
