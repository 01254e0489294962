#ifndef TOOLS_WEBRESOURCES_SUPPORT_PROGRESS_H_
#define TOOLS_WEBRESOURCES_SUPPORT_PROGRESS_H_

#include <cstdint>
#include <string>

namespace webresources {

/// A bar on the error output for work that can take longer than a second. Nothing is shown if the
/// error output is not a terminal, or after BeQuiet(). The bar is removed at the end.
///
///     Progress progress("reading the package", entryCount);
///     for (...) { ...; progress.Step(); }
class Progress {
 public:
  /// `total` is the number of steps. With 0, the number is unknown and nothing is shown.
  Progress(std::string purpose, std::uint64_t total);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// Adds `count` finished steps.
  void Step(std::uint64_t count = 1);

  /// Returns whether progress is shown: the error output is a terminal, and BeQuiet() was not
  /// called.
  static bool IsShown();

  /// After this call, no object of this process shows progress. `--quiet` needs this function.
  static void BeQuiet();

  /// Writes `line` to the error output if IsShown().
  static void Say(const std::string& line);

 private:
  const std::string purpose_;
  const std::uint64_t total_;
  std::uint64_t done_ = 0;
  std::uint64_t shown_ = 0;  ///< The part of the bar that is on the terminal, in columns.
};

/// Interruptions: when the user stops a command, an exception ends the command, so that destructors
/// remove the temporary files.

/// After this call, SIGHUP, SIGINT and SIGTERM do not end the process: instead,
/// ThrowIfInterrupted() throws. A signal that is ignored stays ignored. May be called more than
/// once.
void CatchInterruptions();

/// Returns whether one of these signals has arrived.
bool IsInterrupted();

/// Throws Error("interrupted") with `operation` and `object` if one of these signals has arrived.
/// Long loops call this function for each file and each chunk of a file.
void ThrowIfInterrupted(const std::string& operation, const std::string& object);

/// After this call, each of these signals is also sent to `process`. A signal that has already
/// arrived is sent immediately. With 0, the forwarding ends. Requires: `process` is 0, or a child
/// that was not waited for.
void PassInterruptionsTo(int process);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_SUPPORT_PROGRESS_H_
