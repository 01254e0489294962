#ifndef PLATFORM_PREFERENCESDOMAIN_H_
#define PLATFORM_PREFERENCESDOMAIN_H_

#include <optional>
#include <string>
#include <vector>

/// One preferences domain: the values stored under an application identifier, for all users, on the
/// current host.
///
/// An object is a cheap name for its domain; it holds no values itself. All objects with the same
/// identifier in one process see the same domain, including changes that are not yet flushed.
/// A change is visible to this process at once, and to others at the latest after the next
/// successful Flush(); after a failed one it stays pending. Nothing here throws (memory exhaustion
/// apart), prints, or aborts on what it finds on the disk.
///
/// Keys and texts are UTF-8 without a zero byte; setting anything else changes nothing.
///
/// One back end is compiled in: `apple/` stores in CoreFoundation preferences, `posix/` in a
/// property-list file. A back end only stores and reads: what the values mean, and what counts as
/// absent, is decided by its callers.
class PreferencesDomain {
 public:
  /// `root`: where the file system of the host lies, empty for this host. A back end that reaches
  /// this host only finds nothing in the domains of others, and can neither read nor flush them.
  explicit PreferencesDomain(const std::string& applicationIdentifier,
                             const std::string& root = {});

  void SetText(const std::string& key, const std::string& value);
  void SetNumber(const std::string& key, int value);
  /// Removes the value of `key`; removing an absent one is allowed.
  void Remove(const std::string& key);
  /// Removes every key of the domain, also one that is not UTF-8. Returns false if there is none.
  bool RemoveAll();

  /// A value, as Read() finds it.
  struct Value {
    bool isPresent = false;           ///< Whether there is a value, of whatever type.
    std::optional<int> number;        ///< A number that is exactly a signed 32-bit integer.
    std::optional<std::string> text;  ///< A text of any length.
  };

  /// Stores the values of `keys`, in their order and all from one read, through `values`. A boolean
  /// is no number. A domain that does not exist has no values. Returns false if the domain cannot
  /// be read: then errno tells the reason, and `values` has the changes of this process only.
  bool Read(const std::vector<std::string>& keys, std::vector<Value>* values) const;

  /// Writes this process's changes to the disk. Returns whether that succeeded. Keys that another
  /// process has written meanwhile are kept, and seen from then on at the latest. Without changes
  /// nothing is written; the result may be false even then, where this process has no right to
  /// write the domain.
  bool Flush();

  /// Removes `keys` from the disk, and the domain's file if no other key is in it; a back end that
  /// cannot remove the file keeps it. Makes no file and no directory, and does not touch a file
  /// that is no domain. Returns whether that succeeded; if not, errno tells the reason.
  bool Erase(const std::vector<std::string>& keys);

  /// The place of the domain, for people: the path of its file, or its name.
  const std::string& location() const { return name_; }

 private:
  std::string name_;  ///< What the back end calls the domain.
};

#endif  // PLATFORM_PREFERENCESDOMAIN_H_
