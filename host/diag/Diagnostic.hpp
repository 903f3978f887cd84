// The host's diagnostics service: message identifiers, diagnostic objects and
// the exception that carries one.
//
// A diagnostic is identified by "<catalog>:<id>" (for this library
// "Korvane:DateTime:<Id>") and carries positional arguments. Its message text
// comes from the host's message catalog (MessageCatalog.hpp), with each
// argument inserted where the catalog text says "{N}".
#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace resource_core {

// One positional argument of a message: an integer, a narrow string or a
// 16-bit string, in that order of alternatives.
using MsgArgument = std::variant<std::int64_t, std::string, std::u16string>;

// Threads: a value; a const one may be read from any thread.
class BaseMsgID {
 public:
  BaseMsgID(std::string catalog, std::string id,
            std::vector<MsgArgument> arguments = {})
      : arguments_(std::move(arguments)),
        catalog_(std::move(catalog)),
        id_(std::move(id)) {}

  const std::vector<MsgArgument>& arguments() const noexcept {
    return arguments_;
  }
  const std::string& catalog() const noexcept { return catalog_; }
  const std::string& id() const noexcept { return id_; }
  // "<catalog>:<id>"
  std::string identifier() const { return catalog_ + ':' + id_; }

 private:
  std::vector<MsgArgument> arguments_;
  std::string catalog_;
  std::string id_;
};

}  // namespace resource_core

// A created diagnostic: the identifier, its arguments and the rendered text.
//
// Threads: not changed after creation, so a const one may be read from any
// thread; the owning handle itself is passed on, not shared.
class kvsvDiagnosticImpl {
 public:
  kvsvDiagnosticImpl(const resource_core::BaseMsgID& msg, std::string context);

  const std::string& identifier() const noexcept { return identifier_; }
  const std::vector<resource_core::MsgArgument>& arguments() const noexcept {
    return arguments_;
  }
  // The catalog text with the arguments inserted; never empty.
  const std::string& message() const noexcept { return message_; }
  // The free text the creator attached (usually empty).
  const std::string& context() const noexcept { return context_; }

 private:
  std::string identifier_;
  std::vector<resource_core::MsgArgument> arguments_;
  std::string message_;
  std::string context_;
};

// The handle validators return: owning, null when the input was valid.
using kvsvDiagnostic = std::unique_ptr<kvsvDiagnosticImpl>;

namespace foundation::core::except {

// The host's exception: it carries one diagnostic.
//
// Threads: copies share one const diagnostic through an atomic count, so
// copies may travel to and be read on other threads.
class IException : public std::exception {
 public:
  // `context` is extra text for what(); the diagnostic itself is unchanged.
  explicit IException(std::shared_ptr<const kvsvDiagnosticImpl> diagnostic,
                      const std::string& context = {});

  const std::string& identifier() const noexcept {
    return diagnostic_->identifier();
  }
  const std::vector<resource_core::MsgArgument>& arguments() const noexcept {
    return diagnostic_->arguments();
  }
  const std::string& message() const noexcept { return diagnostic_->message(); }
  const kvsvDiagnosticImpl& diagnostic() const noexcept { return *diagnostic_; }
  // "<identifier>: <message>"
  const char* what() const noexcept override { return what_.c_str(); }

 private:
  // Shared so that copying an exception while it propagates cannot throw.
  std::shared_ptr<const kvsvDiagnosticImpl> diagnostic_;
  std::string what_;
};

}  // namespace foundation::core::except

namespace foundation::core::diag {

// Ends the process after printing where it happened. Does not return.
[[noreturn]] void terminate(const char* message, const char* file, int line,
                            const char* function) noexcept;

}  // namespace foundation::core::diag

// Threads: the service functions below use no shared mutable state; any
// thread may call them.
// Creates a diagnostic for `msg`; `context` is free text kept beside it.
kvsvDiagnostic kvsvCreateDiagnostic(const resource_core::BaseMsgID& msg,
                                    const std::string& context);

// Throws an IException that takes over `diagnostic` (left null afterwards).
// `context`, when not null and not empty, is appended to the exception's
// what() text. A null diagnostic is a caller error and throws
// std::invalid_argument instead.
[[noreturn]] void kvsvThrowIExceptionFromDiagnostic(kvsvDiagnostic& diagnostic,
                                                    const char* context);

// Makes a new diagnostic with the same identifier, arguments and message as
// the one `e` carries. `flags` is reserved by the host and ignored here.
kvsvDiagnostic kvsvCreateDiagnosticFromIException(
    const foundation::core::except::IException& e, int flags);
