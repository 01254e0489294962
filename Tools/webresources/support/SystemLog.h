#ifndef TOOLS_WEBRESOURCES_SUPPORT_SYSTEMLOG_H_
#define TOOLS_WEBRESOURCES_SUPPORT_SYSTEMLOG_H_

#include <exception>
#include <optional>
#include <string>

namespace webresources {

/// One run of a command that changes a host, for the system's log.
struct LogEntry {
  std::string command;             ///< For example "install".
  std::optional<int> before = {};  ///< The recorded update number.
  std::optional<int> after = {};   ///< The same, after the run.
  std::string outcome = {};        ///< The outcome and its reason, for people.
  bool isFailure = false;
};

/// Writes one line to the system's log, for example
/// "install: update 6 -> 7: installed". Without a log nothing happens.
void WriteToSystemLog(const LogEntry& entry);

/// Calls `run`, which fills `entry`, and writes the entry to the system's log. If `run` throws, the
/// entry has the failure, and the exception goes on. Returns the result of `run`.
template <typename Run>
auto Logged(LogEntry entry, Run run) {
  try {
    const auto result = run(entry);
    WriteToSystemLog(entry);
    return result;
  } catch (const std::exception& error) {
    entry.after = entry.before;
    entry.outcome = std::string("failed: ") + error.what();
    entry.isFailure = true;
    WriteToSystemLog(entry);
    throw;
  }
}

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_SUPPORT_SYSTEMLOG_H_
