// Validation, the documented quirks and the corners the oracle sweeps in
// CalendarOracleTest.cpp cannot reach, and what validation allocates.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <tuple>
#include <type_traits>

#include "TestHelpers.hpp"
#include "date_time/DateTimeUtilities.hpp"
#include "date_time/FloatingPoint.hpp"
#include "tests/CountingAllocator.hpp"

namespace {

using namespace KvDateTime;
using kvtest::idOf;
using kvtest::thrownId;
using DTU = DateTimeUtilities;
using Cal = DTU::CalendarValues;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr TimeStandard TAI = TimeStandard::TAI, UTC = TimeStandard::UTC,
                       TT = TimeStandard::TT, TDB = TimeStandard::TDB;

struct Case {
  Cal cal;
  TimeStandard ts;
  const char* id;
  const char* restrictiveId = nullptr;  // when it differs from id
};

// 10 s less 1.4007091522216797e-05 s: a TAI reading from here on is
// model-valid.
constexpr double kTolerance = 9.999985992908478;

// Every valid day of 1400..9999 passes through the converters in the oracle
// walk; these are the refusals and the valid readings it never makes.
// clang-format off
const Case kRules[] = {
    {{1900, 2, 29, 0, 0, 0}, TAI, "BadDayOfMonth"}, {{2023, 4, 31, 0, 0, 0}, TAI, "BadDayOfMonth"},
    {{2023, 0, 1, 0, 0, 0}, TAI, "BadMonth"},       {{2023, 1.5, 1, 0, 0, 0}, TAI, "BadMonth"},
    {{2023, 1, 0, 0, 0, 0}, TAI, "BadDayOfMonth"},  {{2023, 1, 1.5, 0, 0, 0}, TAI, "BadDayOfMonth"},
    {{2000.5, 1, 1, 0, 0, 0}, TAI, "BadYear"},      {{kNaN, 1, 1, 0, 0, 0}, TAI, "BadYear"},
    {{1399, 1, 1, 0, 0, 0}, TAI, "BadYear"},        {{10000, 1, 1, 0, 0, 0}, TAI, "BadYear"},
    {{kInf, 1, 1, 0, 0, 0}, TAI, "BadYear"},        {{2023, 13, 1, 24, 0, 0}, TAI, "BadMonth"},
    {{2023, 1, 1, 24, 0, 0}, TAI, "BadHour"},       {{2023, 1, 1, 0.5, 0, 0}, TAI, "BadHour"},
    {{2023, kNaN, 1, 0, 0, 0}, TAI, "BadMonth"},    {{2023, 1, 1, 0, -kInf, 0}, TAI, "BadMinute"},
    {{2023, 1, 1, 0, 60, 0}, TAI, "BadMinute"},     {{2023, 1, 1, 0, 0, -0.001}, TAI, "BadSecond"},
    {{2016, 12, 31, 23, 59, 60}, TT, "BadSecond"},  {{2016, 12, 31, 23, 59, 60}, TimeStandard(7), "BadSecond"},
    {{2016, 12, 31, 23, 59, 60.999}, UTC, ""},      {{2015, 6, 30, 23, 59, 60.5}, UTC, ""},
    {{2016, 12, 31, 23, 59, 61}, UTC, "BadSecondUTC"},
    {{2016, 12, 30, 23, 59, 60}, UTC, "BadLeapSecond"},
    {{2016, 12, 31, 22, 59, 60}, UTC, "BadLeapSecond"},
    {{2017, 12, 31, 23, 59, 60}, UTC, ""},  // only the position is judged
    {{2023, 1, 1, 0, 0, kNaN}, TAI, ""},    // a NaN second passes, on purpose
    // The model starts with UTC's leap seconds: only TAI's first ten seconds of 1972 are refused.
    {{1971, 12, 31, 23, 59, 59}, TAI, "", "BadYearModelConfig"},
    {{1972, 1, 1, 0, 0, std::nextafter(kTolerance, 0.0)}, TAI, "", "BadTAIModelConfig"},
    {{1972, 1, 1, 0, 0, kTolerance}, TAI, ""}, {{1972, 1, 1, 0, 0, 0}, UTC, ""},
    // The day is compared in 16 bits: 65537 is day 1, 65565 day 29.
    {{2023, 1, 65537, 0, 0, 0}, TAI, ""}, {{2023, 2, 65565, 0, 0, 0}, TAI, "BadDayOfMonth"},
};
// clang-format on

static_assert(std::is_trivially_copyable_v<DateTimeStruct>);
static_assert(std::is_trivially_copyable_v<EpochTimeStruct>);

// (The record's own constructor, which skips the empty record and judges
// the date, then the time under UTC rules, is held to the validators by
// fuzz/calendar_fuzz.cpp for any six doubles.)
TEST(DateTimeValidation,
     AllValidatorsReportTheFirstBrokenRuleAndConvertersRaiseIt) {
  for (const Case& c : kRules) {
    SCOPED_TRACE(testing::PrintToString(c.cal) + std::to_string(int(c.ts)));
    const char* restrictive = c.restrictiveId ? c.restrictiveId : c.id;
    const long before = kvtest::allocations.load();
    const kvsvDiagnostic d = DTU::validateDateTime(c.cal, c.ts);
    // Only a refusal allocates: its diagnostic. The valid answer is a hot path.
    EXPECT_EQ(kvtest::allocations.load() == before, d == nullptr);
    EXPECT_EQ(idOf(d), c.id);
    EXPECT_EQ(idOf(DTU::validateDateTimeRestrictive(c.cal, c.ts)), restrictive);
    const long mark = kvtest::allocations.load();
    EXPECT_EQ(thrownId([&] {
                DTU::calendarToEpochTime(DateTimeStruct::unchecked(c.cal),
                                         Epoch::Epoch1970, c.ts);
              }),
              c.id);
    // The converter's slow path (23:59:60, a NaN second, a 16-bit day) too.
    EXPECT_TRUE(*c.id || kvtest::allocations.load() == mark);
  }
}

TEST(DateValidation, DayIsComparedInSixteenBits) {
  // 65537 reduces to 1 (65565 to 29 in kRules).
  EXPECT_EQ(DTU::calendarToEpochTime(
                DateTimeStruct::unchecked(2023, 1, 65537, 0, 0, 0),
                Epoch::Epoch1970, TAI),
            (EpochTimeStruct{1672531200 - 10, 0.0}));
  // A day reduced to 0 (+infinity is the 32-bit minimum) passes, counts as
  // day 0 of the year, and the conversion lets the calendar's exception out.
  for (double day : {65536.0, kInf}) {
    const DateTimeStruct r = DateTimeStruct::unchecked(2023, 1, day, 0, 0, 0);
    EXPECT_EQ(idOf(DTU::validateDate(r.toArray())), "") << day;
    EXPECT_EQ(DTU::calendarTimeToDayOfYear(r), 0) << day;
    EXPECT_EQ(
        thrownId([&] { DTU::calendarToEpochTime(r, Epoch::Epoch1970, TAI); }),
        "Day of month value is out of range 1..31");
  }
  // Day 0 of March in a year that starts a 400-year cycle is 29 February:
  // a Tuesday, day 60.
  const DateTimeStruct march0 =
      DateTimeStruct::unchecked(2000, 3, 65536, 0, 0, 0);
  EXPECT_EQ(DTU::calendarTimeToDayOfWeek(march0), 3);
  EXPECT_EQ(DTU::calendarTimeToDayOfYear(march0), 60);
}

// (23:59:60.x counts like the next midnight's 00:00:00.x:
// fuzz/calendar_fuzz.cpp holds every reading, leap seconds included, to
// std::chrono's day count.)
TEST(EpochTime, QuirksTheSweepsCannotReach) {
  // A NaN second is let through; its whole part counts as 0.
  const EpochTimeStruct nan = DTU::calendarToEpochTime(
      DateTimeStruct::unchecked(1970, 1, 1, 0, 1, kNaN), Epoch::Epoch1970, UTC);
  EXPECT_TRUE(nan.wholePart == 60 && std::isnan(nan.fractionalPart));
  // (Counts whose day arithmetic would overflow, INT64_MAX and INT64_MIN
  // among them, are refused as BadYear: fuzz/calendar_fuzz.cpp reads any
  // 64-bit count back under the sanitizers.)
}

TEST(JulianDate, FailsThroughItsFinalValidation) {
  // The sub-second part is that of the double JD, to the last bit.
  const double jd = 2451545.0 + 1.5 / 86400.0;
  EXPECT_EQ(DTU::julianDateToCalendar(jd, Epoch::EpochJD, UTC).second,
            (jd - 2451545.0) * 86400.0);
  // Late on 28 February 1700 the century quirk yields 29 February 1700.
  // clang-format off
  const std::pair<double, const char*> rows[] = {{2342031.25, "BadDayOfMonth"},
      {2232399.0, "BadYear"}, {5373484.5, "BadYear"}, {kNaN, "BadYear"}, {kInf, "BadYear"},
      {std::numeric_limits<double>::max(), "BadMonth"}};  // its month is checked first
  // clang-format on
  for (auto [jd, id] : rows)
    EXPECT_EQ(
        thrownId([&] { DTU::julianDateToCalendar(jd, Epoch::EpochJD, UTC); }),
        id)
        << jd;
}

// Days of week and year of any real date, years below 1 included, are held
// to std::chrono by fuzz/calendar_fuzz.cpp; here each epoch's distance from
// the Sunday before it, in each standard. Stray epochs read 0; INT32_MIN
// overflowed isJulianCompatibleEpoch's old signed subtraction, which the
// sanitizer build catches.
TEST(DayOfWeek, SecondsSinceSundayMidnight) {
  // clang-format off
  const std::tuple<Epoch, TimeStandard, double> rows[] = {
      {Epoch::Epoch1970, UTC, 345600.0}, {Epoch::Epoch1970, TAI, 345610.0},
      {Epoch::Epoch1970, TT, 345642.184}, {Epoch::Epoch1970, TDB, 345610.0},
      {Epoch::EpochJD, UTC, 129600.0},   {Epoch::Epoch1958, UTC, 259190.0},
      {Epoch(6), TAI, 0.0},              {Epoch(INT32_MIN), TAI, 0.0}};
  // clang-format on
  for (auto [e, ts, expected] : rows) {
    const long before = kvtest::allocations.load();
    EXPECT_EQ(DTU::secondsSinceSundayMidnight(e, ts), expected)
        << int(e) << ' ' << int(ts);
    EXPECT_EQ(kvtest::allocations.load() - before, 0);
  }
}

// The calendar code floors and truncates through its own helpers; they must
// agree with std::floor bit for bit and saturate like the processor.
TEST(NumericHelpers, FloorMatchesStdFloorAndTruncationSaturates) {
  using detail::fastFloor, detail::truncToInt;
  auto same = [](double x) {
    return std::bit_cast<std::uint64_t>(fastFloor(x)) ==
           std::bit_cast<std::uint64_t>(std::floor(x));
  };
  for (double x : {-0.0, 0x1p52 - 0.5, -0x1p52 + 0.5, std::nextafter(-1.0, 0.0),
                   -std::numeric_limits<double>::denorm_min(), -kInf})
    EXPECT_TRUE(same(x)) << x;
  EXPECT_TRUE(std::isnan(fastFloor(kNaN)));
  std::uint64_t state = 88172645463325252u;  // xorshift: any bit pattern
  for (int i = 0; i < 200000; ++i) {
    state ^= state << 13, state ^= state >> 7, state ^= state << 17;
    const double any = std::bit_cast<double>(state);
    const double near = double(std::int64_t(state >> 20)) / 1024.0;
    ASSERT_TRUE(std::isnan(any) || same(any)) << any;
    ASSERT_TRUE(same(near) && same(-near)) << near;
    ASSERT_EQ(detail::isIntegral(near), near == std::floor(near)) << near;
  }
  // clang-format off
  for (auto [x, expected] : {std::pair{kInf, INT32_MIN}, {kNaN, INT32_MIN}, {0x1p31, INT32_MIN}, {2147483647.9, INT32_MAX}, {-7.9, -7}})
    EXPECT_EQ(truncToInt<std::int32_t>(x), expected) << x;
  // clang-format on
  EXPECT_EQ(truncToInt<std::int64_t>(0x1p63), INT64_MIN);
}

}  // namespace
