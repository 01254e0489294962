#ifndef TOOLS_WEBRESOURCES_MACHINE_INSTALLATIONFINDINGS_H_
#define TOOLS_WEBRESOURCES_MACHINE_INSTALLATIONFINDINGS_H_

#include <optional>

#include "FileTree.h"
#include "Finding.h"
#include "Installation.h"

/// What should be installed. What is not stated is not compared.
struct Expectation {
  const FileTree* tree = nullptr;  ///< The installed directory; null if nobody knows.
  std::optional<int> updateId;     ///< None: the record has to agree with itself only.
  bool ignoresModes = false;       ///< Modes and owners are not compared.
};

/// All that is not as it should be on a host: the installed tree, what lies beside it, the
/// directories above it and the record. Reads each installed file once if a tree is expected.
/// Throws Error if something cannot be read.
Findings FindInInstallation(const Installation& installation, const Expectation& expected);

#endif  // TOOLS_WEBRESOURCES_MACHINE_INSTALLATIONFINDINGS_H_
