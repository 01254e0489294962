#ifndef TESTS_SUPPORT_FAILINGCALL_H_
#define TESTS_SUPPORT_FAILINGCALL_H_

#include <sys/types.h>

#include <climits>
#include <functional>
#include <string>
#include <utility>
#include <vector>

/// Makes chosen calls of one function of the C library fail, or changes the environment before
/// them. The effect ends with the object. Requires: let_calls_fail() was called for the CMake
/// target, and no other FailingCall exists. Not thread-safe.
class FailingCall {
 public:
  /// A value for `error`: the call succeeds, but transfers only half of the bytes.
  static constexpr int kShort = 0;

  /// Makes the calls from `first` to `last` of `function`, counted from now, fail with `error`.
  FailingCall(std::string function, int error, int first = 1, int last = INT_MAX);

  /// Calls `change` before the calls from `first` to `last` of `function`, as another process could
  /// change the environment. No call fails.
  FailingCall(std::string function, std::function<void()> change, int first = 1, int last = 1);
  ~FailingCall();
  FailingCall(const FailingCall&) = delete;
  FailingCall& operator=(const FailingCall&) = delete;

  /// Returns the number of calls of the function.
  int Count() const { return count_; }

  /// Returns the names of all calls, also of other functions, each followed by a space.
  const std::string& Calls() const { return calls_; }

  /// Return the flags and the mode of the last file that openat() created.
  int CreationFlags() const { return creationFlags_; }
  unsigned CreationMode() const { return creationMode_; }
  void NoteCreation(int flags, unsigned mode) {
    creationFlags_ = flags;
    creationMode_ = mode;
  }

  /// Returns the inode number and the size of each file passed to fsync().
  const std::vector<std::pair<ino_t, off_t>>& Synced() const { return synced_; }
  void NoteSync(ino_t inode, off_t size) { synced_.emplace_back(inode, size); }

  /// Counts a call of `function`. Returns whether the call must fail, and then sets errno. Only the
  /// replacements of `function` call this operation.
  static bool Strikes(const char* function);

  /// Returns the error of the calls that fail now.
  static int CurrentError();

 private:
  bool Counts(const char* function);

  std::string function_;
  int error_ = 0;
  std::function<void()> change_;
  int first_;
  int last_;
  int count_ = 0;
  std::string calls_;
  int creationFlags_ = 0;
  unsigned creationMode_ = 0;
  std::vector<std::pair<ino_t, off_t>> synced_;
};

#endif  // TESTS_SUPPORT_FAILINGCALL_H_
