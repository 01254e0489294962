#ifndef TOOLS_WEBRESOURCES_TREE_H_
#define TOOLS_WEBRESOURCES_TREE_H_

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

/// The names in the directory at `path` but "." and "..", in the order of bytes. Throws Error when
/// it cannot be read.
std::vector<std::string> NamesIn(const std::string& path);

/// Compares the tree at `directory` with the one predicted of `package`, whose data is read again
/// and compared byte by byte. Nothing is followed; a directory that is missing or extra stands for
/// what is in it. Throws Error when something cannot be read.
std::vector<Difference> Compare(const Prediction& prediction, Package& package,
                                const std::string& directory);

#endif  // TOOLS_WEBRESOURCES_TREE_H_
