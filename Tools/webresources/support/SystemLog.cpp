#include "support/SystemLog.h"

#include <syslog.h>

#include "support/Text.h"

namespace webresources {

std::string UpdateText(const std::optional<int>& updateId) {
  return updateId ? std::to_string(*updateId) : "none";
}

void WriteToSystemLog(const LogEntry& entry) {
  const std::string line =
      entry.command + ": update " + entry.before + " -> " + entry.after + ": " + entry.outcome;
  openlog("webresources", LOG_PID, LOG_USER);
  syslog(entry.isFailure ? LOG_ERR : LOG_NOTICE, "%s", Printable(line).c_str());
  closelog();
}

}  // namespace webresources
