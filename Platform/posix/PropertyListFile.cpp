#include "PropertyListFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>

#include "Descriptor.h"
#include "Durability.h"
#include "Uninterrupted.h"

namespace {

// Both whatever the umask: everybody can read the preferences.
constexpr mode_t kDirectoryMode = 0755;
constexpr mode_t kFileMode = 0644;
constexpr int kCorruptFilesKept = 100;

/// Only a directory that is made here gets the mode.
bool MakeDirectories(const std::string& path) {
  for (std::size_t end = 0; end != std::string::npos;) {
    end = path.find('/', end + 1);
    const std::string made = path.substr(0, end);
    if (mkdir(made.c_str(), kDirectoryMode) == 0 ? chmod(made.c_str(), kDirectoryMode) != 0
                                                 : errno != EEXIST) {
      return false;
    }
  }
  return true;
}

/// Returns the bytes of the file called `name` in `directory`; of an empty list if the file is
/// absent; nothing if the file cannot be read or is no regular file. Does not wait for a FIFO.
std::optional<std::string> Load(int directory, const std::string& name) {
  const Descriptor file(
      openat(directory, name.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC));
  if (!file) {
    return errno == ENOENT ? std::optional(PropertyList().Print()) : std::nullopt;
  }
  struct stat status = {};
  if (fstat(*file, &status) != 0) {
    return {};
  }
  if (!S_ISREG(status.st_mode) || status.st_size > off_t{PropertyList::kLargest}) {
    errno = S_ISREG(status.st_mode) ? EFBIG : EINVAL;
    return {};
  }
  std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
  const ssize_t length = ReadAt(*file, 0, bytes.data(), bytes.size());
  if (length < 0) {
    return {};
  }
  bytes.resize(static_cast<std::size_t>(length));
  return bytes;
}

std::string TemporaryPrefix(const std::string& name) {
  return name + ".tmp-";
}

/// Removes the temporary files of killed writers, unless another writer has the lock, which ends
/// with the descriptor and leaves no file. This function can remove the temporary file of a writer
/// without the lock. That writer then fails: only a complete file is ever renamed.
void RemoveLeftovers(int directory, const std::string& path, const std::string& name) {
  if (flock(directory, LOCK_EX | LOCK_NB) != 0) {
    return;
  }
  const std::string prefix = TemporaryPrefix(name);
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(opendir(path.c_str()), closedir);
  while (const dirent* entry = stream ? readdir(stream.get()) : nullptr) {
    if (std::strncmp(entry->d_name, prefix.c_str(), prefix.length()) == 0) {
      unlinkat(directory, entry->d_name, 0);
    }
  }
}

/// Synced before the next file takes the name: a power failure must not leave that file alone.
bool MoveAside(int directory, const std::string& name) {
  std::string aside = name + ".corrupt";
  for (int i = 1; i <= kCorruptFilesKept; ++i) {
    if (renameat2(directory, name.c_str(), directory, aside.c_str(), RENAME_NOREPLACE) == 0) {
      return Durability::SyncFile(directory);
    }
    if (errno != EEXIST) {
      return false;
    }
    aside = name + ".corrupt." + std::to_string(i);
  }
  return false;
}

/// A name that no other writer uses; empty when the system gives no random numbers.
std::string TemporaryName(const std::string& name) {
  std::uint64_t random = 0;
  // Not getentropy(), which repeats an interrupted call for ever.
  if (Uninterrupted([&] { return getrandom(&random, sizeof random, 0); }) != sizeof random) {
    return {};
  }
  return TemporaryPrefix(name) + std::to_string(random);
}

/// Puts a file of `bytes` in the place of `name`.
bool Replace(int directory, const std::string& name, const std::string& bytes) {
  const std::string temporary = TemporaryName(name);
  const Descriptor file(openat(directory, temporary.c_str(),
                               O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR));
  const bool isReplaced = file && WriteAll(*file, bytes.data(), bytes.size()) &&
                          fchmod(*file, kFileMode) == 0 && Durability::SyncFile(*file) &&
                          renameat(directory, temporary.c_str(), directory, name.c_str()) == 0;
  if (!isReplaced) {
    unlinkat(directory, temporary.c_str(), 0);
  }
  return isReplaced && Durability::SyncFile(directory);
}

}  // namespace

std::optional<PropertyList> ReadPropertyList(const std::string& path) {
  const auto bytes = Load(AT_FDCWD, path);
  return bytes ? std::optional(PropertyList::Parse(*bytes).value_or(PropertyList())) : std::nullopt;
}

bool ChangePropertyList(const std::string& path, const PropertyList::Changes& changes,
                        Emptied emptied) {
  const std::size_t slash = path.rfind('/');
  const std::string parent = path.substr(0, slash);
  const std::string name = path.substr(slash + 1);
  const Descriptor directory(
      MakeDirectories(parent) ? open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1);
  if (!directory) {
    return false;
  }
  RemoveLeftovers(*directory, parent, name);
  const auto bytes = Load(*directory, name);
  if (!bytes) {
    return false;
  }
  auto list = PropertyList::Parse(*bytes);
  const bool isCorrupt = !list;
  PropertyList changed = std::move(list).value_or(PropertyList());
  changed.Apply(changes);
  if (emptied == Emptied::Remove && changed.Values().empty()) {
    return isCorrupt ||
           (unlinkat(*directory, name.c_str(), 0) == 0 && Durability::SyncFile(*directory));
  }
  const std::string changedBytes = changed.Print();
  return changedBytes.size() <= PropertyList::kLargest &&
         (!isCorrupt || MoveAside(*directory, name)) && Replace(*directory, name, changedBytes);
}
