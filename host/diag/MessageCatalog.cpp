#include "host/diag/MessageCatalog.hpp"

#include <algorithm>
#include <array>
#include <utility>

namespace resource_core {
namespace {

struct CatalogEntry {
  std::string_view identifier;
  std::string_view text;
};

// Sorted by identifier for the binary search below.
constexpr std::array kCatalog = {
    CatalogEntry{"Korvane:DateTime:BadClockStep",
                 "A clock step must be a finite number of seconds; the step "
                 "was {0}."},
    CatalogEntry{"Korvane:DateTime:BadDayOfMonth",
                 "The day of the month must be a whole number from 1 to the "
                 "length of the month (28, 29, 30 or 31)."},
    CatalogEntry{"Korvane:DateTime:BadHour",
                 "The hour must be a whole number from 0 to 23."},
    CatalogEntry{"Korvane:DateTime:BadLeapSecond",
                 "A second of 60 or more (a leap second) is allowed only at "
                 "23:59 UTC on 30 June or 31 December."},
    CatalogEntry{"Korvane:DateTime:BadLeapSecondBoolTimeStandard",
                 "The value is marked as a leap second, but only UTC time "
                 "points can be inside a leap second."},
    CatalogEntry{"Korvane:DateTime:BadLeapSecondBoolTimestamp",
                 "The value is marked as a leap second, but it is not the last "
                 "second of 30 June or 31 December."},
    CatalogEntry{
        "Korvane:DateTime:BadLeapSecondListDate",
        "Line {0} of the leap-second list is not at 00:00 on 1 January "
        "or 1 July, later than the line before it."},
    CatalogEntry{"Korvane:DateTime:BadLeapSecondListEmpty",
                 "The leap-second list has no data lines (line {0} is past its "
                 "end)."},
    CatalogEntry{"Korvane:DateTime:BadLeapSecondListHash",
                 "The hash on line {0} of the leap-second list does not match "
                 "its data: the list is damaged or was edited."},
    CatalogEntry{"Korvane:DateTime:BadLeapSecondListLine",
                 "Line {0} of the leap-second list is malformed: expected "
                 "\"NTP-seconds TAI-UTC\" as two whole numbers, a comment, or "
                 "one \"#$\", \"#@\" (a number) or \"#h\" (five hex words) "
                 "line."},
    CatalogEntry{"Korvane:DateTime:BadLeapSecondListStart",
                 "Line {0} of the leap-second list must be the start of UTC "
                 "with leap seconds: \"2272060800 10\" (1972-01-01, TAI-UTC "
                 "10 s)."},
    CatalogEntry{"Korvane:DateTime:BadLeapSecondListStep",
                 "Line {0} of the leap-second list changes TAI-UTC by other "
                 "than one second."},
    CatalogEntry{"Korvane:DateTime:BadMinute",
                 "The minute must be a whole number from 0 to 59."},
    CatalogEntry{"Korvane:DateTime:BadMonth",
                 "The month must be a whole number from 1 to 12."},
    CatalogEntry{"Korvane:DateTime:BadSecond",
                 "The second must be at least 0 and less than 60."},
    CatalogEntry{"Korvane:DateTime:BadSecondUTC",
                 "In UTC the second must be at least 0 and less than 61 (60.x "
                 "only inside a leap second)."},
    CatalogEntry{"Korvane:DateTime:BadTAIModelConfig",
                 "A model time in TAI cannot precede 1972-01-01 00:00:10 TAI, "
                 "the start of UTC with leap seconds."},
    CatalogEntry{"Korvane:DateTime:BadYear",
                 "The year must be a whole number from 1400 to 9999."},
    CatalogEntry{"Korvane:DateTime:BadYearModelConfig",
                 "A model time must be in the year 1972 or later."},
    CatalogEntry{"Korvane:DateTime:BatchElementFailed",
                 "Element {0} of the array failed: {1}"},
    CatalogEntry{"Korvane:DateTime:ClockReadingOutOfRange",
                 "The clock's time in {0} does not fit its storage type {1}."},
    CatalogEntry{
        "Korvane:DateTime:ClockStartInTDB",
        "A clock cannot start from a TDB reading: the library converts "
        "only toward TDB. Give the start in UTC, TAI or TT."},
    CatalogEntry{"Korvane:DateTime:ClockStepOverflow",
                 "Stepping the clock by {0} s would leave the range of its "
                 "storage type {1}; the clock is unchanged."},
    CatalogEntry{"Korvane:DateTime:InvalidDayOfWeekToken",
                 "The format \"{0}\" has a run of six or more 'e' letters; the "
                 "day of the week takes 1 to 5."},
    CatalogEntry{"Korvane:DateTime:InvalidFormatChar",
                 "The format \"{0}\" contains the letter '{1}', which is not a "
                 "pattern letter. Use one of tGyuMdDeahHmsS, or quote literal "
                 "text in apostrophes."},
    CatalogEntry{"Korvane:DateTime:LeapSecondLostInStorage",
                 "The reading lies inside a leap second, but stored as {0} it "
                 "rounds out of that second. Use a storage type with fraction "
                 "bits, or a reading further from the end of the second."},
    CatalogEntry{"Korvane:DateTime:MultipleFractionalSecondTokens",
                 "The format \"{0}\" has more than one fractional-second field "
                 "(runs of 'S'); use at most one."},
    CatalogEntry{"Korvane:DateTime:NoLeapSecondInserted",
                 "The reading has a second of 60, but no leap second was "
                 "inserted at the end of that day."},
    CatalogEntry{"Korvane:DateTime:ParseFieldConflict",
                 "The text \"{1}\" read by the format \"{0}\" states a field "
                 "that disagrees with the rest of the reading, at offset {2}."},
    CatalogEntry{"Korvane:DateTime:ParseFieldRange",
                 "The text \"{1}\" read by the format \"{0}\" has a number "
                 "outside its field's range at offset {2}."},
    CatalogEntry{"Korvane:DateTime:ParseInvalidDateTime",
                 "The text \"{1}\" matches the format \"{0}\" but is not a "
                 "valid date and time ({2})."},
    CatalogEntry{"Korvane:DateTime:ParseMismatch",
                 "The text \"{1}\" does not match the format \"{0}\" at "
                 "offset {2}."},
    CatalogEntry{"Korvane:DateTime:ParsePatternIncomplete",
                 "The format \"{0}\" cannot be read back into a date and "
                 "time: it has no {1}."},
    CatalogEntry{"Korvane:DateTime:ParseTimeStandardMismatch",
                 "The text \"{1}\" read by the format \"{0}\" names another "
                 "time standard than {3} at offset {2}."},
    CatalogEntry{"Korvane:DateTime:ParseTrailingText",
                 "The text \"{1}\" has characters left at offset {2} after "
                 "the format \"{0}\" ends."},
    CatalogEntry{
        "Korvane:DateTime:ReadingOutOfStorageRange",
        "The reading, counted from its epoch, does not fit the storage "
        "type {0}."},
    CatalogEntry{"Korvane:DateTime:StoredCountOutOfRange",
                 "The stored count {0} is not a finite number that the storage "
                 "type {1} can hold."},
    CatalogEntry{"Korvane:DateTime:TDBTSOnlySupportDoubleSDT",
                 "TDB conversion needs a time point stored as double; this one "
                 "is stored as {0}."},
    CatalogEntry{"Korvane:DateTime:TDBTSOnlySupportJulianDayTU",
                 "TDB conversion needs a time point counted in days (JD, MJD "
                 "or J2000); this one is counted as {0}."},
    CatalogEntry{"Korvane:DateTime:TimestampIsNegativeLeapSecond",
                 "The time point falls inside a removed (negative) leap second "
                 "and does not exist in UTC."},
};

constexpr bool catalogIsSorted() {
  for (std::size_t i = 1; i < kCatalog.size(); ++i) {
    if (!(kCatalog[i - 1].identifier < kCatalog[i].identifier)) return false;
  }
  return true;
}
static_assert(catalogIsSorted());

void appendUtf8(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

std::string argumentText(const MsgArgument& argument) {
  if (const auto* i = std::get_if<std::int64_t>(&argument)) {
    return std::to_string(*i);
  }
  if (const auto* s = std::get_if<std::string>(&argument)) return *s;
  return toUtf8(std::get<std::u16string>(argument));
}

}  // namespace

std::string toUtf8(std::u16string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char16_t unit = text[i];
    if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < text.size() &&
        text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
      appendUtf8(out, 0x10000 + ((char32_t(unit) - 0xD800) << 10) +
                          (char32_t(text[i + 1]) - 0xDC00));
      ++i;
    } else if (unit >= 0xD800 && unit <= 0xDFFF) {
      appendUtf8(out, 0xFFFD);
    } else {
      appendUtf8(out, unit);
    }
  }
  return out;
}

std::optional<std::u16string> toUtf16(std::string_view utf8,
                                      std::size_t* invalidAt) {
  std::u16string out;
  out.reserve(utf8.size());
  for (std::size_t i = 0; i < utf8.size();) {
    const auto byte = [&](std::size_t k) {
      return static_cast<unsigned char>(utf8[i + k]);
    };
    const unsigned char lead = byte(0);
    // Sequence length, and the first continuation byte's bounds, which rule
    // out overlong forms (E0, F0), surrogates (ED) and values past U+10FFFF
    // (F4) without decoding first.
    int n = 0;
    unsigned char low = 0x80, high = 0xBF;
    if (lead < 0x80) {
      n = 1;
    } else if (lead >= 0xC2 && lead <= 0xDF) {
      n = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      n = 3;
      if (lead == 0xE0) low = 0xA0;
      if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      n = 4;
      if (lead == 0xF0) low = 0x90;
      if (lead == 0xF4) high = 0x8F;
    }
    bool ok = n > 0 && i + n <= utf8.size();
    for (int k = 1; ok && k < n; ++k) {
      ok = k == 1 ? byte(1) >= low && byte(1) <= high
                  : byte(k) >= 0x80 && byte(k) <= 0xBF;
    }
    if (!ok) {
      if (invalidAt) *invalidAt = i;
      return std::nullopt;
    }
    char32_t cp = n == 1 ? lead : lead & (0x7F >> n);
    for (int k = 1; k < n; ++k) cp = (cp << 6) | (byte(k) & 0x3F);
    if (cp >= 0x10000) {
      out += static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10));
      out += static_cast<char16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF));
    } else {
      out += static_cast<char16_t>(cp);
    }
    i += static_cast<std::size_t>(n);
  }
  return out;
}

std::vector<std::string_view> catalogIdentifiers() {
  std::vector<std::string_view> ids;
  ids.reserve(kCatalog.size());
  for (const CatalogEntry& e : kCatalog) ids.push_back(e.identifier);
  return ids;
}

std::string renderMessage(std::string_view identifier,
                          const std::vector<MsgArgument>& arguments) {
  const auto* entry =
      std::lower_bound(kCatalog.begin(), kCatalog.end(), identifier,
                       [](const CatalogEntry& e, std::string_view key) {
                         return e.identifier < key;
                       });
  if (entry == kCatalog.end() || entry->identifier != identifier) {
    std::string text(identifier);
    for (const MsgArgument& a : arguments) text += " [" + argumentText(a) + ']';
    return text;
  }
  std::string text;
  const std::string_view pattern = entry->text;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    // Placeholders are "{N}" with a single digit: no entry has ten arguments.
    if (pattern[i] == '{' && i + 2 < pattern.size() && pattern[i + 2] == '}' &&
        pattern[i + 1] >= '0' && pattern[i + 1] <= '9') {
      const std::size_t n = static_cast<std::size_t>(pattern[i + 1] - '0');
      text += n < arguments.size() ? argumentText(arguments[n]) : "?";
      i += 2;
    } else {
      text += pattern[i];
    }
  }
  return text;
}

}  // namespace resource_core
