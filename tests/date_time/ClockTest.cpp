#include <erfa.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <string>

#include "date_time/Clock.hpp"
#include "date_time/DateTimeStructFormatter.hpp"
#include "date_time/StorageTypeName.hpp"
#include "tests/CountingAllocator.hpp"
#include "tests/date_time/TestHelpers.hpp"

namespace {

using namespace KvDateTime;
using kvtest::thrownId;
using TS = TimeStandard;

const FXP::DataType kS64_20 = FXP::DataType::fixedT(true, 64, 20);
const FXP::DataType kS128_64 = FXP::DataType::fixedT(true, 128, 64);
const FXP::DataType kDouble = FXP::DataType::doubleT();

// ERFA's reading of a two-part date in `scale`, rounded to milliseconds,
// as the clock's default pattern writes it.
std::string erfaText(const char* scale, double d1, double d2) {
  int y, mo, d, hmsf[4];
  EXPECT_EQ(eraD2dtf(scale, 3, d1, d2, &y, &mo, &d, hmsf), 0);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d %s", y,
                mo, d, hmsf[0], hmsf[1], hmsf[2], hmsf[3], scale);
  return text;
}

// The demo's step from 2016-12-31 23:59:59 UTC, stored as s64:20 since
// 1970, every step against ERFA's own leap seconds and TDB model.
TEST(ClockOracle, StepsAcrossTheLeapSecondAsErfaDoes) {
  Clock clock("2016-12-31 23:59:59", TS::UTC, Epoch::Epoch1970, "s64:20");
  double u1, u2, a1, a2;
  ASSERT_EQ(eraDtf2d("UTC", 2016, 12, 31, 23, 59, 59.0, &u1, &u2), 0);
  ASSERT_EQ(eraUtctai(u1, u2, &a1, &a2), 0);
  for (int i = 0; i < 12; ++i, clock.step(0.25)) {
    SCOPED_TRACE(i);
    const double tai2 = a2 + i * 0.25 / 86400.0;
    double utc1, utc2, tt1, tt2, tdb1, tdb2;
    ASSERT_EQ(eraTaiutc(a1, tai2, &utc1, &utc2), 0);
    ASSERT_EQ(eraTaitt(a1, tai2, &tt1, &tt2), 0);
    ASSERT_EQ(
        eraTttdb(tt1, tt2, eraDtdb(tt1, tt2, 0.0, 0.0, 0.0, 0.0), &tdb1, &tdb2),
        0);
    EXPECT_EQ(clock.format(TS::UTC), erfaText("UTC", utc1, utc2));
    EXPECT_EQ(clock.format(TS::TAI), erfaText("TAI", a1, tai2));
    EXPECT_EQ(clock.format(TS::TT), erfaText("TT", tt1, tt2));
    EXPECT_EQ(clock.format(TS::TDB), erfaText("TDB", tdb1, tdb2));
    EXPECT_EQ(clock.isLeapSecond(), i >= 4 && i < 8);
    // TDB is kept as the demo computes it by hand, a J2000 double.
    const DateTime tdb = clock.timePoint(TS::TDB);
    EXPECT_TRUE(tdb.epoch == Epoch::EpochJ2000 &&
                tdb.value.getDataType().isDouble());
    // The running count is exact: 1483228799 + 27 s - 1 s skipped + i/4.
    EXPECT_EQ(clock.timePoint(TS::TAI).value.toDouble(),
              1483228825.0 + i * 0.25);
  }
}

// A clock counted in MJD days reads the same instants as one in seconds,
// and a step back across the leap second finds the earlier count again.
TEST(ClockStepping, DayEpochsAndStepsBackReadTheSameInstants) {
  Clock seconds("2016-12-31 23:59:59.5", TS::UTC, Epoch::Epoch1970, kS128_64);
  Clock days("2016-12-31 23:59:59.5", TS::UTC, Epoch::EpochMJD, kDouble);
  const double steps[] = {0.25, 0.5, 0.25, 1.0, -1.0, -0.75, 2.0, -2.5};
  for (double s : steps) {
    seconds.step(s);
    days.step(s);
    SCOPED_TRACE(seconds.format(TS::UTC));
    for (TS ts : {TS::UTC, TS::TAI, TS::TT, TS::TDB})
      EXPECT_EQ(days.format(ts), seconds.format(ts));
    EXPECT_EQ(days.isLeapSecond(), seconds.isLeapSecond());
  }
  EXPECT_EQ(seconds.format(TS::UTC), "2016-12-31 23:59:59.250 UTC");
}

// A schedule with a second inserted at the end of 2015, as a newer
// leap-seconds.list would bring one: the clock follows it, the library's
// own schedule refuses the reading.
TEST(ClockStepping, FollowsTheScheduleItIsGiven) {
  LeapSecondYears years =
      LeapSecondTableDataCreator::build(Epoch::Epoch1970, kDouble)
          .leapSecondYears;
  years[2015].second = 1;
  EXPECT_EQ(thrownId([] {
              Clock("2015-12-31 23:59:60", TS::UTC, Epoch::Epoch1970, kS64_20);
            }),
            "NoLeapSecondInserted");
  Clock clock("2015-12-31 23:59:60", TS::UTC, Epoch::Epoch1970, kS64_20,
              &years);
  EXPECT_TRUE(clock.isLeapSecond());
  EXPECT_EQ(clock.format(TS::TAI), "2016-01-01 00:00:36.000 TAI");
  clock.step(1.0);
  EXPECT_EQ(clock.format(TS::UTC), "2016-01-01 00:00:00.000 UTC");
  EXPECT_EQ(clock.format(TS::TAI), "2016-01-01 00:00:37.000 TAI");

  // And one that takes 23:59:59 away at the end of June 2016.
  years[2016].first = -1;
  EXPECT_EQ(thrownId([&] {
              Clock::timePointFrom("2016-06-30 23:59:59.5", TS::UTC,
                                   Epoch::Epoch1970, kS64_20, &years);
            }),
            "TimestampIsNegativeLeapSecond");
  Clock removed("2016-06-30 23:59:58.9996", TS::UTC, Epoch::Epoch1970, kS128_64,
                &years);
  EXPECT_EQ(removed.format(TS::UTC), "2016-07-01 00:00:00.000 UTC");
  removed.step(0.0004);
  EXPECT_EQ(removed.format(TS::UTC, u"HH:mm:ss.SSSSSS"), "00:00:00.000000");
}

// ------------------------------------------------------ real-world reading

// A stored value from its raw two's-complement integer.
FXP::DataValue rawValue(const FXP::DataType& type, FXP::Int128 raw) {
  unsigned char bytes[16];
  for (int i = 0; i < 16; ++i)
    bytes[i] = static_cast<unsigned char>(raw >> (8 * i));
  return FXP::DataValue::fromCompact(type, bytes);
}

struct HairBelow {
  const char* what;
  DateTime value;
  double minute, minSecond, limit;  // reading in [minSecond, limit)
};

TEST(RealWorldReading, AHairBelowAMinuteNeverReadsSecondSixty) {
  const FXP::Int128 noon = FXP::Int128{1434369600} << 64;  // 2015-06-15 12:00
  const FXP::Int128 leapEnd = FXP::Int128{1483228800} << 64;  // 2017-01-01
  const HairBelow cases[] = {
      {"double -1e-20",
       DateTime(DvLs{FXP::DataValue::fromDouble(kDouble, -1e-20, {}), false},
                Epoch::Epoch1970, TS::UTC),
       59, 59.99999, 60},
      {"s128:64 one unit before noon",
       DateTime(DvLs{rawValue(kS128_64, noon - 1), false}, Epoch::Epoch1970,
                TS::UTC),
       59, 59.99999, 60},
      {"s128:64 before noon in TAI",
       DateTime(DvLs{rawValue(kS128_64, noon - 1), false}, Epoch::Epoch1958,
                TS::TAI),
       59, 59.99999, 60},
      {"flagged, one unit before the end of the leap second",
       DateTime(DvLs{rawValue(kS128_64, leapEnd - 1), true}, Epoch::Epoch1970,
                TS::UTC),
       59, 60.99999, 61},
  };
  for (const HairBelow& c : cases) {
    SCOPED_TRACE(c.what);
    // The stored-value read-back keeps its artefact...
    EXPECT_EQ(c.value.toDateTimeStruct().second, c.limit);
    // ...which the real-world reading does not.
    const DateTimeStruct r = Clock::readingOf(c.value);
    EXPECT_EQ(r.minute, c.minute);
    EXPECT_GE(r.second, c.minSecond);
    EXPECT_LT(r.second, c.limit);
  }
  const DateTimeStruct noonRead = Clock::readingOf(DateTime(
      DvLs{rawValue(kS128_64, noon - 1), false}, Epoch::Epoch1970, TS::UTC));
  EXPECT_EQ(noonRead.hour, 11);
  EXPECT_EQ(noonRead.day, 15);
}

// The read-back wraps these back near the epoch (an unsigned 64-bit count
// above 2^63 to a date before it): a reading for people refuses them.
TEST(RealWorldReading, CountsBeyondSixtyFourBitsAreBadYear) {
  const FXP::DataType s128 = FXP::DataType::fixedT(true, 128, 0);
  const FXP::Int128 five = 5;
  for (const FXP::Int128 raw :
       {(FXP::Int128{1} << 64) + five, five - (FXP::Int128{1} << 64)}) {
    const DateTime dt(DvLs{rawValue(s128, raw), false}, Epoch::Epoch1970,
                      TS::UTC);
    EXPECT_EQ(thrownId([&] { Clock::readingOf(dt); }), "BadYear");
  }
  const DateTime huge(
      DvLs{FXP::DataValue::fromDouble(kDouble, 1e300, {}), false},
      Epoch::Epoch1970, TS::UTC);
  EXPECT_EQ(thrownId([&] { Clock::readingOf(huge); }), "BadYear");
  const DateTimeStruct y1957({1957, 12, 31, 23, 59, 0});
  const DateTime wrapped(y1957, Epoch::Epoch1970, TS::TAI,
                         FXP::DataType::fixedT(false, 64, 0));
  EXPECT_EQ(wrapped.toDateTimeStruct(), y1957);
  EXPECT_EQ(thrownId([&] { Clock::readingOf(wrapped); }), "BadYear");
}

TEST(RealWorldReading, DayCountsReadThroughExactSeconds) {
  // 10 us before 2017-01-01 00:00 TAI in MJD days: the Julian-date
  // read-back has already moved to the next day.
  const DateTime beforeMidnight = Clock::timePointFromCount(
      57754.0 - 1e-5 / 86400.0, TS::TAI, Epoch::EpochMJD, kDouble);
  EXPECT_EQ(beforeMidnight.toDateTimeStruct().day, 1);
  const DateTimeStruct r = Clock::readingOf(beforeMidnight);
  EXPECT_EQ(r.day, 31);
  EXPECT_NEAR(r.second, 59.99999, 1e-6);
  // Late on 28 February 2100 that read-back finds 29 February and throws.
  for (Epoch e : {Epoch::EpochJD, Epoch::EpochMJD, Epoch::EpochJ2000}) {
    const DateTime late =
        Clock::timePointFrom("2100-02-28 23:00:00", TS::TT, e, kDouble);
    EXPECT_EQ(thrownId([&] { late.toDateTimeStruct(); }), "BadDayOfMonth");
    const DateTimeStruct back = Clock::readingOf(late);
    EXPECT_EQ(back.day, 28);
    EXPECT_EQ(back.hour, back.second > 59 ? 22 : 23);
  }
}

struct Rounding {
  const char* reading;
  TimeStandard standard;
  const char16_t* pattern;
  const char* expected;
};

// Each row's instant is stored in s128:64, far finer than the digits shown.
constexpr Rounding kRoundings[] = {
    // The formatter cuts 46.657 to 46.656.
    {"2024-03-05 07:08:46.657", TS::TAI, u"ss.SSS", "46.657"},
    {"2024-03-05 07:08:59.96", TS::TAI, u"HH:mm:ss.S", "07:09:00.0"},
    {"2016-06-15 23:59:59.9996", TS::TAI, u"yyyy-MM-dd HH:mm:ss.SSS",
     "2016-06-16 00:00:00.000"},
    {"2016-12-31 23:59:59.9996", TS::TAI, u"yyyy-MM-dd HH:mm:ss.SSS",
     "2017-01-01 00:00:00.000"},
    {"2016-12-31 23:59:59.99999999996", TS::TT,
     u"yyyy-MM-dd HH:mm:ss.SSSSSSSSS", "2017-01-01 00:00:00.000000000"},
    // A second is inserted after this one: the carry goes to 23:59:60.
    {"2016-12-31 23:59:59.9996", TS::UTC, u"dd HH:mm:ss.SSS",
     "31 23:59:60.000"},
    {"2015-06-30 23:59:59.9996", TS::UTC, u"dd HH:mm:ss.SSS",
     "30 23:59:60.000"},
    // None is inserted at the end of 2015.
    {"2015-12-31 23:59:59.9996", TS::UTC, u"yyyy-MM-dd HH:mm:ss.SSS",
     "2016-01-01 00:00:00.000"},
    // Inside the leap second the carry stops at its last digit.
    {"2016-12-31 23:59:60.9996", TS::UTC, u"dd HH:mm:ss.SSS",
     "31 23:59:60.999"},
    {"2016-12-31 23:59:60.96", TS::UTC, u"ss.S", "60.9"},
    {"2016-12-31 23:59:60.94", TS::UTC, u"ss.S", "60.9"},
    {"2016-12-31 23:59:60.5", TS::UTC, u"ss.SSS", "60.500"},
    // No minute after the calendar's last.
    {"9999-12-31 23:59:59.9996", TS::TAI, u"yyyy-MM-dd HH:mm:ss.SSS",
     "9999-12-31 23:59:59.999"},
    // Without an 'S' run the fields are truncated: the date stays.
    {"2016-12-31 23:59:59.9996", TS::TAI, u"yyyy-MM-dd HH:mm:ss",
     "2016-12-31 23:59:59"},
    {"2016-12-31 23:59:59.9996", TS::TAI, u"yyyy-MM-dd 'SSS'",
     "2016-12-31 SSS"},
    {"2016-12-31 23:59:59.9996", TS::TAI, u"yyyy-MM-dd ''SSS''",
     "2017-01-01 '000'"},
};

TEST(RealWorldReading, FractionDigitsRoundWithCarry) {
  for (const Rounding& c : kRoundings) {
    SCOPED_TRACE(c.reading);
    SCOPED_TRACE(resource_core::toUtf8(c.pattern));
    const Clock clock(c.reading, c.standard, Epoch::Epoch1958, kS128_64);
    EXPECT_EQ(clock.format(c.standard, c.pattern), c.expected);
    EXPECT_EQ(resource_core::toUtf8(clock.formatUtf16(c.standard, c.pattern)),
              c.expected);
  }
}

TEST(RealWorldReading, BadPatternThrowsTheFormattersDiagnostic) {
  const Clock clock("2016-12-31 23:59:59", TS::UTC, Epoch::Epoch1970, kDouble);
  EXPECT_EQ(thrownId([&] { clock.format(TS::UTC, u"ss.SS SS"); }),
            "MultipleFractionalSecondTokens");
  EXPECT_EQ(thrownId([&] { clock.format(TS::UTC, u"yyyy Q"); }),
            "InvalidFormatChar");
}

// ---------------------------------------------------------------- strict

TEST(ClockStrictness, AStepOutOfRangeThrowsAndChangesNothing) {
  Clock clock("2038-01-19 03:13:00", TS::UTC, Epoch::Epoch1970, "int32");
  const std::string before = clock.format(TS::TAI);
  EXPECT_EQ(thrownId([&] { clock.step(100); }, 0),
            "ClockStepOverflow 100 s32:0");
  EXPECT_EQ(clock.format(TS::TAI), before);
  EXPECT_EQ(thrownId([&] { clock.step(-1e300); }), "ClockStepOverflow");
  EXPECT_EQ(thrownId([&] { clock.step(std::nan("")); }, 0), "BadClockStep nan");
  EXPECT_EQ(thrownId([&] { clock.step(-HUGE_VAL); }), "BadClockStep");
  EXPECT_EQ(clock.format(TS::TAI), before);
  // From 03:13:37 TAI, count 2^31 - 41, to the last count int32 holds.
  clock.step(40);
  EXPECT_EQ(clock.format(TS::TAI, u"HH:mm:ss"), "03:14:17");
  EXPECT_EQ(thrownId([&] { clock.step(1); }), "ClockStepOverflow");

  Clock unsignedClock("1972-01-01 00:00:00", TS::UTC, Epoch::Epoch1970,
                      "uint32");
  EXPECT_EQ(thrownId([&] { unsignedClock.step(-2e9); }), "ClockStepOverflow");
}

struct Refusal {
  const char* reading;
  TimeStandard standard;
  Epoch epoch;
  const char* type;
  const char* id;
};

constexpr Refusal kRefusals[] = {
    {"2040-01-01 00:00:00", TS::UTC, Epoch::Epoch1970, "int32",
     "ReadingOutOfStorageRange"},
    {"1969-12-31 23:59:59", TS::UTC, Epoch::Epoch1970, "uint32",
     "ReadingOutOfStorageRange"},
    // The whole seconds fit, the rounded fraction wraps them.
    {"2038-01-19 03:14:07.9", TS::UTC, Epoch::Epoch1970, "int32",
     "ReadingOutOfStorageRange"},
    {"2016-12-31 23:59:60.5", TS::UTC, Epoch::Epoch1970, "int64",
     "LeapSecondLostInStorage"},
    {"2016-12-31 23:59:60.99999999", TS::UTC, Epoch::Epoch1970, "s64:20",
     "LeapSecondLostInStorage"},
    {"2015-12-31 23:59:60", TS::UTC, Epoch::Epoch1970, "double",
     "NoLeapSecondInserted"},
    // Text is read by the parser's ISO preset: a reading it reads but the
    // validator refuses names the validator's identifier.
    {"2016-12-30 23:59:60", TS::UTC, Epoch::Epoch1970, "double",
     "ParseInvalidDateTime Korvane:DateTime:BadLeapSecond"},
    {"2016-12-31 23:59:61", TS::UTC, Epoch::Epoch1970, "double",
     "ParseFieldRange 17"},
    {"2023-02-29 00:00:00", TS::TT, Epoch::EpochMJD, "double",
     "ParseInvalidDateTime Korvane:DateTime:BadDayOfMonth"},
    // 'Z' says UTC: a TAI reading so labelled is refused, not shifted.
    {"2016-12-31T23:59:59Z", TS::TAI, Epoch::Epoch1970, "double",
     "ParseTimeStandardMismatch 19 TAI"},
    {"2016-12-31 23:59:59 ", TS::UTC, Epoch::Epoch1970, "double",
     "ParseTrailingText 19"},
    {"2016-12-31 23:59:-1", TS::UTC, Epoch::Epoch1970, "double",
     "ParseMismatch 17"},
    {"", TS::UTC, Epoch::Epoch1970, "double", "ParseMismatch 0"},
};

TEST(CheckedTimePoint, RefusesReadingsTheTypeOrTheScheduleCannotHold) {
  for (const Refusal& c : kRefusals) {
    SCOPED_TRACE(c.reading);
    const FXP::DataType type = StorageTypeName::parse(c.type);
    // From the third argument on: the position or the validator's
    // identifier of a parse failure.
    EXPECT_EQ(
        thrownId(
            [&] { Clock::timePointFrom(c.reading, c.standard, c.epoch, type); },
            2),
        c.id);
    EXPECT_EQ(
        thrownId([&] { Clock(c.reading, c.standard, c.epoch, c.type); }, 2),
        c.id);
  }
  EXPECT_EQ(thrownId([&] {
              Clock("2016-12-31 23:59:59", TS::TDB, Epoch::EpochJ2000, kDouble);
            }),
            "ClockStartInTDB");
  EXPECT_THROW(Clock("2016-12-31 23:59:59", TS::UTC, Epoch::Epoch1970, "s64"),
               std::invalid_argument);
  // Valid in UTC, but its TAI count is beyond int32.
  EXPECT_EQ(thrownId(
                [&] {
                  Clock("2038-01-19 03:14:00", TS::UTC, Epoch::Epoch1970,
                        "int32");
                },
                0),
            "ClockReadingOutOfRange TAI s32:0");
  DateTimeStruct nanSecond;
  nanSecond.year = 2016, nanSecond.month = 1, nanSecond.day = 1;
  nanSecond.second = std::nan("");
  EXPECT_EQ(thrownId([&] {
              Clock::timePointFrom(nanSecond, TS::TT, Epoch::Epoch1970,
                                   kDouble);
            }),
            "BadSecond");
}

TEST(CheckedTimePoint, KeepsLeapSecondsThatStayInside) {
  // Text in ISO 8601's shorter forms reads as the full one.
  const DateTime t = Clock::timePointFrom("2016-12-31t23:59:60,5z", TS::UTC,
                                          Epoch::Epoch1970, kS64_20);
  EXPECT_TRUE(t.isLeapSecond);
  EXPECT_EQ(Clock::readingOf(t).second, 60.5);
  EXPECT_EQ(Clock::timePointFrom("2016-12-31T23:59", TS::UTC, Epoch::Epoch1970,
                                 kS64_20)
                .value.toDouble(),
            1483228740.0);
  const DateTime j = Clock::timePointFrom("2016-12-31 23:59:60.999", TS::UTC,
                                          Epoch::EpochJ2000, kDouble);
  // The Julian-date read-back is good to some microseconds.
  EXPECT_NEAR(Clock::readingOf(j).second, 60.999, 1e-5);
  const Clock c(DateTimeStruct({2016, 12, 31, 23, 59, 60.25}), TS::UTC,
                Epoch::Epoch1900, "s128:64");
  EXPECT_EQ(c.format(TS::UTC), "2016-12-31 23:59:60.250 UTC");
}

struct CountCase {
  double count;
  const char* type;
  const char* id;  // "" when accepted
};

constexpr CountCase kCounts[] = {
    {300, "int8", "StoredCountOutOfRange 300 s8:0"},
    {-1e30, "int8", "StoredCountOutOfRange -1e+30 s8:0"},
    {127.6, "int8", "StoredCountOutOfRange 127.6 s8:0"},  // rounds to 128
    {-0.6, "uint8", "StoredCountOutOfRange -0.6 u8:0"},
    {127.4, "int8", ""},
    {-128, "int8", ""},
    {-0.4, "uint8", ""},
    {std::numeric_limits<double>::quiet_NaN(), "double",
     "StoredCountOutOfRange nan double"},
    {HUGE_VAL, "s128:64", "StoredCountOutOfRange inf s128:64"},
    {-HUGE_VAL, "double", "StoredCountOutOfRange -inf double"},
    {1e300, "double", "BadYear"},  // held, but no calendar reading
};

TEST(CheckedTimePoint, StoredCountsTheTypeCannotHoldAreRefused) {
  for (const CountCase& c : kCounts) {
    SCOPED_TRACE(c.count);
    const FXP::DataType type = StorageTypeName::parse(c.type);
    EXPECT_EQ(thrownId(
                  [&] {
                    Clock::timePointFromCount(c.count, TS::UTC,
                                              Epoch::Epoch1970, type);
                  },
                  0),
              c.id);
  }
  EXPECT_EQ(thrownId(
                [&] {
                  Clock::timePointFromCount(std::int64_t{300}, TS::UTC,
                                            Epoch::Epoch1970,
                                            FXP::DataType::fixedT(true, 8, 0));
                },
                0),
            "StoredCountOutOfRange 300 s8:0");
  const DateTime t = Clock::timePointFromCount(
      std::int64_t{1483228799}, TS::UTC, Epoch::Epoch1970, kS64_20);
  EXPECT_EQ(Clock::readingOf(t), DateTimeStruct({2016, 12, 31, 23, 59, 59}));
}

// ------------------------------------------------------------ allocations

TEST(ClockAllocation, SteppingAndReadingAllocateNothing) {
  Clock clock("2016-12-31 23:59:58", TS::UTC, Epoch::Epoch1970, kS64_20);
  Clock days("2016-12-31 23:59:58", TS::UTC, Epoch::EpochMJD, kDouble);
  double sum = 0;
  const long before = kvtest::allocations.load();
  for (int i = 0; i < 400; ++i) {
    clock.step(i == 200 ? -30.0 : 0.25);
    days.step(0.25);
    for (TS ts : {TS::UTC, TS::TAI, TS::TT, TS::TDB}) {
      sum += clock.reading(ts).second + days.reading(ts).second;
      sum += clock.timePoint(ts).value.toDouble();
    }
    sum += clock.isLeapSecond();
  }
  EXPECT_EQ(kvtest::allocations.load() - before, 0);
  EXPECT_GT(sum, 0);
}

}  // namespace
