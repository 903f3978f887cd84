#include <gtest/gtest.h>

#include "date_time/LeapSecondTableData.hpp"
#include "tests/date_time/LeapTestSupport.hpp"

namespace {

using KvDateTime::DateTime;
using KvDateTime::Epoch;
using KvDateTime::LeapSecondTableData;
using KvDateTime::LeapSecondTableDataCreator;
using KvDateTime::TimeStandard;

double seconds(const FXP::DataValue& a, const FXP::DataValue& b, Epoch e) {
  FXP::MathControl mc = FXP::MathControl::createFullPrecisionMathControl();
  const double d = a.minus(a.getDataType(), b, mc).toDouble();
  return kvtest::dayEpoch(e) ? d * 86400.0 : d;
}

FXP::DataValue utcValue(int y, int m, int d, double s, Epoch e,
                        const FXP::DataType& t) {
  return DateTime(kvtest::handFilled(y, m, d, 23, 59, s), e, TimeStandard::UTC,
                  t)
      .value;
}

// Every epoch and storage type: the entries sit on the announced leap-second
// days, and the TAI side is reached at 23:59:59 under the old offset (plus
// the 10 s that day counts carry), the inserted second one second later.
TEST(LeapSecondTable, ScheduleMatchesAnnouncedLeapSecondsInEveryStorage) {
  const auto days = kvtest::announcedLeapDays();
  ASSERT_EQ(days.size(), 27u);
  for (Epoch e : kvtest::kAllEpochs) {
    for (const kvtest::Storage& s : kvtest::storagesFor(e)) {
      SCOPED_TRACE(testing::Message() << static_cast<int>(e) << ' ' << s.name);
      const LeapSecondTableData t =
          LeapSecondTableDataCreator::build(e, s.type);
      EXPECT_EQ(t.baseLeapSecondCount, 0);
      EXPECT_EQ(t.leapSecondYears.size(), 26u);
      ASSERT_EQ(t.utcInstants.size(), 27u);
      ASSERT_EQ(t.taiInstants.size(), 27u);
      EXPECT_EQ(t.positiveLeapSecondStarts.size(), 27u);
      EXPECT_TRUE(t.negativeLeapSecondInstants.empty());
      const double tol = s.toleranceSeconds;
      auto start = t.positiveLeapSecondStarts.begin();
      for (std::size_t i = 0; i < 27; ++i, ++start) {
        EXPECT_EQ(t.cumulativeCounts[i], static_cast<int>(i) + 1);
        EXPECT_EQ(t.utcInstants[i], utcValue(days[i].year, days[i].month,
                                             days[i].day, 59, e, s.type));
        const double shift =
            static_cast<double>(i) + (kvtest::dayEpoch(e) ? 10 : 0);
        EXPECT_NEAR(seconds(t.taiInstants[i], t.utcInstants[i], e), shift, tol);
        EXPECT_NEAR(seconds(*start, t.taiInstants[i], e), 1.0, tol);
      }
    }
  }
}

struct YearMapCase {
  const char* what;
  KvDateTime::LeapSecondYears years;
  FXP::DataType type;
  std::vector<std::int32_t> counts;
  std::vector<double> taiMinusUtc;  // seconds, per entry
  std::size_t positiveStarts, negativeInstants;
};

TEST(LeapSecondTable, YearMapsGiveTheDocumentedContainers) {
  const FXP::DataType s64 = FXP::DataType::fixedT(true, 64, 0);
  const FXP::DataType u32 = FXP::DataType::fixedT(false, 32, 0);
  const YearMapCase cases[] = {
      {"empty map", {}, s64, {}, {}, 0, 0},
      {"zero counts add nothing", {{1980, {0, 0}}}, s64, {}, {}, 0, 0},
      // A removed second is reached at 23:59:59 under the new offset.
      {"negative June",
       {{1990, {1, 0}}, {1991, {-1, 1}}},
       s64,
       {1, 0, 1},
       {0, 0, 0},
       2,
       1},
      {"negative first", {{1990, {-1, 0}}}, s64, {-1}, {-1}, 0, 1},
      // 1969 does not fit an unsigned count from 1970: skipped, and the
      // later total is smaller by it.
      {"unrepresentable skipped",
       {{1969, {1, 0}}, {1972, {1, 0}}},
       u32,
       {1},
       {0},
       1,
       0},
  };
  for (const YearMapCase& c : cases) {
    SCOPED_TRACE(c.what);
    const LeapSecondTableData t =
        LeapSecondTableDataCreator::build(c.years, Epoch::Epoch1970, c.type);
    EXPECT_EQ(t.leapSecondYears, c.years);
    EXPECT_EQ(t.cumulativeCounts, c.counts);
    ASSERT_EQ(t.taiInstants.size(), c.counts.size());
    for (std::size_t i = 0; i < c.counts.size(); ++i)
      EXPECT_EQ(seconds(t.taiInstants[i], t.utcInstants[i], Epoch::Epoch1970),
                c.taiMinusUtc[i]);
    EXPECT_EQ(t.positiveLeapSecondStarts.size(), c.positiveStarts);
    EXPECT_EQ(t.negativeLeapSecondInstants.size(), c.negativeInstants);
    for (const FXP::DataValue& v : t.negativeLeapSecondInstants)
      EXPECT_NE(std::find(t.utcInstants.begin(), t.utcInstants.end(), v),
                t.utcInstants.end());
  }
}

TEST(LeapSecondTable, DayEpochFirstInsertionIsTenSecondsOnTheTaiSide) {
  const LeapSecondTableData t = LeapSecondTableDataCreator::build(
      {{1972, {1, 0}}}, Epoch::EpochMJD, FXP::DataType::fixedT(true, 128, 64));
  ASSERT_EQ(t.taiInstants.size(), 1u);
  EXPECT_NEAR(seconds(t.taiInstants[0], t.utcInstants[0], Epoch::EpochMJD),
              10.0, 1e-12);
  EXPECT_NEAR(seconds(*t.positiveLeapSecondStarts.begin(), t.utcInstants[0],
                      Epoch::EpochMJD),
              11.0, 1e-12);
}

}  // namespace
