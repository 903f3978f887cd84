#include <gtest/gtest.h>

#include <limits>
#include <type_traits>

#include "TestHelpers.hpp"
#include "date_time/DateTimeStruct.hpp"

namespace {

using KvDateTime::DateTimeStruct;

static_assert(std::is_trivially_copyable_v<DateTimeStruct>);
static_assert(std::is_trivially_copyable_v<KvDateTime::EpochTimeStruct>);

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(CalendarRecord, ConstructionThrowsTheFirstProblemDateBeforeTime) {
  struct Case {
    std::array<double, 6> values;
    const char* id;
  };
  const Case cases[] = {
      {{0, 0, 0, 0, 0, 0}, ""},            // the empty record: not validated
      {{kNaN, 0, 0, 0, 0, 0}, "BadYear"},  // a NaN is not "all zero"
      {{0, 0, 0, 0, 0, kNaN}, "BadMonth"},
      {{2024, 13, 1, 25, 0, 0}, "BadMonth"},  // date reported before time
      {{2024, 1, 1, 24, 0, 0}, "BadHour"},
      {{2024, 1, 1, 0, 0, 61}, "BadSecondUTC"},  // judged under UTC rules
      {{2024, 1, 1, 0, 0, 60.5}, ""},  // position is not the record's concern
      {{1300, 1, 1, 0, 0, 0}, ""},     // nor is the year range
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.id);
    EXPECT_EQ(kvtest::thrownId([&] { DateTimeStruct r(c.values); }), c.id);
  }
}

}  // namespace
