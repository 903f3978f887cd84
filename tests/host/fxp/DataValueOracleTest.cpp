// Every arithmetic operation against exact rational results rounded by
// definition, over random types, values and modes.

#include <gtest/gtest.h>

#include "host/fxp/FXP.hpp"
#include "tests/host/fxp/FxpOracle.hpp"

namespace {

using FXP::DataType;
using FXP::DataValue;
using FXP::MathControl;
using FXP::MathMode;
using namespace fxptest;

constexpr int kCases = 100000;

std::string describe(const DataType& t) {
  if (t.isDouble()) return "double";
  return (t.isSigned() ? "s" : "u") + std::to_string(t.wordLength()) + "_" +
         std::to_string(t.fractionLength());
}

std::string describe(const DataValue& v) {
  return describe(v.getDataType()) + ":" + exactOf(v).num.str() + "/" +
         exactOf(v).den.str();
}

// Checks a result (value and reported overflow) against the exact one.
::testing::AssertionResult matches(const DataValue& got, bool gotOverflow,
                                   const Rational& exact,
                                   const DataType& resultType, MathMode mode) {
  if (!(got.getDataType() == resultType))
    return ::testing::AssertionFailure() << "result type " << describe(got);
  if (resultType.isDouble()) {
    const DoubleResult want = roundToDouble(exact);
    if (got.toDouble() != want.value || gotOverflow != want.overflow)
      return ::testing::AssertionFailure()
             << "got " << got.toDouble() << " overflow " << gotOverflow
             << ", want " << want.value << " overflow " << want.overflow;
    return ::testing::AssertionSuccess();
  }
  const FixedResult want = roundToFixed(exact, resultType, mode);
  const cpp_int stored = storedOf(got);
  if (stored != want.stored || gotOverflow != want.overflow)
    return ::testing::AssertionFailure()
           << "got " << stored << " overflow " << gotOverflow << ", want "
           << want.stored << " overflow " << want.overflow;
  return ::testing::AssertionSuccess();
}

enum class Op { kAdd, kMinus, kMultiply, kDivide };

// One binary operation over random operands. A third of the cases use one
// type for both operands and the result, the shape of stepping a time point.
void checkBinary(Op op, std::uint64_t seed) {
  Generator gen(seed);
  int failures = 0;
  for (int i = 0; i < kCases && failures < 10; ++i) {
    const DataType ta = gen.type();
    const bool same = gen.uniform(0, 2) == 0;
    const DataType tb = same ? ta : gen.type();
    const DataType tr = same ? ta : gen.type(20);
    const DataValue a = gen.value(ta);
    const DataValue b = gen.value(tb);
    const MathMode mode = gen.mode();
    MathControl control(mode);
    FixptRangeMath::FixptRangeMathLogger logger;
    control.setMathLogger(&logger);
    const Rational ea = exactOf(a), eb = exactOf(b);
    DataValue got;
    Rational exact;
    switch (op) {
      case Op::kAdd:
        got = a.add(tr, b, control);
        exact = add(ea, eb);
        break;
      case Op::kMinus:
        got = a.minus(tr, b, control);
        exact = add(ea, negate(eb));
        break;
      case Op::kMultiply:
        got = a.multiplyBy(tr, b, control);
        exact = multiply(ea, eb);
        break;
      case Op::kDivide:
        if (eb.num == 0) {
          EXPECT_THROW(a.divideBy(tr, b, control), std::domain_error);
          continue;
        }
        got = a.divideBy(tr, b, control);
        exact = divide(ea, eb);
        break;
    }
    const auto ok = matches(got, logger.overflowOccurred(), exact, tr, mode);
    if (!ok) {
      ++failures;
      ADD_FAILURE() << ok.message() << "\n  a=" << describe(a)
                    << " b=" << describe(b) << " result " << describe(tr)
                    << " mode (" << int(mode.roundingCode()) << ","
                    << int(mode.overflowCode()) << ")";
    }
  }
}

TEST(DataValueOracle, AddIsExactThenRoundedOnce) { checkBinary(Op::kAdd, 1); }
TEST(DataValueOracle, MinusIsExactThenRoundedOnce) {
  checkBinary(Op::kMinus, 2);
}
TEST(DataValueOracle, MultiplyIsExactThenRoundedOnce) {
  checkBinary(Op::kMultiply, 3);
}
TEST(DataValueOracle, DivideIsCorrectlyRounded) { checkBinary(Op::kDivide, 4); }

TEST(DataValueOracle, ConvertRoundsOnceIntoTheTarget) {
  Generator gen(5);
  int failures = 0;
  for (int i = 0; i < kCases && failures < 10; ++i) {
    const DataType from = gen.type(25), to = gen.type(15);
    const DataValue v = gen.value(from);
    const MathMode mode = gen.mode();
    MathControl control(mode);
    FixptRangeMath::FixptRangeMathLogger logger;
    control.setMathLogger(&logger);
    const DataValue got = v.convert(to, control);
    const auto ok =
        matches(got, logger.overflowOccurred(), exactOf(v), to, mode);
    if (!ok) {
      ++failures;
      ADD_FAILURE() << ok.message() << "\n  v=" << describe(v) << " to "
                    << describe(to);
    }
  }
}

TEST(DataValueOracle, FromDoubleMatchesExactRounding) {
  Generator gen(6);
  int failures = 0;
  for (int i = 0; i < kCases && failures < 10; ++i) {
    const DataType t = gen.type(5);
    const double d = gen.realDouble(-140, 140);
    const MathMode mode = gen.mode();
    const DataValue got = DataValue::fromDouble(t, d, mode);
    if (t.isDouble()) {
      EXPECT_EQ(std::memcmp(&d, &d, 8), 0);
      const double back = got.toDouble();
      EXPECT_EQ(std::memcmp(&back, &d, 8), 0) << d;
      continue;
    }
    const FixedResult want = roundToFixed(exactOfDouble(d), t, mode);
    if (storedOf(got) != want.stored) {
      ++failures;
      ADD_FAILURE() << "fromDouble(" << describe(t) << ", " << d
                    << ") = " << storedOf(got) << ", want " << want.stored;
    }
  }
}

TEST(DataValueOracle, ToDoubleIsCorrectlyRounded) {
  Generator gen(7);
  int failures = 0;
  for (int i = 0; i < kCases && failures < 10; ++i) {
    const DataValue v = gen.value(gen.type(0));
    const DoubleResult want = roundToDouble(exactOf(v));
    if (v.toDouble() != want.value) {
      ++failures;
      ADD_FAILURE() << describe(v) << " -> " << v.toDouble() << ", want "
                    << want.value;
    }
  }
}

TEST(DataValueOracle, ComparisonFollowsExactValuesAcrossTypes) {
  Generator gen(8);
  int failures = 0;
  for (int i = 0; i < kCases && failures < 10; ++i) {
    const DataType ta = gen.type(25);
    const DataType tb = gen.uniform(0, 1) ? ta : gen.type(25);
    const DataValue a = gen.value(ta), b = gen.value(tb);
    const int want = compare(exactOf(a), exactOf(b));
    const auto got = a <=> b;
    const int g = got < 0 ? -1 : (got > 0 ? 1 : 0);
    if (g != want || (a == b) != (want == 0) || (a < b) != (want < 0)) {
      ++failures;
      ADD_FAILURE() << describe(a) << " vs " << describe(b) << ": got " << g
                    << ", want " << want;
    }
  }
}

}  // namespace
