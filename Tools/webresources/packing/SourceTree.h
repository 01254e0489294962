#ifndef TOOLS_WEBRESOURCES_PACKING_SOURCETREE_H_
#define TOOLS_WEBRESOURCES_PACKING_SOURCETREE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "report/Finding.h"

namespace webresources {

/// The selection of the files of a directory for a package. A glob without "/" is compared with
/// the name of a file or directory, every other glob with the path. "*" also matches "/".
struct Selection {
  std::vector<std::string> kept;      ///< Globs: packed although they are junk.
  std::vector<std::string> excluded;  ///< Globs: not packed.
  std::vector<std::string> required;  ///< Paths of files that must be packed.
  bool followLinks = false;           ///< Pack the targets of symbolic links, or refuse links.
};

/// The contents of a directory that is to be packed.
struct SourceTree {
  struct Item {
    std::string name;  ///< In the package: a directory's ends in "/".
    std::string path;  ///< On the disk.
    bool isDirectory;
    std::uint64_t size;  ///< Of a file, in bytes.
  };
  struct LeftOut {
    std::string name;
    std::string reason;
  };

  std::vector<Item> items;       ///< In the order of the bytes of their names.
  std::vector<LeftOut> leftOut;  ///< Excluded files, and junk.
  std::uint64_t bytes = 0;       ///< Of all files together.
  Findings refused;              ///< The reasons why no correct installation is possible.
};

/// Lists the directory at `path` with all entries below. Reads no file. Throws Error if a directory
/// cannot be read.
SourceTree CollectSource(const std::string& path, const Selection& selection);

/// Returns the reason why no product needs `path`: the file or a directory above belongs to macOS,
/// Windows or a version-control system, or is the backup of an editor. Returns nothing for any
/// other path. Only names count. A directory's path may end in "/".
std::optional<std::string> JunkReason(const std::string& path);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_PACKING_SOURCETREE_H_
