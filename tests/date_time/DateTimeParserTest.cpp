// DateTimeParser: readings by pattern and as ISO 8601, checked against the
// formatter (round trips), libc's strptime + timegm and Hinnant's
// date::parse, and a table of bad inputs with their Ids and positions.
// date's stream parser trips GCC's maybe-uninitialized analysis once inlined.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include <date/date.h>
#pragma GCC diagnostic pop
#include <gtest/gtest.h>

#include <array>
#include <cfenv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "date_time/DateTimeParser.hpp"
#include "date_time/DateTimeStructFormatter.hpp"
#include "tests/CountingAllocator.hpp"
#include "tests/date_time/TestHelpers.hpp"

namespace {

using KvDateTime::DateTimeParser;
using KvDateTime::DateTimeStruct;
using KvDateTime::DateTimeStructFormatter;
using KvDateTime::TimeStandard;
using kvtest::idOf;

std::u16string widen(std::string_view s) { return {s.begin(), s.end()}; }

std::string narrow(const std::u16string& s) { return resource_core::toUtf8(s); }

// The Id of a failed parse followed by its position argument, "" on success.
std::string failureOf(const kvsvDiagnostic& d) {
  if (!d) return "";
  std::string s = idOf(d);
  if (d->arguments().size() >= 3) {
    if (const auto* p = std::get_if<std::int64_t>(&d->arguments()[2]))
      s += " @" + std::to_string(*p);
  }
  return s;
}

std::string tryPattern(std::string_view text, std::string_view pattern,
                       TimeStandard ts = TimeStandard::UTC) {
  DateTimeStruct r;
  return failureOf(DateTimeParser::tryParse(text, pattern, ts, r));
}

// The least double not below the decimal `text`, by the C library's own
// conversion under upward rounding: an oracle apart from the parser's
// division and residual test.
double decimalRoundedUp(const std::string& text) {
  const int saved = std::fegetround();
  std::fesetround(FE_UPWARD);
  volatile double v = std::strtod(text.c_str(), nullptr);
  std::fesetround(saved);
  return v;
}

// --------------------------------------------------------------- readings

struct Reading {
  const char* pattern;
  const char* text;
  TimeStandard ts;
  double y, mo, d, h, mi, s;
};

constexpr TimeStandard UTC = TimeStandard::UTC;
constexpr TimeStandard TAI = TimeStandard::TAI;

const Reading kReadings[] = {
    {"yyyy-MM-dd HH:mm:ss.SSS", "2024-03-05 07:08:09.250", UTC, 2024, 3, 5, 7,
     8, 9.25},
    {"yyyy-MM-dd", "2016-12-31", TAI, 2016, 12, 31, 0, 0, 0},
    {"d.M.yyyy H:m:s", "5.3.2024 7:8:9", UTC, 2024, 3, 5, 7, 8, 9},
    {"d.M.yyyy H:m", "05.03.2024 07:08", UTC, 2024, 3, 5, 7, 8, 0},
    {"yyyyMMddHHmmss", "20240305070809", UTC, 2024, 3, 5, 7, 8, 9},
    {"Hmm yyyyMMdd", "930 20240305", UTC, 2024, 3, 5, 9, 30, 0},
    {"Hmm yyyyMMdd", "1230 20240305", UTC, 2024, 3, 5, 12, 30, 0},
    {"'It''s' h a, d MMMM yyyy", "It's 7 pm, 5 march 2024", UTC, 2024, 3, 5, 19,
     0, 0},
    {"h:mm a dd/MM/yyyy", "12:00 AM 01/01/2000", UTC, 2000, 1, 1, 0, 0, 0},
    {"h:mm a dd/MM/yyyy", "12:00 PM 01/01/2000", UTC, 2000, 1, 1, 12, 0, 0},
    {"eee, d MMM yyyy HH:mm", "TUE, 5 MAR 2024 23:59", UTC, 2024, 3, 5, 23, 59,
     0},
    {"eeee eeeee MMMMM yyyy-MM-dd", "Tuesday T m 2024-03-05", UTC, 2024, 3, 5,
     0, 0, 0},
    {"yyyy-DDD", "2024-366", UTC, 2024, 12, 31, 0, 0, 0},
    {"yyyy-DDD", "2023-060", UTC, 2023, 3, 1, 0, 0, 0},
    {"yyyy-MM-dd DDD", "2024-03-05 065", UTC, 2024, 3, 5, 0, 0, 0},
    {"uuuu-MM-dd yy", "2024-03-05 24", UTC, 2024, 3, 5, 0, 0, 0},
    {"G yyyy-MM-dd", "ce 2024-03-05", UTC, 2024, 3, 5, 0, 0, 0},
    {"yyyy-MM-dd HH:mm:ss.S t", "2016-12-31 23:59:60.5 UTC", UTC, 2016, 12, 31,
     23, 59, 60.5},
    {"yyyy-MM-dd HH:mm:ss t", "2016-12-31 23:59:59 tai", TAI, 2016, 12, 31, 23,
     59, 59},
    {"yyyy-MM-dd''HH", "2016-12-31'23", UTC, 2016, 12, 31, 23, 0, 0},
    {"yyyy-MM-dd'T'HH:mm:ss.SSSSSSSSSSSS", "2016-12-31T23:59:59.123456789", UTC,
     2016, 12, 31, 23, 59, 59.123456789},
    {"yyyy0MMdd", "202400305", UTC, 2024, 3, 5, 0, 0, 0},
    {"yyyyy'0'MMdd", "0202400305", UTC, 2024, 3, 5, 0, 0, 0},
    {"yyyy1MM", "2024103", UTC, 2024, 3, 0, 0, 0, 0},  // no day: refused below
};

TEST(PatternReading, ReadsWhatTheFieldsSay) {
  for (const Reading& c : kReadings) {
    SCOPED_TRACE(testing::Message() << c.pattern << " | " << c.text);
    DateTimeStruct r;
    kvsvDiagnostic d = DateTimeParser::tryParse(c.text, c.pattern, c.ts, r);
    if (c.d == 0) {
      EXPECT_EQ(idOf(d), "ParsePatternIncomplete");
      continue;
    }
    ASSERT_EQ(failureOf(d), "");
    EXPECT_EQ(r,
              DateTimeStruct::unchecked(c.y, c.mo, c.d, c.h, c.mi, r.second));
    EXPECT_NEAR(r.second, c.s, 1e-12);
    // The 16-bit overload reads the same.
    EXPECT_EQ(DateTimeParser::parse(widen(c.text), widen(c.pattern), c.ts), r);
  }
}

// --------------------------------------------------------------- round trips

// Patterns that keep every field they read: a four-digit or longer year
// (y with count 1 or 3+, or u), month as a number or a name of 3 or 4
// letters, day, hour (H, or h with a), minute, second, and as many S as the
// record's fraction has digits. Extra tokens (e, D, yy, G, MMMMM, t) are
// checks and must agree. The fraction read is the least double not below
// the decimal, so that formatting writes the same digits again.
struct RoundTripPattern {
  const char16_t* pattern;
  int fractionDigits;  // 0: records with a whole second
};
const RoundTripPattern kRoundTripPatterns[] = {
    {u"yyyy-MM-dd HH:mm:ss.SSS", 3},
    {u"uuuu-MM-dd'T'HH:mm:ss.SSSSSSSSS t", 9},
    {u"d MMMM yyyy, h:mm:ss a", 0},
    {u"eeee, MMM d, y HH:mm:ss.SS G", 2},
    {u"yyyyMMddHHmmssSSSSSS", 6},
    {u"yyyy-DDD HH:mm:ss eee", 0},
    {u"MMMMM yy yyyyy-MMMMMMM-ddd hhh:mmm:sss.S a", 1},
    {u"'date' yyyy/M/d 'at' H:m:s,SSSS", 4},
    {u"yyyy-MM-dd HH:mm:ss.SSSSS", 5},
    {u"yyyy-MM-dd HH:mm:ss.SSSSSSS", 7},
    {u"yyyy-MM-dd HH:mm:ss.SSSSSSSS", 8},
};

// One in sixteen UTC records is inside the leap second that ends June or
// December; the others are ordinary readings.
DateTimeStruct randomRecord(std::mt19937_64& rng, int fractionDigits,
                            TimeStandard ts) {
  const int year = 1400 + static_cast<int>(rng() % 8600);
  int month = 1 + static_cast<int>(rng() % 12);
  const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  const int lengths[] = {31, leap ? 29 : 28, 31, 30, 31, 30, 31, 31, 30, 31, 30,
                         31};
  int day = 1 + static_cast<int>(rng() % lengths[month - 1]);
  int hour = static_cast<int>(rng() % 24);
  int minute = static_cast<int>(rng() % 60);
  int whole = static_cast<int>(rng() % 60);
  if (ts == UTC && rng() % 16 == 0) {
    month = rng() % 2 ? 6 : 12;
    day = month == 6 ? 30 : 31;
    hour = 23, minute = 59, whole = 60;
  }
  double second = whole;
  if (fractionDigits > 0) {
    std::string digits;
    for (int k = 0; k < fractionDigits; ++k) digits += char('0' + rng() % 10);
    second = decimalRoundedUp(std::to_string(whole) + '.' + digits);
  }
  return DateTimeStruct::unchecked(year, month, day, hour, minute, second);
}

TEST(PatternRoundTrip, ParseOfFormatIsTheRecord) {
  std::mt19937_64 rng(2024);
  for (const RoundTripPattern& p : kRoundTripPatterns) {
    for (int i = 0; i < 3000; ++i) {
      // Every standard, so that `t` reads each name.
      const auto ts = static_cast<TimeStandard>(i % 4);
      const DateTimeStruct r = randomRecord(rng, p.fractionDigits, ts);
      const DateTimeStructFormatter f(r, ts);
      const std::u16string text = f.getFormattedStr(p.pattern);
      SCOPED_TRACE(narrow(p.pattern) + " | " + narrow(text));
      DateTimeStruct back;
      ASSERT_EQ(failureOf(DateTimeParser::tryParse(text, p.pattern, ts, back)),
                "");
      EXPECT_EQ(back, r);
    }
  }
}

// --------------------------------------------------------------- strptime

// Texts written by snprintf from random fields, some of them impossible
// dates: strptime reads the fields, timegm normalises them (so a changed
// date means it did not exist) and supplies the weekday and day of year.
TEST(PatternOracle, AgreesWithStrptimeAndTimegm) {
  static const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                  "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  std::mt19937_64 rng(99);
  int refused = 0;
  for (int i = 0; i < 20000; ++i) {
    const int y = 1400 + static_cast<int>(rng() % 8600);
    const int mo = 1 + static_cast<int>(rng() % 12);
    const int d = 1 + static_cast<int>(rng() % 31);
    const int h = static_cast<int>(rng() % 24);
    const int mi = static_cast<int>(rng() % 60);
    const int s = static_cast<int>(rng() % 60);
    char text[80];
    const bool named = i % 2 == 1;
    if (named) {
      std::snprintf(text, sizeof text, "%02d %s %04d %02d:%02d:%02d", d,
                    kMonths[mo - 1], y, h, mi, s);
    } else {
      std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", y, mo,
                    d, h, mi, s);
    }
    SCOPED_TRACE(text);
    std::tm tm{};
    const char* end =
        strptime(text, named ? "%d %b %Y %H:%M:%S" : "%Y-%m-%d %H:%M:%S", &tm);
    ASSERT_TRUE(end && *end == '\0');
    std::tm normal = tm;
    ASSERT_NE(timegm(&normal), static_cast<std::time_t>(-1));
    const bool exists =
        normal.tm_mday == tm.tm_mday && normal.tm_mon == tm.tm_mon;

    DateTimeStruct r;
    const std::string failure = failureOf(DateTimeParser::tryParse(
        text, named ? "dd MMM yyyy HH:mm:ss" : "yyyy-MM-dd HH:mm:ss", UTC, r));
    if (!exists) {
      EXPECT_EQ(failure, "ParseInvalidDateTime");
      ++refused;
      continue;
    }
    ASSERT_EQ(failure, "");
    EXPECT_EQ(r, DateTimeStruct::unchecked(tm.tm_year + 1900, tm.tm_mon + 1,
                                           tm.tm_mday, tm.tm_hour, tm.tm_min,
                                           tm.tm_sec));
    // The weekday and day-of-year checks accept timegm's and nothing else.
    const std::string dated = std::string(text) + ' ' +
                              std::to_string(normal.tm_wday + 1) + ' ' +
                              std::to_string(normal.tm_yday + 1);
    const std::string checked =
        named ? "dd MMM yyyy HH:mm:ss e D" : "yyyy-MM-dd HH:mm:ss e D";
    EXPECT_EQ(tryPattern(dated, checked), "");
    const std::string wrongDay = std::string(text) + ' ' +
                                 std::to_string((normal.tm_wday + 1) % 7 + 1) +
                                 ' ' + std::to_string(normal.tm_yday + 1);
    EXPECT_EQ(tryPattern(wrongDay, checked).substr(0, 18),
              "ParseFieldConflict");
  }
  EXPECT_GT(refused, 100);  // the impossible dates were really exercised
}

// --------------------------------------------------------------- ISO 8601

TEST(IsoReading, AgreesWithHinnantDateParse) {
  std::mt19937_64 rng(8601);
  for (int i = 0; i < 20000; ++i) {
    // Nanoseconds in 64 bits span 1678 to 2262 around 1970.
    const int y = 1678 + static_cast<int>(rng() % 584);
    const int mo = 1 + static_cast<int>(rng() % 12);
    const int d = 1 + static_cast<int>(rng() % 28);
    const int h = static_cast<int>(rng() % 24);
    const int mi = static_cast<int>(rng() % 60);
    const int s = static_cast<int>(rng() % 60);
    const int digits = static_cast<int>(rng() % 10);
    std::string fraction;
    for (int k = 0; k < digits; ++k) fraction += char('0' + rng() % 10);
    char text[80];
    const char sep = "T "[rng() % 2];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d%c%02d:%02d:%02d%s%s%s", y,
                  mo, d, sep, h, mi, s, digits ? "." : "", fraction.c_str(),
                  rng() % 2 ? "Z" : "");
    SCOPED_TRACE(text);

    std::istringstream in(text);
    date::sys_time<std::chrono::nanoseconds> tp;
    in >>
        date::parse(sep == 'T' ? "%Y-%m-%dT%H:%M:%S" : "%Y-%m-%d %H:%M:%S", tp);
    ASSERT_FALSE(in.fail());
    const auto day = date::floor<date::days>(tp);
    const date::year_month_day ymd(day);
    const date::hh_mm_ss<std::chrono::nanoseconds> clock(tp - day);

    const DateTimeStruct r = DateTimeParser::parseIso8601(text, UTC);
    EXPECT_EQ(
        r, DateTimeStruct::unchecked(int(ymd.year()), unsigned(ymd.month()),
                                     unsigned(ymd.day()), clock.hours().count(),
                                     clock.minutes().count(), r.second));
    EXPECT_EQ(std::floor(r.second),
              static_cast<double>(clock.seconds().count()));
    // Nine fraction digits written by the formatter are date's nanoseconds.
    const std::u16string nanos =
        DateTimeStructFormatter(r, UTC).getFormattedStr(u"SSSSSSSSS");
    EXPECT_EQ(std::stoll(narrow(nanos)), clock.subseconds().count());
  }
}

struct IsoCase {
  const char* text;
  TimeStandard ts;
  const char* failure;  // "" for a reading
  double y = 0, mo = 0, d = 0, h = 0, mi = 0, s = 0;
};
const IsoCase kIsoCases[] = {
    {"2016-12-31", TAI, "", 2016, 12, 31, 0, 0, 0},
    {"2016-12-31T23:59", TAI, "", 2016, 12, 31, 23, 59, 0},
    {"2016-12-31 23:59:60Z", UTC, "", 2016, 12, 31, 23, 59, 60},
    {"2016-12-31t23:59:60,25z", UTC, "", 2016, 12, 31, 23, 59, 60.25},
    {"2016-12-31T23:59:59.12345678901234567890", UTC, "", 2016, 12, 31, 23, 59,
     59.12345678901234},
    {"2016-12-31T23:59:60Z", TAI, "ParseTimeStandardMismatch @19"},
    {"2016-12-31T23:59:60", TAI, "ParseInvalidDateTime"},
    {"2016-12-30T23:59:60", UTC, "ParseInvalidDateTime"},
    {"2016-02-30", UTC, "ParseInvalidDateTime"},
    {"1399-12-31", UTC, "ParseInvalidDateTime"},
    {"2016-12-31T", UTC, "ParseMismatch @11"},
    {"2016-12-31T24:00", UTC, "ParseFieldRange @11"},
    {"2016-12-31T23:59:59.", UTC, "ParseMismatch @20"},
    {"2016-12-31T23:59:59+01:00", UTC, "ParseTrailingText @19"},
    {"2016-12-31Z", UTC, "ParseMismatch @10"},
    {"16-12-31", UTC, "ParseMismatch @2"},
    {"20161231", UTC, "ParseMismatch @4"},
    {"2016-13-01", UTC, "ParseFieldRange @5"},
    {"", UTC, "ParseMismatch @0"},
};

TEST(IsoReading, FormsAndFailures) {
  for (const IsoCase& c : kIsoCases) {
    SCOPED_TRACE(c.text);
    DateTimeStruct r = DateTimeStruct::unchecked(1, 2, 3, 4, 5, 6);
    const DateTimeStruct before = r;
    const std::string failure =
        failureOf(DateTimeParser::tryParseIso8601(c.text, c.ts, r));
    EXPECT_EQ(failure, c.failure);
    if (*c.failure != '\0') {
      EXPECT_EQ(r, before);  // untouched on failure
      continue;
    }
    EXPECT_EQ(r,
              DateTimeStruct::unchecked(c.y, c.mo, c.d, c.h, c.mi, r.second));
    EXPECT_NEAR(r.second, c.s, 1e-13);
    EXPECT_EQ(DateTimeParser::parseIso8601(widen(c.text), c.ts), r);
  }
}

// --------------------------------------------------------------- failures

struct BadInput {
  const char* pattern;
  const char* text;
  TimeStandard ts;
  const char* failure;  // Id and, for text failures, " @position"
};
const BadInput kBadInputs[] = {
    // The pattern's own problems come first, whatever the text.
    {"yyyy-MM-dd Q", "", UTC, "InvalidFormatChar"},
    {"S yyyy-MM-dd S", "x", UTC, "MultipleFractionalSecondTokens"},
    {"eeeeee yyyy-MM-dd", "x", UTC, "InvalidDayOfWeekToken"},
    {"MM-dd HH:mm", "03-05 07:08", UTC, "ParsePatternIncomplete"},
    {"yy-MM-dd", "24-03-05", UTC, "ParsePatternIncomplete"},
    {"yyyy-MMMMM-dd", "2024-M-05", UTC, "ParsePatternIncomplete"},
    {"yyyy-MM", "2024-03", UTC, "ParsePatternIncomplete"},
    {"yyyy-MM-dd h:mm", "2024-03-05 7:08", UTC, "ParsePatternIncomplete"},
    // Text against the pattern.
    {"yyyy-MM-dd", "2024-03-05x", UTC, "ParseTrailingText @10"},
    {"yyyy-MM-dd", "2024-03-5", UTC, "ParseMismatch @9"},
    {"yyyy-MM-dd", "2024/03/05", UTC, "ParseMismatch @4"},
    {"yyyy-MM-dd", "2024-03-", UTC, "ParseMismatch @8"},
    {"yyyy-MM-dd", "-2024-03-05", UTC, "ParseMismatch @0"},
    {"yyyy-MM-dd HH:mm:ss.SS", "2024-03-05 07:08:09.2", UTC,
     "ParseMismatch @21"},
    {"yyyy-MM-dd HH:mm:ss.SS", "2024-03-05 07:08:09.255", UTC,
     "ParseTrailingText @22"},
    {"yyyy-MM-dd HH:mm:ss.SS 'x'", "2024-03-05 07:08:09.255 x", UTC,
     "ParseMismatch @22"},
    {"yyyyMMdd", "2024035", UTC, "ParseMismatch @7"},
    {"d MMM yyyy", "5 Mrz 2024", UTC, "ParseMismatch @2"},
    {"d MMMM yyyy", "5 Mar 2024", UTC, "ParseMismatch @2"},
    {"yyyy-MM-dd h a", "2024-03-05 7 XM", UTC, "ParseMismatch @13"},
    {"G yyyy-MM-dd", "AD 2024-03-05", UTC, "ParseMismatch @0"},
    {"yyyy-MM-dd t", "2024-03-05 UTC", TAI, "ParseTimeStandardMismatch @11"},
    {"yyyy-MM-dd t", "2024-03-05 UT", UTC, "ParseMismatch @11"},
    {"'at' yyyy-MM-dd", "on 2024-03-05", UTC, "ParseMismatch @0"},
    // Numbers outside their fields.
    {"yyyy-MM-dd", "2024-13-05", UTC, "ParseFieldRange @5"},
    {"yyyy-MM-dd", "2024-03-32", UTC, "ParseFieldRange @8"},
    {"yyyy-MM-dd HH", "2024-03-05 24", UTC, "ParseFieldRange @11"},
    {"yyyy-MM-dd h a", "2024-03-05 0 AM", UTC, "ParseFieldRange @11"},
    {"yyyy-MM-dd HH:mm", "2024-03-05 23:60", UTC, "ParseFieldRange @14"},
    {"yyyy-MM-dd HH:mm:ss", "2024-03-05 23:59:61", UTC, "ParseFieldRange @17"},
    {"yyyy-DDD", "2023-366", UTC, "ParseFieldRange @5"},
    {"y-MM-dd", "0-03-05", UTC, "ParseFieldRange @0"},
    {"u-MM-dd", "-0-03-05", UTC, "ParseFieldRange @0"},
    {"y-MM-dd", "1234567890123456789-03-05", UTC, "ParseFieldRange @0"},
    // Fields that disagree.
    {"yyyy-MM-dd eee", "2024-03-05 Wed", UTC, "ParseFieldConflict @11"},
    {"yyyy-MM-dd eeeee", "2024-03-05 W", UTC, "ParseFieldConflict @11"},
    {"yyyy-MM-dd D", "2024-03-05 66", UTC, "ParseFieldConflict @11"},
    {"yyyy-MM-dd yy", "2024-03-05 23", UTC, "ParseFieldConflict @11"},
    {"yyyy-MM-dd u", "2024-03-05 2023", UTC, "ParseFieldConflict @11"},
    {"yyyy-MM-dd MMMMM", "2024-03-05 J", UTC, "ParseFieldConflict @11"},
    {"yyyy-MM-dd MM", "2024-03-05 04", UTC, "ParseFieldConflict @11"},
    {"yyyy-MM-dd HH h a", "2024-03-05 13 2 PM", UTC, "ParseFieldConflict @14"},
    {"yyyy-MM-dd HH a", "2024-03-05 13 AM", UTC, "ParseFieldConflict @14"},
    {"G uuuu-MM-dd", "BCE 2024-03-05", UTC, "ParseFieldConflict @0"},
    // Readings the validators refuse.
    {"yyyy-MM-dd", "2023-02-29", UTC, "ParseInvalidDateTime"},
    {"yyyy-MM-dd", "10000-01-01", UTC, "ParseInvalidDateTime"},
    {"G yyyy-MM-dd", "BCE 2024-03-05", UTC, "ParseInvalidDateTime"},
    {"yyyy-MM-dd HH:mm:ss", "2016-12-31 23:59:60", TAI, "ParseInvalidDateTime"},
    {"yyyy-MM-dd HH:mm:ss", "2016-12-30 23:59:60", UTC, "ParseInvalidDateTime"},
};

TEST(PatternFailure, NamesTheIdAndPosition) {
  for (const BadInput& c : kBadInputs) {
    SCOPED_TRACE(testing::Message() << c.pattern << " | " << c.text);
    DateTimeStruct r = DateTimeStruct::unchecked(1, 2, 3, 4, 5, 6);
    const DateTimeStruct before = r;
    kvsvDiagnostic d = DateTimeParser::tryParse(c.text, c.pattern, c.ts, r);
    EXPECT_EQ(failureOf(d), c.failure);
    EXPECT_EQ(r, before);
    ASSERT_TRUE(d);
    const auto& args = d->arguments();
    ASSERT_FALSE(args.empty());
    EXPECT_EQ(std::get<std::string>(args[0]), c.pattern);
    if (idOf(d).rfind("Parse", 0) == 0 && idOf(d) != "ParsePatternIncomplete") {
      EXPECT_EQ(std::get<std::string>(args[1]), c.text);
    }
    if (idOf(d) == "ParseInvalidDateTime") {
      EXPECT_EQ(std::get<std::string>(args[2]).rfind("Korvane:DateTime:Bad", 0),
                0u);
    }
    // The 16-bit overload throws the same, with 16-bit arguments.
    const std::string thrown = kvtest::thrownId(
        [&] { DateTimeParser::parse(widen(c.text), widen(c.pattern), c.ts); });
    EXPECT_EQ(thrown, idOf(d));
  }
}

// --------------------------------------------------------------- encodings

TEST(PatternReading, NonAsciiLiteralsInBothEncodings) {
  const DateTimeStruct expected =
      DateTimeStruct::unchecked(2024, 3, 5, 0, 0, 0);
  EXPECT_EQ(DateTimeParser::parse("2024年3月5日", "yyyy年M月d日", UTC),
            expected);
  EXPECT_EQ(DateTimeParser::parse(u"2024年3月5日", u"yyyy年M月d日", UTC),
            expected);
  EXPECT_EQ(tryPattern("2024年3月5月", "yyyy年M月d日"), "ParseMismatch @13");
  // A 16-bit position counts units: the year's 年 is one unit there.
  DateTimeStruct r;
  EXPECT_EQ(failureOf(DateTimeParser::tryParse(u"2024年3月5月", u"yyyy年M月d日",
                                               UTC, r)),
            "ParseMismatch @8");
}

// --------------------------------------------------------------- allocation

TEST(PatternReading, SuccessAllocatesNothing) {
  const std::u16string pattern = u"eeee, d MMMM yyyy 'at' h:mm:ss.SSS a t";
  const std::u16string text = u"Tuesday, 5 March 2024 at 7:08:09.250 PM UTC";
  DateTimeStruct r;
  const long before = kvtest::allocations.load();
  for (int i = 0; i < 100; ++i) {
    r = DateTimeParser::parse(text, pattern, UTC);
    r = DateTimeParser::parseIso8601("2016-12-31T23:59:60.5Z", UTC);
    r = DateTimeParser::parse("20240305", "yyyyMMdd", UTC);
    EXPECT_FALSE(
        DateTimeParser::tryParseIso8601Fast(U"2016-12-31T23:59:59.5Z", UTC, r));
    EXPECT_FALSE(DateTimeParser::tryParseIso8601Fast("2024-03-05", UTC, r));
  }
  EXPECT_EQ(kvtest::allocations.load() - before, 0);
  EXPECT_EQ(r, DateTimeStruct::unchecked(2024, 3, 5, 0, 0, 0));
  const long failing = kvtest::allocations.load();
  EXPECT_FALSE(kvtest::thrownId([&] {
                 DateTimeParser::parse(u"x", pattern, UTC);
               }).empty());
  EXPECT_GT(kvtest::allocations.load() - failing, 0);  // the diagnostic
}

// --------------------------------------------------------------- fast reader

// The fast entry point against the reader it stands in for, on usual ISO
// texts with a random fraction length, leap seconds and month ends, most of
// them then damaged: the same record bits, and the same diagnostic (the
// code-point overload's text argument as UTF-8, its position in code
// points, so compared where the 16-bit units are the code points).
TEST(IsoReading, FastEntryPointIsTheReader) {
  std::mt19937 rng(8601);
  const auto pick = [&](int lo, int hi) {
    return std::uniform_int_distribution<int>(lo, hi)(rng);
  };
  // U+0130 and U+FF1A end in the bytes of '0' and ':'.
  const std::u32string edits =
      U"0795-:Tt .,Zz\u00e9\u0130\uff1a\u4e00\U0001F600";
  // Per standard, the texts read NUL-padded to 48 units, as a NumPy array
  // holds them, then one refused: the row reader's input, and its rows.
  constexpr std::size_t kStride = 48;
  std::u32string padded[4];
  std::vector<double> rows[4];
  std::optional<std::u32string> refused[4];
  for (int i = 0; i < 20000; ++i) {
    char base[64];
    std::snprintf(base, sizeof base, "%04d-%02d-%02d%c%02d:%02d:%02d",
                  pick(1399, 10000), pick(0, 13), pick(27, 32),
                  "Tt "[pick(0, 2)], pick(0, 24), pick(0, 60),
                  pick(0, 9) == 0 ? 60 : pick(0, 61));
    std::u32string text(base, base + std::strlen(base));
    if (pick(0, 3) == 0) text.resize(pick(0, 1) ? 10 : 16);
    if (text.size() == 19 && pick(0, 1)) {
      text += U".,"[pick(0, 1)];
      for (int k = pick(0, 20); k > 0; --k) text += U'0' + pick(0, 9);
    }
    if (text.size() > 10 && pick(0, 2) == 0) text += U"Zz"[pick(0, 1)];
    for (int k = pick(0, 2); k > 0 && !text.empty(); --k) {
      const auto at = static_cast<std::size_t>(pick(0, int(text.size()) - 1));
      const char32_t c = edits[static_cast<std::size_t>(pick(0, 17))];
      if (pick(0, 1))
        text[at] = c;
      else
        text.erase(at, 1);
    }
    const TimeStandard ts = static_cast<TimeStandard>(pick(0, 3));
    std::u16string units;
    bool bmp = true, asciiOnly = true;
    for (const char32_t c : text) {
      bmp &= c < 0x10000;
      asciiOnly &= c < 0x80;
      if (c < 0x10000) {
        units += static_cast<char16_t>(c);
      } else {
        units += static_cast<char16_t>(0xD7C0 + (c >> 10));
        units += static_cast<char16_t>(0xDC00 | (c & 0x3FF));
      }
    }
    const std::string utf8 = narrow(units);
    SCOPED_TRACE(utf8 + " " + std::to_string(static_cast<int>(ts)));
    DateTimeStruct expected, fast, wide;
    const kvsvDiagnostic d =
        DateTimeParser::tryParseIso8601(utf8, ts, expected);
    const kvsvDiagnostic f =
        DateTimeParser::tryParseIso8601Fast(utf8, ts, fast);
    const kvsvDiagnostic w =
        DateTimeParser::tryParseIso8601Fast(text, ts, wide);
    ASSERT_EQ(idOf(f), idOf(d));
    ASSERT_EQ(idOf(w), idOf(d));
    const auto s = static_cast<std::size_t>(ts);
    if (d && !refused[s]) refused[s] = text;
    if (!d && text.size() <= kStride) {
      padded[s] += text + std::u32string(kStride - text.size(), U'\0');
      const std::array<double, 6> row = expected.toArray();
      rows[s].insert(rows[s].end(), row.begin(), row.end());
    }
    if (!d) {
      EXPECT_EQ(std::memcmp(&fast, &expected, sizeof fast), 0);
      EXPECT_EQ(std::memcmp(&wide, &expected, sizeof wide), 0);
      continue;
    }
    EXPECT_EQ(f->arguments(), d->arguments());
    if (!bmp) continue;
    DateTimeStruct ignored;
    const kvsvDiagnostic u =
        DateTimeParser::tryParseIso8601(units, ts, ignored);
    ASSERT_EQ(w->arguments().size(), u->arguments().size());
    for (std::size_t a = 0; a < u->arguments().size(); ++a) {
      const auto* text16 = std::get_if<std::u16string>(&u->arguments()[a]);
      EXPECT_EQ(w->arguments()[a],
                text16 ? resource_core::MsgArgument(narrow(*text16))
                       : u->arguments()[a]);
    }
    if (asciiOnly) {
      EXPECT_EQ(w->arguments(), d->arguments());
    }
  }
  for (std::size_t s = 0; s < 4; ++s) {
    ASSERT_TRUE(refused[s] && refused[s]->size() <= kStride);
    padded[s] += *refused[s] + std::u32string(kStride - refused[s]->size(), 0);
    const std::size_t count = padded[s].size() / kStride;
    std::vector<double> got(6 * count, -1.0);
    EXPECT_EQ(DateTimeParser::readIso8601Rows(padded[s].data(), kStride, count,
                                              static_cast<TimeStandard>(s),
                                              got.data()),
              rows[s].size() / 6);
    got.resize(rows[s].size());
    EXPECT_EQ(got, rows[s]);
  }
}

}  // namespace
