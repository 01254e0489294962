#ifndef TOOLS_WEBRESOURCES_COMMANDS_CHECK_H_
#define TOOLS_WEBRESOURCES_COMMANDS_CHECK_H_

#include <string>

#include "prediction/PackageFindings.h"
#include "report/Report.h"

namespace webresources {

struct CheckOptions {
  std::string path;    ///< A bundle or its Resources directory.
  bool prove = false;  ///< Also extract the package, as the installer does, and compare.
  /// Fill the report's details with one object for each entry and file, instead of its listing with
  /// a line for each entry: a large package should not cost the memory of both.
  bool asJson = false;
  Limits limits = {};
};

/// Reports what a run of the installer will do with a bundle, and what is wrong with it. The data
/// of a package whose content can exceed the limit is not read: then the report has neither entries
/// nor tree nor proof. Writes nothing except, for a proof, below the directory for temporary files,
/// from which everything is removed again, also after SIGHUP, SIGINT and SIGTERM. Throws Error if
/// the bundle cannot be read, or the proof cannot be made.
Report Check(const CheckOptions& options);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_COMMANDS_CHECK_H_
