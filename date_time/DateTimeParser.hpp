// Reading a calendar record from text by a format pattern: the inverse of
// DateTimeStructFormatter, over the same pattern language (see
// DateTimeStructFormatter.hpp for the letters and their renderings).
//
// What each token reads:
//   literals       exactly the characters the formatter writes: quoted text,
//                  non-letters, one apostrophe per "''".
//   y u M d D e    numbers in decimal. A count of 1 reads one digit or more
//   H h m s        (leading zeros allowed); a count n of 2 or more needs at
//                  least min(n, 10) digits, as the formatter pads. Where
//                  numeric tokens (and literal digits) stand side by side
//                  ("yyyyMMdd", "HHmm"), each reads exactly its least width
//                  except the first that may grow, which takes the digits
//                  left over, so a five-digit year or "930" for "Hmm" still
//                  splits the way it was written.
//   yy             two digits checked against the year read elsewhere; alone
//                  it cannot name a century.
//   u              an optional '-' before the digits.
//   MMM MMMM       the month's name as the formatter writes it (three
//   eee eeee       letters, or whole), ASCII case ignored; likewise weekdays.
//   MMMMM eeeee    one letter, checked against the month or weekday read.
//   G a            "CE"/"BCE", "AM"/"PM", ASCII case ignored.
//   S              exactly min(count, 9) digits, the number the formatter
//                  writes: a shorter run fails where a digit is missing, a
//                  longer one where the next token finds a digit.
//   t              the host's name of the `ts` given, ASCII case ignored;
//                  another standard's name fails with
//                  "Korvane:DateTime:ParseTimeStandardMismatch": the text is
//                  checked against the standard, never chooses it.
//
// The year comes from `u`, or from `y` (with `G`: BCE means 1 - y); month and
// day from `M` and `d`, or from `D` with the year; the hour from `H`, or from
// `h` with `a`. Minute, second and fraction default to 0. A field given twice
// (by two tokens, or `y` and `u`, `H` and `h`+`a`) must agree, and `e`, `D`,
// `yy`, `MMMMM`, `G` and `a` must agree with the reading: all else fails with
// "Korvane:DateTime:ParseFieldConflict".
//
// The second with its fraction is the least double not below the decimal
// written: the formatter cuts fraction digits instead of rounding, so the
// nearest double (which may lie below) could come back one digit lower.
// With this choice formatting the result with the same pattern writes the
// same digits again.
//
// Strict: every character must be read, and the record must pass
// DateTimeUtilities::validateDateTime for `ts` (so 23:59:60.x reads only in
// UTC at the end of June or December, and years only from 1400 to 9999).
//
// Failures, in this order: a bad pattern gives the diagnostic of
// DateTimeStructFormatter::validateFormat unchanged; a pattern that cannot
// name a whole date "Korvane:DateTime:ParsePatternIncomplete" (pattern, and
// "year", "month", "day" or "AM/PM marker" for `h` without `a`); then,
// reading the text, with arguments (pattern, text, position) where the
// position is the 0-based offset in code units of the text as given (bytes
// for UTF-8):
//   "Korvane:DateTime:ParseMismatch"      the text differs from the pattern;
//   "Korvane:DateTime:ParseTrailingText"  text left after the pattern ends;
//   "Korvane:DateTime:ParseFieldRange"    a number outside its field (month
//                                         13, hour 24, second 61, ...);
//   "Korvane:DateTime:ParseFieldConflict" two fields disagree (position of
//                                         the one checked last);
//   "Korvane:DateTime:ParseTimeStandardMismatch"  (pattern, text, position,
//                                         the expected name);
//   "Korvane:DateTime:ParseInvalidDateTime"  (pattern, text, the identifier
//                                         of validateDateTime's diagnostic).
// Text and pattern arguments keep the caller's encoding: 16-bit strings for
// the 16-bit overloads, narrow strings for the UTF-8 ones.
//
// A successful parse allocates nothing; only a failure allocates, for its
// diagnostic.
#pragma once

#include <cstddef>
#include <string_view>

#include "date_time/DateTimeStruct.hpp"
#include "date_time/Export.hpp"
#include "host/diag/Diagnostic.hpp"
#include "host/typesys/DateTimeEnums.hpp"

namespace KvDateTime {

class KVDT_EXPORT DateTimeParser {
 public:
  // Reads `text` by `pattern`; throws the failure's diagnostic as an
  // IException.
  static DateTimeStruct parse(std::u16string_view text,
                              std::u16string_view pattern, TimeStandard ts);
  // UTF-8 text and pattern. Names and markers are ASCII; any other byte is
  // matched as it stands, so non-ASCII literals work when both sides are
  // UTF-8.
  static DateTimeStruct parse(std::string_view text, std::string_view pattern,
                              TimeStandard ts);

  // As parse, but returns the diagnostic (null on success) and never throws
  // for bad input; `result` is written only on success.
  static kvsvDiagnostic tryParse(std::u16string_view text,
                                 std::u16string_view pattern, TimeStandard ts,
                                 DateTimeStruct& result);
  static kvsvDiagnostic tryParse(std::string_view text,
                                 std::string_view pattern, TimeStandard ts,
                                 DateTimeStruct& result);

  // ISO 8601 extended calendar form: "2016-12-31", or the date, 'T' (or 't'
  // or a space), "hh:mm", optionally ":ss", optionally a fraction after '.'
  // or ',' of any length, optionally 'Z' (or 'z'). Four-digit years only;
  // no offsets other than Z, no week or ordinal dates, no basic form.
  // 'Z' states that the reading is UTC, so with any other `ts` it fails with
  // "Korvane:DateTime:ParseTimeStandardMismatch" at the 'Z': a TAI reading
  // labelled UTC would be off by tens of seconds. Fraction digits past the
  // 14th are read and ignored (a double resolves about 1e-14 s near 60);
  // the rest follows parse, with "ISO 8601" as the pattern argument.
  static DateTimeStruct parseIso8601(std::u16string_view text, TimeStandard ts);
  static DateTimeStruct parseIso8601(std::string_view text, TimeStandard ts);
  static kvsvDiagnostic tryParseIso8601(std::u16string_view text,
                                        TimeStandard ts,
                                        DateTimeStruct& result);
  static kvsvDiagnostic tryParseIso8601(std::string_view text, TimeStandard ts,
                                        DateTimeStruct& result);

  // tryParseIso8601 for texts read in bulk: the usual layout
  // ("yyyy-MM-ddTHH:mm:ss.fff...Z" and its shorter forms) is read in one
  // pass with no bookkeeping per field, and anything else, or a reading
  // that needs validateDateTime (a leap second, a day past the month's end),
  // goes to tryParseIso8601's reader. Results and diagnostics are those of
  // tryParseIso8601 for the same code units. Code points (UTF-32, as a
  // NumPy str array holds them) count positions in code points; their text
  // argument is UTF-8, a surrogate or a value past U+10FFFF as U+FFFD.
  static kvsvDiagnostic tryParseIso8601Fast(std::string_view text,
                                            TimeStandard ts,
                                            DateTimeStruct& result);
  static kvsvDiagnostic tryParseIso8601Fast(std::u32string_view text,
                                            TimeStandard ts,
                                            DateTimeStruct& result);

  // tryParseIso8601Fast over `count` texts laid `stride` code units apart,
  // each `stride` units less its trailing NULs (as a NumPy str or bytes
  // array holds them: a NUL inside a text is part of it, and refused), into six doubles a text (year, month, day,
  // hour, minute, second). Returns how many texts were read before the
  // first it refuses (`count` when none); ask tryParseIso8601Fast for that
  // one's diagnostic. Allocates nothing but for a text off the usual layout
  // that fails.
  static std::size_t readIso8601Rows(const char* texts, std::size_t stride,
                                     std::size_t count, TimeStandard ts,
                                     double* rows);
  static std::size_t readIso8601Rows(const char32_t* texts, std::size_t stride,
                                     std::size_t count, TimeStandard ts,
                                     double* rows);
};

}  // namespace KvDateTime
