#include "PreferencesDomain.h"

#include <cerrno>
#include <set>
#include <utility>

#include "ScopedCFTypeRef.h"

namespace {

using ScopedNumber = ScopedCFTypeRef<CFNumberRef>;
using ScopedString = ScopedCFTypeRef<CFStringRef>;
using ScopedValue = ScopedCFTypeRef<CFPropertyListRef>;

/// Returns a string that shares the bytes of `text`. Returns null if `text` is not UTF-8 or has a
/// zero byte. Requires: `text` outlives the string.
ScopedString Wrap(const std::string& text) {
  if (text.find('\0') != std::string::npos) {
    return nullptr;
  }
  return ScopedString(CFStringCreateWithCStringNoCopy(kCFAllocatorDefault, text.c_str(),
                                                      kCFStringEncodingUTF8, kCFAllocatorNull));
}

/// Returns a string as Wrap() does, for identifiers and keys. CoreFoundation retains these strings,
/// so the shared bytes live as long as the process. The set is never destroyed, on purpose.
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

/// Sets the value of `key`. A null `value` removes the key.
void SetValue(const std::string& key, CFPropertyListRef value,
              const std::string& applicationIdentifier) {
  const ScopedString application = WrapForever(applicationIdentifier);
  const ScopedString name = WrapForever(key);
  if (application != nullptr && name != nullptr) {
    CFPreferencesSetValue(name.get(), value, application.get(), kCFPreferencesAnyUser,
                          kCFPreferencesCurrentHost);
  }
}

/// Returns `string` in UTF-8, or nothing if the string has no UTF-8 form. The buffer has room for
/// the longest form: the conversion writes beyond a buffer for the terminating zero alone.
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
  int number;  // is set to other bits if the conversion fails
  if (!CFNumberGetValue(static_cast<CFNumberRef>(value.get()), kCFNumberIntType, &number)) {
    return std::nullopt;
  }
  // The conversion of an unsigned number from 2^63 on succeeds, with a negative number.
  const ScopedNumber same = MakeNumber(number);
  if (same == nullptr || !CFEqual(value.get(), same.get())) {
    return std::nullopt;
  }
  return number;
}

}  // namespace

// The back end reaches this host only. A domain of another host gets a name that is not UTF-8, so
// no call finds the domain.
PreferencesDomain::PreferencesDomain(const std::string& applicationIdentifier,
                                     const std::string& root)
    : name_(root.empty() ? applicationIdentifier : "\xFF") {}

void PreferencesDomain::SetText(const std::string& key, const std::string& value) {
  // CoreFoundation copies the text, so the bytes can go after this call.
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

// The keys are the system's own strings: some keys have no UTF-8 form.
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

bool PreferencesDomain::Flush() {
  const ScopedString application = WrapForever(name_);
  return application != nullptr &&
         CFPreferencesSynchronize(application.get(), kCFPreferencesAnyUser,
                                  kCFPreferencesCurrentHost);
}

// CoreFoundation does not report whether a domain of this host was readable. The result of a flush
// does not show this either: a flush may fail for a process without the right to write.
bool PreferencesDomain::Read(const std::vector<std::string>& keys,
                             std::vector<Value>* values) const {
  values->clear();
  for (const std::string& key : keys) {
    const ScopedValue value = CopyValue(key, name_);
    values->push_back({value != nullptr, NumberOf(value), TextOf(value)});
  }
  errno = ENOTSUP;
  return WrapForever(name_) != nullptr;
}

// The file belongs to the system's daemon, which keeps the file.
bool PreferencesDomain::Erase(const std::vector<std::string>& keys) {
  for (const std::string& key : keys) {
    Remove(key);
  }
  errno = EACCES;  // CoreFoundation gives no reason; the usual reason is a missing right
  return Flush();
}
