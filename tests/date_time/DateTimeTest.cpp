// The stored value against an exact rational oracle, the leap-second flag,
// the compact form and the arithmetic of a time point.
#include <gtest/gtest.h>

#include <boost/multiprecision/cpp_bin_float.hpp>
#include <boost/multiprecision/cpp_int.hpp>
#include <cmath>
#include <cstring>
#include <random>
#include <type_traits>

#include "date_time/DateTime.hpp"
#include "tests/date_time/TestHelpers.hpp"

namespace {

using namespace KvDateTime;
namespace mp = boost::multiprecision;
using FXP::DataType;
using FXP::DataValue;
using kvtest::handFilled;
using kvtest::thrownId;

static_assert(std::is_base_of_v<DvLs, DateTime>);
static_assert(std::is_trivially_copyable_v<DateTime>);

constexpr Epoch kEpochs[] = {Epoch::Epoch1970, Epoch::Epoch1900,
                             Epoch::Epoch1958, Epoch::EpochJD,
                             Epoch::EpochMJD,  Epoch::EpochJ2000};
constexpr TimeStandard kStandards[] = {TimeStandard::TAI, TimeStandard::UTC,
                                       TimeStandard::TT, TimeStandard::TDB};
const DataType kTypes[] = {DataType::doubleT(),
                           DataType::fixedT(true, 32, 0),
                           DataType::fixedT(false, 32, 0),
                           DataType::fixedT(true, 64, 0),
                           DataType::fixedT(false, 64, 0),
                           DataType::fixedT(true, 128, 64),
                           DataType::fixedT(false, 64, 32)};

mp::cpp_int storedInteger(const DataValue& v) {
  const auto w = v.getFatVal();
  mp::cpp_int r = 0;
  for (int i = 3; i >= 0; --i) r = (r << 32) | w[i];
  if (v.getDataType().isSigned() && (w[3] >> 31)) r -= mp::cpp_int(1) << 128;
  return r;
}

// floor(x + 1/2): the nearest-ties-up rounding of a non-negative or negative
// exact rational.
mp::cpp_int roundTiesUp(const mp::cpp_rational& x) {
  const mp::cpp_rational y = x + mp::cpp_rational(1, 2);
  mp::cpp_int q = mp::numerator(y) / mp::denominator(y);
  if (q * mp::denominator(y) > mp::numerator(y)) --q;  // toward -infinity
  return q;
}

mp::cpp_rational exact(double d) {
  int e;
  const double m = std::frexp(d, &e);
  mp::cpp_rational r(static_cast<long long>(std::ldexp(m, 53)));
  e -= 53;
  return e >= 0 ? r * mp::cpp_rational(mp::cpp_int(1) << e)
                : r / mp::cpp_rational(mp::cpp_int(1) << -e);
}

mp::cpp_int wrapTo(mp::cpp_int v, const DataType& t) {
  const mp::cpp_int mod = mp::cpp_int(1) << t.wordLength();
  v %= mod;
  if (v < 0) v += mod;
  if (t.isSigned() && v >= mod / 2) v -= mod;
  return v;
}

mp::cpp_int saturateTo(mp::cpp_int v, const DataType& t) {
  const int w = t.wordLength();
  const mp::cpp_int lo = t.isSigned() ? -(mp::cpp_int(1) << (w - 1)) : 0;
  const mp::cpp_int hi = (mp::cpp_int(1) << (t.isSigned() ? w - 1 : w)) - 1;
  return v < lo ? lo : v > hi ? hi : v;
}

// The expected stored value, derived from the calendar count alone: the
// whole seconds exact, the fraction rounded nearest-ties-up into the type,
// their sum wrapped; day epochs round the Julian date and saturate.
void expectOracleValue(const DateTimeStruct& cal, Epoch e, TimeStandard ts,
                       const DataType& t, const DataValue& got) {
  const int f = t.fractionLength();
  const mp::cpp_rational scale(mp::cpp_int(1) << f);
  if (DateTimeUtilities::isJulianCompatibleEpoch(e)) {
    const double jd = DateTimeUtilities::calendarToJulianDate(cal, e, ts);
    if (t.isDouble()) {
      ASSERT_EQ(std::bit_cast<std::uint64_t>(got.toDouble()),
                std::bit_cast<std::uint64_t>(jd));
      return;
    }
    ASSERT_EQ(storedInteger(got),
              saturateTo(roundTiesUp(exact(jd) * scale), t));
    return;
  }
  const EpochTimeStruct ets =
      DateTimeUtilities::calendarToEpochTime(cal, e, ts);
  if (t.isDouble()) {
    using Wide = mp::cpp_bin_float_100;
    const double want =
        (Wide(ets.wholePart) + Wide(ets.fractionalPart)).convert_to<double>();
    ASSERT_EQ(got.toDouble(), want);
    return;
  }
  const mp::cpp_int whole = mp::cpp_int(ets.wholePart) << f;
  const mp::cpp_int frac =
      saturateTo(roundTiesUp(exact(ets.fractionalPart) * scale), t);
  ASSERT_EQ(storedInteger(got), wrapTo(whole + frac, t));
}

TEST(DateTimeValue, MatchesExactOracleAndReadsBack) {
  std::mt19937_64 rng(20261122);
  std::uniform_int_distribution<int> year(1401, 9998), month(1, 12), day(1, 28),
      hour(0, 23), minute(0, 59), second(0, 59), frac(0, (1 << 20) - 1);
  for (int i = 0; i < 4000; ++i) {
    const bool whole = i % 2 == 0;
    const DateTimeStruct cal =
        handFilled(year(rng), month(rng), day(rng), hour(rng), minute(rng),
                   second(rng) + (whole ? 0.0 : std::ldexp(frac(rng), -20)));
    for (Epoch e : kEpochs)
      for (TimeStandard ts : kStandards)
        for (const DataType& t : kTypes) {
          SCOPED_TRACE(testing::Message()
                       << i << " epoch " << int(e) << " ts " << int(ts)
                       << " type w" << t.wordLength() << " f"
                       << t.fractionLength() << " s" << t.isSigned());
          const DateTime dt(cal, e, ts, t);
          ASSERT_FALSE(dt.isLeapSecond);
          ASSERT_EQ(dt.value.getDataType(), t);
          expectOracleValue(cal, e, ts, t, dt.value);
          // TT and TDB move the count by 32.184 s, which no binary
          // fraction holds exactly.
          const bool holdsFraction =
              (ts == TimeStandard::TAI || ts == TimeStandard::UTC) &&
              (whole ? t.isFixed() : t.fractionLength() >= 20);
          if (!DateTimeUtilities::isJulianCompatibleEpoch(e) && holdsFraction &&
              DateTime::isValueInRangeOfType(cal, e, ts, t)) {
            ASSERT_EQ(dt.toDateTimeStruct(), cal);
          }
        }
  }
}

// Every word length, signedness and a spread of fraction lengths, and
// doubles of every magnitude: the split is floor(value) wrapped to 64 bits
// and the rest floored to 64 fraction bits, then rounded once to a double.
TEST(DateTimeValue, SplitMatchesExactFloorForEveryType) {
  std::mt19937_64 rng(11);
  const auto expectSplit = [](const DataValue& v, const mp::cpp_rational& x) {
    mp::cpp_int whole = mp::numerator(x) / mp::denominator(x);
    if (whole * mp::denominator(x) > mp::numerator(x)) --whole;
    const mp::cpp_rational rest =
        (x - mp::cpp_rational(whole)) * mp::cpp_rational(mp::cpp_int(1) << 64);
    const mp::cpp_int low = mp::numerator(rest) / mp::denominator(rest);
    double frac = std::ldexp(low.convert_to<double>(), -64);
    if (frac == 1.0) frac = std::nextafter(1.0, 0.0);
    const EpochTimeStruct got = DateTime::splitStorageValue(v);
    ASSERT_EQ(mp::cpp_int(got.wholePart),
              wrapTo(whole, DataType::fixedT(true, 64, 0)));
    ASSERT_EQ(got.fractionalPart, frac);
  };
  for (int w = 1; w <= 128; ++w)
    for (bool sgn : {false, true})
      for (int f : {-5, 0, w / 2, w, 63, 64, 70}) {
        const DataType t = DataType::fixedT(sgn, w, f);
        for (int i = 0; i < 8; ++i) {
          std::array<std::uint64_t, 2> raw{rng(), rng()};
          FXP::MathControl wrap(FXP::MathMode(0, 0));
          const DataValue v =
              DataValue::fromCompact(DataType::fixedT(true, 128, 0), raw.data())
                  .convert(t, wrap);
          SCOPED_TRACE(testing::Message()
                       << "w" << w << " f" << f << " s" << sgn);
          const mp::cpp_rational scale(mp::cpp_int(1) << std::abs(f));
          const mp::cpp_rational x =
              f >= 0 ? mp::cpp_rational(storedInteger(v)) / scale
                     : mp::cpp_rational(storedInteger(v)) * scale;
          expectSplit(v, x);
        }
      }
  // A rest of 1 - 2^-64 rounds to 1.0 as a double and must stay below it.
  const std::array<std::uint64_t, 2> justBelow6{~std::uint64_t{0}, 5};
  const DataValue v6 = DataValue::fromCompact(DataType::fixedT(true, 128, 64),
                                              justBelow6.data());
  expectSplit(v6, mp::cpp_rational(storedInteger(v6)) /
                      mp::cpp_rational(mp::cpp_int(1) << 64));
  for (int e = -80; e <= 70; ++e)
    for (double sign : {1.0, -1.0}) {
      const double d =
          sign * std::ldexp(1.0 + std::ldexp(double(rng() >> 12), -52), e);
      SCOPED_TRACE(d);
      expectSplit(DataValue::fromDouble(DataType::doubleT(), d, {}), exact(d));
    }
}

TEST(DateTimeValue, LeapSecondFlagFollowsTheRules) {
  const DataType i64 = DataType::fixedT(true, 64, 32);
  const DateTimeStruct leap = handFilled(2016, 12, 31, 23, 59, 60.5);
  const DateTime utc(leap, Epoch::Epoch1970, TimeStandard::UTC, i64);
  EXPECT_TRUE(utc.isLeapSecond);
  EXPECT_EQ(utc.value, DateTime(handFilled(2016, 12, 31, 23, 59, 59.5),
                                Epoch::Epoch1970, TimeStandard::UTC, i64)
                           .value);
  EXPECT_EQ(utc.toDateTimeStruct(), leap);
  // Day epochs carry the flag the same way.
  const DateTime mjd(handFilled(2015, 6, 30, 23, 59, 60), Epoch::EpochMJD,
                     TimeStandard::UTC, DataType::doubleT());
  EXPECT_TRUE(mjd.isLeapSecond);
  EXPECT_NEAR(mjd.toDateTimeStruct().second, 60.0, 1e-4);
  // Outside UTC the second goes on unchanged, and the calendar refuses it.
  EXPECT_EQ(thrownId([&] {
              DateTime(leap, Epoch::Epoch1970, TimeStandard::TAI, i64);
            }),
            "BadSecond");

  struct Flagged {
    DateTimeStruct cal;
    TimeStandard ts;
    const char* id;
  };
  const Flagged flagged[] = {
      {handFilled(2016, 12, 31, 23, 59, 59), TimeStandard::TT,
       "BadLeapSecondBoolTimeStandard"},
      {handFilled(2016, 6, 15, 12, 0, 0), TimeStandard::UTC,
       "BadLeapSecondBoolTimestamp"},
      {handFilled(2016, 6, 30, 23, 59, 58.9), TimeStandard::UTC,
       "BadLeapSecondBoolTimestamp"},
      {handFilled(2016, 6, 30, 23, 59, 59), TimeStandard::UTC, ""},
      {handFilled(2016, 12, 31, 23, 59, 59.25), TimeStandard::UTC, ""},
  };
  for (const Flagged& f : flagged) {
    DateTime dt(f.cal, Epoch::Epoch1958, f.ts, i64);
    dt.isLeapSecond = true;
    EXPECT_EQ(thrownId([&] { dt.toDateTimeStruct(); }), f.id) << f.cal.day;
  }
}

TEST(DateTimeValue, RangeTestUsesIntegerBitsOfTheType) {
  struct Case {
    DateTimeStruct cal;
    DataType type;
    bool inRange;
  };
  const DataType u32 = DataType::fixedT(false, 32, 0),
                 i32 = DataType::fixedT(true, 32, 0),
                 i8f16 = DataType::fixedT(true, 8, 16);
  const Case cases[] = {
      {handFilled(1400, 1, 1, 0, 0, 0), DataType::fixedT(true, 64, 0), true},
      {handFilled(1970, 1, 1, 0, 0, 0), u32, true},
      {handFilled(1969, 12, 31, 23, 59, 59), u32, false},
      {handFilled(2106, 2, 7, 6, 28, 16), u32, false},
      {handFilled(2038, 1, 19, 3, 14, 7), i32, true},
      {handFilled(2038, 1, 19, 3, 14, 8), i32, false},
      {handFilled(1969, 1, 1, 0, 0, 0), DataType::fixedT(false, 96, 32), false},
      {handFilled(1970, 1, 1, 0, 0, 0), i8f16, true},
      {handFilled(1970, 1, 1, 0, 0, 1), i8f16, false},
  };
  for (const Case& c : cases)
    EXPECT_EQ(DateTime::isValueInRangeOfType(c.cal, Epoch::Epoch1970,
                                             TimeStandard::UTC, c.type),
              c.inRange)
        << c.cal.year << "-" << c.cal.month << " w" << c.type.wordLength();
  // A double type never asks the calendar: an invalid record passes.
  EXPECT_TRUE(DateTime::isValueInRangeOfType(
      handFilled(0, 13, 0, 0, 0, 0), Epoch::Epoch1970, TimeStandard::UTC,
      DataType::doubleT()));
}

// Every word length and signedness, and double: the compact form and its
// read-back keep the stored bits; a non-canonical encoding is refused with
// the object untouched.
TEST(DateTimeValue, CompactFormIsLosslessAndRejectsNonCanonicalBytes) {
  std::mt19937_64 rng(7);
  std::vector<DataType> types{DataType::doubleT()};
  for (int w = 1; w <= 128; ++w)
    for (bool s : {false, true}) types.push_back(DataType::fixedT(s, w, w / 3));
  for (const DataType& t : types) {
    DateTime dt(Epoch::Epoch1958, TimeStandard::TAI, t);
    for (int i = 0; i < 20; ++i) {
      std::array<std::uint8_t, 16> raw{};
      for (auto& b : raw) b = static_cast<std::uint8_t>(rng());
      // Random bits, then made canonical by the type's own conversion.
      FXP::MathControl wrap(FXP::MathMode(0, 0));
      const DataValue v =
          DataValue::fromCompact(DataType::fixedT(true, 128, 0), raw.data())
              .convert(t, wrap);
      dt.value = v;
      std::array<std::uint8_t, 16> bytes{};
      const bool flag = i % 2 == 0;
      dt.isLeapSecond = flag;
      ASSERT_EQ(dt.toCompact(bytes.data()), flag);
      DateTime back(Epoch::Epoch1958, TimeStandard::TAI, t);
      back.fromCompact(bytes.data(), flag);
      ASSERT_EQ(std::memcmp(&back.value, &v, sizeof v), 0) << t.wordLength();
      ASSERT_EQ(back.isLeapSecond, flag);
    }
    if (t.isDouble() || t.wordLength() % 8 != 0) {
      // A NaN for double; a bit above the word for the others.
      std::array<std::uint8_t, 16> bad{};
      if (t.isDouble()) {
        const double nan = std::nan("");
        std::memcpy(bad.data(), &nan, 8);
      } else {
        bad[t.sizeofCompact() - 1] = 0x80;
        if (t.isSigned()) bad[t.sizeofCompact() - 1] = 0x40;
      }
      const DateTime before = dt;
      EXPECT_THROW(dt.fromCompact(bad.data(), !dt.isLeapSecond),
                   std::invalid_argument);
      EXPECT_EQ(std::memcmp(&before, &dt, sizeof dt), 0) << t.wordLength();
    }
  }
}

TEST(DateTimeArithmetic, MovesInTheEpochUnitAndKeepsTheFlag) {
  struct Case {
    Epoch epoch;
    DataType type;
    double start, seconds, want;
  };
  const DataType u16 = DataType::fixedT(false, 16, 0);
  const Case cases[] = {
      {Epoch::EpochJD, DataType::doubleT(), 2451545.0, 86400.0, 2451546.0},
      {Epoch::EpochMJD, DataType::fixedT(true, 64, 32), 10.0, -43200.0, 9.5},
      {Epoch::Epoch1970, u16, 10.0, -1.0, 9.0},
      {Epoch::Epoch1970, u16, 10.0, -0.0, 10.0},
      {Epoch::Epoch1970, u16, 10.0, std::nan(""), 10.0},
      {Epoch::Epoch1970, DataType::fixedT(true, 128, 64), -1.5, 0.25, -1.25},
      {Epoch::Epoch1900, DataType::fixedT(true, 32, 0), 5.0, 2.5, 8.0},
  };
  for (const Case& c : cases) {
    FXP::MathControl mc = FXP::MathControl::createFullPrecisionMathControl();
    DateTime dt(
        {DataValue::fromDouble(c.type, c.start, mc.getMathMode()), true},
        c.epoch, TimeStandard::UTC);
    dt.add(c.seconds, mc);
    EXPECT_EQ(dt.value.toDouble(), c.want) << c.start << " + " << c.seconds;
    EXPECT_EQ(dt.value.getDataType(), c.type);
    EXPECT_TRUE(dt.isLeapSecond);
    dt.subtract(c.seconds, mc);
    if (!std::isnan(c.seconds) && c.type.isDouble()) {
      EXPECT_EQ(dt.value.toDouble(), c.start);
    }
  }
}

TEST(DateTimeArithmetic, ReportsOverflowAndSubtractsInTheFirstType) {
  const DataType u8 = DataType::fixedT(false, 8, 0);
  FXP::MathControl mc = FXP::MathControl::createFullPrecisionMathControl();
  DateTime dt({DataValue::fromDouble(u8, 250, mc.getMathMode()), false},
              Epoch::Epoch1970, TimeStandard::TAI);
  EXPECT_FALSE(dt.addWithOverflowCheck(5, mc));
  EXPECT_TRUE(dt.addWithOverflowCheck(1, mc));
  EXPECT_EQ(dt.value.toDouble(), 255.0);  // saturated by the control
  EXPECT_FALSE(dt.addWithOverflowCheck(-255, mc));
  EXPECT_TRUE(dt.addWithOverflowCheck(-1, mc));
  EXPECT_EQ(dt.value.toDouble(), 0.0);

  const DataType i64 = DataType::fixedT(true, 64, 0);
  const DateTime a(handFilled(2020, 5, 5, 10, 1, 0), Epoch::Epoch1970,
                   TimeStandard::UTC, i64);
  const DateTime b(handFilled(2020, 5, 5, 10, 0, 0), Epoch::Epoch1970,
                   TimeStandard::UTC, DataType::doubleT());
  EXPECT_EQ(DateTime::subtract(a, b, mc), 60.0);
  EXPECT_EQ(DateTime::subtract(b, a, mc), -60.0);
  const DateTime c(handFilled(2020, 5, 6, 0, 0, 0), Epoch::EpochMJD,
                   TimeStandard::UTC, i64);
  const DateTime d(handFilled(2020, 5, 5, 0, 0, 0), Epoch::EpochMJD,
                   TimeStandard::UTC, i64);
  EXPECT_EQ(DateTime::subtract(c, d, mc), 1.0);
}

TEST(DateTimeUtilitiesOfTimePoints, DayOfWeekAndValidation) {
  struct Day {
    Epoch epoch;
    TimeStandard ts;
    double value;
    int want;
  };
  const Day days[] = {
      {Epoch::Epoch1970, TimeStandard::UTC, 0, 5},
      {Epoch::Epoch1970, TimeStandard::UTC, -1, 4},
      {Epoch::Epoch1970, TimeStandard::TAI, 86400 * 3, 1},
      {Epoch::EpochJ2000, TimeStandard::TT, 0.0, 7},
      {Epoch::EpochJD, TimeStandard::UTC, 2451544.5, 7},  // 2000-01-01
      {Epoch::Epoch1900, TimeStandard::UTC, 0, 2},
  };
  for (const Day& d : days) {
    const DateTime dt(
        {DataValue::fromDouble(DataType::doubleT(), d.value, {}), false},
        d.epoch, d.ts);
    EXPECT_EQ(DateTimeUtilities::timestampToDayOfWeek(dt), d.want) << d.value;
  }
  const DataType i64 = DataType::fixedT(true, 64, 0);
  const DateTime leap(handFilled(2016, 12, 31, 23, 59, 60), Epoch::Epoch1970,
                      TimeStandard::UTC, i64);
  EXPECT_EQ(kvtest::idOf(DateTimeUtilities::validateDateTime(leap)), "");
  const DateTime early(handFilled(1972, 1, 1, 0, 0, 5), Epoch::Epoch1970,
                       TimeStandard::UTC, i64);
  EXPECT_EQ(kvtest::idOf(DateTimeUtilities::validateModelDateTime(early)),
            "BadTAIModelConfig");
  DateTime badFlag = early;
  badFlag.isLeapSecond = true;
  EXPECT_EQ(kvtest::idOf(DateTimeUtilities::validateDateTime(badFlag)),
            "BadLeapSecondBoolTimestamp");
  const DateTime tooLate({DataValue::fromDouble(i64, 1e12, {}), false},
                         Epoch::Epoch1970, TimeStandard::TAI);
  EXPECT_EQ(kvtest::idOf(DateTimeUtilities::validateModelDateTime(tooLate)),
            "BadYear");
}

}  // namespace
