#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "InstallerConstants.h"
#include "InstallerUtils.h"
#include "MetadataHelper.h"
#include "OSUtils.h"

namespace {

/// Clears the preferences domain and keeps the record's four values.
void ClearRecord() {
  WebRegInfo record;
  OSUtils::OldInfo(&record);
  OSUtils::ClearRegistry();
  OSUtils::MakeFreshRegistry(&record);
}

/// Renames the directory `name`, now the only entry under `root`, to kFinalName, and records the
/// new name. If the rename fails, the directory and the record keep the old name.
void RenameToFinalName(const std::string& root, const std::string& name, const std::string& path) {
  const std::string finalPath = OSUtils::CombinePath(root, kFinalName);
  if (name != kFinalName && std::rename(path.c_str(), finalPath.c_str()) == 0) {
    // Without a sync, a power failure could undo the rename but keep the record. The recorded name
    // could then belong to an old directory, half deleted.
    OSUtils::MakeDurable(finalPath);
    OSUtils::RegisterWebResourcePath(kFinalName);
  }
}

/// Extracts the package into a new directory, records the directory, and deletes every other entry
/// under `root`. The record holds the directory's name, not its path, on purpose: readers append
/// the name to the install root.
void Install(const std::string& root) {
  const std::string name = OSUtils::GetUniqueDirectoryName(root);
  std::string path = OSUtils::CombinePath(root, name);
  std::string package = OSUtils::GetZipResourcePath();
  if (!InstallerUtils::UncompressPackageFiles(package, path)) {
    return;
  }
  // The sync comes before the record and the deletions. Otherwise a power failure could leave a
  // record of empty files, with the old files deleted.
  OSUtils::MakeDurable(path);
  if (!OSUtils::RegisterWebResourcePath(name)) {
    return;
  }
  OSUtils::RegisterUpdateID(MetadataHelper::getInstance().getUpdateId());
  OSUtils::RegisterCompleteVersion(MetadataHelper::getInstance().getUpdateId());
  OSUtils::DeleteAllDirectoryExceptOne(root, name);
  RenameToFinalName(root, name, path);
}

/// Makes an uncaught exception end the process without the library's message. A constructor
/// function runs early enough for an allocation that fails before main().
[[gnu::constructor]] void EndSilently() {
  std::set_terminate(std::abort);
}

}  // namespace

/// Performs one run. Silent and lenient on purpose: a run that completes returns 0, even if an
/// operation has failed. Invalid metadata raises an exception that no code catches: the process
/// aborts, and the changes made before stay.
int main() {
  std::signal(SIGXFSZ, SIG_IGN);  // a write beyond the file-size limit fails like any other write
  const std::string root = OSUtils::GetPellamResourceDirectory();
  if (MetadataHelper::getInstance().shouldClearRegistry()) {
    ClearRecord();
  }
  Install(root);
  if (MetadataHelper::getInstance().shouldRegenerateRandom() || !OSUtils::isRandomPresent()) {
    OSUtils::RegisterRandom();
  }
  return 0;
}
