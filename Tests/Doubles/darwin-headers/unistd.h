#ifndef TESTS_DOUBLES_DARWIN_HEADERS_UNISTD_H_
#define TESTS_DOUBLES_DARWIN_HEADERS_UNISTD_H_

// The parts of a Mac's <unistd.h> that the product and its tests use, from its manual pages.

#include <sys/types.h>

#define X_OK 1
#define W_OK 2
#define R_OK 4

#define STDIN_FILENO 0
#define STDOUT_FILENO 1
#define STDERR_FILENO 2

#ifndef SEEK_SET
#define SEEK_SET 0
#define SEEK_CUR 1
#define SEEK_END 2
#endif

#define SYNC_VOLUME_FULLSYNC 1
#define SYNC_VOLUME_WAIT 2

extern "C" {

[[noreturn]] void _exit(int status);
int access(const char* path, int mode);
int chdir(const char* path);
int chown(const char* path, uid_t user, gid_t group);
int close(int file);
int dup(int file);
int dup2(int file, int other);
int fchown(int file, uid_t user, gid_t group);
pid_t fork();
int fsync(int file);
int ftruncate(int file, off_t size);
uid_t geteuid();
pid_t getpid();
int isatty(int file);
int link(const char* from, const char* to);
off_t lseek(int file, off_t offset, int whence);
char* mkdtemp(char* path);
int pipe(int ends[2]);
ssize_t pread(int file, void* bytes, size_t size, off_t offset);
ssize_t pwrite(int file, const void* bytes, size_t size, off_t offset);
ssize_t read(int file, void* bytes, size_t size);
int rmdir(const char* path);
int setgid(gid_t group);
int setuid(uid_t user);
unsigned int sleep(unsigned int seconds);
int sync_volume_np(const char* path, int flags)
    __attribute__((availability(macos, introduced = 10.12)));
int unlink(const char* path);
ssize_t write(int file, const void* bytes, size_t size);

}  // extern "C"

#endif  // TESTS_DOUBLES_DARWIN_HEADERS_UNISTD_H_
