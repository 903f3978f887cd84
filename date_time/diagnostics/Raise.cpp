#include "date_time/diagnostics/Raise.hpp"

void kvsvThrowIException(const resource_core::BaseMsgID& msg) {
  kvsvDiagnostic diagnostic = kvsvCreateDiagnostic(msg, std::string());
  kvsvThrowIExceptionFromDiagnostic(diagnostic, nullptr);
  foundation::core::diag::terminate(
      "unreachable", "kvsv_diagnostic", 445,
      "void kvsvThrowIException(const resource_core::BaseMsgID&)");
}

namespace Korvane::DateTime {

kvsvDiagnostic makeDiagnostic(MsgId id) {
  return kvsvCreateDiagnostic(makeMsgId(id), std::string());
}

}  // namespace Korvane::DateTime
