#ifndef COMMON_QDO_QDOJSONPARSER_H_
#define COMMON_QDO_QDOJSONPARSER_H_

#include <memory>
#include <string>

#include "JSONParser.h"
#include "QDOObject.h"

/// Converts JSON text to dynamic values. Several threads may call fromJSON().
///
///     QDOObject value = QDOJSONParser::fromJSON(R"({"updateid":7})", false);
///     value["updateid"].getQDOInt32();  // 7
class QDOJSONParser {
 public:
  QDOJSONParser() = delete;

  /// Returns the value of `text`. A syntax error is ignored: the result is the value before the
  /// error, or Undefined if the text starts with no value. Integers become Int64, other numbers
  /// Double, and unset nodes Undefined. QDOJSONScanner describes the quirks.
  ///
  /// With `proxyConvention`, a string that ends in "^" becomes a ProxyId from its leading decimal
  /// digits, for example "12^". A string that ends in "^^" loses one "^" and stays a string. The
  /// string "^" stays as well.
  ///
  /// If memory is exhausted, throws either QDOException with code 1 or std::bad_alloc: catch both.
  /// Uses the length of the text modulo 2^32.
  static QDOObject fromJSON(const std::string& text, bool proxyConvention);
};

/// Converts JSON text by way of a tree of QDOJSONValue. Not thread-safe.
class QDOJSONParserImpl {
 public:
  /// Parses the `length` bytes at `bytes` and replaces the tree of an earlier text.
  /// Requires: a zero byte follows the bytes.
  void parse(const unsigned char* bytes, unsigned int length);

  /// Releases the tree.
  void reset();

  /// Returns the tree as a new value. Returns Undefined before the first parse() and after reset().
  QDOObject getQDOObject(bool proxyConvention) const;

 private:
  std::unique_ptr<QDOJSONParserImplHelper> scanner_;
};

/// Returns `node` and its descendants as a new value. With `proxyConvention`, the strings of the
/// tree lose the "^" that marks a ProxyId or an escaped "^". Requires: `node` is not null.
QDOObject getJSONValueinQDOObject(std::shared_ptr<QDOJSONValue> node, bool proxyConvention);

#endif  // COMMON_QDO_QDOJSONPARSER_H_
