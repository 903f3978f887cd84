#include <gtest/gtest.h>

#include "date_time/DateTimeUtilities.hpp"
#include "date_time/diagnostics/MessageIds.hpp"
#include "date_time/diagnostics/Raise.hpp"

namespace {

using foundation::core::except::IException;

TEST(RaisedIdentifiers, CarryCatalogIdAndExactlyTheirArguments) {
  struct Case {
    resource_core::BaseMsgID msg;
    std::string identifier;
    std::size_t argumentCount;
  };
  const Case cases[] = {
      {Korvane::DateTime::BadYear(), "Korvane:DateTime:BadYear", 0},
      {Korvane::DateTime::BadLeapSecondBoolTimeStandard(),
       "Korvane:DateTime:BadLeapSecondBoolTimeStandard", 0},
      {Korvane::DateTime::TDBTSOnlySupportJulianDayTU(
           std::string("Julian date")),
       "Korvane:DateTime:TDBTSOnlySupportJulianDayTU", 1},
      {Korvane::DateTime::TDBTSOnlySupportDoubleSDT(std::string("double")),
       "Korvane:DateTime:TDBTSOnlySupportDoubleSDT", 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.identifier);
    try {
      kvsvThrowIException(c.msg);
      FAIL() << "returned";
    } catch (const IException& e) {
      EXPECT_EQ(e.identifier(), c.identifier);
      EXPECT_EQ(e.arguments().size(), c.argumentCount);
      EXPECT_EQ(e.arguments(), c.msg.arguments());
      if (c.argumentCount == 1) {
        // Names reach the message as words, in the narrow-string alternative.
        EXPECT_TRUE(std::holds_alternative<std::string>(e.arguments()[0]));
        EXPECT_NE(e.message().find(std::get<std::string>(e.arguments()[0])),
                  std::string::npos);
      }
    }
  }
}

TEST(RaisedIdentifiers, ValidatorsReturnRatherThanThrow) {
  using KvDateTime::DateTimeUtilities;
  using KvDateTime::TimeStandard;
  kvsvDiagnostic d;
  EXPECT_NO_THROW(d = DateTimeUtilities::validateDateTime(
                      {2023, 2, 29, 0, 0, 0}, TimeStandard::UTC));
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(d->identifier(), "Korvane:DateTime:BadDayOfMonth");
  EXPECT_TRUE(d->arguments().empty());
  EXPECT_EQ(DateTimeUtilities::validateDateTime({2024, 2, 29, 0, 0, 0},
                                                TimeStandard::UTC),
            nullptr);
}

}  // namespace
