// What the scalar and the batch bindings share: reading Python arguments
// into the library's types, the leap-second table object, stored values
// to and from their raw integers, text to and from 16-bit units, and the
// translation of failures. Defined in Common.cpp, which calls neither
// Scalar.cpp nor Batch.cpp; Module.cpp calls all three.
#pragma once

#include <pybind11/pybind11.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "date_time/Clock.hpp"
#include "date_time/DateTime.hpp"
#include "date_time/DateTimeStructFormatter.hpp"
#include "date_time/DateTimeUtilities.hpp"
#include "date_time/LeapSecondList.hpp"
#include "date_time/LeapSecondTableData.hpp"
#include "host/diag/Diagnostic.hpp"
#include "host/fxp/DataType.hpp"
#include "host/fxp/DataValue.hpp"

namespace kvpy {

namespace py = pybind11;

// An argument the binding reads itself (epochArg, storageArg, ...), so that
// a wrong type gets this module's message instead of pybind11's "incompatible
// function arguments", while the signature help() shows names the types it
// takes. Tag::name is that type as a Python annotation.
template <typename Tag>
struct Arg {
  py::object obj;
  operator py::handle() const { return obj; }  // NOLINT: read as a handle
};
#define KVPY_ARG(Type, annotation)             \
  struct Type##Tag {                           \
    static constexpr char name[] = annotation; \
  };                                           \
  using Type = Arg<Type##Tag>
KVPY_ARG(EpochLike, "Epoch | str | int");
KVPY_ARG(StandardLike, "TimeStandard | str | int");
KVPY_ARG(StorageLike, "str | None");
KVPY_ARG(OptEpochLike, "Epoch | str | int | None");
KVPY_ARG(OptStandardLike, "TimeStandard | str | int | None");
KVPY_ARG(TableLike, "LeapSecondTable | None");
KVPY_ARG(ArrayLike, "numpy.typing.ArrayLike");
KVPY_ARG(OptArrayLike, "numpy.typing.ArrayLike | None");
KVPY_ARG(ReadingLike, "datetime.datetime | tuple[float, ...]");
KVPY_ARG(StoredLike, "float | int");
KVPY_ARG(PatternLike, "str");
KVPY_ARG(OptBoolLike, "bool | None");
KVPY_ARG(OptIntLike, "int | None");
#undef KVPY_ARG

}  // namespace kvpy

namespace pybind11::detail {
template <typename Tag>
struct type_caster<kvpy::Arg<Tag>> {
  PYBIND11_TYPE_CASTER(kvpy::Arg<Tag>, const_name(Tag::name));
  bool load(handle src, bool) {
    value.obj = reinterpret_borrow<object>(src);
    return true;
  }
  static handle cast(const kvpy::Arg<Tag>& a, return_value_policy, handle) {
    return a.obj.inc_ref();
  }
};
}  // namespace pybind11::detail

namespace kvpy {

using KvDateTime::DateTimeStruct;
using KvDateTime::Epoch;
using KvDateTime::TimeStandard;

// The Python enum classes (enum.IntEnum) made at import.
py::object epochEnum(Epoch e);
py::object standardEnum(TimeStandard ts);
// An enum member, its integer, or its name as kvdt takes it, ASCII case
// ignored ("1970", "1900", "1958", "jd", "mjd", "j2000"; "tai", "utc", "tt",
// "tdb"; the member names "E1970" ... too); ValueError outside the
// enumeration, TypeError for anything else.
Epoch epochArg(py::handle h);
TimeStandard standardArg(py::handle h);
// "Epoch.J2000": how a repr names an epoch.
std::string epochName(Epoch e);
// A storage type from its name (see StorageTypeName) or, when `storage` is
// None, from the keywords: word_length required, signed defaulting to True,
// fraction_length to 0; neither given means double. ValueError for both or
// for a type FXP::DataType refuses.
FXP::DataType storageArg(py::handle storage, py::handle isSigned = py::none(),
                         py::handle wordLength = py::none(),
                         py::handle fractionLength = py::none());

// The reading in `ts`, validated as the library validates it, with every
// field finite (the validators let a NaN second through).
DateTimeStruct checkedReading(
    const KvDateTime::DateTimeUtilities::CalendarValues& c, TimeStandard ts);
// The pattern, validated once, before any value is formatted.
std::u16string checkedPattern(const std::u16string& pattern);
// A str pattern as 16-bit units, validated: TypeError for anything but a
// str, UnicodeEncodeError (a ValueError) for a lone surrogate.
std::u16string patternArg(py::handle pattern);
// Formatted 16-bit text as a str, every unit kept as text.
py::str textResult(const std::u16string& text);

// A fixed-point value's stored integer as a Python int.
py::int_ storedInteger(const FXP::DataValue& value);
// A fixed-point value from a Python integer (anything with __index__) as
// its stored integer: TypeError for a float, std::overflow_error when the
// integer does not fit the type's word.
FXP::DataValue storedFromInteger(const FXP::DataType& type, py::handle value);
// A finite double into double storage; std::invalid_argument otherwise.
// Inline: a batch in double storage reads every value through it.
inline FXP::DataValue storedFromDouble(double value) {
  if (!std::isfinite(value)) {
    throw std::invalid_argument("a stored value is not a finite number");
  }
  return FXP::DataValue::fromDouble(FXP::DataType::doubleT(), value, {});
}

// The calendar reading of a time point as people read it
// (Clock::readingOf): second 60 only inside a leap second, and "BadYear"
// for a count whose whole seconds the read-back would wrap.
inline DateTimeStruct readBack(const KvDateTime::DateTime& dt) {
  return KvDateTime::Clock::readingOf(dt);
}
inline DateTimeStruct readBack(const KvDateTime::DvLs& value, Epoch epoch,
                               TimeStandard ts) {
  return KvDateTime::Clock::readingOf(KvDateTime::DateTime(value, epoch, ts));
}

// A leap-second schedule, the library's own or one read from a
// leap-seconds.list text. The library's tables are built per epoch and
// storage type; this keeps each one built, so a batch pays for it once.
// Used with the GIL held; the tables it hands out are then only read.
class LeapTable {
 public:
  LeapTable() = default;
  explicit LeapTable(KvDateTime::LeapSecondList list)
      : list_(std::move(list)) {}

  const KvDateTime::LeapSecondTableData& forStorage(Epoch epoch,
                                                    const FXP::DataType& type);
  const std::optional<KvDateTime::LeapSecondList>& list() const noexcept {
    return list_;
  }
  // The library's schedule, shared by every call given no table.
  static LeapTable& builtIn();

 private:
  std::optional<KvDateTime::LeapSecondList> list_;
  std::map<std::pair<int, std::string>, KvDateTime::LeapSecondTableData> built_;
};
LeapTable& tableArg(py::handle table);

// Sets the Python error for a library or standard exception; `index` names
// the element of a batch.
void setError(std::exception_ptr error, std::optional<std::size_t> index);
// setError, then throws py::error_already_set.
[[noreturn]] void raise(std::exception_ptr error,
                        std::optional<std::size_t> index = std::nullopt);

// The enums, KvDateTimeError and LeapSecondTable; first, as the other
// bindings use them.
void bindTypes(py::module_& m);
void bindScalar(py::module_& m);
void bindBatch(py::module_& m);

}  // namespace kvpy
