// A small unsigned integer of 256 bits for exact geometry: products of a few 64-bit factors, sums,
// shifts, and a quotient rounded once to a double or a float.  Integer operations only, so every
// compiler and FPU gives the same bits.  A result that would not fit throws std::overflow_error
// (the export's guard turns it into E_UNEXPECTED); the callers stay below 2^230.
#pragma once

#include <cstdint>

namespace framedsp {

class Wide {
 public:
  static constexpr int kLimbs = 8;  // 32-bit limbs, least significant first

  Wide() = default;
  explicit Wide(uint64_t value);

  Wide &operator*=(uint64_t factor);
  Wide &operator+=(const Wide &other);
  Wide &operator-=(const Wide &other);  // needs *this >= other
  Wide &operator<<=(int bits);
  Wide &operator>>=(int bits);

  int bits() const;  // index of the highest set bit plus one; 0 for zero
  bool is_zero() const { return bits() == 0; }
  uint64_t low64() const { return limb_[0] | (uint64_t{limb_[1]} << 32); }
  friend int compare(const Wide &a, const Wide &b);  // -1, 0 or 1

 private:
  uint32_t limb_[kLimbs] = {};
};

inline Wide operator*(Wide a, uint64_t b) { return a *= b; }
inline Wide operator+(Wide a, const Wide &b) { return a += b; }
inline Wide operator-(Wide a, const Wide &b) { return a -= b; }
inline Wide operator<<(Wide a, int bits) { return a <<= bits; }
inline Wide operator>>(Wide a, int bits) { return a >>= bits; }
inline bool operator<(const Wide &a, const Wide &b) { return compare(a, b) < 0; }

// (negative ? -1 : 1) * num / den rounded to the nearest double / float, ties to even; den != 0.
// The value is built from its bits, never by floating-point arithmetic.
double ratio_to_double(const Wide &num, const Wide &den, bool negative = false);
float ratio_to_float(const Wide &num, const Wide &den);

}  // namespace framedsp
