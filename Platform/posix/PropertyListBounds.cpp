#include "PropertyListBounds.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <set>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

using std::string_view;

// Costs -----------------------------------------------------------------------------------------

constexpr std::uint64_t kMostContainers = 5000;
constexpr std::uint64_t kObjectCost = 32;
constexpr std::uint64_t kMostComparisons = 2'000'000;
constexpr std::uint64_t kMostBytesMoved = std::uint64_t{2} << 30;
/// Spent on a key whose hash and whose repetition are not known before libplist decodes it.
constexpr std::uint64_t kEncodedKeyCost = 2'000;
/// libplist compares each object of a binary list with all that contain it.
constexpr std::uint64_t kMostDepths = 50'000'000;

/// What may be spent on a list, the same for both forms: what is read in one may be written in the
/// other.
class Budget {
 public:
  explicit Budget(std::uint64_t left) : left_(left) {}

  bool Spend(std::uint64_t cost) {
    const bool isLeft = cost <= left_;
    left_ -= isLeft ? cost : 0;
    return isLeft;
  }

 private:
  std::uint64_t left_;
};

/// The keys of one dictionary. libplist compares a key with all those before it that have the same
/// 12 bits in a hash of 33 times the hash so far plus the next character.
class Keys {
 public:
  bool Insert(string_view key, Budget& comparisons) {
    std::uint32_t hash = 5381;
    for (const char character : key) {
      hash = hash * 33 + static_cast<std::uint32_t>(character);
    }
    return keys_.insert(key).second && comparisons.Spend(countByHash_[hash % 4096]++);
  }

 private:
  std::set<string_view> keys_;
  std::unordered_map<std::uint32_t, std::uint32_t> countByHash_;
};

// Scalars in XML --------------------------------------------------------------------------------

constexpr string_view kSpace = " \t\r\n";
constexpr string_view kDigits = "0123456789";
constexpr string_view kHexDigits = "0123456789abcdefABCDEF";
constexpr string_view kBase64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

bool StartsWith(string_view text, string_view start) {
  return text.substr(0, start.size()) == start;
}

/// One character at least, and none but `characters`.
bool IsOf(string_view characters, string_view text) {
  return !text.empty() && text.find_first_not_of(characters) == string_view::npos;
}

std::string Trimmed(string_view text) {
  const auto begin = std::min(text.find_first_not_of(kSpace), text.size());
  return std::string(text.substr(begin, text.find_last_not_of(kSpace) + 1 - begin));
}

std::string WithoutSpace(string_view text) {
  const auto isSpace = [](char character) { return kSpace.find(character) != string_view::npos; };
  std::string kept;
  std::remove_copy_if(text.begin(), text.end(), std::back_inserter(kept), isSpace);
  return kept;
}

/// Decimal with a sign, or hexadecimal. Decimal digits after a zero are refused: libplist would
/// read an octal number.
bool IsInteger(const std::string& text) {
  const bool isNegative = text[0] == '-';
  const bool isHex = StartsWith(text, "0x") || StartsWith(text, "0X");
  const auto digits = text.substr(isHex ? 2 : isNegative || text[0] == '+' ? 1 : 0);
  errno = 0;
  const auto magnitude = std::strtoull(digits.c_str(), nullptr, isHex ? 16 : 10);
  return IsOf(isHex ? kHexDigits : kDigits, digits) && errno == 0 &&
         (isHex || digits == "0" || digits[0] != '0') &&
         (!isNegative || magnitude <= std::uint64_t{1} << 63);
}

/// Decimal, an infinity or no number: strtod() would take hexadecimal digits as well.
bool IsReal(const std::string& text) {
  char* end = nullptr;
  std::strtod(text.c_str(), &end);
  return IsOf("+-.0123456789eEinftyaINFTYA", text) && *end == '\0';
}

/// Whether a date of the right shape exists: libplist would read another one in its place.
bool IsInCalendar(string_view date) {
  constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const auto number = [&](std::size_t at) { return (date[at] - '0') * 10 + (date[at + 1] - '0'); };
  const int year = number(0) * 100 + number(2);
  const int month = number(5);
  const int day = number(8);
  if (year < 1 || month < 1 || month > 12) {
    return false;
  }
  const bool isLeapDay = month == 2 && day == 29 && year % (year % 100 == 0 ? 400 : 4) == 0;
  return day >= 1 && (day <= kDays[month - 1] || isLeapDay) && number(11) < 24 && number(14) < 60 &&
         number(17) < 60;
}

bool IsDate(string_view text) {
  constexpr string_view kShape = "0000-00-00T00:00:00Z";
  const auto fits = [](char shape, char character) {
    return shape == '0' ? kDigits.find(character) != string_view::npos : shape == character;
  };
  return std::equal(kShape.begin(), kShape.end(), text.begin(), text.end(), fits) &&
         IsInCalendar(text);
}

bool IsBase64(string_view text) {
  const std::size_t digits = text.find_last_not_of('=') + 1;
  return text.empty() || (text.size() % 4 == 0 && text.size() - digits <= 2 &&
                          IsOf(kBase64, text.substr(0, digits)));
}

/// The name between "&" and ";". libplist would take any name that begins with one of these.
bool IsEntity(string_view name) {
  if (StartsWith(name, "#")) {
    const bool isHex = StartsWith(name, "#x");
    return IsOf(isHex ? kHexDigits : kDigits, name.substr(isHex ? 2 : 1));
  }
  return name == "amp" || name == "lt" || name == "gt" || name == "quot" || name == "apos";
}

// XML -------------------------------------------------------------------------------------------

/// Reads XML tag by tag.
class XmlScan {
 public:
  explicit XmlScan(string_view bytes) : bytes_(bytes) {}

  bool EndsWithinBounds() {
    bool isWithin = bytes_.find('\0') == string_view::npos;
    while (isWithin && (at_ = bytes_.find('<', at_)) != string_view::npos) {
      isWithin = PassMarkup();
    }
    return isWithin;
  }

 private:
  /// A dictionary or array that has not ended.
  struct Container {
    string_view name;
    bool hasKey;  // whose value is to follow
    Keys keys;
  };

  bool IsAt(string_view text) const { return StartsWith(bytes_.substr(at_), text); }

  bool PassMarkup() {
    string_view passed;
    if (IsAt("<!--")) {
      return PassTo("-->", passed);
    }
    if (IsAt("<!")) {
      return IsAt("<!DOCTYPE") && PassTo(">", passed) && passed.find('[') == string_view::npos;
    }
    return IsAt("<?") ? PassTo("?>", passed) && IsUtf8(passed) : PassTag();
  }

  /// libplist reads UTF-8, whatever encoding is declared.
  static bool IsUtf8(string_view declaration) {
    constexpr auto kNone = string_view::npos;
    return declaration.find("encoding") == kNone || declaration.find("UTF-8") != kNone ||
           declaration.find("utf-8") != kNone;
  }

  /// Passes everything up to `end`. No "<" and only whole quotations may be in it, so that libplist
  /// passes neither less nor more.
  bool PassTo(string_view end, string_view& passed) {
    const std::size_t begin = at_ + 1;
    const std::size_t stop = bytes_.find(end, begin + (end == "-->" ? 3 : 0));
    if (stop == string_view::npos) {
      return false;
    }
    passed = bytes_.substr(begin, stop - begin);
    at_ = stop + end.size();
    return passed.find('<') == string_view::npos &&
           std::count(passed.begin(), passed.end(), '"') % 2 == 0;
  }

  /// Only the outermost tag may have attributes. A tag with an unknown name ends libplist's
  /// reading.
  bool PassTag() {
    string_view tag;
    if (!PassTo(">", tag)) {
      return false;
    }
    const bool isEnd = StartsWith(tag, "/");
    tag.remove_prefix(isEnd ? 1 : 0);
    const bool isEmpty = !isEnd && !tag.empty() && tag.back() == '/';
    tag.remove_suffix(isEmpty ? 1 : 0);
    const auto name = tag.substr(0, tag.find_first_of(kSpace));
    if (name == "plist") {
      return true;
    }
    const bool hasAttributes = WithoutSpace(tag) != name;
    return !hasAttributes && (isEnd ? PassEnd(name) : PassStart(name, isEmpty));
  }

  bool PassEnd(string_view name) {
    if (name != "dict" && name != "array") {
      return name.find('/') == string_view::npos;
    }
    if (open_.empty() || open_.back().name != name || open_.back().hasKey) {
      return false;
    }
    open_.pop_back();
    return true;
  }

  bool PassStart(string_view name, bool isEmpty) {
    if (!memory_.Spend(kObjectCost) || !IsInPlace(name == "key")) {
      return false;
    }
    if (name == "dict" || name == "array") {
      if (!isEmpty) {
        open_.push_back({name, false, {}});
      }
      return containers_.Spend(1);
    }
    const auto begin = at_;
    at_ = isEmpty ? begin : std::min(bytes_.find('<', begin), bytes_.size());
    return (isEmpty || IsAt("</")) && IsContent(name, bytes_.substr(begin, at_ - begin));
  }

  /// A key is followed by its value. libplist would leave out a key without one and whatever
  /// follows the root, and read a key in an array as a text.
  bool IsInPlace(bool isKey) {
    if (open_.empty()) {
      return !isKey && !std::exchange(hasRoot_, true);
    }
    Container& container = open_.back();
    if (container.name == "array") {
      return !isKey;
    }
    return std::exchange(container.hasKey, isKey) != isKey;
  }

  bool IsContent(string_view name, string_view content) {
    if (name == "integer") {
      return IsInteger(Trimmed(content));
    }
    if (name == "real") {
      return IsReal(Trimmed(content));
    }
    if (name == "data") {
      return IsBase64(WithoutSpace(content));
    }
    return name == "date" ? IsDate(content) : IsText(content) && (name != "key" || IsKey(content));
  }

  /// libplist keeps a carriage return, which is a part of a line's end in XML.
  bool IsText(string_view text) {
    for (auto at = text.find('&'); at != string_view::npos; at = text.find('&', at + 1)) {
      const auto end = std::min(text.find(';', at), text.size());
      if (!IsEntity(text.substr(at + 1, end - at - 1)) || !bytesMoved_.Spend(text.size() - at)) {
        return false;
      }
    }
    return text.find('\r') == string_view::npos;
  }

  bool IsKey(string_view key) {
    const bool isEncoded = key.find('&') != string_view::npos;
    return open_.back().keys.Insert(key, comparisons_) &&
           comparisons_.Spend(isEncoded ? kEncodedKeyCost : 0);
  }

  const string_view bytes_;
  std::size_t at_ = 0;
  bool hasRoot_ = false;
  std::vector<Container> open_;
  Budget memory_{kLargestPropertyList};
  Budget containers_{kMostContainers};
  Budget comparisons_{kMostComparisons};
  Budget bytesMoved_{kMostBytesMoved};
};

// Binary ----------------------------------------------------------------------------------------

/// Walks a binary list as libplist does, with every shared object as often as it is referred to,
/// and gives up when the walk is too long. It gets no deeper than there are containers. Positions
/// have 64 bits on every processor: a list gives them, and none may wrap into the list.
class BinaryWalk {
 public:
  explicit BinaryWalk(const std::string& bytes) : bytes_(bytes) {}

  bool EndsWithinBounds() {
    // The trailer: 6 bytes, the two sizes, then the number of objects, the root, and the table.
    if (bytes_.size() < kTrailer) {
      return false;
    }
    const std::size_t trailer = bytes_.size() - kTrailer;
    offsetSize_ = Number(trailer + 6, 1);
    referenceSize_ = Number(trailer + 7, 1);
    objects_ = Number(trailer + 8, 8);
    table_ = Number(trailer + 24, 8);
    return objects_ <= bytes_.size() && table_ <= bytes_.size() && Walk(Number(trailer + 16, 8));
  }

 private:
  static constexpr std::size_t kTrailer = 32;

  enum Type : unsigned {
    kSimple = 0,
    kInteger = 1,
    kData = 4,
    kText = 5,
    kWideText = 6,
    kArray = 10,
    kSet = 12,
    kDictionary = 13
  };

  enum Simple : std::uint64_t { kFalse = 8, kTrue = 9 };

  struct Object {
    unsigned type;
    std::uint64_t size;
    std::uint64_t content;
  };

  /// Requires: they are in the list.
  string_view Bytes(std::uint64_t at, std::uint64_t size) const {
    return string_view(bytes_).substr(static_cast<std::size_t>(at), static_cast<std::size_t>(size));
  }

  /// The big-endian number of `size` bytes at `at`; the largest number, which passes no check, when
  /// there is none.
  std::uint64_t Number(std::uint64_t at, std::uint64_t size) const {
    if (size < 1 || size > 8 || at > bytes_.size() || size > bytes_.size() - at) {
      return UINT64_MAX;
    }
    std::uint64_t number = 0;
    for (const char byte : Bytes(at, size)) {
      number = number << 8 | static_cast<unsigned char>(byte);
    }
    return number;
  }

  /// The object at `at`. A size of 15 in the first byte means that an integer with it follows.
  Object ObjectAt(std::uint64_t at) const {
    const std::uint64_t first = Number(at, 1);
    const Object object{static_cast<unsigned>(first >> 4), first & 15, at + 1};
    const bool isSized = object.type == kArray || object.type == kSet ||
                         object.type == kDictionary ||
                         (object.type >= kData && object.type <= kWideText);
    if (!isSized || object.size != 15) {
      return object;
    }
    const std::uint64_t length = std::uint64_t{1} << (Number(at + 1, 1) & 15);
    return {object.type, Number(at + 2, length), at + 2 + length};
  }

  /// The place of an object; the end of the list when there is none.
  std::uint64_t OffsetOf(std::uint64_t index) const {
    const std::uint64_t offset =
        index < objects_ ? Number(table_ + index * offsetSize_, offsetSize_) : UINT64_MAX;
    return std::min<std::uint64_t>(offset, bytes_.size());
  }

  bool Walk(std::uint64_t index) {
    const std::uint64_t offset = OffsetOf(index);
    if (offset == bytes_.size() || !memory_.Spend(kObjectCost) || !depths_.Spend(depth_)) {
      return false;
    }
    const Object object = ObjectAt(offset);
    switch (object.type) {
      case kArray:
      case kSet:
        return WalkAll(object.content, object.size);
      case kDictionary:
        return object.size <= bytes_.size() && WalkAll(object.content, 2 * object.size) &&
               AreKeys(object.content, object.size);
      case kSimple:  // no null, which some releases read and none can print as XML
        return object.size == kFalse || object.size == kTrue;
      case kInteger:
        return IsUpperHalfZero(object);
      case kText:
        return WalkText(object.content, object.size, 1);
      case kWideText:
        return WalkText(object.content, object.size, 2);
      default:
        return memory_.Spend(object.size);
    }
  }

  std::uint64_t Reference(std::uint64_t references, std::uint64_t number) const {
    return Number(references + number * referenceSize_, referenceSize_);
  }

  bool WalkAll(std::uint64_t references, std::uint64_t count) {
    if (!containers_.Spend(1)) {
      return false;
    }
    ++depth_;
    for (std::uint64_t i = 0; i < count; ++i) {
      if (!Walk(Reference(references, i))) {
        return false;
      }
    }
    --depth_;
    return true;
  }

  /// Requires objects that were walked over.
  bool AreKeys(std::uint64_t references, std::uint64_t count) {
    Keys keys;
    for (std::uint64_t i = 0; i < count; ++i) {
      const Object key = ObjectAt(OffsetOf(Reference(references, i)));
      const std::uint64_t width = key.type == kWideText ? 2 : 1;
      if ((key.type != kText && key.type != kWideText) ||
          !keys.Insert(Bytes(key.content, key.size * width), comparisons_) ||
          !comparisons_.Spend(width == 2 ? kEncodedKeyCost : 0)) {
        return false;
      }
    }
    return true;
  }

  /// Of an integer of 128 bits, libplist reads the lower half.
  bool IsUpperHalfZero(const Object& integer) const {
    return integer.size != 4 || Number(integer.content, 8) == 0;
  }

  /// ASCII or UTF-16 without a zero. Any text may be a key, and libplist ends the process when
  /// asked for one with a zero in it. It reads half of a surrogate pair as another character.
  bool WalkText(std::uint64_t characters, std::uint64_t count, std::uint64_t size) {
    if (!memory_.Spend(count)) {
      return false;
    }
    const std::uint64_t end = size == 1 ? 0x80 : 0x10000;
    bool isInPair = false;
    for (std::uint64_t i = 0; i < count; ++i) {
      const std::uint64_t unit = Number(characters + i * size, size);
      const bool isSecond = unit >> 10 == 0xDC00 >> 10;
      if (unit == 0 || unit >= end || isSecond != isInPair) {
        return false;
      }
      isInPair = unit >> 10 == 0xD800 >> 10;
    }
    return !isInPair;
  }

  const std::string& bytes_;
  std::uint64_t offsetSize_ = 0;
  std::uint64_t referenceSize_ = 0;
  std::uint64_t objects_ = 0;
  std::uint64_t table_ = 0;
  std::uint64_t depth_ = 0;
  Budget memory_{kLargestPropertyList};
  Budget containers_{kMostContainers};
  Budget comparisons_{kMostComparisons};
  Budget depths_{kMostDepths};
};

}  // namespace

std::optional<PropertyListForm> FormWithinBounds(const std::string& bytes) {
  if (bytes.size() > kLargestPropertyList) {
    return {};
  }
  if (StartsWith(bytes, "bplist")) {
    return BinaryWalk(bytes).EndsWithinBounds() ? std::optional(PropertyListForm::kBinary)
                                                : std::nullopt;
  }
  return XmlScan(bytes).EndsWithinBounds() ? std::optional(PropertyListForm::kXml) : std::nullopt;
}
