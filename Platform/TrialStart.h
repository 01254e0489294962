#ifndef PLATFORM_TRIALSTART_H_
#define PLATFORM_TRIALSTART_H_

#include <string>

/// A test whether this system can start a program. The program does not run.
///
/// One back end is compiled in: `apple/` on macOS, `posix/` elsewhere (Linux).
class TrialStart {
 public:
  TrialStart() = delete;

  /// Returns false if this system cannot start the program at `path`: the program is for another
  /// processor or system, or its interpreter is missing. The system itself decides: the program is
  /// started in a stopped process, which is killed before it executes an instruction. Returns true
  /// if the trial fails for another reason, for example for lack of memory: a real start then shows
  /// the reason. On Linux, resets the action of SIGCHLD to the default.
  static bool CanStart(const std::string& path);
};

#endif  // PLATFORM_TRIALSTART_H_
