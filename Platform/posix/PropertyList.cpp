#include "PropertyList.h"

#include <plist/plist.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <set>
#include <utility>

#include "MallocPointer.h"
#include "PropertyListBounds.h"

namespace {

using Text = MallocPointer<char>;
using Iterator = MallocPointer<void>;

// Texts -----------------------------------------------------------------------------------------

/// What can hold a value: each also holds what those before it hold.
enum class Holder { kXml, kBinary, kNone };

constexpr char32_t kNoCharacter = 0xFFFFFFFF;

/// The UTF-8 character at `at`, which is moved behind it.
char32_t NextCharacter(const std::string& text, std::size_t& at) {
  static constexpr char32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};
  const auto first = static_cast<unsigned char>(text[at++]);
  if (first < 0x80) {
    return first;
  }
  const int more = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : 1;
  char32_t character = first & (0x3FU >> more);
  for (int i = 0; i < more; ++i) {
    if (at == text.size() || (text[at] & 0xC0) != 0x80) {
      return kNoCharacter;
    }
    character = character << 6 | (static_cast<unsigned char>(text[at++]) & 0x3FU);
  }
  const bool isValid = first >= 0xC0 && first < 0xF8 && character >= kSmallest[more] &&
                       character <= 0x10FFFF && (character < 0xD800 || character > 0xDFFF);
  return isValid ? character : kNoCharacter;
}

Holder HolderOf(char32_t character) {
  if (character == 0 || character == kNoCharacter) {
    return Holder::kNone;
  }
  // XML has no way to write the control characters, and reads a carriage return as a line feed.
  const bool isInXml = character >= 0x20 || character == '\t' || character == '\n';
  return isInXml && character != 0xFFFE && character != 0xFFFF ? Holder::kXml : Holder::kBinary;
}

Holder HolderOf(const std::string& text) {
  Holder holder = Holder::kXml;
  for (std::size_t at = 0; at < text.size();) {
    holder = std::max(holder, HolderOf(NextCharacter(text, at)));
  }
  return holder;
}

/// Not plist_get_string_val(), which ends the process when a zero is in the text.
std::string TextOf(plist_t node) {
  std::uint64_t length = 0;
  const char* text = plist_get_string_ptr(node, &length);
  return {text, length};
}

// Nodes -----------------------------------------------------------------------------------------

/// Calls `visit` with each key and value of `dictionary`.
template <typename Visit>
void ForEachItem(plist_t dictionary, Visit visit) {
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(dictionary, &iterator);
  const Iterator owner(iterator);
  for (;;) {
    char* key = nullptr;
    plist_t value = nullptr;
    plist_dict_next_item(dictionary, iterator, &key, &value);
    const Text keyOwner(key);
    if (value == nullptr) {
      return;
    }
    visit(std::string(key), value);
  }
}

template <typename Visit>
void ForEachElement(plist_t array, Visit visit) {
  plist_array_iter iterator = nullptr;
  plist_array_new_iter(array, &iterator);
  const Iterator owner(iterator);
  for (plist_t element = nullptr;; element = nullptr) {
    plist_array_next_item(array, iterator, &element);
    if (element == nullptr) {
      return;
    }
    visit(element);
  }
}

template <typename Print>
std::string PrintWith(Print print, plist_t node) {
  char* bytes = nullptr;
  std::uint32_t size = 0;
  print(node, &bytes, &size);
  const Text owner(bytes);
  return std::string(bytes, size);
}

plist_t ParseXml(const std::string& bytes) {
  plist_t node = nullptr;
  plist_from_xml(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &node);
  return node;
}

plist_t ParseBinary(const std::string& bytes) {
  plist_t node = nullptr;
  plist_from_bin(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &node);
  return node;
}

bool IsSameInXml(plist_t node) {
  const plist_t again = ParseXml(PrintWith(plist_to_xml, node));
  const bool isSame = plist_compare_node_value(node, again) != 0;
  plist_free(again);
  return isSame;
}

/// Whether the year of `date` is printed in four digits. XML knows no other, though libplist does.
bool HasXmlYear(plist_t date) {
  const std::string xml = PrintWith(plist_to_xml, date);
  return xml.find("</date>") - xml.find("<date>") == std::strlen("<date>YYYY-MM-DDThh:mm:ssZ");
}

Holder HolderOf(plist_t node);

/// A binary list can have a key twice: one value would be lost in XML, and the other would come
/// back when the key is removed.
Holder HolderOfItems(plist_t dictionary) {
  Holder holder = Holder::kXml;
  std::set<std::string> keys;
  ForEachItem(dictionary, [&](const std::string& key, plist_t value) {
    const bool isNew = keys.insert(key).second;
    holder = std::max({holder, isNew ? HolderOf(key) : Holder::kNone, HolderOf(value)});
  });
  return holder;
}

Holder HolderOf(plist_t node) {
  Holder holder = Holder::kXml;
  switch (plist_get_node_type(node)) {
    case PLIST_DICT:
      return HolderOfItems(node);
    case PLIST_ARRAY:
      ForEachElement(node, [&](plist_t element) { holder = std::max(holder, HolderOf(element)); });
      return holder;
    case PLIST_STRING:
      return HolderOf(TextOf(node));
    case PLIST_DATE:
      return HasXmlYear(node) && IsSameInXml(node) ? Holder::kXml : Holder::kBinary;
    case PLIST_REAL:
    case PLIST_UID:
      return IsSameInXml(node) ? Holder::kXml : Holder::kBinary;
    default:
      return holder;
  }
}

plist_t NewNode(const std::string& text) {
  return plist_new_string(text.c_str());
}

plist_t NewNode(int number) {
#ifdef HAVE_PLIST_NEW_INT
  return plist_new_int(number);
#else
  // A negative number's bit pattern: where there is no plist_new_int, it is taken as signed.
  return plist_new_uint(static_cast<std::uint64_t>(std::int64_t{number}));
#endif
}

PropertyList::Value IntegerValue(plist_t node) {
  std::uint64_t bits = 0;
  plist_get_uint_val(node, &bits);
  const auto number = static_cast<int>(bits);
  // Compared as nodes: the bits do not tell a negative number from an unsigned one.
  const plist_t same = NewNode(number);
  const bool isSame = plist_compare_node_value(node, same) != 0;
  plist_free(same);
  return isSame ? PropertyList::Value(number) : PropertyList::OtherType();
}

PropertyList::Value RealValue(plist_t node) {
  using Limits = std::numeric_limits<int>;
  double real = 0;
  plist_get_real_val(node, &real);
  if (real >= Limits::min() && real <= Limits::max() && real == static_cast<int>(real)) {
    return static_cast<int>(real);
  }
  return PropertyList::OtherType();
}

PropertyList::Value ValueOf(plist_t node) {
  switch (plist_get_node_type(node)) {
    case PLIST_STRING:
      return TextOf(node);
    case PLIST_UINT:
      return IntegerValue(node);
    case PLIST_REAL:
      return RealValue(node);
    default:
      return PropertyList::OtherType();
  }
}

}  // namespace

void PropertyList::FreeNode::operator()(void* node) const {
  plist_free(node);
}

PropertyList::PropertyList() : PropertyList(Node(plist_new_dict())) {}

PropertyList::PropertyList(Node root) : root_(std::move(root)) {}

std::optional<PropertyList> PropertyList::Parse(const std::string& bytes) {
  if (!IsWithinBounds(bytes)) {
    return {};
  }
  const bool isBinary =
      plist_is_binary(bytes.data(), static_cast<std::uint32_t>(bytes.size())) != 0;
  PropertyList list(Node(isBinary ? ParseBinary(bytes) : ParseXml(bytes)));
  const plist_t root = list.root_.get();
  if (plist_get_node_type(root) != PLIST_DICT || HolderOf(root) == Holder::kNone) {
    return {};
  }
  return list;
}

bool PropertyList::IsText(const std::string& text) {
  return HolderOf(text) != Holder::kNone;
}

PropertyList::Contents PropertyList::Values() const {
  Contents contents;
  ForEachItem(root_.get(), [&](const std::string& key, plist_t value) {
    contents.emplace(key, ValueOf(value));
  });
  return contents;
}

void PropertyList::Apply(const Changes& changes) {
  for (const auto& [name, change] : changes) {
    const char* key = name.c_str();
    if (change) {
      std::visit([&](const auto& value) { plist_dict_set_item(root_.get(), key, NewNode(value)); },
                 *change);
    } else {
      plist_dict_remove_item(root_.get(), key);
    }
  }
}

std::optional<std::string> PropertyList::Print() const {
  const bool isInXml = HolderOf(root_.get()) == Holder::kXml;
  std::string bytes = PrintWith(isInXml ? plist_to_xml : plist_to_bin, root_.get());
  return IsWithinBounds(bytes) ? std::optional(std::move(bytes)) : std::nullopt;
}
