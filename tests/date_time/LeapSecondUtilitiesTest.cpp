#include <gtest/gtest.h>

#include "date_time/LeapSecondUtilities.hpp"
#include "date_time/TimeStandardConverter.hpp"
#include "tests/date_time/LeapTestSupport.hpp"

namespace {

using KvDateTime::DateTime;
using KvDateTime::Epoch;
using KvDateTime::LeapSecondTableData;
using KvDateTime::LeapSecondTableDataCreator;
using KvDateTime::LeapSecondUtilities;
using KvDateTime::TimeStandard;
using KvDateTime::TimeStandardConverter;

struct PruneCase {
  const char* what;
  kvtest::UtcReading start;
  std::int32_t base;
  std::size_t entries, positiveStarts;
};

// A start before the first leap second keeps everything; after the last it
// keeps nothing; at midnight after a leap-second day that day's entry goes
// and its second counts; inside an inserted second (flag set) the second
// already counts while its entry stays.
constexpr PruneCase kPruneCases[] = {
    {"before the first", {1971, 6, 1, 0}, 0, 27, 27},
    {"after the last", {2020, 1, 1, 0}, 27, 0, 0},
    {"midnight after 2016", {2017, 1, 1, 0}, 27, 0, 0},
    {"midnight after 1998", {1999, 1, 1, 0}, 22, 5, 5},
    {"inside 2016's second", {2016, 12, 31, 86400.5}, 27, 1, 0},
    {"inside 1972's first", {1972, 6, 30, 86400.25}, 1, 27, 26},
};

TEST(LeapSecondPruning, GivesTheDocumentedBaseAndContainers) {
  for (Epoch e : {Epoch::Epoch1970, Epoch::Epoch1900}) {
    for (const kvtest::Storage& s : kvtest::storagesFor(e)) {
      const LeapSecondTableData full =
          LeapSecondTableDataCreator::build(e, s.type);
      for (const PruneCase& c : kPruneCases) {
        if (s.wholeSecondsOnly && !c.start.wholeSecond()) continue;
        SCOPED_TRACE(testing::Message()
                     << static_cast<int>(e) << ' ' << s.name << ' ' << c.what);
        const DateTime start(c.start.calendar(), e, TimeStandard::UTC, s.type);
        const LeapSecondTableData p =
            LeapSecondUtilities::pruneLeapSecondTableData(full, start);
        EXPECT_EQ(p.baseLeapSecondCount, c.base);
        ASSERT_EQ(p.utcInstants.size(), c.entries);
        EXPECT_EQ(p.taiInstants.size(), c.entries);
        EXPECT_EQ(p.positiveLeapSecondStarts.size(), c.positiveStarts);
        EXPECT_EQ(p.leapSecondYears, full.leapSecondYears);
        const std::size_t cut = 27 - c.entries;
        EXPECT_TRUE(std::equal(p.utcInstants.begin(), p.utcInstants.end(),
                               full.utcInstants.begin() + cut));
        EXPECT_TRUE(std::equal(p.cumulativeCounts.begin(),
                               p.cumulativeCounts.end(),
                               full.cumulativeCounts.begin() + cut));
      }
    }
  }
}

// Every reading after the start converts to TAI and back exactly as with
// the full table, from starts in any standard, in every epoch and storage
// (day counts: away from the first 50 us after a step).
TEST(LeapSecondPruning, PrunedTableConvertsLikeTheFullOneAfterTheStart) {
  const std::vector<kvtest::UtcReading> grid = kvtest::utcGrid(37);
  const kvtest::UtcReading starts[] = {
      {1971, 1, 1, 0}, {1985, 7, 1, 0.5}, {2016, 12, 31, 86400.5}};
  for (Epoch e : kvtest::kAllEpochs) {
    for (const kvtest::Storage& s : kvtest::storagesFor(e)) {
      SCOPED_TRACE(testing::Message() << static_cast<int>(e) << ' ' << s.name);
      const LeapSecondTableData full =
          LeapSecondTableDataCreator::build(e, s.type);
      for (const kvtest::UtcReading& sr : starts) {
        if (s.wholeSecondsOnly && !sr.wholeSecond()) continue;
        const DateTime utcStart(sr.calendar(), e, TimeStandard::UTC, s.type);
        FXP::MathControl mc =
            FXP::MathControl::createFullPrecisionMathControl();
        const DateTime taiStart = TimeStandardConverter::convertTimeStandard(
            utcStart, TimeStandard::TAI, full, mc);
        // The host may give the start in TAI as well.
        for (const DateTime& start : {utcStart, taiStart}) {
          const LeapSecondTableData p =
              LeapSecondUtilities::pruneLeapSecondTableData(full, start);
          for (const kvtest::UtcReading& r : grid) {
            if (s.wholeSecondsOnly && !r.wholeSecond()) continue;
            const DateTime utc(r.calendar(), e, TimeStandard::UTC, s.type);
            if (!(utc.value > utcStart.value)) continue;
            // There the full table keeps the old count by its rounding
            // while a base that already includes the step does not.
            if (kvtest::dayEpoch(e) && kvtest::justAfterLeapMidnight(r))
              continue;
            const DateTime a = TimeStandardConverter::convertTimeStandard(
                utc, TimeStandard::TAI, full, mc);
            const DateTime b = TimeStandardConverter::convertTimeStandard(
                utc, TimeStandard::TAI, p, mc);
            ASSERT_EQ(a.value, b.value) << r.year << '-' << r.month;
            const DateTime backA = TimeStandardConverter::convertTimeStandard(
                a, TimeStandard::UTC, full, mc);
            const DateTime backB = TimeStandardConverter::convertTimeStandard(
                a, TimeStandard::UTC, p, mc);
            ASSERT_EQ(backA.value, backB.value) << r.year << '-' << r.month;
            ASSERT_EQ(backA.isLeapSecond, backB.isLeapSecond);
          }
        }
      }
    }
  }
}

TEST(LeapSecondPruning, StartInsideARemovedSecondPropagates) {
  const FXP::DataType type = FXP::DataType::fixedT(true, 64, 0);
  const LeapSecondTableData t = LeapSecondTableDataCreator::build(
      {{2019, {0, -1}}}, Epoch::Epoch1958, type);
  const DateTime start(kvtest::handFilled(2019, 12, 31, 23, 59, 59),
                       Epoch::Epoch1958, TimeStandard::UTC, type);
  EXPECT_EQ(kvtest::thrownId([&] {
              LeapSecondUtilities::pruneLeapSecondTableData(t, start);
            }),
            "TimestampIsNegativeLeapSecond");
}

}  // namespace
