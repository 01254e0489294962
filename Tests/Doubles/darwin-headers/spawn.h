#ifndef TESTS_DOUBLES_DARWIN_HEADERS_SPAWN_H_
#define TESTS_DOUBLES_DARWIN_HEADERS_SPAWN_H_

// The parts of a Mac's <spawn.h> that the product and its tests use, from its manual pages.

#include <signal.h>
#include <sys/types.h>

#define POSIX_SPAWN_SETSIGDEF 0x4
#define POSIX_SPAWN_SETSIGMASK 0x8
#define POSIX_SPAWN_START_SUSPENDED 0x0080
#define POSIX_SPAWN_CLOEXEC_DEFAULT 0x4000

typedef void* posix_spawnattr_t;
typedef void* posix_spawn_file_actions_t;

extern "C" {

int posix_spawn(pid_t* process, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const arguments[],
                char* const environment[]);
int posix_spawn_file_actions_addchdir_np(posix_spawn_file_actions_t* actions, const char* path)
    __attribute__((availability(macos, introduced = 10.15, deprecated = 26.0)));
int posix_spawn_file_actions_addclose(posix_spawn_file_actions_t* actions, int file);
int posix_spawn_file_actions_adddup2(posix_spawn_file_actions_t* actions, int file, int other);
int posix_spawn_file_actions_addinherit_np(posix_spawn_file_actions_t* actions, int file)
    __attribute__((availability(macos, introduced = 10.7)));
int posix_spawn_file_actions_destroy(posix_spawn_file_actions_t* actions);
int posix_spawn_file_actions_init(posix_spawn_file_actions_t* actions);
int posix_spawnattr_destroy(posix_spawnattr_t* attributes);
int posix_spawnattr_getflags(const posix_spawnattr_t* attributes, short* flags);
int posix_spawnattr_init(posix_spawnattr_t* attributes);
int posix_spawnattr_setflags(posix_spawnattr_t* attributes, short flags);
int posix_spawnattr_setsigdefault(posix_spawnattr_t* attributes, const sigset_t* signals);
int posix_spawnattr_setsigmask(posix_spawnattr_t* attributes, const sigset_t* signals);

}  // extern "C"

#endif  // TESTS_DOUBLES_DARWIN_HEADERS_SPAWN_H_
