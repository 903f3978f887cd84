// The host's message catalog: the text shown for each message identifier.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/diag/Diagnostic.hpp"

// Threads: the catalog is a constant table; any thread may render messages
// at any time.
namespace resource_core {

// The catalog text for "<catalog>:<id>" with "{N}" replaced by argument N
// (16-bit strings are converted to UTF-8, unpaired surrogates to U+FFFD).
// An identifier the catalog does not know renders as the identifier followed
// by its arguments, so a message is never empty.
std::string renderMessage(std::string_view identifier,
                          const std::vector<MsgArgument>& arguments);

// Every identifier the catalog has a text for, in ascending order.
std::vector<std::string_view> catalogIdentifiers();

// UTF-16 to UTF-8; unpaired surrogates become U+FFFD.
std::string toUtf8(std::u16string_view text);

// UTF-8 to UTF-16, strictly: nullopt for anything that is not well-formed
// UTF-8 (a stray continuation byte, a truncated sequence, an overlong form,
// an encoded surrogate, a code point past U+10FFFF), with the offset of the
// first byte of the offending sequence in *invalidAt when given. Text from
// outside (command lines, files) is checked here rather than repaired, so
// that a bad byte never silently takes the bytes after it with it.
std::optional<std::u16string> toUtf16(std::string_view utf8,
                                      std::size_t* invalidAt = nullptr);

}  // namespace resource_core
