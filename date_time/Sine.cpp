#include "date_time/Sine.hpp"

#include <cmath>

namespace KvDateTime::detail {

// Temporary: the platform sine stands in until the fdlibm port lands, so
// that callers can build against the final signatures.
double fdlibmSin(double x) noexcept { return std::sin(x); }

double tdbMinusTtSeconds(double t) noexcept {
  const double s1 = fdlibmSin(628.3076 * t + 6.2401);
  const double s2 = fdlibmSin(575.3385 * t + 4.297);
  const double s3 = fdlibmSin(1256.6152 * t + 6.1969);
  const double s4 = fdlibmSin(606.9777 * t + 4.0212);
  const double s5 = fdlibmSin(52.9691 * t + 0.4444);
  const double s6 = fdlibmSin(21.3299 * t + 5.5431);
  const double s7 = fdlibmSin(628.3076 * t + 4.249);
  // The order of the sums is part of the result: a different grouping moves
  // the last bit, and TDB values are compared bit for bit across platforms.
  const double a = (1.4e-05 * s3 + 0.001657 * s1) + 2.2e-05 * s2;
  return ((((s7 * t) * 1e-05 + 5e-06 * s5) + a) + 5e-06 * s4) + 2e-06 * s6;
}

}  // namespace KvDateTime::detail
