// Sweeps against independent calendars: Howard Hinnant's date for day
// counts and weekdays, Boost's for the calendar's year range, ERFA's
// eraCal2jd for Julian dates, and round trips.
#include <date/date.h>
#include <erfa.h>
#include <gtest/gtest.h>

#include <array>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <cmath>
#include <cstdint>
#include <random>
#include <tuple>

#include "TestHelpers.hpp"
#include "date_time/DateTimeUtilities.hpp"
#define KVTEST_COUNT_ONLY  // DateTimeUtilitiesTest.cpp counts
#include "tests/CountingAllocator.hpp"

namespace {

using namespace KvDateTime;
using namespace date;
using DTU = DateTimeUtilities;
constexpr TimeStandard TAI = TimeStandard::TAI, UTC = TimeStandard::UTC,
                       TT = TimeStandard::TT;

// Seconds since 1970-01-01 00:00:00 of the reading's own clock.
double civilSeconds(const DateTimeStruct& c) {
  const sys_days d = year{int(c.year)} / int(c.month) / int(c.day);
  return double(d.time_since_epoch().count()) * 86400 + c.hour * 3600 +
         c.minute * 60 + c.second;
}

DateTimeStruct reading(const year_month_day& ymd, double h, double mi,
                       double s) {
  return DateTimeStruct({double(int(ymd.year())), double(unsigned(ymd.month())),
                         double(unsigned(ymd.day())), h, mi, s});
}

// Random readings over the calendar's whole range, day by day, half of them
// on whole seconds, in every epoch and standard: seconds against Hinnant's
// day count, Julian dates against ERFA, and both back to the calendar, none
// of it allocating (a per-step path). And random counts, far outside the
// calendar's years as well as inside, back to the calendar against Boost's,
// which refuses the same years (bad_year).
TEST(CalendarOracle, RandomReadingsAndCountsAgreeWithThreeCalendars) {
  const sys_days first = year{1400} / 1 / 1, last = year{9999} / 12 / 31;
  std::mt19937_64 rng(20261122);
  std::uniform_int_distribution<int> day(0, (last - first).count()),
      hour(0, 23), minute(0, 59);
  std::uniform_int_distribution<std::int64_t> count(-300'000'000'000,
                                                    300'000'000'000);
  namespace bpt = boost::posix_time;
  const bpt::ptime epoch1958(boost::gregorian::date(1958, 1, 1));
  for (int i = 0; i < 100'000 && !HasFailure(); ++i) {
    const double second =
        minute(rng) +
        (rng() & 1 ? std::uniform_real_distribution<>(0, 1)(rng) : 0);
    const DateTimeStruct in = reading(year_month_day{first + days{day(rng)}},
                                      hour(rng), minute(rng), second);
    const Epoch epoch = Epoch(i % 6);
    const TimeStandard ts = TimeStandard((i / 6) % 4);
    SCOPED_TRACE(testing::PrintToString(in.toArray()) + " epoch " +
                 std::to_string(i % 6) + " ts " + std::to_string(int(ts)));
    // The count runs on the TAI axis: 1970 and 1900 count from 10 s after
    // their midnight, the day epochs from 1958; UTC readings are 10 s
    // behind, TT 32.184 s ahead.
    const sys_days epochDay =
        year{std::array{1970, 1900, 1958, 1958, 1958, 1958}[i % 6]} / 1 / 1;
    const double whole = std::floor(second);
    std::int64_t expected =
        std::int64_t(civilSeconds(in) - second + whole) -
        std::int64_t{epochDay.time_since_epoch().count()} * 86400 -
        (i % 6 < 2 ? 10 : 0) + (ts == UTC ? 10 : 0);
    double frac = second - whole;
    if (ts == TT) {
      expected -= frac < 0.184 ? 33 : 32;
      frac = frac < 0.184 ? frac - 0.184 + 1.0 : frac - 0.184;
    }
    const long before = kvtest::allocations.load();
    const EpochTimeStruct t = DTU::calendarToEpochTime(in, epoch, ts);
    DateTimeStruct out = DTU::epochTimeToCalendar(t, epoch, ts);
    const double jd = DTU::calendarToJulianDate(in, epoch, ts);
    ASSERT_EQ(kvtest::allocations.load() - before, 0);
    ASSERT_EQ(t, (EpochTimeStruct{expected, frac}));
    // TT moves the fraction by 0.184 and back, which may round; the other
    // standards must come back exactly.
    ASSERT_NEAR(out.second, second, ts == TT ? 1e-12 : 0.0);
    out.second = second;
    ASSERT_EQ(out, in);

    // Seconds epochs give the JD itself. Whole days and the fraction are
    // summed in another order than ERFA's: a few ulps.
    const double offset = std::array{
        0.0, 0.0, 0.0, 0.0, 2400000.5, 2451545.0}[std::size_t(i % 6)];
    double djm0 = 0, djm = 0;
    ASSERT_EQ(eraCal2jd(int(in.year), int(in.month), int(in.day), &djm0, &djm),
              0);
    ASSERT_NEAR(jd + offset,
                djm0 + djm + ((second / 60 + in.minute) / 60 + in.hour) / 24,
                2e-9);
    // Late on 28 February of a common century year the inverse formula
    // lands on 29 February, which its final validation refuses (a kept
    // quirk, pinned in JulianDate.FailsThroughItsFinalValidation).
    const int y = int(in.year);
    if (!(in.month == 2 && in.day == 28 && y % 100 == 0 && y % 400 != 0 &&
          in.hour >= 12)) {
      // Back within one unit in the last place of the Julian date: 40 us
      // below JD 2^22 (about the year 6700), 80 us above.
      const long mark = kvtest::allocations.load();
      const DateTimeStruct back = DTU::julianDateToCalendar(jd, epoch, ts);
      ASSERT_EQ(kvtest::allocations.load() - mark, 0);
      ASSERT_NEAR(civilSeconds(back), civilSeconds(in),
                  (std::nextafter(jd + offset, 1e300) - (jd + offset)) * 86400);
    }

    const EpochTimeStruct far{count(rng), 0.25};
    std::array<double, 6> ours{}, theirs{};
    const std::string id = kvtest::thrownId([&] {
      ours = DTU::epochTimeToCalendar(far, Epoch::Epoch1958, TAI).toArray();
    });
    std::string theirId;
    try {
      const bpt::ptime p = epoch1958 + bpt::seconds(far.wholePart);
      const auto ymd = p.date().year_month_day();
      const bpt::time_duration tod = p.time_of_day();
      theirs = {static_cast<double>(ymd.year),
                static_cast<double>(ymd.month.as_number()),
                static_cast<double>(ymd.day.as_number()),
                static_cast<double>(tod.hours()),
                static_cast<double>(tod.minutes()),
                tod.seconds() + 0.25};
    } catch (const boost::gregorian::bad_year&) {
      theirId = "BadYear";
    }
    ASSERT_EQ(std::tie(id, ours), std::tie(theirId, theirs)) << far.wholePart;
  }
}

TEST(CalendarOracle, EveryDayIs86400SecondsAndOneWeekdayOn) {
  const sys_days epoch1958 = year{1958} / 1 / 1;
  for (sys_days day = year{1400} / 1 / 1; day <= sys_days{year{9999} / 12 / 31};
       day += days{1}) {
    const year_month_day ymd{day};
    const DateTimeStruct cal = reading(ymd, 0, 0, 0);
    const long before = kvtest::allocations.load();
    const EpochTimeStruct t =
        DTU::calendarToEpochTime(cal, Epoch::Epoch1958, TAI);
    const auto back = DTU::epochTimeToCalendar(t, Epoch::Epoch1958, TAI);
    const int dayOfWeek = DTU::calendarTimeToDayOfWeek(cal),
              dayOfYear = DTU::calendarTimeToDayOfYear(cal);
    ASSERT_EQ(std::tuple(t.wholePart, back.toArray(), dayOfWeek, dayOfYear,
                         kvtest::allocations.load() - before),
              std::tuple(std::int64_t{(day - epoch1958).count()} * 86400,
                         cal.toArray(), int(weekday{day}.c_encoding()) + 1,
                         (day - sys_days{ymd.year() / 1 / 1}).count() + 1, 0L))
        << ymd;
  }
}

}  // namespace
