// Private: the sine of the TDB - TT series and the series itself. Not
// installed; only the time-standard converters include it.
#pragma once

namespace KvDateTime::detail {

// Sine of x in radians, bit for bit the result of fdlibm's sin (the
// classic Sun algorithm): the platform's sin rounds differently on a few
// percent of arguments, and a TDB value must not depend on the libm it
// runs on. NaN for NaN and the infinities; sin(-0.0) is -0.0. Pure, no
// state, no allocation. Pinned against fdlibm results by SineTest.
double fdlibmSin(double x) noexcept;

// TDB - TT in seconds at centuriesTT Julian centuries of TT since J2000.0
// (2000-01-01 12:00:00 TT): the seven largest periodic terms, good to
// about 10 microseconds over 1600-2200 against the full model. Evaluated
// with fdlibmSin in a fixed summation order, so the result is the same
// double on every platform. NaN for a NaN or infinite argument.
double tdbMinusTtSeconds(double centuriesTT) noexcept;

}  // namespace KvDateTime::detail
