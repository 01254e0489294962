#ifndef TESTS_DOUBLES_DARWIN_HEADERS_SYS_FILE_H_
#define TESTS_DOUBLES_DARWIN_HEADERS_SYS_FILE_H_

#include <fcntl.h>

#define LOCK_SH 1
#define LOCK_EX 2
#define LOCK_NB 4

extern "C" int flock(int file, int operation);

#endif  // TESTS_DOUBLES_DARWIN_HEADERS_SYS_FILE_H_
