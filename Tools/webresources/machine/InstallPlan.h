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

/// The expected result of a run of a bundle on any host, and the defects of the bundle.
struct ExpectedBundle {
  BundleFiles files;
  Metadata metadata;
  FileTree tree;       ///< The installed directory.
  bool isRead = true;  ///< False if the package is beyond the limits: there is no tree then.
  std::optional<std::string> packageSha256;  ///< In hexadecimal; nothing without a package.
  Findings errors;                           ///< Defects of the bundle; warnings are left out.
  std::uint64_t bytesToCopy = 0;             ///< The size of the private copy.

  /// Returns the update number. Requires: `metadata.updateId` has a value, for example because
  /// `errors` is empty.
  int UpdateId() const { return *metadata.updateId; }
};

/// Reads the bundle at `path`. A package beyond the limits is not read at all. The package is not
/// inflated if `receipt` belongs to the owner of the host and has the digest, the paths and the
/// sizes of the package. The tree then comes from the receipt. Throws Error if a file cannot be
/// read.
ExpectedBundle ReadBundle(const std::string& path, const std::optional<Receipt>& receipt,
                          const Limits& limits);

/// Adds the findings of a comparison of the host with `bundle`. Throws Error if a file cannot be
/// read. Requires: `bundle.metadata.updateId` has a value.
void CompareWithBundle(HostState& host, const ExpectedBundle& bundle, bool ignoresModes);

/// Returns whether the recorded update is newer than the update of `bundle`. Returns false if no
/// update is recorded. Requires: `bundle.metadata.updateId` has a value.
bool IsNewerInstalled(const Installation& installation, const ExpectedBundle& bundle);

/// The decision of `install` on one host.
struct InstallPlan {
  enum class Outcome {
    UpToDate,  ///< Do nothing: the bundle is installed correctly.
    Refuse,    ///< Do nothing: `findings` has the reasons.
    Install,   ///< Run the installer.
  };
  Outcome outcome = Outcome::Refuse;
  Findings findings;
  HostState host;                 ///< The state before the installation.
  bool needsReceipt = false;      ///< The receipt is missing or does not describe the host.
  std::string freshDirectory;     ///< The bare name of the directory that is filled.
  std::uint64_t bytesNeeded = 0;  ///< In addition to the installed content.
  FreeSpace free = {};            ///< The free space of the install root's volume.
};

/// Returns the reasons against a copy of the bundle of `options`: the installer is unusable, this
/// system cannot start the installer, or the volume has too little space for the copy. Throws Error
/// if a file cannot be read. Requires: RequireBundle() accepts `options.bundle`.
Findings FindBeforeCopy(const HostOptions& options, const Installation& installation);

/// Decides whether to install `bundle` on `host`. Does not read the installed files if the recorded
/// update number differs from the number of `bundle`. Changes nothing. Throws Error if a file
/// cannot be read. Requires: `bundle.files.program` has a value, and `bundle.metadata.updateId` has
/// a value unless `bundle.errors` has findings.
InstallPlan MakePlan(const HostOptions& options, const ExpectedBundle& bundle, HostState host);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_MACHINE_INSTALLPLAN_H_
