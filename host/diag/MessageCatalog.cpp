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
    CatalogEntry{"Korvane:DateTime:BadLeapSecondListDate",
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
    CatalogEntry{"Korvane:DateTime:InvalidDayOfWeekToken",
                 "The format \"{0}\" has a run of six or more 'e' letters; the "
                 "day of the week takes 1 to 5."},
    CatalogEntry{"Korvane:DateTime:InvalidFormatChar",
                 "The format \"{0}\" contains the letter '{1}', which is not a "
                 "pattern letter. Use one of tGyuMdDeahHmsS, or quote literal "
                 "text in apostrophes."},
    CatalogEntry{"Korvane:DateTime:MultipleFractionalSecondTokens",
                 "The format \"{0}\" has more than one fractional-second field "
                 "(runs of 'S'); use at most one."},
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
