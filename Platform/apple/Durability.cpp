#include "Durability.h"

#include <unistd.h>

#include "Uninterrupted.h"

void Durability::SyncFileSystem(const std::string& path) {
  // Without the first flag, the data may still be in the cache of the disk.
  constexpr int kFlags = SYNC_VOLUME_FULLSYNC | SYNC_VOLUME_WAIT;
  Uninterrupted([&] { return sync_volume_np(path.c_str(), kFlags) == 0 ? 0 : -1; });
}
