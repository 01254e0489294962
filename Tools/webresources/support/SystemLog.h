#ifndef TOOLS_WEBRESOURCES_SUPPORT_SYSTEMLOG_H_
#define TOOLS_WEBRESOURCES_SUPPORT_SYSTEMLOG_H_

#include <optional>
#include <string>

namespace webresources {

/// One run of a command that changes a host, for the system's log.
struct LogEntry {
  std::string command;        ///< For example "install".
  std::optional<int> before;  ///< The recorded update number.
  std::optional<int> after;   ///< The same, after the run.
  std::string outcome;        ///< The outcome and its reason, for people.
  bool isFailure = false;
};

/// Writes one line to the system's log, for example
/// "install: update 6 -> 7: installed". Without a log nothing happens.
void WriteToSystemLog(const LogEntry& entry);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_SUPPORT_SYSTEMLOG_H_
