// The path between two views of a zoom and pan, in integer fixed point so that every platform
// computes the same values: the eased phase, the centre and the geometric zoom.
#pragma once

#include <cstdint>

namespace framedsp {

constexpr uint32_t kPhaseOneQ14 = 16384;
constexpr uint32_t kPhaseOneQ30 = uint32_t{1} << 30;
constexpr int kLog2Fraction = 48;  // fraction bits of log2_q48 and of the zoom's exponent

// The phase t = phase_q14 / 16384 (0..16384) as s in Q30: t itself (ease 0) or 3t^2 - 2t^3
// (ease 1), computed exactly in Q42 and rounded half up.
uint32_t eased_phase_q30(uint32_t phase_q14, uint32_t ease);

// a + (b - a) * s, exactly, in Q44 (a, b in Q14 within -8192..8192, so the result is too).
int64_t centre_q44(int32_t a_q14, int32_t b_q14, uint32_t s_q30);

// log2(x) for x >= 1, in Q48; exact for powers of two.  Repeated squaring of the mantissa in Q62,
// truncated at each step.
int64_t log2_q48(uint32_t x);

// 2^(f / 2^48) for 0 <= f < 2^48, in Q62: the product of 2^(2^-i) over the set bits of f.
uint64_t exp2_fraction_q62(uint64_t f_q48);

// zA^(1-s) * zB^s in Q40 (zA, zB in Q14, at least 16384; s in Q30), from the view nearer in
// phase: zA * 2^(s L) for s <= 1/2, else zB * 2^(-(1-s) L), L = log2(zB / zA).  s = 0 and s = 1
// give zA and zB exactly.  Never below 2^40.
uint64_t zoom_q40(uint32_t za_q14, uint32_t zb_q14, uint32_t s_q30);

}  // namespace framedsp
