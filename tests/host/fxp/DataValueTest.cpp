// Every operation against exact rational results rounded by definition, over
// random types, values and modes; the double edges that guard real faults;
// and no allocation.

#include <gtest/gtest.h>

#include <sstream>

#include "host/fxp/FXP.hpp"
#include "tests/CountingAllocator.hpp"
#include "tests/TestScale.hpp"
#include "tests/host/fxp/FxpOracle.hpp"

namespace {

using namespace FXP;
using namespace fxptest;

// kind,signed,wordLength,fractionLength:numerator/denominator
std::string describe(const DataValue& v) {
  const DataType& t = v.getDataType();
  std::ostringstream s;
  s << t.kind() << ',' << t.isSigned() << ',' << t.wordLength() << ','
    << t.fractionLength() << ':' << exactOf(v);
  return s.str();
}

// 100,000 random cases per operation, each checked against the oracle:
// - the result is the exact one rounded once into the result type, and the
//   logger (installed in three cases of four) hears of an overflow once,
//   exactly when the range is left; a zero divisor throws std::domain_error;
// - fromInt64 of a random int64_t into the result type rounds once;
// - tryAddFromDouble either leaves the value alone or gives what fromDouble
//   and add / minus give, exactly and in range; it takes the fast path in at
//   least a quarter of the cases;
// - none of these calls allocates.
// A third of the cases use one type for both operands and the result, which
// the inline fast paths take. Comparisons, toDouble and fromDouble against
// the same oracle, and the compact form and refused types, modes and bytes,
// are fuzz/fxp_fuzz.cpp's (run by make test); this test keeps the calls the
// fuzz target does not make, and the ops, so that ctest alone still sees a
// rounding fault.
TEST(DataValueOracle, EveryOperationRoundsOnceWithoutAllocating) {
  using Method = DataValue (DataValue::*)(const DataType&, const DataValue&,
                                          MathControl&) const;
  constexpr Method kMethods[] = {&DataValue::add, &DataValue::minus,
                                 &DataValue::multiplyBy, &DataValue::divideBy};
  kvtest::allocations = 0;
  kvtest::countingAllocations = false;  // on only around the calls
  int stepped = 0, steppedFast = 0;
  for (const Op op :
       {Op::kAdd, Op::kMinus, Op::kMultiply, Op::kDivide, Op::kConvert}) {
    Generator gen{std::mt19937_64(static_cast<int>(op))};
    for (int i = 0; i < kvtest::scaled(100000) && !HasFailure(); ++i) {
      const DataType ta = gen.type();
      const bool same = gen.uniform(0, 2) == 0;
      const DataType tb = same ? ta : gen.type(), tr = same ? ta : gen.type(20);
      const DataValue a = gen.value(ta), b = gen.value(tb);
      const MathMode mode = gen.mode();
      const Rational ea = exactOf(a), eb = exactOf(b);
      const bool byZero = op == Op::kDivide && eb.num == 0;
      MathControl control(mode);
      FixptRangeMath::FixptRangeMathLogger logger;
      control.setMathLogger(i % 4 ? &logger : nullptr);
      kvtest::countingAllocations = true;
      const auto n = static_cast<std::int64_t>(gen.rng()) >> gen.uniform(0, 63);
      const DataValue fi = DataValue::fromInt64(tr, n, mode);
      // A step of b's size in a's type, which a running value mostly takes.
      const bool backwards = gen.uniform(0, 1) != 0;
      const double stepSize = b.toDouble();
      DataValue step = a;
      const bool fast = step.tryAddFromDouble(backwards, stepSize, mode);
      const DataValue r =
          byZero ? DataValue()
          : op == Op::kConvert
              ? a.convert(tr, control)
              : (a.*kMethods[static_cast<int>(op)])(tr, b, control);
      kvtest::countingAllocations = false;
      EXPECT_TRUE(fi.getDataType() == tr && step.getDataType() == ta);
      EXPECT_EQ(exactOf(fi), roundInto({n}, tr, mode).value) << n;
      ++stepped;
      if (fast) {
        ++steppedFast;
        const Rational s = roundInto(exactOfDouble(stepSize), ta, mode).value;
        const Rounded want = roundInto(
            apply(backwards ? Op::kMinus : Op::kAdd, ea, s), ta, mode);
        EXPECT_FALSE(want.overflow);
        EXPECT_EQ(exactOf(step), want.value) << "step " << describe(step);
      } else {
        EXPECT_EQ(exactOf(step), ea) << "a failed step changed the value";
      }
      if (byZero) {
        EXPECT_THROW(a.divideBy(tr, b, control), std::domain_error);
      } else {
        const Rounded want = roundInto(apply(op, ea, eb), tr, mode);
        EXPECT_TRUE(r.getDataType() == tr);
        EXPECT_EQ(exactOf(r), want.value) << describe(r);
        EXPECT_EQ(logger.overflowCount(), i % 4 && want.overflow);
      }
      if (HasFailure())  // the loop stops here: name the case
        ADD_FAILURE() << "op " << static_cast<int>(op) << " a=" << describe(a)
                      << " b=" << describe(b) << " mode "
                      << int{mode.roundingCode()} << int{mode.overflowCode()};
    }
  }
  EXPECT_GT(steppedFast, stepped / 4);
  EXPECT_EQ(kvtest::allocations.load(), 0);
}

// The inline double fast path hands a sum beyond DBL_MAX to the general path,
// which saturates under either overflow code and logs each overflow once.
TEST(DataValueEdge, DoubleSumBeyondDblMaxSaturatesAndIsLogged) {
  const DataValue big = DataValue::fromDouble({}, DBL_MAX, MathMode());
  const DataValue minusBig = DataValue::fromDouble({}, -DBL_MAX, MathMode());
  FixptRangeMath::FixptRangeMathLogger logger;
  for (const int overflowCode : {0, 1}) {
    MathControl mc(MathMode(MathMode::kFloor, overflowCode));
    mc.setMathLogger(&logger);
    EXPECT_EQ(big.add({}, big, mc).toDouble(), DBL_MAX);
    EXPECT_EQ(minusBig.minus({}, big, mc).toDouble(), -DBL_MAX);
  }
  EXPECT_EQ(logger.overflowCount(), 4u);
}

// Found by fuzzing: the same-type shortcuts of add, minus and convert gave
// -0.0 where the general path gives +0.0.
TEST(DataValueEdge, ExactZeroInTheDoubleTypeIsPositive) {
  const DataValue neg = DataValue::fromDouble({}, -0.0, MathMode()), pos;
  MathControl mc{MathMode()};
  for (const DataValue& r :
       {neg.add({}, neg, mc), neg.minus({}, pos, mc), neg.convert({}, mc)})
    EXPECT_FALSE(std::signbit(r.toDouble()));
}

}  // namespace
