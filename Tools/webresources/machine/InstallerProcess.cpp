#include "machine/InstallerProcess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <new>
#include <thread>

#include "Descriptor.h"
#include "Inheritance.h"
#include "Uninterrupted.h"
#include "support/Error.h"
#include "support/Progress.h"

namespace webresources {

namespace {

/// The attributes and file actions of the new process.
class Surroundings {
 public:
  explicit Surroundings(int lockDescriptor) {
    posix_spawnattr_init(&attributes_);
    posix_spawn_file_actions_init(&actions_);
    SetSignals();
    SetStreams();
    if (!Inheritance::Restrict(&attributes_, &actions_, lockDescriptor)) {
      throw std::bad_alloc();
    }
  }

  ~Surroundings() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attributes_);
  }

  Surroundings(const Surroundings&) = delete;
  Surroundings& operator=(const Surroundings&) = delete;

  const posix_spawnattr_t* attributes() const { return &attributes_; }
  const posix_spawn_file_actions_t* actions() const { return &actions_; }

 private:
  void SetSignals() {
    sigset_t none;
    sigset_t defaults;
    sigemptyset(&none);
    sigfillset(&defaults);
    struct sigaction hangUp = {};
    if (sigaction(SIGHUP, nullptr, &hangUp) == 0 && hangUp.sa_handler == SIG_IGN) {
      sigdelset(&defaults, SIGHUP);
    }
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    posix_spawnattr_setsigmask(&attributes_, &none);
    posix_spawnattr_setsigdefault(&attributes_, &defaults);
  }

  void SetStreams() {
    for (int stream = 0; stream <= STDERR_FILENO; ++stream) {
      // Without a null device the streams are closed, because the installer uses no stream.
      if (null_) {
        posix_spawn_file_actions_adddup2(&actions_, *null_, stream);
      } else {
        posix_spawn_file_actions_addclose(&actions_, stream);
      }
    }
  }

  const Descriptor null_{open("/dev/null", O_RDWR | O_CLOEXEC)};
  posix_spawnattr_t attributes_;
  posix_spawn_file_actions_t actions_;
};

/// Returns the reason of a failed start. The installer is in a directory of this user, so only the
/// mount options of the volume can deny the start.
std::string ReasonOf(int error) {
  const std::string reason = std::generic_category().message(error);
  return error == EACCES    ? reason + ": the volume may be mounted with noexec"
         : error == ENOEXEC ? reason + ": the program is for another processor or system"
                            : reason;
}

pid_t Start(const std::string& path, int lockDescriptor) {
  umask(022);
  if (chdir("/") != 0) {
    throw CannotStart("change to the directory", "/", std::generic_category().message(errno),
                      "check the permissions of /");
  }
  // If the caller ignores SIGCHLD, the exit status of the installer is lost.
  std::signal(SIGCHLD, SIG_DFL);
  const Surroundings surroundings(lockDescriptor);
  char* const arguments[] = {const_cast<char*>(path.c_str()), nullptr};
  char* const environment[] = {nullptr};
  pid_t process = -1;
  const int error = posix_spawn(&process, path.c_str(), surroundings.actions(),
                                surroundings.attributes(), arguments, environment);
  if (error != 0) {
    throw CannotStart("run", path, ReasonOf(error));
  }
  return process;
}

/// Shows the progress by the free space of the volume that holds `path`, until `hasEnded()`.
template <typename HasEnded>
void ShowProgress(const std::string& path, std::uint64_t bytes, HasEnded hasEnded) {
  constexpr std::chrono::milliseconds kInterval{20};
  constexpr std::uint64_t kPollsOfASecond = 50;
  Progress progress("installing", bytes);
  struct statvfs status = {};
  std::uint64_t before = 0;
  for (std::uint64_t poll = 0; !hasEnded(); ++poll) {
    if (poll % kPollsOfASecond == 0 && statvfs(path.c_str(), &status) == 0) {
      const std::uint64_t free = std::uint64_t{status.f_bfree} * status.f_frsize;
      progress.Step(before > free ? before - free : 0);
      before = free;
    }
    std::this_thread::sleep_for(kInterval);
  }
}

/// Waits for the end of `process`. Forwards signals only while the process number is not reused.
int EndOf(pid_t process, const std::string& path, std::uint64_t bytes) {
  PassInterruptionsTo(process);
  siginfo_t end = {};
  const auto wait = [&](int options) {
    return Uninterrupted([&] {
      return waitid(P_PID, static_cast<id_t>(process), &end, WEXITED | WNOWAIT | options);
    });
  };
  if (Progress::IsShown()) {
    ShowProgress(path, bytes, [&] { return wait(WNOHANG) != 0 || end.si_pid != 0; });
  }
  wait(0);  // if this fails, waitpid() waits for the end
  PassInterruptionsTo(0);
  int status = 0;
  if (Uninterrupted([&] { return waitpid(process, &status, 0); }) < 0) {
    throw Error::FromErrno("learn the end of", path);
  }
  return status;
}

}  // namespace

std::optional<std::string> RunInstaller(const std::string& path, int lockDescriptor,
                                        std::uint64_t bytes) {
  const int status = EndOf(Start(path, lockDescriptor), path, bytes);
  if (WIFSIGNALED(status)) {
    return "it was ended by signal " + std::to_string(WTERMSIG(status));
  }
  if (WEXITSTATUS(status) != 0) {
    return "it exited with " + std::to_string(WEXITSTATUS(status));
  }
  return std::nullopt;
}

}  // namespace webresources
