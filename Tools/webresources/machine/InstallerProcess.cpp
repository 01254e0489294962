#include "machine/InstallerProcess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>

#include "Descriptor.h"
#include "Uninterrupted.h"
#include "support/Error.h"

namespace webresources {

namespace {

/// Beyond what a caller leaves open: the system gives the lowest free number to each new one.
constexpr int kForeignDescriptors = 256;

/// What posix_spawn() is to do in the new process.
class Surroundings {
 public:
  Surroundings() {
    posix_spawnattr_init(&attributes_);
    posix_spawn_file_actions_init(&actions_);
    SetSignals();
    posix_spawn_file_actions_addchdir_np(&actions_, "/");
    SetStreams();
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
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    posix_spawnattr_setsigmask(&attributes_, &none);
    posix_spawnattr_setsigdefault(&attributes_, &all);
  }

  void SetStreams() {
    for (int stream = 0; stream <= STDERR_FILENO; ++stream) {
      // Without a null device the streams are closed: the step uses none of them.
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

/// Keeps the caller's descriptors from 3 on, except one, from new programs.
void CloseOthersInPrograms(int kept) {
  for (int descriptor = STDERR_FILENO + 1; descriptor < kForeignDescriptors; ++descriptor) {
    fcntl(descriptor, F_SETFD, descriptor == kept ? 0 : FD_CLOEXEC);
  }
}

std::string Describe(int status) {
  if (WIFSIGNALED(status)) {
    return "it was ended by signal " + std::to_string(WTERMSIG(status));
  }
  if (WEXITSTATUS(status) != 0) {
    return "it exited with " + std::to_string(WEXITSTATUS(status));
  }
  return {};
}

}  // namespace

std::string StepOf(const BundleFiles& files) {
  // The step has another working directory. The path ends in "/".
  const std::string above =
      std::filesystem::absolute(files.directory + "/..").lexically_normal().string();
  const std::string inBundle = above + BUNDLE_EXECUTABLES "/" BUNDLE_EXECUTABLE;
  for (const std::string& path : {inBundle, above + BUNDLE_EXECUTABLE}) {
    if (access(path.c_str(), X_OK) == 0) {
      return path;
    }
  }
  if (access(inBundle.c_str(), F_OK) == 0) {
    throw Error("run", inBundle, "the file is not executable", "give it the mode 0755");
  }
  if (errno != ENOENT && errno != ENOTDIR) {
    throw Error::FromErrno("run", inBundle);
  }
  throw Error("run", inBundle, "the bundle has no installer",
              "install from a copy of the installer's bundle");
}

std::string RunStep(const std::string& path, int lockDescriptor) {
  umask(022);
  CloseOthersInPrograms(lockDescriptor);
  const Surroundings surroundings;
  char* const arguments[] = {const_cast<char*>(path.c_str()), nullptr};
  char* const environment[] = {nullptr};
  pid_t child = -1;
  errno = posix_spawn(&child, path.c_str(), surroundings.actions(), surroundings.attributes(),
                      arguments, environment);
  if (errno != 0) {
    throw Error::FromErrno("run", path);
  }
  int status = 0;
  Uninterrupted([&] { return waitpid(child, &status, 0); });
  return Describe(status);
}

}  // namespace webresources
