#include "date_time/DateTimeStruct.hpp"

#include "date_time/DateTimeUtilities.hpp"
#include "date_time/diagnostics/Raise.hpp"

namespace KvDateTime {

DateTimeStruct::DateTimeStruct(const std::array<double, 6>& values)
    : year(values[0]),
      month(values[1]),
      day(values[2]),
      hour(values[3]),
      minute(values[4]),
      second(values[5]) {
  // Exact comparison on purpose: a NaN anywhere makes the record non-empty.
  const bool empty = year == 0.0 && month == 0.0 && day == 0.0 && hour == 0.0 &&
                     minute == 0.0 && second == 0.0;
  if (empty) return;
  Korvane::DateTime::throwIfSet(DateTimeUtilities::validateDate(values));
  // UTC is the one standard under which second 60.x can be valid; whether it
  // sits at the end of June or December is judged by the full validators.
  Korvane::DateTime::throwIfSet(
      DateTimeUtilities::validateTime(values, TimeStandard::UTC));
}

}  // namespace KvDateTime
