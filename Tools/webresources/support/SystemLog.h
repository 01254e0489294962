#ifndef TOOLS_WEBRESOURCES_SUPPORT_SYSTEMLOG_H_
#define TOOLS_WEBRESOURCES_SUPPORT_SYSTEMLOG_H_

#include <exception>
#include <optional>
#include <string>

namespace webresources {

/// One run of a command that changes a host, for the system's log.
struct LogEntry {
  std::string command;             ///< For example "install".
  std::string before = "unknown";  ///< The recorded update number, as UpdateText() returns it.
  std::string after = "unknown";   ///< The update number after the run.
  std::string outcome = {};        ///< The outcome and its reason, for people.
  bool isFailure = false;
};

/// Returns the number, or "none".
std::string UpdateText(const std::optional<int>& updateId);

/// Writes one line to the system's log, for example "install: update 6 -> 7: installed". Does
/// nothing if the system has no log.
void WriteToSystemLog(const LogEntry& entry);

/// Calls `run`, which fills `entry`, and writes the entry to the system's log. Returns the result
/// of `run`. If `run` throws, logs the failure with `after` equal to `before`, and throws the
/// exception again.
template <typename Run>
auto Logged(LogEntry entry, Run run) {
  try {
    auto result = run(entry);
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
