#ifndef TOOLS_WEBRESOURCES_COMMANDS_INFO_H_
#define TOOLS_WEBRESOURCES_COMMANDS_INFO_H_

#include <string>

#include "report/Report.h"

namespace webresources {

struct InfoOptions {
  std::string path;  ///< A bundle or its Resources directory.
};

/// Reports the contents of a bundle as its two files state them: update number, flags, files, bytes
/// and SHA-256 of the package. Reads no data of the package but for the digest, and checks nothing:
/// see Check(). Throws Error if a file is missing or cannot be read.
Report Info(const InfoOptions& options);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_COMMANDS_INFO_H_
