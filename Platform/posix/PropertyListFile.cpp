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

// These modes do not depend on the umask, so that every user can read the preferences.
constexpr mode_t kDirectoryMode = 0755;
constexpr mode_t kFileMode = 0644;
constexpr int kCorruptFilesKept = 100;
constexpr char kTemporary[] = ".tmp-";  // after the name of the file

/// Makes `path` with missing parents. The mode of an existing directory does not change.
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

/// Returns the bytes of the file `name` in `directory`. Returns the bytes of an empty list if the
/// file is absent. Returns nothing if the file cannot be read, is too large or is no regular file.
/// Does not wait for a FIFO.
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

/// Removes the temporary files of killed writers, unless another writer has the lock on the
/// directory. The lock ends with the descriptor, and no lock file exists. This function can remove
/// the temporary file of a writer that works without the lock. The rename of that writer then
/// fails.
void RemoveLeftovers(int directory, const std::string& path, const std::string& name) {
  if (flock(directory, LOCK_EX | LOCK_NB) != 0) {
    return;
  }
  const std::string prefix = name + kTemporary;
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(opendir(path.c_str()), closedir);
  while (const dirent* entry = stream ? readdir(stream.get()) : nullptr) {
    if (std::strncmp(entry->d_name, prefix.c_str(), prefix.length()) == 0) {
      unlinkat(directory, entry->d_name, 0);
    }
  }
}

/// Renames the file `name` to the first free name with ".corrupt". Syncs the rename: after a power
/// failure, the damaged file exists if the next file `name` exists.
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

/// Returns a name that no other writer uses; nothing if the system has no random numbers.
std::optional<std::string> TemporaryName(const std::string& name) {
  std::uint64_t random = 0;
  // getentropy() would repeat an interrupted call forever.
  if (Uninterrupted([&] { return getrandom(&random, sizeof random, 0); }) != sizeof random) {
    return std::nullopt;
  }
  return name + kTemporary + std::to_string(random);
}

/// Replaces the file `name` by a file with `bytes`.
bool Replace(int directory, const std::string& name, const std::string& bytes) {
  const auto temporary = TemporaryName(name);
  if (!temporary) {
    return false;
  }
  const Descriptor file(openat(directory, temporary->c_str(),
                               O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR));
  const bool isReplaced = file && WriteAll(*file, bytes.data(), bytes.size()) &&
                          fchmod(*file, kFileMode) == 0 && Durability::SyncFile(*file) &&
                          renameat(directory, temporary->c_str(), directory, name.c_str()) == 0;
  if (file && !isReplaced) {
    const int error = errno;
    unlinkat(directory, temporary->c_str(), 0);
    errno = error;
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
