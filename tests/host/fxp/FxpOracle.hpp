#pragma once

// Exact reference results for the fixed-point tests: values as
// Boost.Multiprecision rationals, rounded into a type by the textbook
// definitions, independently of the library's guard/sticky machinery.

#include <algorithm>
#include <array>
#include <bit>
#include <boost/multiprecision/cpp_int.hpp>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <ostream>

#include "host/fxp/FXP.hpp"

namespace fxptest {

using boost::multiprecision::cpp_int;

struct Rational {
  cpp_int num;
  cpp_int den = 1;  // > 0
};

// x * 2^e.
inline Rational times2(Rational x, long e) {
  x.num <<= std::max(e, 0L);
  x.den <<= std::max(-e, 0L);
  return x;
}

inline int compare(const Rational& a, const Rational& b) {
  return cpp_int(a.num * b.den - b.num * a.den).sign();
}
inline bool operator==(const Rational& a, const Rational& b) {
  return compare(a, b) == 0;
}
inline std::ostream& operator<<(std::ostream& out, const Rational& x) {
  return out << x.num << '/' << x.den;
}

inline Rational exactOfDouble(double d) {
  int e = 0;
  const double m = std::frexp(d, &e);  // d = m 2^e, |m| in [0.5, 1) or 0
  return times2({static_cast<std::int64_t>(std::ldexp(m, 53))}, e - 53);
}

inline cpp_int storedOf(const FXP::DataValue& v) {
  cpp_int s = 0;
  for (int i = 3; i >= 0; --i) s = s << 32 | v.getFatVal()[i];
  if (v.getDataType().isSigned() && bit_test(s, 127)) s -= cpp_int(1) << 128;
  return s;
}

inline Rational exactOf(const FXP::DataValue& v) {
  const FXP::DataType& t = v.getDataType();
  if (t.isDouble()) return exactOfDouble(v.toDouble());
  return times2({storedOf(v)}, -t.fractionLength());
}

enum class Op { kAdd, kMinus, kMultiply, kDivide, kConvert };

// The exact result of a op b (b nonzero for a division); a for a conversion.
inline Rational apply(Op op, const Rational& a, const Rational& b) {
  if (op == Op::kConvert) return a;
  if (op == Op::kMultiply) return {a.num * b.num, a.den * b.den};
  if (op == Op::kDivide)
    return {a.num * b.den * b.num.sign(), a.den * abs(b.num)};
  const int sign = op == Op::kAdd ? 1 : -1;
  return {a.num * b.den + sign * b.num * a.den, a.den * b.den};
}

// x rounded to an integer by a rounding code: toward zero, nearest ties up,
// ceiling, floor, nearest ties to even, nearest ties away from zero.
inline cpp_int roundInt(const Rational& x, int code) {
  cpp_int q = x.num / x.den;            // truncated
  if (q * x.den > x.num) --q;           // floored
  const cpp_int r = x.num - q * x.den;  // in [0, den)
  const int half = cpp_int(2 * r - x.den).sign();
  const bool inexact = r != 0, neg = x.num < 0, odd = bit_test(q, 0);
  const bool even = half > 0 || (half == 0 && odd);
  const bool away = half > 0 || (half == 0 && !neg);
  const bool up[] = {inexact && neg, half >= 0, inexact, false, even, away};
  return q + (up[code] ? 1 : 0);
}

inline cpp_int minStored(const FXP::DataType& t) {
  return t.isSigned() ? -(cpp_int(1) << (t.wordLength() - 1)) : cpp_int(0);
}
inline cpp_int maxStored(const FXP::DataType& t) {
  return (cpp_int(1) << (t.wordLength() - (t.isSigned() ? 1 : 0))) - 1;
}

struct Rounded {
  Rational value;
  bool overflow = false;
};

// x brought into type t. Fixed point: x * 2^F rounded by the mode's code,
// then saturated or wrapped when outside the word. Double: nearest, ties to
// even, saturated to +-DBL_MAX when it rounds beyond. Overflow is reported
// exactly when the rounded value leaves the range.
inline Rounded roundInto(const Rational& x, const FXP::DataType& t,
                         FXP::MathMode mode) {
  if (t.isDouble()) {
    if (x.num == 0) return {};
    const cpp_int n = abs(x.num);
    long k = static_cast<long>(msb(n)) - static_cast<long>(msb(x.den));
    if (compare({n, x.den}, times2({1}, k)) < 0) --k;  // 2^k <= |x| < 2^k+1
    const long e = std::max(k - 52, -1074L);  // weight of the last kept bit
    const Rational v = times2({roundInt(times2(x, -e), 4)}, e);
    const Rational max = exactOfDouble(DBL_MAX);
    if (compare({abs(v.num), v.den}, max) <= 0) return {v, false};
    return {{max.num * x.num.sign(), max.den}, true};
  }
  cpp_int q = roundInt(times2(x, t.fractionLength()), mode.roundingCode());
  const cpp_int lo = minStored(t), hi = maxStored(t), m = hi - lo + 1;
  const bool overflow = q < lo || q > hi;
  if (overflow)
    q = mode.saturates() ? (q < lo ? lo : hi) : cpp_int(lo + (q - lo) % m);
  if (q < lo) q += m;  // wrapped below, as % truncates
  return {times2({q}, -t.fractionLength()), overflow};
}

}  // namespace fxptest
