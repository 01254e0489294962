#ifndef TESTS_DOUBLES_DARWIN_HEADERS_SYS_STAT_H_
#define TESTS_DOUBLES_DARWIN_HEADERS_SYS_STAT_H_

// The parts of a Mac's <sys/stat.h> that the product and its tests use, from its manual pages. The
// times have other names there than elsewhere.

#include <sys/types.h>
#include <time.h>

#define S_IFMT 0170000
#define S_IFDIR 0040000
#define S_IFREG 0100000
#define S_IFLNK 0120000
#define S_ISDIR(mode) (((mode)&S_IFMT) == S_IFDIR)
#define S_ISLNK(mode) (((mode)&S_IFMT) == S_IFLNK)
#define S_ISREG(mode) (((mode)&S_IFMT) == S_IFREG)
#define S_ISGID 0002000
#define S_ISVTX 0001000
#define S_IXUSR 0000100
#define S_IRWXG 0000070
#define S_IRGRP 0000040
#define S_IWGRP 0000020
#define S_IXGRP 0000010
#define S_IRWXO 0000007
#define S_IROTH 0000004
#define S_IWOTH 0000002
#define S_IXOTH 0000001

struct stat {
  dev_t st_dev;
  mode_t st_mode;
  nlink_t st_nlink;
  ino_t st_ino;
  uid_t st_uid;
  gid_t st_gid;
  dev_t st_rdev;
  struct timespec st_atimespec;
  struct timespec st_mtimespec;
  struct timespec st_ctimespec;
  struct timespec st_birthtimespec;
  off_t st_size;
  blkcnt_t st_blocks;
  blksize_t st_blksize;
  unsigned int st_flags;
  unsigned int st_gen;
};

#define st_mtime st_mtimespec.tv_sec

extern "C" {

int chmod(const char* path, mode_t mode);
int fchmod(int file, mode_t mode);
int fstat(int file, struct stat* status);
int lstat(const char* path, struct stat* status);
int mkdir(const char* path, mode_t mode);
int mkfifo(const char* path, mode_t mode);
int mkfifoat(int directory, const char* path, mode_t mode)
    __attribute__((availability(macos, introduced = 13.0)));
int stat(const char* path, struct stat* status);
mode_t umask(mode_t mask);

}  // extern "C"

#endif  // TESTS_DOUBLES_DARWIN_HEADERS_SYS_STAT_H_
