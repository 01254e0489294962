#include "PropertyListFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "Descriptor.h"
#include "Uninterrupted.h"

namespace {

// System calls ----------------------------------------------------------------------------------

// Both whatever the umask: everybody can read the preferences.
constexpr mode_t kDirectoryMode = 0755;
constexpr mode_t kFileMode = 0644;
constexpr int kCorruptFilesKept = 100;

bool ReadAll(int file, std::string& bytes) {
  std::size_t length = 0;
  ssize_t count = 0;
  while ((count = Uninterrupted(
              [&] { return read(file, &bytes[length], bytes.size() - length); })) > 0) {
    length += static_cast<std::size_t>(count);
  }
  bytes.resize(length);
  return count == 0;
}

bool WriteAll(int file, const std::string& bytes) {
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t count =
        Uninterrupted([&] { return write(file, &bytes[done], bytes.size() - done); });
    if (count <= 0) {
      return false;
    }
    done += static_cast<std::size_t>(count);
  }
  return true;
}

bool Synchronize(int file) {
  return Uninterrupted([&] { return fsync(file); }) == 0;
}

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

// The file --------------------------------------------------------------------------------------

/// The bytes of the file called `name` in `directory`, or those of an empty list if it is absent;
/// nothing if it cannot be read or is no regular file. Does not wait for the other end of a FIFO.
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
  return ReadAll(*file, bytes) ? std::optional(std::move(bytes)) : std::nullopt;
}

std::string TemporaryPrefix(const std::string& name) {
  return name + ".tmp-";
}

/// Removes the temporary files of killed writers, unless another writer has the lock, which ends
/// with its descriptor and leaves no file. A writer that went on without the lock can lose its
/// temporary file to this, and fails then: only a complete file is ever renamed into place.
void RemoveLeftovers(int directory, const std::string& name) {
  if (flock(directory, LOCK_EX | LOCK_NB) != 0) {
    return;
  }
  const int descriptor = openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(fdopendir(descriptor), closedir);
  if (!stream) {
    const Descriptor unused(descriptor);
    return;
  }
  const std::string prefix = TemporaryPrefix(name);
  while (const dirent* entry = readdir(stream.get())) {
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
      return Synchronize(directory);
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

bool WriteFile(int directory, const std::string& name, const std::string& bytes) {
  const Descriptor file(openat(directory, name.c_str(),
                               O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR));
  return file && WriteAll(*file, bytes) && fchmod(*file, kFileMode) == 0 && Synchronize(*file);
}

/// Puts a file of `bytes` in the place of `name`.
bool Replace(int directory, const std::string& name, const std::string& bytes) {
  const std::string temporary = TemporaryName(name);
  if (!WriteFile(directory, temporary, bytes) ||
      renameat(directory, temporary.c_str(), directory, name.c_str()) != 0) {
    unlinkat(directory, temporary.c_str(), 0);
    return false;
  }
  return Synchronize(directory);
}

}  // namespace

std::optional<PropertyList> ReadPropertyList(const std::string& path) {
  const auto bytes = Load(AT_FDCWD, path);
  return bytes ? std::optional(PropertyList::Parse(*bytes).value_or(PropertyList())) : std::nullopt;
}

bool ChangePropertyList(const std::string& path, const PropertyList::Changes& changes) {
  const std::size_t slash = path.rfind('/');
  const std::string parent = path.substr(0, slash);
  const std::string name = path.substr(slash + 1);
  const Descriptor directory(
      MakeDirectories(parent) ? open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1);
  if (!directory) {
    return false;
  }
  RemoveLeftovers(*directory, name);
  const auto bytes = Load(*directory, name);
  if (!bytes) {
    return false;
  }
  auto list = PropertyList::Parse(*bytes);
  const bool isCorrupt = !list;
  PropertyList changed = std::move(list).value_or(PropertyList());
  changed.Apply(changes);
  const std::string changedBytes = changed.Print();
  return changedBytes.size() <= PropertyList::kLargest &&
         (!isCorrupt || MoveAside(*directory, name)) && Replace(*directory, name, changedBytes);
}

bool RemoveFromPropertyList(const std::string& path, const std::vector<std::string>& keys) {
  const std::size_t slash = path.rfind('/');
  const std::string name = path.substr(slash + 1);
  const Descriptor directory(
      open(path.substr(0, slash).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory) {
    return errno == ENOENT;
  }
  RemoveLeftovers(*directory, name);
  const auto bytes = Load(*directory, name);
  if (!bytes) {
    return false;
  }
  auto list = PropertyList::Parse(*bytes);
  PropertyList::Changes changes;
  for (const std::string& key : keys) {
    if (list && list->Values().count(key) != 0) {
      changes[key] = std::nullopt;
    }
  }
  if (changes.empty()) {
    return true;
  }
  list->Apply(changes);
  if (!list->Values().empty()) {
    return Replace(*directory, name, list->Print());
  }
  return unlinkat(*directory, name.c_str(), 0) == 0 && Synchronize(*directory);
}
