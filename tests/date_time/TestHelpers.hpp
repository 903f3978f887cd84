// Helpers shared by the library's tests.
#pragma once

#include <string>

#include "date_time/DateTimeStruct.hpp"
#include "host/diag/Diagnostic.hpp"

namespace kvtest {

inline constexpr const char* kPrefix = "Korvane:DateTime:";

// The Id part of a full identifier; marked when the catalog part is not the
// library's, so that the comparison fails.
inline std::string idPart(const std::string& full) {
  if (full.rfind(kPrefix, 0) != 0) return "foreign:" + full;
  return full.substr(std::string(kPrefix).size());
}

// The Id of a returned diagnostic ("" for the null handle).
inline std::string idOf(const kvsvDiagnostic& d) {
  return d ? idPart(d->identifier()) : "";
}

// The Id an operation throws ("" when it returns normally).
template <typename F>
std::string thrownId(F&& f) {
  try {
    f();
  } catch (const foundation::core::except::IException& e) {
    return idPart(e.identifier());
  }
  return "";
}

// A record filled field by field, as a host may do: nothing is validated.
inline KvDateTime::DateTimeStruct handFilled(double y, double mo, double d,
                                             double h, double mi, double s) {
  KvDateTime::DateTimeStruct v;
  v.year = y, v.month = mo, v.day = d, v.hour = h, v.minute = mi, v.second = s;
  return v;
}

}  // namespace kvtest
