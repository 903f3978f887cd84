#include <gtest/gtest.h>

#include "date_time/diagnostics/MessageIds.hpp"
#include "date_time/diagnostics/Raise.hpp"

namespace {

TEST(RaisedIdentifiers, CarryCatalogIdAndExactlyTheirArguments) {
  namespace K = Korvane::DateTime;
  const std::pair<resource_core::BaseMsgID, const char*> cases[] = {
      {K::BadYear(), "Korvane:DateTime:BadYear"},
      {K::BadLeapSecondBoolTimeStandard(),
       "Korvane:DateTime:BadLeapSecondBoolTimeStandard"},
      {K::TDBTSOnlySupportJulianDayTU(std::string("Julian date")),
       "Korvane:DateTime:TDBTSOnlySupportJulianDayTU"},
      {K::TDBTSOnlySupportDoubleSDT(std::string("double")),
       "Korvane:DateTime:TDBTSOnlySupportDoubleSDT"},
  };
  for (const auto& [msg, identifier] : cases) {
    try {
      kvsvThrowIException(msg);
      ADD_FAILURE() << "returned";
    } catch (const foundation::core::except::IException& e) {
      EXPECT_EQ(e.identifier(), identifier);
      EXPECT_EQ(e.arguments(), msg.arguments());
      // Names reach the message in words, as the narrow-string alternative.
      for (const auto& a : e.arguments()) {
        ASSERT_TRUE(std::holds_alternative<std::string>(a));
        EXPECT_NE(e.message().find(std::get<std::string>(a)),
                  std::string::npos);
      }
    }
  }
}

}  // namespace
