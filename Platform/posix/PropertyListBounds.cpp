#include "PropertyListBounds.h"

#include <plist/plist.h>

#include <cstddef>
#include <cstdint>

#include "PropertyList.h"

namespace {

// One bound for both forms: what is read in one may be written in the other.
constexpr int kMostContainers = 5000;
constexpr std::size_t kObjectCost = 32;

// XML -------------------------------------------------------------------------------------------

int Count(const std::string& bytes, const char* what) {
  int count = 0;
  for (auto at = bytes.find(what); at != std::string::npos; at = bytes.find(what, at + 1)) {
    ++count;
  }
  return count;
}

/// Each level of nesting needs a tag of its own, so a list has no more levels than tags.
bool IsXmlWithinBounds(const std::string& bytes) {
  return Count(bytes, "<array") + Count(bytes, "<dict") <= kMostContainers;
}

// Binary ----------------------------------------------------------------------------------------

/// Walks a binary list as libplist does, with every shared object as often as it is referred to,
/// and gives up when the walk is too long. It gets no deeper than there are containers.
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
    kInteger = 1,
    kData = 4,
    kText = 5,
    kWideText = 6,
    kArray = 10,
    kSet = 12,
    kDictionary = 13
  };

  struct Object {
    unsigned type;
    std::uint64_t size;
    std::size_t content;
  };

  /// The big-endian number of `size` bytes at `at`; the largest number, which passes no check, when
  /// there is none.
  std::uint64_t Number(std::size_t at, std::uint64_t size) const {
    if (size < 1 || size > 8 || at > bytes_.size() || size > bytes_.size() - at) {
      return UINT64_MAX;
    }
    std::uint64_t number = 0;
    for (std::size_t i = at; i < at + size; ++i) {
      number = number << 8 | static_cast<unsigned char>(bytes_[i]);
    }
    return number;
  }

  /// The object at `at`. A size of 15 in the first byte means that an integer with it follows.
  Object ObjectAt(std::size_t at) const {
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

  bool Spend(std::uint64_t size) {
    if (size > budget_) {
      return false;
    }
    budget_ -= size;
    return true;
  }

  bool Walk(std::uint64_t index) {
    if (index >= objects_ || !Spend(kObjectCost)) {
      return false;
    }
    const std::uint64_t offset = Number(table_ + index * offsetSize_, offsetSize_);
    if (offset >= bytes_.size()) {
      return false;
    }
    const Object object = ObjectAt(offset);
    switch (object.type) {
      case kArray:
      case kSet:
        return WalkAll(object.content, object.size);
      case kDictionary:
        return object.size <= bytes_.size() && WalkAll(object.content, 2 * object.size);
      case kInteger:
        return IsUpperHalfZero(object);
      case kText:
        return WalkText(object.content, object.size, 1);
      case kWideText:
        return WalkText(object.content, object.size, 2);
      default:
        return Spend(object.size);
    }
  }

  bool WalkAll(std::size_t references, std::uint64_t count) {
    if (++containers_ > kMostContainers) {
      return false;
    }
    for (std::uint64_t i = 0; i < count; ++i) {
      if (!Walk(Number(references + i * referenceSize_, referenceSize_))) {
        return false;
      }
    }
    return true;
  }

  /// Of an integer of 128 bits, libplist reads the lower half.
  bool IsUpperHalfZero(const Object& integer) const {
    return integer.size != 4 || Number(integer.content, 8) == 0;
  }

  /// Any text may be a key, and libplist ends the process when asked for one with a zero in it.
  bool WalkText(std::size_t characters, std::uint64_t count, std::uint64_t size) {
    if (!Spend(count)) {
      return false;
    }
    for (std::uint64_t i = 0; i < count; ++i) {
      if (Number(characters + i * size, size) == 0) {
        return false;
      }
    }
    return true;
  }

  const std::string& bytes_;
  std::uint64_t offsetSize_ = 0;
  std::uint64_t referenceSize_ = 0;
  std::uint64_t objects_ = 0;
  std::uint64_t table_ = 0;
  int containers_ = 0;
  std::uint64_t budget_ = PropertyList::kLargest;
};

}  // namespace

bool IsWithinBounds(const std::string& bytes) {
  if (bytes.size() > PropertyList::kLargest) {
    return false;
  }
  const bool isBinary =
      plist_is_binary(bytes.data(), static_cast<std::uint32_t>(bytes.size())) != 0;
  return isBinary ? BinaryWalk(bytes).EndsWithinBounds() : IsXmlWithinBounds(bytes);
}
