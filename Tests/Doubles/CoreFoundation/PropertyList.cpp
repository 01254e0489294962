// As much of XML property lists as the tests and the other back end write. Characters that XML
// cannot hold are stored as references, which only this reader understands.

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include "Object.h"

namespace {

constexpr char kHead[] = "<plist version=\"1.0\">";

std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char byte : text) {
    const bool isPlain =
        static_cast<unsigned char>(byte) >= ' ' && std::strchr("<>&", byte) == nullptr;
    escaped += isPlain ? std::string(1, byte) : "&#" + std::to_string(byte) + ";";
  }
  return escaped;
}

/// The character that a reference (without its "&" and ";") names; '\0' for an unknown one.
char Referenced(const std::string& name) {
  static constexpr std::array<std::pair<const char*, char>, 5> kNames{
      {{"lt", '<'}, {"gt", '>'}, {"amp", '&'}, {"quot", '"'}, {"apos", '\''}}};
  if (name[0] == '#') {
    return static_cast<char>(std::strtol(name.c_str() + 1, nullptr, 10));
  }
  for (const auto& [known, character] : kNames) {
    if (name == known) {
      return character;
    }
  }
  return '\0';
}

std::string Unescaped(const std::string& text) {
  std::string unescaped;
  for (std::size_t i = 0; i < text.length(); ++i) {
    const std::size_t end = text[i] == '&' ? text.find(';', i) : std::string::npos;
    unescaped += end == std::string::npos ? text[i] : Referenced(text.substr(i + 1, end - i - 1));
    i = end == std::string::npos ? i : end;
  }
  return unescaped;
}

class Parser {
 public:
  explicit Parser(const std::string& xml) : xml_(xml), position_(xml.find(kHead)) {}

  std::optional<Contents> Run() {
    if (position_ == std::string::npos || (position_ += sizeof kHead - 1, !Skip("<dict>"))) {
      return std::nullopt;
    }
    Contents contents;
    while (isWhole_ && Skip("<key>")) {
      const std::string key = Unescaped(Until("</key>"));
      contents.insert_or_assign(key, Element());
    }
    return isWhole_ && Skip("</dict>") && Skip("</plist>") ? std::optional(contents) : std::nullopt;
  }

 private:
  void SkipBlanks() {
    position_ = std::min(xml_.find_first_not_of(" \t\r\n", position_), xml_.length());
  }

  bool Skip(const std::string& token) {
    SkipBlanks();
    const bool isHere = xml_.compare(position_, token.length(), token) == 0;
    position_ += isHere ? token.length() : 0;
    return isHere;
  }

  /// What is before `token`, which is skipped.
  std::string Until(const std::string& token) {
    const std::size_t end = xml_.find(token, position_);
    isWhole_ = isWhole_ && end != std::string::npos;
    std::string text = xml_.substr(position_, isWhole_ ? end - position_ : 0);
    position_ = isWhole_ ? end + token.length() : position_;
    return text;
  }

  Value Element() {
    SkipBlanks();
    const std::size_t start = position_;
    const std::string tag = Skip("<") ? Until(">") : "";
    if (tag.empty() || tag.back() == '/') {
      isWhole_ = isWhole_ && !tag.empty();
      return Of(tag.substr(0, tag.length() - (tag.empty() ? 0 : 1)), "", start);
    }
    return Of(tag, Inner(tag), start);
  }

  /// What is inside of an element, which is skipped.
  std::string Inner(const std::string& tag) {
    if (tag != "array" && tag != "dict") {
      return Until("</" + tag + ">");
    }
    while (isWhole_ && !Skip("</" + tag + ">")) {
      if (Skip("<key>")) {
        Until("</key>");
      }
      Element();
    }
    return {};
  }

  Value Of(const std::string& tag, const std::string& inner, std::size_t start) const {
    static const std::map<std::string, Kind> kinds = {
        {"array", Kind::kArray},   {"data", Kind::kData},      {"dict", Kind::kDictionary},
        {"false", Kind::kBoolean}, {"integer", Kind::kNumber}, {"real", Kind::kNumber},
        {"string", Kind::kString}, {"true", Kind::kBoolean}};
    const auto kind = kinds.find(tag);
    if (kind == kinds.end() || kind->second == Kind::kString) {
      return {Kind::kString, Unescaped(inner)};
    }
    return {kind->second, xml_.substr(start, position_ - start)};
  }

  const std::string& xml_;
  std::size_t position_;
  bool isWhole_ = true;
};

}  // namespace

std::optional<Contents> ParsePropertyList(const std::string& xml) {
  return Parser(xml).Run();
}

std::string PrintPropertyList(const Contents& contents) {
  std::string members;
  for (const auto& [key, value] : contents) {
    members += "<key>" + Escaped(key) + "</key>";
    members +=
        value.kind == Kind::kString ? "<string>" + Escaped(value.text) + "</string>" : value.text;
  }
  return R"(<?xml version="1.0" encoding="UTF-8"?>)" + std::string(kHead) + "<dict>" + members +
         "</dict></plist>\n";
}
