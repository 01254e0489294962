#ifndef TOOLS_WEBRESOURCES_COMMANDS_UNINSTALL_H_
#define TOOLS_WEBRESOURCES_COMMANDS_UNINSTALL_H_

#include <chrono>
#include <string>

#include "report/Report.h"

namespace webresources {

struct UninstallOptions {
  std::string hostRoot;          ///< Where the host's file system is mounted; empty for this host.
  bool isDryRun = false;         ///< Change nothing.
  std::chrono::seconds wait{0};  ///< How long to wait for another installation.
};

/// Removes everything that `install` and the installer make on a host: receipt, record, installed
/// tree, temporary files and lock, then the directories above if they are empty. Keys and files of
/// other programs stay. Where nothing is installed, nothing is made and the status is 0.
///
/// The record goes before the files: readers of the record never meet half a tree. A process that
/// is killed leaves a rest that the next call removes. Throws Error if something cannot be read or
/// removed.
Report Uninstall(const UninstallOptions& options);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_COMMANDS_UNINSTALL_H_
