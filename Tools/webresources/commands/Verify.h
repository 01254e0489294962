#ifndef TOOLS_WEBRESOURCES_COMMANDS_VERIFY_H_
#define TOOLS_WEBRESOURCES_COMMANDS_VERIFY_H_

#include <optional>
#include <string>

#include "prediction/PackageFindings.h"
#include "report/Report.h"

namespace webresources {

struct VerifyOptions {
  std::optional<std::string> bundle;  ///< None: compare with the receipt, or with the record alone.
  std::string hostRoot;               ///< Of the installed system's files; empty for this one's.
  bool ignoresModes = false;          ///< Do not compare modes and owners.
  Limits limits = {};                 ///< Of the bundle.
};

/// How the installation differs from what a bundle installs or, without one, from the receipt. What
/// is wrong with the bundle's package counts, too. Nothing is changed. Throws Error when that
/// cannot be told.
Report Verify(const VerifyOptions& options);

/// Verify() for management systems. The status is 0 if `install` would change the installation, 1
/// if the bundle's update or a newer one is installed, 2 if the bundle has errors: `install` would
/// refuse it. What cannot be told counts as to be installed; nothing is thrown for it.
Report InstallCheck(const VerifyOptions& options);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_COMMANDS_VERIFY_H_
