#ifndef TOOLS_WEBRESOURCES_MACHINE_INSTALLATION_H_
#define TOOLS_WEBRESOURCES_MACHINE_INSTALLATION_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "machine/Record.h"
#include "report/Report.h"

namespace webresources {

/// What is installed on a host: the record, and the names under the install root. Contents of files
/// are not read; see ReadTree().
struct Installation {
  std::string hostRoot;      ///< Where the host's file system lies; empty for this host.
  std::string installRoot;   ///< The install root below `hostRoot`; ends in "/".
  bool isRootUsable = true;  ///< False if something other than a directory is in its place.
  InstallRecord record;
  std::vector<std::string> names;  ///< What is under the install root, sorted.
  /// The bare name of the directory that is installed: the recorded one or, if there is no such
  /// directory, the final one; empty if there is neither.
  std::string directory;

  /// Whether neither an entry under the root nor any value of the record is there.
  bool IsEmpty() const;

  /// Whether `name` is a directory under the root, not a link to one.
  bool HasDirectory(const std::string& name) const;
};

/// Reads what is installed on the host whose file system lies at `hostRoot`; empty for this host.
/// Throws Error if that cannot be read.
Installation ReadInstallation(const std::string& hostRoot);

/// The path of `name` beside the install root of that host: what has to survive a run, which
/// empties the root, lies there.
std::string BesideInstallRoot(const std::string& hostRoot, const std::string& name);

/// Members of the document that tell where the host's installation is and what it records.
void ReportInstallation(const Installation& installation, Report& report);

/// Whether `name` can name an entry of a directory, rather than a path.
bool IsBareName(const std::string& name);

/// Returns `path`, or its nearest parent that exists.
std::string NearestExisting(std::string path);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_MACHINE_INSTALLATION_H_
