#ifndef COMMON_QDO_QDOEXCEPTION_H_
#define COMMON_QDO_QDOEXCEPTION_H_

#include <exception>

class QDOObject;

/// A failure of the dynamic-value code: one code from a fixed vocabulary of fourteen.
///
/// Thrown here: 1 (out of memory), 2 (null) and 3 (wrong type). Thrown by value, caught by
/// reference. Nothing allocates.
class QDOException : public std::exception {
 public:
  explicit QDOException(int code) noexcept : code_(code) {}

  int getCode() const noexcept { return code_; }

  /// The static message of the code. Code 9 and, on purpose, every code outside 0 to 13, negative
  /// ones included, share "Not Enough Information".
  const char* what() const noexcept override;

  /// The process-wide prototype of every out-of-memory report, code 1. Throw a copy of it.
  static QDOException& NotEnoughMemory();

 private:
  int code_;
};

/// A QDOException that names the value concerned.
class QDOObjectException : public QDOException {
 public:
  /// `object` is not owned, may be null, and has meaning only while that value lives.
  QDOObjectException(int code, const QDOObject* object) noexcept
      : QDOException(code), object_(object) {}

  const QDOObject* getObject() const noexcept { return object_; }

 private:
  const QDOObject* object_;
};

#endif  // COMMON_QDO_QDOEXCEPTION_H_
