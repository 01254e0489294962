#ifndef TOOLS_WEBRESOURCES_MACHINE_ACCESS_H_
#define TOOLS_WEBRESOURCES_MACHINE_ACCESS_H_

#include <string>

#include "report/Finding.h"

namespace webresources {

/// The access of other users to an installation. Other users are all except root and the owner of
/// the host's root directory. On a correct host, other users can read all places, and cannot write
/// to, delete or change any place.
///
/// The product's places are the directories from "Veltrane" to the install root, the record and the
/// receipt. The host's places are the directories above "Veltrane", and the directory of the
/// record. A missing place and a set-group-ID bit are no defects. Three kinds of entries in an
/// access control list are no defects: denials, rights to read, and rights that only new files and
/// directories inherit.

enum class Places { Product, Host };

/// Returns the defects of the host's or the product's places. RepairAccess() repairs the defects of
/// the product's places. `install` does not change the host's places: the reason of each finding
/// names the command that repairs the defect. Throws Error if a place cannot be examined.
Findings FindInAccess(const std::string& hostRoot, Places places);

/// Gives the product's places the owner of the host's root directory and the mode 0755 or 0644
/// where they have defects. Removes the rights that new files and directories would inherit. Skips
/// links and files with several names, because the change would affect another path. Requires: the
/// caller holds the lock. Throws Error if a repair fails.
void RepairAccess(const std::string& hostRoot);

/// Throws Error if `hostRoot` is not a directory, or if a link in the path of a place leads out of
/// `hostRoot`. An empty `hostRoot` means this host: links may then lead anywhere.
void RequireHost(const std::string& hostRoot);

/// Returns the user who owns the host's root directory. Throws Error if the owner cannot be read.
unsigned int OwnerOf(const std::string& hostRoot);

/// Returns whether `user` is root or `owner`, the owner of the host's root directory.
bool IsTrustedOwner(unsigned int user, unsigned int owner);

/// Returns whether the access control list of `path` lets a user write although the mode does not.
/// Throws Error if the list cannot be read.
bool LetsOthersWrite(const std::string& path);

/// The reason in a finding about an access control list that lets other users write.
inline constexpr char kListReason[] = "its access control list lets other users write to it";

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_MACHINE_ACCESS_H_
