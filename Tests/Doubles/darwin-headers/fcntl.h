#ifndef TESTS_DOUBLES_DARWIN_HEADERS_FCNTL_H_
#define TESTS_DOUBLES_DARWIN_HEADERS_FCNTL_H_

// The parts of a Mac's <fcntl.h> that the product and its tests use, from its manual pages.

#include <sys/types.h>

#define O_RDONLY 0x0
#define O_WRONLY 0x1
#define O_RDWR 0x2
#define O_NONBLOCK 0x4
#define O_NOFOLLOW 0x100
#define O_CREAT 0x200
#define O_TRUNC 0x400
#define O_EXCL 0x800
#define O_DIRECTORY 0x100000
#define O_CLOEXEC 0x1000000

#define F_GETFD 1
#define F_FULLFSYNC 51

extern "C" {

int fcntl(int file, int command, ...);
int open(const char* path, int flags, ...);
int openat(int directory, const char* path, int flags, ...)
    __attribute__((availability(macos, introduced = 10.10)));

}  // extern "C"

#endif  // TESTS_DOUBLES_DARWIN_HEADERS_FCNTL_H_
