// Rounding by every code against exact rational results rounded by
// definition, without allocating; the double edges that guard real faults.

#include <gtest/gtest.h>

#include <cmath>

#include "host/fxp/FXP.hpp"
#include "tests/CountingAllocator.hpp"
#include "tests/host/fxp/FxpOracle.hpp"

namespace {

using namespace FXP;
using namespace fxptest;

// Every rounding code at ties and beside them (quarters from -3.25 to
// 3.25), in words from 8 to 128 bits, against the textbook definitions of
// FxpOracle.hpp: a conversion into a coarser type (the general path),
// fromDouble, fromInt64 into a type whose step is 4, and a step of
// tryAddFromDouble from zero, which either declines or gives what fromDouble
// gives. None of them allocates. Random types, operands and overflow through
// every operation, comparisons and the compact form are
// fuzz/fxp_fuzz.cpp's (run by make test).
TEST(DataValueRounding, EveryCodeAtAndBesideTies) {
  kvtest::allocations = 0;
  kvtest::countingAllocations = false;  // on only around the calls
  int fastSteps = 0;
  for (int code = 0; code < 6; ++code)
    for (int w : {8, 33, 64, 65, 128})
      for (int q = -13; q <= 13; ++q) {
        SCOPED_TRACE(testing::Message()
                     << "code " << code << " w" << w << " " << q << "/4");
        const MathMode mode(code, MathMode::kSaturate);
        MathControl control(mode);
        const DataType quarters = DataType::fixedT(true, w, 2),
                       whole = DataType::fixedT(true, w, 0),
                       fours = DataType::fixedT(true, w, -2);
        const DataValue exact = DataValue::fromDouble(quarters, q / 4.0, mode);
        DataValue step = DataValue::fromInt64(whole, 0, mode);
        kvtest::countingAllocations = true;
        const DataValue converted = exact.convert(whole, control);
        const DataValue fromDouble =
            DataValue::fromDouble(whole, q / 4.0, mode);
        const DataValue fromInt = DataValue::fromInt64(fours, q, mode);
        const bool fast = step.tryAddFromDouble(q < 0, std::abs(q) / 4.0, mode);
        kvtest::countingAllocations = false;
        fastSteps += fast;
        const Rational want = roundInto({q, 4}, whole, mode).value;
        EXPECT_EQ(exactOf(converted), want);
        EXPECT_EQ(exactOf(fromDouble), want);
        EXPECT_EQ(exactOf(fromInt), roundInto({q}, fours, mode).value);
        // The step rounds the magnitude and subtracts it.
        const Rational m = roundInto({std::abs(q), 4}, whole, mode).value;
        EXPECT_EQ(exactOf(step),
                  fast ? Rational{q < 0 ? -m.num : m.num} : Rational{0});
      }
  EXPECT_EQ(kvtest::allocations.load(), 0);
  EXPECT_GT(fastSteps, 6 * 5 * 27 / 2);  // the words up to 64 bits at least
}

// The inline shortcuts of the double type: a sum beyond DBL_MAX goes to the
// general path, which saturates under either overflow code and logs each
// overflow once; an exact zero is +0.0 (found by fuzzing: add, minus and
// convert gave -0.0 there, where the general path gives +0.0).
TEST(DataValueEdge, DoubleShortcutsSaturateAndGivePositiveZero) {
  const DataValue big = DataValue::fromDouble({}, DBL_MAX, MathMode()),
                  neg = DataValue::fromDouble({}, -0.0, MathMode()), pos;
  FixptRangeMath::FixptRangeMathLogger logger;
  for (const int overflowCode : {0, 1}) {
    MathControl mc(MathMode(MathMode::kFloor, overflowCode));
    mc.setMathLogger(&logger);
    EXPECT_EQ(big.add({}, big, mc).toDouble(), DBL_MAX);
    EXPECT_EQ(neg.minus({}, big, mc).minus({}, big, mc).toDouble(), -DBL_MAX);
    for (const DataValue& r :
         {neg.add({}, neg, mc), neg.minus({}, pos, mc), neg.convert({}, mc)})
      EXPECT_FALSE(std::signbit(r.toDouble()));
  }
  EXPECT_EQ(logger.overflowCount(), 4u);
}

}  // namespace
