#ifndef PLATFORM_POSIX_PROPERTYLIST_H_
#define PLATFORM_POSIX_PROPERTYLIST_H_

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>

#include "PropertyListBounds.h"

/// A property list whose root is a dictionary. Values of every type are kept; those of other types
/// than text and number can only be removed or replaced.
class PropertyList {
 public:
  struct OtherType {};
  using Value = std::variant<OtherType, std::string, int>;
  using Contents = std::map<std::string, Value>;
  /// The keys to change, with a new value or, to remove a key, none.
  using Changes = std::map<std::string, std::optional<std::variant<std::string, int>>>;

  /// The largest list, in bytes, that is read or printed.
  static constexpr std::size_t kLargest = kLargestPropertyList;

  /// An empty dictionary.
  PropertyList();

  /// Returns the list in `bytes`, XML or binary. Returns nothing if they are no list, have another
  /// root, hold a value that would not be read exactly, or exceed the bounds of FormWithinBounds().
  static std::optional<PropertyList> Parse(const std::string& bytes);

  /// Whether a list can hold `text` as a value or a key: any UTF-8 without a zero byte.
  static bool IsText(const std::string& text);

  /// The keys with their values. A number that is not exactly a signed 32-bit integer, and a
  /// boolean, are of other type.
  Contents Values() const;

  /// A key that gets a new value keeps its place; new keys follow the others.
  ///
  /// Requires: every text and key satisfies IsText().
  void Apply(const Changes& changes);

  /// The list as XML. The list as a binary list when XML would be too large or cannot hold one of
  /// the values exactly (a control character, a date's fraction of a second, a UID). Nothing when
  /// that is too large as well. What is returned was read again and has the same values.
  std::optional<std::string> Print() const;

 private:
  struct FreeNode {
    void operator()(void* node) const;
  };
  using Node = std::unique_ptr<void, FreeNode>;

  explicit PropertyList(Node root);

  /// The list in that form; nothing when it would not be the same when read again.
  std::optional<std::string> PrintAs(PropertyListForm form) const;

  Node root_;
};

#endif  // PLATFORM_POSIX_PROPERTYLIST_H_
