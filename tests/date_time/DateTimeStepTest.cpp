// The prepared step against the plain one: DateTime::add(Step) must leave
// the same bits and report the same overflows as add(seconds), and
// tryAddPrepared must answer exactly as tryAddFromDouble, for every storage
// type, mode and epoch, at the edges of each word as well as inside it.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>

#include "date_time/DateTime.hpp"
#define KVTEST_COUNT_ONLY
#include "tests/CountingAllocator.hpp"
#include "tests/TestScale.hpp"
#include "tests/host/fxp/FxpOracle.hpp"

namespace {

using namespace KvDateTime;
using FXP::DataType, FXP::DataValue, FXP::MathMode, FXP::MathControl;
using FXP::Int128, FXP::UInt128;
using kvtest::allocations;

constexpr std::array<Epoch, 6> kEpochs = {Epoch::Epoch1970, Epoch::Epoch1900,
                                          Epoch::Epoch1958, Epoch::EpochJD,
                                          Epoch::EpochMJD,  Epoch::EpochJ2000};

struct Random {
  std::mt19937_64 rng{20261123};

  int between(int lo, int hi) {
    return std::uniform_int_distribution<int>(lo, hi)(rng);
  }
  UInt128 bits128() { return (static_cast<UInt128>(rng()) << 64) | rng(); }

  DataType type() {
    if (between(0, 7) == 0) return DataType::doubleT();
    // Word lengths cluster where the kinds of step change (63/64, 126-128).
    static constexpr std::array<int, 12> kWords = {1,  8,  16, 32,  53,  62,
                                                   63, 64, 65, 126, 127, 128};
    const int w = between(0, 2) == 0 ? between(1, 128)
                                     : kWords[between(0, kWords.size() - 1)];
    return DataType::fixedT(between(0, 1) == 1, w, between(-8, w + 8));
  }

  MathMode mode() {
    return MathMode(between(MathMode::kTowardZero, MathMode::kNearestTiesAway),
                    between(MathMode::kWrap, MathMode::kSaturate));
  }

  // Anywhere in the word, or at one of its ends.
  DataValue value(const DataType& t) {
    if (t.isDouble()) {
      const double m = std::ldexp(std::uniform_real_distribution<>(1, 2)(rng),
                                  between(-60, 1023));
      return DataValue::fromDouble(t, between(0, 1) ? -m : m, MathMode());
    }
    const int w = t.wordLength();
    const int pick = between(0, 5);
    if (t.isSigned()) {
      Int128 s = static_cast<Int128>(bits128()) >> (128 - w);
      if (pick == 0)
        s = w == 128 ? std::numeric_limits<Int128>::min()
                     : -(Int128{1} << (w - 1));
      if (pick == 1)
        s = w == 128 ? std::numeric_limits<Int128>::max()
                     : (Int128{1} << (w - 1)) - 1;
      return DataValue::fromStoredSigned(t, s);
    }
    UInt128 u = bits128() >> (128 - w);
    if (pick == 0) u = 0;
    if (pick == 1) u = w == 128 ? ~UInt128{0} : (UInt128{1} << w) - 1;
    return DataValue::fromStoredUnsigned(t, u);
  }

  // Shifts of every size relative to the type: a few ulps of it, whole
  // steps, the word's whole span, beyond it, and the special doubles.
  double seconds(const DataType& t) {
    switch (between(0, 9)) {
      case 0: {
        static constexpr std::array<double, 8> kSpecial = {
            0.0,
            -0.0,
            std::numeric_limits<double>::quiet_NaN(),
            std::numeric_limits<double>::infinity(),
            -std::numeric_limits<double>::infinity(),
            std::numeric_limits<double>::max(),
            std::numeric_limits<double>::denorm_min(),
            0.001};
        return kSpecial[between(0, kSpecial.size() - 1)];
      }
      case 1:  // the word's span, to the last unit
        if (t.isFixed())
          return std::ldexp(
                     1.0, t.wordLength() - t.fractionLength() - between(0, 2)) *
                 (between(0, 1) ? -1 : 1);
        [[fallthrough]];
      default: {
        const int unit = t.isFixed() ? -t.fractionLength() : -40;
        const double m = std::uniform_real_distribution<>(1, 2)(rng);
        // On a whole unit or a half one now and then, where rounding ties.
        const double q = between(0, 3) == 0 ? std::round(m * 8) / 8 : m;
        const double s = std::ldexp(q, unit + between(-3, 140));
        return between(0, 1) ? -s : s;
      }
    }
  }
};

std::array<unsigned char, 16> bytesOf(const DataValue& v) {
  std::array<unsigned char, 16> b{};
  v.toCompact(b.data(), b.size());
  return b;
}

std::string describe(const DataType& t, const DataValue& v, double seconds,
                     MathMode m) {
  return (t.isDouble() ? std::string("double")
                       : std::string(t.isSigned() ? "s" : "u") +
                             std::to_string(t.wordLength()) + "." +
                             std::to_string(t.fractionLength())) +
         " value " + v.toDecimalString() + " seconds " +
         std::to_string(seconds) + " mode " + std::to_string(m.roundingCode()) +
         "/" + std::to_string(m.overflowCode());
}

// The result and overflow count of one add either way, from `start`.
struct Outcome {
  std::array<unsigned char, 16> bytes;
  DataType type;
  std::uint64_t overflows;
  bool flag;
};

template <typename Add>
Outcome addOnce(const DateTime& start, MathMode mode, Add&& add) {
  DateTime dt = start;
  MathControl control(mode);
  FixptRangeMath::FixptRangeMathLogger logger;
  control.setMathLogger(&logger);
  add(dt, control);
  EXPECT_EQ(dt.epoch, start.epoch);
  EXPECT_EQ(dt.timeStandard, start.timeStandard);
  return {bytesOf(dt.value), dt.value.getDataType(), logger.overflowCount(),
          dt.isLeapSecond};
}

void expectSame(const Outcome& a, const Outcome& b, const std::string& where) {
  EXPECT_EQ(a.bytes, b.bytes) << where;
  EXPECT_TRUE(a.type == b.type) << where;
  EXPECT_EQ(a.overflows, b.overflows) << where;
  EXPECT_EQ(a.flag, b.flag) << where;
}

// A step prepared for another type, mode or epoch than the clock's gives
// the plain add's result all the same. At the host level (negative and NaN
// operands included, which a clock never passes) tryAddPrepared gives the
// same return and, on success, the same bits as tryAddFromDouble.
TEST(DateTimeStep, AddsTheBitsAndOverflowsOfThePlainAdd) {
  Random r;
  int overflowed = 0, stayedInline = 0;
  for (int n = 0; n < kvtest::scaled(200000); ++n) {
    const DataType type = r.type();
    const Epoch epoch = kEpochs[r.between(0, kEpochs.size() - 1)];
    const MathMode mode = r.mode();
    const double seconds = r.seconds(type);
    const DateTime start(DvLs{r.value(type), r.between(0, 3) == 0}, epoch,
                         TimeStandard::UTC);
    const DateTime::Step step(type, epoch, seconds, mode);
    const DateTime::Step foreign(r.type(), kEpochs[r.between(0, 5)], seconds,
                                 r.mode());
    const std::string where = describe(type, start.value, seconds, mode);
    const Outcome plain = addOnce(
        start, mode, [&](DateTime& dt, MathControl& c) { dt.add(seconds, c); });
    for (const DateTime::Step* s : {&step, &foreign})
      expectSame(plain,
                 addOnce(start, mode,
                         [&](DateTime& dt, MathControl& c) { dt.add(*s, c); }),
                 where);
    const bool subtract = r.between(0, 1) == 1;
    const DataValue::PreparedShift p(type, subtract, seconds, mode);
    DataValue a = start.value, b = start.value;
    const bool ok = a.tryAddFromDouble(subtract, seconds, mode);
    EXPECT_EQ(b.tryAddPrepared(p, mode), ok) << where << subtract;
    EXPECT_EQ(bytesOf(a), bytesOf(b)) << where << subtract;
    // Bounded, it also refuses a value not below the bound.
    const DataValue bound = r.value(r.between(0, 3) ? type : r.type());
    const DataValue::PreparedShift below(type, subtract, seconds, mode, bound);
    DataValue c = start.value, d = start.value;
    const bool under = start.value < bound;
    EXPECT_EQ(c.tryAddBounded(below, mode), ok && under) << where;
    EXPECT_EQ(d.tryAddPrepared(below, mode), ok && under) << where;
    if (under) {
      EXPECT_EQ(bytesOf(a), bytesOf(c)) << where;
    }
    if (::testing::Test::HasFailure()) return;
    overflowed += plain.overflows != 0;
    DataValue v = start.value;
    const double shift = DateTimeUtilities::secondsToTimeShift(seconds, epoch);
    stayedInline += v.tryAddFromDouble(!(shift >= 0), std::fabs(shift), mode);
  }
  // The draw must reach both sides of every branch it is meant to test.
  EXPECT_GT(overflowed, kvtest::scaled(200000) / 20);
  EXPECT_GT(stayedInline, kvtest::scaled(200000) / 4);
}

// The one operand whose negation leaves int64_t: -2^63 stored, subtracted
// from a signed 64-bit value, where the sum still fits.
TEST(DateTimeStep, SubtractsTheMostNegativeStoredOperand) {
  const DataType t = DataType::fixedT(true, 64, 0);
  const double operand = -0x1p63;
  const DataValue::PreparedShift p(t, true, operand, MathMode());
  for (const std::int64_t v :
       {std::int64_t{-1}, std::int64_t{-5},
        std::numeric_limits<std::int64_t>::min(), std::int64_t{0}}) {
    DataValue a = DataValue::fromStoredSigned(t, v), b = a;
    const bool ok = a.tryAddFromDouble(true, operand, MathMode());
    EXPECT_EQ(b.tryAddPrepared(p, MathMode()), ok) << v;
    EXPECT_EQ(ok, v < 0) << v;  // v + 2^63 fits only for negative v
    EXPECT_EQ(bytesOf(a), bytesOf(b)) << v;
  }
}

// A running clock: a thousand prepared steps land where a thousand plain
// ones do, by the oracle's exact sum too, and allocate nothing.
TEST(DateTimeStep, ARunningChainMatchesThePlainChainWithoutAllocating) {
  for (const DataType& type :
       {DataType::doubleT(), DataType::fixedT(true, 64, 32),
        DataType::fixedT(true, 128, 64), DataType::fixedT(false, 32, 10)}) {
    MathControl control = MathControl::createFullPrecisionMathControl();
    DateTime plain(DateTimeStruct({2020, 1, 1, 0, 0, 0}), Epoch::Epoch1970,
                   TimeStandard::TAI, type);
    DateTime prepared = plain;
    const DateTime::Step step(type, plain.epoch, 0.001, control.getMathMode());
    const long before = allocations.load();
    for (int k = 0; k < 1000; ++k) prepared.add(step, control);
    EXPECT_EQ(allocations.load() - before, 0);
    for (int k = 0; k < 1000; ++k) plain.add(0.001, control);
    EXPECT_EQ(bytesOf(plain.value), bytesOf(prepared.value));
    if (type.isFixed()) {
      // 1000 times the step as the type holds it, exactly.
      const fxptest::Rational one =
          fxptest::exactOf(DataValue::fromDouble(type, 0.001, MathMode()));
      const fxptest::Rational start =
          fxptest::exactOf(DateTime(DateTimeStruct({2020, 1, 1, 0, 0, 0}),
                                    Epoch::Epoch1970, TimeStandard::TAI, type)
                               .value);
      const fxptest::Rational want = fxptest::apply(
          fxptest::Op::kAdd, start, fxptest::Rational{one.num * 1000, one.den});
      EXPECT_TRUE(fxptest::exactOf(prepared.value) == want);
    }
  }
}

}  // namespace
