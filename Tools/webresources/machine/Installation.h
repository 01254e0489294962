#ifndef TOOLS_WEBRESOURCES_MACHINE_INSTALLATION_H_
#define TOOLS_WEBRESOURCES_MACHINE_INSTALLATION_H_

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "machine/Record.h"
#include "prediction/PackageFindings.h"
#include "report/Report.h"

namespace webresources {

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
