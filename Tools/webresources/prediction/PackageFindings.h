#ifndef TOOLS_WEBRESOURCES_PREDICTION_PACKAGEFINDINGS_H_
#define TOOLS_WEBRESOURCES_PREDICTION_PACKAGEFINDINGS_H_

#include <cstdint>
#include <optional>
#include <string>

#include "prediction/Prediction.h"
#include "report/Finding.h"

namespace webresources {

/// The bounds of a package, found from the central directory before any data is read. A small
/// package can be a zip bomb: an extraction takes hours and fills disks. Entries that share data
/// can also make a zip bomb.

/// The limits for a package of unknown origin.
struct Limits {
  /// The largest content, in bytes. `pack` makes no package that exceeds the default.
  std::uint64_t maxSize = std::uint64_t{4} << 30U;
  /// The largest number of directories. One entry can need 255 directories, and each directory
  /// costs memory and time.
  std::uint64_t maxDirectories = 1000000;
};

/// The largest work that a package can cause, computed from the central directory.
struct PackageExtent {
  std::uint64_t bytes = 0;    ///< The bytes that the installer reads or writes.
  std::uint64_t entries = 0;  ///< The entries that are there, not the number that is stated.
  /// The number of different directories in the names of the entries. A name with "." or ".."
  /// components can count some directories several times.
  std::uint64_t directories = 0;
};

/// Returns the extent of the package at `path`. A missing or unreadable package has the extent 0.
/// Reads the central directory, and no data.
PackageExtent ExtentOf(const std::string& path);

/// Returns the findings that forbid to read the package at `path`: the `extent` exceeds `limits`.
/// If the package exceeds `limits`, also returns the findings about shared data and about a wrong
/// number of entries. Returns no findings if the package is within the limits. Call this function
/// before Predict() for a package of unknown origin. Throws Error if the package cannot be read.
Findings FindOutOfBounds(const std::string& path, const PackageExtent& extent,
                         const Limits& limits);

/// Returns the defects of the package at `path`: of the archive as a whole, of each entry, and of
/// several entries together. `prediction` is the result of a run. A missing package is a finding.
/// Reads the central directory, and no data. Throws Error if the package cannot be read.
Findings FindInPackage(const std::string& path, const Prediction& prediction);

/// Returns the reason why the installer skips `entry`, or installs other bytes, for people. Returns
/// nothing if the installer installs the entry unchanged.
std::optional<std::string> Problem(const EntryPrediction& entry);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_PREDICTION_PACKAGEFINDINGS_H_
