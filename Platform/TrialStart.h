#ifndef PLATFORM_TRIALSTART_H_
#define PLATFORM_TRIALSTART_H_

#include <string>

/// The start of a program that is not meant to run.
///
/// One back end is compiled in: `apple/` on macOS, `posix/` elsewhere (Linux).
class TrialStart {
 public:
  TrialStart() = delete;

  /// Returns false if this system cannot start the program at `path`: the program is for another
  /// processor or system, or its interpreter is missing. The system itself decides: the program is
  /// started in a stopped process, which is killed before it executes an instruction. Returns true
  /// if the trial fails for another reason: a real start then tells the reason. Changes the
  /// handling of SIGCHLD to the default.
  static bool CanStart(const std::string& path);
};

#endif  // PLATFORM_TRIALSTART_H_
