#ifndef TOOLS_WEBRESOURCES_PREDICTION_PACKAGEFINDINGS_H_
#define TOOLS_WEBRESOURCES_PREDICTION_PACKAGEFINDINGS_H_

#include <optional>
#include <string>

#include "ArchiveLayout.h"
#include "Finding.h"
#include "Prediction.h"

/// Returns what is wrong with a package: in its frame, then entry by entry, then in entries
/// together. `exists` tells whether there is a package file at all; `prediction` is what the
/// installer will leave of it; `layout` is how its bytes lie in the file, if that is known. Both
/// must come from the same package.
Findings FindInPackage(bool exists, const Prediction& prediction,
                       const std::optional<ArchiveLayout>& layout);

/// Returns why the installer skips `entry`, or installs something else than its data, for people.
/// Returns an empty string if it installs the entry as it is.
std::string Problem(const EntryPrediction& entry);

#endif  // TOOLS_WEBRESOURCES_PREDICTION_PACKAGEFINDINGS_H_
