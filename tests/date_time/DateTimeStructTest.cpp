#include <gtest/gtest.h>

#include <cmath>
#include <type_traits>

#include "TestHelpers.hpp"
#include "date_time/DateTimeStruct.hpp"

namespace {

using KvDateTime::DateTimeStruct;

static_assert(std::is_trivially_copyable_v<DateTimeStruct>);
static_assert(std::is_trivially_copyable_v<KvDateTime::EpochTimeStruct>);

// The empty record is not validated; the date is judged before the time, the
// time under UTC rules, and neither the leap second's position nor the year
// range is the record's concern.
TEST(CalendarRecord, ConstructionThrowsTheFirstProblemDateBeforeTime) {
  const std::pair<std::array<double, 6>, const char*> cases[] = {
      {{0, 0, 0, 0, 0, 0}, ""},
      {{0, 0, 0, 0, 0, std::nan("")}, "BadMonth"},
      {{2024, 13, 1, 25, 0, 0}, "BadMonth"},
      {{2024, 1, 1, 0, 0, 61}, "BadSecondUTC"},
      {{2024, 1, 1, 0, 0, 60.5}, ""},
      {{1300, 1, 1, 0, 0, 0}, ""}};
  for (const auto& [values, id] : cases) {
    EXPECT_EQ(kvtest::thrownId([&] { DateTimeStruct r(values); }), id) << id;
  }
}

}  // namespace
