#include "MachineState.h"

#include "InstallationFindings.h"

MachineState CompareWithBundle(const std::string& prefix, const ExpectedBundle& bundle,
                               bool ignoresModes) {
  MachineState state;
  state.installation = ReadInstallation(prefix);
  state.findings = FindInInstallation(state.installation, {bundle.isRead ? &bundle.tree : nullptr,
                                                           bundle.UpdateId(), ignoresModes});
  const auto receipt = ReadReceipt(prefix, state.receiptFindings);
  state.hasReceipt = receipt.has_value();
  const bool belongs =
      receipt && FindInReceipt(*receipt, state.installation, state.receiptFindings);
  if (belongs && state.findings.empty() && receipt->packageSha256 != bundle.packageSha256) {
    Add(state.receiptFindings, "receipt-differs", ReceiptPath(prefix),
        "it is of another package than the one that is installed");
  }
  return state;
}

bool IsNewerInstalled(const Installation& installation, const ExpectedBundle& bundle) {
  const auto recorded = installation.UpdateId();
  return recorded && *recorded > bundle.UpdateId();
}
