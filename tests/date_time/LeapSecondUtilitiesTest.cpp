#include <gtest/gtest.h>

#include "date_time/LeapSecondUtilities.hpp"
#include "tests/date_time/LeapTestSupport.hpp"

namespace {

using namespace KvDateTime;
using kvtest::convert;

// From a start before the first leap second everything stays; after a
// leap-second day that day's entry goes and counts; inside an inserted
// second (flag set) the second counts, its entry stays. Every later reading
// converts to TAI and back as with the full table, from a start given in UTC
// or TAI, in every epoch and storage (day counts: away from the first 50 us
// after a step, where the full table keeps the old count by its rounding and
// a base that includes the step does not), except the rest of an inserted
// second the start lies in, which the pruned table puts 1 s later.
TEST(LeapSecondPruning, PrunedTableConvertsLikeTheFullOneAfterTheStart) {
  const std::vector<kvtest::UtcReading> grid = kvtest::utcGrid(37);
  const struct {
    kvtest::UtcReading start;
    std::int32_t base;
    std::size_t entries, positiveStarts;
  } starts[] = {{{1971, 1, 1, 0}, 0, 27, 27},
                {{1985, 7, 1, 0.5}, 13, 14, 14},
                {{2016, 12, 31, 86400.5}, 27, 1, 0},
                {{1972, 6, 30, 86400.25}, 1, 27, 26}};
  for (Epoch e : kvtest::kAllEpochs)
    for (const kvtest::Storage& s : kvtest::storagesFor(e)) {
      SCOPED_TRACE(testing::Message() << static_cast<int>(e) << ' ' << s.name);
      const LeapSecondTableData full =
          LeapSecondTableDataCreator::build(e, s.type);
      for (const auto& c : starts) {
        if (s.wholeSecondsOnly && !c.start.wholeSecond()) continue;
        const DateTime utcStart(c.start.calendar(), e, TimeStandard::UTC,
                                s.type);
        const DateTime taiStart = convert(utcStart, TimeStandard::TAI, full);
        for (const DateTime& start : {utcStart, taiStart}) {
          const LeapSecondTableData p =
              LeapSecondUtilities::pruneLeapSecondTableData(full, start);
          EXPECT_EQ(p.baseLeapSecondCount, c.base) << c.start.year;
          EXPECT_EQ(p.utcInstants.size(), c.entries);
          EXPECT_EQ(p.positiveLeapSecondStarts.size(), c.positiveStarts);
          if (utcStart.isLeapSecond) {
            const DateTime rest(
                kvtest::UtcReading{c.start.year, c.start.month, c.start.day,
                                   (c.start.secondOfDay + 86401) / 2}
                    .calendar(),
                e, TimeStandard::UTC, s.type);
            EXPECT_NEAR(DateTime::subtract(
                            convert(rest, TimeStandard::TAI, p),
                            convert(rest, TimeStandard::TAI, full), kvtest::mc),
                        DateTimeUtilities::secondsToTimeShift(1.0, e),
                        s.toleranceSeconds + 1e-9);
          }
          for (const kvtest::UtcReading& r : grid) {
            if ((s.wholeSecondsOnly && !r.wholeSecond()) ||
                (kvtest::dayEpoch(e) && kvtest::justAfterLeapMidnight(r)))
              continue;
            const DateTime utc(r.calendar(), e, TimeStandard::UTC, s.type);
            // In time order: a flagged start's value is that of 23:59:59.x.
            const DateTime a = convert(utc, TimeStandard::TAI, full);
            if (!(a.value > taiStart.value)) continue;
            ASSERT_EQ(a.value, convert(utc, TimeStandard::TAI, p).value)
                << r.year;
            const DateTime backA = convert(a, TimeStandard::UTC, full);
            const DateTime backB = convert(a, TimeStandard::UTC, p);
            ASSERT_EQ(backA.value, backB.value) << r.year;
            ASSERT_EQ(backA.isLeapSecond, backB.isLeapSecond);
          }
        }
      }
    }
}

// Just below 2^33 s the TAI value of a double start rounds down across the
// power of two: TAI - UTC is 27 s less 2^-20, and the base count, truncated,
// is 26.
TEST(LeapSecondPruning, BaseCountIsTruncatedTowardZero) {
  const FXP::DataType type = FXP::DataType::doubleT();
  const DateTime start(
      {FXP::DataValue::fromDouble(type, 0x1p33 - 10 + 0x1p-20, {})},
      Epoch::Epoch1958, TimeStandard::UTC);
  EXPECT_EQ(
      LeapSecondUtilities::pruneLeapSecondTableData(
          LeapSecondTableDataCreator::build(Epoch::Epoch1958, type), start)
          .baseLeapSecondCount,
      26);
}

}  // namespace
