// The array functions: every element goes through the same library calls as
// a scalar DateTime, in a C++ loop with the GIL released and no Python object
// per element. Each call writes into arrays it creates itself and returns
// them only when every element succeeded, so a failure leaves nothing half
// written; the error names the first bad element.
#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <type_traits>
#include <vector>

#include "date_time/StorageTypeName.hpp"
#include "date_time/TimeStandardConverter.hpp"
#include "python/Common.hpp"

namespace kvpy {

namespace {

using KvDateTime::DateTime;
using KvDateTime::DvLs;

// How stored values lie in an array: float64 for double storage; int64 or
// uint64 raw stored integers for fixed point of up to 64 bits; 16 bytes a
// value (an (n, 2) array of 64-bit words, low word first, or a structured
// 16-byte dtype) for wider fixed point, as in the compact form.
enum class Layout { Double, Int64, UInt64, Wide };

Layout layoutOf(const FXP::DataType& type) {
  if (type.isDouble()) return Layout::Double;
  if (type.sizeofCompact() == 16) return Layout::Wide;
  return type.isSigned() ? Layout::Int64 : Layout::UInt64;
}

struct StoredIn {
  Layout layout;
  const unsigned char* data;
  std::size_t size;
  FXP::DataType type;

  // The layout is a template argument so that a loop reads its values
  // without a switch per element; `forLayout` picks the instance once.
  template <Layout L>
  FXP::DataValue at(std::size_t i) const {
    if constexpr (L == Layout::Double) {
      return storedFromDouble(reinterpret_cast<const double*>(data)[i]);
    } else if constexpr (L == Layout::Int64) {
      return FXP::DataValue::fromStoredSigned(
          type, reinterpret_cast<const std::int64_t*>(data)[i]);
    } else if constexpr (L == Layout::UInt64) {
      return FXP::DataValue::fromStoredUnsigned(
          type, reinterpret_cast<const std::uint64_t*>(data)[i]);
    } else {
      return FXP::DataValue::fromCompact(type, data + 16 * i);
    }
  }

  template <typename F>
  decltype(auto) forLayout(F&& f) const {
    switch (layout) {
      case Layout::Int64:
        return f(std::integral_constant<Layout, Layout::Int64>{});
      case Layout::UInt64:
        return f(std::integral_constant<Layout, Layout::UInt64>{});
      case Layout::Wide:
        return f(std::integral_constant<Layout, Layout::Wide>{});
      case Layout::Double:
        break;
    }
    return f(std::integral_constant<Layout, Layout::Double>{});
  }
};

struct StoredOut {
  Layout layout;
  unsigned char* data;

  void put(std::size_t i, const FXP::DataValue& v) const {
    if (layout == Layout::Double) {
      reinterpret_cast<double*>(data)[i] = v.toDouble();
      return;
    }
    // The stored integer, extended to 128 bits: one native word for the
    // 64-bit layouts, low word then high word for the wide one.
    const std::array<std::uint32_t, 4> w = v.getFatVal();
    auto* words = reinterpret_cast<std::uint64_t*>(data);
    if (layout == Layout::Wide) {
      words[2 * i] = w[0] | std::uint64_t{w[1]} << 32;
      words[2 * i + 1] = w[2] | std::uint64_t{w[3]} << 32;
    } else {
      words[i] = w[0] | std::uint64_t{w[1]} << 32;
    }
  }
};

// The values, with the array that owns them kept alive beside them.
struct Input {
  py::array array;
  StoredIn in;
};

// `values` as an array of numbers (bool, integer or floating; `kinds`
// narrows that): NumPy would cast strings to numbers, or fail, and
// array_t::ensure clears the error it raises, leaving nothing to report.
py::array numbers(py::handle values, const char* what,
                  const char* kinds = "biuf") {
  const py::array a = py::array::ensure(values);
  if (!a || !std::strchr(kinds, a.dtype().kind()))
    throw py::type_error(std::string(what) + " must be an array of " +
                         (std::strchr(kinds, 'f') ? "numbers" : "integers"));
  return a;
}

Input storedInput(py::handle values, const FXP::DataType& type) {
  const Layout layout = layoutOf(type);
  py::array a;
  if (layout == Layout::Double) {
    a = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(
        numbers(values, "double stored values"));
  } else {
    a = py::array::ensure(values, py::array::c_style);
    if (!a) throw py::type_error("stored values must be an array");
    if (!py::bool_(a.dtype().attr("isnative")))
      throw py::value_error("stored values must be in native byte order");
  }
  if (!a) throw py::type_error("stored values must be an array of numbers");
  const char kind = a.dtype().kind();
  std::size_t n = 0;
  Layout inLayout = layout;
  if (layout == Layout::Double) {
    if (a.ndim() != 1)
      throw py::value_error("double stored values must be a 1-D array");
    n = a.shape(0);
  } else if (layout == Layout::Wide) {
    const bool pairs = a.ndim() == 2 && a.shape(1) == 2 && a.itemsize() == 8 &&
                       (kind == 'i' || kind == 'u');
    const bool records = a.ndim() == 1 && a.itemsize() == 16 && kind == 'V';
    if (!pairs && !records)
      throw py::type_error("stored values of " +
                           KvDateTime::StorageTypeName::name(type) +
                           " must be an (n, 2) array of 64-bit integers (low "
                           "word, high word) or "
                           "a 1-D array of a 16-byte structured dtype");
    n = a.shape(0);
  } else {
    if (a.ndim() != 1 || (kind != 'i' && kind != 'u'))
      throw py::type_error(
          "fixed-point stored values must be a 1-D array of raw "
          "stored integers");
    // Narrower integer arrays are widened; the words are checked per value.
    if (kind == 'u') {
      a = py::array_t<std::uint64_t,
                      py::array::c_style | py::array::forcecast>::ensure(a);
      inLayout = Layout::UInt64;
    } else {
      a = py::array_t<std::int64_t,
                      py::array::c_style | py::array::forcecast>::ensure(a);
      inLayout = Layout::Int64;
    }
    n = a.shape(0);
  }
  return {a, StoredIn{inLayout, static_cast<const unsigned char*>(a.data()), n,
                      type}};
}

py::array storedArray(const FXP::DataType& type, std::size_t n) {
  switch (layoutOf(type)) {
    case Layout::Double:
      return py::array_t<double>(n);
    case Layout::Int64:
      return py::array_t<std::int64_t>(n);
    case Layout::UInt64:
      return py::array_t<std::uint64_t>(n);
    case Layout::Wide:
      return type.isSigned()
                 ? py::array(py::array_t<std::int64_t>({n, std::size_t{2}}))
                 : py::array(py::array_t<std::uint64_t>({n, std::size_t{2}}));
  }
  return {};
}

// The leap-second flags given with the values, or null for none.
std::optional<py::array_t<bool>> flagsInput(py::handle flags, std::size_t n) {
  if (flags.is_none()) return std::nullopt;
  auto a = py::array_t<bool, py::array::c_style | py::array::forcecast>::ensure(
      numbers(flags, "leap_second", "biu"));
  if (a.ndim() != 1 || static_cast<std::size_t>(a.shape(0)) != n)
    throw py::value_error(
        "leap_second must be a 1-D array as long as the values");
  return a;
}

struct Failure {
  std::size_t index;
  std::exception_ptr error;
};
using Outcome = std::optional<Failure>;

// --- The loops: pure C++, called with the GIL released. -------------------

template <Layout L>
Outcome toCalendarLoop(const StoredIn& in, const bool* flags, Epoch epoch,
                       TimeStandard ts, double* out) {
  std::size_t i = 0;
  try {
    for (; i < in.size; ++i) {
      const DateTimeStruct c = readBack(
          DvLs{in.template at<L>(i), flags && flags[i]}, epoch, ts);
      double* row = out + 6 * i;
      row[0] = c.year;
      row[1] = c.month;
      row[2] = c.day;
      row[3] = c.hour;
      row[4] = c.minute;
      row[5] = c.second;
    }
  } catch (...) {
    return Failure{i, std::current_exception()};
  }
  return std::nullopt;
}

Outcome fromCalendarLoop(const double* fields, std::size_t n, Epoch epoch,
                         TimeStandard ts, const FXP::DataType& type,
                         const StoredOut& out, bool* flagsOut) {
  std::size_t i = 0;
  try {
    for (; i < n; ++i) {
      const double* row = fields + 6 * i;
      const DateTimeStruct cal =
          checkedReading({row[0], row[1], row[2], row[3], row[4], row[5]}, ts);
      if (!DateTime::isValueInRangeOfType(cal, epoch, ts, type))
        throw std::overflow_error(
            "the reading counted from the epoch does not fit the storage type");
      // Checked as the scalar constructor checks: no leap second that the
      // storage type rounds out of itself, none where none was inserted.
      const DvLs v = KvDateTime::Clock::timePointFrom(cal, ts, epoch, type);
      out.put(i, v.value);
      flagsOut[i] = v.isLeapSecond;
    }
  } catch (...) {
    return Failure{i, std::current_exception()};
  }
  return std::nullopt;
}

// The cursor of a batch. The library's cursor only moves forward, which
// suits a clock; logged values may come in any order, so when a value is
// below the one before, the cursor goes back to the last entry whose instant
// lies below it. Every entry before that one is half a year or more below
// the value and so passed for certain; the last one is judged again.
std::uint32_t seekCursor(const std::vector<FXP::DataValue>& instants,
                         const FXP::DataValue& value) {
  const auto below = std::lower_bound(instants.begin(), instants.end(), value) -
                     instants.begin();
  return static_cast<std::uint32_t>(below > 0 ? below - 1 : 0);
}

template <Layout L>
Outcome convertLoop(const StoredIn& in, const bool* flags, TimeStandard from,
                    TimeStandard to, Epoch epoch,
                    const KvDateTime::LeapSecondTableData& table,
                    const StoredOut& out, bool* flagsOut) {
  const auto convert =
      KvDateTime::TimeStandardConverter::getStaticConverterImpl(from, to);
  const bool fromAtomic = from == TimeStandard::TAI || from == TimeStandard::TT;
  const auto& instants = fromAtomic ? table.taiInstants : table.utcInstants;
  FixptRangeMath::FixptRangeMathLogger overflow;
  FXP::MathControl control =
      FXP::MathControl::createFullPrecisionNearSatMathControl();
  control.setMathLogger(&overflow);
  std::uint32_t cursor = 0;
  FXP::DataValue previous;
  std::size_t i = 0;
  try {
    for (; i < in.size; ++i) {
      const DvLs v{in.template at<L>(i), flags && flags[i]};
      if (i > 0 && v.value < previous) cursor = seekCursor(instants, v.value);
      previous = v.value;
      const DvLs r =
          convert(v, table, from, to, epoch, control, &cursor, false);
      if (overflow.overflowOccurred())
        throw std::overflow_error("the result does not fit the storage type");
      out.put(i, r.value);
      flagsOut[i] = r.isLeapSecond;
    }
  } catch (...) {
    return Failure{i, std::current_exception()};
  }
  return std::nullopt;
}

template <Layout L>
Outcome formatLoop(const StoredIn& in, const bool* flags, Epoch epoch,
                   TimeStandard ts, const std::u16string& pattern,
                   std::vector<std::u16string>& out) {
  std::size_t i = 0;
  try {
    for (; i < in.size; ++i) {
      const DateTimeStruct c = readBack(
          DvLs{in.template at<L>(i), flags && flags[i]}, epoch, ts);
      out.push_back(
          KvDateTime::DateTimeStructFormatter(c, ts).getFormattedStr(pattern));
    }
  } catch (...) {
    return Failure{i, std::current_exception()};
  }
  return std::nullopt;
}

// Runs `loop` without the GIL and raises its failure with the GIL back.
template <typename Loop>
void runReleased(Loop&& loop) {
  Outcome failure;
  {
    py::gil_scoped_release release;
    failure = loop();
  }
  if (failure) raise(failure->error, failure->index);
}

const bool* flagData(const std::optional<py::array_t<bool>>& flags) {
  return flags ? flags->data() : nullptr;
}

}  // namespace

void bindBatch(py::module_& m) {
  const py::object e1970 = m.attr("Epoch").attr("E1970");
  const py::object utc = m.attr("TimeStandard").attr("UTC");
  const py::object tai = m.attr("TimeStandard").attr("TAI");

  m.def(
      "to_calendar",
      [](py::handle values, py::handle epoch, py::handle standard,
         py::handle storage, py::handle leapSecond) {
        const Epoch e = epochArg(epoch);
        const TimeStandard ts = standardArg(standard);
        const Input input = storedInput(values, storageArg(storage));
        const auto flags = flagsInput(leapSecond, input.in.size);
        py::array_t<double> out({input.in.size, std::size_t{6}});
        double* data = out.mutable_data();
        runReleased([&] {
          return input.in.forLayout([&](auto l) {
            return toCalendarLoop<decltype(l)::value>(input.in, flagData(flags),
                                                      e, ts, data);
          });
        });
        return out;
      },
      py::arg("values"), py::arg("epoch") = e1970, py::arg("standard") = utc,
      py::arg("storage") = "double", py::arg("leap_second") = py::none(),
      "Stored values to an (n, 6) float64 array of calendar fields (year, "
      "month, day, hour, minute, second).");

  m.def(
      "from_calendar",
      [](py::handle fields, py::handle epoch, py::handle standard,
         py::handle storage) {
        const Epoch e = epochArg(epoch);
        const TimeStandard ts = standardArg(standard);
        const FXP::DataType type = storageArg(storage);
        auto a =
            py::array_t<double, py::array::c_style | py::array::forcecast>::
                ensure(numbers(fields, "calendar fields"));
        if (a.ndim() != 2 || a.shape(1) != 6)
          throw py::value_error("calendar fields must be an (n, 6) array");
        const std::size_t n = a.shape(0);
        py::array out = storedArray(type, n);
        py::array_t<bool> flags(n);
        const StoredOut sink{layoutOf(type),
                             static_cast<unsigned char*>(out.mutable_data())};
        bool* flagsOut = flags.mutable_data();
        const double* in = a.data();
        runReleased([&] {
          return fromCalendarLoop(in, n, e, ts, type, sink, flagsOut);
        });
        return py::make_tuple(out, flags);
      },
      py::arg("fields"), py::arg("epoch") = e1970, py::arg("standard") = utc,
      py::arg("storage") = "double",
      "An (n, 6) array of readings to (stored values, leap-second flags).");

  m.def(
      "convert_standard",
      [](py::handle values, py::handle fromStandard, py::handle toStandard,
         py::handle epoch, py::handle storage, py::handle leapSecond,
         py::handle table) {
        const Epoch e = epochArg(epoch);
        const TimeStandard from = standardArg(fromStandard);
        const TimeStandard to = standardArg(toStandard);
        const FXP::DataType type = storageArg(storage);
        const Input input = storedInput(values, type);
        const auto flags = flagsInput(leapSecond, input.in.size);
        const KvDateTime::LeapSecondTableData& data =
            tableArg(table).forStorage(e, type);
        py::array out = storedArray(type, input.in.size);
        py::array_t<bool> flagsOut(input.in.size);
        const StoredOut sink{layoutOf(type),
                             static_cast<unsigned char*>(out.mutable_data())};
        bool* flagsData = flagsOut.mutable_data();
        runReleased([&] {
          return input.in.forLayout([&](auto l) {
            return convertLoop<decltype(l)::value>(
                input.in, flagData(flags), from, to, e, data, sink, flagsData);
          });
        });
        return py::make_tuple(out, flagsOut);
      },
      py::arg("values"), py::arg("from_standard") = utc,
      py::arg("to_standard") = tai, py::arg("epoch") = e1970,
      py::arg("storage") = "double", py::arg("leap_second") = py::none(),
      py::arg("table") = py::none(),
      "Stored values in one standard to (stored values, leap-second flags) in "
      "another, same epoch and storage type, with one table cursor for the "
      "call.");

  m.def(
      "format",
      [](py::handle values, py::handle pattern, py::handle epoch,
         py::handle standard, py::handle storage, py::handle leapSecond) {
        const Epoch e = epochArg(epoch);
        const TimeStandard ts = standardArg(standard);
        const std::u16string p = patternArg(pattern);
        const Input input = storedInput(values, storageArg(storage));
        const auto flags = flagsInput(leapSecond, input.in.size);
        std::vector<std::u16string> texts;
        texts.reserve(input.in.size);
        runReleased([&] {
          return input.in.forLayout([&](auto l) {
            return formatLoop<decltype(l)::value>(input.in, flagData(flags), e,
                                                  ts, p, texts);
          });
        });
        py::list out(texts.size());
        for (std::size_t i = 0; i < texts.size(); ++i)
          out[i] = textResult(texts[i]);
        return out;
      },
      py::arg("values"), py::arg("pattern"), py::arg("epoch") = e1970,
      py::arg("standard") = utc, py::arg("storage") = "double",
      py::arg("leap_second") = py::none(),
      "Stored values rendered by a pattern, as a list of str.");

  // For the benchmark script only: the best time of `repeats` runs of the
  // same loop a batch call runs, on the same values, timed inside C++ with
  // the output already allocated, so that the Python call's own cost shows
  // as the difference.
  m.def(
      "_time_loop_for_benchmark",
      [](const std::string& op, py::handle values, py::handle epoch,
         py::handle storage, int repeats) {
        const Epoch e = epochArg(epoch);
        const FXP::DataType type = storageArg(storage);
        const Input input = storedInput(values, type);
        const std::size_t n = input.in.size;
        const KvDateTime::LeapSecondTableData& table =
            LeapTable::builtIn().forStorage(e, type);
        std::vector<double> calendar(op == "to_calendar" ? 6 * n : 0);
        py::array out = storedArray(type, n);
        std::unique_ptr<bool[]> flags(new bool[n]);
        const StoredOut sink{layoutOf(type),
                             static_cast<unsigned char*>(out.mutable_data())};
        if (op != "to_calendar" && op != "utc_to_tai")
          throw py::value_error("op is to_calendar or utc_to_tai");
        double best = 1e300;
        Outcome failure;
        {
          py::gil_scoped_release release;
          for (int r = 0; r < repeats && !failure; ++r) {
            const auto start = std::chrono::steady_clock::now();
            failure = input.in.forLayout([&](auto l) {
              constexpr Layout L = decltype(l)::value;
              return op == "to_calendar"
                         ? toCalendarLoop<L>(input.in, nullptr, e,
                                             TimeStandard::UTC, calendar.data())
                         : convertLoop<L>(input.in, nullptr, TimeStandard::UTC,
                                          TimeStandard::TAI, e, table, sink,
                                          flags.get());
            });
            const std::chrono::duration<double> took =
                std::chrono::steady_clock::now() - start;
            best = std::min(best, took.count());
          }
        }
        if (failure) raise(failure->error, failure->index);
        return best;
      },
      py::arg("op"), py::arg("values"), py::arg("epoch"), py::arg("storage"),
      py::arg("repeats"));
}

}  // namespace kvpy
