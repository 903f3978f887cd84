#include <gtest/gtest.h>

#include "host/diag/Diagnostic.hpp"
#include "host/diag/MessageCatalog.hpp"

namespace {

using resource_core::MsgArgument;

TEST(MessageCatalog, EveryLibraryIdentifierHasItsOwnText) {
  for (const char* id :
       {"BadYear", "BadMonth", "BadDayOfMonth", "BadHour", "BadMinute",
        "BadSecond", "BadSecondUTC", "BadLeapSecond", "BadYearModelConfig",
        "BadTAIModelConfig", "BadLeapSecondBoolTimeStandard",
        "BadLeapSecondBoolTimestamp", "TimestampIsNegativeLeapSecond",
        "TDBTSOnlySupportJulianDayTU", "TDBTSOnlySupportDoubleSDT",
        "InvalidFormatChar", "InvalidDayOfWeekToken",
        "MultipleFractionalSecondTokens"}) {
    // The fallback for an unknown identifier repeats it; a catalog text never
    // does.
    const std::string text =
        resource_core::renderMessage(std::string("Korvane:DateTime:") + id, {});
    EXPECT_EQ(text.find("Korvane:"), std::string::npos) << id << ": " << text;
  }
  EXPECT_EQ(resource_core::renderMessage("Other:Thing",
                                         {MsgArgument(std::int64_t{-42})}),
            "Other:Thing [-42]");
}

TEST(MessageCatalog, InsertsUtf16ArgumentsAsUtf8) {
  const std::string text = resource_core::renderMessage(
      "Korvane:DateTime:InvalidFormatChar",
      {MsgArgument(std::u16string(u"\u5e74 \U0001F600 Q")),
       MsgArgument(std::u16string(u"Q"))});
  EXPECT_NE(text.find("\"\xE5\xB9\xB4 \xF0\x9F\x98\x80 Q\""), std::string::npos)
      << text;
  EXPECT_NE(text.find("'Q'"), std::string::npos) << text;
  // Unpaired surrogates cannot be encoded and become U+FFFD.
  EXPECT_EQ(resource_core::toUtf8(
                std::u16string{char16_t(0xDC00), u'a', char16_t(0xD800)}),
            "\xEF\xBF\xBD"
            "a\xEF\xBF\xBD");
}

TEST(DiagnosticService, ThrowHandsTheDiagnosticToTheException) {
  kvsvDiagnostic d = kvsvCreateDiagnostic(
      resource_core::BaseMsgID(
          "Korvane:DateTime", "TDBTSOnlySupportDoubleSDT",
          {MsgArgument(std::string("signed fixed point"))}),
      "");
  try {
    kvsvThrowIExceptionFromDiagnostic(d, "while converting");
    FAIL() << "did not throw";
  } catch (const foundation::core::except::IException& e) {
    EXPECT_EQ(d, nullptr);  // ownership moved into the exception
    EXPECT_EQ(e.identifier(), "Korvane:DateTime:TDBTSOnlySupportDoubleSDT");
    const std::string what = e.what();
    EXPECT_EQ(what.rfind("Korvane:DateTime:TDBTSOnlySupportDoubleSDT: ", 0), 0u)
        << what;
    EXPECT_NE(what.find("signed fixed point"), std::string::npos) << what;
    EXPECT_NE(what.find("(while converting)"), std::string::npos) << what;
    const kvsvDiagnostic copy = kvsvCreateDiagnosticFromIException(e, 1);
    EXPECT_EQ(copy->identifier(), e.identifier());
    EXPECT_EQ(copy->message(), e.message());
    EXPECT_EQ(copy->arguments(), e.arguments());
  }
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
