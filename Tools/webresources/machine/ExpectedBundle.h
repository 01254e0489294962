#ifndef TOOLS_WEBRESOURCES_MACHINE_EXPECTEDBUNDLE_H_
#define TOOLS_WEBRESOURCES_MACHINE_EXPECTEDBUNDLE_H_

#include <optional>
#include <string>

#include "BundleFiles.h"
#include "FileTree.h"
#include "Finding.h"
#include "Metadata.h"
#include "PackageBounds.h"
#include "Receipt.h"

/// What a run of a bundle should leave on any machine.
struct ExpectedBundle {
  BundleFiles files;
  Metadata metadata;
  FileTree tree;              ///< The installed directory.
  bool isRead = true;         ///< False if the package can hold too much: there is no tree then.
  std::string packageSha256;  ///< In hexadecimal; empty if there is no package.
  Findings errors;            ///< What makes the bundle's result wrong: its warnings are left out.

  /// The update number. Requires: a run completes, which `errors` tells.
  int UpdateId() const { return *metadata.updateId; }
};

/// Reads the bundle at `path`. A receipt that this version of the command wrote for the same
/// package proves that the package is free of errors and tells its tree: then the package is read
/// once, and not inflated. One that can hold more than `maxSize` bytes is not read at all. Throws
/// Error if something cannot be read.
ExpectedBundle ReadBundle(const std::string& path, const std::optional<Receipt>& receipt,
                          std::uint64_t maxSize = kDefaultMaxSize);

#endif  // TOOLS_WEBRESOURCES_MACHINE_EXPECTEDBUNDLE_H_
