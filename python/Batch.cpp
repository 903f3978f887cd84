// The array functions: the library's array loops (KvDateTime::Batch), which
// give every element the bits of the scalar calls, run with the GIL released
// and no Python object per element. Each call writes into arrays it creates
// itself and returns them only when every element succeeded, so a failure
// leaves nothing half written; the error names the first bad element.
#include "date_time/Batch.hpp"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <variant>
#include <vector>

#include "date_time/DateTimeParser.hpp"
#include "date_time/StorageTypeName.hpp"
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

// --- The library's arrays ----------------------------------------------------

// The stored values as the library's array functions take them: doubles, or
// compact values end to end. 16-byte values and raw 64-bit integers of a
// type whose word fills them, in the type's own signedness, are compact
// already; other raw integers are checked one by one as before and copied
// into compact form, and the first that does not fit is kept to be reported
// after the elements before it have run.
struct LibraryInput {
  std::span<const double> doubles;
  std::span<const std::byte> bytes;
  std::vector<std::byte> copy;
  std::size_t valid = 0;  // elements before the first that does not fit
  std::exception_ptr invalid;
};

void libraryInput(const StoredIn& in, LibraryInput& out) {
  out.valid = in.size;
  if (in.layout == Layout::Double) {
    out.doubles = {reinterpret_cast<const double*>(in.data), in.size};
    return;
  }
  const std::size_t size = in.type.sizeofCompact();
  const auto* raw = reinterpret_cast<const std::byte*>(in.data);
  const bool arraySigned = in.layout == Layout::Int64;
  if (in.layout == Layout::Wide || (size == 8 && in.type.wordLength() == 64 &&
                                    in.type.isSigned() == arraySigned)) {
    out.bytes = {raw, size * in.size};
    return;
  }
  out.copy.resize(size * in.size);
  in.forLayout([&](auto l) {
    constexpr Layout L = decltype(l)::value;
    if constexpr (L == Layout::Int64 || L == Layout::UInt64) {
      for (std::size_t i = 0; i < in.size; ++i) {
        try {
          in.template at<L>(i).toCompact(out.copy.data() + size * i, size);
        } catch (...) {
          out.valid = i;
          out.invalid = std::current_exception();
          break;
        }
      }
    }
  });
  out.bytes = {out.copy.data(), size * out.valid};
}

// Where the library writes stored values: straight into the result array
// when its elements are the compact form, else into a compact buffer that
// is widened into it afterwards.
struct LibraryOutput {
  py::array array;
  std::span<double> doubles;
  std::span<std::byte> bytes;
  std::vector<std::byte> narrow;

  LibraryOutput(const FXP::DataType& type, std::size_t n)
      : array(storedArray(type, n)) {
    const Layout layout = layoutOf(type);
    auto* data = static_cast<std::byte*>(array.mutable_data());
    if (layout == Layout::Double) {
      doubles = {reinterpret_cast<double*>(data), n};
    } else if (layout == Layout::Wide || type.sizeofCompact() == 8) {
      bytes = {data, type.sizeofCompact() * n};
    } else {
      narrow.resize(type.sizeofCompact() * n);
      bytes = {narrow.data(), narrow.size()};
    }
  }

  // The narrow compact values sign- or zero-extended to 64 bits.
  void finish(const FXP::DataType& type) {
    if (narrow.empty()) return;
    const std::size_t size = type.sizeofCompact();
    auto* out = static_cast<unsigned char*>(array.mutable_data());
    for (std::size_t i = 0; i < narrow.size() / size; ++i) {
      unsigned char word[8];
      std::memcpy(word, narrow.data() + size * i, size);
      const bool negative = type.isSigned() && (word[size - 1] & 0x80);
      std::memset(word + size, negative ? 0xff : 0, 8 - size);
      std::memcpy(out + 8 * i, word, 8);
    }
  }
};

// Raises a failure of the library's array functions as the element's own
// failure, under its index, as a loop of scalar calls would.
// `offset`: where the library's span started in the caller's array.
[[noreturn]] void raiseBatch(std::exception_ptr error, std::size_t offset = 0) {
  try {
    std::rethrow_exception(error);
  } catch (const foundation::core::except::IException& e) {
    if (e.identifier() == "Korvane:DateTime:BatchElementFailed") {
      const auto index =
          offset +
          static_cast<std::size_t>(std::get<std::int64_t>(e.arguments().at(0)));
      try {
        std::rethrow_if_nested(e);
      } catch (...) {
        raise(std::current_exception(), index);
      }
    }
  } catch (...) {
  }
  raise(error);
}

// Runs a call of the library without the GIL and raises its failure, or
// else the input's first value that did not fit, with the GIL back.
template <typename Call>
void runLibrary(const LibraryInput* input, Call&& call) {
  std::exception_ptr error;
  {
    py::gil_scoped_release release;
    try {
      call();
    } catch (...) {
      error = std::current_exception();
    }
  }
  if (error) raiseBatch(error);
  if (input && input->invalid) raise(input->invalid, input->valid);
}

std::span<const bool> flagSpan(const std::optional<py::array_t<bool>>& flags,
                               std::size_t n) {
  if (!flags) return {};
  return {flags->data(), n};
}

template <Layout L>
Outcome formatLoop(const StoredIn& in, const bool* flags, Epoch epoch,
                   TimeStandard ts, const std::u16string& pattern,
                   std::vector<std::u16string>& out) {
  std::size_t i = 0;
  try {
    for (; i < in.size; ++i) {
      const DateTimeStruct c =
          readBack(DvLs{in.template at<L>(i), flags && flags[i]}, epoch, ts);
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

// One text of a NumPy array of str (UCS-4, padded with NULs) or bytes,
// read by the parser as UTF-8. `out` holds an element's width in bytes.
DateTimeStruct parseText(const unsigned char* item, std::size_t width,
                         bool ucs4, const std::string* pattern, TimeStandard ts,
                         char* out) {
  std::size_t len = 0;
  if (ucs4) {
    for (std::size_t k = 0; k + 4 <= width; k += 4) {
      char32_t c;
      std::memcpy(&c, item + k, 4);
      if (c == 0) break;
      if (c < 0x80) {
        out[len++] = static_cast<char>(c);
      } else if (c < 0x800) {
        out[len++] = static_cast<char>(0xC0 | c >> 6);
        out[len++] = static_cast<char>(0x80 | (c & 0x3F));
      } else if (c < 0x10000) {
        out[len++] = static_cast<char>(0xE0 | c >> 12);
        out[len++] = static_cast<char>(0x80 | (c >> 6 & 0x3F));
        out[len++] = static_cast<char>(0x80 | (c & 0x3F));
      } else {
        out[len++] = static_cast<char>(0xF0 | c >> 18);
        out[len++] = static_cast<char>(0x80 | (c >> 12 & 0x3F));
        out[len++] = static_cast<char>(0x80 | (c >> 6 & 0x3F));
        out[len++] = static_cast<char>(0x80 | (c & 0x3F));
      }
    }
  } else {
    const auto* end =
        static_cast<const unsigned char*>(std::memchr(item, 0, width));
    len = end ? static_cast<std::size_t>(end - item) : width;
    std::memcpy(out, item, len);
  }
  const std::string_view text(out, len);
  return pattern ? KvDateTime::DateTimeParser::parse(text, *pattern, ts)
                 : KvDateTime::DateTimeParser::parseIso8601(text, ts);
}

// The texts into calendar rows. One buffer, made before the loop, serves
// every element: UTF-8 takes at most 4 bytes a code point, as UCS-4 does.
Outcome parseLoop(const py::buffer_info& texts, bool ucs4,
                  const std::string* pattern, TimeStandard ts, double* rows) {
  const std::size_t n = static_cast<std::size_t>(texts.size);
  const std::size_t width = static_cast<std::size_t>(texts.itemsize);
  const auto* data = static_cast<const unsigned char*>(texts.ptr);
  std::string buffer(width, '\0');
  std::size_t i = 0;
  try {
    for (; i < n; ++i) {
      const std::array<double, 6> fields =
          parseText(data + width * i, width, ucs4, pattern, ts, buffer.data())
              .toArray();
      std::memcpy(rows + 6 * i, fields.data(), sizeof fields);
    }
  } catch (...) {
    return Failure{i, std::current_exception()};
  }
  return std::nullopt;
}

// --- ISO 8601 texts straight to stored values ------------------------------

// What the fused loop found: the first text the parser refused (its
// diagnostic is made again by parseText, so that it names the text and the
// position as they always have), and the first failure of the conversion
// that follows, kept only to be raised if every text parses, as the parse
// of all texts came before any conversion.
struct IsoOutcome {
  std::optional<std::size_t> refused;
  std::exception_ptr converting;
  std::size_t chunkStart = 0;
};

// Reads a chunk of texts into calendar rows with the library's row reader,
// then hands the rows to `convert` (start, rows), a chunk at a time so that
// the rows stay in cache. A str array's elements are read in place where
// they lie on 4-byte boundaries; NumPy does not promise that (an unaligned
// view), so `aligned` takes a copy of them then.
template <typename Char, typename Convert>
void isoLoop(const py::buffer_info& texts, TimeStandard ts, Convert&& convert,
             IsoOutcome& outcome) {
  constexpr std::size_t kChunk = 256;
  const std::size_t n = static_cast<std::size_t>(texts.size);
  const std::size_t stride =
      static_cast<std::size_t>(texts.itemsize) / sizeof(Char);
  const auto* data = static_cast<const Char*>(texts.ptr);
  std::vector<Char> aligned;
  if (reinterpret_cast<std::uintptr_t>(texts.ptr) % alignof(Char) != 0) {
    aligned.resize(n * stride);
    std::memcpy(aligned.data(), texts.ptr, n * stride * sizeof(Char));
    data = aligned.data();
  }
  double rows[6 * kChunk];
  for (std::size_t start = 0; start < n; start += kChunk) {
    const std::size_t count = std::min(kChunk, n - start);
    const std::size_t read = KvDateTime::DateTimeParser::readIso8601Rows(
        data + stride * start, stride, count, ts, rows);
    if (read < count) {
      outcome.refused = start + read;
      return;
    }
    if (outcome.converting) continue;
    try {
      convert(start, std::span<const double>(rows, 6 * count));
    } catch (...) {
      outcome.converting = std::current_exception();
      outcome.chunkStart = start;
    }
  }
}

// A C-contiguous array of str (UCS-4 in this machine's byte order) or
// bytes, or TypeError. The readers take code points from the buffer as they
// lie, so a byte-swapped str array is swapped into a copy first.
py::array textArray(const ArrayLike& texts) {
  py::array a = py::array::ensure(texts, py::array::c_style);
  const char kind = a ? a.dtype().kind() : '?';
  if (kind != 'U' && kind != 'S')
    throw py::type_error("texts must be an array of str (or bytes in UTF-8)");
  if (kind == 'U' && !a.dtype().attr("isnative").cast<bool>())
    a = py::array::ensure(a.attr("astype")(a.dtype().attr("newbyteorder")("=")),
                          py::array::c_style);
  return a;
}

}  // namespace

void bindBatch(py::module_& m) {
  const py::object e1970 = m.attr("Epoch").attr("E1970");
  const py::object utc = m.attr("TimeStandard").attr("UTC");
  const py::object tai = m.attr("TimeStandard").attr("TAI");

  m.def(
      "to_calendar",
      [](ArrayLike values, EpochLike epoch, StandardLike standard,
         StorageLike storage, OptArrayLike leapSecond) {
        const Epoch e = epochArg(epoch);
        const TimeStandard ts = standardArg(standard);
        const FXP::DataType type = storageArg(storage);
        const Input input = storedInput(values, type);
        const auto flags = flagsInput(leapSecond, input.in.size);
        py::array_t<double> out({input.in.size, std::size_t{6}});
        LibraryInput lib;
        libraryInput(input.in, lib);
        const std::span<double> rows(out.mutable_data(), 6 * lib.valid);
        const std::span<const bool> fl = flagSpan(flags, lib.valid);
        runLibrary(&lib, [&] {
          if (type.isDouble())
            KvDateTime::Batch::toCalendarReadings(lib.doubles, e, ts, rows, fl);
          else
            KvDateTime::Batch::toCalendarReadings(lib.bytes, type, e, ts, rows,
                                                  fl);
        });
        return out;
      },
      py::arg("values"), py::arg("epoch") = e1970, py::arg("standard") = utc,
      py::arg("storage") = "double", py::arg("leap_second") = py::none(),
      "Stored values to an (n, 6) float64 array of calendar fields (year, "
      "month, day, hour, minute, second).");

  m.def(
      "from_calendar",
      [](ArrayLike fields, EpochLike epoch, StandardLike standard,
         StorageLike storage) {
        const Epoch e = epochArg(epoch);
        const TimeStandard ts = standardArg(standard);
        const FXP::DataType type = storageArg(storage);
        auto a =
            py::array_t<double, py::array::c_style | py::array::forcecast>::
                ensure(numbers(fields, "calendar fields"));
        if (a.ndim() != 2 || a.shape(1) != 6)
          throw py::value_error("calendar fields must be an (n, 6) array");
        const std::size_t n = a.shape(0);
        LibraryOutput out(type, n);
        py::array_t<bool> flags(n);
        const std::span<const double> in(a.data(), 6 * n);
        const std::span<bool> flagsOut(flags.mutable_data(), n);
        runLibrary(nullptr, [&] {
          if (type.isDouble())
            KvDateTime::Batch::fromCalendarChecked(in, e, ts, out.doubles,
                                                   flagsOut);
          else
            KvDateTime::Batch::fromCalendarChecked(in, e, ts, type, out.bytes,
                                                   flagsOut);
        });
        out.finish(type);
        return py::make_tuple(out.array, flags);
      },
      py::arg("fields"), py::arg("epoch") = e1970, py::arg("standard") = utc,
      py::arg("storage") = "double",
      "An (n, 6) array of readings to (stored values, leap-second flags).");

  m.def(
      "convert_standard",
      [](ArrayLike values, StandardLike fromStandard, StandardLike toStandard,
         EpochLike epoch, StorageLike storage, OptArrayLike leapSecond,
         TableLike table) {
        const Epoch e = epochArg(epoch);
        const TimeStandard from = standardArg(fromStandard);
        const TimeStandard to = standardArg(toStandard);
        const FXP::DataType type = storageArg(storage);
        const Input input = storedInput(values, type);
        const auto flags = flagsInput(leapSecond, input.in.size);
        const KvDateTime::LeapSecondTableData& data =
            tableArg(table).forStorage(e, type);
        LibraryOutput out(type, input.in.size);
        py::array_t<bool> flagsOut(input.in.size);
        LibraryInput lib;
        libraryInput(input.in, lib);
        const std::size_t n = lib.valid;
        const std::span<const bool> fl = flagSpan(flags, n);
        const std::span<bool> flOut(flagsOut.mutable_data(), n);
        runLibrary(&lib, [&] {
          if (type.isDouble())
            KvDateTime::Batch::convertStandard(lib.doubles, e, from, to, data,
                                               out.doubles.first(n), fl, flOut);
          else
            KvDateTime::Batch::convertStandard(
                lib.bytes, type, e, from, to, data,
                out.bytes.first(n * type.sizeofCompact()), fl, flOut);
        });
        out.finish(type);
        return py::make_tuple(out.array, flagsOut);
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
      [](ArrayLike values, PatternLike pattern, EpochLike epoch,
         StandardLike standard, StorageLike storage, OptArrayLike leapSecond) {
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

  m.def(
      "parse_calendar",
      [](ArrayLike texts, PatternLike pattern, StandardLike standard) {
        const TimeStandard ts = standardArg(standard);
        std::optional<std::string> p;
        if (!pattern.obj.is_none()) {
          if (!py::isinstance<py::str>(pattern.obj))
            throw py::type_error("a pattern must be a str or None");
          p = pattern.obj.cast<std::string>();  // UTF-8
        }
        const py::array a = textArray(texts);
        const char kind = a.dtype().kind();
        const py::buffer_info info = a.request();
        py::array_t<double> rows(
            {static_cast<std::size_t>(info.size), std::size_t{6}});
        double* out = rows.mutable_data();
        runReleased([&] {
          return parseLoop(info, kind == 'U', p ? &*p : nullptr, ts, out);
        });
        return rows;
      },
      py::arg("texts"), py::arg("pattern") = py::none(),
      py::arg("standard") = utc,
      "Texts (any shape, read in order) to an (n, 6) float64 array of "
      "calendar fields, by a pattern, or as ISO 8601 when None.");

  m.def(
      "parse_iso8601",
      [](ArrayLike texts, EpochLike epoch, StandardLike standard,
         StorageLike storage) {
        // Arguments are checked in the order parse_calendar and then
        // from_calendar check them, so each failure is the one it was.
        const TimeStandard ts = standardArg(standard);
        const py::array a = textArray(texts);
        const char kind = a.dtype().kind();
        const py::buffer_info info = a.request();
        const auto n = static_cast<std::size_t>(info.size);
        const bool ucs4 = kind == 'U';
        // Every text is read before a bad epoch or storage is reported.
        Epoch e{};
        std::optional<FXP::DataType> type;
        try {
          e = epochArg(epoch);
          type = storageArg(storage);
        } catch (...) {
          py::array_t<double> rows({n, std::size_t{6}});
          double* out = rows.mutable_data();
          runReleased([&] { return parseLoop(info, ucs4, nullptr, ts, out); });
          throw;
        }
        LibraryOutput out(*type, n);
        py::array_t<bool> flags(n);
        const std::span<bool> flagsOut(flags.mutable_data(), n);
        const std::size_t size = type->sizeofCompact();
        const auto convert = [&](std::size_t start,
                                 std::span<const double> rows) {
          const std::size_t count = rows.size() / 6;
          const std::span<bool> fl = flagsOut.subspan(start, count);
          if (type->isDouble())
            KvDateTime::Batch::fromCalendarChecked(
                rows, e, ts, out.doubles.subspan(start, count), fl);
          else
            KvDateTime::Batch::fromCalendarChecked(
                rows, e, ts, *type,
                out.bytes.subspan(size * start, size * count), fl);
        };
        IsoOutcome outcome;
        {
          py::gil_scoped_release release;
          if (ucs4)
            isoLoop<char32_t>(info, ts, convert, outcome);
          else
            isoLoop<char>(info, ts, convert, outcome);
        }
        if (outcome.refused) {
          const std::size_t i = *outcome.refused;
          std::string buffer(static_cast<std::size_t>(info.itemsize), '\0');
          try {
            parseText(static_cast<const unsigned char*>(info.ptr) +
                          info.itemsize * static_cast<py::ssize_t>(i),
                      buffer.size(), ucs4, nullptr, ts, buffer.data());
          } catch (...) {
            raise(std::current_exception(), i);
          }
          throw std::logic_error("the ISO 8601 readers disagree on text " +
                                 std::to_string(i));
        }
        if (outcome.converting)
          raiseBatch(outcome.converting, outcome.chunkStart);
        out.finish(*type);
        return py::make_tuple(out.array, flags);
      },
      py::arg("texts"), py::arg("epoch") = e1970, py::arg("standard") = utc,
      py::arg("storage") = "double",
      "ISO 8601 texts (any shape, read in order) to (stored values, "
      "leap-second flags), as parse_calendar and then from_calendar give "
      "them.");

  m.def(
      "storage_layout",
      [](StorageLike storage) {
        const FXP::DataType type = storageArg(storage);
        return py::make_tuple(type.isDouble(),
                              static_cast<int>(type.sizeofCompact()));
      },
      py::arg("storage"),
      "(is double, compact bytes) of a storage type: how its stored values "
      "lie in an array.");
}

}  // namespace kvpy