#ifndef TESTS_SOURCE_STOREDRECORD_H_
#define TESTS_SOURCE_STOREDRECORD_H_

#include <optional>
#include <string>

/// The record as other programs write and read it, without any code of the installer. One
/// implementation for each back end.
class StoredRecord {
 public:
  StoredRecord() = delete;

  /// Where the record's file is; nothing where only the store knows that.
  static std::optional<std::string> File();

  /// Makes this a host without a record.
  static void Remove();

  /// Stores `members`, in the notation of a property list, and no others.
  static void Write(const std::string& members);

  /// The members on the disk in the order of their keys, each as "key=number " or "key='text' ".
  static std::string Read();

 protected:
  /// The dictionary `members` as a property list.
  static std::string PropertyList(const std::string& members) {
    return R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict>)" + members +
           "</dict></plist>\n";
  }
};

#endif  // TESTS_SOURCE_STOREDRECORD_H_
