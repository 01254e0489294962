#include "machine/Record.h"

#include "InstallerConstants.h"
#include "OSUtils.h"
#include "report/Rules.h"
#include "support/Error.h"

namespace webresources {

namespace {

using State = InstallRecord::State;

const char kUpdateIdName[] = "update number";
const char kVersionName[] = "full version";
const char kRandomName[] = "random identifier";

void FindInUpdateId(const InstallRecord& record, std::optional<int> updateId, Findings& findings) {
  const auto recorded = UpdateIdOf(record);
  if (!recorded) {
    AddMissing(findings, kUpdateIdName, record.updateId);
  } else if (updateId && recorded != updateId) {
    Add(findings, kRecordDiffers, kUpdateIdName,
        "it is " + std::to_string(*recorded) + " instead of " + std::to_string(*updateId));
  }
}

void FindInVersion(const InstallRecord& record, std::optional<int> updateId, Findings& findings) {
  const auto number = updateId ? updateId : UpdateIdOf(record);
  const std::string& version = record.values.fullVersion;
  if (version.empty()) {
    AddMissing(findings, kVersionName, record.fullVersion);
  } else if (number && version != OSUtils::CompleteVersion(*number)) {
    Add(findings, updateId ? kRecordDiffers : kRecordVersion, kVersionName,
        "it is " + version + (updateId ? " instead of " : ", which the update number makes ") +
            OSUtils::CompleteVersion(*number));
  }
}

void FindInRandom(const InstallRecord& record, Findings& findings) {
  if (record.random != State::Usable) {
    AddMissing(findings, kRandomName, record.random);
  } else if (IsRandomUnusable(record)) {
    Add(findings, kRecordRandom, kRandomName,
        "it is " + std::to_string(record.values.random) + ", not from 1 to " +
            std::to_string(OSUtils::kLargestRandom));
  }
}

}  // namespace

InstallRecord ReadHostRecord(const std::string& hostRoot) {
  const auto record = ReadRecord(hostRoot);
  if (!record) {
    throw Error::FromErrno("read the record", RecordLocation(hostRoot));
  }
  return *record;
}

bool IsEmpty(const InstallRecord& record) {
  return record.random == State::Absent && record.updateId == State::Absent &&
         record.installPath == State::Absent && record.fullVersion == State::Absent;
}

std::optional<int> UpdateIdOf(const InstallRecord& record) {
  return record.updateId == State::Usable ? std::optional(record.values.updateId) : std::nullopt;
}

bool IsRandomUnusable(const InstallRecord& record) {
  const int random = record.values.random;
  return record.random == State::Unusable ||
         (record.random == State::Usable && (random < 1 || random > OSUtils::kLargestRandom));
}

Findings FindInRecord(const InstallRecord& record, std::optional<int> updateId) {
  Findings findings;
  FindInUpdateId(record, updateId, findings);
  FindInVersion(record, updateId, findings);
  FindInRandom(record, findings);
  return findings;
}

// A recorded text that is empty counts as missing.
void AddMissing(Findings& findings, const char* name, InstallRecord::State state) {
  if (state == State::Unusable) {
    Add(findings, kRecordType, name, "its value is of another type, or out of range");
  } else {
    Add(findings, kRecordMissing, name, "it is not recorded");
  }
}

namespace {

constexpr int kAbsent = -1;

Json NumberOrNull(int number) {
  return number == kAbsent ? Json(nullptr) : Json(number);
}

}  // namespace

Json ToJson(const WebRegInfo& record) {
  Json json = Json::object();
  PutOptional(json, "installPath", record.installPath);
  json["updateId"] = NumberOrNull(record.updateId);
  PutOptional(json, "fullVersion", record.fullVersion);
  json["random"] = NumberOrNull(record.random);
  return json;
}

Json RecordAfter(const InstallRecord& record, int updateId, bool regenerates) {
  WebRegInfo after = record.values;
  after.installPath = kFinalName;
  after.updateId = updateId;
  after.fullVersion = OSUtils::CompleteVersion(updateId);
  Json json = ToJson(after);
  if (regenerates || IsRandomUnusable(record) || record.random == State::Absent) {
    json["random"] = "drawn";
  }
  return json;
}

}  // namespace webresources
