// DateTimeStructFormatter: validation, the three ways to render a letter,
// quoting and hand-filled values, ICU's SimpleDateFormat and printf as
// oracles, and what rendering allocates. Random patterns are the fuzz
// target's (fuzz/format_fuzz.cpp, run by make test).
#include <gtest/gtest.h>
#include <unicode/gregocal.h>
#include <unicode/smpdtfmt.h>

#include <array>
#include <bit>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <random>
#include <stdexcept>
#include <string_view>

#include "TestHelpers.hpp"
#include "date_time/DateTimeStructFormatter.hpp"
#include "host/diag/MessageCatalog.hpp"
#include "tests/CountingAllocator.hpp"
#include "tests/TestScale.hpp"

namespace {

using F = KvDateTime::DateTimeStructFormatter;
using KvDateTime::DateTimeStruct;
using KvDateTime::TimeStandard;
using resource_core::toUtf8;

const double kNaN = std::nan("");
const DateTimeStruct kSample =
    DateTimeStruct::unchecked(2024, 3, 5, 7, 8, 9.25);  // Tuesday

std::u16string callMember(const F& f, char16_t c, int n, bool& printed) {
  static const std::u16string counted = u"yuMdDeHhms";
  static std::u16string (F::*const members[])(std::int32_t) const = {
      &F::format_y, &F::format_u, &F::format_M, &F::format_d, &F::format_D,
      &F::format_e, &F::format_H, &F::format_h, &F::format_m, &F::format_s};
  if (c == u'S') return f.format_S(n, printed);
  if (c == u'G') return f.format_G();
  if (c == u'a') return f.format_a();
  return c == u't' ? f.format_t() : (f.*members[counted.find(c)])(n);
}

// The members, a single token and a one-token pattern render every letter
// at every count alike, the pattern allocating only its result, a prepared
// one nothing. What they render is decided by the ICU and printf sweeps and
// the pattern table below.
TEST(LetterRendering, MemberTokenAndPatternAgree) {
  const F f(kSample, TimeStandard::UTC);
  for (const char16_t c : std::u16string(u"tGyuMdDeahHmsS")) {
    for (int n = 1; n <= 12; ++n) {
      SCOPED_TRACE(testing::Message() << static_cast<char>(c) << " x" << n);
      bool byMember = false, byToken = false;  // set by S only
      const std::u16string expected = callMember(f, c, n, byMember);
      EXPECT_EQ(f.formatToken(c, n, byToken, false), expected);
      EXPECT_TRUE(byMember == (c == u'S') && byToken == (c == u'S'));
      if (c == u'e' && n > 5) continue;  // patterns refuse six e
      std::u16string pattern(n, c);      // the caller's copy, made before
      const long before = kvtest::allocations.load();
      const std::u16string out = f.getFormattedStr(std::move(pattern));
      EXPECT_EQ(kvtest::allocations.load() - before,
                out.size() > std::u16string().capacity() ? 1 : 0);
      EXPECT_EQ(out, expected);
      const KvDateTime::PreparedFormat prepared(std::u16string(n, c));
      std::array<char16_t, 24> units;
      const long mid = kvtest::allocations.load();
      const std::size_t length = prepared.formatTo(kSample, TimeStandard::UTC,
                                                   units.data(), units.size());
      EXPECT_EQ(kvtest::allocations.load(), mid);
      EXPECT_EQ(std::u16string_view(units.data(), length), expected);
      EXPECT_THROW(prepared.formatTo(kSample, TimeStandard::UTC, units.data(),
                                     prepared.maxUnits(TimeStandard::UTC) - 1),
                   std::length_error);
    }
  }
  EXPECT_EQ(f.format_e(7), u"T");
  // A token alone: apostrophes halve, quoted or unknown letters are copied.
  bool printed = false;
  EXPECT_EQ(f.formatToken(u'\'', 5, printed, true) + u'|' +
                f.formatToken(u'S', 2, printed, true) + u'|' +
                f.formatToken(u'Q', 3, printed, false),
            u"''|SS|QQQ");
  EXPECT_FALSE(printed);
}

const DateTimeStruct kFeb29 = DateTimeStruct::unchecked(2023, 2, 29, 0, 0, 0);

// The text, or "!" and the Id of the refusal (with the letter argument of
// InvalidFormatChar). An even apostrophe run quotes nothing, an odd one opens
// or closes, and every run renders at half length; case matters; six 'e'
// are refused even quoted; problems come in reading order, but too many
// fraction runs only last. Month names are looked up for numbers too; D and
// e judge the date, the other fields do not.
// A prepared pattern renders and refuses alike, a bad one when prepared.
// clang-format off
const std::tuple<DateTimeStruct, const char16_t*, const char*> kPatterns[] = {
    {kSample, u"''Q", "!InvalidFormatChar Q"},
    {kSample, u"T", "!InvalidFormatChar T"},
    {kSample, u"1 :/-.,\u00e9\u5e74 d \xd83d\xde00", "1 :/-.,\u00e9\u5e74 5 \U0001F600"},
    {kSample, u"'abc eeeeee", "!InvalidDayOfWeekToken"},
    {kSample, u"S ss 'S'", "2 09 S"},
    {kSample, u"SS'x'SS", "!MultipleFractionalSecondTokens"},
    {kSample, u"Qeeeeee", "!InvalidFormatChar Q"},
    {kSample, u"eeeeee Q", "!InvalidDayOfWeekToken"},
    {kSample, u"SS SS Q", "!InvalidFormatChar Q"},
    {kSample, u"SS SS eeeeee", "!InvalidDayOfWeekToken"},
    {kSample, u"'It''s' h a|' '' ''' ''''", "It's 7 AM| ' ' ''"},
    {kSample, u"'''yyyy''' yyyyMMddHHmmss 'abc", "'yyyy' 20240305070809 abc"},
    {kSample, u"e|ee|t|G", "3|03|UTC|CE"},  // the weekday from Sunday
    // Eras: year 0 is 1 BCE; yy keeps two digits of the year of era.
    {DateTimeStruct::unchecked(-43, 1, 1, 0, 0, 0), u"G y u uuuu yy", "BCE 44 -43 -0043 44"},
    {DateTimeStruct::unchecked(0, 1, 1, 0, 0, 0), u"G y u uuu yy", "BCE 1 0 000 01"},
    // Hand-filled fields: truncated to 32 bits, then their low 8 bits; the
    // year to 64 bits; NaN and overflow read as the integer minimum.
    {DateTimeStruct::unchecked(2024, 259, 261.9, 268, 264, 265.5), u"MMM d h a m s", "Mar 5 12 PM 8 9"},
    {DateTimeStruct::unchecked(2024, 3, 5, kNaN, kNaN, 0), u"H h a m", "0 12 AM 0"},
    {DateTimeStruct::unchecked(1e300, 3, 5, 0, 0, 0), u"u|y|G", "-9223372036854775808|9223372036854775809|BCE"},
    {DateTimeStruct::unchecked(kNaN, 3, 5, 0, 0, 0), u"uuuuuuuuuuuu", "-9223372036854775808"},
    {DateTimeStruct::unchecked(2024, 0, 5, 0, 0, 0), u"M", "!out_of_range"},
    {DateTimeStruct::unchecked(2024, 13, 5, 0, 0, 0), u"MMM", "!out_of_range"},
    {kFeb29, u"D", "!BadDayOfMonth"},
    {kFeb29, u"e", "!BadDayOfMonth"},
    {kFeb29, u"yyyy-MM-dd", "2023-02-29"}};
// clang-format on

TEST(PatternRendering, QuotingErasClocksFractionsAndNarrowing) {
  for (const bool prepared : {false, true}) {
    for (const auto& [value, pattern, expected] : kPatterns) {
      std::string got;
      try {
        got = toUtf8(
            prepared ? KvDateTime::PreparedFormat(pattern).format(
                           value, TimeStandard::UTC)
                     : F(value, TimeStandard::UTC).getFormattedStr(pattern));
      } catch (const foundation::core::except::IException& e) {
        got = '!' + kvtest::idPart(e.identifier());
        for (std::size_t k = 1; k < e.arguments().size(); ++k)
          got += ' ' + toUtf8(std::get<std::u16string>(e.arguments()[k]));
      } catch (const std::out_of_range&) {
        got = "!out_of_range";
      }
      EXPECT_EQ(got, expected) << toUtf8(pattern) << " prepared " << prepared;
    }
  }
}

// The digits of the C library's "%.15f" of the fraction, cut to the count,
// never rounded at the cut: values that printf rounds up to one or prints
// with a sign, then random doubles below 2, decimals just off the ninth
// digit, and exact multiples of 2^-16.
TEST(PatternRendering, FractionDigitsMatchPrintf) {
  const double special[] = {0.9999999999999999, -0.25, -0.0};
  std::mt19937_64 rng(20240305);
  for (int i = 0; i < 60000; ++i) {
    const double s = i < 3        ? special[i]
                     : i % 3 == 0 ? std::bit_cast<double>(rng() >> 2)
                     : i % 3 == 1
                         ? (rng() % 60000000000) / 1e9 + (rng() % 2000) * 1e-16
                         : (rng() % 3932160) / 65536.0;
    double whole;
    char text[32];
    std::snprintf(text, sizeof text, "%.15f", std::modf(s, &whole));
    const int n = 9 - i / 3 % 9;
    bool printed = false;
    ASSERT_EQ(
        F(DateTimeStruct::unchecked(2024, 3, 5, 0, 0, s), TimeStandard::UTC)
            .format_S(n, printed),
        std::u16string(text + 2, text + 2 + n))
        << std::hexfloat << s;
  }
}

// ICU's SimpleDateFormat (English, GMT, proleptic Gregorian) on random
// valid readings across 1400..9999, both ends included. Every shared letter
// at every count: y (yy included), u, M (numbers, English names, numbers
// again from six), d, D, H, h, m and s up to twelve (both pad to at most
// ten), day names, a, and S to three digits. Where we
// differ on purpose ("CE" for "AD", the weekday number from Sunday, nine
// fraction digits from the double) the pattern table, the calendar walk and
// the printf sweep decide.
TEST(IcuOracle, SharedLettersAgree) {
  std::u16string shared = u"a|eee|eeee|eeeee";
  for (const char16_t c : std::u16string(u"yuMdDHhms"))
    for (int n = 1; n <= 12; ++n) shared += u'|' + std::u16string(n, c);
  shared += u"|SSS";
  UErrorCode status = U_ZERO_ERROR;
  icu::SimpleDateFormat icu(
      icu::UnicodeString(shared.data(), std::ssize(shared)),
      icu::Locale::getEnglish(), status);
  icu::GregorianCalendar cal(icu::TimeZone::getGMT()->clone(), status);
  cal.setGregorianChange(-DBL_MAX, status);  // never Julian
  // Milliseconds from 1970 to 1400-01-01, and from there to 10000-01-01.
  const std::int64_t first = -17987443200000, span = 271389744000000;
  std::mt19937_64 rng(4);
  for (int i = 0; i < kvtest::scaled(12000); ++i) {
    const std::int64_t ms = i < 2 ? i * (span - 1) : rng() % span;
    cal.setTime(static_cast<UDate>(first + ms), status);
    auto get = [&](UCalendarDateFields f) { return cal.get(f, status); };
    // A quarter millisecond above ICU's, so that three cut digits agree.
    const double second =
        get(UCAL_SECOND) + (get(UCAL_MILLISECOND) + 0.25) / 1000;
    const F f(DateTimeStruct::unchecked(get(UCAL_YEAR), get(UCAL_MONTH) + 1,
                                        get(UCAL_DATE), get(UCAL_HOUR_OF_DAY),
                                        get(UCAL_MINUTE), second),
              TimeStandard::UTC);
    icu::UnicodeString theirs;
    icu::FieldPosition position;
    icu.format(cal, theirs, position);
    ASSERT_EQ(f.getFormattedStr(shared),
              std::u16string(theirs.getBuffer(), theirs.length()));
    ASSERT_TRUE(U_SUCCESS(status)) << u_errorName(status);
  }
}

}  // namespace
