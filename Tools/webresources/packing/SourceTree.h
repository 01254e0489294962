#ifndef TOOLS_WEBRESOURCES_PACKING_SOURCETREE_H_
#define TOOLS_WEBRESOURCES_PACKING_SOURCETREE_H_

#include <set>
#include <string>
#include <vector>

#include "Finding.h"
#include "Names.h"

/// What of a directory goes into a package.
struct Selection {
  std::set<names::Junk> kept;         ///< Junk that goes in nevertheless.
  std::vector<std::string> excluded;  ///< Globs: against the path, and the name where there is no
                                      ///< "/" in them; "*" also stands for "/".
  bool followLinks = false;
};

struct SourceTree {
  struct Item {
    std::string name;  ///< In the package: a directory's ends in "/".
    std::string path;
    bool isDirectory;
  };
  struct LeftOut {
    std::string name;
    std::string reason;
  };

  std::vector<Item> items;  ///< In the order of the bytes of their names.
  std::vector<LeftOut> leftOut;
  Findings refused;  ///< What the installer would not install as it is.
};

/// Looks through the directory at `path`. Throws Error when it, or a directory in it, cannot be
/// read.
SourceTree CollectSource(const std::string& path, const Selection& selection);

#endif  // TOOLS_WEBRESOURCES_PACKING_SOURCETREE_H_
