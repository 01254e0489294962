#include "machine/Installation.h"

#include <sys/stat.h>

#include "InstallerConstants.h"
#include "support/Error.h"
#include "support/Files.h"
#include "support/Text.h"

namespace webresources {

namespace {

using ValueState = OSUtils::ValueState;

std::string InstalledDirectory(const Installation& installation) {
  const std::string& recorded = installation.record.installPath;
  if (!recorded.empty() && IsBareName(recorded) && installation.HasDirectory(recorded)) {
    return recorded;
  }
  return installation.HasDirectory(kFinalName) ? kFinalName : "";
}

}  // namespace

bool Installation::IsEmpty() const {
  return names.empty() && states.random == ValueState::Absent &&
         states.updateId == ValueState::Absent && states.installPath == ValueState::Absent &&
         states.fullVersion == ValueState::Absent;
}

std::optional<int> Installation::UpdateId() const {
  return states.updateId == ValueState::Usable ? std::optional(record.updateId) : std::nullopt;
}

bool Installation::HasDirectory(const std::string& name) const {
  const std::string path = installRoot + name;
  struct stat status = {};
  return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

Installation ReadInstallation(const std::string& hostRoot) {
  if (!hostRoot.empty() && !IsDirectory(hostRoot)) {
    throw Error("read", hostRoot, "it is not a directory");
  }
  Installation installation;
  installation.hostRoot = hostRoot;
  installation.installRoot = hostRoot + OSUtils::GetPellamResourceDirectory();
  if (!OSUtils::InfoUnder(hostRoot, &installation.record)) {
    const std::string host = hostRoot.empty() ? "this host" : hostRoot;
    throw Error("read", "the record of " + host, "it is not readable here");
  }
  installation.states = OSUtils::StatesUnder(hostRoot);
  const std::string root = ParentOf(installation.installRoot);
  installation.isRootUsable = !Exists(root) || IsDirectory(root);
  if (installation.isRootUsable && StateOf(root) == FileState::Present) {
    installation.names = NamesIn(root);
  }
  installation.directory = InstalledDirectory(installation);
  return installation;
}

std::string BesideInstallRoot(const std::string& hostRoot, const std::string& name) {
  return ParentOf(ParentOf(hostRoot + OSUtils::GetPellamResourceDirectory())) + "/" + name;
}

bool IsBareName(const std::string& name) {
  return name.find('/') == std::string::npos && name != "." && name != "..";
}

std::uint64_t FreeBytes(const Installation& installation) {
  std::string path = ParentOf(installation.installRoot);
  while (!path.empty() && !Exists(path)) {
    path = ParentOf(path);
  }
  return FreeBytesAt(path.empty() ? "/" : path);
}

Json ToJson(const WebRegInfo& record) {
  Json json = Json::object();
  PutName(json, "installPath", record.installPath);
  json["updateId"] = record.updateId;
  PutName(json, "fullVersion", record.fullVersion);
  json["random"] = record.random;
  return json;
}

void ReportInstallation(const Installation& installation, Report& report) {
  PutName(report.details, "installRoot", installation.installRoot);
  report.details["record"] = ToJson(installation.record);
}

}  // namespace webresources
