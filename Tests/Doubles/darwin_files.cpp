// The file system of a Mac, for tests. This library is preloaded and replaces the functions of the
// C library that take a path. A path of 1,024 bytes or more is ENAMETOOLONG, one that is not UTF-8
// is EILSEQ, and a name finds an entry that differs from it in the case of ASCII letters only. What
// is created keeps the case it is given. With DARWIN_FILES_MODE=skipping, a listing passes over the
// entry that follows a removal, as HFS+ documents for a directory that changes while it is listed.
// System directories are left as they are: nothing is tested there.

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <spawn.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <utility>

namespace {

constexpr std::size_t kPathSize = 1024;  // with the terminating zero

template <typename Function>
Function* Real(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// Restores errno after calls that change errno.
class ScopedErrno {
 public:
  ScopedErrno() : before_(errno) {}
  ~ScopedErrno() { errno = before_; }
  ScopedErrno(const ScopedErrno&) = delete;
  ScopedErrno& operator=(const ScopedErrno&) = delete;

 private:
  int before_;
};

/// Returns the number of bytes after the first byte of a UTF-8 character, or -1 for another byte.
int Following(unsigned char first) {
  if (first < 0x80) {
    return 0;
  }
  if (first < 0xC2 || first > 0xF4) {
    return -1;
  }
  return first < 0xE0 ? 1 : first < 0xF0 ? 2 : 3;
}

bool IsUTF8(const char* text) {
  for (; *text != '\0'; ++text) {
    for (int left = Following(static_cast<unsigned char>(*text)); left != 0; --left) {
      if (left < 0 || (*++text & '\xC0') != '\x80') {
        return false;
      }
    }
  }
  return true;
}

bool Exists(int directory, const std::string& path) {
  struct stat status = {};
  static auto* const real = Real<int(int, const char*, struct stat*, int)>("fstatat");
  return real(directory, path.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
}

int removals = 0;

int Counted(int result) {
  removals += result == 0 ? 1 : 0;
  return result;
}

/// For each listing, the value of `removals` when it gave its last entry.
std::map<DIR*, int>& Listings() {
  static auto& listings = *new std::map<DIR*, int>;
  return listings;
}

/// The mode skipping passes over an entry after a removal during the listing.
template <typename Entry>
Entry* NextEntry(const char* function, DIR* stream) {
  auto* const real = Real<Entry*(DIR*)>(function);
  const char* const mode = std::getenv("DARWIN_FILES_MODE");
  Entry* const entry = real(stream);
  const auto [listing, isFirst] = Listings().insert({stream, removals});
  const bool hasChanged = !isFirst && std::exchange(listing->second, removals) != removals;
  const bool isSkipping = mode != nullptr && std::strcmp(mode, "skipping") == 0;
  return isSkipping && hasChanged && entry != nullptr ? real(stream) : entry;
}

/// The entry of the directory at `path` that is called `name` in another case; `name` without one.
std::string InItsCase(int directory, const std::string& path, const std::string& name) {
  static auto* const real = Real<int(int, const char*, int, ...)>("openat");
  const int descriptor =
      real(directory, path.empty() ? "." : path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  static auto* const next = Real<dirent*(DIR*)>("readdir");
  DIR* const stream = descriptor < 0 ? nullptr : fdopendir(descriptor);
  std::string found = name;
  for (const dirent* entry = nullptr; stream != nullptr && (entry = next(stream)) != nullptr;) {
    found = strcasecmp(entry->d_name, name.c_str()) == 0 ? entry->d_name : found;
  }
  if (stream != nullptr) {
    closedir(stream);
  } else if (descriptor >= 0) {
    close(descriptor);
  }
  return found;
}

bool IsOfTheSystem(const std::string& path) {
  for (const char* const top : {"/dev", "/etc", "/lib", "/proc", "/sys", "/usr"}) {
    if (path.rfind(top, 0) == 0) {
      return true;
    }
  }
  return false;
}

/// `path` with every component in the case that it has on the disk, as far as it is there.
std::string InItsCase(int directory, const std::string& path) {
  if (path.empty() || IsOfTheSystem(path) || Exists(directory, path)) {
    return path;
  }
  std::string found;
  for (std::size_t start = 0; start < path.length();) {
    const std::size_t end = std::min(path.find('/', start), path.length());
    const std::string name = path.substr(start, end - start);
    const bool isThere = name.empty() || Exists(directory, found + name);
    found +=
        (isThere ? name : InItsCase(directory, found, name)) + (end < path.length() ? "/" : "");
    start = end + 1;
  }
  return found;
}

/// A path as the program gives it. False, with errno set, where the file system refuses it.
class Path {
 public:
  explicit Path(const char* given, int directory = AT_FDCWD) : given_(given) {
    if (given == nullptr) {
      return;
    }
    refusal_ = std::strlen(given) >= kPathSize ? ENAMETOOLONG : IsUTF8(given) ? 0 : EILSEQ;
    if (refusal_ != 0) {
      errno = refusal_;
      return;
    }
    const ScopedErrno restored;
    found_ = InItsCase(directory, given);
  }
  explicit operator bool() const { return refusal_ == 0; }
  const char* operator*() const { return given_ == nullptr ? nullptr : found_.c_str(); }

 private:
  const char* given_;
  std::string found_{};
  int refusal_ = 0;
};

/// Returns the path to which `from` is moved. A change of the case alone takes effect.
std::string Destination(int fromDirectory, const char* from, int toDirectory, const char* to,
                        const char* given) {
  const ScopedErrno restored;
  struct stat one = {};
  struct stat other = {};
  static auto* const real = Real<int(int, const char*, struct stat*, int)>("fstatat");
  const bool isSame = real(fromDirectory, from, &one, AT_SYMLINK_NOFOLLOW) == 0 &&
                      real(toDirectory, to, &other, AT_SYMLINK_NOFOLLOW) == 0 &&
                      one.st_ino == other.st_ino && one.st_dev == other.st_dev;
  const std::string name = std::string(given).substr(std::string(given).rfind('/') + 1);
  const std::string found = to;
  return isSame ? found.substr(0, found.rfind('/') + 1) + name : found;
}

mode_t ModeOf(int flags, va_list arguments) {
  return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

}  // namespace

// The label is the name that the linker knows: the C library's headers say much about theirs.
#define STAND_BEFORE(result, function, parameters)                   \
  extern "C" result darwin_##function parameters __asm__(#function); \
  extern "C" result darwin_##function parameters

#define WITH_PATH(result, failure, function, parameters, directory, ...) \
  STAND_BEFORE(result, function, parameters) {                           \
    static auto* const real = Real<result parameters>(#function);        \
    const Path found(path, directory);                                   \
    return found ? real(__VA_ARGS__) : (failure);                        \
  }

#define REMOVING(function, parameters, directory, ...)         \
  STAND_BEFORE(int, function, parameters) {                    \
    static auto* const real = Real<int parameters>(#function); \
    const Path found(path, directory);                         \
    return found ? Counted(real(__VA_ARGS__)) : -1;            \
  }

#define WITH_TWO_PATHS(function, parameters, fromDirectory, toDirectory, ...)               \
  STAND_BEFORE(int, function, parameters) {                                                 \
    static auto* const real = Real<int parameters>(#function);                              \
    const Path source(from, fromDirectory);                                                 \
    const Path target(to, toDirectory);                                                     \
    if (!source || !target) {                                                               \
      return -1;                                                                            \
    }                                                                                       \
    const std::string goal = Destination(fromDirectory, *source, toDirectory, *target, to); \
    return real(__VA_ARGS__);                                                               \
  }

#define OPEN(function)                                                     \
  STAND_BEFORE(int, function, (const char* path, int flags, ...)) {        \
    static auto* const real = Real<int(const char*, int, ...)>(#function); \
    va_list arguments;                                                     \
    va_start(arguments, flags);                                            \
    const mode_t mode = ModeOf(flags, arguments);                          \
    va_end(arguments);                                                     \
    const Path found(path);                                                \
    return found ? real(*found, flags, mode) : -1;                         \
  }

#define OPENAT(function)                                                           \
  STAND_BEFORE(int, function, (int directory, const char* path, int flags, ...)) { \
    static auto* const real = Real<int(int, const char*, int, ...)>(#function);    \
    va_list arguments;                                                             \
    va_start(arguments, flags);                                                    \
    const mode_t mode = ModeOf(flags, arguments);                                  \
    va_end(arguments);                                                             \
    const Path found(path, directory);                                             \
    return found ? real(directory, *found, flags, mode) : -1;                      \
  }

OPEN(open)
OPEN(open64)
OPENAT(openat)
OPENAT(openat64)
WITH_PATH(int, -1, __open_2, (const char* path, int flags), AT_FDCWD, *found, flags)
WITH_PATH(int, -1, __open64_2, (const char* path, int flags), AT_FDCWD, *found, flags)
WITH_PATH(int, -1, __openat_2, (int at, const char* path, int flags), at, at, *found, flags)
WITH_PATH(int, -1, __openat64_2, (int at, const char* path, int flags), at, at, *found, flags)
WITH_PATH(int, -1, creat, (const char* path, mode_t mode), AT_FDCWD, *found, mode)
WITH_PATH(FILE*, nullptr, fopen, (const char* path, const char* mode), AT_FDCWD, *found, mode)
WITH_PATH(FILE*, nullptr, fopen64, (const char* path, const char* mode), AT_FDCWD, *found, mode)
WITH_PATH(DIR*, nullptr, opendir, (const char* path), AT_FDCWD, *found)
WITH_PATH(int, -1, access, (const char* path, int mode), AT_FDCWD, *found, mode)
WITH_PATH(int, -1, faccessat, (int at, const char* path, int mode, int flags), at, at, *found, mode,
          flags)
WITH_PATH(int, -1, mkdir, (const char* path, mode_t mode), AT_FDCWD, *found, mode)
WITH_PATH(int, -1, mkdirat, (int at, const char* path, mode_t mode), at, at, *found, mode)
WITH_PATH(int, -1, mkfifo, (const char* path, mode_t mode), AT_FDCWD, *found, mode)
REMOVING(rmdir, (const char* path), AT_FDCWD, *found)
REMOVING(remove, (const char* path), AT_FDCWD, *found)
REMOVING(unlink, (const char* path), AT_FDCWD, *found)
REMOVING(unlinkat, (int at, const char* path, int flags), at, at, *found, flags)
STAND_BEFORE(dirent*, readdir, (DIR * stream)) {
  return NextEntry<dirent>("readdir", stream);
}
STAND_BEFORE(dirent64*, readdir64, (DIR * stream)) {
  return NextEntry<dirent64>("readdir64", stream);
}
STAND_BEFORE(int, closedir, (DIR * stream)) {
  static auto* const real = Real<int(DIR*)>("closedir");
  Listings().erase(stream);
  return real(stream);
}
STAND_BEFORE(void, rewinddir, (DIR * stream)) {
  static auto* const real = Real<void(DIR*)>("rewinddir");
  Listings().erase(stream);
  real(stream);
}
WITH_PATH(int, -1, chmod, (const char* path, mode_t mode), AT_FDCWD, *found, mode)
WITH_PATH(int, -1, fchmodat, (int at, const char* path, mode_t mode, int flags), at, at, *found,
          mode, flags)
WITH_PATH(int, -1, chown, (const char* path, uid_t user, gid_t group), AT_FDCWD, *found, user,
          group)
WITH_PATH(int, -1, truncate, (const char* path, off_t size), AT_FDCWD, *found, size)
WITH_PATH(int, -1, truncate64, (const char* path, off_t size), AT_FDCWD, *found, size)
WITH_PATH(int, -1, utimensat, (int at, const char* path, const timespec* times, int flags), at, at,
          *found, times, flags)
WITH_PATH(int, -1, chdir, (const char* path), AT_FDCWD, *found)
WITH_PATH(ssize_t, -1, readlink, (const char* path, char* buffer, std::size_t size), AT_FDCWD,
          *found, buffer, size)
WITH_PATH(ssize_t, -1, readlinkat, (int at, const char* path, char* buffer, std::size_t size), at,
          at, *found, buffer, size)
WITH_PATH(char*, nullptr, realpath, (const char* path, char* buffer), AT_FDCWD, *found, buffer)
WITH_PATH(char*, nullptr, __realpath_chk, (const char* path, char* buffer, std::size_t size),
          AT_FDCWD, *found, buffer, size)
WITH_PATH(int, -1, stat, (const char* path, struct stat* status), AT_FDCWD, *found, status)
WITH_PATH(int, -1, stat64, (const char* path, struct stat* status), AT_FDCWD, *found, status)
WITH_PATH(int, -1, lstat, (const char* path, struct stat* status), AT_FDCWD, *found, status)
WITH_PATH(int, -1, lstat64, (const char* path, struct stat* status), AT_FDCWD, *found, status)
WITH_PATH(int, -1, fstatat, (int at, const char* path, struct stat* status, int flags), at, at,
          *found, status, flags)
WITH_PATH(int, -1, fstatat64, (int at, const char* path, struct stat* status, int flags), at, at,
          *found, status, flags)
WITH_PATH(int, -1, statx,
          (int at, const char* path, int flags, unsigned int mask, struct statx* status), at, at,
          *found, flags, mask, status)
WITH_PATH(int, -1, symlink, (const char* target, const char* path), AT_FDCWD, target, *found)
WITH_PATH(int, -1, symlinkat, (const char* target, int at, const char* path), at, target, at,
          *found)
WITH_TWO_PATHS(link, (const char* from, const char* to), AT_FDCWD, AT_FDCWD, *source, *target)
WITH_TWO_PATHS(linkat, (int one, const char* from, int other, const char* to, int flags), one,
               other, one, *source, other, *target, flags)
WITH_TWO_PATHS(rename, (const char* from, const char* to), AT_FDCWD, AT_FDCWD, *source,
               goal.c_str())
WITH_TWO_PATHS(renameat, (int one, const char* from, int other, const char* to), one, other, one,
               *source, other, goal.c_str())
WITH_TWO_PATHS(renameat2,
               (int one, const char* from, int other, const char* to, unsigned int flags), one,
               other, one, *source, other, goal.c_str(), flags)
WITH_PATH(int, -1, execve, (const char* path, char* const* arguments, char* const* environment),
          AT_FDCWD, *found, arguments, environment)
WITH_PATH(int, -1, execv, (const char* path, char* const* arguments), AT_FDCWD, *found, arguments)
