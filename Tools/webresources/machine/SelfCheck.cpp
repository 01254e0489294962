#include "SelfCheck.h"

#include "InstallationFindings.h"

SelfCheck CheckInstallation(const std::string& prefix, bool ignoresModes) {
  SelfCheck check;
  check.installation = ReadInstallation(prefix);
  Findings ofReceipt;
  check.receipt = ReadReceipt(prefix, ofReceipt);
  if (check.receipt && !FindInReceipt(*check.receipt, check.installation, ofReceipt)) {
    check.receipt.reset();
  }
  check.findings = FindInInstallation(
      check.installation,
      {check.receipt ? &check.receipt->tree : nullptr, std::nullopt, ignoresModes});
  check.findings.insert(check.findings.end(), ofReceipt.begin(), ofReceipt.end());
  return check;
}
