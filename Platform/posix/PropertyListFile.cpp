#include "PropertyListFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <plist/plist.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <utility>

namespace {

// System calls ----------------------------------------------------------------------------------

constexpr off_t kLargestFile = off_t{16} << 20;
constexpr int kInterruptionsBorne = 100;
constexpr std::chrono::milliseconds kLockPoll{10};
constexpr mode_t kDirectoryMode = 0755;  // before the umask
constexpr mode_t kFileMode = 0644;       // whatever the umask
constexpr int kCorruptFilesKept = 1000;

/// Repeats an interrupted system call, but not for ever.
template <typename Call>
auto Uninterrupted(Call call) {
  auto result = call();
  for (int i = 0; result < 0 && errno == EINTR && i < kInterruptionsBorne; ++i) {
    result = call();
  }
  return result;
}

class Descriptor {
 public:
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
  ~Descriptor() {
    if (descriptor_ >= 0) {
      close(descriptor_);
    }
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  explicit operator bool() const { return descriptor_ >= 0; }
  int operator*() const { return descriptor_; }

 private:
  int descriptor_;
};

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

bool MakeDirectories(const std::string& path) {
  for (std::size_t end = 0; end != std::string::npos;) {
    end = path.find('/', end + 1);
    if (mkdir(path.substr(0, end).c_str(), kDirectoryMode) != 0 && errno != EEXIST) {
      return false;
    }
  }
  return true;
}

// Property lists --------------------------------------------------------------------------------

struct Free {
  void operator()(void* memory) const { std::free(memory); }
};
using Text = std::unique_ptr<char, Free>;

struct FreeNode {
  void operator()(void* node) const { plist_free(node); }
};
using Node = std::unique_ptr<void, FreeNode>;

Node Integer(int number) {
#ifdef HAVE_PLIST_NEW_INT
  return Node(plist_new_int(number));
#else
  // The pattern of a negative number: without plist_new_int, it is stored and printed as signed.
  return Node(plist_new_uint(static_cast<std::uint64_t>(std::int64_t{number})));
#endif
}

/// The dictionary that `bytes` are; null when they are none.
Node Parse(const std::string& bytes) {
  plist_t root = nullptr;
  const auto size = static_cast<std::uint32_t>(bytes.size());
  if (plist_is_binary(bytes.data(), size) != 0) {
    plist_from_bin(bytes.data(), size, &root);
  } else {
    plist_from_xml(bytes.data(), size, &root);
  }
  Node node(root);
  return plist_get_node_type(root) == PLIST_DICT ? std::move(node) : nullptr;
}

std::string Print(plist_t root) {
  char* bytes = nullptr;
  std::uint32_t size = 0;
  plist_to_xml(root, &bytes, &size);
  const Text owner(bytes);
  return bytes != nullptr ? std::string(bytes, size) : std::string();
}

PropertyListFile::Value IntegerValue(plist_t node) {
  std::uint64_t bits = 0;
  plist_get_uint_val(node, &bits);
  const auto number = static_cast<int>(bits);
  // Compared as nodes, as the bits alone do not tell a negative number from one beyond 2^63.
  if (plist_compare_node_value(node, Integer(number).get())) {
    return number;
  }
  return {};
}

PropertyListFile::Value RealValue(plist_t node) {
  double real = 0;
  plist_get_real_val(node, &real);
  if (real >= std::numeric_limits<int>::min() && real <= std::numeric_limits<int>::max() &&
      real == static_cast<int>(real)) {
    return static_cast<int>(real);
  }
  return {};
}

PropertyListFile::Value TextValue(plist_t node) {
  char* text = nullptr;
  plist_get_string_val(node, &text);
  const Text owner(text);
  return std::string(text != nullptr ? text : "");
}

PropertyListFile::Value ValueOf(plist_t node) {
  switch (plist_get_node_type(node)) {
    case PLIST_STRING:
      return TextValue(node);
    case PLIST_UINT:
      return IntegerValue(node);
    case PLIST_REAL:
      return RealValue(node);
    default:
      return {};
  }
}

PropertyListFile::Contents ContentsOf(plist_t dictionary) {
  PropertyListFile::Contents contents;
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(dictionary, &iterator);
  const std::unique_ptr<void, Free> iteratorOwner(iterator);
  for (;;) {
    char* key = nullptr;
    plist_t node = nullptr;
    plist_dict_next_item(dictionary, iterator, &key, &node);
    if (node == nullptr) {
      return contents;
    }
    const Text keyOwner(key);
    contents.emplace(key, ValueOf(node));
  }
}

void Apply(const PropertyListFile::Changes& changes, plist_t dictionary) {
  for (const auto& [key, value] : changes) {
    if (!value) {
      plist_dict_remove_item(dictionary, key.c_str());
    } else if (const auto* text = std::get_if<std::string>(&*value)) {
      plist_dict_set_item(dictionary, key.c_str(), plist_new_string(text->c_str()));
    } else {
      plist_dict_set_item(dictionary, key.c_str(), Integer(std::get<int>(*value)).release());
    }
  }
}

// The file --------------------------------------------------------------------------------------

enum class State { kWhole, kAbsent, kCorrupt, kUnreadable };

struct Loaded {
  State state;
  Node root;  // of a whole file
};

/// Reads the file called `name` in `directory`, unless it is anything but a regular file. Not
/// blocking: to open a FIFO could wait for ever.
Loaded Load(int directory, const std::string& name) {
  const Descriptor file(
      openat(directory, name.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC));
  if (!file) {
    return {errno == ENOENT ? State::kAbsent : State::kUnreadable, nullptr};
  }
  struct stat status = {};
  if (fstat(*file, &status) != 0 || !S_ISREG(status.st_mode) || status.st_size > kLargestFile) {
    return {State::kUnreadable, nullptr};
  }
  std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
  if (!ReadAll(*file, bytes)) {
    return {State::kUnreadable, nullptr};
  }
  Node root = Parse(bytes);
  return {root ? State::kWhole : State::kCorrupt, std::move(root)};
}

/// Waits for the other writers, but not for ever: whoever can open the directory can lock it, and
/// must not be able to stop this process. The lock ends with the descriptor and leaves no file.
bool Lock(int directory, std::chrono::milliseconds wait) {
  for (auto left = wait; flock(directory, LOCK_EX | LOCK_NB) != 0; left -= kLockPoll) {
    if ((errno != EWOULDBLOCK && errno != EINTR) || left < kLockPoll) {
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

bool MoveAside(int directory, const std::string& name) {
  std::string aside = name + ".corrupt";
  for (int i = 1; i <= kCorruptFilesKept; ++i) {
    if (renameat2(directory, name.c_str(), directory, aside.c_str(), RENAME_NOREPLACE) == 0) {
      return true;
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
  if (getentropy(&random, sizeof random) != 0) {
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

PropertyListFile::PropertyListFile(std::string path, std::chrono::milliseconds lockWait)
    : directory_(path.substr(0, path.rfind('/'))),
      name_(path.substr(path.rfind('/') + 1)),
      lockWait_(lockWait) {}

PropertyListFile::Contents PropertyListFile::Read() const {
  const Loaded loaded = Load(AT_FDCWD, directory_ + "/" + name_);
  return loaded.root ? ContentsOf(loaded.root.get()) : Contents();
}

bool PropertyListFile::Apply(const Changes& changes) const {
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
  if (loaded.state == State::kUnreadable ||
      (loaded.state == State::kCorrupt && !MoveAside(*directory, name_))) {
    return false;
  }
  if (!loaded.root) {
    loaded.root.reset(plist_new_dict());
  }
  ::Apply(changes, loaded.root.get());
  return Replace(*directory, name_, Print(loaded.root.get()));
}
