#include "TrialStart.h"

#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "Descriptor.h"
#include "Uninterrupted.h"

namespace {

/// Executes the program after the parent has written a byte to `allowed`. If the parent is killed
/// before, the program is not started.
[[noreturn]] void StartWhenAllowed(const std::string& path, int allowed) {
  char* const arguments[] = {const_cast<char*>(path.c_str()), nullptr};
  char* const environment[] = {nullptr};
  char byte = 0;
  if (Uninterrupted([&] { return read(allowed, &byte, 1); }) == 1) {
    execve(path.c_str(), arguments, environment);
    _exit(errno);
  }
  _exit(0);
}

/// Returns the error of the start in `child`, or 0. A child that did not exit has executed the
/// program and is stopped before the first instruction: this function kills the child.
int ErrorOf(pid_t child) {
  int status = 0;
  const bool isKnown = Uninterrupted([&] { return waitpid(child, &status, 0); }) == child;
  if (isKnown && WIFEXITED(status)) {
    return WEXITSTATUS(status);
  }
  // A child that cannot be killed stays stopped, and ends with this process.
  if (isKnown && WIFSTOPPED(status) && kill(child, SIGKILL) == 0) {
    Uninterrupted([&] { return waitpid(child, nullptr, 0); });
  }
  return 0;
}

}  // namespace

bool TrialStart::CanStart(const std::string& path) {
  int ends[2] = {-1, -1};
  if (pipe2(ends, O_CLOEXEC) != 0) {
    return true;
  }
  const Descriptor reading(ends[0]);
  Descriptor writing(ends[1]);
  std::signal(SIGCHLD, SIG_DFL);
  const pid_t child = fork();
  if (child == 0) {
    close(*writing);
    StartWhenAllowed(path, *reading);
  }
  if (child < 0) {
    return true;
  }
  // The child stops after execve(), and ends with this process.
  constexpr long kOptions = PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL;
  if (ptrace(PTRACE_SEIZE, child, nullptr, kOptions) != 0 ||
      Uninterrupted([&] { return write(*writing, "", 1); }) != 1) {
    kill(child, SIGKILL);
  }
  const int error = ErrorOf(child);
  return error != ENOEXEC && error != ENOENT && error != ELIBBAD;
}
