#include <filesystem>
#include <fstream>
#include <iterator>

#include "Object.h"

namespace {

namespace fs = std::filesystem;

const Object kAnyUser{Kind::kString};
const Object kCurrentHost{Kind::kString};
const Object kCurrentUser{Kind::kString};
const Object kAnyHost{Kind::kString};

/// A change that is not synchronized. The key is retained, not copied, so the shared text must
/// live.
struct Change {
  const Object* key;
  std::optional<Value> value;  ///< None removes the key.
};

struct Domain {
  std::vector<Change> pending{};
  std::optional<Contents> seen{};  ///< The content at the last read of this process.
};

std::string Text(CFStringRef string) {
  return Get(string, Kind::kString)->Text();
}

// The file --------------------------------------------------------------------------------------

fs::path File(const std::string& application) {
  return "/Library/Preferences/" + application + ".plist";
}

/// The file of values that the system has not written yet, in the mode asynchronous.
fs::path Unwritten(const std::string& application) {
  return "/Library/Preferences/.unwritten-" + application;
}

Contents Read(const fs::path& path) {
  std::ifstream stream(path, std::ios::binary);
  const std::string xml(std::istreambuf_iterator<char>(stream), {});
  return ParsePropertyList(xml).value_or(Contents());
}

bool Write(const fs::path& path, const Contents& contents) {
  std::error_code error;
  fs::create_directories(path.parent_path(), error);
  std::ofstream stream(path, std::ios::binary);
  stream << PrintPropertyList(contents);
  return static_cast<bool>(stream.flush());
}

Contents Stored(const std::string& application) {
  const fs::path unwritten = Unwritten(application);
  return Read(fs::exists(unwritten) ? unwritten : File(application));
}

bool Store(const std::string& application, const Contents& contents) {
  return Write(Mode() == "asynchronous" ? Unwritten(application) : File(application), contents);
}

// The domain ------------------------------------------------------------------------------------

/// The system writes the file of a domain when another process needs the domain.
void WriteWhatIsUnwritten(const std::string& application) {
  std::error_code error;
  fs::rename(Unwritten(application), File(application), error);
}

Domain& Find(const std::string& application) {
  static auto& domains = *new std::map<std::string, Domain>;
  const auto [found, isNew] = domains.try_emplace(application);
  if (isNew) {
    WriteWhatIsUnwritten(application);
  }
  return found->second;
}

void Apply(const std::vector<Change>& changes, Contents& contents) {
  for (const auto& [key, value] : changes) {
    if (value) {
      contents.insert_or_assign(key->Text(), *value);
    } else {
      contents.erase(key->Text());
    }
  }
}

/// Returns the content that this process sees.
Contents Current(const std::string& application) {
  Domain& domain = Find(application);
  if (!domain.seen || Mode() == "eager") {
    domain.seen = Stored(application);
  }
  Contents contents = *domain.seen;
  Apply(domain.pending, contents);
  return contents;
}

bool Synchronize(const std::string& application) {
  Domain& domain = Find(application);
  Contents contents = Stored(application);
  Apply(domain.pending, contents);
  if (!domain.pending.empty() && !Store(application, contents)) {
    return false;
  }
  for (const Change& change : domain.pending) {
    CFRelease(change.key);
  }
  domain.pending.clear();
  domain.seen = contents;
  return true;
}

void Set(CFStringRef key, std::optional<Value> value, const std::string& application) {
  Get(key, Kind::kString);
  Find(application).pending.push_back({Retain(key), std::move(value)});
  if (Mode() == "eager") {
    Synchronize(application);
  }
}

void RequireAllUsers(CFStringRef user, CFStringRef host) {
  Require(user == kCFPreferencesAnyUser, "preferences of another user");
  Require(host == kCFPreferencesCurrentHost, "preferences of another host");
}

const Object* MakeString(const std::string& text) {
  return Make({Kind::kString, text});
}

}  // namespace

extern "C" {

const CFStringRef kCFPreferencesAnyUser = As<CFStringRef>(&kAnyUser);
const CFStringRef kCFPreferencesCurrentHost = As<CFStringRef>(&kCurrentHost);
const CFStringRef kCFPreferencesCurrentUser = As<CFStringRef>(&kCurrentUser);
const CFStringRef kCFPreferencesAnyHost = As<CFStringRef>(&kAnyHost);

CFPropertyListRef CFPreferencesCopyValue(CFStringRef key, CFStringRef application, CFStringRef user,
                                         CFStringRef host) {
  RequireAllUsers(user, host);
  const Contents contents = Current(Text(application));
  const auto found = contents.find(Text(key));
  return found == contents.end() || Fails(__func__)
             ? nullptr
             : Make({found->second.kind, found->second.text});
}

CFArrayRef CFPreferencesCopyKeyList(CFStringRef application, CFStringRef user, CFStringRef host) {
  RequireAllUsers(user, host);
  std::vector<const Object*> keys;
  if (Fails(__func__)) {
    return nullptr;
  }
  for (const auto& [key, value] : Current(Text(application))) {
    keys.push_back(MakeString(key));
  }
  return keys.empty() && Mode() != "eager"
             ? nullptr
             : As<CFArrayRef>(Make({Kind::kArray, {}, nullptr, keys}));
}

void CFPreferencesSetValue(CFStringRef key, CFPropertyListRef value, CFStringRef application,
                           CFStringRef user, CFStringRef host) {
  RequireAllUsers(user, host);
  Set(key,
      value == nullptr ? std::nullopt
                       : std::optional<Value>({Get(value)->kind, Get(value)->Text()}),
      Text(application));
}

void CFPreferencesSetMultiple(CFDictionaryRef values, CFArrayRef removed, CFStringRef application,
                              CFStringRef user, CFStringRef host) {
  RequireAllUsers(user, host);
  for (CFIndex i = 0; removed != nullptr && i < CFArrayGetCount(removed); ++i) {
    Set(static_cast<CFStringRef>(CFArrayGetValueAtIndex(removed, i)), std::nullopt,
        Text(application));
  }
  const Contents contents = values == nullptr ? Contents() : Get(values, Kind::kDictionary)->values;
  for (const auto& [key, value] : contents) {
    const Object* const name = MakeString(key);
    Set(As<CFStringRef>(name), value, Text(application));
    CFRelease(name);
  }
}

// Concerns the domains of the current user only. The double has none of them.
Boolean CFPreferencesAppSynchronize(CFStringRef application) {
  Text(application);
  return 1;
}

Boolean CFPreferencesSynchronize(CFStringRef application, CFStringRef user, CFStringRef host) {
  RequireAllUsers(user, host);
  return Mode() != "unprivileged" && !Fails(__func__) && Synchronize(Text(application));
}

}  // extern "C"
