#ifndef TOOLS_WEBRESOURCES_MACHINE_HOSTCHECK_H_
#define TOOLS_WEBRESOURCES_MACHINE_HOSTCHECK_H_

#include <optional>
#include <string>
#include <vector>

#include "machine/Installation.h"
#include "machine/Receipt.h"
#include "prediction/FileTree.h"
#include "report/Finding.h"
#include "report/Report.h"

namespace webresources {

/// Repairs the defects of a host that the installer does not repair. Removes an unusable random
/// identifier, so that the run draws a new identifier. Calls RepairAccess() unless `ignoresModes`.
/// Requires: the caller holds the lock. Throws Error if a repair fails.
void RepairWhatARunKeeps(const Installation& installation, bool ignoresModes);

/// The expected installation. An absent member is not compared.
struct Expectation {
  const FileTree* tree = nullptr;  ///< The installed directory; null if unknown.
  /// The metadata of the run; if null, the values of the record are compared with each other only.
  const Metadata* metadata = nullptr;
  bool ignoresModes = false;  ///< Modes and owners are not compared.
};

/// Returns the defects of a host that an installation repairs: of the installed tree, of other
/// entries under the install root, of the access to the product's places, and of the record. Reads
/// each installed file once if a tree is expected, and stores the installed tree through `tree`.
/// Throws Error if a file or the record cannot be read.
Findings FindInInstallation(const Installation& installation, const Expectation& expected,
                            std::optional<FileTree>* tree);

/// The installation of a host and the findings about it.
struct HostState {
  Installation installation;
  std::optional<Receipt> receipt;  ///< Absent if missing or damaged.
  bool isCompared = false;         ///< Whether the tree was compared with the receipt's tree.
  /// The installed tree as ReadTree() returns it; absent if it was not compared.
  std::optional<FileTree> tree;
  Findings findings;         ///< The defects of tree, record, modes and owners.
  Findings receiptFindings;  ///< The defects of the receipt.
  Findings hostFindings;     ///< The defects of the host's places.

  /// Returns all findings, in the order of the members.
  Findings AllFindings() const;
};

/// Reads the installation and the receipt of the host mounted at `hostRoot`, each once. The only
/// finding is a damaged receipt. Throws Error if a file or the record cannot be read.
HostState ReadHost(const std::string& hostRoot);

/// Adds the findings of a comparison of the host with its receipt; without a usable receipt, the
/// values of the record are compared with each other only. Throws Error if a file cannot be read.
void CompareWithReceipt(HostState& host, bool ignoresModes);

/// Sets the advice of `report` to a command line that installs with `options`. Does nothing unless
/// the fix of a finding in `report` contains the text "run webresources install". The command
/// line has absolute paths. For an ordinary user, the command line begins with sudo. For another
/// host, the command line uses chroot, and first copies a bundle from outside the root into the
/// root. The command line also removes a lock file that `install` would refuse. Without a bundle in
/// `options`, the reader replaces the word BUNDLE.
void Advise(const HostOptions& options, Report& report);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_MACHINE_HOSTCHECK_H_
