#ifndef TOOLS_WEBRESOURCES_PREDICTION_TREECOMPARISON_H_
#define TOOLS_WEBRESOURCES_PREDICTION_TREECOMPARISON_H_

#include <string>
#include <vector>

#include "Prediction.h"

/// A place where a real tree is not as predicted.
struct Difference {
  enum class Kind { Missing, Extra, Type, Content };
  Kind kind;
  std::string path;  ///< Relative to the compared directory.
  std::string reason;
};

/// Compares the tree at `directory` with the one predicted of `package`, whose data is read again
/// and compared byte by byte. Nothing is followed; a directory that is missing or extra stands for
/// what is in it. Throws Error when something cannot be read.
std::vector<Difference> Compare(const Prediction& prediction, PackageReader& package,
                                const std::string& directory);

/// Does the same by the sizes and CRC-32 checksums in `tree`: enough to find a defect, not to find
/// a file that somebody has made to have the same checksum. Reads each file of `directory` once.
std::vector<Difference> CompareChecksums(const PredictedTree& tree, const std::string& directory);

#endif  // TOOLS_WEBRESOURCES_PREDICTION_TREECOMPARISON_H_
