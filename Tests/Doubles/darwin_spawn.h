#ifndef TESTS_DOUBLES_DARWIN_SPAWN_H_
#define TESTS_DOUBLES_DARWIN_SPAWN_H_

// The calls and flags of a Mac by which Platform/apple starts programs, for a compiler of another
// system.

#include <spawn.h>

#define EBADARCH 86
#define POSIX_SPAWN_START_SUSPENDED 0x0080
#define POSIX_SPAWN_CLOEXEC_DEFAULT 0x4000

int posix_spawn_file_actions_addinherit_np(posix_spawn_file_actions_t* actions, int file);

#endif  // TESTS_DOUBLES_DARWIN_SPAWN_H_
