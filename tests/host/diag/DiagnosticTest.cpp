#include <gtest/gtest.h>

#include "host/diag/Diagnostic.hpp"
#include "host/diag/MessageCatalog.hpp"

namespace {

using resource_core::MsgArgument;
using resource_core::renderMessage;

// An identifier the catalog does not know renders as itself with its
// arguments. (The library's own identifiers are held against the catalog
// in tests/date_time/MessageIdsTest.cpp.)
TEST(MessageCatalog, UnknownIdentifierRendersAsItself) {
  EXPECT_EQ(renderMessage("Other:Thing", {MsgArgument(std::int64_t{-42})}),
            "Other:Thing [-42]");
}

// The exception takes the diagnostic over; its text inserts UTF-16
// arguments as UTF-8, an unpaired surrogate as U+FFFD.
TEST(DiagnosticService, ThrowHandsTheDiagnosticToTheException) {
  kvsvDiagnostic d = kvsvCreateDiagnostic(
      resource_core::BaseMsgID(
          "Korvane:DateTime", "InvalidFormatChar",
          {MsgArgument(std::u16string(u"\u5e74 \U0001F600 \xdc00")),
           MsgArgument(std::u16string(u"Q"))}),
      "");
  try {
    kvsvThrowIExceptionFromDiagnostic(d, "while formatting");
  } catch (const foundation::core::except::IException& e) {
    EXPECT_NE(
        e.message().find("\"\xE5\xB9\xB4 \xF0\x9F\x98\x80 \xEF\xBF\xBD\""),
        std::string::npos)
        << e.message();
    EXPECT_NE(e.message().find("'Q'"), std::string::npos) << e.message();
    EXPECT_EQ(std::string(e.what()), "Korvane:DateTime:InvalidFormatChar: " +
                                         e.message() + " (while formatting)");
    const kvsvDiagnostic copy = kvsvCreateDiagnosticFromIException(e, 1);
    EXPECT_EQ(std::tie(copy->identifier(), copy->message(), copy->arguments()),
              std::tie(e.identifier(), e.message(), e.arguments()));
  }
  EXPECT_EQ(d, nullptr);  // thrown, and ownership moved into the exception
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
