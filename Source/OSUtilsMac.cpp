#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include "Bundle.h"
#include "DirectoryChain.h"
#include "Durability.h"
#include "InstallRecord.h"
#include "InstallerConstants.h"
#include "OSUtils.h"
#include "PreferencesDomain.h"

// Locations -------------------------------------------------------------------------------------

namespace {

using PathBuffer = char[kPathSize];

std::string ResourcePath(const char* fileName) {
  PathBuffer directory;
  if (!Bundle::GetResourcesDirectory(directory, sizeof directory)) {
    return {};
  }
  return std::string(directory) + "/" + fileName;
}

}  // namespace

std::string OSUtils::GetPellamResourceDirectory() {
  return INSTALL_PATH_ROOT;
}

std::string OSUtils::CombinePath(const std::string& a, const std::string& b) {
  return a + b;
}

std::string OSUtils::GetZipResourcePath() {
  return ResourcePath(kPackageFileName);
}

std::string OSUtils::GetMetadataResourcePath() {
  return ResourcePath(kMetadataFileName);
}

// Resource directories --------------------------------------------------------------------------

namespace {

constexpr std::size_t kNumberLength = 9;  // in characters: a longer number is truncated
constexpr mode_t kDirectoryMode = 0777;   // before the umask

/// Returns `number` in decimal, truncated to kNumberLength characters.
std::string Decimal(int number) {
  return std::to_string(number).substr(0, kNumberLength);
}

bool IsReadable(const char* path) {
  return access(path, R_OK) == 0;
}

bool MakeDirectory(const char* path) {
  return mkdir(path, kDirectoryMode) == 0;
}

/// Writes `directory`, `separator` and `name` to `path`, truncated to 1,023 bytes. Returns false if
/// no byte of `name` fits: `path` then names the directory itself or a directory above.
bool ChildPath(PathBuffer& path, const std::string& directory, const char* separator,
               const char* name) {
  std::snprintf(path, sizeof path, "%s%s%s", directory.c_str(), separator, name);
  return directory.length() + std::strlen(separator) + 1 < sizeof path;
}

/// Deletes the directory entry `entry` at `path`. Symbolic links are deleted, never followed.
void RemoveEntry(const char* path, const dirent& entry) {
  if (entry.d_type == DT_DIR) {
    OSUtils::DeleteDir(path);
  } else {
    std::remove(path);
  }
}

/// Deletes every entry that `stream` lists, except ".", ".." and the entry named `keep`. A null
/// `keep` keeps no entry.
void RemoveEntries(DIR* stream, const std::string& directory, const char* separator,
                   const char* keep) {
  const auto isKept = [keep](const char* name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0 ||
           (keep != nullptr && std::strcmp(name, keep) == 0);
  };
  while (const dirent* entry = readdir(stream)) {
    PathBuffer path;
    if (!isKept(entry->d_name) && ChildPath(path, directory, separator, entry->d_name)) {
      RemoveEntry(path, *entry);
    }
  }
}

/// Opens the directory at `path`. Returns null on failure, also if `path` is a symbolic link. The
/// caller closes the stream.
DIR* OpenDirectoryItself(const char* path) {
  const int descriptor = open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (descriptor < 0) {
    return nullptr;
  }
  DIR* stream = fdopendir(descriptor);
  if (stream == nullptr) {
    close(descriptor);
  }
  return stream;
}

/// The streams that stay open until the process ends, on purpose. The list keeps them reachable for
/// leak checkers.
std::vector<DIR*>& KeptOpen() {
  static auto& streams = *new std::vector<DIR*>;
  return streams;
}

}  // namespace

std::string OSUtils::GetUniqueDirectoryName(const std::string& root) {
  std::string name;
  int counter = 0;
  do {
    name = "Resource" + Decimal(counter++);
  } while (IsReadable(CombinePath(root, name).c_str()));
  return name;
}

bool OSUtils::EnsureDirectoryExists(const std::string& path) {
  return MakeDirectoryChain(path, IsReadable, MakeDirectory);
}

bool OSUtils::DeleteDir(const std::string& path) {
  if (DIR* stream = OpenDirectoryItself(path.c_str())) {
    RemoveEntries(stream, path, "/", nullptr);
    closedir(stream);
    rmdir(path.c_str());
  }
  return true;
}

bool OSUtils::DeleteAllDirectoryExceptOne(const std::string& root, const std::string& keep) {
  if (DIR* stream = opendir(root.c_str())) {
    RemoveEntries(stream, root, "", keep.c_str());
    KeptOpen().push_back(stream);
  }
  return true;
}

void OSUtils::MakeDurable(const std::string& path) {
  Durability::SyncFileSystem(path);
}

// Install record --------------------------------------------------------------------------------

namespace {

constexpr std::int32_t kAbsent = -1;
constexpr std::size_t kCarriedTextSize = 128;  // with the zero; a longer string counts as absent

PreferencesDomain Record() {
  return PreferencesDomain(PLIST_SECTION_KEY);
}

bool Register(const char* key, const std::string& text) {
  PreferencesDomain record = Record();
  record.SetText(key, text);
  return record.Flush();
}

bool Register(const char* key, int number) {
  PreferencesDomain record = Record();
  record.SetNumber(key, number);
  return record.Flush();
}

using State = InstallRecord::State;

State StateOf(const PreferencesDomain::Value& value, bool isUsable) {
  return isUsable ? State::Usable : value.isPresent ? State::Unusable : State::Absent;
}

State Capture(const PreferencesDomain::Value& value, std::int32_t& number) {
  number = value.number.value_or(kAbsent);
  return StateOf(value, value.number.has_value());
}

State Capture(const PreferencesDomain::Value& value, std::string& text) {
  const bool isUsable = value.text && value.text->length() < kCarriedTextSize;
  text = isUsable ? *value.text : std::string();
  return StateOf(value, isUsable);
}

/// The values in the order of OldInfo(), on purpose.
constexpr const RecordField* kCaptured[] = {&kRandomField, &kUpdateIdField, &kInstallPathField,
                                            &kFullVersionField};

std::vector<std::string> RecordKeys() {
  std::vector<std::string> keys;
  for (const RecordField* field : kCaptured) {
    keys.emplace_back(field->key);
  }
  return keys;
}

/// Returns false if `domain` cannot be read; errno then tells the reason.
bool Capture(const PreferencesDomain& domain, InstallRecord& record) {
  std::vector<PreferencesDomain::Value> values;
  const bool isRead = domain.Read(RecordKeys(), &values);
  auto value = values.cbegin();
  for (const RecordField* field : kCaptured) {
    record.*field->state = std::visit(
        [&](auto member) { return Capture(*value, record.values.*member); }, field->value);
    ++value;
  }
  return isRead;
}

}  // namespace

std::string OSUtils::CompleteVersion(int build) {
  // The release numbers are built in, on purpose.
  char release[32] = {};
  std::snprintf(release, sizeof release, "%02d.%03d.%05d", 17, 11, 30138);
  return std::string(release) + "." + Decimal(build);
}

bool OSUtils::RegisterWebResourcePath(const std::string& path) {
  return Register(kInstallPathField.key, path);
}

bool OSUtils::RegisterUpdateID(int id) {
  return Register(kUpdateIdField.key, id);
}

bool OSUtils::RegisterCompleteVersion(int build) {
  return Register(kFullVersionField.key, CompleteVersion(build));
}

bool OSUtils::RegisterRandom() {
  std::srand(static_cast<unsigned int>(std::time(nullptr)));
  return Register(kRandomField.key, std::rand() % kLargestRandom + 1);
}

bool OSUtils::isRandomPresent() {
  std::vector<PreferencesDomain::Value> values;
  Record().Read({kRandomField.key}, &values);
  return values.front().isPresent;
}

void OSUtils::OldInfo(WebRegInfo* info) {
  InstallRecord record;
  Capture(Record(), record);
  *info = record.values;
}

bool OSUtils::ClearRegistry() {
  PreferencesDomain record = Record();
  return record.RemoveAll() && record.Flush();
}

bool OSUtils::MakeFreshRegistry(WebRegInfo* info) {
  PreferencesDomain record = Record();
  if (info->random != kAbsent) {
    record.SetNumber(kRandomField.key, info->random);
  }
  if (info->updateId != kAbsent) {
    RegisterUpdateID(info->updateId);
  }
  if (!info->installPath.empty()) {
    RegisterWebResourcePath(info->installPath);
  }
  if (!info->fullVersion.empty()) {
    record.SetText(kFullVersionField.key, info->fullVersion);
  }
  return record.Flush();
}

// For programs that examine an installation ------------------------------------------------------

std::optional<InstallRecord> ReadRecord(const std::string& hostRoot) {
  InstallRecord record;
  return Capture(PreferencesDomain(PLIST_SECTION_KEY, hostRoot), record) ? std::optional(record)
                                                                         : std::nullopt;
}

std::string RecordLocation(const std::string& hostRoot) {
  return PreferencesDomain(PLIST_SECTION_KEY, hostRoot).location();
}

bool RemoveRandom(const std::string& hostRoot) {
  PreferencesDomain record(PLIST_SECTION_KEY, hostRoot);
  record.Remove(kRandomField.key);
  return record.Flush();
}

bool RemoveRecord(const std::string& hostRoot) {
  return PreferencesDomain(PLIST_SECTION_KEY, hostRoot).Erase(RecordKeys());
}
