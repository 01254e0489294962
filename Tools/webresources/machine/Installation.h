#ifndef TOOLS_WEBRESOURCES_MACHINE_INSTALLATION_H_
#define TOOLS_WEBRESOURCES_MACHINE_INSTALLATION_H_

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "InstallRecord.h"
#include "bundle/Metadata.h"
#include "prediction/PackageFindings.h"
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

/// The options of the commands that examine or change a host. A command ignores the options of
/// other commands.
struct HostOptions {
  std::optional<std::string> bundle;  ///< The bundle to install or to compare with.
  std::string hostRoot;          ///< Where the host's file system is mounted; empty for this host.
  bool ignoresModes = false;     ///< Do not compare modes and owners.
  bool isForced = false;         ///< Run the installer even if nothing would change.
  bool allowsDowngrade = false;  ///< Install over a newer update.
  bool isDryRun = false;         ///< Change nothing.
  std::chrono::seconds wait{0};  ///< The longest wait for another installation.
  Limits limits = {};            ///< The limits for the bundle's package.
};

/// The installation of a host: the record, and the names under the install root. ReadTree() reads
/// the content of files.
struct Installation {
  std::string hostRoot;      ///< The mount point of the host's file system; empty for this host.
  std::string installRoot;   ///< The install root below `hostRoot`; ends in "/".
  bool isRootUsable = true;  ///< False if the root is a file or a dangling link.
  InstallRecord record;
  std::vector<std::string> names;  ///< The entries under the install root, sorted.
  /// The bare name of the installed directory: the recorded name or, if there is no such directory,
  /// the final name. Absent if neither exists.
  std::optional<std::string> directory;

  /// Returns whether `name` is a directory under the root. A link to a directory does not count.
  bool HasDirectory(const std::string& name) const;
};

/// Reads the installation of the host mounted at `hostRoot`; an empty `hostRoot` means this host.
/// Throws Error if a file or the record cannot be read, and as RequireHost() does.
Installation ReadInstallation(const std::string& hostRoot);

/// Returns the path of `name` in the directory that holds the host's install root. A run empties
/// the root and does not change the entries beside the root.
std::string BesideInstallRoot(const std::string& hostRoot, const std::string& name);

/// Returns the paths of the private copies and temporary files beside the host's install root.
/// Throws Error if the directory cannot be read.
std::vector<std::string> TemporaryEntries(const std::string& hostRoot);

/// Adds the install root and the record to the JSON document of `report`.
void ReportInstallation(const Installation& installation, Report& report);

/// Returns whether `name` has no "/" and is neither "." nor "..".
bool IsBareName(const std::string& name);

/// Returns `path`, or its nearest parent that exists.
std::string NearestExisting(std::string path);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_MACHINE_INSTALLATION_H_
