#include "PreferencesDomain.h"

#include <cerrno>
#include <cstring>
#include <set>
#include <utility>

#include "ScopedCFTypeRef.h"

namespace {

using ScopedNumber = ScopedCFTypeRef<CFNumberRef>;
using ScopedString = ScopedCFTypeRef<CFStringRef>;
using ScopedValue = ScopedCFTypeRef<CFPropertyListRef>;

/// `text` as a string that shares its bytes, which must outlive it; null when it is not UTF-8 or
/// has a zero byte.
ScopedString Wrap(const std::string& text) {
  if (text.find('\0') != std::string::npos) {
    return nullptr;
  }
  return ScopedString(CFStringCreateWithCStringNoCopy(kCFAllocatorDefault, text.c_str(),
                                                      kCFStringEncodingUTF8, kCFAllocatorNull));
}

/// As Wrap(), for identifiers and keys: the store retains the strings it was given as such, so the
/// bytes they share have to live as long as the process. The set is never destroyed, on purpose.
ScopedString WrapForever(const std::string& name) {
  static auto& names = *new std::set<std::string>;
  return Wrap(*names.insert(name).first);
}

ScopedNumber MakeNumber(int number) {
  return ScopedNumber(CFNumberCreate(kCFAllocatorDefault, kCFNumberIntType, &number));
}

ScopedValue CopyValue(const std::string& key, const std::string& applicationIdentifier) {
  const ScopedString application = WrapForever(applicationIdentifier);
  const ScopedString name = WrapForever(key);
  if (application == nullptr || name == nullptr) {
    return nullptr;
  }
  return ScopedValue(CFPreferencesCopyValue(name.get(), application.get(), kCFPreferencesAnyUser,
                                            kCFPreferencesCurrentHost));
}

/// A null `value` removes the key.
void SetValue(const std::string& key, CFPropertyListRef value,
              const std::string& applicationIdentifier) {
  const ScopedString application = WrapForever(applicationIdentifier);
  const ScopedString name = WrapForever(key);
  if (application != nullptr && name != nullptr) {
    CFPreferencesSetValue(name.get(), value, application.get(), kCFPreferencesAnyUser,
                          kCFPreferencesCurrentHost);
  }
}

/// `string` in UTF-8; nothing when it has no such form. The buffer always has room for the longest
/// form: the conversion writes beyond one that has room for the terminating zero alone.
std::optional<std::string> ToUTF8(CFStringRef string) {
  const CFIndex size =
      CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), kCFStringEncodingUTF8) + 1;
  std::string text(static_cast<std::size_t>(size), '\0');
  if (!CFStringGetCString(string, text.data(), size, kCFStringEncodingUTF8)) {
    return std::nullopt;
  }
  text.resize(text.find('\0'));
  return text;
}

std::optional<std::string> TextOf(const ScopedValue& value) {
  if (value == nullptr || CFGetTypeID(value.get()) != CFStringGetTypeID()) {
    return std::nullopt;
  }
  return ToUTF8(static_cast<CFStringRef>(value.get()));
}

std::optional<int> NumberOf(const ScopedValue& value) {
  if (value == nullptr || CFGetTypeID(value.get()) != CFNumberGetTypeID()) {
    return std::nullopt;
  }
  int number;  // holds what did fit of the value when the conversion fails
  if (!CFNumberGetValue(static_cast<CFNumberRef>(value.get()), kCFNumberIntType, &number)) {
    return std::nullopt;
  }
  // The conversion takes the last unsigned 64-bit numbers for negative ones, and says it fits.
  const ScopedNumber same = MakeNumber(number);
  if (same == nullptr || !CFEqual(value.get(), same.get())) {
    return std::nullopt;
  }
  return number;
}

}  // namespace

// Only this host is reached: others have a name that no domain can have, as it is not UTF-8.
PreferencesDomain::PreferencesDomain(const std::string& applicationIdentifier,
                                     const std::string& root)
    : name_(root.empty() ? applicationIdentifier : "\xFF") {}

void PreferencesDomain::SetText(const std::string& key, const std::string& value) {
  // The store keeps a copy of a text, so its bytes need only live until it is set.
  if (const ScopedString text = Wrap(value)) {
    SetValue(key, text.get(), name_);
  }
}

void PreferencesDomain::SetNumber(const std::string& key, int value) {
  if (const ScopedNumber number = MakeNumber(value)) {
    SetValue(key, number.get(), name_);
  }
}

void PreferencesDomain::Remove(const std::string& key) {
  SetValue(key, nullptr, name_);
}

// Each key is the system's own string: a copy of its text would lose a key without a UTF-8 form.
bool PreferencesDomain::RemoveAll() {
  const ScopedString application = WrapForever(name_);
  if (application == nullptr) {
    return false;
  }
  const ScopedCFTypeRef<CFArrayRef> keys(CFPreferencesCopyKeyList(
      application.get(), kCFPreferencesAnyUser, kCFPreferencesCurrentHost));
  const CFIndex count = keys != nullptr ? CFArrayGetCount(keys.get()) : 0;
  for (CFIndex i = 0; i < count; ++i) {
    CFPreferencesSetValue(static_cast<CFStringRef>(CFArrayGetValueAtIndex(keys.get(), i)), nullptr,
                          application.get(), kCFPreferencesAnyUser, kCFPreferencesCurrentHost);
  }
  return count > 0;
}

bool PreferencesDomain::Has(const std::string& key) const {
  return CopyValue(key, name_) != nullptr;
}

bool PreferencesDomain::GetText(const std::string& key, char* buffer, std::size_t size) const {
  const auto text = TextOf(CopyValue(key, name_));
  if (!text || text->length() >= size) {
    return false;
  }
  std::memcpy(buffer, text->c_str(), text->length() + 1);
  return true;
}

std::optional<int> PreferencesDomain::GetNumber(const std::string& key) const {
  return NumberOf(CopyValue(key, name_));
}

bool PreferencesDomain::Flush() {
  const ScopedString application = WrapForever(name_);
  return application != nullptr &&
         CFPreferencesSynchronize(application.get(), kCFPreferencesAnyUser,
                                  kCFPreferencesCurrentHost);
}

// CoreFoundation does not say whether it could read a domain of this host. Not a flush's result:
// that may be false for a process that cannot write, even when it has nothing to write.
std::optional<std::vector<PreferencesDomain::Value>> PreferencesDomain::Read(
    const std::vector<std::string>& keys) const {
  if (WrapForever(name_) == nullptr) {
    errno = ENOTSUP;
    return std::nullopt;
  }
  std::vector<Value> values;
  for (const std::string& key : keys) {
    const ScopedValue value = CopyValue(key, name_);
    values.push_back({value != nullptr, NumberOf(value), TextOf(value)});
  }
  return values;
}

// The system's daemon owns the file, and keeps it.
bool PreferencesDomain::Erase(const std::vector<std::string>& keys) {
  for (const std::string& key : keys) {
    Remove(key);
  }
  errno = EACCES;  // CoreFoundation tells no reason; a missing right is the usual one
  return Flush();
}
