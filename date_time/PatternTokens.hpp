// The pattern grammar shared by DateTimeStructFormatter and DateTimeParser:
// the letter alphabet, quoting, runs and the pattern problems, in one place
// so that what the formatter writes and what the parser reads cannot drift
// apart. Private to the library: not installed, not included by a public
// header.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "date_time/diagnostics/MessageIds.hpp"
#include "host/diag/Diagnostic.hpp"

namespace KvDateTime::detail {

// The pattern letters. Case matters: M/m, D/d, H/h and S/s differ.
inline constexpr std::u16string_view tokenAlphabet = u"tGyuMdDeahHmsS";

// What one character starts, outside quotes.
enum class CharClass : std::uint8_t { Literal, Apostrophe, Field, BadLetter };

inline constexpr std::array<CharClass, 128> kCharClass = [] {
  std::array<CharClass, 128> table{};  // Literal
  for (char16_t c = u'A'; c <= u'Z'; ++c) table[c] = CharClass::BadLetter;
  for (char16_t c = u'a'; c <= u'z'; ++c) table[c] = CharClass::BadLetter;
  for (char16_t c : tokenAlphabet) table[c] = CharClass::Field;
  table[u'\''] = CharClass::Apostrophe;
  return table;
}();

// Units of 128 and above are literal: non-ASCII text in 16-bit patterns, and
// every byte of a multi-byte character in UTF-8 ones.
constexpr CharClass classOf(char16_t c) noexcept {
  return c < 128 ? kCharClass[c] : CharClass::Literal;
}

template <typename Char>
std::size_t runLength(std::basic_string_view<Char> text,
                      std::size_t start) noexcept {
  const Char c = text[start];
  std::size_t end = start + 1;
  while (end < text.size() && text[end] == c) ++end;
  return end - start;
}

enum class Problem {
  None,
  InvalidFormatChar,
  InvalidDayOfWeekToken,
  MultipleFractionalSecondTokens
};

struct PatternProblem {
  Problem kind = Problem::None;
  char16_t letter = 0;  // the offending letter, for InvalidFormatChar
};

// One pattern unit as a 16-bit unit: a UTF-8 byte keeps its value, so it
// can only ever be literal. A code point past the 16-bit range becomes
// U+FFFF, a noncharacter no pattern names, instead of its low half, which
// could pass for an ASCII letter or digit.
template <typename Char>
constexpr char16_t unitOf(Char c) noexcept {
  if constexpr (sizeof(Char) == 1) {
    return static_cast<char16_t>(static_cast<unsigned char>(c));
  } else if constexpr (sizeof(Char) == 4) {
    const auto code = static_cast<std::uint32_t>(c);
    return code > 0xFFFF ? u'\uFFFF' : static_cast<char16_t>(code);
  } else {
    return static_cast<char16_t>(c);
  }
}

// The pattern grammar, the one place that reads quotes and runs. Walks
// `pattern` run by run, in reading order, and calls on `h`:
//   literal(c, n)   n copies of c to output: quoted text, characters that are
//                   not letters, and half of each apostrophe run;
//   field(c, n)     an unquoted run of n pattern letters c;
//   problem(p)      a problem of the pattern; the walk goes on only if it
//                   returns true (an InvalidFormatChar run is then skipped).
// Returns whether the pattern is valid. Two fraction runs are a problem only
// once the whole pattern has passed the other checks.
template <typename Char, typename Handler>
bool parsePattern(std::basic_string_view<Char> pattern, Handler& h) {
  bool quoted = false;
  bool valid = true;
  int fractionRuns = 0;
  for (std::size_t i = 0; i < pattern.size();) {
    const char16_t c = unitOf(pattern[i]);
    const std::size_t n = runLength(pattern, i);
    i += n;
    const CharClass cls = classOf(c);
    if (cls == CharClass::Apostrophe) {
      quoted ^= (n & 1) != 0;
      h.literal(u'\'', n / 2);
      continue;
    }
    // Checked inside quotes too: six or more 'e' are refused wherever they
    // stand, so that an unclosed quote cannot hide a mistyped field.
    if (c == u'e' && n >= 6) {
      valid = false;
      if (!h.problem({Problem::InvalidDayOfWeekToken, 0})) return false;
    }
    if (quoted || cls == CharClass::Literal) {
      h.literal(c, n);
    } else if (cls == CharClass::BadLetter) {
      valid = false;
      if (!h.problem({Problem::InvalidFormatChar, c})) return false;
    } else {
      fractionRuns += c == u'S';
      h.field(c, n);
    }
  }
  if (valid && fractionRuns >= 2) {
    h.problem({Problem::MultipleFractionalSecondTokens, 0});
    return false;
  }
  return valid;
}

template <typename Handler>
bool parsePattern(std::u16string_view pattern, Handler& h) {
  return parsePattern<char16_t, Handler>(pattern, h);
}

// Keeps the first problem and stops the walk there; ignores the rest. The
// base of the handlers that stop at a problem.
struct FirstProblem {
  PatternProblem first;
  void literal(char16_t, std::size_t) noexcept {}
  void field(char16_t, std::size_t) noexcept {}
  bool problem(PatternProblem p) noexcept {
    first = p;
    return false;
  }
};

// A text as a diagnostic argument in the caller's own encoding: UTF-8 as a
// narrow string, 16-bit text as a 16-bit string.
template <typename Char>
resource_core::MsgArgument textArgument(std::basic_string_view<Char> text) {
  return resource_core::MsgArgument(std::basic_string<Char>(text));
}

// Code points have no argument type of their own: they go as UTF-8, with
// U+FFFD for a surrogate or a value past U+10FFFF, as 16-bit text does for
// an unpaired surrogate.
inline resource_core::MsgArgument textArgument(std::u32string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char32_t c : text) {
    if ((c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF) c = 0xFFFD;
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | c >> 6);
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | c >> 12);
      out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | c >> 18);
      out += static_cast<char>(0x80 | (c >> 12 & 0x3F));
      out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return resource_core::MsgArgument(std::move(out));
}

template <typename Char>
kvsvDiagnostic diagnosticFor(const PatternProblem& problem,
                             std::basic_string_view<Char> pattern) {
  using Korvane::DateTime::makeMsgId;
  using Korvane::DateTime::MsgId;
  using resource_core::MsgArgument;
  MsgId id = MsgId::InvalidFormatChar;
  std::vector<MsgArgument> arguments{textArgument(pattern)};
  switch (problem.kind) {
    case Problem::None:
      return nullptr;
    case Problem::InvalidFormatChar:
      id = MsgId::InvalidFormatChar;
      if constexpr (sizeof(Char) == 1) {
        arguments.emplace_back(
            std::string(1, static_cast<char>(problem.letter)));
      } else {
        arguments.emplace_back(std::u16string(1, problem.letter));
      }
      break;
    case Problem::InvalidDayOfWeekToken:
      id = MsgId::InvalidDayOfWeekToken;
      break;
    case Problem::MultipleFractionalSecondTokens:
      id = MsgId::MultipleFractionalSecondTokens;
      break;
  }
  return kvsvCreateDiagnostic(makeMsgId(id, std::move(arguments)),
                              std::string());
}

inline kvsvDiagnostic diagnosticFor(const PatternProblem& problem,
                                    std::u16string_view pattern) {
  return diagnosticFor<char16_t>(problem, pattern);
}

}  // namespace KvDateTime::detail
