#ifndef PLATFORM_PREFERENCESDOMAIN_H_
#define PLATFORM_PREFERENCESDOMAIN_H_

#include <optional>
#include <string>
#include <vector>

/// One preferences domain: the values stored under an application identifier, for all users, on the
/// current host.
///
/// An object holds the name of a domain and no values. All objects with the same identifier in one
/// process see the same domain, with the changes that no Flush() has written yet. This process sees
/// a change immediately. Other processes see the change after the next successful Flush() at the
/// latest. After a failed Flush(), the change stays pending. No operation prints or aborts because
/// of stored data. No operation throws, unless memory is exhausted.
///
/// Keys and texts are UTF-8 without a zero byte; a setter ignores any other key or text.
///
/// One back end is compiled in: `apple/` stores in CoreFoundation preferences, `posix/` in a
/// property-list file. A back end only stores and reads. Callers decide the meaning of values, and
/// which values count as absent.
class PreferencesDomain {
 public:
  /// `root` is the directory at which the host's file system is mounted; an empty `root` means this
  /// host. The back end `apple/` supports only this host: for another host, Read() and Flush()
  /// fail, and no domain has values.
  explicit PreferencesDomain(const std::string& applicationIdentifier,
                             const std::string& root = {});

  void SetText(const std::string& key, const std::string& value);
  void SetNumber(const std::string& key, int value);
  /// Removes the value of `key`. The value may be absent.
  void Remove(const std::string& key);
  /// Removes every key of the domain, also keys that are not UTF-8. Returns false if the domain has
  /// no key.
  bool RemoveAll();

  /// The result of Read() for one key.
  struct Value {
    bool isPresent = false;           ///< Whether the key has a value of any type.
    std::optional<int> number;        ///< A number that is exactly a signed 32-bit integer.
    std::optional<std::string> text;  ///< A text of any length.
  };

  /// Stores the values of `keys`, in their order and all from one read, through `values`. A boolean
  /// is no number. A domain that does not exist has no values. Returns false if the domain cannot
  /// be read: errno then has the reason, and `values` has only the changes of this process.
  bool Read(const std::vector<std::string>& keys, std::vector<Value>* values) const;

  /// Writes the changes of this process to the disk. Keeps the keys that other processes have
  /// written. This process sees such keys after the call at the latest. Returns false on
  /// failure. Writes nothing if no change is pending, but can return false also then: if the domain
  /// cannot be read or, on a Mac, if this process has no right to write.
  bool Flush();

  /// Removes `keys` from the disk and from the pending changes. If no other key is left, the back
  /// end `posix/` removes the file, too. Makes no file and no directory. Does not change a damaged
  /// file. Returns false on failure; errno then has a reason.
  bool Erase(const std::vector<std::string>& keys);

  /// Returns the location of the domain, for people: the path of the file, or the name.
  const std::string& location() const { return name_; }

 private:
  std::string name_;  ///< The name of the domain in the back end.
};

#endif  // PLATFORM_PREFERENCESDOMAIN_H_
