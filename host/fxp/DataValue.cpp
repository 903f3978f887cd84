#include "host/fxp/DataValue.hpp"

#include <algorithm>
#include <bit>
#include <cfloat>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace FXP {

namespace detail {

// Exact intermediate results are sign + magnitude * 2^exp, the magnitude in
// 32-bit limbs on the stack. The widest magnitude is a quotient numerator: a
// 128-bit dividend shifted by up to 2303 bits (largest double exponent minus
// smallest, plus 256 fraction bits and two guard bits), so 2560 bits hold
// every case without a heap allocation.
constexpr int kLimbs = 80;  // 2560 bits

// Invariant: limbs at index n and above are zero, w[n-1] != 0 when n > 0.
struct Nat {
  std::uint32_t w[kLimbs] = {};
  int n = 0;
};

struct Exact {
  bool neg = false;
  int exp = 0;
  Nat mag;
};

}  // namespace detail

namespace {

using detail::Exact;
using detail::kLimbs;
using detail::Nat;

void trim(Nat& a) {
  while (a.n > 0 && a.w[a.n - 1] == 0) --a.n;
}

Nat natOf(UInt128 v) {
  Nat r;
  for (int i = 0; i < 4; ++i)
    r.w[i] = static_cast<std::uint32_t>(v >> (32 * i));
  r.n = 4;
  trim(r);
  return r;
}

UInt128 low128(const Nat& a) {
  UInt128 v = 0;
  for (int i = 3; i >= 0; --i) v = (v << 32) | a.w[i];
  return v;
}

int bitLength(const Nat& a) {
  return a.n == 0 ? 0 : 32 * a.n - std::countl_zero(a.w[a.n - 1]);
}

int compare(const Nat& a, const Nat& b) {
  if (a.n != b.n) return a.n < b.n ? -1 : 1;
  for (int i = a.n - 1; i >= 0; --i)
    if (a.w[i] != b.w[i]) return a.w[i] < b.w[i] ? -1 : 1;
  return 0;
}

// Callers keep bitLength(a) + s within 32 * kLimbs bits; the bounds are argued
// where the shift amounts are formed.
void shiftLeft(Nat& a, int s) {
  if (a.n == 0 || s == 0) return;
  const int ls = s / 32, bs = s % 32;
  const int top = a.n + ls;  // index of a possible carry-out limb
  for (int i = top; i >= ls; --i) {
    const int j = i - ls;
    const std::uint32_t hi = j < a.n ? a.w[j] : 0;
    const std::uint32_t lo = j >= 1 ? a.w[j - 1] : 0;
    const std::uint32_t v = bs ? (hi << bs) | (lo >> (32 - bs)) : hi;
    if (i < kLimbs) a.w[i] = v;
  }
  for (int i = 0; i < ls; ++i) a.w[i] = 0;
  a.n = std::min(top + 1, kLimbs);
  trim(a);
}

// a >>= s, reporting the highest bit shifted out (guard) and whether any bit
// below it was set (sticky): all that rounding needs of the discarded part.
void shiftRight(Nat& a, long s, bool& guard, bool& sticky) {
  guard = sticky = false;
  if (s <= 0 || a.n == 0) return;
  if (s > bitLength(a)) {
    sticky = true;
    a = Nat();
    return;
  }
  const int g = static_cast<int>(s) - 1;  // guard bit index, < bitLength
  guard = (a.w[g / 32] >> (g % 32)) & 1;
  for (int i = 0; i < g / 32 && !sticky; ++i) sticky = a.w[i] != 0;
  if (g % 32 != 0) sticky = sticky || (a.w[g / 32] & ((1u << (g % 32)) - 1));
  const int ls = static_cast<int>(s) / 32, bs = static_cast<int>(s) % 32;
  for (int i = 0; i + ls < a.n; ++i) {
    const std::uint32_t lo = a.w[i + ls];
    const std::uint32_t hi = i + ls + 1 < kLimbs ? a.w[i + ls + 1] : 0;
    a.w[i] = bs ? (lo >> bs) | (hi << (32 - bs)) : lo;
  }
  for (int i = std::max(a.n - ls, 0); i < a.n; ++i) a.w[i] = 0;
  a.n -= ls;
  trim(a);
}

void addInPlace(Nat& a, const Nat& b) {
  const int n = std::max(a.n, b.n);
  std::uint64_t carry = 0;
  for (int i = 0; i < n; ++i) {
    carry += static_cast<std::uint64_t>(a.w[i]) + b.w[i];
    a.w[i] = static_cast<std::uint32_t>(carry);
    carry >>= 32;
  }
  a.n = n;
  if (carry != 0) a.w[a.n++] = 1;  // widths stay far below 32 * kLimbs
}

// a -= b for a >= b.
void subInPlace(Nat& a, const Nat& b) {
  std::int64_t borrow = 0;
  for (int i = 0; i < a.n; ++i) {
    std::int64_t t = static_cast<std::int64_t>(a.w[i]) - borrow -
                     (i < b.n ? static_cast<std::int64_t>(b.w[i]) : 0);
    borrow = t < 0;
    a.w[i] = static_cast<std::uint32_t>(t + (borrow << 32));
  }
  trim(a);
}

void addOne(Nat& a) {
  Nat one;
  one.w[0] = 1;
  one.n = 1;
  addInPlace(a, one);
}

// Operands of at most 128 bits each.
Nat multiply(const Nat& a, const Nat& b) {
  Nat r;
  for (int i = 0; i < a.n; ++i) {
    std::uint64_t carry = 0;
    for (int j = 0; j < b.n; ++j) {
      carry += static_cast<std::uint64_t>(a.w[i]) * b.w[j] + r.w[i + j];
      r.w[i + j] = static_cast<std::uint32_t>(carry);
      carry >>= 32;
    }
    r.w[i + b.n] = static_cast<std::uint32_t>(carry);
  }
  r.n = a.n + b.n;
  trim(r);
  return r;
}

// q = u / v for v != 0 (long division with 32-bit digits, normalised
// divisor, two-digit quotient estimate); returns whether a remainder is left.
bool divide(const Nat& u, const Nat& v, Nat& q) {
  q = Nat();
  if (compare(u, v) < 0) return u.n != 0;
  const int n = v.n, m = u.n;
  if (n == 1) {
    const std::uint64_t d = v.w[0];
    std::uint64_t r = 0;
    for (int j = m - 1; j >= 0; --j) {
      const std::uint64_t cur = (r << 32) | u.w[j];
      q.w[j] = static_cast<std::uint32_t>(cur / d);
      r = cur % d;
    }
    q.n = m;
    trim(q);
    return r != 0;
  }
  const int s = std::countl_zero(v.w[n - 1]);  // [0, 31]
  std::uint32_t vn[kLimbs];
  std::uint32_t un[kLimbs + 1];
  for (int i = n - 1; i > 0; --i)
    vn[i] = (v.w[i] << s) | (s ? v.w[i - 1] >> (32 - s) : 0);
  vn[0] = v.w[0] << s;
  un[m] = s ? u.w[m - 1] >> (32 - s) : 0;
  for (int i = m - 1; i > 0; --i)
    un[i] = (u.w[i] << s) | (s ? u.w[i - 1] >> (32 - s) : 0);
  un[0] = u.w[0] << s;

  constexpr std::uint64_t kBase = std::uint64_t{1} << 32;
  for (int j = m - n; j >= 0; --j) {
    const std::uint64_t num =
        (static_cast<std::uint64_t>(un[j + n]) << 32) | un[j + n - 1];
    std::uint64_t qhat = num / vn[n - 1];
    std::uint64_t rhat = num % vn[n - 1];
    while (qhat >= kBase || qhat * vn[n - 2] > ((rhat << 32) | un[j + n - 2])) {
      --qhat;
      rhat += vn[n - 1];
      if (rhat >= kBase) break;
    }
    std::int64_t k = 0;
    std::int64_t t = 0;
    for (int i = 0; i < n; ++i) {
      const std::uint64_t p = qhat * vn[i];
      t = static_cast<std::int64_t>(un[i + j]) - k -
          static_cast<std::int64_t>(p & 0xFFFFFFFFu);
      un[i + j] = static_cast<std::uint32_t>(t);
      k = static_cast<std::int64_t>(p >> 32) - (t >> 32);
    }
    t = static_cast<std::int64_t>(un[j + n]) - k;
    un[j + n] = static_cast<std::uint32_t>(t);
    q.w[j] = static_cast<std::uint32_t>(qhat);
    if (t < 0) {  // the estimate was one too large: add the divisor back
      q.w[j] -= 1;
      std::uint64_t c = 0;
      for (int i = 0; i < n; ++i) {
        c += static_cast<std::uint64_t>(un[i + j]) + vn[i];
        un[i + j] = static_cast<std::uint32_t>(c);
        c >>= 32;
      }
      un[j + n] += static_cast<std::uint32_t>(c);
    }
  }
  q.n = m - n + 1;
  trim(q);
  for (int i = 0; i < n; ++i)
    if (un[i] != 0) return true;
  return false;
}

// --- exact values --------------------------------------------------------

Exact exactOfDouble(double d) {
  Exact r;
  const auto bits = std::bit_cast<std::uint64_t>(d);
  const int biased = static_cast<int>((bits >> 52) & 0x7FF);
  std::uint64_t m = bits & ((std::uint64_t{1} << 52) - 1);
  if (biased != 0) m |= std::uint64_t{1} << 52;
  r.neg = (bits >> 63) != 0 && (m != 0);
  // The exponent of the mantissa's last bit: bias 1023 plus 52 fraction
  // bits; subnormals share the smallest normal exponent's step.
  r.exp = biased != 0 ? biased - 1075 : -1074;
  r.mag = natOf(m);
  return r;
}

UInt128 extend(UInt128 v, int bits, bool isSigned) {
  if (bits >= 128) return v;
  const UInt128 mask = (UInt128{1} << bits) - 1;
  v &= mask;
  if (isSigned && ((v >> (bits - 1)) & 1)) v |= ~mask;
  return v;
}

UInt128 maxStored(const DataType& t) {
  const int w = t.wordLength();
  if (t.isSigned()) return (UInt128{1} << (w - 1)) - 1;
  return w == 128 ? ~UInt128{0} : (UInt128{1} << w) - 1;
}

UInt128 minStored(const DataType& t) {
  return t.isSigned()
             ? extend(UInt128{1} << (t.wordLength() - 1), t.wordLength(), true)
             : 0;
}

bool roundsAway(int rounding, bool neg, bool guard, bool sticky, bool odd) {
  switch (rounding) {
    case MathMode::kTowardZero:
      return false;
    case MathMode::kNearestTiesUp:
      return guard && (sticky || !neg);
    case MathMode::kCeiling:
      return (guard || sticky) && !neg;
    case MathMode::kFloor:
      return (guard || sticky) && neg;
    case MathMode::kNearestTiesEven:
      return guard && (sticky || odd);
    default:  // kNearestTiesAway
      return guard;
  }
}

// The stored integer of x in the fixed-point type t: round(x * 2^F), then
// the overflow rule. Sets overflow when the rounded integer is out of range.
UInt128 roundToFixed(const Exact& x, const DataType& t, MathMode mode,
                     bool& overflow) {
  if (x.mag.n == 0) return 0;
  const int w = t.wordLength();
  const long sh = static_cast<long>(x.exp) + t.fractionLength();
  Nat i = x.mag;
  UInt128 low = 0;
  int bl = 0;
  if (sh > 0 && bitLength(i) + sh > 130) {
    // At least 2^130 in magnitude, so out of range for every word length;
    // only the low 128 bits matter, for wrapping.
    low = sh >= 128 ? 0 : low128(i) << sh;
    bl = INT_MAX;
  } else {
    bool guard = false, sticky = false;
    if (sh > 0)
      shiftLeft(i, static_cast<int>(sh));
    else
      shiftRight(i, -sh, guard, sticky);
    if (roundsAway(mode.roundingCode(), x.neg, guard, sticky, i.w[0] & 1))
      addOne(i);
    low = low128(i);
    bl = bitLength(i);
  }
  const bool inRange =
      t.isSigned()
          ? bl <= w - 1 || (x.neg && bl == w && low == UInt128{1} << (w - 1))
          : bl <= w && (!x.neg || bl == 0);
  if (inRange) return x.neg ? -low : low;
  overflow = true;
  if (mode.saturates()) return x.neg ? minStored(t) : maxStored(t);
  return extend(x.neg ? -low : low, w, t.isSigned());
}

// Nearest double, ties to even; beyond DBL_MAX saturates and sets overflow.
double roundToDouble(const Exact& x, bool& overflow) {
  if (x.mag.n == 0) return 0.0;
  const int bl = bitLength(x.mag);
  const long top = static_cast<long>(x.exp) + bl - 1;
  if (top > 1023) {  // beyond the largest finite double's exponent
    overflow = true;
    return x.neg ? -DBL_MAX : DBL_MAX;
  }
  const long q = std::max(top - 52, -1074L);  // exponent of the last kept bit
  Nat i = x.mag;
  bool guard = false, sticky = false;
  if (q > x.exp)
    shiftRight(i, q - x.exp, guard, sticky);
  else
    shiftLeft(i, static_cast<int>(x.exp - q));  // at most 52 bits
  if (guard && (sticky || (i.w[0] & 1))) addOne(i);
  const auto m = static_cast<std::uint64_t>(low128(i));  // <= 2^53
  double r = std::ldexp(static_cast<double>(m), static_cast<int>(q));
  if (r > DBL_MAX) {
    overflow = true;
    r = DBL_MAX;
  }
  return x.neg ? -r : r;
}

Exact addExact(const Exact& a, const Exact& b) {
  if (a.mag.n == 0) return b;
  if (b.mag.n == 0) return a;
  // Alignment shifts by at most 971 + 1074 (double exponent span) bits.
  const int e = std::min(a.exp, b.exp);
  Exact r;
  r.exp = e;
  Nat x = a.mag, y = b.mag;
  shiftLeft(x, a.exp - e);
  shiftLeft(y, b.exp - e);
  if (a.neg == b.neg) {
    addInPlace(x, y);
    r.neg = a.neg;
    r.mag = x;
    return r;
  }
  const int c = compare(x, y);
  if (c == 0) return Exact();
  if (c > 0) {
    subInPlace(x, y);
    r.neg = a.neg;
    r.mag = x;
  } else {
    subInPlace(y, x);
    r.neg = b.neg;
    r.mag = y;
  }
  return r;
}

Exact multiplyExact(const Exact& a, const Exact& b) {
  Exact r;
  r.mag = multiply(a.mag, b.mag);
  if (r.mag.n == 0) return r;
  r.neg = a.neg != b.neg;
  r.exp = a.exp + b.exp;
  return r;
}

// A quotient cut off at least two bits below the result type's last bit,
// with a set bit appended when the division left a remainder. That stands in
// for the discarded tail: it lies strictly between the same two multiples of
// the cut-off weight as the true quotient, so every rounding decision comes
// out the same as on the exact quotient.
Exact divideExact(const Exact& a, const Exact& b, const DataType& resultType) {
  if (a.mag.n == 0) return Exact();
  const int blA = bitLength(a.mag), blB = bitLength(b.mag);
  // Last kept bit of the quotient: two below the fixed-point ulp, or 56 bits
  // below the leading quotient bit for a double result.
  const long e = resultType.isFixed()
                     ? -static_cast<long>(resultType.fractionLength()) - 2
                     : static_cast<long>(a.exp + blA) - (b.exp + blB) - 56;
  const long s = static_cast<long>(a.exp) - b.exp - e;  // q = A*2^s / B
  Nat num = a.mag, den = b.mag, q;
  bool remainder = true;
  if (s >= 0) {
    shiftLeft(num, static_cast<int>(s));  // <= 2303 bits, see kLimbs
    remainder = divide(num, den, q);
  } else if (blB - 1 - s < blA) {
    shiftLeft(den, static_cast<int>(-s));  // < 128 + blB bits here
    remainder = divide(num, den, q);
  }  // else the quotient is below one unit of 2^e: q = 0 with a remainder
  shiftLeft(q, 1);
  if (remainder) {
    q.w[0] |= 1;
    if (q.n == 0) q.n = 1;
  }
  Exact r;
  r.neg = a.neg != b.neg;
  r.exp = static_cast<int>(e - 1);
  r.mag = q;
  return r;
}

}  // namespace

// --- DataValue -------------------------------------------------------------

namespace {

Exact exactOf(const DataType& t, std::uint64_t lo, std::uint64_t hi) {
  if (t.isDouble()) return exactOfDouble(std::bit_cast<double>(lo));
  Exact r;
  const UInt128 v = (static_cast<UInt128>(hi) << 64) | lo;
  r.neg = t.isSigned() && static_cast<Int128>(v) < 0;
  r.mag = natOf(r.neg ? -v : v);
  r.exp = -t.fractionLength();
  return r;
}

}  // namespace

DataValue DataValue::fromDoubleSlow(const DataType& type, double value,
                                    MathMode mode) {
  if (std::isnan(value))
    return type.isDouble() ? ofDouble(0.0) : DataValue(type, 0, 0);
  if (std::isinf(value)) {
    if (type.isDouble()) return ofDouble(value > 0 ? DBL_MAX : -DBL_MAX);
    return ofInt128(type, static_cast<Int128>(value > 0 ? maxStored(type)
                                                        : minStored(type)));
  }
  if (type.isDouble()) return ofDouble(value);
  bool overflow = false;
  return ofInt128(type, static_cast<Int128>(roundToFixed(
                            exactOfDouble(value), type, mode, overflow)));
}

DataValue DataValue::fromInt64Slow(const DataType& type, std::int64_t value,
                                   MathMode mode) {
  // A double holds every integer up to 2^53 exactly: nothing to round, so
  // the mode does not enter and the general route would give these bits.
  constexpr std::int64_t kExact = std::int64_t{1} << 53;
  if (type.isDouble() && value >= -kExact && value <= kExact)
    return ofDouble(static_cast<double>(value));
  MathControl control(mode);  // no logger: fromDouble has none either
  return fromInt64(value).convert(type, control);
}

double DataValue::toDoubleWide() const noexcept {
  // Only fixed-point values outside the int64_t / uint64_t range come here.
  const UInt128 v = (static_cast<UInt128>(hi_) << 64) | lo_;
  const bool neg = type_.isSigned() && static_cast<Int128>(v) < 0;
  const UInt128 mag = neg ? -v : v;
  const int bl =
      128 - (static_cast<std::uint64_t>(mag >> 64) != 0
                 ? std::countl_zero(static_cast<std::uint64_t>(mag >> 64))
                 : 64 + std::countl_zero(static_cast<std::uint64_t>(mag)));
  const int shift = std::max(bl - 64, 0);
  // Keep 64 bits and fold the rest into the lowest one: the conversion to
  // 53 bits then rounds as it would on the full value.
  auto top = static_cast<std::uint64_t>(mag >> shift);
  if (shift > 0 && (mag & ((UInt128{1} << shift) - 1)) != 0) top |= 1;
  const double r =
      static_cast<double>(top) * detail::pow2(shift - type_.fractionLength());
  return neg ? -r : r;
}

// The one rounding of an exact result into its type, with the overflow
// report every operation owes the control's logger.
DataValue DataValue::roundInto(const Exact& exact, const DataType& resultType,
                               MathControl& control) {
  bool overflow = false;
  const DataValue result =
      resultType.isDouble()
          ? ofDouble(roundToDouble(exact, overflow))
          : ofInt128(resultType,
                     static_cast<Int128>(roundToFixed(
                         exact, resultType, control.getMathMode(), overflow)));
  if (overflow && control.getMathLogger() != nullptr) {
    control.getMathLogger()->logOverflow();
  }
  return result;
}

DataValue DataValue::arithmetic(Op op, const DataType& resultType,
                                const DataValue& other,
                                MathControl& control) const {
  if (op == Op::kDivide) {
    const bool zero = other.type_.isDouble() ? other.asDouble() == 0.0
                                             : (other.lo_ | other.hi_) == 0;
    if (zero)
      throw std::domain_error(
          "FXP::DataValue::divideBy: division by zero (divisor 'other' is 0)");
  }
  if (type_.isDouble() && other.type_.isDouble() && resultType.isDouble() &&
      (op == Op::kMultiply || op == Op::kDivide)) {
    // IEEE multiplication and division already round the exact result once,
    // to nearest even, subnormals included.
    const double r = op == Op::kMultiply ? asDouble() * other.asDouble()
                                         : asDouble() / other.asDouble();
    if (r - r == 0) return ofDouble(r == 0 ? 0.0 : r);
  }
  const Exact a = exactOf(type_, lo_, hi_);
  Exact b = exactOf(other.type_, other.lo_, other.hi_);
  Exact r;
  switch (op) {
    case Op::kAdd:
      r = addExact(a, b);
      break;
    case Op::kMinus:
      b.neg = !b.neg && b.mag.n != 0;
      r = addExact(a, b);
      break;
    case Op::kMultiply:
      r = multiplyExact(a, b);
      break;
    case Op::kDivide:
      r = divideExact(a, b, resultType);
      break;
  }
  return roundInto(r, resultType, control);
}

DataValue DataValue::convert(const DataType& resultType,
                             MathControl& control) const {
  if (type_ == resultType) {
    // A stored -0.0 (fromDouble keeps it) still converts to +0.0.
    return type_.isDouble() ? ofDouble(asDouble() + 0.0) : *this;
  }
  return roundInto(exactOf(type_, lo_, hi_), resultType, control);
}

std::weak_ordering DataValue::compareSlow(const DataValue& a,
                                          const DataValue& b) noexcept {
  Exact nb = exactOf(b.type_, b.lo_, b.hi_);
  nb.neg = !nb.neg && nb.mag.n != 0;
  const Exact d = addExact(exactOf(a.type_, a.lo_, a.hi_), nb);
  if (d.mag.n == 0) return std::weak_ordering::equivalent;
  return d.neg ? std::weak_ordering::less : std::weak_ordering::greater;
}

std::array<std::uint32_t, 4> DataValue::getFatVal() const {
  if (type_.isDouble())
    throw std::domain_error(
        "FXP::DataValue::getFatVal: a double value has no stored integer");
  return {
      static_cast<std::uint32_t>(lo_), static_cast<std::uint32_t>(lo_ >> 32),
      static_cast<std::uint32_t>(hi_), static_cast<std::uint32_t>(hi_ >> 32)};
}

DataValue DataValue::fromStoredSigned(const DataType& type, Int128 stored) {
  if (type.isDouble())
    throw std::domain_error(
        "FXP::DataValue::fromStoredSigned: the double type has no stored "
        "integer");
  if (!type.isSigned()) {
    if (stored < 0)
      throw std::overflow_error(
          "FXP::DataValue::fromStoredSigned: a negative stored integer in an "
          "unsigned type");
    return fromStoredUnsigned(type, static_cast<UInt128>(stored));
  }
  if (!detail::fitsSigned128(stored, type.wordLength()))
    throw std::overflow_error(
        "FXP::DataValue::fromStoredSigned: the stored integer does not fit "
        "the " +
        std::to_string(type.wordLength()) + "-bit word");
  return ofInt128(type, stored);
}

DataValue DataValue::fromStoredUnsigned(const DataType& type, UInt128 stored) {
  if (type.isDouble())
    throw std::domain_error(
        "FXP::DataValue::fromStoredUnsigned: the double type has no stored "
        "integer");
  const bool fits =
      type.isSigned()
          ? type.wordLength() > 1 &&
                detail::fitsUnsigned128(stored, type.wordLength() - 1)
          : detail::fitsUnsigned128(stored, type.wordLength());
  if (!fits && stored != 0)
    throw std::overflow_error(
        "FXP::DataValue::fromStoredUnsigned: the stored integer does not fit "
        "the " +
        std::to_string(type.wordLength()) + "-bit word");
  return DataValue(type, static_cast<std::uint64_t>(stored),
                   static_cast<std::uint64_t>(stored >> 64));
}

std::string DataValue::toDecimalString() const {
  if (type_.isDouble()) {
    char buf[32];
    const auto r = std::to_chars(buf, buf + sizeof buf, asDouble());
    return std::string(buf, r.ptr);
  }
  const bool negative = type_.isSigned() && asInt128() < 0;
  const UInt128 raw = static_cast<UInt128>(asInt128());
  UInt128 magnitude = negative ? ~raw + 1 : raw;
  // Decimal digits, least significant first. stored * 2^-F is
  // stored * 5^F / 10^F: multiplying by 5 F times (or by 2 -F times) keeps
  // every digit exact, and the point then goes F digits from the right.
  std::vector<std::uint8_t> digits;
  do {
    digits.push_back(static_cast<std::uint8_t>(magnitude % 10));
    magnitude /= 10;
  } while (magnitude != 0);
  const int f = type_.fractionLength();
  const auto scaleBy = [&digits](int factor) {
    int carry = 0;
    for (std::uint8_t& d : digits) {
      const int v = d * factor + carry;
      d = static_cast<std::uint8_t>(v % 10);
      carry = v / 10;
    }
    if (carry != 0) digits.push_back(static_cast<std::uint8_t>(carry));
  };
  for (int i = 0; i < f; ++i) scaleBy(5);
  for (int i = 0; i < -f; ++i) scaleBy(2);
  const std::size_t point = f > 0 ? static_cast<std::size_t>(f) : 0;
  while (digits.size() <= point) digits.push_back(0);
  std::size_t low = 0;  // trailing fractional zeros are dropped
  while (low < point && digits[low] == 0) ++low;
  std::string text = negative ? "-" : "";
  for (std::size_t i = digits.size(); i-- > point;)
    text += static_cast<char>('0' + digits[i]);
  if (low < point) {
    text += '.';
    for (std::size_t i = point; i-- > low;)
      text += static_cast<char>('0' + digits[i]);
  }
  return text;
}

void DataValue::toCompact(void* buffer, std::size_t size) const {
  const std::size_t n = type_.sizeofCompact();
  if (buffer == nullptr)
    throw std::invalid_argument("FXP::DataValue::toCompact: buffer is null");
  if (size < n)
    throw std::invalid_argument(
        "FXP::DataValue::toCompact: size " + std::to_string(size) +
        " is below sizeofCompact() " + std::to_string(n));
  unsigned char bytes[16];
  for (int i = 0; i < 8; ++i) {
    bytes[i] = static_cast<unsigned char>(lo_ >> (8 * i));
    bytes[8 + i] = static_cast<unsigned char>(hi_ >> (8 * i));
  }
  std::memcpy(buffer, bytes, n);
}

DataValue DataValue::fromCompact(const DataType& type, const void* bytes) {
  if (bytes == nullptr)
    throw std::invalid_argument("FXP::DataValue::fromCompact: bytes is null");
  const std::size_t n = type.sizeofCompact();
  unsigned char b[16] = {};
  std::memcpy(b, bytes, n);
  UInt128 raw = 0;
  for (int i = 15; i >= 0; --i) raw = (raw << 8) | b[i];
  if (type.isDouble()) {
    const double d = std::bit_cast<double>(static_cast<std::uint64_t>(raw));
    if (!std::isfinite(d))
      throw std::invalid_argument(
          "FXP::DataValue::fromCompact: bytes hold a NaN or infinite double");
    return ofDouble(d);
  }
  const UInt128 canonical = extend(raw, type.wordLength(), type.isSigned());
  if (canonical != extend(raw, static_cast<int>(8 * n), type.isSigned()))
    throw std::invalid_argument(
        "FXP::DataValue::fromCompact: bytes above the " +
        std::to_string(type.wordLength()) + "-bit word are not its " +
        (type.isSigned() ? "sign" : "zero") + " extension");
  return ofInt128(type, static_cast<Int128>(canonical));
}

}  // namespace FXP
