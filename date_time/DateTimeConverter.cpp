#include "date_time/DateTimeConverter.hpp"

#include "date_time/DateTimeUtilities.hpp"

namespace KvDateTime {

namespace {

constexpr double kSecondsPerDay = 86400.0;

// The offset and the day length enter their types by the control's mode
// alone, outside the control: one that the type cannot hold (a negative
// offset in unsigned storage, 86400 in a type with few integer bits)
// saturates or wraps unheard, and the logger hears only the arithmetic.
FXP::DataValue constantIn(const FXP::DataType& type, double x,
                          const FXP::MathControl& control) {
  return FXP::DataValue::fromDouble(type, x, control.getMathMode());
}

FXP::DataValue offsetIn(const FXP::DataType& type, Epoch from, Epoch to,
                        TimeStandard ts, const FXP::MathControl& control) {
  return constantIn(type, DateTimeUtilities::getEpochOffset(from, to, ts),
                    control);
}

}  // namespace

DateTime DateTimeConverter::convertAttributes(
    const DateTime& dt, const DateTimeTypeAttribs& attribs,
    const KvTypeSys::DataTypeTable* table, FXP::MathControl& control) const {
  const FXP::DataType target(table->at(attribs.dataTypeId + 1));
  const FXP::DataValue v =
      convertEpochImpl(dt.value, dt.epoch, attribs.targetEpoch, dt.timeStandard,
                       target, control);
  return DateTime(DvLs{v, dt.isLeapSecond}, attribs.targetEpoch,
                  dt.timeStandard);
}

const DateTimeConverter& DateTimeConverter::forEpochs(Epoch from,
                                                      Epoch to) noexcept {
  static const DateTimeConverterSameEpoch same;
  static const DateTimeConverterJD2JD jd2jd;
  static const DateTimeConverterSec2Sec sec2sec;
  static const DateTimeConverterJD2Sec jd2sec;
  static const DateTimeConverterSec2JD sec2jd;
  if (from == to) return same;
  const bool daysFrom = DateTimeUtilities::isJulianCompatibleEpoch(from);
  const bool daysTo = DateTimeUtilities::isJulianCompatibleEpoch(to);
  if (daysFrom)
    return daysTo ? static_cast<const DateTimeConverter&>(jd2jd) : jd2sec;
  return daysTo ? static_cast<const DateTimeConverter&>(sec2jd) : sec2sec;
}

FXP::DataValue DateTimeConverterSameEpoch::convertEpochImpl(
    const FXP::DataValue& value, Epoch, Epoch, TimeStandard,
    const FXP::DataType& targetType, FXP::MathControl& control) const {
  return value.convert(targetType, control);
}

// The day-to-day offset is quantised to the target type first, while the
// seconds-to-seconds one stays a double until the sum. Both are deliberate:
// a conversion must keep giving the values it has given before.
FXP::DataValue DateTimeConverterJD2JD::convertEpochImpl(
    const FXP::DataValue& value, Epoch from, Epoch to, TimeStandard ts,
    const FXP::DataType& targetType, FXP::MathControl& control) const {
  return value.add(targetType, offsetIn(targetType, from, to, ts, control),
                   control);
}

FXP::DataValue DateTimeConverterSec2Sec::convertEpochImpl(
    const FXP::DataValue& value, Epoch from, Epoch to, TimeStandard ts,
    const FXP::DataType& targetType, FXP::MathControl& control) const {
  return value.add(targetType,
                   offsetIn(FXP::DataType::doubleT(), from, to, ts, control),
                   control);
}

// Between the families the offset is added on the day side: before scaling
// to seconds here, after scaling from seconds in Sec2JD.
FXP::DataValue DateTimeConverterJD2Sec::convertEpochImpl(
    const FXP::DataValue& value, Epoch from, Epoch to, TimeStandard ts,
    const FXP::DataType& targetType, FXP::MathControl& control) const {
  const FXP::DataType d = FXP::DataType::doubleT();
  const FXP::DataValue days =
      value.add(d, offsetIn(d, from, to, ts, control), control);
  return days.multiplyBy(
      targetType, constantIn(targetType, kSecondsPerDay, control), control);
}

FXP::DataValue DateTimeConverterSec2JD::convertEpochImpl(
    const FXP::DataValue& value, Epoch from, Epoch to, TimeStandard ts,
    const FXP::DataType& targetType, FXP::MathControl& control) const {
  const FXP::DataType d = FXP::DataType::doubleT();
  const FXP::DataValue days =
      value.divideBy(d, constantIn(d, kSecondsPerDay, control), control);
  return days.add(targetType, offsetIn(targetType, from, to, ts, control),
                  control);
}

}  // namespace KvDateTime
