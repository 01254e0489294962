#include "AtomicFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "Error.h"
#include "Names.h"

namespace {

/// A name beside `path` that is not taken by another run.
std::string Beside(const std::string& path, const char* purpose) {
  return names::Parent(path) + "/." + names::Last(path) + "." + purpose + "-" +
         std::to_string(getpid());
}

void SynchronizePath(const std::string& path) {
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const bool isDone = descriptor >= 0 && fsync(descriptor) == 0;
  const int reason = errno;
  if (descriptor >= 0) {
    close(descriptor);
  }
  if (!isDone) {
    errno = reason;
    throw Error::FromErrno("write", path);
  }
}

}  // namespace

AtomicFile::AtomicFile(std::string path)
    : path_(std::move(path)), temporary_(Beside(path_, "tmp")) {
  unlink(temporary_.c_str());  // of a killed run that had this process's number
  const int descriptor =
      open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
  if (descriptor < 0) {
    throw Error::FromErrno("write", temporary_);
  }
  close(descriptor);
}

AtomicFile::~AtomicFile() {
  unlink(temporary_.c_str());
  if (!backup_.empty()) {
    unlink(backup_.c_str());
  }
}

void AtomicFile::Synchronize() const {
  SynchronizePath(temporary_);
}

void AtomicFile::Commit() {
  const std::string backup = Beside(path_, "old");
  unlink(backup.c_str());
  if (link(path_.c_str(), backup.c_str()) == 0) {
    backup_ = backup;
  } else if (errno != ENOENT) {
    throw Error::FromErrno("keep a copy of", path_);
  }
  if (std::rename(temporary_.c_str(), path_.c_str()) != 0) {
    throw Error::FromErrno("replace", path_);
  }
  isCommitted_ = true;
}

void AtomicFile::Rollback() {
  if (!isCommitted_) {
    return;
  }
  if (backup_.empty()) {
    unlink(path_.c_str());
  } else if (std::rename(backup_.c_str(), path_.c_str()) == 0) {
    backup_.clear();
  }
  isCommitted_ = false;
}

void AtomicFile::CommitBoth(AtomicFile& first, AtomicFile& second) {
  first.Synchronize();
  second.Synchronize();
  first.Commit();
  try {
    second.Commit();
  } catch (...) {
    first.Rollback();
    throw;
  }
  SynchronizePath(names::Parent(first.path_));
}
