#include "date_time/DateTime.hpp"

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "date_time/CalendarCore.hpp"
#include "date_time/DateTimeUtilities.hpp"
#include "date_time/FloatingPoint.hpp"
#include "date_time/diagnostics/MessageIds.hpp"
#include "date_time/diagnostics/Raise.hpp"
#include "host/typesys/DataTypeUtils.hpp"

namespace KvDateTime {

namespace {

// The read-back type of the floor split: every storage type's integer part
// of interest fits 64 integer bits, and 64 fraction bits hold any fraction a
// type of up to 128 bits can carry below one unit to within 2^-64.
constexpr FXP::DataType kSplitType = FXP::DataType::fixedT(true, 128, 64);
constexpr FXP::DataType kWholeType = FXP::DataType::fixedT(true, 64, 0);
// Nearest with ties up brings a reading into its storage type; floor with
// wrap splits a value and adds the parts. Built at compile time so that no
// code checking the codes runs per call.
constexpr FXP::MathMode kNearest(FXP::MathMode::kNearestTiesUp,
                                 FXP::MathMode::kSaturate);
constexpr FXP::MathMode kFloorWrap(FXP::MathMode::kFloor, FXP::MathMode::kWrap);

bool isLastSecondOfHalfYear(const DateTimeStruct& cal) {
  const bool halfYearEnd = (cal.month == 6.0 && cal.day == 30.0) ||
                           (cal.month == 12.0 && cal.day == 31.0);
  return cal.second >= 59.0 && halfYearEnd && cal.hour == 23.0 &&
         cal.minute == 59.0;
}

// The value of a second-epoch count: the whole seconds and the fraction
// added in the storage type, under floor and wrap. Whole seconds and the
// fraction travel apart: a double counting seconds since 1900 resolves only
// about half a microsecond today, and fixed-point storage must receive the
// whole seconds exactly.
[[gnu::noinline]] FXP::DataValue sumInType(EpochTimeStruct ets,
                                           const FXP::DataType& type) {
  FXP::MathControl floorWrap(kFloorWrap);
  const FXP::DataValue fraction =
      FXP::DataValue::fromDouble(type, ets.fractionalPart, kNearest);
  // Bringing the whole count into the storage type first (floored and
  // wrapped, as the sum would be) gives the same bits as the mixed-type sum:
  // the fraction value is a multiple of the type's step, so flooring
  // commutes with adding it, and wrapping is modular. A double type rounds
  // the count instead, exactly only up to 2^53, so beyond it the sum is left
  // mixed.
  if (ets.wholePart >= -(std::int64_t{1} << 53) &&
      ets.wholePart <= (std::int64_t{1} << 53))
    return FXP::DataValue::fromInt64(type, ets.wholePart, kFloorWrap)
        .add(type, fraction, floorWrap);
  return FXP::DataValue::fromInt64(ets.wholePart)
      .add(type, fraction, floorWrap);
}

[[gnu::always_inline]] inline FXP::DataValue secondsValue(
    const DateTimeStruct& reading, Epoch epoch, TimeStandard ts,
    const FXP::DataType& type) {
  // calendarToEpochTime, its ordinary readings without a call.
  detail::OrdinaryFields f;
  const EpochTimeStruct ets =
      detail::ordinaryReading(reading.year, reading.month, reading.day,
                              reading.hour, reading.minute, reading.second, f)
          ? detail::epochTimeOf(f, reading.second, epoch, ts)
          : DateTimeUtilities::calendarToEpochTime(reading, epoch, ts);
  // The same sum on the inline fast paths, where they hold. The value stays
  // in registers: the general path gets none of its address.
  if (ets.wholePart >= -(std::int64_t{1} << 53) &&
      ets.wholePart <= (std::int64_t{1} << 53)) {
    FXP::DataValue v =
        FXP::DataValue::fromInt64(type, ets.wholePart, kFloorWrap);
    if (v.tryAddFromDouble(false, ets.fractionalPart, kNearest)) return v;
  }
  return sumInType(ets, type);
}

inline DvLs readingToDvLs(const DateTimeStruct& reading, bool leap, Epoch epoch,
                          TimeStandard ts, const FXP::DataType& type) {
  if (DateTimeUtilities::isJulianCompatibleEpoch(epoch))
    return DvLs{
        FXP::DataValue::fromDouble(
            type, DateTimeUtilities::calendarToJulianDate(reading, epoch, ts),
            kNearest),
        leap};
  return DvLs{secondsValue(reading, epoch, ts, type), leap};
}

[[gnu::noinline]] DvLs leapSecondToDvLs(const DateTimeStruct& cal, Epoch epoch,
                                        TimeStandard ts,
                                        const FXP::DataType& type) {
  DateTimeStruct reading = cal;
  reading.second -= 1.0;
  return readingToDvLs(reading, true, epoch, ts, type);
}

// Inlined into both callers, so that the constructor builds its value in
// place.
inline DvLs toDvLs(const DateTimeStruct& cal, Epoch epoch, TimeStandard ts,
                   const FXP::DataType& type) {
  if (ts == TimeStandard::UTC && cal.second >= 60.0)
    return leapSecondToDvLs(cal, epoch, ts, type);
  return readingToDvLs(cal, false, epoch, ts, type);
}

}  // namespace

DateTime::DateTime(Epoch epoch, TimeStandard ts, const FXP::DataType& type)
    : DvLs{FXP::DataValue::fromDouble(type, 0.0, FXP::MathMode()), false},
      epoch(epoch),
      timeStandard(ts) {}

DateTime::DateTime(const DateTimeStruct& cal, Epoch epoch, TimeStandard ts,
                   const FXP::DataType& type)
    : DvLs(toDvLs(cal, epoch, ts, type)), epoch(epoch), timeStandard(ts) {}

DvLs DateTime::convertDateTimeStructToDV(const DateTimeStruct& cal, Epoch epoch,
                                         TimeStandard ts,
                                         const FXP::DataType& type) {
  return toDvLs(cal, epoch, ts, type);
}

namespace {

// A low word within 2^10 of 2^64 converts to 2^64 as a double; the rest must
// stay below one unit, so it is held at the largest double below 1.
double belowOne(double fraction) {
  constexpr double kLast = 0x1.fffffffffffffp-1;
  return fraction < kLast ? fraction : kLast;
}

// The double split's fast path: where the value's step is at least 2^-64
// nothing is floored away on the way to 64 fraction bits, and the rest, exact
// on that grid, is then rounded once to a double either way. False for the
// magnitudes that need the 128-bit route.
inline bool splitOrdinaryDouble(double d, EpochTimeStruct& split) {
  const double a = std::fabs(d);
  // From 2^-11 up a double's step is at least 2^-63, on the 2^-64 grid;
  // below 2^62 its floor fits the 64-bit whole part with room to spare.
  if (!(d == 0 || (a >= 0x1p-11 && a < 0x1p62))) return false;
  const double whole = detail::fastFloor(d);
  split =
      EpochTimeStruct{static_cast<std::int64_t>(whole), belowOne(d - whole)};
  return true;
}

}  // namespace

EpochTimeStruct DateTime::splitStorageValue(const FXP::DataValue& value) {
  // Fast paths with the same result as the 128-bit route below.
  const FXP::DataType& type = value.getDataType();
  EpochTimeStruct split;
  if (type.isDouble()) {
    if (splitOrdinaryDouble(value.toDouble(), split)) return split;
  } else if (type.wordLength() <= 64 && type.fractionLength() >= 0 &&
             type.fractionLength() < 64) {
    const int f = type.fractionLength();
    const std::array<std::uint32_t, 4> words = value.getFatVal();
    const std::uint64_t bits =
        (static_cast<std::uint64_t>(words[1]) << 32) | words[0];
    // Unsigned words below 64 bits and signed ones are exact as int64; an
    // unsigned 64-bit word above 2^63 shifts as unsigned.
    const std::int64_t whole = type.isSigned()
                                   ? static_cast<std::int64_t>(bits) >> f
                                   : static_cast<std::int64_t>(bits >> f);
    const std::uint64_t rest =
        f == 0 ? 0 : bits & (~std::uint64_t{0} >> (64 - f));
    return EpochTimeStruct{
        whole, belowOne(static_cast<double>(rest) * FXP::detail::pow2(-f))};
  }
  FXP::MathControl floorWrap(kFloorWrap);
  const FXP::DataValue wide = value.convert(kSplitType, floorWrap);
  std::int64_t whole;
  wide.convert(kWholeType, floorWrap).toCompact(&whole, sizeof whole);
  const std::array<std::uint32_t, 4> words = wide.getFatVal();
  const std::uint64_t low =
      (static_cast<std::uint64_t>(words[1]) << 32) | words[0];
  return EpochTimeStruct{whole, belowOne(static_cast<double>(low) * 0x1p-64)};
}

namespace {

// The split a calendar reading starts from. A model's clock in double
// storage takes the first branch, with no type dispatch on the way.
EpochTimeStruct calendarSplit(const FXP::DataValue& value) {
  EpochTimeStruct split;
  if (value.getDataType().isDouble() &&
      splitOrdinaryDouble(value.toDouble(), split)) {
    return split;
  }
  return DateTime::splitStorageValue(value);
}

}  // namespace

DateTimeStruct DateTime::convertDVToDateTimeStruct(const DvLs& valueAndFlag,
                                                   Epoch epoch,
                                                   TimeStandard ts) {
  const FXP::DataValue& value = valueAndFlag.value;
  DateTimeStruct cal =
      DateTimeUtilities::isJulianCompatibleEpoch(epoch)
          ? DateTimeUtilities::julianDateToCalendar(value.toDouble(), epoch, ts)
          : detail::calendarOf(calendarSplit(value), epoch, ts);
  if (!valueAndFlag.isLeapSecond) return cal;
  if (ts != TimeStandard::UTC)
    kvsvThrowIException(Korvane::DateTime::BadLeapSecondBoolTimeStandard());
  // Only the calendar position is judged: whether a second was inserted on
  // that date is the leap-second table's knowledge, not this record's.
  if (!isLastSecondOfHalfYear(cal))
    kvsvThrowIException(Korvane::DateTime::makeMsgId(
        Korvane::DateTime::MsgId::BadLeapSecondBoolTimestamp));
  cal.second += 1.0;
  return cal;
}

DateTimeStruct DateTime::toDateTimeStruct() const {
  return convertDVToDateTimeStruct(*this, epoch, timeStandard);
}

void DateTime::fromCompact(const void* bytes, const bool& isLeapSecond) {
  // Read into a temporary first: a rejected encoding leaves *this as it was.
  const FXP::DataValue read =
      FXP::DataValue::fromCompact(value.getDataType(), bytes);
  const bool flag = isLeapSecond;
  value = read;
  this->isLeapSecond = flag;
}

bool DateTime::toCompact(void* buffer) const {
  value.toCompact(buffer, value.getDataType().sizeofCompact());
  return isLeapSecond;
}

voArrayHandle DateTime::toVoArray() const {
  const fxpDataTypeProp prop = value.getDataTypeProp();
  // No host class holds a 16-byte element: two 64-bit ones carry it.
  const std::vector<std::uint64_t> dims =
      value.getDataType().sizeofCompact() == 16
          ? std::vector<std::uint64_t>{2, 1}
          : std::vector<std::uint64_t>{1};
  voArrayHandle array(voCreateNumericArray(
      dims,
      KvTypeSys::KvDateTimeDataTypeUtils::storageFxpDtProp2voClassID(prop),
      false));
  toCompact(array->data());
  return array;
}

bool DateTime::isValueInRangeOfType(const DateTimeStruct& cal, Epoch epoch,
                                    TimeStandard ts, FXP::DataType type) {
  if (type.isDouble()) return true;
  const std::int64_t w =
      DateTimeUtilities::calendarToEpochTime(cal, epoch, ts).wholePart;
  const int n = type.wordLength() - type.fractionLength();  // integer bits
  // With no integer bit (n <= 0) only a whole part of 0 lies in range.
  if (n <= 0) return w == 0;
  if (type.isSigned()) {
    if (n >= 64) return true;
    const std::int64_t half = std::int64_t{1} << (n - 1);
    return -half <= w && w < half;
  }
  if (w < 0) return false;
  return n >= 64 || static_cast<std::uint64_t>(w) < (std::uint64_t{1} << n);
}

bool DateTime::addWithOverflowCheck(double seconds, FXP::MathControl& control) {
  FixptRangeMath::FixptRangeMathLogger logger;
  control.setMathLogger(&logger);
  add(seconds, control);
  return logger.overflowOccurred();
}

FXP::DataValue DateTime::addedGeneral(FXP::DataValue value, bool back,
                                      double magnitude,
                                      FXP::MathControl& control) {
  const FXP::DataType& type = value.getDataType();
  // The shift is brought into the type by the mode alone: a magnitude the
  // type cannot hold saturates or wraps there unheard, and only the sum
  // below reports to the control's logger.
  const FXP::DataValue step =
      FXP::DataValue::fromDouble(type, magnitude, control.getMathMode());
  return back ? value.minus(type, step, control)
              : value.add(type, step, control);
}

double DateTime::subtract(const DateTime& a, const DateTime& b,
                          FXP::MathControl& control) {
  return a.value.minus(a.value.getDataType(), b.value, control).toDouble();
}

// The time-point overloads of DateTimeUtilities live here rather than beside
// the calendar functions: they are the only part of that class that reads a
// DateTime, and the calendar sources stay free of the storage arithmetic.

int DateTimeUtilities::timestampToDayOfWeek(const DateTime& dt) {
  FXP::MathControl control = FXP::MathControl::createFullPrecisionMathControl();
  const FXP::DataType& type = dt.value.getDataType();
  const double shift = secondsToTimeShift(
      secondsSinceSundayMidnight(dt.epoch, dt.timeStandard), dt.epoch);
  const double sum =
      dt.value
          .add(type,
               FXP::DataValue::fromDouble(type, shift, control.getMathMode()),
               control)
          .toDouble();
  // Day epochs truncate on purpose: no day count before the table's Sunday
  // is expected there.
  const double days = isJulianCompatibleEpoch(dt.epoch)
                          ? std::trunc(sum)
                          : std::floor(sum / 86400.0);
  // The remainder in double: exact, and no cast can overflow for a count
  // beyond 64 bits.
  double r = std::fmod(days, 7.0);  // (-7, 7)
  if (r < 0) r += 7.0;
  return static_cast<int>(r) + 1;
}

namespace {

template <typename Validate>
kvsvDiagnostic validateReading(const DateTime& dt, Validate validate) {
  DateTimeStruct cal;
  try {
    cal = dt.toDateTimeStruct();
  } catch (const foundation::core::except::IException& e) {
    return kvsvCreateDiagnosticFromIException(e, 1);
  }
  return validate(cal.toArray());
}

}  // namespace

kvsvDiagnostic DateTimeUtilities::validateDateTime(const DateTime& dt) {
  return validateReading(dt, [&dt](const CalendarValues& cal) {
    return validateDateTime(cal, dt.timeStandard);
  });
}

kvsvDiagnostic DateTimeUtilities::validateModelDateTime(const DateTime& dt) {
  return validateReading(
      dt, [](const CalendarValues& cal) { return validateModelDateTime(cal); });
}

}  // namespace KvDateTime
