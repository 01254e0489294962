// Uses CoreFoundation in a new process for each call. A process sees its changes before the sync,
// and sees the changes of other processes late.

#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <vector>

#include "AnotherProcess.h"
#include "InstallerConstants.h"
#include "ScopedCFTypeRef.h"
#include "StoredRecord.h"

namespace {

const char* program = nullptr;  // the path of this executable

using ScopedArray = ScopedCFTypeRef<CFArrayRef>;
using ScopedString = ScopedCFTypeRef<CFStringRef>;
using ScopedValue = ScopedCFTypeRef<CFPropertyListRef>;

ScopedString Domain() {
  return ScopedString(
      CFStringCreateWithCString(nullptr, PLIST_SECTION_KEY.c_str(), kCFStringEncodingUTF8));
}

/// Returns the keys, or null for a domain without keys.
ScopedArray Keys() {
  return ScopedArray(
      CFPreferencesCopyKeyList(Domain().get(), kCFPreferencesAnyUser, kCFPreferencesCurrentHost));
}

std::string ToText(CFStringRef string) {
  std::string text(static_cast<std::size_t>(CFStringGetLength(string)) * 3 + 1, '\0');
  CFStringGetCString(string, text.data(), static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8);
  return text.substr(0, text.find('\0'));
}

std::string Described(CFPropertyListRef value) {
  if (CFGetTypeID(value) == CFStringGetTypeID()) {
    return "'" + ToText(static_cast<CFStringRef>(value)) + "'";
  }
  if (CFGetTypeID(value) != CFNumberGetTypeID() ||
      CFNumberIsFloatType(static_cast<CFNumberRef>(value)) != 0) {
    return "other";
  }
  std::int64_t number = 0;
  CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberSInt64Type, &number);
  return std::to_string(number);
}

bool Set(CFDictionaryRef values, CFArrayRef removed) {
  const ScopedString domain = Domain();
  CFPreferencesSetMultiple(values, removed, domain.get(), kCFPreferencesAnyUser,
                           kCFPreferencesCurrentHost);
  return CFPreferencesSynchronize(domain.get(), kCFPreferencesAnyUser, kCFPreferencesCurrentHost) !=
         0;
}

bool WriteList(const std::string& list) {
  const ScopedCFTypeRef<CFDataRef> data(CFDataCreate(
      nullptr, reinterpret_cast<const UInt8*>(list.data()), static_cast<CFIndex>(list.length())));
  const ScopedValue values(CFPropertyListCreateWithData(
      nullptr, data.get(), kCFPropertyListImmutable, nullptr, nullptr));
  const ScopedArray keys = Keys();
  return values != nullptr && (keys == nullptr || Set(nullptr, keys.get())) &&
         Set(static_cast<CFDictionaryRef>(values.get()), nullptr);
}

bool Print() {
  std::map<std::string, std::string> members;
  const ScopedArray keys = Keys();
  const ScopedString domain = Domain();
  for (CFIndex i = 0; keys != nullptr && i < CFArrayGetCount(keys.get()); ++i) {
    const auto* const key = static_cast<CFStringRef>(CFArrayGetValueAtIndex(keys.get(), i));
    const ScopedValue value(CFPreferencesCopyValue(key, domain.get(), kCFPreferencesAnyUser,
                                                   kCFPreferencesCurrentHost));
    members[ToText(key)] = Described(value.get());
  }
  for (const auto& [key, text] : members) {
    std::printf("%s=%s ", key.c_str(), text.c_str());
  }
  return true;
}

/// Acts as the other process: reads the record, or writes `list` if `list` is not null.
bool Obey(const char* list) {
  return list == nullptr ? Print() : WriteList(list);
}

/// Executes this program again with `arguments` and returns its output.
std::string InAnotherProcess(const std::vector<std::string>& arguments) {
  return OutputOfProcess(program, arguments);
}

}  // namespace

std::optional<std::string> StoredRecord::File() {
  return std::nullopt;
}

void StoredRecord::Remove() {
  Write("");
}

void StoredRecord::Write(const std::string& members) {
  InAnotherProcess({"store", PropertyList(members)});
  // This process may see the changes of other processes only after a synchronization.
  CFPreferencesSynchronize(Domain().get(), kCFPreferencesAnyUser, kCFPreferencesCurrentHost);
}

std::string StoredRecord::Read() {
  return InAnotherProcess({"store"});
}

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  program = argv[0];
  return argc > 1 ? (Obey(argv[2]) ? 0 : 1) : RUN_ALL_TESTS();
}
