#include <gtest/gtest.h>

#include <string>

#include "date_time/ConstantTables.hpp"
#include "date_time/LeapSecondList.hpp"
#include "host/diag/Diagnostic.hpp"

using KvDateTime::LeapSecondListParser;
using KvDateTime::LeapSecondYears;

namespace {

// The list as published, with its real layout: tab-separated fields,
// comments after the data, update, expiry and hash lines. The NTP values
// are the announced leap-second dates; the hash was computed with Python's
// hashlib over the digits of "#$", "#@" and the data lines.
constexpr const char* kPublished = R"(#	Leap second list (sample for the tests)
#
#$	 3913697179
#
#@	3960057600
#
2272060800	10	# 1 Jan 1972
2287785600	11	# 1 Jul 1972
2303683200	12	# 1 Jan 1973
2335219200	13	# 1 Jan 1974
2366755200	14	# 1 Jan 1975
2398291200	15	# 1 Jan 1976
2429913600	16	# 1 Jan 1977
2461449600	17	# 1 Jan 1978
2492985600	18	# 1 Jan 1979
2524521600	19	# 1 Jan 1980
2571782400	20	# 1 Jul 1981
2603318400	21	# 1 Jul 1982
2634854400	22	# 1 Jul 1983
2698012800	23	# 1 Jul 1985
2776982400	24	# 1 Jan 1988
2840140800	25	# 1 Jan 1990
2871676800	26	# 1 Jan 1991
2918937600	27	# 1 Jul 1992
2950473600	28	# 1 Jul 1993
2982009600	29	# 1 Jul 1994
3029443200	30	# 1 Jan 1996
3076704000	31	# 1 Jul 1997
3124137600	32	# 1 Jan 1999
3345062400	33	# 1 Jan 2006
3439756800	34	# 1 Jan 2009
3550089600	35	# 1 Jul 2012
3644697600	36	# 1 Jul 2015
3692217600	37	# 1 Jan 2017
#
#h	43f05a09 47c3e64c aac6fd70 1768170f f9b7cd04
)";

LeapSecondYears builtInSchedule() {
  using KvDateTime::detail::kLeapSecondYears;
  using KvDateTime::detail::leapSecondSchedule;
  LeapSecondYears m;
  for (int i = 0; i < kLeapSecondYears; ++i) {
    m[static_cast<std::int32_t>(leapSecondSchedule[i])] = {
        static_cast<std::int8_t>(leapSecondSchedule[kLeapSecondYears + i]),
        static_cast<std::int8_t>(leapSecondSchedule[2 * kLeapSecondYears + i])};
  }
  return m;
}

std::string replaceAll(std::string s, const std::string& from,
                       const std::string& to) {
  for (std::size_t p = 0; (p = s.find(from, p)) != std::string::npos;
       p += to.size()) {
    s.replace(p, from.size(), to);
  }
  return s;
}

// "<Id>@<line>" of the failure, or "" when the text parses.
std::string failureOf(const std::string& text) {
  try {
    LeapSecondListParser::parse(text);
  } catch (const foundation::core::except::IException& e) {
    const auto& args = e.arguments();
    const std::int64_t* line =
        args.empty() ? nullptr : std::get_if<std::int64_t>(&args[0]);
    return e.identifier() + '@' + (line ? std::to_string(*line) : "?");
  }
  return "";
}

}  // namespace

TEST(LeapSecondList, PublishedListMatchesBuiltInSchedule) {
  // Windows line ends and a list without comments parse the same, and the
  // hash ignores comments and white space.
  std::string noComments;
  for (std::size_t p = 0, e; p < std::string(kPublished).size(); p = e + 1) {
    e = std::string(kPublished).find('\n', p);
    std::string line = std::string(kPublished).substr(p, e - p);
    if (line.rfind("#\t", 0) == 0 || line == "#") continue;
    noComments += line.substr(0, line.find("\t#")) + '\n';
  }
  for (const std::string& text :
       {std::string(kPublished), replaceAll(kPublished, "\n", "\r\n"),
        noComments}) {
    const KvDateTime::LeapSecondList list = LeapSecondListParser::parse(text);
    EXPECT_EQ(list.years, builtInSchedule());
    EXPECT_EQ(list.updatedNtp, 3913697179);
    EXPECT_EQ(list.expiresNtp, 3960057600);  // 2025-06-28
    EXPECT_TRUE(list.hashChecked);
    EXPECT_FALSE(LeapSecondListParser::isExpired(list, 3960057599));
    EXPECT_TRUE(LeapSecondListParser::isExpired(list, 3960057600));
  }
}

TEST(LeapSecondList, TamperedDataFailsTheHash) {
  EXPECT_EQ(failureOf(replaceAll(kPublished, "3960057600", "3960057601")),
            "Korvane:DateTime:BadLeapSecondListHash@36");
  EXPECT_EQ(failureOf(replaceAll(kPublished, "f9b7cd04", "f9b7cd4")),
            "Korvane:DateTime:BadLeapSecondListHash@36");
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

TEST(LeapSecondList, MalformedInputNamesTheLine) {
  struct Case {
    const char* text;
    const char* failure;
  };
  const std::string start = "2272060800 10\n";
  const Case cases[] = {
      {"", "Empty@1"},
      {"# nothing but a comment\n", "Empty@2"},
      {"2272060800\n", "Line@1"},
      {"2272060800 10 11\n", "Line@1"},
      {"2272060800 ten\n", "Line@1"},
      {"-5 10\n", "Line@1"},
      {"99999999999999999999 10\n", "Line@1"},
      {"#@ soon\n2272060800 10\n", "Line@1"},
      {"#@ 1\n#@ 2\n2272060800 10\n", "Line@2"},
      {"#h 1 2 3\n2272060800 10\n", "Line@1"},
      {"#h 1 2 3 4 123456789\n2272060800 10\n", "Line@1"},
      {"2287785600 11\n", "Start@1"},
      {"2272060800 11\n", "Start@1"},
      {"2272060800 10\n2287785601 11\n", "Date@2"},  // not 00:00
      {"2272060800 10\n2274739200 11\n", "Date@2"},  // 1 Feb
      {"2272060800 10\n\n2287785600 11\n2287785600 12\n", "Date@4"},
      {"2272060800 10\n2240524800 11\n", "Date@2"},           // 1971
      {"2272060800 10\n9223372036854720000 11\n", "Date@2"},  // past 9999
      {"2272060800 10\n2287785600 12\n", "Step@2"},
      {"2272060800 10\n2287785600 10\n", "Step@2"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(failureOf(c.text),
              std::string("Korvane:DateTime:BadLeapSecondList") + c.failure);
  }
}
