#ifndef TESTS_SOURCE_STOREDRECORD_H_
#define TESTS_SOURCE_STOREDRECORD_H_

#include <optional>
#include <string>

/// The record as other programs write and read it, without code of the installer. Each back end has
/// an implementation.
class StoredRecord {
 public:
  StoredRecord() = delete;

  /// Returns the path of the record's file, or nothing if only the store knows the path.
  static std::optional<std::string> File();

  /// Removes the record of this host.
  static void Remove();

  /// Replaces the record by `members`, in the notation of a property list.
  static void Write(const std::string& members);

  /// Returns the stored members in the order of their keys, each as "key=number " or "key='text' ".
  static std::string Read();

 protected:
  /// Returns a property list with the dictionary `members`.
  static std::string PropertyList(const std::string& members) {
    return R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict>)" + members +
           "</dict></plist>\n";
  }
};

#endif  // TESTS_SOURCE_STOREDRECORD_H_
