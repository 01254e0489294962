#include "support/AtomicFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>

#include "Durability.h"
#include "Uninterrupted.h"
#include "support/Error.h"
#include "support/Files.h"
#include "support/Text.h"

namespace webresources {

namespace {

constexpr const char* kPurposes[] = {"tmp", "old"};

/// Returns the beginning of the names of temporary files for `path`. The process number follows.
std::string NameBefore(const std::string& path, const char* purpose) {
  return "." + LastOf(path) + "." + purpose + "-";
}

std::string Beside(const std::string& path, const char* purpose) {
  return ParentOf(path) + "/" + NameBefore(path, purpose) + std::to_string(getpid());
}

bool IsLeftover(const std::string& name, const std::string& path) {
  return std::any_of(std::begin(kPurposes), std::end(kPurposes), [&](const char* purpose) {
    const std::string before = NameBefore(path, purpose);
    return name.length() > before.length() && name.compare(0, before.length(), before) == 0 &&
           std::all_of(name.begin() + static_cast<std::ptrdiff_t>(before.length()), name.end(),
                       [](unsigned char byte) { return std::isdigit(byte) != 0; });
  });
}

/// Opens and locks the file at `path`. Returns no descriptor if there is no such file, or if
/// another process holds the lock. The lock ends with the process, even after a kill.
Descriptor OpenLocked(const std::string& path) {
  Descriptor file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  const bool isLocked =
      file && Uninterrupted([&file] { return flock(*file, LOCK_EX | LOCK_NB); }) == 0;
  return isLocked ? std::move(file) : Descriptor(-1);
}

/// Removes the temporary files of killed processes beside `path`, as far as possible.
void RemoveLeftovers(const std::string& path) {
  const std::string directory = ParentOf(path) + "/";
  for (const std::string& name : NamesIn(ParentOf(path))) {
    if (IsLeftover(name, path)) {
      const Descriptor file = OpenLocked(directory + name);
      // Another process may have removed the file, and the owner may have made a new file.
      if (file && IsAt(*file, directory + name)) {
        unlink((directory + name).c_str());
      }
    }
  }
}

/// Makes and locks an empty file at `path`. Before the lock, another process can remove the file as
/// a leftover: this function then makes a new file. Requires: `path` does not exist.
Descriptor MakeLocked(const std::string& path) {
  constexpr int kAttempts = 100;
  for (int i = 0; i < kAttempts; ++i) {
    Descriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
    if (!file) {
      throw Error::FromErrno("write", path);
    }
    // On a file system without locks, no process can lock the file to remove it.
    Uninterrupted([&file] { return flock(*file, LOCK_EX); });
    if (IsAt(*file, path)) {
      return file;
    }
  }
  throw Error("write", path, "other processes keep removing it");
}

Descriptor MakeTemporary(const std::string& path, const std::string& temporary) {
  RemoveLeftovers(path);
  return MakeLocked(temporary);
}

void SynchronizeDescriptor(const Descriptor& file, const std::string& path) {
  if (!file || !Durability::SyncFile(*file)) {
    throw Error::FromErrno("write", path);
  }
}

void SynchronizeDirectory(const std::string& path) {
  SynchronizeDescriptor(Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC)), path);
}

}  // namespace

AtomicFile::AtomicFile(std::string path)
    : path_(std::move(path)),
      temporary_(Beside(path_, "tmp")),
      file_(MakeTemporary(path_, temporary_)) {}

AtomicFile::~AtomicFile() {
  unlink(temporary_.c_str());
  if (!backup_.empty()) {
    unlink(backup_.c_str());
  }
}

void AtomicFile::Write(const std::string& bytes) {
  if (!WriteAll(*file_, bytes.data(), bytes.size())) {
    throw Error::FromErrno("write", temporary_);
  }
}

void AtomicFile::Synchronize() const {
  SynchronizeDescriptor(file_, temporary_);
}

void AtomicFile::Commit() {
  if (!IsAt(*file_, temporary_)) {
    throw Error("replace", path_, "another process has moved or replaced " + temporary_);
  }
  const std::string backup = Beside(path_, "old");
  unlink(backup.c_str());
  backupLock_.emplace(OpenLocked(path_));
  if (link(path_.c_str(), backup.c_str()) == 0) {
    backup_ = backup;
  } else if (errno != ENOENT) {
    throw Error::FromErrno("keep a copy of", path_);
  }
  if (std::rename(temporary_.c_str(), path_.c_str()) != 0) {
    throw Error::FromErrno("replace", path_);
  }
}

void AtomicFile::Rollback() {
  if (backup_.empty()) {
    unlink(path_.c_str());
  } else {
    std::rename(backup_.c_str(), path_.c_str());
    backup_.clear();  // after a failed rename, the old file keeps the second name
  }
}

void AtomicFile::CommitDurably() {
  Synchronize();
  Commit();
  try {
    SynchronizeDirectory(ParentOf(path_));
  } catch (...) {
    Rollback();
    throw;
  }
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
  SynchronizeDirectory(ParentOf(first.path_));
}

}  // namespace webresources
