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

// Every scalar value survives UTF-16 -> UTF-8 (toUtf8) -> UTF-16; the
// edges of each sequence length and of the surrogate gap decode, and every
// malformed form is refused at its own first byte.
TEST(Utf8Decoding, EveryScalarValueRoundTripsThroughToUtf8) {
  for (char32_t cp = 0; cp <= 0x10FFFF; ++cp) {
    if (cp >= 0xD800 && cp <= 0xDFFF) continue;
    const std::u16string unit =
        cp < 0x10000
            ? std::u16string(1, static_cast<char16_t>(cp))
            : std::u16string{
                  static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10)),
                  static_cast<char16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF))};
    std::string framed = "<";
    framed += resource_core::toUtf8(unit);
    framed += '>';
    std::u16string want = u"<";
    want += unit;
    want += u'>';
    const auto back = resource_core::toUtf16(framed);
    ASSERT_TRUE(back.has_value()) << std::hex << static_cast<std::uint32_t>(cp);
    ASSERT_EQ(*back, want) << std::hex << static_cast<std::uint32_t>(cp);
  }
}

TEST(Utf8Decoding, RefusesMalformedSequencesAtTheirFirstByte) {
  struct Case {
    std::string_view text;
    std::size_t at;
  };
  constexpr Case kBad[] = {{"\x80", 0},
                           {"ab\xBF", 2},
                           {"\xC0\x80", 0},
                           {"\xC1\xBF", 0},
                           {"\xE0\x9F\xBF", 0},
                           {"\xED\xA0\x80", 0},
                           {"x\xED\xBF\xBF", 1},
                           {"\xF0\x8F\xBF\xBF", 0},
                           {"\xF4\x90\x80\x80", 0},
                           {"\xF5\x80\x80\x80", 0},
                           {"\xFF", 0},
                           {"ab\xC3", 2},
                           {"\xE2\x82", 0},
                           {"\xC3(", 0},
                           {"'\xC3' yyyy", 1},
                           {"\xF0\x9F\x98'", 0}};
  for (const Case& c : kBad) {
    std::size_t at = 99;
    EXPECT_FALSE(resource_core::toUtf16(c.text, &at).has_value()) << c.text;
    EXPECT_EQ(at, c.at) << c.text;
  }
  EXPECT_EQ(resource_core::toUtf16("\xED\x9F\xBF\xEE\x80\x80\xF4\x8F\xBF\xBF"),
            std::u16string(u"\uD7FF\uE000\U0010FFFF"));
  EXPECT_EQ(resource_core::toUtf16(std::string_view("a\0b", 3)),
            std::u16string(u"a\0b", 3));
}

}  // namespace
