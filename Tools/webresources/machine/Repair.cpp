#include "Repair.h"

#include <sys/stat.h>

#include "Error.h"
#include "FileTree.h"
#include "Names.h"

namespace {

/// How many directories at the end of the install root's path are the product's.
constexpr int kOwnDirectories = 4;

bool IsClosed(const std::string& path) {
  constexpr mode_t kEnter = S_IROTH | S_IXOTH;
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 &&
         ((status.st_mode & kEnter) != kEnter || (status.st_mode & S_IWOTH) != 0);
}

}  // namespace

bool IsRandomUnusable(const Installation& installation) {
  using ValueState = OSUtils::ValueState;
  const int random = installation.record.random;
  return installation.states.random == ValueState::Unusable ||
         (installation.states.random == ValueState::Usable &&
          (random < 1 || random > OSUtils::kLargestRandom));
}

std::vector<std::string> ClosedDirectories(const Installation& installation) {
  std::vector<std::string> closed;
  std::string path = names::Parent(installation.root);
  for (int i = 0; i < kOwnDirectories; ++i, path = names::Parent(path)) {
    if (IsClosed(path)) {
      closed.insert(closed.begin(), path);
    }
  }
  return closed;
}

void RepairWhatARunKeeps(const Installation& installation) {
  // Each value is read for itself: one that could not be read looks like a wrong one. It is looked
  // at again before it is removed.
  if (IsRandomUnusable(installation) && IsRandomUnusable(ReadInstallation(installation.prefix)) &&
      !OSUtils::RemoveRandom(installation.prefix)) {
    throw Error("write", "the record", "the random identifier cannot be removed");
  }
  for (const std::string& path : ClosedDirectories(installation)) {
    if (chmod(path.c_str(), kDirectoryMode) != 0) {
      throw Error::FromErrno("open to other users", path);
    }
  }
}
