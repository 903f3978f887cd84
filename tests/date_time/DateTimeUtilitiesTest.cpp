#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>

#include "TestHelpers.hpp"
#include "date_time/DateTimeUtilities.hpp"

namespace {

using KvDateTime::DateTimeStruct;
using KvDateTime::DateTimeUtilities;
using KvDateTime::Epoch;
using KvDateTime::EpochTimeStruct;
using KvDateTime::TimeStandard;
using kvtest::idOf;
using kvtest::thrownId;
using Cal = DateTimeUtilities::CalendarValues;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr TimeStandard TAI = TimeStandard::TAI, UTC = TimeStandard::UTC,
                       TT = TimeStandard::TT, TDB = TimeStandard::TDB;

std::string dateTimeId(const Cal& c, TimeStandard ts) {
  return idOf(DateTimeUtilities::validateDateTime(c, ts));
}

// --- Validation
// ---------------------------------------------------------------

struct ValidationCase {
  Cal cal;
  TimeStandard ts;
  const char* id;
};

TEST(DateTimeValidation, ReportsTheFirstBrokenRule) {
  const ValidationCase cases[] = {
      {{2000, 2, 29, 0, 0, 0}, TAI, ""},
      {{1900, 2, 29, 0, 0, 0}, TAI, "BadDayOfMonth"},
      {{2100, 2, 29, 0, 0, 0}, TAI, "BadDayOfMonth"},
      {{2400, 2, 29, 0, 0, 0}, TAI, ""},
      {{2023, 4, 31, 0, 0, 0}, TAI, "BadDayOfMonth"},
      {{2023, 0, 1, 0, 0, 0}, TAI, "BadMonth"},
      {{2023, 13, 1, 0, 0, 0}, TAI, "BadMonth"},
      {{2023, 1.5, 1, 0, 0, 0}, TAI, "BadMonth"},
      {{2023, kNaN, 1, 0, 0, 0}, TAI, "BadMonth"},
      {{2023, 1, 0, 0, 0, 0}, TAI, "BadDayOfMonth"},
      {{2023, 1, 1.5, 0, 0, 0}, TAI, "BadDayOfMonth"},
      {{2000.5, 1, 1, 0, 0, 0}, TAI, "BadYear"},
      {{kNaN, 1, 1, 0, 0, 0}, TAI, "BadYear"},
      {{1399, 1, 1, 0, 0, 0}, TAI, "BadYear"},
      {{10000, 1, 1, 0, 0, 0}, TAI, "BadYear"},
      {{kInf, 1, 1, 0, 0, 0}, TAI, "BadYear"},  // integral, then out of range
      {{1400, 1, 1, 0, 0, 0}, TAI, ""},
      {{9999, 12, 31, 23, 59, 59.999}, TAI, ""},
      {{2023, 13, 1, 24, 0, 0}, TAI, "BadMonth"},  // date before time
      {{2023, 1, 1, 24, 0, 0}, TAI, "BadHour"},
      {{2023, 1, 1, -1, 0, 0}, TAI, "BadHour"},
      {{2023, 1, 1, 0.5, 0, 0}, TAI, "BadHour"},
      {{2023, 1, 1, 0, 60, 0}, TAI, "BadMinute"},
      {{2023, 1, 1, 0, kNaN, 0}, TAI, "BadMinute"},
      {{2023, 1, 1, 0, 0, -0.001}, TAI, "BadSecond"},
      {{2016, 12, 31, 23, 59, 60}, TAI, "BadSecond"},
      {{2016, 12, 31, 23, 59, 60}, TT, "BadSecond"},
      {{2016, 12, 31, 23, 59, 60}, TDB, "BadSecond"},
      {{2016, 12, 31, 23, 59, 60}, TimeStandard(7), "BadSecond"},
      {{2016, 12, 31, 23, 59, 60}, UTC, ""},
      {{2016, 12, 31, 23, 59, 60.999}, UTC, ""},
      {{2016, 12, 31, 23, 59, 61}, UTC, "BadSecondUTC"},
      {{2016, 12, 31, 23, 59, -1}, UTC, "BadSecondUTC"},
      {{2015, 6, 30, 23, 59, 60.5}, UTC, ""},
      {{2016, 12, 30, 23, 59, 60}, UTC, "BadLeapSecond"},
      {{2016, 12, 31, 22, 59, 60}, UTC, "BadLeapSecond"},
      {{2016, 12, 31, 23, 58, 60}, UTC, "BadLeapSecond"},
      {{2016, 6, 31, 23, 59, 60}, UTC, "BadDayOfMonth"},
      // Whether a leap second really was inserted is not the calendar's
      // concern: 2017 had none, the position alone is judged.
      {{2017, 12, 31, 23, 59, 60}, UTC, ""},
      // A NaN second passes every bound on purpose.
      {{2023, 1, 1, 0, 0, kNaN}, TAI, ""},
      {{2023, 1, 1, 0, 0, kNaN}, UTC, ""},
  };
  for (const ValidationCase& c : cases) {
    SCOPED_TRACE(testing::Message()
                 << c.cal[0] << '-' << c.cal[1] << '-' << c.cal[2] << ' '
                 << c.cal[3] << ':' << c.cal[4] << ':' << c.cal[5]
                 << " ts=" << int(c.ts));
    EXPECT_EQ(dateTimeId(c.cal, c.ts), c.id);
  }
}

TEST(DateValidation, DayIsComparedInSixteenBits) {
  // 65537 reduces to 1 and +infinity to 0 (the 32-bit minimum's low bits):
  // both pass the date check; the date constructor refuses the latter.
  EXPECT_EQ(idOf(DateTimeUtilities::validateDate({2023, 1, 65537, 0, 0, 0})),
            "");
  EXPECT_EQ(idOf(DateTimeUtilities::validateDate({2023, 1, 65567, 0, 0, 0})),
            "");
  EXPECT_EQ(idOf(DateTimeUtilities::validateDate({2023, 2, 65565, 0, 0, 0})),
            "BadDayOfMonth");  // 29 February of a common year
  EXPECT_EQ(idOf(DateTimeUtilities::validateDate({2023, 1, kInf, 0, 0, 0})),
            "");
  DateTimeStruct infiniteDay;
  infiniteDay.year = 2023;
  infiniteDay.month = 1;
  infiniteDay.day = kInf;
  try {
    DateTimeUtilities::calendarToEpochTime(infiniteDay, Epoch::Epoch1970, TAI);
    FAIL() << "accepted an infinite day";
  } catch (const std::out_of_range& e) {
    EXPECT_STREQ(e.what(), "Day of month value is out of range 1..31");
  }
  DateTimeStruct bigDay = infiniteDay;
  bigDay.day = 65537;  // counts as the first of the month
  EXPECT_EQ(
      DateTimeUtilities::calendarToEpochTime(bigDay, Epoch::Epoch1970, TAI)
          .wholePart,
      1672531200 - 10);
}

TEST(ModelValidation, StartsAtTheBeginningOfUtcWithLeapSeconds) {
  const double tolerance =
      std::bit_cast<double>(std::uint64_t{0x4023FFFE2A000000});
  const double belowTolerance = std::nextafter(tolerance, 0.0);
  struct Case {
    Cal cal;
    TimeStandard ts;
    const char* id;
  };
  const Case cases[] = {
      {{1971, 12, 31, 23, 59, 59}, TAI, "BadYearModelConfig"},
      {{1972, 1, 1, 0, 0, 9.99}, TAI, "BadTAIModelConfig"},
      {{1972, 1, 1, 0, 0, belowTolerance}, TAI, "BadTAIModelConfig"},
      {{1972, 1, 1, 0, 0, tolerance}, TAI, ""},
      {{1972, 1, 1, 0, 0, 9.999990}, TAI, ""},
      {{1972, 1, 1, 0, 1, 0}, TAI, ""},
      {{1972, 1, 1, 0, 0, 0}, UTC, ""},
      {{1972, 1, 1, 0, 0, 0}, TT, ""},
      {{1972, 1, 1, 0, 0, 0}, TDB, ""},
      {{1971, 1, 1, 0, 0, 0}, UTC, "BadYearModelConfig"},
      {{1972, 2, 30, 0, 0, 0}, UTC, "BadDayOfMonth"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.cal[5] << " ts=" << int(c.ts));
    EXPECT_EQ(idOf(DateTimeUtilities::validateDateTimeRestrictive(c.cal, c.ts)),
              c.id);
    if (c.ts == TAI) {
      EXPECT_EQ(idOf(DateTimeUtilities::validateModelDateTime(c.cal)), c.id);
    }
  }
  EXPECT_EQ(DateTimeUtilities::earliestModelValidCalDT(),
            DateTimeStruct({1972, 1, 1, 0, 0, 10}));
  EXPECT_EQ(tolerance, 9.999985992908478);
}

// --- Epoch offsets
// ------------------------------------------------------------

TEST(EpochOffsets, AreExactNegationsAndHoldTheTenSecondShare) {
  for (int a = 0; a < 6; ++a) {
    for (int b = 0; b < 6; ++b) {
      if (a == b) continue;
      const double ab =
          DateTimeUtilities::getEpochOffset(Epoch(a), Epoch(b), TAI);
      const double ba =
          DateTimeUtilities::getEpochOffset(Epoch(b), Epoch(a), TAI);
      EXPECT_EQ(std::bit_cast<std::uint64_t>(ab),
                std::bit_cast<std::uint64_t>(-ba))
          << a << ',' << b;
    }
  }
  EXPECT_EQ(std::bit_cast<std::uint64_t>(DateTimeUtilities::getEpochOffset(
                Epoch::Epoch1970, Epoch::EpochJD, TAI)),
            0x41429EC5C003CAE7u);
  EXPECT_EQ(DateTimeUtilities::getEpochOffset(Epoch::Epoch1970,
                                              Epoch::Epoch1900, UTC),
            2208988800.0);
  EXPECT_EQ(
      DateTimeUtilities::getEpochOffset(Epoch::Epoch1958, Epoch::EpochJD, TAI),
      2436204.5);
  EXPECT_EQ(DateTimeUtilities::getEpochOffset(Epoch::Epoch1970,
                                              Epoch::Epoch1958, TAI),
            378691210.0);
}

TEST(EpochOffsets, CorrectOnlyBetweenSecondAndDayEpochs) {
  const double v = 2440587.5001157406;  // (1970, JD) as stored
  struct Case {
    Epoch from, to;
    TimeStandard ts;
    double expected;
  };
  const Case cases[] = {
      {Epoch::Epoch1970, Epoch::EpochJD, TAI, v},
      {Epoch::Epoch1970, Epoch::EpochJD, UTC, v - 10.0 / 86400.0},
      {Epoch::Epoch1970, Epoch::EpochJD, TT, v + 32.184 / 86400.0},
      {Epoch::Epoch1970, Epoch::EpochJD, TDB, v + 32.184 / 86400.0},
      {Epoch::EpochJD, Epoch::Epoch1970, UTC, -v + 10.0 / 86400.0},
      {Epoch::EpochJD, Epoch::Epoch1970, TT, -v - 32.184 / 86400.0},
      {Epoch::EpochJD, Epoch::EpochMJD, UTC, -2400000.5},
      {Epoch::Epoch1900, Epoch::Epoch1958, TT, -1830297590.0},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(DateTimeUtilities::getEpochOffset(c.from, c.to, c.ts), c.expected)
        << int(c.from) << "->" << int(c.to) << " ts=" << int(c.ts);
  }
  // The correction makes 1970-01-01 00:00:00 UTC land on its Julian date.
  EXPECT_NEAR(
      DateTimeUtilities::getEpochOffset(Epoch::Epoch1970, Epoch::EpochJD, UTC),
      2440587.5, 1e-9);
}

TEST(EpochOffsets, AbsentPairsFailLikeAMapLookup) {
  const std::pair<int, int> absent[] = {
      {0, 0}, {3, 3}, {5, 5}, {6, 0}, {0, -1}};
  for (auto [a, b] : absent) {
    try {
      DateTimeUtilities::getEpochOffset(Epoch(a), Epoch(b), UTC);
      FAIL() << a << ',' << b;
    } catch (const std::out_of_range& e) {
      EXPECT_STREQ(e.what(), "map::at");
    }
  }
}

TEST(EpochUnits, DayEpochsAreExactlyThreeToFive) {
  for (int e = -2; e < 10; ++e) {
    EXPECT_EQ(DateTimeUtilities::isJulianCompatibleEpoch(Epoch(e)),
              e >= 3 && e <= 5)
        << e;
  }
  EXPECT_EQ(DateTimeUtilities::secondsToTimeShift(43200.0, Epoch::EpochMJD),
            0.5);
  EXPECT_EQ(DateTimeUtilities::secondsToTimeShift(43200.0, Epoch::Epoch1958),
            43200.0);
}

// --- Calendar <-> epoch time
// ------------------------------------------------------

TEST(EpochTime, AnchorsOfTheAxis) {
  struct Case {
    Cal cal;
    Epoch epoch;
    TimeStandard ts;
    std::int64_t whole;
    double fraction;
  };
  const Case cases[] = {
      {{1970, 1, 1, 0, 0, 0}, Epoch::Epoch1970, UTC, 0, 0.0},
      {{1970, 1, 1, 0, 0, 0}, Epoch::Epoch1970, TAI, -10, 0.0},
      {{1958, 1, 1, 0, 0, 0}, Epoch::Epoch1958, TAI, 0, 0.0},
      {{1958, 1, 1, 0, 0, 0}, Epoch::Epoch1958, UTC, 10, 0.0},
      {{1958, 1, 1, 0, 0, 0}, Epoch::Epoch1958, TT, -33, 1.0 - 0.184},
      {{1958, 1, 1, 0, 0, 0.5}, Epoch::Epoch1958, TT, -32, 0.5 - 0.184},
      {{1958, 1, 1, 0, 0, 0}, Epoch::Epoch1958, TDB, 0, 0.0},
      {{1900, 1, 1, 0, 0, 0}, Epoch::Epoch1900, UTC, 0, 0.0},
      {{2000, 1, 1, 12, 0, 0}, Epoch::EpochJ2000, TAI, 1325419200, 0.0},
      {{2016, 12, 31, 23, 59, 60.5}, Epoch::Epoch1970, UTC, 1483228800, 0.5},
      {{2017, 1, 1, 0, 0, 0.5}, Epoch::Epoch1970, UTC, 1483228800, 0.5},
      {{1969, 12, 31, 23, 59, 59.75}, Epoch::Epoch1970, UTC, -1, 0.75},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.cal[0] << " epoch=" << int(c.epoch)
                                    << " ts=" << int(c.ts));
    const EpochTimeStruct t = DateTimeUtilities::calendarToEpochTime(
        DateTimeStruct(c.cal), c.epoch, c.ts);
    EXPECT_EQ(t.wholePart, c.whole);
    EXPECT_EQ(t.fractionalPart, c.fraction);
  }
}

TEST(EpochTime, RejectsWhatValidationRejects) {
  struct Case {
    Cal cal;
    TimeStandard ts;
    const char* id;
  };
  const Case cases[] = {
      {{1399, 12, 31, 0, 0, 0}, UTC, "BadYear"},
      {{10000, 1, 1, 0, 0, 0}, UTC, "BadYear"},
      {{2016, 12, 30, 23, 59, 60}, UTC, "BadLeapSecond"},
      {{2016, 12, 31, 23, 59, 60}, TAI, "BadSecond"},
  };
  for (const Case& c : cases) {
    DateTimeStruct r;
    r.year = c.cal[0];
    r.month = c.cal[1];
    r.day = c.cal[2];
    r.hour = c.cal[3];
    r.minute = c.cal[4];
    r.second = c.cal[5];
    EXPECT_EQ(thrownId([&] {
                DateTimeUtilities::calendarToEpochTime(r, Epoch::Epoch1970,
                                                       c.ts);
              }),
              c.id);
    EXPECT_EQ(thrownId([&] {
                DateTimeUtilities::calendarToJulianDate(r, Epoch::EpochJD,
                                                        c.ts);
              }),
              c.id);
  }
}

TEST(EpochTime, BackToTheCalendarUndoesTheShifts) {
  const DateTimeStruct tt =
      DateTimeUtilities::epochTimeToCalendar({0, 0.9}, Epoch::Epoch1958, TT);
  EXPECT_EQ(tt.year, 1958);
  EXPECT_EQ(tt.month, 1);
  EXPECT_EQ(tt.day, 1);
  EXPECT_EQ(tt.hour, 0);
  EXPECT_EQ(tt.minute, 0);
  EXPECT_DOUBLE_EQ(tt.second, 33.084);

  // The count of 23:59:60 comes back as the next midnight.
  const DateTimeStruct leap = DateTimeUtilities::epochTimeToCalendar(
      {1483228800, 0.5}, Epoch::Epoch1970, UTC);
  EXPECT_EQ(leap, DateTimeStruct({2017, 1, 1, 0, 0, 0.5}));

  struct Out {
    std::int64_t whole;
    Epoch epoch;
  };
  const Out outside[] = {
      {-20'000'000'000, Epoch::Epoch1970},  // before 1400
      {300'000'000'000, Epoch::Epoch1958},  // after 9999
      {std::numeric_limits<std::int64_t>::max(), Epoch::Epoch1900},
      {std::numeric_limits<std::int64_t>::min(), Epoch::EpochJD},
  };
  for (const Out& o : outside) {
    EXPECT_EQ(
        thrownId([&] {
          DateTimeUtilities::epochTimeToCalendar({o.whole, 0.0}, o.epoch, UTC);
        }),
        "BadYear")
        << o.whole;
  }
}

// --- Julian dates
// ---------------------------------------------------------------

TEST(JulianDate, PublishedAnchors) {
  struct Case {
    Cal cal;
    Epoch epoch;
    double jd;
  };
  const Case cases[] = {
      {{2000, 1, 1, 12, 0, 0}, Epoch::EpochJD, 2451545.0},
      {{2000, 1, 1, 12, 0, 0}, Epoch::EpochMJD, 51544.5},
      {{2000, 1, 1, 12, 0, 0}, Epoch::EpochJ2000, 0.0},
      {{2000, 1, 1, 12, 0, 0}, Epoch::Epoch1970, 2451545.0},  // read as JD
      {{1858, 11, 17, 0, 0, 0}, Epoch::EpochMJD, 0.0},
      {{2000, 3, 1, 0, 0, 0}, Epoch::EpochJD, 2451604.5},
      {{1400, 1, 1, 0, 0, 0}, Epoch::EpochJD, 2232399.5},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.cal[0] << " epoch=" << int(c.epoch));
    const DateTimeStruct rec(c.cal);
    EXPECT_EQ(DateTimeUtilities::calendarToJulianDate(rec, c.epoch, UTC), c.jd);
    EXPECT_EQ(DateTimeUtilities::julianDateToCalendar(c.jd, c.epoch, UTC), rec);
  }
  EXPECT_EQ(DateTimeUtilities::julianDateToCalendar(0.75, Epoch::EpochMJD, TAI),
            DateTimeStruct({1858, 11, 17, 18, 0, 0}));
}

TEST(JulianDate, KeepsTheSubSecondOfTheDayFraction) {
  const DateTimeStruct r = DateTimeUtilities::julianDateToCalendar(
      2451545.0 + 1.5 / 86400.0, Epoch::EpochJD, UTC);
  EXPECT_EQ(r.hour, 12);
  EXPECT_EQ(r.minute, 0);
  EXPECT_EQ(r.second, 1.5000119805335999);
}

TEST(JulianDate, FailsThroughItsFinalValidation) {
  // Late on 28 February 1700 the century quirk yields 29 February 1700.
  EXPECT_EQ(thrownId([] {
              DateTimeUtilities::julianDateToCalendar(2342031.25,
                                                      Epoch::EpochJD, UTC);
            }),
            "BadDayOfMonth");
  const double outside[] = {2232399.0, 5373484.5, kNaN, kInf, -kInf};
  for (double jd : outside) {
    EXPECT_EQ(thrownId([&] {
                DateTimeUtilities::julianDateToCalendar(jd, Epoch::EpochJD,
                                                        UTC);
              }),
              "BadYear")
        << jd;
  }
}

// --- Day of year and week
// -----------------------------------------------------------

TEST(DayOfWeekAndYear, KnownDates) {
  struct Case {
    Cal cal;
    int dayOfWeek, dayOfYear;
  };
  const Case cases[] = {
      {{2000, 1, 1, 0, 0, 0}, 7, 1},     {{2001, 1, 1, 0, 0, 0}, 2, 1},
      {{2000, 12, 31, 0, 0, 0}, 1, 366}, {{2100, 3, 1, 0, 0, 0}, 2, 60},
      {{1970, 1, 1, 0, 0, 0}, 5, 1},     {{1600, 2, 29, 0, 0, 0}, 3, 60},
      {{-1, 1, 1, 0, 0, 0}, 6, 1},       {{-400, 3, 1, 0, 0, 0}, 4, 61},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.cal[0]);
    DateTimeStruct r;
    r.year = c.cal[0];
    r.month = c.cal[1];
    r.day = c.cal[2];
    EXPECT_EQ(DateTimeUtilities::calendarTimeToDayOfWeek(r), c.dayOfWeek);
    EXPECT_EQ(DateTimeUtilities::calendarTimeToDayOfYear(r), c.dayOfYear);
  }
  DateTimeStruct bad;
  bad.year = 2023;
  bad.month = 2;
  bad.day = 29;
  EXPECT_EQ(thrownId([&] { DateTimeUtilities::calendarTimeToDayOfWeek(bad); }),
            "BadDayOfMonth");
  EXPECT_EQ(thrownId([&] { DateTimeUtilities::calendarTimeToDayOfYear(bad); }),
            "BadDayOfMonth");
}

TEST(DayOfWeekAndYear, SecondsSinceSundayFollowTheStandard) {
  struct Case {
    Epoch e;
    TimeStandard ts;
    double expected;
  };
  const Case cases[] = {
      {Epoch::Epoch1970, UTC, 345600.0},
      {Epoch::Epoch1970, TAI, 345610.0},
      {Epoch::Epoch1970, TT, 345642.184},
      {Epoch::Epoch1970, TDB, 345610.0},
      {Epoch::EpochJD, UTC, 129600.0},
      {Epoch::EpochJD, TT, 129600.0},
      {Epoch::Epoch1958, UTC, 259190.0},
      {Epoch::EpochJ2000, TAI, 561600.0},
      {Epoch(9), TAI, 0.0},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(DateTimeUtilities::secondsSinceSundayMidnight(c.e, c.ts),
              c.expected)
        << int(c.e) << ' ' << int(c.ts);
  }
}

}  // namespace

// The calendar code floors through its own helper; it must agree with
// std::floor bit for bit, signed zeros and the edges of exactness included.
#include "date_time/FloatingPoint.hpp"

namespace {

TEST(FastFloor, MatchesStdFloor) {
  const double special[] = {0.0,
                            -0.0,
                            0.5,
                            -0.5,
                            1.0,
                            -1.0,
                            0x1p52 - 0.5,
                            -0x1p52 + 0.5,
                            0x1p52,
                            -0x1p52,
                            0x1p63,
                            -0x1p63,
                            1e300,
                            -1e300,
                            std::numeric_limits<double>::denorm_min(),
                            -std::numeric_limits<double>::denorm_min(),
                            std::nextafter(1.0, 0.0),
                            std::nextafter(-1.0, 0.0),
                            kInf,
                            -kInf};
  auto same = [](double x) {
    return std::bit_cast<std::uint64_t>(KvDateTime::detail::fastFloor(x)) ==
           std::bit_cast<std::uint64_t>(std::floor(x));
  };
  for (double x : special) EXPECT_TRUE(same(x)) << x;
  EXPECT_TRUE(std::isnan(KvDateTime::detail::fastFloor(kNaN)));
  std::uint64_t state = 88172645463325252u;  // xorshift: any bit pattern
  for (int i = 0; i < 200000; ++i) {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    const double x = std::bit_cast<double>(state);
    if (!std::isnan(x)) {
      ASSERT_TRUE(same(x)) << x;
    }
    const double near =
        static_cast<double>(static_cast<std::int64_t>(state >> 20)) / 1024.0;
    ASSERT_TRUE(same(near)) << near;
    ASSERT_TRUE(same(-near)) << -near;
  }
}

TEST(FastFloor, TruncationSaturatesToTheMinimumLikeTheProcessor) {
  using KvDateTime::detail::truncToInt;
  EXPECT_EQ(truncToInt<std::int32_t>(kInf), INT32_MIN);
  EXPECT_EQ(truncToInt<std::int32_t>(kNaN), INT32_MIN);
  EXPECT_EQ(truncToInt<std::int32_t>(2147483648.0), INT32_MIN);
  EXPECT_EQ(truncToInt<std::int32_t>(2147483647.9), INT32_MAX);
  EXPECT_EQ(truncToInt<std::int32_t>(-2147483648.9), INT32_MIN);
  EXPECT_EQ(truncToInt<std::int32_t>(-7.9), -7);
  EXPECT_EQ(truncToInt<std::int64_t>(-kInf), INT64_MIN);
  EXPECT_EQ(truncToInt<std::int64_t>(0x1p63), INT64_MIN);
  EXPECT_EQ(truncToInt<std::int64_t>(-0x1p62), -(std::int64_t{1} << 62));
}

}  // namespace
