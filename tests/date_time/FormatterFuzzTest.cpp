// Random 16-bit patterns: every one is either refused with one of the
// pattern diagnostics, identically by the validator and the renderer, or
// rendered. Run under the sanitizer build this also covers the renderer's
// buffer sizing against long runs and extreme field values.
#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <set>
#include <string>

#include "date_time/DateTimeStructFormatter.hpp"
#include "host/diag/MessageCatalog.hpp"

namespace {

using foundation::core::except::IException;
using KvDateTime::DateTimeStruct;
using KvDateTime::DateTimeStructFormatter;
using KvDateTime::TimeStandard;

DateTimeStruct reading(double y, double mo, double d, double h, double mi,
                       double s) {
  DateTimeStruct v;
  v.year = y, v.month = mo, v.day = d, v.hour = h, v.minute = mi, v.second = s;
  return v;
}

std::u16string randomPattern(std::mt19937& rng) {
  static const std::u16string kPieces[] = {
      u"'",      u"''",     u"t",      u"G",      u"y",           u"u",
      u"M",      u"d",      u"D",      u"e",      u"a",           u"h",
      u"H",      u"m",      u"s",      u"S",      u"-",           u" ",
      u":",      u"0",      u"Q",      u"x",      u"E",           u"T",
      u"\u00e9", u"\u5e74", u"\xd800", u"\xdc00", u"\xd83d\xde00"};
  std::uniform_int_distribution<int> pieceCount(0, 24);
  std::uniform_int_distribution<std::size_t> pick(0, std::size(kPieces));
  std::uniform_int_distribution<int> repeat(1, 14);
  std::uniform_int_distribution<int> anyUnit(0, 0xFFFF);
  std::u16string pattern;
  for (int i = pieceCount(rng); i > 0; --i) {
    const std::size_t k = pick(rng);
    // One slot in (size + 1) is an arbitrary 16-bit unit.
    const std::u16string piece =
        k == std::size(kPieces)
            ? std::u16string(1, static_cast<char16_t>(anyUnit(rng)))
            : kPieces[k];
    // Runs, up to forty units, so that wide fields and the six-'e' rule
    // are reached often.
    const int times = repeat(rng) > 10 ? repeat(rng) * 3 : 1;
    for (int t = 0; t < times; ++t) pattern += piece;
  }
  return pattern;
}

TEST(PatternFuzz, EitherAListedDiagnosticOrARendering) {
  const std::set<std::string> patternIds = {
      "Korvane:DateTime:InvalidFormatChar",
      "Korvane:DateTime:InvalidDayOfWeekToken",
      "Korvane:DateTime:MultipleFractionalSecondTokens"};
  // Valid readings and hand-filled extremes: the widest year, a negative
  // one, a leap second. A NaN year makes D and e raise the date diagnostic.
  const DateTimeStruct values[] = {
      reading(2024, 3, 5, 7, 8, 9.25),
      reading(9999, 12, 31, 23, 59, 60.999999999),
      reading(-1e300, 1, 1, 0, 0, 0),
      reading(1e300, 2, 28, 12, 30, 0.9999999999999999),
      reading(std::numeric_limits<double>::quiet_NaN(), 6, 30, 0, 0, 0)};
  std::mt19937 rng(5);
  int refused = 0, rendered = 0;
  for (int i = 0; i < 20000; ++i) {
    const std::u16string pattern = randomPattern(rng);
    const DateTimeStruct& value = values[i % std::size(values)];
    SCOPED_TRACE(resource_core::toUtf8(pattern));

    const kvsvDiagnostic d = DateTimeStructFormatter::validateFormat(pattern);
    if (d) {
      ++refused;
      EXPECT_EQ(patternIds.count(d->identifier()), 1u) << d->identifier();
      ASSERT_FALSE(d->arguments().empty());
      EXPECT_EQ(d->arguments()[0], resource_core::MsgArgument(pattern));
      try {
        DateTimeStructFormatter(value, TimeStandard::TAI)
            .getFormattedStr(pattern);
        ADD_FAILURE() << "rendered a refused pattern";
      } catch (const IException& e) {
        EXPECT_EQ(e.identifier(), d->identifier());
        EXPECT_EQ(e.arguments(), d->arguments());
      }
      continue;
    }

    // The time standard shows in the text exactly when the pattern says so.
    std::u16string asTai, asTdb;
    try {
      asTai = DateTimeStructFormatter(value, TimeStandard::TAI)
                  .getFormattedStr(pattern);
      asTdb = DateTimeStructFormatter(value, TimeStandard::TDB)
                  .getFormattedStr(pattern);
    } catch (const IException& e) {
      // Only the day-of-year and day-of-week fields judge the date.
      EXPECT_EQ(e.identifier(), "Korvane:DateTime:BadYear");
      EXPECT_NE(pattern.find_first_of(u"De"), std::u16string::npos);
      continue;
    }
    ++rendered;
    EXPECT_EQ(asTai != asTdb,
              DateTimeStructFormatter::needsTimeStandard(pattern));
  }
  // Both outcomes must be common, or the generator tests little.
  EXPECT_GT(refused, 2000);
  EXPECT_GT(rendered, 2000);
}

}  // namespace
