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

constexpr std::chrono::milliseconds kLockPoll{10};
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

bool MakeDirectory(const char* path) {
  return mkdir(path, kDirectoryMode) == 0 ? chmod(path, kDirectoryMode) == 0 : errno == EEXIST;
}

bool MakeDirectories(const std::string& path) {
  for (std::size_t end = 0; end != std::string::npos;) {
    end = path.find('/', end + 1);
    if (!MakeDirectory(path.substr(0, end).c_str())) {
      return false;
    }
  }
  return true;
}

// The file --------------------------------------------------------------------------------------

enum class State { kWhole, kAbsent, kCorrupt, kUnreadable };

struct Loaded {
  State state;
  PropertyList list;  // empty, except that of a whole file
};

/// Reads the file called `name` in `directory` if it is a regular file. Does not wait for the other
/// end of a FIFO.
Loaded Load(int directory, const std::string& name) {
  const Descriptor file(
      openat(directory, name.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC));
  if (!file) {
    return {errno == ENOENT ? State::kAbsent : State::kUnreadable, {}};
  }
  struct stat status = {};
  if (fstat(*file, &status) != 0 || !S_ISREG(status.st_mode) ||
      status.st_size > off_t{PropertyList::kLargest}) {
    return {State::kUnreadable, {}};
  }
  std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
  if (!ReadAll(*file, bytes)) {
    return {State::kUnreadable, {}};
  }
  auto list = PropertyList::Parse(bytes);
  return list ? Loaded{State::kWhole, *std::move(list)} : Loaded{State::kCorrupt, {}};
}

/// Waits for the other writers, but not for ever: whoever can open the directory can lock it, and
/// must not be able to stop this process. The lock ends with the descriptor and leaves no file.
bool Lock(int directory, std::chrono::milliseconds wait) {
  for (auto left = wait; flock(directory, LOCK_EX | LOCK_NB) != 0; left -= kLockPoll) {
    if (errno != EWOULDBLOCK || left < kLockPoll) {
      return false;
    }
    usleep(static_cast<useconds_t>(std::chrono::microseconds(kLockPoll).count()));
  }
  return true;
}

std::string TemporaryPrefix(const std::string& name) {
  return name + ".tmp-";
}

/// Removes what killed writers left. Only for the holder of the lock. A writer that went on without
/// it can lose its temporary file to this, and fails then; as nobody else writes under its file's
/// name, nothing but a complete file is ever renamed into place.
void RemoveLeftovers(int directory, const std::string& name) {
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

/// On the disk before the next file takes the name: a loss of power must not leave that one alone.
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

/// `list` with `changes`, as bytes; nothing when they would be too many.
std::optional<std::string> Changed(PropertyList list, const PropertyList::Changes& changes) {
  list.Apply(changes);
  return list.Print();
}

}  // namespace

PropertyListFile::PropertyListFile(const std::string& path, std::chrono::milliseconds lockWait)
    : directory_(path.substr(0, path.rfind('/'))),
      name_(path.substr(path.rfind('/') + 1)),
      lockWait_(lockWait) {}

PropertyList::Contents PropertyListFile::Read() const {
  return Load(AT_FDCWD, directory_ + "/" + name_).list.Values();
}

bool PropertyListFile::Apply(const PropertyList::Changes& changes) const {
  if (changes.empty()) {
    return Load(AT_FDCWD, directory_ + "/" + name_).state != State::kUnreadable;
  }
  if (!MakeDirectories(directory_)) {
    return false;
  }
  const Descriptor directory(open(directory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory) {
    return false;
  }
  if (Lock(*directory, lockWait_)) {
    RemoveLeftovers(*directory, name_);
  }
  Loaded loaded = Load(*directory, name_);
  if (loaded.state == State::kUnreadable) {
    return false;
  }
  if (loaded.state == State::kWhole) {
    if (const auto bytes = Changed(std::move(loaded.list), changes)) {
      return Replace(*directory, name_, *bytes);
    }
  }
  // What cannot be read, or cannot be written with the changes, is kept under another name: as long
  // as it stayed, no change could ever be written.
  const auto bytes = Changed({}, changes);
  return bytes && (loaded.state == State::kAbsent || MoveAside(*directory, name_)) &&
         Replace(*directory, name_, *bytes);
}
