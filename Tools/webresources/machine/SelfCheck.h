#ifndef TOOLS_WEBRESOURCES_MACHINE_SELFCHECK_H_
#define TOOLS_WEBRESOURCES_MACHINE_SELFCHECK_H_

#include <optional>
#include <string>

#include "Finding.h"
#include "Installation.h"
#include "Receipt.h"

/// What can be said of an installation without a bundle.
struct SelfCheck {
  Installation installation;       ///< As it is recorded, whatever the findings say of it.
  std::optional<Receipt> receipt;  ///< None if there is none that is of the recorded update.
  Findings findings;               ///< Of tree, record, modes and owners, then of the receipt.
};

/// Compares the installation of the host whose file system lies at `prefix` with its receipt; if
/// there is none, the record with itself only. Throws Error if something cannot be read.
SelfCheck CheckInstallation(const std::string& prefix, bool ignoresModes);

#endif  // TOOLS_WEBRESOURCES_MACHINE_SELFCHECK_H_
