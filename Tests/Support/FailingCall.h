#ifndef TESTS_SUPPORT_FAILINGCALL_H_
#define TESTS_SUPPORT_FAILINGCALL_H_

#include <sys/types.h>

#include <climits>
#include <functional>
#include <string>
#include <utility>
#include <vector>

/// While one lives, calls of one of the C library's functions fail, or find something changed. For
/// targets that let_calls_fail() was called for; one fault at a time.
class FailingCall {
 public:
  /// In the place of an error: the call transfers half of the bytes, and does not fail.
  static constexpr int kShort = 0;

  /// The `first` call of `function` from now on, and those up to the `last`, fail with `error`.
  FailingCall(std::string function, int error, int first = 1, int last = INT_MAX);

  /// No call fails. Before those calls of `function`, `change` is made, as another process could
  /// make it.
  FailingCall(std::string function, std::function<void()> change, int first = 1, int last = 1);
  ~FailingCall();
  FailingCall(const FailingCall&) = delete;
  FailingCall& operator=(const FailingCall&) = delete;

  /// How many calls were made.
  int Count() const { return count_; }

  /// The names of all calls that were made, of other functions too, each with a blank behind it.
  const std::string& Calls() const { return calls_; }

  /// The flags and the mode with which a file was last created by openat().
  int CreationFlags() const { return creationFlags_; }
  unsigned CreationMode() const { return creationMode_; }
  void NoteCreation(int flags, unsigned mode) {
    creationFlags_ = flags;
    creationMode_ = mode;
  }

  /// The inode number and the size of each file that fsync() was called for.
  const std::vector<std::pair<ino_t, off_t>>& Synced() const { return synced_; }
  void NoteSync(ino_t inode, off_t size) { synced_.emplace_back(inode, size); }

  /// Counts a call of `function`. Returns whether it has to fail, and sets errno if so. For what
  /// the linker calls instead of `function`.
  static bool Strikes(const char* function);

  /// The error of the calls that fail now.
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
