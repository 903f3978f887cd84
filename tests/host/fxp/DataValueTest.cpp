// Every operation against exact rational results rounded by definition, over
// random types, values and modes; the compact form against its encoding; the
// bad input, NaN and infinity that guard real faults; and no allocation.

#include <gmock/gmock.h>

#include <cstring>
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
// - <=> and == on the operands follow their exact values, across types;
// - toDouble of the first operand is correctly rounded;
// - fromDouble of a random double into the result type rounds once, and
//   keeps a finite double bit for bit (-0.0 included);
// - fromInt64 of a random int64_t into the result type rounds once;
// - tryAddFromDouble either leaves the value alone or gives what fromDouble
//   and add / minus give, exactly and in range; it takes the fast path in at
//   least a quarter of the cases;
// - none of these calls allocates.
// A third of the cases use one type for both operands and the result, which
// the inline fast paths take.
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
      const double d = gen.realDouble(-140, 140);
      const Rational ea = exactOf(a), eb = exactOf(b);
      const bool byZero = op == Op::kDivide && eb.num == 0;
      MathControl control(mode);
      FixptRangeMath::FixptRangeMathLogger logger;
      control.setMathLogger(i % 4 ? &logger : nullptr);
      kvtest::countingAllocations = true;
      const auto order = a <=> b;
      const bool equal = a == b;
      const double ad = a.toDouble();
      const DataValue fd = DataValue::fromDouble(tr, d, mode);
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
      EXPECT_TRUE(order == (compare(ea, eb) <=> 0) &&
                  equal == (compare(ea, eb) == 0));
      EXPECT_EQ(exactOfDouble(ad), roundInto(ea, {}, mode).value);
      if (tr.isDouble()) {
        EXPECT_EQ(std::bit_cast<std::uint64_t>(fd.toDouble()),
                  std::bit_cast<std::uint64_t>(d));
      } else {
        EXPECT_EQ(exactOf(fd), roundInto(exactOfDouble(d), tr, mode).value)
            << d;
      }
      EXPECT_TRUE(fi.getDataType() == tr && fd.getDataType() == tr &&
                  step.getDataType() == ta);
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

// Every word length, both signednesses, fraction lengths on both sides of
// zero: the compact form is the little-endian two's complement in the
// smallest power of two bytes that holds the word, read and written back
// unchanged; the type's property record round-trips through the type.
TEST(DataValueCompact, RoundTripsEveryWordLength) {
  Generator gen{std::mt19937_64(11)};
  kvtest::allocations = 0;
  kvtest::countingAllocations = false;  // on only around the calls
  EXPECT_TRUE(DataType(DataType().getProp()) == DataType());
  for (int i = 0; i < 128 * 2 * 40; ++i) {
    const DataType t =
        DataType::fixedT(i % 2, i / 2 % 128 + 1, gen.uniform(-128, 256));
    const std::size_t n = std::bit_ceil((t.wordLength() + 7u) / 8);
    const cpp_int s = gen.stored(t);
    const auto bytes = bytesOf(s);
    unsigned char out[16];
    kvtest::countingAllocations = true;
    const DataValue v = DataValue::fromCompact(t, bytes.data());
    v.toCompact(out, n);
    kvtest::countingAllocations = false;
    ASSERT_TRUE(t.sizeofCompact() == n && DataType(t.getProp()) == t &&
                storedOf(v) == s && std::memcmp(out, bytes.data(), n) == 0)
        << describe(v);
  }
  EXPECT_EQ(kvtest::allocations.load(), 0);
}

// Throws std::invalid_argument with field in its message.
auto naming(const char* field) {
  return testing::ThrowsMessage<std::invalid_argument>(
      testing::HasSubstr(field));
}

// Bad fields and codes are rejected by name.
TEST(DataValueEdge, BadTypeFieldsAndModeCodesAreRejectedByName) {
  const std::pair<fxpDataTypeProp, const char*> props[] = {
      {{1, 1, 32, 0, 1.0, 0.0}, "kind"},
      {{0, 2, 32, 0, 1.0, 0.0}, "isSigned"},
      {{0, 1, 0, 0, 1.0, 0.0}, "wordLength"},
      {{0, 1, 129, 0, 1.0, 0.0}, "wordLength"},
      {{0, 1, 8, 129, 1.0, 0.0}, "fixedExponent"},
      {{0, 1, 8, -257, 1.0, 0.0}, "fixedExponent"},
      {{0, 1, 32, 0, 2.0, 0.0}, "slope"},
      {{0, 1, 32, 0, NAN, 0.0}, "slope"},
      {{0, 1, 32, 0, 1.0, 0.5}, "bias"},
      {{2, 1, 32, 0, 1.0, 0.0}, "wordLength"},
      {{2, 0, 64, 0, 1.0, 0.0}, "isSigned"}};
  for (const auto& c : props)
    EXPECT_THAT([&] { DataType{c.first}; }, naming(c.second));
  EXPECT_THAT([] { DataType::fixedT(true, 8, 257); }, naming("fractionLength"));
  EXPECT_THAT([] { MathMode(6, 0); }, naming("roundingCode"));
  EXPECT_THAT([] { MathMode(0, 2); }, naming("overflowCode"));
}

// Non-canonical bytes, a null pointer, or a buffer below sizeofCompact():
// std::invalid_argument, and nothing written.
TEST(DataValueEdge, BadCompactInputIsRejected) {
  // Stored integers outside the word, and the bits of +infinity and a NaN.
  const std::pair<DataType, cpp_int> cases[] = {
      {DataType::fixedT(false, 40, 0), cpp_int(1) << 40},
      {DataType::fixedT(true, 40, 0), cpp_int(1) << 39},
      {DataType::fixedT(true, 40, 0), -(cpp_int(1) << 39) - 1},
      {DataType::fixedT(false, 1, 0), 2},
      {DataType::fixedT(true, 100, 0), cpp_int(1) << 100},
      {DataType(), 0x7FF0000000000000},
      {DataType(), 0x7FF0000000000001}};
  for (const auto& [type, stored] : cases)
    EXPECT_THROW(DataValue::fromCompact(type, bytesOf(stored).data()),
                 std::invalid_argument)
        << stored;
  EXPECT_THROW(DataValue::fromCompact(DataType(), nullptr),
               std::invalid_argument);
  const DataValue v =
      DataValue::fromDouble(DataType::fixedT(true, 65, 3), -1.5, MathMode());
  unsigned char buf[16];
  std::memset(buf, 0xAB, sizeof buf);
  EXPECT_THAT([&] { v.toCompact(buf, 15); }, naming("size"));
  EXPECT_THROW(v.toCompact(nullptr, 16), std::invalid_argument);
  for (unsigned char b : buf) EXPECT_EQ(b, 0xAB);
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
