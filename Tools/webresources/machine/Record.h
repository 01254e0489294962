#ifndef TOOLS_WEBRESOURCES_MACHINE_RECORD_H_
#define TOOLS_WEBRESOURCES_MACHINE_RECORD_H_

#include <optional>
#include <string>

#include "InstallRecord.h"
#include "bundle/Metadata.h"
#include "report/Report.h"
#include "support/Error.h"

namespace webresources {

/// Reads the record of the host mounted at `hostRoot`; an empty `hostRoot` means this host. Throws
/// Error if the record cannot be read.
InstallRecord ReadHostRecord(const std::string& hostRoot);

/// Returns the error of a record that ReadRecord() cannot read. Requires: errno is unchanged since
/// ReadRecord().
Error UnreadableRecord(const std::string& hostRoot);

/// Returns whether no value is recorded.
bool IsEmpty(const InstallRecord& record);

/// Returns the recorded update number; nothing if the number is absent or unusable.
std::optional<int> UpdateIdOf(const InstallRecord& record);

/// Returns whether the recorded random identifier is of a wrong type or out of range. The installer
/// keeps such a value.
bool IsRandomUnusable(const InstallRecord& record);

/// Returns the defects of all values except the installed directory, compared with the values that
/// a run with `metadata` records. If `metadata` is null, compares the values with each other only.
/// Requires: `metadata` is null, or each value that a run records has a value.
Findings FindInRecord(const InstallRecord& record, const Metadata* metadata);

/// Adds the finding about an absent or unusable value of `record`: kRecordType if the state is
/// Unusable, else kRecordMissing.
void AddMissing(Findings& findings, const RecordField& field, const InstallRecord& record);

/// Returns `record` as a member of a JSON document. An absent value is null. The number -1 is null,
/// too, because the installer treats -1 as absent.
Json ToJson(const WebRegInfo& record);

/// Returns the record after a run with `metadata`, in the form of ToJson(). The random identifier
/// is "drawn" if the run draws a new identifier. Requires: as FindInRecord().
Json RecordAfter(const InstallRecord& record, const Metadata& metadata);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_MACHINE_RECORD_H_
