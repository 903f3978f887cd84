// Calendar arithmetic on the proleptic Gregorian calendar of the years 1400
// to 9999: validation of six calendar values, calendar <-> seconds since an
// epoch, calendar <-> Julian dates, day of week and day of year.
//
// Validators return a diagnostic handle (null when valid) and never throw.
// Every other function throws its failure as the host's IException carrying
// "Korvane:DateTime:<Id>".
#pragma once

#include <array>
#include <cstdint>

#include "date_time/DateTimeStruct.hpp"
#include "date_time/Export.hpp"
#include "host/diag/Diagnostic.hpp"
#include "host/typesys/DateTimeEnums.hpp"

namespace KvDateTime {

class DateTime;

// Threads: every function depends only on its arguments and the tables built
// at load, so any thread may call any of them at any time. A returned
// diagnostic belongs to the caller.
class KVDT_EXPORT DateTimeUtilities {
 public:
  using CalendarValues = std::array<double, 6>;  // y, mo, d, h, mi, s

  DateTimeUtilities() = delete;

  // --- Validation --------------------------------------------------------
  // Each reports only the first rule broken. Year, month, day, hour and
  // minute must be whole numbers; the second need not be, and a NaN second
  // passes (it is compared only against its bounds).

  // Year whole ("BadYear", no range here), month 1..12 ("BadMonth"), day 1..
  // month length ("BadDayOfMonth"). The month-length check reduces year and
  // day to 16 bits, as the calendar types do: day 65537 compares as day 1.
  static kvsvDiagnostic validateDate(const CalendarValues& cal);
  // Hour 0..23 ("BadHour"), minute 0..59 ("BadMinute"), second in [0, 61)
  // for UTC ("BadSecondUTC") or [0, 60) otherwise ("BadSecond").
  static kvsvDiagnostic validateTime(const CalendarValues& cal,
                                     TimeStandard ts);
  // Date, time, year 1400..9999 ("BadYear"), and a second of 60 or more
  // only at 23:59 on 30 June or 31 December ("BadLeapSecond").
  static kvsvDiagnostic validateDateTime(const CalendarValues& cal,
                                         TimeStandard ts);
  // validateDateTime, then year 1972 or later ("BadYearModelConfig"); in
  // TAI the first ten seconds of 1972 (less a small tolerance) precede UTC
  // with leap seconds and give "BadTAIModelConfig".
  static kvsvDiagnostic validateDateTimeRestrictive(const CalendarValues& cal,
                                                    TimeStandard ts);
  // validateDateTimeRestrictive in TAI.
  static kvsvDiagnostic validateModelDateTime(const CalendarValues& cal);
  // 1972-01-01 00:00:10, the first model-valid reading (in TAI).
  static DateTimeStruct earliestModelValidCalDT();

  // --- Epochs ------------------------------------------------------------
  // True for the day-counting epochs JD, MJD and J2000.
  static constexpr bool isJulianCompatibleEpoch(Epoch e) noexcept {
    // In unsigned arithmetic: any 32-bit value, INT32_MIN included, is
    // safe to pass, and everything below 3 wraps far above the range.
    return static_cast<std::uint32_t>(e) - 3u <= 2u;
  }
  // A shift in seconds in the unit of an epoch's values (days if julian).
  static constexpr double secondsToTimeShift(double seconds,
                                             bool julian) noexcept {
    return julian ? seconds / 86400.0 : seconds;
  }
  static constexpr double secondsToTimeShift(double seconds, Epoch e) noexcept {
    return secondsToTimeShift(seconds, isJulianCompatibleEpoch(e));
  }
  // Where the instant of `from` lies on the count of `to` (days if either is
  // a day epoch, else seconds), corrected for `ts` when exactly one of the
  // two counts days. Throws std::out_of_range("map::at") for a pair of equal
  // epochs or an epoch outside the enumeration.
  static double getEpochOffset(Epoch from, Epoch to, TimeStandard ts);

  // --- Calendar <-> epoch time (seconds) -----------------------------------
  // In these two, an epoch outside the enumeration counts from 1958-01-01
  // like the day epochs, and a standard outside it reads like TAI (pinned
  // by BadInput.EnumeratorsOutsideTheirRangeAreNamed).
  // Seconds since `epoch`, read on the TAI axis: UTC readings are 10 s
  // behind it, TT readings 32.184 s ahead; further leap seconds are not
  // applied here. Throws the diagnostic of validateDateTime. A leap second
  // 23:59:60.x counts like 00:00:00.x of the next day.
  // Kept as the arithmetic gives them: in TT the fraction can come out as
  // exactly 1.0 (0.184 taken away, then 1.0 added back, rounds up); a day
  // that 16 bits reduce to 0 (65536, or +infinity) passes the validation
  // and then throws the calendar library's own bad_day_of_month.
  static EpochTimeStruct calendarToEpochTime(const DateTimeStruct& cal,
                                             Epoch epoch, TimeStandard ts);
  // The inverse. Throws "BadYear" when the result lies outside 1400..9999.
  // Second 59 plus a fraction just below 1 can come out as 60.0, the sum
  // rounding up (in TT after the 0.184 s shift too); in a standard other
  // than UTC that is no valid reading. Kept as the arithmetic gives it.
  static DateTimeStruct epochTimeToCalendar(const EpochTimeStruct& ets,
                                            Epoch epoch, TimeStandard ts);

  // --- Calendar <-> Julian dates -------------------------------------------
  // The JD (EpochJD and any non-day epoch), MJD or days since J2000.0, in
  // the reading's own time scale. Throws the diagnostic of validateDateTime.
  static double calendarToJulianDate(const DateTimeStruct& cal, Epoch epoch,
                                     TimeStandard ts);
  // The inverse; throws the diagnostic of validateDateTime of the result
  // (for example "BadYear" outside 1400..9999, or for NaN).
  // An MJD or J2000 value within about 20 microseconds before midnight
  // lands on the next day: the day base, shifted by the epoch's offset,
  // rounds up before it is floored. Kept as the arithmetic gives it.
  // The century correction is taken from the unfloored day value, so late
  // on 28 February of a century year that is not a leap year (1700, 1800,
  // 2100, ..., but not 1900) the day comes out as 29 February and
  // "BadDayOfMonth" is thrown. Also kept as the arithmetic gives it.
  static DateTimeStruct julianDateToCalendar(double jd, Epoch epoch,
                                             TimeStandard ts);

  // --- Day of year and week --------------------------------------------------
  // 1 = 1 January .. 366. Throws the diagnostic of validateDate. A day
  // that 16 bits reduce to 0 (65536, or +infinity) passes it and counts as
  // day 0 of its month: 0 for January.
  static int calendarTimeToDayOfYear(const DateTimeStruct& cal);
  // 1 = Sunday .. 7 = Saturday. Throws the diagnostic of validateDate.
  static int calendarTimeToDayOfWeek(const DateTimeStruct& cal);
  // Seconds from the Sunday 00:00 before the epoch's instant to that
  // instant, read in `ts` (day epochs and TDB take the table value as is).
  // An epoch outside the enumeration gives 0.0, like an absent table key.
  static double secondsSinceSundayMidnight(Epoch epoch, TimeStandard ts);

  // --- Time points -------------------------------------------------------
  // Day of week (1 = Sunday .. 7 = Saturday) of a stored count, without a
  // calendar conversion: seconds epochs floor to whole days, day epochs
  // truncate. A UTC leap second belongs to the following day.
  static int timestampToDayOfWeek(const DateTime& dt);
  // The validators above applied to the value's calendar reading (its own
  // standard for validateDateTime; TAI rules for validateModelDateTime). A
  // read-back that throws the host's IException becomes the result.
  static kvsvDiagnostic validateDateTime(const DateTime& dt);
  static kvsvDiagnostic validateModelDateTime(const DateTime& dt);
};

}  // namespace KvDateTime
