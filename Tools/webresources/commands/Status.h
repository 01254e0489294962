#ifndef TOOLS_WEBRESOURCES_COMMANDS_STATUS_H_
#define TOOLS_WEBRESOURCES_COMMANDS_STATUS_H_

#include <string>

#include "report/Report.h"

namespace webresources {

struct StatusOptions {
  std::string hostRoot;       ///< Of the installed system's files; empty for this one's.
  bool ignoresModes = false;  ///< Do not compare modes and owners.
};

/// What is installed, in five lines: update and version, directory, content, since when, and
/// whether it is sound. The status is 0 if it is. Throws Error if that cannot be told.
Report Status(const StatusOptions& options);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_COMMANDS_STATUS_H_
