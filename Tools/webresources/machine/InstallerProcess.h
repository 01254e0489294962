#ifndef TOOLS_WEBRESOURCES_MACHINE_INSTALLERPROCESS_H_
#define TOOLS_WEBRESOURCES_MACHINE_INSTALLERPROCESS_H_

#include <string>

#include "bundle/BundleFiles.h"

namespace webresources {

/// The installer step of a bundle: its own executable.

/// The absolute path of the executable that belongs to `files`. Throws Error if there is none that
/// can be executed.
std::string StepOf(const BundleFiles& files);

/// Runs the step at the absolute `path` and waits for its end. Its surroundings are always the
/// same, whatever the caller's are: umask 022, working directory "/", no environment, all signals
/// as they are by default, the null device as its three standard streams, and, of the descriptors
/// below 256, `lockDescriptor` alone. This process gets the umask, too, and passes no other of
/// these descriptors to any program. Returns how the step ended, for people; an empty string if its
/// status was 0. Throws Error if it cannot be run.
std::string RunStep(const std::string& path, int lockDescriptor);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_MACHINE_INSTALLERPROCESS_H_
