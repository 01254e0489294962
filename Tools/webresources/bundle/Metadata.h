#ifndef TOOLS_WEBRESOURCES_BUNDLE_METADATA_H_
#define TOOLS_WEBRESOURCES_BUNDLE_METADATA_H_

#include <optional>
#include <string>

#include "report/Report.h"

namespace webresources {

/// The effect of a metadata file on a run. The values come from the installer's MetadataHelper.
struct Metadata {
  /// The end of a run on a host where everything else succeeds.
  enum class RunOutcome {
    Nothing,       ///< Aborts before anything is written.
    Extracted,     ///< Aborts when the new directory is filled and recorded; nothing is deleted.
    AllButRandom,  ///< Aborts before the decision on the random identifier.
    Complete,      ///< Exits with 0.
  };

  // The answers to the installer's queries. Without a value, the query aborts the run.
  std::optional<bool> clear;
  std::optional<int> updateId;
  std::optional<bool> regenerate;

  RunOutcome outcome = RunOutcome::Nothing;
  Findings findings = {};  ///< Defects and surprises in the file.
};

/// Reads the metadata file at `path`. A missing file is a finding. Throws Error if the file cannot
/// be read, has more than 1 MiB, or has more than 1,000 arrays and objects: the installer's stack
/// might overflow.
Metadata ReadMetadata(const std::string& path);

/// Adds the findings about the update number of a metadata file.
void AddUpdateIdFindings(Findings& findings, int updateId);

/// Returns the answers as a member of a document, in the order and with the names of the metadata
/// file; null for a value that aborts the run.
Json ToJson(const Metadata& metadata);

/// Returns a value of ToJson() for people: "missing" in place of null.
std::string ValueText(const Json& value);

/// Returns a description of a run with `outcome`, for people: the rest of a sentence that begins
/// with "a run".
std::string Describe(Metadata::RunOutcome outcome);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_BUNDLE_METADATA_H_
