// The stored value against an exact rational oracle, the leap-second flag,
// the compact form and the arithmetic of a time point.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <tuple>

#include "date_time/DateTime.hpp"
#include "tests/CountingAllocator.hpp"
#include "tests/TestScale.hpp"
#include "tests/date_time/TestHelpers.hpp"
#include "tests/host/fxp/FxpOracle.hpp"

namespace {

using namespace KvDateTime;
using namespace kvtest;
using namespace fxptest;
using FXP::DataType, FXP::DataValue, FXP::MathMode;

// clang-format off
const DataType kI64f32 = DataType::fixedT(true, 64, 32), kI64 = DataType::fixedT(true, 64, 0);
// clang-format on

// A time point holding `v` as given, no calendar involved.
DateTime raw(const DataType& t, double v, Epoch e,
             TimeStandard ts = TimeStandard::UTC, bool flag = false) {
  return DateTime({DataValue::fromDouble(t, v, {}), flag}, e, ts);
}

// The expected stored value, derived from the calendar count alone: the
// whole seconds exact, the fraction rounded nearest-ties-up into the type,
// their sum wrapped; day epochs round the Julian date and saturate.
void expectOracleValue(const DateTimeStruct& cal, Epoch e, TimeStandard ts,
                       const DataType& t, const DataValue& got) {
  const bool days = DateTimeUtilities::isJulianCompatibleEpoch(e);
  Rational x;
  if (days) {
    x = exactOfDouble(DateTimeUtilities::calendarToJulianDate(cal, e, ts));
  } else {
    const auto [whole, frac] =
        DateTimeUtilities::calendarToEpochTime(cal, e, ts);
    x = exactOfDouble(frac);
    x.num += whole * x.den;
  }
  const MathMode mode(MathMode::kNearestTiesUp,
                      days ? MathMode::kSaturate : MathMode::kWrap);
  ASSERT_EQ(compare(exactOf(got), roundInto(x, t, mode).value), 0);
}

TEST(DateTimeValue, MatchesExactOracleAndReadsBack) {
  // clang-format off
  const DataType types[] = {DataType::doubleT(), DataType::fixedT(true, 32, 0), DataType::fixedT(false, 32, 0),
                            kI64, DataType::fixedT(false, 64, 0), DataType::fixedT(true, 128, 64), DataType::fixedT(false, 64, 32)};
  // clang-format on
  std::mt19937_64 rng(20261122);
  std::uniform_int_distribution<int> year(1401, 9998), month(1, 12), day(1, 28),
      hour(0, 23), minute(0, 59), second(0, 59), frac(0, (1 << 20) - 1);
  for (int i = 0; i < kvtest::scaled(4000); ++i) {
    const bool whole = i % 2 == 0;
    // One draw after another, in the order of the fields.
    const double y = year(rng), mo = month(rng), d = day(rng), h = hour(rng),
                 mi = minute(rng),
                 s = second(rng) + (whole ? 0.0 : std::ldexp(frac(rng), -20));
    const DateTimeStruct cal = DateTimeStruct::unchecked(y, mo, d, h, mi, s);
    for (int k = 0; k < 24; ++k)  // every epoch in every time standard
      for (const DataType& t : types) {
        const auto e = Epoch(k % 6);
        const auto ts = TimeStandard(k / 6);
        SCOPED_TRACE(testing::Message()
                     << i << " k" << k << " w" << t.wordLength() << "."
                     << t.fractionLength());
        // TT and TDB move the count by 32.184 s, which no binary
        // fraction holds exactly.
        const bool holdsFraction =
            (ts == TimeStandard::TAI || ts == TimeStandard::UTC) &&
            (whole ? t.isFixed() : t.fractionLength() >= 20);
        const long before = allocations.load();
        const DateTime dt(cal, e, ts, t);
        if (!DateTimeUtilities::isJulianCompatibleEpoch(e) && holdsFraction &&
            DateTime::isValueInRangeOfType(cal, e, ts, t)) {
          ASSERT_EQ(dt.toDateTimeStruct(), cal);
        }
        ASSERT_EQ(allocations.load() - before, 0);  // a per-step path
        ASSERT_FALSE(dt.isLeapSecond);
        ASSERT_EQ(dt.value.getDataType(), t);
        expectOracleValue(cal, e, ts, t, dt.value);
      }
  }
}

// Every word length and signedness with a spread of fraction lengths, and
// doubles of every magnitude. The split is floor(value) wrapped to 64 bits
// and the rest floored to 64 fraction bits, rounded once to a double and held
// below 1 (tiny negative doubles reach that clamp). (The compact form of a
// time point, read and written back for any bytes and flag, is
// fuzz/datetime_fuzz.cpp's; the host array export test reads it back here.)
TEST(DateTimeValue, SplitMatchesExactFloor) {
  std::mt19937_64 rng(11);
  const auto check = [&](const DataValue& v) {
    const Rational x = exactOf(v);
    const cpp_int whole = roundInt(x, MathMode::kFloor);
    const cpp_int low =
        roundInt(times2({x.num - whole * x.den, x.den}, 64), MathMode::kFloor);
    const EpochTimeStruct got = DateTime::splitStorageValue(v);
    ASSERT_EQ(cpp_int(got.wholePart),
              roundInto({whole}, kI64, MathMode(0, MathMode::kWrap)).value.num);
    ASSERT_EQ(got.fractionalPart,
              std::fmin(std::ldexp(low.convert_to<double>(), -64),
                        std::nextafter(1.0, 0.0)));
  };
  for (int w = 1; w <= 128; ++w)
    for (bool sgn : {false, true})
      for (int f : {-5, 0, w / 3, w / 2, w, 63, 64, 70})
        for (int i = 0; i < 8; ++i) {
          SCOPED_TRACE(testing::Message() << "w" << w << " f" << f << sgn);
          // Random bits made canonical by the type's own wrapping.
          const std::array<std::uint64_t, 2> raw{rng(), rng()};
          FXP::MathControl wrap(FXP::MathMode(0, 0));
          check(
              DataValue::fromCompact(DataType::fixedT(true, 128, 0), raw.data())
                  .convert(DataType::fixedT(sgn, w, f), wrap));
        }
  for (int e = -80; e <= 70; ++e)
    for (double sign : {1.0, -1.0}) {
      const double d =
          sign * std::ldexp(1.0 + std::ldexp(double(rng() >> 12), -52), e);
      SCOPED_TRACE(d);
      check(DataValue::fromDouble(DataType::doubleT(), d, {}));
    }
}

TEST(DateTimeValue, LeapSecondFlagFollowsTheRules) {
  // The flag is set, in day epochs too, and the reading gives the leap
  // second back. (Its value, that of the second before, is held to ERFA in
  // every epoch and storage by the inserted-second conversions.)
  for (const auto& [cal, epoch, type] :
       {std::tuple{DateTimeStruct::unchecked(2016, 12, 31, 23, 59, 60.5),
                   Epoch::Epoch1970, kI64f32},
        std::tuple{DateTimeStruct::unchecked(2015, 6, 30, 23, 59, 60),
                   Epoch::EpochMJD, DataType::doubleT()}}) {
    const DateTime dt(cal, epoch, TimeStandard::UTC, type);
    EXPECT_TRUE(dt.isLeapSecond);
    EXPECT_NEAR(dt.toDateTimeStruct().second, cal.second, 1e-4);
  }
  // A set flag is judged on the reading: the last second of a half year, in
  // UTC only.
  // clang-format off
  const std::tuple<double, double, double, TimeStandard, const char*> flagged[] = {
      {12, 31, 59, TimeStandard::TT, "BadLeapSecondBoolTimeStandard"},
      {6, 15, 59, TimeStandard::UTC, "BadLeapSecondBoolTimestamp"},
      {6, 30, 58.9, TimeStandard::UTC, "BadLeapSecondBoolTimestamp"},
      {6, 30, 59, TimeStandard::UTC, ""},
      {12, 31, 59.25, TimeStandard::UTC, ""}};
  // clang-format on
  for (const auto& [month, day, second, ts, id] : flagged) {
    DateTime dt(DateTimeStruct::unchecked(2016, month, day, 23, 59, second),
                Epoch::Epoch1958, ts, kI64f32);
    dt.isLeapSecond = true;
    EXPECT_EQ(thrownId([&] { dt.toDateTimeStruct(); }), id) << month << day;
  }
}

TEST(DateTimeValue, RangeTestUsesIntegerBitsOfTheType) {
  // clang-format off
  const DataType u32 = DataType::fixedT(false, 32, 0), i32 = DataType::fixedT(true, 32, 0), i8f16 = DataType::fixedT(true, 8, 16);
  const std::tuple<DateTimeStruct, DataType, bool> cases[] = {
      {DateTimeStruct::unchecked(1400, 1, 1, 0, 0, 0), kI64, true},
      {DateTimeStruct::unchecked(1970, 1, 1, 0, 0, 0), u32, true},
      {DateTimeStruct::unchecked(1969, 12, 31, 23, 59, 59), u32, false},
      {DateTimeStruct::unchecked(2106, 2, 7, 6, 28, 16), u32, false},
      {DateTimeStruct::unchecked(2038, 1, 19, 3, 14, 7), i32, true},
      {DateTimeStruct::unchecked(2038, 1, 19, 3, 14, 8), i32, false},
      {DateTimeStruct::unchecked(1969, 1, 1, 0, 0, 0), DataType::fixedT(false, 96, 32), false},
      {DateTimeStruct::unchecked(1970, 1, 1, 0, 0, 0), i8f16, true},
      {DateTimeStruct::unchecked(1970, 1, 1, 0, 0, 1), i8f16, false},
      // A double type never asks the calendar: an invalid record passes.
      {DateTimeStruct::unchecked(0, 13, 0, 0, 0, 0), DataType::doubleT(), true}};
  // clang-format on
  for (const auto& [cal, type, inRange] : cases)
    EXPECT_EQ(DateTime::isValueInRangeOfType(cal, Epoch::Epoch1970,
                                             TimeStandard::UTC, type),
              inRange)
        << cal.year;
}

// A step is in the epoch's unit and allocates nothing; the difference of two
// time points is taken in the first one's type and the epoch's unit. The
// rounding, saturation, overflow report and kept flag of every step are
// fuzz/datetime_fuzz.cpp's, against the exact sum.
TEST(DateTimeArithmetic, MovesInTheEpochUnitWithoutAllocating) {
  const DataType dbl = DataType::doubleT();
  FXP::MathControl mc = FXP::MathControl::createFullPrecisionMathControl();
  // Half a day back in day counts; unsigned storage moves backwards too.
  const std::tuple<Epoch, DataType, double, double> steps[] = {
      {Epoch::EpochMJD, dbl, -43200.0, 9.5},
      {Epoch::EpochMJD, kI64f32, -43200.0, 9.5},
      {Epoch::Epoch1970, DataType::fixedT(false, 8, 0), -1.0, 9.0}};
  for (const auto& [epoch, type, seconds, want] : steps) {
    DateTime dt = raw(type, 10, epoch);
    const long before = allocations.load();
    dt.add(seconds, mc);
    EXPECT_EQ(allocations.load() - before, 0);
    EXPECT_EQ(dt.value.toDouble(), want) << type.wordLength();
  }
  const DateTime a = raw(kI64, 60, Epoch::Epoch1970),
                 b = raw(dbl, 0.25, Epoch::Epoch1970);
  EXPECT_EQ(DateTime::subtract(a, b, mc), 60.0);  // 59.75 held in a's type
  EXPECT_EQ(DateTime::subtract(b, a, mc), -59.75);
  EXPECT_EQ(DateTime::subtract(raw(kI64, 6, Epoch::EpochMJD),
                               raw(kI64, 5, Epoch::EpochMJD), mc),
            1.0);
}

TEST(DateTimeUtilitiesOfTimePoints, DayOfWeekAndValidation) {
  // 1 is Sunday. Seconds epochs floor the day count: -431999 s from 1970 is
  // Saturday 1969-12-27 00:00:01, before the Sunday the count starts from.
  // clang-format off
  const std::tuple<Epoch, TimeStandard, double, int> days[] = {
      {Epoch::Epoch1970, TimeStandard::UTC, 0, 5},
      {Epoch::Epoch1970, TimeStandard::UTC, -431999, 7},
      {Epoch::Epoch1970, TimeStandard::TAI, 86400 * 3, 1},
      {Epoch::EpochJ2000, TimeStandard::TT, 0, 7},
      {Epoch::EpochJD, TimeStandard::UTC, 2451544.5, 7},
      // Day epochs truncate: J2000.0 is 6.5 days after a Sunday midnight,
      // so -10.25 is day -3.75 of that week, counted as -3 (a Thursday).
      {Epoch::EpochJ2000, TimeStandard::UTC, -10.25, 5},
      {Epoch::Epoch1900, TimeStandard::UTC, 0, 2}};
  // clang-format on
  for (const auto& [epoch, ts, value, want] : days) {
    const DateTime dt = raw(kI64f32, value, epoch, ts);
    const long before = allocations.load();
    EXPECT_EQ(DateTimeUtilities::timestampToDayOfWeek(dt), want) << value;
    EXPECT_EQ(allocations.load() - before, 0);
  }
  // A leap second is valid in UTC; the model validator judges the reading
  // as TAI. (A failed reading becomes the diagnostic: the bad-input sweep.)
  const DateTime leap(DateTimeStruct::unchecked(2016, 12, 31, 23, 59, 60),
                      Epoch::Epoch1970, TimeStandard::UTC, kI64);
  const DateTime early(DateTimeStruct::unchecked(1972, 1, 1, 0, 0, 5),
                       Epoch::Epoch1970, TimeStandard::UTC, kI64);
  EXPECT_EQ(idOf(DateTimeUtilities::validateDateTime(leap)), "");
  EXPECT_EQ(idOf(DateTimeUtilities::validateModelDateTime(early)),
            "BadTAIModelConfig");
}

}  // namespace
