#ifndef TOOLS_WEBRESOURCES_COMMANDS_CHECK_H_
#define TOOLS_WEBRESOURCES_COMMANDS_CHECK_H_

#include <string>

#include "Report.h"

struct CheckOptions {
  std::string path;      ///< A bundle or its Resources directory.
  bool prove = false;    ///< Also extract the package, as the installer does, and compare.
  bool isQuiet = false;  ///< Leave out the list of entries.
};

/// What a run of the installer will do with a bundle, and what is wrong with it. Throws Error when
/// that cannot be told.
Report Check(const CheckOptions& options);

#endif  // TOOLS_WEBRESOURCES_COMMANDS_CHECK_H_
