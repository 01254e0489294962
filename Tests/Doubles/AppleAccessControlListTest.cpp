// The access control lists of a Mac, against a double of the system's calls. The double has one
// file with one list.

#include <gtest/gtest.h>
#include <sys/acl.h>

#include <cerrno>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "AccessControlList.h"

struct _acl_permset {
  int bits;
};
struct _acl_flagset {
  int bits;
};
struct _acl_entry {
  acl_tag_t tag;
  _acl_permset permissions;
  _acl_flagset flags{0};
};
struct _acl {
  std::vector<_acl_entry> entries;
  std::size_t next = 0;
};

namespace {

using Entries = std::vector<_acl_entry>;

std::optional<Entries> stored;  // the list of the file
int readingError = 0;           // why the list cannot be read
bool isMemoryExhausted = false;
bool isReadOnly = false;
int living = 0;  // the lists that are not freed

acl_t Make(Entries entries) {
  ++living;
  return new _acl{std::move(entries)};
}

acl_t Read() {
  errno = readingError != 0 ? readingError : ENOENT;
  return readingError != 0 || !stored ? nullptr : Make(*stored);
}

int FailWith(int error) {
  errno = error;
  return -1;
}

}  // namespace

extern "C" {

int acl_free(void* object) {
  --living;
  delete static_cast<acl_t>(object);
  return 0;
}

acl_t acl_get_fd_np(int, acl_type_t) {
  return Read();
}

acl_t acl_get_file(const char*, acl_type_t) {
  return Read();
}

int acl_get_entry(acl_t list, int which, acl_entry_t* entry) {
  list->next = which == ACL_FIRST_ENTRY ? 0 : list->next;
  if (list->next == list->entries.size()) {
    return FailWith(EINVAL);
  }
  *entry = &list->entries[list->next++];
  return 0;
}

int acl_get_flag_np(acl_flagset_t flags, acl_flag_t flag) {
  return (flags->bits & flag) != 0 ? 1 : 0;
}

int acl_get_flagset_np(void* object, acl_flagset_t* flags) {
  *flags = &static_cast<acl_entry_t>(object)->flags;
  return 0;
}

int acl_get_perm_np(acl_permset_t permissions, acl_perm_t permission) {
  return (permissions->bits & permission) != 0 ? 1 : 0;
}

int acl_get_permset(acl_entry_t entry, acl_permset_t* permissions) {
  *permissions = &entry->permissions;
  return 0;
}

int acl_get_tag_type(acl_entry_t entry, acl_tag_t* tag) {
  *tag = entry->tag;
  return 0;
}

acl_t acl_init(int) {
  errno = ENOMEM;
  return isMemoryExhausted ? nullptr : Make({});
}

int acl_set_fd_np(int, acl_t list, acl_type_t) {
  if (isReadOnly) {
    return FailWith(EROFS);
  }
  stored = list->entries;
  return 0;
}

}  // extern "C"

namespace {

constexpr int kReading = ACL_READ_DATA;
constexpr int kEveryRight = ~0;

_acl_entry Allow(int rights, int flags = 0) {
  return {ACL_EXTENDED_ALLOW, {rights}, {flags}};
}

_acl_entry Deny(int rights) {
  return {ACL_EXTENDED_DENY, {rights}};
}

class AppleAccessControlList : public testing::Test {
 protected:
  AppleAccessControlList() {
    stored.reset();
    readingError = 0;
    isMemoryExhausted = false;
    isReadOnly = false;
  }
  ~AppleAccessControlList() override { EXPECT_EQ(living, 0); }

  static std::optional<bool> LetsWrite(const Entries& entries) {
    stored = entries;
    return AccessControlList::LetsWrite("/file");
  }

  /// Returns the number of entries that Restrict() leaves; -1 if Restrict() fails.
  static int Restricted(const Entries& entries) {
    stored = entries;
    return AccessControlList::Restrict(3) ? static_cast<int>(stored->size()) : -1;
  }
};

TEST_F(AppleAccessControlList, FileWithoutAListLetsNobodyWrite) {
  EXPECT_EQ(AccessControlList::LetsWrite("/file"), false);
  EXPECT_TRUE(AccessControlList::Restrict(3));
  EXPECT_FALSE(stored);
}

TEST_F(AppleAccessControlList, FileSystemWithoutListsLetsNobodyWrite) {
  readingError = ENOTSUP;
  EXPECT_EQ(AccessControlList::LetsWrite("/file"), false);
  EXPECT_TRUE(AccessControlList::Restrict(3));
}

TEST_F(AppleAccessControlList, ListThatCannotBeReadIsUnknown) {
  readingError = EACCES;
  EXPECT_EQ(AccessControlList::LetsWrite("/file"), std::nullopt);
  EXPECT_EQ(errno, EACCES);
  EXPECT_FALSE(AccessControlList::Restrict(3));
  EXPECT_EQ(errno, EACCES);
}

TEST_F(AppleAccessControlList, EntriesThatDenyOrLetReadAreCorrect) {
  EXPECT_EQ(LetsWrite({}), false);
  EXPECT_EQ(LetsWrite({Deny(ACL_DELETE), Allow(kReading)}), false);
  EXPECT_EQ(LetsWrite({Deny(kEveryRight)}), false);
  EXPECT_EQ(Restricted({Deny(kEveryRight), Allow(kReading)}), 2);
}

TEST_F(AppleAccessControlList, EveryRightToChangeIsFoundInEveryEntry) {
  for (const int right :
       {ACL_WRITE_DATA, ACL_APPEND_DATA, ACL_DELETE, ACL_DELETE_CHILD, ACL_WRITE_ATTRIBUTES,
        ACL_WRITE_SECURITY, ACL_CHANGE_OWNER, ACL_WRITE_EXTATTRIBUTES}) {
    EXPECT_EQ(LetsWrite({Allow(right)}), true) << right;
    EXPECT_EQ(LetsWrite({Deny(kEveryRight), Allow(kReading), Allow(right)}), true) << right;
    EXPECT_EQ(Restricted({Deny(kEveryRight), Allow(kReading), Allow(right)}), 0) << right;
  }
}

TEST_F(AppleAccessControlList, EntryForNewEntriesOnlyIsCorrectAndIsTaken) {
  const Entries entries = {Allow(kEveryRight, ACL_ENTRY_ONLY_INHERIT)};
  EXPECT_EQ(LetsWrite(entries), false);
  EXPECT_EQ(Restricted(entries), 0);
}

TEST_F(AppleAccessControlList, ListThatCannotBeChangedIsAFailure) {
  isMemoryExhausted = true;
  EXPECT_EQ(Restricted({Allow(ACL_DELETE)}), -1);
  EXPECT_EQ(errno, ENOMEM);
  isMemoryExhausted = false;
  isReadOnly = true;
  EXPECT_EQ(Restricted({Allow(ACL_DELETE)}), -1);
  EXPECT_EQ(errno, EROFS);
}

}  // namespace
