#ifndef TOOLS_WEBRESOURCES_COMMANDS_INSTALL_H_
#define TOOLS_WEBRESOURCES_COMMANDS_INSTALL_H_

#include <chrono>

#include "machine/InstallPlan.h"
#include "report/Report.h"

namespace webresources {

struct InstallOptions : PlanOptions {
  std::chrono::seconds wait{0};  ///< How long to wait for another installation.
};

/// Runs the installer step of a bundle on this host, and tells the truth about it. Requires: the
/// root is empty.
///
/// 1. A bundle with errors is refused. Nothing is touched.
/// 2. One installation at a time: see InstallLock.
/// 3. A bundle whose update is installed as it should be is left alone; only a missing receipt is
///    written. A bundle older than the installed update is refused.
/// 4. The step runs in surroundings that are always the same: see RunStep(). What it would leave
///    wrong is repaired before: see RepairWhatARunKeeps().
/// 5. Tree, record and modes are compared with the bundle, and the receipt is written.
///
/// The status is 0 if the bundle's update is installed as it should be, 1 if it was refused or is
/// not. A process that is killed at any point leaves nothing that the next call does not put right.
/// Throws Error if something cannot be read or written.
Report Install(const InstallOptions& options);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_COMMANDS_INSTALL_H_
