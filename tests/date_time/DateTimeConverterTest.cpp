// Epoch converters: round trips between every pair of epochs, where the
// instant lands, the attribute conversion; the export to a host array.
#include <gtest/gtest.h>

#include <cmath>
#include <tuple>

#include "date_time/DateTimeConverter.hpp"

namespace {

using namespace KvDateTime;
using FXP::DataType;
using FXP::DataValue;
const DataType kI128f64 = DataType::fixedT(true, 128, 64);

// Every pair of epochs (the factory's choice included), every standard,
// double and 128-bit fixed point: the round trip comes back within
// resolution, and the instant lands where the target's own constructor puts
// it. TDB readings are not on the TT axis the offsets assume: they move as a
// TT reading does.
TEST(DateTimeConverter, EveryPairRoundTripsAndLandsOnTheTarget) {
  constexpr Epoch kEpochs[] = {Epoch::Epoch1970, Epoch::Epoch1900,
                               Epoch::Epoch1958, Epoch::EpochJD,
                               Epoch::EpochMJD,  Epoch::EpochJ2000};
  // A double holds about 40 us of a day count near JD 2.4e6; the seconds
  // side sees that error scaled up.
  const auto near = [](const DataValue& a, const DataValue& b, Epoch e) {
    return std::abs(a.toDouble() - b.toDouble()) <=
           (DateTimeUtilities::isJulianCompatibleEpoch(e) ? 2e-9 : 2e-4);
  };
  const DateTimeStruct cal({2020, 3, 1, 12, 0, 0.25});
  FXP::MathControl mc = FXP::MathControl::createFullPrecisionMathControl();
  for (const DataType& t : {DataType::doubleT(), kI128f64})
    for (Epoch from : kEpochs)
      for (Epoch to : kEpochs)
        for (int ts = 0; ts < 4; ++ts) {
          SCOPED_TRACE(testing::Message()
                       << int(from) << "->" << int(to) << " ts " << ts << " w"
                       << t.wordLength());
          const auto convert = [&](const DataValue& v, Epoch a, Epoch b,
                                   int s) {
            return DateTimeConverter::forEpochs(a, b).convertEpochImpl(
                v, a, b, TimeStandard(s), t, mc);
          };
          const DataValue start =
              DateTime(cal, from, TimeStandard(ts), t).value;
          const DataValue there = convert(start, from, to, ts);
          EXPECT_TRUE(near(convert(there, to, from, ts), start, from));
          EXPECT_EQ(there.getDataType(), t);
          EXPECT_TRUE(near(there,
                           ts == int(TimeStandard::TDB)
                               ? convert(start, from, to, int(TimeStandard::TT))
                               : DateTime(cal, to, TimeStandard(ts), t).value,
                           to));
        }
}

TEST(DateTimeConverter, AttributesTakeTheTableTypeAndKeepFlagAndStandard) {
  KvTypeSys::DataTypeTable table;
  table.add(DataType::doubleT().getProp());
  const std::uint32_t id = table.add(DataType::fixedT(false, 64, 16).getProp());
  FXP::MathControl mc = FXP::MathControl::createFullPrecisionMathControl();
  const DateTime dt(DateTimeStruct({2016, 12, 31, 23, 59, 60}), Epoch::EpochMJD,
                    TimeStandard::UTC, DataType::doubleT());
  const DateTimeConverter& conv =
      DateTimeConverter::forEpochs(dt.epoch, Epoch::Epoch1970);
  const DateTime out = conv.convertAttributes(
      dt, DateTimeTypeAttribs(Epoch::Epoch1970, id), &table, mc);
  EXPECT_EQ(out.value.getDataType(), DataType::fixedT(false, 64, 16));
  // Read in the new epoch, standard and flag, the leap second is still there.
  EXPECT_EQ(out.toDateTimeStruct(), DateTimeStruct({2016, 12, 31, 23, 59, 60}));
}

// The array holds the compact bytes (not the flag) in the host class; a
// 16-byte value travels as a 2x1 array of 64-bit elements.
TEST(DateTimeExport, ArrayHoldsTheCompactBytesInTheHostClass) {
  // clang-format off
  const std::tuple<DataType, voClassID, bool> cases[] = {
      {DataType::doubleT(), voClassID::Double, false},
      {DataType::fixedT(false, 5, 0), voClassID::UInt8, false},
      {DataType::fixedT(true, 16, 8), voClassID::Int16, false},
      {DataType::fixedT(false, 65, 0), voClassID::UInt64, true},
      {kI128f64, voClassID::Int64, true}};
  // clang-format on
  for (const auto& [type, cls, wide] : cases) {
    SCOPED_TRACE(type.wordLength());
    FXP::MathControl mc = FXP::MathControl::createFullPrecisionMathControl();
    DateTime dt({DataValue::fromDouble(type, -7.0, mc.getMathMode()), true},
                Epoch::Epoch1958, TimeStandard::UTC);
    dt.add(20.5, mc);
    const voArrayHandle a = dt.toVoArray();
    EXPECT_EQ(a->classID(), cls);
    EXPECT_EQ(a->dimensions(), (wide ? std::vector<std::uint64_t>{2, 1}
                                     : std::vector<std::uint64_t>{1}));
    // toVoArray writes with toCompact, so comparing the two would restate
    // it; reading the array back decides that it holds the value.
    DateTime back(Epoch::Epoch1958, TimeStandard::UTC, type);
    back.fromCompact(a->data(), false);
    EXPECT_EQ(back.value, dt.value);
  }
}

}  // namespace
