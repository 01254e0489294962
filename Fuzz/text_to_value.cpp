// Text to value. For every text, with and without the proxy convention, the JSON front end
//  - does not crash, does not throw, and does not read behind the zero byte after the text;
//  - makes the same value in a second call and by way of a tree;
//  - makes a value whose deep copy equals the value and outlives the value.

#include <memory>

#include "Fuzz.h"
#include "QDOJSONParser.h"
#include "Rendering.h"

namespace {

QDOObject DeepCopy(const QDOObject& value) {
  QDOObject copy;
  if (value.getType() == QDOObject::Vector) {
    copy.createVector();
    for (const QDOObject& element : value.getVector()) {
      copy.getVector().push_back(DeepCopy(element));
    }
  } else if (value.getType() == QDOObject::Map) {
    copy.createMap();
    for (const auto& [key, member] : value.getMap()) {
      copy[key] = DeepCopy(member);
    }
  } else if (value.getType() == QDOObject::String) {
    copy.set(value.getString().c_str());
  } else {
    copy = value;
  }
  return copy;
}

/// Changes every scalar in `value`.
void Spoil(QDOObject& value) {
  if (value.getType() == QDOObject::Vector) {
    for (QDOObject& element : value.getVector()) {
      Spoil(element);
    }
  } else if (value.getType() == QDOObject::Map) {
    for (auto& [key, member] : value.getMap()) {
      Spoil(member);
    }
  } else {
    value.set("spoilt");
  }
}

/// Returns the rendered value, made by way of a tree. The bytes have a separate allocation, so that
/// the sanitizer detects a read behind them.
std::string FromTree(const std::string& text, bool proxyConvention) {
  const std::unique_ptr<unsigned char[]> bytes(new unsigned char[text.size() + 1]);
  text.copy(reinterpret_cast<char*>(bytes.get()), text.size());
  bytes[text.size()] = 0;
  QDOJSONParserImpl parser;
  parser.parse(bytes.get(), static_cast<unsigned int>(text.size()));
  return Text(parser.getQDOObject(proxyConvention));
}

void Examine(const std::string& text, bool proxyConvention) {
  QDOObject value = QDOJSONParser::fromJSON(text, proxyConvention);
  const std::string expected = Text(value);
  RequireEqual(expected, Text(QDOJSONParser::fromJSON(text, proxyConvention)), "parsed twice");
  RequireEqual(expected, FromTree(text, proxyConvention), "by way of a tree");
  const QDOObject copy = DeepCopy(value);
  RequireEqual(expected, Text(copy), "deep copy");
  Spoil(value);
  value.destroy();
  RequireEqual(expected, Text(copy), "deep copy of what was changed and is gone");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  Examine(text, false);
  Examine(text, true);
  return 0;
}
