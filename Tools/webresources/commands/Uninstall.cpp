#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "commands/Commands.h"
#include "machine/Access.h"
#include "machine/InstallLock.h"
#include "machine/Installation.h"
#include "machine/Receipt.h"
#include "support/Error.h"
#include "support/Files.h"
#include "support/SystemLog.h"
#include "support/Text.h"

namespace webresources {

namespace {

constexpr int kOwnDirectories = 3;  // above the install root

/// The remains of an installation on a host.
struct Remains {
  InstallRecord record;
  std::vector<std::string> paths;  ///< In the order of their removal.
  bool hasLock = false;

  bool IsEmpty() const { return paths.empty() && webresources::IsEmpty(record) && !hasLock; }
};

/// Returns the record of the host. A Mac cannot read the record of another host: the function then
/// returns an empty record, and only files are removed.
InstallRecord ReachableRecord(const std::string& hostRoot) {
  const auto record = ReadRecord(hostRoot);
  if (!record && errno != ENOTSUP) {
    throw UnreadableRecord(hostRoot);
  }
  return record.value_or(InstallRecord());
}

Remains Look(const std::string& hostRoot) {
  Remains remains;
  remains.record = ReachableRecord(hostRoot);
  remains.hasLock = InstallLock::IsThere(hostRoot);
  const std::string root = BesideInstallRoot(hostRoot, "WebResources");
  for (const std::string& path : {ReceiptPath(hostRoot), root}) {
    if (Exists(path)) {
      remains.paths.push_back(path);
    }
  }
  const std::vector<std::string> temporary = TemporaryEntries(hostRoot);
  remains.paths.insert(remains.paths.end(), temporary.begin(), temporary.end());
  return remains;
}

void RemoveTree(const std::string& path) {
  std::error_code failure;
  std::filesystem::remove_all(path, failure);
  if (failure) {
    errno = failure.value();
    throw Error::FromErrno("remove", path);
  }
}

/// Removes first the receipt, because a receipt states that the other files exist. Then removes the
/// record, then the remaining paths.
void Remove(const std::string& hostRoot, const Remains& remains) {
  RemoveTree(ReceiptPath(hostRoot));
  if (!IsEmpty(remains.record) && !RemoveRecord(hostRoot)) {
    throw Error::FromErrno("remove the values of the record", RecordLocation(hostRoot));
  }
  for (const std::string& path : remains.paths) {
    RemoveTree(path);
  }
}

/// Keeps a directory that is not empty: another process can add a file or make the directory again.
void RemoveEmptyDirectories(const std::string& hostRoot) {
  std::string path = ParentOf(BesideInstallRoot(hostRoot, ""));
  for (int i = 0; i < kOwnDirectories; ++i, path = ParentOf(path)) {
    if (rmdir(path.c_str()) == 0 || errno == ENOENT) {
      continue;
    }
    if (errno == ENOTEMPTY || errno == EEXIST || errno == ENOTDIR) {
      return;
    }
    throw Error::FromErrno("remove", path);
  }
}

void ReportRemains(const Remains& remains, const HostOptions& options, Report& report) {
  PutName(report.details, "installRoot", BesideInstallRoot(options.hostRoot, "WebResources/"));
  report.details["record"] = webresources::ToJson(remains.record.values);
  report.details["dryRun"] = options.isDryRun;
  Json& removed = report.details["removed"] = Json::array();
  for (const std::string& path : remains.paths) {
    Json json = Json::object();
    PutName(json, "path", path);
    removed.push_back(json);
    report.listing.push_back((options.isDryRun ? "would remove  " : "removed  ") + path);
  }
}

void Conclude(const char* outcome, const std::string& text, Report& report) {
  report.details["outcome"] = outcome;
  report.summary.push_back(text);
}

/// Takes the lock, finds the remains again, and removes the remains.
Remains RemoveLocked(const HostOptions& options) {
  umask(022);
  const InstallLock lock(options.hostRoot, options.wait);
  Remains remains = Look(options.hostRoot);
  Remove(options.hostRoot, remains);
  lock.RemoveFile();
  return remains;
}

Report UninstallWith(const HostOptions& options, LogEntry& entry) {
  RequireHost(options.hostRoot);
  Remains remains = Look(options.hostRoot);
  entry.before = UpdateText(UpdateIdOf(remains.record));
  const bool wasInstalled = !remains.IsEmpty();
  if (!options.isDryRun) {
    if (wasInstalled) {
      remains = RemoveLocked(options);
    }
    RemoveEmptyDirectories(options.hostRoot);
  }
  entry.after = UpdateText(std::nullopt);
  entry.outcome = wasInstalled ? "uninstalled" : "nothing was installed";
  Report report("uninstall");
  ReportRemains(remains, options, report);
  if (!wasInstalled) {
    Conclude("not-installed", "nothing is installed", report);
  } else if (options.isDryRun) {
    Conclude("uninstall", "uninstall will remove these paths and the values of the record", report);
  } else {
    const auto updateId = UpdateIdOf(remains.record);
    Conclude("uninstalled",
             "uninstalled: " + (updateId ? "update " + std::to_string(*updateId) : "no update"),
             report);
  }
  return report;
}

}  // namespace

Report Uninstall(const HostOptions& options) {
  LogEntry none;
  return options.isDryRun ? UninstallWith(options, none)
                          : Logged({"uninstall"}, [&options](LogEntry& entry) {
                              return UninstallWith(options, entry);
                            });
}

}  // namespace webresources
