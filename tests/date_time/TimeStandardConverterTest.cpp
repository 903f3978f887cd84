#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <random>

#include "date_time/TimeStandardConverter.hpp"
#include "tests/CountingAllocator.hpp"
#include "tests/TestScale.hpp"
#include "tests/date_time/LeapTestSupport.hpp"
#include "tests/date_time/TestHelpers.hpp"

namespace {

using namespace KvDateTime;
using kvtest::UtcReading;
using TS = TimeStandard;

using kvtest::convert, kvtest::secondsBetween, kvtest::mc;

// Leap seconds between a TAI and a UTC value (day counts carry 10 s more).
double leapCount(const DateTime& tai, const DateTime& utc) {
  return secondsBetween(tai, utc) - (kvtest::dayEpoch(tai.epoch) ? 10 : 0);
}
DateTime at(const UtcReading& r, Epoch e, const FXP::DataType& type) {
  return DateTime(r.calendar(), e, TS::UTC, type);
}

// Against ERFA every 11 hours 1972-2030 and around every leap second, in
// every epoch and storage: the count (in day epochs the old one in the first
// 50 us after a step whose 23:59:59 + 1 s rounds past midnight); TT 32.184 s
// after TAI in day epochs and equal to it in second epochs; UTC back; and no
// allocation. (That a cursor changes no result is fuzz/datetime_fuzz.cpp's.)
TEST(UtcToTai, MatchesErfaInEveryEpochAndStorage) {
  const std::vector<UtcReading> grid = kvtest::utcGrid(11);
  for (Epoch e : kvtest::kAllEpochs)
    for (const kvtest::Storage& s : kvtest::storagesFor(e)) {
      SCOPED_TRACE(testing::Message() << static_cast<int>(e) << ' ' << s.name);
      const LeapSecondTableData t =
          LeapSecondTableDataCreator::build(e, s.type);
      const auto one = FXP::DataValue::fromDouble(s.type, 1 / 86400.0, {});
      std::uint32_t toTai = 0, toUtc = 0;
      const long before = kvtest::allocations.load();
      for (const UtcReading& r : grid) {
        if (s.wholeSecondsOnly && !r.wholeSecond()) continue;
        const DateTime utc = at(r, e, s.type);
        const DateTime tai = convert(utc, TS::TAI, t, &toTai);
        const bool rounds =
            kvtest::dayEpoch(e) && kvtest::justAfterLeapMidnight(r);
        double expected = r.eraLeapCount();
        for (const FXP::DataValue& i : t.utcInstants)
          expected -=
              rounds && i < utc.value && i.add(s.type, one, mc) > utc.value;
        ASSERT_NEAR(leapCount(tai, utc), expected, s.toleranceSeconds)
            << r.year << '-' << r.month << '-' << r.day << " +"
            << r.secondOfDay;
        ASSERT_NEAR(secondsBetween(convert(utc, TS::TT, t), tai),
                    kvtest::dayEpoch(e) ? 32.184 : 0, s.toleranceSeconds);
        // The TAI side rounds 23:59:59 + 2 s alike: no round trip there.
        if (rounds) continue;
        const DateTime back = convert(tai, TS::UTC, t, &toUtc);
        ASSERT_FALSE(back.isLeapSecond);
        ASSERT_NEAR(secondsBetween(back, utc), 0, s.toleranceSeconds);
        if (!s.type.isDouble()) {
          ASSERT_EQ(back.value, utc.value);
        }
      }
      EXPECT_EQ(kvtest::allocations.load() - before, 0);
      EXPECT_EQ(toTai, 27u);
    }
}

// A model's forward cursor gives the bits of the same call without one,
// toward TAI and TT, in every epoch and storage, on the grid and through
// each leap second (flag set there): the cursor's common step is taken
// inline and must not differ from the long way.
TEST(UtcToTai, ACursorGivesTheBitsOfTheCallWithoutOne) {
  const auto bytes = [](const DateTime& dt) {
    std::array<unsigned char, 16> b{};
    dt.value.toCompact(b.data(), b.size());
    return b;
  };
  for (Epoch e : kvtest::kAllEpochs)
    for (const kvtest::Storage& s : kvtest::storagesFor(e)) {
      const LeapSecondTableData t =
          LeapSecondTableDataCreator::build(e, s.type);
      for (TS to : {TS::TAI, TS::TT}) {
        std::uint32_t cursor = 0;
        for (const UtcReading& r : kvtest::utcGrid(13)) {
          if (s.wholeSecondsOnly && r.secondOfDay != std::floor(r.secondOfDay))
            continue;
          const DateTime utc = at(r, e, s.type);
          const DateTime stepped = convert(utc, to, t, &cursor);
          const DateTime plain = convert(utc, to, t);
          ASSERT_EQ(bytes(stepped), bytes(plain))
              << s.name << ' ' << r.year << '-' << r.month << '-' << r.day
              << ' ' << r.secondOfDay;
          ASSERT_EQ(stepped.isLeapSecond, plain.isLeapSecond);
          ASSERT_TRUE(stepped.value.getDataType() == s.type);
        }
        EXPECT_EQ(cursor, t.utcInstants.size()) << s.name;
      }
    }
}

// 23:59:60.5 (23:59:59.5, flag set) is the TAI second between 23:59:59.5
// under the old offset and 00:00:00.5 under the new, and comes back with
// its flag, also through a cursor already past the entry; 1 s later in TAI
// the flag is clear.
TEST(UtcToTai, InsertedSecondMapsBetweenTheOffsetsAndBack) {
  for (Epoch e : kvtest::kAllEpochs)
    for (const kvtest::Storage& s : kvtest::storagesFor(e)) {
      if (s.wholeSecondsOnly) continue;
      const LeapSecondTableData t =
          LeapSecondTableDataCreator::build(e, s.type);
      for (const UtcReading& r : kvtest::leapDays()) {
        SCOPED_TRACE(testing::Message()
                     << s.name << ' ' << r.year << '-' << r.month);
        const DateTime last = at({r.year, r.month, r.day, 86399.5}, e, s.type);
        const DateTime leap = at({r.year, r.month, r.day, 86400.5}, e, s.type);
        ASSERT_TRUE(leap.isLeapSecond);
        DateTime tai = convert(leap, TS::TAI, t);
        EXPECT_NEAR(leapCount(tai, leap), r.eraLeapCount() + 1,
                    s.toleranceSeconds);
        EXPECT_NEAR(secondsBetween(tai, convert(last, TS::TAI, t)), 1,
                    s.toleranceSeconds);
        std::uint32_t cursor = 0;
        for (int pass = 0; pass < 2; ++pass) {
          const DateTime back = convert(tai, TS::UTC, t, &cursor);
          EXPECT_TRUE(back.isLeapSecond);
          EXPECT_NEAR(secondsBetween(back, leap), 0, s.toleranceSeconds);
        }
        tai.add(1.0, mc);
        EXPECT_FALSE(convert(tai, TS::UTC, t).isLeapSecond);
      }
    }
}

// A map removing 23:59:59 of 30 June 2019: that second raises toward every
// standard; its neighbours, half a second clear of midnight where a day
// count's 23:59:59 + 1 s may round past it, convert and come back.
TEST(UtcToTai, RemovedSecondIsRejectedAndItsNeighboursConvert) {
  const FXP::DataType type = FXP::DataType::doubleT();
  for (Epoch e : {Epoch::Epoch1970, Epoch::EpochJ2000}) {
    const LeapSecondTableData t = LeapSecondTableDataCreator::build(
        {{2017, {0, 1}}, {2019, {-1, 0}}}, e, type);
    for (TS to : {TS::TAI, TS::TT, TS::UTC, TS::TDB})
      for (double s : {86399.0, 86399.25, 86399.999})
        if (to != TS::TDB || kvtest::dayEpoch(e)) {
          EXPECT_EQ(kvtest::thrownId([&] {
                      convert(at({2019, 6, 30, s}, e, type), to, t);
                    }),
                    "TimestampIsNegativeLeapSecond");
        }
    for (const UtcReading& r :
         {UtcReading{2019, 6, 30, 86398.5}, {2019, 7, 1, 0.5}}) {
      const DateTime utc = at(r, e, type), tai = convert(utc, TS::TAI, t);
      EXPECT_NEAR(leapCount(tai, utc), r.month == 6 ? 1 : 0, 1e-4);
      EXPECT_NEAR(secondsBetween(convert(tai, TS::UTC, t), utc), 0, 1e-4);
    }
  }
}

// The cursor only moves forward: after 2020, 1990 gets 2020's count;
// holdCursor keeps the cursor's entry; a cursor past the end is the end.
TEST(LeapSecondLookup, StaleCursorKeepsTheLaterCountAndHoldFreezesIt) {
  const FXP::DataType type = FXP::DataType::fixedT(true, 64, 0);
  const LeapSecondTableData t =
      LeapSecondTableDataCreator::build(Epoch::Epoch1970, type);
  const DateTime y1990 = at({1990, 3, 1, 0}, Epoch::Epoch1970, type);
  const DateTime y2020 = at({2020, 3, 1, 0}, Epoch::Epoch1970, type);
  std::uint32_t cursor = 0, held = 5, past = 1000;
  EXPECT_EQ(leapCount(convert(y2020, TS::TAI, t, &cursor), y2020), 27);
  EXPECT_EQ(leapCount(convert(y1990, TS::TAI, t, &cursor), y1990), 27);
  EXPECT_EQ(leapCount(convert(y1990, TS::TAI, t), y1990), 15);
  EXPECT_EQ(leapCount(convert(y2020, TS::TAI, t, &held, true), y2020), 5);
  EXPECT_EQ(held, 5u);
  EXPECT_EQ(leapCount(convert(y1990, TS::TAI, t, &past), y1990), 27);
}

// The prepared conversion against convertTimeStandard, each with a cursor of
// its own, along random chains of a clock: mostly forward by a fraction of
// the gap between entries, sometimes back, onto an entry's instant give or
// take two seconds, to the type's ends, with the flag set, or in another
// standard than the prepared one. Every pair of standards, storage types
// from 8 to 128 bits, unsigned ones among them, tables that remove a second,
// saturate at the type's top or tie at 0 (unsigned, before the epoch), and
// both rounding and overflow modes: same bits, flag, cursor, overflow report
// and error on every step.
TEST(PreparedConversion, MatchesConvertTimeStandardWithACursor) {
  using FXP::DataType;
  struct Table {
    Epoch epoch;
    DataType type;
    bool removesASecond;
  };
  const Table tables[] = {
      {Epoch::Epoch1970, DataType::doubleT(), false},
      {Epoch::EpochMJD, DataType::doubleT(), true},
      {Epoch::Epoch1970, DataType::fixedT(true, 32, 0), false},
      {Epoch::Epoch1900, DataType::fixedT(true, 32, 0), false},  // saturates
      {Epoch::Epoch1970, DataType::fixedT(true, 64, 20), true},
      {Epoch::EpochJ2000, DataType::fixedT(true, 64, 20), false},
      {Epoch::Epoch1958, DataType::fixedT(true, 128, 64), false},
      {Epoch::EpochJD, DataType::fixedT(true, 128, 64), false},
      {Epoch::Epoch1970, DataType::fixedT(false, 64, 20), true},
      {Epoch::EpochJ2000, DataType::fixedT(false, 64, 20), false},  // ties
      {Epoch::Epoch1970, DataType::fixedT(false, 128, 64), false},
      {Epoch::Epoch1900, DataType::fixedT(false, 33, 0), false},
      {Epoch::EpochMJD, DataType::fixedT(true, 8, -9), false},
  };
  const TS standards[] = {TS::UTC, TS::TDB, TS::TAI, TS::TT};
  std::mt19937_64 rng(2026);
  const auto uniform = [&](double lo, double hi) {
    return std::uniform_real_distribution<double>(lo, hi)(rng);
  };
  std::size_t entries = 0, tied = 0;
  for (const Table& c : tables) {
    const LeapSecondTableData t =
        c.removesASecond ? LeapSecondTableDataCreator::build({{1972, {1, 1}},
                                                              {1990, {0, 1}},
                                                              {2015, {-1, 0}},
                                                              {2016, {0, 1}}},
                                                             c.epoch, c.type)
                         : LeapSecondTableDataCreator::build(c.epoch, c.type);
    // A type too narrow for a date leaves its entry out: maybe all of them.
    const bool empty = t.utcInstants.empty();
    for (std::size_t i = 1; i < t.utcInstants.size(); ++i)
      tied += t.utcInstants[i] == t.utcInstants[i - 1];
    entries += t.utcInstants.size();
    const double first = empty ? 0 : t.utcInstants.front().toDouble();
    const double last = empty ? 0 : t.utcInstants.back().toDouble();
    const double second = DateTimeUtilities::secondsToTimeShift(1.0, c.epoch);
    const double gap =
        (last - first) / double(t.utcInstants.size() + 1) + second;
    for (TS from : standards)
      for (TS to : standards) {
        SCOPED_TRACE(testing::Message()
                     << int(c.epoch) << " w" << c.type.wordLength() << " f"
                     << c.type.fractionLength() << " from " << int(from)
                     << " to " << int(to));
        const TimeStandardConverter::PreparedConversion prepared(
            t, from, to, c.epoch, c.type);
        std::uint32_t cursor = 0, expectedCursor = 0;
        const FXP::MathMode mode(int(rng() % 6), int(rng() % 2));
        DateTime clock({FXP::DataValue::fromDouble(c.type, first - gap, mode)},
                       c.epoch, from);
        for (int step = 0; step < kvtest::scaled(600); ++step) {
          const int kind = int(rng() % 20);
          if (kind < 14) {
            clock.add(uniform(0, gap / 3) / second, kvtest::mc);
          } else if (kind < 16) {
            clock.add(-uniform(0, 2 * gap) / second, kvtest::mc);
          } else if (kind < 19 && !empty) {
            const FXP::DataValue& at =
                t.utcInstants[rng() % t.utcInstants.size()];
            clock.value = at.add(
                c.type,
                FXP::DataValue::fromDouble(
                    c.type, double(int(rng() % 9) - 4) * 0.5 * second, mode),
                kvtest::mc);
          } else {
            clock.value = FXP::DataValue::fromDouble(
                c.type, rng() % 2 ? 1e300 : -1e300, mode);
          }
          clock.isLeapSecond = rng() % 10 == 0;
          clock.timeStandard = rng() % 10 == 0 ? standards[rng() % 4] : from;
          FixptRangeMath::FixptRangeMathLogger heard, expectedHeard;
          FXP::MathControl control(mode), expectedControl(mode);
          control.setMathLogger(&heard);
          expectedControl.setMathLogger(&expectedHeard);
          DateTime got = clock, expected = clock;
          const std::string error = kvtest::thrownId(
              [&] { got = prepared.convert(clock, control, cursor); });
          const std::string expectedError = kvtest::thrownId([&] {
            expected = TimeStandardConverter::convertTimeStandard(
                clock, to, t, expectedControl, &expectedCursor);
          });
          ASSERT_EQ(error, expectedError) << step;
          ASSERT_EQ(cursor, expectedCursor) << step;
          ASSERT_EQ(heard.overflowCount(), expectedHeard.overflowCount());
          if (!error.empty()) continue;
          std::array<unsigned char, 16> a{}, b{};
          got.value.toCompact(a.data(), a.size());
          expected.value.toCompact(b.data(), b.size());
          ASSERT_EQ(a, b) << step << ' ' << clock.value.toDecimalString();
          ASSERT_TRUE(got.value.getDataType() == expected.value.getDataType());
          ASSERT_EQ(got.isLeapSecond, expected.isLeapSecond);
          ASSERT_EQ(got.epoch, expected.epoch);
          ASSERT_EQ(got.timeStandard, expected.timeStandard);
        }
      }
  }
  // The tables above do hold entries, ties among them.
  EXPECT_GT(entries, 100u);
  EXPECT_GT(tied, 0u);
}

// TDB is taken as UTC; TT to TAI in a second epoch is the identity. (A flag
// on TAI/TT input, and TDB from a second epoch or fixed point, are refused in
// the bad-input sweep.)
TEST(TimeStandardSelection, TdbAsUtcAndTtAsTai) {
  const FXP::DataType type = FXP::DataType::doubleT();
  const LeapSecondTableData t =
      LeapSecondTableDataCreator::build(Epoch::EpochMJD, type);
  const DateTime utc = at({2017, 3, 1, 43200}, Epoch::EpochMJD, type);
  const DateTime tai = convert(utc, TS::TAI, t);
  const DateTime tdb(utc, Epoch::EpochMJD, TS::TDB);
  EXPECT_EQ(convert(tdb, TS::TAI, t).value, tai.value);
  EXPECT_EQ(convert(tdb, TS::UTC, t).value, utc.value);
  const DateTime tt1970({FXP::DataValue::fromDouble(type, 1e9, {})},
                        Epoch::Epoch1970, TS::TT);
  EXPECT_EQ(convert(tt1970, TS::TAI, t).value, tt1970.value);
}

// Within 10 us of ERFA's full model at the geocentre every 30.5 days
// 1600-2200, from TT and from TAI 32.184 s behind, in the day epochs whose
// offsets to J2000.0 differ; no allocation.
TEST(TdbConversion, AgreesWithErfaFrom1600To2200) {
  const FXP::DataType type = FXP::DataType::doubleT();
  for (const auto& [e, mjd0] : {std::pair{Epoch::EpochMJD, 0.0},
                                std::pair{Epoch::EpochJ2000, 51544.5}}) {
    const LeapSecondTableData t = LeapSecondTableDataCreator::build(e, type);
    double worst = 0;
    const long before = kvtest::allocations.load();
    for (double mjd = -94000; mjd <= 125000; mjd += 30.5)
      for (TS from : {TS::TT, TS::TAI}) {
        const DateTime in({FXP::DataValue::fromDouble(type, mjd - mjd0, {})}, e,
                          from);
        worst = std::max(worst,
                         std::abs(secondsBetween(convert(in, TS::TDB, t), in) -
                                  eraDtdb(2400000.5, mjd, 0, 0, 0, 0) -
                                  (from == TS::TAI ? 32.184 : 0)));
      }
    EXPECT_EQ(kvtest::allocations.load() - before, 0);
    EXPECT_LT(worst, 10e-6) << int(e);
  }
}

}  // namespace
