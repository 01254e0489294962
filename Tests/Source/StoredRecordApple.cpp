// By CoreFoundation, each time in a process of its own: within one, changes that are not on the
// disk show as if they were, and what others have written shows late.

#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <vector>

#include "InstallerConstants.h"
#include "ScopedCFTypeRef.h"
#include "StoredRecord.h"

extern "C" char** environ;  // not every system's headers declare it

namespace {

const char* program = nullptr;  // the path this process was executed by

using ScopedArray = ScopedCFTypeRef<CFArrayRef>;
using ScopedString = ScopedCFTypeRef<CFStringRef>;
using ScopedValue = ScopedCFTypeRef<CFPropertyListRef>;

ScopedString Domain() {
  return ScopedString(
      CFStringCreateWithCString(nullptr, PLIST_SECTION_KEY.c_str(), kCFStringEncodingUTF8));
}

/// Null for a domain without keys.
ScopedArray Keys() {
  return ScopedArray(
      CFPreferencesCopyKeyList(Domain().get(), kCFPreferencesAnyUser, kCFPreferencesCurrentHost));
}

std::string ToText(CFStringRef string) {
  std::string text(static_cast<std::size_t>(CFStringGetLength(string)) * 3 + 1, '\0');
  CFStringGetCString(string, text.data(), static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8);
  return text.c_str();
}

std::string Described(CFPropertyListRef value) {
  if (CFGetTypeID(value) == CFStringGetTypeID()) {
    return "'" + ToText(static_cast<CFStringRef>(value)) + "'";
  }
  if (CFGetTypeID(value) != CFNumberGetTypeID() ||
      CFNumberIsFloatType(static_cast<CFNumberRef>(value))) {
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
  return CFPreferencesSynchronize(domain.get(), kCFPreferencesAnyUser, kCFPreferencesCurrentHost);
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
    const auto key = static_cast<CFStringRef>(CFArrayGetValueAtIndex(keys.get(), i));
    const ScopedValue value(CFPreferencesCopyValue(key, domain.get(), kCFPreferencesAnyUser,
                                                   kCFPreferencesCurrentHost));
    members[ToText(key)] = Described(value.get());
  }
  for (const auto& [key, text] : members) {
    std::printf("%s=%s ", key.c_str(), text.c_str());
  }
  return true;
}

/// The other process: without an argument it reads, with one it writes.
bool Obey(const char* list) {
  return list == nullptr ? Print() : WriteList(list);
}

/// What this program prints when it is executed again with `arguments`.
std::string InAnotherProcess(std::vector<std::string> arguments) {
  std::vector<char*> argv{const_cast<char*>(program)};
  for (auto& argument : arguments) {
    argv.push_back(argument.data());
  }
  argv.push_back(nullptr);
  int ends[2];
  EXPECT_EQ(0, pipe(ends));
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  pid_t child = -1;
  EXPECT_EQ(0, posix_spawn(&child, program, &actions, nullptr, argv.data(), environ));
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  std::string output;
  for (char byte; read(ends[0], &byte, 1) == 1;) {
    output += byte;
  }
  close(ends[0]);
  int status = -1;
  EXPECT_EQ(child, waitpid(child, &status, 0));
  EXPECT_EQ(0, status);
  return output;
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
}

std::string StoredRecord::Read() {
  return InAnotherProcess({"store"});
}

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  program = argv[0];
  return argc > 1 ? (Obey(argv[2]) ? 0 : 1) : RUN_ALL_TESTS();
}
