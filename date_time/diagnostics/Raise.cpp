#include "date_time/diagnostics/Raise.hpp"

#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <utility>

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

void throwBatchElementFailed(std::size_t index) {
  std::string cause = "an unknown error";
  try {
    throw;
  } catch (const std::exception& e) {
    cause = e.what();
  } catch (...) {
  }
  // Built here rather than through kvsvThrowIException: the exception must
  // carry the cause, which the host's throw has no room for.
  std::shared_ptr<const kvsvDiagnosticImpl> diagnostic(
      kvsvCreateDiagnostic(
          makeMsgId(
              MsgId::BatchElementFailed,
              {resource_core::MsgArgument(static_cast<std::int64_t>(index)),
               resource_core::MsgArgument(std::move(cause))}),
          std::string())
          .release());
  std::throw_with_nested(
      foundation::core::except::IException(std::move(diagnostic)));
}

}  // namespace Korvane::DateTime
