#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>

#include "date_time/LeapSecondList.hpp"
#include "date_time/LeapSecondTableData.hpp"
#include "tests/date_time/TestHelpers.hpp"

using KvDateTime::LeapSecondListParser;
using KvDateTime::LeapSecondYears;

namespace {

// The list in its published layout: tab-separated fields, comments after the
// data, update, expiry and hash lines. The dates are the announced ones as
// year and month, spelled out here in NTP seconds by plain day counting; the
// hash (computed with Python's hashlib over the digits of "#$", "#@" and the
// data lines) pins every digit the counting produces.
constexpr int kLeapDates[] = {197201, 197207, 197301, 197401, 197501, 197601,
                              197701, 197801, 197901, 198001, 198107, 198207,
                              198307, 198507, 198801, 199001, 199101, 199207,
                              199307, 199407, 199601, 199707, 199901, 200601,
                              200901, 201207, 201507, 201701};
const std::string kPublished = [] {
  std::string s =
      "#\tLeap second list (sample)\n#$\t 3913697179\n#@\t3960057600\n";
  int offset = 10;
  for (const int ym : kLeapDates) {
    const int y = ym / 100;
    const std::int64_t days = 365 * (y - 1900) + (y - 1901) / 4 +
                              (ym % 100 == 7 ? 181 + (y % 4 == 0) : 0);
    s += std::to_string(days * 86400) + '\t' + std::to_string(offset++) +
         "\t# " + std::to_string(ym) + '\n';
  }
  return s + "#h\t43f05a09 47c3e64c aac6fd70 1768170f f9b7cd04\n";
}();

// `s` with every `from` replaced by `to`.
std::string replaced(std::string s, const std::string& from,
                     const std::string& to) {
  for (auto p = s.find(from); p != s.npos; p = s.find(from, p + to.size()))
    s.replace(p, from.size(), to);
  return s;
}

}  // namespace

TEST(LeapSecondList, PublishedListMatchesBuiltInSchedule) {
  // Windows line ends and a list without comments parse the same, and the
  // hash ignores comments and white space.
  std::string noComments, line;
  for (std::istringstream in(kPublished); std::getline(in, line);)
    if (line.rfind("#\t", 0) != 0)
      noComments += line.substr(0, line.find("\t#")) + '\n';
  const LeapSecondYears builtIn =
      KvDateTime::LeapSecondTableDataCreator::build(
          KvDateTime::Epoch::Epoch1970, FXP::DataType::doubleT())
          .leapSecondYears;
  for (const std::string& text :
       {kPublished, replaced(kPublished, "\n", "\r\n"), noComments}) {
    const KvDateTime::LeapSecondList list = LeapSecondListParser::parse(text);
    EXPECT_EQ(list.years, builtIn);
    EXPECT_EQ(list.updatedNtp, 3913697179);
    EXPECT_EQ(list.expiresNtp, 3960057600);  // 2025-06-28
    EXPECT_TRUE(list.hashChecked);
    EXPECT_FALSE(LeapSecondListParser::isExpired(list, 3960057599));
    EXPECT_TRUE(LeapSecondListParser::isExpired(list, 3960057600));
  }
}

TEST(LeapSecondList, NegativeLeapSecondAndNoHash) {
  const auto list = LeapSecondListParser::parse(
      "2272060800 10\n2287785600 9\n2303683200 10 # back\n");
  const LeapSecondYears expected = {{1972, {-1, 1}}};
  EXPECT_EQ(list.years, expected);
  EXPECT_FALSE(list.hashChecked);
  EXPECT_FALSE(list.expiresNtp);
  EXPECT_FALSE(LeapSecondListParser::isExpired(list, 1LL << 40));
}

// A tampered value or hash fails the hash check on its last line.
TEST(LeapSecondList, MalformedOrTamperedInputNamesTheLine) {
  // clang-format off
  const std::pair<std::string, const char*> cases[] = {
      {replaced(kPublished, "3960057600", "3960057601"), "Hash 32"},
      {replaced(kPublished, "f9b7cd04", "f9b7cd4"), "Hash 32"},
      {"", "Empty 1"},
      {"# nothing but a comment\n", "Empty 2"},
      {"2272060800\n", "Line 1"},
      {"2272060800 10 11\n", "Line 1"},
      {"2272060800 ten\n", "Line 1"},
      {"-5 10\n", "Line 1"},
      {"99999999999999999999 10\n", "Line 1"},
      {"#@ soon\n2272060800 10\n", "Line 1"},
      {"#@ 1\n#@ 2\n2272060800 10\n", "Line 2"},
      {"#h 1 2 3\n2272060800 10\n", "Line 1"},
      {"#h 1 2 3 4 123456789\n2272060800 10\n", "Line 1"},
      {"2287785600 11\n", "Start 1"},
      {"2272060800 11\n", "Start 1"},
      {"2272060800 10\n2287785601 11\n", "Date 2"},  // not 00:00
      {"2272060800 10\n2274739200 11\n", "Date 2"},  // 1 Feb
      {"2272060800 10\n\n2287785600 11\n2287785600 12\n", "Date 4"},
      {"2272060800 10\n2240524800 11\n", "Date 2"},           // 1971
      {"2272060800 10\n9223372036854720000 11\n", "Date 2"},  // past 9999
      {"2272060800 10\n2287785600 12\n", "Step 2"},
      {"2272060800 10\n2287785600 10\n", "Step 2"}};
  // clang-format on
  for (const auto& [text, failure] : cases)
    EXPECT_EQ(kvtest::thrownId([&] { LeapSecondListParser::parse(text); }, 0),
              std::string("BadLeapSecondList") + failure)
        << text;
}
