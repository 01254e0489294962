#ifndef TOOLS_WEBRESOURCES_COMMANDS_INSTALL_H_
#define TOOLS_WEBRESOURCES_COMMANDS_INSTALL_H_

#include <chrono>

#include "machine/InstallPlan.h"
#include "report/Report.h"

namespace webresources {

struct InstallOptions : PlanOptions {
  std::chrono::seconds wait{0};  ///< How long to wait for another installation.
};

/// Runs the installer of a bundle on this host, and verifies the result. Requires: `hostRoot` is
/// empty.
///
/// 1. Without a lock file on the host, a bundle that would be refused is refused: nothing is made.
/// 2. The lock is taken; see InstallLock. The rest happens under the lock.
/// 3. If the receipt has the digest of the package and the installation is correct, nothing is
///    touched.
/// 4. The bundle is copied; see PrivateCopy. Only the copy is inspected. A bundle with errors, or
///    older than the installed update, is refused.
/// 5. Defects that a run keeps are repaired; see RepairWhatARunKeeps(). The receipt says that an
///    installation has begun. The installer of the copy runs; see RunInstaller().
/// 6. Tree, record and modes are compared with the bundle, and the receipt is written.
///
/// The status is 0 if the bundle's update is installed as it should be, 1 if it was refused or is
/// not. A process that is killed at any point leaves nothing that the next call does not put right.
/// Throws Error if something cannot be read or written.
Report Install(const InstallOptions& options);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_COMMANDS_INSTALL_H_
