#ifndef TOOLS_WEBRESOURCES_COMMANDS_PACK_H_
#define TOOLS_WEBRESOURCES_COMMANDS_PACK_H_

#include <cstdint>
#include <string>

#include "packing/SourceTree.h"
#include "report/Report.h"

namespace webresources {

struct PackOptions {
  std::string directory;        ///< What to pack.
  std::string output;           ///< A bundle, or its Resources directory.
  bool createsOutput = false;   ///< Accept any directory as `output`, and make it if it is missing.
  std::int32_t updateId = 0;    ///< The update number to record.
  bool clear = false;           ///< Let the run wipe foreign keys from the record first.
  bool regenerate = false;      ///< Let the run draw a new random identifier.
  bool allowsWarnings = false;  ///< Write both files after warnings; only errors refuse.
  Selection selection;          ///< What of the directory is packed.
};

/// Packs a directory and writes package and metadata, both or neither. Writes nothing if the report
/// has findings that refuse: the installer would not install the package as it should be. Throws
/// Error if something cannot be read or written, and after SIGHUP, SIGINT and SIGTERM; then, too,
/// nothing is left behind.
Report Pack(const PackOptions& options);

/// The update numbers that the full version holds whole: it has room for nine characters. -1 is
/// refused as well, by a finding: the installer reads it as "none is recorded".
constexpr std::int32_t kSmallestUpdateId = -99999999;
constexpr std::int32_t kLargestUpdateId = 999999999;

/// Returns what is wrong with `text` as an update number, or an empty string. An update number has
/// decimal digits, after a "-" if it is negative, no leading zeros, and is in the range above.
std::string ProblemOfUpdateId(const std::string& text);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_COMMANDS_PACK_H_
