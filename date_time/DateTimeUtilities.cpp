#include "date_time/DateTimeUtilities.hpp"

#include <bit>
#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <cmath>
#include <cstdint>
#include <limits>

#include "date_time/ConstantTables.hpp"
#include "date_time/diagnostics/Raise.hpp"

namespace KvDateTime {
namespace {

namespace bg = boost::gregorian;
namespace bpt = boost::posix_time;
using Korvane::DateTime::makeDiagnostic;
using Korvane::DateTime::throwIfSet;

// The first ten seconds of 1972 in TAI precede 1972-01-01 00:00:00 UTC. The
// threshold sits 1.4007091522216797e-05 s below 10 s so that a reading that
// went through a float-rounded conversion still counts as the start.
constexpr double kTaiModelStartTolerance =
    std::bit_cast<double>(std::uint64_t{0x4023FFFE2A000000});

constexpr std::int64_t kMicrosPerSecond = 1'000'000;

// Whole-number test: NaN is never whole, the infinities are. floor() is
// exact for every double, so no magnitude needs a special case.
inline bool isIntegral(double x) noexcept { return x == std::floor(x); }

// Truncation to a 32- or 64-bit integer as the processor does it: a value
// that does not fit (NaN, the infinities, huge magnitudes) gives the minimum
// integer. A plain cast would be undefined there, and validated fields may
// still be infinite.
template <typename Int>
inline Int truncToInt(double x) noexcept {
  constexpr double kLimit =
      -static_cast<double>(std::numeric_limits<Int>::min());  // 2^31 or 2^63
  if (!(x > -kLimit - 1.0 && x < kLimit))
    return std::numeric_limits<Int>::min();
  return static_cast<Int>(x);
}

inline bool isGregorianLeap(std::int64_t y) noexcept {
  return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}

// The reading's instant, on the TAI axis, for each epoch. 1970 and 1900 are
// UTC epochs: their 00:00:00 UTC lies at 00:00:10 TAI (TAI-UTC was 10 s at
// the start of 1972 and is taken as fixed here).
const bpt::ptime kEpochRef1970(bg::date(1970, 1, 1), bpt::seconds(10));
const bpt::ptime kEpochRef1900(bg::date(1900, 1, 1), bpt::seconds(10));
const bpt::ptime kEpochRef1958(bg::date(1958, 1, 1),
                               bpt::time_duration(0, 0, 0));

inline const bpt::ptime& epochReference(Epoch epoch) noexcept {
  switch (epoch) {
    case Epoch::Epoch1970:
      return kEpochRef1970;
    case Epoch::Epoch1900:
      return kEpochRef1900;
    default:
      return kEpochRef1958;
  }
}

// Whole results of epochTimeToCalendar lie within about 2.6e11 s of any
// epoch. Beyond this bound the microsecond arithmetic would overflow, and
// the reading is outside the calendar's years anyway.
constexpr std::int64_t kMaxEpochSeconds = 1'000'000'000'000;  // ~31700 years

}  // namespace

// --- Validation ------------------------------------------------------------

kvsvDiagnostic DateTimeUtilities::validateDate(const CalendarValues& cal) {
  const double year = cal[0], month = cal[1], day = cal[2];
  if (!isIntegral(year)) return makeDiagnostic("BadYear");
  if (!(month >= 1.0 && month <= 12.0 && isIntegral(month))) {
    return makeDiagnostic("BadMonth");
  }
  if (!(day >= 1.0 && isIntegral(day))) return makeDiagnostic("BadDayOfMonth");

  // The month-length check works on the calendar's 16-bit year and day, as
  // the date type does: exact for every real date; out-of-range years are
  // caught by the range check of validateDateTime. Pinned by
  // DateValidation.DayIsComparedInSixteenBits.
  const std::int32_t y = truncToInt<std::int32_t>(year);
  const std::int32_t m = truncToInt<std::int32_t>(month);  // 1..12
  const std::int32_t d = truncToInt<std::int32_t>(day);
  bool leap = false;
  if ((y & 3) == 0) {
    const auto y16 = static_cast<std::uint16_t>(y);
    leap = y16 % 100 != 0 || y16 % 400 == 0;
  }
  if (static_cast<std::uint16_t>(d) > detail::daysInMonth[leap][m - 1]) {
    return makeDiagnostic("BadDayOfMonth");
  }
  return nullptr;
}

kvsvDiagnostic DateTimeUtilities::validateTime(const CalendarValues& cal,
                                               TimeStandard ts) {
  const double hour = cal[3], minute = cal[4], second = cal[5];
  if (!(hour >= 0.0 && hour <= 23.0 && isIntegral(hour))) {
    return makeDiagnostic("BadHour");
  }
  if (!(minute >= 0.0 && minute <= 59.0 && isIntegral(minute))) {
    return makeDiagnostic("BadMinute");
  }
  // Only the bounds are tested, so a NaN second passes: kept on purpose.
  if (ts == TimeStandard::UTC) {
    if (second < 0.0 || second >= 61.0) return makeDiagnostic("BadSecondUTC");
  } else if (second < 0.0 || second >= 60.0) {
    return makeDiagnostic("BadSecond");
  }
  return nullptr;
}

kvsvDiagnostic DateTimeUtilities::validateDateTime(const CalendarValues& cal,
                                                   TimeStandard ts) {
  if (kvsvDiagnostic d = validateDate(cal)) return d;
  if (kvsvDiagnostic d = validateTime(cal, ts)) return d;
  const double year = cal[0], month = cal[1], day = cal[2];
  if (year < 1400.0 || year > 9999.0) return makeDiagnostic("BadYear");
  if (cal[5] >= 60.0) {
    const bool endOfHalfYear =
        (month == 6.0 && day == 30.0) || (month == 12.0 && day == 31.0);
    if (!endOfHalfYear || cal[3] != 23.0 || cal[4] != 59.0) {
      return makeDiagnostic("BadLeapSecond");
    }
  }
  return nullptr;
}

kvsvDiagnostic DateTimeUtilities::validateDateTimeRestrictive(
    const CalendarValues& cal, TimeStandard ts) {
  if (kvsvDiagnostic d = validateDateTime(cal, ts)) return d;
  if (cal[0] < 1972.0) return makeDiagnostic("BadYearModelConfig");
  // Only TAI readings are held against the start of UTC with leap seconds.
  const double threshold =
      ts == TimeStandard::TAI ? kTaiModelStartTolerance : 0.0;
  if (cal[0] == 1972.0 && cal[1] == 1.0 && cal[2] == 1.0 && cal[3] == 0.0 &&
      cal[4] == 0.0 && cal[5] < threshold) {
    return makeDiagnostic("BadTAIModelConfig");
  }
  return nullptr;
}

kvsvDiagnostic DateTimeUtilities::validateModelDateTime(
    const CalendarValues& cal) {
  return validateDateTimeRestrictive(cal, TimeStandard::TAI);
}

DateTimeStruct DateTimeUtilities::earliestModelValidCalDT() {
  return DateTimeStruct({1972.0, 1.0, 1.0, 0.0, 0.0, 10.0});
}

// --- Epochs ------------------------------------------------------------------

double DateTimeUtilities::getEpochOffset(Epoch from, Epoch to,
                                         TimeStandard ts) {
  const double v = detail::epochOffsetAt(from, to);
  const bool jf = isJulianCompatibleEpoch(from);
  const bool jt = isJulianCompatibleEpoch(to);
  if (jf == jt || ts == TimeStandard::TAI) return v;
  // Seconds epochs count from UTC-like instants, day epochs from TAI ones;
  // TDB takes TT's fixed 32.184 s here.
  constexpr double kUtcShift = 10.0 / 86400.0;
  constexpr double kTtShift = 32.184 / 86400.0;
  const double shift = ts == TimeStandard::UTC ? -kUtcShift : kTtShift;
  return jt ? v + shift : v - shift;
}

// --- Calendar <-> epoch time
// ---------------------------------------------------

EpochTimeStruct DateTimeUtilities::calendarToEpochTime(
    const DateTimeStruct& cal, Epoch epoch, TimeStandard ts) {
  throwIfSet(validateDateTime(cal.toArray(), ts));

  // The date type holds 16-bit fields: a day of 65537 counts as day 1, and
  // a day of +infinity (the 32-bit minimum) is refused by its constructor.
  const bg::date date(
      static_cast<unsigned short>(truncToInt<std::int32_t>(cal.year)),
      static_cast<unsigned short>(truncToInt<std::int32_t>(cal.month)),
      static_cast<unsigned short>(truncToInt<std::int32_t>(cal.day)));

  // A NaN second passes validation; its whole part becomes the 64-bit
  // minimum, whose microsecond count wraps to 0. Done in unsigned arithmetic
  // so that it wraps instead of overflowing.
  const double wholeSecond = std::floor(cal.second);
  const auto secondTicks = static_cast<std::int64_t>(
      static_cast<std::uint64_t>(truncToInt<std::int64_t>(wholeSecond)) *
      static_cast<std::uint64_t>(kMicrosPerSecond));
  const bpt::time_duration timeOfDay =
      bpt::hours(truncToInt<std::int64_t>(cal.hour)) +
      bpt::minutes(truncToInt<std::int64_t>(cal.minute)) +
      bpt::microseconds(secondTicks);

  double frac = cal.second - wholeSecond;  // [0, 1); 0.5 for second 60.5
  bpt::time_duration r = bpt::ptime(date, timeOfDay) - epochReference(epoch);
  switch (ts) {
    case TimeStandard::UTC:
      r += bpt::seconds(10);
      break;
    case TimeStandard::TT:
      // 32.184 s: the whole seconds go to the count, 0.184 s to the fraction,
      // with a borrow when the fraction would turn negative.
      frac -= 0.184;
      if (frac < 0.0) {
        frac += 1.0;
        r -= bpt::seconds(33);
      } else {
        r -= bpt::seconds(32);
      }
      break;
    default:
      break;
  }
  return {r.ticks() / kMicrosPerSecond, frac};
}

DateTimeStruct DateTimeUtilities::epochTimeToCalendar(
    const EpochTimeStruct& ets, Epoch epoch, TimeStandard ts) {
  if (ets.wholePart > kMaxEpochSeconds || ets.wholePart < -kMaxEpochSeconds) {
    kvsvThrowIException(Korvane::DateTime::BadYear());
  }
  bpt::ptime p = epochReference(epoch) + bpt::seconds(ets.wholePart);
  double frac = ets.fractionalPart;
  switch (ts) {
    case TimeStandard::UTC:
      p -= bpt::seconds(10);
      break;
    case TimeStandard::TT:
      frac += 0.184;
      if (frac >= 1.0) {
        frac -= 1.0;
        p += bpt::seconds(33);
      } else {
        p += bpt::seconds(32);
      }
      break;
    default:
      break;
  }

  bg::date::ymd_type ymd(1400, 1, 1);
  try {
    ymd = p.date().year_month_day();
  } catch (const bg::bad_year&) {
    kvsvThrowIException(Korvane::DateTime::BadYear());
  }
  const bpt::time_duration tod = p.time_of_day();
  return DateTimeStruct({static_cast<double>(ymd.year),
                         static_cast<double>(ymd.month.as_number()),
                         static_cast<double>(ymd.day.as_number()),
                         static_cast<double>(tod.hours()),
                         static_cast<double>(tod.minutes()),
                         static_cast<double>(tod.seconds()) + frac});
}

// --- Julian dates
// --------------------------------------------------------------

double DateTimeUtilities::calendarToJulianDate(const DateTimeStruct& cal,
                                               Epoch epoch, TimeStandard ts) {
  throwIfSet(validateDateTime(cal.toArray(), ts));
  double y = cal.year, m = cal.month;
  if (m <= 2.0) {
    y -= 1.0;
    m += 12.0;
  }
  // Proleptic Gregorian throughout: the century correction always applies.
  const double a = std::floor(y / 100.0);
  const double b = 2.0 - a + std::floor(0.25 * a);
  const double jd = std::floor(365.25 * (y + 4716.0)) +
                    std::floor(30.6001 * (m + 1.0)) + cal.day + b - 1524.5 +
                    ((cal.second / 60.0 + cal.minute) / 60.0 + cal.hour) / 24.0;
  switch (epoch) {
    case Epoch::EpochMJD:
      return jd - 2400000.5;
    case Epoch::EpochJ2000:
      return jd - 2451545.0;
    default:
      return jd;
  }
}

DateTimeStruct DateTimeUtilities::julianDateToCalendar(double jd, Epoch epoch,
                                                       TimeStandard ts) {
  double f, x;
  switch (epoch) {
    case Epoch::EpochMJD:
      f = jd - std::floor(jd);
      x = jd + 2400000.5 + 0.5;
      break;
    case Epoch::EpochJ2000:
      f = (jd + 0.5) - std::floor(jd + 0.5);
      x = jd + 2451545.0 + 0.5;
      break;
    default:
      f = (jd + 0.5) - std::floor(jd + 0.5);
      x = jd + 0.5;
      break;
  }
  const double z = std::floor(x);
  // alpha from x rather than z: differs only within a day of a century
  // boundary, and is kept so (see JulianDate.CenturyEdgeQuirk).
  const double alpha = std::floor((x - 1867216.25) / 36524.25);
  const double a = z + 1.0 + alpha - std::floor(0.25 * alpha);
  const double b = a + 1524.0;
  const double c = std::floor((b - 122.1) / 365.25);
  const double d = std::floor(365.25 * c);
  const double e = std::floor((b - d) / 30.6001);
  const double day = std::floor(b - d + f - std::floor(30.6001 * e));
  const double month = e - 1.0 > 12.0 ? e - 13.0 : e - 1.0;
  const double year = month < 3.0 ? c - 4715.0 : c - 4716.0;

  // Whole seconds are rebuilt from the floored second of the day; the
  // sub-second part of the day fraction survives in the second field.
  const double s = f * 86400.0;
  const double w = std::floor(s);
  const double r = std::fmod(w, 3600.0);
  const CalendarValues values = {year,
                                 month,
                                 day,
                                 std::floor(w / 3600.0),
                                 std::floor(r / 60.0),
                                 (s - w) + std::floor(std::fmod(r, 60.0))};
  throwIfSet(validateDateTime(values, ts));
  return DateTimeStruct(values);
}

// --- Day of year and week
// ---------------------------------------------------------

int DateTimeUtilities::calendarTimeToDayOfYear(const DateTimeStruct& cal) {
  throwIfSet(validateDate(cal.toArray()));
  const std::int64_t y = truncToInt<std::int64_t>(cal.year);
  const auto m = static_cast<std::uint8_t>(truncToInt<std::int32_t>(cal.month));
  const auto d = static_cast<std::uint8_t>(truncToInt<std::int32_t>(cal.day));
  return d + detail::daysBeforeMonth[isGregorianLeap(y)][m - 1];
}

int DateTimeUtilities::calendarTimeToDayOfWeek(const DateTimeStruct& cal) {
  throwIfSet(validateDate(cal.toArray()));
  const std::int64_t y = truncToInt<std::int64_t>(cal.year);
  const auto m = static_cast<std::uint8_t>(truncToInt<std::int32_t>(cal.month));
  const auto d = static_cast<std::uint8_t>(truncToInt<std::int32_t>(cal.day));
  std::int64_t r = y % 400;  // [0, 399]
  if (r < 0) r += 400;
  // Leap days in years 0 .. r-1 of the 400-year cycle, year 0 included.
  const std::int64_t leapDays = r == 0 ? 0 : 1 + (r - 1) / 4 - (r - 1) / 100;
  // 5 puts 1 January of a cycle's year 0 (2000, say) on a Saturday.
  const std::int64_t n =
      d + r + 5 + leapDays + detail::daysBeforeMonth[isGregorianLeap(y)][m - 1];
  return static_cast<std::uint16_t>(n) % 7 + 1;
}

double DateTimeUtilities::secondsSinceSundayMidnight(Epoch epoch,
                                                     TimeStandard ts) {
  // An epoch outside the enumeration reads as 0.0, like an absent table key.
  const double v =
      detail::isValidEpoch(epoch)
          ? detail::epochSecondsSinceSunday[static_cast<std::size_t>(epoch)]
          : 0.0;
  if (ts == TimeStandard::TDB || isJulianCompatibleEpoch(epoch)) return v;
  switch (ts) {
    case TimeStandard::TAI:
      return v;
    case TimeStandard::UTC:
      return v - 10.0;
    default:
      return v + 32.184;
  }
}

}  // namespace KvDateTime
