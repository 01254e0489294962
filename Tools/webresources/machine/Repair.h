#ifndef TOOLS_WEBRESOURCES_MACHINE_REPAIR_H_
#define TOOLS_WEBRESOURCES_MACHINE_REPAIR_H_

#include <string>
#include <vector>

#include "Installation.h"

/// What is wrong on a machine that a run leaves as it finds it, and how `install` repairs it.

/// Whether the recorded random identifier is of a wrong type or out of range. A run keeps it, for
/// it is there.
bool IsRandomUnusable(const Installation& installation);

/// The directories above the installed one, the outermost first, that other users cannot enter or
/// can write to. A run makes no directory that is there already.
std::vector<std::string> ClosedDirectories(const Installation& installation);

/// Repairs both on that host: removes the identifier, so that the run draws a new one, and gives
/// the directories the modes that a run gives. Only for the holder of the lock. Throws Error if
/// that fails.
void RepairWhatARunKeeps(const Installation& installation);

#endif  // TOOLS_WEBRESOURCES_MACHINE_REPAIR_H_
