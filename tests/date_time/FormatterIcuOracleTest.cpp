// ICU's SimpleDateFormat (English, GMT, proleptic Gregorian) as an
// independent oracle for the letters whose meaning it shares, and the
// places where this library deliberately renders otherwise.
#include <gtest/gtest.h>
#include <unicode/gregocal.h>
#include <unicode/locid.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

#include <cfloat>
#include <chrono>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "date_time/DateTimeStructFormatter.hpp"
#include "host/diag/MessageCatalog.hpp"

namespace {

using KvDateTime::DateTimeStruct;
using KvDateTime::DateTimeStructFormatter;
using KvDateTime::TimeStandard;

struct Reading {
  int year, month, day, hour, minute, second, millisecond;

  DateTimeStruct record() const {
    DateTimeStruct v;
    v.year = year, v.month = month, v.day = day, v.hour = hour;
    v.minute = minute;
    // A quarter millisecond above the millisecond, so that our cut digits
    // and ICU's whole milliseconds name the same three digits.
    v.second = second + (millisecond + 0.25) / 1000.0;
    return v;
  }
};

class IcuFormatter {
 public:
  explicit IcuFormatter(const icu::Locale& locale = icu::Locale::getEnglish())
      : locale_(locale) {
    UErrorCode status = U_ZERO_ERROR;
    calendar_ = std::make_unique<icu::GregorianCalendar>(
        icu::TimeZone::getGMT()->clone(), locale_, status);
    // ICU switches to the Julian calendar before October 1582 by default.
    calendar_->setGregorianChange(-DBL_MAX, status);
    EXPECT_TRUE(U_SUCCESS(status)) << u_errorName(status);
  }

  std::u16string format(const std::u16string& pattern, const Reading& r) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::SimpleDateFormat>& sdf = formats_[pattern];
    if (!sdf) {
      sdf = std::make_unique<icu::SimpleDateFormat>(
          icu::UnicodeString(pattern.data(),
                             static_cast<int32_t>(pattern.size())),
          locale_, status);
      sdf->setCalendar(*calendar_);
    }
    calendar_->clear();
    calendar_->set(r.year, r.month - 1, r.day, r.hour, r.minute, r.second);
    calendar_->set(UCAL_MILLISECOND, r.millisecond);
    icu::UnicodeString out;
    icu::FieldPosition position;
    sdf->format(*calendar_, out, position);
    EXPECT_TRUE(U_SUCCESS(status)) << u_errorName(status);
    return std::u16string(out.getBuffer(),
                          static_cast<std::size_t>(out.length()));
  }

 private:
  icu::Locale locale_;
  std::unique_ptr<icu::GregorianCalendar> calendar_;
  std::map<std::u16string, std::unique_ptr<icu::SimpleDateFormat>> formats_;
};

std::vector<Reading> readings() {
  // Edges of the range, leap days of century years, the days around ICU's
  // default Julian switch, and the hours where the 12-hour clock turns.
  std::vector<Reading> out = {
      {1400, 1, 1, 0, 0, 0, 0},      {9999, 12, 31, 23, 59, 59, 999},
      {1600, 2, 29, 12, 0, 0, 0},    {1700, 2, 28, 11, 59, 59, 999},
      {1700, 3, 1, 13, 1, 1, 1},     {2000, 2, 29, 0, 0, 0, 500},
      {1582, 10, 4, 1, 2, 3, 4},     {1582, 10, 10, 5, 6, 7, 8},
      {1582, 10, 15, 9, 10, 11, 12}, {2024, 12, 31, 23, 0, 0, 0}};
  std::mt19937 rng(4);
  auto uniform = [&](int lo, int hi) {
    return std::uniform_int_distribution<int>(lo, hi)(rng);
  };
  while (out.size() < 12000) {
    const int y = uniform(1400, 9999), m = uniform(1, 12);
    const auto last = std::chrono::year_month_day_last(
        std::chrono::year(y), std::chrono::month_day_last(std::chrono::month(
                                  static_cast<unsigned>(m))));
    const int d =
        uniform(1, static_cast<int>(static_cast<unsigned>(last.day())));
    out.push_back({y, m, d, uniform(0, 23), uniform(0, 59), uniform(0, 59),
                   uniform(0, 999)});
  }
  return out;
}

std::string describe(const Reading& r) {
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d", r.year,
                r.month, r.day, r.hour, r.minute, r.second, r.millisecond);
  return text;
}

// One pattern holding every shared letter at every count: y, u, M (numbers,
// English names, and the numeric fallback from six letters), d, D, H, h, m
// and s up to twelve (padding stops at ten in both), e up to five, and a.
// The two-digit "yy" is among them: over 1400..9999 it agrees with ICU's.
std::u16string sharedLetterPattern() {
  std::u16string pattern;
  for (char16_t letter : std::u16string(u"yuMdDHhms")) {
    for (int n = 1; n <= 12; ++n) pattern += std::u16string(n, letter) + u'|';
  }
  for (int n = 1; n <= 5; ++n) pattern += std::u16string(n, u'e') + u'|';
  return pattern + u"a";
}

TEST(IcuOracle, SharedLettersAgreeOnTwelveThousandReadings) {
  IcuFormatter icu;
  const std::u16string shared = sharedLetterPattern();
  // One run of S per pattern is allowed, so each fraction count has its own.
  const std::u16string fractions[] = {u"ss.S", u"ss.SS", u"ss.SSS"};
  int checked = 0, mismatches = 0;
  for (const Reading& r : readings()) {
    const DateTimeStructFormatter f(r.record(), TimeStandard::UTC);
    ++checked;
    for (const std::u16string& pattern :
         {shared, fractions[0], fractions[1], fractions[2]}) {
      const std::u16string ours = f.getFormattedStr(pattern);
      const std::u16string theirs = icu.format(pattern, r);
      if (ours != theirs && ++mismatches <= 5) {
        ADD_FAILURE() << describe(r) << "\n ours "
                      << resource_core::toUtf8(ours) << "\n ICU  "
                      << resource_core::toUtf8(theirs);
      }
    }
  }
  EXPECT_EQ(mismatches, 0) << "of " << checked << " readings";
  EXPECT_GE(checked, 10000);
}

// Where the library renders otherwise on purpose, pinned against ICU.
TEST(IcuOracle, DeliberateDifferences) {
  IcuFormatter english;
  IcuFormatter british(icu::Locale("en", "GB"));
  const std::vector<Reading> all = readings();
  for (std::size_t i = 0; i < 2000; ++i) {
    const Reading& r = all[i];
    SCOPED_TRACE(describe(r));
    const DateTimeStructFormatter f(r.record(), TimeStandard::UTC);

    // Era texts: "CE" where ICU says "AD".
    EXPECT_EQ(f.getFormattedStr(u"G"), u"CE");
    EXPECT_EQ(english.format(u"G", r), u"AD");

    // The day-of-week number always counts from Sunday; ICU's follows the
    // locale's first day of the week (Monday in Britain).
    const int ours = std::stoi(resource_core::toUtf8(f.getFormattedStr(u"e")));
    const int icuBritish =
        std::stoi(resource_core::toUtf8(british.format(u"e", r)));
    EXPECT_EQ(ours, icuBritish % 7 + 1);

    // At most nine fraction digits, taken from the double itself; ICU pads
    // its whole milliseconds with zeros to the full count.
    const std::u16string digits = f.getFormattedStr(u"SSSSSSSSSSSS");
    const std::u16string icuDigits = english.format(u"SSSSSSSSSSSS", r);
    EXPECT_EQ(digits.size(), 9u);
    EXPECT_EQ(icuDigits.size(), 12u);
    EXPECT_EQ(digits.substr(0, 3), icuDigits.substr(0, 3));
    EXPECT_EQ(icuDigits.substr(3), u"000000000");
    EXPECT_NE(digits.substr(3, 3), u"000");  // the quarter millisecond
  }
}

}  // namespace
