#ifndef TOOLS_WEBRESOURCES_MACHINE_MACHINESTATE_H_
#define TOOLS_WEBRESOURCES_MACHINE_MACHINESTATE_H_

#include <string>

#include "ExpectedBundle.h"
#include "Installation.h"
#include "Report.h"

/// What is installed on a host, as one bundle sees it.
struct MachineState {
  Installation installation;
  bool hasReceipt = false;
  Findings findings;         ///< What a run of the bundle would change.
  Findings receiptFindings;  ///< What is wrong with the receipt alone.
};

/// Compares the host whose file system lies at `prefix` with `bundle`. Throws Error if something
/// cannot be read.
MachineState CompareWithBundle(const std::string& prefix, const ExpectedBundle& bundle,
                               bool ignoresModes);

/// Whether the recorded update is a newer one than that of `bundle`.
bool IsNewerInstalled(const Installation& installation, const ExpectedBundle& bundle);

#endif  // TOOLS_WEBRESOURCES_MACHINE_MACHINESTATE_H_
