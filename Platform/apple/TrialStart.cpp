#include "TrialStart.h"

#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>

bool TrialStart::CanStart(const std::string& path) {
  posix_spawnattr_t attributes;
  if (posix_spawnattr_init(&attributes) != 0) {
    return true;
  }
  char* const arguments[] = {const_cast<char*>(path.c_str()), nullptr};
  char* const environment[] = {nullptr};
  pid_t process = -1;
  int error = posix_spawnattr_setflags(&attributes, POSIX_SPAWN_START_SUSPENDED);
  if (error == 0) {
    error = posix_spawn(&process, path.c_str(), nullptr, &attributes, arguments, environment);
  }
  posix_spawnattr_destroy(&attributes);
  if (error == 0) {
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
  }
  return error != ENOEXEC && error != ENOENT && error != EBADARCH;
}
