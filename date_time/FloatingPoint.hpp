// Private: exact floating-point helpers for the calendar arithmetic.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

namespace KvDateTime::detail {

// floor() without the library call that baseline x86-64 code makes for it:
// exact for every double. Magnitudes from 2^52 up (and NaN, the infinities)
// are already whole; below that, truncation through int64 is exact, and
// copysign keeps floor(-0.0) == -0.0. Pinned by
// NumericHelpers.FloorMatchesStdFloorAndTruncationSaturates.
inline double fastFloor(double x) noexcept {
  if (!(std::abs(x) < 0x1p52)) return x;
  const double t = static_cast<double>(static_cast<std::int64_t>(x));
  return std::copysign(t > x ? t - 1.0 : t, x);
}

// Whole-number test, as x == floor(x): NaN is never whole, the infinities
// and every magnitude from 2^52 up are. Below 2^52 truncation is exact, so
// comparing with it is enough (and shorter than flooring).
inline bool isIntegral(double x) noexcept {
  if (std::abs(x) < 0x1p52) {
    return x == static_cast<double>(static_cast<std::int64_t>(x));
  }
  return x == x;
}

// Truncation to a 32- or 64-bit integer as the processor does it: a value
// that does not fit (NaN, the infinities, huge magnitudes) gives the minimum
// integer. A plain cast would be undefined there, and validated fields may
// still be infinite.
template <typename Int>
inline Int truncToInt(double x) noexcept {
  constexpr double kLimit =
      -static_cast<double>(std::numeric_limits<Int>::min());  // 2^31 or 2^63
  if (!(x > -kLimit - 1.0 && x < kLimit))
    return std::numeric_limits<Int>::min();
  return static_cast<Int>(x);
}

}  // namespace KvDateTime::detail
