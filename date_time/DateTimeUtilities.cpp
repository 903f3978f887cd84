#include "date_time/DateTimeUtilities.hpp"

#include <bit>
#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>

#include "date_time/CalendarCore.hpp"
#include "date_time/ConstantTables.hpp"
#include "date_time/FloatingPoint.hpp"
#include "date_time/diagnostics/Raise.hpp"

namespace KvDateTime {
namespace {

using detail::fastFloor;
using detail::isIntegral;
using detail::truncToInt;
namespace bg = boost::gregorian;
using Korvane::DateTime::makeDiagnostic;
using Korvane::DateTime::MsgId;

// The first ten seconds of 1972 in TAI precede 1972-01-01 00:00:00 UTC. The
// threshold sits 1.4007091522216797e-05 s below 10 s so that a reading that
// went through a float-rounded conversion still counts as the start.
constexpr double kTaiModelStartTolerance =
    std::bit_cast<double>(std::uint64_t{0x4023FFFE2A000000});

}  // namespace

// --- Validation ------------------------------------------------------------
//
// The rules live in the problem finders below, which name the first broken
// rule (none when none is) without touching the heap; the validators
// turn a name into a diagnostic, and the converters throw it.

namespace {

using Problem = std::optional<MsgId>;  // the first broken rule, if any

// A field already known to lie in [lo, hi] with hi < 2^31 is whole exactly
// when it survives a round trip through int: cheaper than the general test.
inline bool wholeInRange(double x) noexcept {
  return x == static_cast<double>(static_cast<std::int32_t>(x));
}

Problem dateProblem(const DateTimeUtilities::CalendarValues& cal) noexcept {
  const double year = cal[0], month = cal[1], day = cal[2];
  if (!isIntegral(year)) return MsgId::BadYear;
  if (!(month >= 1.0 && month <= 12.0) || !wholeInRange(month)) {
    return MsgId::BadMonth;
  }
  if (!(day >= 1.0)) return MsgId::BadDayOfMonth;
  if (day < 0x1p31 ? !wholeInRange(day) : !isIntegral(day)) {
    return MsgId::BadDayOfMonth;
  }

  // The month-length check works on the calendar's 16-bit year and day, as
  // the date type does: exact for every real date; out-of-range years are
  // caught by the range check of the full date-time rules. Pinned by
  // DateValidation.DayIsComparedInSixteenBits.
  const std::int32_t y = truncToInt<std::int32_t>(year);
  const auto m = static_cast<std::int32_t>(month);  // 1..12
  const std::int32_t d = truncToInt<std::int32_t>(day);
  const bool leap = detail::isLeapYear(static_cast<std::uint16_t>(y));
  if (static_cast<std::uint16_t>(d) >
      detail::monthLength(leap, static_cast<unsigned>(m))) {
    return MsgId::BadDayOfMonth;
  }
  return std::nullopt;
}

Problem timeProblem(const DateTimeUtilities::CalendarValues& cal,
                    TimeStandard ts) noexcept {
  const double hour = cal[3], minute = cal[4], second = cal[5];
  if (!(hour >= 0.0 && hour <= 23.0) || !wholeInRange(hour))
    return MsgId::BadHour;
  if (!(minute >= 0.0 && minute <= 59.0) || !wholeInRange(minute)) {
    return MsgId::BadMinute;
  }
  // Only the bounds are tested, so a NaN second passes: kept on purpose.
  const double limit = ts == TimeStandard::UTC ? 61.0 : 60.0;
  if (second < 0.0 || second >= limit) {
    return ts == TimeStandard::UTC ? MsgId::BadSecondUTC : MsgId::BadSecond;
  }
  return std::nullopt;
}

// The ordered rules, for readings that the quick test below does not pass.
Problem dateTimeProblemInOrder(const DateTimeUtilities::CalendarValues& cal,
                               TimeStandard ts) noexcept {
  if (Problem p = dateProblem(cal)) return p;
  if (Problem p = timeProblem(cal, ts)) return p;
  const double year = cal[0], month = cal[1], day = cal[2];
  if (year < detail::kFirstYear || year > detail::kLastYear)
    return MsgId::BadYear;
  if (cal[5] >= 60.0) {
    const bool endOfHalfYear =
        (month == 6.0 && day == 30.0) || (month == 12.0 && day == 31.0);
    if (!endOfHalfYear || cal[3] != 23.0 || cal[4] != 59.0) {
      return MsgId::BadLeapSecond;
    }
  }
  return std::nullopt;
}

Problem dateTimeProblem(const DateTimeUtilities::CalendarValues& cal,
                        TimeStandard ts) noexcept {
  detail::OrdinaryFields f;
  if (detail::ordinaryReading(cal[0], cal[1], cal[2], cal[3], cal[4], cal[5],
                              f)) {
    return std::nullopt;
  }
  return dateTimeProblemInOrder(cal, ts);
}

Problem restrictiveProblem(const DateTimeUtilities::CalendarValues& cal,
                           TimeStandard ts) noexcept {
  if (Problem p = dateTimeProblem(cal, ts)) return p;
  if (cal[0] < 1972.0) return MsgId::BadYearModelConfig;
  // Only TAI readings are held against the start of UTC with leap seconds.
  const double threshold =
      ts == TimeStandard::TAI ? kTaiModelStartTolerance : 0.0;
  if (cal[0] == 1972.0 && cal[1] == 1.0 && cal[2] == 1.0 && cal[3] == 0.0 &&
      cal[4] == 0.0 && cal[5] < threshold) {
    return MsgId::BadTAIModelConfig;
  }
  return std::nullopt;
}

inline kvsvDiagnostic toDiagnostic(Problem p) {
  return p ? makeDiagnostic(*p) : nullptr;
}

inline void raiseIf(Problem p) {
  if (p) kvsvThrowIException(Korvane::DateTime::makeMsgId(*p));
}

}  // namespace

kvsvDiagnostic DateTimeUtilities::validateDate(const CalendarValues& cal) {
  return toDiagnostic(dateProblem(cal));
}

kvsvDiagnostic DateTimeUtilities::validateTime(const CalendarValues& cal,
                                               TimeStandard ts) {
  return toDiagnostic(timeProblem(cal, ts));
}

kvsvDiagnostic DateTimeUtilities::validateDateTime(const CalendarValues& cal,
                                                   TimeStandard ts) {
  return toDiagnostic(dateTimeProblem(cal, ts));
}

kvsvDiagnostic DateTimeUtilities::validateDateTimeRestrictive(
    const CalendarValues& cal, TimeStandard ts) {
  return toDiagnostic(restrictiveProblem(cal, ts));
}

kvsvDiagnostic DateTimeUtilities::validateModelDateTime(
    const CalendarValues& cal) {
  return toDiagnostic(restrictiveProblem(cal, TimeStandard::TAI));
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

namespace {

// Out of line, so that the ordinary path needs no stack frame for the
// diagnostics and the date type.
[[gnu::noinline]] detail::OrdinaryFields unusualFields(
    const DateTimeStruct& cal, TimeStandard ts) {
  raiseIf(dateTimeProblemInOrder(cal.toArray(), ts));
  // Valid but not ordinary: a leap second, a NaN second, or a day that
  // the 16-bit calendar fields reduce (65537 counts as day 1). After
  // validation the only day the date type would still refuse is one that
  // reduces to 0 (+infinity becomes the 32-bit minimum, 65536 wraps); let
  // it raise its own exception there.
  const detail::OrdinaryFields f = {
      static_cast<std::int32_t>(cal.year), static_cast<std::int32_t>(cal.month),
      static_cast<std::uint16_t>(truncToInt<std::int32_t>(cal.day)),
      static_cast<std::int32_t>(cal.hour),
      static_cast<std::int32_t>(cal.minute),
      // A NaN second (which passes validation) contributes 0 whole
      // seconds, as its microsecond count wraps to 0 in 64-bit time
      // arithmetic; 60.x contributes 60.
      cal.second == cal.second ? static_cast<std::int32_t>(cal.second) : 0};
  if (f.day == 0) {
    [[maybe_unused]] const bg::date refused(
        static_cast<unsigned short>(f.year),
        static_cast<unsigned short>(f.month), 0);
  }
  return f;
}

// The whole conversion of a reading that is not ordinary, so that the
// ordinary path ends in a jump here rather than a call: it then saves no
// registers and builds no frame.
[[gnu::noinline]] EpochTimeStruct unusualEpochTime(const DateTimeStruct& cal,
                                                   Epoch epoch,
                                                   TimeStandard ts) {
  return detail::epochTimeOf(unusualFields(cal, ts), cal.second, epoch, ts);
}

}  // namespace

EpochTimeStruct DateTimeUtilities::calendarToEpochTime(
    const DateTimeStruct& cal, Epoch epoch, TimeStandard ts) {
  detail::OrdinaryFields f;
  if (!detail::ordinaryReading(cal.year, cal.month, cal.day, cal.hour,
                               cal.minute, cal.second, f)) [[unlikely]]
    return unusualEpochTime(cal, epoch, ts);
  return detail::epochTimeOf(f, cal.second, epoch, ts);
}

DateTimeStruct DateTimeUtilities::epochTimeToCalendar(
    const EpochTimeStruct& ets, Epoch epoch, TimeStandard ts) {
  return detail::calendarOf(ets, epoch, ts);
}

// --- Julian dates
// --------------------------------------------------------------

double DateTimeUtilities::calendarToJulianDate(const DateTimeStruct& cal,
                                               Epoch epoch, TimeStandard ts) {
  raiseIf(dateTimeProblem(cal.toArray(), ts));
  double y = cal.year, m = cal.month;
  if (m <= 2.0) {
    y -= 1.0;
    m += 12.0;
  }
  // Proleptic Gregorian throughout: the century correction always applies.
  // The classic Julian-day formula on March-based years: 365.25 and 30.6001
  // count the days of whole years and months (30.6001 rather than 30.6 so a
  // product a hair below a whole number still floors up; the extra 0.0001
  // times at most 15 never reaches a day), and 4716 and 1524.5 move the
  // count's origin to JD 0.
  const double a = fastFloor(y / 100.0);
  const double b = 2.0 - a + fastFloor(0.25 * a);
  const double jd = fastFloor(365.25 * (y + 4716.0)) +
                    fastFloor(30.6001 * (m + 1.0)) + cal.day + b - 1524.5 +
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
      f = jd - fastFloor(jd);
      x = jd + 2400000.5 + 0.5;
      break;
    case Epoch::EpochJ2000:
      f = (jd + 0.5) - fastFloor(jd + 0.5);
      x = jd + 2451545.0 + 0.5;
      break;
    default:
      f = (jd + 0.5) - fastFloor(jd + 0.5);
      x = jd + 0.5;
      break;
  }
  const double z = fastFloor(x);
  // alpha from x rather than z: differs only within a day of a century
  // boundary, and is kept so (see JulianDate.FailsThroughItsFinalValidation).
  // Gregorian centuries of 36524.25 days since 400-03-01 (JD 1867216.5),
  // started a quarter day early so that the floor never sits on a boundary.
  const double alpha = fastFloor((x - 1867216.25) / 36524.25);
  const double a = z + 1.0 + alpha - fastFloor(0.25 * alpha);
  const double b = a + 1524.0;
  const double c = fastFloor((b - 122.1) / 365.25);
  const double d = fastFloor(365.25 * c);
  const double e = fastFloor((b - d) / 30.6001);
  const double day = fastFloor(b - d + f - fastFloor(30.6001 * e));
  const double month = e - 1.0 > 12.0 ? e - 13.0 : e - 1.0;
  const double year = month < 3.0 ? c - 4715.0 : c - 4716.0;

  // Whole seconds are rebuilt from the floored second of the day; the
  // sub-second part of the day fraction survives in the second field.
  const double s = f * 86400.0;
  const double w = fastFloor(s);
  // w is a whole number in [0, 86400) (or NaN), for which these remainders
  // equal fmod's exactly without its cost.
  const double r = w - 3600.0 * fastFloor(w / 3600.0);
  const CalendarValues values = {year,
                                 month,
                                 day,
                                 fastFloor(w / 3600.0),
                                 fastFloor(r / 60.0),
                                 (s - w) + (r - 60.0 * fastFloor(r / 60.0))};
  raiseIf(dateTimeProblem(values, ts));
  // Checked just above: the constructor would only validate them again.
  return DateTimeStruct::unchecked(values);
}

// --- Day of year and week
// ---------------------------------------------------------

namespace {

// The day count of a validated date, moved into the 400-year cycle of
// 2000..2399, which keeps its leap rule and weekdays for any whole year.
// Month and day are taken in 8 bits (the day already reduced in 16 by the
// validation): a day that reduces to 0 counts as the month's day 0.
struct CycleDay {
  std::int32_t year;
  std::int64_t day;
};

CycleDay cycleDay(const DateTimeStruct& cal) {
  raiseIf(dateProblem(cal.toArray()));
  const std::int32_t y =
      detail::sameCycleYear(truncToInt<std::int64_t>(cal.year));
  const auto m = static_cast<std::uint8_t>(truncToInt<std::int32_t>(cal.month));
  const auto d = static_cast<std::uint8_t>(truncToInt<std::int32_t>(cal.day));
  return {y, detail::daysFromCivil(y, m, d)};
}

}  // namespace

int DateTimeUtilities::calendarTimeToDayOfYear(const DateTimeStruct& cal) {
  const CycleDay c = cycleDay(cal);
  return static_cast<int>(c.day - detail::daysFromCivil(c.year, 1, 1)) + 1;
}

int DateTimeUtilities::calendarTimeToDayOfWeek(const DateTimeStruct& cal) {
  return detail::weekdayFromDays(cycleDay(cal).day);
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
