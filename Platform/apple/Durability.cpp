#include "Durability.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "Uninterrupted.h"

void Durability::SyncFileSystem(const std::string& path) {
  // Without the first flag, the data may stay in the cache of the drive.
  constexpr int kFlags = SYNC_VOLUME_FULLSYNC | SYNC_VOLUME_WAIT;
  // The call returns the error number and does not change errno.
  Uninterrupted([&] {
    errno = sync_volume_np(path.c_str(), kFlags);
    return errno == 0 ? 0 : -1;
  });
}

bool Durability::SyncFile(int descriptor) {
  if (Uninterrupted([&] { return fcntl(descriptor, F_FULLFSYNC); }) != -1) {
    return true;
  }
  // Some file systems do not know this call, for example file systems of a network.
  return (errno == ENOTSUP || errno == EOPNOTSUPP || errno == ENOTTY || errno == EINVAL) &&
         Uninterrupted([&] { return fsync(descriptor); }) == 0;
}
