#include "machine/Installation.h"

#include <sys/stat.h>

#include "InstallerConstants.h"
#include "OSUtils.h"
#include "machine/Access.h"
#include "machine/InstallLock.h"
#include "support/Files.h"
#include "support/Text.h"

namespace webresources {

namespace {

std::optional<std::string> InstalledDirectory(const Installation& installation) {
  const std::string& recorded = installation.record.values.installPath;
  if (!recorded.empty() && IsBareName(recorded) && installation.HasDirectory(recorded)) {
    return recorded;
  }
  return installation.HasDirectory(kFinalName) ? std::optional<std::string>(kFinalName)
                                               : std::nullopt;
}

}  // namespace

bool Installation::HasDirectory(const std::string& name) const {
  const std::string path = installRoot + name;
  struct stat status = {};
  return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

Installation ReadInstallation(const std::string& hostRoot) {
  RequireHost(hostRoot);
  Installation installation;
  installation.hostRoot = hostRoot;
  installation.installRoot = hostRoot + OSUtils::GetPellamResourceDirectory();
  installation.record = ReadHostRecord(hostRoot);
  const std::string root = ParentOf(installation.installRoot);
  installation.isRootUsable = !Exists(root) || IsDirectory(root);
  if (installation.isRootUsable && IsPresent(root)) {
    installation.names = NamesIn(root);
  }
  installation.directory = InstalledDirectory(installation);
  return installation;
}

std::string BesideInstallRoot(const std::string& hostRoot, const std::string& name) {
  return ParentOf(ParentOf(hostRoot + OSUtils::GetPellamResourceDirectory())) + "/" + name;
}

std::vector<std::string> TemporaryEntries(const std::string& hostRoot) {
  constexpr char kPrefix[] = ".WebResources.";
  const std::string directory = BesideInstallRoot(hostRoot, "");
  std::vector<std::string> paths;
  for (const std::string& name : IsDirectory(directory) ? NamesIn(directory) : paths) {
    if (name.rfind(kPrefix, 0) == 0 && name != InstallLock::kFileName) {
      paths.push_back(directory + name);
    }
  }
  return paths;
}

bool IsBareName(const std::string& name) {
  return name.find('/') == std::string::npos && name != "." && name != "..";
}

std::string NearestExisting(std::string path) {
  while (!path.empty() && !Exists(path)) {
    path = ParentOf(path);
  }
  return path.empty() ? "/" : path;
}

void ReportInstallation(const Installation& installation, Report& report) {
  PutName(report.details, "installRoot", installation.installRoot);
  report.details["record"] = ToJson(installation.record.values);
}

}  // namespace webresources
