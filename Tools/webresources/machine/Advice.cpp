#include "machine/Advice.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

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

std::string InstallOf(const std::string& bundle, const Repair& repair) {
  return std::string("webresources install ") + (repair.isDowngrade ? "--allow-downgrade " : "") +
         (repair.ignoresModes ? "--ignore-modes " : "") + bundle;
}

std::string InChroot(const Repair& repair, const std::string& sudo) {
  const std::string root = Absolute(repair.hostRoot);
  const std::string bundle = Absolute(repair.bundle);
  const std::string chroot = sudo + "chroot " + ShellQuoted(root) + " ";
  if (bundle.rfind(root + "/", 0) == 0) {
    return chroot + InstallOf(ShellQuoted(bundle.substr(root.length())), repair);
  }
  const std::string copied = "/" + LastOf(bundle);
  return sudo + "cp -R " + ShellQuoted(bundle + "/.") + " " + ShellQuoted(root + copied) + " && " +
         chroot + InstallOf(ShellQuoted(copied), repair);
}

bool IsRepairedByInstall(const Finding& finding) {
  return std::strstr(finding.rule->fix, "run webresources install") != nullptr;
}

}  // namespace

std::string CommandLineOf(const Repair& repair) {
  const std::string sudo = geteuid() == 0 ? "" : "sudo ";
  if (repair.bundle.empty()) {
    const std::string root = repair.hostRoot.empty()
                                 ? std::string()
                                 : "chroot " + ShellQuoted(Absolute(repair.hostRoot)) + " ";
    return sudo + root + InstallOf("BUNDLE", repair);
  }
  return repair.hostRoot.empty() ? sudo + InstallOf(ShellQuoted(Absolute(repair.bundle)), repair)
                                 : InChroot(repair, sudo);
}

void Advise(const Repair& repair, Report& report) {
  if (std::any_of(report.findings.begin(), report.findings.end(), IsRepairedByInstall)) {
    report.advice = CommandLineOf(repair);
  }
}

}  // namespace webresources
