#ifndef TOOLS_WEBRESOURCES_PACKING_SOURCETREE_H_
#define TOOLS_WEBRESOURCES_PACKING_SOURCETREE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "report/Finding.h"

namespace webresources {

/// What of a directory goes into a package. A glob without "/" is compared with the name of a file
/// or directory, any other with its path; "*" matches "/", too.
struct Selection {
  std::vector<std::string> kept;      ///< Globs: what is packed although it is junk.
  std::vector<std::string> excluded;  ///< Globs: what is not packed.
  std::vector<std::string> required;  ///< Paths of files that must be packed.
  bool followLinks = false;           ///< Pack what symbolic links point to, or refuse them.
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
  std::vector<LeftOut> leftOut;  ///< What was excluded, or is junk.
  std::uint64_t bytes = 0;       ///< Of all files together.
  Findings refused;              ///< Why the package would not be installed as it should be.
};

/// Lists the directory at `path` with everything in it. Reads no file. Throws Error if the
/// directory, or one in it, cannot be read.
SourceTree CollectSource(const std::string& path, const Selection& selection);

/// Says whose file or folder `path` is, or is in, if no product needs it: macOS's, Windows's, that
/// of a version-control system, or an editor's backup. Returns nothing for any other path. Only
/// names count. A directory's path may end in "/".
std::optional<std::string> JunkReason(const std::string& path);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_PACKING_SOURCETREE_H_
