#ifndef TOOLS_WEBRESOURCES_COMMANDS_DIFF_H_
#define TOOLS_WEBRESOURCES_COMMANDS_DIFF_H_

#include <string>

#include "prediction/PackageFindings.h"
#include "report/Report.h"

namespace webresources {

struct DiffOptions {
  std::string before;  ///< A bundle or its Resources directory.
  std::string after;   ///< The bundle that replaces it.
  Limits limits = {};
};

/// What changes from one bundle to another: the files that a run leaves of each. The status is 1 if
/// there are changes, or if a bundle has errors. Throws Error if a bundle cannot be read.
Report Diff(const DiffOptions& options);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_COMMANDS_DIFF_H_
