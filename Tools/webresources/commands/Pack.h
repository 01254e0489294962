#ifndef TOOLS_WEBRESOURCES_COMMANDS_PACK_H_
#define TOOLS_WEBRESOURCES_COMMANDS_PACK_H_

#include <cstdint>
#include <string>

#include "Report.h"
#include "SourceTree.h"

struct PackOptions {
  std::string directory;
  std::string output;  ///< A bundle or its Resources directory.
  std::int32_t updateId = 0;
  bool clear = false;
  bool regenerate = false;
  bool isQuiet = false;
  Selection selection;
};

/// Packs a directory and writes package and metadata, both or neither. What the installer would not
/// install as it is makes findings, and nothing is written. Throws Error when it cannot be done.
Report Pack(const PackOptions& options);

#endif  // TOOLS_WEBRESOURCES_COMMANDS_PACK_H_
