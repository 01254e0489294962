#include "QDOJSONParser.h"

#include <utility>

namespace {

// A node that nobody else needs is taken apart: its texts become the values' own, and what else it
// held is freed at once, so that its memory serves the values that follow.

/// The string rule. The text loses a trailing "^" that marks it.
QDOObject ConvertString(QDOJSONValue& node, bool isLastUse, bool proxyConvention) {
  QDOObject result;
  UTF8String& text = *node.stringValue;
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
  if (isLastUse) {
    result.set(UTF8String::release(node.releaseString()));
  } else {
    result.set(text.str());
  }
  return result;
}

QDOObject ConvertObject(QDOJSONObject object, bool proxyConvention) {
  QDOObject result;
  result.set(QDOObject::Map);
  auto& members = result.getMap();
  while (!object.empty()) {
    auto member = object.extract(object.begin());
    // Mostly at the end: the two maps order their keys alike, but for the empty one.
    const auto entry = members.emplace_hint(members.end(), member.key().release(), QDOObject());
    entry->second = getJSONValueinQDOObject(std::move(member.mapped()), proxyConvention);
  }
  return result;
}

QDOObject ConvertArray(QDOJSONArray array, bool proxyConvention) {
  QDOObject result;
  result.set(QDOObject::Vector);
  auto& elements = result.getVector();
  elements.reserve(array.size());
  for (auto& element : array) {
    elements.push_back(getJSONValueinQDOObject(std::move(element), proxyConvention));
  }
  return result;
}

template <typename Container>
Container TakeOrCopy(Container& container, bool isLastUse) {
  return isLastUse ? std::move(container) : Container(container);
}

}  // namespace

// By value: the node is taken apart when its last owner is handed over.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
QDOObject getJSONValueinQDOObject(std::shared_ptr<QDOJSONValue> node, bool proxyConvention) {
  const bool isLastUse = node.use_count() == 1;
  QDOObject result;
  switch (node->type) {
    case QDOJSONValue::String:
      return ConvertString(*node, isLastUse, proxyConvention);
    case QDOJSONValue::Double:
      result.set(node->doubleValue);
      break;
    case QDOJSONValue::Integer:
      result.set(node->integerValue);
      break;
    case QDOJSONValue::Object:
      return ConvertObject(TakeOrCopy(*node->objectValue, isLastUse), proxyConvention);
    case QDOJSONValue::Array:
      return ConvertArray(TakeOrCopy(*node->arrayValue, isLastUse), proxyConvention);
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
