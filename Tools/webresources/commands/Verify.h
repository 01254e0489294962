#ifndef TOOLS_WEBRESOURCES_COMMANDS_VERIFY_H_
#define TOOLS_WEBRESOURCES_COMMANDS_VERIFY_H_

#include <optional>
#include <string>

#include "Report.h"

struct VerifyOptions {
  std::optional<std::string> bundle;  ///< None: is the installation consistent with itself?
  std::string root;                   ///< Of the installed system's files; empty for this one's.
};

/// How the installation differs from what a bundle installs. Nothing is changed. Throws Error when
/// that cannot be told.
Report Verify(const VerifyOptions& options);

/// Verify() for management systems: the status is 0 when the bundle is to be installed, 1 when it
/// is not. What cannot be told counts as to be installed; nothing is thrown for it.
Report InstallCheck(const VerifyOptions& options);

#endif  // TOOLS_WEBRESOURCES_COMMANDS_VERIFY_H_
