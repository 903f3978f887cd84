// Cuts a leap-second table down to what a model starting at a given time can
// still meet.
#pragma once

#include "date_time/DateTime.hpp"
#include "date_time/Export.hpp"
#include "date_time/LeapSecondTableData.hpp"

namespace KvDateTime {

// Threads: pruning only reads its table and start, so many threads may prune
// one shared table at once.
class KVDT_EXPORT LeapSecondUtilities {
 public:
  LeapSecondUtilities() = delete;

  // A copy of `table` without the entries whose day's last regular second
  // ends at or before `start`, its base count the total in force at start.
  // `start` may be in any time standard but must have the table's epoch and
  // storage type. The input table is not changed; the diagnostics of
  // converting start to TAI and UTC propagate (a start inside a removed
  // second, say).
  //
  // Later instants convert as with the full table, with one exception: a
  // start inside an inserted second (UTC 23:59:60.x, flag set). Such a
  // start converts to TAI with the old total + 1, so the base count already
  // includes that second, while the second's entry is kept (its 23:59:59 is
  // not at or before start - 1 s). Until the value reaches that entry's
  // 23:59:59 + 1 s as summed in the storage type, a lookup in the pruned
  // table therefore returns the new total where the full table returns the
  // old one:
  // - the rest of that inserted second (23:59:60.y, y > x, flag set)
  //   converts to TAI, TT and TDB 1 s later than with the full table, and
  //   TAI instants in it come back to UTC as 23:59:59.y without the flag;
  // - in the day epochs, where that sum can round past midnight (by up to
  //   some tens of microseconds), UTC readings in that sliver after
  //   midnight take the new total, which the full table does not yet give.
  // From that sum on, both tables agree. The base count and the cut are the
  // contract, so this is kept; the LeapSecondPruning test pins it.
  //
  // In the second epochs the base count is TAI - UTC at start truncated
  // toward zero. With double storage that difference can fall just short of
  // a whole number where start + count crosses a power of two and rounds
  // down (e.g. 26.999999 s just below 2^33 s since 1958): the base count is
  // then one less, and the pruned table converts a second short.
  static LeapSecondTableData pruneLeapSecondTableData(
      const LeapSecondTableData& table, const DateTime& start);
};

}  // namespace KvDateTime
