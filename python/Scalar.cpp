// kvdatetime.DateTime: one time point. Values are immutable from Python:
// add and convert return new time points, so a failure can never leave one
// half changed.
#include <pybind11/stl.h>

#include <cmath>
#include <stdexcept>
#include <string>

#include "date_time/DateTimeConverter.hpp"
#include "date_time/StorageTypeName.hpp"
#include "date_time/TimeStandardConverter.hpp"
#include "host/diag/MessageCatalog.hpp"
#include "python/Common.hpp"

namespace kvpy {

namespace {

using KvDateTime::DateTime;
using KvDateTime::DvLs;

// A naive datetime.datetime, or a sequence of 3 to 6 numbers (year, month,
// day[, hour, minute, second]); the second may carry a fraction and, in
// UTC, be 60.x inside a leap second.
KvDateTime::DateTimeUtilities::CalendarValues readingArg(py::handle reading) {
  KvDateTime::DateTimeUtilities::CalendarValues c{};
  const py::object datetime = py::module_::import("datetime").attr("datetime");
  if (py::isinstance(reading, datetime)) {
    if (!reading.attr("tzinfo").is_none())
      throw py::value_error(
          "give the reading as a naive datetime in the time standard of the "
          "time point, without tzinfo");
    const char* names[] = {"year", "month", "day", "hour", "minute", "second"};
    for (int i = 0; i < 6; ++i) c[i] = reading.attr(names[i]).cast<double>();
    c[5] += reading.attr("microsecond").cast<double>() / 1e6;
    return c;
  }
  if (!py::isinstance<py::sequence>(reading) ||
      py::isinstance<py::str>(reading))
    throw py::type_error(
        "a reading is a datetime.datetime or a tuple "
        "(year, month, day[, hour, minute, second])");
  const py::sequence s = py::reinterpret_borrow<py::sequence>(reading);
  if (s.size() < 3 || s.size() > 6)
    throw py::value_error("a reading has 3 to 6 fields, not " +
                          std::to_string(s.size()));
  for (std::size_t i = 0; i < s.size(); ++i) {
    const py::object field = s[i];
    if (!PyNumber_Check(field.ptr()) || py::isinstance<py::str>(field))
      throw py::type_error("reading field " + std::to_string(i) +
                           " is not a number");
    c[i] = PyFloat_AsDouble(field.ptr());  // OverflowError past a double
    if (c[i] == -1.0 && PyErr_Occurred()) throw py::error_already_set();
  }
  return c;
}

// A leap-second flag is checked where it is given, not at first use: only
// UTC readings at 23:59:59.x of 30 June or 31 December may carry it.
DateTime withFlag(DateTime dt) {
  if (dt.isLeapSecond) (void)readBack(dt);
  return dt;
}

DateTime fromStored(py::handle value, Epoch epoch, TimeStandard ts,
                    const FXP::DataType& type, bool leapSecond) {
  if (type.isDouble())
    return withFlag(DateTime(
        DvLs{storedFromDouble(value.cast<double>()), leapSecond}, epoch, ts));
  // The raw stored integer: any integer, NumPy's included; a float has no
  // __index__ and is refused with TypeError.
  return withFlag(
      DateTime(DvLs{storedFromInteger(type, value), leapSecond}, epoch, ts));
}

py::object stored(const DateTime& dt) {
  if (dt.value.getDataType().isDouble()) return py::float_(dt.value.toDouble());
  return storedInteger(dt.value);
}

std::u16string render(const DateTime& dt, const std::u16string& pattern) {
  return KvDateTime::DateTimeStructFormatter(readBack(dt), dt.timeStandard)
      .getFormattedStr(pattern);
}

// A repr must not raise: a stored value whose reading lies outside the
// calendar (a sum far past year 9999) is shown by its stored value.
std::string describe(const DateTime& dt) {
  std::string reading;
  try {
    reading =
        resource_core::toUtf8(render(dt, u"yyyy-MM-dd HH:mm:ss.SSSSSS t"));
  } catch (const std::exception&) {
    reading = "stored " + dt.value.toDecimalString() + ", reading out of range";
  }
  return "<DateTime " + reading + ", " + epochName(dt.epoch) + ", storage " +
         KvDateTime::StorageTypeName::name(dt.value.getDataType()) +
         (dt.isLeapSecond ? ", leap second>" : ">");
}

// The storage type, from a name or the keywords, defaulting to `fallback`.
FXP::DataType storageOr(const FXP::DataType& fallback, py::handle storage,
                        py::handle isSigned, py::handle word,
                        py::handle fraction) {
  if (storage.is_none() && isSigned.is_none() && word.is_none() &&
      fraction.is_none())
    return fallback;
  return storageArg(storage, isSigned, word, fraction);
}

DateTime fromCompact(py::handle data, Epoch epoch, TimeStandard ts,
                     const FXP::DataType& type, bool leapSecond) {
  if (!py::isinstance<py::bytes>(data))
    throw py::type_error("the compact form must be bytes");
  const std::string bytes = data.cast<std::string>();
  if (bytes.size() != type.sizeofCompact())
    throw py::value_error("the compact form of " +
                          KvDateTime::StorageTypeName::name(type) + " has " +
                          std::to_string(type.sizeofCompact()) +
                          " bytes, not " + std::to_string(bytes.size()));
  DateTime dt(epoch, ts, type);
  dt.fromCompact(bytes.data(), leapSecond);
  return withFlag(dt);
}

// What identifies a time point, in plain Python values: its pickled state,
// and what it hashes, so that equal values hash alike.
py::tuple state(const DateTime& dt) {
  char bytes[16];
  dt.toCompact(bytes);
  return py::make_tuple(
      py::bytes(bytes, dt.value.getDataType().sizeofCompact()),
      static_cast<int>(dt.epoch), static_cast<int>(dt.timeStandard),
      KvDateTime::StorageTypeName::name(dt.value.getDataType()),
      dt.isLeapSecond);
}

bool sameValue(const DateTime& a, const DateTime& b) {
  return a.epoch == b.epoch && a.timeStandard == b.timeStandard &&
         a.value.getDataType() == b.value.getDataType() &&
         a.isLeapSecond == b.isLeapSecond && a.value == b.value;
}

void requireComparable(const DateTime& a, const DateTime& b, const char* op) {
  if (a.epoch != b.epoch || a.timeStandard != b.timeStandard ||
      !(a.value.getDataType() == b.value.getDataType()))
    throw py::value_error(std::string("cannot ") + op +
                          " time points of different epochs, "
                          "standards or storage types (" +
                          describe(a) + ", " + describe(b) +
                          "): convert() one to the other's first");
}

// -1, 0 or 1. A flagged value is second 60.x, after every unflagged value
// of the second before it whatever its fraction, so values with different
// flags are ordered by their readings.
int order(const DateTime& a, const DateTime& b) {
  requireComparable(a, b, "order");
  if (a.isLeapSecond != b.isLeapSecond) {
    try {
      const DateTimeStruct x = readBack(a), y = readBack(b);
      const double fx[] = {x.year, x.month, x.day, x.hour, x.minute, x.second};
      const double fy[] = {y.year, y.month, y.day, y.hour, y.minute, y.second};
      for (int i = 0; i < 6; ++i)
        if (fx[i] != fy[i]) return fx[i] < fy[i] ? -1 : 1;
      return a.isLeapSecond ? 1 : -1;
    } catch (const std::exception&) {
      // Past the calendar no leap second can lie between them.
    }
  }
  const auto c = a.value <=> b.value;
  return c < 0 ? -1 : c > 0 ? 1 : 0;
}

// The stored value in the epoch's own unit, exactly as a Python number
// until the one rounding to float: the raw integer over 2^fraction_length.
py::object exactUnits(const DateTime& dt) {
  if (dt.value.getDataType().isDouble())
    return py::module_::import("fractions")
        .attr("Fraction")(dt.value.toDouble());
  const py::object fraction = py::module_::import("fractions").attr("Fraction");
  return fraction(storedInteger(dt.value)) *
         fraction(2).attr("__pow__")(-dt.value.getDataType().fractionLength());
}

// The stored value as a float in days or seconds, whichever `days` asks
// for; ValueError when the epoch counts the other unit, as a float in the
// wrong unit would be read without a second look.
double inUnit(const DateTime& dt, bool days) {
  if (KvDateTime::DateTimeUtilities::isJulianCompatibleEpoch(dt.epoch) != days)
    throw py::value_error(epochName(dt.epoch) +
                          (days ? " counts seconds: read stored_seconds"
                                : " counts days: read stored_days"));
  if (dt.value.getDataType().isDouble()) return dt.value.toDouble();
  return exactUnits(dt).cast<double>();
}

// Elapsed seconds from b to a. UTC counts no leap second in its stored
// values, so both are taken to TAI (the built-in schedule) first.
double difference(const DateTime& a, const DateTime& b) {
  requireComparable(a, b, "subtract");
  if (a.timeStandard == TimeStandard::UTC) {
    const FXP::DataType type = a.value.getDataType();
    const auto& data = LeapTable::builtIn().forStorage(a.epoch, type);
    FXP::MathControl control =
        FXP::MathControl::createFullPrecisionNearSatMathControl();
    return difference(KvDateTime::TimeStandardConverter::convertTimeStandard(
                          a, TimeStandard::TAI, data, control),
                      KvDateTime::TimeStandardConverter::convertTimeStandard(
                          b, TimeStandard::TAI, data, control));
  }
  const py::object diff = exactUnits(a) - exactUnits(b);
  const bool days =
      KvDateTime::DateTimeUtilities::isJulianCompatibleEpoch(a.epoch);
  return (days ? diff * py::int_(86400) : diff).cast<double>();
}

}  // namespace

void bindScalar(py::module_& m) {
  const py::object e1970 = m.attr("Epoch").attr("E1970");
  const py::object utc = m.attr("TimeStandard").attr("UTC");
  py::class_<DateTime>(m, "DateTime",
                       "A time point: a stored value counted from an epoch, in "
                       "a time standard and a storage type, with the flag of a "
                       "UTC leap second.")
      .def(
          py::init([](ReadingLike reading, EpochLike epoch,
                      StandardLike standard, StorageLike storage,
                      OptBoolLike isSigned, OptIntLike word,
                      OptIntLike fraction) {
            const Epoch e = epochArg(epoch);
            const TimeStandard ts = standardArg(standard);
            const FXP::DataType type =
                storageArg(storage, isSigned, word, fraction);
            const DateTimeStruct cal = checkedReading(readingArg(reading), ts);
            if (!DateTime::isValueInRangeOfType(cal, e, ts, type))
              throw std::overflow_error(
                  "the reading counted from the epoch does not fit the storage "
                  "type " +
                  KvDateTime::StorageTypeName::name(type));
            // The library's checked time point: a UTC second 60 only where
            // the schedule inserts one, and never one the storage type
            // rounds out of its leap second.
            return KvDateTime::Clock::timePointFrom(cal, ts, e, type);
          }),
          py::arg("reading"), py::arg("epoch") = e1970,
          py::arg("standard") = utc, py::arg("storage") = py::none(),
          py::kw_only(), py::arg("signed") = py::none(),
          py::arg("word_length") = py::none(),
          py::arg("fraction_length") = py::none(),
          "From a reading (datetime.datetime or (y, m, d, H, M, S) tuple). "
          "Storage by name (\"double\", \"int64\", \"s128:64\") or by "
          "signed / word_length / fraction_length; double when neither.")
      .def_static(
          "from_stored",
          [](StoredLike value, EpochLike epoch, StandardLike standard,
             StorageLike storage, bool leapSecond) {
            return fromStored(value, epochArg(epoch), standardArg(standard),
                              storageArg(storage), leapSecond);
          },
          py::arg("value"), py::arg("epoch") = e1970, py::arg("standard") = utc,
          py::arg("storage") = py::none(), py::arg("leap_second") = false,
          "From a stored value: a float for double storage, the raw stored "
          "integer for fixed point.")
      .def_static(
          "from_compact",
          [](const py::bytes& data, EpochLike epoch, StandardLike standard,
             StorageLike storage, bool leapSecond) {
            return fromCompact(data, epochArg(epoch), standardArg(standard),
                               storageArg(storage), leapSecond);
          },
          py::arg("data"), py::arg("epoch") = e1970, py::arg("standard") = utc,
          py::arg("storage") = py::none(), py::arg("leap_second") = false)
      .def(
          "to_compact",
          [](const DateTime& dt) {
            char bytes[16];
            dt.toCompact(bytes);
            return py::bytes(bytes, dt.value.getDataType().sizeofCompact());
          },
          "The stored value's compact bytes; the flag is not in them.")
      .def_property_readonly("stored", &stored,
                             "The stored value as held: a float for double "
                             "storage, the raw stored integer for fixed point "
                             "(the same as stored_raw).")
      .def_property_readonly("stored_raw", &stored,
                             "The stored value as held: a float for double "
                             "storage, the raw stored integer for fixed point.")
      .def_property_readonly(
          "stored_seconds",
          [](const DateTime& dt) { return inUnit(dt, false); },
          "The stored value in seconds since the epoch, as a float (what kvdt "
          "prints); ValueError for the day epochs JD, MJD and J2000.")
      .def_property_readonly(
          "stored_days", [](const DateTime& dt) { return inUnit(dt, true); },
          "The stored value in days since the epoch, as a float; ValueError "
          "for the seconds epochs E1970, E1900 and E1958.")
      .def_property_readonly(
          "epoch", [](const DateTime& dt) { return epochEnum(dt.epoch); })
      .def_property_readonly(
          "standard",
          [](const DateTime& dt) { return standardEnum(dt.timeStandard); })
      .def_property_readonly(
          "storage",
          [](const DateTime& dt) {
            return KvDateTime::StorageTypeName::name(dt.value.getDataType());
          })
      .def_property_readonly("leap_second",
                             [](const DateTime& dt) { return dt.isLeapSecond; })
      .def(
          "to_calendar",
          [](const DateTime& dt) {
            const DateTimeStruct c = readBack(dt);
            return py::make_tuple(c.year, c.month, c.day, c.hour, c.minute,
                                  c.second);
          },
          "(year, month, day, hour, minute, second) in the time point's "
          "standard; second 60.x inside a UTC leap second.")
      .def(
          "add",
          [](const DateTime& dt, double seconds) {
            if (!std::isfinite(seconds))
              throw py::value_error(
                  "the shift is not a finite number of seconds");
            DateTime out = dt;
            FXP::MathControl control =
                FXP::MathControl::createFullPrecisionNearSatMathControl();
            if (out.addWithOverflowCheck(seconds, control))
              throw std::overflow_error(
                  "the sum leaves the range of the storage type " +
                  KvDateTime::StorageTypeName::name(dt.value.getDataType()));
            return out;
          },
          py::arg("seconds"),
          "A new time point `seconds` later (days / 86400 for day epochs). "
          "OverflowError when the sum leaves the storage type.")
      .def(
          "convert",
          [](const DateTime& dt, OptEpochLike epoch, OptStandardLike standard,
             StorageLike storage, TableLike table) {
            const Epoch toEpoch =
                epoch.obj.is_none() ? dt.epoch : epochArg(epoch);
            const TimeStandard toTs = standard.obj.is_none()
                                          ? dt.timeStandard
                                          : standardArg(standard);
            const FXP::DataType type = dt.value.getDataType();
            const FXP::DataType toType =
                storageOr(type, storage, py::none(), py::none(), py::none());
            LeapTable& leap = tableArg(table);
            FixptRangeMath::FixptRangeMathLogger overflow;
            FXP::MathControl control =
                FXP::MathControl::createFullPrecisionNearSatMathControl();
            control.setMathLogger(&overflow);
            DateTime out = dt;
            // Epoch and type first: TDB exists only for a double counting
            // days, so the standard changes where the value is going.
            if (toEpoch != dt.epoch || !(toType == type)) {
              out = DateTime(
                  DvLs{KvDateTime::DateTimeConverter::forEpochs(dt.epoch,
                                                                toEpoch)
                           .convertEpochImpl(dt.value, dt.epoch, toEpoch,
                                             dt.timeStandard, toType, control),
                       dt.isLeapSecond},
                  toEpoch, dt.timeStandard);
            }
            if (toTs != dt.timeStandard)
              out = KvDateTime::TimeStandardConverter::convertTimeStandard(
                  out, toTs, leap.forStorage(toEpoch, toType), control);
            if (overflow.overflowOccurred())
              throw std::overflow_error(
                  "the value does not fit the storage type " +
                  KvDateTime::StorageTypeName::name(toType));
            return out;
          },
          py::arg("epoch") = py::none(), py::arg("standard") = py::none(),
          py::arg("storage") = py::none(), py::arg("table") = py::none(),
          "The same instant in another epoch, standard and/or storage type; "
          "leap seconds from `table` (the built-in schedule when None).")
      .def(
          "format",
          [](const DateTime& dt, PatternLike pattern) {
            return textResult(render(dt, patternArg(pattern)));
          },
          py::arg("pattern"),
          "The reading rendered by a pattern such as "
          "\"yyyy-MM-dd HH:mm:ss.SSS t\".")
      // Operators: another type compares unequal (and orders with
      // TypeError) instead of raising here.
      .def("__eq__", &sameValue, py::is_operator(), py::arg("other"))
      .def(
          "__ne__",
          [](const DateTime& a, const DateTime& b) { return !sameValue(a, b); },
          py::is_operator(), py::arg("other"))
      .def(
          "__lt__",
          [](const DateTime& a, const DateTime& b) { return order(a, b) < 0; },
          py::is_operator(), py::arg("other"))
      .def(
          "__le__",
          [](const DateTime& a, const DateTime& b) { return order(a, b) <= 0; },
          py::is_operator(), py::arg("other"))
      .def(
          "__gt__",
          [](const DateTime& a, const DateTime& b) { return order(a, b) > 0; },
          py::is_operator(), py::arg("other"))
      .def(
          "__ge__",
          [](const DateTime& a, const DateTime& b) { return order(a, b) >= 0; },
          py::is_operator(), py::arg("other"))
      .def("__sub__", &difference, py::is_operator(), py::arg("other"),
           "Seconds from `other` to this time point, as a float; both in the "
           "same epoch, standard and storage type (ValueError otherwise). "
           "In UTC the leap seconds between them count.")
      .def("__hash__", [](const DateTime& dt) { return py::hash(state(dt)); })
      .def(py::pickle(&state,
                      [](const py::tuple& t) {
                        if (t.size() != 5)
                          throw py::value_error("not a pickled DateTime");
                        return fromCompact(t[0], epochArg(t[1]),
                                           standardArg(t[2]), storageArg(t[3]),
                                           t[4].cast<bool>());
                      }))
      .def("__copy__", [](const DateTime& dt) { return dt; })
      .def(
          "__deepcopy__", [](const DateTime& dt, py::handle) { return dt; },
          py::arg("memo"))
      .def("__repr__", &describe);
}

}  // namespace kvpy
