#include "machine/Advice.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "machine/InstallLock.h"
#include "support/Text.h"

namespace webresources {

namespace {

std::string Absolute(const std::string& path) {
  std::string absolute = std::filesystem::absolute(path).lexically_normal().string();
  while (absolute.length() > 1 && absolute.back() == '/') {
    absolute.pop_back();
  }
  return absolute;
}

std::string InstallOf(const std::string& bundle, const HostOptions& options) {
  return std::string("webresources install ") +
         (options.allowsDowngrade ? "--allow-downgrade " : "") +
         (options.ignoresModes ? "--ignore-modes " : "") + bundle;
}

std::string CommandLineOf(const HostOptions& options) {
  const std::string sudo = geteuid() == 0 ? "" : "sudo ";
  const std::string bundle = options.bundle ? Absolute(*options.bundle) : "";
  const std::string word = options.bundle ? ShellQuoted(bundle) : "BUNDLE";
  const std::string hostRoot = options.hostRoot.empty() ? "" : Absolute(options.hostRoot);
  const std::string unlock =
      InstallLock::IsRefusedForRoot(hostRoot)
          ? sudo + "rm " + ShellQuoted(InstallLock::PathOf(hostRoot)) + " && "
          : "";
  if (hostRoot.empty()) {
    return unlock + sudo + InstallOf(word, options);
  }
  const std::string chroot = unlock + sudo + "chroot " + ShellQuoted(hostRoot) + " ";
  if (!options.bundle) {
    return chroot + InstallOf(word, options);
  }
  if (bundle.rfind(hostRoot + "/", 0) == 0) {
    return chroot + InstallOf(ShellQuoted(bundle.substr(hostRoot.length())), options);
  }
  const std::string copied = "/" + LastOf(bundle);
  return sudo + "cp -R " + ShellQuoted(bundle + "/.") + " " + ShellQuoted(hostRoot + copied) +
         " && " + chroot + InstallOf(ShellQuoted(copied), options);
}

bool IsRepairedByInstall(const Finding& finding) {
  return std::strstr(finding.rule->fix, "run webresources install") != nullptr;
}

}  // namespace

void Advise(const HostOptions& options, Report& report) {
  if (std::any_of(report.findings.begin(), report.findings.end(), IsRepairedByInstall)) {
    report.advice = CommandLineOf(options);
  }
}

}  // namespace webresources
