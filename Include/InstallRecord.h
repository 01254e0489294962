#ifndef INCLUDE_INSTALLRECORD_H_
#define INCLUDE_INSTALLRECORD_H_

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "OSUtils.h"

/// The install record of a host, for programs that examine an installation. A run calls none of
/// the functions below. OSUtils defines the rules: the keys, and which values count as absent.
///
/// The functions below never throw, unless memory is exhausted, and are not thread-safe. Their
/// parameter `hostRoot` is the directory at which the host's file system is mounted. An empty
/// `hostRoot` means this host. On a Mac, only this host is supported.
struct InstallRecord {
  /// The state of a stored value. In `values`, an Absent or Unusable number is -1, and an Absent or
  /// Unusable string is empty.
  enum class State {
    Absent,
    Usable,
    Unusable,  ///< The value has the wrong type, or is a string of more than 127 bytes.
  };

  WebRegInfo values;  ///< The values as OSUtils::OldInfo() fills them.
  State random = State::Absent;
  State updateId = State::Absent;
  State installPath = State::Absent;
  State fullVersion = State::Absent;
};

/// The properties of one value of the record.
struct RecordField {
  const char* key;    ///< The key in the preferences domain.
  const char* name;   ///< The member in JSON documents.
  const char* label;  ///< The name for people.
  std::variant<std::int32_t WebRegInfo::*, std::string WebRegInfo::*> value;
  InstallRecord::State InstallRecord::*state;
};

inline constexpr RecordField kInstallPathField = {"tWebResourceInstallPath", "installPath",
                                                  "installed directory", &WebRegInfo::installPath,
                                                  &InstallRecord::installPath};
inline constexpr RecordField kUpdateIdField = {"iUpdateId", "updateId", "update number",
                                               &WebRegInfo::updateId, &InstallRecord::updateId};
inline constexpr RecordField kFullVersionField = {"tFullVersion", "fullVersion", "full version",
                                                  &WebRegInfo::fullVersion,
                                                  &InstallRecord::fullVersion};
inline constexpr RecordField kRandomField = {"irandom", "random", "random identifier",
                                             &WebRegInfo::random, &InstallRecord::random};

/// All values of the record, in the order of reports.
inline constexpr RecordField kRecordFields[] = {kInstallPathField, kUpdateIdField,
                                                kFullVersionField, kRandomField};

/// Returns the values and their states, all from one read. If the record does not exist, every
/// value is Absent. Returns nothing and sets errno if the record cannot be read.
std::optional<InstallRecord> ReadRecord(const std::string& hostRoot);

/// Returns the location of the record for messages: the path of the file or, on a Mac, the name of
/// the preferences domain.
std::string RecordLocation(const std::string& hostRoot);

/// Removes the random identifier, so that the next run draws a new identifier. Returns whether the
/// record was written.
bool RemoveRandom(const std::string& hostRoot);

/// Removes the four values. The keys of other programs stay. On Linux, a file without other keys
/// is deleted. Returns false and sets errno on failure.
bool RemoveRecord(const std::string& hostRoot);

#endif  // INCLUDE_INSTALLRECORD_H_
