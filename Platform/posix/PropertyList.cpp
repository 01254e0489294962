#include "PropertyList.h"

#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <limits>
#include <locale>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using pugi::xml_node;
using std::string_view;

// These flags keep every byte of a text, for example references and line ends. Text outside the
// root element is read, so that the text is not lost.
constexpr unsigned kReading =
    (pugi::parse_full | pugi::parse_ws_pcdata | pugi::parse_fragment) &
    ~(pugi::parse_escapes | pugi::parse_eol | pugi::parse_wconv_attribute);
constexpr unsigned kWriting =
    pugi::format_raw | pugi::format_no_declaration | pugi::format_no_escapes;

const char kEmptyList[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\""
    " \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n<dict>\n</dict>\n</plist>\n";

/// Makes the XML library allocate with `operator new`, which throws if memory is exhausted.
/// Otherwise a list could count as damaged, or lose a part, if memory is exhausted.
[[maybe_unused]] const bool allocatesWithNew = [] {
  pugi::set_memory_management_functions([](std::size_t size) { return ::operator new(size); },
                                        [](void* block) { ::operator delete(block); });
  return true;
}();

struct Printer : pugi::xml_writer {
  void write(const void* data, std::size_t size) override {
    bytes.append(static_cast<const char*>(data), size);
  }
  std::string bytes;
};

std::string Printed(xml_node node) {
  Printer printer;
  node.print(printer, "", kWriting, pugi::encoding_utf8);
  return std::move(printer.bytes);
}

bool Load(pugi::xml_document& document, const std::string& bytes, unsigned flags) {
  return document.load_buffer(bytes.data(), bytes.size(), flags, pugi::encoding_utf8);
}

// Texts and values ------------------------------------------------------------------------------

bool Is(xml_node element, const char* name) {
  return std::strcmp(element.name(), name) == 0;
}

/// Returns the text in an element by the rules of XML; nothing if the element holds no text, or
/// another element.
std::optional<std::string> TextOf(xml_node element) {
  pugi::xml_document resolved;
  Load(resolved, Printed(element), pugi::parse_default | pugi::parse_ws_pcdata);
  std::string text;
  for (const xml_node child : resolved.first_child().children()) {
    if (child.type() == pugi::node_element) {
      return {};
    }
    text += child.value();
  }
  return PropertyList::IsText(text) ? std::optional(std::move(text)) : std::nullopt;
}

/// Returns `text` as XML. XML reads a carriage return as a line feed, and allows no control
/// characters: only this program reads a file with such a text.
std::string Encoded(const std::string& text) {
  std::string encoded;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    const bool isControl = byte < 0x20 && byte != '\t' && byte != '\n';
    if (isControl || std::strchr("<>&", character) != nullptr) {
      encoded += "&#" + std::to_string(byte) + ";";
    } else {
      encoded += character;
    }
  }
  return encoded;
}

/// Returns the number in `text`. An integer is decimal with a sign, or hexadecimal. A real number
/// can have a fraction and an exponent. Returns nothing if the number is no signed 32-bit integer.
std::optional<int> NumberIn(const std::string& text, bool isInteger) {
  using Limits = std::numeric_limits<int>;
  const bool isHexadecimal = isInteger && text.find_first_of("xX") != std::string::npos;
  const char* const characters = isHexadecimal ? " \t\n0123456789abcdefABCDEFxX"
                                 : isInteger   ? " \t\n0123456789+-"
                                               : " \t\n0123456789+-.eE";
  char* end = nullptr;
  const double number = std::strtod(text.c_str(), &end);
  const bool isNumber = end != text.c_str() && end[std::strspn(end, " \t\n")] == '\0' &&
                        text.find_first_not_of(characters) == std::string::npos;
  const bool isExact = isNumber && number >= Limits::min() && number <= Limits::max() &&
                       number == static_cast<int>(number);
  return isExact ? std::optional(static_cast<int>(number)) : std::nullopt;
}

PreferencesDomain::Value ValueOf(xml_node element) {
  const auto text = TextOf(element);
  if (Is(element, "string")) {
    return {true, std::nullopt, text};
  }
  const bool isInteger = Is(element, "integer");
  const bool isNumber = text && (isInteger || Is(element, "real"));
  return {true, isNumber ? NumberIn(*text, isInteger) : std::nullopt, std::nullopt};
}

/// Gives `element` the type `type`, with `text` as the only content.
void Fill(xml_node element, const char* type, const std::string& text) {
  element.set_name(type);
  element.remove_attributes();
  element.remove_children();
  element.append_child(pugi::node_pcdata).set_value(Encoded(text).c_str());
}

void Fill(xml_node element, const std::variant<std::string, int>& value) {
  const int* const number = std::get_if<int>(&value);
  number != nullptr ? Fill(element, "integer", std::to_string(*number))
                    : Fill(element, "string", std::get<std::string>(value));
}

// Items of the dictionary -----------------------------------------------------------------------

struct Item {
  std::string name;
  xml_node key;
  xml_node value;
};

bool IsBlank(xml_node node) {
  return node.type() == pugi::node_pcdata &&
         node.value()[std::strspn(node.value(), " \t\r\n")] == '\0';
}

/// Returns the elements and texts in `node`, without whitespace.
std::vector<xml_node> PartsOf(xml_node node) {
  std::vector<xml_node> parts;
  for (const xml_node child : node.children()) {
    const bool isText = child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata;
    if (child.type() == pugi::node_element || (isText && !IsBlank(child))) {
      parts.push_back(child);
    }
  }
  return parts;
}

/// Returns the element `name` in `node`; null if `node` has another part, too, or no such element.
xml_node OnlyPart(xml_node node, const char* name) {
  const std::vector<xml_node> parts = PartsOf(node);
  return parts.size() == 1 && Is(parts[0], name) ? parts[0] : xml_node();
}

/// Returns the items of `dictionary`. Returns nothing unless keys with a text and values alternate.
std::optional<std::vector<Item>> ItemsOf(xml_node dictionary) {
  const std::vector<xml_node> parts = PartsOf(dictionary);
  std::vector<Item> items;
  for (std::size_t i = 0; i < parts.size(); i += 2) {
    const xml_node value = i + 1 < parts.size() ? parts[i + 1] : xml_node();
    const auto name = TextOf(parts[i]);
    if (!name || !Is(parts[i], "key") || value.type() != pugi::node_element || Is(value, "key")) {
      return {};
    }
    items.push_back({*name, parts[i], value});
  }
  return dictionary ? std::optional(std::move(items)) : std::nullopt;
}

/// Removes the item, the nodes between key and value, and the whitespace before the key.
void RemoveItem(xml_node dictionary, const Item& item) {
  if (const xml_node before = item.key.previous_sibling(); IsBlank(before)) {
    dictionary.remove_child(before);
  }
  while (item.key.next_sibling() != item.value) {
    dictionary.remove_child(item.key.next_sibling());
  }
  dictionary.remove_child(item.key);
  dictionary.remove_child(item.value);
}

/// Adds an item on separate lines, before the whitespace at the end of the dictionary.
void AddItem(xml_node dictionary, const std::string& key,
             const std::variant<std::string, int>& value) {
  const xml_node last = dictionary.last_child();
  const auto add = [&, isBlank = IsBlank(last)](pugi::xml_node_type type) {
    return isBlank ? dictionary.insert_child_before(type, last) : dictionary.append_child(type);
  };
  add(pugi::node_pcdata).set_value("\n\t");
  Fill(add(pugi::node_element), "key", key);
  add(pugi::node_pcdata).set_value("\n\t");
  Fill(add(pugi::node_element), value);
}

/// Accepts a document in UTF-8 that has no element below kMostLevels and that the XML library
/// writes without a change. The library writes attributes between double quotes. The library also
/// reads comments that XML does not allow, and writes them in another form.
class Check : public pugi::xml_tree_walker {
 public:
  bool for_each(xml_node& node) override {
    const string_view text = node.value();
    for (const pugi::xml_attribute attribute : node.attributes()) {
      if (std::strchr(attribute.value(), '"') != nullptr) {
        return false;
      }
    }
    switch (node.type()) {
      case pugi::node_element:
        return depth() <= PropertyList::kMostLevels;
      case pugi::node_comment:
        return text.find("--") == string_view::npos && (text.empty() || text.back() != '-');
      case pugi::node_declaration:
        return strcasecmp(node.attribute("encoding").as_string("UTF-8"), "UTF-8") == 0;
      default:
        return true;
    }
  }
};

}  // namespace

PropertyList::PropertyList() {
  Load(document_, kEmptyList, kReading);
}

std::optional<PropertyList> PropertyList::Parse(const std::string& bytes) {
  PropertyList list;
  Check check;
  // The XML library stops at a zero byte. UTF-16 and UTF-32 have zero bytes in every tag.
  const bool isWhole = bytes.find('\0') == std::string::npos &&
                       Load(list.document_, bytes, kReading) && list.document_.traverse(check) &&
                       ItemsOf(list.Dictionary());
  return isWhole ? std::optional(std::move(list)) : std::nullopt;
}

xml_node PropertyList::Dictionary() const {
  return OnlyPart(OnlyPart(document_, "plist"), "dict");
}

bool PropertyList::IsText(const std::string& text) {
  using Utf8 = std::codecvt<char32_t, char, std::mbstate_t>;
  std::u32string characters(text.size(), U'\0');
  std::mbstate_t state = {};
  const char* end = nullptr;
  char32_t* last = nullptr;
  const auto result = std::use_facet<Utf8>(std::locale::classic())
                          .in(state, text.data(), text.data() + text.size(), end, characters.data(),
                              characters.data() + characters.size(), last);
  const auto isCharacter = [](char32_t each) { return each != 0 && (each >> 11) != 0xD800 >> 11; };
  return result == Utf8::ok && std::all_of(characters.data(), last, isCharacter);
}

PropertyList::Contents PropertyList::Values() const {
  Contents contents;
  const std::vector<Item> items = *ItemsOf(Dictionary());
  for (const Item& item : items) {
    contents.emplace(item.name, ValueOf(item.value));
  }
  return contents;
}

void PropertyList::Apply(const Changes& changes) {
  Changes left = changes;
  const xml_node dictionary = Dictionary();
  const std::vector<Item> items = *ItemsOf(dictionary);
  for (const Item& item : items) {
    const auto change = changes.find(item.name);
    if (change == changes.end()) {
      continue;
    }
    if (left.erase(item.name) != 0 && change->second) {
      Fill(item.value, *change->second);
    } else {
      RemoveItem(dictionary, item);
    }
  }
  for (const auto& [key, value] : left) {
    if (value) {
      AddItem(dictionary, key, *value);
    }
  }
}

std::string PropertyList::Print() const {
  return Printed(document_);
}
