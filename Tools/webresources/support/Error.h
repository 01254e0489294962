#ifndef TOOLS_WEBRESOURCES_SUPPORT_ERROR_H_
#define TOOLS_WEBRESOURCES_SUPPORT_ERROR_H_

#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>

namespace webresources {

/// What keeps a command from answering, or from doing what it was asked: what was tried, on what,
/// and why it failed. It is thrown by value and caught by reference; main() prints it, and --json
/// puts its parts into the document.
class Error : public std::runtime_error {
 public:
  /// Makes an error that reads "cannot `operation` `object`: `reason`", for example "cannot read
  /// site/a: Permission denied". The object is in its own bytes: see Printable().
  Error(std::string operation, std::string object, std::string reason)
      : std::runtime_error("cannot " + operation + " " + object + ": " + reason),
        operation_(std::move(operation)),
        object_(std::move(object)),
        reason_(std::move(reason)) {}

  /// An error with the reason that errno gives. Call it before anything else can change errno.
  static Error FromErrno(std::string operation, std::string object) {
    return Error(std::move(operation), std::move(object), std::generic_category().message(errno));
  }

  // The three parts of what(), for documents: what was tried, as an infinitive ("read"); the path
  // or thing that it was tried on; and why it failed.

  const std::string& operation() const { return operation_; }
  const std::string& object() const { return object_; }
  const std::string& reason() const { return reason_; }

 private:
  std::string operation_;
  std::string object_;
  std::string reason_;
};

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_SUPPORT_ERROR_H_
