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
  /// `total`: how many steps there are; 0 if nobody knows, then nothing is shown.
  Progress(std::string purpose, std::uint64_t total);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// Tells that `count` more steps are done.
  void Step(std::uint64_t count = 1);

  /// Whether progress is shown: the error output is a terminal, and BeQuiet() was not called.
  static bool IsShown();

  /// From now on no object of this process shows anything: for --quiet.
  static void BeQuiet();

  /// Writes `line` to the error output, if progress is shown there at all.
  static void Say(const std::string& line);

 private:
  const std::string purpose_;
  const std::uint64_t total_;
  std::uint64_t done_ = 0;
  std::uint64_t shown_ = 0;  ///< The part of the bar that is on the terminal, in columns.
};

/// Ends a command by an exception when the user stops the command, so that the owners of temporary
/// files remove them.

/// From now on, SIGHUP, SIGINT and SIGTERM do not end the process but make ThrowIfInterrupted()
/// throw. A signal that is ignored stays ignored. May be called more than once.
void CatchInterruptions();

/// Whether one of these signals has arrived.
bool IsInterrupted();

/// Throws Error("interrupted") with `operation` and `object` if one of these signals has arrived.
/// Long loops call this function for each file and each chunk of a file.
void ThrowIfInterrupted(const std::string& operation, const std::string& object);

/// From now on, each of these signals is sent to `process`, too; one that has arrived is sent now.
/// 0 ends that. Requires: `process` is a child whose end was not waited for.
void PassInterruptionsTo(int process);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_SUPPORT_PROGRESS_H_
