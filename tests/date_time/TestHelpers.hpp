// Helpers shared by the library's tests.
#pragma once

#include <stdexcept>
#include <string>

#include "date_time/DateTimeStruct.hpp"
#include "host/diag/Diagnostic.hpp"

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

// The Id an operation throws, the what() text of a standard exception, or ""
// when it returns normally.
template <typename F>
std::string thrownId(F&& f) {
  try {
    f();
  } catch (const foundation::core::except::IException& e) {
    return idPart(e.identifier());
  } catch (const std::exception& e) {
    return e.what();
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
