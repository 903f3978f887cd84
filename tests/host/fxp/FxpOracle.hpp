#pragma once

// Exact reference results for the fixed-point tests, computed with
// Boost.Multiprecision rationals (as numerator / denominator pairs) and
// rounded by the textbook definitions, independently of the library's
// guard/sticky machinery.

#include <boost/multiprecision/cpp_int.hpp>
#include <cmath>
#include <cstdint>
#include <random>

#include "host/fxp/FXP.hpp"

namespace fxptest {

using boost::multiprecision::cpp_int;

struct Rational {
  cpp_int num;
  cpp_int den = 1;  // > 0
};

inline Rational exactOfDouble(double d) {
  if (d == 0) return {0, 1};
  int e = 0;
  const double m = std::frexp(d, &e);  // d = m 2^e, 0.5 <= |m| < 1
  const cpp_int mant = static_cast<std::int64_t>(std::ldexp(m, 53));
  e -= 53;
  if (e >= 0) return {mant << e, 1};
  return {mant, cpp_int(1) << -e};
}

inline cpp_int storedOf(const FXP::DataValue& v) {
  const auto w = v.getFatVal();
  cpp_int s = 0;
  for (int i = 3; i >= 0; --i) s = (s << 32) | cpp_int(w[i]);
  if (v.getDataType().isSigned() && (w[3] >> 31) != 0) s -= cpp_int(1) << 128;
  return s;
}

inline Rational exactOf(const FXP::DataValue& v) {
  const FXP::DataType& t = v.getDataType();
  if (t.isDouble()) return exactOfDouble(v.toDouble());
  const int f = t.fractionLength();
  if (f >= 0) return {storedOf(v), cpp_int(1) << f};
  return {storedOf(v) << -f, 1};
}

inline Rational add(const Rational& a, const Rational& b) {
  return {a.num * b.den + b.num * a.den, a.den * b.den};
}
inline Rational negate(const Rational& a) { return {-a.num, a.den}; }
inline Rational multiply(const Rational& a, const Rational& b) {
  return {a.num * b.num, a.den * b.den};
}
inline Rational divide(const Rational& a, const Rational& b) {
  if (b.num < 0) return {-a.num * b.den, a.den * -b.num};
  return {a.num * b.den, a.den * b.num};
}
inline int compare(const Rational& a, const Rational& b) {
  const cpp_int l = a.num * b.den, r = b.num * a.den;
  return l < r ? -1 : (l > r ? 1 : 0);
}

inline cpp_int floorDiv(const cpp_int& n, const cpp_int& d) {
  cpp_int q = n / d;  // truncates
  if (q * d != n && n < 0) q -= 1;
  return q;
}

struct FixedResult {
  cpp_int stored;
  bool overflow = false;
};

inline cpp_int minStored(const FXP::DataType& t) {
  return t.isSigned() ? -(cpp_int(1) << (t.wordLength() - 1)) : cpp_int(0);
}
inline cpp_int maxStored(const FXP::DataType& t) {
  return (cpp_int(1) << (t.wordLength() - (t.isSigned() ? 1 : 0))) - 1;
}

// x * 2^F rounded by the rounding code, then saturated or wrapped.
inline FixedResult roundToFixed(const Rational& x, const FXP::DataType& t,
                                FXP::MathMode mode) {
  cpp_int n = x.num, d = x.den;
  const int f = t.fractionLength();
  if (f >= 0)
    n <<= f;
  else
    d <<= -f;
  cpp_int q = floorDiv(n, d);
  const cpp_int r = n - q * d;  // [0, d)
  const int half = 2 * r < d ? -1 : (2 * r == d ? 0 : 1);
  const bool exact = r == 0;
  const bool odd = (q % 2) != 0;
  switch (mode.roundingCode()) {
    case 0:
      q += (n < 0 && !exact) ? 1 : 0;
      break;
    case 1:
      q += half >= 0 ? 1 : 0;
      break;
    case 2:
      q += exact ? 0 : 1;
      break;
    case 3:
      break;
    case 4:
      q += (half > 0 || (half == 0 && odd)) ? 1 : 0;
      break;
    case 5:
      q += (half > 0 || (half == 0 && n > 0)) ? 1 : 0;
      break;
  }
  const cpp_int lo = minStored(t), hi = maxStored(t);
  if (q >= lo && q <= hi) return {q, false};
  if (mode.overflowCode() == 1) return {q < lo ? lo : hi, true};
  const cpp_int m = cpp_int(1) << t.wordLength();
  cpp_int v = q % m;
  if (v < 0) v += m;
  if (t.isSigned() && v > hi) v -= m;
  return {v, true};
}

struct DoubleResult {
  double value = 0;
  bool overflow = false;
};

// Nearest double, ties to even; beyond DBL_MAX reported and saturated.
inline DoubleResult roundToDouble(const Rational& x) {
  if (x.num == 0) return {0.0, false};
  const bool neg = x.num < 0;
  const cpp_int n = neg ? cpp_int(-x.num) : x.num;
  const cpp_int& d = x.den;
  long e = static_cast<long>(msb(n)) - static_cast<long>(msb(d)) - 52;
  auto quotient = [&](long ex, cpp_int& q, cpp_int& r, cpp_int& dd) {
    cpp_int nn = n;
    dd = d;
    if (ex >= 0)
      dd <<= ex;
    else
      nn <<= -ex;
    q = nn / dd;
    r = nn - q * dd;
  };
  cpp_int q, r, dd;
  quotient(e, q, r, dd);
  if (q < (cpp_int(1) << 52)) quotient(--e, q, r, dd);
  if (e < -1074) quotient(e = -1074, q, r, dd);
  if (2 * r > dd || (2 * r == dd && (q % 2) != 0)) q += 1;
  double v = std::ldexp(static_cast<double>(q), static_cast<int>(e));
  bool overflow = false;
  if (std::isinf(v)) {
    overflow = true;
    v = 1.7976931348623157e308;
  }
  return {neg ? -v : v, overflow};
}

// Random types and values that favour the places where rounding and range
// decisions flip: boundaries, ties at the type's ulp, tiny and huge doubles.
class Generator {
 public:
  explicit Generator(std::uint64_t seed) : rng_(seed) {}

  int uniform(int lo, int hi) {
    return std::uniform_int_distribution<int>(lo, hi)(rng_);
  }
  std::uint64_t bits() { return rng_(); }

  FXP::DataType type(int doublePercent = 12) {
    if (uniform(1, 100) <= doublePercent) return FXP::DataType::doubleT();
    static constexpr int kCommon[] = {1,  2,  7,  8,  16, 31,  32, 33,
                                      53, 63, 64, 65, 96, 127, 128};
    const int w = uniform(0, 1) ? uniform(1, 128) : kCommon[uniform(0, 14)];
    const int f = uniform(0, 2) ? std::clamp(uniform(-8, w + 8), -128, 256)
                                : uniform(-128, 256);
    return FXP::DataType::fixedT(uniform(0, 1) != 0, w, f);
  }

  FXP::MathMode mode() { return FXP::MathMode(uniform(0, 5), uniform(0, 1)); }

  double realDouble(int minExp = -80, int maxExp = 80) {
    switch (uniform(0, 9)) {
      case 0: {
        static constexpr double kSpecial[] = {0.0,
                                              -0.0,
                                              1.0,
                                              -1.0,
                                              0.5,
                                              -0.5,
                                              1.5,
                                              -2.5,
                                              1.7976931348623157e308,
                                              -1.7976931348623157e308,
                                              2.2250738585072014e-308,
                                              4.9e-324,
                                              -4.9e-324,
                                              0x1p127,
                                              -0x1p127,
                                              0x1p128,
                                              0x1p64,
                                              -0x1p63};
        return kSpecial[uniform(0, 17)];
      }
      case 1:  // anywhere in the double range
        return std::ldexp(mantissa(), uniform(-1074, 1023));
      case 2:  // a tie or near-tie at a random binary position
        return std::ldexp(static_cast<double>(static_cast<std::int64_t>(
                              bits() >> uniform(11, 62))) +
                              0.5 * uniform(-1, 1),
                          uniform(-60, 40)) *
               (uniform(0, 1) ? 1 : -1);
      case 3:  // small integers and halves
        return uniform(-2000, 2000) / 2.0;
      default:
        return std::ldexp(mantissa(), uniform(minExp, maxExp));
    }
  }

  // A random value of type t: random words, boundaries, small numbers.
  FXP::DataValue value(const FXP::DataType& t) {
    if (t.isDouble()) {
      const double d = realDouble();
      unsigned char b[8];
      std::memcpy(b, &d, 8);
      return FXP::DataValue::fromCompact(t, b);
    }
    cpp_int s;
    const cpp_int lo = minStored(t), hi = maxStored(t);
    switch (uniform(0, 5)) {
      case 0: {
        static const int kEdge[] = {0, 1, 2, -1, -2};
        const int k = uniform(0, 7);
        s = k < 5 ? cpp_int(kEdge[k]) : (k == 5 ? lo : hi);
        s += uniform(-1, 1);
        break;
      }
      case 1:
        s = uniform(-1000, 1000);
        break;
      default: {
        cpp_int r = (cpp_int(bits()) << 64) | cpp_int(bits());
        r >>= uniform(0, 127);
        s = lo + r % (hi - lo + 1);
      }
    }
    if (s < lo) s = lo;
    if (s > hi) s = hi;
    if (s < 0) s += cpp_int(1) << 128;  // two's complement, then truncate
    unsigned char b[16];
    for (int i = 0; i < 16; ++i)
      b[i] = static_cast<unsigned char>(s >> (8 * i) & 0xFF);
    return FXP::DataValue::fromCompact(t, b);
  }

 private:
  double mantissa() {
    return std::ldexp(static_cast<double>(bits() >> 11), -53) *
           (uniform(0, 1) ? 1 : -1);
  }
  std::mt19937_64 rng_;
};

}  // namespace fxptest
