#include "Object.h"

#include <sys/auxv.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

void Require(bool holds, const char* mistake) {
  if (!holds) {
    std::fprintf(stderr, "CoreFoundation's double: %s\n", mistake);
    std::abort();
  }
}

namespace {

/// The living objects and how many owners each has. Never destroyed: objects outlive main().
std::map<CFTypeRef, int>& Owners() {
  static auto& owners = *new std::map<CFTypeRef, int>;
  return owners;
}

}  // namespace

const Object* Make(Object object) {
  const auto* made = new Object(std::move(object));
  Owners()[made] = 1;
  return made;
}

const Object* Get(CFTypeRef reference, std::optional<Kind> kind) {
  Require(reference != nullptr, "a null object");
  Require(Owners().count(reference) != 0, "an object that was released");
  const auto* object = static_cast<const Object*>(reference);
  Require(!kind || object->kind == *kind, "an object of another type");
  return object;
}

const Object* Retain(CFTypeRef reference) {
  const Object* object = Get(reference);
  ++Owners()[reference];
  return object;
}

std::size_t CountLiveObjects() {
  return Owners().size();
}

std::string Mode() {
  const char* mode = std::getenv("COREFOUNDATION_DOUBLE");
  return mode == nullptr ? "stock" : std::string(mode, std::strcspn(mode, " "));
}

bool Fails(const char* function) {
  const char* mode = std::getenv("COREFOUNDATION_DOUBLE");
  return mode != nullptr &&
         (std::strcmp(mode, "failing") == 0 || std::string("failing ") + function == mode);
}

namespace {

bool IsContinuation(unsigned char byte) {
  return (byte & 0xC0U) == 0x80;
}

/// How many bytes the character has in UTF-8 that begins with this one; 0 if none does.
std::size_t LengthFrom(unsigned char first) {
  if (first < 0x80) {
    return 1;
  }
  if (first < 0xC2 || first > 0xF4) {
    return 0;
  }
  return first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
}

/// How many bytes the character at `text` has in UTF-8; 0 if there is none.
std::size_t CharacterLength(const unsigned char* text) {
  const std::size_t length = LengthFrom(text[0]);
  for (std::size_t i = 1; i < length; ++i) {
    if (!IsContinuation(text[i])) {
      return 0;
    }
  }
  const bool isOverlong =
      (text[0] == 0xE0 && text[1] < 0xA0) || (text[0] == 0xF0 && text[1] < 0x90);
  const bool isBeyond = (text[0] == 0xED && text[1] > 0x9F) || (text[0] == 0xF4 && text[1] > 0x8F);
  return isOverlong || isBeyond ? 0 : length;
}

bool IsUTF8(const char* text) {
  const auto* next = reinterpret_cast<const unsigned char*>(text);
  while (*next != '\0') {
    const std::size_t length = CharacterLength(next);
    if (length == 0) {
      return false;
    }
    next += length;
  }
  return true;
}

bool IsFloat(const Object* number) {
  return number->text.rfind("<real>", 0) == 0;
}

/// The text between the tags of a number.
const char* Digits(const Object* number) {
  return std::strchr(number->text.c_str(), '>') + 1;
}

long double ToReal(const Object* number) {
  return std::strtold(Digits(number), nullptr);
}

/// The number in 64 bits. On purpose, as CoreFoundation does: a number from 2^63 on is converted to
/// a negative one.
long long ToInteger(const Object* number) {
  if (IsFloat(number)) {
    return static_cast<long long>(ToReal(number));
  }
  const char* digits = Digits(number);
  return *digits == '-' ? std::strtoll(digits, nullptr, 10)
                        : static_cast<long long>(std::strtoull(digits, nullptr, 10));
}

const Object kDefaultAllocator{Kind::kAllocator};
const Object kNullAllocator{Kind::kAllocator};

/// The path by which the process was executed, without links.
std::filesystem::path Executable() {
  std::error_code error;
  return std::filesystem::canonical(reinterpret_cast<const char*>(getauxval(AT_EXECFN)), error);
}

}  // namespace

extern "C" {

// Objects ---------------------------------------------------------------------------------------

const CFAllocatorRef kCFAllocatorDefault = As<CFAllocatorRef>(&kDefaultAllocator);
const CFAllocatorRef kCFAllocatorNull = As<CFAllocatorRef>(&kNullAllocator);

void CFRelease(CFTypeRef object) {
  const Object* released = Get(object);
  if (--Owners()[object] > 0) {
    return;
  }
  for (const Object* member : released->members) {
    CFRelease(member);
  }
  Owners().erase(object);
  delete released;
}

CFTypeID CFGetTypeID(CFTypeRef object) {
  return static_cast<CFTypeID>(Get(object)->kind);
}

Boolean CFEqual(CFTypeRef one, CFTypeRef other) {
  const Object* const a = Get(one);
  const Object* const b = Get(other);
  if (a->kind == Kind::kNumber && b->kind == Kind::kNumber) {
    return ToReal(a) == ToReal(b);
  }
  return a->kind == b->kind && std::strcmp(a->Text(), b->Text()) == 0;
}

// Strings ---------------------------------------------------------------------------------------

CFTypeID CFStringGetTypeID() {
  return static_cast<CFTypeID>(Kind::kString);
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef, const char* text, CFStringEncoding encoding) {
  Require(text != nullptr && encoding == kCFStringEncodingUTF8, "a string that is not UTF-8");
  return Fails(__func__) || !IsUTF8(text) ? nullptr : As<CFStringRef>(Make({Kind::kString, text}));
}

CFStringRef CFStringCreateWithCStringNoCopy(CFAllocatorRef, const char* text,
                                            CFStringEncoding encoding,
                                            CFAllocatorRef contentsDeallocator) {
  Require(text != nullptr && encoding == kCFStringEncodingUTF8, "a string that is not UTF-8");
  Require(contentsDeallocator == kCFAllocatorNull, "a string whose text would be freed");
  return Fails(__func__) || !IsUTF8(text) ? nullptr
                                          : As<CFStringRef>(Make({Kind::kString, {}, text}));
}

/// In UTF-16.
CFIndex CFStringGetLength(CFStringRef string) {
  CFIndex length = 0;
  for (const char* text = Get(string, Kind::kString)->Text(); *text != '\0'; ++text) {
    const auto byte = static_cast<unsigned char>(*text);
    length += IsContinuation(byte) ? 0 : byte < 0xF0 ? 1 : 2;
  }
  return length;
}

CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding) {
  Require(encoding == kCFStringEncodingUTF8, "an encoding that is not UTF-8");
  return length * 3;
}

Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex size,
                           CFStringEncoding encoding) {
  Require(encoding == kCFStringEncodingUTF8, "an encoding that is not UTF-8");
  const std::string text = Get(string, Kind::kString)->Text();
  if (Fails(__func__) || !IsUTF8(text.c_str()) || static_cast<CFIndex>(text.length()) >= size) {
    return false;
  }
  std::memcpy(buffer, text.c_str(), text.length() + 1);
  return true;
}

// Numbers ---------------------------------------------------------------------------------------

CFTypeID CFNumberGetTypeID() {
  return static_cast<CFTypeID>(Kind::kNumber);
}

CFNumberRef CFNumberCreate(CFAllocatorRef, CFNumberType type, const void* value) {
  Require(type == kCFNumberIntType, "a number of a type that the double does not make");
  const std::string digits = std::to_string(*static_cast<const int*>(value));
  return Fails(__func__)
             ? nullptr
             : As<CFNumberRef>(Make({Kind::kNumber, "<integer>" + digits + "</integer>"}));
}

/// Gives what fits of a value that does not fit.
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value) {
  const Object* const object = Get(number, Kind::kNumber);
  const long long integer = ToInteger(object);
  const bool isWhole = !IsFloat(object) || ToReal(object) == static_cast<long double>(integer);
  if (type == kCFNumberSInt64Type) {
    *static_cast<std::int64_t*>(value) = integer;
    return isWhole && !Fails(__func__);
  }
  Require(type == kCFNumberIntType, "a number of a type that the double does not give");
  *static_cast<int*>(value) = static_cast<int>(integer);
  return isWhole && integer >= INT_MIN && integer <= INT_MAX && !Fails(__func__);
}

Boolean CFNumberIsFloatType(CFNumberRef number) {
  return IsFloat(Get(number, Kind::kNumber));
}

// Collections and property lists ----------------------------------------------------------------

CFIndex CFArrayGetCount(CFArrayRef array) {
  return static_cast<CFIndex>(Get(array, Kind::kArray)->members.size());
}

const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index) {
  const Object* const object = Get(array, Kind::kArray);
  Require(index >= 0 && index < CFArrayGetCount(array), "an index beyond the array");
  return object->members[static_cast<std::size_t>(index)];
}

CFDataRef CFDataCreate(CFAllocatorRef, const UInt8* bytes, CFIndex length) {
  return As<CFDataRef>(Make({Kind::kData, std::string(bytes, bytes + length)}));
}

CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef, CFDataRef data, CFOptionFlags,
                                               CFIndex* format, CFErrorRef* error) {
  Require(format == nullptr && error == nullptr, "a result that the double does not give");
  const auto contents = ParsePropertyList(Get(data, Kind::kData)->text);
  return contents ? Make({Kind::kDictionary, {}, nullptr, {}, *contents}) : nullptr;
}

// Bundles ---------------------------------------------------------------------------------------

/// Never released: what a "Get" function gives is not the caller's.
CFBundleRef CFBundleGetMainBundle() {
  static const Object* const bundle =
      Make({Kind::kBundle, Executable().parent_path().parent_path().parent_path()});
  return Fails(__func__) ? nullptr : As<CFBundleRef>(bundle);
}

CFURLRef CFBundleCopyResourcesDirectoryURL(CFBundleRef bundle) {
  const Object* const object = Get(bundle, Kind::kBundle);
  return Fails(__func__) ? nullptr : As<CFURLRef>(Make({Kind::kURL, object->text}));
}

Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean resolveAgainstBase, UInt8* buffer,
                                         CFIndex size) {
  if (size < 2) {
    std::abort();  // the system's writes beyond such a buffer
  }
  const std::string base = resolveAgainstBase ? Get(url, Kind::kURL)->text + "/" : "";
  const std::string path = base + "Contents/Resources";
  if (Fails(__func__) || static_cast<CFIndex>(path.length()) >= size) {
    return false;
  }
  std::memcpy(buffer, path.c_str(), path.length() + 1);
  return true;
}

}  // extern "C"
