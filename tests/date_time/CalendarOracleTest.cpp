// Sweeps against independent calendars: Howard Hinnant's date for day
// counts, ERFA's eraCal2jd for Julian dates, and round trips.
#include <date/date.h>
#include <erfa.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>

#include "date_time/DateTimeUtilities.hpp"

namespace {

using KvDateTime::DateTimeStruct;
using KvDateTime::DateTimeUtilities;
using KvDateTime::Epoch;
using KvDateTime::EpochTimeStruct;
using KvDateTime::TimeStandard;

constexpr int kSamples = 100'000;

struct Reading {
  int y, m, d, hh, mm;
  double s;
  DateTimeStruct cal() const {
    return DateTimeStruct(
        {double(y), double(m), double(d), double(hh), double(mm), s});
  }
};

// Uniform over the calendar's whole range, day by day, with a random time.
Reading randomReading(std::mt19937_64& rng) {
  using namespace date;
  static const sys_days first = year{1400} / 1 / 1;
  static const sys_days last = year{9999} / 12 / 31;
  std::uniform_int_distribution<int> day(0, (last - first).count());
  const year_month_day ymd{first + days{day(rng)}};
  std::uniform_int_distribution<int> hour(0, 23), minute(0, 59), second(0, 59);
  std::uniform_real_distribution<double> fraction(0.0, 1.0);
  // Half the samples on whole seconds, where exactness is easiest to see.
  const double s = second(rng) + (rng() & 1 ? fraction(rng) : 0.0);
  return {int(ymd.year()),
          int(unsigned(ymd.month())),
          int(unsigned(ymd.day())),
          hour(rng),
          minute(rng),
          s};
}

// Seconds on the TAI axis between the reading and the epoch instant.
std::int64_t expectedWholeSeconds(const Reading& r, Epoch epoch,
                                  TimeStandard ts) {
  using namespace date;
  const sys_days day = year{r.y} / r.m / r.d;
  std::int64_t t = std::int64_t{day.time_since_epoch().count()} * 86400 +
                   r.hh * 3600 + r.mm * 60 + std::int64_t(std::floor(r.s));
  const sys_days epochDay =
      epoch == Epoch::Epoch1970   ? sys_days{year{1970} / 1 / 1}
      : epoch == Epoch::Epoch1900 ? sys_days{year{1900} / 1 / 1}
                                  : sys_days{year{1958} / 1 / 1};
  t -= std::int64_t{epochDay.time_since_epoch().count()} * 86400;
  // 1970 and 1900 are counted 10 s behind the atomic epochs.
  if (epoch == Epoch::Epoch1970 || epoch == Epoch::Epoch1900) t -= 10;
  if (ts == TimeStandard::UTC) t += 10;
  if (ts == TimeStandard::TT) t -= (r.s - std::floor(r.s)) < 0.184 ? 33 : 32;
  return t;
}

TEST(CalendarOracle, EpochSecondsAgreeWithAnIndependentDayCount) {
  std::mt19937_64 rng(20261122);
  const TimeStandard standards[] = {TimeStandard::TAI, TimeStandard::UTC,
                                    TimeStandard::TT, TimeStandard::TDB};
  int failures = 0;
  for (int i = 0; i < kSamples && failures < 10; ++i) {
    const Reading r = randomReading(rng);
    const Epoch epoch = Epoch(i % 6);
    const TimeStandard ts = standards[(i / 6) % 4];
    const EpochTimeStruct t =
        DateTimeUtilities::calendarToEpochTime(r.cal(), epoch, ts);
    const std::int64_t expected = expectedWholeSeconds(r, epoch, ts);
    double frac = r.s - std::floor(r.s);
    if (ts == TimeStandard::TT)
      frac = frac < 0.184 ? frac - 0.184 + 1.0 : frac - 0.184;
    if (t.wholePart != expected || t.fractionalPart != frac) {
      ++failures;
      ADD_FAILURE() << r.y << '-' << r.m << '-' << r.d << ' ' << r.hh << ':'
                    << r.mm << ':' << r.s << " epoch " << int(epoch) << " ts "
                    << int(ts) << ": " << t.wholePart << '+' << t.fractionalPart
                    << ", expected " << expected << '+' << frac;
    }
  }
}

TEST(CalendarOracle, EpochTimeRoundTripsExactlyInTaiAndUtc) {
  std::mt19937_64 rng(7);
  int failures = 0;
  for (int i = 0; i < kSamples && failures < 10; ++i) {
    const Reading r = randomReading(rng);
    const Epoch epoch = Epoch(i % 6);
    for (TimeStandard ts : {TimeStandard::TAI, TimeStandard::UTC}) {
      const DateTimeStruct in = r.cal();
      const DateTimeStruct out = DateTimeUtilities::epochTimeToCalendar(
          DateTimeUtilities::calendarToEpochTime(in, epoch, ts), epoch, ts);
      if (!(out == in)) {
        ++failures;
        ADD_FAILURE() << r.y << '-' << r.m << '-' << r.d << " s=" << r.s
                      << " came back with second " << out.second;
      }
    }
    // TT moves the fraction by 0.184 and back: equal to within rounding.
    const DateTimeStruct in = r.cal();
    const DateTimeStruct out = DateTimeUtilities::epochTimeToCalendar(
        DateTimeUtilities::calendarToEpochTime(in, epoch, TimeStandard::TT),
        epoch, TimeStandard::TT);
    EXPECT_EQ(out.year, in.year);
    EXPECT_EQ(out.minute, in.minute);
    EXPECT_NEAR(out.second, in.second, 1e-12);
  }
}

TEST(CalendarOracle, ConsecutiveDaysAre86400SecondsApart) {
  // Every day of the calendar, with the weekday stepping by one.
  using namespace date;
  std::int64_t previous = 0;
  int previousWeekday = 0;
  for (sys_days day = year{1400} / 1 / 1; day <= sys_days{year{9999} / 12 / 31};
       day += days{1}) {
    const year_month_day ymd{day};
    const DateTimeStruct cal({double(int(ymd.year())),
                              double(unsigned(ymd.month())),
                              double(unsigned(ymd.day())), 0, 0, 0});
    const std::int64_t t = DateTimeUtilities::calendarToEpochTime(
                               cal, Epoch::Epoch1958, TimeStandard::TAI)
                               .wholePart;
    const int dayOfWeek = DateTimeUtilities::calendarTimeToDayOfWeek(cal);
    const int expectedDayOfWeek = int(date::weekday{day}.c_encoding()) + 1;
    const sys_days epoch1958 = year{1958} / 1 / 1;
    ASSERT_EQ(t, std::int64_t{(day - epoch1958).count()} * 86400);
    if (day != sys_days{year{1400} / 1 / 1}) {
      ASSERT_EQ(t - previous, 86400)
          << int(ymd.year()) << '-' << unsigned(ymd.month());
      ASSERT_EQ(dayOfWeek, previousWeekday % 7 + 1);
    }
    ASSERT_EQ(dayOfWeek, expectedDayOfWeek);
    const int dayOfYear = (day - sys_days{ymd.year() / 1 / 1}).count() + 1;
    ASSERT_EQ(DateTimeUtilities::calendarTimeToDayOfYear(cal), dayOfYear);
    previous = t;
    previousWeekday = dayOfWeek;
  }
}

TEST(CalendarOracle, JulianDatesAgreeWithErfa) {
  std::mt19937_64 rng(1958);
  int failures = 0;
  for (int i = 0; i < kSamples && failures < 10; ++i) {
    const Reading r = randomReading(rng);
    double djm0 = 0, djm = 0;
    ASSERT_EQ(eraCal2jd(r.y, r.m, r.d, &djm0, &djm), 0);
    const double dayFraction = ((r.s / 60.0 + r.mm) / 60.0 + r.hh) / 24.0;
    const double jdOracle = djm0 + djm + dayFraction;
    const double jd = DateTimeUtilities::calendarToJulianDate(
        r.cal(), Epoch::EpochJD, TimeStandard::UTC);
    const double mjd = DateTimeUtilities::calendarToJulianDate(
        r.cal(), Epoch::EpochMJD, TimeStandard::UTC);
    // Summing whole days and the day fraction in a different order rounds
    // differently by at most a unit or two in the last place of a JD.
    if (std::abs(jd - jdOracle) > 2e-9 ||
        std::abs(mjd - (djm + dayFraction)) > 2e-9) {
      ++failures;
      ADD_FAILURE() << r.y << '-' << r.m << '-' << r.d << ": jd " << jd
                    << " erfa " << jdOracle;
    }
  }
}

TEST(CalendarOracle, JulianDatesRoundTripWithinTheirResolution) {
  std::mt19937_64 rng(2000);
  int failures = 0;
  for (int i = 0; i < kSamples && failures < 10; ++i) {
    const Reading r = randomReading(rng);
    const Epoch epoch = Epoch(3 + i % 3);
    const DateTimeStruct in = r.cal();
    const double jd =
        DateTimeUtilities::calendarToJulianDate(in, epoch, TimeStandard::TAI);
    DateTimeStruct out;
    try {
      out =
          DateTimeUtilities::julianDateToCalendar(jd, epoch, TimeStandard::TAI);
    } catch (const std::exception& e) {
      ++failures;
      ADD_FAILURE() << r.y << '-' << r.m << '-' << r.d << ' ' << r.hh << ':'
                    << r.mm << ':' << r.s << " epoch " << int(epoch) << ": "
                    << e.what();
      continue;
    }
    // Compare as seconds on one axis: a reading just below a whole minute
    // may come back as the next minute's second 0.
    auto seconds = [](const DateTimeStruct& c) {
      using namespace date;
      const sys_days day = year{int(c.year)} / int(c.month) / int(c.day);
      return double(day.time_since_epoch().count()) * 86400.0 + c.hour * 3600 +
             c.minute * 60 + c.second;
    };
    // One unit in the last place of the Julian date: 40 us below JD 2^22
    // (the year 6700 or so), 80 us above.
    const double jdUlpSeconds =
        (std::nextafter(
             std::abs(jd) + (epoch == Epoch::EpochJD ? 0 : 2451545.0), 1e300) -
         (std::abs(jd) + (epoch == Epoch::EpochJD ? 0 : 2451545.0))) *
        86400.0;
    if (std::abs(seconds(out) - seconds(in)) > jdUlpSeconds) {
      ++failures;
      ADD_FAILURE() << r.y << '-' << r.m << '-' << r.d << ' ' << r.hh << ':'
                    << r.mm << ':' << r.s << " epoch " << int(epoch)
                    << " came back " << seconds(out) - seconds(in) << " s off";
    }
  }
}

}  // namespace
