#ifndef TESTS_DOUBLES_DARWIN_HEADERS_TYPES_H_
#define TESTS_DOUBLES_DARWIN_HEADERS_TYPES_H_

// The types that a Mac defines differently from musl. The compilation for a Mac includes this file
// before every source. The names tell musl's headers that the types are defined.

#define __DEFINED_blkcnt_t
#define __DEFINED_blksize_t
#define __DEFINED_dev_t
#define __DEFINED_ino_t
#define __DEFINED_int64_t
#define __DEFINED_mode_t
#define __DEFINED_nlink_t
#define __DEFINED_off_t
#define __DEFINED_suseconds_t
#define __DEFINED_uint64_t

typedef long long int64_t;
typedef unsigned long long uint64_t;

typedef int64_t blkcnt_t;
typedef int blksize_t;
typedef int dev_t;
typedef uint64_t ino_t;
typedef unsigned short mode_t;
typedef unsigned short nlink_t;
typedef int64_t off_t;
typedef int suseconds_t;

#define EBADARCH 86  // of <errno.h>

#endif  // TESTS_DOUBLES_DARWIN_HEADERS_TYPES_H_
