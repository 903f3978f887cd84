// The small value records that carry a time point between the calendar
// arithmetic, the stored value and the converters.
#pragma once

#include <array>
#include <cmath>
#include <cstdint>

#include "date_time/Export.hpp"
#include "host/typesys/DateTimeEnums.hpp"

namespace KvDateTime {

// A broken-down proleptic Gregorian date and time. All fields are whole
// numbers except `second`, which also holds the fraction of the second.
// The all-zero record is the empty record: the default, never validated.
//
// Threads: a plain value with no shared state; a const record may be read by
// any number of threads at once.
struct KVDT_EXPORT DateTimeStruct {
  double year = 0.0;
  double month = 0.0;   // 1..12
  double day = 0.0;     // 1..31
  double hour = 0.0;    // 0..23
  double minute = 0.0;  // 0..59
  double second = 0.0;  // [0, 60), or [0, 61) inside a UTC leap second

  constexpr DateTimeStruct() noexcept = default;

  // Copies year, month, day, hour, minute, second in that order and validates
  // them as a date, then as a time under UTC rules (so a second of 60.x is
  // accepted; its calendar position is judged elsewhere). Throws the first
  // diagnostic found ("Korvane:DateTime:BadYear", "BadMonth",
  // "BadDayOfMonth", "BadHour", "BadMinute", "BadSecondUTC"), the date's
  // before the time's. Six exact zeros skip validation.
  explicit DateTimeStruct(const std::array<double, 6>& values);

  // The six values in the same order, taken as they are: no validation, so
  // the record may be one the array constructor would refuse. For readings
  // already known to be valid (formed in range, or checked just before) and
  // for deliberately bad input in tests.
  static constexpr DateTimeStruct unchecked(double year, double month,
                                            double day, double hour,
                                            double minute,
                                            double second) noexcept {
    DateTimeStruct r;
    r.year = year;
    r.month = month;
    r.day = day;
    r.hour = hour;
    r.minute = minute;
    r.second = second;
    return r;
  }
  static constexpr DateTimeStruct unchecked(
      const std::array<double, 6>& values) noexcept {
    return unchecked(values[0], values[1], values[2], values[3], values[4],
                     values[5]);
  }

  // The fraction of `second`, with its sign, as std::modf splits it: exact.
  double getSubSecond() const noexcept {
    double whole;
    return std::modf(second, &whole);
  }

  constexpr std::array<double, 6> toArray() const noexcept {
    return {year, month, day, hour, minute, second};
  }

  friend constexpr bool operator==(const DateTimeStruct&,
                                   const DateTimeStruct&) = default;
};

// A time counted from an epoch in the epoch's unit, split so that the whole
// units stay exact: wholePart = floor(value), fractionalPart in [0, 1).
// -2.25 s is {-3, 0.75}.
//
// Threads: a plain value, like DateTimeStruct.
struct EpochTimeStruct {
  std::int64_t wholePart = 0;
  double fractionalPart = 0.0;

  friend constexpr bool operator==(const EpochTimeStruct&,
                                   const EpochTimeStruct&) = default;
};

}  // namespace KvDateTime
