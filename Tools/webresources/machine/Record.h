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

/// Returns the defects of update number, version and random identifier. Without `updateId`, the
/// values have to agree with one another only.
Findings FindInRecord(const InstallRecord& record, std::optional<int> updateId);

/// Returns the finding for a recorded text or number called `name` that is absent or unusable.
void AddMissing(Findings& findings, const char* name, InstallRecord::State state);

/// Returns `record` as a member of a document. An absent value is null, and so is the number -1,
/// which the installer treats as absent.
Json ToJson(const WebRegInfo& record);

/// Returns the record after a run that installs the update `updateId`, as ToJson() does; the random
/// identifier is "drawn" if the run draws a new one.
Json RecordAfter(const InstallRecord& record, int updateId, bool regenerates);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_MACHINE_RECORD_H_
