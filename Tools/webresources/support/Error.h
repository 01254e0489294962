#ifndef TOOLS_WEBRESOURCES_SUPPORT_ERROR_H_
#define TOOLS_WEBRESOURCES_SUPPORT_ERROR_H_

#include <unistd.h>

#include <cerrno>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>

namespace webresources {

/// A failure that ends a command: the failed operation, the object, the reason and the remedy. An
/// Error is thrown by value and caught by reference. main() prints the text, and --json puts the
/// parts into the document.
class Error : public std::runtime_error {
 public:
  /// Makes an error that reads "cannot `operation` `object`: `reason`; `remedy`", for example
  /// "cannot read site/a: Permission denied; run it as root". `object` can have any bytes; the
  /// output escapes them with Printable().
  Error(std::string operation, std::string object, std::string reason,
        std::optional<std::string> remedy = {})
      : std::runtime_error("cannot " + operation + " " + object + ": " + reason +
                           (remedy ? "; " + *remedy : "")),
        operation_(std::move(operation)),
        object_(std::move(object)),
        reason_(std::move(reason)),
        remedy_(std::move(remedy)) {}

  /// Returns an error with the reason that errno gives, and the remedy for this reason. Requires:
  /// errno is unchanged since the failed call.
  static Error FromErrno(std::string operation, std::string object) {
    const bool isDenied = (errno == EACCES || errno == EPERM) && geteuid() != 0;
    const bool isAtLimit = errno == EMFILE || errno == ENFILE;
    const char* const remedy = isDenied    ? "run it as root"
                               : isAtLimit ? "raise the limit with ulimit -n, or end other programs"
                               : errno == EIO ? "check the disk, then try again"
                                              : nullptr;
    return Error(std::move(operation), std::move(object), std::generic_category().message(errno),
                 remedy != nullptr ? std::optional<std::string>(remedy) : std::nullopt);
  }

  // The parts of the message, for documents. The operation is an infinitive ("read"). The object is
  // a path or another noun. The remedy is an imperative.

  const std::string& operation() const { return operation_; }
  const std::string& object() const { return object_; }
  const std::string& reason() const { return reason_; }
  const std::optional<std::string>& remedy() const { return remedy_; }

 private:
  std::string operation_;
  std::string object_;
  std::string reason_;
  std::optional<std::string> remedy_;
};

/// Wrong usage that appears only after a look at the given files. The exit status is kUsage.
class UsageError : public Error {
 public:
  using Error::Error;
};

/// The failed start of a program: no instruction of the program ran.
class CannotStart : public Error {
 public:
  using Error::Error;
};

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_SUPPORT_ERROR_H_
