#ifndef TOOLS_WEBRESOURCES_MACHINE_RECORD_H_
#define TOOLS_WEBRESOURCES_MACHINE_RECORD_H_

#include <optional>
#include <string>

#include "InstallRecord.h"
#include "report/Report.h"

namespace webresources {

/// Reads the record of the host mounted at `hostRoot`; an empty `hostRoot` means this host. Throws
/// Error if the record cannot be read.
InstallRecord ReadHostRecord(const std::string& hostRoot);

/// Returns whether no value is recorded.
bool IsEmpty(const InstallRecord& record);

/// Returns the recorded update number; nothing if the number is absent or unusable.
std::optional<int> UpdateIdOf(const InstallRecord& record);

/// Returns whether the recorded random identifier is of a wrong type or out of range. The installer
/// keeps such a value.
bool IsRandomUnusable(const InstallRecord& record);

/// Returns the defects of update number, version and random identifier. Without `updateId`,
/// compares the values with each other only.
Findings FindInRecord(const InstallRecord& record, std::optional<int> updateId);

/// Adds the finding about the absent or unusable value `name` of the record: kRecordType if `state`
/// is Unusable, else kRecordMissing.
void AddMissing(Findings& findings, const char* name, InstallRecord::State state);

/// Returns `record` as a member of a JSON document. An absent value is null. The number -1 is null,
/// too, because the installer treats -1 as absent.
Json ToJson(const WebRegInfo& record);

/// Returns the record after an installation of the update `updateId`, in the form of ToJson(). The
/// random identifier is "drawn" if the run draws a new identifier.
Json RecordAfter(const InstallRecord& record, int updateId, bool regenerates);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_MACHINE_RECORD_H_
