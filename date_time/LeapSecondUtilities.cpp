#include "date_time/LeapSecondUtilities.hpp"

#include <algorithm>
#include <cmath>

#include "date_time/DateTimeUtilities.hpp"
#include "date_time/TimeStandardConverter.hpp"

namespace KvDateTime {

LeapSecondTableData LeapSecondUtilities::pruneLeapSecondTableData(
    const LeapSecondTableData& table, const DateTime& start) {
  FXP::MathControl control = FXP::MathControl::createFullPrecisionMathControl();
  const FXP::DataValue taiStart = TimeStandardConverter::convertTimeStandard(
                                      start, TimeStandard::TAI, table, control)
                                      .value;
  const FXP::DataValue utcStart = TimeStandardConverter::convertTimeStandard(
                                      start, TimeStandard::UTC, table, control)
                                      .value;
  const bool julian = DateTimeUtilities::isJulianCompatibleEpoch(start.epoch);
  const FXP::DataType& type = taiStart.getDataType();
  const FXP::DataValue oneSecond = FXP::DataValue::fromDouble(
      type, DateTimeUtilities::secondsToTimeShift(1.0, julian),
      FXP::MathMode());
  const FXP::DataValue utcLimit = utcStart.minus(type, oneSecond, control);

  LeapSecondTableData pruned = table;
  const double d = taiStart.minus(type, utcStart, control).toDouble();
  // Day epochs carry the constant 10 s of TAI - UTC in their counts.
  pruned.baseLeapSecondCount =
      julian ? static_cast<std::int32_t>(std::round(d * 86400.0 - 10.0))
             : static_cast<std::int32_t>(d);

  const auto firstKept =
      std::find_if(table.utcInstants.begin(), table.utcInstants.end(),
                   [&](const FXP::DataValue& e) { return !(e <= utcLimit); });
  const auto dropped = firstKept - table.utcInstants.begin();
  pruned.utcInstants.erase(pruned.utcInstants.begin(),
                           pruned.utcInstants.begin() + dropped);
  pruned.taiInstants.erase(pruned.taiInstants.begin(),
                           pruned.taiInstants.begin() + dropped);
  pruned.cumulativeCounts.erase(pruned.cumulativeCounts.begin(),
                                pruned.cumulativeCounts.begin() + dropped);
  // The sets are cut at the start itself, the vectors one second earlier.
  pruned.positiveLeapSecondStarts.erase(
      pruned.positiveLeapSecondStarts.begin(),
      pruned.positiveLeapSecondStarts.lower_bound(taiStart));
  pruned.negativeLeapSecondInstants.erase(
      pruned.negativeLeapSecondInstants.begin(),
      pruned.negativeLeapSecondInstants.lower_bound(utcStart));
  return pruned;
}

}  // namespace KvDateTime
