#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "date_time/DateTimeStructFormatter.hpp"
#include "host/diag/Diagnostic.hpp"
#include "host/diag/MessageCatalog.hpp"

// Every allocation of the test binary is counted, so that a test can prove
// that rendering allocates nothing beyond the string it returns.
namespace {
std::atomic<long> gAllocations{0};
}  // namespace

void* operator new(std::size_t size) {
  gAllocations.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
  throw std::bad_alloc();
}
// Out of line, so that the compiler does not pair a new expression with
// free() and warn about a mismatch that the replacement makes correct.
__attribute__((noinline)) void operator delete(void* p) noexcept {
  std::free(p);
}
__attribute__((noinline)) void operator delete(void* p, std::size_t) noexcept {
  std::free(p);
}

namespace {

using foundation::core::except::IException;
using KvDateTime::DateTimeStruct;
using KvDateTime::DateTimeStructFormatter;
using KvDateTime::TimeStandard;

// Filled by hand, as a host may do: no validation.
DateTimeStruct reading(double y, double mo, double d, double h, double mi,
                       double s) {
  DateTimeStruct v;
  v.year = y, v.month = mo, v.day = d, v.hour = h, v.minute = mi, v.second = s;
  return v;
}

// A Tuesday, day 65 of a leap year.
const DateTimeStruct kSample = reading(2024, 3, 5, 7, 8, 9.25);

std::u16string render(const DateTimeStruct& v, std::u16string pattern,
                      TimeStandard ts = TimeStandard::UTC) {
  return DateTimeStructFormatter(v, ts).getFormattedStr(std::move(pattern));
}

// ------------------------------------------------------------- validation

struct ValidationCase {
  const char16_t* pattern;
  const char* id;             // "" when valid
  const char16_t* offending;  // InvalidFormatChar only
};
const ValidationCase kValidation[] = {
    {u"", "", nullptr},
    {u"yyyy-MM-dd HH:mm:ss.SSS", "", nullptr},
    {u"yyyy-MM-dd Q", "InvalidFormatChar", u"Q"},
    {u"'Q'", "", nullptr},
    {u"''Q", "InvalidFormatChar", u"Q"},  // even run: Q stays unquoted
    {u"''''Q", "InvalidFormatChar", u"Q"},
    {u"'''Q'", "", nullptr},  // odd run of three opens
    {u"x", "InvalidFormatChar", u"x"},
    {u"T", "InvalidFormatChar", u"T"},  // case matters: t is a letter
    {u"A", "InvalidFormatChar", u"A"},
    {u"1 :/-.,\u00e9\u5e74\u00c9", "", nullptr},  // non-ASCII is literal
    {u"\xd800 \xdfff", "", nullptr},              // lone surrogates too
    {u"eeeee", "", nullptr},
    {u"eeeeee", "InvalidDayOfWeekToken", nullptr},
    {u"'eeeeee'", "InvalidDayOfWeekToken", nullptr},
    {u"'abc eeeeeeeeee", "InvalidDayOfWeekToken", nullptr},
    {u"ss.SS", "", nullptr},
    {u"S S", "MultipleFractionalSecondTokens", nullptr},
    {u"SS'x'SS", "MultipleFractionalSecondTokens", nullptr},
    {u"S 'S'", "", nullptr},
    {u"Qeeeeee", "InvalidFormatChar", u"Q"},  // first in reading order
    {u"eeeeee Q", "InvalidDayOfWeekToken", nullptr},
    {u"SS SS Q", "InvalidFormatChar", u"Q"},  // fraction count comes last
    {u"SS SS eeeeee", "InvalidDayOfWeekToken", nullptr},
    {u"yyyyyyyyyyyy MMMMMMM SSSSSSSSSSSS tttt GGGG aaaa", "", nullptr},
    {u"'abc", "", nullptr},  // never closed: all literal
};

TEST(FormatValidation, ReportsFirstProblemWithItsArguments) {
  for (const ValidationCase& c : kValidation) {
    const std::u16string pattern = c.pattern;
    SCOPED_TRACE(resource_core::toUtf8(pattern));
    const kvsvDiagnostic d = DateTimeStructFormatter::validateFormat(pattern);
    if (*c.id == '\0') {
      EXPECT_EQ(d, nullptr) << d->identifier();
      continue;
    }
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(d->identifier(), std::string("Korvane:DateTime:") + c.id);
    std::vector<resource_core::MsgArgument> expected{pattern};
    if (c.offending != nullptr)
      expected.emplace_back(std::u16string(c.offending));
    EXPECT_EQ(d->arguments(), expected);

    // The renderer refuses the same pattern with the same diagnostic, and
    // renders nothing: the date below would raise BadDayOfMonth for D or e.
    try {
      render(reading(2023, 2, 30, 0, 0, 0), pattern);
      ADD_FAILURE() << "rendered an invalid pattern";
    } catch (const IException& e) {
      EXPECT_EQ(e.identifier(), d->identifier());
      EXPECT_EQ(e.arguments(), expected);
    }
  }
}

TEST(FormatValidation, NeedsTimeStandardOnlyForUnquotedT) {
  const std::pair<const char16_t*, bool> cases[] = {
      {u"", false},     {u"yyyy t", true}, {u"''t", true},
      {u"'t'", false},  {u"'abc", false},  {u"'''t", false},
      {u"'x' t", true}, {u"tttt", true},   {u"yyyy-MM-dd", false}};
  for (const auto& [pattern, needs] : cases) {
    SCOPED_TRACE(resource_core::toUtf8(pattern));
    EXPECT_EQ(DateTimeStructFormatter::needsTimeStandard(pattern), needs);
  }
}

// ------------------------------------------------------------- letters

struct LetterRow {
  char16_t letter;
  std::array<const char16_t*, 12> byCount;  // counts 1 to 12
};
// kSample, time standard UTC.
const LetterRow kLetters[] = {
    {u'y',
     {u"2024", u"24", u"2024", u"2024", u"02024", u"002024", u"0002024",
      u"00002024", u"000002024", u"0000002024", u"0000002024", u"0000002024"}},
    {u'u',
     {u"2024", u"2024", u"2024", u"2024", u"02024", u"002024", u"0002024",
      u"00002024", u"000002024", u"0000002024", u"0000002024", u"0000002024"}},
    {u'M',
     {u"3", u"03", u"Mar", u"March", u"M", u"000003", u"0000003", u"00000003",
      u"000000003", u"0000000003", u"0000000003", u"0000000003"}},
    {u'd',
     {u"5", u"05", u"005", u"0005", u"00005", u"000005", u"0000005",
      u"00000005", u"000000005", u"0000000005", u"0000000005", u"0000000005"}},
    {u'D',
     {u"65", u"65", u"065", u"0065", u"00065", u"000065", u"0000065",
      u"00000065", u"000000065", u"0000000065", u"0000000065", u"0000000065"}},
    // Counts of six or more only through format_e: patterns refuse them.
    {u'e',
     {u"3", u"03", u"Tue", u"Tuesday", u"T", u"T", u"T", u"T", u"T", u"T", u"T",
      u"T"}},
    {u'H',
     {u"7", u"07", u"007", u"0007", u"00007", u"000007", u"0000007",
      u"00000007", u"000000007", u"0000000007", u"0000000007", u"0000000007"}},
    {u'h',
     {u"7", u"07", u"007", u"0007", u"00007", u"000007", u"0000007",
      u"00000007", u"000000007", u"0000000007", u"0000000007", u"0000000007"}},
    {u'm',
     {u"8", u"08", u"008", u"0008", u"00008", u"000008", u"0000008",
      u"00000008", u"000000008", u"0000000008", u"0000000008", u"0000000008"}},
    {u's',
     {u"9", u"09", u"009", u"0009", u"00009", u"000009", u"0000009",
      u"00000009", u"000000009", u"0000000009", u"0000000009", u"0000000009"}},
    {u'S',
     {u"2", u"25", u"250", u"2500", u"25000", u"250000", u"2500000",
      u"25000000", u"250000000", u"250000000", u"250000000", u"250000000"}},
    {u'G',
     {u"CE", u"CE", u"CE", u"CE", u"CE", u"CE", u"CE", u"CE", u"CE", u"CE",
      u"CE", u"CE"}},
    {u'a',
     {u"AM", u"AM", u"AM", u"AM", u"AM", u"AM", u"AM", u"AM", u"AM", u"AM",
      u"AM", u"AM"}},
    {u't',
     {u"UTC", u"UTC", u"UTC", u"UTC", u"UTC", u"UTC", u"UTC", u"UTC", u"UTC",
      u"UTC", u"UTC", u"UTC"}},
};

// The member a letter dispatches to, called directly.
std::u16string callMember(const DateTimeStructFormatter& f, char16_t letter,
                          std::int32_t n, bool& fractionPrinted) {
  switch (letter) {
    case u'y':
      return f.format_y(n);
    case u'u':
      return f.format_u(n);
    case u'M':
      return f.format_M(n);
    case u'd':
      return f.format_d(n);
    case u'D':
      return f.format_D(n);
    case u'e':
      return f.format_e(n);
    case u'H':
      return f.format_H(n);
    case u'h':
      return f.format_h(n);
    case u'm':
      return f.format_m(n);
    case u's':
      return f.format_s(n);
    case u'S':
      return f.format_S(n, fractionPrinted);
    case u'G':
      return f.format_G();
    case u'a':
      return f.format_a();
    case u't':
      return f.format_t();
  }
  return u"?";
}

TEST(LetterRendering, EveryLetterAtCountsOneToTwelve) {
  const DateTimeStructFormatter f(kSample, TimeStandard::UTC);
  for (const LetterRow& row : kLetters) {
    for (std::int32_t n = 1; n <= 12; ++n) {
      SCOPED_TRACE(testing::Message()
                   << static_cast<char>(row.letter) << " x" << n);
      const std::u16string expected = row.byCount[n - 1];
      bool memberFlag = false, tokenFlag = false;
      EXPECT_EQ(callMember(f, row.letter, n, memberFlag), expected);
      EXPECT_EQ(f.formatToken(row.letter, n, tokenFlag, false), expected);
      // Only the fraction reports that it printed.
      EXPECT_EQ(memberFlag, row.letter == u'S');
      EXPECT_EQ(tokenFlag, row.letter == u'S');
      if (row.letter != u'e' || n <= 5) {
        EXPECT_EQ(f.getFormattedStr(std::u16string(n, row.letter)), expected);
      }
    }
  }
}

TEST(LetterRendering, YearsAroundTheEras) {
  const std::pair<double, const char16_t*> cases[] = {
      {-43, u"BCE 44 -43 -043 -0043 44"},
      {-1, u"BCE 2 -1 -001 -0001 02"},
      {0, u"BCE 1 0 000 0000 01"},
      {44, u"CE 44 44 044 0044 44"},
      {100, u"CE 100 100 100 0100 00"},
      {1999, u"CE 1999 1999 1999 1999 99"},
      {2005, u"CE 2005 2005 2005 2005 05"},
      {12345, u"CE 12345 12345 12345 12345 45"}};
  for (const auto& [year, expected] : cases) {
    SCOPED_TRACE(year);
    EXPECT_EQ(render(reading(year, 1, 1, 0, 0, 0), u"G y u uuu uuuu yy"),
              expected);
  }
}

TEST(LetterRendering, TwelveAndTwentyFourHourClocks) {
  const std::pair<double, const char16_t*> cases[] = {
      {0, u"12 12 0 00 AM"},   {1, u"1 01 1 01 AM"},   {11, u"11 11 11 11 AM"},
      {12, u"12 12 12 12 PM"}, {13, u"1 01 13 13 PM"}, {23, u"11 11 23 23 PM"}};
  for (const auto& [hour, expected] : cases) {
    SCOPED_TRACE(hour);
    EXPECT_EQ(render(reading(2024, 3, 5, hour, 0, 0), u"h hh H HH a"),
              expected);
  }
}

TEST(LetterRendering, FractionDigitsAreCutNotRounded) {
  struct Case {
    double second;
    const char16_t* pattern;
    const char16_t* expected;
  };
  const Case cases[] = {
      {59.96, u"S", u"9"},
      {12.3456, u"SSS", u"345"},
      {59.9996, u"ss.SSS", u"59.999"},  // the second is never carried
      {30.0, u"SSS", u"000"},
      {0.1, u"SSSSSSSSS", u"100000000"},
      {60.5, u"ss.S", u"60.5"},  // inside a leap second
      // "%.15f" rounds this fraction up to 1.000000000000000: zeros.
      {0.9999999999999999, u"ss.SSS", u"00.000"},
      // A hand-filled negative second keeps printf's sign: the digits start
      // one place early.
      {-0.25, u"SSS", u".25"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.second);
    EXPECT_EQ(render(reading(2024, 3, 5, 0, 0, c.second), c.pattern),
              c.expected);
  }
}

// The nine digits must be those of the C library's "%.15f", rounding (half
// to even on exact ties) and carries included.
TEST(LetterRendering, FractionDigitsMatchPrintfOnRandomValues) {
  std::mt19937_64 rng(20240305);
  std::vector<double> seconds = {
      0.0, 1.0 / 65536, 0.5, 0.1234567895, 0.9999999999999995, 5e-324, 1e-16};
  for (int i = 0; i < 20000; ++i) {
    // Random bit patterns below 60, and decimals with carries near the cut.
    const double bits = std::bit_cast<double>(
        (rng() >> 2) & 0x3FFFFFFFFFFFFFFFull);  // positive, finite
    if (bits < 60.0) seconds.push_back(bits);
    const double near = static_cast<double>(rng() % 1000000000) / 1e9 +
                        static_cast<double>(rng() % 2000) * 1e-16;
    seconds.push_back(std::fmod(near, 1.0) + static_cast<double>(rng() % 60));
    seconds.push_back(static_cast<double>(rng() % 65536) / 65536.0);
  }
  int mismatches = 0;
  for (const double s : seconds) {
    double whole;
    char text[64];
    std::snprintf(text, sizeof text, "%.15f", std::modf(s, &whole));
    const std::u16string expected(text + 2, text + 11);
    bool printed = false;
    const std::u16string got =
        DateTimeStructFormatter(reading(2024, 3, 5, 0, 0, s), TimeStandard::UTC)
            .format_S(9, printed);
    if (got != expected && ++mismatches <= 5) {
      ADD_FAILURE() << "second " << std::hexfloat << s << ": printf " << text;
    }
  }
  EXPECT_EQ(mismatches, 0) << "of " << seconds.size();
}

// ---------------------------------------------------------- whole patterns

TEST(PatternRendering, QuotingLiteralsAndAdjacentRuns) {
  const std::pair<const char16_t*, const char16_t*> cases[] = {
      {u"", u""},
      {u"yyyy-MM-dd HH:mm:ss.SSS", u"2024-03-05 07:08:09.250"},
      {u"eeee, d MMMM yyyy 'at' h:mm a t",
       u"Tuesday, 5 March 2024 at 7:08 AM UTC"},
      {u"'EEE'", u"EEE"},
      {u"'It''s' h a", u"It's 7 AM"},
      {u"''", u"'"},
      {u"'", u""},
      {u"'''", u"'"},
      {u"''''", u"''"},
      {u"'''yyyy'''", u"'yyyy'"},
      {u"'abc", u"abc"},
      {u"'yyyy' yyyy", u"yyyy 2024"},
      {u"dd/MM", u"05/03"},
      {u"d.M.yy", u"5.3.24"},
      {u"yyyyMMdd", u"20240305"},
      {u"HHmmss", u"070809"},
      {u"\u00e9\u5e74 d \xd83d\xde00", u"\u00e9\u5e74 5 \xd83d\xde00"},
      {u"----------", u"----------"},
  };
  for (const auto& [pattern, expected] : cases) {
    SCOPED_TRACE(resource_core::toUtf8(pattern));
    EXPECT_EQ(render(kSample, pattern), expected);
  }
}

TEST(PatternRendering, LongOutputsRenderWhole) {
  std::u16string pattern, expected;
  for (int i = 0; i < 60; ++i) {
    pattern += u"uuuu-'x' ";
    expected += u"2024-x ";
  }
  EXPECT_EQ(render(kSample, pattern), expected);
}

TEST(PatternRendering, TimeStandardNamesWidened) {
  const std::pair<TimeStandard, const char16_t*> cases[] = {
      {TimeStandard::TAI, u"TAI"},
      {TimeStandard::UTC, u"UTC"},
      {TimeStandard::TT, u"TT"},
      {TimeStandard::TDB, u"TDB"}};
  for (const auto& [ts, name] : cases) {
    EXPECT_EQ(render(kSample, u"t|ttt", ts),
              std::u16string(name) + u"|" + name);
  }
}

TEST(FormatToken, ApostrophesHalveQuotedAndUnknownTextIsCopied) {
  struct Case {
    char16_t c;
    std::int32_t count;
    bool quoted;
    const char16_t* expected;
  };
  const Case cases[] = {{u'\'', 1, false, u""},    {u'\'', 2, false, u"'"},
                        {u'\'', 5, true, u"''"},   {u'y', 4, true, u"yyyy"},
                        {u'y', 4, false, u"2024"}, {u'Q', 3, false, u"QQQ"},
                        {u'S', 2, true, u"SS"},    {u'-', 3, false, u"---"}};
  const DateTimeStructFormatter f(kSample, TimeStandard::UTC);
  for (const Case& c : cases) {
    bool printed = false;
    EXPECT_EQ(f.formatToken(c.c, c.count, printed, c.quoted), c.expected);
    EXPECT_FALSE(printed);
  }
}

// ------------------------------------------------------ hand-filled values

// Fields pass through a 32-bit truncation and keep their low 8 bits; the
// year through a 64-bit one; NaN and overflow read as the integer minimum.
TEST(FieldNarrowing, DeliberateReductionsOfHandFilledFields) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  struct Case {
    DateTimeStruct value;
    const char16_t* pattern;
    const char16_t* expected;
  };
  const Case cases[] = {
      {reading(2024, 259, 261, 268, 264, 265.5), u"MMM d h a m s",
       u"Mar 5 12 PM 8 9"},
      {reading(2024, 3.9, 5.9, 7.9, 8.9, 9.9), u"M d H m s", u"3 5 7 8 9"},
      {reading(2024, 3, 5, nan, nan, 0), u"H h a m", u"0 12 AM 0"},
      {reading(1e300, 3, 5, 0, 0, 0), u"u|y|G",
       u"-9223372036854775808|9223372036854775809|BCE"},
      {reading(nan, 3, 5, 0, 0, 0), u"G uuuuuuuuuuuu",
       u"BCE -9223372036854775808"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(resource_core::toUtf8(c.pattern));
    EXPECT_EQ(render(c.value, c.pattern), c.expected);
  }
}

TEST(FieldNarrowing, MonthWithoutANameThrowsOutOfRange) {
  const double bad[] = {0, 13, -1, 256,
                        std::numeric_limits<double>::quiet_NaN()};
  for (const double month : bad) {
    SCOPED_TRACE(month);
    const DateTimeStructFormatter f(reading(2024, month, 5, 0, 0, 0),
                                    TimeStandard::UTC);
    for (const char16_t* pattern : {u"M", u"MMM", u"MMMM", u"MMMMMM"}) {
      try {
        f.getFormattedStr(pattern);
        ADD_FAILURE() << "no exception";
      } catch (const std::out_of_range& e) {
        EXPECT_NE(std::string(e.what()).find("month"), std::string::npos);
      }
    }
    EXPECT_THROW(f.format_M(4), std::out_of_range);
    EXPECT_EQ(f.getFormattedStr(u"d"), u"5");  // other fields are unaffected
  }
}

TEST(FieldNarrowing, DayOfYearAndWeekRaiseTheDateDiagnostic) {
  const DateTimeStructFormatter f(reading(2023, 2, 29, 0, 0, 0),
                                  TimeStandard::UTC);
  for (const char16_t* pattern : {u"D", u"e", u"eeee", u"yyyy-MM-dd D"}) {
    try {
      f.getFormattedStr(pattern);
      ADD_FAILURE() << "no exception";
    } catch (const IException& e) {
      EXPECT_EQ(e.identifier(), "Korvane:DateTime:BadDayOfMonth");
    }
  }
  EXPECT_EQ(f.getFormattedStr(u"yyyy-MM-dd"), u"2023-02-29");
}

// ------------------------------------------------------------- allocation

TEST(FormattingAllocation, OnlyTheResultIsAllocated) {
  const DateTimeStructFormatter f(kSample, TimeStandard::UTC);
  const std::size_t inlineUnits = std::u16string().capacity();
  std::u16string longPattern;
  for (int i = 0; i < 40; ++i) longPattern += u"yyyy-MM-dd eeee 'quoted' ";
  for (const std::u16string& pattern :
       {std::u16string(u"yyyy-MM-dd HH:mm:ss.SSS"),
        std::u16string(u"eeee, d MMMM yyyy 'at' h:mm a t"),
        std::u16string(u"HH:mm"), longPattern}) {
    SCOPED_TRACE(resource_core::toUtf8(pattern));
    std::u16string argument = pattern;  // the caller's copy, made before
    const long before = gAllocations.load();
    const std::u16string out = f.getFormattedStr(std::move(argument));
    const long used = gAllocations.load() - before;
    EXPECT_EQ(used, out.size() > inlineUnits ? 1 : 0) << out.size();
  }
}

}  // namespace
