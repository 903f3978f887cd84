#include <gtest/gtest.h>

#include "host/diag/Diagnostic.hpp"
#include "host/diag/MessageCatalog.hpp"

namespace {

using resource_core::MsgArgument;
using resource_core::renderMessage;

// The fallback for an unknown identifier repeats it with its arguments; a
// catalog text never does.
TEST(MessageCatalog, EveryLibraryIdentifierHasItsOwnText) {
  for (const char* id :
       {"BadYear", "BadMonth", "BadDayOfMonth", "BadHour", "BadMinute",
        "BadSecond", "BadSecondUTC", "BadLeapSecond", "BadYearModelConfig",
        "BadTAIModelConfig", "BadLeapSecondBoolTimeStandard",
        "BadLeapSecondBoolTimestamp", "TimestampIsNegativeLeapSecond",
        "TDBTSOnlySupportJulianDayTU", "TDBTSOnlySupportDoubleSDT",
        "InvalidFormatChar", "InvalidDayOfWeekToken",
        "MultipleFractionalSecondTokens"}) {
    EXPECT_EQ(renderMessage(std::string("Korvane:DateTime:") + id, {})
                  .find("Korvane:"),
              std::string::npos)
        << id;
  }
  EXPECT_EQ(renderMessage("Other:Thing", {MsgArgument(std::int64_t{-42})}),
            "Other:Thing [-42]");
}

// UTF-16 arguments go in as UTF-8; unpaired surrogates become U+FFFD.
TEST(MessageCatalog, InsertsUtf16ArgumentsAsUtf8) {
  const std::string text =
      renderMessage("Korvane:DateTime:InvalidFormatChar",
                    {MsgArgument(std::u16string(u"\u5e74 \U0001F600 \xdc00")),
                     MsgArgument(std::u16string(u"Q"))});
  EXPECT_NE(text.find("\"\xE5\xB9\xB4 \xF0\x9F\x98\x80 \xEF\xBF\xBD\""),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("'Q'"), std::string::npos) << text;
}

TEST(DiagnosticService, ThrowHandsTheDiagnosticToTheException) {
  kvsvDiagnostic d = kvsvCreateDiagnostic(
      resource_core::BaseMsgID("Korvane:DateTime", "TDBTSOnlySupportDoubleSDT",
                               {MsgArgument(std::string("fixed point"))}),
      "");
  try {
    kvsvThrowIExceptionFromDiagnostic(d, "while converting");
  } catch (const foundation::core::except::IException& e) {
    EXPECT_EQ(d, nullptr);  // ownership moved into the exception
    EXPECT_NE(e.message().find("fixed point"), std::string::npos);
    EXPECT_EQ(std::string(e.what()),
              "Korvane:DateTime:TDBTSOnlySupportDoubleSDT: " + e.message() +
                  " (while converting)");
    const kvsvDiagnostic copy = kvsvCreateDiagnosticFromIException(e, 1);
    EXPECT_EQ(std::tie(copy->identifier(), copy->message(), copy->arguments()),
              std::tie(e.identifier(), e.message(), e.arguments()));
  }
  EXPECT_EQ(d, nullptr);  // and it was thrown
  kvsvDiagnostic none;
  EXPECT_THROW(kvsvThrowIExceptionFromDiagnostic(none, nullptr),
               std::invalid_argument);
}

TEST(DiagnosticServiceDeathTest, TerminateEndsTheProcessWithItsMessage) {
  EXPECT_DEATH(
      foundation::core::diag::terminate("unreachable", "f.cpp", 7, "g()"),
      "unreachable.*f.cpp:7 in g\\(\\)");
}

}  // namespace
