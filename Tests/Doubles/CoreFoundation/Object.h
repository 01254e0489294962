#ifndef TESTS_DOUBLES_COREFOUNDATION_OBJECT_H_
#define TESTS_DOUBLES_COREFOUNDATION_OBJECT_H_

#include <CoreFoundation/CoreFoundation.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

/// What an object of the double is.
enum class Kind : CFTypeID {
  kAllocator,
  kArray,
  kBoolean,
  kBundle,
  kData,
  kDictionary,
  kNumber,
  kString,
  kURL
};

/// A value of a property list: the text of a string, the XML element of anything else.
struct Value {
  Kind kind;
  std::string text;
};

using Contents = std::map<std::string, Value>;

/// Every reference of the double is the address of one of these.
struct Object {
  Kind kind;
  std::string text{};            ///< As in Value; the bytes of data; the path of a URL or bundle.
  const char* shared = nullptr;  ///< The text of a string made without a copy.
  std::vector<const Object*> members{};  ///< Of an array, which owns them.
  Contents values{};                     ///< Of a dictionary.

  const char* Text() const { return shared != nullptr ? shared : text.c_str(); }
};

/// Ends the process, naming `mistake`, unless `holds`.
void Require(bool holds, const char* mistake);

/// Makes an object with one owner, who must release it.
const Object* Make(Object object);

/// The object behind a reference. Requires: it is alive, and of this kind if one is given.
const Object* Get(CFTypeRef reference, std::optional<Kind> kind = std::nullopt);

/// The same object with one more owner.
const Object* Retain(CFTypeRef reference);

/// How many objects are alive.
std::size_t CountLiveObjects();

template <typename Ref>
Ref As(const Object* object) {
  return reinterpret_cast<Ref>(const_cast<Object*>(object));
}

/// The word that COREFOUNDATION_DOUBLE begins with; "stock" without one.
std::string Mode();

/// Whether the mode lets the function fail.
bool Fails(const char* function);

/// Reads an XML property list whose root is a dictionary. Returns nothing for any other text.
std::optional<Contents> ParsePropertyList(const std::string& xml);
std::string PrintPropertyList(const Contents& contents);

#endif  // TESTS_DOUBLES_COREFOUNDATION_OBJECT_H_
