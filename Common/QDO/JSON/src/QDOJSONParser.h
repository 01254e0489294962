#ifndef COMMON_QDO_QDOJSONPARSER_H_
#define COMMON_QDO_QDOJSONPARSER_H_

#include <memory>
#include <string>

#include "JSONParser.h"
#include "QDOObject.h"

/// JSON text to dynamic values.
class QDOJSONParser {
 public:
  QDOJSONParser() = delete;

  /// Parses `text` and converts what was read, without asking whether it was all read: a syntax
  /// error raises nothing, and the value holds what came before it. Text that holds no value gives
  /// Undefined. Integers become Int64, other numbers Double, unset nodes Undefined.
  ///
  /// `proxyConvention`: a string ending in a single "^" becomes a ProxyId, read from the decimal
  /// digits it starts with; one ending in "^^" stands for the same text ending in one "^".
  ///
  /// Throws what the value operations throw; a text of 2^32 bytes or more is cut to its length
  /// modulo 2^32.
  static QDOObject fromJSON(const std::string& text, bool proxyConvention);
};

/// One scanner and its tree.
class QDOJSONParserImpl {
 public:
  /// Parses `length` bytes, which must be followed by a zero byte, in place of any earlier text.
  void parse(const unsigned char* bytes, unsigned int length);

  /// Forgets the scanner and releases its tree.
  void reset();

  /// The tree as a new value that shares nothing with it; Undefined before the first parse().
  QDOObject getQDOObject(bool proxyConvention) const;

 private:
  std::unique_ptr<QDOJSONParserImplHelper> scanner_;
};

/// Converts one node and, recursively, its children. With `proxyConvention`, strings in the tree
/// lose a trailing "^" that is not theirs.
QDOObject getJSONValueinQDOObject(std::shared_ptr<QDOJSONValue> node, bool proxyConvention);

#endif  // COMMON_QDO_QDOJSONPARSER_H_
