// Public entry points against hostile input: NaN, the infinities, the extreme
// doubles, enumerators cast from integers outside their range, bad bytes,
// wrong storage types and epochs. Each gets what its header promises ("" for
// a documented return) and leaves what it failed on as it was.
#include <gtest/gtest.h>

#include <array>
#include <cfloat>
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
using FXP::DataType;
using FXP::DataValue;
using FXP::MathControl;
using FXP::MathMode;
using kvtest::handFilled;
using TS = TimeStandard;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kHostile[] = {kNan,    kInf,     -kInf,
                               DBL_MAX, -DBL_MAX, DBL_TRUE_MIN};
constexpr TS kBadStandard = static_cast<TS>(INT32_MAX);
constexpr DataType kDouble = DataType::doubleT();
constexpr DataType kFixed = DataType::fixedT(true, 64, 32);
const DateTimeStruct kCal = handFilled(2024, 3, 5, 7, 8, 9.25);

// The library's Id, the kind of standard exception, or "" for a return.
template <typename F>
std::string outcome(F&& f) {
  try {
    f();
  } catch (const foundation::core::except::IException& e) {
    return kvtest::idPart(e.identifier());
  } catch (const std::out_of_range&) {
    return "out_of_range";
  } catch (const std::invalid_argument&) {
    return "invalid_argument";
  } catch (const std::exception& e) {
    return std::string("unexpected ") + e.what();
  }
  return "";
}

// Per field, the Id validateDateTime gives kHostile[k] when bit k is set; the
// others pass: a NaN second (only its bounds are compared), and a day of
// +inf or DBL_MAX, 0 in 16 bits, which the date library then refuses.
struct FieldVerdict {
  int field;
  const char* id;
  unsigned mask;
};
constexpr FieldVerdict kFields[] = {
    {0, "BadYear", 077}, {1, "BadMonth", 077},  {2, "BadDayOfMonth", 065},
    {3, "BadHour", 077}, {4, "BadMinute", 077}, {5, "BadSecond", 036}};

TEST(BadInput, CalendarFieldsGetTheirNamedDiagnostic) {
  for (const FieldVerdict& f : kFields)
    for (int k = 0; k < 6; ++k) {
      SCOPED_TRACE(testing::Message() << f.id << " " << kHostile[k]);
      std::array<double, 6> a = kCal.toArray();
      a[f.field] = kHostile[k];
      const DateTimeStruct cal = handFilled(a[0], a[1], a[2], a[3], a[4], a[5]);
      const std::string id = f.mask >> k & 1 ? f.id : "";
      EXPECT_EQ(kvtest::idOf(DTU::validateDateTime(a, TS::TAI)), id);
      EXPECT_EQ(outcome([&] { DateTime(cal, E::Epoch1970, TS::TAI, kFixed); }),
                f.field == 2 && id.empty() ? "out_of_range" : id);
      EXPECT_EQ(outcome([&] { DateTime(cal, E::EpochMJD, TS::TAI, kDouble); }),
                id);
    }
  // The inverse validates what it computed: a huge date fails on its month.
  for (int k = 0; k < 6; ++k)
    EXPECT_EQ(outcome([&] {
                DTU::julianDateToCalendar(kHostile[k], E::EpochJD, TS::UTC);
              }),
              k == 3 || k == 4 ? "BadMonth" : "BadYear");
}

TEST(BadInput, EnumeratorsOutsideTheirRangeAreNamed) {
  KvTypeSys::DataTypeTable types;
  const std::uint32_t id = types.add(kFixed.getProp());
  MathControl control(MathMode{});
  const DateTime day(kCal, E::EpochMJD, TS::UTC, kDouble);
  const auto convert = [&](E to, std::uint32_t typeId) {
    return outcome([&] {
      DateTimeConverter::forEpochs(day.epoch, to)
          .convertAttributes(day, {to, typeId}, &types, control);
    });
  };
  EXPECT_EQ(convert(E::Epoch1970, id + 1), "out_of_range");
  for (const E bad :
       {static_cast<E>(6), static_cast<E>(-1), static_cast<E>(INT32_MIN)}) {
    SCOPED_TRACE(static_cast<int>(bad));
    EXPECT_EQ(outcome([&] { DTU::getEpochOffset(bad, E::EpochJD, TS::TAI); }),
              "out_of_range");
    EXPECT_EQ(convert(bad, id), "out_of_range");
    // Documented returns: counted from 1958 like the day epochs; no Sunday.
    EXPECT_EQ(DTU::calendarToEpochTime(kCal, bad, TS::TAI),
              DTU::calendarToEpochTime(kCal, E::Epoch1958, TS::TAI));
    EXPECT_EQ(DTU::secondsSinceSundayMidnight(bad, TS::TAI), 0.0);
  }
  EXPECT_EQ(DTU::calendarToEpochTime(kCal, E::Epoch1970, kBadStandard),
            DTU::calendarToEpochTime(kCal, E::Epoch1970, TS::TAI));
}

// Null bytes are refused and leave the time point as it was; an infinite
// shift ends at the type's top and says so, even from the bottom of an
// unsigned type, where the sum itself fits.
TEST(BadInput, NullBytesAndInfiniteShifts) {
  for (const DataType type :
       {DataType::fixedT(false, 7, 0), DataType::fixedT(true, 100, 40)}) {
    DateTime dt(E::Epoch1970, TS::UTC, type);
    dt.isLeapSecond = true;
    const DvLs before = dt;
    EXPECT_EQ(outcome([&] { dt.fromCompact(nullptr, false); }),
              "invalid_argument");
    EXPECT_TRUE(dt.value == before.value && dt.isLeapSecond);
    MathControl control(MathMode{});
    EXPECT_TRUE(dt.addWithOverflowCheck(kInf, control));
    control.setMathLogger(nullptr);  // the call's own logger is gone
    EXPECT_TRUE(dt.value == DataValue::fromDouble(type, kInf, MathMode{}));
    EXPECT_TRUE(dt.isLeapSecond);
  }
}

// The read-back split keeps 64 whole bits: a count beyond them is no date
// and must not wrap back to one near the epoch.
TEST(BadInput, CountBeyondSixtyFourBitsReadsAsBadYear) {
  const DataValue five = DataValue::fromDouble(kDouble, 5.0, MathMode{});
  const DataValue two64 = DataValue::fromDouble(kDouble, 0x1p64, MathMode{});
  MathControl c(MathMode{});
  const DataType s128 = DataType::fixedT(true, 128, 0);
  const DataValue counts[] = {
      two64.add(s128, five, c),
      DataValue().minus(s128, two64, c).add(s128, five, c),
      two64.add(DataType::fixedT(false, 128, 20), five, c),
      DataValue::fromDouble(DataType::fixedT(true, 64, -86), 0x1p87,
                            MathMode{}),
      DataValue::fromDouble(kDouble, DBL_MAX, MathMode{})};
  for (const DataValue& v : counts) {
    const DateTime dt(DvLs{v, false}, E::Epoch1970, TS::UTC);
    EXPECT_EQ(outcome([&] { dt.toDateTimeStruct(); }), "BadYear");
    EXPECT_EQ(kvtest::idOf(DTU::validateDateTime(dt)), "BadYear");
  }
}

bool operator==(const LeapSecondTableData& a, const LeapSecondTableData& b) {
  return a.baseLeapSecondCount == b.baseLeapSecondCount &&
         a.leapSecondYears == b.leapSecondYears &&
         a.taiInstants == b.taiInstants && a.utcInstants == b.utcInstants &&
         a.cumulativeCounts == b.cumulativeCounts &&
         a.positiveLeapSecondStarts == b.positiveLeapSecondStarts &&
         a.negativeLeapSecondInstants == b.negativeLeapSecondInstants;
}

// A refused conversion leaves the shared table and the caller's cursor as
// they were, whichever step refuses it; pruning refuses what converting
// the start to UTC or TAI refuses.
TEST(BadInput, RefusedConversionsKeepTableAndCursor) {
  const LeapSecondYears years{{1972, {1, 1}}, {1990, {-1, 0}}, {2016, {0, 1}}};
  const DateTimeStruct late = handFilled(2020, 1, 1, 0, 0, 0);
  const DateTimeStruct removed = handFilled(1990, 6, 30, 23, 59, 59.5);
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
    const LeapSecondTableData copy = table;
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
      EXPECT_EQ(outcome([&] {
                  LeapSecondUtilities::pruneLeapSecondTableData(table, dt);
                }),
                r.inRemovedSecond ? r.expected : std::string());
    }
    EXPECT_TRUE(table == copy);
  }
}

// The epoch offset and the day length enter the target type through the
// control: one the type cannot hold is heard by the control's logger.
TEST(BadInput, EpochConvertersReportConstantsBeyondTheTargetType) {
  // -2400000.5 days into unsigned storage; 86400 s into 15 integer bits;
  // 2440587.5 days into 16 bits.
  // clang-format off
  const struct { E from, to; double value; DataType target; } rows[] = {
      {E::EpochJD, E::EpochMJD, 2460000.5, DataType::fixedT(false, 32, 8)},
      {E::EpochMJD, E::Epoch1970, 40587.25, DataType::fixedT(true, 32, 16)},
      {E::Epoch1970, E::EpochJD, 0.0, DataType::fixedT(true, 16, 0)}};
  // clang-format on
  for (const auto& r : rows) {
    MathControl control(MathMode{});
    FixptRangeMath::FixptRangeMathLogger logger;
    control.setMathLogger(&logger);
    DateTimeConverter::forEpochs(r.from, r.to)
        .convertEpochImpl(DataValue::fromDouble(kDouble, r.value, MathMode{}),
                          r.from, r.to, TS::UTC, r.target, control);
    EXPECT_TRUE(logger.overflowOccurred()) << r.value;
  }
}

}  // namespace
