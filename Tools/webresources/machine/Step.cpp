#include "Step.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>

#include "Descriptor.h"
#include "Error.h"
#include "Names.h"
#include "Uninterrupted.h"

namespace {

constexpr int kLastSignal = 64;
constexpr rlim_t kMostDescriptors = 65536;

void ResetSignals() {
  for (int signal = 1; signal <= kLastSignal; ++signal) {
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    sigaction(signal, &action, nullptr);
  }
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

bool RedirectStreams() {
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  for (int stream = 0; stream <= STDERR_FILENO; ++stream) {
    // Without a null device the streams are closed: the step uses none of them.
    if (null < 0) {
      close(stream);
    } else if (dup2(null, stream) < 0) {
      return false;
    }
  }
  return true;
}

/// Closes all descriptors from 3 on except two.
void CloseOthers(int kept, int alsoKept) {
  struct rlimit limit = {};
  getrlimit(RLIMIT_NOFILE, &limit);
  const int end = static_cast<int>(std::min(limit.rlim_cur, kMostDescriptors));
  for (int descriptor = STDERR_FILENO + 1; descriptor < end; ++descriptor) {
    if (descriptor != kept && descriptor != alsoKept) {
      close(descriptor);
    }
  }
}

/// Becomes the step, in a child process. Returns only if that fails. Only what may be called
/// between fork() and exec() is called.
void BecomeStep(const char* path, int lockDescriptor, int failures) {
  ResetSignals();
  umask(022);
  if (chdir("/") == 0 && RedirectStreams() && fcntl(lockDescriptor, F_SETFD, 0) == 0) {
    CloseOthers(lockDescriptor, failures);
    char* const arguments[] = {const_cast<char*>(path), nullptr};
    char* const environment[] = {nullptr};
    execve(path, arguments, environment);
  }
}

std::string Describe(int status) {
  if (WIFSIGNALED(status)) {
    return "it was ended by signal " + std::to_string(WTERMSIG(status));
  }
  return WEXITSTATUS(status) == 0 ? "" : "it exited with " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

std::string StepOf(const BundleFiles& files) {
  const std::string above = names::Parent(files.directory);
  const std::string inBundle = above + "/" BUNDLE_EXECUTABLES "/" BUNDLE_EXECUTABLE;
  for (const std::string& path : {inBundle, above + "/" BUNDLE_EXECUTABLE}) {
    if (access(path.c_str(), X_OK) == 0) {
      return path;
    }
  }
  throw Error::FromErrno("run", inBundle);
}

std::string RunStep(const std::string& path, int lockDescriptor) {
  int ends[2] = {-1, -1};
  if (pipe(ends) != 0) {
    throw Error::FromErrno("run", path);
  }
  const Descriptor reading(ends[0]);
  Descriptor writing(ends[1]);
  fcntl(*writing, F_SETFD, FD_CLOEXEC);
  const pid_t child = fork();
  if (child == 0) {
    BecomeStep(path.c_str(), lockDescriptor, *writing);
    const int reason = errno;
    const ssize_t written = write(*writing, &reason, sizeof reason);
    _exit(written == sizeof reason ? 0 : 1);
  }
  if (child < 0) {
    throw Error::FromErrno("run", path);
  }
  { const Descriptor closed(writing.Release()); }
  int reason = 0;
  const ssize_t count = Uninterrupted([&] { return read(*reading, &reason, sizeof reason); });
  int status = 0;
  Uninterrupted([&] { return waitpid(child, &status, 0); });
  if (count == sizeof reason) {
    errno = reason;
    throw Error::FromErrno("run", path);
  }
  return Describe(status);
}
