// The leap-second table: every leap second as an instant on the UTC side and
// on the TAI side, already in the storage type and epoch of the time points
// it serves, with the running total of leap seconds after each entry.
//
// A built table is never changed by any conversion: the converters and the
// pruning take it by const reference and pruning returns a new table. One
// table can therefore be shared by many threads, each stepping its own
// lookup cursor.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "date_time/DateTimeStruct.hpp"
#include "date_time/Export.hpp"
#include "host/fxp/DataType.hpp"
#include "host/fxp/DataValue.hpp"
#include "host/typesys/DateTimeEnums.hpp"

namespace KvDateTime {

// Year -> seconds inserted at the end of 30 June and of 31 December; +1
// inserts a second (23:59:60), -1 removes 23:59:59, 0 does nothing.
using LeapSecondYears =
    std::map<std::int32_t, std::pair<std::int8_t, std::int8_t>>;

// Threads: once built, only read (see above); share it by const reference.
struct KVDT_EXPORT LeapSecondTableData {
  // Leap seconds in force before the first entry; lookups start from it.
  std::int32_t baseLeapSecondCount = 0;
  LeapSecondYears leapSecondYears;
  // Parallel, ascending: for entry i, where it is reached on the TAI side,
  // the UTC 23:59:59 of the day it ends, and the total after it.
  std::vector<FXP::DataValue> taiInstants;
  std::vector<FXP::DataValue> utcInstants;
  std::vector<std::int32_t> cumulativeCounts;
  // TAI instants at which an inserted 23:59:60 begins.
  std::set<FXP::DataValue> positiveLeapSecondStarts;
  // UTC 23:59:59 of the days that lose that second.
  std::set<FXP::DataValue> negativeLeapSecondInstants;
};

// Builds the containers of a LeapSecondTableData from a year map. Its owner
// fills the year map, epoch, storage type and start count, then calls
// constructContainers() once (a second call appends every entry again).
//
// Threads: a creator is filled and used by one thread; the static build
// functions share nothing and may run on several threads at once.
class KVDT_EXPORT LeapSecondTableDataCreator {
 public:
  LeapSecondYears leapSecondYears;
  Epoch epoch = Epoch::Epoch1970;
  FXP::DataType dataType;
  std::vector<FXP::DataValue> taiInstants;
  std::vector<FXP::DataValue> utcInstants;
  std::vector<std::int32_t> cumulativeCounts;
  std::set<FXP::DataValue> positiveLeapSecondStarts;
  std::set<FXP::DataValue> negativeLeapSecondInstants;
  std::int32_t runningCount = 0;

  // year-06-30 23:59:59 and year-12-31 23:59:59.
  static DateTimeStruct juneLeapSecondDate(std::int32_t year);
  static DateTimeStruct decLeapSecondDate(std::int32_t year);

  // Appends the half-year's entry unless count is 0 or the date does not
  // fit the storage type; a skipped date's count is not added to the
  // running total either, so later totals are smaller by it.
  void processJuneLeapSeconds(std::int32_t year, std::int8_t count);
  void processDecLeapSeconds(std::int32_t year, std::int8_t count);
  void buildUtcContainers(std::int8_t count, const FXP::DataValue& utcValue);
  // Fixed-point errors of the host propagate; what was built stays.
  void constructContainers();

  // The table of the library's leap-second schedule (27 inserted seconds
  // from 1972 to 2016) for `epoch` and `type`, base count 0.
  static LeapSecondTableData build(Epoch epoch, const FXP::DataType& type);
  // The table of any year map, negative counts included, base count 0.
  static LeapSecondTableData build(const LeapSecondYears& years, Epoch epoch,
                                   const FXP::DataType& type);

 private:
  void processLeapSeconds(const DateTimeStruct& date, std::int8_t count);
};

}  // namespace KvDateTime
