#include <gtest/gtest.h>

#include "date_time/LeapSecondTableData.hpp"
#include "tests/date_time/LeapTestSupport.hpp"

namespace {

using namespace KvDateTime;

// A removed second is reached on the TAI side at 23:59:59 under the new
// count; a date the storage type cannot hold is skipped with its count.
TEST(LeapSecondTable, YearMapsGiveTheDocumentedContainers) {
  const FXP::DataType s64 = FXP::DataType::fixedT(true, 64, 0);
  const struct {
    LeapSecondYears years;
    FXP::DataType type;
    std::vector<std::int32_t> counts;
    std::vector<double> taiMinusUtc;
    std::size_t positive, negative;
  } cases[] = {
      // clang-format off
      {{{1980, {0, 0}}}, s64, {}, {}, 0, 0},
      {{{1990, {1, 0}}, {1991, {-1, 1}}}, s64, {1, 0, 1}, {0, 0, 0}, 2, 1},
      {{{1990, {-1, 0}}}, s64, {-1}, {-1}, 0, 1},
      {{{1969, {1, 0}}, {1972, {1, 0}}}, FXP::DataType::fixedT(false, 32, 0), {1}, {0}, 1, 0},
      // clang-format on
  };
  for (const auto& c : cases) {
    const LeapSecondTableData t =
        LeapSecondTableDataCreator::build(c.years, Epoch::Epoch1970, c.type);
    EXPECT_EQ(t.leapSecondYears, c.years);
    EXPECT_EQ(t.cumulativeCounts, c.counts);
    ASSERT_EQ(t.taiInstants.size(), c.counts.size());
    for (std::size_t i = 0; i < c.counts.size(); ++i)
      EXPECT_EQ(kvtest::secondsBetween(t.taiInstants[i], t.utcInstants[i],
                                       Epoch::Epoch1970),
                c.taiMinusUtc[i]);
    EXPECT_EQ(t.positiveLeapSecondStarts.size(), c.positive);
    EXPECT_EQ(t.negativeLeapSecondInstants.size(), c.negative);
  }
}

}  // namespace
