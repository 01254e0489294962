#ifndef TOOLS_WEBRESOURCES_PREDICTION_PACKAGEFINDINGS_H_
#define TOOLS_WEBRESOURCES_PREDICTION_PACKAGEFINDINGS_H_

#include <string>

#include "Finding.h"
#include "Prediction.h"

/// Returns what is wrong with the package at `path`: in its frame, then entry by entry, then in
/// entries together. `prediction` is what the installer will leave of it. That there is no package
/// is a finding. Reads the directory of the package, and no data. Throws Error if it cannot be
/// read.
Findings FindInPackage(const std::string& path, const Prediction& prediction);

/// Returns why the installer skips `entry`, or installs something else than its data, for people.
/// Returns an empty string if it installs the entry as it is.
std::string Problem(const EntryPrediction& entry);

#endif  // TOOLS_WEBRESOURCES_PREDICTION_PACKAGEFINDINGS_H_
