#ifndef TOOLS_WEBRESOURCES_COMMANDS_COMMANDS_H_
#define TOOLS_WEBRESOURCES_COMMANDS_COMMANDS_H_

#include <cstdint>
#include <string>

#include "bundle/Metadata.h"
#include "machine/Installation.h"
#include "packing/SourceTree.h"
#include "prediction/PackageFindings.h"
#include "report/Report.h"

namespace webresources {

/// The commands. Each command returns a report and prints nothing. Each command throws Error on
/// failure, except InstallCheck(): this command reports a failure by the status.

struct PackOptions {
  std::string directory;       ///< The directory to pack.
  std::string output;          ///< A bundle, or its Resources directory.
  bool createsOutput = false;  ///< Accept any directory as `output`; make a missing directory.
  /// The values to write. Requires: each answer has a value.
  Metadata metadata = {false, 0, false};
  bool allowsWarnings = false;  ///< Write both files in spite of warnings.
  Selection selection;          ///< The files that are packed.
};

/// Packs a directory and writes package and metadata, both or neither. Writes nothing after an
/// error or, without `allowsWarnings`, after a warning. SIGHUP, SIGINT and SIGTERM end the command
/// with an Error; no temporary file stays.
Report Pack(const PackOptions& options);

/// The range of update numbers: the full version has nine characters for the number. Pack() refuses
/// -1 by a finding, because -1 means "no number" in the record.
constexpr std::int32_t kSmallestUpdateId = -99999999;
constexpr std::int32_t kLargestUpdateId = 999999999;

/// Returns the defect of `text` as an update number, or an empty string. An update number has
/// decimal digits, after a "-" if it is negative, no leading zeros, and is in the range above.
std::string ProblemOfUpdateId(const std::string& text);

struct CheckOptions {
  std::string path;    ///< A bundle or its Resources directory.
  bool prove = false;  ///< Also extract the package, as the installer does, and compare.
  /// True: fill the report's details with an object for each entry and file. False: fill the
  /// report's listing with a line for each entry. Both together would need too much memory for a
  /// large package.
  bool asJson = false;
  Limits limits = {};
};

/// Reports the result of a run of the installer with a bundle, and the defects of the bundle. The
/// data of a package beyond the limits is not read: the report then has no entries, no tree and no
/// proof. Writes nothing without `prove`. With `prove`, makes a directory for temporary files, and
/// removes this directory again, also after SIGHUP, SIGINT and SIGTERM.
Report Check(const CheckOptions& options);

/// Reports the contents of the bundle or Resources directory at `path` as its two files state them:
/// update number, flags, files, bytes and SHA-256 of the package. Reads the data of the package for
/// the digest only, and checks nothing.
Report Info(const std::string& path);

/// Reports the changes of files when the bundle at `after` replaces the bundle at `before`. The
/// status is 1 if there are changes, or if a bundle has errors.
Report Diff(const std::string& before, const std::string& after, const Limits& limits);

/// Reports the decision and the changes of Install(): files, leftovers, record, bytes. The status
/// is 1 if Install() would refuse. Requires: `options` has a bundle.
Report Plan(const HostOptions& options);

/// Runs the installer of a bundle on this host, and verifies the result. Requires: `options` has a
/// bundle, and `hostRoot` is empty.
///
/// 1. If the host has no lock file and the bundle must be refused, Install() makes nothing.
/// 2. Install() takes the lock; see InstallLock. The rest happens under the lock.
/// 3. If the receipt has the digest of the package and the installation is correct, Install()
///    changes nothing.
/// 4. The bundle is copied; see PrivateCopy. Only the copy is inspected. A bundle with errors, or
///    older than the installed update, is refused.
/// 5. Defects that the installer does not repair are repaired; see RepairWhatARunKeeps(). The
///    receipt gets the state "begun". The installer of the copy runs; see RunInstaller().
/// 6. Tree, record and modes are compared with the bundle, and the receipt is written.
///
/// The status is 0 if the bundle's update is installed correctly, 1 if the bundle was refused or
/// the installation is not correct. The next call repairs the results of a process that was killed
/// at any point.
Report Install(const HostOptions& options);

/// Removes everything that Install() and the installer make on a host: receipt, record, installed
/// tree, temporary files and lock, then the directories above if they are empty. Keys and files of
/// other programs stay. Where nothing is installed, nothing is made and the status is 0.
///
/// Removes first the receipt, then the record, then the files: a reader of the record never finds
/// an incomplete tree. If the process is killed, the next call removes the rest.
Report Uninstall(const HostOptions& options);

/// Reports the differences between the installation and a bundle or, without a bundle, the receipt.
/// Errors of the bundle are findings, too. Changes nothing. Throws Error also if the metadata would
/// abort a run.
Report Verify(const HostOptions& options);

/// Verify() for management systems. The status is 0 if an installation is needed, and 1 if the
/// bundle's update is installed correctly or a newer update is recorded. The status is 2 if the
/// bundle has errors or cannot be read, and 3 if the host cannot be read. Requires: `options` has a
/// bundle.
Report InstallCheck(const HostOptions& options);

/// Reports the installation in six lines: update and version, directory, content, time, receipt,
/// and the first defect. The status is 0 if there is no defect.
Report Status(const HostOptions& options);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_COMMANDS_COMMANDS_H_
