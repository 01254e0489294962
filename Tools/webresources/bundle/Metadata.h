#ifndef TOOLS_WEBRESOURCES_BUNDLE_METADATA_H_
#define TOOLS_WEBRESOURCES_BUNDLE_METADATA_H_

#include <optional>
#include <string>

#include "Finding.h"

/// What a metadata file will make a run do, as the installer reads it.
struct Metadata {
  /// How far a run gets.
  enum class RunOutcome {
    Nothing,       ///< Aborts before anything is written.
    Extracted,     ///< Aborts once the new directory is filled and recorded; nothing is deleted.
    AllButRandom,  ///< Aborts before the random identifier is settled.
    Complete,      ///< Exits with 0.
  };

  // Nothing: the query ends the run.
  std::optional<bool> clear;
  std::optional<int> updateId;
  std::optional<bool> regenerate;

  RunOutcome outcome = RunOutcome::Nothing;  ///< On a machine where everything else succeeds.
  Findings findings;
};

/// Reads the file at `path`. Throws Error when there is one that cannot be read.
Metadata ReadMetadata(const std::string& path);

/// What `outcome` means, for people.
std::string Describe(Metadata::RunOutcome outcome);

#endif  // TOOLS_WEBRESOURCES_BUNDLE_METADATA_H_
