#ifndef TOOLS_WEBRESOURCES_MACHINE_INSTALLERPROCESS_H_
#define TOOLS_WEBRESOURCES_MACHINE_INSTALLERPROCESS_H_

#include <cstdint>
#include <optional>
#include <string>

namespace webresources {

/// Runs the installer at the absolute `path`, and waits for the end of the installer. The installer
/// has a fixed environment: umask 022, working directory "/", no environment variables, default
/// signal actions, and the null device as standard streams. The only other descriptor is
/// `lockDescriptor`. If the caller ignores SIGHUP, the installer ignores SIGHUP, too, as `nohup`
/// requires. The calling process keeps this umask and this working directory after the call.
/// SIGHUP, SIGINT and SIGTERM are forwarded to the installer; see CatchInterruptions().
///
/// `bytes` is the size of the content. On a terminal, shows once a second which part of `bytes` is
/// written: the decrease of free space on the volume that holds the installer.
///
/// Returns nothing after the exit status 0. Returns a text about any other exit status, or about
/// the signal that ended the installer. Throws CannotStart if the installer cannot be started, and
/// Error if the exit status is unknown.
std::optional<std::string> RunInstaller(const std::string& path, int lockDescriptor,
                                        std::uint64_t bytes);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_MACHINE_INSTALLERPROCESS_H_
