#ifndef PLATFORM_PREFERENCESDOMAIN_H_
#define PLATFORM_PREFERENCESDOMAIN_H_

#include <optional>
#include <string>
#include <vector>

/// One preferences domain: the values stored under an application identifier, for all users, on the
/// current host.
///
/// An object is a cheap name for a domain and holds no values. All objects with the same identifier
/// in one process see the same domain, with the changes that are not flushed. This process sees a
/// change at once, other processes at the latest after the next successful Flush(). After a failed
/// Flush() the change stays pending. Whatever is on the disk, no operation prints, aborts or
/// throws, except if memory is exhausted.
///
/// Keys and texts are UTF-8 without a zero byte; setting anything else changes nothing.
///
/// One back end is compiled in: `apple/` stores in CoreFoundation preferences, `posix/` in a
/// property-list file. A back end only stores and reads. Callers decide the meaning of values, and
/// which values count as absent.
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

  /// The result of Read() for one key.
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

  /// Removes `keys` from the disk, and the file of the domain if no other key is left. A back end
  /// that cannot remove the file keeps the file. Makes no file and no directory. Leaves a file that
  /// is no domain as before. Returns false on failure; errno then tells the reason.
  bool Erase(const std::vector<std::string>& keys);

  /// Returns the location of the domain, for people: the path of the file, or the name.
  const std::string& location() const { return name_; }

 private:
  std::string name_;  ///< The name of the domain in the back end.
};

#endif  // PLATFORM_PREFERENCESDOMAIN_H_
