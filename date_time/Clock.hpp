// A model's clock in one object, for programs that are not a host: a start
// reading checked as the library checks it, a running time point stepped by
// seconds, read and formatted in UTC, TAI, TT or TDB. It is made only of the
// library's public operations (DateTime, the converters, the leap-second
// table, the formatter) and changes none of them; a host that must compare
// runs bit for bit keeps using those directly.
//
// Where the clock differs from the classes underneath, on purpose:
// - Strict. A reading whose whole seconds do not fit the storage type, a
//   UTC leap-second reading that the storage type rounds out of its leap
//   second, a step that leaves the storage range and a reading that does
//   not fit in the requested standard are errors, never a wrapped or
//   saturated value.
// - A UTC second of 60 is accepted only where the leap-second schedule
//   inserts one (the validators judge the calendar position only).
// - Real-world read-back (see readingOf()): outside a leap second the
//   second is below 60 and inside one below 61, where the stored-value
//   read-back can round a value a hair below the minute up to 60 (or 61);
//   day counts are read through exact seconds, so late 28 February 2100
//   reads back and a value just before midnight stays on its day.
// - Rounded digits (see format()): fraction digits are rounded to the
//   pattern's precision, with the carry into the next second, minute, day
//   and so on, where the formatter cuts them. On a day that ends with an
//   inserted second the carry from 23:59:59 goes to 23:59:60. Inside a leap
//   second it stops at the last digit: 23:59:60.9996 shows as 60.999 with
//   "ss.SSS", never 61.000 (no such label) and not the next day's 00:00:00,
//   the label of an instant still to come.
// - The running value is kept in TAI, whatever the start's standard: a UTC
//   count stands still for an inserted second, so a clock kept in UTC
//   would step over 23:59:60.
// - TDB exists in the library only for a double day count, so the clock
//   reads it through days since J2000 in double with a table built for that
//   (the clock's own epoch and type are not used for TDB).
// - A start reading in TDB is refused: the library converts only toward
//   TDB.
// Not changed: a day count is stored as calendarToJulianDate gives it,
// which in MJD or J2000 can be some tens of microseconds off the reading
// (a JD double resolves only about 40 us today); count seconds where that
// matters.
//
// Failures throw the host's IException: the library's own diagnostics
// ("Korvane:DateTime:BadSecondUTC", "BadLeapSecond", ...) for bad readings
// and these of the clock's:
//   the parser's "Parse..." diagnostics for a reading given as text (see
//   parseReading)
//   "ReadingOutOfStorageRange" (type)    the reading does not fit the type
//   "LeapSecondLostInStorage" (type)     a leap second rounded out of itself
//   "NoLeapSecondInserted"               second 60 on a day without one
//   "StoredCountOutOfRange" (count, type) a count the type cannot hold
//   "ClockStartInTDB"                    a start reading in TDB
//   "BadClockStep" (shift)               a step that is NaN or infinite
//   "ClockStepOverflow" (shift, type)    a step that leaves the type's range
//   "ClockReadingOutOfRange" (standard, type)  the time in that standard
//                                        does not fit the type
// A storage type name StorageTypeName does not know throws
// std::invalid_argument. A failed call leaves the clock as it was.
//
// Heap: the constructors build the clock's two leap-second tables, once.
// step(), timePoint(), reading(), isLeapSecond() and readingOf() allocate
// nothing (pinned by ClockAllocation). format() and formatUtf16() allocate
// what the formatter does, a copy of the pattern and its 16-bit result,
// and format() the UTF-8 string besides. timePointFrom() builds a table of
// the library's schedule when it must judge the last second of a half-year
// without one given, and failures allocate their diagnostics.
//
// Threads: step() changes the clock and needs the clock to itself. The
// const members only read it (each uses a copy of the lookup cursor and its
// own math control), so one clock may be read from several threads while
// no thread steps it. Distinct clocks share nothing.
#pragma once

#include <cmath>
#include <cstdint>
#include <string>
#include <string_view>

#include "date_time/DateTime.hpp"
#include "date_time/DateTimeStruct.hpp"
#include "date_time/Export.hpp"
#include "date_time/LeapSecondTableData.hpp"
#include "host/fxp/DataType.hpp"
#include "host/fxp/MathControl.hpp"
#include "host/typesys/DateTimeEnums.hpp"

namespace KvDateTime {

class KVDT_EXPORT Clock {
 public:
  // The start: a reading in ISO 8601 form ("2016-12-31 23:59:60.5", see
  // parseReading) or a record, read in
  // `standard`, stored as a count from `epoch` in `type` (a type or its
  // name, "s64:20", "double", see StorageTypeName). The start is made by
  // timePointFrom() and so checked as it is; a start in TDB is refused.
  // The leap seconds are the library's schedule, or `schedule` when given
  // (a leap-seconds.list read by LeapSecondListParser); the clock keeps
  // no reference to it.
  Clock(std::string_view reading, TimeStandard standard, Epoch epoch,
        const FXP::DataType& type, const LeapSecondYears* schedule = nullptr);
  Clock(std::string_view reading, TimeStandard standard, Epoch epoch,
        std::string_view typeName, const LeapSecondYears* schedule = nullptr);
  Clock(const DateTimeStruct& reading, TimeStandard standard, Epoch epoch,
        const FXP::DataType& type, const LeapSecondYears* schedule = nullptr);
  Clock(const DateTimeStruct& reading, TimeStandard standard, Epoch epoch,
        std::string_view typeName, const LeapSecondYears* schedule = nullptr);

  // Moves the clock by `seconds` (negative moves it back), rounded to the
  // storage type's resolution: steps of 0.1 s in a binary type are not
  // exact, and in a double day count each step rounds to the double.
  // Throws "BadClockStep" or "ClockStepOverflow" and leaves the clock
  // unchanged. A forward step costs one leap-second comparison; a step back
  // rescans the table from its start.
  void step(double seconds);

  // The clock's instant in `standard`: in the clock's epoch and type for
  // TAI, TT and UTC (flag set inside an inserted second), in days since
  // J2000 in double for TDB. Throws "ClockReadingOutOfRange", and
  // std::invalid_argument for a standard outside the enumeration.
  DateTime timePoint(TimeStandard standard) const;
  // The real-world reading of timePoint(standard): see readingOf().
  DateTimeStruct reading(TimeStandard standard) const;
  // Whether UTC is inside an inserted second (23:59:60.x) now.
  bool isLeapSecond() const;

  // The reading in `standard` rendered by `pattern` (the formatter's
  // pattern language), with the fraction digits of the pattern's 'S' run
  // rounded rather than cut (see the top of this file). A pattern without
  // an 'S' run shows whole fields as the formatter does, truncated: a date
  // alone must not move to the next day because its time rounds up. A bad
  // pattern throws the formatter's diagnostic.
  std::string format(
      TimeStandard standard,
      std::u16string_view pattern = u"yyyy-MM-dd HH:mm:ss.SSS t") const;
  std::u16string formatUtf16(
      TimeStandard standard,
      std::u16string_view pattern = u"yyyy-MM-dd HH:mm:ss.SSS t") const;

  Epoch epoch() const noexcept { return tai_.epoch; }
  const FXP::DataType& storageType() const noexcept {
    return tai_.value.getDataType();
  }

  // --- Checked time points, for every surface that reads a time from
  // people (the clock itself, the kvdt tool, the Python module).

  // A reading in ISO 8601 extended form ("2016-12-31T23:59:60.5Z",
  // "2016-12-31 23:59", "2016-12-31"), read by
  // DateTimeParser::parseIso8601 for `standard` and so validated for it;
  // the parser's diagnostics are thrown unchanged ("ParseMismatch",
  // "ParseFieldRange", "ParseInvalidDateTime" naming the validator's
  // identifier, "ParseTimeStandardMismatch" for a 'Z' outside UTC, ...).
  static DateTimeStruct parseReading(std::string_view text,
                                     TimeStandard standard = TimeStandard::UTC);
  // The time point of a reading in `standard`, counted from `epoch` in
  // `type`. The reading is validated (validateDateTime for its standard:
  // the library's own diagnostics, and a NaN second, which the validators
  // pass, as "BadSecond"/"BadSecondUTC"). Refused besides: a reading whose
  // whole seconds do not fit the type ("ReadingOutOfStorageRange", also
  // when the rounded fraction would wrap them); a UTC second 60 on a day
  // where the library's schedule, or `schedule`, inserts none
  // ("NoLeapSecondInserted"), and 23:59:59 on a day where it removes that
  // second ("TimestampIsNegativeLeapSecond"); a leap second whose stored
  // value the type's rounding moves out of it ("LeapSecondLostInStorage":
  // 23:59:60.5 in whole seconds rounds to the next 00:00:00 with the flag
  // set, a value whose own read-back fails).
  static DateTime timePointFrom(const DateTimeStruct& reading,
                                TimeStandard standard, Epoch epoch,
                                const FXP::DataType& type,
                                const LeapSecondYears* schedule = nullptr);
  static DateTime timePointFrom(std::string_view reading, TimeStandard standard,
                                Epoch epoch, const FXP::DataType& type,
                                const LeapSecondYears* schedule = nullptr);
  // The time point of a stored count (seconds or days from `epoch`), never
  // flagged. Refused with "StoredCountOutOfRange": NaN, infinities and a
  // count the type cannot hold after rounding (300 or -1e30 in int8). Its
  // reading is then validated like a reading's (BadYear beyond 9999).
  static DateTime timePointFromCount(double count, TimeStandard standard,
                                     Epoch epoch, const FXP::DataType& type);
  static DateTime timePointFromCount(std::int64_t count, TimeStandard standard,
                                     Epoch epoch, const FXP::DataType& type);
  // The real-world calendar reading of any time point: toDateTimeStruct()
  // (so its diagnostics), with a second that the read-back rounded up to
  // 60, or to 61 inside a leap second, put back to the largest double below
  // it: a count a hair below a whole minute reads 59.999..., never 60. A
  // count whose whole seconds do not fit 64 bits throws "BadYear" where the
  // read-back would wrap it to a date near the epoch. A day
  // count (JD, MJD, J2000) is read as the exact count of seconds since 1958
  // it converts to: the Julian-date read-back rounds a value some
  // microseconds before midnight into the next day and throws
  // "BadDayOfMonth" late on 28 February 2100. Allocates nothing.
  static DateTimeStruct readingOf(const DateTime& timePoint);
  // readingOf's rule for the second of a read-back: one rounded up to the
  // end of its minute (60, or 61 inside a leap second) is put back to the
  // largest double below it.
  static double realSecond(double second, bool leapSecond) noexcept {
    const double limit = leapSecond ? 61.0 : 60.0;
    return second >= limit ? std::nextafter(limit, 0.0) : second;
  }

 private:
  Clock(DateTime start, const FXP::DataType& type,
        const LeapSecondYears* schedule);
  // Passes the leap-second entries the running value has reached.
  void advanceCursor();
  // The reading rounded to `digits` fraction digits, carried upwards; the
  // second lies in the middle of its last digit, so that the formatter's
  // cut shows the rounded digits.
  DateTimeStruct roundedReading(TimeStandard standard, int digits) const;

  DateTime tai_;
  LeapSecondTableData table_;
  LeapSecondTableData j2000Table_;
  std::uint32_t cursor_ = 0;
  // Nearest, saturate; a logger is installed only for the length of a call,
  // so a copied clock never points at another clock's logger.
  FXP::MathControl control_ =
      FXP::MathControl::createFullPrecisionNearSatMathControl();
};

}  // namespace KvDateTime
