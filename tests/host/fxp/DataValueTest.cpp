// Rounding by every code against exact rational results rounded by
// definition, without allocating; the double edges that guard real faults.

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>

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
  // An integer into a double: the exact shortcut up to 2^53 and the rounding
  // beyond give the bits of the general conversion, rounding down or up.
  constexpr std::int64_t k53 = std::int64_t{1} << 53;
  for (const int code : {MathMode::kFloor, MathMode::kCeiling})
    for (const std::int64_t v :
         {std::int64_t{0}, k53 - 1, k53, k53 + 1, k53 + 3,
          std::numeric_limits<std::int64_t>::max()})
      for (const std::int64_t s : {v, -v}) {
        const MathMode mode(code, MathMode::kSaturate);
        MathControl mc(mode);
        EXPECT_EQ(std::bit_cast<std::uint64_t>(
                      DataValue::fromInt64({}, s, mode).toDouble()),
                  std::bit_cast<std::uint64_t>(
                      DataValue::fromInt64(s).convert({}, mc).toDouble()))
            << s << " code " << code;
      }
}

// The decimal text read back with Boost's integers: digits D with k of them
// after the point stand for D / 10^k, which must equal stored * 2^-F.
Rational readDecimal(const std::string& text) {
  Rational r;
  const bool negative = !text.empty() && text[0] == '-';
  long fraction = -1;
  for (std::size_t i = negative ? 1 : 0; i < text.size(); ++i) {
    if (text[i] == '.') {
      fraction = 0;
      continue;
    }
    r.num = r.num * 10 + (text[i] - '0');
    if (fraction >= 0) {
      r.den *= 10;
      ++fraction;
    }
  }
  if (negative) r.num = -r.num;
  return r;
}

TEST(DataValueText, DecimalTextIsExactForEveryFractionLength) {
  const Int128 one = 1;
  struct Case {
    bool isSigned;
    int word, fraction;
    Int128 stored;
  };
  const Case cases[] = {{true, 8, 1, -3},
                        {true, 8, 0, -128},
                        {false, 128, 0, -1},  // all 128 bits set: 2^128 - 1
                        {true, 128, 127, one << 126},
                        {true, 128, 127, -(one << 126) * 2},
                        {true, 16, -3, 5},
                        {true, 16, -128, -32768},
                        {false, 8, 256, 1},
                        {true, 64, 20, 1483228799LL << 20 | 0x80000},
                        {true, 64, 32, 0},
                        {false, 64, 64, -1}};
  for (const Case& c : cases) {
    const DataType t = DataType::fixedT(c.isSigned, c.word, c.fraction);
    const DataValue v =
        c.isSigned ? DataValue::fromStoredSigned(t, c.stored)
                   : DataValue::fromStoredUnsigned(
                         t, static_cast<UInt128>(c.stored) &
                                (c.word == 128 ? ~UInt128{0}
                                               : (UInt128{1} << c.word) - 1));
    const std::string text = v.toDecimalString();
    SCOPED_TRACE(text);
    EXPECT_EQ(readDecimal(text), times2(Rational{storedOf(v)}, -c.fraction));
    const auto point = text.find('.');
    if (point != std::string::npos) {
      EXPECT_NE(text.back(), '0');
      EXPECT_NE(text.back(), '.');
    }
    EXPECT_NE(text.substr(0, 2), "-0");  // no negative zero, no lead zeros
  }
  EXPECT_EQ(
      DataValue::fromDouble(DataType::doubleT(), 0.1, {}).toDecimalString(),
      "0.1");
}

TEST(DataValueText, StoredIntegersOutsideTheWordAreRefused) {
  const Int128 one = 1;
  struct Case {
    bool isSigned;
    int word;
    Int128 low, high;  // the first and last stored integers that fit
  };
  const Case cases[] = {{true, 8, -128, 127},
                        {false, 8, 0, 255},
                        {true, 1, -1, 0},
                        {true, 127, -(one << 126), (one << 126) - 1}};
  for (const Case& c : cases) {
    const DataType t = DataType::fixedT(c.isSigned, c.word, 3);
    SCOPED_TRACE(c.word);
    for (Int128 ok : {c.low, c.high}) {
      EXPECT_EQ(storedOf(DataValue::fromStoredSigned(t, ok)), cpp_int(ok));
    }
    EXPECT_THROW(DataValue::fromStoredSigned(t, c.low - 1),
                 std::overflow_error);
    EXPECT_THROW(DataValue::fromStoredSigned(t, c.high + 1),
                 std::overflow_error);
    EXPECT_THROW(
        DataValue::fromStoredUnsigned(t, static_cast<UInt128>(c.high) + 1),
        std::overflow_error);
  }
  const DataType u128 = DataType::fixedT(false, 128, 0);
  EXPECT_EQ(storedOf(DataValue::fromStoredUnsigned(u128, ~UInt128{0})),
            (cpp_int(1) << 128) - 1);
  EXPECT_THROW(DataValue::fromStoredUnsigned(DataType::fixedT(true, 128, 0),
                                             UInt128{1} << 127),
               std::overflow_error);
  EXPECT_THROW(DataValue::fromStoredSigned(DataType::doubleT(), 0),
               std::domain_error);
}

}  // namespace
