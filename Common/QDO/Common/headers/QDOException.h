#ifndef COMMON_QDO_QDOEXCEPTION_H_
#define COMMON_QDO_QDOEXCEPTION_H_

#include <exception>

class QDOObject;

/// A failure of an operation on dynamic values. The codes 0 to 13 have messages.
///
/// The operations of QDOObject throw only the codes 1 (memory exhausted), 2 (null) and 3 (wrong
/// type). Throw exceptions by value and catch them by reference. The functions of this class
/// allocate no memory. An exception never changes, so several threads may read the same exception.
class QDOException : public std::exception {
 public:
  explicit QDOException(int code) noexcept : code_(code) {}

  int getCode() const noexcept { return code_; }

  /// Returns the message of the code. The string is static: do not free it. The message of code 9,
  /// "Not Enough Information", is also the message of every code outside 0 to 13, on purpose.
  const char* what() const noexcept override;

  /// Returns the prototype with code 1, which lives until the process ends. Throw a copy of the
  /// prototype.
  static QDOException& NotEnoughMemory();

 private:
  int code_;
};

/// A QDOException with a pointer to the value concerned.
class QDOObjectException : public QDOException {
 public:
  /// Stores `object`, which may be null. The caller keeps the ownership of the value. Do not use
  /// getObject() after the value is destroyed.
  QDOObjectException(int code, const QDOObject* object) noexcept
      : QDOException(code), object_(object) {}

  const QDOObject* getObject() const noexcept { return object_; }

 private:
  const QDOObject* object_;
};

#endif  // COMMON_QDO_QDOEXCEPTION_H_
