#include "bundle/BundleFiles.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <sstream>
#include <system_error>

#include "InstallerConstants.h"
#include "report/Rules.h"
#include "support/Error.h"
#include "support/Files.h"

namespace webresources {

namespace {

/// Returns a text that changes when the file at `path` changes or is replaced; nothing if there is
/// no file.
std::optional<std::string> VersionOf(const std::string& path) {
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0) {
    return std::nullopt;
  }
  std::error_code error;
  const auto written = std::filesystem::last_write_time(path, error).time_since_epoch();
  std::ostringstream version;
  version << status.st_dev << ' ' << status.st_ino << ' ' << status.st_size << ' '
          << status.st_ctime << ' ' << written.count();
  return version.str();
}

}  // namespace

void BundleFiles::RequireUnchanged() const {
  for (const auto& [path, version] : versions) {
    if (VersionOf(path) != version) {
      throw Error("read", path, "it changed while it was read", "run the command again");
    }
  }
}

BundleFiles FindBundleFiles(std::string path) {
  while (path.length() > 1 && path.back() == '/') {
    path.pop_back();
  }
  if (!S_ISDIR(StatusOf(path).st_mode)) {
    throw Error("read", path, "it is not a directory");
  }
  if (access(path.c_str(), X_OK) != 0) {
    throw Error::FromErrno("read", path);
  }
  std::optional<std::string> program;
  if (IsDirectory(path + "/Contents/Resources")) {
    program = path + "/Contents/" BUNDLE_EXECUTABLES "/" BUNDLE_EXECUTABLE;
    path += "/Contents/Resources";
  } else if (IsDirectory(path + "/Resources")) {
    path += "/Resources";
  }
  if (access(path.c_str(), R_OK | X_OK) != 0) {
    throw Error::FromErrno("read", path);
  }
  const std::string package = path + "/" + kPackageFileName;
  const std::string metadata = path + "/" + kMetadataFileName;
  return {path,
          package,
          metadata,
          program,
          {{package, VersionOf(package)}, {metadata, VersionOf(metadata)}}};
}

std::optional<std::string> DigestOfPackage(const std::string& path) {
  return IsPresent(path) ? std::optional(DigestText(DigestOfFile(path))) : std::nullopt;
}

void RequireBundle(const std::string& path) {
  if (IsDirectory(path) && !IsDirectory(path + "/Contents/Resources")) {
    throw UsageError("use", path, "it is not a bundle: there is no Contents/Resources in it");
  }
}

Findings FindInProgram(const BundleFiles& files) {
  Findings findings;
  struct stat status = {};
  if (!files.program) {
    return findings;
  }
  if (stat(files.program->c_str(), &status) != 0) {
    Add(findings, kProgramUnusable, *files.program, std::generic_category().message(errno));
  } else if (!S_ISREG(status.st_mode)) {
    Add(findings, kProgramUnusable, *files.program, "it is not a regular file");
  } else if (access(files.program->c_str(), X_OK) != 0) {
    const bool hasMode = (status.st_mode & (S_IXUSR | S_IXGRP | S_IXOTH)) != 0;
    Add(findings, kProgramUnusable, *files.program,
        hasMode ? "it may not be executed here: the volume may be mounted with noexec"
                : "it is not executable");
  }
  return findings;
}

}  // namespace webresources
