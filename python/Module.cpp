// The kvdatetime extension module: the library's time points, leap-second
// tables and formatting for Python, one value at a time (Scalar.cpp) or an
// array at a time (Batch.cpp).
#include <pybind11/stl.h>

#include <cmath>
#include <cstring>
#include <stdexcept>

#include "date_time/StorageTypeName.hpp"
#include "date_time/diagnostics/Raise.hpp"
#include "python/Common.hpp"

namespace kvpy {

namespace {

// Owned by the module object for the life of the interpreter; the handles
// here only point at them.
py::handle gEpochEnum, gStandardEnum, gError;

constexpr const char* kEpochNames[] = {"E1970", "E1900", "E1958",
                                       "JD",    "MJD",   "J2000"};
constexpr const char* kStandardNames[] = {"TAI", "UTC", "TT", "TDB"};

int enumArg(py::handle h, int count, const char* what) {
  if (!py::isinstance<py::int_>(h))
    throw py::type_error(std::string(what) + " must be a member of " + what +
                         " or its integer value");
  const long v = h.cast<long>();
  if (v < 0 || v >= count)
    throw py::value_error(std::to_string(v) + " is not a " + what + " value");
  return static_cast<int>(v);
}

}  // namespace

py::object epochEnum(Epoch e) { return gEpochEnum(static_cast<int>(e)); }
py::object standardEnum(TimeStandard ts) {
  return gStandardEnum(static_cast<int>(ts));
}
Epoch epochArg(py::handle h) { return Epoch(enumArg(h, 6, "Epoch")); }
TimeStandard standardArg(py::handle h) {
  return TimeStandard(enumArg(h, 4, "TimeStandard"));
}

FXP::DataType storageArg(py::handle storage, py::handle isSigned,
                         py::handle wordLength, py::handle fractionLength) {
  const bool keywords =
      !isSigned.is_none() || !wordLength.is_none() || !fractionLength.is_none();
  if (!storage.is_none()) {
    if (keywords)
      throw py::value_error(
          "give the storage type either by name or by signed / word_length / "
          "fraction_length, not both");
    if (!py::isinstance<py::str>(storage))
      throw py::type_error("the storage type name must be a str");
    return KvDateTime::StorageTypeName::parse(storage.cast<std::string>());
  }
  if (!keywords) return FXP::DataType::doubleT();
  if (wordLength.is_none())
    throw py::value_error("a fixed-point storage type needs word_length");
  return FXP::DataType::fixedT(
      isSigned.is_none() ? true : isSigned.cast<bool>(), wordLength.cast<int>(),
      fractionLength.is_none() ? 0 : fractionLength.cast<int>());
}

DateTimeStruct checkedReading(
    const KvDateTime::DateTimeUtilities::CalendarValues& c, TimeStandard ts) {
  for (double f : c)
    if (!std::isfinite(f))
      throw std::invalid_argument("a calendar field is not a finite number");
  if (kvsvDiagnostic d = KvDateTime::DateTimeUtilities::validateDateTime(c, ts))
    kvsvThrowIExceptionFromDiagnostic(d, nullptr);
  // Fields set one by one: the array constructor would validate again.
  DateTimeStruct cal;
  cal.year = c[0];
  cal.month = c[1];
  cal.day = c[2];
  cal.hour = c[3];
  cal.minute = c[4];
  cal.second = c[5];
  return cal;
}

DateTimeStruct readBack(const KvDateTime::DvLs& value, Epoch epoch,
                        TimeStandard ts) {
  using KvDateTime::DateTime;
  const FXP::DataValue& v = value.value;
  const FXP::DataType& type = v.getDataType();
  if (!KvDateTime::DateTimeUtilities::isJulianCompatibleEpoch(epoch) &&
      (type.isDouble() ||
       type.wordLength() - type.fractionLength() > (type.isSigned() ? 64 : 63))) {
    // Comparisons are exact across types; both bounds are exact doubles.
    static const FXP::DataValue kBelow = FXP::DataValue::fromDouble(
        FXP::DataType::doubleT(), -0x1p63, FXP::MathMode());
    static const FXP::DataValue kAbove = FXP::DataValue::fromDouble(
        FXP::DataType::doubleT(), 0x1p63, FXP::MathMode());
    if (!(kBelow <= v && v < kAbove))
      kvsvThrowIException(Korvane::DateTime::BadYear());
  }
  return DateTime::convertDVToDateTimeStruct(value, epoch, ts);
}

std::u16string checkedPattern(const std::u16string& pattern) {
  if (kvsvDiagnostic d =
          KvDateTime::DateTimeStructFormatter::validateFormat(pattern))
    kvsvThrowIExceptionFromDiagnostic(d, nullptr);
  return pattern;
}

FXP::DataValue storedFromRaw(const FXP::DataType& type, FXP::UInt128 bits,
                             bool negative) {
  const int w = type.wordLength();
  const FXP::UInt128 one = 1;
  bool fits;
  if (negative) {
    // bits is the two's complement of a value in [-2^127, 0).
    fits = type.isSigned() &&
           (w == 128 || static_cast<FXP::Int128>(bits) >=
                            -static_cast<FXP::Int128>(one << (w - 1)));
  } else {
    fits = type.isSigned() ? bits < (one << (w - 1))
                           : w == 128 || bits < (one << w);
  }
  if (!fits)
    throw std::overflow_error(
        "the stored integer does not fit the storage type " +
        KvDateTime::StorageTypeName::name(type));
  unsigned char bytes[16];
  for (int i = 0; i < 16; ++i)
    bytes[i] = static_cast<unsigned char>(bits >> (8 * i));
  return FXP::DataValue::fromCompact(type, bytes);
}

void storedBytes(const FXP::DataValue& value, unsigned char (&out)[16]) {
  const FXP::DataType& type = value.getDataType();
  std::memset(out, 0, sizeof out);
  value.toCompact(out, sizeof out);
  const std::size_t n = type.sizeofCompact();
  if (type.isSigned() && !type.isDouble() && (out[n - 1] & 0x80))
    std::memset(out + n, 0xff, 16 - n);
}

const KvDateTime::LeapSecondTableData& LeapTable::forStorage(
    Epoch epoch, const FXP::DataType& type) {
  const auto key = std::make_pair(static_cast<int>(epoch),
                                  KvDateTime::StorageTypeName::name(type));
  auto it = built_.find(key);
  if (it == built_.end()) {
    it =
        built_
            .emplace(key, list_ ? KvDateTime::LeapSecondTableDataCreator::build(
                                      list_->years, epoch, type)
                                : KvDateTime::LeapSecondTableDataCreator::build(
                                      epoch, type))
            .first;
  }
  return it->second;
}

LeapTable& LeapTable::builtIn() {
  // Deliberately never destroyed: batches may still hold it while the
  // interpreter tears the module down.
  static LeapTable* table = new LeapTable();
  return *table;
}

LeapTable& tableArg(py::handle table) {
  return table.is_none() ? LeapTable::builtIn() : table.cast<LeapTable&>();
}

void setError(std::exception_ptr error, std::optional<std::size_t> index) {
  const std::string where =
      index ? "element " + std::to_string(*index) + ": " : std::string();
  const auto set = [&](PyObject* type, const char* what) {
    PyErr_SetString(type, (where + what).c_str());
  };
  try {
    std::rethrow_exception(error);
  } catch (py::error_already_set& e) {
    e.restore();
  } catch (const py::cast_error& e) {
    // pybind11 reports a value of the wrong type as a RuntimeError.
    set(PyExc_TypeError, e.what());
  } catch (const py::builtin_exception& e) {
    e.set_error();
  } catch (const std::bad_alloc&) {
    set(PyExc_MemoryError, "out of memory");
  } catch (const foundation::core::except::IException& e) {
    py::object err = gError(where + e.identifier() + ": " + e.message());
    err.attr("identifier") = e.identifier();
    err.attr("message") = e.message();
    err.attr("index") = index ? py::cast(*index) : py::none();
    PyErr_SetObject(gError.ptr(), err.ptr());
  } catch (const std::invalid_argument& e) {
    set(PyExc_ValueError, e.what());
  } catch (const std::domain_error& e) {
    set(PyExc_ValueError, e.what());
  } catch (const std::out_of_range& e) {
    set(PyExc_IndexError, e.what());
  } catch (const std::overflow_error& e) {
    set(PyExc_OverflowError, e.what());
  } catch (const std::exception& e) {
    set(PyExc_RuntimeError, e.what());
  } catch (...) {
    set(PyExc_RuntimeError, "an unknown error occurred");
  }
}

void raise(std::exception_ptr error, std::optional<std::size_t> index) {
  setError(error, index);
  throw py::error_already_set();
}

}  // namespace kvpy

PYBIND11_MODULE(kvdatetime, m) {
  namespace py = pybind11;
  using namespace kvpy;
  m.doc() =
      "Time points of the KvDateTime library: exact stored values in double or "
      "fixed point, calendar readings in TAI, UTC, TT and TDB, leap seconds "
      "and "
      "formatting, one value or a NumPy array at a time.";

  const py::object intEnum = py::module_::import("enum").attr("IntEnum");
  py::list epochs, standards;
  for (int i = 0; i < 6; ++i) epochs.append(py::make_tuple(kEpochNames[i], i));
  for (int i = 0; i < 4; ++i)
    standards.append(py::make_tuple(kStandardNames[i], i));
  m.attr("Epoch") = intEnum("Epoch", epochs, py::arg("module") = "kvdatetime");
  m.attr("TimeStandard") =
      intEnum("TimeStandard", standards, py::arg("module") = "kvdatetime");
  gEpochEnum = m.attr("Epoch");
  gStandardEnum = m.attr("TimeStandard");

  // A plain Exception subclass: raise() gives each instance identifier,
  // message and index (None outside a batch).
  m.attr("KvDateTimeError") =
      py::reinterpret_steal<py::object>(PyErr_NewExceptionWithDoc(
          "kvdatetime.KvDateTimeError",
          "A failure the library reports: identifier "
          "(\"Korvane:DateTime:<Id>\"), message, and index, the first bad "
          "element of a batch.",
          PyExc_Exception, nullptr));
  gError = m.attr("KvDateTimeError");
  py::register_exception_translator([](std::exception_ptr p) {
    if (p) setError(p, std::nullopt);
  });

  py::class_<LeapTable>(m, "LeapSecondTable",
                        "A leap-second schedule: the built-in one, or one read "
                        "from a leap-seconds.list text.")
      .def(py::init<>(), "The library's built-in schedule.")
      .def_static(
          "from_text",
          [](const std::string& text) {
            return LeapTable(KvDateTime::LeapSecondListParser::parse(text));
          },
          py::arg("text"),
          "Parses a leap-seconds.list text, checked against its '#h' hash "
          "when it has one. Raises KvDateTimeError naming the bad line.")
      .def_property_readonly(
          "expires",
          [](const LeapTable& t) -> std::optional<std::int64_t> {
            if (!t.list()) return std::nullopt;
            return t.list()->expiresNtp;
          },
          "Expiry of a list as NTP seconds (since 1900), or None.")
      .def_property_readonly(
          "hash_checked",
          [](const LeapTable& t) { return t.list() && t.list()->hashChecked; })
      .def("__repr__", [](const LeapTable& t) {
        return t.list() ? "<LeapSecondTable from a leap-seconds.list, " +
                              std::to_string(t.list()->years.size()) + " years>"
                        : std::string("<LeapSecondTable built-in>");
      });

  bindScalar(m);
  bindBatch(m);
}
