// Epoch converters: round trips between every pair of epochs, the offsets
// they add, the factory's choice and the attribute conversion; the export to
// a host array.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <typeinfo>

#include "date_time/DateTimeConverter.hpp"

namespace {

using namespace KvDateTime;
using FXP::DataType;
using FXP::DataValue;

constexpr Epoch kEpochs[] = {Epoch::Epoch1970, Epoch::Epoch1900,
                             Epoch::Epoch1958, Epoch::EpochJD,
                             Epoch::EpochMJD,  Epoch::EpochJ2000};
constexpr TimeStandard kStandards[] = {TimeStandard::TAI, TimeStandard::UTC,
                                       TimeStandard::TT, TimeStandard::TDB};

bool days(Epoch e) { return DateTimeUtilities::isJulianCompatibleEpoch(e); }

TEST(DateTimeConverter, EveryPairRoundTripsWithinResolution) {
  const DataType types[] = {DataType::doubleT(),
                            DataType::fixedT(true, 128, 64)};
  for (const DataType& t : types)
    for (Epoch from : kEpochs)
      for (Epoch to : kEpochs)
        for (TimeStandard ts : kStandards) {
          FXP::MathControl mc =
              FXP::MathControl::createFullPrecisionMathControl();
          // 2020-03-01 12:00 TAI as counted from `from`.
          const DateTime start(DateTimeStruct({2020, 3, 1, 12, 0, 0.25}), from,
                               ts, t);
          const DataValue there =
              DateTimeConverter::forEpochs(from, to).convertEpochImpl(
                  start.value, from, to, ts, t, mc);
          const DataValue back =
              DateTimeConverter::forEpochs(to, from).convertEpochImpl(
                  there, to, from, ts, t, mc);
          // A double holds about 40 us of a day count near JD 2.4e6; the
          // seconds side sees that error scaled up.
          const double tol = days(from) ? 2e-9 : 2e-4;
          EXPECT_NEAR(back.toDouble(), start.value.toDouble(), tol)
              << int(from) << "->" << int(to) << " ts " << int(ts) << " w"
              << t.wordLength();
          EXPECT_EQ(back.getDataType(), t);
          // The instant lands where the target's own constructor puts it
          // (TDB readings are not on the TT axis the offsets assume).
          if (ts == TimeStandard::TDB) continue;
          const DateTime direct(DateTimeStruct({2020, 3, 1, 12, 0, 0.25}), to,
                                ts, t);
          EXPECT_NEAR(there.toDouble(), direct.value.toDouble(),
                      days(to) ? 2e-9 : 2e-4)
              << int(from) << "->" << int(to) << " ts " << int(ts);
        }
}

TEST(DateTimeConverter, Sec2JdOfZeroIsTheCorrectedTableOffset) {
  struct Case {
    TimeStandard ts;
    double want;
  };
  // The 1970 -> JD entry of the epoch table, then the standard's shift.
  constexpr double kOffset = 2440587.5001157406;
  const Case cases[] = {{TimeStandard::TAI, kOffset},
                        {TimeStandard::UTC, kOffset - 10.0 / 86400.0},
                        {TimeStandard::TT, kOffset + 32.184 / 86400.0},
                        {TimeStandard::TDB, kOffset + 32.184 / 86400.0}};
  for (const Case& c : cases) {
    FXP::MathControl mc = FXP::MathControl::createFullPrecisionMathControl();
    const DataValue jd =
        DateTimeConverter::forEpochs(Epoch::Epoch1970, Epoch::EpochJD)
            .convertEpochImpl(DataValue::fromInt64(0), Epoch::Epoch1970,
                              Epoch::EpochJD, c.ts, DataType::doubleT(), mc);
    EXPECT_EQ(jd.toDouble(), c.want) << int(c.ts);
  }
}

TEST(DateTimeConverter, FactoryPicksByFamilyAndSameEpochAddsNothing) {
  struct Case {
    Epoch from, to;
    const std::type_info& type;
  };
  const Case cases[] = {
      {Epoch::EpochMJD, Epoch::EpochMJD, typeid(DateTimeConverterSameEpoch)},
      {Epoch::EpochJD, Epoch::EpochJ2000, typeid(DateTimeConverterJD2JD)},
      {Epoch::Epoch1958, Epoch::Epoch1970, typeid(DateTimeConverterSec2Sec)},
      {Epoch::EpochMJD, Epoch::Epoch1900, typeid(DateTimeConverterJD2Sec)},
      {Epoch::Epoch1970, Epoch::EpochJ2000, typeid(DateTimeConverterSec2JD)},
  };
  for (const Case& c : cases) {
    const DateTimeConverter& conv = DateTimeConverter::forEpochs(c.from, c.to);
    EXPECT_EQ(typeid(conv), c.type) << int(c.from) << "->" << int(c.to);
    EXPECT_EQ(&conv, &DateTimeConverter::forEpochs(c.from, c.to));
  }
  // Told the epochs differ, SameEpoch still only converts the type.
  FXP::MathControl mc = FXP::MathControl::createFullPrecisionMathControl();
  const DataValue v = DataValue::fromDouble(DataType::fixedT(true, 32, 4), 12.5,
                                            mc.getMathMode());
  const DataValue same = DateTimeConverterSameEpoch().convertEpochImpl(
      v, Epoch::Epoch1970, Epoch::EpochJD, TimeStandard::UTC,
      DataType::fixedT(true, 32, 4), mc);
  EXPECT_EQ(std::memcmp(&same, &v, sizeof v), 0);
}

TEST(DateTimeConverter, AttributesTakeTheTableTypeAndKeepFlagAndStandard) {
  KvTypeSys::DataTypeTable table;
  table.add(DataType::doubleT().getProp());
  const std::uint32_t id = table.add(DataType::fixedT(false, 64, 16).getProp());
  FXP::MathControl mc = FXP::MathControl::createFullPrecisionMathControl();
  DateTime dt(DateTimeStruct({2016, 12, 31, 23, 59, 60}), Epoch::EpochMJD,
              TimeStandard::UTC, DataType::doubleT());
  ASSERT_TRUE(dt.isLeapSecond);
  const DateTime out =
      DateTimeConverter::forEpochs(dt.epoch, Epoch::Epoch1970)
          .convertAttributes(dt, DateTimeTypeAttribs(Epoch::Epoch1970, id),
                             &table, mc);
  EXPECT_TRUE(out.isLeapSecond);
  EXPECT_EQ(out.timeStandard, TimeStandard::UTC);
  EXPECT_EQ(out.epoch, Epoch::Epoch1970);
  EXPECT_EQ(out.value.getDataType(), DataType::fixedT(false, 64, 16));
  EXPECT_EQ(out.toDateTimeStruct().second, 60.0);
  EXPECT_THROW(
      DateTimeConverter::forEpochs(dt.epoch, Epoch::Epoch1970)
          .convertAttributes(dt, DateTimeTypeAttribs(Epoch::Epoch1970, id + 1),
                             &table, mc),
      std::out_of_range);
}

TEST(DateTimeExport, ArrayHoldsTheCompactBytesInTheHostClass) {
  struct Case {
    DataType type;
    voClassID cls;
    std::uint64_t elements;
  };
  const Case cases[] = {
      {DataType::doubleT(), voClassID::Double, 1},
      {DataType::fixedT(false, 5, 0), voClassID::UInt8, 1},
      {DataType::fixedT(true, 16, 8), voClassID::Int16, 1},
      {DataType::fixedT(true, 33, 0), voClassID::Int64, 1},
      {DataType::fixedT(false, 32, 0), voClassID::UInt32, 1},
      {DataType::fixedT(false, 65, 0), voClassID::UInt64, 2},
      {DataType::fixedT(true, 128, 64), voClassID::Int64, 2},
  };
  for (const Case& c : cases) {
    FXP::MathControl mc = FXP::MathControl::createFullPrecisionMathControl();
    DateTime dt({DataValue::fromDouble(c.type, -7.0, mc.getMathMode()), true},
                Epoch::Epoch1958, TimeStandard::UTC);
    dt.add(20.5, mc);
    const voArrayHandle a = dt.toVoArray();
    EXPECT_EQ(a->classID(), c.cls) << c.type.wordLength();
    EXPECT_FALSE(a->isComplex());
    EXPECT_EQ(a->numberOfElements(), c.elements);
    EXPECT_EQ(a->dimensions(),
              (c.elements == 2 ? std::vector<std::uint64_t>{2, 1}
                               : std::vector<std::uint64_t>{1}));
    std::array<std::uint8_t, 16> bytes{};
    dt.toCompact(bytes.data());
    EXPECT_EQ(std::memcmp(a->data(), bytes.data(), c.type.sizeofCompact()), 0);
    // The array's data reads back into the same value; the flag is not in it.
    DateTime back(Epoch::Epoch1958, TimeStandard::UTC, c.type);
    back.fromCompact(a->data(), false);
    EXPECT_EQ(back.value, dt.value);
    dt.isLeapSecond = false;
    EXPECT_EQ(
        std::memcmp(dt.toVoArray()->data(), a->data(), c.type.sizeofCompact()),
        0);
  }
}

}  // namespace
