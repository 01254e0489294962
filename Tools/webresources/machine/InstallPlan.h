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
#include "report/Report.h"
#include "support/Files.h"

namespace webresources {

/// What a run of a bundle should leave on any machine.
struct ExpectedBundle {
  BundleFiles files;
  Metadata metadata;
  FileTree tree;       ///< The installed directory.
  bool isRead = true;  ///< False if the package can hold too much: there is no tree then.
  std::optional<std::string> packageSha256;  ///< In hexadecimal; nothing without a package.
  Findings errors;                           ///< Defects of the bundle; warnings are left out.
  std::uint64_t bytesToCopy = 0;  ///< Of the private copy that `install` makes of the bundle.

  /// The update number. Requires: a run completes, which `errors` tells.
  int UpdateId() const { return *metadata.updateId; }
};

/// Returns the SHA-256 of the package at `path`, in hexadecimal; nothing if there is no package.
/// Throws Error if the package cannot be read.
std::optional<std::string> DigestOfPackage(const std::string& path);

/// Reads the bundle at `path`. A receipt of the same package that belongs to the owner of the host,
/// and whose paths and sizes are those of the package's directory, proves that the package is free
/// of errors and tells its tree: then the package is not inflated. A package that can hold more
/// than the limits allow is not read at all. Throws Error if something cannot be read.
ExpectedBundle ReadBundle(const std::string& path, const std::optional<Receipt>& receipt,
                          const Limits& limits);

/// Adds the findings of a comparison of the host with `bundle`. Throws Error if something cannot be
/// read.
void CompareWithBundle(HostState& host, const ExpectedBundle& bundle, bool ignoresModes);

/// Whether the recorded update is a newer one than that of `bundle`.
bool IsNewerInstalled(const Installation& installation, const ExpectedBundle& bundle);

/// What to install, and what to accept.
struct PlanOptions {
  std::string bundle;
  std::string hostRoot;          ///< Of the installed system's files; empty for this one's.
  bool isForced = false;         ///< Run the step even if nothing would change.
  bool allowsDowngrade = false;  ///< Run it even if a newer update is installed.
  bool ignoresModes = false;     ///< Do not compare modes and owners.
  Limits limits = {};
};

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
Findings FindBeforeCopy(const PlanOptions& options, const Installation& installation);

/// Decides what to do with `bundle` on `host`. The installed files are not read if another update
/// is recorded than that of `bundle`. Changes nothing. Throws Error if something cannot be read.
InstallPlan MakePlan(const PlanOptions& options, const ExpectedBundle& bundle, HostState host);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_MACHINE_INSTALLPLAN_H_
