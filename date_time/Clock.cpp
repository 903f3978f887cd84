#include "date_time/Clock.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <stdexcept>
#include <system_error>

#include "date_time/DateTimeConverter.hpp"
#include "date_time/DateTimeParser.hpp"
#include "date_time/DateTimeStructFormatter.hpp"
#include "date_time/StorageTypeName.hpp"
#include "date_time/TimeStandardConverter.hpp"
#include "date_time/diagnostics/Raise.hpp"
#include "host/diag/MessageCatalog.hpp"
#include "host/typesys/DateTimeDefs.hpp"

namespace KvDateTime {
namespace {

using Korvane::DateTime::makeMsgId;
using Korvane::DateTime::MsgId;
using Korvane::DateTime::throwIfSet;
using resource_core::MsgArgument;
using IException = foundation::core::except::IException;

[[noreturn]] void raise(Korvane::DateTime::MsgId id,
                        std::vector<MsgArgument> args = {}) {
  kvsvThrowIException(makeMsgId(id, std::move(args)));
}

std::string numberText(double v) {
  char buffer[32];
  const auto r = std::to_chars(buffer, buffer + sizeof buffer, v);
  return std::string(buffer, r.ptr);
}

MsgArgument typeArgument(const FXP::DataType& type) {
  return MsgArgument(StorageTypeName::name(type));
}

// A control that reports overflow to a logger of the caller's, so that a
// saturated value is refused instead of being passed on as the answer.
struct CheckedControl {
  FixptRangeMath::FixptRangeMathLogger logger;
  FXP::MathControl control;
  explicit CheckedControl(FXP::MathControl base) : control(base) {
    control.setMathLogger(&logger);
  }
  CheckedControl(const CheckedControl&) = delete;
  bool overflowed() const noexcept { return logger.overflowOccurred(); }
};

TimeStandard refuseTdbStart(TimeStandard standard) {
  if (standard == TimeStandard::TDB) raise(MsgId::ClockStartInTDB);
  return standard;
}

// Digits of "SS...S" outside quotes, at most the formatter's 9; 0 when the
// pattern shows no fraction. Apostrophe runs toggle quoting by their parity,
// as the formatter reads them.
int fractionDigitsOf(std::u16string_view pattern) {
  bool quoted = false;
  for (std::size_t i = 0; i < pattern.size();) {
    const char16_t c = pattern[i];
    std::size_t n = 1;
    while (i + n < pattern.size() && pattern[i + n] == c) ++n;
    if (c == u'\'') quoted ^= (n & 1) != 0;
    if (c == u'S' && !quoted)
      return static_cast<int>(std::min<std::size_t>(n, 9));
    i += n;
  }
  return 0;
}

// 23:59 on 30 June or 31 December, where a schedule may change the minute.
bool atHalfYearEnd(const DateTimeStruct& r) {
  return r.hour == 23 && r.minute == 59 &&
         ((r.month == 6 && r.day == 30) || (r.month == 12 && r.day == 31));
}

// Seconds in r's minute by the schedule: 61 at the end of a half-year that
// inserts a second, 59 at one that removes 23:59:59; 60 for every other
// minute, and in every standard but UTC.
int minuteLength(const DateTimeStruct& r, TimeStandard standard,
                 const LeapSecondYears& years) {
  if (standard != TimeStandard::UTC || !atHalfYearEnd(r)) return 60;
  const auto it = years.find(static_cast<std::int32_t>(r.year));
  if (it == years.end()) return 60;
  return 60 + (r.month == 6 ? it->second.first : it->second.second);
}

// 00 seconds of the minute after r's, through whole seconds on the TAI
// count from 1958, where a minute is always 60 s.
DateTimeStruct nextMinute(DateTimeStruct r) {
  r.second = 0.0;
  EpochTimeStruct e = DateTimeUtilities::calendarToEpochTime(
      r, Epoch::Epoch1958, TimeStandard::TAI);
  e.wholePart += 60;
  return DateTimeUtilities::epochTimeToCalendar(e, Epoch::Epoch1958,
                                                TimeStandard::TAI);
}

// Stored value minus the reading's exact count, in seconds; a wrapped or
// saturated value lies far from it.
double storedMinusReading(const DateTime& dt, const DateTimeStruct& cal) {
  if (DateTimeUtilities::isJulianCompatibleEpoch(dt.epoch)) {
    return (dt.value.toDouble() - DateTimeUtilities::calendarToJulianDate(
                                      cal, dt.epoch, dt.timeStandard)) *
           86400.0;
  }
  const EpochTimeStruct s = DateTime::splitStorageValue(dt.value);
  const EpochTimeStruct e =
      DateTimeUtilities::calendarToEpochTime(cal, dt.epoch, dt.timeStandard);
  return (static_cast<double>(s.wholePart) - static_cast<double>(e.wholePart)) +
         (s.fractionalPart - e.fractionalPart);
}

// The seconds one step of the type spans, at least 1 s.
double resolutionSeconds(const FXP::DataType& type, Epoch epoch) {
  if (type.isDouble()) return 1.0;
  const double unit =
      std::ldexp(1.0, -type.fractionLength()) *
      (DateTimeUtilities::isJulianCompatibleEpoch(epoch) ? 86400.0 : 1.0);
  return std::max(1.0, unit);
}

// minuteLength of a UTC reading by `schedule`, or by the library's own,
// whose table is built only for the minutes a schedule can change.
int scheduledMinuteLength(const DateTimeStruct& cal,
                          const LeapSecondYears* schedule) {
  if (!atHalfYearEnd(cal)) return 60;
  if (schedule) return minuteLength(cal, TimeStandard::UTC, *schedule);
  return minuteLength(cal, TimeStandard::UTC,
                      LeapSecondTableDataCreator::build(
                          Epoch::Epoch1958, FXP::DataType::doubleT())
                          .leapSecondYears);
}

LeapSecondTableData tableFor(Epoch epoch, const FXP::DataType& type,
                             const LeapSecondYears* schedule) {
  return schedule ? LeapSecondTableDataCreator::build(*schedule, epoch, type)
                  : LeapSecondTableDataCreator::build(epoch, type);
}

DateTime checkedCount(const FXP::DataValue& exact, const std::string& text,
                      TimeStandard standard, Epoch epoch,
                      const FXP::DataType& type) {
  CheckedControl checked(
      FXP::MathControl::createFullPrecisionNearSatMathControl());
  const FXP::DataValue v = exact.convert(type, checked.control);
  if (checked.overflowed())
    raise(MsgId::StoredCountOutOfRange,
          {MsgArgument(text), typeArgument(type)});
  const DateTime dt(DvLs{v, false}, epoch, standard);
  throwIfSet(DateTimeUtilities::validateDateTime(Clock::readingOf(dt).toArray(),
                                                 standard));
  return dt;
}

}  // namespace

// --------------------------------------------------------- checked helpers

DateTimeStruct Clock::parseReading(std::string_view text,
                                   TimeStandard standard) {
  DateTimeStruct reading;
  kvsvDiagnostic d = DateTimeParser::tryParseIso8601(text, standard, reading);
  throwIfSet(std::move(d));
  return reading;
}

DateTime Clock::timePointFrom(std::string_view reading, TimeStandard standard,
                              Epoch epoch, const FXP::DataType& type,
                              const LeapSecondYears* schedule) {
  return timePointFrom(parseReading(reading, standard), standard, epoch, type,
                       schedule);
}

DateTime Clock::timePointFrom(const DateTimeStruct& reading,
                              TimeStandard standard, Epoch epoch,
                              const FXP::DataType& type,
                              const LeapSecondYears* schedule) {
  // The validators let a NaN second through: it is compared with bounds only.
  if (!std::isfinite(reading.second))
    raise(standard == TimeStandard::UTC ? MsgId::BadSecondUTC
                                        : MsgId::BadSecond);
  throwIfSet(DateTimeUtilities::validateDateTime(reading.toArray(), standard));
  if (!DateTime::isValueInRangeOfType(reading, epoch, standard, type))
    raise(MsgId::ReadingOutOfStorageRange, {typeArgument(type)});
  const bool leap = standard == TimeStandard::UTC && reading.second >= 60.0;
  if (standard == TimeStandard::UTC && reading.second >= 59.0) {
    const int length = scheduledMinuteLength(reading, schedule);
    if (reading.second >= length)
      raise(length < 60 ? MsgId::TimestampIsNegativeLeapSecond
                        : MsgId::NoLeapSecondInserted);
  }

  const DateTime dt(reading, epoch, standard, type);
  // The range test ignores the fraction, and the sum of whole seconds and
  // fraction wraps: a value far from the reading is one that did not fit.
  DateTimeStruct stored = reading;
  if (leap) stored.second -= 1.0;
  if (!(std::fabs(storedMinusReading(dt, stored)) <=
        resolutionSeconds(type, epoch)))
    raise(MsgId::ReadingOutOfStorageRange, {typeArgument(type)});
  if (leap) {
    bool inside = false;
    try {
      const DateTimeStruct back = readingOf(dt);
      inside = back.second >= 60.0 && back.day == reading.day &&
               back.month == reading.month && back.year == reading.year;
    } catch (const IException&) {
      // A flag on a value rounded into the next day does not read back.
    }
    if (!inside) raise(MsgId::LeapSecondLostInStorage, {typeArgument(type)});
  }
  return dt;
}

DateTime Clock::timePointFromCount(double count, TimeStandard standard,
                                   Epoch epoch, const FXP::DataType& type) {
  if (!std::isfinite(count))
    raise(MsgId::StoredCountOutOfRange,
          {MsgArgument(numberText(count)), typeArgument(type)});
  return checkedCount(
      FXP::DataValue::fromDouble(FXP::DataType::doubleT(), count, {}),
      numberText(count), standard, epoch, type);
}

DateTime Clock::timePointFromCount(std::int64_t count, TimeStandard standard,
                                   Epoch epoch, const FXP::DataType& type) {
  return checkedCount(FXP::DataValue::fromInt64(count), std::to_string(count),
                      standard, epoch, type);
}

namespace {

// Whether floor(value) fits the signed 64-bit whole part of the read-back.
bool wholePartFits(const FXP::DataValue& value) {
  const FXP::DataType& type = value.getDataType();
  if (type.isFixed() &&
      type.wordLength() - type.fractionLength() <= (type.isSigned() ? 64 : 63))
    return true;
  // Comparisons are exact across types; both bounds are exact doubles.
  constexpr FXP::DataType d = FXP::DataType::doubleT();
  static const FXP::DataValue kBelow =
      FXP::DataValue::fromDouble(d, -0x1p63, {});
  static const FXP::DataValue kAbove =
      FXP::DataValue::fromDouble(d, 0x1p63, {});
  return kBelow <= value && value < kAbove;
}

}  // namespace

DateTimeStruct Clock::readingOf(const DateTime& timePoint) {
  DateTime exact = timePoint;
  if (DateTimeUtilities::isJulianCompatibleEpoch(timePoint.epoch)) {
    // Read as exact seconds since 1958: the Julian-date read-back rounds
    // its day base up within some microseconds of midnight, and late on 28
    // February of 2100 (and other century years that are not leap years)
    // it finds 29 February and throws.
    // A TDB count reads as a TT count does: the seconds epochs know no
    // TDB offset.
    const TimeStandard standard = timePoint.timeStandard == TimeStandard::TDB
                                      ? TimeStandard::TT
                                      : timePoint.timeStandard;
    FXP::MathControl control =
        FXP::MathControl::createFullPrecisionNearSatMathControl();
    exact = DateTime(
        DvLs{DateTimeConverter::forEpochs(timePoint.epoch, Epoch::Epoch1958)
                 .convertEpochImpl(
                     timePoint.value, timePoint.epoch, Epoch::Epoch1958,
                     standard, FXP::DataType::fixedT(true, 128, 64), control),
             timePoint.isLeapSecond},
        Epoch::Epoch1958, standard);
  }
  // The read-back wraps a whole part beyond 64 bits back near the epoch;
  // such a count lies far beyond the calendar's last year.
  if (!wholePartFits(exact.value))
    kvsvThrowIException(Korvane::DateTime::BadYear());
  DateTimeStruct r = exact.toDateTimeStruct();
  // The exact second is below the limit: 59 plus a fraction a hair below 1
  // rounds to 60 as a double, and the flag adds 1 to that.
  r.second = realSecond(r.second, timePoint.isLeapSecond);
  return r;
}

// ------------------------------------------------------------------- clock

Clock::Clock(std::string_view reading, TimeStandard standard, Epoch epoch,
             const FXP::DataType& type, const LeapSecondYears* schedule)
    : Clock(timePointFrom(reading, refuseTdbStart(standard), epoch, type,
                          schedule),
            type, schedule) {}

Clock::Clock(std::string_view reading, TimeStandard standard, Epoch epoch,
             std::string_view typeName, const LeapSecondYears* schedule)
    : Clock(reading, standard, epoch, StorageTypeName::parse(typeName),
            schedule) {}

Clock::Clock(const DateTimeStruct& reading, TimeStandard standard, Epoch epoch,
             const FXP::DataType& type, const LeapSecondYears* schedule)
    : Clock(timePointFrom(reading, refuseTdbStart(standard), epoch, type,
                          schedule),
            type, schedule) {}

Clock::Clock(const DateTimeStruct& reading, TimeStandard standard, Epoch epoch,
             std::string_view typeName, const LeapSecondYears* schedule)
    : Clock(reading, standard, epoch, StorageTypeName::parse(typeName),
            schedule) {}

Clock::Clock(DateTime start, const FXP::DataType& type,
             const LeapSecondYears* schedule)
    : tai_(start),
      table_(tableFor(start.epoch, type, schedule)),
      j2000Table_(
          tableFor(Epoch::EpochJ2000, FXP::DataType::doubleT(), schedule)) {
  CheckedControl checked(control_);
  tai_ = TimeStandardConverter::convertTimeStandard(start, TimeStandard::TAI,
                                                    table_, checked.control);
  if (checked.overflowed())
    raise(MsgId::ClockReadingOutOfRange,
          {MsgArgument(std::string("TAI")), typeArgument(type)});
  advanceCursor();
}

void Clock::advanceCursor() {
  FXP::MathControl control = control_;
  TimeStandardConverter::findLeapSecondCount(
      tai_.value, table_.baseLeapSecondCount, table_.taiInstants,
      table_.cumulativeCounts, nullptr,
      DateTimeUtilities::isJulianCompatibleEpoch(tai_.epoch), control, &cursor_,
      false);
}

void Clock::step(double seconds) {
  if (!std::isfinite(seconds))
    raise(MsgId::BadClockStep, {MsgArgument(numberText(seconds))});
  DateTime next = tai_;
  FixptRangeMath::FixptRangeMathLogger logger;
  control_.setMathLogger(&logger);
  // add brings the shift into the storage type by the mode alone, where
  // one the type cannot hold saturates unheard and the sum may still fit:
  // the magnitude is tried under the logger first.
  const double magnitude =
      std::fabs(DateTimeUtilities::secondsToTimeShift(seconds, next.epoch));
  (void)FXP::DataValue::fromDouble(FXP::DataType::doubleT(), magnitude,
                                   control_.getMathMode())
      .convert(storageType(), control_);
  next.add(seconds, control_);
  control_.setMathLogger(nullptr);
  if (logger.overflowOccurred())
    raise(MsgId::ClockStepOverflow,
          {MsgArgument(numberText(seconds)), typeArgument(storageType())});
  tai_ = next;
  // The cursor only moves forward; a step back starts the lookup again.
  if (seconds < 0) cursor_ = 0;
  advanceCursor();
}

DateTime Clock::timePoint(TimeStandard standard) const {
  std::uint32_t cursor = cursor_;
  CheckedControl checked(control_);
  DateTime out = tai_;
  switch (standard) {
    case TimeStandard::TAI:
      return tai_;
    case TimeStandard::UTC:
    case TimeStandard::TT:
      out = TimeStandardConverter::convertTimeStandard(
          tai_, standard, table_, checked.control, &cursor);
      break;
    case TimeStandard::TDB: {
      const DateTime days(
          DvLs{DateTimeConverter::forEpochs(tai_.epoch, Epoch::EpochJ2000)
                   .convertEpochImpl(tai_.value, tai_.epoch, Epoch::EpochJ2000,
                                     TimeStandard::TAI,
                                     FXP::DataType::doubleT(), checked.control),
               false},
          Epoch::EpochJ2000, TimeStandard::TAI);
      out = TimeStandardConverter::convertTimeStandard(
          days, TimeStandard::TDB, j2000Table_, checked.control);
      break;
    }
    default:
      throw std::invalid_argument(
          "Clock::timePoint: the time standard is not TAI, UTC, TT or TDB");
  }
  if (checked.overflowed())
    raise(MsgId::ClockReadingOutOfRange,
          {MsgArgument(std::string(DateTimeDefs::timeStandardName(standard))),
           typeArgument(storageType())});
  return out;
}

DateTimeStruct Clock::reading(TimeStandard standard) const {
  return readingOf(timePoint(standard));
}

bool Clock::isLeapSecond() const {
  return timePoint(TimeStandard::UTC).isLeapSecond;
}

DateTimeStruct Clock::roundedReading(TimeStandard standard, int digits) const {
  constexpr std::int64_t kPow10[] = {1,         10,        100,     1000,
                                     10000,     100000,    1000000, 10000000,
                                     100000000, 1000000000};
  const std::int64_t scale = kPow10[digits];
  DateTimeStruct r = reading(standard);
  // [0, 61 * 10^9]: exact in 64 bits, and the product is off by far less
  // than a half digit.
  std::int64_t q = std::llround(r.second * static_cast<double>(scale));
  if (r.second >= 60.0) {
    // Inside an inserted second: never past its last digit.
    q = std::min(q, 61 * scale - 1);
  } else {
    const std::int64_t end =
        minuteLength(r, standard, table_.leapSecondYears) * scale;
    if (q >= end) {
      try {
        r = nextMinute(r);
        q -= end;
      } catch (const IException&) {
        q = end - 1;  // no minute after 9999-12-31 23:59
      }
    }
  }
  // The middle of the last digit: the formatter cuts, and the cut of the
  // middle is the rounded digits whatever the double's error.
  r.second =
      static_cast<double>(q / scale) +
      (static_cast<double>(q % scale) + 0.5) / static_cast<double>(scale);
  return r;
}

std::u16string Clock::formatUtf16(TimeStandard standard,
                                  std::u16string_view pattern) const {
  const int digits = fractionDigitsOf(pattern);
  const DateTimeStruct r =
      digits > 0 ? roundedReading(standard, digits) : reading(standard);
  return DateTimeStructFormatter(r, standard)
      .getFormattedStr(std::u16string(pattern));
}

std::string Clock::format(TimeStandard standard,
                          std::u16string_view pattern) const {
  return resource_core::toUtf8(formatUtf16(standard, pattern));
}

}  // namespace KvDateTime
