#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "InstallerConstants.h"
#include "InstallerUtils.h"
#include "MetadataHelper.h"
#include "OSUtils.h"

namespace {

/// Wipes the record except for the values that it knows.
void ClearRecord() {
  WebRegInfo record;
  OSUtils::OldInfo(&record);
  OSUtils::ClearRegistry();
  OSUtils::MakeFreshRegistry(&record);
}

/// Gives the directory `name` under `root`, now the only entry there, its canonical name. When it
/// cannot be renamed, it keeps its name and the record keeps saying so.
void RenameToFinalName(const std::string& root, const std::string& name, const std::string& path) {
  const std::string finalPath = OSUtils::CombinePath(root, kFinalName);
  if (name != kFinalName && std::rename(path.c_str(), finalPath.c_str()) == 0) {
    // Or a loss of power could bring back an old directory, half deleted, under the recorded name.
    OSUtils::MakeDurable(finalPath);
    OSUtils::RegisterWebResourcePath(kFinalName);
  }
}

/// Extracts the package into a fresh directory, records it, and makes it the only one. The record
/// holds the directory's bare name, never its path: readers join it to the install root.
void Install(const std::string& root) {
  const std::string name = OSUtils::GetUniqueDirectoryName(root);
  std::string path = OSUtils::CombinePath(root, name);
  std::string package = OSUtils::GetZipResourcePath();
  if (!InstallerUtils::UncompressPackageFiles(package, path)) {
    return;
  }
  // Before the record says that the content is there: a loss of power must not leave a record of
  // files that are empty, with the old ones deleted.
  OSUtils::MakeDurable(path);
  if (!OSUtils::RegisterWebResourcePath(name)) {
    return;
  }
  OSUtils::RegisterUpdateID(MetadataHelper::getInstance().getUpdateId());
  OSUtils::RegisterCompleteVersion(MetadataHelper::getInstance().getUpdateId());
  OSUtils::DeleteAllDirectoryExceptOne(root, name);
  RenameToFinalName(root, name, path);
}

/// The process ends without the library's message, also when an allocation fails before main().
[[gnu::constructor]] void EndSilently() {
  std::set_terminate(std::abort);
}

}  // namespace

/// One run, from the bundle to the record. Silent and forgiving on purpose: whatever fails on the
/// way, a run that completes returns 0. Faulty metadata raises an exception that nothing catches:
/// the process then aborts, what was done before stays done.
int main() {
  std::signal(SIGXFSZ, SIG_IGN);  // a file beyond the size limit is one more failed write
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
