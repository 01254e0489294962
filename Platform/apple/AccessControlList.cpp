#include "AccessControlList.h"

#include <sys/acl.h>

#include <cerrno>
#include <memory>
#include <type_traits>

namespace {

constexpr acl_perm_t kWriting[] = {ACL_WRITE_DATA,   ACL_APPEND_DATA,        ACL_DELETE,
                                   ACL_DELETE_CHILD, ACL_WRITE_ATTRIBUTES,   ACL_WRITE_SECURITY,
                                   ACL_CHANGE_OWNER, ACL_WRITE_EXTATTRIBUTES};

struct Freed {
  void operator()(acl_t list) const { acl_free(list); }
};
using List = std::unique_ptr<std::remove_pointer_t<acl_t>, Freed>;

bool LetsWrite(acl_entry_t entry) {
  acl_tag_t tag = ACL_UNDEFINED_TAG;
  acl_permset_t permissions = nullptr;
  if (acl_get_tag_type(entry, &tag) != 0 || tag != ACL_EXTENDED_ALLOW ||
      acl_get_permset(entry, &permissions) != 0) {
    return false;
  }
  for (const acl_perm_t permission : kWriting) {
    if (acl_get_perm_np(permissions, permission) == 1) {
      return true;
    }
  }
  return false;
}

bool IsForNewEntriesOnly(acl_entry_t entry) {
  acl_flagset_t flags = nullptr;
  return acl_get_flagset_np(entry, &flags) == 0 &&
         acl_get_flag_np(flags, ACL_ENTRY_ONLY_INHERIT) == 1;
}

/// Returns whether `error`, the reason of a failed read, means that the file has no list.
bool IsWithoutList(int error) {
  return error == ENOENT || error == ENOTSUP;
}

/// Returns whether an entry of `list`, which may be null, lets a user write.
bool LetsWrite(const List& list, bool countsInherited) {
  acl_entry_t entry = nullptr;
  // A Mac returns 0 for an entry and -1 at the end, unlike the draft of POSIX.
  for (int which = ACL_FIRST_ENTRY; list && acl_get_entry(list.get(), which, &entry) == 0;
       which = ACL_NEXT_ENTRY) {
    if (LetsWrite(entry) && (countsInherited || !IsForNewEntriesOnly(entry))) {
      return true;
    }
  }
  return false;
}

}  // namespace

const char* const AccessControlList::kRemovalCommand = "chmod -N";

std::optional<bool> AccessControlList::LetsWrite(const std::string& path) {
  const List list(acl_get_file(path.c_str(), ACL_TYPE_EXTENDED));
  if (!list && !IsWithoutList(errno)) {
    return std::nullopt;
  }
  return ::LetsWrite(list, false);
}

bool AccessControlList::Restrict(int descriptor) {
  const List list(acl_get_fd_np(descriptor, ACL_TYPE_EXTENDED));
  if (!list && !IsWithoutList(errno)) {
    return false;
  }
  if (!::LetsWrite(list, true)) {
    return true;
  }
  const List none(acl_init(1));
  return none && acl_set_fd_np(descriptor, none.get(), ACL_TYPE_EXTENDED) == 0;
}
