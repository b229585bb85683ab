#include "scale/wide_int.h"

#include <cstring>
#include <stdexcept>

namespace framedsp {

namespace {

void overflow() { throw std::overflow_error("wide integer overflow"); }

// num / den with `digits` significant bits, rounded to nearest, ties to even:
// the value is *mantissa * 2^*exponent with 2^(digits-1) <= *mantissa < 2^digits.
void round_ratio(Wide num, Wide den, int digits, uint64_t *mantissa, int *exponent) {
  int e = num.bits() - den.bits();
  if (e >= 0) {
    den <<= e;
  } else {
    num <<= -e;
  }
  if (num < den) {
    num <<= 1;
    --e;
  }
  // den <= num < 2 den: one quotient bit per step, then one more for rounding.
  uint64_t q = 0;
  for (int i = 0; i <= digits; ++i) {
    q <<= 1;
    if (!(num < den)) {
      num -= den;
      q |= 1;
    }
    num <<= 1;
  }
  uint64_t m = q >> 1;
  if ((q & 1) && (!num.is_zero() || (m & 1))) ++m;
  int exp = e - (digits - 1);
  if (m >> digits) {
    m >>= 1;
    ++exp;
  }
  *mantissa = m;
  *exponent = exp;
}

}  // namespace

Wide::Wide(uint64_t value) {
  limb_[0] = static_cast<uint32_t>(value);
  limb_[1] = static_cast<uint32_t>(value >> 32);
}

Wide &Wide::operator*=(uint64_t factor) {
  const uint32_t lo = static_cast<uint32_t>(factor), hi = static_cast<uint32_t>(factor >> 32);
  uint32_t out[kLimbs + 2] = {};
  for (int i = 0; i < kLimbs; ++i) {
    const uint64_t a = limb_[i];
    uint64_t t = out[i] + a * lo;  // (2^32-1) + (2^32-1)^2 < 2^64
    out[i] = static_cast<uint32_t>(t);
    t = out[i + 1] + (t >> 32) + a * hi;  // (2^32-1) * 2 + (2^32-1)^2 < 2^64
    out[i + 1] = static_cast<uint32_t>(t);
    for (int k = i + 2; (t >>= 32) != 0; ++k) {
      t += out[k];
      out[k] = static_cast<uint32_t>(t);
    }
  }
  if (out[kLimbs] | out[kLimbs + 1]) overflow();
  std::memcpy(limb_, out, sizeof limb_);
  return *this;
}

Wide &Wide::operator+=(const Wide &other) {
  uint64_t carry = 0;
  for (int i = 0; i < kLimbs; ++i) {
    carry += uint64_t{limb_[i]} + other.limb_[i];
    limb_[i] = static_cast<uint32_t>(carry);
    carry >>= 32;
  }
  if (carry) overflow();
  return *this;
}

Wide &Wide::operator-=(const Wide &other) {
  if (compare(*this, other) < 0) overflow();
  uint64_t borrow = 0;
  for (int i = 0; i < kLimbs; ++i) {
    const uint64_t sub = uint64_t{other.limb_[i]} + borrow;
    borrow = limb_[i] < sub ? 1 : 0;
    limb_[i] = static_cast<uint32_t>(limb_[i] - sub);
  }
  return *this;
}

Wide &Wide::operator<<=(int bits) {
  if (bits <= 0) return *this;
  if (this->bits() + bits > 32 * kLimbs) overflow();
  const int whole = bits / 32, part = bits % 32;
  for (int i = kLimbs - 1; i >= 0; --i) {
    const int from = i - whole;
    uint32_t v = from >= 0 ? limb_[from] << part : 0;
    if (part && from >= 1) v |= limb_[from - 1] >> (32 - part);
    limb_[i] = v;
  }
  return *this;
}

Wide &Wide::operator>>=(int bits) {
  if (bits <= 0) return *this;
  const int whole = bits / 32, part = bits % 32;
  for (int i = 0; i < kLimbs; ++i) {
    const int from = i + whole;
    uint32_t v = from < kLimbs ? limb_[from] >> part : 0;
    if (part && from + 1 < kLimbs) v |= limb_[from + 1] << (32 - part);
    limb_[i] = v;
  }
  return *this;
}

int Wide::bits() const {
  for (int i = kLimbs - 1; i >= 0; --i) {
    if (limb_[i]) {
      int n = 32;
      while (!(limb_[i] >> (n - 1))) --n;
      return 32 * i + n;
    }
  }
  return 0;
}

int compare(const Wide &a, const Wide &b) {
  for (int i = Wide::kLimbs - 1; i >= 0; --i) {
    if (a.limb_[i] != b.limb_[i]) return a.limb_[i] < b.limb_[i] ? -1 : 1;
  }
  return 0;
}

// IEEE binary64: 52 fraction bits, bias 1023.  The helper's values lie between 2^-300 and 2^300,
// far inside the normal range; outside it the result saturates to infinity or zero.
double ratio_to_double(const Wide &num, const Wide &den, bool negative) {
  uint64_t bits = negative ? uint64_t{1} << 63 : 0;
  if (!num.is_zero()) {
    uint64_t m;
    int e;
    round_ratio(num, den, 53, &m, &e);
    const int biased = e + 52 + 1023;
    if (biased >= 2047) {
      bits |= uint64_t{2047} << 52;
    } else if (biased > 0) {
      bits |= (uint64_t(biased) << 52) | (m & ((uint64_t{1} << 52) - 1));
    }
  }
  double value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

// IEEE binary32: 23 fraction bits, bias 127.
float ratio_to_float(const Wide &num, const Wide &den) {
  uint32_t bits = 0;
  if (!num.is_zero()) {
    uint64_t m;
    int e;
    round_ratio(num, den, 24, &m, &e);
    const int biased = e + 23 + 127;
    if (biased >= 255) {
      bits = uint32_t{255} << 23;
    } else if (biased > 0) {
      bits = (uint32_t(biased) << 23) | (static_cast<uint32_t>(m) & ((1u << 23) - 1));
    }
  }
  float value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

}  // namespace framedsp
