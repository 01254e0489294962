#ifndef TOOLS_WEBRESOURCES_MACHINE_ADVICE_H_
#define TOOLS_WEBRESOURCES_MACHINE_ADVICE_H_

#include <string>

#include "report/Report.h"

namespace webresources {

/// An installation that repairs a host.
struct Repair {
  std::string bundle;    ///< Empty if the reader has to choose the bundle.
  std::string hostRoot;  ///< Where the host's file system is mounted; empty for this host.
  bool isDowngrade = false;
  bool ignoresModes = false;
};

/// Returns the command line that makes `repair`, for a shell in any directory: with sudo for an
/// ordinary user, and in a chroot for another host. A bundle outside the root is copied into it.
std::string CommandLineOf(const Repair& repair);

/// Sets the advice of `report` to that command line if an installation repairs one of its findings.
void Advise(const Repair& repair, Report& report);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_MACHINE_ADVICE_H_
