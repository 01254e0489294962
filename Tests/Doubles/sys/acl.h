#ifndef TESTS_DOUBLES_SYS_ACL_H_
#define TESTS_DOUBLES_SYS_ACL_H_

// The parts of a Mac's <sys/acl.h> that the product and its tests use, from the manual pages.

enum acl_perm_t {
  ACL_READ_DATA = 1 << 1,
  ACL_WRITE_DATA = 1 << 2,
  ACL_DELETE = 1 << 4,
  ACL_APPEND_DATA = 1 << 5,
  ACL_DELETE_CHILD = 1 << 6,
  ACL_WRITE_ATTRIBUTES = 1 << 8,
  ACL_WRITE_EXTATTRIBUTES = 1 << 10,
  ACL_WRITE_SECURITY = 1 << 12,
  ACL_CHANGE_OWNER = 1 << 13
};
enum acl_tag_t { ACL_UNDEFINED_TAG, ACL_EXTENDED_ALLOW, ACL_EXTENDED_DENY };
enum acl_type_t { ACL_TYPE_EXTENDED = 0x100 };
enum acl_entry_id_t { ACL_FIRST_ENTRY = 0, ACL_NEXT_ENTRY = -1 };
enum acl_flag_t { ACL_ENTRY_ONLY_INHERIT = 1 << 8 };

typedef struct _acl* acl_t;
typedef struct _acl_entry* acl_entry_t;
typedef struct _acl_permset* acl_permset_t;
typedef struct _acl_flagset* acl_flagset_t;

extern "C" {

int acl_free(void* object);
acl_t acl_get_fd_np(int file, acl_type_t type);
acl_t acl_get_file(const char* path, acl_type_t type);
int acl_get_entry(acl_t list, int which, acl_entry_t* entry);
int acl_get_flag_np(acl_flagset_t flags, acl_flag_t flag);
int acl_get_flagset_np(void* object, acl_flagset_t* flags);
int acl_get_perm_np(acl_permset_t permissions, acl_perm_t permission);
int acl_get_permset(acl_entry_t entry, acl_permset_t* permissions);
int acl_get_tag_type(acl_entry_t entry, acl_tag_t* tag);
acl_t acl_init(int count);
int acl_set_fd_np(int file, acl_t list, acl_type_t type);

}  // extern "C"

#endif  // TESTS_DOUBLES_SYS_ACL_H_
