#ifndef TOOLS_WEBRESOURCES_SUPPORT_INTERRUPTION_H_
#define TOOLS_WEBRESOURCES_SUPPORT_INTERRUPTION_H_

#include <string>

/// Lets a command that has temporary files end by an exception when the user stops it, so that
/// their owners remove them.

/// From now on, SIGHUP, SIGINT and SIGTERM do not end the process but make ThrowIfInterrupted()
/// throw. A signal that is ignored stays ignored. May be called more than once.
void CatchInterruptions();

/// Throws Error("interrupted") with `operation` and `object` if one of these signals has arrived.
/// Long loops call it once a file.
void ThrowIfInterrupted(const std::string& operation, const std::string& object);

#endif  // TOOLS_WEBRESOURCES_SUPPORT_INTERRUPTION_H_
