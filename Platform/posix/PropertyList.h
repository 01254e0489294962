#ifndef PLATFORM_POSIX_PROPERTYLIST_H_
#define PLATFORM_POSIX_PROPERTYLIST_H_

#include <cstddef>
#include <map>
#include <optional>
#include <pugixml.hpp>
#include <string>
#include <variant>

#include "PreferencesDomain.h"

/// An XML property list with a dictionary as root. The bytes of unchanged values stay. Values of
/// other types than string and integer can only be removed or replaced.
class PropertyList {
 public:
  using Contents = std::map<std::string, PreferencesDomain::Value>;
  /// The keys to change. A key with a value gets this value; a key without a value is removed.
  using Changes = std::map<std::string, std::optional<std::variant<std::string, int>>>;

  /// The largest file, in bytes, that is read or written.
  static constexpr std::size_t kLargest = std::size_t{1} << 20;
  /// The largest depth of elements below `plist`; the dictionary has the depth 1. The limit bounds
  /// the stack, because the removal of an element is recursive.
  static constexpr int kMostLevels = 100;

  /// Makes a list without keys.
  PropertyList();

  /// Returns the list in `bytes`. Returns nothing if
  ///  - the XML library cannot read `bytes` as XML in UTF-8, or would write other bytes: for a
  ///    comment with "--", or an attribute with a double quote;
  ///  - the root is not one `plist` with one `dict`, in which keys and values alternate;
  ///  - a key does not satisfy IsText();
  ///  - an element is deeper than kMostLevels.
  static std::optional<PropertyList> Parse(const std::string& bytes);

  /// Returns whether a list can hold `text` as a value or a key: `text` is UTF-8 without a zero
  /// byte.
  static bool IsText(const std::string& text);

  /// Returns the keys with their values. A key that occurs several times has the first value.
  Contents Values() const;

  /// Makes `changes`. A changed key keeps the position, and new keys follow the others. If a
  /// changed key occurs several times, the other values of the key are removed.
  ///
  /// Requires: every text and key satisfies IsText().
  void Apply(const Changes& changes);

  /// Returns the list in the form that Parse() reads.
  std::string Print() const;

 private:
  /// Returns the root's dictionary; null if the document is no list.
  pugi::xml_node Dictionary() const;

  pugi::xml_document document_;
};

#endif  // PLATFORM_POSIX_PROPERTYLIST_H_
