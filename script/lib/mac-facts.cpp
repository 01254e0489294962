// Asks CoreFoundation's preferences, for script/mac-facts, in its own domain: all users, this
// host. One line an answer.
//
//   mac-facts synchronize     the result with nothing to write
//   mac-facts get | keys      the value or the number of keys in this process
//   mac-facts hold NUMBER     sets the number, waits two seconds, synchronizes, waits again
//   mac-facts remove          removes the key, synchronizes
//   mac-facts resources       the main bundle's Resources directory, for buffers of several sizes
//   mac-facts exclusive FILE  whether fopen() with "x" refuses a file that exists
//   mac-facts unlink PATH     whether unlink() removes this directory
//   mac-facts listing PATH    the number of files that stay when each of 1,000 new files in this
//                             directory is removed during the listing

#include <CoreFoundation/CoreFoundation.h>
#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

// Nothing is released: each process answers once and ends.
// NOLINTBEGIN(clang-analyzer-osx.cocoa.RetainCount)

namespace {

constexpr unsigned int kPause = 2;  // seconds

CFStringRef Text(const char* text) {
  return CFStringCreateWithCString(nullptr, text, kCFStringEncodingUTF8);
}

const CFStringRef domain = Text("com.veltrane.orlisk.facts.plist");
const CFStringRef key = Text("number");

const char* Synchronize() {
  return CFPreferencesSynchronize(domain, kCFPreferencesAnyUser, kCFPreferencesCurrentHost) != 0
             ? "true"
             : "false";
}

void Set(CFPropertyListRef value) {
  CFPreferencesSetValue(key, value, domain, kCFPreferencesAnyUser, kCFPreferencesCurrentHost);
}

void Get() {
  const CFPropertyListRef value =
      CFPreferencesCopyValue(key, domain, kCFPreferencesAnyUser, kCFPreferencesCurrentHost);
  int number = 0;
  if (value == nullptr) {
    std::puts("value: none");
  } else if (CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberIntType, &number) != 0) {
    std::printf("value: %d\n", number);
  }
}

void Keys() {
  const CFArrayRef keys =
      CFPreferencesCopyKeyList(domain, kCFPreferencesAnyUser, kCFPreferencesCurrentHost);
  std::printf("keys: %s\n",
              keys == nullptr ? "null" : std::to_string(CFArrayGetCount(keys)).c_str());
}

void Hold(int number) {
  Set(CFNumberCreate(nullptr, kCFNumberIntType, &number));
  Get();
  sleep(kPause);
  std::printf("synchronize: %s\n", Synchronize());
  sleep(kPause);
  Get();
}

void Resources() {
  constexpr Boolean kResolve = 1;
  const CFURLRef url = CFBundleCopyResourcesDirectoryURL(CFBundleGetMainBundle());
  for (const CFIndex size : {2, 16, 1024, 4096}) {
    std::string buffer(4096, '\0');
    const bool fits =
        url != nullptr && CFURLGetFileSystemRepresentation(
                              url, kResolve, reinterpret_cast<UInt8*>(buffer.data()), size) != 0;
    std::printf("resources in %ld bytes: %s\n", size, fits ? buffer.c_str() : "none");
  }
}

void Exclusive(const std::string& path) {
  const bool isMade = std::fopen(path.c_str(), "w") != nullptr;
  const bool isRefused = isMade && std::fopen(path.c_str(), "wx") == nullptr;
  std::puts(isRefused ? "refused" : "opened");
}

void Unlink(const std::string& path) {
  std::puts(unlink(path.c_str()) == 0 ? "removed" : "refused");
}

void Listing(const std::string& path) {
  constexpr int kFiles = 1000;
  for (int i = 0; i < kFiles; ++i) {
    const std::string name = path + "/" + std::to_string(i);
    std::FILE* const file = std::fopen(name.c_str(), "w");
    if (file != nullptr) {
      std::fclose(file);
    }
  }
  DIR* const directory = opendir(path.c_str());
  int left = kFiles;
  for (const dirent* entry = nullptr;
       directory != nullptr && (entry = readdir(directory)) != nullptr;) {
    left -= unlink((path + "/" + entry->d_name).c_str()) == 0 ? 1 : 0;
  }
  std::printf("%d\n", left);
}

}  // namespace

int main(int count, char** arguments) {
  const std::string question = count > 1 ? arguments[1] : "";
  const std::string path = count > 2 ? arguments[2] : "";
  if (question == "synchronize") {
    std::printf("synchronize with nothing to write: %s\n", Synchronize());
  } else if (question == "get") {
    Get();
  } else if (question == "keys") {
    Keys();
  } else if (question == "hold" && count > 2) {
    Hold(static_cast<int>(std::strtol(arguments[2], nullptr, 10)));
  } else if (question == "remove") {
    Set(nullptr);
    std::printf("synchronize after a removal: %s\n", Synchronize());
  } else if (question == "resources") {
    Resources();
  } else if (question == "exclusive") {
    Exclusive(path);
  } else if (question == "unlink") {
    Unlink(path);
  } else if (question == "listing") {
    Listing(path);
  } else {
    return 64;
  }
  return 0;
}

// NOLINTEND(clang-analyzer-osx.cocoa.RetainCount)
