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
  /// The keys to change, with a new value or, to remove a key, none.
  using Changes = std::map<std::string, std::optional<std::variant<std::string, int>>>;

  /// The largest file, in bytes, that is read or written.
  static constexpr std::size_t kLargest = std::size_t{1} << 20;
  /// The levels of elements below `plist`, of which the dictionary is the first. Removing an
  /// element recurses.
  static constexpr int kMostLevels = 100;

  /// An empty dictionary.
  PropertyList();

  /// Returns the list in `bytes`. Returns nothing if
  ///  - they are not XML in UTF-8, as far as the XML library can tell, or not written as they were
  ///    read: a comment with "--" or an attribute with a double quote in it;
  ///  - there is anything but one `plist` with one `dict`, in which keys and values alternate;
  ///  - a key is no text, as IsText() says;
  ///  - there are more than kMostLevels levels.
  static std::optional<PropertyList> Parse(const std::string& bytes);

  /// Whether a list can hold `text` as a value or a key: any UTF-8 without a zero byte.
  static bool IsText(const std::string& text);

  /// The keys with their values; the first value of a key that occurs several times.
  Contents Values() const;

  /// A changed key keeps the position, and new keys follow the others. If a changed key occurs
  /// several times, the other values are removed.
  ///
  /// Requires: every text and key satisfies IsText().
  void Apply(const Changes& changes);

  /// The list as bytes that Parse() reads.
  std::string Print() const;

 private:
  /// Null if the document is no list.
  pugi::xml_node Dictionary() const;

  pugi::xml_document document_;
};

#endif  // PLATFORM_POSIX_PROPERTYLIST_H_
