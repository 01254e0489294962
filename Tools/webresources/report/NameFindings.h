#ifndef TOOLS_WEBRESOURCES_REPORT_NAMEFINDINGS_H_
#define TOOLS_WEBRESOURCES_REPORT_NAMEFINDINGS_H_

#include <string>
#include <vector>

#include "Finding.h"

/// Findings about names that hold for a package and for a directory to be packed alike.

/// Adds a finding for each pair of `paths` that some volumes cannot tell apart, because the two
/// differ only in case or in Unicode normalization; see names::Collisions(). Requires: no path ends
/// in "/".
void AddCollisions(Findings& findings, const std::vector<std::string>& paths);

/// What is unusual in the entry name `name`: a leading "/", a backslash, an empty, "." or ".."
/// component, or a control character. Returns an empty string if nothing is. Requires: `name` is
/// not empty.
std::string UncleanPart(const std::string& name);

/// Says whose file or folder `path` is, or is in, if no product needs it: macOS's, Windows's, that
/// of a version-control system, or an editor's backup. Returns an empty string for any other path.
/// Only names count. A directory's path may end in "/".
std::string JunkReason(const std::string& path);

#endif  // TOOLS_WEBRESOURCES_REPORT_NAMEFINDINGS_H_
