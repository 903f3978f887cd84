// The per-step and per-construction paths of a time point allocate nothing.
#include <gtest/gtest.h>

#include "date_time/DateTime.hpp"
#include "tests/CountingAllocator.hpp"

namespace {

using namespace KvDateTime;
using FXP::DataType;

TEST(DateTimeNoHeap, StepsBuildsAndReadsBackWithoutAllocating) {
  const DateTimeStruct cal({2021, 7, 14, 9, 30, 12.75});  // a Wednesday
  for (const DataType& t :
       {DataType::doubleT(), DataType::fixedT(true, 64, 32),
        DataType::fixedT(true, 128, 64), DataType::fixedT(false, 64, 0)}) {
    FXP::MathControl mc = FXP::MathControl::createFullPrecisionMathControl();
    const long before = kvtest::allocations.load();
    DateTime dt(cal, Epoch::Epoch1970, TimeStandard::UTC, t);
    DateTime jd(cal, Epoch::EpochMJD, TimeStandard::TT, t);
    for (int i = 0; i < 100; ++i) {
      dt.subtract(0.0005, mc);
      jd.add(60.0, mc);
    }
    // Sane results: the calls did their work.
    const bool overflow = dt.addWithOverflowCheck(1.0, mc);
    const double day = dt.toDateTimeStruct().day;
    const int dow = DateTimeUtilities::timestampToDayOfWeek(dt);
    EXPECT_EQ(kvtest::allocations.load(), before) << t.wordLength();
    EXPECT_TRUE(!overflow && day == 14.0 && dow == 4);
  }
}

}  // namespace
