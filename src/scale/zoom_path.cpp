#include "scale/zoom_path.h"

#include "scale/wide_int.h"

namespace framedsp {

namespace {

constexpr uint64_t kOneQ62 = uint64_t{1} << 62;

// round(2^62 * 2^(2^-i)) for i = 1..48, from exact integer square roots.
constexpr uint64_t kExp2Q62[kLog2Fraction] = {
    0x5A827999FCEF3242ULL, 0x4C1BF828C6DC54B8ULL, 0x45CAE0F1F545EB73ULL,
    0x42D561B3E6243D8AULL, 0x4166C34C5615D0ECULL, 0x40B268F9DE0183BAULL,
    0x4058F6A7ECCCD5B6ULL, 0x402C6BE96AF2FB58ULL, 0x4016321B687027A8ULL,
    0x400B18178BA33B14ULL, 0x40058BCE410147E8ULL, 0x4002C5D7BFF71DAFULL,
    0x400162E807EE7E5BULL, 0x4000B1730DF6A524ULL, 0x400058B9497B8152ULL,
    0x40002C5C955DD701ULL, 0x4000162E46D6F26CULL, 0x40000B1722757B1BULL,
    0x4000058B90FD3E0CULL, 0x400002C5C86F3F26ULL, 0x40000162E433C79BULL,
    0x400000B17218EDD0ULL, 0x40000058B90C3968ULL, 0x4000002C5C860D54ULL,
    0x400000162E4302D2ULL, 0x4000000B17218073ULL, 0x400000058B90BFFCULL,
    0x40000002C5C85FEFULL, 0x4000000162E42FF3ULL, 0x40000000B17217F9ULL,
    0x4000000058B90BFCULL, 0x400000002C5C85FEULL, 0x40000000162E42FFULL,
    0x400000000B17217FULL, 0x40000000058B90C0ULL, 0x4000000002C5C860ULL,
    0x400000000162E430ULL, 0x4000000000B17218ULL, 0x400000000058B90CULL,
    0x40000000002C5C86ULL, 0x4000000000162E43ULL, 0x40000000000B1721ULL,
    0x4000000000058B91ULL, 0x400000000002C5C8ULL, 0x40000000000162E4ULL,
    0x400000000000B172ULL, 0x40000000000058B9ULL, 0x4000000000002C5DULL,
};

// a * b / 2^62, truncated (a, b < 2^63, so the product is below 2^126).
uint64_t mul_q62(uint64_t a, uint64_t b) { return (Wide(a) * b >> 62).low64(); }

// floor(e / 2^48) for either sign, without shifting a negative value.
int64_t floor_shift48(int64_t e) {
  return e >= 0 ? e >> kLog2Fraction : -((-e + (int64_t{1} << kLog2Fraction) - 1) >> kLog2Fraction);
}

}  // namespace

uint32_t eased_phase_q30(uint32_t phase_q14, uint32_t ease) {
  if (ease == 0) return phase_q14 << 16;
  const uint64_t p = phase_q14;
  const uint64_t s_q42 = p * p * (3 * kPhaseOneQ14 - 2 * p);  // below 2^44
  return static_cast<uint32_t>((s_q42 + (1u << 11)) >> 12);
}

int64_t centre_q44(int32_t a_q14, int32_t b_q14, uint32_t s_q30) {
  return int64_t{a_q14} * kPhaseOneQ30 + (int64_t{b_q14} - a_q14) * int64_t{s_q30};
}

int64_t log2_q48(uint32_t x) {
  int n = 31;
  while (!(x >> n)) --n;
  uint64_t m = uint64_t{x} << (62 - n);  // 1 <= m / 2^62 < 2
  int64_t result = int64_t{n} << kLog2Fraction;
  for (int bit = kLog2Fraction - 1; bit >= 0; --bit) {
    m = mul_q62(m, m);  // below 2^64: m < 2^63
    if (m >> 63) {
      m >>= 1;
      result |= int64_t{1} << bit;
    }
  }
  return result;
}

uint64_t exp2_fraction_q62(uint64_t f_q48) {
  uint64_t m = kOneQ62;
  for (int i = 1; i <= kLog2Fraction; ++i) {
    // Rounded products; the value stays below 2 (2^f <= 2 - 2^-48), far from the Q62 limit.
    if ((f_q48 >> (kLog2Fraction - i)) & 1) {
      m = ((Wide(m) * kExp2Q62[i - 1] + Wide(uint64_t{1} << 61)) >> 62).low64();
    }
  }
  return m;
}

uint64_t zoom_q40(uint32_t za_q14, uint32_t zb_q14, uint32_t s_q30) {
  if (s_q30 == 0 || za_q14 == zb_q14) return uint64_t{za_q14} << 26;
  if (s_q30 >= kPhaseOneQ30) return uint64_t{zb_q14} << 26;
  int64_t slope = log2_q48(zb_q14) - log2_q48(za_q14);  // |slope| < 18 * 2^48
  uint32_t base = za_q14;
  uint64_t weight = s_q30;
  if (s_q30 > kPhaseOneQ30 / 2) {
    base = zb_q14;
    weight = kPhaseOneQ30 - s_q30;
    slope = -slope;
  }
  // exponent = slope * weight / 2^30 in Q48, rounded half away from zero.
  const uint64_t magnitude = static_cast<uint64_t>(slope < 0 ? -slope : slope);
  const uint64_t rounded = ((Wide(magnitude) * weight + Wide(uint64_t{1} << 29)) >> 30).low64();
  const int64_t exponent = slope < 0 ? -static_cast<int64_t>(rounded) : static_cast<int64_t>(rounded);
  const int64_t whole = floor_shift48(exponent);  // -18 .. 17
  const uint64_t fraction = static_cast<uint64_t>(exponent - whole * (int64_t{1} << kLog2Fraction));
  // base / 2^14 * m / 2^62 * 2^whole in Q40: base * m >> (36 - whole), rounded half up.
  const int shift = 36 - static_cast<int>(whole);
  const Wide product = Wide(base) * exp2_fraction_q62(fraction);
  const uint64_t zoom = ((product + Wide(uint64_t{1} << (shift - 1))) >> shift).low64();
  return zoom < (uint64_t{1} << 40) ? uint64_t{1} << 40 : zoom;
}

}  // namespace framedsp
