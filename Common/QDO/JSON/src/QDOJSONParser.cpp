#include "QDOJSONParser.h"

#include <utility>

namespace {

/// The string rule. `text` loses a trailing "^" that marks it.
QDOObject ConvertString(UTF8String& text, bool proxyConvention) {
  QDOObject result;
  // Counted as an unsigned 32-bit number, like every length of the scanner.
  const auto length = static_cast<std::uint32_t>(text.length());
  if (proxyConvention && length >= 2 && text[length - 1] == '^') {
    text.erase(length - 1, 1);
    if (text[length - 2] != '^') {
      long long identifier = 0;
      text.scanWSInt64(identifier);  // whether it was all digits is not asked
      QDOObject number;
      number.set(identifier);
      result.setProxyId(number);
      return result;
    }
  }
  result.set(text.str());
  return result;
}

/// A child of a node that nobody else needs is taken out of it: once converted it is freed, and its
/// memory serves the values that follow.
std::shared_ptr<QDOJSONValue> Child(std::shared_ptr<QDOJSONValue>& child, bool isLastUse) {
  return isLastUse ? std::move(child) : child;
}

QDOObject ConvertObject(QDOJSONObject& object, bool isLastUse, bool proxyConvention) {
  QDOObject result;
  result.set(QDOObject::Map);
  auto& members = result.getMap();
  for (auto& [key, value] : object) {
    // Mostly at the end: the two maps order their keys alike, but for the empty one.
    members.insert_or_assign(members.end(), key.str(),
                             getJSONValueinQDOObject(Child(value, isLastUse), proxyConvention));
  }
  return result;
}

QDOObject ConvertArray(QDOJSONArray& array, bool isLastUse, bool proxyConvention) {
  QDOObject result;
  result.set(QDOObject::Vector);
  auto& elements = result.getVector();
  elements.reserve(array.size());
  for (auto& element : array) {
    elements.push_back(getJSONValueinQDOObject(Child(element, isLastUse), proxyConvention));
  }
  return result;
}

}  // namespace

QDOObject getJSONValueinQDOObject(std::shared_ptr<QDOJSONValue> node, bool proxyConvention) {
  const bool isLastUse = node.use_count() == 1;
  QDOObject result;
  switch (node->type) {
    case QDOJSONValue::String:
      return ConvertString(*node->stringValue, proxyConvention);
    case QDOJSONValue::Double:
      result.set(node->doubleValue);
      break;
    case QDOJSONValue::Integer:
      result.set(node->integerValue);
      break;
    case QDOJSONValue::Object:
      return ConvertObject(*node->objectValue, isLastUse, proxyConvention);
    case QDOJSONValue::Array:
      return ConvertArray(*node->arrayValue, isLastUse, proxyConvention);
    case QDOJSONValue::Boolean:
      return QDOObject::makeBool(node->booleanValue != 0);
    case QDOJSONValue::Null:
      result.set(QDOObject::Null);
      break;
    default:
      break;  // unset: Undefined
  }
  return result;
}

QDOObject QDOJSONParser::fromJSON(const std::string& text, bool proxyConvention) {
  QDOJSONParserImpl parser;
  parser.parse(reinterpret_cast<const unsigned char*>(text.c_str()),
               static_cast<unsigned int>(text.length()));
  return parser.takeQDOObject(proxyConvention);
}

void QDOJSONParserImpl::parse(const unsigned char* bytes, unsigned int length) {
  reset();
  scanner_ = std::make_unique<QDOJSONParserImplHelper>(bytes, length);
}

void QDOJSONParserImpl::reset() {
  scanner_.reset();
}

QDOObject QDOJSONParserImpl::getQDOObject(bool proxyConvention) const {
  if (!scanner_) {
    return {};
  }
  return getJSONValueinQDOObject(scanner_->getRoot(), proxyConvention);
}

QDOObject QDOJSONParserImpl::takeQDOObject(bool proxyConvention) {
  std::shared_ptr<QDOJSONValue> root = scanner_->getRoot();
  reset();  // leaves the root to this last use
  return getJSONValueinQDOObject(std::move(root), proxyConvention);
}
