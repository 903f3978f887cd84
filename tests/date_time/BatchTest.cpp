// The array conversions against the scalar calls, element by element and
// bit for bit, on every instruction-set path this processor has: random and
// edge values in every epoch, standard and a spread of storage types; the
// first failing element named with the scalar call's own failure nested.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <exception>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "date_time/Batch.hpp"
#include "date_time/BatchPaths.hpp"
#include "date_time/Clock.hpp"
#include "date_time/DateTime.hpp"
#include "date_time/LeapSecondTableData.hpp"
#include "date_time/StorageTypeName.hpp"
#include "date_time/TimeStandardConverter.hpp"
#include "date_time/diagnostics/Raise.hpp"
#include "tests/CountingAllocator.hpp"
#include "tests/TestScale.hpp"
#include "tests/date_time/BatchFailure.hpp"

namespace {

using namespace KvDateTime;
using Batch::detail::Path;
using FXP::DataType;
using FXP::DataValue;
using kvbatchtest::failureOf;

constexpr Epoch kEpochs[] = {Epoch::Epoch1970, Epoch::Epoch1900,
                             Epoch::Epoch1958, Epoch::EpochJD,
                             Epoch::EpochMJD,  Epoch::EpochJ2000};
constexpr TimeStandard kStandards[] = {TimeStandard::TAI, TimeStandard::UTC,
                                       TimeStandard::TT, TimeStandard::TDB};
const DataType kTypes[] = {DataType::doubleT(), DataType::fixedT(true, 64, 20),
                           DataType::fixedT(false, 32, 0),
                           DataType::fixedT(true, 128, 64),
                           DataType::fixedT(true, 48, -2)};

// The processor's instruction-set paths for double storage; none otherwise.
std::vector<Path> pathsFor(const DataType& type) {
  std::vector<Path> p;
  for (Path q : {Path::Portable, Path::Avx2, Path::Avx512})
    if (type.isDouble() && Batch::detail::pathSupported(q)) p.push_back(q);
  return p;
}

std::string describe(const DataType& type, Epoch epoch, TimeStandard ts) {
  return StorageTypeName::name(type) + " epoch " + std::to_string(int(epoch)) +
         " standard " + std::to_string(int(ts));
}

// Runs f, which must fail with BatchElementFailed naming the third element
// and nesting `cause`.
template <typename F>
void expectThirdFails(F&& f, const std::string& cause) {
  try {
    f();
    ADD_FAILURE() << "the batch did not fail; the scalar gave " << cause;
  } catch (...) {
    const kvbatchtest::BatchFailure got =
        kvbatchtest::batchFailureOf(std::current_exception());
    EXPECT_EQ(got.index, 2);
    EXPECT_EQ(got.cause, cause);
  }
}

// One stored value as a batch takes it: compact bytes (for double storage
// the double's own, NaN and infinity included) and a flag.
struct Element {
  std::array<std::byte, 16> bytes{};
  bool flag = false;
  // As the scalar calls take it; throws where fromCompact refuses the bytes.
  DvLs value(const DataType& type) const {
    return {DataValue::fromCompact(type, bytes.data()), flag};
  }
};

Element elementOf(const DvLs& x) {
  Element e;
  x.value.toCompact(e.bytes.data(), x.value.getDataType().sizeofCompact());
  e.flag = x.isLeapSecond;
  return e;
}

// Elements laid end to end, as doubles too for double storage.
struct Packed {
  std::vector<std::byte> bytes;
  std::vector<double> doubles;
  std::unique_ptr<bool[]> flagStore;
  std::span<const bool> flags;
};

Packed pack(const DataType& type, const std::vector<Element>& xs) {
  const std::size_t size = type.sizeofCompact();
  Packed p{{}, {}, std::make_unique<bool[]>(xs.size() + 1), {}};
  for (std::size_t i = 0; i < xs.size(); ++i) {
    p.bytes.insert(p.bytes.end(), xs[i].bytes.begin(),
                   xs[i].bytes.begin() + size);
    p.flagStore[i] = xs[i].flag;
  }
  if (type.isDouble()) {
    p.doubles.resize(xs.size());
    // copy_n, not memcpy: an empty batch's data() may be null.
    std::copy_n(p.bytes.data(), p.bytes.size(),
                reinterpret_cast<std::byte*>(p.doubles.data()));
  }
  p.flags = {p.flagStore.get(), xs.size()};
  return p;
}

// A batch's stored output and flags against the scalar results.
void expectStored(std::span<const std::byte> out, const bool* flags,
                  const std::vector<DvLs>& want) {
  for (std::size_t i = 0, at = 0; i < want.size(); ++i) {
    const Element w = elementOf(want[i]);
    const std::size_t size = want[i].value.getDataType().sizeofCompact();
    ASSERT_TRUE(
        std::equal(w.bytes.begin(), w.bytes.begin() + size, out.begin() + at))
        << "element " << i;
    ASSERT_EQ(flags[i], w.flag) << "element " << i;
    at += size;
  }
}

bool sameBits(double a, double b) {
  return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}

// Stored values that reach every branch: random instants over the
// calendar's years, whole and half seconds, day boundaries, the ends of the
// year range and just beyond, tiny and huge magnitudes, -0.
std::vector<double> storedValues(Epoch epoch, std::mt19937_64& rng) {
  const bool days = DateTimeUtilities::isJulianCompatibleEpoch(epoch);
  const double unit = days ? 1.0 / 86400 : 1.0;
  const double first = days ? (epoch == Epoch::EpochJD    ? 2232400.0
                               : epoch == Epoch::EpochMJD ? -167600.0
                                                          : -219200.0)
                            : (epoch == Epoch::Epoch1970 ? -1.8e10 : -1.6e10);
  const double span = days ? 3.1e6 : 2.7e11;
  std::vector<double> v = {
      0.0,          -0.0,         1e-300,      -1e-300,     0x1p-12, -0x1p-12,
      0x1p-11,      -2.25,        0.5,         86399.5,     86400.0, -86400.0,
      1483228799.5, 1483228800.0, 1e12,        -1e12,       0x1p62,  -0x1p62,
      1e300,        -1e300,       first - 1.0, first + span};
  std::uniform_real_distribution<double> any(first, first + span);
  std::uniform_int_distribution<std::int64_t> whole(
      static_cast<std::int64_t>(first / unit),
      static_cast<std::int64_t>((first + span) / unit));
  // Also 1970 to 2106, where unsigned 32-bit seconds since 1970 reach.
  std::uniform_real_distribution<double> recent(0.0, 0x1p32);
  for (int i = 0; i < 600; ++i) {
    v.push_back(days ? recent(rng) / 86400 + first + 2.6e5 : recent(rng));
    v.push_back(any(rng));
    v.push_back(double(whole(rng)) * unit);
    v.push_back((double(whole(rng)) + 0.5) * unit);
  }
  return v;
}

// A stored double's value in `type` (rounded to nearest), or nothing when
// it does not fit.
bool inType(double d, const DataType& type, DataValue& out) {
  if (!std::isfinite(d)) return false;
  FixptRangeMath::FixptRangeMathLogger overflow;
  FXP::MathControl control =
      FXP::MathControl::createFullPrecisionNearSatMathControl();
  control.setMathLogger(&overflow);
  out = FXP::DataValue::fromDouble(DataType::doubleT(), d, FXP::MathMode())
            .convert(type, control);
  return !overflow.overflowOccurred();
}

// The doubles as elements of `type`: every one for double storage, those
// that fit for fixed point; every seventh flagged when `flagSome`.
std::vector<Element> elementsOf(const DataType& type,
                                const std::vector<double>& ds, bool flagSome) {
  std::vector<Element> out;
  for (double d : ds) {
    DataValue v;
    if (type.isDouble()) {
      out.emplace_back();
      std::memcpy(out.back().bytes.data(), &d, sizeof d);
    } else if (inType(d, type, v)) {
      out.push_back(elementOf({v, false}));
    } else {
      continue;
    }
    out.back().flag = flagSome && out.size() % 7 == 0;
  }
  return out;
}

TEST(BatchToCalendar, EqualsTheScalarReadBackInEveryEpochStandardAndType) {
  std::mt19937_64 rng(20261123);
  for (const DataType& type : kTypes) {
    for (Epoch epoch : kEpochs) {
      for (TimeStandard ts : kStandards) {
        SCOPED_TRACE(describe(type, epoch, ts));
        std::vector<double> ds = storedValues(epoch, rng);
        if (type.isDouble()) ds.insert(ds.end(), {std::nan(""), HUGE_VAL});
        std::vector<double> rows;
        std::vector<Element> good;
        std::vector<std::pair<Element, std::string>> bad;
        for (const Element& x : elementsOf(type, ds, ts == TimeStandard::UTC)) {
          try {
            for (double f :
                 DateTime::convertDVToDateTimeStruct(x.value(type), epoch, ts)
                     .toArray())
              rows.push_back(f);
            good.push_back(x);
          } catch (...) {
            bad.emplace_back(x, failureOf(std::current_exception()));
          }
        }
        ASSERT_GT(good.size(), 300u);
        const Packed in = pack(type, good);
        std::vector<double> out(rows.size());
        const auto expectRows = [&](const char* how) {
          for (std::size_t j = 0; j < rows.size(); ++j)
            ASSERT_TRUE(sameBits(out[j], rows[j]))
                << how << ", value " << j / 6 << " field " << j % 6;
        };
        Batch::toCalendar(in.bytes, type, epoch, ts, out, in.flags);
        expectRows("compact");
        for (Path path : pathsFor(type)) {
          std::fill(out.begin(), out.end(), -1.0);
          Batch::detail::toCalendarOn(path, in.doubles, epoch, ts, out,
                                      in.flags);
          expectRows("a path");
        }
        // Each failure after two good values: index 2, the scalar's cause.
        for (const auto& [x, cause] : bad) {
          const Packed three = pack(type, {good[0], good[1], x});
          std::vector<double> out3(18);
          expectThirdFails(
              [&] {
                Batch::toCalendar(three.bytes, type, epoch, ts, out3,
                                  three.flags);
              },
              cause);
          for (Path path : pathsFor(type))
            expectThirdFails(
                [&] {
                  Batch::detail::toCalendarOn(path, three.doubles, epoch, ts,
                                              out3, three.flags);
                },
                cause);
        }
      }
    }
  }
}

// The readings for people are Clock::readingOf of each value, with the
// same failures; the double loop corrects only what the read-back gets
// wrong for people (a count beyond 2^63 s, a second rounded up to 60).
TEST(BatchToCalendarReadings, EqualsTheClocksReadingOfEachValue) {
  std::mt19937_64 rng(11);
  for (const DataType& type :
       {DataType::doubleT(), DataType::fixedT(true, 128, 64)}) {
    for (Epoch epoch : kEpochs) {
      for (TimeStandard ts : {TimeStandard::UTC, TimeStandard::TAI}) {
        SCOPED_TRACE(describe(type, epoch, ts));
        std::vector<double> ds = storedValues(epoch, rng);
        ds.insert(ds.end(), {-1e-17, -0x1p-40, 59.9999999999999, 0x1p63,
                             -0x1p63 - 4096, 1e300, std::nan(""), -HUGE_VAL});
        // Each value third, after two that read.
        std::vector<Element> three(3);
        for (int k = 0; k < 2; ++k)
          three[k] = elementOf(DateTime(
              DateTimeStruct({2000.0 + k, 1, 1, 0, 0, 0}), epoch, ts, type));
        for (const Element& x : elementsOf(type, ds, ts == TimeStandard::UTC)) {
          three[2] = x;
          const Packed in = pack(type, three);
          std::vector<double> out(18);
          const auto call = [&] {
            if (type.isDouble())
              Batch::toCalendarReadings(in.doubles, epoch, ts, out, in.flags);
            else
              Batch::toCalendarReadings(in.bytes, type, epoch, ts, out,
                                        in.flags);
          };
          std::string cause;
          DateTimeStruct want{};
          try {
            want = Clock::readingOf(DateTime(x.value(type), epoch, ts));
          } catch (...) {
            cause = failureOf(std::current_exception());
          }
          if (!cause.empty()) {
            expectThirdFails(call, cause);
            continue;
          }
          call();
          for (int f = 0; f < 6; ++f)
            ASSERT_TRUE(sameBits(out[12 + f], want.toArray()[f]))
                << "value " << x.value(type).value.toDouble() << " field " << f;
        }
      }
    }
  }
}

// Readings that reach every branch: random valid ones, leap seconds in UTC
// (at a half-year's end and elsewhere), each field just outside its range,
// fractions of whole fields, NaN and infinite fields, the range's ends.
std::vector<std::array<double, 6>> readings(std::mt19937_64& rng) {
  // clang-format off
  std::vector<std::array<double, 6>> r = {
      {1400, 1, 1, 0, 0, 0}, {9999, 12, 31, 23, 59, 59.999999}, {2016, 12, 31, 23, 59, 60.5},
      {2016, 6, 15, 12, 0, 60.25}, {2000, 2, 29, 1, 2, 3.5}, {1900, 2, 29, 0, 0, 0},
      {2016, 13, 1, 0, 0, 0}, {2016, 1, 32, 0, 0, 0}, {2016, 1, 1, 24, 0, 0}, {2016, 1, 1, 0, 60, 0},
      {2016, 1, 1, 0, 0, 61}, {2016, 1, 1, 0, 0, -0.5}, {1399, 12, 31, 23, 59, 59}, {10000, 1, 1, 0, 0, 0},
      {2016, 1.5, 1, 0, 0, 0}, {2016, 1, 1, 0.5, 0, 0}, {2016, 1, 1, 0, 0, std::nan("")},
      {2016, 1, 65537, 0, 0, 0}, {2016, 1, 65536, 0, 0, 0}, {2016, 1, HUGE_VAL, 0, 0, 0},
      {std::nan(""), 1, 1, 0, 0, 0}, {0, 0, 0, 0, 0, 0}, {1970, 1, 1, 0, 0, 0.1839999999999},
      {1970, 1, 1, 0, 0, 0.184}, {2024, 2, 29, 23, 59, 59.75}};
  // clang-format on
  std::uniform_int_distribution<int> year(1400, 9999), recent(1970, 2105),
      month(1, 12), day(1, 31), hour(0, 23), minute(0, 59), second(0, 59);
  std::uniform_real_distribution<double> frac(0.0, 1.0);
  for (int i = 0; i < 1500; ++i)
    r.push_back({double(i % 2 ? year(rng) : recent(rng)), double(month(rng)),
                 double(day(rng)), double(hour(rng)), double(minute(rng)),
                 second(rng) + (i % 3 == 0 ? 0.0 : frac(rng))});
  return r;
}

void fromCalendarAs(bool checked, std::span<const double> calendar, Epoch epoch,
                    TimeStandard ts, const DataType& type,
                    std::span<std::byte> stored, std::span<bool> flags) {
  if (checked)
    Batch::fromCalendarChecked(calendar, epoch, ts, type, stored, flags);
  else
    Batch::fromCalendar(calendar, epoch, ts, type, stored, flags);
}

TEST(BatchFromCalendar, EqualsTheConstructorInEveryEpochStandardAndType) {
  std::mt19937_64 rng(7);
  const auto rows = readings(rng);
  for (const DataType& type : kTypes) {
    for (Epoch epoch : kEpochs) {
      for (TimeStandard ts : kStandards) {
        for (const bool checked : {false, true}) {
          SCOPED_TRACE(describe(type, epoch, ts) + " checked " +
                       std::to_string(checked));
          std::vector<double> good;
          std::vector<DvLs> want;
          std::vector<std::pair<std::array<double, 6>, std::string>> bad;
          for (const auto& row : rows) {
            try {
              if (checked) {
                for (double f : row)
                  if (!std::isfinite(f)) throw std::invalid_argument("");
                Korvane::DateTime::throwIfSet(
                    DateTimeUtilities::validateDateTime(row, ts));
              }
              const DateTimeStruct cal = DateTimeStruct::unchecked(row);
              if (checked &&
                  !DateTime::isValueInRangeOfType(cal, epoch, ts, type))
                throw std::overflow_error("");
              // A checked leap second is judged as the clock judges it.
              want.push_back(checked && ts == TimeStandard::UTC &&
                                     cal.second >= 60.0
                                 ? Clock::timePointFrom(cal, ts, epoch, type)
                                 : DateTime(cal, epoch, ts, type));
              good.insert(good.end(), row.begin(), row.end());
            } catch (...) {
              bad.emplace_back(row, failureOf(std::current_exception()));
            }
          }
          const std::size_t n = want.size();
          ASSERT_GT(n, 300u);
          std::unique_ptr<bool[]> flags(new bool[n]);
          const std::span<bool> fl(flags.get(), n);
          std::vector<std::byte> bytes(n * type.sizeofCompact());
          fromCalendarAs(checked, good, epoch, ts, type, bytes, fl);
          expectStored(bytes, flags.get(), want);
          for (Path path : pathsFor(type)) {
            std::vector<double> out(n, -1.0);
            Batch::detail::fromCalendarOn(path, checked, good, epoch, ts, out,
                                          fl);
            expectStored(std::as_bytes(std::span(out)), flags.get(), want);
          }
          for (const auto& [row, cause] : bad) {
            std::vector<double> three(good.begin(), good.begin() + 12);
            three.insert(three.end(), row.begin(), row.end());
            std::vector<double> out(3);
            std::vector<std::byte> outBytes(3 * type.sizeofCompact());
            expectThirdFails(
                [&] {
                  if (type.isDouble())
                    Batch::detail::fromCalendarOn(pathsFor(type).back(),
                                                  checked, three, epoch, ts,
                                                  out, {});
                  else
                    fromCalendarAs(checked, three, epoch, ts, type, outBytes,
                                   {});
                },
                cause);
          }
        }
      }
    }
  }
}

// Every day of the calendar at a random time of day, both ways, on every
// path: the sweep crosses every month end, leap day and century.
TEST(BatchFromCalendar, EveryDayOfTheCalendarGoesThereAndBackAsTheScalar) {
  std::mt19937_64 rng(1);
  std::uniform_real_distribution<double> second(0.0, 86400.0);
  const std::int64_t first = -208188, last = 2932896;  // 1400-01-01, 9999-12-31
  std::vector<double> stored;
  for (std::int64_t d = first; d <= last; d += kvtest::reduction())
    stored.push_back(double(d) * 86400 + std::floor(second(rng) * 8) / 8);
  for (Path path : pathsFor(DataType::doubleT())) {
    std::vector<double> calendar(6 * stored.size()), back(stored.size());
    Batch::detail::toCalendarOn(path, stored, Epoch::Epoch1970,
                                TimeStandard::TAI, calendar, {});
    Batch::detail::fromCalendarOn(path, false, calendar, Epoch::Epoch1970,
                                  TimeStandard::TAI, back, {});
    for (std::size_t i = 0; i < stored.size(); i += 97) {
      const std::array<double, 6> c =
          DateTime::convertDVToDateTimeStruct(
              DvLs{DataValue::fromCompact(DataType::doubleT(), &stored[i]),
                   false},
              Epoch::Epoch1970, TimeStandard::TAI)
              .toArray();
      ASSERT_EQ(std::vector<double>(calendar.begin() + 6 * i,
                                    calendar.begin() + 6 * i + 6),
                std::vector<double>(c.begin(), c.end()))
          << i;
    }
    ASSERT_EQ(back, stored) << "path " << int(path);
  }
}

// The scalar conversion of one value, as convertStandard promises it.
std::variant<DvLs, std::string> scalarConversion(
    const DvLs& v, Epoch epoch, TimeStandard from, TimeStandard to,
    const LeapSecondTableData& table) {
  try {
    FixptRangeMath::FixptRangeMathLogger overflow;
    FXP::MathControl control =
        FXP::MathControl::createFullPrecisionNearSatMathControl();
    control.setMathLogger(&overflow);
    const DateTime r = TimeStandardConverter::convertTimeStandard(
        DateTime(v, epoch, from), to, table, control);
    if (overflow.overflowOccurred()) throw std::overflow_error("");
    return DvLs(r);
  } catch (...) {
    return failureOf(std::current_exception());
  }
}

TEST(BatchConvertStandard, EqualsTheScalarConversionForUnsortedValues) {
  std::mt19937_64 rng(3);
  // The library's schedule and one that removes a second in 2020.
  LeapSecondYears withRemoval = {
      {1972, {1, 1}}, {1990, {0, 1}}, {2016, {0, 1}}, {2020, {-1, 0}}};
  for (const DataType& type : kTypes) {
    for (Epoch epoch : kEpochs) {
      const std::vector<double> sample = storedValues(epoch, rng);
      for (const bool removal : {false, true}) {
        const LeapSecondTableData table =
            removal
                ? LeapSecondTableDataCreator::build(withRemoval, epoch, type)
                : LeapSecondTableDataCreator::build(epoch, type);
        // Values around each instant (either side, inside the second), then
        // the random sample, in no order.
        std::vector<double> doubles;
        for (const auto* side : {&table.utcInstants, &table.taiInstants})
          for (const DataValue& e : *side)
            for (double s : {-0.5, 0.0, 0.5, 1.0, 1.5, 2.0, 2.5})
              doubles.push_back(
                  e.toDouble() +
                  DateTimeUtilities::secondsToTimeShift(s, epoch));
        doubles.insert(doubles.end(), sample.begin(), sample.end());
        std::shuffle(doubles.begin(), doubles.end(), rng);
        for (TimeStandard from : kStandards) {
          for (TimeStandard to : kStandards) {
            SCOPED_TRACE(describe(type, epoch, from) + " to " +
                         std::to_string(int(to)) + " removal " +
                         std::to_string(removal));
            std::vector<Element> in;
            std::vector<DvLs> want;
            std::vector<std::pair<Element, std::string>> bad;
            for (const Element& x :
                 elementsOf(type, doubles, from == TimeStandard::UTC)) {
              auto r = scalarConversion(x.value(type), epoch, from, to, table);
              if (auto* ok = std::get_if<DvLs>(&r)) {
                in.push_back(x);
                want.push_back(*ok);
              } else {
                bad.emplace_back(x, std::get<std::string>(r));
              }
            }
            const std::size_t n = in.size();
            const Packed p = pack(type, in);
            std::unique_ptr<bool[]> flagsOut(new bool[n + 1]);
            std::vector<std::byte> out(p.bytes.size());
            Batch::convertStandard(p.bytes, type, epoch, from, to, table, out,
                                   p.flags, {flagsOut.get(), n});
            expectStored(out, flagsOut.get(), want);
            for (Path path : pathsFor(type)) {
              std::vector<double> o(n, -1.0);
              Batch::detail::convertStandardOn(path, p.doubles, epoch, from, to,
                                               table, o, p.flags,
                                               {flagsOut.get(), n});
              expectStored(std::as_bytes(std::span(o)), flagsOut.get(), want);
            }
            for (const auto& [x, cause] : bad) {
              if (n < 2) break;
              const Packed three = pack(type, {in[0], in[1], x});
              std::vector<std::byte> o3(three.bytes.size());
              expectThirdFails(
                  [&] {
                    Batch::convertStandard(three.bytes, type, epoch, from, to,
                                           table, o3, three.flags);
                  },
                  cause);
            }
          }
        }
      }
    }
  }
}
// A log's worth of values through every function, double and fixed point,
// the fast loops and the scalar ones: not one allocation.
TEST(BatchAllocation, ConversionsOfValidArraysAllocateNothing) {
  const DataType s64 = DataType::fixedT(true, 64, 20);
  const LeapSecondTableData doubles =
      LeapSecondTableDataCreator::build(Epoch::Epoch1970, DataType::doubleT());
  const LeapSecondTableData fixed =
      LeapSecondTableDataCreator::build(Epoch::Epoch1970, s64);
  const std::size_t n = 5000;
  std::vector<double> stored(n), mjd(n), rows(6 * n), back(n), tai(n);
  for (std::size_t i = 0; i < n; ++i) {
    stored[i] = 63072000.0 + 377123.25 * double(i);
    mjd[i] = 41317.0 + 4.25 * double(i);
  }
  std::vector<std::byte> bytes(8 * n), out(8 * n);
  std::unique_ptr<bool[]> flags(new bool[n]());
  const std::span<bool> fl(flags.get(), n);
  const long before = kvtest::allocations.load();
  Batch::toCalendar(mjd, Epoch::EpochMJD, TimeStandard::UTC, rows);
  Batch::fromCalendarChecked(rows, Epoch::EpochMJD, TimeStandard::UTC, back,
                             fl);
  Batch::toCalendar(stored, Epoch::Epoch1970, TimeStandard::UTC, rows);
  Batch::fromCalendar(rows, Epoch::Epoch1970, TimeStandard::UTC, back, fl);
  Batch::fromCalendarChecked(rows, Epoch::Epoch1970, TimeStandard::UTC, s64,
                             bytes, fl);
  Batch::toCalendar(bytes, s64, Epoch::Epoch1970, TimeStandard::UTC, rows);
  Batch::convertStandard(stored, Epoch::Epoch1970, TimeStandard::UTC,
                         TimeStandard::TAI, doubles, tai);
  Batch::convertStandard(tai, Epoch::Epoch1970, TimeStandard::TAI,
                         TimeStandard::UTC, doubles, back, {}, fl);
  Batch::convertStandard(bytes, s64, Epoch::Epoch1970, TimeStandard::UTC,
                         TimeStandard::TAI, fixed, out);
  EXPECT_EQ(kvtest::allocations.load() - before, 0);
  EXPECT_EQ(back, stored);  // UTC to TAI and back
}

TEST(BatchSizes, MismatchedSpansAreRefusedBeforeAnythingIsWritten) {
  const std::vector<double> stored = {0.0, 1.0};
  std::vector<double> out(11, -1.0);
  EXPECT_THROW(
      Batch::toCalendar(stored, Epoch::Epoch1970, TimeStandard::UTC, out),
      std::invalid_argument);
  EXPECT_EQ(out, std::vector<double>(11, -1.0));
  std::vector<double> six(12);
  const bool oneFlag[1] = {false};
  EXPECT_THROW(Batch::toCalendar(stored, Epoch::Epoch1970, TimeStandard::UTC,
                                 six, oneFlag),
               std::invalid_argument);
  const std::byte threeBytes[3] = {};
  EXPECT_THROW(Batch::toCalendar(threeBytes, DataType::fixedT(true, 16, 0),
                                 Epoch::Epoch1970, TimeStandard::UTC, six),
               std::invalid_argument);
  std::vector<double> one(1);
  EXPECT_THROW(
      Batch::fromCalendar(six, Epoch::Epoch1970, TimeStandard::UTC, one),
      std::invalid_argument);
  const LeapSecondTableData table =
      LeapSecondTableDataCreator::build(Epoch::Epoch1970, DataType::doubleT());
  EXPECT_THROW(
      Batch::convertStandard(stored, Epoch::Epoch1970, TimeStandard::UTC,
                             TimeStandard::TAI, table, one),
      std::invalid_argument);
}

}  // namespace
