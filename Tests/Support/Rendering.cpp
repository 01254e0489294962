#include "Rendering.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

std::string Quoted(std::string_view bytes) {
  std::string result = "\"";
  for (const char byte : bytes) {
    if (byte >= ' ' && byte <= '~' && byte != '"' && byte != '\\') {
      result += byte;
    } else {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned char>(byte));
      result += escaped;
    }
  }
  return result + '"';
}

// The function does not use std::to_chars(), which needs macOS 13.3 for a double.
std::string DoubleText(double value) {
  std::string shortest;
  for (int precision = std::numeric_limits<double>::max_digits10; precision > 0; --precision) {
    char digits[64];
    std::snprintf(digits, sizeof digits, "%.*g", precision, value);
    const bool isSame = std::strtod(digits, nullptr) == value;
    if (shortest.empty() || (isSame && std::strlen(digits) < shortest.length())) {
      shortest = digits;
    }
  }
  return shortest + "d";
}

std::string Text(const QDOJSONValue& node) {
  const auto quoted = [](const UTF8String& s) { return Quoted({s.str(), s.length()}); };
  switch (node.type) {
    case QDOJSONValue::String:
      return quoted(*node.stringValue);
    case QDOJSONValue::Double:
      return DoubleText(node.doubleValue);
    case QDOJSONValue::Integer:
      return std::to_string(node.integerValue);
    case QDOJSONValue::Object:
      return Bracketed(*node.objectValue, '{', '}', [&](const auto& member) {
        return quoted(member.first) + ":" + Text(*member.second);
      });
    case QDOJSONValue::Array:
      return Bracketed(*node.arrayValue, '[', ']', [](const auto& e) { return Text(*e); });
    case QDOJSONValue::Boolean:
      return node.booleanValue == 1   ? "true"
             : node.booleanValue == 0 ? "false"
                                      : "boolean neither 0 nor 1";
    case QDOJSONValue::Null:
      return "null";
    case QDOJSONValue::Unset:
      return node.integerValue == 0 ? "unset" : "unset with a payload";
  }
  return "no type";
}

std::string Text(const QDOObject& value) {
  switch (value.getType()) {
    case QDOObject::Undefined:
      return "undefined";
    case QDOObject::Bool:
      return value.getBool() ? "true" : "false";
    case QDOObject::Int64:
      return std::to_string(value.getInt64());
    case QDOObject::String:
      return Quoted(value.getString());
    case QDOObject::Double:
      return DoubleText(value.getDouble());
    case QDOObject::Vector:
      return Bracketed(value.getVector(), '[', ']', [](const auto& e) { return Text(e); });
    case QDOObject::Map:
      return Bracketed(value.getMap(), '{', '}', [](const auto& member) {
        return Quoted(member.first) + ":" + Text(member.second);
      });
    case QDOObject::ProxyId:
      return "#" + std::to_string(value.getProxyIdentifier());
    case QDOObject::Null:
      return "null";
    case QDOObject::UInt32:
      return "UInt32";
    case QDOObject::Int32:
      return "Int32";
    case QDOObject::UInt64:
      return "UInt64";
    case QDOObject::Handle:
      return "Handle";
    case QDOObject::Set:
      return "Set";
  }
  return "no type";
}
