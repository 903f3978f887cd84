// What the scalar and the batch bindings share (see Common.hpp), and the
// types both hand out: the enums, KvDateTimeError and LeapSecondTable.
#include "python/Common.hpp"

#include <pybind11/stl.h>

#include <array>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <tuple>

#include "date_time/StorageTypeName.hpp"

namespace kvpy {

namespace {

// Owned by the module object for the life of the interpreter; the handles
// here only point at them.
py::handle gEpochEnum, gStandardEnum, gError, gExpired;

constexpr const char* kEpochNames[] = {"E1970", "E1900", "E1958",
                                       "JD",    "MJD",   "J2000"};
// The names kvdt takes, so that one spelling works in both.
constexpr const char* kEpochTexts[] = {"1970", "1900", "1958",
                                       "jd",   "mjd",  "j2000"};
constexpr const char* kStandardNames[] = {"TAI", "UTC", "TT", "TDB"};

std::string lower(std::string s) {
  for (char& c : s)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return s;
}

int enumArg(py::handle h, int count, const char* what, const char* const* names,
            const char* const* texts, const char* choices) {
  if (py::isinstance<py::str>(h)) {
    const std::string s = lower(h.cast<std::string>());
    for (int i = 0; i < count; ++i)
      if (s == lower(names[i]) || s == texts[i]) return i;
    throw py::value_error("unknown " + std::string(what) + " \"" +
                          h.cast<std::string>() + "\": use " + choices);
  }
  if (!py::isinstance<py::int_>(h) || py::isinstance<py::bool_>(h))
    throw py::type_error(
        std::string(what) + " must be a member of " + what +
        ", its name or its integer value, not " +
        py::str(py::type::handle_of(h).attr("__name__")).cast<std::string>());
  // Compared as Python integers: one past any C++ integer is still no
  // value of the enumeration, not a failed cast.
  if (h < py::int_(0) || h >= py::int_(count))
    throw py::value_error(py::str(h).cast<std::string>() + " is not a " + what +
                          " value");
  return h.cast<int>();
}

// An integer keyword of a storage type: TypeError for anything else,
// ValueError beyond int (FXP::DataType then names the bad field).
int typeFieldArg(py::handle h, const char* name) {
  if (!py::isinstance<py::int_>(h) || py::isinstance<py::bool_>(h))
    throw py::type_error(std::string(name) + " must be an int");
  if (h < py::int_(-1000) || h > py::int_(1000))
    throw py::value_error(std::string(name) + " " +
                          py::str(h).cast<std::string>() + " is out of range");
  return h.cast<int>();
}

}  // namespace

py::object epochEnum(Epoch e) { return gEpochEnum(static_cast<int>(e)); }
py::object standardEnum(TimeStandard ts) {
  return gStandardEnum(static_cast<int>(ts));
}
Epoch epochArg(py::handle h) {
  return Epoch(enumArg(h, 6, "Epoch", kEpochNames, kEpochTexts,
                       "1970, 1900, 1958, jd, mjd or j2000"));
}
TimeStandard standardArg(py::handle h) {
  static constexpr const char* texts[] = {"tai", "utc", "tt", "tdb"};
  return TimeStandard(enumArg(h, 4, "TimeStandard", kStandardNames, texts,
                              "tai, utc, tt or tdb"));
}
std::string epochName(Epoch e) {
  return std::string("Epoch.") + kEpochNames[static_cast<int>(e)];
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
  if (!isSigned.is_none() && !py::isinstance<py::bool_>(isSigned))
    throw py::type_error("signed must be a bool");
  return FXP::DataType::fixedT(
      isSigned.is_none() ? true : isSigned.cast<bool>(),
      typeFieldArg(wordLength, "word_length"),
      fractionLength.is_none()
          ? 0
          : typeFieldArg(fractionLength, "fraction_length"));
}

DateTimeStruct checkedReading(
    const KvDateTime::DateTimeUtilities::CalendarValues& c, TimeStandard ts) {
  for (double f : c)
    if (!std::isfinite(f))
      throw std::invalid_argument("a calendar field is not a finite number");
  if (kvsvDiagnostic d = KvDateTime::DateTimeUtilities::validateDateTime(c, ts))
    kvsvThrowIExceptionFromDiagnostic(d, nullptr);
  // Unchecked: the array constructor would validate again.
  return DateTimeStruct::unchecked(c);
}

std::u16string checkedPattern(const std::u16string& pattern) {
  if (kvsvDiagnostic d =
          KvDateTime::DateTimeStructFormatter::validateFormat(pattern))
    kvsvThrowIExceptionFromDiagnostic(d, nullptr);
  return pattern;
}

std::u16string patternArg(py::handle pattern) {
  if (!py::isinstance<py::str>(pattern))
    throw py::type_error("a pattern must be a str");
  // Strict: a lone surrogate raises UnicodeEncodeError, a ValueError.
  const py::bytes units = pattern.attr("encode")("utf-16-le");
  const std::string_view bytes(
      PyBytes_AS_STRING(units.ptr()),
      static_cast<std::size_t>(PyBytes_GET_SIZE(units.ptr())));
  std::u16string out(bytes.size() / 2, u'\0');
  for (std::size_t i = 0; i < out.size(); ++i)
    out[i] = static_cast<char16_t>(static_cast<unsigned char>(bytes[2 * i]) |
                                   static_cast<unsigned char>(bytes[2 * i + 1])
                                       << 8);
  return checkedPattern(out);
}

py::str textResult(const std::u16string& text) {
  // The byte order is given, so a leading U+FEFF or U+FFFE is text, not a
  // byte-order mark to obey and drop; an unpaired surrogate becomes U+FFFD
  // as in resource_core::toUtf8.
  int order = std::endian::native == std::endian::little ? -1 : 1;
  PyObject* s = PyUnicode_DecodeUTF16(
      reinterpret_cast<const char*>(text.data()),
      static_cast<Py_ssize_t>(2 * text.size()), "replace", &order);
  if (!s) throw py::error_already_set();
  return py::reinterpret_steal<py::str>(s);
}

py::int_ storedInteger(const FXP::DataValue& value) {
  const std::array<std::uint32_t, 4> w = value.getFatVal();
  const std::uint64_t lo = w[0] | std::uint64_t{w[1]} << 32;
  const std::uint64_t hi = w[2] | std::uint64_t{w[3]} << 32;
  // (hi << 64) | lo, hi signed for a signed type: Python's integers are
  // two's complement of unbounded width, so a negative hi carries the sign.
  const py::int_ high = value.getDataType().isSigned()
                            ? py::int_(static_cast<std::int64_t>(hi))
                            : py::int_(hi);
  return py::int_((high << py::int_(64)) | py::int_(lo));
}

FXP::DataValue storedFromInteger(const FXP::DataType& type, py::handle value) {
  const auto raw =
      py::reinterpret_steal<py::object>(PyNumber_Index(value.ptr()));
  if (!raw) throw py::error_already_set();
  const py::int_ one(1);
  if (raw < py::int_(0) - (one << py::int_(127)) ||
      raw >= (one << py::int_(128)))
    throw std::overflow_error(
        "the stored integer does not fit the storage type " +
        KvDateTime::StorageTypeName::name(type));
  const auto lo = (raw & py::int_(~std::uint64_t{0})).cast<std::uint64_t>();
  const py::object high = raw >> py::int_(64);
  try {
    if (raw < py::int_(0))
      return FXP::DataValue::fromStoredSigned(
          type,
          static_cast<FXP::Int128>(
              static_cast<FXP::UInt128>(high.cast<std::int64_t>()) << 64 | lo));
    return FXP::DataValue::fromStoredUnsigned(
        type, static_cast<FXP::UInt128>(high.cast<std::uint64_t>()) << 64 | lo);
  } catch (const std::overflow_error&) {
    throw std::overflow_error(
        "the stored integer does not fit the storage type " +
        KvDateTime::StorageTypeName::name(type));
  }
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
  if (table.is_none()) return LeapTable::builtIn();
  if (!py::isinstance<LeapTable>(table))
    throw py::type_error("table must be a LeapSecondTable or None");
  return table.cast<LeapTable&>();
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

void bindTypes(py::module_& m) {
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

  // A ValueError, as every failure the library reports is one of the
  // input: raise() gives each instance identifier, message and index (None
  // outside a batch).
  m.attr("KvDateTimeError") =
      py::reinterpret_steal<py::object>(PyErr_NewExceptionWithDoc(
          "kvdatetime.KvDateTimeError",
          "A failure the library reports: identifier "
          "(\"Korvane:DateTime:<Id>\"), message, and index, the first bad "
          "element of a batch.",
          PyExc_ValueError, nullptr));
  gError = m.attr("KvDateTimeError");
  m.attr("LeapSecondListExpiredWarning") =
      py::reinterpret_steal<py::object>(PyErr_NewExceptionWithDoc(
          "kvdatetime.LeapSecondListExpiredWarning",
          "A leap-second list past its expiry: still used, but leap seconds "
          "announced since then may be missing.",
          PyExc_UserWarning, nullptr));
  gExpired = m.attr("LeapSecondListExpiredWarning");
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
            KvDateTime::LeapSecondList list =
                KvDateTime::LeapSecondListParser::parse(text);
            const std::int64_t now =
                std::chrono::duration_cast<std::chrono::seconds>(
                    std::chrono::system_clock::now().time_since_epoch())
                    .count() +
                KvDateTime::LeapSecondListParser::kNtpTo1970;
            // Still used, as kvdt uses it: it is the best the caller has.
            if (KvDateTime::LeapSecondListParser::isExpired(list, now) &&
                PyErr_WarnEx(gExpired.ptr(),
                             "the leap-second list has expired; leap seconds "
                             "announced since then may be missing",
                             1) != 0)
              throw py::error_already_set();
            return LeapTable(std::move(list));
          },
          py::arg("text"),
          "Parses a leap-seconds.list text, checked against its '#h' hash "
          "when it has one. Raises KvDateTimeError naming the bad line; "
          "warns LeapSecondListExpiredWarning when the list has expired.")
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
      // By its entries, so that a table read from a file reaches worker
      // processes as read (no second parse, no second expiry warning).
      .def(py::pickle(
          [](const LeapTable& t) {
            if (!t.list()) return py::make_tuple(py::none());
            const KvDateTime::LeapSecondList& l = *t.list();
            py::list years;
            for (const auto& [year, ends] : l.years)
              years.append(py::make_tuple(year, ends.first, ends.second));
            return py::make_tuple(years, l.updatedNtp, l.expiresNtp,
                                  l.hashChecked);
          },
          [](const py::tuple& state) {
            if (state.size() == 1 && state[0].is_none()) return LeapTable();
            if (state.size() != 4)
              throw py::value_error("not a LeapSecondTable state");
            KvDateTime::LeapSecondList l;
            for (const py::handle entry : state[0].cast<py::list>()) {
              const auto [year, june, december] =
                  entry.cast<std::tuple<std::int32_t, int, int>>();
              if (june < -1 || june > 1 || december < -1 || december > 1)
                throw py::value_error(
                    "a leap-second year inserts -1, 0 or 1 seconds at each "
                    "half's end");
              l.years[year] = {static_cast<std::int8_t>(june),
                               static_cast<std::int8_t>(december)};
            }
            l.updatedNtp = state[1].cast<std::optional<std::int64_t>>();
            l.expiresNtp = state[2].cast<std::optional<std::int64_t>>();
            l.hashChecked = state[3].cast<bool>();
            return LeapTable(std::move(l));
          }))
      .def("__repr__", [](const LeapTable& t) {
        return t.list() ? "<LeapSecondTable from a leap-seconds.list, " +
                              std::to_string(t.list()->years.size()) + " years>"
                        : std::string("<LeapSecondTable built-in>");
      });
}

}  // namespace kvpy
