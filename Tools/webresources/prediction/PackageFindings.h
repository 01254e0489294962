#ifndef TOOLS_WEBRESOURCES_PREDICTION_PACKAGEFINDINGS_H_
#define TOOLS_WEBRESOURCES_PREDICTION_PACKAGEFINDINGS_H_

#include <optional>
#include <string>

#include "ArchiveLayout.h"
#include "Finding.h"
#include "Prediction.h"

/// What is wrong with a package. `exists`: whether there is a package file at all; `prediction`:
/// what the installer will leave of it; `layout`: how its bytes lie in the file, if that could be
/// made out.
Findings FindInPackage(bool exists, const Prediction& prediction,
                       const std::optional<ArchiveLayout>& layout);

/// Why the installer skips the entry, or does not leave it as it is. Returns an empty string if the
/// installer installs it as it is.
std::string Problem(const EntryPrediction& entry);

#endif  // TOOLS_WEBRESOURCES_PREDICTION_PACKAGEFINDINGS_H_
