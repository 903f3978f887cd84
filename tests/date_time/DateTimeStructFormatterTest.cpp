// DateTimeStructFormatter: validation, every letter at counts 1 to 12,
// quoting, hand-filled values, ICU's SimpleDateFormat as an oracle, random
// patterns, and what rendering allocates.
#include <gtest/gtest.h>
#include <unicode/gregocal.h>
#include <unicode/smpdtfmt.h>

#include <bit>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <random>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "TestHelpers.hpp"
#include "date_time/DateTimeStructFormatter.hpp"
#include "host/diag/MessageCatalog.hpp"
#include "tests/CountingAllocator.hpp"

namespace {

using F = KvDateTime::DateTimeStructFormatter;
using KvDateTime::DateTimeStruct;
using KvDateTime::TimeStandard;
using kvtest::handFilled;
using resource_core::toUtf8;

const double kNaN = std::nan("");
const DateTimeStruct kSample = handFilled(2024, 3, 5, 7, 8, 9.25);  // Tuesday

// The Id of the first problem ("" when valid), with the letter argument of
// InvalidFormatChar. An even apostrophe run quotes nothing, an odd one opens
// or closes; case matters; six 'e' are refused even quoted; problems come
// in reading order, but too many fraction runs only last.
const std::tuple<const char16_t*, const char*, char16_t> kValidation[] = {
    {u"yyyy-MM-dd HH:mm:ss.SSS t 'Q'", "", 0},
    {u"''Q", "InvalidFormatChar", u'Q'},
    {u"'''Q' eeeee", "", 0},
    {u"T", "InvalidFormatChar", u'T'},
    {u"1 :/-.,\u00e9\u5e74\xd800 \xdfff", "", 0},
    {u"'abc eeeeee", "InvalidDayOfWeekToken", 0},
    {u"S ss 'S'", "", 0},
    {u"SS'x'SS", "MultipleFractionalSecondTokens", 0},
    {u"Qeeeeee", "InvalidFormatChar", u'Q'},
    {u"eeeeee Q", "InvalidDayOfWeekToken", 0},
    {u"SS SS Q", "InvalidFormatChar", u'Q'},
    {u"SS SS eeeeee", "InvalidDayOfWeekToken", 0}};

TEST(FormatValidation, FirstProblemWithItsArguments) {
  for (const auto& [pattern, id, offending] : kValidation) {
    SCOPED_TRACE(toUtf8(pattern));
    const kvsvDiagnostic d = F::validateFormat(pattern);
    EXPECT_EQ(kvtest::idOf(d), id);
    if (!d) continue;
    std::vector<resource_core::MsgArgument> args{std::u16string(pattern)};
    if (offending != 0) args.emplace_back(std::u16string(1, offending));
    EXPECT_EQ(d->arguments(), args);
  }
}

// kSample by count from 1; counts past the last listed render like it (e
// from six only by a direct call: patterns refuse them).
const char16_t* const kLetters[] = {
    u"y 2024 24 2024 2024 02024 002024 0002024 00002024 000002024 0000002024",
    u"u 2024 2024 2024 2024 02024 002024 0002024 00002024 000002024 0000002024",
    u"M 3 03 Mar March M 000003 0000003 00000003 000000003 0000000003",
    u"d 5 05 005 0005 00005 000005 0000005 00000005 000000005 0000000005",
    u"D 65 65 065 0065 00065 000065 0000065 00000065 000000065 0000000065",
    u"e 3 03 Tue Tuesday T",
    u"H 7 07 007 0007 00007 000007 0000007 00000007 000000007 0000000007",
    u"h 7 07 007 0007 00007 000007 0000007 00000007 000000007 0000000007",
    u"m 8 08 008 0008 00008 000008 0000008 00000008 000000008 0000000008",
    u"s 9 09 009 0009 00009 000009 0000009 00000009 000000009 0000000009",
    u"S 2 25 250 2500 25000 250000 2500000 25000000 250000000",
    u"G CE",
    u"a AM",
    u"t UTC"};

// The members of the counted letters, called directly.
const std::u16string kCounted = u"yuMdDeHhms";
std::u16string (F::*const kMembers[])(std::int32_t) const = {
    &F::format_y, &F::format_u, &F::format_M, &F::format_d, &F::format_D,
    &F::format_e, &F::format_H, &F::format_h, &F::format_m, &F::format_s};

std::u16string callMember(const F& f, char16_t c, int n, bool& printed) {
  if (c == u'S') return f.format_S(n, printed);
  if (c == u'G') return f.format_G();
  if (c == u'a') return f.format_a();
  return c == u't' ? f.format_t() : (f.*kMembers[kCounted.find(c)])(n);
}

TEST(LetterRendering, EveryLetterByMemberTokenAndPattern) {
  const F f(kSample, TimeStandard::UTC);
  for (const std::u16string row : kLetters) {
    std::vector<std::u16string> words;
    for (std::size_t i = 0, j = 0; i < row.size(); i = j + 1) {
      j = std::min(row.find(u' ', i), row.size());
      words.push_back(row.substr(i, j - i));
    }
    for (int n = 1; n <= 12; ++n) {
      const char16_t c = row[0];
      SCOPED_TRACE(testing::Message() << static_cast<char>(c) << " x" << n);
      const auto& expected = words[std::min<int>(n, words.size() - 1)];
      bool byMember = false, byToken = false;  // set by S only
      EXPECT_EQ(callMember(f, c, n, byMember), expected);
      EXPECT_EQ(f.formatToken(c, n, byToken, false), expected);
      EXPECT_TRUE(byMember == (c == u'S') && byToken == (c == u'S'));
      if (c != u'e' || n <= 5) {
        EXPECT_EQ(f.getFormattedStr(std::u16string(n, c)), expected);
      }
    }
  }
  // A token alone: apostrophes halve, quoted or unknown letters are copied.
  bool printed = false;
  EXPECT_EQ(f.formatToken(u'\'', 5, printed, true) + u'|' +
                f.formatToken(u'S', 2, printed, true) + u'|' +
                f.formatToken(u'Q', 3, printed, false),
            u"''|SS|QQQ");
  EXPECT_FALSE(printed);
}

struct PatternCase {
  DateTimeStruct value;
  const char16_t* pattern;
  const char16_t* expected;
  TimeStandard ts = TimeStandard::UTC;
};
const PatternCase kPatterns[] = {
    // Quoting: odd apostrophe runs toggle, every run renders at half length.
    {kSample, u"eeee, d MMMM yyyy 'at' h:mm a t",
     u"Tuesday, 5 March 2024 at 7:08 AM UTC"},
    {kSample, u"'It''s' h a|' '' ''' ''''", u"It's 7 AM| ' ' ''"},
    {kSample, u"'''yyyy''' yyyyMMddHHmmss 'abc", u"'yyyy' 20240305070809 abc"},
    {kSample, u"\u00e9\u5e74 d \xd83d\xde00", u"\u00e9\u5e74 5 \xd83d\xde00"},
    {kSample, u"t|ttt", u"TAI|TAI", TimeStandard::TAI},
    // Eras: year 0 is 1 BCE; yy keeps two digits of the year of era.
    {handFilled(-43, 1, 1, 0, 0, 0), u"G y u uuuu yy", u"BCE 44 -43 -0043 44"},
    {handFilled(0, 1, 1, 0, 0, 0), u"G y u uuu yy", u"BCE 1 0 000 01"},
    {handFilled(100, 1, 1, 0, 0, 0), u"G y uuuu yy", u"CE 100 0100 00"},
    {handFilled(12345, 1, 1, 0, 0, 0), u"yy yyyyyy", u"45 012345"},
    // Fraction digits are cut, never rounded, and the second never carried;
    // "%.15f" rounds the fourth fraction to 1.000000000000000: zeros.
    {handFilled(2024, 3, 5, 0, 0, 59.9996), u"ss.SSS", u"59.999"},
    {handFilled(2024, 3, 5, 0, 0, 60.5), u"ss.S", u"60.5"},
    {handFilled(2024, 3, 5, 0, 0, 0.9999999999999999), u"ss.SSS", u"00.000"},
    {handFilled(2024, 3, 5, 0, 0, -0.25), u"SSS", u".25"},  // printf's sign
    // Hand-filled fields: truncated to 32 bits, then their low 8 bits; the
    // year to 64 bits; NaN and overflow read as the integer minimum.
    {handFilled(2024, 259, 261.9, 268, 264, 265.5), u"MMM d h a m s",
     u"Mar 5 12 PM 8 9"},
    {handFilled(2024, 3, 5, kNaN, kNaN, 0), u"H h a m", u"0 12 AM 0"},
    {handFilled(1e300, 3, 5, 0, 0, 0), u"u|y|G",
     u"-9223372036854775808|9223372036854775809|BCE"},
    {handFilled(kNaN, 3, 5, 0, 0, 0), u"uuuuuuuuuuuu", u"-9223372036854775808"},
};

TEST(PatternRendering, QuotingErasClocksFractionsAndNarrowing) {
  for (const PatternCase& c : kPatterns) {
    EXPECT_EQ(F(c.value, c.ts).getFormattedStr(c.pattern), c.expected)
        << toUtf8(c.pattern);
  }
}

// Nine digits of the C library's "%.15f", its rounding and carries included:
// random doubles below 2, decimals just off the ninth digit, and exact
// multiples of 2^-16.
TEST(PatternRendering, FractionDigitsMatchPrintf) {
  std::mt19937_64 rng(20240305);
  for (int i = 0; i < 60000; ++i) {
    const double s = i % 3 == 0 ? std::bit_cast<double>(rng() >> 2)
                     : i % 3 == 1
                         ? (rng() % 60000000000) / 1e9 + (rng() % 2000) * 1e-16
                         : (rng() % 3932160) / 65536.0;
    char text[32];
    std::snprintf(text, sizeof text, "%.15f", s - std::trunc(s));
    bool printed = false;
    const F f(handFilled(2024, 3, 5, 0, 0, s), TimeStandard::UTC);
    ASSERT_EQ(f.format_S(9, printed), std::u16string(text + 2, text + 11))
        << std::hexfloat << s;
  }
}

TEST(FieldErrors, NamelessMonthAndInvalidDayOfYearOrWeek) {
  for (const double month : {0.0, 13.0, -1.0, 256.0, kNaN}) {
    const F f(handFilled(2024, month, 5, 0, 0, 0), TimeStandard::UTC);
    for (const char16_t* pattern : {u"M", u"MMM", u"MMMM", u"MMMMMM"})
      EXPECT_THROW(f.getFormattedStr(pattern), std::out_of_range) << month;
    EXPECT_EQ(f.getFormattedStr(u"d"), u"5");  // other fields unaffected
  }
  const F feb29(handFilled(2023, 2, 29, 0, 0, 0), TimeStandard::UTC);
  for (const char16_t* pattern : {u"D", u"e", u"eeee"})
    EXPECT_EQ(kvtest::thrownId([&] { feb29.getFormattedStr(pattern); }),
              "BadDayOfMonth");
  EXPECT_EQ(feb29.getFormattedStr(u"yyyy-MM-dd"), u"2023-02-29");
}

// ICU's SimpleDateFormat (English, GMT, proleptic Gregorian) on random
// valid readings across 1400..9999, both ends included. Every shared letter
// at every count: y (yy included), u, M (numbers, English names, numbers
// again from six), d, D, H, h, m and s up to twelve (both pad to at most
// ten), day names, a, and S up to three (one run per pattern). Then the
// deliberate differences: "CE" for "AD", the day-of-week number from Sunday
// whatever ICU's first day (Monday here), and at most nine fraction digits
// taken from the double where ICU pads whole milliseconds with zeros.
TEST(IcuOracle, SharedLettersAgreeAndDifferencesAreDeliberate) {
  std::u16string shared = u"a|eee|eeee|eeeee";
  for (const char16_t c : std::u16string(u"yuMdDHhms"))
    for (int n = 1; n <= 12; ++n) shared += u'|' + std::u16string(n, c);
  const std::u16string patterns[] = {shared + u"|S", shared + u"|SS",
                                     shared + u"|SSS", u"G|e|SSSSSSSSSSSS"};
  UErrorCode status = U_ZERO_ERROR;
  std::vector<icu::SimpleDateFormat> icu;
  for (const std::u16string& p : patterns)
    icu.emplace_back(icu::UnicodeString(p.data(), std::ssize(p)),
                     icu::Locale::getEnglish(), status);
  icu::GregorianCalendar cal(icu::TimeZone::getGMT()->clone(), status);
  cal.setGregorianChange(-DBL_MAX, status);  // never Julian
  cal.setFirstDayOfWeek(UCAL_MONDAY);
  // Milliseconds from 1970 to 1400-01-01, and from there to 10000-01-01.
  const std::int64_t first = -17987443200000, span = 271389744000000;
  std::mt19937_64 rng(4);
  for (int i = 0; i < 12000; ++i) {
    const std::int64_t ms = i < 2 ? i * (span - 1) : rng() % span;
    cal.setTime(static_cast<UDate>(first + ms), status);
    auto get = [&](UCalendarDateFields f) { return cal.get(f, status); };
    // A quarter millisecond above ICU's, so that three cut digits agree.
    const double second =
        get(UCAL_SECOND) + (get(UCAL_MILLISECOND) + 0.25) / 1000;
    const F f(handFilled(get(UCAL_YEAR), get(UCAL_MONTH) + 1, get(UCAL_DATE),
                         get(UCAL_HOUR_OF_DAY), get(UCAL_MINUTE), second),
              TimeStandard::UTC);
    auto theirs = [&](std::size_t k) {
      icu::UnicodeString out;
      icu::FieldPosition position;
      icu[k].format(cal, out, position);
      return std::u16string(out.getBuffer(), out.length());
    };
    ASSERT_EQ(f.getFormattedStr(patterns[i % 3]), theirs(i % 3));
    // "CE|3|250250000" against "AD|2|250000000000".
    const std::u16string ours = f.getFormattedStr(patterns[3]),
                         icu3 = theirs(3);
    ASSERT_EQ(ours.size(), 14u);
    ASSERT_EQ(ours.substr(0, 3) + icu3.substr(0, 3), u"CE|AD|");
    ASSERT_EQ(ours[3] - u'0', (icu3[3] - u'0') % 7 + 1);
    ASSERT_EQ(ours.substr(5, 3) + u"000000000", icu3.substr(5));
    ASSERT_NE(ours.substr(8, 3), u"000");  // the quarter millisecond
    ASSERT_TRUE(U_SUCCESS(status)) << u_errorName(status);
  }
}

// Random 16-bit patterns (quotes, every letter, letters that are not,
// non-ASCII, surrogates, any unit; some in runs of up to 42) are either
// refused with a pattern diagnostic, alike by the validator and the
// renderer, or rendered. The sanitizer build checks buffer sizing here.
TEST(PatternFuzz, EitherAListedDiagnosticOrARendering) {
  const std::u16string units =
      u"''tGyuMdDeahHmsS- :0QxET\u00e9\u5e74\xd800\xdc00\xd83d\xde00";
  const std::string listed =
      "|InvalidFormatChar|InvalidDayOfWeekToken|"
      "MultipleFractionalSecondTokens|";
  // The widest year, a leap second; the NaN year makes D and e raise the
  // date diagnostic.
  const DateTimeStruct values[] = {
      kSample, handFilled(1e300, 12, 31, 23, 59, 60.999999999),
      handFilled(kNaN, 6, 30, 12, 30, 0.9999999999999999)};
  std::mt19937 rng(5);
  int refused = 0, rendered = 0;
  for (int i = 0; i < 20000; ++i) {
    std::u16string pattern;
    for (int k = rng() % 25; k > 0; --k) {
      const std::size_t u = rng() % (units.size() + 1);
      const char16_t c = u < units.size() ? units[u] : rng() & 0xFFFF;
      pattern.append(rng() % 14 > 9 ? 3 + rng() % 40 : 1, c);
    }
    SCOPED_TRACE(toUtf8(pattern));
    std::u16string tai, tdb;
    std::string id;
    std::vector<resource_core::MsgArgument> args;
    try {
      tai = F(values[i % 3], TimeStandard::TAI).getFormattedStr(pattern);
      tdb = F(values[i % 3], TimeStandard::TDB).getFormattedStr(pattern);
    } catch (const foundation::core::except::IException& e) {
      id = e.identifier(), args = e.arguments();
    }
    if (const kvsvDiagnostic d = F::validateFormat(pattern)) {
      ++refused;
      EXPECT_NE(listed.find('|' + kvtest::idOf(d) + '|'), std::string::npos);
      EXPECT_EQ(d->identifier(), id);
      EXPECT_EQ(d->arguments(), args);
      EXPECT_EQ(args.at(0), resource_core::MsgArgument(pattern));
    } else if (!id.empty()) {  // only D and e judge the date
      EXPECT_EQ(id, "Korvane:DateTime:BadYear");
      EXPECT_NE(pattern.find_first_of(u"De"), std::u16string::npos);
    } else {
      ++rendered;  // the time standard shows exactly when the pattern says
      EXPECT_EQ(tai != tdb, F::needsTimeStandard(pattern));
      // Trailing literals force the path for long patterns: same text.
      const std::u16string tail(41, u' ');
      EXPECT_EQ(
          F(values[i % 3], TimeStandard::TAI).getFormattedStr(pattern + tail),
          tai + tail);
    }
  }
  // Both outcomes must be common, or the generator tests little.
  EXPECT_GT(refused, 2000);
  EXPECT_GT(rendered, 2000);
}

TEST(FormattingAllocation, OnlyTheResultIsAllocated) {
  const F f(kSample, TimeStandard::UTC);
  std::u16string longPattern;
  for (int i = 0; i < 40; ++i) longPattern += u"yyyy-MM-dd eeee 'quoted' ";
  EXPECT_EQ(f.getFormattedStr(longPattern).size(), 40 * 26u);  // all of it
  for (const std::u16string& pattern :
       {std::u16string(u"HH:mm"), std::u16string(u"yyyy-MM-dd HH:mm:ss.SSS"),
        std::u16string(u"eeee, d MMMM yyyy 'at' h:mm a t"), longPattern}) {
    std::u16string argument = pattern;  // the caller's copy, made before
    const long before = kvtest::allocations.load();
    const std::u16string out = f.getFormattedStr(std::move(argument));
    EXPECT_EQ(kvtest::allocations.load() - before,
              out.size() > std::u16string().capacity() ? 1 : 0);
  }
}

}  // namespace
