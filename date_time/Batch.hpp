// Conversions of whole arrays of time points: stored values to calendar
// readings and back, and between time standards. Each element gets exactly
// the bits the scalar call gives it (named at each function); the loops only
// do the work of many values at once, with no allocation.
//
// Stored values come as doubles for double storage, or, for any other
// storage type, as the host's compact form laid end to end:
// type.sizeofCompact() bytes a value, read as DataValue::fromCompact reads
// them. A calendar row is six doubles: year, month, day, hour, minute,
// second. Leap-second flags, where a function takes them, are one bool per
// value; an empty span means every flag is clear (in) or not wanted (out).
//
// Failures:
// - spans whose sizes do not match (n values, 6n calendar doubles, n*size
//   compact bytes, n flags or none) throw std::invalid_argument before
//   anything is written;
// - an element that fails throws the host's IException
//   "Korvane:DateTime:BatchElementFailed" with two arguments, the element's
//   0-based index and the cause's text, and the cause itself nested
//   (std::rethrow_if_nested gives back the diagnostic or the standard
//   exception the scalar call throws). The first failing element is the one
//   named. Every output element before it holds its result; it and those
//   after it are unspecified.
#pragma once

#include <cstddef>
#include <span>

#include "date_time/Export.hpp"
#include "date_time/LeapSecondTableData.hpp"
#include "host/fxp/DataType.hpp"
#include "host/typesys/DateTimeEnums.hpp"

namespace KvDateTime::Batch {

// DateTime::convertDVToDateTimeStruct of each value with its flag. A double
// that is NaN or infinite fails as DataValue::fromCompact refuses its bytes.
KVDT_EXPORT void toCalendar(std::span<const double> stored, Epoch epoch,
                            TimeStandard ts, std::span<double> out,
                            std::span<const bool> leapSecond = {});
KVDT_EXPORT void toCalendar(std::span<const std::byte> stored,
                            const FXP::DataType& type, Epoch epoch,
                            TimeStandard ts, std::span<double> out,
                            std::span<const bool> leapSecond = {});

// Clock::readingOf of each value with its flag: the reading as people read
// it, for surfaces such as the kvdt tool and the Python module. A count a
// hair below a whole minute reads 59.999..., never 60 outside a leap
// second, and a count whose whole seconds do not fit 64 bits fails with
// "BadYear" where the read-back wraps it. Double storage in a seconds epoch
// runs toCalendar's loop and corrects those few elements after it.
KVDT_EXPORT void toCalendarReadings(std::span<const double> stored, Epoch epoch,
                                    TimeStandard ts, std::span<double> out,
                                    std::span<const bool> leapSecond = {});
KVDT_EXPORT void toCalendarReadings(std::span<const std::byte> stored,
                                    const FXP::DataType& type, Epoch epoch,
                                    TimeStandard ts, std::span<double> out,
                                    std::span<const bool> leapSecond = {});

// The value and flag of the DateTime built from each row as a
// DateTimeStruct (DateTime::convertDateTimeStructToDV), validated only as
// that path validates: a NaN second is taken as 0 whole seconds, and a UTC
// second of 60 or more anywhere gives the second before with the flag set.
// A fixed-point count that leaves the type wraps, as the scalar sum does.
KVDT_EXPORT void fromCalendar(std::span<const double> calendar, Epoch epoch,
                              TimeStandard ts, std::span<double> stored,
                              std::span<bool> leapSecond = {});
KVDT_EXPORT void fromCalendar(std::span<const double> calendar, Epoch epoch,
                              TimeStandard ts, const FXP::DataType& type,
                              std::span<std::byte> stored,
                              std::span<bool> leapSecond = {});
// fromCalendar for readings a host takes from outside, refusing what the
// scalar path would accept or wrap: a field that is not finite
// (std::invalid_argument), a reading validateDateTime rejects (its
// diagnostic: a UTC second of 60 only at a half-year's end), and a reading
// whose whole seconds DateTime::isValueInRangeOfType does not admit
// (std::overflow_error); a UTC second of 60 is checked further as
// Clock::timePointFrom checks it (inserted by the schedule, and kept inside
// its leap second by the storage type).
KVDT_EXPORT void fromCalendarChecked(std::span<const double> calendar,
                                     Epoch epoch, TimeStandard ts,
                                     std::span<double> stored,
                                     std::span<bool> leapSecond = {});
KVDT_EXPORT void fromCalendarChecked(std::span<const double> calendar,
                                     Epoch epoch, TimeStandard ts,
                                     const FXP::DataType& type,
                                     std::span<std::byte> stored,
                                     std::span<bool> leapSecond = {});

// TimeStandardConverter::convertTimeStandard of each value, from `from` to
// `to`, with no cursor of the caller's: every value gets the leap-second
// count of its own instant, in whatever order the values come (a cursor of
// the call's own follows them). The arithmetic runs under a full-precision
// nearest-saturate control; where the scalar call would saturate, the
// element fails with std::overflow_error instead.
KVDT_EXPORT void convertStandard(std::span<const double> stored, Epoch epoch,
                                 TimeStandard from, TimeStandard to,
                                 const LeapSecondTableData& table,
                                 std::span<double> out,
                                 std::span<const bool> leapSecond = {},
                                 std::span<bool> leapSecondOut = {});
KVDT_EXPORT void convertStandard(std::span<const std::byte> stored,
                                 const FXP::DataType& type, Epoch epoch,
                                 TimeStandard from, TimeStandard to,
                                 const LeapSecondTableData& table,
                                 std::span<std::byte> out,
                                 std::span<const bool> leapSecond = {},
                                 std::span<bool> leapSecondOut = {});

}  // namespace KvDateTime::Batch
