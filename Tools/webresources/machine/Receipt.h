#ifndef TOOLS_WEBRESOURCES_MACHINE_RECEIPT_H_
#define TOOLS_WEBRESOURCES_MACHINE_RECEIPT_H_

#include <optional>
#include <string>

#include "machine/Installation.h"
#include "prediction/FileTree.h"
#include "report/Finding.h"

namespace webresources {

/// What `install` left on a host, in one JSON file beside the install root. The installer knows
/// nothing of it: a run without `install` leaves the receipt as it is, and so out of date.
struct Receipt {
  int updateId = 0;
  std::string packageSha256;  ///< Of the package file, in hexadecimal.
  std::string time;           ///< When the receipt was written: UTC, as ISO 8601 writes it.
  std::string version;        ///< Of the command that wrote it.
  FileTree tree;              ///< The installed tree, with digests and modes.
};

/// Where the receipt of that host is.
std::string ReceiptPath(const std::string& hostRoot);

/// Reads the receipt of the host whose file system lies at `hostRoot`. Returns nothing if there is
/// none, or if it is not a receipt: then adds a finding to `findings`. Throws Error if it cannot
/// be read.
std::optional<Receipt> ReadReceipt(const std::string& hostRoot, Findings& findings);

/// Replaces the receipt of that host and sets its time and version. Only for the holder of the
/// lock. Throws Error if that fails.
void WriteReceipt(const std::string& hostRoot, Receipt receipt);

/// Removes the receipt of that host if there is one. Throws Error if that fails.
void RemoveReceipt(const std::string& hostRoot);

/// Adds a finding if `receipt` is not of the update that `installation` records. Returns whether it
/// is.
bool FindInReceipt(const Receipt& receipt, const Installation& installation, Findings& findings);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_MACHINE_RECEIPT_H_
