// Types, modes, compact form, bad input and the documented edge cases.

#include <gtest/gtest.h>

#include <atomic>
#include <cfloat>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>

#include "host/fxp/FXP.hpp"
#include "tests/host/fxp/FxpOracle.hpp"

// Counts global allocations while a test has switched counting on, to show
// that no operation allocates. GCC cannot see that the replaced new and
// delete pair up through malloc and free, hence the pragma.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
namespace {
std::atomic<bool> gCounting{false};
std::atomic<long> gAllocations{0};
}  // namespace

void* operator new(std::size_t n) {
  if (gCounting) ++gAllocations;
  if (void* p = std::malloc(n == 0 ? 1 : n)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace {

using FXP::DataType;
using FXP::DataValue;
using FXP::MathControl;
using FXP::MathMode;
using fxptest::storedOf;

static_assert(std::is_trivially_copyable_v<DataValue>);
static_assert(std::is_trivially_copyable_v<DataType>);
static_assert(sizeof(DataValue) == 24);

template <class F>
std::string thrownMessage(F&& f) {
  try {
    f();
  } catch (const std::invalid_argument& e) {
    return e.what();
  }
  return "<nothing thrown>";
}

TEST(DataTypeValidation, RejectsEachBadFieldByName) {
  struct Bad {
    fxpDataTypeProp prop;
    const char* field;
  };
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const Bad cases[] = {
      {{1, 1, 32, 0, 1.0, 0.0}, "kind"},
      {{3, 1, 32, 0, 1.0, 0.0}, "kind"},
      {{0, 2, 32, 0, 1.0, 0.0}, "isSigned"},
      {{0, 1, 0, 0, 1.0, 0.0}, "wordLength"},
      {{0, 1, 129, 0, 1.0, 0.0}, "wordLength"},
      {{0, 1, 32, 129, 1.0, 0.0}, "fixedExponent"},
      {{0, 1, 32, -257, 1.0, 0.0}, "fixedExponent"},
      {{0, 1, 32, 0, 2.0, 0.0}, "slope"},
      {{0, 1, 32, 0, nan, 0.0}, "slope"},
      {{0, 1, 32, 0, 1.0, 0.5}, "bias"},
      {{2, 1, 32, 0, 1.0, 0.0}, "wordLength"},
      {{2, 0, 64, 0, 1.0, 0.0}, "isSigned"},
  };
  for (const Bad& c : cases) {
    SCOPED_TRACE(c.field);
    EXPECT_NE(thrownMessage([&] { DataType t(c.prop); }).find(c.field),
              std::string::npos);
  }
  EXPECT_NE(
      thrownMessage([] { DataType::fixedT(true, 0, 0); }).find("wordLength"),
      std::string::npos);
  EXPECT_NE(thrownMessage([] {
              DataType::fixedT(true, 8, 257);
            }).find("fractionLength"),
            std::string::npos);
  EXPECT_NE(thrownMessage([] { MathMode(6, 0); }).find("roundingCode"),
            std::string::npos);
  EXPECT_NE(thrownMessage([] { MathMode(0, 2); }).find("overflowCode"),
            std::string::npos);
}

TEST(DataTypeValidation, CompactSizeIsSmallestPowerOfTwoBytes) {
  const std::pair<int, std::size_t> sizes[] = {
      {1, 1},  {8, 1},  {9, 2},  {16, 2},  {17, 4},
      {32, 4}, {33, 8}, {64, 8}, {65, 16}, {128, 16}};
  for (auto [w, n] : sizes) {
    EXPECT_EQ(DataType::fixedT(false, w, 0).sizeofCompact(), n) << w;
    // The property record round-trips through the type.
    const DataType t = DataType::fixedT(true, w, -w);
    EXPECT_TRUE(DataType(t.getProp()) == t);
  }
  EXPECT_EQ(DataType::doubleT().sizeofCompact(), 8u);
  EXPECT_TRUE(DataType(DataType::doubleT().getProp()) == DataType::doubleT());
  EXPECT_TRUE(DataType({0, 1, 128, -256, 1.0, 0.0}).fractionLength() == 256);
}

TEST(DataValueCompact, RoundTripsEveryWordLength) {
  fxptest::Generator gen(11);
  for (int w = 1; w <= 128; ++w)
    for (int s = 0; s <= 1; ++s)
      for (int f : {-128, 0, 7, 256}) {
        const DataType t = DataType::fixedT(s == 1, w, f);
        for (int k = 0; k < 20; ++k) {
          const DataValue v = gen.value(t);
          unsigned char buf[16];
          v.toCompact(buf, sizeof buf);
          const DataValue back = DataValue::fromCompact(t, buf);
          ASSERT_TRUE(back == v) << w << " " << s << " " << f;
          ASSERT_EQ(back.getFatVal(), v.getFatVal());
        }
      }
  // Little-endian two's complement, extended to the compact width.
  unsigned char buf[8];
  DataValue::fromInt64(-2).toCompact(buf, 8);
  const unsigned char want[8] = {0xFE, 0xFF, 0xFF, 0xFF,
                                 0xFF, 0xFF, 0xFF, 0xFF};
  EXPECT_EQ(std::memcmp(buf, want, 8), 0);
}

TEST(DataValueCompact, RejectsNonCanonicalBytes) {
  struct Case {
    DataType type;
    std::array<unsigned char, 16> bytes;
  };
  const Case cases[] = {
      {DataType::fixedT(false, 40, 0), {0, 0, 0, 0, 0, 1}},  // bit 40 set
      {DataType::fixedT(true, 40, 0), {0, 0, 0, 0, 0x80}},   // sign not
      {DataType::fixedT(true, 40, 0),                        // extended
       {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0}},
      {DataType::fixedT(false, 1, 0), {2}},
      {DataType::fixedT(true, 100, 0),
       {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x80}},
      {DataType::doubleT(), {0, 0, 0, 0, 0, 0, 0xF0, 0x7F}},  // +infinity
      {DataType::doubleT(), {1, 0, 0, 0, 0, 0, 0xF0, 0x7F}},  // NaN
  };
  for (const Case& c : cases)
    EXPECT_THROW(DataValue::fromCompact(c.type, c.bytes.data()),
                 std::invalid_argument);
  EXPECT_THROW(DataValue::fromCompact(DataType::doubleT(), nullptr),
               std::invalid_argument);
}

TEST(DataValueCompact, TooSmallBufferThrowsAndWritesNothing) {
  const DataValue v =
      DataValue::fromDouble(DataType::fixedT(true, 65, 3), -1.5, MathMode());
  unsigned char buf[16];
  std::memset(buf, 0xAB, sizeof buf);
  EXPECT_NE(thrownMessage([&] { v.toCompact(buf, 15); }).find("size"),
            std::string::npos);
  for (unsigned char b : buf) EXPECT_EQ(b, 0xAB);
  EXPECT_THROW(v.toCompact(nullptr, 16), std::invalid_argument);
}

TEST(DataValueFromDouble, NanIsZeroAndInfinitiesSaturate) {
  const double inf = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const MathMode wrap(MathMode::kFloor, MathMode::kWrap);
  for (const DataType t :
       {DataType::fixedT(true, 7, 3), DataType::fixedT(false, 128, -5),
        DataType::fixedT(true, 128, 200), DataType::fixedT(false, 1, 0)}) {
    EXPECT_EQ(storedOf(DataValue::fromDouble(t, nan, wrap)), 0);
    EXPECT_EQ(storedOf(DataValue::fromDouble(t, inf, wrap)),
              fxptest::maxStored(t));
    EXPECT_EQ(storedOf(DataValue::fromDouble(t, -inf, wrap)),
              fxptest::minStored(t));
  }
  const DataType d = DataType::doubleT();
  EXPECT_EQ(DataValue::fromDouble(d, nan, wrap).toDouble(), 0.0);
  EXPECT_EQ(DataValue::fromDouble(d, inf, wrap).toDouble(), DBL_MAX);
  EXPECT_EQ(DataValue::fromDouble(d, -inf, wrap).toDouble(), -DBL_MAX);
  // -0.0 is kept bit for bit and still equals zero.
  const DataValue negZero = DataValue::fromDouble(d, -0.0, wrap);
  EXPECT_TRUE(std::signbit(negZero.toDouble()));
  EXPECT_TRUE(negZero == DataValue::fromInt64(0));
}

TEST(DataValueArithmetic, DivisionByZeroThrowsDomainError) {
  MathControl mc = MathControl::createFullPrecisionMathControl();
  const DataValue one = DataValue::fromInt64(1);
  for (const DataValue zero :
       {DataValue::fromInt64(0),
        DataValue::fromDouble(DataType::doubleT(), -0.0, MathMode()),
        DataValue::fromDouble(DataType::fixedT(false, 128, 9), 0, MathMode())})
    for (const DataType rt :
         {DataType::doubleT(), DataType::fixedT(true, 8, 0)})
      EXPECT_THROW(one.divideBy(rt, zero, mc), std::domain_error);
}

TEST(DataValueArithmetic, FloorSplitsIntoWholeAndNonNegativeFraction) {
  MathControl floorWrap =
      MathControl::createFullPrecisionFloorWrapMathControl();
  const DataValue v =
      DataValue::fromDouble(DataType::doubleT(), -2.25, MathMode());
  const DataValue wide = v.convert(DataType::fixedT(true, 128, 64), floorWrap);
  const DataValue whole =
      wide.convert(DataType::fixedT(true, 64, 0), floorWrap);
  std::int64_t w = 0;
  whole.toCompact(&w, sizeof w);
  EXPECT_EQ(w, -3);
  const auto fat = wide.getFatVal();
  const std::uint64_t low = fat[0] | (std::uint64_t{fat[1]} << 32);
  EXPECT_EQ(static_cast<double>(low) * 0x1p-64, 0.75);
  EXPECT_THROW(v.getFatVal(), std::domain_error);
}

TEST(DataValueArithmetic, OverflowIsLoggedOnlyWhenRangeIsLeft) {
  const DataType u8 = DataType::fixedT(false, 8, 0);
  struct Case {
    int a, b;
    bool minus;
    int overflowCode;
    int want;
    bool overflow;
  };
  const Case cases[] = {
      {10, 1, true, 1, 9, false},  {0, 1, true, 1, 0, true},
      {0, 1, true, 0, 255, true},  {255, 1, false, 1, 255, true},
      {255, 2, false, 0, 1, true}, {254, 1, false, 0, 255, false},
  };
  for (const Case& c : cases) {
    MathControl mc{MathMode(MathMode::kNearestTiesUp, c.overflowCode)};
    FixptRangeMath::FixptRangeMathLogger logger;
    mc.setMathLogger(&logger);
    const DataValue a = DataValue::fromDouble(u8, c.a, mc.getMathMode());
    const DataValue b = DataValue::fromDouble(u8, c.b, mc.getMathMode());
    const DataValue r = c.minus ? a.minus(u8, b, mc) : a.add(u8, b, mc);
    EXPECT_EQ(r.toDouble(), c.want) << c.a << (c.minus ? "-" : "+") << c.b;
    EXPECT_EQ(logger.overflowOccurred(), c.overflow);
  }
  // A double result beyond DBL_MAX saturates and is reported.
  MathControl mc = MathControl::createFullPrecisionMathControl();
  FixptRangeMath::FixptRangeMathLogger logger;
  mc.setMathLogger(&logger);
  const DataValue big =
      DataValue::fromDouble(DataType::doubleT(), DBL_MAX, MathMode());
  EXPECT_EQ(big.add(DataType::doubleT(), big, mc).toDouble(), DBL_MAX);
  EXPECT_TRUE(logger.overflowOccurred());
}

TEST(DataValueAllocation, NoOperationTouchesTheHeap) {
  const DataType s64 = DataType::fixedT(true, 64, 20);
  const DataType u128 = DataType::fixedT(false, 128, 100);
  const DataType s13 = DataType::fixedT(true, 13, -4);
  const DataType dbl = DataType::doubleT();
  MathControl mc = MathControl::createFullPrecisionFloorWrapMathControl();
  FixptRangeMath::FixptRangeMathLogger logger;
  mc.setMathLogger(&logger);
  unsigned char buf[16];
  double sink = 0;
  gAllocations = 0;
  gCounting = true;
  for (const DataType& ta : {s64, u128, s13, dbl})
    for (const DataType& tb : {s64, u128, s13, dbl}) {
      const DataValue a = DataValue::fromDouble(ta, 1e6 + 0.3, MathMode());
      const DataValue b = DataValue::fromDouble(tb, 100.25, MathMode());
      for (const DataType& tr : {s64, u128, s13, dbl}) {
        sink += a.add(tr, b, mc).toDouble() + a.minus(tr, b, mc).toDouble() +
                a.multiplyBy(tr, b, mc).toDouble() +
                a.divideBy(tr, b, mc).toDouble() + a.convert(tr, mc).toDouble();
      }
      sink += (a < b) + (a == b);
      a.toCompact(buf, sizeof buf);
      sink += DataValue::fromCompact(ta, buf).toDouble();
    }
  gCounting = false;
  EXPECT_EQ(gAllocations.load(), 0);
  EXPECT_TRUE(logger.overflowOccurred());
  EXPECT_TRUE(std::isfinite(sink));
}

}  // namespace
