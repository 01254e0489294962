#include "PropertyList.h"

#include <plist/plist.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <utility>
#include <vector>

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
  return {text, static_cast<std::size_t>(length)};
}

// Nodes -----------------------------------------------------------------------------------------

struct Item {
  std::string key;  // empty in an array
  plist_t value;
};

std::vector<Item> ItemsOf(plist_t dictionary) {
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(dictionary, &iterator);
  const Iterator owner(iterator);
  std::vector<Item> items;
  for (;;) {
    char* key = nullptr;
    plist_t value = nullptr;
    plist_dict_next_item(dictionary, iterator, &key, &value);
    const Text keyOwner(key);
    if (value == nullptr) {
      return items;
    }
    items.push_back({key, value});
  }
}

std::vector<Item> ElementsOf(plist_t array) {
  plist_array_iter iterator = nullptr;
  plist_array_new_iter(array, &iterator);
  const Iterator owner(iterator);
  std::vector<Item> elements;
  for (;;) {
    plist_t element = nullptr;
    plist_array_next_item(array, iterator, &element);
    if (element == nullptr) {
      return elements;
    }
    elements.push_back({"", element});
  }
}

/// What is in a dictionary or an array; nothing in any other node.
std::vector<Item> ChildrenOf(plist_t node) {
  switch (plist_get_node_type(node)) {
    case PLIST_DICT:
      return ItemsOf(node);
    case PLIST_ARRAY:
      return ElementsOf(node);
    default:
      return {};
  }
}

bool IsSame(plist_t left, plist_t right) {
  const plist_type type = plist_get_node_type(left);
  if (type != PLIST_DICT && type != PLIST_ARRAY) {
    return plist_compare_node_value(left, right) != 0;
  }
  const auto isSameItem = [](const Item& one, const Item& other) {
    // No libplist is known that changes a key.
    return one.key == other.key &&  // GCOVR_EXCL_BR_LINE
           IsSame(one.value, other.value);
  };
  const auto items = ChildrenOf(left);
  const auto others = ChildrenOf(right);
  return type == plist_get_node_type(right) &&  // GCOVR_EXCL_BR_LINE: nor the type of a container
         std::equal(items.begin(), items.end(), others.begin(), others.end(), isSameItem);
}

// Printing --------------------------------------------------------------------------------------

/// libplist counts what it prints in 32 bits, and indents each line by its depth.
constexpr std::uint64_t kLargestXmlEstimate = 2 * kLargestPropertyList;
/// libplist compares each value of a binary list with those that have the same hash.
constexpr std::uint64_t kMostBinaryNodes = 10000;

std::uint64_t XmlSize(const std::string& text) {
  constexpr std::size_t kMoreThanItsCharacter = sizeof "amp;" - 1;
  const auto isEntity = [](char character) {
    return character == '<' || character == '>' || character == '&';
  };
  const auto entities = std::count_if(text.begin(), text.end(), isEntity);
  return text.size() + kMoreThanItsCharacter * static_cast<std::size_t>(entities);
}

/// What a tree takes to print. IsSame() finds the numbers and dates that XML changes.
struct Survey {
  Holder holder = Holder::kXml;
  std::uint64_t nodes = 0;
  std::uint64_t xmlSize = 0;  // about

  void Add(const std::string& text) {
    holder = std::max(holder, HolderOf(text));
    xmlSize += XmlSize(text);
  }

  void Add(plist_t node, std::uint64_t depth) {
    constexpr std::uint64_t kTag = sizeof "<true/>";  // with the end of the line
    ++nodes;
    xmlSize += depth + kTag;
    if (plist_get_node_type(node) == PLIST_STRING) {
      Add(TextOf(node));
    } else if (plist_get_node_type(node) == PLIST_DATA) {
      std::uint64_t size = 0;
      plist_get_data_ptr(node, &size);
      xmlSize += 2 * kTag + depth + size + size / 3;  // its end has a line, too
    } else if (plist_get_node_type(node) == PLIST_UID) {
      holder = std::max(holder, Holder::kBinary);  // as XML it is a dictionary to other readers
    }
    for (const Item& child : ChildrenOf(node)) {
      Add(child.key);
      Add(child.value, depth + 1);
    }
  }
};

Survey SurveyOf(plist_t root) {
  Survey survey;
  survey.Add(root, 0);
  return survey;
}

plist_t ParseAs(PropertyListForm form, const std::string& bytes) {
  plist_t node = nullptr;
  (form == PropertyListForm::kXml ? plist_from_xml : plist_from_bin)(
      bytes.data(), static_cast<std::uint32_t>(bytes.size()), &node);
  return node;
}

std::string PrintAs(PropertyListForm form, plist_t node) {
  char* bytes = nullptr;
  std::uint32_t size = 0;
  (form == PropertyListForm::kXml ? plist_to_xml : plist_to_bin)(node, &bytes, &size);
  const Text owner(bytes);
  return std::string(bytes, size);
}

// Values ----------------------------------------------------------------------------------------

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

plist_t NewNode(const std::variant<std::string, int>& value) {
  return std::visit([](const auto& content) { return NewNode(content); }, value);
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
  const auto form = FormWithinBounds(bytes);
  if (!form) {
    return {};
  }
  PropertyList list(Node(ParseAs(*form, bytes)));
  const plist_t root = list.root_.get();
  if (plist_get_node_type(root) != PLIST_DICT || SurveyOf(root).holder == Holder::kNone) {
    return {};
  }
  return list;
}

bool PropertyList::IsText(const std::string& text) {
  return HolderOf(text) != Holder::kNone;
}

PropertyList::Contents PropertyList::Values() const {
  Contents contents;
  for (const Item& item : ItemsOf(root_.get())) {
    contents.emplace(item.key, ValueOf(item.value));
  }
  return contents;
}

/// Makes another dictionary: libplist looks through all items to remove one.
void PropertyList::Apply(const Changes& changes) {
  Node changed(plist_new_dict());
  Changes left = changes;
  const auto set = [&](const std::string& key, plist_t value) {
    plist_dict_set_item(changed.get(), key.c_str(), value);
  };
  for (const Item& item : ItemsOf(root_.get())) {
    const auto change = left.find(item.key);
    if (change == left.end()) {
      set(item.key, plist_copy(item.value));
      continue;
    }
    if (change->second) {
      set(item.key, NewNode(*change->second));
    }
    left.erase(change);
  }
  for (const auto& [key, change] : left) {
    if (change) {
      set(key, NewNode(*change));
    }
  }
  root_ = std::move(changed);
}

std::optional<std::string> PropertyList::PrintAs(PropertyListForm form) const {
  std::string bytes = ::PrintAs(form, root_.get());
  if (FormWithinBounds(bytes) != form) {
    return {};
  }
  const Node again(ParseAs(form, bytes));
  return IsSame(root_.get(), again.get()) ? std::optional(std::move(bytes)) : std::nullopt;
}

std::optional<std::string> PropertyList::Print() const {
  const Survey survey = SurveyOf(root_.get());
  std::optional<std::string> bytes;
  if (survey.holder == Holder::kXml && survey.xmlSize <= kLargestXmlEstimate) {
    bytes = PrintAs(PropertyListForm::kXml);
  }
  if (!bytes && survey.nodes <= kMostBinaryNodes) {
    bytes = PrintAs(PropertyListForm::kBinary);
  }
  return bytes;
}
