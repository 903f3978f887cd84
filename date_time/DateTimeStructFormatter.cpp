#include "date_time/DateTimeStructFormatter.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <exception>
#include <limits>
#include <stdexcept>
#include <string_view>

#include "date_time/ConstantTables.hpp"
#include "date_time/DateTimeUtilities.hpp"
#include "date_time/FloatingPoint.hpp"
#include "date_time/FormatWriters.hpp"
#include "date_time/PatternTokens.hpp"
#include "date_time/diagnostics/MessageIds.hpp"
#include "host/typesys/DateTimeDefs.hpp"

namespace KvDateTime {
namespace {

using detail::CharClass;
using detail::classOf;
using detail::diagnosticFor;
using detail::FirstProblem;
using detail::fractionDigits9;
using detail::parsePattern;
using detail::PatternProblem;
using detail::putNarrow;
using detail::putRepeated;
using detail::putUnsigned;
using detail::truncToInt;

// Rendering never produces more than this many units for one field token
// other than `t`: a 64-bit year with its sign is 20, padding stops at 10.
constexpr std::size_t kMaxFieldUnits = 20;

// Month, day, hour, minute and second keep only the low 8 bits of their
// 32-bit truncation, deliberately (pinned by
// PatternRendering.QuotingErasClocksFractionsAndNarrowing).
std::uint8_t narrow8(double field) noexcept {
  return static_cast<std::uint8_t>(truncToInt<std::int32_t>(field));
}

// The common width rule: count 1 unpadded, otherwise min(count, 10).
constexpr int paddedWidth(std::int32_t count) noexcept {
  return count >= 2 ? std::min<std::int32_t>(count, 10) : 0;
}

char16_t* putNumber(char16_t* out, std::uint64_t v,
                    std::int32_t count) noexcept {
  return putUnsigned(out, v, paddedWidth(count));
}

// A month or day name, widened once at load and padded so that it can be
// copied in one fixed-size move whatever its length: names differ in length
// from one reading to the next, and a loop over them mispredicts.
struct WideName {
  std::array<char16_t, 12> units;  // the longest name has 9 letters
  std::size_t length;
};

template <std::size_t N>
constexpr std::array<WideName, N> widenNames(
    const std::array<const char*, N>& names) {
  std::array<WideName, N> wide{};
  for (std::size_t i = 0; i < N; ++i) {
    std::size_t n = 0;
    for (; names[i][n] != '\0'; ++n) wide[i].units[n] = names[i][n];
    wide[i].length = n;
  }
  return wide;
}

// Count 3: the first three letters, 4: the whole name, 5: the first letter.
// Every name in the tables has at least three letters; `out` has room for a
// whole padded name (kMaxFieldUnits).
char16_t* putName(char16_t* out, const WideName& name, std::int32_t count) {
  std::copy_n(name.units.data(), name.units.size(), out);
  return out + (count == 3 ? 3 : count == 4 ? name.length : 1);
}

// ------------------------------------------------------------------ fields

std::int64_t wholeYear(const DateTimeStruct& v) noexcept {
  return truncToInt<std::int64_t>(v.year);
}

constexpr auto kMonthNames = widenNames(detail::monthNames);
constexpr auto kDayNames = widenNames(detail::dayNames);
static_assert(std::tuple_size_v<decltype(WideName::units)> <= kMaxFieldUnits);

const WideName& monthName(std::uint8_t month) {
  if (month < 1 || month > 12) {
    throw std::out_of_range(
        "DateTimeStructFormatter: the month reads as " + std::to_string(month) +
        " (truncated, low 8 bits), which has no name; months are 1 to 12");
  }
  return kMonthNames[month - 1u];
}

const WideName& dayName(std::uint8_t dayOfWeek) {
  if (dayOfWeek < 1 || dayOfWeek > 7) {
    throw std::out_of_range("DateTimeStructFormatter: day of week " +
                            std::to_string(dayOfWeek) +
                            " has no name; days are 1 (Sunday) to 7");
  }
  return kDayNames[dayOfWeek - 1u];
}

std::string_view eraText(const DateTimeStruct& v) noexcept {
  return wholeYear(v) <= 0 ? "BCE" : "CE";
}

std::string_view amPmText(const DateTimeStruct& v) noexcept {
  return narrow8(v.hour) > 11 ? "PM" : "AM";
}

char16_t* put_y(char16_t* out, const DateTimeStruct& v, std::int32_t count) {
  const std::int64_t y = wholeYear(v);
  // Year 0 is 1 BCE. Unsigned, so that the minimum year cannot overflow.
  const std::uint64_t era = y >= 1 ? static_cast<std::uint64_t>(y)
                                   : 1 - static_cast<std::uint64_t>(y);
  if (count == 2) return putUnsigned(out, era % 100, 2);
  return putNumber(out, era, count);
}

char16_t* put_u(char16_t* out, const DateTimeStruct& v, std::int32_t count) {
  const std::int64_t y = wholeYear(v);
  std::uint64_t magnitude = static_cast<std::uint64_t>(y);
  if (y < 0) {
    *out++ = u'-';
    magnitude = 0 - magnitude;
  }
  return putNumber(out, magnitude, count);
}

char16_t* put_M(char16_t* out, const DateTimeStruct& v, std::int32_t count) {
  const std::uint8_t month = narrow8(v.month);
  const WideName& name = monthName(month);
  if (count >= 3 && count <= 5) return putName(out, name, count);
  return putNumber(out, month, count);  // six or more: numbers again
}

char16_t* put_e(char16_t* out, const DateTimeStruct& v, std::int32_t count) {
  const auto dayOfWeek =
      static_cast<std::uint8_t>(DateTimeUtilities::calendarTimeToDayOfWeek(v));
  const WideName& name = dayName(dayOfWeek);
  if (count == 1 || count == 2) return putNumber(out, dayOfWeek, count);
  return putName(out, name, count >= 3 && count <= 5 ? count : 5);
}

char16_t* put_D(char16_t* out, const DateTimeStruct& v, std::int32_t count) {
  const auto dayOfYear =
      static_cast<std::uint16_t>(DateTimeUtilities::calendarTimeToDayOfYear(v));
  return putNumber(out, dayOfYear, count);
}

char16_t* put_h(char16_t* out, const DateTimeStruct& v, std::int32_t count) {
  const unsigned h = narrow8(v.hour) % 12u;
  return putNumber(out, h == 0 ? 12u : h, count);
}

// printf's "%.15f" text of the signed fraction, from its third character
// on, cut to min(count, 9) characters: normally the decimals; after a sign
// (negative values, negative zero) the decimal point and the decimals; for
// NaN the tail of "nan" or "-nan".
char16_t* put_S(char16_t* out, const DateTimeStruct& v, std::int32_t count) {
  // The first `keep` of nine digits, each divisor a constant: a division by
  // a looked-up power of ten was the costliest instruction of the fields.
  const auto firstDigits = [](std::uint64_t digits9, int keep) {
    switch (keep) {
      case 1:
        return digits9 / 100000000;
      case 2:
        return digits9 / 10000000;
      case 3:
        return digits9 / 1000000;
      case 4:
        return digits9 / 100000;
      case 5:
        return digits9 / 10000;
      case 6:
        return digits9 / 1000;
      case 7:
        return digits9 / 100;
      case 8:
        return digits9 / 10;
      default:
        return digits9;
    }
  };
  int keep = std::clamp<std::int32_t>(count, 0, 9);
  const double fraction = v.getSubSecond();
  if (keep == 0) return out;
  if (std::isnan(fraction)) {
    const std::string_view tail = std::signbit(fraction) ? "an" : "n";
    return putNarrow(out, tail.substr(0, static_cast<std::size_t>(keep)));
  }
  if (std::signbit(fraction)) {
    *out++ = u'.';
    if (--keep == 0) return out;
  }
  const std::uint64_t digits9 = fractionDigits9(std::fabs(fraction));
  return putUnsigned(out, firstDigits(digits9, keep), keep);
}

// Renders one pattern-letter token; `out` has room for kMaxFieldUnits, or
// for the time standard's name when `c` is 't'.
char16_t* putField(char16_t* out, const DateTimeStruct& v, TimeStandard ts,
                   char16_t c, std::int32_t count, bool& fractionPrinted) {
  switch (c) {
    case u'D':
      return put_D(out, v, count);
    case u'G':
      return putNarrow(out, eraText(v));
    case u'H':
      return putNumber(out, narrow8(v.hour), count);
    case u'M':
      return put_M(out, v, count);
    case u'S':
      fractionPrinted = true;
      return put_S(out, v, count);
    case u'a':
      return putNarrow(out, amPmText(v));
    case u'd':
      return putNumber(out, narrow8(v.day), count);
    case u'e':
      return put_e(out, v, count);
    case u'h':
      return put_h(out, v, count);
    case u'm':
      return putNumber(out, narrow8(v.minute), count);
    case u's':
      return putNumber(out, narrow8(v.second), count);
    case u't':
      return putNarrow(out, DateTimeDefs::timeStandardName(ts));
    case u'u':
      return put_u(out, v, count);
    case u'y':
      return put_y(out, v, count);
    default:
      return out;  // not a letter: the callers never pass one
  }
}

// One field through a local buffer, for the public per-letter members.
template <typename Put>
std::u16string fieldString(Put put) {
  std::array<char16_t, kMaxFieldUnits> buffer;
  char16_t* end = put(buffer.data());
  return std::u16string(buffer.data(), end);
}

std::u16string textString(std::string_view text) {
  std::u16string result(text.size(), u'\0');
  putNarrow(result.data(), text);
  return result;
}

[[noreturn]] void throwProblem(const PatternProblem& problem,
                               std::u16string_view pattern) {
  kvsvDiagnostic diagnostic = diagnosticFor(problem, pattern);
  kvsvThrowIExceptionFromDiagnostic(diagnostic, nullptr);
  std::terminate();  // the call above always throws
}

// Patterns up to this length render in one pass into a stack buffer sized
// for the worst case, so the walk needs no room checks: a run renders at
// most its own length (literals), kMaxFieldUnits (fields) or a time
// standard's name of at most kMaxNameUnits, which is checked where it is
// written.
// 40 covers the patterns hosts write ("yyyy-MM-dd HH:mm:ss.SSS t" is 25);
// a longer one is measured first by the Sizer, and only costs that pass.
constexpr std::size_t kOnePassUnits = 40;
// The host's names are three letters; 32 leaves a renamed host room, and a
// longer name still renders, only through the measured path.
constexpr std::size_t kMaxNameUnits = 32;
constexpr std::size_t kStackUnits =
    kOnePassUnits * (1 + std::max(kMaxFieldUnits, kMaxNameUnits));

// Renders at `out`, which the caller has sized; a time standard's name
// longer than `nameLimit` is left out and flagged instead.
struct Renderer : FirstProblem {
  Renderer(char16_t* start, const DateTimeStructFormatter& formatter,
           std::size_t longestName) noexcept
      : out(start), f(formatter), nameLimit(longestName) {}

  char16_t* out;
  const DateTimeStructFormatter& f;
  std::size_t nameLimit;
  bool nameTooLong = false;
  bool fractionPrinted = false;  // formatToken's contract; never read here

  void literal(char16_t c, std::size_t n) noexcept {
    out = putRepeated(out, c, n);
  }
  void field(char16_t c, std::size_t n) {
    if (c == u't') {
      const std::string_view name =
          DateTimeDefs::timeStandardName(f.timeStandard);
      if (name.size() > nameLimit) {
        nameTooLong = true;
      } else {
        out = putNarrow(out, name);
      }
      return;
    }
    // A run longer than 2^31 - 1 keeps the 32-bit count of the public
    // interface; any count of 10 or more renders like 10 anyway.
    const auto count = static_cast<std::int32_t>(
        std::min<std::size_t>(n, std::numeric_limits<std::int32_t>::max()));
    out = putField(out, f.dateTimeStruct, f.timeStandard, c, count,
                   fractionPrinted);
  }
};

// Sums an upper bound of the output, for the patterns too long for one pass.
struct Sizer : FirstProblem {
  std::size_t literalUnits = 0;
  std::size_t fieldTokens = 0;  // `t` aside
  std::size_t timeStandardTokens = 0;

  void literal(char16_t, std::size_t n) noexcept { literalUnits += n; }
  void field(char16_t c, std::size_t) noexcept {
    ++(c == u't' ? timeStandardTokens : fieldTokens);
  }
};

// The common case in one pass: validates the pattern while rendering it
// into `out`, which holds kStackUnits. Returns the end of the text, or null
// if a time standard's name is too long for the bound (the caller then
// takes the sized path). A field that fails (a nameless month, an invalid
// date for D or e) is passed on only once the whole pattern has proved
// valid, so that a pattern problem further on still wins.
char16_t* renderValidating(char16_t* out, const DateTimeStructFormatter& f,
                           std::u16string_view pattern) {
  Renderer renderer{out, f, kMaxNameUnits};
  bool valid;
  try {
    valid = parsePattern(pattern, renderer);
  } catch (...) {
    FirstProblem check;
    if (!parsePattern(pattern, check)) throwProblem(check.first, pattern);
    throw;
  }
  if (!valid) throwProblem(renderer.first, pattern);
  return renderer.nameTooLong ? nullptr : renderer.out;
}

}  // namespace

kvsvDiagnostic DateTimeStructFormatter::validateFormat(std::u16string pattern) {
  FirstProblem check;
  parsePattern(pattern, check);
  return diagnosticFor(check.first, pattern);
}

bool DateTimeStructFormatter::needsTimeStandard(std::u16string pattern) {
  // Problems do not matter here: the walk goes on past them.
  struct {
    bool found = false;
    void literal(char16_t, std::size_t) noexcept {}
    void field(char16_t c, std::size_t) noexcept { found |= c == u't'; }
    bool problem(PatternProblem) noexcept { return true; }
  } reader;
  parsePattern(pattern, reader);
  return reader.found;
}

std::u16string DateTimeStructFormatter::getFormattedStr(
    std::u16string pattern) const {
  if (pattern.size() <= kOnePassUnits) {
    std::array<char16_t, kStackUnits> buffer;
    if (const char16_t* end = renderValidating(buffer.data(), *this, pattern)) {
      return std::u16string(buffer.data(),
                            static_cast<std::size_t>(end - buffer.data()));
    }
  }

  // Long output: validate first, then render straight into a result sized
  // once by an upper bound. Literal output is at most the pattern's length,
  // so only the fields can push the sum past the limits; the checks keep it
  // from wrapping.
  Sizer sizer;
  if (!parsePattern(pattern, sizer)) throwProblem(sizer.first, pattern);
  const std::size_t nameLength =
      sizer.timeStandardTokens == 0
          ? 0
          : std::string_view(DateTimeDefs::timeStandardName(timeStandard))
                .size();
  std::u16string result;
  const std::size_t limit = result.max_size();
  std::size_t bound = sizer.literalUnits;
  const auto add = [&](std::size_t tokens, std::size_t units) {
    if (units != 0 && tokens > (limit - bound) / units) {
      throw std::length_error("basic_string::append");
    }
    bound += tokens * units;
  };
  add(sizer.fieldTokens, kMaxFieldUnits);
  add(sizer.timeStandardTokens, nameLength);
  result.resize(bound);
  Renderer renderer{result.data(), *this, nameLength};
  parsePattern(pattern, renderer);  // valid: nothing stops the walk
  result.resize(static_cast<std::size_t>(renderer.out - result.data()));
  return result;
}

std::u16string DateTimeStructFormatter::formatToken(char16_t c,
                                                    std::int32_t count,
                                                    bool& fractionPrinted,
                                                    bool quoted) const {
  const auto n = static_cast<std::size_t>(std::max<std::int32_t>(count, 0));
  if (c == u'\'') return std::u16string(n / 2, u'\'');
  if (quoted || classOf(c) != CharClass::Field) return std::u16string(n, c);
  if (c == u't') return format_t();
  return fieldString([&](char16_t* out) {
    return putField(out, dateTimeStruct, timeStandard, c, count,
                    fractionPrinted);
  });
}

std::u16string DateTimeStructFormatter::format_t() const {
  return textString(DateTimeDefs::timeStandardName(timeStandard));
}

std::u16string DateTimeStructFormatter::format_G() const {
  return textString(eraText(dateTimeStruct));
}

std::u16string DateTimeStructFormatter::format_a() const {
  return textString(amPmText(dateTimeStruct));
}

std::u16string DateTimeStructFormatter::format_S(std::int32_t count,
                                                 bool& fractionPrinted) const {
  fractionPrinted = true;
  return fieldString(
      [&](char16_t* out) { return put_S(out, dateTimeStruct, count); });
}

std::u16string DateTimeStructFormatter::format_y(std::int32_t count) const {
  return fieldString(
      [&](char16_t* out) { return put_y(out, dateTimeStruct, count); });
}

std::u16string DateTimeStructFormatter::format_u(std::int32_t count) const {
  return fieldString(
      [&](char16_t* out) { return put_u(out, dateTimeStruct, count); });
}

std::u16string DateTimeStructFormatter::format_M(std::int32_t count) const {
  return fieldString(
      [&](char16_t* out) { return put_M(out, dateTimeStruct, count); });
}

std::u16string DateTimeStructFormatter::format_d(std::int32_t count) const {
  return fieldString([&](char16_t* out) {
    return putNumber(out, narrow8(dateTimeStruct.day), count);
  });
}

std::u16string DateTimeStructFormatter::format_D(std::int32_t count) const {
  return fieldString(
      [&](char16_t* out) { return put_D(out, dateTimeStruct, count); });
}

std::u16string DateTimeStructFormatter::format_e(std::int32_t count) const {
  return fieldString(
      [&](char16_t* out) { return put_e(out, dateTimeStruct, count); });
}

std::u16string DateTimeStructFormatter::format_h(std::int32_t count) const {
  return fieldString(
      [&](char16_t* out) { return put_h(out, dateTimeStruct, count); });
}

std::u16string DateTimeStructFormatter::format_H(std::int32_t count) const {
  return fieldString([&](char16_t* out) {
    return putNumber(out, narrow8(dateTimeStruct.hour), count);
  });
}

std::u16string DateTimeStructFormatter::format_m(std::int32_t count) const {
  return fieldString([&](char16_t* out) {
    return putNumber(out, narrow8(dateTimeStruct.minute), count);
  });
}

std::u16string DateTimeStructFormatter::format_s(std::int32_t count) const {
  return fieldString([&](char16_t* out) {
    return putNumber(out, narrow8(dateTimeStruct.second), count);
  });
}

PreparedFormat::PreparedFormat(std::u16string_view pattern) {
  // The runs the walk reports, in order: replaying them is the walk's
  // rendering, so the two cannot drift apart.
  struct Recorder : FirstProblem {
    explicit Recorder(PreparedFormat& prepared) noexcept : p(prepared) {}
    PreparedFormat& p;
    void literal(char16_t c, std::size_t n) {
      if (n == 0) return;  // a lone apostrophe only opens or closes quotes
      p.runs_.push_back({c, false, n});
      p.literalUnits_ += n;
    }
    void field(char16_t c, std::size_t n) {
      p.runs_.push_back({c, true, n});
      ++(c == u't' ? p.nameRuns_ : p.fieldRuns_);
    }
  } recorder{*this};
  if (!parsePattern(pattern, recorder)) throwProblem(recorder.first, pattern);
}

std::size_t PreparedFormat::maxUnits(TimeStandard standard) const noexcept {
  // Runs live in memory, so none of these products can wrap.
  const std::size_t name =
      nameRuns_ == 0
          ? 0
          : std::string_view(DateTimeDefs::timeStandardName(standard)).size();
  return literalUnits_ + fieldRuns_ * kMaxFieldUnits + nameRuns_ * name;
}

std::size_t PreparedFormat::formatTo(const DateTimeStruct& value,
                                     TimeStandard standard, char16_t* out,
                                     std::size_t capacity) const {
  if (capacity < maxUnits(standard)) {
    throw std::length_error(
        "PreparedFormat::formatTo: the buffer is shorter than maxUnits");
  }
  char16_t* p = out;
  bool fractionPrinted = false;  // formatToken's contract; never read here
  for (const Run& run : runs_) {
    if (!run.field) {
      p = putRepeated(p, run.c, run.count);
      continue;
    }
    // As in the one-pass walk: counts past 2^31 - 1 render like 10 anyway.
    const auto count = static_cast<std::int32_t>(std::min<std::size_t>(
        run.count, std::numeric_limits<std::int32_t>::max()));
    p = putField(p, value, standard, run.c, count, fractionPrinted);
  }
  return static_cast<std::size_t>(p - out);
}

std::u16string PreparedFormat::format(const DateTimeStruct& value,
                                      TimeStandard standard) const {
  std::u16string result(maxUnits(standard), u'\0');
  result.resize(formatTo(value, standard, result.data(), result.size()));
  return result;
}

}  // namespace KvDateTime
