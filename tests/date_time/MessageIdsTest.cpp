// The library's list of message identifiers against the host's catalog and
// against the identifiers hosts match on.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <string_view>

#include "date_time/diagnostics/MessageIds.hpp"
#include "host/diag/MessageCatalog.hpp"

namespace {

namespace kd = Korvane::DateTime;
constexpr std::string_view kPrefix = "Korvane:DateTime:";

std::string full(std::string_view id) {
  return std::string(kPrefix) + std::string(id);
}

// A catalog text never repeats the identifier; the fallback for an unknown
// one does.
TEST(MessageIdCatalog, EveryIdHasText) {
  const auto catalog = resource_core::catalogIdentifiers();
  for (const char* id : kd::kMsgIdNames) {
    SCOPED_TRACE(id);
    EXPECT_TRUE(std::binary_search(catalog.begin(), catalog.end(), full(id)));
    EXPECT_EQ(resource_core::renderMessage(full(id), {}).find("Korvane:"),
              std::string::npos);
  }
}

TEST(MessageIdCatalog, EveryCatalogIdIsListed) {
  const std::set<std::string_view> listed(kd::kMsgIdNames.begin(),
                                          kd::kMsgIdNames.end());
  EXPECT_EQ(listed.size(), kd::kMsgIdNames.size()) << "an Id listed twice";
  int ours = 0;
  for (std::string_view id : resource_core::catalogIdentifiers()) {
    if (id.substr(0, kPrefix.size()) != kPrefix) continue;
    ++ours;
    EXPECT_EQ(listed.count(id.substr(kPrefix.size())), 1u) << id;
  }
  EXPECT_EQ(ours, static_cast<int>(kd::kMsgIdNames.size()));
}

// The identifiers hosts match on, spelled out here rather than taken from
// the list: a renamed entry must fail.
TEST(MessageIdCatalog, HostVisibleIdsKeepTheirSpelling) {
  const std::set<std::string_view> listed(kd::kMsgIdNames.begin(),
                                          kd::kMsgIdNames.end());
  // clang-format off
  for (std::string_view id : {
           "BadYear", "BadMonth", "BadDayOfMonth", "BadHour", "BadMinute", "BadSecond", "BadSecondUTC",
           "BadLeapSecond", "BadYearModelConfig", "BadTAIModelConfig", "BadLeapSecondBoolTimeStandard",
           "BadLeapSecondBoolTimestamp", "TimestampIsNegativeLeapSecond", "TDBTSOnlySupportJulianDayTU",
           "TDBTSOnlySupportDoubleSDT", "InvalidFormatChar", "InvalidDayOfWeekToken",
           "MultipleFractionalSecondTokens", "BadLeapSecondListLine", "BadLeapSecondListStart",
           "BadLeapSecondListDate", "BadLeapSecondListStep", "BadLeapSecondListEmpty", "BadLeapSecondListHash"})
    // clang-format on
    EXPECT_EQ(listed.count(id), 1u) << id;
  EXPECT_STREQ(kd::idName(kd::MsgId::BadSecondUTC), "BadSecondUTC");
  EXPECT_STREQ(kd::idName(kd::MsgId::BadLeapSecondListHash),
               "BadLeapSecondListHash");
}

}  // namespace
