#ifndef TOOLS_WEBRESOURCES_MACHINE_SELFCHECK_H_
#define TOOLS_WEBRESOURCES_MACHINE_SELFCHECK_H_

#include <optional>
#include <string>

#include "Finding.h"
#include "Installation.h"
#include "Receipt.h"

/// What can be said of an installation without a bundle.
struct SelfCheck {
  Installation installation;
  std::optional<Receipt> receipt;  ///< None if there is none that is of the recorded update.
  Findings findings;
};

/// Compares the installation of the host whose file system lies at `prefix` with its receipt; if
/// there is none, the record with itself only. Throws Error if something cannot be read.
SelfCheck CheckInstallation(const std::string& prefix, bool ignoresModes);

#endif  // TOOLS_WEBRESOURCES_MACHINE_SELFCHECK_H_
