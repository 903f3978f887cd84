// The array conversions of KvDateTime::Batch against the scalar calls, on
// arbitrary values, flags, epochs, standards and storage types. Holds for
// every input:
// - when every element's scalar call succeeds, the array call succeeds and
//   writes each element's bits (rows, stored values, flags) exactly;
// - otherwise it throws "Korvane:DateTime:BatchElementFailed" naming the
//   first element whose scalar call fails, with that call's failure nested,
//   and every element before it already written;
// - in double storage every instruction-set path the processor has gives
//   the same as the public call;
// - a prepared conversion walked over the same elements, in their order,
//   gives each element's bits, flag, cursor, overflow report and failure
//   of convertTimeStandard with a cursor of its own.

#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "date_time/Batch.hpp"
#include "date_time/BatchPaths.hpp"
#include "date_time/DateTime.hpp"
#include "date_time/DateTimeUtilities.hpp"
#include "date_time/LeapSecondTableData.hpp"
#include "date_time/TimeStandardConverter.hpp"
#include "date_time/diagnostics/Raise.hpp"
#include "fuzz/FuzzSupport.hpp"
#include "tests/date_time/BatchFailure.hpp"

namespace {

using namespace KvDateTime;
using Batch::detail::Path;
using FXP::DataType;
using FXP::DataValue;

using kvbatchtest::failureOf;

// The first failing element and its failure, or (n, "") for none.
struct Outcome {
  std::size_t index;
  std::string cause;
};

template <typename F>
Outcome outcomeOfBatch(std::size_t n, F&& f) {
  try {
    f();
  } catch (...) {
    const kvbatchtest::BatchFailure b =
        kvbatchtest::batchFailureOf(std::current_exception());
    KVFUZZ_CHECK(b.index >= 0, b.cause);
    return {static_cast<std::size_t>(b.index), b.cause};
  }
  return {n, ""};
}

void checkSame(const Outcome& got, const Outcome& want, const char* what) {
  KVFUZZ_CHECK(got.index == want.index && got.cause == want.cause,
               std::string(what) + ": batch " + std::to_string(got.index) +
                   " " + got.cause + ", scalar " + std::to_string(want.index) +
                   " " + want.cause);
}

void checkBytes(const void* got, const void* want, std::size_t size,
                const char* what) {
  KVFUZZ_CHECK(size == 0 || std::memcmp(got, want, size) == 0, what);
}

// Runs call(path, out) on every path the processor has, out holding
// `width` doubles a value, and holds each to the scalar outcome and values.
template <typename Call>
void onEveryPath(std::size_t n, std::size_t width, const Outcome& scalar,
                 const void* want, const char* what, Call&& call) {
  for (Path path : {Path::Portable, Path::Avx2, Path::Avx512}) {
    if (!Batch::detail::pathSupported(path)) continue;
    std::vector<double> out(width * n);
    checkSame(outcomeOfBatch(n, [&] { call(path, std::span<double>(out)); }),
              scalar, what);
    checkBytes(out.data(), want, width * sizeof(double) * scalar.index, what);
  }
}

DataType anyType(FuzzedDataProvider& in) {
  switch (in.ConsumeIntegralInRange<int>(0, 3)) {
    case 0:
    case 1:
      return DataType::doubleT();
    case 2:
      return DataType::fixedT(in.ConsumeBool(),
                              in.ConsumeIntegralInRange<int>(33, 128),
                              in.ConsumeIntegralInRange<int>(-4, 64));
    default:
      return DataType::fixedT(in.ConsumeBool(),
                              in.ConsumeIntegralInRange<int>(1, 128),
                              in.ConsumeIntegralInRange<int>(-128, 256));
  }
}

// A stored value: a double near the calendar's counts or any bit pattern,
// or compact bytes of the type (canonical or not).
double anyStored(FuzzedDataProvider& in, Epoch epoch) {
  if (in.ConsumeBool()) return kvfuzz::anyDouble(in);
  const bool days = DateTimeUtilities::isJulianCompatibleEpoch(epoch);
  const double span = days ? 4e6 : 3e11;
  return (in.ConsumeProbability<double>() - 0.5) * span +
         (in.ConsumeBool() ? 0.5 : 0.0);
}

void toCalendarCase(FuzzedDataProvider& in, Epoch epoch, TimeStandard ts,
                    const DataType& type, std::size_t n) {
  std::vector<double> doubles;
  std::vector<unsigned char> bytes;
  std::vector<char> flags(n);
  for (std::size_t i = 0; i < n; ++i) {
    flags[i] = in.ConsumeIntegralInRange<int>(0, 5) == 0;
    if (type.isDouble()) {
      doubles.push_back(anyStored(in, epoch));
    } else if (in.ConsumeBool()) {
      const double d = anyStored(in, epoch);
      const DataValue v = DataValue::fromDouble(type, d, FXP::MathMode());
      unsigned char b[16];
      v.toCompact(b, sizeof b);
      bytes.insert(bytes.end(), b, b + type.sizeofCompact());
    } else {
      for (std::size_t k = 0; k < type.sizeofCompact(); ++k)
        bytes.push_back(in.ConsumeIntegral<unsigned char>());
    }
  }
  if (type.isDouble() && n > 0) {
    bytes.resize(8 * n);
    std::memcpy(bytes.data(), doubles.data(), bytes.size());
  }
  const bool* fl = reinterpret_cast<const bool*>(flags.data());
  std::vector<double> want(6 * n);
  Outcome scalar{n, ""};
  for (std::size_t i = 0; i < n; ++i) {
    try {
      const DateTimeStruct c = DateTime::convertDVToDateTimeStruct(
          DvLs{DataValue::fromCompact(type,
                                      bytes.data() + type.sizeofCompact() * i),
               fl[i]},
          epoch, ts);
      std::memcpy(&want[6 * i], c.toArray().data(), 6 * sizeof(double));
    } catch (...) {
      scalar = {i, failureOf(std::current_exception())};
      break;
    }
  }
  std::vector<double> got(6 * n);
  const std::span<const std::byte> stored(
      reinterpret_cast<const std::byte*>(bytes.data()), bytes.size());
  checkSame(
      outcomeOfBatch(n,
                     [&] {
                       Batch::toCalendar(stored, type, epoch, ts, got, {fl, n});
                     }),
      scalar, "toCalendar");
  checkBytes(got.data(), want.data(), 6 * sizeof(double) * scalar.index,
             "toCalendar rows");
  if (!type.isDouble()) return;
  onEveryPath(
      n, 6, scalar, want.data(), "toCalendar on a path",
      [&](Path path, std::span<double> out) {
        Batch::detail::toCalendarOn(path, doubles, epoch, ts, out, {fl, n});
      });
}

void fromCalendarCase(FuzzedDataProvider& in, Epoch epoch, TimeStandard ts,
                      const DataType& type, std::size_t n, bool checked) {
  std::vector<double> rows(6 * n);
  for (std::size_t i = 0; i < n; ++i) {
    kvfuzz::plausibleDate(in, &rows[6 * i]);
    for (int f = 0; f < 6; ++f)
      if (f >= 3 || in.ConsumeIntegralInRange<int>(0, 7) == 0)
        rows[6 * i + f] =
            f >= 3 && in.ConsumeBool()
                ? in.ConsumeIntegralInRange<int>(0, 61) +
                      (f == 5 ? in.ConsumeProbability<double>() : 0.0)
                : kvfuzz::anyDouble(in);
  }
  const std::size_t size = type.sizeofCompact();
  std::vector<unsigned char> want(size * n);
  std::vector<char> wantFlags(n);
  Outcome scalar{n, ""};
  for (std::size_t i = 0; i < n; ++i) {
    try {
      const double* r = &rows[6 * i];
      const DateTimeStruct cal =
          DateTimeStruct::unchecked(r[0], r[1], r[2], r[3], r[4], r[5]);
      if (checked) {
        for (int f = 0; f < 6; ++f)
          if (!std::isfinite(r[f])) throw std::invalid_argument("");
        Korvane::DateTime::throwIfSet(
            DateTimeUtilities::validateDateTime(cal.toArray(), ts));
        if (!DateTime::isValueInRangeOfType(cal, epoch, ts, type))
          throw std::overflow_error("");
      }
      const DateTime dt(cal, epoch, ts, type);
      dt.value.toCompact(&want[size * i], size);
      wantFlags[i] = dt.isLeapSecond;
    } catch (...) {
      scalar = {i, failureOf(std::current_exception())};
      break;
    }
  }
  std::vector<unsigned char> got(size * n);
  std::vector<char> gotFlags(n);
  const std::span<bool> fl(reinterpret_cast<bool*>(gotFlags.data()), n);
  const std::span<std::byte> out(reinterpret_cast<std::byte*>(got.data()),
                                 got.size());
  checkSame(outcomeOfBatch(
                n,
                [&] {
                  if (checked)
                    Batch::fromCalendarChecked(rows, epoch, ts, type, out, fl);
                  else
                    Batch::fromCalendar(rows, epoch, ts, type, out, fl);
                }),
            scalar, "fromCalendar");
  checkBytes(got.data(), want.data(), size * scalar.index,
             "fromCalendar values");
  checkBytes(gotFlags.data(), wantFlags.data(), scalar.index,
             "fromCalendar flags");
  if (!type.isDouble()) return;
  onEveryPath(n, 1, scalar, want.data(), "fromCalendar on a path",
              [&](Path path, std::span<double> out) {
                Batch::detail::fromCalendarOn(path, checked, rows, epoch, ts,
                                              out, fl);
              });
}

// `values` (compact bytes of `type`) in turn, as a model's clock would, the
// prepared way and the long way, each with its own cursor and a control in
// `mode`; a value may come in another standard, epoch or type than the
// prepared one.
void checkPrepared(FuzzedDataProvider& in, const LeapSecondTableData& table,
                   Epoch epoch, TimeStandard from, TimeStandard to,
                   const DataType& type,
                   const std::vector<unsigned char>& bytes, const bool* flags,
                   std::size_t n) {
  const TimeStandardConverter::PreparedConversion prepared(table, from, to,
                                                           epoch, type);
  const FXP::MathMode mode(in.ConsumeIntegralInRange<int>(0, 5),
                           in.ConsumeIntegralInRange<int>(0, 1));
  std::uint32_t cursor = 0, expectedCursor = 0;
  const std::size_t size = type.sizeofCompact();
  for (std::size_t i = 0; i < n; ++i) {
    // A double element may be a NaN or an infinity, which no time point
    // holds: the array call refuses it, and there is nothing to convert.
    DataValue v;
    try {
      v = DataValue::fromCompact(type, &bytes[size * i]);
    } catch (const std::invalid_argument&) {
      continue;
    }
    DateTime dt(DvLs{v, flags[i]}, epoch, from);
    switch (in.ConsumeIntegralInRange<int>(0, 15)) {
      case 0:
        dt.timeStandard = kvfuzz::anyStandard(in);
        break;
      case 1:
        dt.epoch = kvfuzz::anyEpoch(in);
        break;
      case 2:
        dt.value = DataValue::fromDouble(DataType::fixedT(true, 64, 8),
                                         dt.value.toDouble(), mode);
        break;
      default:
        break;
    }
    FixptRangeMath::FixptRangeMathLogger heard, expectedHeard;
    FXP::MathControl control(mode), expectedControl(mode);
    control.setMathLogger(&heard);
    expectedControl.setMathLogger(&expectedHeard);
    DateTime got = dt, expected = dt;
    std::string error, expectedError;
    try {
      got = prepared.convert(dt, control, cursor);
    } catch (...) {
      error = failureOf(std::current_exception());
    }
    try {
      expected = TimeStandardConverter::convertTimeStandard(
          dt, to, table, expectedControl, &expectedCursor);
    } catch (...) {
      expectedError = failureOf(std::current_exception());
    }
    const std::string where = "prepared, element " + std::to_string(i);
    KVFUZZ_CHECK(error == expectedError && cursor == expectedCursor &&
                     heard.overflowCount() == expectedHeard.overflowCount(),
                 where + ": " + error + "/" + expectedError + ", cursor " +
                     std::to_string(cursor) + "/" +
                     std::to_string(expectedCursor));
    if (!error.empty()) continue;
    unsigned char a[16] = {}, b[16] = {};
    got.value.toCompact(a, sizeof a);
    expected.value.toCompact(b, sizeof b);
    KVFUZZ_CHECK(std::memcmp(a, b, sizeof a) == 0 &&
                     got.value.getDataType() == expected.value.getDataType() &&
                     got.isLeapSecond == expected.isLeapSecond &&
                     got.epoch == expected.epoch &&
                     got.timeStandard == expected.timeStandard,
                 where);
  }
}

void convertCase(FuzzedDataProvider& in, Epoch epoch, TimeStandard from,
                 TimeStandard to, const DataType& type, std::size_t n) {
  LeapSecondTableData table;
  try {
    table = in.ConsumeBool()
                ? LeapSecondTableDataCreator::build(epoch, type)
                : LeapSecondTableDataCreator::build(
                      {{1972, {1, 1}}, {1990, {0, 1}}, {2015, {-1, 0}}}, epoch,
                      type);
  } catch (...) {
    return;  // a type the table cannot be built in; not ours to judge
  }
  const std::size_t size = type.sizeofCompact();
  std::vector<unsigned char> bytes;
  std::vector<char> flags(n);
  std::vector<double> doubles;
  for (std::size_t i = 0; i < n; ++i) {
    flags[i] = in.ConsumeIntegralInRange<int>(0, 5) == 0;
    double d = anyStored(in, epoch);
    // Often right at an entry of the table, where the counts change.
    const auto& instants =
        in.ConsumeBool() ? table.utcInstants : table.taiInstants;
    if (!instants.empty() && in.ConsumeBool())
      d = instants[in.ConsumeIntegralInRange<std::size_t>(0,
                                                          instants.size() - 1)]
              .toDouble() +
          DateTimeUtilities::secondsToTimeShift(
              in.ConsumeIntegralInRange<int>(-2, 5) * 0.5, epoch);
    if (type.isDouble()) doubles.push_back(d);
    unsigned char b[16];
    DataValue::fromDouble(type, d, FXP::MathMode()).toCompact(b, sizeof b);
    bytes.insert(bytes.end(), b, b + size);
  }
  if (type.isDouble() && n > 0)
    std::memcpy(bytes.data(), doubles.data(), 8 * n);
  const bool* fl = reinterpret_cast<const bool*>(flags.data());
  checkPrepared(in, table, epoch, from, to, type, bytes, fl, n);
  std::vector<unsigned char> want(size * n);
  std::vector<char> wantFlags(n);
  Outcome scalar{n, ""};
  for (std::size_t i = 0; i < n; ++i) {
    try {
      FixptRangeMath::FixptRangeMathLogger overflow;
      FXP::MathControl control =
          FXP::MathControl::createFullPrecisionNearSatMathControl();
      control.setMathLogger(&overflow);
      const DateTime r = TimeStandardConverter::convertTimeStandard(
          DateTime(DvLs{DataValue::fromCompact(type, &bytes[size * i]), fl[i]},
                   epoch, from),
          to, table, control);
      if (overflow.overflowOccurred()) throw std::overflow_error("");
      r.value.toCompact(&want[size * i], size);
      wantFlags[i] = r.isLeapSecond;
    } catch (...) {
      scalar = {i, failureOf(std::current_exception())};
      break;
    }
  }
  std::vector<unsigned char> got(size * n);
  std::vector<char> gotFlags(n);
  const std::span<bool> flOut(reinterpret_cast<bool*>(gotFlags.data()), n);
  checkSame(outcomeOfBatch(
                n,
                [&] {
                  Batch::convertStandard(
                      {reinterpret_cast<const std::byte*>(bytes.data()),
                       bytes.size()},
                      type, epoch, from, to, table,
                      {reinterpret_cast<std::byte*>(got.data()), got.size()},
                      {fl, n}, flOut);
                }),
            scalar, "convertStandard");
  checkBytes(got.data(), want.data(), size * scalar.index,
             "convertStandard values");
  checkBytes(gotFlags.data(), wantFlags.data(), scalar.index,
             "convertStandard flags");
  if (!type.isDouble()) return;
  onEveryPath(n, 1, scalar, want.data(), "convertStandard on a path",
              [&](Path path, std::span<double> out) {
                Batch::detail::convertStandardOn(path, doubles, epoch, from, to,
                                                 table, out, {fl, n}, flOut);
              });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  FuzzedDataProvider in(data, size);
  const int op = in.ConsumeIntegralInRange<int>(0, 3);
  const Epoch epoch = kvfuzz::anyEpoch(in);
  const TimeStandard ts = kvfuzz::anyStandard(in);
  const TimeStandard to = kvfuzz::anyStandard(in);
  DataType type;
  try {
    type = anyType(in);
  } catch (const std::invalid_argument&) {
    return 0;
  }
  const std::size_t n = in.ConsumeIntegralInRange<std::size_t>(0, 40);
  switch (op) {
    case 0:
      toCalendarCase(in, epoch, ts, type, n);
      break;
    case 1:
    case 2:
      fromCalendarCase(in, epoch, ts, type, n, op == 2);
      break;
    default:
      convertCase(in, epoch, ts, to, type, n);
      break;
  }
  return 0;
}
