#ifndef TOOLS_WEBRESOURCES_REPORT_NAMEFINDINGS_H_
#define TOOLS_WEBRESOURCES_REPORT_NAMEFINDINGS_H_

#include <optional>
#include <string>
#include <vector>

#include "report/Finding.h"

namespace webresources {

/// Findings about names, for a package and for a directory to pack.

/// Adds a finding for each pair of `paths` that some volumes cannot distinguish, because the two
/// paths differ only in case or in Unicode normalization; see Collisions(). Requires: no path ends
/// in "/".
void AddCollisions(Findings& findings, const std::vector<std::string>& paths);

/// Returns the unusual part of the entry name `name`: a leading "/", a backslash, an empty, "." or
/// ".." component, or a control character. Returns nothing if there is no such part. Requires:
/// `name` is not empty.
std::optional<std::string> UncleanPart(const std::string& name);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_REPORT_NAMEFINDINGS_H_
