// The linker's option --wrap replaces the program's calls of FUNCTION by __wrap_FUNCTION. The calls
// of __real_FUNCTION reach the C library.

#include "FailingCall.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <utility>

namespace {

FailingCall* fault = nullptr;

template <typename Call>
ssize_t Transfer(const char* function, std::size_t size, Call call) {
  if (!FailingCall::Strikes(function)) {
    return call(size);
  }
  return FailingCall::CurrentError() == FailingCall::kShort ? call((size + 1) / 2) : -1;
}

}  // namespace

FailingCall::FailingCall(std::string function, int error, int first, int last)
    : function_(std::move(function)), error_(error), first_(first), last_(last) {
  fault = this;
}

FailingCall::FailingCall(std::string function, std::function<void()> change, int first, int last)
    : function_(std::move(function)), change_(std::move(change)), first_(first), last_(last) {
  fault = this;
}

FailingCall::~FailingCall() {
  fault = nullptr;
}

bool FailingCall::Counts(const char* function) {
  calls_ += std::string(function) + " ";
  if (function != function_) {
    return false;
  }
  ++count_;
  return count_ >= first_ && count_ <= last_;
}

bool FailingCall::Strikes(const char* function) {
  FailingCall* const current = fault;
  if (current == nullptr || !current->Counts(function)) {
    return false;
  }
  if (current->change_) {
    fault = nullptr;  // the calls in change_() are not counted
    current->change_();
    fault = current;
    return false;
  }
  errno = current->error_;
  return true;
}

int FailingCall::CurrentError() {
  return fault->error_;
}

#define LET_FAIL(failure, result, function, parameters, arguments)                    \
  result __real_##function parameters;                                                \
  result __wrap_##function parameters {                                               \
    return FailingCall::Strikes(#function) ? (failure) : __real_##function arguments; \
  }

#define LET_TRANSFER_FAIL(function, parameters, arguments)                          \
  ssize_t __real_##function parameters;                                             \
  ssize_t __wrap_##function parameters {                                            \
    return Transfer(#function, size,                                                \
                    [=](std::size_t part) { return __real_##function arguments; }); \
  }

extern "C" {

LET_FAIL(-1, int, access, (const char* path, int mode), (path, mode))
LET_FAIL(-1, int, chmod, (const char* path, mode_t mode), (path, mode))
LET_FAIL(-1, int, fchmod, (int file, mode_t mode), (file, mode))
LET_FAIL(-1, int, execve, (const char* path, char* const arguments[], char* const environment[]),
         (path, arguments, environment))
LET_FAIL(nullptr, FILE*, fdopen, (int file, const char* mode), (file, mode))
LET_FAIL(nullptr, DIR*, fdopendir, (int file), (file))
LET_FAIL(-1, int, flock, (int file, int operation), (file, operation))
LET_FAIL(-1, pid_t, fork, (), ())
LET_FAIL(-1, int, fstat, (int file, struct stat* status), (file, status))
LET_FAIL(-1, int, fstatat, (int directory, const char* path, struct stat* status, int flags),
         (directory, path, status, flags))
LET_FAIL(-1, int, ftruncate, (int file, off_t size), (file, size))
LET_FAIL(0, std::size_t, fwrite,
         (const void* data, std::size_t size, std::size_t count, FILE* stream),
         (data, size, count, stream))
LET_FAIL(-1, int, link, (const char* old, const char* name), (old, name))
LET_FAIL(-1, off_t, lseek, (int file, off_t offset, int from), (file, offset, from))
LET_FAIL(-1, int, lstat, (const char* path, struct stat* status), (path, status))
LET_FAIL(-1, int, mkdir, (const char* path, mode_t mode), (path, mode))
LET_FAIL(nullptr, DIR*, opendir, (const char* path), (path))
LET_FAIL(-1, int, pipe2, (int* ends, int flags), (ends, flags))
LET_FAIL(nullptr, dirent*, readdir, (DIR * stream), (stream))
LET_FAIL(-1, int, rename, (const char* old, const char* name), (old, name))
LET_FAIL(-1, int, renameat, (int from, const char* old, int to, const char* name),
         (from, old, to, name))
LET_FAIL(-1, int, renameat2,
         (int from, const char* old, int to, const char* name, unsigned int flags),
         (from, old, to, name, flags))
LET_FAIL(-1, int, stat, (const char* path, struct stat* status), (path, status))
LET_FAIL(-1, int, syncfs, (int file), (file))
LET_FAIL(-1, int, unlink, (const char* path), (path))
LET_FAIL(-1, int, unlinkat, (int directory, const char* path, int flags), (directory, path, flags))

int __real_fsync(int file);
int __wrap_fsync(int file) {
  struct stat status = {};
  if (fault != nullptr && __real_fstat(file, &status) == 0) {
    fault->NoteSync(status.st_ino, status.st_size);
  }
  return FailingCall::Strikes("fsync") ? -1 : __real_fsync(file);
}

/// Makes the file system look as if only the space and the inodes reserved for root are free.
/// Reports no error.
int __real_statvfs(const char* path, struct statvfs* status);
int __wrap_statvfs(const char* path, struct statvfs* status) {
  if (!FailingCall::Strikes("statvfs")) {
    return __real_statvfs(path, status);
  }
  *status = {};
  status->f_frsize = 4096;
  status->f_bfree = 10;
  status->f_files = 100;
  status->f_ffree = 10;
  return FailingCall::CurrentError() == FailingCall::kShort ? 0 : -1;
}

int __real_waitid(idtype_t type, id_t process, siginfo_t* end, int options);
int __wrap_waitid(idtype_t type, id_t process, siginfo_t* end, int options) {
  return FailingCall::Strikes("waitid") ? -1 : __real_waitid(type, process, end, options);
}

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
  mode_t mode = 0;
  if ((flags & O_CREAT) != 0) {
    std::va_list arguments;
    va_start(arguments, flags);
    mode = va_arg(arguments, mode_t);
    va_end(arguments);
  }
  return FailingCall::Strikes("open") ? -1 : __real_open(path, flags, mode);
}

int __real_openat(int directory, const char* path, int flags, ...);
int __wrap_openat(int directory, const char* path, int flags, ...) {
  mode_t mode = 0;
  if ((flags & O_CREAT) != 0) {
    std::va_list arguments;
    va_start(arguments, flags);
    mode = va_arg(arguments, mode_t);
    va_end(arguments);
    if (fault != nullptr) {
      fault->NoteCreation(flags, mode);
    }
  }
  return FailingCall::Strikes("openat") ? -1 : __real_openat(directory, path, flags, mode);
}

// The system's declaration has an enumeration, which cannot precede variable arguments in C++.
long __real_ptrace(unsigned int request, ...);
long __wrap_ptrace(unsigned int request, ...) {
  std::va_list arguments;
  va_start(arguments, request);
  const pid_t process = va_arg(arguments, pid_t);
  void* const address = va_arg(arguments, void*);
  void* const data = va_arg(arguments, void*);
  va_end(arguments);
  return FailingCall::Strikes("ptrace") ? -1 : __real_ptrace(request, process, address, data);
}

LET_TRANSFER_FAIL(getrandom, (void* bytes, std::size_t size, unsigned int flags),
                  (bytes, part, flags))
LET_TRANSFER_FAIL(pread, (int file, void* bytes, std::size_t size, off_t offset),
                  (file, bytes, part, offset))
LET_TRANSFER_FAIL(read, (int file, void* bytes, std::size_t size), (file, bytes, part))
LET_TRANSFER_FAIL(write, (int file, const void* bytes, std::size_t size), (file, bytes, part))

}  // extern "C"
