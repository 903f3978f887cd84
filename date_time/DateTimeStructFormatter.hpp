// Rendering of a calendar record as 16-bit text by a format pattern.
//
// A pattern is a run-length language: a maximal run of one repeated
// character is a token, and its length is the token's count. Runs of the
// fourteen letters "tGyuMdDeahHmsS" stand for fields; every other character
// is literal. Apostrophes quote: an odd run opens or closes a quoted section
// (a section left open runs to the end), an even run does not, and every
// apostrophe run renders as half its length in apostrophes, so "''" is one
// literal apostrophe. Inside quotes letters are literal; outside, an ASCII
// letter that is not a pattern letter is an error.
//
//   Renderings of 2024-03-05 07:08:09.25 (a Tuesday) by count:
//   letter  field                      1      2      3      4       5     6+
//   y       year of era (1 - y if <1)  2024   24     2024   2024    02024 pad
//   u       signed year                2024   2024   2024   2024    02024 pad
//   M       month                      3      03     Mar    March   M     pad
//   d       day of month               5      05     005    0005    00005 pad
//   D       day of year                65     65     065    0065    00065 pad
//   e       day of week, 1 = Sunday    3      03     Tue    Tuesday T     T
//   H h     hour 0-23 / 1-12           7      07     007    0007    00007 pad
//   m s     minute / whole second      8      08     008    0008    00008 pad
//   S       fraction digits, cut       2      25     250    2500    ... at most
//   9 G a t   "CE"/"BCE", "AM"/"PM", the time standard's name (any count)
//
// "pad" is zero padding to min(count, 10); a longer number is never cut.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "date_time/DateTimeStruct.hpp"
#include "date_time/Export.hpp"
#include "host/diag/Diagnostic.hpp"
#include "host/typesys/DateTimeEnums.hpp"

namespace KvDateTime {

// A value: the record and its time standard, both public, filled by the
// caller. Formatting never changes it, so one formatter may be shared
// between threads.
//
// Numeric fields are truncated toward zero, never rounded. Month, day, hour,
// minute and second go through a 32-bit integer and keep only its low 8 bits
// (month 259 reads as 3), the year goes through a 64-bit integer; NaN and
// values beyond those integers read as the integer's minimum. Valid records
// never meet these reductions; they keep hand-filled garbage well defined.
class KVDT_EXPORT DateTimeStructFormatter {
 public:
  DateTimeStruct dateTimeStruct{};
  TimeStandard timeStandard{};  // read only by the `t` token

  DateTimeStructFormatter() = default;
  DateTimeStructFormatter(const DateTimeStruct& value,
                          TimeStandard standard) noexcept
      : dateTimeStruct(value), timeStandard(standard) {}

  // The first problem of `pattern` in reading order, or null when it is
  // valid. Never throws for a bad pattern. Identifiers and arguments (all
  // 16-bit strings):
  //   "Korvane:DateTime:InvalidFormatChar"  (pattern, the letter): an
  //     unquoted ASCII letter outside "tGyuMdDeahHmsS";
  //   "Korvane:DateTime:InvalidDayOfWeekToken"  (pattern): a run of six or
  //     more 'e', even inside quotes;
  //   "Korvane:DateTime:MultipleFractionalSecondTokens"  (pattern): two or
  //     more unquoted runs of 'S'; reported only once the whole pattern has
  //     passed the other two checks.
  static kvsvDiagnostic validateFormat(std::u16string pattern);

  // True when rendering `pattern` reads `timeStandard` (an unquoted 't').
  static bool needsTimeStandard(std::u16string pattern);

  // Validates `pattern` and throws the diagnostic of validateFormat as an
  // IException before rendering anything; then renders it. `M` tokens throw
  // std::out_of_range for a month outside 1..12 (after the 8-bit reduction);
  // `D` and `e` tokens throw the date diagnostic of the day-of-year and
  // day-of-week functions for an invalid date. Allocates only the result.
  // A negative fraction keeps format_S's reading, so a second of -0.0 renders
  // "ss.SSS" as "00..00", deliberately.
  std::u16string getFormattedStr(std::u16string pattern) const;

  // One token: `count` characters `c`. Apostrophes give count / 2
  // apostrophes; quoted text and non-letters are copied; a pattern letter
  // renders its field. Unlike getFormattedStr it validates nothing: an
  // unknown letter is copied like any literal.
  std::u16string formatToken(char16_t c, std::int32_t count,
                             bool& fractionPrinted, bool quoted) const;

  // The field formatters, one per letter. Counts below 1 (possible only in a
  // direct call) write numbers unpadded and fraction digits not at all.
  std::u16string format_t() const;
  std::u16string format_G() const;
  std::u16string format_a() const;
  // Sets `fractionPrinted`. The digits are those of printf's "%.15f" of the
  // fraction, cut to min(count, 9) without rounding at the cut; a fraction
  // that "%.15f" rounds up to 1 gives zeros. The digits start at the third
  // character of that text, so a negative fraction, -0.0 included, prints
  // "-0.000..." and keeps ".000...": count 3 gives ".00", and "ss.SSS" of a
  // second of -0.0 is "00..00". Kept as it is for existing output.
  std::u16string format_S(std::int32_t count, bool& fractionPrinted) const;
  std::u16string format_y(std::int32_t count) const;
  std::u16string format_u(std::int32_t count) const;
  std::u16string format_M(std::int32_t count) const;
  std::u16string format_d(std::int32_t count) const;
  std::u16string format_D(std::int32_t count) const;
  std::u16string format_e(std::int32_t count) const;
  std::u16string format_h(std::int32_t count) const;
  std::u16string format_H(std::int32_t count) const;
  std::u16string format_m(std::int32_t count) const;
  std::u16string format_s(std::int32_t count) const;
};

// A pattern validated and split into its runs once, for rendering many
// values: what getFormattedStr does per call minus the pattern's walk, and
// into the caller's buffer, so that a loop over values allocates nothing.
// Immutable once built; one may be shared between threads.
class KVDT_EXPORT PreparedFormat {
 public:
  // Throws the diagnostic of validateFormat for a bad pattern, as
  // getFormattedStr would for it.
  explicit PreparedFormat(std::u16string_view pattern);

  // The most units one rendering in `standard` writes.
  std::size_t maxUnits(TimeStandard standard) const noexcept;

  // Renders `value` at `out` and returns the units written: the text of
  // DateTimeStructFormatter(value, standard).getFormattedStr(pattern), and
  // its field failures (out_of_range for 'M', a date diagnostic for 'D' or
  // 'e'). Throws std::length_error, writing nothing, when `capacity` is
  // below maxUnits(standard); a failing field may leave earlier units
  // written. Allocates nothing.
  std::size_t formatTo(const DateTimeStruct& value, TimeStandard standard,
                       char16_t* out, std::size_t capacity) const;

  // formatTo into a string of its own.
  std::u16string format(const DateTimeStruct& value,
                        TimeStandard standard) const;

 private:
  struct Run {
    char16_t c;
    bool field;
    std::size_t count;
  };
  std::vector<Run> runs_;
  std::size_t literalUnits_ = 0;
  std::size_t fieldRuns_ = 0;  // `t` aside
  std::size_t nameRuns_ = 0;
};

}  // namespace KvDateTime
