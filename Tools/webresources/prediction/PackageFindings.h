#ifndef TOOLS_WEBRESOURCES_PREDICTION_PACKAGEFINDINGS_H_
#define TOOLS_WEBRESOURCES_PREDICTION_PACKAGEFINDINGS_H_

#include <cstdint>
#include <optional>
#include <string>

#include "prediction/Prediction.h"
#include "report/Finding.h"

namespace webresources {

/// How much work a package can cause, found from its directory before any data is read. A small
/// package can claim, and with entries that share their data even hold, so much that reading it
/// takes hours and fills every disk.

/// How much of a package is read, if somebody else has made it.
struct Limits {
  /// The largest content, in bytes. `pack` makes no package that exceeds the default.
  std::uint64_t maxSize = std::uint64_t{4} << 30U;
  /// The largest number of directories. One entry can ask for 255 of them, and each costs memory
  /// and time.
  std::uint64_t maxDirectories = 1000000;
};

/// The work that a package can cause at most, by its directory.
struct PackageExtent {
  std::uint64_t bytes = 0;  ///< That the installer reads or writes for all entries together.
  /// Directories that the entries ask for, each counted once. A name with "." or ".." components
  /// can count more.
  std::uint64_t directories = 0;
};

/// Returns the extent of the package at `path`, of nothing if the package is missing or cannot be
/// opened. Reads the directory of the package, no data.
PackageExtent ExtentOf(const std::string& path);

/// Returns why the package at `path` must not be read: its `extent` exceeds `limits`. Says also
/// whether its entries share data and whether their number is wrong. Returns no findings if the
/// package is within bounds. Call it before Predict() for any package that somebody else has made.
/// Throws Error if the package cannot be read.
Findings FindOutOfBounds(const std::string& path, const PackageExtent& extent,
                         const Limits& limits);

/// Returns what is wrong with the package at `path`: in its frame, then entry by entry, then in
/// entries together. `prediction` is what the installer will leave of it. That there is no package
/// is a finding. Reads the directory of the package, and no data. Throws Error if it cannot be
/// read.
Findings FindInPackage(const std::string& path, const Prediction& prediction);

/// Returns why the installer skips `entry`, or installs something else than its data, for people.
/// Returns nothing if it installs the entry as it is.
std::optional<std::string> Problem(const EntryPrediction& entry);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_PREDICTION_PACKAGEFINDINGS_H_
