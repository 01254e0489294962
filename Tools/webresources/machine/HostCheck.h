#ifndef TOOLS_WEBRESOURCES_MACHINE_HOSTCHECK_H_
#define TOOLS_WEBRESOURCES_MACHINE_HOSTCHECK_H_

#include <optional>
#include <string>
#include <vector>

#include "machine/Installation.h"
#include "machine/Receipt.h"
#include "prediction/FileTree.h"
#include "report/Finding.h"

namespace webresources {

/// What is wrong on a machine that a run leaves as it finds it, and how `install` repairs it.

/// Repairs the defects that the installer keeps: removes an unusable random identifier, so that the
/// run draws a new one, and calls RepairAccess() unless `ignoresModes`. Requires: the caller holds
/// the lock. Throws Error if a repair fails.
void RepairWhatARunKeeps(const Installation& installation, bool ignoresModes);

/// What should be installed. What is not stated is not compared.
struct Expectation {
  const FileTree* tree = nullptr;  ///< The installed directory; null if nobody knows.
  std::optional<int> updateId;     ///< None: the record has to agree with itself only.
  bool ignoresModes = false;       ///< Modes and owners are not compared.
};

/// All that is not as it should be on a host and that an installation repairs: the installed tree,
/// what lies beside it, the access to the product's places, and the record. Reads each installed
/// file once if a tree is expected. Throws Error if something cannot be read.
Findings FindInInstallation(const Installation& installation, const Expectation& expected);

/// What can be said of an installation without a bundle.
struct SelfCheck {
  Installation installation;       ///< As it is recorded, whatever the findings say of it.
  std::optional<Receipt> receipt;  ///< None if there is none that is of the recorded update.
  Findings findings;  ///< Of tree, access and record, then of the receipt and the host.
};

/// Compares the installation of the host whose file system lies at `hostRoot` with its receipt; if
/// there is none, the record with itself only. Throws Error if something cannot be read.
SelfCheck CheckInstallation(const std::string& hostRoot, bool ignoresModes);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_MACHINE_HOSTCHECK_H_
