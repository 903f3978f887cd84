#include <gtest/gtest.h>

#include "host/diag/Diagnostic.hpp"
#include "host/diag/MessageCatalog.hpp"

namespace {

using foundation::core::except::IException;
using resource_core::BaseMsgID;
using resource_core::MsgArgument;

TEST(MessageCatalog, EveryLibraryIdentifierHasItsOwnText) {
  const char* ids[] = {"BadYear",
                       "BadMonth",
                       "BadDayOfMonth",
                       "BadHour",
                       "BadMinute",
                       "BadSecond",
                       "BadSecondUTC",
                       "BadLeapSecond",
                       "BadYearModelConfig",
                       "BadTAIModelConfig",
                       "BadLeapSecondBoolTimeStandard",
                       "BadLeapSecondBoolTimestamp",
                       "TimestampIsNegativeLeapSecond",
                       "TDBTSOnlySupportJulianDayTU",
                       "TDBTSOnlySupportDoubleSDT",
                       "InvalidFormatChar",
                       "InvalidDayOfWeekToken",
                       "MultipleFractionalSecondTokens"};
  for (const char* id : ids) {
    const std::string full = std::string("Korvane:DateTime:") + id;
    SCOPED_TRACE(full);
    const std::string text = resource_core::renderMessage(full, {});
    // The fallback repeats the identifier; a catalog text never does.
    EXPECT_EQ(text.find("Korvane:"), std::string::npos) << text;
    EXPECT_GT(text.size(), 30u);
  }
}

TEST(MessageCatalog, InsertsArgumentsOfEveryKind) {
  const std::string text =
      resource_core::renderMessage("Korvane:DateTime:InvalidFormatChar",
                                   {MsgArgument(std::u16string(u"yyyy Q")),
                                    MsgArgument(std::u16string(u"Q"))});
  EXPECT_NE(text.find("\"yyyy Q\""), std::string::npos) << text;
  EXPECT_NE(text.find("'Q'"), std::string::npos) << text;

  const std::string unknown = resource_core::renderMessage(
      "Other:Thing",
      {MsgArgument(std::int64_t{-42}), MsgArgument(std::string("x"))});
  EXPECT_EQ(unknown, "Other:Thing [-42] [x]");
}

TEST(MessageCatalog, ConvertsUtf16IncludingBrokenSurrogates) {
  struct Case {
    std::u16string in;
    std::string out;
  };
  const Case cases[] = {
      {u"abc", "abc"},
      {u"\u00e9", "\xC3\xA9"},
      {u"\u5e74", "\xE5\xB9\xB4"},
      {u"\U0001F600", "\xF0\x9F\x98\x80"},
      {std::u16string(1, char16_t(0xD800)), "\xEF\xBF\xBD"},  // lone high
      {std::u16string{char16_t(0xDC00), u'a'},
       "\xEF\xBF\xBD"
       "a"},  // lone low
  };
  for (const Case& c : cases) EXPECT_EQ(resource_core::toUtf8(c.in), c.out);
}

TEST(DiagnosticService, ThrowHandsTheDiagnosticToTheException) {
  kvsvDiagnostic d = kvsvCreateDiagnostic(
      BaseMsgID("Korvane:DateTime", "TDBTSOnlySupportDoubleSDT",
                {MsgArgument(std::string("signed fixed point"))}),
      "");
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(d->identifier(), "Korvane:DateTime:TDBTSOnlySupportDoubleSDT");
  try {
    kvsvThrowIExceptionFromDiagnostic(d, "while converting");
    FAIL() << "did not throw";
  } catch (const IException& e) {
    EXPECT_EQ(d, nullptr);  // ownership moved into the exception
    EXPECT_EQ(e.identifier(), "Korvane:DateTime:TDBTSOnlySupportDoubleSDT");
    ASSERT_EQ(e.arguments().size(), 1u);
    EXPECT_EQ(std::get<std::string>(e.arguments()[0]), "signed fixed point");
    const std::string what = e.what();
    EXPECT_EQ(what.rfind("Korvane:DateTime:TDBTSOnlySupportDoubleSDT: ", 0),
              0u);
    EXPECT_NE(what.find("signed fixed point"), std::string::npos);
    EXPECT_NE(what.find("(while converting)"), std::string::npos);

    kvsvDiagnostic copy = kvsvCreateDiagnosticFromIException(e, 1);
    EXPECT_EQ(copy->identifier(), e.identifier());
    EXPECT_EQ(copy->message(), e.message());
    EXPECT_EQ(copy->arguments(), e.arguments());
  }
}

TEST(DiagnosticService, RefusesToThrowANullDiagnostic) {
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
