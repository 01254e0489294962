#ifndef TOOLS_WEBRESOURCES_MACHINE_INSTALLPLAN_H_
#define TOOLS_WEBRESOURCES_MACHINE_INSTALLPLAN_H_

#include <optional>
#include <string>

#include "bundle/BundleFiles.h"
#include "bundle/Metadata.h"
#include "machine/Installation.h"
#include "machine/Receipt.h"
#include "prediction/FileTree.h"
#include "prediction/PackageFindings.h"
#include "report/Finding.h"
#include "report/Report.h"

namespace webresources {

/// What a run of a bundle should leave on any machine.
struct ExpectedBundle {
  BundleFiles files;
  Metadata metadata;
  FileTree tree;              ///< The installed directory.
  bool isRead = true;         ///< False if the package can hold too much: there is no tree then.
  std::string packageSha256;  ///< In hexadecimal; empty if there is no package.
  Findings errors;            ///< What makes the bundle's result wrong: its warnings are left out.

  /// The update number. Requires: a run completes, which `errors` tells.
  int UpdateId() const { return *metadata.updateId; }
};

/// Reads the bundle at `path`. A receipt that this version of the command wrote for the same
/// package proves that the package is free of errors and tells its tree: then the package is read
/// once, and not inflated. One that exceeds `limits` is not read at all. Throws
/// Error if something cannot be read.
ExpectedBundle ReadBundle(const std::string& path, const std::optional<Receipt>& receipt,
                          const Limits& limits);

/// What is installed on a host, as one bundle sees it.
struct MachineState {
  Installation installation;
  bool hasReceipt = false;
  Findings findings;         ///< What a run of the bundle would change.
  Findings receiptFindings;  ///< What is wrong with the receipt alone.
  Findings hostFindings;     ///< Of FindInHostAccess(): no run changes them.
};

/// Compares the host whose file system lies at `hostRoot` with `bundle`. Throws Error if something
/// cannot be read.
MachineState CompareWithBundle(const std::string& hostRoot, const ExpectedBundle& bundle,
                               bool ignoresModes);

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

/// What `install` will do on one machine.
struct InstallPlan {
  enum class Outcome {
    UpToDate,  ///< Nothing: the bundle is installed as it should be.
    Refuse,    ///< Nothing: `findings` say why.
    Install,   ///< Run the step.
  };
  Outcome outcome = Outcome::Refuse;
  Findings findings;
  Installation installation;      ///< As it is now.
  Findings hostFindings;          ///< As in MachineState: no reason to refuse or to run.
  bool needsReceipt = false;      ///< The receipt is missing, or not of what is installed.
  std::string freshDirectory;     ///< The bare name of the directory that is filled.
  std::uint64_t bytesNeeded = 0;  ///< Beside what is installed.
  std::uint64_t bytesFree = 0;
};

/// Reads the bundle of `options`, as ReadBundle() does.
ExpectedBundle ReadBundle(const PlanOptions& options);

/// Decides what to do with `bundle`. Changes nothing. Throws Error if something cannot be read.
InstallPlan MakePlan(const PlanOptions& options, const ExpectedBundle& bundle);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_MACHINE_INSTALLPLAN_H_
