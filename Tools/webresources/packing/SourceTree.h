#ifndef TOOLS_WEBRESOURCES_PACKING_SOURCETREE_H_
#define TOOLS_WEBRESOURCES_PACKING_SOURCETREE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "report/Finding.h"

namespace webresources {

/// The selection of the files of a directory for a package. A glob is compared with the path of a
/// file or directory. A glob without "/" is also compared with the name. "*" also matches "/".
struct Selection {
  std::vector<std::string> kept;      ///< Globs of junk that is packed.
  std::vector<std::string> excluded;  ///< Globs of entries that are not packed.
  std::vector<std::string> required;  ///< Paths of files that must be packed.
  bool followLinks = false;           ///< True: pack the targets of links. False: refuse links.
};

/// The contents of a directory that is to be packed.
struct SourceTree {
  struct Item {
    std::string name;  ///< The name in the package. A directory has a "/" at the end.
    std::string path;  ///< The path on the disk.
    bool isDirectory;
    std::uint64_t size;  ///< The size of a file in bytes.
  };
  struct LeftOut {
    std::string name;
    std::string reason;
  };

  std::vector<Item> items;       ///< Sorted by the bytes of the names.
  std::vector<LeftOut> leftOut;  ///< Excluded files, and junk.
  std::uint64_t bytes = 0;       ///< The size of all files together.
  Findings refused;              ///< The reasons why no correct installation is possible.
};

/// Lists the directory at `path` with all entries below. Reads no file. Throws Error if a directory
/// cannot be read.
SourceTree CollectSource(const std::string& path, const Selection& selection);

// Rules about names, for a directory to pack and for a package.

/// Returns the reason why no product needs `path`: the file or a directory above belongs to macOS,
/// Windows or a version-control system, or is the backup of an editor. Returns nothing for any
/// other path. Only names count. A directory's path may end in "/".
std::optional<std::string> JunkReason(const std::string& path);

/// Adds a finding for each pair of `paths` that some volumes cannot distinguish, because the two
/// paths differ only in case or in Unicode normalization; see Collisions(). Requires: no path ends
/// in "/".
void AddCollisions(Findings& findings, const std::vector<std::string>& paths);

/// Returns the unusual part of the entry name `name`: a leading "/", a backslash, an empty, "." or
/// ".." component, or a control character. Returns nothing if there is no such part. Requires:
/// `name` is not empty.
std::optional<std::string> UncleanPart(const std::string& name);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_PACKING_SOURCETREE_H_
