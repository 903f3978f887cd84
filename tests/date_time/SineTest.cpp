// The TDB sine and the series built on it against fdlibm's own results;
// TimeStandardConverterTest holds the series to ERFA's full model.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <string>

#include "date_time/Sine.hpp"

namespace {

using KvDateTime::detail::fdlibmSin;
using KvDateTime::detail::tdbMinusTtSeconds;

// Each line: the bits of x and of fdlibm's sin x (Java's StrictMath.sin),
// in hex; covers tiny, huge, subnormal and near-multiple-of-pi/2 arguments,
// NaN and the infinities. The platform sin misses about 2 % of them.
TEST(FdlibmSine, MatchesFdlibmBitForBit) {
  std::ifstream in(KVDT_SINE_TESTDATA);
  ASSERT_TRUE(in) << "missing test data: " << KVDT_SINE_TESTDATA;
  std::string xs, ys;
  int lines = 0, wrong = 0;
  for (; in >> xs >> ys; ++lines) {
    const double got =
        fdlibmSin(std::bit_cast<double>(std::stoull(xs, nullptr, 16)));
    const std::uint64_t want = std::stoull(ys, nullptr, 16);
    if ((std::isnan(got) ? !std::isnan(std::bit_cast<double>(want))
                         : std::bit_cast<std::uint64_t>(got) != want) &&
        ++wrong <= 10)
      ADD_FAILURE() << "sin(" << xs << ") = " << std::hexfloat << got
                    << ", fdlibm gives " << ys;
  }
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(lines, 20000) << "truncated test data";
}

// The series evaluated by a Java transcription with StrictMath.sin: pins the
// coefficients and the order of summation to the last bit (at T = 0, J2000.0,
// -9.5757e-05 s). Each T is one
// where summing in natural order or using the platform sin changes the bits.
TEST(TdbSeries, MatchesFdlibmEvaluationBitForBit) {
  constexpr struct {
    double t, delta;
  } kCases[] = {{0.0, -0x1.91a2c344d6f44p-14},   {-3.78, 0x1.f52f3294df039p-16},
                {-3.23, -0x1.788a50210d1f9p-19}, {-3.01, 0x1.21bc0d47f306bp-17},
                {-0.2, -0x1.5abbeb6f33501p-15},  {2.0, -0x1.44e30fcca0d0ep-13}};
  for (const auto& c : kCases)
    EXPECT_EQ(tdbMinusTtSeconds(c.t), c.delta) << c.t;
}

}  // namespace
