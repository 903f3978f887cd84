// Helpers shared by the library's tests.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <variant>

#include "date_time/DateTimeStruct.hpp"
#include "host/diag/Diagnostic.hpp"
#include "host/diag/MessageCatalog.hpp"

namespace kvtest {

// The Id part of a library identifier; anything else is marked foreign, so
// that a comparison with a bare Id fails.
inline std::string idPart(const std::string& full) {
  return full.rfind("Korvane:DateTime:", 0) ? "foreign:" + full
                                            : full.substr(17);
}

// The Id of a returned diagnostic ("" for the null handle).
inline std::string idOf(const kvsvDiagnostic& d) {
  return d ? idPart(d->identifier()) : "";
}

inline std::string argumentText(std::int64_t v) { return std::to_string(v); }
inline std::string argumentText(const std::string& s) { return s; }
inline std::string argumentText(const std::u16string& s) {
  return resource_core::toUtf8(s);
}

// The Id an operation throws, followed by its arguments from `firstArgument`
// on, each after a space; the what() text of a standard exception; or "" when
// it returns normally.
template <typename F>
std::string thrownId(F&& f, std::size_t firstArgument = SIZE_MAX) {
  try {
    f();
  } catch (const foundation::core::except::IException& e) {
    std::string s = idPart(e.identifier());
    for (std::size_t k = firstArgument; k < e.arguments().size(); ++k)
      s += ' ' + std::visit([](const auto& a) { return argumentText(a); },
                            e.arguments()[k]);
    return s;
  } catch (const std::exception& e) {
    return e.what();
  }
  return "";
}

}  // namespace kvtest
