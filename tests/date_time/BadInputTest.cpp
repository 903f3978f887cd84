// Public entry points against hostile input: the infinities, the extreme
// doubles, enumerators cast from integers outside their range, bad bytes,
// wrong storage types and epochs. Each gets what its header promises ("" for
// a documented return) and leaves what it failed on as it was. Hostile
// calendar fields are the calendar rule table's and fuzz/calendar_fuzz.cpp's;
// constants beyond an epoch converter's target type, fuzz/datetime_fuzz.cpp's.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>

#include "date_time/DateTime.hpp"
#include "date_time/DateTimeConverter.hpp"
#include "date_time/LeapSecondUtilities.hpp"
#include "date_time/TimeStandardConverter.hpp"
#include "host/typesys/DateTimeDefs.hpp"
#include "tests/date_time/TestHelpers.hpp"

namespace {

using namespace KvDateTime;
using DTU = DateTimeUtilities;
using E = Epoch;
using FXP::DataType, FXP::DataValue, FXP::MathControl, FXP::MathMode;
using TS = TimeStandard;

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr TS kBadStandard = static_cast<TS>(INT32_MAX);
constexpr DataType kDouble = DataType::doubleT();
constexpr DataType kFixed = DataType::fixedT(true, 64, 32);
const DateTimeStruct kCal = DateTimeStruct::unchecked(2024, 3, 5, 7, 8, 9.25);

// Offsets and Sunday shifts of stray epochs are the calendar tests'; here
// the converters and the documented returns of the seconds count.
TEST(BadInput, EnumeratorsOutsideTheirRangeAreNamed) {
  KvTypeSys::DataTypeTable types;
  const std::uint32_t id = types.add(kFixed.getProp());
  MathControl control(MathMode{});
  const DateTime day(kCal, E::EpochMJD, TS::UTC, kDouble);
  const auto convert = [&](E to, std::uint32_t typeId) {
    DateTimeConverter::forEpochs(day.epoch, to)
        .convertAttributes(day, {to, typeId}, &types, control);
  };
  EXPECT_THROW(convert(E::Epoch1970, id + 1), std::out_of_range);
  EXPECT_THROW(convert(static_cast<E>(INT32_MIN), id), std::out_of_range);
  // Counted from 1958 like the day epochs; a stray standard counts as TAI.
  EXPECT_EQ(DTU::calendarToEpochTime(kCal, static_cast<E>(6), TS::TAI),
            DTU::calendarToEpochTime(kCal, E::Epoch1958, TS::TAI));
  EXPECT_EQ(DTU::calendarToEpochTime(kCal, E::Epoch1970, kBadStandard),
            DTU::calendarToEpochTime(kCal, E::Epoch1970, TS::TAI));
}

// Null bytes are refused and leave the time point as it was. An infinite
// shift enters the type by the mode alone and saturates there unheard; from
// the bottom of the type the sum then fits, so no overflow is reported.
TEST(BadInput, NullBytesAndInfiniteShifts) {
  for (const DataType type :
       {DataType::fixedT(false, 7, 0), DataType::fixedT(true, 100, 40)}) {
    DateTime dt(E::Epoch1970, TS::UTC, type);
    dt.isLeapSecond = true;
    const DvLs before = dt;
    EXPECT_THROW(dt.fromCompact(nullptr, false), std::invalid_argument);
    EXPECT_THROW(dt.toCompact(nullptr), std::invalid_argument);
    EXPECT_TRUE(dt.value == before.value && dt.isLeapSecond);
    MathControl control(MathMode{});
    EXPECT_FALSE(dt.addWithOverflowCheck(kInf, control));
    control.setMathLogger(nullptr);  // the call's own logger is gone
    EXPECT_TRUE(dt.value == DataValue::fromDouble(type, kInf, MathMode{}));
    EXPECT_TRUE(dt.isLeapSecond);
  }
}

// The read-back split floors into a signed 64-bit whole part and wraps:
// a count beyond 64 bits reads as the date its low 64 bits give, and an
// unsigned 64-bit count above 2^63 as the date before the epoch that the
// constructor wrapped into it.
TEST(BadInput, WholePartWrapsToSixtyFourBits) {
  const DataValue five = DataValue::fromDouble(kDouble, 5.0, MathMode{});
  const DataValue two64 = DataValue::fromDouble(kDouble, 0x1p64, MathMode{});
  MathControl c(MathMode{});
  const DataType s128 = DataType::fixedT(true, 128, 0);
  for (const DataValue& v :
       {two64.add(s128, five, c),
        DataValue().minus(s128, two64, c).add(s128, five, c)}) {
    const DateTime dt(DvLs{v, false}, E::Epoch1970, TS::UTC);
    EXPECT_EQ(dt.toDateTimeStruct(),
              DateTimeStruct::unchecked(1970, 1, 1, 0, 0, 5));
    EXPECT_EQ(kvtest::idOf(DTU::validateDateTime(dt)), "");
  }
  // 1957-12-31 23:59:00 TAI lies 378691260 s of calendar before 1970, and
  // the 1970 epoch itself 10 s into TAI's 1970-01-01.
  const DataType u64 = DataType::fixedT(false, 64, 0);
  const DateTimeStruct y1957 =
      DateTimeStruct::unchecked(1957, 12, 31, 23, 59, 0);
  const DateTime dt(y1957, E::Epoch1970, TS::TAI, u64);
  std::uint64_t stored = 0;
  dt.toCompact(&stored);
  EXPECT_EQ(stored, std::uint64_t(0) - 378691270u);
  EXPECT_EQ(dt.toDateTimeStruct(), y1957);
  EXPECT_EQ(kvtest::idOf(DTU::validateDateTime(dt)), "");
  EXPECT_EQ(kvtest::idOf(DTU::validateModelDateTime(dt)), "BadYearModelConfig");
}

// The shift enters the storage type by the mode alone, unheard; only the
// sum can report. 2^40 s wraps to 0 in int32, and under saturation it
// becomes the type's top, which a negative count absorbs.
TEST(BadInput, ShiftTheTypeCannotHoldIsNotReported) {
  const DataType s32 = DataType::fixedT(true, 32, 0);
  const struct {
    MathMode mode;
    double start, expected;
  } rows[] = {{MathMode(MathMode::kFloor, MathMode::kWrap), 100, 100},
              {MathMode(MathMode::kNearestTiesUp, MathMode::kSaturate), -100,
               2147483647.0 - 100}};
  for (const auto& r : rows) {
    DateTime dt(DvLs{DataValue::fromDouble(s32, r.start, MathMode{}), false},
                E::Epoch1970, TS::TAI);
    MathControl control(r.mode);
    EXPECT_FALSE(dt.addWithOverflowCheck(0x1p40, control));
    EXPECT_EQ(dt.value.toDouble(), r.expected);
  }
}

// The offset enters the target type by the mode alone: JD to MJD subtracts
// 2400000.5 days, which saturates to 0 in an unsigned type, so the count
// arrives unmoved and the logger, which hears only the sum, stays silent.
TEST(BadInput, ConverterOffsetSaturatesUnheard) {
  const DataType u32 = DataType::fixedT(false, 32, 0);
  const DataValue jd = DataValue::fromDouble(kDouble, 2451545.0, MathMode{});
  MathControl control(MathMode{});
  FixptRangeMath::FixptRangeMathLogger logger;
  control.setMathLogger(&logger);
  const DataValue mjd =
      DateTimeConverter::forEpochs(E::EpochJD, E::EpochMJD)
          .convertEpochImpl(jd, E::EpochJD, E::EpochMJD, TS::TT, u32, control);
  EXPECT_FALSE(logger.overflowOccurred());
  EXPECT_EQ(mjd.toDouble(), 2451545.0);
}

// A refused conversion leaves the caller's cursor as it was, whichever step
// refuses it; pruning refuses what converting the start to UTC or TAI
// refuses. (The shared table is only read: every entry point takes it by
// const reference, and it has no mutable member.)
TEST(BadInput, RefusedConversionsKeepTheCursor) {
  const LeapSecondYears years{{1972, {1, 1}}, {1990, {-1, 0}}, {2016, {0, 1}}};
  const DateTimeStruct late = DateTimeStruct::unchecked(2020, 1, 1, 0, 0, 0);
  const DateTimeStruct removed =
      DateTimeStruct::unchecked(1990, 6, 30, 23, 59, 59.5);
  // clang-format off
  const std::string storage = DateTimeDefs::storageDataTypeName(StorageDataType::SignedFixedPoint);
  const std::string seconds1970 = DateTimeDefs::timePointModeName(TimePointMode::SecondsSince1970);
  const struct { E epoch; DataType type; bool inRemovedSecond, flag; TS from, to; std::string expected; } rows[] = {
      {E::EpochMJD, kFixed, false, false, TS::UTC, TS::TDB, "TDBTSOnlySupportDoubleSDT " + storage},
      {E::Epoch1970, kFixed, false, false, TS::UTC, TS::TDB, "TDBTSOnlySupportJulianDayTU " + seconds1970},
      {E::EpochJD, kDouble, true, false, TS::UTC, TS::TDB, "TimestampIsNegativeLeapSecond"},
      {E::Epoch1958, kFixed, true, false, TS::TDB, TS::UTC, "TimestampIsNegativeLeapSecond"},
      {E::EpochJ2000, kDouble, false, true, TS::TT, TS::TDB, "BadLeapSecondBoolTimeStandard"},
      {E::Epoch1900, kFixed, false, true, TS::TAI, TS::UTC, "BadLeapSecondBoolTimeStandard"},
      {E::Epoch1900, kFixed, false, true, TS::TAI, TS::TT, "BadLeapSecondBoolTimeStandard"}};
  // clang-format on
  for (const auto& r : rows) {
    SCOPED_TRACE(r.expected);
    const LeapSecondTableData table =
        LeapSecondTableDataCreator::build(years, r.epoch, r.type);
    DateTime dt(r.inRemovedSecond ? removed : late, r.epoch, TS::UTC, r.type);
    dt.timeStandard = r.from;
    dt.isLeapSecond = r.flag;
    MathControl control(MathMode{});
    std::uint32_t cursor = 1;
    // The TDB refusals check the epoch before the storage type and name the
    // host's term.
    EXPECT_EQ(kvtest::thrownId(
                  [&] {
                    TimeStandardConverter::convertTimeStandard(
                        dt, r.to, table, control, &cursor);
                  },
                  0),
              r.expected);
    EXPECT_EQ(cursor, 1u);
    if (r.from == TS::UTC) {
      EXPECT_EQ(
          kvtest::thrownId(
              [&] { LeapSecondUtilities::pruneLeapSecondTableData(table, dt); },
              0),
          r.inRemovedSecond ? r.expected : std::string());
    }
  }
}

}  // namespace
