#include "date_time/LeapSecondTableData.hpp"

#include "date_time/ConstantTables.hpp"
#include "date_time/DateTime.hpp"
#include "date_time/DateTimeUtilities.hpp"
#include "host/fxp/MathControl.hpp"

namespace KvDateTime {

namespace {

// Each addition gets a fresh near/saturate control with a logger of its
// own: an overflow saturates rather than wraps, and nothing leaks between
// the additions.
FXP::DataValue plusSeconds(const FXP::DataValue& v, double seconds,
                           Epoch epoch) {
  FixptRangeMath::FixptRangeMathLogger logger;
  FXP::MathControl control =
      FXP::MathControl::createFullPrecisionNearSatMathControl();
  control.setMathLogger(&logger);
  const FXP::DataType& type = v.getDataType();
  const FXP::DataValue shift = FXP::DataValue::fromDouble(
      type, DateTimeUtilities::secondsToTimeShift(seconds, epoch),
      control.getMathMode());
  return v.add(type, shift, control);
}

DateTimeStruct lastRegularSecond(std::int32_t year, double month, double day) {
  return DateTimeStruct::unchecked(year, month, day, 23, 59, 59);
}

}  // namespace

DateTimeStruct LeapSecondTableDataCreator::juneLeapSecondDate(
    std::int32_t year) {
  return lastRegularSecond(year, 6, 30);
}

DateTimeStruct LeapSecondTableDataCreator::decLeapSecondDate(
    std::int32_t year) {
  return lastRegularSecond(year, 12, 31);
}

void LeapSecondTableDataCreator::processLeapSeconds(const DateTimeStruct& date,
                                                    std::int8_t count) {
  if (count == 0) return;
  if (!DateTime::isValueInRangeOfType(date, epoch, TimeStandard::UTC, dataType))
    return;
  const DateTime utc(date, epoch, TimeStandard::UTC, dataType);
  buildUtcContainers(count, utc.value);
}

void LeapSecondTableDataCreator::processJuneLeapSeconds(std::int32_t year,
                                                        std::int8_t count) {
  processLeapSeconds(juneLeapSecondDate(year), count);
}

void LeapSecondTableDataCreator::processDecLeapSeconds(std::int32_t year,
                                                       std::int8_t count) {
  processLeapSeconds(decLeapSecondDate(year), count);
}

void LeapSecondTableDataCreator::buildUtcContainers(
    std::int8_t count, const FXP::DataValue& utcValue) {
  runningCount += count;
  utcInstants.push_back(utcValue);
  cumulativeCounts.push_back(runningCount);
  if (count < 0) negativeLeapSecondInstants.insert(utcValue);
}

void LeapSecondTableDataCreator::constructContainers() {
  for (const auto& [year, counts] : leapSecondYears) {
    processJuneLeapSeconds(year, counts.first);
    processDecLeapSeconds(year, counts.second);
  }
  // previous starts at 0 whatever runningCount started from.
  const bool julian = DateTimeUtilities::isJulianCompatibleEpoch(epoch);
  std::int32_t previous = 0;
  for (std::size_t i = 0; i < utcInstants.size(); ++i) {
    const std::int32_t current = cumulativeCounts[i];
    // An inserted second is reached at 23:59:59 under the old offset, a
    // removed one at 23:59:59 under the new offset.
    const double shift = current > previous ? previous : previous - 1;
    FXP::DataValue tai = plusSeconds(utcInstants[i], shift, epoch);
    if (julian) tai = plusSeconds(tai, 10.0, epoch);
    taiInstants.push_back(tai);
    if (current > previous)
      positiveLeapSecondStarts.insert(plusSeconds(tai, 1.0, epoch));
    previous = current;
  }
}

LeapSecondTableData LeapSecondTableDataCreator::build(
    const LeapSecondYears& years, Epoch epoch, const FXP::DataType& type) {
  LeapSecondTableDataCreator creator;
  creator.leapSecondYears = years;
  creator.epoch = epoch;
  creator.dataType = type;
  creator.constructContainers();
  LeapSecondTableData table;
  table.baseLeapSecondCount = 0;
  table.leapSecondYears = std::move(creator.leapSecondYears);
  table.taiInstants = std::move(creator.taiInstants);
  table.utcInstants = std::move(creator.utcInstants);
  table.cumulativeCounts = std::move(creator.cumulativeCounts);
  table.positiveLeapSecondStarts = std::move(creator.positiveLeapSecondStarts);
  table.negativeLeapSecondInstants =
      std::move(creator.negativeLeapSecondInstants);
  return table;
}

LeapSecondTableData LeapSecondTableDataCreator::build(
    Epoch epoch, const FXP::DataType& type) {
  using detail::kLeapSecondYears;
  using detail::leapSecondSchedule;
  LeapSecondYears years;
  for (int row = 0; row < kLeapSecondYears; ++row) {
    years[static_cast<std::int32_t>(leapSecondSchedule[row])] = {
        static_cast<std::int8_t>(leapSecondSchedule[kLeapSecondYears + row]),
        static_cast<std::int8_t>(
            leapSecondSchedule[2 * kLeapSecondYears + row])};
  }
  return build(years, epoch, type);
}

}  // namespace KvDateTime
