#ifndef TOOLS_WEBRESOURCES_MACHINE_INSTALLERPROCESS_H_
#define TOOLS_WEBRESOURCES_MACHINE_INSTALLERPROCESS_H_

#include <cstdint>
#include <optional>
#include <string>

namespace webresources {

/// Runs the installer at the absolute `path` and waits for the end. The surroundings do not depend
/// on those of the caller: umask 022, working directory "/", no environment, signals as they are by
/// default, the null device as the three standard streams, and `lockDescriptor` as the only other
/// descriptor. A SIGHUP that the caller ignores stays ignored, as `nohup` asks. This process gets
/// the umask and the working directory, too, and passes SIGHUP, SIGINT and SIGTERM on to the
/// installer; see CatchInterruptions().
///
/// On a terminal, shows how many of the `bytes` that the installer writes are written: once a
/// second, from the free space of the volume that holds the installer.
///
/// Returns the end of the installer, for people; nothing if the exit status was 0. Throws
/// CannotStart if the installer cannot be started, and Error if the end is unknown.
std::optional<std::string> RunInstaller(const std::string& path, int lockDescriptor,
                                        std::uint64_t bytes);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_MACHINE_INSTALLERPROCESS_H_
