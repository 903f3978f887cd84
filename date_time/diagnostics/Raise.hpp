// How the library reports failures. Validators return a diagnostic (null when
// valid) and never throw; every other operation throws at the point of
// failure through kvsvThrowIException.
#pragma once

#include <cstddef>

#include "date_time/Export.hpp"
#include "date_time/diagnostics/MessageIds.hpp"
#include "host/diag/Diagnostic.hpp"

// Creates the diagnostic for `msg` and throws it as the host's IException.
// Should the host's throw ever return, the process is terminated: no caller
// may continue past a failure it did not see.
[[noreturn]] KVDT_EXPORT void kvsvThrowIException(
    const resource_core::BaseMsgID& msg);

namespace Korvane::DateTime {

// The diagnostic a validator returns for `id` (no arguments).
KVDT_EXPORT kvsvDiagnostic makeDiagnostic(MsgId id);

// Called inside a handler: throws the host's IException carrying
// "Korvane:DateTime:BatchElementFailed" (the element's index, the handled
// exception's what()) with the handled exception nested in it, so that a
// caller can rethrow the cause, type and all, with std::rethrow_if_nested.
[[noreturn]] KVDT_EXPORT void throwBatchElementFailed(std::size_t index);

// Throws `diagnostic` if it is not null; returns otherwise.
inline void throwIfSet(kvsvDiagnostic diagnostic) {
  if (diagnostic) kvsvThrowIExceptionFromDiagnostic(diagnostic, nullptr);
}

}  // namespace Korvane::DateTime
