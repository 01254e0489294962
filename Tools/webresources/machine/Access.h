#ifndef TOOLS_WEBRESOURCES_MACHINE_ACCESS_H_
#define TOOLS_WEBRESOURCES_MACHINE_ACCESS_H_

#include <string>

#include "report/Finding.h"

namespace webresources {

/// The access of other users to an installation. Other users are all except root and the owner of
/// the host's root directory. They can read everything, and write, delete or change nothing.
///
/// The product's places are the directories from "Veltrane" to the install root, the record and the
/// receipt. The host's places are the directories above "Veltrane", and that of the record. A place
/// that does not exist has no defect. A set-group-ID bit is no defect. Nor are entries of an access
/// control list that deny, that let read, or that only new entries of the directory inherit.

enum class Places { Product, Host };

/// Returns the defects of these places. RepairAccess() repairs the defects of the product's places.
/// `install` leaves the host's places alone: the reason of each finding names the command that
/// repairs the defect. Throws Error if a place cannot be examined.
Findings FindInAccess(const std::string& hostRoot, Places places);

/// Gives the product's places the owner of the host's root directory and the mode 0755 or 0644
/// where they have defects. Removes the rights that new entries would inherit. A link, or a file
/// that has other names, is left alone: the change would be made elsewhere. Requires: the caller
/// holds the lock. Throws Error if a repair fails.
void RepairAccess(const std::string& hostRoot);

/// Requires: `hostRoot` is a directory, and no link leads from one of the places to a file or
/// directory outside. Throws Error otherwise. An empty `hostRoot` means this host, where links may
/// lead anywhere.
void RequireHost(const std::string& hostRoot);

/// Returns the user who owns the host's root directory. Throws Error if the owner cannot be read.
unsigned int OwnerOf(const std::string& hostRoot);

/// Returns whether files of `user` are safe from other users, where `owner` owns the root
/// directory.
bool IsTrustedOwner(unsigned int user, unsigned int owner);

/// Returns whether the access control list of `path` lets a user write beyond the mode's bits.
/// Throws Error if the list cannot be read.
bool LetsOthersWrite(const std::string& path);

/// The reason of a finding about such a list.
inline constexpr char kListReason[] = "its access control list lets other users write to it";

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_MACHINE_ACCESS_H_
