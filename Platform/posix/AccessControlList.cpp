#include "AccessControlList.h"

#include <sys/xattr.h>

#include <cerrno>

const char* const AccessControlList::kRemovalCommand = "setfacl -b";

// On Linux, the group's bits of the mode are the mask of the list: no entry gives more rights than
// the mode shows.
std::optional<bool> AccessControlList::LetsWrite(const std::string& /*path*/) {
  return false;
}

bool AccessControlList::Restrict(int descriptor) {
  constexpr char kInherited[] = "system.posix_acl_default";
  if (fgetxattr(descriptor, kInherited, nullptr, 0) < 0) {
    return errno == ENODATA || errno == ENOTSUP;
  }
  return fremovexattr(descriptor, kInherited) == 0;
}
