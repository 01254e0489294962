#include "machine/Installation.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <variant>

#include "InstallerConstants.h"
#include "OSUtils.h"
#include "machine/Access.h"
#include "machine/InstallLock.h"
#include "report/Rules.h"
#include "support/Error.h"
#include "support/Files.h"
#include "support/Text.h"

namespace webresources {

namespace {

using State = InstallRecord::State;

/// Returns `record` with the values that a run with `metadata` records.
InstallRecord After(InstallRecord record, const Metadata& metadata) {
  record.values.installPath = kFinalName;
  record.values.updateId = *metadata.updateId;
  record.values.fullVersion = OSUtils::CompleteVersion(*metadata.updateId);
  record.installPath = record.updateId = record.fullVersion = State::Usable;
  return record;
}

std::string AsText(std::int32_t number) {
  return std::to_string(number);
}

std::string AsText(const std::string& text) {
  return text;
}

/// Returns the value of `field` for people; empty if the value is absent or unusable.
std::string TextOf(const RecordField& field, const InstallRecord& record) {
  return record.*field.state != State::Usable
             ? std::string()
             : std::visit([&](auto member) { return AsText(record.values.*member); }, field.value);
}

void FindInVersion(const InstallRecord& record, Findings& findings) {
  const auto updateId = UpdateIdOf(record);
  const std::string& version = record.values.fullVersion;
  if (updateId && !version.empty() && version != OSUtils::CompleteVersion(*updateId)) {
    Add(findings, kRecordVersion, kFullVersionField.label,
        "it is " + version + ", which the update number makes " +
            OSUtils::CompleteVersion(*updateId));
  }
}

}  // namespace

Error UnreadableRecord(const std::string& hostRoot) {
  const int error = errno;
  const bool isUnfit = error == EINVAL || error == EFBIG || error == ELOOP || error == ENXIO;
  const Error parts = Error::FromErrno("read the record", RecordLocation(hostRoot));
  return Error(parts.operation(), parts.object(),
               error == EINVAL ? "it is not a regular file" : parts.reason(),
               isUnfit            ? "remove it, then run webresources install"
               : error == ENOTSUP ? "run the command on that host"
                                  : parts.remedy().value_or("try again"));
}

InstallRecord ReadHostRecord(const std::string& hostRoot) {
  const auto record = ReadRecord(hostRoot);
  if (!record) {
    throw UnreadableRecord(hostRoot);
  }
  return *record;
}

bool IsEmpty(const InstallRecord& record) {
  return std::all_of(
      std::begin(kRecordFields), std::end(kRecordFields),
      [&record](const RecordField& field) { return record.*field.state == State::Absent; });
}

std::optional<int> UpdateIdOf(const InstallRecord& record) {
  return record.updateId == State::Usable ? std::optional(record.values.updateId) : std::nullopt;
}

bool IsRandomUnusable(const InstallRecord& record) {
  const int random = record.values.random;
  return record.random == State::Unusable ||
         (record.random == State::Usable && (random < 1 || random > OSUtils::kLargestRandom));
}

Findings FindInRecord(const InstallRecord& record, const Metadata* metadata) {
  Findings findings;
  const InstallRecord expected =
      metadata != nullptr ? After(InstallRecord(), *metadata) : InstallRecord();
  for (const RecordField& field : kRecordFields) {
    const std::string found = TextOf(field, record);
    const std::string wanted = TextOf(field, expected);
    if (field.state == kInstallPathField.state) {
      continue;
    }
    if (found.empty()) {  // also for a recorded text that is empty
      AddMissing(findings, field, record);
    } else if (!wanted.empty() && found != wanted) {
      Add(findings, kRecordDiffers, field.label, "it is " + found + " instead of " + wanted);
    }
  }
  if (metadata == nullptr) {
    FindInVersion(record, findings);
  }
  if (record.random == State::Usable && IsRandomUnusable(record)) {
    Add(findings, kRecordRandom, kRandomField.label,
        "it is " + TextOf(kRandomField, record) + ", not from 1 to " +
            std::to_string(OSUtils::kLargestRandom));
  }
  return findings;
}

void AddMissing(Findings& findings, const RecordField& field, const InstallRecord& record) {
  if (record.*field.state == State::Unusable) {
    Add(findings, kRecordType, field.label, "its value is of another type, or out of range");
  } else {
    Add(findings, kRecordMissing, field.label, "it is not recorded");
  }
}

namespace {

void Put(Json& json, const char* name, std::int32_t number) {
  constexpr std::int32_t kAbsent = -1;
  json[name] = number == kAbsent ? Json(nullptr) : Json(number);
}

void Put(Json& json, const char* name, const std::string& text) {
  PutOptional(json, name, text.empty() ? std::nullopt : std::optional(text));
}

}  // namespace

Json ToJson(const WebRegInfo& record) {
  Json json = Json::object();
  for (const RecordField& field : kRecordFields) {
    std::visit([&](auto member) { Put(json, field.name, record.*member); }, field.value);
  }
  return json;
}

Json RecordAfter(const InstallRecord& record, const Metadata& metadata) {
  Json json = ToJson(After(record, metadata).values);
  if (metadata.regenerate.value_or(false) || IsRandomUnusable(record) ||
      record.random == State::Absent) {
    json[kRandomField.name] = "drawn";
  }
  return json;
}

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
