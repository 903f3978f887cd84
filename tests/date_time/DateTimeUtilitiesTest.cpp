#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <tuple>

#include "TestHelpers.hpp"
#include "date_time/DateTimeUtilities.hpp"
#include "date_time/FloatingPoint.hpp"

namespace {

using namespace KvDateTime;
using kvtest::idOf;
using kvtest::thrownId;
using Cal = DateTimeUtilities::CalendarValues;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr TimeStandard TAI = TimeStandard::TAI, UTC = TimeStandard::UTC,
                       TT = TimeStandard::TT, TDB = TimeStandard::TDB;

// A record filled by hand, bypassing the validating constructor.
DateTimeStruct raw(const Cal& c) { return std::apply(kvtest::handFilled, c); }

struct Case {
  Cal cal;
  TimeStandard ts;
  const char* id;
};

TEST(DateTimeValidation, ReportsTheFirstBrokenRule) {
  const Case cases[] = {
      {{2000, 2, 29, 0, 0, 0}, TAI, ""},
      {{1900, 2, 29, 0, 0, 0}, TAI, "BadDayOfMonth"},
      {{2023, 4, 31, 0, 0, 0}, TAI, "BadDayOfMonth"},
      {{2023, 0, 1, 0, 0, 0}, TAI, "BadMonth"},
      {{2023, 1.5, 1, 0, 0, 0}, TAI, "BadMonth"},
      {{2023, kNaN, 1, 0, 0, 0}, TAI, "BadMonth"},
      {{2023, 1, 0, 0, 0, 0}, TAI, "BadDayOfMonth"},
      {{2023, 1, 1.5, 0, 0, 0}, TAI, "BadDayOfMonth"},
      {{2000.5, 1, 1, 0, 0, 0}, TAI, "BadYear"},
      {{kNaN, 1, 1, 0, 0, 0}, TAI, "BadYear"},
      {{1399, 1, 1, 0, 0, 0}, TAI, "BadYear"},
      {{10000, 1, 1, 0, 0, 0}, TAI, "BadYear"},
      {{kInf, 1, 1, 0, 0, 0}, TAI, "BadYear"},
      {{1400, 1, 1, 0, 0, 0}, TAI, ""},
      {{9999, 12, 31, 23, 59, 59.999}, TAI, ""},
      {{2023, 13, 1, 24, 0, 0}, TAI, "BadMonth"},  // the date is judged first
      {{2023, 1, 1, 24, 0, 0}, TAI, "BadHour"},
      {{2023, 1, 1, 0.5, 0, 0}, TAI, "BadHour"},
      {{2023, 1, 1, 0, 60, 0}, TAI, "BadMinute"},
      {{2023, 1, 1, 0, kNaN, 0}, TAI, "BadMinute"},
      {{2023, 1, 1, 0, 0, -0.001}, TAI, "BadSecond"},
      {{2016, 12, 31, 23, 59, 60}, TT, "BadSecond"},
      {{2016, 12, 31, 23, 59, 60}, TimeStandard(7), "BadSecond"},
      {{2016, 12, 31, 23, 59, 60.999}, UTC, ""},
      {{2015, 6, 30, 23, 59, 60.5}, UTC, ""},
      {{2016, 12, 31, 23, 59, 61}, UTC, "BadSecondUTC"},
      {{2016, 12, 30, 23, 59, 60}, UTC, "BadLeapSecond"},
      {{2016, 12, 31, 22, 59, 60}, UTC, "BadLeapSecond"},
      // Only the position is judged: 2017 had no leap second.
      {{2017, 12, 31, 23, 59, 60}, UTC, ""},
      // A NaN second passes every bound, on purpose.
      {{2023, 1, 1, 0, 0, kNaN}, TAI, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message()
                 << c.cal[0] << '-' << c.cal[1] << '-' << c.cal[2] << ' '
                 << c.cal[3] << ':' << c.cal[4] << ':' << c.cal[5] << " ts "
                 << int(c.ts));
    EXPECT_EQ(idOf(DateTimeUtilities::validateDateTime(c.cal, c.ts)), c.id);
    // The converters raise exactly what validation returns.
    if (*c.id != '\0' && c.cal[0] == c.cal[0] && std::abs(c.cal[0]) < 1e6) {
      EXPECT_EQ(thrownId([&] {
                  DateTimeUtilities::calendarToEpochTime(
                      raw(c.cal), Epoch::Epoch1970, c.ts);
                }),
                c.id);
    }
  }
}

TEST(DateValidation, DayIsComparedInSixteenBits) {
  // 65537 reduces to 1 and +infinity to 0 (the 32-bit minimum's low bits).
  EXPECT_EQ(idOf(DateTimeUtilities::validateDate({2023, 1, 65537, 0, 0, 0})),
            "");
  EXPECT_EQ(idOf(DateTimeUtilities::validateDate({2023, 2, 65565, 0, 0, 0})),
            "BadDayOfMonth");
  EXPECT_EQ(DateTimeUtilities::calendarToEpochTime(
                raw({2023, 1, 65537, 0, 0, 0}), Epoch::Epoch1970, TAI)
                .wholePart,
            1672531200 - 10);
  // A day reduced to 0 passes, counts as day 0 of the year, and the
  // conversion lets the calendar library's own exception out.
  for (double day : {65536.0, kInf}) {
    const DateTimeStruct r = raw({2023, 1, day, 0, 0, 0});
    EXPECT_EQ(idOf(DateTimeUtilities::validateDate(r.toArray())), "") << day;
    EXPECT_EQ(DateTimeUtilities::calendarTimeToDayOfYear(r), 0) << day;
    try {
      DateTimeUtilities::calendarToEpochTime(r, Epoch::Epoch1970, TAI);
      ADD_FAILURE() << "accepted day " << day;
    } catch (const std::out_of_range& e) {
      EXPECT_STREQ(e.what(), "Day of month value is out of range 1..31");
    }
  }
}

TEST(ModelValidation, StartsAtTheBeginningOfUtcWithLeapSeconds) {
  const double tolerance =
      std::bit_cast<double>(std::uint64_t{0x4023FFFE2A000000});
  const Case cases[] = {
      {{1971, 12, 31, 23, 59, 59}, TAI, "BadYearModelConfig"},
      {{1972, 1, 1, 0, 0, 9.99}, TAI, "BadTAIModelConfig"},
      {{1972, 1, 1, 0, 0, std::nextafter(tolerance, 0.0)},
       TAI,
       "BadTAIModelConfig"},
      {{1972, 1, 1, 0, 0, tolerance}, TAI, ""},
      {{1972, 1, 1, 0, 0, 0}, UTC, ""},
      {{1971, 1, 1, 0, 0, 0}, UTC, "BadYearModelConfig"},
      {{1972, 2, 30, 0, 0, 0}, UTC, "BadDayOfMonth"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.cal[5] << " ts " << int(c.ts));
    EXPECT_EQ(idOf(DateTimeUtilities::validateDateTimeRestrictive(c.cal, c.ts)),
              c.id);
    if (c.ts == TAI) {
      EXPECT_EQ(idOf(DateTimeUtilities::validateModelDateTime(c.cal)), c.id);
    }
  }
  EXPECT_EQ(DateTimeUtilities::earliestModelValidCalDT(),
            DateTimeStruct({1972, 1, 1, 0, 0, 10}));
}

TEST(EpochOffsets, TableIsExactAndAntisymmetric) {
  for (int a = 0; a < 6; ++a) {
    for (int b = 0; b < 6; ++b) {
      if (a == b) continue;
      EXPECT_EQ(std::bit_cast<std::uint64_t>(
                    DateTimeUtilities::getEpochOffset(Epoch(a), Epoch(b), TAI)),
                std::bit_cast<std::uint64_t>(-DateTimeUtilities::getEpochOffset(
                    Epoch(b), Epoch(a), TAI)))
          << a << ',' << b;
    }
  }
  for (auto [a, b] : {std::pair{0, 0}, {3, 3}, {6, 0}, {0, -1}}) {
    try {
      DateTimeUtilities::getEpochOffset(Epoch(a), Epoch(b), UTC);
      ADD_FAILURE() << a << ',' << b;
    } catch (const std::out_of_range& e) {
      EXPECT_STREQ(e.what(), "map::at");
    }
  }
}

TEST(EpochOffsets, CorrectOnlyBetweenSecondAndDayEpochs) {
  const double v = 2440587.5001157406;  // (1970, JD) as stored
  struct Row {
    Epoch from, to;
    TimeStandard ts;
    double expected;
  };
  const Row rows[] = {
      {Epoch::Epoch1970, Epoch::EpochJD, TAI, v},
      {Epoch::Epoch1970, Epoch::EpochJD, UTC, v - 10.0 / 86400.0},
      {Epoch::Epoch1970, Epoch::EpochJD, TDB, v + 32.184 / 86400.0},
      {Epoch::EpochJD, Epoch::Epoch1970, UTC, -v + 10.0 / 86400.0},
      {Epoch::EpochJD, Epoch::Epoch1970, TT, -v - 32.184 / 86400.0},
      {Epoch::EpochJD, Epoch::EpochMJD, UTC, -2400000.5},
      {Epoch::Epoch1900, Epoch::Epoch1958, TT, -1830297590.0},
      {Epoch::Epoch1970, Epoch::Epoch1900, UTC, 2208988800.0},
  };
  for (const Row& r : rows) {
    EXPECT_EQ(DateTimeUtilities::getEpochOffset(r.from, r.to, r.ts), r.expected)
        << int(r.from) << "->" << int(r.to) << " ts " << int(r.ts);
  }
  // INT32_MIN overflowed the old signed subtraction (UBSan catches it).
  for (int e : {INT32_MIN, -2, -1, 0, 2, 3, 5, 6, INT32_MAX}) {
    EXPECT_EQ(DateTimeUtilities::isJulianCompatibleEpoch(Epoch(e)),
              e >= 3 && e <= 5)
        << e;
  }
  EXPECT_EQ(
      DateTimeUtilities::secondsSinceSundayMidnight(Epoch(INT32_MIN), TAI),
      0.0);
}

TEST(EpochTime, AnchorsOfTheAxis) {
  struct Row {
    Cal cal;
    Epoch epoch;
    TimeStandard ts;
    std::int64_t whole;
    double fraction;
  };
  const Row rows[] = {
      {{1970, 1, 1, 0, 0, 0}, Epoch::Epoch1970, UTC, 0, 0.0},
      {{1970, 1, 1, 0, 0, 0}, Epoch::Epoch1970, TAI, -10, 0.0},
      {{1958, 1, 1, 0, 0, 0}, Epoch::Epoch1958, TT, -33, 1.0 - 0.184},
      {{2016, 12, 31, 23, 59, 60.5}, Epoch::Epoch1970, UTC, 1483228800, 0.5},
      {{2017, 1, 1, 0, 0, 0.5}, Epoch::Epoch1970, UTC, 1483228800, 0.5},
      {{1969, 12, 31, 23, 59, 59.75}, Epoch::Epoch1970, UTC, -1, 0.75},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(testing::Message() << r.cal[0] << " epoch " << int(r.epoch)
                                    << " ts " << int(r.ts));
    const EpochTimeStruct t = DateTimeUtilities::calendarToEpochTime(
        DateTimeStruct(r.cal), r.epoch, r.ts);
    EXPECT_EQ(t.wholePart, r.whole);
    EXPECT_EQ(t.fractionalPart, r.fraction);
  }
  // A NaN second is let through; its whole part counts as 0.
  const EpochTimeStruct nan = DateTimeUtilities::calendarToEpochTime(
      raw({1970, 1, 1, 0, 1, kNaN}), Epoch::Epoch1970, UTC);
  EXPECT_EQ(nan.wholePart, 60);
  EXPECT_TRUE(std::isnan(nan.fractionalPart));
}

TEST(EpochTime, BackToTheCalendar) {
  const DateTimeStruct tt =
      DateTimeUtilities::epochTimeToCalendar({0, 0.9}, Epoch::Epoch1958, TT);
  EXPECT_EQ(tt.toArray(), (Cal{1958, 1, 1, 0, 0, tt.second}));
  EXPECT_DOUBLE_EQ(tt.second, 33.084);
  // The count of 23:59:60 comes back as the next midnight.
  EXPECT_EQ(DateTimeUtilities::epochTimeToCalendar({1483228800, 0.5},
                                                   Epoch::Epoch1970, UTC),
            DateTimeStruct({2017, 1, 1, 0, 0, 0.5}));
  // The first and last seconds of the calendar's years (UTC, since 1958).
  EXPECT_EQ(DateTimeUtilities::epochTimeToCalendar({-17608751990, 0.0},
                                                   Epoch::Epoch1958, UTC),
            DateTimeStruct({1400, 1, 1, 0, 0, 0}));
  EXPECT_EQ(DateTimeUtilities::epochTimeToCalendar({253780992009, 0.0},
                                                   Epoch::Epoch1958, UTC),
            DateTimeStruct({9999, 12, 31, 23, 59, 59}));
  for (std::int64_t whole :
       {std::int64_t{-17608751991}, std::int64_t{253780992010},
        std::int64_t{-20'000'000'000}, std::int64_t{300'000'000'000},
        std::numeric_limits<std::int64_t>::max(),
        std::numeric_limits<std::int64_t>::min()}) {
    EXPECT_EQ(thrownId([&] {
                DateTimeUtilities::epochTimeToCalendar({whole, 0.0},
                                                       Epoch::Epoch1958, UTC);
              }),
              "BadYear")
        << whole;
  }
}

TEST(JulianDate, PublishedAnchorsBothWays) {
  struct Row {
    Cal cal;
    Epoch epoch;
    double jd;
  };
  const Row rows[] = {
      {{2000, 1, 1, 12, 0, 0}, Epoch::EpochJD, 2451545.0},
      {{2000, 1, 1, 12, 0, 0}, Epoch::EpochMJD, 51544.5},
      {{2000, 1, 1, 12, 0, 0}, Epoch::EpochJ2000, 0.0},
      {{2000, 1, 1, 12, 0, 0}, Epoch::Epoch1970, 2451545.0},  // read as a JD
      {{1858, 11, 17, 0, 0, 0}, Epoch::EpochMJD, 0.0},
      {{1858, 11, 17, 18, 0, 0}, Epoch::EpochMJD, 0.75},
      {{2000, 3, 1, 0, 0, 0}, Epoch::EpochJD, 2451604.5},
      {{1400, 1, 1, 0, 0, 0}, Epoch::EpochJD, 2232399.5},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(testing::Message() << r.cal[0] << " epoch " << int(r.epoch));
    EXPECT_EQ(DateTimeUtilities::calendarToJulianDate(DateTimeStruct(r.cal),
                                                      r.epoch, UTC),
              r.jd);
    EXPECT_EQ(DateTimeUtilities::julianDateToCalendar(r.jd, r.epoch, UTC),
              DateTimeStruct(r.cal));
  }
  // The sub-second part of the day fraction survives, rounding included.
  EXPECT_EQ(DateTimeUtilities::julianDateToCalendar(2451545.0 + 1.5 / 86400.0,
                                                    Epoch::EpochJD, UTC)
                .second,
            1.5000119805335999);
}

TEST(JulianDate, FailsThroughItsFinalValidation) {
  // Late on 28 February 1700 the century quirk yields 29 February 1700.
  EXPECT_EQ(thrownId([] {
              DateTimeUtilities::julianDateToCalendar(2342031.25,
                                                      Epoch::EpochJD, UTC);
            }),
            "BadDayOfMonth");
  for (double jd : {2232399.0, 5373484.5, kNaN, kInf, -kInf}) {
    EXPECT_EQ(thrownId([&] {
                DateTimeUtilities::julianDateToCalendar(jd, Epoch::EpochJD,
                                                        UTC);
              }),
              "BadYear")
        << jd;
  }
}

TEST(DayOfWeekAndYear, OutsideTheSweptYearsAndInvalidDates) {
  // 1400..9999 are swept against an independent calendar elsewhere.
  EXPECT_EQ(
      DateTimeUtilities::calendarTimeToDayOfWeek(raw({-1, 1, 1, 0, 0, 0})), 6);
  EXPECT_EQ(
      DateTimeUtilities::calendarTimeToDayOfWeek(raw({-400, 3, 1, 0, 0, 0})),
      4);
  EXPECT_EQ(
      DateTimeUtilities::calendarTimeToDayOfYear(raw({-400, 3, 1, 0, 0, 0})),
      61);
  EXPECT_EQ(
      thrownId([] {
        DateTimeUtilities::calendarTimeToDayOfWeek(raw({2023, 2, 29, 0, 0, 0}));
      }),
      "BadDayOfMonth");
  EXPECT_EQ(
      thrownId([] {
        DateTimeUtilities::calendarTimeToDayOfYear(raw({2023, 13, 1, 0, 0, 0}));
      }),
      "BadMonth");
}

TEST(DayOfWeekAndYear, SecondsSinceSundayFollowTheStandard) {
  struct Row {
    Epoch e;
    TimeStandard ts;
    double expected;
  };
  const Row rows[] = {
      {Epoch::Epoch1970, UTC, 345600.0},  {Epoch::Epoch1970, TAI, 345610.0},
      {Epoch::Epoch1970, TT, 345642.184}, {Epoch::Epoch1970, TDB, 345610.0},
      {Epoch::EpochJD, UTC, 129600.0},    {Epoch::EpochJD, TT, 129600.0},
      {Epoch::Epoch1958, UTC, 259190.0},  {Epoch(9), TAI, 0.0},
  };
  for (const Row& r : rows) {
    EXPECT_EQ(DateTimeUtilities::secondsSinceSundayMidnight(r.e, r.ts),
              r.expected)
        << int(r.e) << ' ' << int(r.ts);
  }
}

// The calendar code floors and truncates through its own helpers; they must
// agree with std::floor bit for bit and saturate like the processor.
TEST(NumericHelpers, FloorMatchesStdFloorAndTruncationSaturates) {
  using detail::fastFloor;
  auto same = [](double x) {
    return std::bit_cast<std::uint64_t>(fastFloor(x)) ==
           std::bit_cast<std::uint64_t>(std::floor(x));
  };
  for (double x : {0.0, -0.0, 0.5, -0.5, -1.0, 0x1p52 - 0.5, -0x1p52 + 0.5,
                   0x1p63, -1e300, std::nextafter(-1.0, 0.0),
                   -std::numeric_limits<double>::denorm_min(), -kInf}) {
    EXPECT_TRUE(same(x)) << x;
  }
  EXPECT_TRUE(std::isnan(fastFloor(kNaN)));
  std::uint64_t state = 88172645463325252u;  // xorshift: any bit pattern
  for (int i = 0; i < 200000; ++i) {
    state ^= state << 13, state ^= state >> 7, state ^= state << 17;
    const double any = std::bit_cast<double>(state);
    const double near =
        static_cast<double>(static_cast<std::int64_t>(state >> 20)) / 1024.0;
    ASSERT_TRUE(std::isnan(any) || same(any)) << any;
    ASSERT_TRUE(same(near) && same(-near)) << near;
    ASSERT_EQ(detail::isIntegral(near), near == std::floor(near)) << near;
  }
  using detail::truncToInt;
  EXPECT_EQ(truncToInt<std::int32_t>(kInf), INT32_MIN);
  EXPECT_EQ(truncToInt<std::int32_t>(kNaN), INT32_MIN);
  EXPECT_EQ(truncToInt<std::int32_t>(2147483648.0), INT32_MIN);
  EXPECT_EQ(truncToInt<std::int32_t>(2147483647.9), INT32_MAX);
  EXPECT_EQ(truncToInt<std::int32_t>(-7.9), -7);
  EXPECT_EQ(truncToInt<std::int64_t>(0x1p63), INT64_MIN);
}

}  // namespace
