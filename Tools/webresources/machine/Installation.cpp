#include "Installation.h"

#include <sys/stat.h>

#include "Error.h"
#include "Files.h"
#include "InstallerConstants.h"
#include "Names.h"

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
  const std::string path = root + name;
  struct stat status = {};
  return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

Installation ReadInstallation(const std::string& prefix) {
  if (!prefix.empty() && !IsDirectory(prefix)) {
    throw Error("read", prefix, "it is not a directory");
  }
  Installation installation;
  installation.prefix = prefix;
  installation.root = prefix + OSUtils::GetPellamResourceDirectory();
  if (!OSUtils::InfoUnder(prefix, &installation.record)) {
    const std::string host = prefix.empty() ? "this host" : prefix;
    throw Error("read", "the record of " + host, "it is not readable here");
  }
  installation.states = OSUtils::StatesUnder(prefix);
  const std::string root = names::Parent(installation.root);
  installation.isRootUsable = !Exists(root) || IsDirectory(root);
  if (installation.isRootUsable && StateOf(root) == FileState::Present) {
    installation.names = NamesIn(root);
  }
  installation.directory = InstalledDirectory(installation);
  return installation;
}

std::string BesideInstallRoot(const std::string& prefix, const std::string& name) {
  return names::Parent(names::Parent(prefix + OSUtils::GetPellamResourceDirectory())) + "/" + name;
}

bool IsBareName(const std::string& name) {
  return name.find('/') == std::string::npos && name != "." && name != "..";
}

std::uint64_t FreeBytes(const Installation& installation) {
  std::string path = names::Parent(installation.root);
  while (!path.empty() && !Exists(path)) {
    path = names::Parent(path);
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
  PutName(report.details, "installRoot", installation.root);
  report.details["record"] = ToJson(installation.record);
}
