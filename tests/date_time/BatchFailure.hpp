// How the array tests and the batch fuzz target compare a failure of the
// Batch functions with a failure of the scalar calls.
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <typeinfo>
#include <variant>

#include "host/diag/Diagnostic.hpp"

namespace kvbatchtest {

// What a failure is: the identifier of a diagnostic, the type of anything
// else.
inline std::string failureOf(std::exception_ptr p) {
  try {
    std::rethrow_exception(p);
  } catch (const foundation::core::except::IException& e) {
    return e.identifier();
  } catch (const std::exception& e) {
    return typeid(e).name();
  } catch (...) {
    return "unknown";
  }
}

// The element a failed batch names and what its nested cause is; index -1
// and the failure itself for anything but "BatchElementFailed" with a cause.
struct BatchFailure {
  std::int64_t index = -1;
  std::string cause;
};

inline BatchFailure batchFailureOf(std::exception_ptr p) {
  try {
    std::rethrow_exception(p);
  } catch (const foundation::core::except::IException& e) {
    if (e.identifier() != "Korvane:DateTime:BatchElementFailed")
      return {-1, e.identifier()};
    const auto* index = std::get_if<std::int64_t>(&e.arguments().at(0));
    try {
      std::rethrow_if_nested(e);
    } catch (...) {
      return {index ? *index : -1, failureOf(std::current_exception())};
    }
    return {-1, "no cause nested"};
  } catch (...) {
    return {-1, failureOf(std::current_exception())};
  }
}

}  // namespace kvbatchtest
