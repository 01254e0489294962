#ifndef TOOLS_WEBRESOURCES_MACHINE_RECEIPT_H_
#define TOOLS_WEBRESOURCES_MACHINE_RECEIPT_H_

#include <optional>
#include <string>

#include "machine/Installation.h"
#include "prediction/FileTree.h"
#include "report/Finding.h"
#include "support/AtomicFile.h"

namespace webresources {

/// The content that `install` left on a host, in one JSON file beside the install root. The
/// installer does not know the receipt: a run without `install` leaves the receipt out of date.
struct Receipt {
  bool isBegun = false;  ///< The installer was started, and no installation was verified since.
  int updateId = 0;      ///< Of the bundle that is or was to be installed.
  std::string packageSha256;  ///< Of the package file, in hexadecimal; empty if `isBegun`.
  FileTree tree;              ///< The installed tree, with digests and modes; empty if `isBegun`.
  std::string time;           ///< The time of the writing: UTC, as ISO 8601 writes it.
  bool isOwnersOwn = true;    ///< The file belongs to the owner of the host's topmost directory.
};

/// Returns the path of that host's receipt.
std::string ReceiptPath(const std::string& hostRoot);

/// Reads the receipt of the host mounted at `hostRoot`. Returns nothing if there is no receipt, or
/// if the file is not a receipt: then adds a finding to `findings`. Throws Error if the file cannot
/// be read, has more than 64 MiB, or was written by a newer version of the command.
std::optional<Receipt> ReadReceipt(const std::string& hostRoot, Findings& findings);

/// Replaces the receipt `file`, which has the path ReceiptPath(), by `receipt` with the present
/// time. file.Rollback() restores the old receipt. Requires: the caller holds the lock. Throws
/// Error if the receipt cannot be written.
void WriteReceipt(AtomicFile& file, const Receipt& receipt);

/// Adds a finding if `receipt` does not describe the recorded installation. Returns whether the
/// receipt does.
bool FindInReceipt(const Receipt& receipt, const Installation& installation, Findings& findings);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_MACHINE_RECEIPT_H_
