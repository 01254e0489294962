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
  bool isBegun = false;  ///< True from the start of the installer to a successful check.
  int updateId = 0;      ///< The update number of the bundle.
  std::optional<std::string> packageSha256;  ///< In hexadecimal; nothing if `isBegun`.
  /// The installed tree, with digests and modes; empty if `isBegun`, if the receipt would have more
  /// than 64 MiB, or if ReadReceipt() omits it.
  FileTree tree;
  std::string time;         ///< The time of the writing, in UTC and ISO 8601.
  bool isOwnersOwn = true;  ///< The file and the host's root have one owner.
};

/// Returns the path of the receipt of the host mounted at `hostRoot`.
std::string ReceiptPath(const std::string& hostRoot);

/// Reads the receipt of the host mounted at `hostRoot`. Returns nothing if there is no receipt. If
/// the file is not a receipt, returns nothing and adds a finding to `findings`. Throws Error if the
/// file cannot be read, has more than 64 MiB, or was written by a newer version of the command. If
/// the receipt is of another update than `update`, the function may stop before the tree: the tree
/// is then neither read nor checked.
std::optional<Receipt> ReadReceipt(const std::string& hostRoot, const std::optional<int>& update,
                                   Findings& findings);

/// Replaces the receipt by `receipt` with the present time. Omits a tree that would make the
/// receipt larger than ReadReceipt() accepts. file.Rollback() restores the old receipt. Requires:
/// `file` has the path ReceiptPath(), and the caller holds the lock. Throws Error if the receipt
/// cannot be written.
void WriteReceipt(AtomicFile& file, const Receipt& receipt);

/// Returns whether `receipt` describes the recorded installation. If not, adds a finding.
bool FindInReceipt(const Receipt& receipt, const Installation& installation, Findings& findings);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_MACHINE_RECEIPT_H_
