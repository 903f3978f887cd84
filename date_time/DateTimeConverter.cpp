#include "date_time/DateTimeConverter.hpp"

#include "date_time/DateTimeUtilities.hpp"

namespace KvDateTime {

namespace {

constexpr double kSecondsPerDay = 86400.0;

// A constant in `type`: the value fromDouble gives under the control's mode,
// but made by a conversion under the control itself, so that a constant the
// type cannot hold (a negative offset in unsigned storage, 86400 in a type
// with few integer bits) is reported to the control's logger like any
// other overflow instead of saturating unheard. A double converts exactly.
FXP::DataValue constantIn(const FXP::DataType& type, double x,
                          FXP::MathControl& control) {
  return FXP::DataValue::fromDouble(FXP::DataType::doubleT(), x,
                                    control.getMathMode())
      .convert(type, control);
}

FXP::DataValue offsetIn(const FXP::DataType& type, Epoch from, Epoch to,
                        TimeStandard ts, FXP::MathControl& control) {
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
  const FXP::DataValue days = value.divideBy(
      d, FXP::DataValue::fromDouble(d, kSecondsPerDay, control.getMathMode()),
      control);
  return days.add(targetType, offsetIn(targetType, from, to, ts, control),
                  control);
}

}  // namespace KvDateTime
