// Cuts a leap-second table down to what a model starting at a given time can
// still meet.
#pragma once

#include "date_time/DateTime.hpp"
#include "date_time/Export.hpp"
#include "date_time/LeapSecondTableData.hpp"

namespace KvDateTime {

class KVDT_EXPORT LeapSecondUtilities {
 public:
  LeapSecondUtilities() = delete;

  // A copy of `table` without the entries whose day's last regular second
  // ends at or before `start`, its base count the total in force at start.
  // `start` may be in any time standard but must have the table's epoch and
  // storage type. The input table is not changed; the diagnostics of
  // converting start to TAI and UTC propagate (a start inside a removed
  // second, say).
  static LeapSecondTableData pruneLeapSecondTableData(
      const LeapSecondTableData& table, const DateTime& start);
};

}  // namespace KvDateTime
