#include "Durability.h"

#include <fcntl.h>
#include <unistd.h>

#include "Descriptor.h"
#include "Uninterrupted.h"

void Durability::SyncFileSystem(const std::string& path) {
  const Descriptor directory(
      Uninterrupted([&] { return open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
  if (directory) {
    Uninterrupted([&] { return syncfs(*directory); });
  }
}

bool Durability::SyncFile(int descriptor) {
  return Uninterrupted([&] { return fsync(descriptor); }) == 0;
}
