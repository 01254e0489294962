#ifndef PLATFORM_POSIX_PROPERTYLIST_H_
#define PLATFORM_POSIX_PROPERTYLIST_H_

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>

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
  static constexpr std::size_t kLargest = std::size_t{16} << 20;

  /// An empty dictionary.
  PropertyList();

  /// The list that `bytes` are, XML or binary; nothing when they are none, have another root, or
  /// are made to exhaust the stack or the memory.
  static std::optional<PropertyList> Parse(const std::string& bytes);

  /// Whether a list can hold `text` as a value or a key: any UTF-8 without a zero byte.
  static bool IsText(const std::string& text);

  /// The keys with their values. A number that is not exactly a signed 32-bit integer, and a
  /// boolean, are of other type.
  Contents Values() const;

  /// Texts and keys that are no IsText() are not allowed.
  void Apply(const Changes& changes);

  /// The list as XML or, when XML cannot hold one of the values exactly (a control character, a
  /// date's fraction of a second, a UID), as a binary list. Nothing when that is too large to be
  /// read again.
  std::optional<std::string> Print() const;

 private:
  struct FreeNode {
    void operator()(void* node) const;
  };
  using Node = std::unique_ptr<void, FreeNode>;

  explicit PropertyList(Node root);

  Node root_;
};

#endif  // PLATFORM_POSIX_PROPERTYLIST_H_
