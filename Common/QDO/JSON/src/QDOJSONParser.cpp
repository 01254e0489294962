#include "QDOJSONParser.h"

#include <limits>
#include <utility>

namespace {

/// Sets `value` to the string or the ProxyId of `text`. Removes the "^" that marks a ProxyId or an
/// escaped "^" from `text`.
void SetText(QDOObject& value, UTF8String& text, bool proxyConvention) {
  // An unsigned 32-bit integer, like every length of the scanner.
  const auto length = static_cast<std::uint32_t>(text.length());
  if (proxyConvention && length >= 2 && text[length - 1] == '^') {
    text.erase(length - 1, 1);
    if (text[length - 2] != '^') {
      long long identifier = 0;
      text.scanWSInt64(identifier);  // bytes after the digits are ignored, on purpose
      value.setProxyId(QDOObject().set(identifier));
      return;
    }
  }
  value.set(text.str());
}

/// The target of a scanner that makes values directly, without a tree (see QDOJSONTree).
struct ValueTarget {
  using Value = QDOObject;
  using Child = QDOObject;
  using Object = std::map<std::string, QDOObject>;
  using Array = std::vector<QDOObject>;
  using Key = std::string;

  static Child makeChild() { return {}; }
  static Value& valueOf(Child& child) { return child; }

  static Object* becomeObject(Value& value) { return &value.set(QDOObject::Map).getMap(); }
  static Array* becomeArray(Value& value) { return &value.set(QDOObject::Vector).getVector(); }
  void becomeString(Value& value, UTF8String& text) const { SetText(value, text, proxyConvention); }
  static void becomeBoolean(Value& value, bool isTrue) { value = QDOObject::makeBool(isTrue); }
  template <typename Kind>
  static void becomeNumber(Value& value, Kind number) {
    value.set(number);
  }
  static void becomeNull(Value& value) { value.set(QDOObject::Null); }

  /// Rejects long keys: fromJSON() then parses the text into a tree. There UTF8String::compare()
  /// takes some keys with very different lengths for equal, on purpose. The inconsistent order of
  /// the empty key needs no tree: the first of equal keys wins in both cases.
  bool takesKey(const UTF8String& text) const {
    metLongKey = text.length() > std::numeric_limits<std::int16_t>::max();
    return !metLongKey;
  }
  static Key makeKey(const UTF8String& text) { return {text.str(), text.length()}; }
  // NOLINTNEXTLINE(performance-unnecessary-value-param): it is moved on
  static void insert(Object* object, Key key, Child member) {
    // The first of equal keys wins. The end is the right hint for keys in ascending order.
    object->try_emplace(object->end(), std::move(key), std::move(member));
  }

  bool proxyConvention;
  bool& metLongKey;
};

}  // namespace

// The parameter is a copy, because the callers expect this signature.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
QDOObject getJSONValueinQDOObject(std::shared_ptr<QDOJSONValue> node, bool proxyConvention) {
  QDOObject result;
  switch (node->type) {
    case QDOJSONValue::String:
      SetText(result, *node->stringValue, proxyConvention);
      break;
    case QDOJSONValue::Double:
      result.set(node->doubleValue);
      break;
    case QDOJSONValue::Integer:
      result.set(node->integerValue);
      break;
    case QDOJSONValue::Object:
      result.set(QDOObject::Map);
      for (const auto& [key, member] : *node->objectValue) {
        result[key.str()] = getJSONValueinQDOObject(member, proxyConvention);
      }
      break;
    case QDOJSONValue::Array:
      result.set(QDOObject::Vector);
      for (const auto& element : *node->arrayValue) {
        result.getVector().push_back(getJSONValueinQDOObject(element, proxyConvention));
      }
      break;
    case QDOJSONValue::Boolean:
      return QDOObject::makeBool(node->booleanValue != 0);
    case QDOJSONValue::Null:
      result.set(QDOObject::Null);
      break;
    default:
      break;  // an unset node becomes Undefined
  }
  return result;
}

QDOObject QDOJSONParser::fromJSON(const std::string& text, bool proxyConvention) {
  const auto* const bytes = reinterpret_cast<const unsigned char*>(text.c_str());
  const auto length = static_cast<unsigned int>(text.length());
  bool metLongKey = false;
  const ValueTarget target{proxyConvention, metLongKey};
  QDOObject value = QDOJSONScanner<ValueTarget>(bytes, length, target).getRoot();
  if (metLongKey) {
    QDOJSONParserImpl parser;
    parser.parse(bytes, length);
    value = parser.getQDOObject(proxyConvention);
  }
  return value;
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
