#include "host/diag/Diagnostic.hpp"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "host/diag/MessageCatalog.hpp"

kvsvDiagnosticImpl::kvsvDiagnosticImpl(const resource_core::BaseMsgID& msg,
                                       std::string context)
    : identifier_(msg.identifier()),
      arguments_(msg.arguments()),
      message_(resource_core::renderMessage(identifier_, arguments_)),
      context_(std::move(context)) {}

namespace foundation::core::except {

IException::IException(std::shared_ptr<const kvsvDiagnosticImpl> diagnostic,
                       const std::string& context)
    : diagnostic_(std::move(diagnostic)) {
  what_ = diagnostic_->identifier() + ": " + diagnostic_->message();
  for (const std::string* extra : {&diagnostic_->context(), &context}) {
    if (!extra->empty()) what_ += " (" + *extra + ')';
  }
}

}  // namespace foundation::core::except

namespace foundation::core::diag {

void terminate(const char* message, const char* file, int line,
               const char* function) noexcept {
  std::fprintf(stderr, "fatal: %s\n  at %s:%d in %s\n", message ? message : "",
               file ? file : "?", line, function ? function : "?");
  std::fflush(stderr);
  std::abort();
}

}  // namespace foundation::core::diag

kvsvDiagnostic kvsvCreateDiagnostic(const resource_core::BaseMsgID& msg,
                                    const std::string& context) {
  return std::make_unique<kvsvDiagnosticImpl>(msg, context);
}

void kvsvThrowIExceptionFromDiagnostic(kvsvDiagnostic& diagnostic,
                                       const char* context) {
  if (!diagnostic) {
    throw std::invalid_argument(
        "kvsvThrowIExceptionFromDiagnostic: the diagnostic is null (a null "
        "handle means success and cannot be thrown)");
  }
  std::shared_ptr<const kvsvDiagnosticImpl> carried(std::move(diagnostic));
  throw foundation::core::except::IException(std::move(carried),
                                             context ? context : "");
}

kvsvDiagnostic kvsvCreateDiagnosticFromIException(
    const foundation::core::except::IException& e, int /*flags*/) {
  return std::make_unique<kvsvDiagnosticImpl>(e.diagnostic());
}
