#include "date_time/DateTimeParser.hpp"

#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "date_time/CalendarCore.hpp"
#include "date_time/ConstantTables.hpp"
#include "date_time/DateTimeUtilities.hpp"
#include "date_time/PatternTokens.hpp"
#include "date_time/diagnostics/MessageIds.hpp"
#include "host/typesys/DateTimeDefs.hpp"

namespace KvDateTime {
namespace {

using detail::PatternProblem;
using detail::unitOf;

// ------------------------------------------------------------- failures

enum class Failure {
  None,
  Pattern,     // validateFormat's problem
  Incomplete,  // the pattern cannot name a whole date
  Mismatch,
  TrailingText,
  FieldRange,
  FieldConflict,
  TimeStandard,     // `t` or 'Z' against the standard given
  InvalidDateTime,  // validateDateTime's problem
};

struct Fail {
  Failure kind = Failure::None;
  std::size_t position = 0;
  PatternProblem problem;         // for Pattern
  const char* missing = nullptr;  // for Incomplete
};

// ------------------------------------------------------------- fields

// A value read from the text and where it started. Fields read twice must
// agree; the later one is the one reported.
struct Slot {
  static constexpr std::size_t kUnset = SIZE_MAX;
  std::int64_t value = 0;
  std::size_t position = kUnset;
  bool set() const noexcept { return position != kUnset; }
};

struct Fields {
  Slot signedYear;    // u
  Slot eraYear;       // y, count other than 2
  Slot twoDigitYear;  // yy
  Slot era;           // G: 0 BCE, 1 CE
  Slot month, monthInitial;
  Slot day, dayOfYear;
  Slot weekday, weekdayInitial;
  Slot hour24, hour12, pm;
  Slot minute, second;
  Slot fraction;  // digits; fractionDigits of them
  int fractionDigits = 0;
};

// ------------------------------------------------------------- characters

template <typename Char>
constexpr bool isDigit(Char c) noexcept {
  return unitOf(c) >= u'0' && unitOf(c) <= u'9';
}

constexpr char16_t foldAscii(char16_t c) noexcept {
  return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + 32) : c;
}

// Whether `name` (ASCII) stands at `at`, ASCII case ignored.
template <typename Char>
bool namedAt(std::basic_string_view<Char> text, std::size_t at,
             std::string_view name) noexcept {
  if (text.size() - at < name.size()) return false;
  for (std::size_t i = 0; i < name.size(); ++i) {
    if (foldAscii(unitOf(text[at + i])) !=
        foldAscii(static_cast<char16_t>(name[i]))) {
      return false;
    }
  }
  return true;
}

// Index of the name of `names` that stands at `at` (its first `letters`
// letters, or all of it when letters is 0), or -1.
template <typename Char, std::size_t N>
int nameIndexAt(std::basic_string_view<Char> text, std::size_t at,
                const std::array<const char*, N>& names, std::size_t letters) {
  for (std::size_t i = 0; i < N; ++i) {
    std::string_view name = names[i];
    if (letters != 0) name = name.substr(0, letters);
    if (namedAt(text, at, name)) return static_cast<int>(i);
  }
  return -1;
}

// The least double not below whole + digits / 10^count, for count <= 14 so
// that the numerator whole * 10^count + digits (below 61e14) and 10^count
// are exact doubles. The division then rounds to nearest; the exact sign of
// its residual, from fma, says whether it landed below the decimal.
double leastDoubleNotBelow(std::int64_t whole, std::int64_t digits,
                           int count) noexcept {
  static constexpr double kPow10[] = {1e0,  1e1,  1e2,  1e3,  1e4,
                                      1e5,  1e6,  1e7,  1e8,  1e9,
                                      1e10, 1e11, 1e12, 1e13, 1e14};
  const double scale = kPow10[count];
  const auto numerator =
      static_cast<double>(whole * static_cast<std::int64_t>(scale) + digits);
  double q = numerator / scale;
  if (std::fma(q, scale, -numerator) < 0.0) q = std::nextafter(q, 61.0);
  return q;
}

__extension__ typedef unsigned __int128 U128;  // GCC and Clang both have it

// leastDoubleNotBelow with the residual's sign taken from integers and no
// branch on it: half the quotients land below the decimal, so a branch
// there is a coin toss. q = m * 2^e exactly, and q * scale < numerator
// exactly when m * scale < numerator * 2^-e, both below 2^128 while
// -e <= 74 (q >= 2^-22); smaller quotients (and a subnormal or zero q,
// whose exponent field is 0) take the fma.
inline __attribute__((always_inline)) double leastDoubleNotBelowQuick(
    std::int64_t whole, std::int64_t digits, int count) noexcept {
  static constexpr std::int64_t kPow10[] = {1,
                                            10,
                                            100,
                                            1000,
                                            10000,
                                            100000,
                                            1000000,
                                            10000000,
                                            100000000,
                                            1000000000,
                                            10000000000,
                                            100000000000,
                                            1000000000000,
                                            10000000000000,
                                            100000000000000};
  const std::int64_t scale = kPow10[count];
  const std::int64_t numerator = whole * scale + digits;
  const double q = static_cast<double>(numerator) / static_cast<double>(scale);
  const auto bits = std::bit_cast<std::uint64_t>(q);
  const int shift = 1075 - static_cast<int>(bits >> 52);  // q = m * 2^-shift
  // A numerator past 2^53 is no exact double there: that one's way.
  if (shift < 1 || shift > 74 || numerator > (std::int64_t{1} << 53))
    return leastDoubleNotBelow(whole, digits, count);
  const U128 m = (bits & ((std::uint64_t{1} << 52) - 1)) | std::uint64_t{1}
                                                               << 52;
  const bool below = m * static_cast<std::uint64_t>(scale) <
                     U128{static_cast<std::uint64_t>(numerator)} << shift;
  return std::bit_cast<double>(bits + (below ? 1 : 0));
}

// Widest number a numeric field reads: more digits than any field can hold
// in range, few enough for a 64-bit value.
constexpr std::size_t kMaxDigits = 18;

// ------------------------------------------------------------- reading

// What a pattern token reads, seen from the digits it takes.
bool readsDigits(char16_t c, std::size_t n) noexcept {
  switch (c) {
    case u'M':
      return n < 3 || n > 5;
    case u'e':
      return n < 3;
    case u'y':
    case u'u':
    case u'd':
    case u'D':
    case u'h':
    case u'H':
    case u'm':
    case u's':
    case u'S':
      return true;
    default:
      return false;
  }
}

// The numeric fields that are only range-checked: letter, slot, range.
// Seconds go to 60 for the leap second; the validator judges its place.
struct FieldRange {
  char16_t letter;
  Slot Fields::*slot;
  std::int64_t lo, hi;
};
constexpr FieldRange kFieldRanges[] = {
    {u'M', &Fields::month, 1, 12},      {u'd', &Fields::day, 1, 31},
    {u'D', &Fields::dayOfYear, 1, 366}, {u'e', &Fields::weekday, 1, 7},
    {u'H', &Fields::hour24, 0, 23},     {u'h', &Fields::hour12, 1, 12},
    {u'm', &Fields::minute, 0, 59},     {u's', &Fields::second, 0, 60}};

// One member of a run of adjacent numeric tokens: a field, or literal digits.
struct ChainLink {
  char16_t c;
  std::size_t n;
  bool literal;
};

// Reads the text token by token as parsePattern walks the pattern, keeping
// the first failure and ignoring every token after it. Numeric tokens wait
// in `chain` until the run of adjacent ones is complete, so that the first
// of them can take the digits the others leave.
template <typename Char>
class Reader {
 public:
  Reader(std::basic_string_view<Char> text, TimeStandard ts) noexcept
      : text_(text), ts_(ts) {}

  Fields fields;
  Fail fail;

  bool failed() const noexcept { return fail.kind != Failure::None; }

  void literal(char16_t c, std::size_t n) {
    if (failed() || n == 0) return;
    if (c >= u'0' && c <= u'9') {
      link({c, n, true});
      return;
    }
    flush(true);
    if (failed()) return;
    for (std::size_t k = 0; k < n; ++k, ++at_) {
      if (at_ == text_.size() || unitOf(text_[at_]) != c) {
        failAt(Failure::Mismatch, at_);
        return;
      }
    }
  }

  void field(char16_t c, std::size_t n) {
    if (failed()) return;
    if (readsDigits(c, n)) {
      link({c, n, false});
      return;
    }
    flush(true);
    if (!failed()) readText(c, n);
  }

  bool problem(PatternProblem) noexcept { return false; }  // valid already

  // After the last token: the chain read, then nothing may remain.
  void finish() {
    if (failed()) return;
    flush(true);
    if (!failed() && at_ != text_.size()) failAt(Failure::TrailingText, at_);
  }

  // For the ISO reader, which drives the reader itself.
  std::size_t at() const noexcept { return at_; }
  bool nextIs(char16_t c) const noexcept {
    return at_ < text_.size() && unitOf(text_[at_]) == c;
  }
  void skip() noexcept { ++at_; }
  void failAt(Failure kind, std::size_t position) noexcept {
    if (!failed()) fail = {kind, position, {}, nullptr};
  }
  // Exactly `width` digits for field `c`.
  void fixed(char16_t c, std::size_t width) {
    if (failed()) return;
    const std::size_t start = at_;
    std::int64_t v = 0;
    if (!takeDigits(width, v)) return;
    store(c, width, v, start, false);
  }
  // A fraction of any length after the decimal sign; digits past the 14th
  // are read and ignored.
  void anyFraction() {
    if (failed()) return;
    const std::size_t start = at_;
    std::int64_t v = 0;
    int kept = 0;
    while (at_ < text_.size() && isDigit(text_[at_])) {
      if (kept < 14) {
        v = v * 10 + (unitOf(text_[at_]) - u'0');
        ++kept;
      }
      ++at_;
    }
    if (at_ == start) {
      failAt(Failure::Mismatch, at_);
      return;
    }
    fields.fraction = {v, start};
    fields.fractionDigits = kept;
  }

 private:
  void link(const ChainLink& l) {
    if (chainSize_ == chain_.size()) flush(false);  // an absurd run: no surplus
    chain_[chainSize_++] = l;
  }

  // Fixed width of a link, or 0 for a field that may take more digits.
  static std::size_t fixedWidth(const ChainLink& l) noexcept {
    if (l.literal) return l.n;
    if (l.c == u'S') return l.n < 9 ? l.n : 9;
    if (l.c == u'y' && l.n == 2) return 2;
    return 0;
  }
  static std::size_t leastWidth(const ChainLink& l) noexcept {
    const std::size_t w = fixedWidth(l);
    if (w != 0) return w;
    return l.n < 10 ? l.n : 10;
  }

  // Reads the pending run of numeric tokens. `closed`: nothing numeric
  // follows, so the first elastic field takes every surplus digit.
  void flush(bool closed) {
    const std::size_t size = chainSize_;
    chainSize_ = 0;
    if (size == 0 || failed()) return;
    const std::size_t chainStart = at_;  // a field's position has its sign
    bool negative = false;
    if (!chain_[0].literal && chain_[0].c == u'u' && nextIs(u'-')) {
      negative = true;
      ++at_;
    }
    std::size_t available = 0;
    while (at_ + available < text_.size() && isDigit(text_[at_ + available]))
      ++available;
    std::size_t needed = 0;
    std::size_t elastic = size;
    for (std::size_t i = 0; i < size; ++i) {
      needed += leastWidth(chain_[i]);
      if (elastic == size && fixedWidth(chain_[i]) == 0) elastic = i;
    }
    if (available < needed) {
      failAt(Failure::Mismatch, at_ + available);
      return;
    }
    const std::size_t surplus = closed ? available - needed : 0;
    for (std::size_t i = 0; i < size && !failed(); ++i) {
      const ChainLink& l = chain_[i];
      const std::size_t width = leastWidth(l) + (i == elastic ? surplus : 0);
      const std::size_t start = i == 0 ? chainStart : at_;
      if (l.literal) {
        for (std::size_t k = 0; k < width; ++k, ++at_) {
          if (unitOf(text_[at_]) != l.c) {
            failAt(Failure::Mismatch, at_);
            return;
          }
        }
        continue;
      }
      std::int64_t v = 0;
      if (!takeDigits(width, v)) return;
      store(l.c, l.n, v, start, negative && i == 0);
    }
  }

  // `width` digits (all known to be there unless reading ISO) into `v`.
  bool takeDigits(std::size_t width, std::int64_t& v) noexcept {
    const std::size_t start = at_;
    for (std::size_t k = 0; k < width; ++k, ++at_) {
      if (at_ == text_.size() || !isDigit(text_[at_])) {
        failAt(Failure::Mismatch, at_);
        return false;
      }
      if (k < kMaxDigits) v = v * 10 + (unitOf(text_[at_]) - u'0');
    }
    if (width > kMaxDigits) {
      failAt(Failure::FieldRange, start);
      return false;
    }
    return true;
  }

  void put(Slot& slot, std::int64_t v, std::size_t start) noexcept {
    if (slot.set() && slot.value != v) {
      failAt(Failure::FieldConflict, start);
      return;
    }
    slot = {v, start};
  }

  void ranged(Slot& slot, std::int64_t v, std::int64_t lo, std::int64_t hi,
              std::size_t start) noexcept {
    if (v < lo || v > hi) {
      failAt(Failure::FieldRange, start);
      return;
    }
    put(slot, v, start);
  }

  void store(char16_t c, std::size_t n, std::int64_t v, std::size_t start,
             bool negative) {
    Fields& f = fields;
    switch (c) {
      case u'y':
        if (n == 2) return put(f.twoDigitYear, v, start);
        return ranged(f.eraYear, v, 1, INT64_MAX, start);  // no year 0 of era
      case u'u':  // "-0" is never written: year 0 has no sign
        if (negative && v == 0) return failAt(Failure::FieldRange, start);
        return put(f.signedYear, negative ? -v : v, start);
      case u'S':
        f.fraction = {v, start};
        f.fractionDigits = static_cast<int>(n < 9 ? n : 9);
        return;
      default:
        for (const FieldRange& r : kFieldRanges) {
          if (r.letter == c) return ranged(f.*r.slot, v, r.lo, r.hi, start);
        }
    }
  }

  // Names and markers.
  void readText(char16_t c, std::size_t n) {
    const std::size_t start = at_;
    const auto initial = [&](Slot& slot) {
      if (at_ == text_.size()) return failAt(Failure::Mismatch, at_);
      put(slot, foldAscii(unitOf(text_[at_])), start);
      ++at_;
    };
    const auto named = [&](Slot& slot, int index, std::string_view name) {
      if (index < 0) return failAt(Failure::Mismatch, start);
      put(slot, index, start);
      at_ += name.size();
    };
    switch (c) {
      case u'M':
      case u'e': {
        Slot& number = c == u'M' ? fields.month : fields.weekday;
        if (n == 5)
          return initial(c == u'M' ? fields.monthInitial
                                   : fields.weekdayInitial);
        const std::size_t letters = n == 3 ? 3 : 0;
        const int i = c == u'M'
                          ? nameIndexAt(text_, at_, detail::monthNames, letters)
                          : nameIndexAt(text_, at_, detail::dayNames, letters);
        if (i < 0) return failAt(Failure::Mismatch, start);
        const std::string_view name =
            c == u'M' ? detail::monthNames[static_cast<std::size_t>(i)]
                      : detail::dayNames[static_cast<std::size_t>(i)];
        put(number, i + 1, start);
        at_ += letters != 0 ? letters : name.size();
        return;
      }
      case u'G':
        if (namedAt(text_, at_, "BCE")) return named(fields.era, 0, "BCE");
        return named(fields.era, namedAt(text_, at_, "CE") ? 1 : -1, "CE");
      case u'a':
        if (namedAt(text_, at_, "AM")) return named(fields.pm, 0, "AM");
        return named(fields.pm, namedAt(text_, at_, "PM") ? 1 : -1, "PM");
      case u't': {
        const std::string_view name = DateTimeDefs::timeStandardName(ts_);
        if (namedAt(text_, at_, name)) {
          at_ += name.size();
          return;
        }
        // Another standard's name is a finding of its own: the text is
        // well formed but read in another scale (TAI 0 to TDB 3).
        for (int s = 0; s < 4; ++s) {
          if (namedAt(text_, at_,
                      DateTimeDefs::timeStandardName(
                          static_cast<TimeStandard>(s)))) {
            return failAt(Failure::TimeStandard, start);
          }
        }
        return failAt(Failure::Mismatch, start);
      }
      default:
        return;
    }
  }

  std::basic_string_view<Char> text_;
  TimeStandard ts_;
  std::size_t at_ = 0;
  std::array<ChainLink, 16> chain_;  // the first chainSize_ are set
  std::size_t chainSize_ = 0;
};

// ------------------------------------------------------------- the pattern

// Pass one: the pattern's own problems, then whether it names a whole date.
struct PatternCheck : detail::FirstProblem {
  bool year = false, month = false, day = false, twelveHour = false,
       marker = false;
  void field(char16_t c, std::size_t n) noexcept {
    year |= c == u'u' || (c == u'y' && n != 2);
    month |= (c == u'M' && n != 5) || c == u'D';
    day |= c == u'd' || c == u'D';
    twelveHour |= c == u'h';
    marker |= c == u'a';
  }
  const char* missing() const noexcept {
    if (!year) return "year";
    if (!month) return "month";
    if (!day) return "day";
    if (twelveHour && !marker) return "AM/PM marker";
    return nullptr;
  }
};

// ------------------------------------------------------------- resolution

// The record the fields name, or the failure. `ts` only for validation.
Fail resolve(const Fields& f, TimeStandard ts, DateTimeStruct& out,
             kvsvDiagnostic& invalid) {
  const auto conflict = [](const Slot& s) {
    return Fail{Failure::FieldConflict, s.position, {}, nullptr};
  };
  // Year: u, or y read with its era.
  std::int64_t year = f.signedYear.value;
  if (f.eraYear.set()) {
    const bool bce = f.era.set() && f.era.value == 0;
    const std::int64_t fromEra = bce ? 1 - f.eraYear.value : f.eraYear.value;
    if (f.signedYear.set() && fromEra != year) {
      return conflict(f.signedYear.position > f.eraYear.position ? f.signedYear
                                                                 : f.eraYear);
    }
    year = fromEra;
  } else if (f.era.set() && (year <= 0) != (f.era.value == 0)) {
    return conflict(f.era);
  }
  const std::int64_t ofEra = year >= 1 ? year : 1 - year;
  if (f.twoDigitYear.set() && ofEra % 100 != f.twoDigitYear.value)
    return conflict(f.twoDigitYear);

  // Month and day: M and d, or the day of the year.
  std::int64_t month = f.month.value;
  std::int64_t day = f.day.value;
  if (f.dayOfYear.set() && (!f.month.set() || !f.day.set())) {
    const bool leap = detail::isLeapYear(year);
    std::int64_t rest = f.dayOfYear.value;
    if (rest > (leap ? 366 : 365))
      return {Failure::FieldRange, f.dayOfYear.position, {}, nullptr};
    unsigned m = 1;
    while (rest > detail::monthLength(leap, m))
      rest -= detail::monthLength(leap, m++);
    if (f.month.set() && f.month.value != m) return conflict(f.dayOfYear);
    if (f.day.set() && f.day.value != rest) return conflict(f.dayOfYear);
    month = m;
    day = rest;
  }

  // Hour: H, or h with its marker.
  std::int64_t hour = f.hour24.value;
  if (f.hour12.set()) {
    const std::int64_t fromClock = f.hour12.value % 12 + 12 * f.pm.value;
    if (f.hour24.set() && fromClock != hour) {
      return conflict(f.hour24.position > f.hour12.position ? f.hour24
                                                            : f.hour12);
    }
    hour = fromClock;
  } else if (f.pm.set() && (hour > 11) != (f.pm.value == 1)) {
    return conflict(f.pm);
  }

  DateTimeStruct r;
  r.year = static_cast<double>(year);
  r.month = static_cast<double>(month);
  r.day = static_cast<double>(day);
  r.hour = static_cast<double>(hour);
  r.minute = static_cast<double>(f.minute.value);
  r.second = f.fraction.set()
                 ? leastDoubleNotBelow(f.second.value, f.fraction.value,
                                       f.fractionDigits)
                 : static_cast<double>(f.second.value);
  // The library's inline test of an ordinary reading accepts only what
  // validateDateTime accepts; the rest (leap seconds, failures) goes there.
  detail::OrdinaryFields ordinary;
  if (!detail::ordinaryReading(r.year, r.month, r.day, r.hour, r.minute,
                               r.second, ordinary)) {
    invalid = DateTimeUtilities::validateDateTime(r.toArray(), ts);
    if (invalid) return {Failure::InvalidDateTime, 0, {}, nullptr};
  }

  // The checks that need a valid date.
  if (f.dayOfYear.set() &&
      DateTimeUtilities::calendarTimeToDayOfYear(r) != f.dayOfYear.value)
    return conflict(f.dayOfYear);
  const auto monthName = [&] {
    return detail::monthNames[static_cast<std::size_t>(month - 1)];
  };
  if (f.monthInitial.set() &&
      foldAscii(static_cast<char16_t>(monthName()[0])) != f.monthInitial.value)
    return conflict(f.monthInitial);
  if (f.weekday.set() || f.weekdayInitial.set()) {
    const int weekday = DateTimeUtilities::calendarTimeToDayOfWeek(r);
    if (f.weekday.set() && weekday != f.weekday.value)
      return conflict(f.weekday);
    const char first =
        detail::dayNames[static_cast<std::size_t>(weekday - 1)][0];
    if (f.weekdayInitial.set() &&
        foldAscii(static_cast<char16_t>(first)) != f.weekdayInitial.value)
      return conflict(f.weekdayInitial);
  }
  out = r;
  return {};
}

// ------------------------------------------------------------- diagnostics

template <typename Char>
kvsvDiagnostic diagnosticOf(const Fail& fail,
                            std::basic_string_view<Char> pattern,
                            std::basic_string_view<Char> text, TimeStandard ts,
                            kvsvDiagnostic& invalid) {
  using detail::textArgument;
  using Korvane::DateTime::makeMsgId;
  using Korvane::DateTime::MsgId;
  using resource_core::MsgArgument;
  const auto make = [](MsgId id, std::vector<MsgArgument> arguments) {
    return kvsvCreateDiagnostic(makeMsgId(id, std::move(arguments)),
                                std::string());
  };
  const auto at = [&](MsgId id) {
    return make(id, {textArgument(pattern), textArgument(text),
                     MsgArgument(static_cast<std::int64_t>(fail.position))});
  };
  switch (fail.kind) {
    case Failure::None:
      return nullptr;
    case Failure::Pattern:
      return detail::diagnosticFor(fail.problem, pattern);
    case Failure::Incomplete:
      return make(
          MsgId::ParsePatternIncomplete,
          {textArgument(pattern), MsgArgument(std::string(fail.missing))});
    case Failure::Mismatch:
      return at(MsgId::ParseMismatch);
    case Failure::TrailingText:
      return at(MsgId::ParseTrailingText);
    case Failure::FieldRange:
      return at(MsgId::ParseFieldRange);
    case Failure::FieldConflict:
      return at(MsgId::ParseFieldConflict);
    case Failure::TimeStandard:
      return make(
          MsgId::ParseTimeStandardMismatch,
          {textArgument(pattern), textArgument(text),
           MsgArgument(static_cast<std::int64_t>(fail.position)),
           MsgArgument(std::string(DateTimeDefs::timeStandardName(ts)))});
    case Failure::InvalidDateTime:
      return make(MsgId::ParseInvalidDateTime,
                  {textArgument(pattern), textArgument(text),
                   MsgArgument(invalid->identifier())});
  }
  return nullptr;
}

template <typename Char>
kvsvDiagnostic readByPattern(std::basic_string_view<Char> text,
                             std::basic_string_view<Char> pattern,
                             TimeStandard ts, DateTimeStruct& result) {
  Fail fail;
  kvsvDiagnostic invalid;
  PatternCheck check;
  if (!detail::parsePattern(pattern, check)) {
    fail = {Failure::Pattern, 0, check.first, nullptr};
  } else if (const char* missing = check.missing()) {
    fail = {Failure::Incomplete, 0, {}, missing};
  } else {
    Reader<Char> reader(text, ts);
    detail::parsePattern(pattern, reader);
    reader.finish();
    fail = reader.failed() ? reader.fail
                           : resolve(reader.fields, ts, result, invalid);
  }
  return diagnosticOf(fail, pattern, text, ts, invalid);
}

template <typename Char>
kvsvDiagnostic readIso8601(std::basic_string_view<Char> text, TimeStandard ts,
                           DateTimeStruct& result) {
  Reader<Char> r(text, ts);
  // Takes one of `chars` if it comes next; fails there when `required`.
  const auto take = [&](std::u16string_view chars, bool required) {
    for (const char16_t c : chars) {
      if (r.nextIs(c)) {
        r.skip();
        return true;
      }
    }
    if (required) r.failAt(Failure::Mismatch, r.at());
    return false;
  };
  r.fixed(u'u', 4);
  take(u"-", true);
  r.fixed(u'M', 2);
  take(u"-", true);
  r.fixed(u'd', 2);
  if (!r.failed() && r.at() != text.size()) {
    take(u"Tt ", true);
    r.fixed(u'H', 2);
    take(u":", true);
    r.fixed(u'm', 2);
    if (take(u":", false)) {
      r.fixed(u's', 2);
      if (take(u".,", false)) r.anyFraction();
    }
    const std::size_t zone = r.at();
    if (!r.failed() && take(u"Zz", false) && ts != TimeStandard::UTC)
      r.failAt(Failure::TimeStandard, zone);
  }
  r.finish();
  Fail fail = r.failed() ? r.fail : Fail{};
  kvsvDiagnostic invalid;
  if (!r.failed()) fail = resolve(r.fields, ts, result, invalid);
  if (fail.kind == Failure::None) return nullptr;
  if constexpr (sizeof(Char) == 1) {
    return diagnosticOf<char>(fail, "ISO 8601", text, ts, invalid);
  } else if constexpr (sizeof(Char) == 4) {
    return diagnosticOf<char32_t>(fail, U"ISO 8601", text, ts, invalid);
  } else {
    return diagnosticOf<char16_t>(fail, u"ISO 8601", text, ts, invalid);
  }
}

// The usual ISO 8601 layouts read straight from the code units, or false
// for anything readIso8601 must judge: a text off the layout, a field out
// of range, or a reading ordinaryReading does not pass (which
// validateDateTime would have to see). Accepting only ordinary readings
// keeps this in step with readIso8601, whose fields and resolve give the
// same doubles for them without consulting validateDateTime. `result` is
// written only on success.
template <typename Char>
bool readIso8601Usual(std::basic_string_view<Char> text, TimeStandard ts,
                      DateTimeStruct& result) noexcept {
  const std::size_t size = text.size();
  if (size < 10) return false;
  const Char* t = text.data();
  // Code units as unsigned values: a byte of UTF-8 or a whole code point.
  const auto code = [t](std::size_t i) -> std::uint32_t {
    if constexpr (sizeof(Char) == 1) {
      return static_cast<unsigned char>(t[i]);
    } else {
      return static_cast<std::uint32_t>(t[i]);
    }
  };
  const auto digit = [&](std::size_t i) { return code(i) - u'0'; };
  // The first 16 units ("yyyy-MM-ddTHH:mm") as bytes, two words of eight,
  // each field's digits read for all fields at once: a byte per unit
  // (0 past the end), x = byte ^ '0' is the digit where the byte is one,
  // and 10 * x[i] + x[i + 1] lands in byte i of x * 10 + (x >> 8).
  std::uint8_t b[16] = {};
  std::uint32_t any = 0;
  if (size >= 16) {
    for (std::size_t k = 0; k < 16; ++k) {
      any |= code(k);
      b[k] = static_cast<std::uint8_t>(code(k));
    }
  } else {
    for (std::size_t k = 0; k < size; ++k) {
      any |= code(k);
      b[k] = static_cast<std::uint8_t>(code(k));
    }
  }
  if (any >= 0x80) return false;  // not ASCII: the reader's to judge
  std::uint64_t w0 = 0, w1 = 0;
  for (std::size_t k = 0; k < 8; ++k) {
    w0 |= std::uint64_t{b[k]} << 8 * k;
    w1 |= std::uint64_t{b[8 + k]} << 8 * k;
  }
  constexpr std::uint64_t kZeros = 0x3030303030303030;
  // Digits: bytes 0-3, 5, 6 of the first word; 0, 1 (and 3, 4, 6, 7 with
  // a time) of the second. Separators: '-' at 4 and 7, ':' at 13.
  const bool timed = size > 10;
  const std::uint64_t x0 = (w0 ^ kZeros) & 0x00FFFF00FFFFFFFF;
  const std::uint64_t x1 =
      (w1 ^ kZeros) & (timed ? 0xFFFF00FFFF00FFFF : 0x000000000000FFFF);
  const auto notDigits = [](std::uint64_t x) {
    return (x & 0xF0F0F0F0F0F0F0F0) |
           ((x + 0x0606060606060606) & 0x1010101010101010);
  };
  bool ok = (notDigits(x0) | notDigits(x1)) == 0 &&
            (w0 & 0xFF0000FF00000000) == 0x2D00002D00000000;
  const std::uint64_t p0 = x0 * 10 + (x0 >> 8);
  const std::uint64_t p1 = x1 * 10 + (x1 >> 8);
  const auto byte = [](std::uint64_t p, int i) {
    return static_cast<std::int64_t>(p >> 8 * i & 0xFF);
  };
  const std::int64_t year = byte(p0, 0) * 100 + byte(p0, 2);
  const std::int64_t month = byte(p0, 5);
  const std::int64_t day = byte(p1, 0);
  std::int64_t hour = 0, minute = 0, second = 0, fraction = 0;
  int kept = 0;
  const auto two = [&](std::size_t i) {
    const std::uint32_t hi = digit(i), lo = digit(i + 1);
    ok &= hi < 10 && lo < 10;
    return static_cast<std::int64_t>(hi * 10 + lo);
  };
  if (timed) {
    const std::uint32_t separator = code(10);
    if (size < 16 ||
        (separator != u'T' && separator != u't' && separator != u' '))
      return false;
    hour = byte(p1, 3);
    minute = byte(p1, 6);
    ok &= b[13] == u':';
    std::size_t at = 16;
    if (at < size && code(at) == u':') {
      if (size < at + 3) return false;
      second = two(at + 1);
      at += 3;
      if (at < size && (code(at) == u'.' || code(at) == u',')) {
        const std::size_t start = ++at;
        for (; at < size && digit(at) < 10; ++at) {
          if (kept < 14) {
            fraction = fraction * 10 + digit(at);
            ++kept;
          }
        }
        if (at == start) return false;
      }
    }
    if (at < size && (code(at) == u'Z' || code(at) == u'z')) {
      if (ts != TimeStandard::UTC) return false;
      ++at;
    }
    ok &= at == size;
  }
  // ordinaryReading's test on the whole numbers, so that no branch waits
  // for the second's division: the fields are whole, and the second is
  // below 60 exactly when its whole part is 59 or less (14 fraction digits
  // at most leave 1e-14 below 60, more than the 7e-15 between the doubles
  // there).
  using detail::kFirstYear, detail::kLastYear;
  ok &= year >= kFirstYear && year <= kLastYear && month >= 1 && month <= 12 &&
        day >= 1 && hour <= 23 && minute <= 59 && second <= 59;
  if (!ok) return false;
  if (day > 28 && static_cast<unsigned>(day) >
                      detail::monthLength(detail::isLeapYear(year),
                                          static_cast<unsigned>(month)))
    return false;
  result.year = static_cast<double>(year);
  result.month = static_cast<double>(month);
  result.day = static_cast<double>(day);
  result.hour = static_cast<double>(hour);
  result.minute = static_cast<double>(minute);
  result.second = kept != 0 ? leastDoubleNotBelowQuick(second, fraction, kept)
                            : static_cast<double>(second);
  return true;
}

template <typename Char>
kvsvDiagnostic readIso8601Fast(std::basic_string_view<Char> text,
                               TimeStandard ts, DateTimeStruct& result) {
  if (readIso8601Usual(text, ts, result)) return nullptr;
  return readIso8601(text, ts, result);
}

// The text of one padded element: up to its last unit that is not NUL
// first, which is quick to find where the padding is, and is the same text
// unless a NUL lies inside, which no ISO reading has; up to its first NUL
// only when that one is refused.
template <typename Char>
std::size_t readRows(const Char* texts, std::size_t stride, std::size_t count,
                     TimeStandard ts, double* rows) {
  for (std::size_t i = 0; i < count; ++i) {
    const Char* p = texts + stride * i;
    std::size_t size = stride;
    while (size > 0 && p[size - 1] == 0) --size;
    DateTimeStruct r;
    const std::basic_string_view<Char> text(p, size);
    if (!readIso8601Usual(text, ts, r) && readIso8601(text, ts, r)) return i;
    detail::putRow(rows + 6 * i, r);
  }
  return count;
}

DateTimeStruct orThrow(kvsvDiagnostic diagnostic, const DateTimeStruct& r) {
  if (diagnostic) {
    kvsvThrowIExceptionFromDiagnostic(diagnostic, nullptr);
    std::terminate();  // the call above always throws
  }
  return r;
}

}  // namespace

kvsvDiagnostic DateTimeParser::tryParse(std::u16string_view text,
                                        std::u16string_view pattern,
                                        TimeStandard ts,
                                        DateTimeStruct& result) {
  return readByPattern(text, pattern, ts, result);
}

kvsvDiagnostic DateTimeParser::tryParse(std::string_view text,
                                        std::string_view pattern,
                                        TimeStandard ts,
                                        DateTimeStruct& result) {
  return readByPattern(text, pattern, ts, result);
}

DateTimeStruct DateTimeParser::parse(std::u16string_view text,
                                     std::u16string_view pattern,
                                     TimeStandard ts) {
  DateTimeStruct r;
  return orThrow(readByPattern(text, pattern, ts, r), r);
}

DateTimeStruct DateTimeParser::parse(std::string_view text,
                                     std::string_view pattern,
                                     TimeStandard ts) {
  DateTimeStruct r;
  return orThrow(readByPattern(text, pattern, ts, r), r);
}

kvsvDiagnostic DateTimeParser::tryParseIso8601(std::u16string_view text,
                                               TimeStandard ts,
                                               DateTimeStruct& result) {
  return readIso8601(text, ts, result);
}

kvsvDiagnostic DateTimeParser::tryParseIso8601(std::string_view text,
                                               TimeStandard ts,
                                               DateTimeStruct& result) {
  return readIso8601(text, ts, result);
}

kvsvDiagnostic DateTimeParser::tryParseIso8601Fast(std::string_view text,
                                                   TimeStandard ts,
                                                   DateTimeStruct& result) {
  return readIso8601Fast(text, ts, result);
}

kvsvDiagnostic DateTimeParser::tryParseIso8601Fast(std::u32string_view text,
                                                   TimeStandard ts,
                                                   DateTimeStruct& result) {
  return readIso8601Fast(text, ts, result);
}

std::size_t DateTimeParser::readIso8601Rows(const char* texts,
                                            std::size_t stride,
                                            std::size_t count, TimeStandard ts,
                                            double* rows) {
  return readRows(texts, stride, count, ts, rows);
}

std::size_t DateTimeParser::readIso8601Rows(const char32_t* texts,
                                            std::size_t stride,
                                            std::size_t count, TimeStandard ts,
                                            double* rows) {
  return readRows(texts, stride, count, ts, rows);
}

DateTimeStruct DateTimeParser::parseIso8601(std::u16string_view text,
                                            TimeStandard ts) {
  DateTimeStruct r;
  return orThrow(readIso8601(text, ts, r), r);
}

DateTimeStruct DateTimeParser::parseIso8601(std::string_view text,
                                            TimeStandard ts) {
  DateTimeStruct r;
  return orThrow(readIso8601(text, ts, r), r);
}

}  // namespace KvDateTime
