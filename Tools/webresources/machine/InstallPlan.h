#ifndef TOOLS_WEBRESOURCES_MACHINE_INSTALLPLAN_H_
#define TOOLS_WEBRESOURCES_MACHINE_INSTALLPLAN_H_

#include <optional>
#include <string>

#include "bundle/BundleFiles.h"
#include "bundle/Metadata.h"
#include "machine/HostCheck.h"
#include "machine/Installation.h"
#include "machine/Receipt.h"
#include "prediction/FileTree.h"
#include "prediction/PackageFindings.h"
#include "report/Finding.h"
#include "support/Files.h"

namespace webresources {

/// The installation that a run of a bundle makes on any host.
struct ExpectedBundle {
  BundleFiles files;
  Metadata metadata;
  FileTree tree;       ///< The installed directory.
  bool isRead = true;  ///< False if the package is beyond the limits: there is no tree then.
  std::optional<std::string> packageSha256;  ///< In hexadecimal; nothing without a package.
  Findings errors;                           ///< Defects of the bundle; warnings are left out.
  std::uint64_t bytesToCopy = 0;  ///< Of the private copy that `install` makes of the bundle.

  /// Returns the update number. Requires: `errors` is empty.
  int UpdateId() const { return *metadata.updateId; }
};

/// Returns the SHA-256 of the package at `path`, in hexadecimal; nothing if there is no package.
/// Throws Error if the package cannot be read.
std::optional<std::string> DigestOfPackage(const std::string& path);

/// Reads the bundle at `path`. A package beyond the limits is not read at all. The tree comes from
/// the receipt, and the package is not inflated, if the receipt belongs to the owner of the host
/// and has the digest, the paths and the sizes of the package. Throws Error if a file cannot be
/// read.
ExpectedBundle ReadBundle(const std::string& path, const std::optional<Receipt>& receipt,
                          const Limits& limits);

/// Adds the findings of a comparison of the host with `bundle`. Throws Error if a file cannot be
/// read.
void CompareWithBundle(HostState& host, const ExpectedBundle& bundle, bool ignoresModes);

/// Returns whether the recorded update is newer than the update of `bundle`.
bool IsNewerInstalled(const Installation& installation, const ExpectedBundle& bundle);

/// The decision of `install` on one host.
struct InstallPlan {
  enum class Outcome {
    UpToDate,  ///< Do nothing: the bundle is installed correctly.
    Refuse,    ///< Do nothing: `findings` say why.
    Install,   ///< Run the installer.
  };
  Outcome outcome = Outcome::Refuse;
  Findings findings;
  HostState host;                 ///< Before the installation.
  bool needsReceipt = false;      ///< The receipt is missing or does not describe the host.
  std::string freshDirectory;     ///< The bare name of the directory that is filled.
  std::uint64_t bytesNeeded = 0;  ///< Beside the installed content.
  FreeSpace free = {};            ///< Where the install root is or will be.
};

/// Returns why the bundle of `options` must not be copied and run on that host: this system cannot
/// start its installer, or there is no room for the copy and the content. Reads the directory of
/// the package, and no data. Throws Error if something cannot be read.
Findings FindBeforeCopy(const HostOptions& options, const Installation& installation);

/// Decides what to do with `bundle` on `host`. The installed files are not read if another update
/// is recorded than that of `bundle`. Changes nothing. Throws Error if something cannot be read.
InstallPlan MakePlan(const HostOptions& options, const ExpectedBundle& bundle, HostState host);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_MACHINE_INSTALLPLAN_H_
